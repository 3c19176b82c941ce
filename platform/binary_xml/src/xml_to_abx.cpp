#include "binary_xml/xml_to_abx.h"

#include <libxml/entities.h>
#include <libxml/parser.h>
#include <libxml/tree.h>

#include <charconv>
#include <climits>
#include <cstdint>
#include <memory>

namespace Zarvo::BinaryXml {
namespace {

struct XmlFree {
    void operator()(xmlChar *text) const { xmlFree(text); }
};
using XmlText = std::unique_ptr<xmlChar, XmlFree>;

std::string_view View(const xmlChar *text) {
    return text == nullptr ? std::string_view() : std::string_view(reinterpret_cast<const char *>(text));
}

std::string QualifiedName(const xmlNs *ns, const xmlChar *name) {
    std::string qualified;
    if (ns != nullptr && ns->prefix != nullptr) {
        qualified = View(ns->prefix);
        qualified += ':';
    }
    qualified += View(name);
    return qualified;
}

// Only the canonical spelling is taken as a number, so the text form reads back unchanged.
bool IsCanonicalInteger(std::string_view text) {
    std::string_view digits = text.substr(text.empty() || text[0] != '-' ? 0 : 1);
    if (digits.empty() || (digits[0] == '0' && (digits.size() > 1 || text[0] == '-'))) {
        return false;
    }
    return digits.find_first_not_of("0123456789") == std::string_view::npos;
}

void WriteAttribute(AbxWriter &writer, const std::string &name, std::string_view value,
                    const EncodeOptions &options) {
    if (options.inferTypes) {
        if (value == "true" || value == "false") {
            writer.Attribute(name, value == "true");
            return;
        }
        std::int64_t number = 0;
        auto parsed = std::from_chars(value.data(), value.data() + value.size(), number);
        if (IsCanonicalInteger(value) && parsed.ec == std::errc() &&
            parsed.ptr == value.data() + value.size()) {
            if (number >= INT32_MIN && number <= INT32_MAX) {
                writer.Attribute(name, static_cast<std::int32_t>(number));
            } else {
                writer.Attribute(name, number);
            }
            return;
        }
    }
    writer.Attribute(name, value);
}

// libxml2, reading without substituting entities, keeps an ampersand in a namespace declaration
// as the reference "&#38;" and any other entity reference as written. The namespace name is the
// text with "&#38;" read back; a name built from other references is not taken (false).
bool NamespaceName(const xmlChar *href, std::string &name) {
    static constexpr std::string_view AMPERSAND = "&#38;";
    std::string_view raw = View(href);
    name.clear();
    for (std::size_t i = 0; i < raw.size(); ++i) {
        if (raw[i] != '&') {
            name += raw[i];
        } else if (raw.compare(i, AMPERSAND.size(), AMPERSAND) == 0) {
            name += '&';
            i += AMPERSAND.size() - 1;
        } else {
            return false;
        }
    }
    return true;
}

class Encoder {
public:
    explicit Encoder(const EncodeOptions &options) : writer_(options.supplementary), options_(options) {}

    Status Run(xmlDocPtr doc, std::string &abx) {
        writer_.StartDocument();
        for (xmlNodePtr node = doc->children; node != nullptr && status_ == Status::OK; node = node->next) {
            WriteNode(node);
        }
        writer_.EndDocument();
        if (status_ == Status::OK && !writer_.Ok()) {
            status_ = Status::TOO_LARGE;
        }
        if (status_ == Status::OK) {
            abx = writer_.Data();
        }
        return status_;
    }

private:
    void WriteElement(xmlNodePtr element) {
        std::string name = QualifiedName(element->ns, element->name);
        writer_.StartTag(name);
        for (xmlNsPtr ns = element->nsDef; ns != nullptr; ns = ns->next) {
            std::string declaration =
                ns->prefix == nullptr ? "xmlns" : "xmlns:" + std::string(View(ns->prefix));
            std::string namespaceName;
            if (!NamespaceName(ns->href, namespaceName)) {
                status_ = Status::MALFORMED;
                return;
            }
            writer_.Attribute(declaration, namespaceName);
        }
        for (xmlAttrPtr attribute = element->properties; attribute != nullptr; attribute = attribute->next) {
            XmlText value(xmlNodeGetContent(reinterpret_cast<xmlNodePtr>(attribute)));
            WriteAttribute(writer_, QualifiedName(attribute->ns, attribute->name), View(value.get()),
                           options_);
        }
        for (xmlNodePtr child = element->children; child != nullptr && status_ == Status::OK;
             child = child->next) {
            WriteNode(child);
        }
        writer_.EndTag(name);
    }

    // A reference to an entity the document declares stands for the entity's replacement text,
    // which libxml2 parses into nodes below the declaration and hangs the declaration below the
    // reference. The binary form can carry only the predefined entities, so the content is written
    // in place. A reference whose text the document does not hold (an external entity, or one
    // declared nowhere) cannot be written and is refused.
    void WriteEntityReference(xmlNodePtr reference) {
        const auto *entity = reinterpret_cast<const xmlEntity *>(reference->children);
        if (entity == nullptr || entity->type != XML_ENTITY_DECL ||
            entity->etype != XML_INTERNAL_GENERAL_ENTITY) {
            status_ = Status::MALFORMED;
            return;
        }
        for (xmlNodePtr child = entity->children; child != nullptr && status_ == Status::OK;
             child = child->next) {
            WriteNode(child);
        }
    }

    void WriteNode(xmlNodePtr node) {
        switch (node->type) {
            case XML_ELEMENT_NODE:
                WriteElement(node);
                break;
            case XML_TEXT_NODE:
                writer_.Text(View(node->content));
                break;
            case XML_CDATA_SECTION_NODE:
                writer_.Cdsect(View(node->content));
                break;
            case XML_ENTITY_REF_NODE:
                WriteEntityReference(node);
                break;
            case XML_COMMENT_NODE:
                writer_.Comment(View(node->content));
                break;
            case XML_PI_NODE: {
                std::string text(View(node->name));
                if (!View(node->content).empty()) {
                    text += ' ';
                    text += View(node->content);
                }
                writer_.ProcessingInstruction(text);
                break;
            }
            default:
                break;
        }
    }

    AbxWriter writer_;
    const EncodeOptions &options_;
    Status status_ = Status::OK;
};

}  // namespace

Status EncodeXml(std::string_view xml, std::string &abx, const EncodeOptions &options) {
    if (xml.size() > static_cast<std::size_t>(INT_MAX)) {
        return Status::TOO_LARGE;
    }
    std::unique_ptr<xmlDoc, decltype(&xmlFreeDoc)> doc(
        xmlReadMemory(xml.data(), static_cast<int>(xml.size()), nullptr, nullptr,
                      XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING),
        &xmlFreeDoc);
    if (doc == nullptr || xmlDocGetRootElement(doc.get()) == nullptr) {
        return Status::MALFORMED;
    }
    return Encoder(options).Run(doc.get(), abx);
}

}  // namespace Zarvo::BinaryXml

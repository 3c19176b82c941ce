// Feeds arbitrary text to the text-to-binary XML encoder. Whatever the encoder accepts must come
// back from the decoder as the same document: same elements, namespace declarations and
// attributes in order, same character data, comments and processing instructions. "Same" allows
// what text XML itself does not tell apart: CDATA and plain text are one run of characters, and
// an entity reference stands for its replacement text. Inputs the encoder refuses are fine.
#include <libxml/parser.h>
#include <libxml/tree.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>

#include "binary_xml/abx_decoder.h"
#include "binary_xml/xml_to_abx.h"

namespace {

using Zarvo::BinaryXml::AbxWriter;
using Zarvo::BinaryXml::DecodeAbx;
using Zarvo::BinaryXml::EncodeOptions;
using Zarvo::BinaryXml::EncodeXml;
using Zarvo::BinaryXml::Status;
using Doc = std::unique_ptr<xmlDoc, decltype(&xmlFreeDoc)>;

// The encoder's own reading of the text (it must not load anything from outside either).
Doc Parse(std::string_view xml) {
    return Doc(xmlReadMemory(xml.data(), static_cast<int>(xml.size()), nullptr, nullptr,
                             XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING),
               &xmlFreeDoc);
}

std::string Text(const xmlChar *text) {
    return text == nullptr ? std::string() : std::string(reinterpret_cast<const char *>(text));
}

std::string QualifiedName(const xmlNs *ns, const xmlChar *name) {
    return ns != nullptr && ns->prefix != nullptr ? Text(ns->prefix) + ":" + Text(name) : Text(name);
}

// One line per item; character data is gathered until the next item so that adjacent text and
// CDATA nodes form one run.
class Canonical {
public:
    std::string Of(const xmlDoc *doc) {
        for (const xmlNode *node = doc->children; node != nullptr; node = node->next) {
            Node(node);
        }
        Flush();
        return out_;
    }

private:
    void Node(const xmlNode *node) {
        switch (node->type) {
            case XML_ELEMENT_NODE:
                Element(node);
                break;
            case XML_TEXT_NODE:
            case XML_CDATA_SECTION_NODE:
                pending_ += Text(node->content);
                break;
            case XML_ENTITY_REF_NODE:
                // libxml2 hangs the entity declaration below the reference; its children are
                // the parsed replacement text.
                if (node->children != nullptr && node->children->type == XML_ENTITY_DECL) {
                    for (const xmlNode *child = node->children->children; child != nullptr;
                         child = child->next) {
                        Node(child);
                    }
                } else {
                    Line("R", Text(node->name));
                }
                break;
            case XML_COMMENT_NODE:
                Line("C", Text(node->content));
                break;
            case XML_PI_NODE:
                Line("P", Text(node->name) + " " + Text(node->content));
                break;
            default:
                break;
        }
    }

    void Element(const xmlNode *element) {
        Line("E", QualifiedName(element->ns, element->name));
        for (const xmlNs *ns = element->nsDef; ns != nullptr; ns = ns->next) {
            Line("N", Text(ns->prefix) + "=" + Text(ns->href));
        }
        for (const xmlAttr *attribute = element->properties; attribute != nullptr;
             attribute = attribute->next) {
            xmlChar *value = xmlNodeGetContent(reinterpret_cast<const xmlNode *>(attribute));
            Line("A", QualifiedName(attribute->ns, attribute->name) + "=" + Text(value));
            xmlFree(value);
        }
        for (const xmlNode *child = element->children; child != nullptr; child = child->next) {
            Node(child);
        }
        Line("/", QualifiedName(element->ns, element->name));
    }

    void Line(const char *kind, const std::string &text) {
        Flush();
        Append(kind, text);
    }

    void Flush() {
        if (!pending_.empty()) {
            Append("T", pending_);
            pending_.clear();
        }
    }

    // Lengths keep the lines apart whatever the text holds.
    void Append(const char *kind, const std::string &text) {
        out_ += kind;
        out_ += std::to_string(text.size());
        out_ += ':';
        out_ += text;
        out_ += '\n';
    }

    std::string out_;
    std::string pending_;
};

[[noreturn]] void Fail(const char *what, const std::string &detail) {
    std::fprintf(stderr, "xml_to_abx_fuzzer: %s\n%s\n", what, detail.c_str());
    std::abort();
}

void CheckRoundTrip(std::string_view xml, const EncodeOptions &options) {
    std::string abx;
    if (EncodeXml(xml, abx, options) != Status::OK) {
        return;
    }
    std::string back;
    Status status = DecodeAbx(abx, back);
    if (status != Status::OK) {
        Fail("the decoder refuses what the encoder wrote, status", std::to_string(static_cast<int>(status)));
    }
    Doc original = Parse(xml);
    Doc decoded = Parse(back);
    if (original == nullptr || decoded == nullptr) {
        Fail("libxml2 cannot read the decoded document", back);
    }
    std::string expected = Canonical().Of(original.get());
    std::string actual = Canonical().Of(decoded.get());
    if (expected != actual) {
        Fail("the document changed on the way through the binary form", expected + "----\n" + actual);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    std::string_view xml(reinterpret_cast<const char *>(data), size);
    // Both string forms and both value typings, in two passes rather than four.
    CheckRoundTrip(xml, EncodeOptions{false, AbxWriter::Supplementary::FOUR_BYTE});
    CheckRoundTrip(xml, EncodeOptions{true, AbxWriter::Supplementary::SURROGATE_PAIR});
    return 0;
}

#include "xml_test_util.h"

#include <libxml/parser.h>
#include <libxml/tree.h>

#include <fstream>
#include <iterator>
#include <memory>

namespace Zarvo::Testing {
namespace {

using Doc = std::unique_ptr<xmlDoc, decltype(&xmlFreeDoc)>;

Doc Read(const std::string &xml, bool recover) {
    int options =
        XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING | (recover ? XML_PARSE_RECOVER : 0);
    Doc doc(xmlReadMemory(xml.data(), static_cast<int>(xml.size()), nullptr, nullptr, options), &xmlFreeDoc);
    return xmlDocGetRootElement(doc.get()) == nullptr ? Doc(nullptr, &xmlFreeDoc) : std::move(doc);
}

std::string Str(const xmlChar *text) {
    return text == nullptr ? "" : reinterpret_cast<const char *>(text);
}

void Describe(xmlNodePtr element, std::string &out) {
    out += '<' + Str(element->name);
    for (xmlAttrPtr attribute = element->properties; attribute != nullptr; attribute = attribute->next) {
        xmlChar *value = xmlNodeGetContent(reinterpret_cast<xmlNodePtr>(attribute));
        out += ' ' + Str(attribute->name) + "=[" + Str(value) + ']';
        xmlFree(value);
    }
    out += '>';
    std::string text;
    auto flushText = [&]() {
        if (text.find_first_not_of(" \t\r\n") != std::string::npos) {
            out += '{' + text + '}';
        }
        text.clear();
    };
    for (xmlNodePtr child = element->children; child != nullptr; child = child->next) {
        if (child->type == XML_TEXT_NODE || child->type == XML_CDATA_SECTION_NODE) {
            text += Str(child->content);
        } else if (child->type == XML_ELEMENT_NODE) {
            flushText();
            Describe(child, out);
        }
    }
    flushText();
    out += "</>";
}

}  // namespace

bool ParsesStrictly(const std::string &xml) {
    return Read(xml, false) != nullptr;
}

std::string Canonical(const std::string &xml, bool recover) {
    Doc doc = Read(xml, recover);
    std::string out;
    if (doc != nullptr) {
        Describe(xmlDocGetRootElement(doc.get()), out);
    }
    return out;
}

std::string ReadFile(const std::filesystem::path &path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

}  // namespace Zarvo::Testing

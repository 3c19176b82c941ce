#include "html_page.h"

#include <openssl/evp.h>

#include <cstring>
#include <functional>
#include <memory>
#include <sstream>
#include <string_view>

#include "binary_xml/value_text.h"
#include "binary_xml/xml_text.h"
#include "page_assets.h"

namespace Zarvo::Host {
namespace {

// Text that is not UTF-8 keeps what could be converted before the fault.
std::string EscapeHtmlText(const std::string &text) {
    std::string escaped;
    BinaryXml::AppendXmlText(text, BinaryXml::XmlContext::TEXT, escaped);
    return escaped;
}

// The digest of one of the runner's own page elements, taken from the build; empty for other text.
std::string_view BuiltInDigest(std::string_view content) {
    for (size_t i = 0; i < PAGE_ELEMENT_DIGEST_COUNT; ++i) {
        const std::string_view first = PAGE_ELEMENT_DIGESTS[i].first;
        const std::string_view second = PAGE_ELEMENT_DIGESTS[i].second;
        if (content.size() == first.size() + second.size() && content.substr(0, first.size()) == first &&
            content.substr(first.size()) == second) {
            return PAGE_ELEMENT_DIGESTS[i].sha256;
        }
    }
    return {};
}

// The CSP source that allows exactly this inline element: 'sha256-<base64 of its digest>'.
std::string HashSource(const std::string &content) {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    const std::string_view builtIn = BuiltInDigest(content);
    if (!builtIn.empty()) {
        // Starting the crypto library for one digest costs more than the rest of a page.
        for (size_t i = 0; i + 1 < builtIn.size(); i += 2) {
            digest[length++] =
                static_cast<unsigned char>(std::stoi(std::string(builtIn.substr(i, 2)), nullptr, 16));
        }
    } else {
        EVP_Digest(content.data(), content.size(), digest, &length, EVP_sha256(), nullptr);
    }
    std::string source = "'sha256-";
    BinaryXml::AppendBase64(std::string_view(reinterpret_cast<const char *>(digest), length), source);
    return source + "'";
}

// Serializer output that escapes what could end a script element as it passes. U+2028 and U+2029
// (E2 80 A8, E2 80 A9) may be split between two writes, so a started sequence is held back.
class ScriptElementOutput : public nlohmann::detail::output_adapter_protocol<char> {
public:
    explicit ScriptElementOutput(std::ostream &out) : out_(out) {}
    ~ScriptElementOutput() override { Flush(); }

    void write_character(char c) override { Put(c); }
    void write_characters(const char *s, std::size_t length) override {
        for (std::size_t i = 0; i < length; ++i) {
            Put(s[i]);
        }
    }

    void Flush() {
        out_.write(held_, static_cast<std::streamsize>(heldCount_));
        heldCount_ = 0;
    }

private:
    void Put(char c) {
        if (heldCount_ == 2) {
            heldCount_ = 0;
            if (c == '\xA8' || c == '\xA9') {
                out_ << (c == '\xA8' ? "\\u2028" : "\\u2029");
                return;
            }
            out_.write("\xE2\x80", 2);
        } else if (heldCount_ == 1) {
            if (c == '\x80') {
                held_[heldCount_++] = c;
                return;
            }
            Flush();
        }
        switch (c) {
            case '<':
                out_ << "\\u003c";
                break;
            case '>':
                out_ << "\\u003e";
                break;
            case '&':
                out_ << "\\u0026";
                break;
            case '\xE2':
                held_[heldCount_++] = c;
                break;
            default:
                out_.put(c);
        }
    }

    std::ostream &out_;
    char held_[2] = {};
    std::size_t heldCount_ = 0;
};

// The data's JSON, compact, through the escaping output.
void WriteDataForScriptElement(const std::function<void(JsonWriter &)> &writeData, std::ostream &out) {
    auto output = std::make_shared<ScriptElementOutput>(out);
    JsonWriter writer(output, false, 0);
    writeData(writer);
    output->Flush();
}

void WritePage(const std::string &title, const std::string &style, const std::string &script,
               const std::function<void(JsonWriter &)> &writeData, std::ostream &out) {
    out << "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
           "<meta http-equiv=\"Content-Security-Policy\" content=\"default-src 'none'; img-src data:; "
           "style-src "
        << HashSource(style) << "; script-src " << HashSource(script)
        << "; base-uri 'none'; form-action 'none'\">\n<meta name=\"viewport\" content=\"width=device-width, "
           "initial-scale=1\">\n<title>"
        << EscapeHtmlText(title) << "</title>\n<style>" << style
        << "</style>\n</head>\n<body>\n<noscript>This page draws itself with a script; allow scripts to "
           "see it.</noscript>\n<script type=\"application/json\" id=\"data\">";
    WriteDataForScriptElement(writeData, out);
    out << "</script>\n<script>" << script << "</script>\n</body>\n</html>\n";
}

}  // namespace

void WriteJsonForScriptElement(const nlohmann::json &data, std::ostream &out) {
    WriteDataForScriptElement([&data](JsonWriter &writer) { writer.Value(data); }, out);
}

std::string JsonForScriptElement(const nlohmann::json &data) {
    std::ostringstream out;
    WriteJsonForScriptElement(data, out);
    return out.str();
}

void WriteSelfContainedPage(const std::string &title, const std::string &style, const std::string &script,
                            const nlohmann::json &data, std::ostream &out) {
    WritePage(
        title, style, script, [&data](JsonWriter &writer) { writer.Value(data); }, out);
}

void WriteSelfContainedPage(const std::string &title, const std::string &style, const std::string &script,
                            const StreamedDocument &data, std::ostream &out) {
    WritePage(
        title, style, script, [&data](JsonWriter &writer) { writer.Document(data); }, out);
}

std::string SelfContainedPage(const std::string &title, const std::string &style, const std::string &script,
                              const nlohmann::json &data) {
    std::ostringstream out;
    WriteSelfContainedPage(title, style, script, data, out);
    return out.str();
}

}  // namespace Zarvo::Host

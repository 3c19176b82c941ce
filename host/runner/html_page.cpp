#include "html_page.h"

#include <openssl/evp.h>

#include "binary_xml/value_text.h"
#include "binary_xml/xml_text.h"

namespace Zarvo::Host {
namespace {

// Text that is not UTF-8 keeps what could be converted before the fault.
std::string EscapeHtmlText(const std::string &text) {
    std::string escaped;
    BinaryXml::AppendXmlText(text, BinaryXml::XmlContext::TEXT, escaped);
    return escaped;
}

// The CSP source that allows exactly this inline element: 'sha256-<base64 of its digest>'.
std::string HashSource(const std::string &content) {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    EVP_Digest(content.data(), content.size(), digest, &length, EVP_sha256(), nullptr);
    std::string source = "'sha256-";
    BinaryXml::AppendBase64(std::string_view(reinterpret_cast<const char *>(digest), length), source);
    return source + "'";
}

}  // namespace

std::string JsonForScriptElement(const nlohmann::json &data) {
    const std::string json = data.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
    std::string escaped;
    escaped.reserve(json.size());
    for (size_t i = 0; i < json.size(); ++i) {
        const char c = json[i];
        if (c == '<') {
            escaped += "\\u003c";
        } else if (c == '>') {
            escaped += "\\u003e";
        } else if (c == '&') {
            escaped += "\\u0026";
        } else if (json.compare(i, 3, "\xE2\x80\xA8") == 0 || json.compare(i, 3, "\xE2\x80\xA9") == 0) {
            escaped += json[i + 2] == '\xA8' ? "\\u2028" : "\\u2029";
            i += 2;
        } else {
            escaped += c;
        }
    }
    return escaped;
}

std::string SelfContainedPage(const std::string &title, const std::string &style, const std::string &script,
                              const nlohmann::json &data) {
    const std::string policy = "default-src 'none'; img-src data:; style-src " + HashSource(style) +
                               "; script-src " + HashSource(script) + "; base-uri 'none'; form-action 'none'";
    return "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
           "<meta http-equiv=\"Content-Security-Policy\" content=\"" +
           policy +
           "\">\n<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n"
           "<title>" +
           EscapeHtmlText(title) + "</title>\n<style>" + style +
           "</style>\n</head>\n<body>\n<noscript>This page draws itself with a script; allow scripts to "
           "see it.</noscript>\n<script type=\"application/json\" id=\"data\">" +
           JsonForScriptElement(data) + "</script>\n<script>" + script + "</script>\n</body>\n</html>\n";
}

}  // namespace Zarvo::Host

#include "libxml_messages.h"

#include <libxml/parser.h>
#include <libxml/xmlerror.h>

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <string>

#include "support/printable.h"

namespace Zarvo::Host {

using Support::Printable;
namespace {

constexpr int MAX_LINES = 100;
constexpr size_t MAX_LINE_BYTES = 4096;
std::atomic<int> linesWritten{0};

void WriteLine(const std::string &text) {
    const int written = linesWritten.fetch_add(1);
    if (written < MAX_LINES) {
        std::fprintf(stderr, "libxml2: %s\n", Printable(text.substr(0, MAX_LINE_BYTES)).c_str());
    } else if (written == MAX_LINES) {
        std::fputs("libxml2: further messages withheld\n", stderr);
    }
}

// Whether the parse that raised the error asked not to hear of it (XML_PARSE_NOERROR and
// XML_PARSE_NOWARNING take the parser's own handlers away, which a process-wide one would bypass).
bool SilencedByItsParse(const xmlError &error) {
    const bool fromParser = error.domain == XML_FROM_PARSER || error.domain == XML_FROM_NAMESPACE ||
                            error.domain == XML_FROM_DTD || error.domain == XML_FROM_HTML;
    const auto *parser = static_cast<const xmlParserCtxt *>(error.ctxt);
    if (!fromParser || parser == nullptr || parser->sax == nullptr) {
        return false;
    }
    return error.level == XML_ERR_WARNING ? parser->sax->warning == nullptr : parser->sax->error == nullptr;
}

void WriteStructured(void *, xmlErrorPtr error) {
    if (error == nullptr || SilencedByItsParse(*error)) {
        return;
    }
    std::string text =
        error->file != nullptr ? std::string(error->file) + ":" + std::to_string(error->line) + ": " : "";
    text += error->message != nullptr ? error->message : "(no message)";
    while (!text.empty() && text.back() == '\n') {
        text.pop_back();
    }
    WriteLine(text);
}

// libxml2 writes some messages in pieces; they are gathered into lines.
void WriteGeneric(void *, const char *format, ...) {
    thread_local std::string pending;
    char piece[1024];
    va_list arguments;
    va_start(arguments, format);
    const int length = std::vsnprintf(piece, sizeof(piece), format, arguments);
    va_end(arguments);
    if (length < 0) {
        return;
    }
    pending.append(piece, std::min(static_cast<size_t>(length), sizeof(piece) - 1));
    for (size_t end; (end = pending.find('\n')) != std::string::npos;) {
        WriteLine(pending.substr(0, end));
        pending.erase(0, end + 1);
    }
    if (pending.size() > MAX_LINE_BYTES) {
        WriteLine(pending);
        pending.clear();
    }
}

}  // namespace

void PrintLibxmlMessagesPrintably() {
    xmlInitParser();
    xmlSetStructuredErrorFunc(nullptr, WriteStructured);
    xmlThrDefSetStructuredErrorFunc(nullptr, WriteStructured);
    xmlSetGenericErrorFunc(nullptr, WriteGeneric);
    xmlThrDefSetGenericErrorFunc(nullptr, WriteGeneric);
}

}  // namespace Zarvo::Host

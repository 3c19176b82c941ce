// Feeds arbitrary bytes, as the account export file handed to the account app, to the runner's
// reading of it one extra at a time (ReadAccountExport) and to the writer that streams those
// extras into the report and the page (JsonWriter). Besides memory errors it checks both against
// the JSON library's parse and dump of the whole text: the reading accepts exactly what the parse
// accepts; the account it keeps, with the extras of its "extras" member put back, is the parsed
// document; and the document written with the extras streamed is the dump, compact and indented.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "account_export.h"
#include "json_writer.h"

namespace {

using Json = nlohmann::json;
using Zarvo::Host::JsonWriter;

[[noreturn]] void Fail(const char *what, const std::string &text) {
    std::fprintf(stderr, "account_export_fuzzer: %s\n%s\n", what, text.c_str());
    std::abort();
}

std::string Written(const Json &account, const std::vector<Json> *extras, int indent) {
    Zarvo::Host::StreamedDocument document{account, {}};
    if (extras != nullptr) {
        document.streamed.push_back({Json::json_pointer("/extras"), [extras](JsonWriter &writer) {
                                         writer.BeginArray();
                                         for (const Json &extra : *extras) {
                                             writer.Element(extra);
                                         }
                                         writer.EndArray();
                                     }});
    }
    std::string text;
    JsonWriter writer(nlohmann::detail::output_adapter<char>(text), indent >= 0,
                      static_cast<unsigned>(std::max(indent, 0)));
    writer.Document(document);
    return text;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    const std::string text(reinterpret_cast<const char *>(data), size);
    const Json whole = Json::parse(text, nullptr, false);
    Json account;
    int members = 0;
    std::vector<std::vector<Json>> extras;  // by "extras" member, the first at 0
    const bool read = Zarvo::Host::ReadAccountExport(text, account, members, [&](Json &extra, int member) {
        if (member < 1) {
            Fail("an extra comes without its member", text);
        }
        if (extras.size() < static_cast<std::size_t>(member)) {
            extras.resize(static_cast<std::size_t>(member));
        }
        extras[static_cast<std::size_t>(member) - 1].push_back(std::move(extra));
    });
    if (read == whole.is_discarded()) {
        Fail(read ? "the reading takes text the parse refuses" : "the reading refuses text the parse takes",
             text);
    }
    if (!read) {
        return 0;
    }
    const int member = Zarvo::Host::ExtrasMember(account, members);
    const std::vector<Json> none;
    const std::vector<Json> &kept = member > 0 && static_cast<std::size_t>(member) <= extras.size()
                                        ? extras[static_cast<std::size_t>(member) - 1]
                                        : none;
    Json rebuilt = account;
    if (member > 0) {
        rebuilt["extras"] = kept;
    }
    if (rebuilt != whole) {
        Fail("the account with its extras put back is not the parsed document", text);
    }
    for (int indent : {-1, 2}) {
        if (Written(account, member > 0 ? &kept : nullptr, indent) != whole.dump(indent)) {
            Fail("the document written with its extras streamed is not its dump", text);
        }
    }
    return 0;
}

// The report and page write the account's extras and the handed files as they go: their text must
// be what a dump of the whole document would give.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>

#include "json_writer.h"
#include "record_secrets.h"
#include "run_record.h"
#include "view_report_json.h"

namespace {

using namespace Zarvo::Host;
using Json = nlohmann::json;

std::string Written(const StreamedDocument &document, bool pretty, unsigned indent) {
    std::string text;
    JsonWriter(nlohmann::detail::output_adapter<char>(text), pretty, indent).Document(document);
    return text;
}

std::string Dumped(const Json &document, bool pretty, unsigned indent) {
    std::string text;
    nlohmann::detail::serializer<Json>(nlohmann::detail::output_adapter<char>(text), ' ',
                                       Json::error_handler_t::replace)
        .dump(document, pretty, false, indent);
    return text;
}

TEST(ReportStreamingTest, StreamedValuesAreWrittenAsTheWholeDocumentDumps) {
    // A long text with multi-byte characters and faults (a cut sequence, stray bytes) on every
    // side of the pieces it is escaped in.
    std::string text;
    while (text.size() < 200000) {
        text += "\xC3\xA9 \"quoted\"\n\xE2\x82 \xF0\x9F\x98\x80\x80\x80\xFF<&>\xE2\x80\xA8";
        text.append(text.size() % 7, 'x');
    }
    const Json elements = {1, "two", Json::object(), {{"k", {1, 2}}}, Json::array(), nullptr};
    const Json whole = {{"a", {{"list", elements}, {"text", text}, {"empty", Json::array()}}},
                        {"b", {1, {{"text", "short"}}}},
                        {"c", "after"}};
    StreamedDocument streamed{whole, {}};
    streamed.document["a"]["list"] = Json::array();
    streamed.document["a"]["text"] = "";
    streamed.document["b"][1]["text"] = "";
    streamed.streamed.push_back({"/a/list"_json_pointer, [&elements](JsonWriter &writer) {
                                     writer.BeginArray();
                                     for (const Json &element : elements) {
                                         writer.Element(element);
                                     }
                                     writer.EndArray();
                                 }});
    streamed.streamed.push_back(
        {"/a/text"_json_pointer, [&text](JsonWriter &writer) { writer.String(text); }});
    streamed.streamed.push_back({"/a/empty"_json_pointer, [](JsonWriter &writer) {
                                     writer.BeginArray();
                                     writer.EndArray();
                                 }});
    streamed.streamed.push_back(
        {"/b/1/text"_json_pointer, [](JsonWriter &writer) { writer.Value("short"); }});
    for (const bool pretty : {true, false}) {
        const unsigned indent = pretty ? 2 : 0;
        EXPECT_EQ(Written(streamed, pretty, indent), Dumped(whole, pretty, indent)) << pretty;
    }
}

// The report's account and handed file, as the record held the whole masked export before.
TEST(ReportStreamingTest, TheReportHoldsEveryExtraMaskedAsTheWholeExportWouldBe) {
    const std::string token = "CgB6e3x9/Zq+Y0lAbc=";
    // An export of odd shape: "extras" twice (the last counts, with a credential only the first
    // names), elements that are no extras, a secret that spans two values once written.
    const std::string content =
        R"({"name":"n","authtoken":")" + token +
        R"(","extras":[{"key":"session","value":"first-secret-value"}],)" +
        R"("id":7,"extras":[{"key":"refresh_token","value":"a\",\"b\":\"c"},{"key":"x","value":"a"},)" +
        R"({"a":"a","b":"c","k":"first-secret-value"},3,"t=)" + token + R"(",[{"deep":")" + token + R"("}],)" +
        R"({"key":"nick","value":"\u00e9\u2028"}],"locale":"en"})";
    for (const bool showSecrets : {false, true}) {
        RunCapture capture;
        capture.handedFiles.push_back(
            {"/data/app/el2/100/base/app/account_manager_db.json", 1, 2, 0700, content});
        const RunRecord record = BuildRunRecord(capture, showSecrets);
        const Json report = Json::parse(ReportText(ReportJson(record)));

        Json expected = Json::parse(content);
        std::string expectedText = content;
        if (!showSecrets) {
            std::vector<std::string> secrets;
            MaskAccountExport(expected, secrets);
            expectedText = expected.dump();
            MaskOccurrences(expectedText, secrets);
        }
        EXPECT_EQ(report["account"]["extras"], expected["extras"]) << showSecrets;
        EXPECT_EQ(report["account"]["authToken"], expected["authtoken"]) << showSecrets;
        EXPECT_EQ(report["account"]["id"], 7);
        EXPECT_EQ(record.account->extraCount, 7u);
        EXPECT_EQ(report["handedFiles"][0]["content"], expectedText) << showSecrets;
        EXPECT_EQ(report["handedFiles"][0]["content"].get<std::string>().find(token) == std::string::npos,
                  !showSecrets);
    }
}

}  // namespace

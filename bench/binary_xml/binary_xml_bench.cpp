// Decoding speed of binary XML against libxml2 reading the text the decoder writes, on one
// large generated document shaped like Android's user files. Both report throughput over the
// size of the text, so the two figures compare directly.
#include <benchmark/benchmark.h>
#include <libxml/parser.h>

#include <cstdint>
#include <string>

#include "binary_xml/abx_decoder.h"
#include "binary_xml/abx_writer.h"

namespace {

using namespace Zarvo::BinaryXml;

std::string LargeDocument() {
    AbxWriter writer;
    writer.StartDocument().StartTag("users").Attribute("nextSerialNumber", std::int32_t{20010});
    for (std::int32_t id = 0; id < 20000; ++id) {
        writer.StartTag("user")
            .Attribute("id", id)
            .Attribute("serialNumber", id + 10)
            .Attribute("flags", std::int32_t{1040})
            .Attribute("type", "android.os.usertype.full.SECONDARY")
            .Attribute("created", std::int64_t{1700000000000} + id)
            .Attribute("lastLoggedIn", std::int64_t{1710000000000} + id)
            .Attribute("icon", "/data/system/users/" + std::to_string(id) + "/photo.png")
            .Attribute("partial", false)
            .StartTag("name")
            .Text("User & friend \xF0\x9F\x98\x80 number " + std::to_string(id))
            .EndTag("name")
            .StartTag("restrictions")
            .Attribute("no_sms", true)
            .Attribute("no_outgoing_calls", true)
            .EndTag("restrictions")
            .EndTag("user");
    }
    writer.EndTag("users").EndDocument();
    return writer.Data();
}

struct Fixture {
    std::string abx = LargeDocument();
    std::string xml;
    Fixture() { DecodeAbx(abx, xml); }
};

const Fixture &Data() {
    static const Fixture fixture;
    return fixture;
}

void BM_DecodeAbx(benchmark::State &state) {
    const Fixture &data = Data();
    std::string xml;
    for (auto _ : state) {
        if (DecodeAbx(data.abx, xml) != Status::OK) {
            state.SkipWithError("decoding failed");
            break;
        }
        benchmark::DoNotOptimize(xml.data());
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * data.xml.size()));
    state.counters["abx_bytes"] = static_cast<double>(data.abx.size());
    state.counters["xml_bytes"] = static_cast<double>(data.xml.size());
}
BENCHMARK(BM_DecodeAbx)->Unit(benchmark::kMillisecond);

// What the plug-in does with the converted file.
void BM_Libxml2ReadText(benchmark::State &state) {
    const Fixture &data = Data();
    for (auto _ : state) {
        xmlDocPtr doc = xmlReadMemory(data.xml.data(), static_cast<int>(data.xml.size()), nullptr, nullptr,
                                      XML_PARSE_RECOVER | XML_PARSE_NONET);
        if (doc == nullptr) {
            state.SkipWithError("libxml2 could not read the text");
            break;
        }
        xmlFreeDoc(doc);
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * data.xml.size()));
}
BENCHMARK(BM_Libxml2ReadText)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();

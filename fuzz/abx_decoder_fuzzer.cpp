// Feeds arbitrary bytes to the binary XML decoder. Besides memory errors it checks the decoder's
// promise: whatever it accepts, libxml2 reads without recovery.
#include <libxml/parser.h>

#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "binary_xml/abx_decoder.h"
#include "binary_xml/abx_format.h"

namespace {

void ExpectReadable(const std::string &xml) {
    xmlDocPtr doc = xmlReadMemory(xml.data(), static_cast<int>(xml.size()), nullptr, nullptr,
                                  XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING);
    bool readable = doc != nullptr && xmlDocGetRootElement(doc) != nullptr;
    xmlFreeDoc(doc);
    if (!readable) {
        std::abort();
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    // Most inputs get the magic for free, so the fuzzer spends its time on tokens.
    std::string input(Zarvo::BinaryXml::ABX_MAGIC);
    input.append(reinterpret_cast<const char *>(data), size);
    for (bool keepExtraRoots : {false, true}) {
        std::string xml;
        Zarvo::BinaryXml::DecodeOptions options;
        options.keepExtraRoots = keepExtraRoots;
        Zarvo::BinaryXml::Status status = Zarvo::BinaryXml::DecodeAbx(input, xml, options);
        if (status == Zarvo::BinaryXml::Status::OK && !keepExtraRoots) {
            ExpectReadable(xml);
        }
        if (static_cast<int>(status) > 0) {
            std::abort();
        }
    }
    return 0;
}

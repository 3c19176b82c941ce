// Feeds arbitrary bytes to the plug-in's user XML parse the way a restore meets a user file: the
// bytes lie in a file, the platform's converter turns them into text XML (binary XML is decoded,
// text XML copied), and the parse reads the converted file as the user list and as one user.
// Besides memory errors and leaks it checks that the parse keeps its word on the result codes.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "binary_xml_converter.h"
#include "platform_control/event_capture.h"
#include "platform_control/log_capture.h"
#include "scratch_files.h"
#include "user_xml_parse.h"

namespace {

using Zarvo::UpdateEngine::OSUserDataInfo;
using Zarvo::UpdateEngine::UserXmlParse;

bool IsParseResult(int32_t result) {
    return result == 0 || (result >= Zarvo::UpdateEngine::XML_FILE_NOT_EXIST &&
                           result <= Zarvo::UpdateEngine::USER_SERIAL_NUMBER_MISSING);
}

void Check(bool holds, const char *what) {
    if (!holds) {
        std::fprintf(stderr, "user_xml_fuzzer: %s\n", what);
        std::abort();
    }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    Zarvo::Host::SetLogOutput("off");
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    std::string source = Zarvo::Fuzzing::WriteScratchFile(
        "source.xml", std::string_view(reinterpret_cast<const char *>(data), size));
    std::string converted = Zarvo::Fuzzing::ScratchDir() + "/converted.xml";
    Zarvo::Fuzzing::RemoveScratchFile("converted.xml");
    if (Zarvo::UpdateEngine::BinaryXmlConverter().Convert(source, converted) == 0) {
        UserXmlParse parser;
        std::vector<int32_t> ids;
        int32_t listResult = parser.TransformToUserList(converted, ids);
        Check(IsParseResult(listResult), "TransformToUserList returned a code outside its list");
        Check(listResult == 0 || ids.empty(), "a failed user-list parse still returned ids");
        OSUserDataInfo info{};
        Check(IsParseResult(parser.TransformToUserInfo(converted, info)),
              "TransformToUserInfo returned a code outside its list");
    }
    Zarvo::Host::ClearCapturedLogs();
    Zarvo::Host::ClearCapturedEvents();
    return 0;
}

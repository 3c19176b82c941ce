#include <gtest/gtest.h>

#include "binary_xml_converter.h"
#include "captured_log.h"
#include "user_data_manager.h"
#include "user_restore_support.h"

using namespace Zarvo::UpdateEngine;
using namespace Zarvo::Testing;

namespace {
XmlConvertStatus g_convertStatus = 0;
}  // namespace

// Stands in for the platform's converter so that every status a converter may return can be
// produced; the linker takes this definition before the platform library's.
XmlConvertStatus Zarvo::UpdateEngine::BinaryXmlConverter::Convert(const std::string &, const std::string &) {
    return g_convertStatus;
}

namespace {

TEST(ConvertStatusTest, EveryStatusMapsToItsCodeAndSuccessIsSilent) {
    struct Case {
        XmlConvertStatus status;
        int32_t code;  // 0: the conversion succeeds
    } cases[] = {
        {0, 0},        {-1, 2097154}, {-2, 2097155}, {-3, 2097156}, {-4, 2097157}, {-5, 2097158},
        {-6, 2097159}, {-7, 2097160}, {-8, 2097153}, {-9, 2097153}, {1, 2097153},  {INT32_MIN, 2097153},
    };
    for (const auto &c : cases) {
        ResetCaptures();
        g_convertStatus = c.status;
        EXPECT_EQ(UserDataManager().ConvertFromBinaryXml("/a/10.xml", "/b/10.xml"), c.code == 0) << c.status;
        std::vector<std::string> events;
        std::vector<LogLine> lines;
        if (c.code != 0) {
            events.push_back(RestoreFail(c.code, "SOURCE_FILE_ERROR", "convert error"));
            lines.push_back({6, "ConvertFromBinaryXml failed, errCode is " + std::to_string(c.code) + "."});
        }
        EXPECT_EQ(CapturedFaultEvents(), events) << c.status;
        EXPECT_EQ(PluginLogLines(), lines) << c.status;
    }
}

}  // namespace

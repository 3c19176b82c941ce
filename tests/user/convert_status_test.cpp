#include <gtest/gtest.h>

#include "captured_log.h"
#include "scripted_binary_xml_converter.h"
#include "user_data_manager.h"
#include "user_restore_support.h"

using namespace Zarvo::UpdateEngine;
using namespace Zarvo::Testing;

namespace {

TEST(ConvertStatusTest, EveryStatusMapsToItsCode) {
    struct Case {
        XmlConvertStatus status;
        int32_t code;
    } cases[] = {
        {-1, 2097154}, {-2, 2097155}, {-3, 2097156}, {-4, 2097157}, {-5, 2097158},        {-6, 2097159},
        {-7, 2097160}, {-8, 2097153}, {-9, 2097153}, {1, 2097153},  {INT32_MIN, 2097153},
    };
    for (const auto &c : cases) {
        ResetCaptures();
        g_scriptedConvertStatus = c.status;
        UserDataManager manager;
        EXPECT_FALSE(manager.ConvertFromBinaryXml("/a/10.xml", "/b/10.xml")) << c.status;
        EXPECT_EQ(CapturedFaultEvents(),
                  (std::vector<FaultEvent>{RestoreFail(c.code, "SOURCE_FILE_ERROR", "convert error")}))
            << c.status;
        EXPECT_EQ(PluginLogLines(), (std::vector<LogLine>{{6, "ConvertFromBinaryXml failed, errCode is " +
                                                                  std::to_string(c.code) + "."}}));
    }
}

TEST(ConvertStatusTest, SuccessIsSilent) {
    ResetCaptures();
    g_scriptedConvertStatus = 0;
    UserDataManager manager;
    EXPECT_TRUE(manager.ConvertFromBinaryXml("/a/10.xml", "/b/10.xml"));
    EXPECT_TRUE(PluginLogLines().empty());
    EXPECT_TRUE(CapturedFaultEvents().empty());
}

}  // namespace

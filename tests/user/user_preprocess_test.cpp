#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "captured_log.h"
#include "scripted_migrate_peer.h"
#include "user_data_manager.h"
#include "user_restore_support.h"

using namespace Zarvo::UpdateEngine;
using namespace Zarvo::Testing;
using Zarvo::Fixtures::UserFileForm;

namespace {

constexpr int ERROR = 6;
constexpr int INFO = 4;
constexpr int32_t PREPARE_DIR = 3;

std::string ReadFile(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream content;
    content << in.rdbuf();
    return content.str();
}

Zarvo::Fixtures::AndroidUser SecondaryUser() {
    return Zarvo::Fixtures::SamplePhoneUsers().users[1];
}

class UserPreprocessTest : public testing::Test {
protected:
    void SetUp() override { ResetUserRestoreWorld(); }

    UserDataManager manager_;
};

TEST_F(UserPreprocessTest, BinaryUserFileBecomesTextCopyInExistingConvertDir) {
    std::filesystem::create_directories(CONVERT_XML_DIR);
    WriteSourceFile("10.xml", EncodeUserFile(SecondaryUser(), UserFileForm::BINARY));
    ScriptedMigratePeer peer;
    std::string converted;
    EXPECT_TRUE(manager_.PreprocessXmlFile(SOURCE_XML_DIR + "10.xml", "10.xml", converted));
    EXPECT_EQ(converted, CONVERT_XML_DIR + "10.xml");
    EXPECT_NE(ReadFile(converted).find("flags=\"1040\""), std::string::npos);
    EXPECT_TRUE(peer.Requests().empty());
    EXPECT_TRUE(PluginLogLines().empty());
}

TEST_F(UserPreprocessTest, MissingConvertDirIsPreparedThroughMigrateService) {
    WriteSourceFile("userlist.xml",
                    EncodeUserList(Zarvo::Fixtures::SamplePhoneUsers(), UserFileForm::BINARY));
    ScriptedMigratePeer peer;
    std::string converted;
    EXPECT_TRUE(manager_.PreprocessXmlFile(SOURCE_XML_DIR + "userlist.xml", "userlist.xml", converted));
    auto requests = peer.Requests();
    ASSERT_EQ(requests.size(), 1u);
    EXPECT_EQ(requests[0].type, PREPARE_DIR);
    EXPECT_EQ(requests[0].srcFilePath, CONVERT_XML_DIR);
    EXPECT_EQ(requests[0].dstFilePath, CONVERT_XML_DIR);
    EXPECT_EQ(requests[0].uid, "migrate_server");
    EXPECT_EQ(requests[0].gid, "migrate_server");
    EXPECT_EQ(requests[0].perm, "0700");
    EXPECT_EQ(requests[0].recurseOpt, 2);
    EXPECT_EQ(CountPluginLines("CreateConvertXmlPath success, pathName : " + CONVERT_XML_DIR), 1u);
    EXPECT_NE(ReadFile(converted).find("<user id=\"10\""), std::string::npos);
}

TEST_F(UserPreprocessTest, DirectoryIsMadeOnFourthAttempt) {
    ScriptedMigratePeer peer({5, 5, 5, 0});
    EXPECT_TRUE(manager_.CreateConvertXmlPath(CONVERT_XML_DIR));
    EXPECT_EQ(peer.Requests().size(), 4u);
    std::vector<LogLine> info;
    for (const auto &line : PluginLogLines()) {
        if (line.text.rfind("CreateConvertXmlPath", 0) == 0) {
            info.push_back(line);
        }
    }
    const LogLine retry{INFO,
                        "CreateConvertXmlPath failed, MkDir result 5, will retry after 10 milliseconds"};
    EXPECT_EQ(
        info,
        (std::vector<LogLine>{
            retry, retry, retry, {INFO, "CreateConvertXmlPath success, pathName : " + CONVERT_XML_DIR}}));
    EXPECT_TRUE(std::filesystem::is_directory(CONVERT_XML_DIR));
}

TEST_F(UserPreprocessTest, DirectoryFailureAfterFourAttemptsSendsNoEvent) {
    WriteSourceFile("10.xml", EncodeUserFile(SecondaryUser(), UserFileForm::BINARY));
    ScriptedMigratePeer peer({-1, -1, -1, -1});
    std::string converted;
    EXPECT_FALSE(manager_.PreprocessXmlFile(SOURCE_XML_DIR + "10.xml", "10.xml", converted));
    EXPECT_EQ(peer.Requests().size(), 4u);
    EXPECT_EQ(CountPluginLines("will retry after 10 milliseconds"), 3u);
    EXPECT_EQ(
        PluginLogLines().back(),
        (LogLine{ERROR, "CreateConvertXmlPath failed, after retry 3 times, pathName : " + CONVERT_XML_DIR}));
    EXPECT_TRUE(CapturedFaultEvents().empty());
    EXPECT_FALSE(std::filesystem::exists(CONVERT_XML_DIR));
}

TEST_F(UserPreprocessTest, EmptyArgumentsDoNothing) {
    ScriptedMigratePeer peer;
    std::string converted = "untouched";
    EXPECT_FALSE(manager_.PreprocessXmlFile(SOURCE_XML_DIR + "10.xml", "", converted));
    EXPECT_FALSE(manager_.PreprocessXmlFile("", "10.xml", converted));
    EXPECT_FALSE(manager_.CreateConvertXmlPath(""));
    EXPECT_EQ(converted, "untouched");
    EXPECT_EQ(PluginLogLines(), (std::vector<LogLine>{
                                    {ERROR, "PreprocessXmlFile fullFileName or fileName is empty."},
                                    {ERROR, "PreprocessXmlFile fullFileName or fileName is empty."},
                                    {ERROR, "CreateConvertXmlPath pathName is empty."},
                                }));
    EXPECT_TRUE(peer.Requests().empty());
    EXPECT_FALSE(std::filesystem::exists(CONVERT_XML_DIR));
}

TEST_F(UserPreprocessTest, FailedConversionsReportTheirClassAndTheFileInHand) {
    std::filesystem::create_directories(CONVERT_XML_DIR);
    std::string binary = EncodeUserFile(SecondaryUser(), UserFileForm::BINARY);
    struct Case {
        std::string name;
        std::optional<std::string> content;  // none: the source file is missing
        int32_t code;
    } cases[] = {
        {"10.xml", std::nullopt, 0x200002},
        {"11.xml", binary.substr(0, binary.size() / 2), 0x200003},
        {"12.xml", std::string("ABX\0\x7e", 5), 0x200004},
    };
    for (const auto &c : cases) {
        ResetCaptures();
        if (c.content.has_value()) {
            WriteSourceFile(c.name, *c.content);
        }
        std::string converted;
        EXPECT_FALSE(manager_.PreprocessXmlFile(SOURCE_XML_DIR + c.name, c.name, converted)) << c.name;
        EXPECT_EQ(
            CapturedFaultEvents(),
            (std::vector<FaultEvent>{RestoreFail(c.code, "SOURCE_FILE_ERROR", c.name + "convert error")}));
        EXPECT_EQ(PluginLogLines(), (std::vector<LogLine>{{ERROR, "ConvertFromBinaryXml failed, errCode is " +
                                                                      std::to_string(c.code) + "."}}));
        EXPECT_FALSE(std::filesystem::exists(CONVERT_XML_DIR + c.name)) << c.name;
    }
}

}  // namespace

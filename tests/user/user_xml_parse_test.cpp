#include "user_xml_parse.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "captured_log.h"

using namespace Zarvo::UpdateEngine;
using Zarvo::Testing::CountPluginLines;
using Zarvo::Testing::LogLine;
using Zarvo::Testing::PluginLogLines;

namespace {

constexpr int ERROR = 6;
constexpr int INFO = 4;
const std::string WORK_DIR = "/data/user_xml_parse_test/";

// A per-user file as the binary XML converter renders one of Android 12's.
std::string UserFile(const std::string &attributes, const std::string &children) {
    return "<?xml version='1.0' encoding='utf-8' standalone='yes' ?>\n<user " + attributes + ">" + children +
           "<restrictions no_sms=\"true\" /></user>\n";
}

const std::string FULL_ATTRIBUTES =
    "id=\"10\" serialNumber=\"12\" flags=\"1040\" type=\"android.os.usertype.full.SECONDARY\" "
    "created=\"1700000000123\" lastLoggedIn=\"1700000999456\" icon=\"/data/system/users/10/photo.png\"";

class UserXmlParseTest : public testing::Test {
protected:
    void SetUp() override {
        std::filesystem::create_directories(WORK_DIR);
        Zarvo::Testing::ResetCaptures();
    }

    static std::string Write(const std::string &name, const std::string &content) {
        std::string path = WORK_DIR + name;
        std::ofstream(path, std::ios::binary) << content;
        return path;
    }

    UserXmlParse parser_;
};

TEST_F(UserXmlParseTest, UserListTakesIdsOfUserElementsInDocumentOrder) {
    std::string path = Write("userlist.xml",
                             "<?xml version='1.0' encoding='utf-8' standalone='yes' ?>\n"
                             "<users nextSerialNumber=\"13\" version=\"9\" userTypeConfigVersion=\"1\">\n"
                             "  <guestRestrictions><restrictions no_sms=\"true\" /></guestRestrictions>\n"
                             "  <!-- a comment between users -->\n"
                             "  <deviceOwnerUserId id=\"-10000\" />\n"
                             "  <user id=\"0\" />\n"
                             "  <other id=\"5\" />\n"
                             "  <user />\n"
                             "  <user id=\"10\" />\n"
                             "  <user id=\"abc\" />\n"
                             "  <user id=\"10\" />\n"
                             "</users>\n");
    std::vector<int32_t> ids = {7};
    EXPECT_EQ(parser_.TransformToUserList(path, ids), 0);
    EXPECT_EQ(ids, (std::vector<int32_t>{7, 0, 10, 0, 10}));
    EXPECT_TRUE(PluginLogLines().empty());
}

TEST_F(UserXmlParseTest, UserListWithoutUsersIsEmptySuccess) {
    std::vector<int32_t> ids;
    EXPECT_EQ(parser_.TransformToUserList(Write("userlist.xml", "<users version=\"11\"></users>"), ids), 0);
    EXPECT_TRUE(ids.empty());
}

TEST_F(UserXmlParseTest, UserListRootMustBeUsers) {
    for (const std::string root : {"<user id=\"0\"/>", "<Users><user id=\"0\"/></Users>"}) {
        Zarvo::Testing::ResetCaptures();
        std::vector<int32_t> ids;
        EXPECT_EQ(parser_.TransformToUserList(Write("userlist.xml", root), ids), USER_LIST_NODE_ERROR)
            << root;
        EXPECT_TRUE(ids.empty());
        EXPECT_EQ(PluginLogLines(),
                  (std::vector<LogLine>{{ERROR, "ParseToUserList failed, not find users xml node."}}));
    }
    xmlNodePtr none = nullptr;
    std::vector<int32_t> ids;
    EXPECT_EQ(parser_.ParseToUserList(none, ids), USER_LIST_NODE_ERROR);
}

TEST_F(UserXmlParseTest, MissingFileGivesNotExistWithThreeLines) {
    std::string path = WORK_DIR + "missing.xml";
    std::vector<int32_t> ids;
    EXPECT_EQ(parser_.TransformToUserList(path, ids), XML_FILE_NOT_EXIST);
    EXPECT_EQ(PluginLogLines(),
              (std::vector<LogLine>{
                  {ERROR, "CheckFileExist file is not exist errno is 2, fileName is " + path},
                  {ERROR, "ParseXmlFile failed, xmlfile:" + path + " does not exist."},
                  {ERROR, "TransformToUserList failed, xmlfile:" + path + "."},
              }));

    Zarvo::Testing::ResetCaptures();
    OSUserDataInfo info{};
    EXPECT_EQ(parser_.TransformToUserInfo(path, info), XML_FILE_NOT_EXIST);
    EXPECT_EQ(Zarvo::Testing::CountPluginLines("TransformToUserInfo failed, xmlfile:" + path + "."), 1u);
}

TEST_F(UserXmlParseTest, UnreadableDocumentOrMissingRootIsReadError) {
    // Even in recovery mode libxml2 makes no document of an empty file, and none with a root of
    // bare text; only the first case names the file again.
    std::string empty = Write("empty.xml", "");
    std::string text = Write("text.xml", "not xml at all");
    std::vector<int32_t> ids;
    OSUserDataInfo info{};
    EXPECT_EQ(parser_.TransformToUserList(empty, ids), XML_FILE_READ_ERROR);
    EXPECT_EQ(parser_.TransformToUserInfo(text, info), XML_FILE_READ_ERROR);
    EXPECT_EQ(PluginLogLines(), (std::vector<LogLine>{
                                    {ERROR, "ParseXmlFile failed, xml doc is nullptr."},
                                    {ERROR, "TransformToUserList failed, xmlfile:" + empty + "."},
                                    {ERROR, "ParseXmlFile failed, xml root is nullptr."},
                                }));
}

TEST_F(UserXmlParseTest, FullUserFileFillsEveryField) {
    const std::string name = "Анна \xF0\x9F\x98\x80 & Co";  // Cyrillic, an emoji outside the BMP, an entity
    std::string path = Write(
        "10.xml",
        UserFile(FULL_ATTRIBUTES, "<name>\xD0\x90\xD0\xBD\xD0\xBD\xD0\xB0 \xF0\x9F\x98\x80 &amp; Co</name>"));
    OSUserDataInfo info{};
    EXPECT_EQ(parser_.TransformToUserInfo(path, info), 0);
    EXPECT_EQ(info.id, 10);
    EXPECT_EQ(info.name, name);
    EXPECT_EQ(info.type, "android.os.usertype.full.SECONDARY");
    EXPECT_EQ(info.icon, "/data/system/users/10/photo.png");
    EXPECT_EQ(info.flags, 1040);
    EXPECT_EQ(info.created, 1700000000123);
    EXPECT_EQ(info.lastLoggedIn, 1700000999456);
    EXPECT_EQ(info.serialNumber, 12);
    EXPECT_TRUE(PluginLogLines().empty());
}

TEST_F(UserXmlParseTest, NameIsTakenUntrimmedFromFirstNameElement) {
    std::string path = Write("10.xml", UserFile(FULL_ATTRIBUTES,
                                                "<!-- c --><seedAccountOptions/><name>  Bob \n</name>"
                                                "<name>Second</name>"));
    OSUserDataInfo info{};
    EXPECT_EQ(parser_.TransformToUserInfo(path, info), 0);
    EXPECT_EQ(info.name, "  Bob \n");
}

TEST_F(UserXmlParseTest, NameMissingFailsExceptForUserZero) {
    std::string path = Write("10.xml", UserFile(FULL_ATTRIBUTES, ""));
    OSUserDataInfo info{};
    EXPECT_EQ(parser_.TransformToUserInfo(path, info), USER_NAME_MISSING);
    EXPECT_EQ(CountPluginLines("ParseToUserInfo failed, has not user name."), 1u);

    Zarvo::Testing::ResetCaptures();
    path =
        Write("0.xml",
              UserFile("id=\"0\" serialNumber=\"0\" flags=\"3091\" type=\"android.os.usertype.full.SYSTEM\" "
                       "created=\"0\" lastLoggedIn=\"1700000999456\"",
                       ""));
    OSUserDataInfo admin{};
    EXPECT_EQ(parser_.TransformToUserInfo(path, admin), 0);
    EXPECT_EQ(admin.id, 0);
    EXPECT_EQ(admin.flags, 3091);
    EXPECT_TRUE(admin.name.empty());
    EXPECT_EQ(PluginLogLines(),
              (std::vector<LogLine>{
                  {ERROR, "GetUserAttribute failed, missing information: has no icon attribute."},
                  {INFO, "ParseToUserInfo admin account has not user name."},
              }));
}

TEST_F(UserXmlParseTest, RootMustBeUser) {
    OSUserDataInfo info{};
    EXPECT_EQ(parser_.TransformToUserInfo(Write("10.xml", "<users><user id=\"10\"/></users>"), info),
              USER_NODE_ERROR);
    EXPECT_EQ(PluginLogLines(),
              (std::vector<LogLine>{{ERROR, "ParseToUserInfo failed, not find user xml node."}}));
}

TEST_F(UserXmlParseTest, RequiredAttributesFailInReadingOrderKeepingEarlierFields) {
    struct Case {
        std::string attributes;
        int32_t code;
        std::string missing;
    } cases[] = {
        {"serialNumber=\"12\" flags=\"1040\" type=\"t\" created=\"5\"", USER_ID_MISSING, "id"},
        {"id=\"\" serialNumber=\"12\" flags=\"1040\" type=\"t\" created=\"5\"", USER_ID_MISSING, ""},
        {"id=\"10\" serialNumber=\"12\" flags=\"1040\" created=\"5\"", USER_TYPE_MISSING, "type"},
        {"id=\"10\" serialNumber=\"12\" flags=\"1040\" type=\"\" created=\"5\"", USER_TYPE_MISSING, ""},
        {"id=\"10\" serialNumber=\"12\" type=\"t\" created=\"5\"", USER_FLAGS_MISSING, "flags"},
        {"id=\"10\" serialNumber=\"12\" flags=\"1040\" type=\"t\"", USER_CREATED_MISSING, "created"},
        {"id=\"10\" flags=\"1040\" type=\"t\" created=\"5\"", USER_SERIAL_NUMBER_MISSING, "serialNumber"},
    };
    for (const auto &c : cases) {
        Zarvo::Testing::ResetCaptures();
        OSUserDataInfo info{};
        EXPECT_EQ(
            parser_.TransformToUserInfo(Write("10.xml", UserFile(c.attributes, "<name>n</name>")), info),
            c.code)
            << c.attributes;
        std::vector<LogLine> expected;
        if (!c.missing.empty()) {
            expected.push_back(
                {ERROR, "GetUserAttribute failed, missing information: has no " + c.missing + " attribute."});
        }
        expected.push_back(
            {ERROR, "ParseToUserInfo failed, ParseUserAttributes return " + std::to_string(c.code) + "."});
        EXPECT_EQ(PluginLogLines(), expected) << c.attributes;
        // Fields read before the failing attribute stay stored; later ones stay untouched.
        EXPECT_EQ(info.id, c.code > USER_ID_MISSING ? 10 : 0) << c.attributes;
        EXPECT_EQ(info.type, c.code == USER_FLAGS_MISSING || c.code > USER_TYPE_MISSING ? "t" : "")
            << c.attributes;
        EXPECT_EQ(info.created, c.code == USER_SERIAL_NUMBER_MISSING ? 5 : 0) << c.attributes;
        EXPECT_EQ(info.serialNumber, 0) << c.attributes;
        EXPECT_TRUE(info.name.empty());
    }
}

TEST_F(UserXmlParseTest, NumbersConvertLikeAtoi) {
    std::string path = Write("10.xml", UserFile("id=\" 11x\" serialNumber=\"abc\" flags=\"-1\" type=\"t\" "
                                                "created=\"-42\" lastLoggedIn=\"9223372036854775807\"",
                                                "<name>n</name>"));
    OSUserDataInfo info{};
    info.flags = 77;
    EXPECT_EQ(parser_.TransformToUserInfo(path, info), 0);
    EXPECT_EQ(info.id, 11);
    EXPECT_EQ(info.serialNumber, 0);
    EXPECT_EQ(info.flags, 77);  // a negative value leaves the field as it was
    EXPECT_EQ(info.created, -42);
    EXPECT_EQ(info.lastLoggedIn, INT64_MAX);
}

TEST_F(UserXmlParseTest, OptionalAttributesAbsentOrEmptyLeaveFieldsButLogWhenAbsent) {
    const std::string required = "id=\"10\" serialNumber=\"12\" flags=\"1040\" type=\"t\" created=\"5\"";
    OSUserDataInfo info{};
    EXPECT_EQ(parser_.TransformToUserInfo(Write("10.xml", UserFile(required, "<name>n</name>")), info), 0);
    EXPECT_TRUE(info.icon.empty());
    EXPECT_EQ(info.lastLoggedIn, 0);
    EXPECT_EQ(PluginLogLines(),
              (std::vector<LogLine>{
                  {ERROR, "GetUserAttribute failed, missing information: has no icon attribute."},
                  {ERROR, "GetUserAttribute failed, missing information: has no lastLoggedIn attribute."},
              }));

    Zarvo::Testing::ResetCaptures();
    OSUserDataInfo empty{};
    std::string path = Write("10.xml", UserFile(required + " icon=\"\" lastLoggedIn=\"\"", "<name>n</name>"));
    EXPECT_EQ(parser_.TransformToUserInfo(path, empty), 0);
    EXPECT_TRUE(empty.icon.empty());
    EXPECT_EQ(empty.lastLoggedIn, 0);
    EXPECT_TRUE(PluginLogLines().empty());
}

}  // namespace

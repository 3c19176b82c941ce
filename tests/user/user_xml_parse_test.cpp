#include "user_xml_parse.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <optional>

#include "captured_log.h"

using namespace Zarvo::UpdateEngine;
using Zarvo::Testing::LogLine;
using Zarvo::Testing::PluginLogLines;
using Lines = std::vector<LogLine>;

namespace {

constexpr int ERROR = 6;
constexpr int INFO = 4;
const std::string PATH = "/data/user_xml_parse_test/10.xml";
const std::string REQUIRED = "id=\"10\" serialNumber=\"12\" flags=\"1040\" type=\"t\" created=\"5\"";

// A per-user file as the binary XML converter renders one of Android 12's.
std::string UserFile(const std::string &attributes, const std::string &children = "<name>n</name>") {
    return "<?xml version='1.0' encoding='utf-8' standalone='yes' ?>\n<user " + attributes + ">" + children +
           "<restrictions no_sms=\"true\" /></user>\n";
}

LogLine Missing(const std::string &attribute) {
    return {ERROR, "GetUserAttribute failed, missing information: has no " + attribute + " attribute."};
}

class UserXmlParseTest : public testing::Test {
protected:
    void SetUp() override { std::filesystem::create_directories("/data/user_xml_parse_test"); }

    // Writes the file (none: removes it) and clears the captured lines.
    static void Lay(const std::optional<std::string> &content) {
        std::filesystem::remove(PATH);
        if (content) {
            std::ofstream(PATH, std::ios::binary) << *content;
        }
        Zarvo::Testing::ResetCaptures();
    }

    UserXmlParse parser_;
};

TEST_F(UserXmlParseTest, UserListTakesIdsOfUserElementsInDocumentOrder) {
    Lay("<?xml version='1.0' encoding='utf-8' standalone='yes' ?>\n"
        "<users nextSerialNumber=\"13\" version=\"9\" userTypeConfigVersion=\"1\">\n"
        "  <guestRestrictions><restrictions no_sms=\"true\" /></guestRestrictions>\n"
        "  <!-- a comment between users -->\n"
        "  <deviceOwnerUserId id=\"-10000\" />\n"
        "  <user id=\"0\" /><other id=\"5\" /><user /><user id=\"10\" />\n"
        "  <user id=\"abc\" /><user id=\"10\" />\n"
        "</users>\n");
    std::vector<int32_t> ids = {7};
    EXPECT_EQ(parser_.TransformToUserList(PATH, ids), 0);
    EXPECT_EQ(ids, (std::vector<int32_t>{7, 0, 10, 0, 10}));
    EXPECT_TRUE(PluginLogLines().empty());
}

TEST_F(UserXmlParseTest, UserFilesFillTheRecord) {
    struct Case {
        std::string file;
        std::string record;
        Lines lines;
    } cases[] = {
        // Only the first name counts, untrimmed; an emoji outside the BMP and an entity.
        {UserFile(
             "id=\"10\" serialNumber=\"12\" flags=\"1040\" type=\"android.os.usertype.full.SECONDARY\" "
             "created=\"1700000000123\" lastLoggedIn=\"1700000999456\" icon=\"/data/system/users/10/a.png\"",
             "<!-- c --><seedAccountOptions/><name> Анна \xF0\x9F\x98\x80 &amp; Co\n</name><name>2</name>"),
         "10 12 1040 android.os.usertype.full.SECONDARY 1700000000123 1700000999456 "
         "/data/system/users/10/a.png "
         "' Анна \xF0\x9F\x98\x80 & Co\n'",
         {}},
        // User 0 may have no name; user 10 may not (see the failures).
        {UserFile("id=\"0\" serialNumber=\"0\" flags=\"3091\" type=\"android.os.usertype.full.SYSTEM\" "
                  "created=\"0\" lastLoggedIn=\"1700000999456\"",
                  ""),
         "0 0 3091 android.os.usertype.full.SYSTEM 0 1700000999456  ''",
         {Missing("icon"), {INFO, "ParseToUserInfo admin account has not user name."}}},
        // Numbers convert like atoi; a negative flags value leaves the field as it was (77).
        {UserFile("id=\" 11x\" serialNumber=\"abc\" flags=\"-1\" type=\"t\" created=\"-42\" "
                  "lastLoggedIn=\"9223372036854775807\""),
         "11 0 77 t -42 9223372036854775807  'n'",
         {Missing("icon")}},
        // Optional attributes: absent ones are logged, empty ones are not.
        {UserFile(REQUIRED), "10 12 1040 t 5 0  'n'", {Missing("icon"), Missing("lastLoggedIn")}},
        {UserFile(REQUIRED + " icon=\"\" lastLoggedIn=\"\""), "10 12 1040 t 5 0  'n'", {}},
    };
    for (const auto &c : cases) {
        Lay(c.file);
        OSUserDataInfo info{};
        info.flags = 77;
        EXPECT_EQ(parser_.TransformToUserInfo(PATH, info), 0) << c.file;
        EXPECT_EQ(std::to_string(info.id) + " " + std::to_string(info.serialNumber) + " " +
                      std::to_string(info.flags) + " " + info.type + " " + std::to_string(info.created) +
                      " " + std::to_string(info.lastLoggedIn) + " " + info.icon + " '" + info.name + "'",
                  c.record);
        EXPECT_EQ(PluginLogLines(), c.lines) << c.file;
    }
}

TEST_F(UserXmlParseTest, UnreadableFilesAndWrongRootsGiveTheirCodeAndLines) {
    const std::string checkFailed = "CheckFileExist file is not exist errno is 2, fileName is " + PATH;
    const std::string notExist = "ParseXmlFile failed, xmlfile:" + PATH + " does not exist.";
    const std::string listFailed = "TransformToUserList failed, xmlfile:" + PATH + ".";
    const std::string userFailed = "TransformToUserInfo failed, xmlfile:" + PATH + ".";
    const std::string noUsers = "ParseToUserList failed, not find users xml node.";
    struct Case {
        bool list;                           // the user list, else a user's file
        std::optional<std::string> content;  // none: no file
        int32_t code;
        std::vector<std::string> errors;
    } cases[] = {
        {true, std::nullopt, XML_FILE_NOT_EXIST, {checkFailed, notExist, listFailed}},
        {false, std::nullopt, XML_FILE_NOT_EXIST, {checkFailed, notExist, userFailed}},
        // Even in recovery mode libxml2 makes no document of an empty file, and no root of bare text.
        {true, "", XML_FILE_READ_ERROR, {"ParseXmlFile failed, xml doc is nullptr.", listFailed}},
        {false, "not xml at all", XML_FILE_READ_ERROR, {"ParseXmlFile failed, xml root is nullptr."}},
        {true, "<user id=\"0\"/>", USER_LIST_NODE_ERROR, {noUsers}},
        {true, "<Users><user id=\"0\"/></Users>", USER_LIST_NODE_ERROR, {noUsers}},
        {false,
         "<users><user/></users>",
         USER_NODE_ERROR,
         {"ParseToUserInfo failed, not find user xml node."}},
        {false,
         UserFile(REQUIRED + " icon=\"i\" lastLoggedIn=\"1\"", ""),
         USER_NAME_MISSING,
         {"ParseToUserInfo failed, has not user name."}},
    };
    for (const auto &c : cases) {
        Lay(c.content);
        std::vector<int32_t> ids;
        OSUserDataInfo info{};
        const std::string what = c.content.value_or("(no file)");
        EXPECT_EQ(c.list ? parser_.TransformToUserList(PATH, ids) : parser_.TransformToUserInfo(PATH, info),
                  c.code)
            << what;
        EXPECT_TRUE(ids.empty());
        Lines expected;
        for (const auto &text : c.errors) {
            expected.push_back({ERROR, text});
        }
        EXPECT_EQ(PluginLogLines(), expected) << what;
    }
}

TEST_F(UserXmlParseTest, RequiredAttributesMissingOrEmptyFailWithTheirCodes) {
    struct Case {
        std::string attributes;
        int32_t code;
        std::string missing;  // empty: present but empty, which is not logged
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
        Lay(UserFile(c.attributes));
        OSUserDataInfo info{};
        EXPECT_EQ(parser_.TransformToUserInfo(PATH, info), c.code) << c.attributes;
        Lines expected;
        if (!c.missing.empty()) {
            expected.push_back(Missing(c.missing));
        }
        expected.push_back(
            {ERROR, "ParseToUserInfo failed, ParseUserAttributes return " + std::to_string(c.code) + "."});
        EXPECT_EQ(PluginLogLines(), expected) << c.attributes;
    }
}

}  // namespace

#include "account_file_util.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "captured_log.h"

using namespace Zarvo::UpdateEngine;
using Zarvo::Testing::LogLine;
using Zarvo::Testing::PluginLogLines;
namespace fs = std::filesystem;

namespace {

class AccountFileUtilTest : public testing::Test {
protected:
    const std::string root_ = "/data/file_util";

    void SetUp() override {
        Zarvo::Testing::ResetCaptures();
        fs::create_directories(root_);
    }

    static void Write(const std::string &path, const std::string &content) {
        std::ofstream(path, std::ios::binary) << content;
    }
};

TEST_F(AccountFileUtilTest, ExistenceChecksLogOnlyWhatTheyMust) {
    Write(root_ + "/f", "x");
    fs::create_directory_symlink(root_, root_ + "/dirlink");
    fs::create_symlink(root_ + "/missing", root_ + "/dangling");

    EXPECT_TRUE(AccountFileUtil::CheckFileExist(root_ + "/f"));
    EXPECT_TRUE(AccountFileUtil::CheckPathExsit(root_ + "/dirlink"));
    EXPECT_TRUE(PluginLogLines().empty());

    EXPECT_FALSE(AccountFileUtil::CheckPathExsit(root_ + "/missing"));
    EXPECT_FALSE(AccountFileUtil::CheckPathExsit(root_ + "/dangling"));
    EXPECT_TRUE(PluginLogLines().empty());

    EXPECT_FALSE(AccountFileUtil::CheckFileExist(""));
    EXPECT_FALSE(AccountFileUtil::CheckPathExsit(""));
    EXPECT_FALSE(AccountFileUtil::CheckFileExist(root_ + "/missing"));
    EXPECT_EQ(PluginLogLines(),
              (std::vector<LogLine>{{LOG_ERROR, "CheckFileExist fileName is empty."},
                                    {LOG_ERROR, "CheckPathExsit pathName is empty."},
                                    {LOG_ERROR, "CheckFileExist file is not exist errno is 2, fileName is " +
                                                    root_ + "/missing"}}));
}

TEST_F(AccountFileUtilTest, TypeTestsNeverFollowLinks) {
    Write(root_ + "/f", "x");
    fs::create_symlink(root_ + "/f", root_ + "/filelink");
    fs::create_directory_symlink(root_, root_ + "/dirlink");
    EXPECT_TRUE(AccountFileUtil::IsFile(root_ + "/f"));
    EXPECT_FALSE(AccountFileUtil::IsDirectory(root_ + "/f"));
    EXPECT_TRUE(AccountFileUtil::IsDirectory(root_));
    EXPECT_FALSE(AccountFileUtil::IsFile(root_ + "/filelink"));
    EXPECT_FALSE(AccountFileUtil::IsDirectory(root_ + "/dirlink"));
    EXPECT_FALSE(AccountFileUtil::IsFile(root_ + "/missing"));
}

TEST_F(AccountFileUtilTest, RemoveAllDeletesTheTreeWithHiddenEntries) {
    fs::create_directories(root_ + "/tree/a/.hidden_dir/deep");
    Write(root_ + "/tree/.hidden", "h");
    Write(root_ + "/tree/a/file", "f");
    Write(root_ + "/tree/a/.hidden_dir/deep/x", "x");
    AccountFileUtil::RemoveAll(root_ + "/tree");
    EXPECT_FALSE(fs::exists(root_ + "/tree"));
    EXPECT_TRUE(PluginLogLines().empty());

    Write(root_ + "/single", "s");
    AccountFileUtil::RemoveAll(root_ + "/single");
    EXPECT_FALSE(fs::exists(root_ + "/single"));

    AccountFileUtil::RemoveAll(root_ + "/never_there");
    EXPECT_TRUE(PluginLogLines().empty());
}

TEST_F(AccountFileUtilTest, RemoveAllNeverLeavesItsTreeThroughALink) {
    const std::string outside = "/data/outside";
    fs::create_directories(outside + "/sub");
    Write(outside + "/keep", "keep");
    Write(outside + "/sub/keep2", "keep2");
    fs::create_directories(root_ + "/tree/inner");
    Write(root_ + "/tree/inner/file", "f");
    fs::create_directory_symlink(outside, root_ + "/tree/inner/escape");
    fs::create_symlink(outside + "/keep", root_ + "/tree/filelink");

    AccountFileUtil::RemoveAll(root_ + "/tree");

    EXPECT_TRUE(fs::exists(outside + "/keep"));
    EXPECT_TRUE(fs::exists(outside + "/sub/keep2"));
    // The links stay, and so do the directories above them; everything else is gone.
    EXPECT_TRUE(fs::is_symlink(root_ + "/tree/inner/escape"));
    EXPECT_TRUE(fs::is_symlink(root_ + "/tree/filelink"));
    EXPECT_FALSE(fs::exists(root_ + "/tree/inner/file"));

    AccountFileUtil::RemoveAll(root_ + "/tree/inner/escape");
    EXPECT_TRUE(fs::exists(outside + "/keep"));
}

TEST_F(AccountFileUtilTest, RemoveFileOfAMissingPathLogsInfo) {
    AccountFileUtil::RemoveFile(root_ + "/gone");
    EXPECT_EQ(PluginLogLines(),
              (std::vector<LogLine>{{LOG_INFO, "RemoveFile success, dir:" + root_ + "/gone is not exist"}}));
}

TEST_F(AccountFileUtilTest, RemoveAllReportsADirectoryItCannotOpen) {
    fs::create_directories(root_ + "/busy/child");
    // With no descriptor left, opendir fails even for root.
    rlimit saved{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &saved), 0);
    rlimit tight = saved;
    tight.rlim_cur = 64;
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &tight), 0);
    std::vector<int> fillers;
    for (int fd = dup(STDERR_FILENO); fd >= 0; fd = dup(STDERR_FILENO)) {
        fillers.push_back(fd);
    }
    AccountFileUtil::RemoveAll(root_ + "/busy");
    for (int fd : fillers) {
        close(fd);
    }
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &saved), 0);

    EXPECT_TRUE(fs::exists(root_ + "/busy/child"));
    EXPECT_EQ(
        PluginLogLines(),
        (std::vector<LogLine>{{LOG_ERROR, "RemoveAll failed, failed to opendir dir:" + root_ + "/busy"}}));
}

TEST_F(AccountFileUtilTest, PathJoiningAndFileNames) {
    EXPECT_EQ(AccountFileUtil::GetFilePathByDir("", "name"), "name");
    EXPECT_EQ(AccountFileUtil::GetFilePathByDir("/a/", "name"), "/a/name");
    EXPECT_EQ(AccountFileUtil::GetFilePathByDir("/a", "name"), "/a/name");
    EXPECT_EQ(AccountFileUtil::GetFileName("/data/system/users/10/photo.png"), "photo.png");
    EXPECT_EQ(AccountFileUtil::GetFileName("photo.png"), "photo.png");
    EXPECT_EQ(AccountFileUtil::GetFileName("/data/dir/"), "");
    EXPECT_EQ(AccountFileUtil::GetFileName(""), "");
}

TEST_F(AccountFileUtilTest, FileContentIsReturnedByteForByte) {
    const std::string bytes("line\r\nbin\0ary\xff", 14);
    Write(root_ + "/content", bytes);
    Write(root_ + "/empty", "");
    EXPECT_EQ(AccountFileUtil::GetFileContent(root_ + "/content"), bytes);
    EXPECT_EQ(AccountFileUtil::GetFileContent(root_ + "/empty"), "");
    EXPECT_TRUE(PluginLogLines().empty());

    EXPECT_EQ(AccountFileUtil::GetFileContent(root_ + "/missing"), "");
    EXPECT_EQ(
        PluginLogLines(),
        (std::vector<LogLine>{{LOG_ERROR, "GetFileContent " + root_ + "/missing is not exist or invalid"}}));
}

}  // namespace

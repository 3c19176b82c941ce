// The plug-in's client against the real service, both in this process.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "captured_log.h"
#include "file_migrate_manager.h"
#include "service_fixture.h"

using namespace Zarvo::Testing;
using Zarvo::UpdateEngine::FileMigrateManager;
using Zarvo::UpdateEngine::FileParam;
using Zarvo::UpdateEngine::FilePath;
using Zarvo::UpdateEngine::RECURSE_ALL;

namespace {

class EndToEndTest : public ServiceFixture {};

TEST_F(EndToEndTest, MkDirPreparesADirectoryWithOwnerGroupAndMode) {
    const std::string dir = APP_ROOT + "/100/base/com.example.account/haps/backup/files/ath/ce/";
    FileParam param{};
    param.uid = "20010099";
    param.gid = "20010098";
    param.perm = "0700";
    param.recurseOpt = RECURSE_ALL;
    param.dstFile = dir;
    EXPECT_EQ(FileMigrateManager().MkDir(param), 0);
    struct stat st = Lstat(dir);
    EXPECT_TRUE(S_ISDIR(st.st_mode));
    EXPECT_EQ(st.st_uid, 20010099u);
    EXPECT_EQ(st.st_gid, 20010098u);
    EXPECT_EQ(st.st_mode & 07777, 0700u);
}

TEST_F(EndToEndTest, ComposedCopyCopiesThenChangesOwnerAndMode) {
    const std::string src = WORK_ROOT + "/plugins/200/back/100/account_manager_db.json";
    const std::string dst = APP_ROOT + "/100/files/account_manager_db.json";
    WriteFile(src, "{\"name\":\"user\"}", 0644);
    std::filesystem::create_directories(APP_ROOT + "/100/files");
    FileParam param{};
    param.uid = "20010099";
    param.gid = "20010098";
    param.perm = "0700";
    param.recurseOpt = RECURSE_ALL;
    param.dstFile = dst;

    EXPECT_EQ(FileMigrateManager().CopyAllFile(src, param), 0);
    EXPECT_EQ(ReadFile(dst), "{\"name\":\"user\"}");
    struct stat st = Lstat(dst);
    EXPECT_EQ(st.st_uid, 20010099u);
    EXPECT_EQ(st.st_gid, 20010098u);
    EXPECT_EQ(st.st_mode & 07777, 0700u);

    std::vector<int32_t> types;
    for (const auto &entry : service_->Journal().Entries()) {
        types.push_back(entry.request.type);
        EXPECT_EQ(entry.outcome, Zarvo::Host::JournalOutcome::SERVED);
        EXPECT_EQ(entry.connection, service_->Journal().Entries().front().connection);
    }
    EXPECT_EQ(types, (std::vector<int32_t>{7, 13, 14}));
}

TEST_F(EndToEndTest, ListsAndTestsCarryTheServiceAnswers) {
    WriteFile(WORK_ROOT + "/l/a", "12345");
    std::filesystem::create_directories(WORK_ROOT + "/l/d");
    FileMigrateManager manager;
    std::vector<FilePath> list;
    EXPECT_EQ(manager.GetPathList(WORK_ROOT + "/l", list), 0);
    ASSERT_EQ(list.size(), 2u);
    EXPECT_EQ(list[0].path, WORK_ROOT + "/l/a");
    EXPECT_EQ(list[0].kind, 1);
    EXPECT_EQ(list[1].path, WORK_ROOT + "/l/d");
    EXPECT_EQ(list[1].kind, 2);
    std::string dir;
    EXPECT_EQ(manager.GetExistDirectory(WORK_ROOT + "/l/d/x/y", dir), 0);
    EXPECT_EQ(dir, WORK_ROOT + "/l/d");
    EXPECT_EQ(manager.GetPathSize(WORK_ROOT + "/l"), 5);
    EXPECT_EQ(manager.IsDir(WORK_ROOT + "/l/a"), -1);
    EXPECT_EQ(manager.IsFileExist("/etc/passwd"), -1);
}

TEST_F(EndToEndTest, InjectedNoSpaceFailureReachesTheCallerAsTwentyEight) {
    Zarvo::Host::FaultRule rule;
    rule.type = 12;
    rule.errCode = 28;
    service_->Faults().Add(rule);
    EXPECT_EQ(FileMigrateManager().MkDir(WORK_ROOT + "/full", RECURSE_ALL), 28);
    EXPECT_EQ(FileMigrateManager().MkDir(WORK_ROOT + "/full", RECURSE_ALL), 0);
}

}  // namespace

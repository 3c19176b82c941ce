// The plug-in's client against the real service, both in this process.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "file_migrate_manager.h"
#include "service_fixture.h"

using namespace Zarvo::Testing;
using namespace Zarvo::UpdateEngine;

namespace {

class EndToEndTest : public ServiceFixture {};

TEST_F(EndToEndTest, PreparedDirectoryAndComposedCopyGetOwnerGroupAndMode) {
    const std::string dir = APP_ROOT + "/100/base/com.example.account/haps/backup/files/ath/ce";
    const std::string src = WORK_ROOT + "/plugins/200/back/100/account_manager_db.json";
    const std::string dst = dir + "/account_manager_db.json";
    WriteFile(src, "{\"name\":\"user\"}", 0644);
    FileParam param{RECURSE_ALL, "20010099", "20010098", "0700", dir + "/", ""};
    FileMigrateManager manager;
    EXPECT_EQ(manager.MkDir(param), 0);
    param.dstFile = dst;
    EXPECT_EQ(manager.CopyAllFile(src, param), 0);
    EXPECT_EQ(ReadFile(dst), "{\"name\":\"user\"}");
    for (const std::string &path : {dir, dst}) {
        struct stat st = Lstat(path);
        EXPECT_EQ(S_ISDIR(st.st_mode), path == dir) << path;
        EXPECT_EQ(st.st_uid, 20010099u) << path;
        EXPECT_EQ(st.st_gid, 20010098u) << path;
        EXPECT_EQ(st.st_mode & 07777, 0700u) << path;
    }
    std::vector<int32_t> types;
    for (const auto &entry : service_->Journal().Entries()) {
        types.push_back(entry.request.type);
        EXPECT_EQ(entry.outcome, Zarvo::Host::JournalOutcome::SERVED);
    }
    EXPECT_EQ(types, (std::vector<int32_t>{PREPARE_DIR, COPY_ALL_FILE, CHOWN, CHMOD}));
}

// Packages from the service read back as the client's entries.
TEST_F(EndToEndTest, PathListsAndSizesCarryTheServiceAnswers) {
    WriteFile(WORK_ROOT + "/l/a", "12345");
    std::filesystem::create_directories(WORK_ROOT + "/l/d");
    FileMigrateManager manager;
    std::vector<FilePath> list;
    EXPECT_EQ(manager.GetPathList(WORK_ROOT + "/l", list), 0);
    ASSERT_EQ(list.size(), 2u);
    EXPECT_EQ(list[0].path + " " + std::to_string(list[0].kind), WORK_ROOT + "/l/a 1");
    EXPECT_EQ(list[1].path + " " + std::to_string(list[1].kind), WORK_ROOT + "/l/d 2");
    std::string dir;
    EXPECT_EQ(manager.GetExistDirectory(WORK_ROOT + "/l/d/x/y", dir), 0);
    EXPECT_EQ(dir, WORK_ROOT + "/l/d");
    EXPECT_EQ(manager.GetPathSize(WORK_ROOT + "/l"), 5);
}

}  // namespace

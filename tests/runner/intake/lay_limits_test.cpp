// The laying's bounds at their edge, from a folder and from an archive: exactly the limit is laid,
// one more is refused. It writes the plug-in's work tree below /data, so it runs in the sandbox.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "archive_snapshot.h"
#include "snapshot.h"
#include "test_archive.h"

namespace {

using namespace Zarvo;
using Testing::Member;
namespace fs = std::filesystem;

const Host::LayLimits LIMITS{100, 150, 3};

struct Case {
    std::string name;
    std::vector<Member> members;  // below the data root
    std::string says;             // empty when it is laid
};

std::vector<Case> Cases() {
    auto user = [](int id, size_t bytes) {
        return Member{"system/users/" + std::to_string(id) + ".xml", Host::EntryType::FILE,
                      std::string(bytes, 'x')};
    };
    return {
        {"as many entries as allowed", {user(0, 1), user(1, 1), user(2, 1)}, ""},
        {"one entry more", {user(0, 1), user(1, 1), user(2, 1), user(3, 1)}, "more than 3 entries"},
        {"a file as large as allowed", {user(0, 100)}, ""},
        {"a file one byte larger", {user(0, 101)}, "holds more than 100 bytes"},
        {"files as large together as allowed", {user(0, 75), user(1, 75)}, ""},
        {"files one byte larger together", {user(0, 75), user(1, 76)}, "more than 150 bytes together"},
    };
}

class LayLimitsTest : public testing::Test {
protected:
    void SetUp() override {
        const char *sandbox = std::getenv("ZARVO_SANDBOX");
        ASSERT_TRUE(sandbox != nullptr && std::string(sandbox) == "1")
            << "writes below /data: run it through scripts/sandbox-exec (ctest does)";
        char pattern[] = "/tmp/lay_limits_XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        dir_ = pattern;
    }
    void TearDown() override { fs::remove_all(dir_); }

    // Lays the source and checks the outcome, then clears the work tree for the next case.
    static void ExpectLaid(Host::SnapshotSource &source, const Case &c, const Host::LayLimits &layLimits,
                           const std::string &form) {
        Host::LaidSnapshot laid;
        const std::string failure = Host::LaySnapshot(source, 100, laid, layLimits);
        if (c.says.empty()) {
            EXPECT_EQ(failure, "") << form << ", " << c.name;
            EXPECT_EQ(laid.laid.size(), c.members.size()) << form << ", " << c.name;
        } else {
            EXPECT_NE(failure.find(c.says), std::string::npos) << form << ", " << c.name << ": " << failure;
        }
        fs::remove_all("/data/service");
    }

    std::string dir_;
};

TEST_F(LayLimitsTest, AFolderIsLaidUpToItsLimitsAndNotOneEntryOrByteMore) {
    for (const Case &c : Cases()) {
        const std::string folder = dir_ + "/" + c.name;
        for (const Member &member : c.members) {
            fs::create_directories(fs::path(folder + "/" + member.name).parent_path());
            std::ofstream(folder + "/" + member.name) << member.content;
        }
        std::string error;
        std::unique_ptr<Host::SnapshotSource> source = Host::OpenFolderSnapshot(folder, error);
        ASSERT_NE(source, nullptr) << error;
        ExpectLaid(*source, c, LIMITS, "folder");
        fs::remove_all(folder);
    }
}

// The archive's staging and the laying each hold the bounds: either one alone refuses.
TEST_F(LayLimitsTest, AnArchiveIsLaidUpToItsLimitsAndNotOneEntryOrByteMore) {
    const std::string archive = dir_ + "/phone.tar";
    for (const Case &c : Cases()) {
        std::vector<Member> members;
        for (Member member : c.members) {
            member.name = "data/" + member.name;
            members.push_back(member);
        }
        ASSERT_EQ(Testing::WriteArchive(archive, Testing::Packing::TAR, members), "");
        Host::ArchiveLimits staged;
        staged.staged = LIMITS;
        ExpectLaid(*Host::OpenArchiveSnapshot({archive}, staged), c, {}, "archive staging");
        ExpectLaid(*Host::OpenArchiveSnapshot({archive}), c, LIMITS, "archive laying");
    }
}

}  // namespace

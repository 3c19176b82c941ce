#include "archive_snapshot.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>

#include "runner_process.h"
#include "snapshot.h"
#include "test_archive.h"

namespace {

using namespace Zarvo;
using Host::EntryType;
using Testing::Member;
using Testing::Packing;
namespace fs = std::filesystem;

struct Walked {
    std::string failure;
    std::string root;
    std::vector<std::string> entries;  // "path" or, for a file, "path=content"
};

// Walks the archive with the restore's selection and records what the source hands over.
Walked WalkArchive(const std::string &path, const Host::ArchiveLimits &limits = {}) {
    std::unique_ptr<Host::SnapshotSource> source = Host::OpenArchiveSnapshot({path}, limits);
    std::unique_ptr<Host::EntryFilter> filter = Host::RestoreEntryFilter(100);
    Walked walked;
    walked.failure =
        source->Walk(*filter, [&walked](const Host::SnapshotEntry &entry, Host::EntryReader &content) {
            std::string text = entry.path;
            if (entry.type == EntryType::FILE) {
                text += "=";
                char buffer[256];
                std::string error;
                for (ssize_t n; (n = content.Read(buffer, sizeof(buffer), error)) > 0;) {
                    text.append(buffer, static_cast<size_t>(n));
                }
            }
            walked.entries.push_back(text);
            return std::string();
        });
    walked.root = source->Root();
    return walked;
}

class ArchiveSnapshotTest : public TempFolderTest {
protected:
    std::string WriteArchive(Packing packing, const std::vector<Member> &members) {
        const std::string path = dir_ + "/archive";
        EXPECT_EQ(Testing::WriteArchive(path, packing, members), "");
        return path;
    }
};

// The forms the runner's own tests do not make; entries come out in the order of a folder's walk.
TEST_F(ArchiveSnapshotTest, FindsTheDataRootWhereverTheArchiveHoldsIt) {
    struct Case {
        std::vector<Member> members;
        std::string root;
        std::vector<std::string> entries;
    } cases[] = {
        {{{"./system/users/10.xml", EntryType::FILE, "ten"},
          {"./system/users/10/photo.png", EntryType::FILE, "png"},
          {"./system/misc.txt", EntryType::FILE, "not taken"},
          {"./system/users/userlist.xml", EntryType::FILE, "list"}},
         "the archive itself",
         {"system/users/10/photo.png=png", "system/users/10.xml=ten", "system/users/userlist.xml=list"}},
        {{{"Dump/data/media/0/back/x.jpg", EntryType::FILE, "a photo of the user's"},
          {"Dump/data/system_ce/0/accounts_ce.db-wal", EntryType::FILE, "wal"},
          {"Dump/data/system_ce/0/accounts_ce.db", EntryType::FILE, "db"}},
         "Dump/data/ in the archive",
         {"system_ce/0/accounts_ce.db=db", "system_ce/0/accounts_ce.db-wal=wal"}},
        {{{"phone/system/users", EntryType::DIRECTORY}, {"phone/system/users/10", EntryType::DIRECTORY}},
         "phone/ in the archive",
         {"system/users/10"}},
        {{{"back/100/accounts_ce.db", EntryType::FILE, "db"}},
         "the archive itself",
         {"back/100/accounts_ce.db=db"}},
    };
    for (const Case &c : cases) {
        Walked walked = WalkArchive(WriteArchive(Packing::TAR_GZ, c.members));
        EXPECT_EQ(walked.failure, "") << c.root;
        EXPECT_EQ(walked.root, c.root);
        EXPECT_EQ(walked.entries, c.entries) << c.root;
    }
}

TEST_F(ArchiveSnapshotTest, AnArchiveOverALimitOrCutShortHandsNothingOver) {
    const Member list{"data/system/users/userlist.xml", EntryType::FILE, std::string(600, 'x')};
    const Member user{"data/system/users/0.xml", EntryType::FILE, std::string(600, 'x')};
    struct Case {
        std::vector<Member> members;
        Host::ArchiveLimits limits;
        size_t cutTo;  // bytes of the plain tar to keep, 0 for all
        std::string says;
    } cases[] = {
        {{list}, {500}, 0, "the archive's data/system/users/userlist.xml holds more than 500 bytes"},
        {{list, user}, {1000, 1000}, 0, "hold more than 1000 bytes together"},
        {{list, user, {"data/system/users/10", EntryType::DIRECTORY}},
         {1000, 2000, 2},
         0,
         "holds more than 2 entries a restore takes"},
        // A header and its data, then nothing: not even the end-of-archive block.
        {{list, user}, {}, 1536, "stops without the end-of-archive block"},
        {{{"data/media/0/back/x.jpg", EntryType::FILE, "jpg"}}, {}, 0, "holds no data root"},
    };
    for (const Case &c : cases) {
        const std::string path = WriteArchive(Packing::TAR, c.members);
        if (c.cutTo > 0) {
            ASSERT_EQ(truncate(path.c_str(), static_cast<off_t>(c.cutTo)), 0);
        }
        Walked walked = WalkArchive(path, c.limits);
        EXPECT_NE(walked.failure.find(c.says), std::string::npos) << walked.failure;
        EXPECT_TRUE(walked.entries.empty()) << c.says;
    }
}

}  // namespace

// The guard's two ways of opening a path, one openat2 call and the walk of one directory at a
// time, give the same answers and the same reasons, so that a host without the call behaves the
// same. (The whole suite also runs with the walk forced: see the .walk tests.)
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <string>
#include <vector>

#include "path_guard.h"
#include "test_files.h"

using namespace Zarvo::Testing;
using Zarvo::Host::GuardedPath;
using Zarvo::Host::PathGuard;
using Zarvo::Host::PathLookup;
using Zarvo::Host::UniqueFd;

namespace {

const std::string BASE = "/data/lookup";
const std::string ROOT = BASE + "/root";

struct Answer {
    int err = 0;
    std::string reason;
    ino_t inode = 0;  // of the directory handle, or of the opened target
    std::string name;
    bool isRoot = false;
};

ino_t InodeOf(int fd) {
    struct stat st {};
    return fd >= 0 && fstat(fd, &st) == 0 ? st.st_ino : 0;
}

Answer Resolve(const PathGuard &guard, const std::string &path) {
    GuardedPath out;
    Answer answer;
    answer.err = guard.Resolve(path, out, answer.reason);
    answer.inode = InodeOf(out.dir.Get());
    answer.name = out.name;
    answer.isRoot = out.isRoot;
    return answer;
}

Answer OpenTarget(const PathGuard &guard, const std::string &path, bool directory) {
    UniqueFd fd;
    Answer answer;
    answer.err = guard.OpenTarget(path, directory, fd, answer.reason);
    answer.inode = InodeOf(fd.Get());
    return answer;
}

void ExpectSame(const Answer &single, const Answer &walk, const std::string &what) {
    EXPECT_EQ(single.err, walk.err) << what;
    EXPECT_EQ(single.reason, walk.reason) << what;
    EXPECT_EQ(single.inode, walk.inode) << what;
    EXPECT_EQ(single.name, walk.name) << what;
    EXPECT_EQ(single.isRoot, walk.isRoot) << what;
}

TEST(PathLookupTest, SingleCallAndWalkGiveTheSameAnswersAndReasons) {
    std::filesystem::remove_all(BASE);
    WriteFile(ROOT + "/dir/sub/file", "x");
    WriteFile(ROOT + "/file", "x");
    WriteFile(BASE + "/outside/secret", "x");
    WriteFile(BASE + "/root-x/file", "x");
    ASSERT_EQ(symlink((BASE + "/outside").c_str(), (ROOT + "/link-out").c_str()), 0);
    ASSERT_EQ(symlink("dir", (ROOT + "/link-in").c_str()), 0);
    ASSERT_EQ(symlink("../file", (ROOT + "/dir/link-file").c_str()), 0);
    ASSERT_EQ(mkfifo((ROOT + "/pipe").c_str(), 0600), 0);

    PathGuard single({ROOT}, PathLookup::SINGLE_CALL);
    PathGuard walk({ROOT}, PathLookup::WALK);
    struct Row {
        std::string path;
        int resolved;  // what Resolve answers
        int opened;    // what OpenTarget answers for any kind of file
    };
    const std::string longName(300, 'n');
    for (const Row &row : std::vector<Row>{
             {ROOT, 0, 0},
             {ROOT + "/", 0, 0},
             {ROOT + "/./dir//sub/", 0, 0},
             {ROOT + "/file", 0, 0},
             {ROOT + "/pipe", 0, 0},
             {ROOT + "/dir/sub/file", 0, 0},
             {ROOT + "/dir/sub/missing", 0, ENOENT},
             {ROOT + "/missing/x/y", ENOENT, ENOENT},
             {ROOT + "/file/x", ENOTDIR, ENOTDIR},
             {ROOT + "/file/x/y", ENOTDIR, ENOTDIR},
             {ROOT + "/pipe/x/y", ENOTDIR, ENOTDIR},
             {ROOT + "/link-out", 0, 0},
             {ROOT + "/link-out/secret", ELOOP, ELOOP},
             {ROOT + "/link-out/missing/x", ELOOP, ELOOP},
             {ROOT + "/link-in/sub/file", ELOOP, ELOOP},
             {ROOT + "/dir/link-file", 0, 0},
             {ROOT + "/dir/link-file/x", ELOOP, ELOOP},
             {ROOT + "/" + longName, 0, ENAMETOOLONG},
             {ROOT + "/" + longName + "/x", ENAMETOOLONG, ENAMETOOLONG},
             {ROOT + "/dir/../file", EACCES, EACCES},
             {BASE + "/root-x/file", EACCES, EACCES},
             {BASE + "/outside/secret", EACCES, EACCES},
             {"root/file", EINVAL, EINVAL},
         }) {
        Answer resolved = Resolve(single, row.path);
        EXPECT_EQ(resolved.err, row.resolved) << row.path;
        ExpectSame(resolved, Resolve(walk, row.path), "Resolve " + row.path);
        Answer opened = OpenTarget(single, row.path, false);
        EXPECT_EQ(opened.err, row.opened) << row.path;
        ExpectSame(opened, OpenTarget(walk, row.path, false), "OpenTarget " + row.path);
        ExpectSame(OpenTarget(single, row.path, true), OpenTarget(walk, row.path, true),
                   "OpenTarget as a directory " + row.path);
    }
}

}  // namespace

#include "sandbox.h"

#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

namespace {

namespace fs = std::filesystem;
using Zarvo::Host::EnterSandbox;
using Zarvo::Host::InSandbox;

// What a child that made the sandbox found there, as its exit status.
enum Finding {
    ENTERED = 0,
    NOT_MADE = 10,
    DATA_NOT_FRESH,
    SOCKETS_NOT_FRESH,
    NOT_WRITABLE,
    NOT_MARKED,
    MAY_GAIN_PRIVILEGES
};

int MakeSandboxAndLook() {
    if (!EnterSandbox().empty()) {
        return NOT_MADE;
    }
    if (!fs::is_empty("/data")) {
        return DATA_NOT_FRESH;
    }
    if (!fs::is_empty("/dev/unix")) {
        return SOCKETS_NOT_FRESH;
    }
    std::ofstream("/data/left_by_the_restore") << "x";
    std::ofstream("/dev/unix/left_by_the_restore") << "x";
    if (!fs::exists("/data/left_by_the_restore") || !fs::exists("/dev/unix/left_by_the_restore")) {
        return NOT_WRITABLE;
    }
    if (!InSandbox()) {
        return NOT_MARKED;
    }
    return prctl(PR_GET_NO_NEW_PRIVS, 0, 0, 0, 0) == 1 ? ENTERED : MAY_GAIN_PRIVILEGES;
}

// A restore's /data and /dev/unix start empty, take what it writes, and are gone for the process
// that started it: nothing reaches the mounts outside the sandbox.
TEST(SandboxTest, ARestoreGetsFreshDataAndSocketFoldersThatNothingOutsideSees) {
    std::ofstream("/data/seen_outside") << "x";
    std::ofstream("/dev/unix/seen_outside") << "x";
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        _exit(MakeSandboxAndLook());
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), ENTERED);
    EXPECT_FALSE(fs::exists("/data/left_by_the_restore"));
    EXPECT_FALSE(fs::exists("/dev/unix/left_by_the_restore"));
    EXPECT_TRUE(fs::exists("/data/seen_outside"));
    EXPECT_FALSE(InSandbox());
    fs::remove("/data/seen_outside");
    fs::remove("/dev/unix/seen_outside");
}

}  // namespace

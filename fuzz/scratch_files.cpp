#include "scratch_files.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace Zarvo::Fuzzing {
namespace {

// Below $TMPDIR when it is set, else in memory (/dev/shm) when there is one: the code under test
// syncs what it writes, which on a disk costs far more than the rest of an input.
std::string ScratchParent() {
    const char *tmp = std::getenv("TMPDIR");
    if (tmp != nullptr && *tmp != '\0') {
        return tmp;
    }
    return access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp";
}

std::string MakeScratchDir() {
    std::string pattern = ScratchParent() + "/fuzz-scratch-XXXXXX";
    if (mkdtemp(pattern.data()) == nullptr) {
        std::perror("fuzz: cannot make a scratch directory");
        std::abort();
    }
    return pattern;
}

}  // namespace

const std::string &ScratchDir() {
    // Never destroyed, so that the exit handler that removes the directory can still name it.
    static const std::string *const dir = [] {
        auto *made = new std::string(MakeScratchDir());
        std::atexit([] {
            std::error_code ignored;
            std::filesystem::remove_all(ScratchDir(), ignored);
        });
        return made;
    }();
    return *dir;
}

std::string WriteScratchFile(const std::string &name, std::string_view content) {
    std::string path = ScratchDir() + "/" + name;
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(content.data(), static_cast<std::streamsize>(content.size()));
    out.close();
    if (!out) {
        std::perror(("fuzz: cannot write " + path).c_str());
        std::abort();
    }
    return path;
}

void RemoveScratchFile(const std::string &name) {
    unlink((ScratchDir() + "/" + name).c_str());
}

}  // namespace Zarvo::Fuzzing

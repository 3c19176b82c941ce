#ifndef TESTS_MIGRATE_SERVICE_TEST_FILES_H
#define TESTS_MIGRATE_SERVICE_TEST_FILES_H

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <string>

namespace Zarvo::Testing {

// Writes a file, making its folders, and gives it exactly `mode`.
inline void WriteFile(const std::string &path, const std::string &content, mode_t mode = 0644) {
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::ofstream(path, std::ios::binary) << content;
    chmod(path.c_str(), mode);
}

inline std::string ReadFile(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

inline struct stat Lstat(const std::string &path) {
    struct stat st {};
    EXPECT_EQ(lstat(path.c_str(), &st), 0) << path;
    return st;
}

// True for anything at `path`, a dangling link included.
inline bool Exists(const std::string &path) {
    return std::filesystem::exists(std::filesystem::symlink_status(path));
}

// Every entry below `root`, and `root` itself, with its type, owner, mode and content or link
// target: two states compare equal only when nothing in the tree was changed.
inline std::map<std::string, std::string> TreeState(const std::string &root) {
    std::map<std::string, std::string> state;
    auto describe = [&state](const std::filesystem::path &path) {
        struct stat st = Lstat(path);
        std::string text = std::to_string(st.st_uid) + ":" + std::to_string(st.st_gid) + " " +
                           std::to_string(st.st_mode) + " ";
        if (S_ISLNK(st.st_mode)) {
            text += "-> " + std::filesystem::read_symlink(path).string();
        } else if (S_ISREG(st.st_mode)) {
            text += ReadFile(path);
        }
        state[path.string()] = text;
    };
    describe(root);
    for (const auto &entry : std::filesystem::recursive_directory_iterator(root)) {
        describe(entry.path());
    }
    return state;
}

}  // namespace Zarvo::Testing

#endif  // TESTS_MIGRATE_SERVICE_TEST_FILES_H

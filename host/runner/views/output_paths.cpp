#include "output_paths.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

namespace Zarvo::Host {
namespace {

// Why no entry can be made in `folder`, or empty text.
std::string FolderProblem(const std::string &folder) {
    struct stat status {};
    if (stat(folder.c_str(), &status) != 0) {
        return "its folder " + folder +
               (errno == ENOENT ? " does not exist" : std::string(": ") + std::strerror(errno));
    }
    if (!S_ISDIR(status.st_mode)) {
        return folder + " is no folder";
    }
    if (access(folder.c_str(), W_OK | X_OK) != 0) {
        return "its folder " + folder + " is not writable (" + std::strerror(errno) + ")";
    }
    return "";
}

std::string ParentOf(const std::string &path) {
    const std::filesystem::path parent = std::filesystem::path(path).parent_path();
    return parent.empty() ? "." : parent.string();
}

}  // namespace

std::string OutputFileProblem(const std::string &option, const std::string &path) {
    struct stat status {};
    if (lstat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode)) {
        return option + " " + path + " is a folder; name a file.";
    }
    const std::string problem = FolderProblem(ParentOf(path));
    return problem.empty() ? "" : option + " " + path + " cannot be written: " + problem + ".";
}

std::string OutputFolderProblem(const std::string &option, const std::string &path) {
    struct stat status {};
    if (stat(path.c_str(), &status) != 0) {
        const std::string problem = FolderProblem(ParentOf(path));
        return problem.empty() ? "" : option + " " + path + " cannot be made: " + problem + ".";
    }
    if (!S_ISDIR(status.st_mode)) {
        return option + " " + path + " is a file; name a folder.";
    }
    if (access(path.c_str(), W_OK | X_OK) != 0) {
        return option + " " + path + " is not writable (" + std::strerror(errno) + ").";
    }
    return "";
}

}  // namespace Zarvo::Host

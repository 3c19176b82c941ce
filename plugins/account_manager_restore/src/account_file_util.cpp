#include "account_file_util.h"

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>

#include "update_log.h"

namespace Zarvo {
namespace UpdateEngine {
namespace {

const std::string PATH_SEPARATOR = "/";

}  // namespace

bool AccountFileUtil::CheckFileExist(const std::string &fileName) {
    if (fileName.empty()) {
        PLUGIN_LOGE("CheckFileExist fileName is empty.");
        return false;
    }
    if (access(fileName.c_str(), F_OK) == 0) {
        return true;
    }
    // Taken before the log call, whose arguments may allocate and so touch errno.
    const int accessErrno = errno;
    PLUGIN_LOGE("CheckFileExist file is not exist errno is %{public}d, fileName is %{public}s", accessErrno,
                fileName.c_str());
    return false;
}

bool AccountFileUtil::CheckPathExsit(const std::string &pathName) {
    if (pathName.empty()) {
        PLUGIN_LOGE("CheckPathExsit pathName is empty.");
        return false;
    }
    std::error_code errorCode;
    std::filesystem::file_status status = std::filesystem::status(pathName, errorCode);
    if (std::filesystem::status_known(status)) {
        errorCode.clear();
    }
    if (errorCode) {
        PLUGIN_LOGE("CheckPathExsit filesystem::exists error, error code = %d", errorCode.value());
        return false;
    }
    return std::filesystem::exists(status);
}

bool AccountFileUtil::IsFile(const std::string &path) {
    struct stat buf {};
    return lstat(path.c_str(), &buf) == 0 && S_ISREG(buf.st_mode);
}

bool AccountFileUtil::IsDirectory(const std::string &path) {
    struct stat buf {};
    return lstat(path.c_str(), &buf) == 0 && S_ISDIR(buf.st_mode);
}

void AccountFileUtil::RemoveFile(const std::string &path) {
    if (access(path.c_str(), F_OK) != 0) {
        PLUGIN_LOGI("RemoveFile success, dir:%{public}s is not exist", path.c_str());
        return;
    }
    (void)remove(path.c_str());
}

std::string AccountFileUtil::GetFilePathByDir(const std::string &dir, const std::string &fileName) {
    if (dir.empty()) {
        return fileName;
    }
    std::string filePath = dir;
    if (filePath.back() != PATH_SEPARATOR.back()) {
        filePath += PATH_SEPARATOR;
    }
    return filePath + fileName;
}

void AccountFileUtil::RemoveAll(const std::string &path) {
    if (IsFile(path)) {
        RemoveFile(path);
        return;
    }
    // lstat-based: a symbolic link (even to a directory) is not a directory and stays untouched.
    if (!IsDirectory(path)) {
        return;
    }
    // Owned, so that running out of memory on the way down does not leak the directory handle.
    std::unique_ptr<DIR, int (*)(DIR *)> dir(opendir(path.c_str()), closedir);
    if (dir == nullptr) {
        PLUGIN_LOGE("RemoveAll failed, failed to opendir dir:%{public}s", path.c_str());
        return;
    }
    for (struct dirent *entry = readdir(dir.get()); entry != nullptr; entry = readdir(dir.get())) {
        const std::string name = entry->d_name;
        if (name == "." || name == "..") {
            continue;
        }
        RemoveAll(GetFilePathByDir(path, name));
    }
    dir.reset();
    (void)rmdir(path.c_str());
}

std::string AccountFileUtil::GetFileContent(const std::string &path) {
    std::unique_ptr<char, decltype(&free)> resolved(realpath(path.c_str(), nullptr), &free);
    if (resolved == nullptr) {
        PLUGIN_LOGE("GetFileContent %{public}s is not exist or invalid", path.c_str());
        return "";
    }
    std::ifstream file(resolved.get(), std::ios::in);
    resolved.reset();
    if (!file.good()) {
        PLUGIN_LOGE("GetFileContent is not exist or invalid");
        return "";
    }
    std::stringstream content;
    content << file.rdbuf();
    file.close();
    return content.str();
}

std::string AccountFileUtil::GetFileName(const std::string &path) {
    if (path.empty()) {
        return "";
    }
    return std::filesystem::path(path).filename().string();
}

}  // namespace UpdateEngine
}  // namespace Zarvo

#ifndef ACCOUNT_FILE_UTIL_H
#define ACCOUNT_FILE_UTIL_H

#include <string>

namespace Zarvo {
namespace UpdateEngine {

// File-system operations on the local file system; every failure is logged where it happens.
class AccountFileUtil {
public:
    static bool CheckFileExist(const std::string &fileName);
    static bool CheckPathExsit(const std::string &pathName);
    static bool IsFile(const std::string &path);
    static bool IsDirectory(const std::string &path);
    static void RemoveFile(const std::string &path);
    static std::string GetFilePathByDir(const std::string &dir, const std::string &fileName);
    // Removes path and everything below it; never follows a symbolic link.
    static void RemoveAll(const std::string &path);
    static std::string GetFileContent(const std::string &path);
    static std::string GetFileName(const std::string &path);
};

}  // namespace UpdateEngine
}  // namespace Zarvo

#endif  // ACCOUNT_FILE_UTIL_H

#include "path_within.h"

#include <sys/stat.h>

#include <filesystem>

namespace Zarvo::Host {

bool LiesWithin(const std::string &path, const std::string &folder) {
    struct stat target {};
    if (stat(folder.c_str(), &target) != 0) {
        return false;
    }
    std::error_code error;
    std::filesystem::path place = std::filesystem::weakly_canonical(std::filesystem::absolute(path), error);
    if (error) {
        place = std::filesystem::absolute(path).lexically_normal();
    }
    for (;; place = place.parent_path()) {
        struct stat info {};
        if (stat(place.c_str(), &info) == 0 && info.st_dev == target.st_dev && info.st_ino == target.st_ino) {
            return true;
        }
        if (place == place.parent_path()) {
            return false;
        }
    }
}

}  // namespace Zarvo::Host

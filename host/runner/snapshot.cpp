#include "snapshot.h"

#include <filesystem>
#include <system_error>

namespace Zarvo::Host {
namespace fs = std::filesystem;
namespace {

const std::string WORK_ROOT = "/data/service/el1/public/update/migrate_server/plugins/200/";
const std::string SOURCE_XML_DIR = WORK_ROOT + "back/sourceXml/";
const fs::copy_options COPY_OPTIONS =
    fs::copy_options::recursive | fs::copy_options::copy_symlinks | fs::copy_options::overwrite_existing;

bool IsDecimal(const std::string &text) {
    return !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
}

std::string Copy(const fs::path &from, const fs::path &to, std::vector<LaidFile> &laid) {
    std::error_code error;
    fs::create_directories(to.parent_path(), error);
    if (!error) {
        fs::copy(from, to, COPY_OPTIONS, error);
    }
    if (error) {
        return "could not copy " + from.string() + " to " + to.string() + ": " + error.message() + ".";
    }
    laid.push_back({from.string(), to.string()});
    return "";
}

}  // namespace

std::string LaySnapshot(const std::string &snapshotDir, int activeUserId, std::vector<LaidFile> &laid) {
    const fs::path snapshot(snapshotDir);
    std::error_code error;
    if (!fs::is_directory(snapshot, error)) {
        return "the snapshot " + snapshotDir + " is not a directory.";
    }
    if (fs::is_directory(snapshot / "back", error)) {
        return Copy(snapshot / "back", WORK_ROOT + "back", laid);
    }

    const fs::path database = snapshot / "system_ce/0/accounts_ce.db";
    const fs::path users = snapshot / "system/users";
    if (!fs::exists(database, error) && !fs::is_directory(users, error)) {
        return "the snapshot " + snapshotDir +
               " holds neither system_ce/0/accounts_ce.db nor system/users/, nor a work tree (back/).";
    }
    if (fs::exists(database, error) && activeUserId >= 0) {
        const std::string userDir = WORK_ROOT + "back/" + std::to_string(activeUserId) + "/";
        for (const char *suffix : {"", "-journal", "-wal", "-shm"}) {
            fs::path companion = database.string() + suffix;
            if (fs::exists(companion, error)) {
                std::string failure = Copy(companion, userDir + companion.filename().string(), laid);
                if (!failure.empty()) {
                    return failure;
                }
            }
        }
    }
    if (!fs::is_directory(users, error)) {
        return "";
    }
    for (const auto &entry : fs::directory_iterator(users, error)) {
        const std::string name = entry.path().filename().string();
        const bool userFile = name == "userlist.xml" ||
                              (entry.path().extension() == ".xml" && IsDecimal(entry.path().stem().string()));
        const bool photoFolder = IsDecimal(name) && entry.is_directory(error);
        if (userFile || photoFolder) {
            std::string failure = Copy(entry.path(), SOURCE_XML_DIR + name, laid);
            if (!failure.empty()) {
                return failure;
            }
        }
    }
    if (error) {
        return "could not read " + users.string() + ": " + error.message() + ".";
    }
    return "";
}

}  // namespace Zarvo::Host

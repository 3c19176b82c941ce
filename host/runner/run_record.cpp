#include "run_record.h"

#include <sys/stat.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "binary_xml/value_text.h"
#include "hilog/log.h"
#include "record_secrets.h"

namespace Zarvo::Host {
namespace fs = std::filesystem;
namespace {

const std::string EXPORT_FILE_NAME = "account_manager_db.json";
const std::string PNG_DATA_URI_PREFIX = "data:image/png;base64,";

std::vector<FaultEvent> FaultEventsOf(const std::vector<EventRecord> &captured) {
    std::vector<FaultEvent> events;
    for (const auto &event : captured) {
        // The parsed line must outlive the loop: a range-for over a member of a temporary would
        // read a destroyed document.
        const nlohmann::json line = nlohmann::json::parse(EventToJson(event));
        FaultEvent fault{event.domain, event.name, event.type, nlohmann::json::object()};
        for (const auto &param : line["params"]) {
            fault.params[param["name"].get<std::string>()] = param["value"];
        }
        events.push_back(std::move(fault));
    }
    return events;
}

// Reads the handed export file and masks its secrets, in the file's content too.
std::optional<HandedAccount> HandedAccountOf(std::vector<HandedFile> &files, bool showSecrets,
                                             std::vector<std::string> &secrets) {
    for (auto &file : files) {
        if (fs::path(file.path).filename() != EXPORT_FILE_NAME) {
            continue;
        }
        nlohmann::json account = nlohmann::json::parse(file.content, nullptr, false);
        if (!account.is_object()) {
            if (!showSecrets) {
                file.content = "(" + std::to_string(file.content.size()) +
                               " bytes that are not JSON, withheld: they may hold the auth token)";
            }
            HandedAccount unreadable;
            unreadable.file = file;
            return unreadable;
        }
        if (!showSecrets) {
            MaskAccountExport(account, secrets);
            file.content = account.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
        }
        auto text = [&account](const char *member) {
            return account.contains(member) && account[member].is_string()
                       ? account[member].get<std::string>()
                       : std::string();
        };
        HandedAccount handed;
        handed.isJson = true;
        handed.name = text("name");
        handed.type = text("type");
        handed.locale = text("locale");
        handed.authToken = text("authtoken");
        handed.file = file;
        if (account.contains("id") && account["id"].is_number_integer()) {
            handed.id = account["id"].get<int64_t>();
        }
        if (account.contains("extras") && account["extras"].is_array()) {
            handed.extras = account["extras"];
        }
        return handed;
    }
    return std::nullopt;
}

void MaskCapture(RunCapture &capture, const std::vector<std::string> &secrets) {
    for (auto &record : capture.logs) {
        MaskOccurrences(record.message, secrets);
    }
    for (auto &file : capture.handedFiles) {
        MaskOccurrences(file.content, secrets);
    }
    MaskOccurrences(capture.journal, secrets);
    MaskOccurrences(capture.osAccountsBefore, secrets);
    MaskOccurrences(capture.osAccountsAfter, secrets);
    // The phone's own texts too: a secret may sit in a user's name or a file's name.
    for (auto &user : capture.sourceUsers.users) {
        for (std::optional<std::string> *text : {&user.name, &user.type}) {
            if (text->has_value()) {
                MaskOccurrences(**text, secrets);
            }
        }
    }
    for (auto &file : capture.laid.laid) {
        MaskOccurrences(file.from, secrets);
        MaskOccurrences(file.to, secrets);
    }
    for (auto &entry : capture.laid.leftOut) {
        MaskOccurrences(entry.path, secrets);
        MaskOccurrences(entry.reason, secrets);
    }
}

bool UserRestoreRan(const std::vector<LogRecord> &logs) {
    for (const auto &record : logs) {
        if (record.file == "user_data_manager.cpp" && MessageOf(record) == "DoRestoreData called.") {
            return true;
        }
    }
    return false;
}

// Why no account was handed over: the database has none, or the account restore's error lines.
std::string NoAccountNote(const std::vector<LogRecord> &logs) {
    std::string errors;
    for (const auto &record : logs) {
        const std::string message = MessageOf(record);
        if (message.find("database has no cvid data") != std::string::npos) {
            return "no account of the account service in the database; nothing handed over";
        }
        if (message == "AccountDataManager DoRestoreData failed.") {
            return "no account handed over; the account restore failed: " + errors;
        }
        if (record.level == LOG_ERROR && record.file == "account_data_manager.cpp") {
            errors += (errors.empty() ? "" : " / ") + message;
        }
    }
    return "no account handed over";
}

std::optional<UserFault> FaultAbout(int sourceId, const std::vector<FaultEvent> &events) {
    const std::string file = std::to_string(sourceId) + ".xml";
    for (const auto &event : events) {
        const nlohmann::json &message =
            event.params.contains("ERROR_MESSAGE") ? event.params["ERROR_MESSAGE"] : nullptr;
        if (message.is_string() && message.get<std::string>().compare(0, file.size(), file) == 0) {
            const nlohmann::json &code =
                event.params.contains("ERROR_CODE") ? event.params["ERROR_CODE"] : nullptr;
            const nlohmann::json &type =
                event.params.contains("ERROR_TYPE") ? event.params["ERROR_TYPE"] : nullptr;
            return UserFault{type.is_string() ? type.get<std::string>() : "",
                             code.is_number_integer() ? code.get<int64_t>() : 0};
        }
    }
    return std::nullopt;
}

std::string LeftOutReason(int sourceId, const LaidSnapshot &laid) {
    const std::string file = std::to_string(sourceId) + ".xml";
    for (const auto &entry : laid.leftOut) {
        if (entry.path == "system/users/" + file || entry.path == "back/sourceXml/" + file) {
            return entry.reason;
        }
    }
    return "";
}

bool OsAccountHasPhoto(const nlohmann::json &accounts, int localId) {
    for (const auto &account : accounts) {
        if (account.value("localId", -1) == localId) {
            return !account.value("photo", "").empty();
        }
    }
    return false;
}

std::vector<UserRecord> UsersOf(const RunRecord &record) {
    const RunCapture &capture = record.capture;
    std::vector<UserRecord> users;
    std::vector<bool> taken(capture.sourceUsers.users.size(), false);
    for (auto &outcome : UserOutcomesFromLog(capture.logs)) {
        UserRecord user{outcome, "", std::nullopt, ""};
        for (size_t i = 0; i < taken.size(); ++i) {
            if (!taken[i] && capture.sourceUsers.users[i].id == outcome.sourceId) {
                user.source = capture.sourceUsers.users[i];
                taken[i] = true;
                break;
            }
        }
        user.explanation = ExplainUser(outcome, user.source ? &*user.source : nullptr,
                                       FaultAbout(outcome.sourceId, record.events),
                                       LeftOutReason(outcome.sourceId, capture.laid));
        users.push_back(std::move(user));
    }
    // Users of the phone the plug-in never took: it could not read the list, or did not run.
    for (size_t i = 0; i < taken.size(); ++i) {
        if (!taken[i]) {
            UserOutcome outcome{capture.sourceUsers.users[i].id, "not taken", -1, "", {}};
            const std::string why =
                record.usersNote.empty() ? "The plug-in did not take this user." : record.usersNote;
            users.push_back({outcome, why, capture.sourceUsers.users[i], ""});
        }
    }
    for (auto &user : users) {
        if (user.source && !user.source->photoPng.empty() &&
            (user.outcome.localId < 0 || !OsAccountHasPhoto(capture.osAccountsAfter, user.outcome.localId))) {
            user.phonePhoto = PNG_DATA_URI_PREFIX;
            BinaryXml::AppendBase64(user.source->photoPng, user.phonePhoto);
        }
        if (user.source) {
            user.source->photoPng.clear();
        }
    }
    return users;
}

std::string UsersNote(const RunCapture &capture, bool ran) {
    if (!ran) {
        return "The user restore did not run: it runs only when the active OS account is the administrator "
               "(100).";
    }
    std::string note = "The plug-in could not read the user list (userlist.xml), so it took no user.";
    if (!capture.sourceUsers.problem.empty()) {
        note += " The runner found: " + capture.sourceUsers.problem + ".";
    }
    return note;
}

}  // namespace

RunRecord BuildRunRecord(RunCapture capture, bool showSecrets) {
    RunRecord record;
    record.secretsShown = showSecrets;
    std::vector<std::string> secrets;
    record.account = HandedAccountOf(capture.handedFiles, showSecrets, secrets);
    if (!record.account) {
        record.accountNote = NoAccountNote(capture.logs);
    }
    MaskCapture(capture, secrets);
    record.events = FaultEventsOf(capture.events);
    for (auto &event : record.events) {
        MaskOccurrences(event.params, secrets);
    }
    record.userRestoreRan = UserRestoreRan(capture.logs);
    record.capture = std::move(capture);
    const bool anyTaken = !UserOutcomesFromLog(record.capture.logs).empty();
    if (!anyTaken) {
        record.usersNote = UsersNote(record.capture, record.userRestoreRan);
    }
    record.users = UsersOf(record);
    record.capture.sourceUsers.users.clear();
    return record;
}

std::vector<HandedFile> CollectFiles(const std::string &root) {
    std::vector<HandedFile> files;
    std::error_code error;
    for (auto it = fs::recursive_directory_iterator(root, error);
         !error && it != fs::recursive_directory_iterator(); it.increment(error)) {
        struct stat info {};
        if (lstat(it->path().c_str(), &info) != 0 || !S_ISREG(info.st_mode)) {
            continue;
        }
        std::ifstream in(it->path(), std::ios::binary);
        std::ostringstream content;
        content << in.rdbuf();
        files.push_back({it->path().string(), info.st_uid, info.st_gid, info.st_mode & 07777, content.str()});
    }
    return files;
}

std::string ModeText(mode_t mode) {
    char text[8];
    std::snprintf(text, sizeof(text), "%04o", static_cast<unsigned>(mode & 07777));
    return text;
}

}  // namespace Zarvo::Host

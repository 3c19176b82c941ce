#include "report.h"

#include <sys/stat.h>

#include <charconv>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iomanip>
#include <sstream>

namespace Zarvo::Host {
namespace fs = std::filesystem;
namespace {

constexpr int ADMIN_LOCAL_ID = 100;
constexpr int LOCAL_ID_OFFSET = 91;

int SourceIdOf(int localId) {
    return localId == ADMIN_LOCAL_ID ? 0 : localId - LOCAL_ID_OFFSET;
}

std::string ModeText(mode_t mode) {
    char text[8];
    std::snprintf(text, sizeof(text), "%04o", static_cast<unsigned>(mode & 07777));
    return text;
}

// True when `message` is `before`, a decimal id and `after`, with the id in `id`.
bool IdBetween(const std::string &message, const std::string &before, const std::string &after, int &id) {
    if (message.size() <= before.size() + after.size() || message.compare(0, before.size(), before) != 0 ||
        message.compare(message.size() - after.size(), after.size(), after) != 0) {
        return false;
    }
    const char *first = message.data() + before.size();
    const char *last = message.data() + message.size() - after.size();
    auto [end, error] = std::from_chars(first, last, id);
    return error == std::errc() && end == last;
}

// Strips the "[file(line)]" prefix of a plug-in line.
std::string MessageOf(const LogRecord &record) {
    size_t close = record.message.find(")]");
    return record.message.rfind('[', 0) == 0 && close != std::string::npos ? record.message.substr(close + 2)
                                                                           : record.message;
}

const char *LevelName(int level) {
    switch (level) {
        case LOG_DEBUG:
            return "DEBUG";
        case LOG_INFO:
            return "INFO";
        case LOG_WARN:
            return "WARN";
        case LOG_ERROR:
            return "ERROR";
        default:
            return "FATAL";
    }
}

// An event's parameters as one object of name to value, in the event log's rendering.
nlohmann::json EventParams(const EventRecord &event) {
    // The parsed line must outlive the loop: a range-for over a member of a temporary would read
    // a destroyed document.
    const nlohmann::json line = nlohmann::json::parse(EventToJson(event));
    nlohmann::json params = nlohmann::json::object();
    for (const auto &param : line["params"]) {
        params[param["name"].get<std::string>()] = param["value"];
    }
    return params;
}

std::string EventParam(const EventRecord &event, const std::string &name) {
    nlohmann::json params = EventParams(event);
    if (!params.contains(name)) {
        return "";
    }
    return params[name].is_string() ? params[name].get<std::string>() : params[name].dump();
}

// The account carried over, as the handed-over export file names it.
std::string AccountSummary(const RunReport &report) {
    for (const auto &file : report.handedFiles) {
        if (fs::path(file.path).filename() != "account_manager_db.json") {
            continue;
        }
        nlohmann::json account = nlohmann::json::parse(file.content, nullptr, false);
        std::ostringstream text;
        if (account.is_object()) {
            text << "account \"" << account.value("name", "") << "\" of type " << account.value("type", "")
                 << " (id " << account.value("id", 0) << ", "
                 << account.value("extras", nlohmann::json::array()).size() << " extras)";
        } else {
            text << "an export file that is not JSON";
        }
        text << " handed to " << file.path << ", owner " << file.uid << ", group " << file.gid << ", mode "
             << ModeText(file.mode);
        return text.str();
    }
    for (const auto &record : report.logs) {
        if (MessageOf(record).find("database has no cvid data") != std::string::npos) {
            return "no account of the account service in the database; nothing handed over";
        }
    }
    return "no account handed over";
}

}  // namespace

std::vector<UserOutcome> UserOutcomesFromLog(const std::vector<LogRecord> &logs) {
    // The plug-in's lines that settle a user's fate: the text before and after the id they carry.
    struct Settling {
        const char *before;
        const char *after;
        const char *decision;
        bool idIsLocal;
        const char *detail;
    };
    static const Settling settlings[] = {
        {"RestoreSubUserInfo current user (", ") not need restore.", "skipped", false,
         "its type and flags are not carried over"},
        {"CreateZarvoAccount success, zarvo user id : ", "", "created", true, ""},
        {"CreateZarvoAccount failed, current user id : ", " already exists.", "existed", true,
         "an account with this id exists"},
        {"UpdateZarvoAdminAcount success, zarvo user id : ", "", "updated", true, ""},
        {"DoRestoreData failed, current userId : ", "", "failed", false, nullptr},
    };

    std::vector<UserOutcome> outcomes;
    std::string errors;
    for (const auto &record : logs) {
        if (record.tag != "MIGRATE_PLUGIN") {
            continue;
        }
        const std::string message = MessageOf(record);
        if (message == "RestoreSubUserInfo called.") {
            errors.clear();
            continue;
        }
        const Settling *settled = nullptr;
        int id = 0;
        for (const Settling &settling : settlings) {
            if (IdBetween(message, settling.before, settling.after, id)) {
                settled = &settling;
                break;
            }
        }
        if (settled == nullptr) {
            if (record.level == LOG_ERROR) {
                errors += (errors.empty() ? "" : " / ") + message;
            }
            continue;
        }
        outcomes.push_back({settled->idIsLocal ? SourceIdOf(id) : id, settled->decision,
                            settled->idIsLocal ? id : -1,
                            settled->detail != nullptr ? settled->detail : errors});
    }
    return outcomes;
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

void PrintSummary(const RunReport &report, std::ostream &out) {
    out << "RestoreData returned " << (report.result ? "true" : "false") << "\n";
    out << "Snapshot: " << report.snapshot << " (data root: " << report.laid.root << ")\n";
    if (!report.laid.leftOut.empty()) {
        out << "Left out of the snapshot: " << report.laid.leftOut.size() << "\n";
        for (const auto &entry : report.laid.leftOut) {
            out << "  " << entry.path << ": " << entry.reason << "\n";
        }
    }
    out << "Account: " << AccountSummary(report) << "\n";
    out << "Users:";
    if (report.users.empty()) {
        out << " none restored or skipped\n";
    } else {
        out << "\n";
        for (const auto &user : report.users) {
            out << "  source user " << user.sourceId << ": " << user.decision;
            if (user.localId >= 0) {
                out << " as OS account " << user.localId;
            }
            if (!user.detail.empty()) {
                out << " (" << user.detail << ")";
            }
            out << "\n";
        }
    }
    out << "Fault events: " << report.events.size() << "\n";
    for (const auto &event : report.events) {
        out << "  " << EventParam(event, "ERROR_TYPE") << " code " << EventParam(event, "ERROR_CODE")
            << " (task " << EventParam(event, "TASK_ID") << "): " << EventParam(event, "ERROR_MESSAGE")
            << "\n";
    }
    out << "Work tree " << (report.workTreeRemoved ? "removed" : "still present") << "\n";
    out << std::fixed << std::setprecision(1) << "Time: " << report.totalMs << " ms (set-up "
        << report.setupMs << " ms, of which starting the migrate service " << report.serviceStartMs
        << " ms; RestoreData " << report.restoreMs << " ms)\n";
}

nlohmann::json ReportToJson(const RunReport &report) {
    nlohmann::json logs = nlohmann::json::array();
    for (const auto &record : report.logs) {
        logs.push_back({{"level", LevelName(record.level)},
                        {"domain", record.domain},
                        {"tag", record.tag},
                        {"file", record.file},
                        {"line", record.line},
                        {"message", MessageOf(record)}});
    }
    nlohmann::json events = nlohmann::json::array();
    for (const auto &event : report.events) {
        events.push_back({{"domain", event.domain},
                          {"name", event.name},
                          {"type", event.type},
                          {"params", EventParams(event)}});
    }
    nlohmann::json files = nlohmann::json::array();
    for (const auto &file : report.handedFiles) {
        files.push_back({{"path", file.path},
                         {"uid", file.uid},
                         {"gid", file.gid},
                         {"mode", ModeText(file.mode)},
                         {"content", file.content}});
    }
    nlohmann::json users = nlohmann::json::array();
    for (const auto &user : report.users) {
        users.push_back({{"sourceId", user.sourceId},
                         {"decision", user.decision},
                         {"localId", user.localId},
                         {"detail", user.detail}});
    }
    nlohmann::json laid = nlohmann::json::array();
    for (const auto &file : report.laid.laid) {
        laid.push_back({{"from", file.from}, {"to", file.to}});
    }
    nlohmann::json leftOut = nlohmann::json::array();
    for (const auto &entry : report.laid.leftOut) {
        leftOut.push_back({{"path", entry.path}, {"reason", entry.reason}});
    }
    return {{"result", report.result},
            {"plugin", report.plugin},
            {"snapshot", report.snapshot},
            {"snapshotRoot", report.laid.root},
            {"laidFiles", laid},
            {"leftOut", leftOut},
            {"logs", logs},
            {"events", events},
            {"osAccountsBefore", report.osAccountsBefore},
            {"osAccountsAfter", report.osAccountsAfter},
            {"handedFiles", files},
            {"users", users},
            {"migrateJournal", report.journal},
            {"workTreeRemoved", report.workTreeRemoved},
            {"elapsedMs",
             {{"setup", report.setupMs},
              {"serviceStart", report.serviceStartMs},
              {"restoreData", report.restoreMs},
              {"total", report.totalMs}}}};
}

}  // namespace Zarvo::Host

#include "report.h"

#include <sys/stat.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iomanip>
#include <regex>
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
    nlohmann::json params = nlohmann::json::object();
    for (const auto &param : nlohmann::json::parse(EventToJson(event))["params"]) {
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
    static const std::regex skipped(R"(RestoreSubUserInfo current user \((-?\d+)\) not need restore\.)");
    static const std::regex created(R"(CreateZarvoAccount success, zarvo user id : (-?\d+))");
    static const std::regex existed(
        R"(CreateZarvoAccount failed, current user id : (-?\d+) already exists\.)");
    static const std::regex updated(R"(UpdateZarvoAdminAcount success, zarvo user id : (-?\d+))");
    static const std::regex failed(R"(DoRestoreData failed, current userId : (-?\d+))");

    std::vector<UserOutcome> outcomes;
    std::string errors;
    for (const auto &record : logs) {
        if (record.tag != "MIGRATE_PLUGIN") {
            continue;
        }
        const std::string message = MessageOf(record);
        std::smatch match;
        UserOutcome outcome;
        if (message == "RestoreSubUserInfo called.") {
            errors.clear();
            continue;
        }
        if (std::regex_search(message, match, skipped)) {
            outcome = {std::stoi(match[1]), "skipped", -1, "its type and flags are not carried over"};
        } else if (std::regex_search(message, match, created)) {
            outcome = {SourceIdOf(std::stoi(match[1])), "created", std::stoi(match[1]), ""};
        } else if (std::regex_search(message, match, existed)) {
            outcome = {SourceIdOf(std::stoi(match[1])), "existed", std::stoi(match[1]),
                       "an account with this id exists"};
        } else if (std::regex_search(message, match, updated)) {
            outcome = {SourceIdOf(std::stoi(match[1])), "updated", std::stoi(match[1]), ""};
        } else if (std::regex_search(message, match, failed)) {
            outcome = {std::stoi(match[1]), "failed", -1, errors};
        } else {
            if (record.level == LOG_ERROR) {
                errors += (errors.empty() ? "" : " / ") + message;
            }
            continue;
        }
        outcomes.push_back(outcome);
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
        out << "  " << EventParam(event, "ERROR_TYPE") << " code " << EventParam(event, "ERROR_CODE") << ": "
            << EventParam(event, "ERROR_MESSAGE") << "\n";
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
    for (const auto &file : report.laidFiles) {
        laid.push_back({{"from", file.from}, {"to", file.to}});
    }
    return {{"result", report.result},
            {"plugin", report.plugin},
            {"snapshot", report.snapshot},
            {"laidFiles", laid},
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

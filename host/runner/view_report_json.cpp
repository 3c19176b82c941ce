#include "view_report_json.h"


#include "hilog/log.h"

namespace Zarvo::Host {
namespace {

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

template <typename T>
nlohmann::json OrNull(const std::optional<T> &value) {
    return value ? nlohmann::json(*value) : nlohmann::json(nullptr);
}

nlohmann::json AccountJson(const RunRecord &record) {
    if (!record.account) {
        return nullptr;
    }
    const HandedAccount &account = *record.account;
    return {{"isJson", account.isJson},
            {"name", account.name},
            {"type", account.type},
            {"locale", account.locale},
            {"id", account.id},
            {"authToken", account.authToken},
            {"extras", account.extras},
            {"path", account.file.path},
            {"uid", account.file.uid},
            {"gid", account.file.gid},
            {"mode", ModeText(account.file.mode)}};
}

nlohmann::json SourceJson(const std::optional<SourceUser> &source) {
    if (!source) {
        return nullptr;
    }
    return {{"problem", source->problem},
            {"form", source->form},
            {"type", OrNull(source->type)},
            {"flags", OrNull(source->flags)},
            {"flagNames", source->flags ? UserFlagNames(*source->flags) : ""},
            {"name", OrNull(source->name)}};
}

nlohmann::json UsersJson(const RunRecord &record) {
    nlohmann::json users = nlohmann::json::array();
    for (const auto &user : record.users) {
        users.push_back({{"sourceId", user.outcome.sourceId},
                         {"decision", user.outcome.decision},
                         {"localId", user.outcome.localId},
                         {"detail", user.outcome.detail},
                         {"explanation", user.explanation},
                         {"pluginLines", user.outcome.pluginLines},
                         {"source", SourceJson(user.source)},
                         {"phonePhoto", user.phonePhoto}});
    }
    return users;
}

}  // namespace

nlohmann::json ReportJson(const RunRecord &record) {
    const RunCapture &capture = record.capture;
    nlohmann::json logs = nlohmann::json::array();
    for (const auto &line : capture.logs) {
        logs.push_back({{"level", LevelName(line.level)},
                        {"domain", line.domain},
                        {"tag", line.tag},
                        {"file", line.file},
                        {"line", line.line},
                        {"timeMs", line.timeMs},
                        {"message", MessageOf(line)}});
    }
    nlohmann::json events = nlohmann::json::array();
    for (const auto &event : record.events) {
        events.push_back(
            {{"domain", event.domain}, {"name", event.name}, {"type", event.type}, {"params", event.params}});
    }
    nlohmann::json files = nlohmann::json::array();
    for (const auto &file : capture.handedFiles) {
        files.push_back({{"path", file.path},
                         {"uid", file.uid},
                         {"gid", file.gid},
                         {"mode", ModeText(file.mode)},
                         {"content", file.content}});
    }
    nlohmann::json laid = nlohmann::json::array();
    for (const auto &file : capture.laid.laid) {
        laid.push_back({{"from", file.from}, {"to", file.to}});
    }
    nlohmann::json leftOut = nlohmann::json::array();
    for (const auto &entry : capture.laid.leftOut) {
        leftOut.push_back({{"path", entry.path}, {"reason", entry.reason}});
    }
    const SourceUserList &list = capture.sourceUsers;
    return {{"result", capture.result},
            {"plugin", capture.plugin},
            {"snapshot", capture.snapshot},
            {"snapshotRoot", capture.laid.root},
            {"laidFiles", laid},
            {"leftOut", leftOut},
            {"secrets", record.secretsShown ? "shown" : "masked"},
            {"account", AccountJson(record)},
            {"accountNote", record.accountNote},
            {"userList", {{"problem", list.problem}, {"form", list.form}, {"version", OrNull(list.version)}}},
            {"userRestore", {{"ran", record.userRestoreRan}, {"note", record.usersNote}}},
            {"logs", logs},
            {"events", events},
            {"osAccountsBefore", capture.osAccountsBefore},
            {"osAccountsAfter", capture.osAccountsAfter},
            {"handedFiles", files},
            {"users", UsersJson(record)},
            {"migrateJournal", capture.journal},
            {"workTreeRemoved", capture.workTreeRemoved},
            {"elapsedMs",
             {{"setup", capture.setupMs},
              {"serviceStart", capture.serviceStartMs},
              {"restoreData", capture.restoreMs},
              {"total", capture.totalMs}}}};
}

std::string ReportText(const nlohmann::json &report) {
    return report.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
}

}  // namespace Zarvo::Host

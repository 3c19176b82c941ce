#include "view_report_json.h"

#include "account_export.h"
#include "hilog/log.h"
#include "plugin_lines.h"

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
    return {{"isJson", account.isJson},           {"name", account.name},    {"type", account.type},
            {"locale", account.locale},           {"id", account.id},        {"authToken", account.authToken},
            {"extras", nlohmann::json::array()},  // streamed
            {"path", account.file.path},          {"uid", account.file.uid}, {"gid", account.file.gid},
            {"mode", ModeText(account.file.mode)}};
}

nlohmann::json CodeJson(const NamedCode &code) {
    return {{"value", code.value},
            {"hex", code.hex},
            {"name", code.name},
            {"meaning", code.meaning},
            {"from", SourceName(code.source)}};
}

nlohmann::json CodesJson(const std::vector<NamedCode> &codes) {
    nlohmann::json list = nlohmann::json::array();
    for (const auto &code : codes) {
        list.push_back(CodeJson(code));
    }
    return list;
}

nlohmann::json ParamsJson(const std::vector<HiviewDFX::HiSysEventParam> &params) {
    using Type = HiviewDFX::HiSysEventParam::Type;
    nlohmann::json object = nlohmann::json::object();
    for (const auto &param : params) {
        switch (param.type) {
            case Type::BOOL:
                object[param.name] = param.boolValue;
                break;
            case Type::INT32:
            case Type::INT64:
                object[param.name] = param.intValue;
                break;
            case Type::UINT32:
            case Type::UINT64:
                object[param.name] = param.uintValue;
                break;
            case Type::DOUBLE:
                object[param.name] = param.doubleValue;
                break;
            case Type::STRING:
                object[param.name] = param.stringValue;
                break;
        }
    }
    return object;
}

const char *AccountTypeName(AccountSA::OsAccountType type) {
    switch (type) {
        case AccountSA::OsAccountType::ADMIN:
            return "ADMIN";
        case AccountSA::OsAccountType::NORMAL:
            return "NORMAL";
        case AccountSA::OsAccountType::GUEST:
            return "GUEST";
        case AccountSA::OsAccountType::PRIVATE:
            return "PRIVATE";
        default:
            return nullptr;
    }
}

// In the device-state file's format.
nlohmann::json OsAccountsJson(const std::vector<AccountSA::OsAccountInfo> &accounts) {
    nlohmann::json list = nlohmann::json::array();
    for (const auto &info : accounts) {
        const char *typeName = AccountTypeName(info.GetType());
        list.push_back({{"localId", info.GetLocalId()},
                        {"localName", info.GetLocalName()},
                        {"shortName", info.GetShortName()},
                        {"type", typeName != nullptr ? nlohmann::json(typeName)
                                                     : nlohmann::json(static_cast<int32_t>(info.GetType()))},
                        {"serialNumber", info.GetSerialNumber()},
                        {"createTime", info.GetCreateTime()},
                        {"lastLoginTime", info.GetLastLoginTime()},
                        {"photo", info.GetPhoto()},
                        {"isActived", info.GetIsActived()},
                        {"isVerified", info.GetIsVerified()},
                        {"isCreateCompleted", info.GetIsCreateCompleted()},
                        {"toBeRemoved", info.GetToBeRemoved()}});
    }
    return list;
}

// In the migrate service's journal format.
nlohmann::json JournalJson(const std::vector<JournalEntry> &journal) {
    nlohmann::json list = nlohmann::json::array();
    for (const auto &entry : journal) {
        nlohmann::json line = JournalEntryJson(entry);
        line["note"] = entry.note;  // the report has it for every request, empty or not
        list.push_back(std::move(line));
    }
    return list;
}

nlohmann::json VerdictJson(const RunRecord &record) {
    return {{"restored", record.verdict.restored},
            {"sentence", record.verdict.sentence},
            {"reasons", record.verdict.reasons}};
}

nlohmann::json AbortJson(const RunRecord &record) {
    if (!record.abort) {
        return nullptr;
    }
    const RestoreAbort &abort = *record.abort;
    return {{"exception", abort.exception},
            {"operation", abort.operation},
            {"where", abort.where},
            {"why", abort.why},
            {"sentence", abort.sentence}};
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
                         {"explanation", user.outcome.explanation},
                         {"cause", user.outcome.cause},
                         {"tries", user.outcome.tries},
                         {"codes", CodesJson(user.outcome.codes)},
                         {"pluginLines", user.outcome.pluginLines},
                         {"source", SourceJson(user.source)},
                         {"phonePhoto", user.phonePhoto}});
    }
    return users;
}

nlohmann::json FaultsJson(const RunRecord &record) {
    nlohmann::json faults = nlohmann::json::array();
    for (const auto &fault : record.capture.faults) {
        faults.push_back({{"injectedInto", "platform"},
                          {"operation", fault.operation},
                          {"code", fault.code},
                          {"outOfMemory", fault.outOfMemory},
                          {"count", fault.count},
                          {"sentence", FaultWords(fault)}});
    }
    for (const auto &rule : record.capture.context.serviceFaults) {
        static const char *const ACTIONS[] = {"fail", "stall", "drop"};
        faults.push_back({{"injectedInto", "migrate service"},
                          {"operation", rule.type ? MigrateOpName(*rule.type) : "ANY"},
                          {"action", ACTIONS[static_cast<int>(rule.action)]},
                          {"result", rule.result},
                          {"errCode", rule.errCode},
                          {"stallMs", rule.stallMs},
                          {"count", rule.count},
                          {"sentence", FaultWords(rule)}});
    }
    return faults;
}

nlohmann::json ContextJson(const RunRecord &record) {
    const RunContext &context = record.capture.context;
    const LaidSnapshot &laid = record.capture.laid;
    const bool archive = !laid.archiveSha256.empty();
    const bool built = context.pluginBuiltWithRunner;
    const nlohmann::json faults = FaultsJson(record);
    return {
        {"startedUtc", context.startedUtc},
        {"host", context.host},
        {"runner", {{"version", context.runnerVersion}, {"revision", context.runnerRevision}}},
        {"plugin",
         {{"path", record.capture.plugin},
          {"sha256", context.pluginSha256},
          {"builtWithRunner", built},
          {"version", built ? nlohmann::json(context.runnerVersion) : nlohmann::json(nullptr)},
          {"revision", built ? nlohmann::json(context.runnerRevision) : nlohmann::json(nullptr)},
          {"note", built ? "the plug-in built beside this runner: its version and revision are the runner's"
                         : "a plug-in file of its own: only its digest says which build it is"}}},
        {"snapshot",
         {{"name", record.capture.snapshot},
          {"kind", archive ? "archive" : "folder"},
          {"bytes", archive ? laid.archiveBytes : laid.laidBytes},
          {"sha256", archive ? laid.archiveSha256 : laid.laidSha256},
          {"digestOf", archive ? "the archive's bytes, every piece in order" : "the laid files (laidSha256)"},
          {"laidSha256", laid.laidSha256},
          {"laidBytes", laid.laidBytes}}},
        {"deviceState",
         {{"file",
           context.deviceState.empty() ? nlohmann::json(nullptr) : nlohmann::json(context.deviceState)},
          {"sha256", context.deviceState.empty() ? nlohmann::json(nullptr)
                                                 : nlohmann::json(context.deviceStateSha256)}}},
        {"faults", faults},
        {"injected", !faults.empty()}};
}

}  // namespace

nlohmann::json ReportDocument(const RunRecord &record) {
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
        events.push_back({{"domain", event.domain},
                          {"name", event.name},
                          {"type", event.type},
                          {"params", ParamsJson(event.params)},
                          {"code", event.code ? CodeJson(*event.code) : nlohmann::json(nullptr)}});
    }
    nlohmann::json files = nlohmann::json::array();
    for (const auto &file : capture.handedFiles) {
        files.push_back({{"path", file.path},
                         {"uid", file.uid},
                         {"gid", file.gid},
                         {"mode", ModeText(file.mode)},
                         {"content", ""}});  // streamed
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
            {"verdict", VerdictJson(record)},
            {"abort", AbortJson(record)},
            {"accountOutcome",
             {{"state", record.accountOutcome.state},
              {"reason", record.accountOutcome.reason},
              {"codes", CodesJson(record.accountOutcome.codes)}}},
            {"codes", CodesJson(record.codes)},
            {"context", ContextJson(record)},
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
            {"osAccountsBefore", OsAccountsJson(capture.osAccountsBefore)},
            {"osAccountsAfter", OsAccountsJson(capture.osAccountsAfter)},
            {"handedFiles", files},
            {"users", UsersJson(record)},
            {"migrateJournal", JournalJson(capture.journal)},
            {"workTreeRemoved", capture.workTreeRemoved},
            {"elapsedMs",
             {{"setup", capture.setupMs},
              {"serviceStart", capture.serviceStartMs},
              {"restoreData", capture.restoreMs},
              {"total", capture.totalMs}}}};
}

StreamedDocument ReportJson(const RunRecord &record) {
    StreamedDocument report{ReportDocument(record), {}};
    const std::vector<HandedFile> &files = record.capture.handedFiles;
    if (record.account) {
        const HandedAccount &account = *record.account;
        report.streamed.push_back({"/account/extras"_json_pointer, [&account, &files](JsonWriter &writer) {
                                       writer.BeginArray();
                                       if (account.extrasMember != 0) {
                                           nlohmann::json rest;
                                           int members = 0;
                                           ReadAccountExport(account.ExportText(files), rest, members,
                                                             [&](nlohmann::json &extra, int member) {
                                                                 if (member == account.extrasMember) {
                                                                     writer.Element(extra);
                                                                 }
                                                             });
                                       }
                                       writer.EndArray();
                                   }});
    }
    for (size_t i = 0; i < files.size(); ++i) {
        const std::string &content = files[i].content;
        report.streamed.push_back({"/handedFiles"_json_pointer / i / "content",
                                   [&content](JsonWriter &writer) { writer.String(content); }});
    }
    return report;
}

std::string ReportText(const StreamedDocument &report) {
    std::string text;
    JsonWriter(nlohmann::detail::output_adapter<char>(text), true, 2).Document(report);
    return text + "\n";
}

void WriteReportText(const StreamedDocument &report, std::ostream &out) {
    JsonWriter(nlohmann::detail::output_adapter<char>(out), true, 2).Document(report);
    out << '\n';
}

}  // namespace Zarvo::Host

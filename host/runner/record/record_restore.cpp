#include "record_restore.h"

#include <algorithm>
#include <map>

#include "account_restore_vocabulary.h"
#include "hilog/log.h"
#include "plugin_lines.h"

namespace Zarvo::Host {
namespace {

namespace Vocabulary = RestoreVocabulary;
using Kind = PluginLineKind;

const AccountSA::OsAccountInfo *AccountById(const std::vector<AccountSA::OsAccountInfo> &accounts, int id) {
    for (const auto &account : accounts) {
        if (account.GetLocalId() == id) {
            return &account;
        }
    }
    return nullptr;
}

int ActiveAccount(const std::vector<AccountSA::OsAccountInfo> &accounts) {
    for (const auto &account : accounts) {
        if (account.GetIsActived()) {
            return account.GetLocalId();
        }
    }
    return -1;
}

std::string Capitalized(std::string text) {
    if (!text.empty() && text[0] >= 'a' && text[0] <= 'z') {
        text[0] = static_cast<char>(text[0] - 'a' + 'A');
    }
    return text;
}

// The source id a user file's name carries ("10.xml"), or -1.
int SourceIdOfFile(const std::string &fileName) {
    const std::string suffix = Vocabulary::USER_FILE_SUFFIX;
    if (fileName.size() <= suffix.size() ||
        fileName.compare(fileName.size() - suffix.size(), suffix.size(), suffix) != 0) {
        return -1;
    }
    const std::string digits = fileName.substr(0, fileName.size() - suffix.size());
    if (digits.empty() || digits.size() > 9 || !std::all_of(digits.begin(), digits.end(), ::isdigit)) {
        return -1;
    }
    return std::stoi(digits);
}

// The source user whose OS account is `localId`, by the plug-in's own mapping.
int SourceIdOfLocal(int localId, const SourceUserList &list) {
    for (const auto &user : list.users) {
        if (Vocabulary::LocalIdOf(user.id) == localId) {
            return user.id;
        }
    }
    return localId == Vocabulary::ADMIN_LOCAL_ID ? Vocabulary::SOURCE_ADMIN_ID
                                                 : localId - Vocabulary::LOCAL_ID_OFFSET;
}

// The fault event about one file: its message begins with the file's name.
const FaultEvent *EventAbout(const std::string &fileName, const std::vector<FaultEvent> &events) {
    for (const auto &event : events) {
        const std::string message = event.Text(Vocabulary::PARAM_ERROR_MESSAGE);
        if (message.compare(0, fileName.size(), fileName) == 0 &&
            (message.size() == fileName.size() ||
             !isdigit(static_cast<unsigned char>(message[fileName.size()])))) {
            return &event;
        }
    }
    return nullptr;
}

// The requests the migrate service did not serve as asked, in words.
std::string FailedRequests(const std::vector<JournalEntry> &journal, std::vector<NamedCode> &codes) {
    std::string text;
    int shown = 0;
    for (const auto &entry : journal) {
        const bool failed = entry.outcome != JournalOutcome::SERVED || entry.result < 0;
        if (!failed || entry.outcome == JournalOutcome::CLOSED) {
            continue;
        }
        if (shown++ == 3) {
            text += ", ...";
            break;
        }
        std::string what = MigrateOpName(entry.request.type) + " " + JournalOutcomeName(entry.outcome);
        if (entry.outcome == JournalOutcome::DROPPED || entry.outcome == JournalOutcome::INCOMPLETE) {
            what += " without a reply";
        } else {
            const NamedCode errnoCode = NameCode(CodeSource::ERRNO, entry.errCode);
            codes.push_back(errnoCode);
            what += " with " + std::to_string(entry.result) + " " + errnoCode.name + " (" +
                    errnoCode.meaning + ")";
        }
        text += (text.empty() ? "" : ", ") + what;
    }
    return text.empty() ? "" : "; the migrate service's journal: " + text;
}

// The plug-in's lines of one phase of the restore.
struct Stretch {
    std::vector<const PluginLine *> lines;
    size_t firstLog = 0;
    size_t endLog = 0;

    const PluginLine *Find(Kind kind) const {
        for (const PluginLine *line : lines) {
            if (line->kind == kind) {
                return line;
            }
        }
        return nullptr;
    }
    std::vector<const PluginLine *> All(Kind kind) const {
        std::vector<const PluginLine *> found;
        for (const PluginLine *line : lines) {
            if (line->kind == kind) {
                found.push_back(line);
            }
        }
        return found;
    }
};

enum class Phase { START, ACCOUNT, USER_LIST, USER };

struct Walk {
    Stretch account;
    Stretch userList;
    std::vector<Stretch> users;
    std::vector<int> failedIds;  // the source ids the plug-in named as failed
    bool userRestoreRan = false;
    const PluginLine *aborted = nullptr;
    Phase abortPhase = Phase::START;
};

Walk WalkLines(const std::vector<PluginLine> &lines, size_t logCount) {
    Walk walk;
    Phase phase = Phase::START;
    Stretch *current = &walk.account;
    auto close = [&](size_t at) {
        if (current != nullptr) {
            current->endLog = at;
        }
    };
    for (const PluginLine &line : lines) {
        switch (line.kind) {
            case Kind::RESTORE_DATA_CALLED:
                phase = Phase::ACCOUNT;
                current->firstLog = line.logIndex;
                break;
            case Kind::USER_RESTORE_CALLED:
                close(line.logIndex);
                phase = Phase::USER_LIST;
                walk.userRestoreRan = true;
                current = &walk.userList;
                current->firstLog = line.logIndex;
                break;
            case Kind::USER_CALLED:
                close(line.logIndex);
                phase = Phase::USER;
                walk.users.emplace_back();
                current = &walk.users.back();
                current->firstLog = line.logIndex;
                break;
            case Kind::USER_RESTORE_FAILED:
                walk.failedIds.push_back(static_cast<int>(line.numbers[0]));
                current->lines.push_back(&line);
                break;
            case Kind::RESTORE_DATA_ABORTED:
                walk.aborted = &line;
                walk.abortPhase = phase;
                current->lines.push_back(&line);
                break;
            default:
                current->lines.push_back(&line);
                break;
        }
    }
    close(logCount);
    return walk;
}

// The platform call whose injected out-of-memory fault fired: every such fault ends the restore at
// its first call, so the one called is the one.
std::string FaultedOperation(const RestoreObservation &seen) {
    for (const InjectedFault &fault : *seen.faults) {
        if (!fault.outOfMemory || fault.count == 0) {
            continue;
        }
        for (const auto &[operation, count] : *seen.callCounts) {
            if (operation == fault.operation && count > 0) {
                return operation;
            }
        }
    }
    return "";
}

RestoreAbort AbortOf(const Walk &walk, const RestoreObservation &seen, int currentLocalId) {
    RestoreAbort abort;
    abort.exception = walk.aborted->texts[0];
    abort.operation = FaultedOperation(seen);
    const std::string local = std::to_string(currentLocalId);
    const std::map<std::string, std::string> whereByOperation = {
        {"UpdateOsAccountWithFullInfo", "while updating OS account " + local},
        {"CreateOsAccountWithFullInfo", "while creating OS account " + local},
        {"QueryOsAccountById", "while looking up OS account " + local},
        {"QueryAllCreatedOsAccounts", "while looking for the active OS account"},
        {"GetRdbStore", "while opening the account database"},
        {"GetSystemAbilityManager", "while looking for the account app"},
        {"GetSystemAbility", "while looking for the account app"},
        {"GetBundleInfo", "while looking for the account app"},
        {"HiSysEventWrite", "while sending a fault event"},
    };
    auto known = whereByOperation.find(abort.operation);
    if (known != whereByOperation.end()) {
        abort.where = known->second;
    } else if (walk.abortPhase == Phase::USER && currentLocalId >= 0) {
        abort.where = "while restoring the user of OS account " + local;
    } else if (walk.abortPhase == Phase::USER_LIST) {
        abort.where = "while reading the user list";
    } else {
        abort.where = "during the account restore";
    }
    abort.why = abort.exception.find("bad_alloc") != std::string::npos
                    ? "out of memory"
                    : "an exception (" + abort.exception + ")";
    abort.sentence = "the restore stopped " + abort.where + ": " + abort.why;
    return abort;
}

AccountOutcome AccountOf(const Walk &walk, const RestoreObservation &seen) {
    const Stretch &lines = walk.account;
    AccountOutcome outcome{"not restored", "", {}};
    if (seen.accountHandedOver && lines.Find(Kind::ACCOUNT_HANDED_OVER) != nullptr) {
        return {"handed over", "the account was handed over to the account app", {}};
    }
    if (lines.Find(Kind::ACCOUNT_NOTHING_TO_CARRY) != nullptr) {
        return {
            "nothing to carry", "the account database holds no account of the maker's account service", {}};
    }
    const int active = ActiveAccount(*seen.osAccountsBefore);
    if (walk.aborted != nullptr && walk.abortPhase == Phase::ACCOUNT) {
        outcome.reason = AbortOf(walk, seen, active).sentence;
    } else if (const PluginLine *line = lines.Find(Kind::ACTIVE_USER_QUERY_FAILED)) {
        outcome.codes.push_back(NameCode(CodeSource::OS_ACCOUNT, line->numbers[0]));
        outcome.reason =
            "the OS accounts could not be listed to find the active one: the account manager answered " +
            CodeInWords(outcome.codes.back());
    } else if (const PluginLine *missing = lines.Find(Kind::ACCOUNT_DATABASE_MISSING)) {
        outcome.codes.push_back(NameCode(CodeSource::ERRNO, missing->numbers[0]));
        outcome.reason = "the snapshot holds no account database for the active user " +
                         std::to_string(active) + " (" + outcome.codes.back().name + ")";
    } else if (lines.Find(Kind::ACCOUNT_DATABASE_OPEN_FAILED) != nullptr) {
        const auto errors = lines.All(Kind::ACCOUNT_DATABASE_OPEN_ERROR);
        outcome.reason = "the account database could not be opened, after " +
                         std::to_string(Vocabulary::MAX_ATTEMPTS) + " tries";
        if (!errors.empty()) {
            outcome.codes.push_back(NameCode(CodeSource::RELATIONAL_STORE, errors.back()->numbers[0]));
            outcome.reason += ": " + CodeInWords(outcome.codes.back());
        }
    } else if (lines.Find(Kind::ACCOUNT_SOURCE_CHECK_FAILED) != nullptr && active < 0) {
        outcome.reason =
            "no OS account is active on this device, so the plug-in cannot tell whose account to restore";
    } else if (lines.Find(Kind::ACCOUNT_QUERY_FAILED) != nullptr) {
        outcome.reason = "the accounts of the account database could not be read";
    } else if (lines.Find(Kind::ACCOUNT_TOKEN_MISSING) != nullptr) {
        outcome.reason =
            "the account has no auth token, so there is nothing the account app could sign in with";
    } else if (lines.Find(Kind::ACCOUNT_EXTRAS_MISSING) != nullptr) {
        outcome.reason = "the account has no extras (its user data), which the account app needs";
    } else if (lines.Find(Kind::ACCOUNT_NOT_UTF8) != nullptr) {
        outcome.reason = "the account holds text that is not UTF-8, so its export could not be written";
    } else if (lines.Find(Kind::ACCOUNT_EXPORT_NOT_WRITTEN) != nullptr) {
        outcome.reason = "the export file could not be written in the work tree";
    } else if (lines.Find(Kind::BUNDLE_MANAGER_UNREACHABLE) != nullptr) {
        outcome.reason = "the bundle manager could not be reached to find the account app";
    } else if (const PluginLine *bundle = lines.Find(Kind::BUNDLE_INFO_FAILED)) {
        outcome.codes.push_back(NameCode(CodeSource::BUNDLE_MANAGER, bundle->numbers[0]));
        outcome.reason = "the account app " + bundle->texts[0] + " could not be found for user " +
                         std::to_string(active) + ": the bundle manager answered " +
                         CodeInWords(outcome.codes.back());
    } else if (lines.Find(Kind::ACCOUNT_HAND_OVER_FAILED) != nullptr) {
        outcome.reason = "the hand-over to the account app failed after " +
                         std::to_string(Vocabulary::MAX_ATTEMPTS) + " tries";
        const auto retries = lines.All(Kind::ACCOUNT_HAND_OVER_RETRY);
        if (!retries.empty()) {
            const PluginLine &last = *retries.back();
            const int64_t failed = last.numbers[0] != 0 ? last.numbers[0] : last.numbers[1];
            outcome.codes.push_back(NameCode(CodeSource::MIGRATE_CLIENT, failed));
            outcome.reason += std::string(": ") +
                              (last.numbers[0] != 0 ? "making its folder" : "copying the file") +
                              " answered " + CodeInWords(outcome.codes.back());
        }
        outcome.reason += FailedRequests(*seen.journal, outcome.codes);
    } else if (!seen.accountHandedOver && lines.Find(Kind::ACCOUNT_HANDED_OVER) != nullptr) {
        outcome.reason =
            "the plug-in said it handed the account over, but the account app's folder holds no export";
    } else {
        outcome.reason = "the account restore failed; the plug-in's lines name no cause";
    }
    return outcome;
}

// The messages of the plug-in between two points of the log, and its error lines among them.
void LinesBetween(const std::vector<LogRecord> &logs, const Stretch &stretch, UserOutcome &user) {
    for (size_t i = stretch.firstLog; i < stretch.endLog && i < logs.size(); ++i) {
        if (!IsPluginRecord(logs[i])) {
            continue;
        }
        const std::string message = MessageOf(logs[i]);
        user.pluginLines.push_back(message);
        if (logs[i].level == LOG_ERROR) {
            user.detail += (user.detail.empty() ? "" : " / ") + message;
        }
    }
}

// The id of the user a stretch is about, from the values its lines carry.
int SourceIdOfStretch(const Stretch &stretch, const SourceUserList &list) {
    for (const PluginLine *line : stretch.lines) {
        switch (line->kind) {
            case Kind::USER_NOT_CARRIED:
            case Kind::USER_RESTORE_FAILED:
                return static_cast<int>(line->numbers[0]);
            case Kind::USER_CREATED:
            case Kind::USER_EXISTED:
            case Kind::USER_CREATE_FAILED:
            case Kind::ADMIN_UPDATED:
            case Kind::ADMIN_UPDATE_FAILED:
                return SourceIdOfLocal(static_cast<int>(line->numbers[0]), list);
            case Kind::USER_FILE_NOT_PREPARED:
            case Kind::USER_FILE_NOT_PARSED:
                return SourceIdOfFile(line->texts[0]);
            default:
                break;
        }
    }
    return -1;
}

std::string ConvertFolderTrouble(const Stretch &stretch, const RestoreObservation &seen,
                                 std::vector<NamedCode> &codes) {
    std::string text = "the folder for the text copies of the user files could not be made, after " +
                       std::to_string(Vocabulary::MAX_ATTEMPTS) + " tries";
    const auto retries = stretch.All(Kind::CONVERT_DIR_RETRY);
    if (!retries.empty()) {
        codes.push_back(NameCode(CodeSource::MIGRATE_CLIENT, retries.back()->numbers[0]));
        text += ": the migrate service answered " + CodeInWords(codes.back());
    }
    return text + FailedRequests(*seen.journal, codes);
}

void ReadUser(const Stretch &stretch, const RestoreObservation &seen, const SourceUser *source,
              const std::string &leftOut, const std::optional<RestoreAbort> &abort, bool abortedHere,
              UserOutcome &user) {
    const std::string who = "user " + std::to_string(user.sourceId);
    const std::string local = std::to_string(user.localId);
    const std::string fileName = std::to_string(user.sourceId) + Vocabulary::USER_FILE_SUFFIX;
    const FaultEvent *event = EventAbout(fileName, *seen.events);
    const bool before = AccountById(*seen.osAccountsBefore, user.localId) != nullptr;
    const bool after = AccountById(*seen.osAccountsAfter, user.localId) != nullptr;
    auto failed = [&](const std::string &explanation, const std::string &cause) {
        user.decision = "failed";
        user.explanation = explanation;
        user.cause = cause;
    };
    if (stretch.Find(Kind::USER_NOT_CARRIED) != nullptr) {
        user.decision = "skipped";
        user.explanation = ExplainSkipped(source);
    } else if (stretch.Find(Kind::ADMIN_UPDATED) != nullptr) {
        user.decision = "updated";
        user.explanation =
            "The phone's owner: its name, photo and times went to the administrator account " + local + ".";
    } else if (stretch.Find(Kind::USER_CREATED) != nullptr) {
        if (after && !before) {
            user.decision = "created";
            user.explanation = "A full user of the phone: it became the new OS account " + local + ".";
        } else {
            failed("The plug-in said it created OS account " + local + ", but the device " +
                       (before ? "had it before the restore." : "has no such account after it."),
                   who + "'s OS account " + local + " was not found created on the device");
        }
    } else if (stretch.Find(Kind::USER_EXISTED) != nullptr) {
        user.decision = "existed";
        user.explanation =
            "OS account " + local + " was already on this device; the restore left it as it was.";
    } else if (stretch.Find(Kind::USER_CREATE_FAILED) != nullptr ||
               stretch.Find(Kind::ADMIN_UPDATE_FAILED) != nullptr) {
        const bool admin = stretch.Find(Kind::ADMIN_UPDATE_FAILED) != nullptr;
        const auto retries = stretch.All(admin ? Kind::ADMIN_UPDATE_RETRY : Kind::USER_CREATE_RETRY);
        user.tries = static_cast<int>(retries.size()) + 1;
        const std::optional<int64_t> last = event != nullptr ? event->Number(Vocabulary::PARAM_ERROR_CODE)
                                            : retries.empty()
                                                ? std::nullopt
                                                : std::optional<int64_t>(retries.back()->numbers[0]);
        std::string answer;
        if (last) {
            user.codes.push_back(NameCode(CodeSource::OS_ACCOUNT, *last));
            answer = ", " + CodeInWords(user.codes.back());
        }
        const std::string tries = ", after " + std::to_string(user.tries) + " tries";
        const std::string what = admin ? "the administrator account " + local + " could not be updated"
                                       : who + "'s OS account " + local + " could not be created";
        failed(Capitalized(what) + answer + tries + ".", what + answer + tries);
    } else if (stretch.Find(Kind::CONVERT_DIR_FAILED) != nullptr) {
        const std::string trouble = ConvertFolderTrouble(stretch, seen, user.codes);
        failed(Capitalized(trouble) + ".", who + " could not be restored: " + trouble);
    } else if (const PluginLine *convert = stretch.Find(Kind::USER_FILE_NOT_CONVERTED)) {
        user.codes.push_back(NameCode(CodeSource::EVENT, convert->numbers[0]));
        if (!leftOut.empty()) {
            failed("Its user file was left out of the snapshot: " + leftOut + ".",
                   who + "'s file was left out of the snapshot: " + leftOut);
        } else if (source != nullptr && source->problem == "the file is not in the snapshot") {
            failed("The user list names this user, but the snapshot holds no file for it.",
                   who + " is named by the user list, but the snapshot holds no file for it");
        } else {
            failed(ExplainConversionFailure(convert->numbers[0]),
                   who + "'s file could not be read: " + user.codes.back().meaning);
        }
    } else if (stretch.Find(Kind::USER_FILE_NOT_PARSED) != nullptr) {
        const int64_t code = event != nullptr ? event->Number(Vocabulary::PARAM_ERROR_CODE).value_or(0) : 0;
        user.codes.push_back(NameCode(CodeSource::EVENT, code));
        failed(ExplainParseFailure(code, source),
               who + "'s file could not be used: " + user.codes.back().meaning);
    } else if (abortedHere && abort) {
        failed(Capitalized(abort->sentence) + ".", who + " was not finished: " + abort->sentence);
    } else {
        failed("The plug-in gave up on this user; its own lines tell where.", who + " could not be restored");
    }
}

std::string LeftOutReason(int sourceId, const LaidSnapshot &laid) {
    const std::string file = std::to_string(sourceId) + Vocabulary::USER_FILE_SUFFIX;
    for (const auto &entry : laid.leftOut) {
        if (entry.path == "system/users/" + file ||
            entry.path == std::string(Vocabulary::SOURCE_XML_DIR) + file) {
            return entry.reason;
        }
    }
    return "";
}

// Why the plug-in took no user, when it took none.
std::string UsersNoteOf(const Walk &walk, const RestoreObservation &seen,
                        const std::optional<RestoreAbort> &abort, std::vector<NamedCode> &codes) {
    if (abort && walk.abortPhase != Phase::USER) {
        return abort->sentence;
    }
    if (!walk.userRestoreRan) {
        if (const PluginLine *line = walk.account.Find(Kind::ACTIVE_USER_QUERY_FAILED)) {
            codes.push_back(NameCode(CodeSource::OS_ACCOUNT, line->numbers[0]));
            return "the user restore did not run: the plug-in could not list the OS accounts to find the "
                   "active one "
                   "(the account manager answered " +
                   CodeInWords(codes.back()) + ")";
        }
        const int active = ActiveAccount(*seen.osAccountsBefore);
        if (active < 0) {
            return "the user restore did not run: no OS account is active on this device";
        }
        return "the user restore did not run: it runs only when the active OS account is the administrator "
               "(" +
               std::to_string(Vocabulary::ADMIN_LOCAL_ID) + "), and the active one is " +
               std::to_string(active);
    }
    std::string note =
        "the plug-in could not read the user list (" + std::string(Vocabulary::USER_LIST_FILE_NAME) + ")";
    if (walk.userList.Find(Kind::CONVERT_DIR_FAILED) != nullptr) {
        note += ": " + ConvertFolderTrouble(walk.userList, seen, codes);
    } else if (const PluginLine *convert = walk.userList.Find(Kind::USER_FILE_NOT_CONVERTED)) {
        codes.push_back(NameCode(CodeSource::EVENT, convert->numbers[0]));
        note += ": " + codes.back().meaning;
    } else if (walk.userList.Find(Kind::USER_LIST_NOT_PARSED) != nullptr) {
        const FaultEvent *event = EventAbout(Vocabulary::USER_LIST_FILE_NAME, *seen.events);
        if (event != nullptr && event->Number(Vocabulary::PARAM_ERROR_CODE)) {
            codes.push_back(NameCode(CodeSource::EVENT, *event->Number(Vocabulary::PARAM_ERROR_CODE)));
            note += ": " + codes.back().meaning;
        }
    }
    if (!seen.sourceUsers->problem.empty()) {
        note += "; the runner found: " + seen.sourceUsers->problem;
    }
    return note;
}

}  // namespace

std::string FaultEvent::Text(const std::string &param) const {
    for (const auto &value : params) {
        if (value.name == param && value.type == HiviewDFX::HiSysEventParam::Type::STRING) {
            return value.stringValue;
        }
    }
    return "";
}

std::optional<int64_t> FaultEvent::Number(const std::string &param) const {
    using Type = HiviewDFX::HiSysEventParam::Type;
    for (const auto &value : params) {
        if (value.name == param && (value.type == Type::INT32 || value.type == Type::INT64)) {
            return value.intValue;
        }
    }
    return std::nullopt;
}

RestoreReading ReadRestore(const RestoreObservation &seen) {
    const std::vector<PluginLine> lines = ReadPluginLines(*seen.logs);
    const Walk walk = WalkLines(lines, seen.logs->size());
    const SourceUserList &list = *seen.sourceUsers;
    RestoreReading reading;
    reading.userRestoreRan = walk.userRestoreRan;

    // The users the plug-in took, in its order: a stretch's own lines name its user; a stretch whose
    // lines name none (it stopped early) is the next one of the list.
    std::vector<bool> taken(list.users.size(), false);
    std::vector<int> ids;
    for (size_t k = 0; k < walk.users.size(); ++k) {
        int id = SourceIdOfStretch(walk.users[k], list);
        if (id < 0 && k < list.users.size()) {
            id = list.users[k].id;
        }
        ids.push_back(id);
    }
    const int currentLocal = walk.abortPhase == Phase::USER && !ids.empty()
                                 ? Vocabulary::LocalIdOf(ids.back())
                             : walk.abortPhase == Phase::ACCOUNT ? ActiveAccount(*seen.osAccountsBefore)
                                                                 : -1;
    if (walk.aborted != nullptr) {
        reading.abort = AbortOf(walk, seen, currentLocal);
    }
    reading.account = AccountOf(walk, seen);

    for (size_t k = 0; k < walk.users.size(); ++k) {
        UserOutcome user;
        user.sourceId = ids[k];
        user.localId = Vocabulary::LocalIdOf(ids[k]);
        const SourceUser *source = nullptr;
        for (size_t i = 0; i < taken.size(); ++i) {
            if (!taken[i] && list.users[i].id == user.sourceId) {
                source = &list.users[i];
                taken[i] = true;
                break;
            }
        }
        const bool abortedHere =
            walk.aborted != nullptr && walk.abortPhase == Phase::USER && k + 1 == walk.users.size();
        ReadUser(walk.users[k], seen, source, LeftOutReason(user.sourceId, *seen.laid), reading.abort,
                 abortedHere, user);
        if (user.decision == "skipped") {
            user.localId = -1;
        }
        LinesBetween(*seen.logs, walk.users[k], user);
        reading.users.push_back(std::move(user));
    }

    std::vector<NamedCode> noteCodes;
    if (walk.users.empty()) {
        reading.usersNote = UsersNoteOf(walk, seen, reading.abort, noteCodes);
    }
    for (size_t i = 0; i < taken.size(); ++i) {
        if (taken[i]) {
            continue;
        }
        UserOutcome user;
        user.sourceId = list.users[i].id;
        user.decision = "not reached";
        const std::string why = !reading.usersNote.empty() ? reading.usersNote
                                : reading.abort            ? reading.abort->sentence
                                                           : "the plug-in's user list did not name this user";
        user.explanation = "Not reached: " + why + ".";
        user.cause = "user " + std::to_string(user.sourceId) + " was not reached: " + why;
        user.codes = noteCodes;
        reading.users.push_back(std::move(user));
    }
    return reading;
}

}  // namespace Zarvo::Host

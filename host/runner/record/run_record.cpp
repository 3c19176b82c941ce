#include "run_record.h"

#include <sys/stat.h>

#include <cstdio>
#include <filesystem>
#include <fstream>

#include "account_export.h"
#include "account_restore_vocabulary.h"
#include "binary_xml/value_text.h"
#include "code_names.h"
#include "record_secrets.h"

namespace Zarvo::Host {
namespace fs = std::filesystem;
namespace {

const std::string EXPORT_FILE_NAME = RestoreVocabulary::ACCOUNT_JSON_NAME;
const std::string PNG_DATA_URI_PREFIX = "data:image/png;base64,";

std::vector<FaultEvent> FaultEventsOf(const std::vector<EventRecord> &captured) {
    std::vector<FaultEvent> events;
    for (const auto &event : captured) {
        FaultEvent fault{event.domain, event.name, event.type, event.params, std::nullopt};
        if (std::optional<int64_t> code = fault.Number(RestoreVocabulary::PARAM_ERROR_CODE)) {
            // A failed OS account call carries the account manager's answer; the rest are the plug-in's own.
            const bool accountAnswer =
                fault.Text(RestoreVocabulary::PARAM_ERROR_TYPE) == RestoreVocabulary::CREATE_USER_ERROR &&
                *code != 0;
            fault.code = NameCode(accountAnswer ? CodeSource::OS_ACCOUNT : CodeSource::EVENT, *code);
        }
        events.push_back(std::move(fault));
    }
    return events;
}

// The export's text with its secrets masked value by value, as a dump of the masked object would
// be, written one extra at a time. `account` is the object without its extras, with its auth token
// masked; `secrets` are all of them, ordered.
std::string MaskedExportText(const std::string &text, nlohmann::json &account, int member,
                             const std::vector<std::string> &secrets) {
    MaskSecretsIn(account, secrets);
    std::string masked;
    masked.reserve(text.size());
    nlohmann::detail::serializer<nlohmann::json> serializer(nlohmann::detail::output_adapter<char>(masked),
                                                            ' ', nlohmann::json::error_handler_t::replace);
    masked += '{';
    bool firstMember = true;
    for (auto &[name, value] : account.items()) {
        masked += firstMember ? "" : ",";
        firstMember = false;
        serializer.dump(nlohmann::json(name), false, false, 0);
        masked += ':';
        if (name != "extras" || member == 0) {
            serializer.dump(value, false, false, 0);
            continue;
        }
        masked += '[';
        bool firstExtra = true;
        nlohmann::json rest;
        int members = 0;
        std::vector<std::string> again;
        ReadAccountExport(text, rest, members, [&](nlohmann::json &extra, int from) {
            if (from != member) {
                return;
            }
            MaskCredentialExtra(extra, again);
            MaskSecretsIn(extra, secrets);
            masked += firstExtra ? "" : ",";
            firstExtra = false;
            serializer.dump(extra, false, false, 0);
        });
        masked += ']';
    }
    masked += '}';
    return masked;
}

// Reads the handed export file and masks its secrets, in the file's content too. The extras are
// read one at a time and not kept: the record holds the export's text alone.
std::optional<HandedAccount> HandedAccountOf(std::vector<HandedFile> &files, bool showSecrets,
                                             std::vector<std::string> &secrets) {
    for (size_t index = 0; index < files.size(); ++index) {
        HandedFile &file = files[index];
        if (fs::path(file.path).filename() != EXPORT_FILE_NAME) {
            continue;
        }
        nlohmann::json account;
        int members = 0;
        int countedMember = 0;
        size_t count = 0;
        std::vector<std::string> extraSecrets;
        const bool read =
            ReadAccountExport(file.content, account, members, [&](nlohmann::json &extra, int member) {
                // A later "extras" member replaces an earlier one.
                if (member != countedMember) {
                    countedMember = member;
                    count = 0;
                    extraSecrets.clear();
                }
                ++count;
                if (!showSecrets) {
                    MaskCredentialExtra(extra, extraSecrets);
                }
            });
        if (!read || !account.is_object()) {
            if (!showSecrets) {
                file.content = "(" + std::to_string(file.content.size()) +
                               " bytes that are not JSON, withheld: they may hold the auth token)";
            }
            HandedAccount unreadable;
            unreadable.file = {file.path, file.uid, file.gid, file.mode, ""};
            return unreadable;
        }
        const int member = ExtrasMember(account, members);
        HandedAccount handed;
        handed.isJson = true;
        handed.extraCount = member != 0 && member == countedMember ? count : 0;
        handed.extrasMember = member;
        handed.fileIndex = index;
        if (!showSecrets) {
            MaskAuthToken(account, secrets);
            if (member != 0 && member == countedMember) {
                secrets.insert(secrets.end(), extraSecrets.begin(), extraSecrets.end());
            }
            OrderSecrets(secrets);
            file.content = MaskedExportText(file.content, account, member, secrets);
            // The masked text names "extras" once.
            handed.extrasMember = member == 0 ? 0 : 1;
        }
        auto text = [&account](const char *name) {
            return account.contains(name) && account[name].is_string() ? account[name].get<std::string>()
                                                                       : std::string();
        };
        handed.name = text("name");
        handed.type = text("type");
        handed.locale = text("locale");
        handed.authToken = text("authtoken");
        handed.file = {file.path, file.uid, file.gid, file.mode, ""};
        if (account.contains("id") && account["id"].is_number_integer()) {
            handed.id = account["id"].get<int64_t>();
        }
        return handed;
    }
    return std::nullopt;
}

void MaskAccounts(std::vector<AccountSA::OsAccountInfo> &accounts, const std::vector<std::string> &secrets) {
    for (auto &account : accounts) {
        std::string name = account.GetLocalName();
        std::string shortName = account.GetShortName();
        std::string photo = account.GetPhoto();
        MaskOccurrences(name, secrets);
        MaskOccurrences(shortName, secrets);
        MaskOccurrences(photo, secrets);
        account.SetLocalName(name);
        account.SetShortName(shortName);
        account.SetPhoto(photo);
    }
}

void MaskCapture(RunCapture &capture, const std::vector<std::string> &secrets) {
    for (auto &record : capture.logs) {
        MaskOccurrences(record.message, secrets);
    }
    for (auto &file : capture.handedFiles) {
        MaskOccurrences(file.content, secrets);
    }
    for (auto &entry : capture.journal) {
        MaskOccurrences(entry.request.src, secrets);
        MaskOccurrences(entry.request.dst, secrets);
        MaskOccurrences(entry.note, secrets);
    }
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
    MaskAccounts(capture.osAccountsBefore, secrets);
    MaskAccounts(capture.osAccountsAfter, secrets);
}

bool OsAccountHasPhoto(const std::vector<AccountSA::OsAccountInfo> &accounts, int localId) {
    for (const auto &account : accounts) {
        if (account.GetLocalId() == localId) {
            return !account.GetPhoto().empty();
        }
    }
    return false;
}

std::vector<UserRecord> UsersOf(const RunCapture &capture, std::vector<UserOutcome> outcomes) {
    std::vector<UserRecord> users;
    std::vector<bool> taken(capture.sourceUsers.users.size(), false);
    for (auto &outcome : outcomes) {
        UserRecord user{std::move(outcome), std::nullopt, ""};
        for (size_t i = 0; i < taken.size(); ++i) {
            if (!taken[i] && capture.sourceUsers.users[i].id == user.outcome.sourceId) {
                user.source = capture.sourceUsers.users[i];
                taken[i] = true;
                break;
            }
        }
        if (user.source && !user.source->photoPng.empty() &&
            (user.outcome.localId < 0 || !OsAccountHasPhoto(capture.osAccountsAfter, user.outcome.localId))) {
            user.phonePhoto = PNG_DATA_URI_PREFIX;
            BinaryXml::AppendBase64(user.source->photoPng, user.phonePhoto);
        }
        if (user.source) {
            user.source->photoPng.clear();
        }
        users.push_back(std::move(user));
    }
    return users;
}

// Restored or not, and why not: the abort first (it explains what follows it), then the account,
// then the users in the order the plug-in took them.
Verdict VerdictOf(const RunRecord &record) {
    Verdict verdict;
    verdict.restored = record.capture.result;
    if (record.abort) {
        verdict.reasons.push_back(record.abort->sentence);
    }
    if (record.accountOutcome.state == "not restored" &&
        (!record.abort || record.accountOutcome.reason != record.abort->sentence)) {
        verdict.reasons.push_back("the account was not restored: " + record.accountOutcome.reason);
    }
    bool notReachedTold = false;
    for (const auto &user : record.users) {
        const bool stoppedHere =
            record.abort && user.outcome.cause.find(record.abort->sentence) != std::string::npos;
        if (user.outcome.decision == "failed" && !stoppedHere) {
            verdict.reasons.push_back(user.outcome.cause);
        } else if (user.outcome.decision == "not reached" && !notReachedTold && !record.abort) {
            verdict.reasons.push_back("no user was restored: " + record.usersNote);
            notReachedTold = true;
        }
    }
    if (verdict.restored) {
        int carried = 0;
        for (const auto &user : record.users) {
            carried += user.outcome.decision == "created" || user.outcome.decision == "updated" ||
                       user.outcome.decision == "existed";
        }
        verdict.sentence = std::string("Restored: ") +
                           (record.accountOutcome.state == "handed over" ? "the account was handed over"
                                                                         : "there was no account to carry") +
                           ", and " + std::to_string(carried) + " of " + std::to_string(record.users.size()) +
                           " users of the phone are on the device.";
    } else {
        verdict.sentence =
            "Not restored: " +
            (verdict.reasons.empty() ? "RestoreData returned false, and the plug-in's lines name no cause"
                                     : verdict.reasons.front()) +
            ".";
    }
    return verdict;
}

void AddCode(std::vector<NamedCode> &codes, const NamedCode &code) {
    for (const auto &known : codes) {
        if (known.source == code.source && known.value == code.value) {
            return;
        }
    }
    codes.push_back(code);
}

std::vector<NamedCode> CodesOf(const RunRecord &record) {
    std::vector<NamedCode> codes;
    for (const auto &code : record.accountOutcome.codes) {
        AddCode(codes, code);
    }
    for (const auto &event : record.events) {
        if (event.code) {
            AddCode(codes, *event.code);
        }
    }
    for (const auto &user : record.users) {
        for (const auto &code : user.outcome.codes) {
            AddCode(codes, code);
        }
    }
    for (const auto &entry : record.capture.journal) {
        if (entry.result < 0) {
            AddCode(codes, NameCode(CodeSource::ERRNO, entry.errCode));
        }
    }
    return codes;
}

}  // namespace

RunRecord BuildRunRecord(RunCapture capture, bool showSecrets) {
    RunRecord record;
    record.secretsShown = showSecrets;
    std::vector<std::string> secrets;
    record.account = HandedAccountOf(capture.handedFiles, showSecrets, secrets);
    if (record.account && record.account->isJson &&
        HasOccurrences(capture.handedFiles[record.account->fileIndex].content, secrets)) {
        // Masking the whole text would change more than values: the extras are read from it as it is now.
        record.account->extrasText = capture.handedFiles[record.account->fileIndex].content;
    }
    MaskCapture(capture, secrets);
    record.events = FaultEventsOf(capture.events);
    for (auto &event : record.events) {
        for (auto &param : event.params) {
            MaskOccurrences(param.stringValue, secrets);
        }
    }
    RestoreObservation observation;
    observation.result = capture.result;
    observation.logs = &capture.logs;
    observation.events = &record.events;
    observation.osAccountsBefore = &capture.osAccountsBefore;
    observation.osAccountsAfter = &capture.osAccountsAfter;
    observation.faults = &capture.faults;
    observation.callCounts = &capture.callCounts;
    observation.journal = &capture.journal;
    observation.sourceUsers = &capture.sourceUsers;
    observation.laid = &capture.laid;
    observation.accountHandedOver = record.account.has_value();
    RestoreReading reading = ReadRestore(observation);
    record.accountOutcome = reading.account;
    if (!record.account) {
        record.accountNote = record.accountOutcome.state + ": " + record.accountOutcome.reason;
    }
    record.abort = reading.abort;
    record.userRestoreRan = reading.userRestoreRan;
    record.usersNote = reading.usersNote;
    record.users = UsersOf(capture, std::move(reading.users));
    record.capture = std::move(capture);
    record.capture.sourceUsers.users.clear();
    record.verdict = VerdictOf(record);
    record.codes = CodesOf(record);
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
        // Read straight into its string, sized once: a stream's buffer would hold it twice.
        std::ifstream in(it->path(), std::ios::binary);
        std::string content(static_cast<size_t>(info.st_size), '\0');
        in.read(content.data(), static_cast<std::streamsize>(content.size()));
        content.resize(static_cast<size_t>(in.gcount()));
        for (char buffer[4096]; in.read(buffer, sizeof(buffer)) || in.gcount() > 0;) {
            content.append(buffer, static_cast<size_t>(in.gcount()));
        }
        files.push_back(
            {it->path().string(), info.st_uid, info.st_gid, info.st_mode & 07777, std::move(content)});
    }
    return files;
}

std::string ModeText(mode_t mode) {
    char text[8];
    std::snprintf(text, sizeof(text), "%04o", static_cast<unsigned>(mode & 07777));
    return text;
}

}  // namespace Zarvo::Host

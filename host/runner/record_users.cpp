#include "record_users.h"

#include <charconv>
#include <cstdio>

#include "hilog/log.h"

namespace Zarvo::Host {
namespace {

constexpr int ADMIN_LOCAL_ID = 100;
constexpr int LOCAL_ID_OFFSET = 91;
const std::string SYSTEM_TYPE = "android.os.usertype.full.SYSTEM";
const std::string SECONDARY_TYPE = "android.os.usertype.full.SECONDARY";
const std::string GUEST_TYPE = "android.os.usertype.full.GUEST";
const std::string PROFILE_TYPE_PREFIX = "android.os.usertype.profile.";

int SourceIdOf(int localId) {
    return localId == ADMIN_LOCAL_ID ? 0 : localId - LOCAL_ID_OFFSET;
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

std::string Hex(int64_t value) {
    char text[24];
    std::snprintf(text, sizeof(text), "0x%llX", static_cast<unsigned long long>(value));
    return text;
}

std::string ExplainSkipped(const SourceUser *source) {
    if (source == nullptr || !source->type) {
        return "Its type and flags are not carried over.";
    }
    const std::string &type = *source->type;
    const std::string flags = source->flags ? UserFlagNames(*source->flags) : "none";
    if (type == SYSTEM_TYPE) {
        return "The system user without both PRIMARY and ADMIN (its flags: " + flags +
               "); only an owner with both updates the administrator.";
    }
    if (type == SECONDARY_TYPE) {
        return "A secondary user whose flags (" + flags +
               ") are more than FULL and INITIALIZED; only plain full users are carried over.";
    }
    if (type == GUEST_TYPE) {
        return "A guest; guests are not carried over.";
    }
    if (type.compare(0, PROFILE_TYPE_PREFIX.size(), PROFILE_TYPE_PREFIX) == 0) {
        const std::string kind = type.substr(PROFILE_TYPE_PREFIX.size());
        const std::string what = kind == "MANAGED"   ? "a work profile"
                                 : kind == "CLONE"   ? "a clone profile"
                                 : kind == "PRIVATE" ? "a private space"
                                                     : "a profile (" + kind + ")";
        return "A profile of another user, " + what + "; profiles are not carried over.";
    }
    return "Its type " + type + " is none the restore carries over (only the owner and full users are).";
}

std::string ConversionTrouble(int64_t code) {
    switch (code) {
        case 0x200002:
            return "cannot be read";
        case 0x200003:
            return "is cut short";
        case 0x200004:
            return "is neither binary XML nor text XML";
        case 0x200005:
            return "refers to a string it never introduced";
        case 0x200006:
            return "holds bytes that are not UTF-8, or a name XML cannot carry";
        case 0x200007:
            return "could not be copied as text (the work tree refused the copy)";
        case 0x200008:
            return "is too large";
        default:
            return "could not be converted";
    }
}

std::string ExplainParseFailure(int64_t code, const SourceUser *source) {
    struct Missing {
        int64_t code;
        const char *attribute;
    };
    static const Missing missing[] = {
        {0x200016, "id"}, {0x200017, "flags"}, {0x200019, "created"}, {0x20001a, "serialNumber"}};
    switch (code) {
        case 0x200018:
            return "Its user file has no type attribute, as Android 10 and older write user files; the "
                   "restore "
                   "needs the type to decide, so it refuses such a file.";
        case 0x200015:
            return "Its user file names no user name (only the owner may go without one); a pre-created or "
                   "half-created user looks like this.";
        case 0x200014:
            return "Its user file's root element is not a user.";
        case 0x200012:
        case 0x200011:
            return "Its user file is not XML the restore can read.";
        default:
            break;
    }
    for (const Missing &entry : missing) {
        if (entry.code == code) {
            return std::string("Its user file has no ") + entry.attribute +
                   " attribute, which the restore needs.";
        }
    }
    if (source != nullptr && source->problem.empty() && !source->type) {
        return "Its user file has no type attribute, as Android 10 and older write user files.";
    }
    return "Its user file could not be read as a user (code " + Hex(code) + ").";
}

std::string ExplainFailed(const UserOutcome &outcome, const SourceUser *source,
                          const std::optional<UserFault> &fault, const std::string &leftOut) {
    if (!leftOut.empty()) {
        return "Its user file was left out of the snapshot: " + leftOut + ".";
    }
    if (source != nullptr && source->problem == "the file is not in the snapshot") {
        return "The user list names this user, but the snapshot holds no file for it.";
    }
    if (fault && fault->type == "SOURCE_FILE_ERROR") {
        return "Its user file " + ConversionTrouble(fault->code) +
               ", so it could not be turned into text XML.";
    }
    if (fault && fault->type == "PARSE_FILE_ERROR") {
        return ExplainParseFailure(fault->code, source);
    }
    if (fault && fault->type == "CREATE_USER_ERROR") {
        return std::string(outcome.sourceId == 0 ? "Updating the administrator account 100"
                                                 : "Creating its OS account") +
               " failed four times; the account manager's last answer was " + std::to_string(fault->code) +
               ".";
    }
    return "The plug-in gave up on this user; its own lines tell where.";
}

}  // namespace

std::string MessageOf(const LogRecord &record) {
    size_t close = record.message.find(")]");
    return record.message.rfind('[', 0) == 0 && close != std::string::npos ? record.message.substr(close + 2)
                                                                           : record.message;
}

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
    std::vector<std::string> lines;
    for (const auto &record : logs) {
        if (record.tag != "MIGRATE_PLUGIN") {
            continue;
        }
        const std::string message = MessageOf(record);
        if (message == "RestoreSubUserInfo called.") {
            errors.clear();
            lines.clear();
        }
        lines.push_back(message);
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
                            settled->detail != nullptr ? settled->detail : errors, lines});
        lines.clear();
    }
    return outcomes;
}

std::string ExplainUser(const UserOutcome &outcome, const SourceUser *source,
                        const std::optional<UserFault> &fault, const std::string &leftOut) {
    if (outcome.decision == "updated") {
        return "The phone's owner: its name, photo and times went to the administrator account " +
               std::to_string(outcome.localId) + ".";
    }
    if (outcome.decision == "created") {
        return "A full user of the phone: it became the new OS account " + std::to_string(outcome.localId) +
               ".";
    }
    if (outcome.decision == "existed") {
        return "OS account " + std::to_string(outcome.localId) +
               " was already on this device; the restore left it as it was.";
    }
    if (outcome.decision == "skipped") {
        return ExplainSkipped(source);
    }
    return ExplainFailed(outcome, source, fault, leftOut);
}

}  // namespace Zarvo::Host

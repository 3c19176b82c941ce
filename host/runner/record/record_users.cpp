#include "record_users.h"

#include "account_restore_vocabulary.h"

namespace Zarvo::Host {
namespace {

namespace Vocabulary = RestoreVocabulary;

// Android's user types the restore does not carry over, named for a person.
const std::string GUEST_TYPE = "android.os.usertype.full.GUEST";
const std::string PROFILE_TYPE_PREFIX = "android.os.usertype.profile.";

}  // namespace

std::string ExplainSkipped(const SourceUser *source) {
    if (source == nullptr || !source->type) {
        return "Its type and flags are not carried over.";
    }
    const std::string &type = *source->type;
    const std::string flags = source->flags ? UserFlagNames(*source->flags) : "none";
    if (type == Vocabulary::USER_TYPE_SYSTEM) {
        return "The system user without both PRIMARY and ADMIN (its flags: " + flags +
               "); only an owner with both updates the administrator.";
    }
    if (type == Vocabulary::USER_TYPE_SECONDARY) {
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

std::string ExplainConversionFailure(int64_t code) {
    const NamedCode named = NameCode(CodeSource::EVENT, code);
    return "Its user file could not be turned into text XML: " + named.meaning + " (" + named.hex + ").";
}

std::string ExplainParseFailure(int64_t code, const SourceUser *source) {
    switch (code) {
        case Vocabulary::USER_TYPE_MISSING:
            return "Its user file has no type attribute, as Android 10 and older write user files; the "
                   "restore "
                   "needs the type to decide, so it refuses such a file.";
        case Vocabulary::USER_NAME_MISSING:
            return "Its user file names no user name (only the owner may go without one); a pre-created or "
                   "half-created user looks like this.";
        case Vocabulary::USER_NODE_ERROR:
            return "Its user file's root element is not a user.";
        case Vocabulary::XML_FILE_READ_ERROR:
        case Vocabulary::XML_FILE_NOT_EXIST:
            return "Its user file is not XML the restore can read.";
        case Vocabulary::USER_ID_MISSING:
        case Vocabulary::USER_FLAGS_MISSING:
        case Vocabulary::USER_CREATED_MISSING:
        case Vocabulary::USER_SERIAL_NUMBER_MISSING:
            return "Its user file could not be used: " + NameCode(CodeSource::EVENT, code).meaning +
                   ", which the restore needs.";
        default:
            break;
    }
    if (source != nullptr && source->problem.empty() && !source->type) {
        return "Its user file has no type attribute, as Android 10 and older write user files.";
    }
    return "Its user file could not be read as a user (code " + NameCode(CodeSource::EVENT, code).hex + ").";
}

}  // namespace Zarvo::Host

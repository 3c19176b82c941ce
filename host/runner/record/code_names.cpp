#include "code_names.h"

#include <cstdio>
#include <cstring>

#include "account_restore_vocabulary.h"
#include "bundle_mgr_proxy.h"
#include "file_migrate_client.h"
#include "file_migrate_manager.h"
#include "os_account_manager.h"
#include "rdb_errno.h"

namespace Zarvo::Host {
namespace {

namespace Vocabulary = RestoreVocabulary;

struct Entry {
    int64_t value;
    const char *name;
    const char *meaning;
};

// Every code a person meets in a run, by answerer: one table, in one place.
const Entry EVENT_CODES[] = {
    {0, "ALREADY_EXISTS", "the OS account was already there; it was left as it was"},
    {Vocabulary::CONVERT_UNKNOWN_ERROR, "CONVERT_UNKNOWN_ERROR", "the file could not be converted"},
    {Vocabulary::CONVERT_READ_ERROR, "CONVERT_READ_ERROR", "the file cannot be read"},
    {Vocabulary::CONVERT_TRUNCATED, "CONVERT_TRUNCATED", "the file is cut short"},
    {Vocabulary::CONVERT_NOT_XML, "CONVERT_NOT_XML", "the file is neither binary XML nor text XML"},
    {Vocabulary::CONVERT_BAD_STRING_REFERENCE, "CONVERT_BAD_STRING_REFERENCE",
     "the file refers to a string it never introduced"},
    {Vocabulary::CONVERT_BAD_TEXT, "CONVERT_BAD_TEXT",
     "the file holds bytes that are not UTF-8, or a name XML cannot carry"},
    {Vocabulary::CONVERT_WRITE_ERROR, "CONVERT_WRITE_ERROR", "the text copy could not be written"},
    {Vocabulary::CONVERT_TOO_LARGE, "CONVERT_TOO_LARGE", "the file is too large"},
    {Vocabulary::XML_FILE_NOT_EXIST, "XML_FILE_NOT_EXIST", "the converted file is missing"},
    {Vocabulary::XML_FILE_READ_ERROR, "XML_FILE_READ_ERROR", "the file is not XML the restore can read"},
    {Vocabulary::USER_LIST_NODE_ERROR, "USER_LIST_NODE_ERROR", "the user list has no users element"},
    {Vocabulary::USER_NODE_ERROR, "USER_NODE_ERROR", "the user file's root element is not a user"},
    {Vocabulary::USER_NAME_MISSING, "USER_NAME_MISSING", "the user file names no user name"},
    {Vocabulary::USER_ID_MISSING, "USER_ID_MISSING", "the user file has no id attribute"},
    {Vocabulary::USER_FLAGS_MISSING, "USER_FLAGS_MISSING", "the user file has no flags attribute"},
    {Vocabulary::USER_TYPE_MISSING, "USER_TYPE_MISSING",
     "the user file has no type attribute, as Android 10 and older write them"},
    {Vocabulary::USER_CREATED_MISSING, "USER_CREATED_MISSING", "the user file has no created attribute"},
    {Vocabulary::USER_SERIAL_NUMBER_MISSING, "USER_SERIAL_NUMBER_MISSING",
     "the user file has no serialNumber attribute"},
};

const Entry OS_ACCOUNT_CODES[] = {
    {AccountSA::ERR_OK, "ERR_OK", "success"},
    {AccountSA::ERR_OSACCOUNT_INVALID_PARAMETER, "ERR_OSACCOUNT_INVALID_PARAMETER", "invalid parameter"},
    {AccountSA::ERR_OSACCOUNT_INVALID_TYPE, "ERR_OSACCOUNT_INVALID_TYPE", "invalid account type"},
    {AccountSA::ERR_OSACCOUNT_ALREADY_EXISTS, "ERR_OSACCOUNT_ALREADY_EXISTS", "the account exists already"},
    {AccountSA::ERR_OSACCOUNT_NOT_FOUND, "ERR_OSACCOUNT_NOT_FOUND", "no such account"},
};

const Entry BUNDLE_CODES[] = {
    {AppExecFwk::ERR_OK, "ERR_OK", "success"},
    {AppExecFwk::ERR_BUNDLE_MANAGER_INVALID_PARAMETER, "ERR_BUNDLE_MANAGER_INVALID_PARAMETER",
     "invalid parameter"},
    {AppExecFwk::ERR_BUNDLE_MANAGER_BUNDLE_NOT_EXIST, "ERR_BUNDLE_MANAGER_BUNDLE_NOT_EXIST",
     "the app is not installed for this user"},
    {AppExecFwk::ERR_BUNDLE_MANAGER_INVALID_USER_ID, "ERR_BUNDLE_MANAGER_INVALID_USER_ID", "no such user"},
    {AppExecFwk::ERR_BUNDLE_MANAGER_INTERNAL_ERROR, "ERR_BUNDLE_MANAGER_INTERNAL_ERROR",
     "the bundle manager failed"},
};

const Entry STORE_CODES[] = {
    {NativeRdb::E_OK, "E_OK", "success"},
    {NativeRdb::E_ERROR, "E_ERROR", "the store failed"},
    {NativeRdb::E_INVALID_FILE_PATH, "E_INVALID_FILE_PATH", "the path is empty or relative"},
    {NativeRdb::E_DB_NOT_EXIST, "E_DB_NOT_EXIST", "the database file does not exist"},
    {NativeRdb::E_NOT_SUPPORT, "E_NOT_SUPPORT", "an option the store cannot honour"},
    {NativeRdb::E_SQLITE_ERROR, "E_SQLITE_ERROR",
     "SQLite refused the file: it is not a database or is damaged"},
    {NativeRdb::E_CALLBACK_FAILED, "E_CALLBACK_FAILED", "an open callback failed"},
    {NativeRdb::E_ALREADY_CLOSED, "E_ALREADY_CLOSED", "the result set was closed"},
    {NativeRdb::E_ROW_OUT_RANGE, "E_ROW_OUT_RANGE", "no row at that position"},
    {NativeRdb::E_COLUMN_OUT_RANGE, "E_COLUMN_OUT_RANGE", "no column with that index"},
    {NativeRdb::E_INVALID_ARGS, "E_INVALID_ARGS", "invalid arguments"},
};

const Entry MIGRATE_CODES[] = {
    {0, "OK", "success"},
    {-1, "FAILED", "the migrate service refused or failed the request (its errno says why)"},
    {UpdateEngine::MIGRATE_ERR_INVALID_REQUEST, "MIGRATE_ERR_INVALID_REQUEST", "the request was not valid"},
    {UpdateEngine::MIGRATE_ERR_CONNECT, "MIGRATE_ERR_CONNECT", "the migrate service could not be reached"},
    {UpdateEngine::MIGRATE_ERR_CREATE_SOCKET, "MIGRATE_ERR_CREATE_SOCKET", "no socket could be made"},
    {UpdateEngine::MIGRATE_ERR_NO_SOCKET, "MIGRATE_ERR_NO_SOCKET", "the migrate service's socket is missing"},
    {UpdateEngine::MIGRATE_ERR_WRITE, "MIGRATE_ERR_WRITE", "the request could not be sent"},
    {UpdateEngine::MIGRATE_ERR_READ, "MIGRATE_ERR_READ", "no whole reply came back (the connection closed)"},
    {UpdateEngine::MIGRATE_ERR_PACKAGES, "MIGRATE_ERR_PACKAGES", "the reply's packages were malformed"},
};

const Entry EVENT_WRITER_CODES[] = {
    {0, "OK", "the event was accepted"},
};

template <size_t N>
const Entry *Find(const Entry (&table)[N], int64_t value) {
    for (const Entry &entry : table) {
        if (entry.value == value) {
            return &entry;
        }
    }
    return nullptr;
}

}  // namespace

std::string HexText(int64_t value) {
    char text[24];
    const unsigned long long magnitude =
        value < 0 ? 0ULL - static_cast<unsigned long long>(value) : static_cast<unsigned long long>(value);
    std::snprintf(text, sizeof(text), "%s0x%llX", value < 0 ? "-" : "", magnitude);
    return text;
}

NamedCode NameCode(CodeSource source, int64_t value) {
    NamedCode code{source, value, HexText(value), "unknown",
                   "a code " + SourceName(source) + " does not define"};
    const Entry *entry = nullptr;
    switch (source) {
        case CodeSource::EVENT:
            entry = Find(EVENT_CODES, value);
            break;
        case CodeSource::OS_ACCOUNT:
            entry = Find(OS_ACCOUNT_CODES, value);
            break;
        case CodeSource::BUNDLE_MANAGER:
            entry = Find(BUNDLE_CODES, value);
            break;
        case CodeSource::RELATIONAL_STORE:
            entry = Find(STORE_CODES, value);
            break;
        case CodeSource::MIGRATE_CLIENT:
            entry = Find(MIGRATE_CODES, value);
            break;
        case CodeSource::EVENT_WRITER:
            entry = Find(EVENT_WRITER_CODES, value);
            break;
        case CodeSource::ERRNO:
            if (value > 0 && value < 4096 && strerrorname_np(static_cast<int>(value)) != nullptr) {
                code.name = strerrorname_np(static_cast<int>(value));
                code.meaning = strerror(static_cast<int>(value));
            }
            if (value == 0) {
                code.name = "0";
                code.meaning = "no error";
            }
            break;
    }
    if (entry != nullptr) {
        code.name = entry->name;
        code.meaning = entry->meaning;
    }
    return code;
}

std::string CodeInWords(const NamedCode &code) {
    return code.hex + " " + (code.name == "unknown" ? "(" + code.meaning + ")" : code.meaning);
}

std::string SourceName(CodeSource source) {
    switch (source) {
        case CodeSource::EVENT:
            return "the plug-in's fault events";
        case CodeSource::OS_ACCOUNT:
            return "the account manager";
        case CodeSource::BUNDLE_MANAGER:
            return "the bundle manager";
        case CodeSource::RELATIONAL_STORE:
            return "the database store";
        case CodeSource::MIGRATE_CLIENT:
            return "the migrate service";
        case CodeSource::ERRNO:
            return "the system (errno)";
        case CodeSource::EVENT_WRITER:
            return "the event writer";
    }
    return "";
}

}  // namespace Zarvo::Host

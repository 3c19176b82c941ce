#include "compare_input.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <nlohmann/json.hpp>

#include "batch_index.h"
#include "folder_file.h"
#include "sha256.h"
#include "support/unique_fd.h"

namespace Zarvo::Host {
namespace {

using Json = nlohmann::json;

constexpr size_t MAX_FILE_BYTES = size_t{64} << 20;
constexpr size_t MAX_PHONES = 100000;

// A member of a report or index that is missing or of the wrong type: `what` names it.
struct Malformed {
    std::string what;
};

std::string ReadJsonFile(int dirFd, const std::string &name, const std::string &shown, Json &json) {
    std::string content;
    std::string error;
    switch (ReadFolderFile(dirFd, name, shown, MAX_FILE_BYTES, &content, "the comparison", error)) {
        case FolderFileRead::MISSING:
            return "could not open " + shown + ": " + std::strerror(ENOENT) + ".";
        case FolderFileRead::REFUSED:
            return error;
        case FolderFileRead::READ:
            break;
    }
    json = Json::parse(content, nullptr, false);
    return json.is_discarded() ? shown + " is not JSON." : "";
}

const Json *Present(const Json &object, const char *key) {
    const auto found = object.find(key);
    return found == object.end() || found->is_null() ? nullptr : &*found;
}

std::string Text(const Json &object, const char *key, const std::string &where, bool required = false) {
    const Json *value = Present(object, key);
    if (value == nullptr && !required) {
        return "";
    }
    if (value == nullptr || !value->is_string()) {
        throw Malformed{where + key + " is not text"};
    }
    return value->get<std::string>();
}

int64_t Integer(const Json &object, const char *key, const std::string &where, int64_t absent) {
    const Json *value = Present(object, key);
    if (value == nullptr) {
        return absent;
    }
    if (!value->is_number_integer()) {
        throw Malformed{where + key + " is not a whole number"};
    }
    return value->get<int64_t>();
}

const Json &List(const Json &object, const char *key, const std::string &where) {
    const Json *value = Present(object, key);
    if (value == nullptr || !value->is_array()) {
        throw Malformed{where + key + " is not a list"};
    }
    return *value;
}

const Json &Item(const Json &list, size_t i, const std::string &where) {
    if (!list[i].is_object()) {
        throw Malformed{where + "[" + std::to_string(i) + "] is not an object"};
    }
    return list[i];
}

std::string At(const char *list, size_t i) {
    return std::string(list) + "[" + std::to_string(i) + "].";
}

// An event parameter as the summary writes it; a nested value is not one a fault event carries.
std::string Scalar(const Json *value) {
    if (value == nullptr) {
        return "";
    }
    if (value->is_string()) {
        return value->get<std::string>();
    }
    return value->is_primitive() ? value->dump() : "(a nested value)";
}

std::string EventLine(const Json &event, const std::string &where) {
    const std::string name = Text(event, "name", where);
    const Json *params = Present(event, "params");
    if (params == nullptr) {
        return name;
    }
    if (!params->is_object()) {
        throw Malformed{where + "params is not an object"};
    }
    if (Present(*params, "ERROR_TYPE") != nullptr) {
        // The code as the record names it (hex and name), where the report has that.
        std::string code = Scalar(Present(*params, "ERROR_CODE"));
        const Json *named = Present(event, "code");
        if (named != nullptr && named->is_object()) {
            const std::string hex = Scalar(Present(*named, "hex"));
            const std::string codeName = Scalar(Present(*named, "name"));
            if (!hex.empty()) {
                code = hex + (codeName.empty() ? "" : " " + codeName);
            }
        }
        return Scalar(Present(*params, "ERROR_TYPE")) + " code " + code + " (task " +
               Scalar(Present(*params, "TASK_ID")) + "): " + Scalar(Present(*params, "ERROR_MESSAGE"));
    }
    std::string line = name;
    for (const auto &[key, value] : params->items()) {
        line += " " + key + "=" + Scalar(&value);
    }
    return line;
}

std::string Sha256Hex(const std::string &content) {
    Sha256 digest;
    digest.Update(content);
    return digest.HexDigest();
}

// The verdict and the account's outcome are read when the report has them; older reports have
// only the result and the account note.
void ReadVerdict(const Json &report, bool &restored, ComparedPhone &phone) {
    const Json *verdict = Present(report, "verdict");
    if (verdict == nullptr) {
        return;
    }
    if (!verdict->is_object()) {
        throw Malformed{"verdict is not an object"};
    }
    const Json *flag = Present(*verdict, "restored");
    if (flag != nullptr && !flag->is_boolean()) {
        throw Malformed{"verdict.restored is not true or false"};
    }
    restored = restored && (flag == nullptr || flag->get<bool>());
    phone.verdict = Text(*verdict, "sentence", "verdict.");
    if (phone.verdict.empty()) {
        phone.verdict = Text(*verdict, "reason", "verdict.");
    }
    if (Present(*verdict, "reasons") != nullptr) {
        const Json &reasons = List(*verdict, "reasons", "verdict.");
        for (size_t i = 0; i < reasons.size(); ++i) {
            if (!reasons[i].is_string()) {
                throw Malformed{"verdict.reasons[" + std::to_string(i) + "] is not text"};
            }
            phone.reasons.push_back(reasons[i].get<std::string>());
        }
    }
}

void ReadAccount(const Json &report, ComparedPhone &phone) {
    const Json *account = Present(report, "account");
    if (account != nullptr && !account->is_object()) {
        throw Malformed{"account is not an object"};
    }
    const Json *outcome = Present(report, "accountOutcome");
    if (outcome != nullptr && !outcome->is_object()) {
        throw Malformed{"accountOutcome is not an object"};
    }
    if (outcome != nullptr) {
        const std::string reason = Text(*outcome, "reason", "accountOutcome.");
        phone.account = Text(*outcome, "state", "accountOutcome.") + (reason.empty() ? "" : ": " + reason);
    } else if (account != nullptr) {
        const Json *isJson = Present(*account, "isJson");
        if (isJson != nullptr && !isJson->is_boolean()) {
            throw Malformed{"account.isJson is not true or false"};
        }
        phone.account =
            isJson == nullptr || isJson->get<bool>() ? "handed over" : "handed over, but not as JSON";
    } else {
        const std::string note = Text(report, "accountNote", "");
        phone.account = note.empty() ? "not handed over" : "not handed over: " + note;
    }
    const std::string path = account != nullptr ? Text(*account, "path", "account.") : "";
    const Json &files = List(report, "handedFiles", "");
    for (size_t i = 0; i < files.size(); ++i) {
        const Json &file = Item(files, i, "handedFiles");
        const std::string filePath = Text(file, "path", At("handedFiles", i), true);
        const std::string content = Text(file, "content", At("handedFiles", i), true);
        if (!path.empty() && filePath == path) {
            phone.handedDigest = Sha256Hex(content);
        }
    }
}

ComparedPhone PhoneOfReport(const Json &report) {
    if (!report.is_object()) {
        throw Malformed{"it is not an object"};
    }
    const Json *result = Present(report, "result");
    if (result == nullptr || !result->is_boolean()) {
        throw Malformed{"result is not true or false"};
    }
    ComparedPhone phone;
    bool restored = result->get<bool>();
    ReadVerdict(report, restored, phone);
    phone.result = restored ? RESTORED : NOT_RESTORED;
    ReadAccount(report, phone);
    phone.secrets = Text(report, "secrets", "");
    const Json &users = List(report, "users", "");
    for (size_t i = 0; i < users.size(); ++i) {
        const Json &user = Item(users, i, "users");
        const std::string where = At("users", i);
        if (Present(user, "sourceId") == nullptr) {
            throw Malformed{where + "sourceId is missing"};
        }
        phone.users.push_back({Integer(user, "sourceId", where, 0), Text(user, "decision", where, true),
                               Integer(user, "localId", where, -1), Text(user, "explanation", where)});
    }
    const Json &events = List(report, "events", "");
    for (size_t i = 0; i < events.size(); ++i) {
        phone.events.push_back(EventLine(Item(events, i, "events"), At("events", i)));
    }
    return phone;
}

std::string ReadReport(int dirFd, const std::string &name, const std::string &shown, ComparedPhone &phone) {
    Json report;
    std::string error = ReadJsonFile(dirFd, name, shown, report);
    if (!error.empty()) {
        return error;
    }
    try {
        phone = PhoneOfReport(report);
    } catch (const Malformed &malformed) {
        return shown + " is not a runner report: " + malformed.what + ".";
    }
    return "";
}

bool PlainName(const std::string &name) {
    return !name.empty() && name[0] != '.' && name.find('/') == std::string::npos &&
           name.find('\0') == std::string::npos;
}

std::string ReadBatch(const std::string &path, ComparedSide &side) {
    UniqueFd dir(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (!dir.Valid()) {
        return "could not open the folder " + path + ": " + std::strerror(errno) + ".";
    }
    const std::string indexPath = path + "/index.json";
    if (faccessat(dir.Get(), "index.json", F_OK, AT_SYMLINK_NOFOLLOW) != 0) {
        return path + " holds no index.json: it is no batch's output folder.";
    }
    Json index;
    std::string error = ReadJsonFile(dir.Get(), "index.json", indexPath, index);
    if (!error.empty()) {
        return error;
    }
    if (!index.is_object() || !index.contains("phones") || !index["phones"].is_array()) {
        return indexPath + " is not a batch index: it has no list of phones.";
    }
    const Json &rows = index["phones"];
    if (rows.size() > MAX_PHONES) {
        return indexPath + " lists more than 100,000 phones.";
    }
    UniqueFd phonesDir;
    for (size_t i = 0; i < rows.size(); ++i) {
        ComparedPhone phone;
        std::string name;
        try {
            const Json &row = Item(rows, i, "phones");
            name = Text(row, "phone", At("phones", i), true);
            phone.result = Text(row, "result", At("phones", i), true);
            phone.problem = Text(row, "problem", At("phones", i));
        } catch (const Malformed &malformed) {
            return indexPath + " is not a batch index: " + malformed.what + ".";
        }
        if (!PlainName(name)) {
            return indexPath + " names a phone that is no plain file name.";
        }
        if (side.phones.count(name) != 0) {
            return indexPath + " lists the phone " + name + " twice.";
        }
        if (phone.result != RESTORED && phone.result != NOT_RESTORED && phone.result != NOT_SET_UP) {
            return indexPath + " gives the phone " + name +
                   " a result that is none of restored, not restored, not set up.";
        }
        if (phone.result != NOT_SET_UP) {
            if (!phonesDir.Valid()) {
                phonesDir.Reset(openat(dir.Get(), "phones", O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
                if (!phonesDir.Valid()) {
                    return "could not open the folder " + path + "/phones: " + std::strerror(errno) + ".";
                }
            }
            error = ReadReport(phonesDir.Get(), name + ".json", PhoneFile(path, name, ".json"), phone);
            if (!error.empty()) {
                return error;
            }
        }
        side.phones.emplace(name, std::move(phone));
    }
    return "";
}

}  // namespace

std::string ReadComparedSide(const std::string &path, ComparedSide &side) {
    side.path = path;
    struct stat info {};
    if (lstat(path.c_str(), &info) != 0) {
        return "could not read " + path + ": " + std::strerror(errno) + ".";
    }
    if (S_ISLNK(info.st_mode)) {
        return path + " is a symbolic link; name the batch folder or report itself.";
    }
    if (S_ISDIR(info.st_mode)) {
        side.batch = true;
        return ReadBatch(path, side);
    }
    if (!S_ISREG(info.st_mode)) {
        return path + " is neither a batch's output folder nor a report.";
    }
    std::string name = path.substr(path.find_last_of('/') + 1);
    if (name.size() > 5 && name.compare(name.size() - 5, 5, ".json") == 0) {
        name.resize(name.size() - 5);
    }
    return ReadReport(AT_FDCWD, path, path, side.phones[name]);
}

}  // namespace Zarvo::Host

#include "batch_merge.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <set>

#include "batch_index.h"
#include "folder_file.h"
#include "owner_only_file.h"
#include "support/json_integer.h"
#include "support/unique_fd.h"

namespace Zarvo::Host {
namespace {

const std::string MERGE = "a merge";
// Far beyond what a batch writes: an index row is a few hundred bytes, a report a few MiB.
constexpr size_t MAX_INDEX_BYTES = size_t{256} << 20;
constexpr size_t MAX_PHONE_FILE_BYTES = size_t{256} << 20;

constexpr size_t MAX_MISSING_SHOWN = 10;

const char *const PHONE_FILE_EXTENSIONS[] = {".json", ".html", ".txt"};

struct ShardFolder {
    std::string path;
    UniqueFd dir;
    UniqueFd phones;  // invalid when the shard has no phones/ folder
};

bool IsCount(const nlohmann::json &value) {
    int count = 0;
    return JsonInteger(value, count) && count >= 0;
}

bool IsDuration(const nlohmann::json &value) {
    return value.is_number() && value.get<double>() >= 0;
}

bool IsSha256Text(const std::string &text) {
    return text.size() == 64 && std::all_of(text.begin(), text.end(), [](char c) {
               return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f');
           });
}

// "2026-11-23T10:04:05.123Z" as a run writes its start, or empty.
bool IsUtcTimeText(const std::string &text) {
    static const std::string FORM = "dddd-dd-ddTdd:dd:dd.dddZ";
    if (text.empty()) {
        return true;
    }
    if (text.size() != FORM.size()) {
        return false;
    }
    for (size_t i = 0; i < FORM.size(); ++i) {
        if (FORM[i] == 'd' ? (text[i] < '0' || text[i] > '9') : text[i] != FORM[i]) {
            return false;
        }
    }
    return true;
}

// The run's facts of a row (reason, account, leftOut, injected, startedUtc, plugin), checked into
// `checked`; an index of an older runner has none, and gets them empty.
std::string CheckedRunFacts(const nlohmann::json &row, const std::string &name, nlohmann::json &checked) {
    const nlohmann::json reason = row.value("reason", nlohmann::json(""));
    const nlohmann::json account = row.value("account", nlohmann::json(""));
    const nlohmann::json startedUtc = row.value("startedUtc", nlohmann::json(""));
    if (!reason.is_string() || !account.is_string() || !startedUtc.is_string() ||
        !IsUtcTimeText(startedUtc.get<std::string>())) {
        return "a reason, account or startedUtc of " + name + " that is not what a batch writes";
    }
    const nlohmann::json leftOut = row.value("leftOut", nlohmann::json(0));
    const nlohmann::json injected = row.value("injected", nlohmann::json(false));
    if (!IsCount(leftOut) || !injected.is_boolean()) {
        return "a leftOut or injected of " + name + " that is no count or no true or false";
    }
    const nlohmann::json none = {{"sha256", ""}, {"version", ""}};
    const nlohmann::json plugin = row.value("plugin", none);
    if (!plugin.is_object() || plugin.size() != 2 || !plugin.contains("sha256") ||
        !plugin.contains("version") || !plugin["sha256"].is_string() || !plugin["version"].is_string() ||
        (plugin["sha256"] != "" && !IsSha256Text(plugin["sha256"]))) {
        return "a plugin of " + name + " that is not {\"sha256\", \"version\"} as a batch writes it";
    }
    checked.update({{"reason", reason},
                    {"account", account},
                    {"leftOut", leftOut},
                    {"injected", injected},
                    {"startedUtc", startedUtc},
                    {"plugin", plugin}});
    return "";
}

// The row of a shard's index as a batch writes it, rebuilt from its checked members; empty text,
// else what is wrong with it.
std::string CheckedRow(const nlohmann::json &row, nlohmann::json &checked) {
    if (!row.is_object()) {
        return "a row that is no object";
    }
    const nlohmann::json phone = row.value("phone", nlohmann::json());
    if (!phone.is_string()) {
        return "a row whose phone is no text";
    }
    const std::string name = phone.get<std::string>();
    const std::string nameProblem = PhoneNameProblem(name);
    if (!nameProblem.empty()) {
        return "a phone that " + nameProblem;
    }
    const nlohmann::json result = row.value("result", nlohmann::json());
    if (result != RESTORED && result != NOT_RESTORED && result != NOT_SET_UP) {
        return "a result of " + name + " that is none of \"restored\", \"not restored\", \"not set up\"";
    }
    const nlohmann::json problem = row.value("problem", nlohmann::json());
    const nlohmann::json page = row.value("page", nlohmann::json());
    if (!problem.is_string() || !page.is_string() || (page != "" && page != "phones/" + name + ".html")) {
        return "a problem or page of " + name + " that is not what a batch writes";
    }
    const nlohmann::json users = row.value("users", nlohmann::json());
    const nlohmann::json events = row.value("events", nlohmann::json());
    if (!users.is_object() || !events.is_object() || !std::all_of(users.begin(), users.end(), IsCount) ||
        !std::all_of(events.begin(), events.end(), IsCount) ||
        !std::all_of(std::begin(USER_DECISIONS), std::end(USER_DECISIONS),
                     [&users](const char *decision) { return users.contains(decision); })) {
        return "users or events of " + name + " that are not counts";
    }
    if (!IsDuration(row.value("timeMs", nlohmann::json()))) {
        return "a timeMs of " + name + " that is no duration";
    }
    checked = {{"phone", name},  {"result", result}, {"problem", problem},     {"page", page},
               {"users", users}, {"events", events}, {"timeMs", row["timeMs"]}};
    return CheckedRunFacts(row, name, checked);
}

// A shard's index, checked member by member; empty text, else one sentence naming the file.
std::string ReadShardIndex(const ShardFolder &shard, nlohmann::json &index) {
    const std::string path = shard.path + "/index.json";
    std::string text;
    std::string error;
    const FolderFileRead read =
        ReadFolderFile(shard.dir.Get(), "index.json", path, MAX_INDEX_BYTES, &text, MERGE, error);
    if (read == FolderFileRead::REFUSED) {
        return error;
    }
    index = read == FolderFileRead::READ ? nlohmann::json::parse(text, nullptr, false) : nlohmann::json();
    if (!index.is_object() || !index.contains("phones") || !index["phones"].is_array()) {
        return shard.path + " holds no batch index (index.json) that can be read.";
    }
    Shard parsed;
    std::string wrong;
    if (index.contains("shard") && (!index["shard"].is_string() || !ParseShard(index["shard"], parsed))) {
        wrong = "a shard that is no K/N with 1 <= K <= N <= " + std::to_string(MAX_SHARDS);
    } else if (index.contains("elapsedMs") && !IsDuration(index["elapsedMs"])) {
        wrong = "an elapsedMs that is no duration";
    }
    for (auto &row : index["phones"]) {
        nlohmann::json checked;
        if (wrong.empty()) {
            wrong = CheckedRow(row, checked);
            row = std::move(checked);
        }
    }
    return wrong.empty() ? "" : path + " is malformed: it has " + wrong + ".";
}

}  // namespace

std::string MergeIndexes(const std::string &outDir, const std::vector<std::string> &shardDirs,
                         nlohmann::json &merged, std::string &warning) {
    // Every index and phone file is read and checked before anything is written, so that a refused
    // merge leaves `outDir` as it was.
    std::vector<ShardFolder> shards;
    std::vector<nlohmann::json> rows;
    std::vector<size_t> rowShards;
    std::set<std::string> phones;
    std::set<unsigned> shardsSeen;
    std::set<unsigned> shardCounts;
    double elapsedMs = 0;
    for (const std::string &dir : shardDirs) {
        ShardFolder shard{dir, UniqueFd(open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)), UniqueFd()};
        if (!shard.dir.Valid()) {
            return dir + " holds no batch index (index.json) that can be read.";
        }
        shard.phones.Reset(
            openat(shard.dir.Get(), "phones", O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
        if (!shard.phones.Valid() && errno != ENOENT) {
            return "could not read " + dir + "/phones: " + std::strerror(errno) +
                   "; a merge reads no folder " + "through a link.";
        }
        nlohmann::json index;
        std::string error = ReadShardIndex(shard, index);
        if (!error.empty()) {
            return error;
        }
        Shard parsed;
        if (index.contains("shard") && ParseShard(index["shard"], parsed)) {
            shardsSeen.insert(parsed.index);
            shardCounts.insert(parsed.count);
        }
        elapsedMs = std::max(elapsedMs, index.value("elapsedMs", 0.0));
        for (auto &row : index["phones"]) {
            const std::string phone = row["phone"];
            if (!phones.insert(phone).second) {
                return "the phone " + phone + " is in more than one of the indexes; merge each shard once.";
            }
            for (const char *extension : PHONE_FILE_EXTENSIONS) {
                if (shard.phones.Valid() &&
                    ReadFolderFile(shard.phones.Get(), phone + extension, PhoneFile(dir, phone, extension),
                                   MAX_PHONE_FILE_BYTES, nullptr, MERGE, error) == FolderFileRead::REFUSED) {
                    return error;
                }
            }
            rows.push_back(std::move(row));
            rowShards.push_back(shards.size());
        }
        shards.push_back(std::move(shard));
    }
    if (shardCounts.size() > 1) {
        return "the indexes come from shards cut into different numbers of shares.";
    }
    if (shardCounts.size() == 1) {
        // Named up to a few; a campaign of thousands of shares would otherwise fill the terminal.
        const unsigned count = *shardCounts.begin();
        const size_t missing = count - shardsSeen.size();
        std::string named;
        for (unsigned k = 1, shown = 0; k <= count && shown < MAX_MISSING_SHOWN; ++k) {
            if (shardsSeen.count(k) == 0) {
                named += (named.empty() ? "" : ", ") + ShardText({k, count});
                ++shown;
            }
        }
        if (missing > 0) {
            warning =
                "the merged index lacks shard " + named +
                (missing > MAX_MISSING_SHOWN ? " and " + std::to_string(missing - MAX_MISSING_SHOWN) + " more"
                                             : "") +
                ".";
        }
    }
    std::string error = MakeOutFolders(outDir);
    for (size_t i = 0; i < rows.size() && error.empty(); ++i) {
        const ShardFolder &shard = shards[rowShards[i]];
        const std::string phone = rows[i]["phone"];
        for (const char *extension : PHONE_FILE_EXTENSIONS) {
            std::string content;
            if (error.empty() && shard.phones.Valid() &&
                ReadFolderFile(shard.phones.Get(), phone + extension, PhoneFile(shard.path, phone, extension),
                               MAX_PHONE_FILE_BYTES, &content, MERGE, error) == FolderFileRead::READ) {
                error = WriteOwnerOnlyFile(PhoneFile(outDir, phone, extension), content);
            }
        }
    }
    if (!error.empty()) {
        return error;
    }
    merged = BuildIndex(std::move(rows), std::nullopt, elapsedMs);
    return WriteIndex(outDir, merged);
}

}  // namespace Zarvo::Host

#include "batch_index.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <set>
#include <sstream>

#include "owner_only_file.h"
#include "view_page.h"

namespace Zarvo::Host {
namespace {

const char *const DECISIONS[] = {"updated", "created", "existed", "skipped", "failed"};
const char *const PHONE_FILE_EXTENSIONS[] = {".json", ".html", ".txt"};

bool ReadText(const std::string &path, std::string &content) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    content = text.str();
    return static_cast<bool>(in);
}

nlohmann::json ReadJson(const std::string &path) {
    std::string text;
    return ReadText(path, text) ? nlohmann::json::parse(text, nullptr, false) : nlohmann::json();
}

bool IsFile(const std::string &path) {
    struct stat info {};
    return stat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode);
}

int ResultRank(const nlohmann::json &row) {
    const std::string result = row.value("result", "");
    return result == NOT_SET_UP ? 0 : result == NOT_RESTORED ? 1 : 2;
}

}  // namespace

std::string PhoneFile(const std::string &outDir, const std::string &phone, const std::string &extension) {
    return outDir + "/phones/" + phone + extension;
}

std::string MakeOutFolders(const std::string &outDir) {
    for (const std::string &dir : {outDir, outDir + "/phones"}) {
        if (mkdir(dir.c_str(), 0700) != 0 && errno != EEXIST) {
            return "could not make " + dir + ": " + std::strerror(errno) + ".";
        }
    }
    return "";
}

nlohmann::json PhoneRow(const std::string &outDir, const std::string &phone, int exitStatus,
                        const std::string &problem, double wallMs) {
    nlohmann::json users = nlohmann::json::object();
    for (const char *decision : DECISIONS) {
        users[decision] = 0;
    }
    nlohmann::json row = {{"phone", phone},  {"result", NOT_SET_UP}, {"problem", problem},
                          {"page", ""},      {"users", users},       {"events", nlohmann::json::object()},
                          {"timeMs", wallMs}};
    if (exitStatus != 0 && exitStatus != 1) {
        return row;
    }
    const nlohmann::json report = ReadJson(PhoneFile(outDir, phone, ".json"));
    if (!report.is_object() || !report.contains("result") || !report["result"].is_boolean()) {
        row["problem"] = "the runner wrote no report that can be read";
        return row;
    }
    row["result"] = report["result"].get<bool>() ? RESTORED : NOT_RESTORED;
    for (const auto &user : report.value("users", nlohmann::json::array())) {
        const std::string decision = user.value("decision", "");
        if (row["users"].contains(decision)) {
            row["users"][decision] = row["users"][decision].get<int>() + 1;
        }
    }
    for (const auto &event : report.value("events", nlohmann::json::array())) {
        const nlohmann::json params = event.value("params", nlohmann::json::object());
        const std::string type = params.value("ERROR_TYPE", event.value("name", "?"));
        row["events"][type] = row["events"].value(type, 0) + 1;
    }
    const nlohmann::json elapsed = report.value("elapsedMs", nlohmann::json::object());
    row["timeMs"] = elapsed.value("total", wallMs);
    if (IsFile(PhoneFile(outDir, phone, ".html"))) {
        row["page"] = "phones/" + phone + ".html";
    }
    return row;
}

nlohmann::json BuildIndex(std::vector<nlohmann::json> rows, const std::optional<Shard> &shard,
                          double elapsedMs) {
    std::sort(rows.begin(), rows.end(), [](const nlohmann::json &a, const nlohmann::json &b) {
        return std::make_pair(ResultRank(a), a.value("phone", "")) <
               std::make_pair(ResultRank(b), b.value("phone", ""));
    });
    nlohmann::json totals = {{"phones", rows.size()}, {"restored", 0}, {"notRestored", 0}, {"notSetUp", 0}};
    for (const auto &row : rows) {
        const int rank = ResultRank(row);
        const char *member = rank == 0 ? "notSetUp" : rank == 1 ? "notRestored" : "restored";
        totals[member] = totals[member].get<int>() + 1;
    }
    nlohmann::json index = {{"phones", rows}, {"totals", totals}, {"elapsedMs", elapsedMs}};
    if (shard) {
        index["shard"] = ShardText(*shard);
    }
    return index;
}

int IndexExitStatus(const nlohmann::json &index) {
    const nlohmann::json &totals = index["totals"];
    return totals.value("notSetUp", 0) > 0 ? 2 : totals.value("notRestored", 0) > 0 ? 1 : 0;
}

std::string WriteIndex(const std::string &outDir, const nlohmann::json &index) {
    std::string error = WriteOwnerOnlyFile(
        outDir + "/index.json", index.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) + "\n");
    return error.empty() ? WriteOwnerOnlyFile(outDir + "/index.html", IndexPage(index)) : error;
}

std::string MergeIndexes(const std::string &outDir, const std::vector<std::string> &shardDirs,
                         nlohmann::json &merged, std::string &warning) {
    // Every index is read and checked before anything is written, so that a refused merge
    // leaves `outDir` as it was.
    std::vector<nlohmann::json> rows;
    std::vector<std::string> rowDirs;
    std::set<std::string> phones;
    std::set<unsigned> shardsSeen;
    std::set<unsigned> shardCounts;
    double elapsedMs = 0;
    for (const std::string &dir : shardDirs) {
        const nlohmann::json index = ReadJson(dir + "/index.json");
        if (!index.is_object() || !index.contains("phones") || !index["phones"].is_array()) {
            return dir + " holds no batch index (index.json) that can be read.";
        }
        Shard shard;
        if (index.contains("shard") && index["shard"].is_string() && ParseShard(index["shard"], shard)) {
            shardsSeen.insert(shard.index);
            shardCounts.insert(shard.count);
        }
        elapsedMs = std::max(elapsedMs, index.value("elapsedMs", 0.0));
        for (const auto &row : index["phones"]) {
            const std::string phone = row.value("phone", "");
            if (phone.empty() || phone.find('/') != std::string::npos || phone[0] == '.') {
                return dir + "/index.json names a phone that is no plain file name.";
            }
            if (!phones.insert(phone).second) {
                return "the phone " + phone + " is in more than one of the indexes; merge each shard once.";
            }
            rows.push_back(row);
            rowDirs.push_back(dir);
        }
    }
    if (shardCounts.size() > 1) {
        return "the indexes come from shards cut into different numbers of shares.";
    }
    if (shardCounts.size() == 1) {
        std::string missing;
        for (unsigned k = 1; k <= *shardCounts.begin(); ++k) {
            if (shardsSeen.count(k) == 0) {
                missing += (missing.empty() ? "" : ", ") + ShardText({k, *shardCounts.begin()});
            }
        }
        if (!missing.empty()) {
            warning = "the merged index lacks shard " + missing + ".";
        }
    }
    std::string error = MakeOutFolders(outDir);
    for (size_t i = 0; i < rows.size() && error.empty(); ++i) {
        const std::string phone = rows[i].value("phone", "");
        for (const char *extension : PHONE_FILE_EXTENSIONS) {
            std::string content;
            if (error.empty() && ReadText(PhoneFile(rowDirs[i], phone, extension), content)) {
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

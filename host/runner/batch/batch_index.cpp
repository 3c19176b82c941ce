#include "batch_index.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <sstream>

#include "owner_only_file.h"
#include "support/printable.h"
#include "view_page.h"

namespace Zarvo::Host {

using Support::Printable;
namespace {

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

// The text at `pointer` of a report, or empty when it holds none.
std::string TextAt(const nlohmann::json &report, const char *pointer) {
    const nlohmann::json::json_pointer at(pointer);
    return report.contains(at) && report[at].is_string() ? report[at].get<std::string>() : "";
}

// What the row says about the run beside its result: why, the account's fate, what was left out,
// whether faults were injected, when and with which plug-in build it ran.
void AddRunFacts(const nlohmann::json &report, nlohmann::json &row) {
    row["reason"] = TextAt(report, "/verdict/sentence");
    row["account"] = TextAt(report, "/accountOutcome/state");
    const nlohmann::json::json_pointer leftOut("/leftOut");
    row["leftOut"] = report.contains(leftOut) && report[leftOut].is_array() ? report[leftOut].size() : 0;
    const nlohmann::json::json_pointer injected("/context/injected");
    row["injected"] =
        report.contains(injected) && report[injected].is_boolean() && report[injected].get<bool>();
    row["startedUtc"] = TextAt(report, "/context/startedUtc");
    row["plugin"] = {{"sha256", TextAt(report, "/context/plugin/sha256")},
                     {"version", TextAt(report, "/context/plugin/version")}};
}

// When the campaign started (its first phone, UTC) and the plug-in builds its phones ran with.
nlohmann::json Campaign(const std::vector<nlohmann::json> &rows) {
    std::string started;
    nlohmann::json plugins = nlohmann::json::array();
    for (const auto &row : rows) {
        const std::string at = row.value("startedUtc", "");
        if (!at.empty() && (started.empty() || at < started)) {
            started = at;
        }
        const nlohmann::json plugin = row.value("plugin", nlohmann::json());
        if (plugin.is_object() && plugin.value("sha256", "") != "" &&
            std::find(plugins.begin(), plugins.end(), plugin) == plugins.end()) {
            plugins.push_back(plugin);
        }
    }
    return {{"startedUtc", started}, {"plugins", plugins}};
}

int ResultRank(const nlohmann::json &row) {
    const std::string result = row.value("result", "");
    return result == NOT_SET_UP ? 0 : result == NOT_RESTORED ? 1 : 2;
}

}  // namespace

std::string PhoneNameProblem(const std::string &name) {
    if (name.empty() || name[0] == '.' || name.find('/') != std::string::npos) {
        return "is no plain file name";
    }
    if (Printable(name) != name) {
        return "holds a control character";
    }
    try {
        (void)nlohmann::json(name).dump();
    } catch (const nlohmann::json::type_error &) {
        return "is not UTF-8";
    }
    return "";
}

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
    for (const char *decision : USER_DECISIONS) {
        users[decision] = 0;
    }
    nlohmann::json row = {{"phone", phone},  {"result", NOT_SET_UP}, {"problem", problem},
                          {"page", ""},      {"users", users},       {"events", nlohmann::json::object()},
                          {"timeMs", wallMs}};
    AddRunFacts(nlohmann::json::object(), row);
    if (exitStatus != 0 && exitStatus != 1) {
        return row;
    }
    const nlohmann::json report = ReadJson(PhoneFile(outDir, phone, ".json"));
    if (!report.is_object() || !report.contains("result") || !report["result"].is_boolean()) {
        row["problem"] = "the runner wrote no report that can be read";
        return row;
    }
    row["result"] = report["result"].get<bool>() ? RESTORED : NOT_RESTORED;
    AddRunFacts(report, row);
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
    nlohmann::json index = {
        {"phones", rows}, {"totals", totals}, {"elapsedMs", elapsedMs}, {"campaign", Campaign(rows)}};
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

}  // namespace Zarvo::Host

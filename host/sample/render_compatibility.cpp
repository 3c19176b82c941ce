// Renders the compatibility table (docs/compatibility.md) from the runner's JSON reports of the
// sample phone of each Android release. Only what does not change from run to run is taken: no
// timings, paths or digests.
#include <algorithm>
#include <fstream>
#include <iostream>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "command_line.h"

namespace {

using nlohmann::json;
using Zarvo::Tools::EXIT_USAGE;
using Zarvo::Tools::Refuse;

constexpr char TOOL[] = "render_compatibility";

struct ReleaseRun {
    std::string release;
    json report;
};

// A value the table needs, or a sentence naming what is missing.
const json &Member(const json &object, const std::string &key, const std::string &where) {
    if (!object.is_object() || !object.contains(key)) {
        throw std::runtime_error(where + " has no \"" + key + "\"");
    }
    return object.at(key);
}

std::string Text(const json &object, const std::string &key, const std::string &where) {
    const json &value = Member(object, key, where);
    if (!value.is_string()) {
        throw std::runtime_error(where + "." + key + " is not a text");
    }
    return value.get<std::string>();
}

// Text that stays inside one table cell.
std::string Cell(const std::string &text) {
    std::string cell;
    for (char c : text) {
        if (c == '|') {
            cell += "\\|";
        } else if (c == '\n' || c == '\r') {
            cell += ' ';
        } else {
            cell += c;
        }
    }
    return cell;
}

std::string CodeText(const json &code, const std::string &where) {
    return "`" + Text(code, "name", where) + "` " + Text(code, "hex", where);
}

// "text XML, version 7, no type attribute": the phone as the runner read it.
std::string PhoneCell(const json &report, const std::string &where) {
    const json &list = Member(report, "userList", where);
    std::string cell = Text(list, "form", where + ".userList") + ", version " +
                       Member(list, "version", where + ".userList").dump();
    bool typed = false;
    bool untyped = false;
    for (const json &user : Member(report, "users", where)) {
        const json &type =
            Member(Member(user, "source", where + ".users[]"), "type", where + ".users[].source");
        (type.is_string() ? typed : untyped) = true;
    }
    cell += typed && untyped ? ", some users without type" : untyped ? ", no type attribute" : ", typed";
    return Cell(cell);
}

// How the account database came: in WAL mode or with a rollback journal beside it.
std::string DatabaseCell(const json &report, const std::string &where) {
    std::string companion = "no companion file";
    for (const json &file : Member(report, "laidFiles", where)) {
        const std::string to = Text(file, "to", where + ".laidFiles[]");
        const auto endsWith = [&to](const std::string &end) {
            return to.size() >= end.size() && to.compare(to.size() - end.size(), end.size(), end) == 0;
        };
        if (endsWith("accounts_ce.db-wal")) {
            companion = "WAL";
        } else if (endsWith("accounts_ce.db-journal") && companion != "WAL") {
            companion = "rollback journal";
        }
    }
    return companion;
}

std::string UsersCell(const json &report, const std::string &where) {
    std::string cell;
    for (const json &user : Member(report, "users", where)) {
        cell += (cell.empty() ? "" : "<br>") + Member(user, "sourceId", where + ".users[]").dump() + ": " +
                Text(user, "decision", where + ".users[]");
    }
    return cell.empty() ? "none" : Cell(cell);
}

// Fault events grouped by name and code, in the order they first came, with their count.
std::string EventsCell(const json &report, const std::string &where) {
    std::vector<std::pair<std::string, int>> groups;
    for (const json &event : Member(report, "events", where)) {
        const json &code = Member(event, "code", where + ".events[]");
        const std::string text = "`" + Text(event, "name", where + ".events[]") + "`" +
                                 (code.is_null() ? "" : " " + CodeText(code, where + ".events[].code"));
        auto found = std::find_if(groups.begin(), groups.end(),
                                  [&](const auto &group) { return group.first == text; });
        if (found == groups.end()) {
            groups.emplace_back(text, 1);
        } else {
            ++found->second;
        }
    }
    std::string cell;
    for (const auto &[text, count] : groups) {
        cell += (cell.empty() ? "" : "<br>") + (count > 1 ? std::to_string(count) + "× " : "") + text;
    }
    return cell.empty() ? "none" : Cell(cell);
}

std::string CodesCell(const json &report, const std::string &where) {
    std::string cell;
    for (const json &code : Member(report, "codes", where)) {
        cell += (cell.empty() ? "" : "<br>") + CodeText(code, where + ".codes[]") + ": " +
                Text(code, "meaning", where + ".codes[]");
    }
    return cell.empty() ? "none" : Cell(cell);
}

std::string Row(const ReleaseRun &run) {
    const std::string where = "the report of Android " + run.release;
    const json &report = run.report;
    const json &verdict = Member(report, "verdict", where);
    const json &account = Member(report, "accountOutcome", where);
    const json &restoredValue = Member(verdict, "restored", where + ".verdict");
    if (!restoredValue.is_boolean()) {
        throw std::runtime_error(where + ".verdict.restored is not true or false");
    }
    const bool restored = restoredValue.get<bool>();
    return "| " + run.release + " | " + PhoneCell(report, where) + " | " + DatabaseCell(report, where) +
           " | " + (restored ? "restored" : "**not restored**") + " | " +
           Cell(Text(account, "state", where + ".accountOutcome")) + " | " + UsersCell(report, where) +
           " | " + EventsCell(report, where) + " | " + CodesCell(report, where) + " | " +
           Cell(Text(verdict, "sentence", where + ".verdict")) + " |\n";
}

// What became of the account and of each user, in the runner's words.
std::string Details(const ReleaseRun &run) {
    const std::string where = "the report of Android " + run.release;
    const json &report = run.report;
    const json &account = Member(report, "accountOutcome", where);
    std::string text = "### Android " + run.release + "\n\n- Account: " + Text(account, "state", where) +
                       " — " + Text(account, "reason", where + ".accountOutcome") + ".\n";
    for (const json &user : Member(report, "users", where)) {
        const std::string at = where + ".users[]";
        text += "- User " + Member(user, "sourceId", at).dump() + ": " + Text(user, "decision", at) + " — " +
                Text(user, "explanation", at) + "\n";
    }
    return text + "\n";
}

std::string Render(const std::vector<ReleaseRun> &runs) {
    std::string page =
        "# Which phones migrate\n\n"
        "<!-- Generated by scripts/compatibility from runs of restore_runner; do not edit. -->\n\n"
        "Each row is a run of `restore_runner --report` on `make_sample_phone --android N`: the sample\n"
        "phone (the maker's account among a mail and a messenger account; the owner, a secondary user\n"
        "with a photo, a guest and a work profile) in the shape Android N leaves it (`sample-phone.md`).\n"
        "Regenerate with `cmake --build build --target compatibility_table`; the test\n"
        "`compatibility_table_is_current` fails when this page differs from what the runs give.\n\n"
        "| Android | user files | account database | result | account | users | fault events | codes | why "
        "|\n"
        "|---|---|---|---|---|---|---|---|---|\n";
    for (const auto &run : runs) {
        page += Row(run);
    }
    page += "\n## What became of the account and of each user\n\n";
    for (const auto &run : runs) {
        page += Details(run);
    }
    page.pop_back();
    return page;
}

}  // namespace

int main(int argc, char *argv[]) {
    CLI::App app{"Renders the compatibility table from the runner's reports of each Android release."};
    Zarvo::Tools::DescribeTool(app, TOOL,
                               "  render_compatibility 7=report7.json 8=report8.json > compatibility.md\n");
    std::vector<std::string> pairs;
    app.add_option("runs", pairs, "RELEASE=REPORT: the runner's JSON report of that release's phone")
        ->required();
    if (std::optional<int> status = Zarvo::Tools::ParseCommandLine(app, argc, argv)) {
        return *status;
    }
    std::vector<ReleaseRun> runs;
    for (const std::string &pair : pairs) {
        const size_t equals = pair.find('=');
        if (equals == std::string::npos || equals == 0) {
            return Refuse(TOOL, "\"" + pair + "\" is not RELEASE=REPORT.", EXIT_USAGE);
        }
        const std::string path = pair.substr(equals + 1);
        std::ifstream in(path);
        if (!in) {
            return Refuse(TOOL, "cannot open the report " + path + ".", EXIT_USAGE);
        }
        json report = json::parse(in, nullptr, false);
        if (report.is_discarded()) {
            return Refuse(TOOL, "the report " + path + " is not valid JSON.", EXIT_USAGE);
        }
        runs.push_back({pair.substr(0, equals), std::move(report)});
    }
    try {
        std::cout << Render(runs);
    } catch (const std::exception &e) {
        return Refuse(TOOL, std::string(e.what()) + ".", EXIT_USAGE);
    }
    return std::cout.flush() ? 0 : 1;
}

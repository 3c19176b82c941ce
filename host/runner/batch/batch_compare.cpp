#include "batch_compare.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <set>

#include "batch_index.h"
#include "html_page.h"
#include "owner_only_file.h"
#include "page_assets.h"
#include "support/printable.h"

namespace Zarvo::Host {

using Support::Printable;
namespace {

using Json = nlohmann::json;

constexpr char ABSENT[] = "absent";

std::string Lines(const std::vector<std::string> &lines) {
    std::string text;
    for (const std::string &line : lines) {
        text += (text.empty() ? "" : "\n") + line;
    }
    return text.empty() ? "none" : text;
}

std::string Fate(const ComparedUser *user) {
    if (user == nullptr) {
        return ABSENT;
    }
    return user->localId >= 0 ? user->decision + " as OS account " + std::to_string(user->localId)
                              : user->decision;
}

// A user whose OS account holds it after the run; "existed" counts, as the run counts it a success.
bool Carried(const ComparedUser *user) {
    return user != nullptr && (user->decision == "created" || user->decision == "updated" ||
                               user->decision == "existed" || user->decision == "restored");
}

const ComparedUser *FindUser(const ComparedPhone &phone, int64_t sourceId) {
    for (const ComparedUser &user : phone.users) {
        if (user.sourceId == sourceId) {
            return &user;
        }
    }
    return nullptr;
}

Json PhoneJson(const ComparedPhone *phone) {
    if (phone == nullptr) {
        return nullptr;
    }
    Json users = Json::array();
    for (const ComparedUser &user : phone->users) {
        users.push_back({{"sourceId", user.sourceId},
                         {"decision", user.decision},
                         {"localId", user.localId},
                         {"explanation", user.explanation}});
    }
    return {{"result", phone->result},   {"problem", phone->problem},
            {"verdict", phone->verdict}, {"reasons", phone->reasons},
            {"account", phone->account}, {"handedDigest", phone->handedDigest},
            {"secrets", phone->secrets}, {"users", users},
            {"events", phone->events}};
}

class PhoneDiff {
public:
    PhoneDiff(const ComparedPhone *oldPhone, const ComparedPhone *newPhone)
        : old_(oldPhone), new_(newPhone) {}

    Json Compare() {
        const std::string oldResult = old_ != nullptr ? old_->result : ABSENT;
        const std::string newResult = new_ != nullptr ? new_->result : ABSENT;
        Change("result", oldResult, newResult);
        if (oldResult == RESTORED && newResult != RESTORED) {
            losses_.push_back("Restored in OLD, " + newResult + " in NEW.");
        }
        if (old_ != nullptr && new_ != nullptr) {
            Change("why not set up", old_->problem, new_->problem);
            Change("verdict", old_->verdict, new_->verdict);
            Change("reasons", Lines(old_->reasons), Lines(new_->reasons));
            Change("account", old_->account, new_->account);
            Change("secrets in the report", old_->secrets, new_->secrets);
            Change("handed file's SHA-256", Digest(*old_), Digest(*new_));
            CompareUsers();
            Change("fault events", Lines(old_->events), Lines(new_->events));
        }
        return {{"phone", ""},         {"worse", !losses_.empty()}, {"losses", losses_},
                {"changes", changes_}, {"old", PhoneJson(old_)},    {"new", PhoneJson(new_)}};
    }

private:
    static std::string Digest(const ComparedPhone &phone) {
        return phone.handedDigest.empty() ? "none" : phone.handedDigest;
    }

    void Change(const std::string &what, const std::string &oldText, const std::string &newText) {
        if (oldText != newText) {
            changes_.push_back({{"what", what}, {"old", oldText}, {"new", newText}});
        }
    }

    void CompareUsers() {
        std::set<int64_t> ids;
        for (const ComparedPhone *phone : {old_, new_}) {
            for (const ComparedUser &user : phone->users) {
                ids.insert(user.sourceId);
            }
        }
        for (const int64_t id : ids) {
            const ComparedUser *oldUser = FindUser(*old_, id);
            const ComparedUser *newUser = FindUser(*new_, id);
            const std::string label = "source user " + std::to_string(id);
            Change(label, Fate(oldUser), Fate(newUser));
            Change(label + ": why", oldUser != nullptr ? oldUser->explanation : "",
                   newUser != nullptr ? newUser->explanation : "");
            if (Carried(oldUser) && !Carried(newUser)) {
                losses_.push_back("Source user " + std::to_string(id) + ": " + Fate(oldUser) + " in OLD, " +
                                  Fate(newUser) + " in NEW.");
            }
        }
    }

    const ComparedPhone *old_;
    const ComparedPhone *new_;
    Json changes_ = Json::array();
    std::vector<std::string> losses_;
};

const ComparedPhone *Find(const ComparedSide &side, const std::string &name) {
    const auto found = side.phones.find(name);
    return found == side.phones.end() ? nullptr : &found->second;
}

// What the digests were taken of: the reports hold the handed file with its secrets masked unless
// the run revealed them.
std::string DigestNote(const ComparedSide &oldSide, const ComparedSide &newSide) {
    std::set<std::string> forms;
    for (const ComparedSide *side : {&oldSide, &newSide}) {
        for (const auto &[name, phone] : side->phones) {
            if (!phone.handedDigest.empty()) {
                forms.insert(phone.secrets);
            }
        }
    }
    const std::string of = "SHA-256 of the handed account file's content as the reports hold it";
    if (forms.size() > 1) {
        return of +
               ": with its secrets masked in some reports and in clear in others, so those digests differ.";
    }
    if (forms.size() == 1 && *forms.begin() == "shown") {
        return of + ", secrets in clear.";
    }
    return of +
           ": the auth token and credential extras masked (their first characters and length), the rest as "
           "handed.";
}

}  // namespace

Json CompareSides(const ComparedSide &oldSide, const ComparedSide &newSide) {
    std::set<std::string> names;
    for (const ComparedSide *side : {&oldSide, &newSide}) {
        for (const auto &[name, phone] : side->phones) {
            names.insert(name);
        }
    }
    std::vector<Json> changed;
    size_t worse = 0;
    for (const std::string &name : names) {
        Json phone = PhoneDiff(Find(oldSide, name), Find(newSide, name)).Compare();
        if (!phone["changes"].empty()) {
            phone["phone"] = name;
            worse += phone["worse"].get<bool>() ? 1 : 0;
            changed.push_back(std::move(phone));
        }
    }
    std::stable_sort(changed.begin(), changed.end(), [](const Json &a, const Json &b) {
        return a["worse"].get<bool>() && !b["worse"].get<bool>();
    });
    return {{"old", oldSide.path},
            {"new", newSide.path},
            {"totals",
             {{"phones", names.size()},
              {"unchanged", names.size() - changed.size()},
              {"changed", changed.size()},
              {"worse", worse}}},
            {"handedDigest", DigestNote(oldSide, newSide)},
            {"phones", changed}};
}

int CompareExitStatus(const Json &comparison) {
    return comparison["totals"]["worse"].get<size_t>() > 0 ? 1 : 0;
}

void WriteCompareSummary(const Json &comparison, std::ostream &out) {
    const Json &totals = comparison["totals"];
    out << Printable("Compared " + comparison["old"].get<std::string>() + " (OLD) with " +
                     comparison["new"].get<std::string>() + " (NEW): ")
        << totals["phones"] << (totals["phones"] == 1 ? " phone, " : " phones, ") << totals["unchanged"]
        << " unchanged, " << totals["changed"] << " changed, " << totals["worse"] << " worse.\n";
    for (const Json &phone : comparison["phones"]) {
        out << Printable(phone["phone"].get<std::string>())
            << (phone["worse"].get<bool>() ? ": worse\n" : ": changed\n");
        for (const Json &loss : phone["losses"]) {
            out << "  " << Printable(loss.get<std::string>()) << "\n";
        }
        for (const Json &change : phone["changes"]) {
            std::string line = change["what"].get<std::string>() + ": " + change["old"].get<std::string>() +
                               " -> " + change["new"].get<std::string>();
            std::replace(line.begin(), line.end(), '\n', ';');
            out << "    " << Printable(line) << "\n";
        }
    }
}

std::string ComparePage(const Json &comparison) {
    return SelfContainedPage("Comparison of two runs", PAGE_STYLE,
                             std::string(PAGE_COMMON_SCRIPT) + COMPARE_PAGE_SCRIPT, comparison);
}

int CompareRuns(const std::string &oldPath, const std::string &newPath, const std::string &outDir,
                std::ostream &summary, std::string &error) {
    ComparedSide oldSide;
    ComparedSide newSide;
    error = ReadComparedSide(oldPath, oldSide);
    if (error.empty()) {
        error = ReadComparedSide(newPath, newSide);
    }
    if (error.empty() && oldSide.batch != newSide.batch) {
        error = "compare two batch output folders or two reports, not one of each.";
    }
    if (!error.empty()) {
        return 2;
    }
    if (!oldSide.batch) {
        // Two reports of one phone, whatever their files are called.
        auto phone = oldSide.phones.extract(oldSide.phones.begin());
        phone.key() = newSide.phones.begin()->first;
        oldSide.phones.insert(std::move(phone));
    }
    const Json comparison = CompareSides(oldSide, newSide);
    WriteCompareSummary(comparison, summary);
    if (!outDir.empty()) {
        if (mkdir(outDir.c_str(), 0700) != 0 && errno != EEXIST) {
            error = "could not make " + outDir + ": " + std::strerror(errno) + ".";
            return 2;
        }
        error = WriteOwnerOnlyFile(outDir + "/compare.json",
                                   comparison.dump(2, ' ', false, Json::error_handler_t::replace) + "\n");
        if (error.empty()) {
            error = WriteOwnerOnlyFile(outDir + "/compare.html", ComparePage(comparison));
        }
        if (!error.empty()) {
            return 2;
        }
    }
    return CompareExitStatus(comparison);
}

}  // namespace Zarvo::Host

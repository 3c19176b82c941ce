#include "migrate_service/fault_plan.h"

#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>

#include "migrate_service/migrate_protocol.h"
#include "support/json_integer.h"

namespace Zarvo::Host {

namespace {
constexpr const char *DEVICE_STATE_KEY = "migrateService";

bool ReadInt32(const nlohmann::json &rule, const char *key, int32_t &value, std::string &error) {
    auto it = rule.find(key);
    if (it != rule.end() && !JsonInteger(*it, value)) {
        error = std::string("\"") + key + "\" must be a 32-bit integer";
        return false;
    }
    return true;
}

bool ParseOperation(const nlohmann::json &rule, FaultRule &out, std::string &error) {
    auto it = rule.find("operation");
    if (it == rule.end() || (it->is_string() && it->get<std::string>() == "ANY")) {
        out.type.reset();
        return true;
    }
    int32_t number = 0;
    if (JsonInteger(*it, number)) {
        out.type = number;
        return true;
    }
    if (it->is_string()) {
        out.type = MigrateOpFromName(it->get<std::string>());
        if (out.type) {
            return true;
        }
    }
    error = "\"operation\" must be an operation name such as \"COPY_ALL_FILE\", a number or \"ANY\"";
    return false;
}

bool ParseAction(const nlohmann::json &rule, FaultRule &out, std::string &error) {
    auto it = rule.find("action");
    std::string action = it != rule.end() && it->is_string() ? it->get<std::string>() : "";
    if (action == "fail") {
        out.action = FaultAction::FAIL;
    } else if (action == "stall") {
        out.action = FaultAction::STALL;
    } else if (action == "drop") {
        out.action = FaultAction::DROP;
    } else {
        error = "\"action\" must be \"fail\", \"stall\" or \"drop\"";
        return false;
    }
    return true;
}

bool ParseRules(const nlohmann::json &description, std::vector<FaultRule> &rules, std::string &error) {
    if (!description.is_object()) {
        error = "the fault description must be a JSON object";
        return false;
    }
    auto faults = description.find("faults");
    if (faults == description.end()) {
        return true;
    }
    if (!faults->is_array()) {
        error = "\"faults\" must be an array";
        return false;
    }
    for (size_t i = 0; i < faults->size(); ++i) {
        const nlohmann::json &item = (*faults)[i];
        FaultRule rule;
        bool ok = item.is_object();
        if (!ok) {
            error = "must be an object";
        }
        ok = ok && ParseOperation(item, rule, error) && ParseAction(item, rule, error) &&
             ReadInt32(item, "result", rule.result, error) &&
             ReadInt32(item, "errCode", rule.errCode, error) &&
             ReadInt32(item, "stallMs", rule.stallMs, error) && ReadInt32(item, "count", rule.count, error);
        if (ok && rule.stallMs < 0) {
            ok = false;
            error = "\"stallMs\" must not be negative";
        }
        if (!ok) {
            error = "fault " + std::to_string(i) + ": " + error;
            return false;
        }
        rules.push_back(rule);
    }
    return true;
}

bool ReadJsonFile(const std::string &path, nlohmann::json &json, std::string &error) {
    std::ifstream in(path);
    if (!in) {
        error = "cannot open " + path;
        return false;
    }
    json = nlohmann::json::parse(in, nullptr, false);
    if (json.is_discarded()) {
        error = path + " is not valid JSON";
        return false;
    }
    return true;
}
}  // namespace

void FaultPlan::Add(const FaultRule &rule) {
    std::lock_guard<std::mutex> lock(mutex_);
    rules_.push_back(rule);
}

void FaultPlan::Replace(std::vector<FaultRule> rules) {
    std::lock_guard<std::mutex> lock(mutex_);
    rules_ = std::move(rules);
}

void FaultPlan::Clear() {
    std::lock_guard<std::mutex> lock(mutex_);
    rules_.clear();
}

std::optional<FaultRule> FaultPlan::Take(int32_t type) {
    std::lock_guard<std::mutex> lock(mutex_);
    for (auto it = rules_.begin(); it != rules_.end(); ++it) {
        if (it->count == 0 || (it->type && *it->type != type)) {
            continue;
        }
        FaultRule taken = *it;
        if (it->count > 0 && --it->count == 0) {
            rules_.erase(it);
        }
        return taken;
    }
    return std::nullopt;
}

std::vector<FaultRule> FaultPlan::Pending() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return rules_;
}

bool ParseFaultDescription(const std::string &jsonText, std::vector<FaultRule> &rules, std::string &error) {
    nlohmann::json json = nlohmann::json::parse(jsonText, nullptr, false);
    if (json.is_discarded()) {
        error = "the fault description is not valid JSON";
        return false;
    }
    return ParseRules(json, rules, error);
}

bool LoadFaultFile(const std::string &path, std::vector<FaultRule> &rules, std::string &error) {
    nlohmann::json json;
    if (!ReadJsonFile(path, json, error)) {
        return false;
    }
    if (!ParseRules(json, rules, error)) {
        error = path + ": " + error;
        return false;
    }
    return true;
}

bool LoadDeviceStateFaults(const std::string &path, std::vector<FaultRule> &rules, std::string &error) {
    nlohmann::json json;
    if (!ReadJsonFile(path, json, error)) {
        return false;
    }
    if (!json.is_object()) {
        error = path + " does not hold a JSON object";
        return false;
    }
    auto it = json.find(DEVICE_STATE_KEY);
    if (it == json.end()) {
        return true;
    }
    if (!ParseRules(*it, rules, error)) {
        error = path + ": \"" + DEVICE_STATE_KEY + "\": " + error;
        return false;
    }
    return true;
}

}  // namespace Zarvo::Host

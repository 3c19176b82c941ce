#ifndef MIGRATE_SERVICE_FAULT_PLAN_H
#define MIGRATE_SERVICE_FAULT_PLAN_H

#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace Zarvo::Host {

enum class FaultAction {
    FAIL,   // answer with the rule's result and errCode without doing the operation
    STALL,  // wait stallMs, then serve the request normally
    DROP,   // close the connection after reading the request, without a reply
};

// Applies to the next `count` requests of one operation (or of any when `type` is empty).
struct FaultRule {
    std::optional<int32_t> type;
    FaultAction action = FaultAction::FAIL;
    int32_t result = -1;
    int32_t errCode = 5;  // EIO
    int32_t stallMs = 0;
    int32_t count = 1;  // a negative count never runs out
};

// The faults still to be injected, shared by every connection.
class FaultPlan {
public:
    void Add(const FaultRule &rule);
    void Replace(std::vector<FaultRule> rules);
    void Clear();
    // The first rule that matches `type` and still has requests left, used up by one.
    std::optional<FaultRule> Take(int32_t type);
    std::vector<FaultRule> Pending() const;

private:
    mutable std::mutex mutex_;
    std::vector<FaultRule> rules_;
};

// Reads a fault description: a JSON object {"faults": [rule, ...]} where a rule is
// {"operation": name or number (absent or "ANY": every operation), "action": "fail" | "stall" |
//  "drop", "result": int, "errCode": int, "stallMs": int, "count": int}. Unknown keys are ignored.
bool ParseFaultDescription(const std::string &jsonText, std::vector<FaultRule> &rules, std::string &error);
// Reads the file as a fault description.
bool LoadFaultFile(const std::string &path, std::vector<FaultRule> &rules, std::string &error);
// Reads the device-state file's top-level "migrateService" key as a fault description; a file
// without that key yields no rules.
bool LoadDeviceStateFaults(const std::string &path, std::vector<FaultRule> &rules, std::string &error);

}  // namespace Zarvo::Host

#endif  // MIGRATE_SERVICE_FAULT_PLAN_H

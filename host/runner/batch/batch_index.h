#ifndef HOST_RUNNER_BATCH_INDEX_H
#define HOST_RUNNER_BATCH_INDEX_H

#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "batch_shard.h"

namespace Zarvo::Host {

// The results a phone of a batch can have, and the batch's exit status for each.
inline constexpr char RESTORED[] = "restored";
inline constexpr char NOT_RESTORED[] = "not restored";
inline constexpr char NOT_SET_UP[] = "not set up";

// The decisions a phone's users are counted by in its row.
inline constexpr const char *USER_DECISIONS[] = {"updated", "created", "existed", "skipped", "failed"};

// Why a batch entry's name cannot name a phone (its files, its row and its page link): empty
// when it can, else what is wrong ("holds a control character").
std::string PhoneNameProblem(const std::string &name);

// Where a batch keeps a phone's files below its --out folder: phones/<name>.json, .html, .txt.
std::string PhoneFile(const std::string &outDir, const std::string &phone, const std::string &extension);

// Makes `outDir` and its phones/ folder (owner-only) when they are not there. Empty text on
// success, else one sentence.
std::string MakeOutFolders(const std::string &outDir);

// A phone's row of the index: from its runner's exit status (-1: it could not be started, or
// ended by a signal) and the report it wrote. `problem` says why a phone could not be set up;
// `reason` (the verdict's sentence), `account` (its outcome's state), `leftOut` (entries not laid),
// `injected` (faults injected), `startedUtc` and `plugin` ({sha256, version}) come from the report.
nlohmann::json PhoneRow(const std::string &outDir, const std::string &phone, int exitStatus,
                        const std::string &problem, double wallMs);

// The index of a batch (index.json): its rows, failed phones first (not set up, then not
// restored, each by name), the totals, and the campaign: when its first phone started (UTC) and
// the plug-in builds its phones ran with.
nlohmann::json BuildIndex(std::vector<nlohmann::json> rows, const std::optional<Shard> &shard,
                          double elapsedMs);

// 0 when every phone restored, 1 when any returned false, 2 when any could not be set up.
int IndexExitStatus(const nlohmann::json &index);

// Writes index.json and index.html into `outDir`. Empty text on success, else one sentence.
std::string WriteIndex(const std::string &outDir, const nlohmann::json &index);

}  // namespace Zarvo::Host

#endif  // HOST_RUNNER_BATCH_INDEX_H

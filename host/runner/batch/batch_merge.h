#ifndef HOST_RUNNER_BATCH_MERGE_H
#define HOST_RUNNER_BATCH_MERGE_H

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace Zarvo::Host {

// Merges the indexes and phone files of several batch folders (the shards of one campaign) into
// `outDir`. A shard's folder is read as a snapshot is: its index and phone files must be regular
// files, never reached through a link, and its index must have the form a batch writes. Empty
// text on success, else one sentence (and `outDir` as it was); a shard that is missing is told in
// `warning`.
std::string MergeIndexes(const std::string &outDir, const std::vector<std::string> &shardDirs,
                         nlohmann::json &merged, std::string &warning);

}  // namespace Zarvo::Host

#endif  // HOST_RUNNER_BATCH_MERGE_H

#ifndef HOST_RUNNER_BATCH_SHARD_H
#define HOST_RUNNER_BATCH_SHARD_H

#include <string>
#include <vector>

namespace Zarvo::Host {

// Share K of N of a batch folder: of its entries sorted by name (byte order), those whose position
// (counted from 0) leaves K-1 when divided by N. The same folder gives every machine the same
// shares, and the N shares together hold every entry once.
struct Shard {
    unsigned index = 1;  // K, from 1
    unsigned count = 1;  // N
};

// The most shares a campaign is cut into: far more machines than one campaign has, and few enough
// that a merge can list the missing ones.
inline constexpr unsigned MAX_SHARDS = 10000;

// Reads "K/N" with 1 <= K <= N <= MAX_SHARDS; false when the text is anything else.
bool ParseShard(const std::string &text, Shard &shard);
std::string ShardText(const Shard &shard);

// The entries of the share, in name order.
std::vector<std::string> ShardEntries(std::vector<std::string> names, const Shard &shard);

}  // namespace Zarvo::Host

#endif  // HOST_RUNNER_BATCH_SHARD_H

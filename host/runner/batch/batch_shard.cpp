#include "batch_shard.h"

#include <algorithm>
#include <charconv>

namespace Zarvo::Host {

bool ParseShard(const std::string &text, Shard &shard) {
    const size_t slash = text.find('/');
    if (slash == std::string::npos) {
        return false;
    }
    unsigned index = 0;
    unsigned count = 0;
    const char *end = text.data() + text.size();
    auto first = std::from_chars(text.data(), text.data() + slash, index);
    auto second = std::from_chars(text.data() + slash + 1, end, count);
    if (first.ec != std::errc() || first.ptr != text.data() + slash || slash == 0 ||
        second.ec != std::errc() || second.ptr != end || slash + 1 == text.size() || index < 1 ||
        index > count || count > MAX_SHARDS) {
        return false;
    }
    shard = {index, count};
    return true;
}

std::string ShardText(const Shard &shard) {
    return std::to_string(shard.index) + "/" + std::to_string(shard.count);
}

std::vector<std::string> ShardEntries(std::vector<std::string> names, const Shard &shard) {
    std::sort(names.begin(), names.end());
    std::vector<std::string> share;
    for (size_t i = 0; i < names.size(); ++i) {
        if (i % shard.count == shard.index - 1) {
            share.push_back(names[i]);
        }
    }
    return share;
}

}  // namespace Zarvo::Host

#include "batch_shard.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using namespace Zarvo::Host;

TEST(BatchShardTest, ReadsOnlyKOfN) {
    struct Case {
        std::string text;
        bool valid;
    } cases[] = {{"1/1", true},  {"2/8", true}, {"8/8", true}, {"0/2", false},  {"3/2", false},
                 {"1/0", false}, {"1/", false}, {"/2", false}, {"1/2x", false}, {"-1/2", false}};
    for (const Case &c : cases) {
        Shard shard;
        EXPECT_EQ(ParseShard(c.text, shard), c.valid) << c.text;
        if (c.valid) {
            EXPECT_EQ(ShardText(shard), c.text);
        }
    }
    EXPECT_EQ(ShardEntries({"d", "b", "a", "e", "c"}, {2, 2}), (std::vector<std::string>{"b", "d"}));
}

}  // namespace

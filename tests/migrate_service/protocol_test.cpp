#include <gtest/gtest.h>

#include <cstring>

#include "migrate_service/migrate_protocol.h"

using namespace Zarvo::Host;

namespace {

TEST(ProtocolTest, DecodeNamesTheFirstUnterminatedFieldInWireOrder) {
    unsigned char buf[REQUEST_LENGTH] = {};
    int32_t type = 7;
    int32_t recurse = 2;
    std::memcpy(buf, &type, 4);
    std::memcpy(buf + 2132, &recurse, 4);
    std::memcpy(buf + 4, "/src", 4);
    std::memset(buf + 2052, 'u', 32);
    std::memset(buf + 1028, 'd', 1024);
    MigrateRequest request;
    std::string bad;
    EXPECT_FALSE(DecodeRequest(buf, request, bad));
    EXPECT_EQ(bad, "dstFilePath");
    EXPECT_EQ(request.type, 7);
    EXPECT_EQ(request.recurseOpt, 2);
    EXPECT_EQ(request.src, "/src");
    EXPECT_EQ(request.dst.size(), 1024u) << "decoding never reads past a field";

    buf[1028 + 1023] = '\0';
    buf[2052 + 31] = '\0';
    bad.clear();
    EXPECT_TRUE(DecodeRequest(buf, request, bad));
    EXPECT_EQ(request.dst.size(), 1023u);
    EXPECT_EQ(request.uid, std::string(31, 'u'));
    EXPECT_TRUE(bad.empty());
}

TEST(ProtocolTest, ReplyIsAHeaderAndNumberedPackages) {
    MigrateReply reply{-1, 28, {"a:1,b", std::string(5000, 'x')}};
    std::string bytes = EncodeReply(reply);
    ASSERT_EQ(bytes.size(), 12u + 2 * 4096u);
    int32_t fields[3];
    std::memcpy(fields, bytes.data(), 12);
    EXPECT_EQ(fields[0], -1);
    EXPECT_EQ(fields[1], 28);
    EXPECT_EQ(fields[2], 2);
    for (int32_t i = 0; i < 2; ++i) {
        int32_t head[2];
        std::memcpy(head, bytes.data() + 12 + i * 4096, 8);
        EXPECT_EQ(head[0], 2);
        EXPECT_EQ(head[1], i);
    }
    EXPECT_STREQ(bytes.c_str() + 20, "a:1,b");
    EXPECT_EQ(std::strlen(bytes.c_str() + 12 + 4096 + 8), 4087u) << "a text keeps room for its NUL";
}

TEST(ProtocolTest, PathListPackingFillsPackagesAndKeepsEntriesWhole) {
    std::vector<std::string> texts;
    std::string half(2043, 'h');  // two of them and a comma fill a package's 4,087 bytes exactly
    ASSERT_TRUE(PackPathList({half, half, "next"}, texts));
    ASSERT_EQ(texts.size(), 2u);
    EXPECT_EQ(texts[0], half + "," + half);
    EXPECT_EQ(texts[1], "next");

    texts.clear();
    EXPECT_TRUE(PackPathList({}, texts));
    EXPECT_TRUE(texts.empty());
    EXPECT_FALSE(PackPathList({std::string(4088, 'l')}, texts));
}

}  // namespace

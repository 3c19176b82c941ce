#include <gtest/gtest.h>

#include <cstring>

#include "migrate_peers.h"

using namespace Zarvo::Host;
using Zarvo::Testing::RequestBytes;

namespace {

TEST(ProtocolTest, DecodeNamesTheFirstUnterminatedFieldInWireOrder) {
    MigrateRequest sent = Zarvo::Testing::Request(MigrateOp::COPY_ALL_FILE, "/src", std::string(1024, 'd'));
    sent.uid = std::string(32, 'u');
    sent.recurseOpt = 2;
    unsigned char buf[REQUEST_LENGTH];
    std::memcpy(buf, RequestBytes(sent).data(), REQUEST_LENGTH);
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
    std::string bytes = EncodeReply(MigrateReply{-1, 28, {"a:1,b", std::string(5000, 'x')}});
    std::string longText(4087, 'x');  // a text keeps room for its NUL
    EXPECT_EQ(bytes, Zarvo::Testing::ReplyHeader(-1, 28, 2) + Zarvo::Testing::Package(2, 0, "a:1,b") +
                         Zarvo::Testing::Package(2, 1, longText));
}

TEST(ProtocolTest, PathListPackingFillsPackagesAndKeepsEntriesWhole) {
    std::vector<std::string> texts;
    std::string half(2043, 'h');  // two of them and a comma fill a package's 4,087 bytes exactly
    ASSERT_TRUE(PackPathList({half, half, "next"}, texts));
    EXPECT_EQ(texts, (std::vector<std::string>{half + "," + half, "next"}));
    texts.clear();
    EXPECT_TRUE(PackPathList({}, texts));
    EXPECT_TRUE(texts.empty());
    EXPECT_FALSE(PackPathList({std::string(4088, 'l')}, texts));
}

}  // namespace

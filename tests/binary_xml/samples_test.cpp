#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "binary_xml/abx_decoder.h"
#include "xml_canonical.h"

namespace Zarvo::BinaryXml {
namespace {

namespace fs = std::filesystem;

const fs::path SAMPLES{ABX_SAMPLES_DIR};

std::string ReadFile(const fs::path &path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream content;
    content << in.rdbuf();
    return content.str();
}

std::string DecodeSample(const std::string &name) {
    std::string xml;
    Status status = DecodeAbx(ReadFile(SAMPLES / name), xml);
    EXPECT_EQ(status, Status::OK) << name;
    EXPECT_TRUE(Testing::ParsesStrictly(xml)) << name;
    return xml;
}

class RealSamples : public testing::Test {
protected:
    void SetUp() override {
        if (!fs::is_directory(SAMPLES)) {
            GTEST_SKIP() << "no sample folder at " << SAMPLES;
        }
    }
};

// Each sample beside the text it was made from (or that its project keeps for it).
TEST_F(RealSamples, MatchTheirCompanionTextFiles) {
    int compared = 0;
    for (const auto &entry : fs::directory_iterator(SAMPLES)) {
        if (entry.path().extension() != ".abx" || entry.path().stem() == "androidabx_aosp_verify") {
            continue;
        }
        fs::path companion = entry.path();
        companion.replace_extension(".source.xml");
        if (!fs::exists(companion)) {
            companion.replace_extension("").replace_extension(".plain.xml");
        }
        ASSERT_TRUE(fs::exists(companion)) << entry.path();
        std::string xml = DecodeSample(entry.path().filename());
        // Recovery keeps the first of several top-level elements, as the decoder does.
        EXPECT_EQ(Testing::Canonical(xml), Testing::Canonical(ReadFile(companion), true)) << entry.path();
        ++compared;
    }
    EXPECT_GE(compared, 10);
}

TEST_F(RealSamples, AospWriterOutputRendersAsAndroidsConverterDoes) {
    std::string xml = DecodeSample("androidabx_aosp_verify.abx");
    EXPECT_NE(xml.find("<root str=\"hello\" bh=\"deadbeef\" bb=\"AQID\" i=\"-42\" ih=\"-35014542\" "
                       "l=\"-123456789012\" lh=\"-2152411035014542\" f=\"3.5\" d=\"2.71828\" bt=\"true\" "
                       "bf=\"false\">hello world<![CDATA[raw <not-a-tag>]]><!--a comment-->"
                       "<?pi target data?>&amp;   <root/></root>"),
              std::string::npos)
        << xml;
}

TEST_F(RealSamples, DeviceFileWithTwoRootsKeepsBothOnRequest) {
    std::string xml;
    ASSERT_EQ(DecodeAbx(ReadFile(SAMPLES / "appmanager_settings_ssaid.abx"), xml, DecodeOptions{true}),
              Status::OK);
    EXPECT_NE(xml.find("</settings><namespaceHashes/>"), std::string::npos) << xml;
}

}  // namespace
}  // namespace Zarvo::BinaryXml

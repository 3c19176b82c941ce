#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "binary_xml/abx_decoder.h"
#include "xml_test_util.h"

namespace Zarvo::BinaryXml {
namespace {

namespace fs = std::filesystem;

const fs::path SAMPLES{ABX_SAMPLES_DIR};

std::string DecodeSample(const std::string &name, const DecodeOptions &options = {}) {
    std::string xml;
    EXPECT_EQ(DecodeAbx(Testing::ReadFile(SAMPLES / name), xml, options), Status::OK) << name;
    EXPECT_TRUE(options.keepExtraRoots || Testing::ParsesStrictly(xml)) << name;
    return xml;
}

// Files written by Android's writers, beside the text they were made from or that Android's
// converter gives for them.
TEST(RealSamples, MatchTheirCompanionTextFilesAndAndroidsRendering) {
    if (!fs::is_directory(SAMPLES)) {
        GTEST_SKIP() << "no sample folder at " << SAMPLES;
    }
    int compared = 0;
    for (const auto &entry : fs::directory_iterator(SAMPLES)) {
        if (entry.path().extension() != ".abx" || entry.path().stem() == "androidabx_aosp_verify") {
            continue;
        }
        fs::path companion = fs::path(entry.path()).replace_extension(".source.xml");
        if (!fs::exists(companion)) {
            companion.replace_extension("").replace_extension(".plain.xml");
        }
        ASSERT_TRUE(fs::exists(companion)) << entry.path();
        // Recovery keeps the first of several top-level elements, as the decoder does.
        EXPECT_EQ(Testing::Canonical(DecodeSample(entry.path().filename())),
                  Testing::Canonical(Testing::ReadFile(companion), true))
            << entry.path();
        ++compared;
    }
    EXPECT_GE(compared, 10);
    EXPECT_NE(DecodeSample("androidabx_aosp_verify.abx")
                  .find("<root str=\"hello\" bh=\"deadbeef\" bb=\"AQID\" i=\"-42\" ih=\"-35014542\" "
                        "l=\"-123456789012\" lh=\"-2152411035014542\" f=\"3.5\" d=\"2.71828\" bt=\"true\" "
                        "bf=\"false\">hello world<![CDATA[raw <not-a-tag>]]><!--a comment-->"
                        "<?pi target data?>&amp;   <root/></root>"),
              std::string::npos);
    EXPECT_NE(DecodeSample("appmanager_settings_ssaid.abx", DecodeOptions{true})
                  .find("</settings><namespaceHashes/>"),
              std::string::npos);
}

}  // namespace
}  // namespace Zarvo::BinaryXml

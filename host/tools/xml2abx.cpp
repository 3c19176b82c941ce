// xml2abx: writes a text XML file in Android's binary XML form.
#include "binary_xml/xml_to_abx.h"
#include "command_line.h"
#include "tool_io.h"

int main(int argc, char **argv) {
    using namespace Zarvo;
    CLI::App app{"Convert a text XML file to Android binary XML (ABX)."};
    Tools::DescribeTool(app, "xml2abx",
                        "  xml2abx --infer-types 0.txt.xml 0.xml\n"
                        "  xml2abx -i userlist.xml          (replaces the file with its binary form)\n"
                        "  printf '<users/>' | xml2abx - - | abx2xml - -\n");
    Tools::ConversionFiles files;
    BinaryXml::EncodeOptions options;
    bool surrogatePairs = false;
    Tools::AddConversionOptions(app, files, "text XML", "binary XML");
    app.add_flag(
        "--infer-types", options.inferTypes,
        "Write true/false as booleans and decimal integers as int or long attributes, as Android does");
    app.add_flag("--surrogate-pairs", surrogatePairs,
                 "Write characters beyond the BMP as surrogate pairs, as Android's Java writer does");
    if (std::optional<int> status = Tools::ParseCommandLine(app, argc, argv)) {
        return *status;
    }
    if (surrogatePairs) {
        options.supplementary = BinaryXml::AbxWriter::Supplementary::SURROGATE_PAIR;
    }
    return Tools::RunConversion("xml2abx", files, [&](const std::string &source, std::string &abx) {
        return BinaryXml::EncodeXml(source, abx, options);
    });
}

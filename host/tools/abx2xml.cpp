// abx2xml: writes the text XML form of an Android binary XML file.
#include "binary_xml/file_conversion.h"
#include "command_line.h"
#include "tool_io.h"

int main(int argc, char **argv) {
    using namespace Zarvo;
    CLI::App app{
        "Convert an Android binary XML (ABX) file to text XML. A file that already is text XML is copied."};
    Tools::DescribeTool(app, "abx2xml",
                        "  abx2xml /data/system/users/0.xml 0.txt.xml\n"
                        "  abx2xml -i userlist.xml          (replaces the file with its text form)\n"
                        "  adb shell cat /data/system/users/userlist.xml | abx2xml - -\n");
    Tools::ConversionFiles files;
    BinaryXml::DecodeOptions options;
    Tools::AddConversionOptions(app, files, "binary XML", "text XML");
    app.add_flag("--keep-extra-roots", options.keepExtraRoots,
                 "Also write top-level elements after the first (the output is then not well-formed XML)");
    if (std::optional<int> status = Tools::ParseCommandLine(app, argc, argv)) {
        return *status;
    }
    return Tools::RunConversion("abx2xml", files, [&](const std::string &source, std::string &xml) {
        return BinaryXml::ToTextXml(source, xml, options);
    });
}

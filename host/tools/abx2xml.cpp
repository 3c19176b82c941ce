// abx2xml: writes the text XML form of an Android binary XML file.
#include <CLI/CLI.hpp>
#include <exception>
#include <iostream>

#include "binary_xml/file_conversion.h"
#include "tool_io.h"

int main(int argc, char **argv) {
    CLI::App app{
        "Convert an Android binary XML (ABX) file to text XML. A file that already is text XML is copied."};
    std::string input;
    std::string output = "-";
    Zarvo::BinaryXml::DecodeOptions options;
    app.add_option("input", input, "binary XML file, or - for standard input")->required();
    app.add_option("output", output, "text XML file to write (replaced whole), or - for standard output");
    app.add_flag("--keep-extra-roots", options.keepExtraRoots,
                 "also write top-level elements after the first (the output is then not well-formed XML)");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &error) {
        return app.exit(error);
    }
    try {
        std::string source;
        std::string xml;
        Zarvo::BinaryXml::Status status = Zarvo::Tools::ReadInput(input, source);
        if (status == Zarvo::BinaryXml::Status::OK) {
            status = Zarvo::BinaryXml::ToTextXml(source, xml, options);
        }
        if (status == Zarvo::BinaryXml::Status::OK) {
            status = Zarvo::Tools::WriteOutput(output, xml);
        }
        return status == Zarvo::BinaryXml::Status::OK ? 0 : Zarvo::Tools::Fail("abx2xml", input, status);
    } catch (const std::exception &) {
        return Zarvo::Tools::Fail("abx2xml", input, Zarvo::BinaryXml::Status::TOO_LARGE);
    }
}

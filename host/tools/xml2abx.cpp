// xml2abx: writes a text XML file in Android's binary XML form.
#include <CLI/CLI.hpp>
#include <exception>
#include <iostream>

#include "binary_xml/xml_to_abx.h"
#include "tool_io.h"

int main(int argc, char **argv) {
    CLI::App app{"Convert a text XML file to Android binary XML (ABX)."};
    std::string input;
    std::string output = "-";
    Zarvo::BinaryXml::EncodeOptions options;
    bool surrogatePairs = false;
    app.add_option("input", input, "text XML file, or - for standard input")->required();
    app.add_option("output", output, "binary XML file to write (replaced whole), or - for standard output");
    app.add_flag(
        "--infer-types", options.inferTypes,
        "write true/false as booleans and decimal integers as int or long attributes, as Android does");
    app.add_flag("--surrogate-pairs", surrogatePairs,
                 "write characters beyond the BMP as surrogate pairs, as Android's Java writer does");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &error) {
        return app.exit(error);
    }
    if (surrogatePairs) {
        options.supplementary = Zarvo::BinaryXml::AbxWriter::Supplementary::SURROGATE_PAIR;
    }
    try {
        std::string source;
        std::string abx;
        Zarvo::BinaryXml::Status status = Zarvo::Tools::ReadInput(input, source);
        if (status == Zarvo::BinaryXml::Status::OK) {
            status = Zarvo::BinaryXml::EncodeXml(source, abx, options);
        }
        if (status == Zarvo::BinaryXml::Status::OK) {
            status = Zarvo::Tools::WriteOutput(output, abx);
        }
        return status == Zarvo::BinaryXml::Status::OK ? 0 : Zarvo::Tools::Fail("xml2abx", input, status);
    } catch (const std::exception &) {
        return Zarvo::Tools::Fail("xml2abx", input, Zarvo::BinaryXml::Status::TOO_LARGE);
    }
}

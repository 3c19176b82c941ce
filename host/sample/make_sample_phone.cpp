// Writes an Android data snapshot (system_ce/0/accounts_ce.db, system/users/...) for the sample
// phone or for a phone described in a short JSON file.
#include <CLI/CLI.hpp>
#include <iostream>

#include "sample_phone.h"

int main(int argc, char *argv[]) {
    CLI::App app{"Writes an Android data snapshot of a sample phone."};
    std::string out;
    std::string description;
    bool textXml = false;
    app.add_option("-o,--out", out, "Directory to write the snapshot into")->required();
    app.add_option("-d,--description", description,
                   "JSON description of the phone (default: the sample phone)")
        ->check(CLI::ExistingFile);
    app.add_flag("--text-xml", textXml, "Write the user files as text XML instead of binary XML");
    CLI11_PARSE(app, argc, argv);

    Zarvo::Fixtures::SamplePhone phone = Zarvo::Fixtures::DefaultSamplePhone();
    std::string error;
    if (!description.empty() && !Zarvo::Fixtures::LoadSamplePhoneDescription(description, phone, error)) {
        std::cerr << "make_sample_phone: " << error << std::endl;
        return 1;
    }
    if (textXml) {
        phone.userFileForm = Zarvo::Fixtures::UserFileForm::TEXT;
    }
    error = Zarvo::Fixtures::BuildSamplePhone(phone, out);
    if (!error.empty()) {
        std::cerr << "make_sample_phone: " << error << std::endl;
        return 1;
    }
    std::cout << "wrote the snapshot to " << out << std::endl;
    return 0;
}

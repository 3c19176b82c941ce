// Writes an Android data snapshot (system_ce/0/accounts_ce.db, system/users/...) for the sample
// phone or for a phone described in a short JSON file, as a folder or as an archive.
#include <CLI/CLI.hpp>
#include <iostream>

#include "sample_archive.h"

int main(int argc, char *argv[]) {
    CLI::App app{"Writes an Android data snapshot of a sample phone."};
    std::string out;
    std::string description;
    bool textXml = false;
    std::string formName = "folder";
    uint64_t pieceBytes = 16 * 1024;
    app.add_option("-o,--out", out,
                   "Where to write the snapshot: a directory, an archive file, or the name a split backup's "
                   "pieces are numbered after")
        ->required();
    app.add_option("--form", formName,
                   "folder, tar.gz (entries data/...), zip (entries fs/data/...) or split "
                   "(a tar of /data/... in numbered pieces)")
        ->check(CLI::IsMember({"folder", "tar.gz", "zip", "split"}));
    app.add_option("--piece-size", pieceBytes, "Bytes in each piece of a split backup")
        ->check(CLI::PositiveNumber);
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
    Zarvo::Fixtures::SnapshotForm form = Zarvo::Fixtures::SnapshotForm::FOLDER;
    Zarvo::Fixtures::ParseSnapshotForm(formName, form);
    error = Zarvo::Fixtures::WriteSamplePhone(phone, out, form, pieceBytes);
    if (!error.empty()) {
        std::cerr << "make_sample_phone: " << error << std::endl;
        return 1;
    }
    std::cout << "wrote the snapshot to " << out << std::endl;
    return 0;
}

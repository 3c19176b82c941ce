// Writes an Android data snapshot (system_ce/0/accounts_ce.db, system/users/...) for the sample
// phone or for a phone described in a short JSON file, as a folder or as an archive.
#include <stdlib.h>

#include <filesystem>
#include <iostream>

#include "android_release.h"
#include "command_line.h"
#include "phone_description.h"
#include "sample_archive.h"

namespace {

namespace fs = std::filesystem;
using Zarvo::Tools::EXIT_FAILED;
using Zarvo::Tools::EXIT_USAGE;
using Zarvo::Tools::Refuse;

constexpr char TOOL[] = "make_sample_phone";

// What `out` would overwrite: the folder itself when it holds anything, or the archive (the first
// piece of a split backup). Empty when nothing is in the way.
std::string InTheWay(const std::string &out, Zarvo::Fixtures::SnapshotForm form) {
    std::error_code code;
    if (form == Zarvo::Fixtures::SnapshotForm::FOLDER) {
        if (fs::exists(fs::symlink_status(out, code)) &&
            (!fs::is_directory(out, code) || !fs::is_empty(out, code))) {
            return out;
        }
        return "";
    }
    const std::string file = form == Zarvo::Fixtures::SnapshotForm::SPLIT ? out + "000" : out;
    return fs::exists(fs::symlink_status(file, code)) ? file : "";
}

// Builds the folder beside the old one, then swaps it in, so a failed build leaves the old one.
std::string ReplaceFolder(const Zarvo::Fixtures::SamplePhone &phone, const std::string &out) {
    const fs::path target = fs::absolute(out).lexically_normal();
    std::string fresh = (target.has_filename() ? target : target.parent_path()).string() + ".new-XXXXXX";
    if (mkdtemp(fresh.data()) == nullptr) {
        return "cannot make a folder beside " + out + ".";
    }
    std::string error =
        Zarvo::Fixtures::WriteSamplePhone(phone, fresh, Zarvo::Fixtures::SnapshotForm::FOLDER);
    std::error_code code;
    if (error.empty()) {
        fs::remove_all(out, code);
        if (!code) {
            fs::rename(fresh, out, code);
        }
        if (code) {
            error = "cannot replace " + out + ": " + code.message() + ".";
        }
    }
    fs::remove_all(fresh, code);
    return error;
}

}  // namespace

int main(int argc, char *argv[]) {
    CLI::App app{"Writes an Android data snapshot of a sample phone."};
    Zarvo::Tools::DescribeTool(
        app, TOOL,
        "  make_sample_phone --out /tmp/phone\n"
        "  make_sample_phone --android 8 --out /tmp/phone8\n"
        "  make_sample_phone --description phone.json --form zip --out /tmp/phone.zip\n"
        "  make_sample_phone --form split --out /tmp/backup/data.ext4.win\n");
    std::string out;
    std::string description;
    bool textXml = false;
    bool replace = false;
    std::string formName = "folder";
    uint64_t pieceBytes = 16 * 1024;
    int android = 0;
    app.add_option(
           "-o,--out", out,
           "Where to write the snapshot: an empty or new folder, an archive file, or the name a split "
           "backup's pieces are numbered after")
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
    app.add_option("--android", android,
                   "Write the phone as Android release N (7 to 15) leaves it: its user files' version, "
                   "form and attributes, its account database's form; a description applies on top")
        ->check(CLI::Range(Zarvo::Fixtures::FIRST_ANDROID_RELEASE, Zarvo::Fixtures::LAST_ANDROID_RELEASE));
    app.add_flag("--text-xml", textXml, "Write the user files as text XML instead of binary XML");
    app.add_flag("--replace", replace,
                 "Replace what is at --out: a folder that is not empty, or an existing archive");
    if (std::optional<int> status = Zarvo::Tools::ParseCommandLine(app, argc, argv)) {
        return *status;
    }

    Zarvo::Fixtures::SamplePhone phone =
        android != 0 ? *Zarvo::Fixtures::AndroidReleasePhone(android) : Zarvo::Fixtures::DefaultSamplePhone();
    std::string error;
    if (!description.empty() && !Zarvo::Fixtures::LoadSamplePhoneDescription(description, phone, error)) {
        return Refuse(TOOL, error, EXIT_USAGE);
    }
    if (textXml) {
        phone.userFileForm = Zarvo::Fixtures::UserFileForm::TEXT;
    }
    Zarvo::Fixtures::SnapshotForm form = Zarvo::Fixtures::SnapshotForm::FOLDER;
    Zarvo::Fixtures::ParseSnapshotForm(formName, form);
    const std::string occupied = InTheWay(out, form);
    if (!occupied.empty() && !replace) {
        return Refuse(TOOL,
                      occupied +
                          (form == Zarvo::Fixtures::SnapshotForm::FOLDER && fs::is_directory(occupied)
                               ? " is a folder that is not empty"
                               : " already exists") +
                          "; pass --replace to write over it.",
                      EXIT_USAGE);
    }
    if (!occupied.empty() && form == Zarvo::Fixtures::SnapshotForm::FOLDER) {
        if (!fs::is_directory(out)) {
            return Refuse(TOOL, out + " is not a folder; remove it or choose another --out.", EXIT_USAGE);
        }
        error = ReplaceFolder(phone, out);
    } else {
        error = Zarvo::Fixtures::WriteSamplePhone(phone, out, form, pieceBytes);
    }
    if (!error.empty()) {
        return Refuse(TOOL, error, EXIT_FAILED);
    }
    std::cout << "wrote the snapshot to " << out << std::endl;
    return 0;
}

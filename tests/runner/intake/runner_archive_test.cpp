// The runner as a person runs it on archives: it makes its own sandbox, so these tests run outside
// one.
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <nlohmann/json.hpp>

#include "runner_process.h"
#include "test_archive.h"

namespace {

using namespace Zarvo;
using Host::EntryType;
using Testing::Member;
using Testing::Packing;
namespace fs = std::filesystem;

// The report without what depends on where the snapshot came from, and without timings; of the
// context only the digest of what was laid, which is the same whatever the snapshot's form.
nlohmann::json WithoutOriginsAndTimings(nlohmann::json report) {
    for (const char *member : {"snapshot", "snapshotRoot", "elapsedMs"}) {
        report.erase(member);
    }
    const nlohmann::json snapshot = report["context"]["snapshot"];
    report["context"] = {{"laidSha256", snapshot["laidSha256"]}, {"laidBytes", snapshot["laidBytes"]}};
    for (auto &laid : report["laidFiles"]) {
        laid.erase("from");
    }
    for (auto &request : report["migrateJournal"]) {
        request.erase("timeMs");
        request.erase("durationUs");
    }
    // The client logs how long each exchange took.
    for (auto &line : report["logs"]) {
        line.erase("timeMs");
        std::string message = line["message"];
        const size_t cost = message.find("cost: ");
        if (cost != std::string::npos) {
            line["message"] = message.substr(0, cost);
        }
    }
    return report;
}

class RunnerArchiveTest : public TempFolderTest {
protected:
    std::string MakeSamplePhone(const std::string &form, const std::string &name) {
        const std::string out = dir_ + "/" + name;
        MakePhone(out, "", "--form " + form);
        return out;
    }

    RunResult Restore(const std::string &snapshot, const std::string &report) {
        return RunRunner("--snapshot " + snapshot + " --report " + report);
    }
};

TEST_F(RunnerArchiveTest, EveryFormOfTheSamplePhoneGivesTheSameRestore) {
    struct Form {
        std::string form;
        std::string out;
        std::string snapshot;
        std::string root;
        std::string files;  // what the archive's digest covers, for sha256sum
    } forms[] = {
        {"folder", "phone", "phone", "the folder itself", ""},
        {"tar.gz", "phone.tar.gz", "phone.tar.gz", "data/ in the archive", "phone.tar.gz"},
        {"zip", "phone.zip", "phone.zip", "fs/data/ in the archive", "phone.zip"},
        {"split", "data.ext4.win", "data.ext4.win000", "/data/ in the archive", "data.ext4.win0*"},
    };
    nlohmann::json expected;
    for (const Form &f : forms) {
        MakeSamplePhone(f.form, f.out);
        const std::string snapshot = dir_ + "/" + f.snapshot;
        const std::string report = dir_ + "/" + f.form + ".json";
        RunResult run = Restore(snapshot, report);
        ASSERT_EQ(run.exitCode, 0) << f.form << "\n" << run.output;
        EXPECT_NE(run.output.find("Snapshot: " + snapshot + " (data root: " + f.root + ")\n"),
                  std::string::npos)
            << run.output;
        nlohmann::json json = ReadJson(report);
        ASSERT_TRUE(json.is_object()) << f.form;
        EXPECT_EQ(json["snapshotRoot"], f.root);
        for (const auto &laid : json["laidFiles"]) {
            EXPECT_EQ(laid["from"].get<std::string>().rfind(snapshot, 0), 0u) << laid.dump();
        }
        // The archive's digest is of all its bytes, as sha256sum gives it over its pieces in order.
        const nlohmann::json &context = json["context"]["snapshot"];
        EXPECT_EQ(context["kind"], f.files.empty() ? "folder" : "archive");
        if (!f.files.empty()) {
            RunResult sum = RunCommand("cd " + dir_ + " && cat " + f.files + " | sha256sum");
            EXPECT_EQ(context["sha256"].get<std::string>() + "  -\n", sum.output) << f.form;
            EXPECT_EQ(context["bytes"],
                      std::stoull(RunCommand("cd " + dir_ + " && cat " + f.files + " | wc -c").output));
        }
        if (expected.is_null()) {
            expected = WithoutOriginsAndTimings(json);
        } else {
            EXPECT_EQ(WithoutOriginsAndTimings(json), expected) << f.form;
        }
    }
    EXPECT_TRUE(fs::exists(dir_ + "/data.ext4.win001")) << "the split backup is to come in several pieces";
}

TEST_F(RunnerArchiveTest, LinksDevicesAndNamesOutOfTheRootAreLeftOutAndListed) {
    std::vector<Member> members = Testing::SamplePhoneMembers("data/");
    members.erase(std::remove_if(members.begin(), members.end(),
                                 [](const Member &m) {
                                     return m.name == "data/system/users/10/photo.png" ||
                                            m.name == "data/system/users/12.xml";
                                 }),
                  members.end());
    // Laid by a naive extraction into the test's folder, it would land beside it.
    const std::string escaped = "escaped-" + fs::path(dir_).filename().string();
    const std::string climbing = "system/users/10/../../../../../" + escaped;
    members.insert(members.end(),
                   {
                       {"data/" + climbing, EntryType::FILE, "out of the root"},
                       {"data/system/users/10/photo.png", EntryType::SYMLINK, "/etc/passwd"},
                       {"data/system/users/12.xml", EntryType::HARD_LINK, "data/system/users/0.xml"},
                       {"data/system/users/13.xml", EntryType::FIFO},
                       {"data/system/users/14.xml", EntryType::CHARACTER_DEVICE},
                   });
    const std::string archive = dir_ + "/hostile.tar.gz";
    ASSERT_EQ(Testing::WriteArchive(archive, Packing::TAR_GZ, members), "");

    RunResult run = Restore(archive, dir_ + "/report.json");
    ASSERT_NE(run.exitCode, 2) << run.output;
    EXPECT_NE(run.output.find("Left out of the snapshot: 5\n"), std::string::npos) << run.output;
    nlohmann::json json = ReadJson(dir_ + "/report.json");
    ASSERT_TRUE(json.is_object()) << run.output;
    EXPECT_EQ(json["leftOut"], nlohmann::json::parse(R"([
        {"path": ")" + climbing + R"(", "reason": "its name is not a plain path below the data root"},
        {"path": "system/users/10/photo.png", "reason": "a symbolic link to /etc/passwd"},
        {"path": "system/users/12.xml", "reason": "a hard link to data/system/users/0.xml"},
        {"path": "system/users/13.xml", "reason": "a FIFO"},
        {"path": "system/users/14.xml", "reason": "a character device"}])"));
    EXPECT_FALSE(fs::exists(fs::path(dir_).parent_path() / escaped));
    EXPECT_FALSE(fs::exists(fs::path(dir_) / escaped));
}

// A root that holds back/ is a work tree: it is laid as it is, and a system/ beside it is not laid
// over it.
TEST_F(RunnerArchiveTest, AWorkTreeIsLaidAsItIs) {
    std::vector<Member> members;
    for (Member member : Testing::SamplePhoneMembers("")) {
        if (member.name == "system_ce/0/accounts_ce.db") {
            member.name = "back/100/accounts_ce.db";
        } else if (member.name.rfind("system/users/", 0) == 0) {
            member.name = "back/sourceXml/" + member.name.substr(13);
        } else {
            continue;
        }
        members.push_back(member);
        if (member.name == "back/sourceXml/userlist.xml") {
            members.push_back({"system/users/userlist.xml", EntryType::FILE, "<not laid />"});
        }
    }
    const std::string archive = dir_ + "/work-tree.tar";
    ASSERT_EQ(Testing::WriteArchive(archive, Packing::TAR, members), "");

    RunResult run = Restore(archive, dir_ + "/report.json");
    ASSERT_NE(run.exitCode, 2) << run.output;
    nlohmann::json json = ReadJson(dir_ + "/report.json");
    ASSERT_TRUE(json.is_object()) << run.output;
    ASSERT_FALSE(json["laidFiles"].empty());
    for (const auto &laid : json["laidFiles"]) {
        EXPECT_EQ(laid["from"].get<std::string>().rfind(archive + ":back/", 0), 0u) << laid.dump();
    }
}

TEST_F(RunnerArchiveTest, ABrokenOrHostileArchiveEndsTheRunBeforeAnythingIsLaid) {
    const std::string tarGz = MakeSamplePhone("tar.gz", "phone.tar.gz");
    const std::string zip = MakeSamplePhone("zip", "phone.zip");
    MakeSamplePhone("split", "data.ext4.win");
    auto copy = [this](const std::string &from, const std::string &name) {
        fs::copy_file(from, dir_ + "/" + name);
        return dir_ + "/" + name;
    };
    struct Case {
        std::string name;
        std::function<std::string()> make;  // the archive's path
        std::string says;
    } cases[] = {
        {"an archive bomb",
         [&] {
             std::vector<Member> members{{"data/media/0/zeros.img", EntryType::FILE, "", 300ull << 20}};
             for (Member &member : Testing::SamplePhoneMembers("data/")) {
                 members.push_back(std::move(member));
             }
             EXPECT_EQ(Testing::WriteArchive(dir_ + "/bomb.tar.zst", Packing::TAR_ZST, members), "");
             return dir_ + "/bomb.tar.zst";
         },
         "expands to more than 100 times its size, as an archive bomb does."},
        {"a gzip cut short",
         [&] {
             std::string path = copy(tarGz, "cut.tar.gz");
             fs::resize_file(path, fs::file_size(path) / 2);
             return path;
         },
         "which is cut short or corrupt: truncated gzip input."},
        // The data decompresses, but its CRC-32 at the end does not match it.
        {"a gzip whose check fails",
         [&] {
             std::string path = copy(tarGz, "changed.tar.gz");
             std::fstream file(path, std::ios::in | std::ios::out | std::ios::binary);
             const auto crc = static_cast<std::streamoff>(fs::file_size(path) - 8);
             file.seekg(crc);
             const char byte = static_cast<char>(file.get() ^ 0x01);
             file.seekp(crc);
             file.put(byte);
             return path;
         },
         "which is cut short or corrupt: incorrect data check."},
        // Read only once the tar's end has been found.
        {"a gzip with other bytes after it",
         [&] {
             std::string path = copy(tarGz, "followed.tar.gz");
             std::ofstream(path, std::ios::app | std::ios::binary) << "not gzip";
             return path;
         },
         "which is cut short or corrupt: bytes that are not gzip data follow the gzip stream."},
        {"a corrupt zip",
         [&] {
             std::string path = copy(zip, "corrupt.zip");
             std::fstream file(path, std::ios::in | std::ios::out | std::ios::binary);
             file.seekp(static_cast<std::streamoff>(fs::file_size(path) / 2));
             file << std::string(64, 'x');
             return path;
         },
         "which is cut short or corrupt"},
        {"no archive",
         [&] {
             std::ofstream(dir_ + "/notes.txt") << "system/users/userlist.xml\n";
             return dir_ + "/notes.txt";
         },
         "is neither a directory nor an archive the runner reads"},
        {"two data roots",
         [&] {
             std::vector<Member> members = Testing::SamplePhoneMembers("fs/data/");
             members.push_back({"Dump/data/system/users/userlist.xml", EntryType::FILE, "<users />"});
             EXPECT_EQ(Testing::WriteArchive(dir_ + "/two.zip", Packing::ZIP, members), "");
             return dir_ + "/two.zip";
         },
         "holds two data roots, fs/data/ and Dump/data/;"},
        {"a split backup without a middle piece",
         [&] {
             fs::create_directory(dir_ + "/gap");
             for (const auto &piece : fs::directory_iterator(dir_)) {
                 const std::string name = piece.path().filename().string();
                 if (name.rfind("data.ext4.win", 0) == 0 && name != "data.ext4.win001") {
                     fs::copy_file(piece.path(), dir_ + "/gap/" + name);
                 }
             }
             return dir_ + "/gap/data.ext4.win000";
         },
         "the split backup " + dir_ + "/gap/data.ext4.win000 is missing its piece " + dir_ +
             "/gap/data.ext4.win001."},
        {"a later piece", [&] { return dir_ + "/data.ext4.win001"; },
         "is a later piece of a split backup; give its first piece, " + dir_ + "/data.ext4.win000"},
    };
    for (const Case &c : cases) {
        const std::string report = dir_ + "/report.json";
        RunResult run = Restore(c.make(), report);
        EXPECT_EQ(run.exitCode, 2) << c.name << "\n" << run.output;
        EXPECT_NE(run.output.find("restore_runner: "), std::string::npos) << c.name << "\n" << run.output;
        EXPECT_NE(run.output.find(c.says), std::string::npos) << c.name << "\n" << run.output;
        EXPECT_EQ(run.output.find("RestoreData returned"), std::string::npos) << c.name << "\n" << run.output;
        EXPECT_FALSE(fs::exists(report)) << c.name;
    }
}

}  // namespace

// What the runner writes on the terminal about a phone is printable: the phone's texts can carry
// control sequences that would retitle the window, move the cursor or reach the clipboard.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "runner_process.h"

namespace {

namespace fs = std::filesystem;
using RunnerTerminalTest = TempFolderTest;

// An operating system command that sets the window title, and a colour.
const std::string TITLE = "\x1b]0;owned\x07";
const std::string RED = "\x1b[31m";

void ExpectPrintable(const RunResult &run) {
    for (const char c : run.output) {
        const auto byte = static_cast<unsigned char>(c);
        ASSERT_TRUE(byte >= 0x20 || c == '\n') << "byte " << static_cast<int>(byte) << " in:\n" << run.output;
    }
}

// libxml2 quotes the file it could not parse, in the runner's own reading and in the plug-in's.
TEST_F(RunnerTerminalTest, AUserFileWithControlCharactersReachesTheTerminalPrintable) {
    const std::string phone = dir_ + "/phone";
    MakePhone(phone);
    std::ofstream(phone + "/system/users/11.xml", std::ios::binary)
        << "<?xml version='1.0' encoding='utf-8' standalone='yes' ?>\n<user id=\"11\" serialNumber=\"11\" "
           "flags=\"1040\" type=\"android.os.usertype.full.SECONDARY\" created=\"1\" lastLoggedIn=\"1\">"
           "<name>"
        << TITLE << RED << "</nam" << TITLE << "e></user" << RED << ">\n";

    const RunResult run = RunRunner("--snapshot " + phone);
    EXPECT_NE(run.exitCode, 2) << run.output;
    EXPECT_NE(run.output.find("libxml2: "), std::string::npos) << run.output;
    ExpectPrintable(run);
}

TEST_F(RunnerTerminalTest, AFolderNameWithControlCharactersReachesTheTerminalPrintable) {
    const std::string folder = dir_ + "/ph" + RED + "one" + TITLE;
    fs::create_directories(folder + "/empty");
    const RunResult run = RunRunner("--snapshot '" + folder + "'");
    EXPECT_EQ(run.exitCode, 2) << run.output;
    EXPECT_NE(run.output.find("restore_runner: "), std::string::npos) << run.output;
    ExpectPrintable(run);
}

}  // namespace

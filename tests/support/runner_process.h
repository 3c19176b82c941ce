#ifndef TESTS_SUPPORT_RUNNER_PROCESS_H
#define TESTS_SUPPORT_RUNNER_PROCESS_H

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>

// The runner as a person runs it, from outside a sandbox (it makes its own).
struct RunResult {
    int exitCode = -1;
    std::string output;  // stdout and stderr together
};

// Runs a shell command line and collects what it prints.
RunResult RunCommand(const std::string &command);
// The runner as built, and its arguments run.
std::string RunnerPath();
RunResult RunRunner(const std::string &arguments);
// Writes a snapshot with make_sample_phone: the sample phone, or the one the description tells;
// `arguments` add others, such as the form ("--form zip").
void MakePhone(const std::string &out, const std::string &description = "",
               const std::string &arguments = "");

std::string ReadFile(const std::string &path);
nlohmann::json ReadJson(const std::string &path);
// The permission bits of a file, -1 when it is missing.
int ModeOf(const std::string &path);

// A fresh folder below /tmp for each test.
class TempFolderTest : public testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;
    // Writes a file below the test's folder and returns its path.
    std::string Write(const std::string &name, const std::string &content);

    std::string dir_;
};

#endif  // TESTS_SUPPORT_RUNNER_PROCESS_H

#include "runner_process.h"

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

RunResult RunCommand(const std::string &command) {
    RunResult run;
    FILE *pipe = popen((command + " 2>&1").c_str(), "r");
    if (pipe == nullptr) {
        return run;
    }
    char buffer[4096];
    for (size_t n; (n = fread(buffer, 1, sizeof(buffer), pipe)) > 0;) {
        run.output.append(buffer, n);
    }
    int status = pclose(pipe);
    run.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return run;
}

std::string RunnerPath() {
    return RUNNER_PATH;
}

RunResult RunRunner(const std::string &arguments) {
    return RunCommand(RunnerPath() + " " + arguments);
}

void MakePhone(const std::string &out, const std::string &description, const std::string &arguments) {
    RunResult made =
        RunCommand(std::string(SAMPLE_PHONE_PATH) + " --out '" + out + "'" +
                   (description.empty() ? "" : " --description " + description) + " " + arguments);
    ASSERT_EQ(made.exitCode, 0) << made.output;
}

std::string ReadFile(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream content;
    content << in.rdbuf();
    return content.str();
}

nlohmann::json ReadJson(const std::string &path) {
    return nlohmann::json::parse(ReadFile(path), nullptr, false);
}

int ModeOf(const std::string &path) {
    struct stat info {};
    return stat(path.c_str(), &info) == 0 ? static_cast<int>(info.st_mode & 07777) : -1;
}

void TempFolderTest::SetUp() {
    char pattern[] = "/tmp/runner_test_XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    dir_ = pattern;
}

void TempFolderTest::TearDown() {
    std::filesystem::remove_all(dir_);
}

std::string TempFolderTest::Write(const std::string &name, const std::string &content) {
    std::string path = dir_ + "/" + name;
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::ofstream(path, std::ios::binary) << content;
    return path;
}

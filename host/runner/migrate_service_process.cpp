#include "migrate_service_process.h"

#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <thread>
#include <vector>

namespace Zarvo::Host {
namespace {

constexpr int READY_TIMEOUT_MS = 10000;
constexpr auto STOP_GRACE = std::chrono::seconds(5);
const std::string DEFAULT_JOURNAL = "/data/runner/migrate_journal.jsonl";

std::string ExitText(int status) {
    if (WIFEXITED(status)) {
        return "exit status " + std::to_string(WEXITSTATUS(status));
    }
    if (WIFSIGNALED(status)) {
        return std::string("signal ") + strsignal(WTERMSIG(status));
    }
    return "status " + std::to_string(status);
}

}  // namespace

MigrateServiceProcess::~MigrateServiceProcess() {
    Stop();
}

std::string MigrateServiceProcess::Start(const std::string &binDir, const std::string &deviceState,
                                         const std::string &journalPath) {
    const std::string program = binDir + "/migrate_service";
    if (access(program.c_str(), X_OK) != 0) {
        return "the migrate service " + program + " is missing; build it or pass --use-running-service.";
    }
    journalPath_ = journalPath.empty() ? DEFAULT_JOURNAL : journalPath;
    std::error_code error;
    std::filesystem::create_directories(std::filesystem::path(journalPath_).parent_path(), error);
    std::filesystem::remove(journalPath_, error);

    int ready[2];
    if (pipe(ready) != 0) {
        return std::string("could not make a pipe for the migrate service: ") + std::strerror(errno) + ".";
    }
    std::vector<std::string> args = {program, "--ready-fd", std::to_string(ready[1]), "--journal",
                                     journalPath_};
    if (!deviceState.empty()) {
        args.insert(args.end(), {"--device-state", deviceState});
    }
    pid_ = fork();
    if (pid_ < 0) {
        close(ready[0]);
        close(ready[1]);
        return std::string("could not start the migrate service: ") + std::strerror(errno) + ".";
    }
    if (pid_ == 0) {
        close(ready[0]);
        std::vector<char *> raw;
        for (auto &arg : args) {
            raw.push_back(arg.data());
        }
        raw.push_back(nullptr);
        execv(program.c_str(), raw.data());
        _exit(127);
    }
    close(ready[1]);

    pollfd wait{ready[0], POLLIN, 0};
    char answer[16] = {};
    ssize_t count = 0;
    if (poll(&wait, 1, READY_TIMEOUT_MS) > 0) {
        count = read(ready[0], answer, sizeof(answer) - 1);
    }
    close(ready[0]);
    if (count > 0 && std::strncmp(answer, "ready", 5) == 0) {
        return "";
    }
    int status = 0;
    if (waitpid(pid_, &status, WNOHANG) == pid_) {
        pid_ = -1;
        return "the migrate service stopped before it listened (" + ExitText(status) + ").";
    }
    Stop();
    return "the migrate service did not start listening within " + std::to_string(READY_TIMEOUT_MS / 1000) +
           " seconds.";
}

nlohmann::json MigrateServiceProcess::Stop() {
    nlohmann::json journal = nlohmann::json::array();
    if (pid_ > 0) {
        kill(pid_, SIGTERM);
        auto deadline = std::chrono::steady_clock::now() + STOP_GRACE;
        int status = 0;
        while (waitpid(pid_, &status, WNOHANG) == 0) {
            if (std::chrono::steady_clock::now() > deadline) {
                kill(pid_, SIGKILL);
                waitpid(pid_, &status, 0);
                break;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        pid_ = -1;
    }
    if (!journalPath_.empty()) {
        std::ifstream in(journalPath_);
        for (std::string line; std::getline(in, line);) {
            nlohmann::json entry = nlohmann::json::parse(line, nullptr, false);
            if (!entry.is_discarded()) {
                journal.push_back(std::move(entry));
            }
        }
        journalPath_.clear();
    }
    return journal;
}

}  // namespace Zarvo::Host

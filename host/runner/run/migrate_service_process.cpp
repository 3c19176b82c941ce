#include "migrate_service_process.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <thread>
#include <vector>

extern char **environ;

namespace Zarvo::Host {
namespace {

using Clock = std::chrono::steady_clock;

constexpr auto READY_TIMEOUT = std::chrono::seconds(10);
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

// Reaps `pid`; false when it is still running at `deadline`. It sleeps on a descriptor of the
// process, which becomes readable when the process ends, rather than polling (kernels without
// pidfd_open get a short sleep between looks).
bool WaitForExit(pid_t pid, int &status, Clock::time_point deadline) {
    const int pidFd = static_cast<int>(syscall(SYS_pidfd_open, pid, 0));
    bool reaped = false;
    for (;;) {
        pid_t got = waitpid(pid, &status, WNOHANG);
        if (got == pid || (got < 0 && errno != EINTR)) {
            reaped = true;
            break;
        }
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
        if (left <= 0) {
            break;
        }
        if (pidFd >= 0) {
            pollfd wait{pidFd, POLLIN, 0};
            poll(&wait, 1, static_cast<int>(std::min<int64_t>(left + 1, 1000)));
        } else {
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
    }
    if (pidFd >= 0) {
        close(pidFd);
    }
    return reaped;
}

// Reads what the daemon writes on its readiness pipe until it has said "ready", the pipe ends, or
// the deadline passes. `ended` tells that the write end was closed.
std::string ReadReadiness(int fd, Clock::time_point deadline, bool &ended) {
    std::string answer;
    ended = false;
    while (answer.size() < 5) {
        auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
        pollfd wait{fd, POLLIN, 0};
        int ready = left > 0 ? poll(&wait, 1, static_cast<int>(left)) : 0;
        if (ready < 0 && errno == EINTR) {
            continue;
        }
        if (ready <= 0) {
            break;
        }
        char buffer[16];
        ssize_t got = read(fd, buffer, sizeof(buffer));
        if (got < 0 && errno == EINTR) {
            continue;
        }
        if (got <= 0) {
            ended = true;
            break;
        }
        answer.append(buffer, static_cast<size_t>(got));
    }
    return answer;
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

    // Only the write end reaches the service.
    int ready[2];
    if (pipe2(ready, O_CLOEXEC) != 0 || fcntl(ready[1], F_SETFD, 0) != 0) {
        return std::string("could not make a pipe for the migrate service: ") + std::strerror(errno) + ".";
    }
    std::vector<std::string> args = {program, "--ready-fd", std::to_string(ready[1]), "--journal",
                                     journalPath_};
    if (!deviceState.empty()) {
        args.insert(args.end(), {"--device-state", deviceState});
    }
    std::vector<char *> raw;
    for (auto &arg : args) {
        raw.push_back(arg.data());
    }
    raw.push_back(nullptr);
    // Spawned, not forked: the runner's address space is not copied only to be replaced.
    const int failure = posix_spawn(&pid_, program.c_str(), nullptr, nullptr, raw.data(), environ);
    if (failure != 0) {
        pid_ = -1;
        close(ready[0]);
        close(ready[1]);
        return std::string("could not start the migrate service: ") + std::strerror(failure) + ".";
    }
    close(ready[1]);

    const Clock::time_point deadline = Clock::now() + READY_TIMEOUT;
    bool ended = false;
    const std::string answer = ReadReadiness(ready[0], deadline, ended);
    close(ready[0]);
    if (answer.rfind("ready", 0) == 0) {
        return "";
    }
    // The pipe ends when the daemon exits, a moment before its exit status can be collected: wait
    // for that status rather than mistake an early death for a slow start.
    int status = 0;
    if (ended && WaitForExit(pid_, status, deadline)) {
        pid_ = -1;
        return "the migrate service stopped before it listened (" + ExitText(status) + ").";
    }
    Stop();
    const std::string limit = std::to_string(READY_TIMEOUT.count()) + " seconds";
    return ended ? "the migrate service closed its readiness pipe without listening and was stopped after " +
                       limit + "."
                 : "the migrate service did not start listening within " + limit + ".";
}

namespace {

// One line of the daemon's journal file as the entry it recorded; false for a line that is not one.
bool JournalEntryOf(const std::string &line, JournalEntry &entry) {
    const nlohmann::json json = nlohmann::json::parse(line, nullptr, false);
    if (!json.is_object()) {
        return false;
    }
    auto text = [&json](const char *key) { return json.value(key, std::string()); };
    entry.seq = json.value("seq", uint64_t{0});
    entry.timeMs = json.value("timeMs", int64_t{0});
    entry.connection = json.value("connection", uint64_t{0});
    const std::string outcome = text("outcome");
    for (JournalOutcome candidate :
         {JournalOutcome::SERVED, JournalOutcome::REFUSED, JournalOutcome::FAULT, JournalOutcome::DROPPED,
          JournalOutcome::INCOMPLETE, JournalOutcome::CLOSED}) {
        if (JournalOutcomeName(candidate) == outcome) {
            entry.outcome = candidate;
        }
    }
    entry.request.type = json.value("type", int32_t{0});
    entry.request.src = text("src");
    entry.request.dst = text("dst");
    entry.request.uid = text("uid");
    entry.request.gid = text("gid");
    entry.request.perm = text("perm");
    entry.request.recurseOpt = json.value("recurseOpt", int32_t{0});
    entry.result = json.value("result", int32_t{0});
    entry.errCode = json.value("errCode", int32_t{0});
    entry.pkgNum = json.value("pkgNum", int32_t{0});
    entry.durationUs = json.value("durationUs", int64_t{0});
    entry.note = text("note");
    return true;
}

}  // namespace

std::vector<JournalEntry> MigrateServiceProcess::Stop() {
    std::vector<JournalEntry> journal;
    if (pid_ > 0) {
        kill(pid_, SIGTERM);
        int status = 0;
        if (!WaitForExit(pid_, status, Clock::now() + STOP_GRACE)) {
            kill(pid_, SIGKILL);
            waitpid(pid_, &status, 0);
        }
        pid_ = -1;
    }
    if (!journalPath_.empty()) {
        std::ifstream in(journalPath_);
        for (std::string line; std::getline(in, line);) {
            JournalEntry entry;
            if (JournalEntryOf(line, entry)) {
                journal.push_back(std::move(entry));
            }
        }
        journalPath_.clear();
    }
    return journal;
}

}  // namespace Zarvo::Host

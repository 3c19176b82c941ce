#include "batch.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <iostream>
#include <map>
#include <memory>

#include "archive_snapshot.h"
#include "batch_index.h"
#include "batch_progress.h"
#include "owner_only_file.h"
#include "support/fd_io.h"
#include "support/unique_fd.h"

extern char **environ;

namespace Zarvo::Host {
namespace {

using Clock = std::chrono::steady_clock;
constexpr int EXIT_BAD_USAGE = 2;
constexpr size_t MAX_PROBLEM_BYTES = 4096;
constexpr size_t MAX_STDERR_BYTES = 1 << 20;
constexpr size_t MAX_SUMMARY_BYTES = 64 << 20;
const std::string RUNNER_PREFIX = "restore_runner: ";

// A phone whose runner runs. Its stdout (the summary) and stderr go to memory files: the summary
// is written owner-only when the runner ends, and stderr gives the problem of a failed set-up.
struct RunningPhone {
    std::string name;
    Clock::time_point start;
    UniqueFd stdoutFd;
    UniqueFd stderrFd;
};

std::vector<std::string> FolderEntries(const std::string &folder, std::string &error) {
    std::vector<std::string> names;
    UniqueFd dir(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    const int failure = dir.Valid() ? ListDirectoryNames(dir.Get(), names) : errno;
    if (failure != 0) {
        error = "could not list " + folder + ": " + std::strerror(failure) + ".";
        return {};
    }
    // Hidden entries are no phones: a scheduler's or editor's own files.
    names.erase(
        std::remove_if(names.begin(), names.end(), [](const std::string &name) { return name[0] == '.'; }),
        names.end());
    return WithoutLaterPieces(std::move(names));
}

// The environment of a phone's runner: its log lines go to its report only, and it measures its
// own time from its own start.
std::vector<std::string> ChildEnvironment() {
    std::vector<std::string> environment;
    for (char **variable = environ; *variable != nullptr; ++variable) {
        const std::string entry = *variable;
        if (entry.rfind(std::string(START_TIME_VARIABLE) + "=", 0) != 0 &&
            entry.rfind("ZARVO_HILOG_OUTPUT=", 0) != 0) {
            environment.push_back(entry);
        }
    }
    environment.emplace_back("ZARVO_HILOG_OUTPUT=off");
    return environment;
}

std::vector<char *> Pointers(std::vector<std::string> &texts) {
    std::vector<char *> pointers;
    for (auto &text : texts) {
        pointers.push_back(text.data());
    }
    pointers.push_back(nullptr);
    return pointers;
}

// What the runner wrote into one of its memory files, up to `limit` bytes.
std::string ReadBack(int fd, size_t limit) {
    std::string text;
    char buffer[4096];
    lseek(fd, 0, SEEK_SET);
    for (ssize_t got; text.size() < limit && (got = read(fd, buffer, sizeof(buffer))) > 0;) {
        text.append(buffer, static_cast<size_t>(got));
    }
    return text;
}

// The runner's own sentence from what it wrote on stderr: its last line that the runner begins,
// else the first line of the option parser's.
std::string ProblemOf(const std::string &text) {
    std::string problem;
    std::string last;
    size_t start = 0;
    while (start < text.size()) {
        size_t end = text.find('\n', start);
        const std::string line =
            text.substr(start, end == std::string::npos ? std::string::npos : end - start);
        if (line.rfind(RUNNER_PREFIX, 0) == 0) {
            problem = line.substr(RUNNER_PREFIX.size());
        } else if (!line.empty() && last.empty()) {
            last = line;  // a usage error that the option parser worded
        }
        start = end == std::string::npos ? text.size() : end + 1;
    }
    return (problem.empty() ? last : problem).substr(0, MAX_PROBLEM_BYTES);
}

class BatchRun {
public:
    BatchRun(const BatchOptions &options, size_t total)
        : options_(options),
          environment_(ChildEnvironment()),
          progress_(total, isatty(STDERR_FILENO) == 1, std::cerr) {}

    // Starts the phone's runner; a phone whose runner cannot start gets its row at once.
    void Start(const std::string &phone) {
        std::vector<std::string> arguments = {options_.runner,
                                              "--snapshot",
                                              options_.folder + "/" + phone,
                                              "--report",
                                              PhoneFile(options_.out, phone, ".json"),
                                              "--html",
                                              PhoneFile(options_.out, phone, ".html")};
        arguments.insert(arguments.end(), options_.runnerOptions.begin(), options_.runnerOptions.end());
        const Clock::time_point start = Clock::now();
        UniqueFd stdoutFd(memfd_create("runner-stdout", MFD_CLOEXEC));
        UniqueFd stderrFd(memfd_create("runner-stderr", MFD_CLOEXEC));
        if (!stdoutFd.Valid() || !stderrFd.Valid()) {
            Finish(phone, -1, std::string("could not start its runner: ") + std::strerror(errno), start);
            return;
        }
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, stdoutFd.Get(), STDOUT_FILENO);
        posix_spawn_file_actions_adddup2(&actions, stderrFd.Get(), STDERR_FILENO);
        std::vector<char *> argv = Pointers(arguments);
        std::vector<char *> envp = Pointers(environment_);
        pid_t pid = -1;
        int failure = posix_spawn(&pid, options_.runner.c_str(), &actions, nullptr, argv.data(), envp.data());
        posix_spawn_file_actions_destroy(&actions);
        if (failure != 0) {
            Finish(phone, -1, std::string("could not start its runner: ") + std::strerror(failure), start);
            return;
        }
        running_[pid] = {phone, start, std::move(stdoutFd), std::move(stderrFd)};
    }

    size_t Running() const { return running_.size(); }

    // Waits for one phone's runner to end and takes its row.
    void WaitForOne() {
        int status = 0;
        pid_t pid = waitpid(-1, &status, 0);
        if (pid < 0) {
            if (errno != EINTR) {
                // The runners' ends cannot be collected: each running phone still gets its row.
                const std::string problem =
                    std::string("its runner's end could not be collected: ") + std::strerror(errno);
                for (auto &[lost, phone] : running_) {
                    Finish(phone.name, -1, problem, phone.start);
                }
                running_.clear();
            }
            return;
        }
        auto it = running_.find(pid);
        if (it == running_.end()) {
            return;
        }
        RunningPhone phone = std::move(it->second);
        running_.erase(it);
        const int exitStatus = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        std::string problem;
        if (WIFSIGNALED(status)) {
            problem = "its runner was ended by signal " + std::to_string(WTERMSIG(status)) + " (" +
                      strsignal(WTERMSIG(status)) + ")";
        } else if (exitStatus != 0 && exitStatus != 1) {
            problem = ProblemOf(ReadBack(phone.stderrFd.Get(), MAX_STDERR_BYTES));
            if (problem.empty()) {
                problem = "its runner ended with exit status " + std::to_string(exitStatus);
            }
        }
        Finish(phone.name, exitStatus, problem, phone.start,
               ReadBack(phone.stdoutFd.Get(), MAX_SUMMARY_BYTES));
    }

    std::vector<nlohmann::json> TakeRows() {
        progress_.Finish();
        return std::move(rows_);
    }

private:
    void Finish(const std::string &phone, int exitStatus, const std::string &problem, Clock::time_point start,
                const std::string &summary = "") {
        const double wallMs = std::chrono::duration<double, std::milli>(Clock::now() - start).count();
        const std::string summaryPath = PhoneFile(options_.out, phone, ".txt");
        std::string writeProblem;
        if (!summary.empty()) {
            writeProblem = WriteOwnerOnlyFile(summaryPath, summary);
        } else {
            unlink(summaryPath.c_str());  // an earlier run's
        }
        nlohmann::json row =
            PhoneRow(options_.out, phone, exitStatus, problem.empty() ? writeProblem : problem, wallMs);
        const std::string result = row["result"];
        progress_.PhoneDone(phone, result, result != RESTORED);
        rows_.push_back(std::move(row));
    }

    const BatchOptions &options_;
    std::vector<std::string> environment_;
    BatchProgress progress_;
    std::map<pid_t, RunningPhone> running_;
    std::vector<nlohmann::json> rows_;
};

}  // namespace

int RunBatch(const BatchOptions &options, std::string &error) {
    std::vector<std::string> phones = FolderEntries(options.folder, error);
    if (!error.empty()) {
        return EXIT_BAD_USAGE;
    }
    phones = ShardEntries(std::move(phones), options.shard);
    error = MakeOutFolders(options.out);
    if (!error.empty()) {
        return EXIT_BAD_USAGE;
    }
    const Clock::time_point start = Clock::now();
    BatchRun run(options, phones.size());
    size_t next = 0;
    while (next < phones.size() || run.Running() > 0) {
        while (next < phones.size() && run.Running() < options.jobs) {
            run.Start(phones[next++]);
        }
        if (run.Running() > 0) {
            run.WaitForOne();
        }
    }
    const double elapsedMs = std::chrono::duration<double, std::milli>(Clock::now() - start).count();
    nlohmann::json index = BuildIndex(
        run.TakeRows(), options.sharded ? std::optional<Shard>(options.shard) : std::nullopt, elapsedMs);
    error = WriteIndex(options.out, index);
    return error.empty() ? IndexExitStatus(index) : EXIT_BAD_USAGE;
}

}  // namespace Zarvo::Host

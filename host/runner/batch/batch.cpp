#include "batch.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <map>
#include <memory>
#include <thread>

#include "archive_snapshot.h"
#include "batch_index.h"
#include "batch_progress.h"
#include "owner_only_file.h"
#include "support/fd_io.h"
#include "support/printable.h"
#include "support/unique_fd.h"

namespace Zarvo::Host {
namespace {

using Zarvo::Support::Printable;

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
    Clock::time_point deadline;
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

// What a phone's runner holds of the batch: only what a program started anew would have inherited
// (no descriptor the batch keeps close-on-exec: other phones' files, the folder's listing).
void CloseBatchDescriptors() {
    std::vector<int> inherited;
    UniqueFd dir(open("/proc/self/fd", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    std::vector<std::string> names;
    if (dir.Valid() && ListDirectoryNames(dir.Get(), names) == 0) {
        for (const std::string &name : names) {
            const int fd = std::atoi(name.c_str());
            if (fd > STDERR_FILENO && fd != dir.Get() && (fcntl(fd, F_GETFD) & FD_CLOEXEC) != 0) {
                inherited.push_back(fd);
            }
        }
    }
    for (int fd : inherited) {
        close(fd);
    }
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
    // `waited`: the signals the batch has blocked to wait for them; `runnerSignalMask`: the mask it
    // had before, which its runners start with.
    BatchRun(const BatchOptions &options, size_t total, const sigset_t &waited,
             const sigset_t &runnerSignalMask)
        : options_(options),
          waited_(waited),
          runnerSignalMask_(runnerSignalMask),
          progress_(total, isatty(STDERR_FILENO) == 1, std::cerr) {}

    // Starts the phone's runner in a process group of its own, so that the sandbox and the migrate
    // service it starts can be ended with it; a phone whose runner cannot start, or whose name
    // cannot name its files, gets its row at once.
    void Start(const std::string &phone) {
        const Clock::time_point start = Clock::now();
        const std::string nameProblem = PhoneNameProblem(phone);
        if (!nameProblem.empty()) {
            Finish(phone, -1, "its name " + nameProblem + "; rename it to restore it", start, false);
            return;
        }
        std::vector<std::string> arguments = {"--snapshot", options_.folder + "/" + phone,
                                              "--report",   PhoneFile(options_.out, phone, ".json"),
                                              "--html",     PhoneFile(options_.out, phone, ".html")};
        arguments.insert(arguments.end(), options_.runnerOptions.begin(), options_.runnerOptions.end());
        UniqueFd stdoutFd(memfd_create("runner-stdout", MFD_CLOEXEC));
        UniqueFd stderrFd(memfd_create("runner-stderr", MFD_CLOEXEC));
        if (!stdoutFd.Valid() || !stderrFd.Valid()) {
            Finish(phone, -1, std::string("could not start its runner: ") + std::strerror(errno), start);
            return;
        }
        // What the batch has buffered must not reach the phone's summary too.
        std::cout.flush();
        std::fflush(nullptr);
        const pid_t pid = fork();
        if (pid < 0) {
            Finish(phone, -1, std::string("could not start its runner: ") + std::strerror(errno), start);
            return;
        }
        if (pid == 0) {
            RunPhoneHere(arguments, stdoutFd.Get(), stderrFd.Get());
        }
        // Both sides set the group, so that it stands before either goes on.
        setpgid(pid, pid);
        running_[pid] = {phone, start, start + options_.phoneTimeout, std::move(stdoutFd),
                         std::move(stderrFd)};
    }

    size_t Running() const { return running_.size(); }

    // Gives the phones that have ended their rows. Called once their places are taken by the next
    // phones, so that the rows are made while those run.
    void FinishEnded() {
        for (auto &[phone, status] : ended_) {
            Ended(phone, status);
        }
        ended_.clear();
    }

    // The phone's runner, in the child made for it: its own process group, the batch's signal mask
    // before it blocked what it waits for, the phone's memory files as stdout and stderr.
    [[noreturn]] void RunPhoneHere(const std::vector<std::string> &arguments, int stdoutFd, int stderrFd) {
        setpgid(0, 0);
        sigprocmask(SIG_SETMASK, &runnerSignalMask_, nullptr);
        const int input = open("/dev/null", O_RDONLY);
        if (input < 0 || dup2(input, STDIN_FILENO) < 0 || dup2(stdoutFd, STDOUT_FILENO) < 0 ||
            dup2(stderrFd, STDERR_FILENO) < 0) {
            _exit(EXIT_BAD_USAGE);
        }
        if (input != STDIN_FILENO) {
            close(input);
        }
        CloseBatchDescriptors();
        int status = EXIT_BAD_USAGE;
        try {
            status = options_.runPhone(arguments);
        } catch (const std::exception &e) {
            std::cerr << RUNNER_PREFIX << Printable(std::string("unexpected failure: ") + e.what() + ".")
                      << std::endl;
        }
        std::cout.flush();
        std::cerr.flush();
        std::fflush(nullptr);
        _exit(status);
    }

    // Waits until a phone's runner ends (FinishEnded gives it its row), a phone runs out of time
    // (it is ended and gets its row) or a signal comes to end the batch (every phone is ended
    // first, then the batch ends by that signal).
    void WaitForOne() {
        if (CollectEnded()) {
            return;
        }
        Clock::time_point earliest = Clock::time_point::max();
        for (const auto &[pid, phone] : running_) {
            earliest = std::min(earliest, phone.deadline);
        }
        const auto left = std::max(Clock::duration::zero(), earliest - Clock::now());
        const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(left);
        const timespec timeout = {static_cast<time_t>(seconds.count()),
                                  static_cast<long>(std::chrono::nanoseconds(left - seconds).count())};
        const int received = sigtimedwait(&waited_, nullptr, &timeout);
        if (received == SIGINT || received == SIGTERM || received == SIGHUP) {
            for (auto &[pid, phone] : running_) {
                EndGroup(pid);
            }
            sigprocmask(SIG_SETMASK, &runnerSignalMask_, nullptr);
            std::signal(received, SIG_DFL);
            raise(received);
            _exit(128 + received);
        }
        if (received < 0 && errno == EAGAIN) {
            EndOverdue();
        }
    }

    std::vector<nlohmann::json> TakeRows() {
        FinishEnded();
        progress_.Finish();
        return std::move(rows_);
    }

private:
    // Takes the rows of every runner that has ended; false when none had.
    bool CollectEnded() {
        bool collected = false;
        for (;;) {
            int status = 0;
            const pid_t pid = waitpid(-1, &status, WNOHANG);
            if (pid == 0) {
                return collected;
            }
            if (pid < 0) {
                if (errno == EINTR) {
                    continue;
                }
                // The runners' ends cannot be collected: each running phone still gets its row.
                const std::string problem =
                    std::string("its runner's end could not be collected: ") + std::strerror(errno);
                for (auto &[lost, phone] : running_) {
                    EndGroup(lost);
                    Finish(phone.name, -1, problem, phone.start);
                }
                running_.clear();
                return true;
            }
            auto it = running_.find(pid);
            if (it != running_.end()) {
                ended_.push_back({std::move(it->second), status});
                running_.erase(it);
                collected = true;
            }
        }
    }

    void Ended(RunningPhone &phone, int status) {
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
        Finish(phone.name, exitStatus, problem, phone.start, true,
               ReadBack(phone.stdoutFd.Get(), MAX_SUMMARY_BYTES));
    }

    void EndOverdue() {
        const Clock::time_point now = Clock::now();
        for (auto it = running_.begin(); it != running_.end();) {
            if (it->second.deadline > now) {
                ++it;
                continue;
            }
            EndGroup(it->first);
            Finish(it->second.name, -1,
                   "it ran out of time: its runner was still running after " +
                       std::to_string(options_.phoneTimeout.count()) + " s (--phone-timeout) and was ended",
                   it->second.start);
            it = running_.erase(it);
        }
    }

    // Ends a runner with everything in its process group (its sandbox, the migrate service) and
    // collects its end.
    static void EndGroup(pid_t pid) {
        kill(-pid, SIGKILL);
        while (waitpid(pid, nullptr, 0) < 0 && errno == EINTR) {
        }
        // The sandbox and the service die as soon as the kernel gets to them: wait for that (a
        // bounded while), so that nothing of the phone outlives its row.
        for (int waited = 0; waited < 500 && kill(-pid, 0) == 0; ++waited) {
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
    }

    // `ownFiles`: the phone's name names its files below `out`.
    void Finish(const std::string &phone, int exitStatus, const std::string &problem, Clock::time_point start,
                bool ownFiles = true, const std::string &summary = "") {
        const double wallMs = std::chrono::duration<double, std::milli>(Clock::now() - start).count();
        const std::string summaryPath = PhoneFile(options_.out, phone, ".txt");
        std::string writeProblem;
        if (!summary.empty()) {
            writeProblem = WriteOwnerOnlyFile(summaryPath, summary);
        } else if (ownFiles) {
            unlink(summaryPath.c_str());  // an earlier run's
        }
        nlohmann::json row =
            PhoneRow(options_.out, phone, exitStatus, problem.empty() ? writeProblem : problem, wallMs);
        const std::string result = row["result"];
        progress_.PhoneDone(phone, result, result != RESTORED);
        rows_.push_back(std::move(row));
    }

    const BatchOptions &options_;
    sigset_t waited_;
    sigset_t runnerSignalMask_;
    BatchProgress progress_;
    std::map<pid_t, RunningPhone> running_;
    std::vector<std::pair<RunningPhone, int>> ended_;  // with its wait status, until it has its row
    std::vector<nlohmann::json> rows_;
};

std::string BatchEndLine(const nlohmann::json &totals, const std::string &indexPage) {
    const int phones = totals["phones"].get<int>();
    std::string line = std::to_string(phones) + (phones == 1 ? " phone" : " phones");
    std::string separator = ": ";
    for (const auto &[member, words] :
         {std::pair{"restored", RESTORED}, std::pair{"notRestored", NOT_RESTORED},
          std::pair{"notSetUp", NOT_SET_UP}}) {
        const int count = totals[member].get<int>();
        if (count > 0) {
            line += separator + std::to_string(count) + " " + words;
            separator = ", ";
        }
    }
    return line + "; index: " + indexPage;
}

}  // namespace

int RunBatch(const BatchOptions &options, std::string &error) {
    std::vector<std::string> phones = FolderEntries(options.folder, error);
    if (!error.empty()) {
        return EXIT_BAD_USAGE;
    }
    // A shard may well be empty on a small shelf; a shelf never.
    if (phones.empty()) {
        error = "the --batch folder " + options.folder +
                " holds no phone (hidden entries and the later pieces of a split backup are none).";
        return EXIT_BAD_USAGE;
    }
    phones = ShardEntries(std::move(phones), options.shard);
    error = MakeOutFolders(options.out);
    if (!error.empty()) {
        return EXIT_BAD_USAGE;
    }
    const Clock::time_point start = Clock::now();
    // The ends of the runners, the deadlines and the signals that end a batch are all waited for
    // in one place (sigtimedwait), so these signals stay blocked while the phones run.
    sigset_t waited;
    sigemptyset(&waited);
    for (int waitedFor : {SIGCHLD, SIGINT, SIGTERM, SIGHUP}) {
        sigaddset(&waited, waitedFor);
    }
    sigset_t previous;
    sigprocmask(SIG_BLOCK, &waited, &previous);
    BatchRun run(options, phones.size(), waited, previous);
    size_t next = 0;
    while (next < phones.size() || run.Running() > 0) {
        while (next < phones.size() && run.Running() < options.jobs) {
            run.Start(phones[next++]);
        }
        run.FinishEnded();
        if (run.Running() > 0) {
            run.WaitForOne();
        }
    }
    sigprocmask(SIG_SETMASK, &previous, nullptr);
    const double elapsedMs = std::chrono::duration<double, std::milli>(Clock::now() - start).count();
    nlohmann::json index = BuildIndex(
        run.TakeRows(), options.sharded ? std::optional<Shard>(options.shard) : std::nullopt, elapsedMs);
    error = WriteIndex(options.out, index);
    if (!error.empty()) {
        return EXIT_BAD_USAGE;
    }
    std::cout << BatchEndLine(index["totals"], options.out + "/index.html") << std::endl;
    return IndexExitStatus(index);
}

}  // namespace Zarvo::Host

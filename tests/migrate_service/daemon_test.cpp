// The daemon executable: its command line, readiness signal, journal file and stop signal, and how
// it holds up against hostile clients: hard links out of its roots, failed hand-overs, connections
// that idle, stall or crowd it, and running out of descriptors.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <nlohmann/json.hpp>
#include <sstream>

#include "migrate_peers.h"
#include "test_files.h"

using namespace Zarvo::Testing;
using Zarvo::Host::MigrateOp;

namespace {

const std::string ROOT = "/data/root";
const std::string OTHER_ROOT = "/dev/unix/other";  // on another file system than ROOT
const std::string JOURNAL = "/data/journal.jsonl";
const std::string DAEMON_STDERR = "/data/daemon.stderr";
#if defined(__SANITIZE_ADDRESS__)
constexpr bool SANITIZED_BUILD = true;
#elif defined(__has_feature)
constexpr bool SANITIZED_BUILD = __has_feature(address_sanitizer);
#else
constexpr bool SANITIZED_BUILD = false;
#endif

std::vector<nlohmann::json> JournalLines() {
    std::vector<nlohmann::json> lines;
    std::istringstream in(ReadFile(JOURNAL));
    for (std::string line; std::getline(in, line);) {
        lines.push_back(nlohmann::json::parse(line));
    }
    return lines;
}

// The lines of the journal with this outcome.
std::vector<nlohmann::json> JournalLines(const std::string &outcome) {
    std::vector<nlohmann::json> matching;
    for (nlohmann::json &line : JournalLines()) {
        if (line["outcome"] == outcome) {
            matching.push_back(std::move(line));
        }
    }
    return matching;
}

// A connection is busy from reading a request until its reply is sent, and its thread marks it
// idle or busy a moment after the client can see that; this leaves that moment generous room.
void SettleDaemon() {
    usleep(300 * 1000);
}

// A seccomp filter that answers openat2 with EPERM, as a container's filter may.
bool RefuseOpenat2() {
    sock_filter filter[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_openat2, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EPERM),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    };
    sock_fprog program = {static_cast<unsigned short>(std::size(filter)), filter};
    unsetenv("ZARVO_MIGRATE_PATH_WALK");  // the daemon must find out by itself
    return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
           prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
}

bool Served(const Zarvo::Host::MigrateRequest &request) {
    RawReply reply = Exchange(request);
    return reply.complete && reply.result == 0;
}

// The daemon in a child process, its stderr kept in DAEMON_STDERR. Stopped with SIGTERM at the end.
class DaemonTest : public testing::Test {
protected:
    void TearDown() override {
        if (pid_ > 0) {
            EXPECT_EQ(Stop(), 0) << ReadFile(DAEMON_STDERR);
        }
    }

    // Starts the daemon with `args` and waits for its readiness signal. With `fileLimit`, the
    // daemon may hold at most that many descriptors; with `withoutOpenat2`, a seccomp filter
    // refuses it that call.
    void Start(const std::vector<std::string> &args, rlim_t fileLimit = 0, bool withoutOpenat2 = false) {
        int ready[2];
        ASSERT_EQ(pipe(ready), 0);
        pid_ = fork();
        if (pid_ == 0) {
            close(ready[0]);
            int err = open(DAEMON_STDERR.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
            dup2(err, STDERR_FILENO);
            rlimit limit = {fileLimit, fileLimit};
            if ((fileLimit > 0 && setrlimit(RLIMIT_NOFILE, &limit) != 0) ||
                (withoutOpenat2 && !RefuseOpenat2())) {
                _exit(126);
            }
            std::vector<std::string> all = {MIGRATE_SERVICE_BINARY, "--ready-fd", std::to_string(ready[1])};
            all.insert(all.end(), args.begin(), args.end());
            std::vector<char *> argv;
            for (std::string &arg : all) {
                argv.push_back(arg.data());
            }
            argv.push_back(nullptr);
            execv(MIGRATE_SERVICE_BINARY, argv.data());
            _exit(127);
        }
        close(ready[1]);
        char buf[16] = {};
        ssize_t got = read(ready[0], buf, sizeof(buf));
        close(ready[0]);
        ASSERT_EQ(got, 6) << ReadFile(DAEMON_STDERR);
        ASSERT_STREQ(buf, "ready\n");
    }

    // SIGTERM, then the exit status (-1 when it did not exit normally).
    int Stop() {
        kill(pid_, SIGTERM);
        int status = 0;
        waitpid(pid_, &status, 0);
        pid_ = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    // User plus system CPU time the daemon has used, in clock ticks.
    long CpuTicks() const {
        std::string stat = ReadFile("/proc/" + std::to_string(pid_) + "/stat");
        std::istringstream fields(stat.substr(stat.rfind(')') + 2));
        std::vector<std::string> values(std::istream_iterator<std::string>(fields), {});
        // After the command: state is field 3, utime field 14 and stime field 15.
        return std::stol(values.at(11)) + std::stol(values.at(12));
    }

    pid_t pid_ = -1;
};

// Bad usage or input exits 2 and a service that cannot be served exits 1, each with one sentence.
TEST_F(DaemonTest, BadCommandLinesEndWithOneSentenceAndFailure) {
    std::ofstream("/data/bad.json") << R"({"faults": [{"action": "melt"}]})";
    std::ofstream("/data/state.json") << "[1, 2]";
    for (const auto &[args, expected] :
         std::vector<std::pair<std::string, int>>{{"--no-such-option", 2},
                                                  {"--allow relative/dir", 2},
                                                  {"--allow /data/a/../b", 2},
                                                  {"--faults /data/bad.json", 2},
                                                  {"--faults /data/missing.json", 2},
                                                  {"--device-state /data/state.json", 2},
                                                  {"--ready-fd 77", 2},
                                                  {"--socket /data/" + std::string(200, 's'), 2},
                                                  {"--max-connections 0", 2},
                                                  {"--request-timeout 0", 2},
                                                  {"--idle-timeout -1", 2},
                                                  {"--journal /data/no/such/dir/journal", 1}}) {
        // Only stderr comes through the pipe.
        FILE *pipe = popen((MIGRATE_SERVICE_BINARY " " + args + " 2>&1 >/dev/null").c_str(), "r");
        ASSERT_NE(pipe, nullptr);
        std::string err;
        for (int c; (c = fgetc(pipe)) != EOF;) {
            err += static_cast<char>(c);
        }
        int status = pclose(pipe);
        ASSERT_TRUE(WIFEXITED(status)) << args;
        EXPECT_EQ(WEXITSTATUS(status), expected) << args;
        EXPECT_FALSE(err.empty()) << args;
        EXPECT_EQ(err.find('\n'), err.size() - 1) << args << ": " << err;
    }
}

TEST_F(DaemonTest, SignalsReadinessJournalsRequestsAppliesDeviceStateFaultsAndStopsOnTerm) {
    std::ofstream("/data/state.json")
        << R"({"accounts": [], "migrateService": {"faults": [{"operation": "IS_DIR", "result": 9, "action": "fail"}]}})";
    Start({"--journal", JOURNAL, "--device-state", "/data/state.json", "--allow", ROOT});

    auto request = Request(MigrateOp::IS_DIR, ROOT);
    EXPECT_EQ(Exchange(request).result, 9);
    EXPECT_EQ(Exchange(request).result, 0);
    request.src = "/data/app/el2/x";
    EXPECT_EQ(Exchange(request).errCode, EACCES) << "--allow replaces the default roots";

    EXPECT_EQ(Stop(), 0);
    EXPECT_NE(access(MIGRATE_SOCKET.c_str(), F_OK), 0) << "the socket is removed";
    std::vector<nlohmann::json> lines = JournalLines();
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[0]["outcome"], "fault");
    EXPECT_EQ(lines[0]["operation"], "IS_DIR");
    EXPECT_EQ(lines[1]["outcome"], "served");
    EXPECT_EQ(lines[1]["src"], "/data/root");
    EXPECT_EQ(lines[2]["outcome"], "refused");
    EXPECT_EQ(lines[2]["errCode"], EACCES);
    EXPECT_EQ(lines[2]["seq"], 3);
}

// Under a filter that refuses openat2 the daemon says once that it walks paths, and refuses a link
// on the way just as it does with the call: same errno, same journal note.
TEST_F(DaemonTest, WithOpenat2RefusedPathsAreWalkedWithTheSameAnswers) {
    std::filesystem::create_directories(ROOT);
    std::filesystem::create_directories("/data/outside");
    ASSERT_EQ(symlink("/data/outside", (ROOT + "/out").c_str()), 0);
    WriteFile(ROOT + "/dir/file", "x");
    std::vector<nlohmann::json> answers[2];
    for (bool withoutOpenat2 : {false, true}) {
        std::filesystem::remove(JOURNAL);
        Start({"--journal", JOURNAL, "--allow", ROOT}, 0, withoutOpenat2);
        EXPECT_EQ(Exchange(Request(MigrateOp::IS_FILE_EXIST, ROOT + "/dir/file")).result, 0);
        EXPECT_EQ(Exchange(Request(MigrateOp::IS_FILE_EXIST, ROOT + "/out/x")).errCode, ELOOP);
        EXPECT_EQ(Exchange(Request(MigrateOp::MK_DIR, ROOT + "/out/made")).errCode, ELOOP);
        EXPECT_EQ(Exchange(Request(MigrateOp::IS_DIR, ROOT + "/missing/x")).errCode, ENOENT);
        EXPECT_EQ(Stop(), 0);
        for (nlohmann::json &line : JournalLines()) {
            answers[withoutOpenat2].push_back({line["outcome"], line["errCode"], line.value("note", "")});
        }
        std::string err = ReadFile(DAEMON_STDERR);
        if (withoutOpenat2) {
            EXPECT_NE(err.find("openat2 cannot be used (Operation not permitted)"), std::string::npos) << err;
            EXPECT_EQ(std::count(err.begin(), err.end(), '\n'), 1) << err;
        }
    }
    EXPECT_EQ(answers[0], answers[1]);
    EXPECT_FALSE(std::filesystem::exists("/data/outside/made"));
}

// A hard link inside the root to a file outside it: nothing that would change or hand over the
// outside file goes through, at the top of a request or deep in a tree; the link itself may go.
TEST_F(DaemonTest, HardLinksNeverReachTheFileOutsideTheRoots) {
    const std::vector<std::string> outside = {"/data/outside/secret", "/data/outside/deep"};
    for (const std::string &path : outside) {
        WriteFile(path, "secret", 0640);
    }
    WriteFile(ROOT + "/tree/own", "own", 0644);
    ASSERT_EQ(link(outside[0].c_str(), (ROOT + "/link").c_str()), 0);
    ASSERT_EQ(link(outside[1].c_str(), (ROOT + "/tree/shared").c_str()), 0);
    std::filesystem::create_directories(OTHER_ROOT);
    Start({"--journal", JOURNAL, "--allow", ROOT, "--allow", OTHER_ROOT});

    struct Row {
        MigrateOp op;
        std::string src, dst, uid, perm;
        int32_t recurseOpt;
        int errCode;          // 0: allowed
        std::string refused;  // the path the refusal names
    };
    const std::string tree = ROOT + "/tree";
    const std::vector<Row> rows = {
        {MigrateOp::CHMOD, ROOT + "/link", "", "", "0777", 0, EMLINK, ROOT + "/link"},
        {MigrateOp::CHOWN, ROOT + "/link", "", "4242", "", 0, EMLINK, ROOT + "/link"},
        {MigrateOp::CHOWN, tree, "", "4242", "", 2, EMLINK, tree + "/shared"},
        {MigrateOp::CHMOD, tree, "", "", "0777", 2, EMLINK, tree + "/shared"},
        {MigrateOp::PREPARE_DIR, tree, "", "4242", "0777", 2, EMLINK, tree + "/shared"},
        {MigrateOp::COPY_ALL_FILE, ROOT + "/link", ROOT + "/copy", "", "", 0, EMLINK, ROOT + "/link"},
        {MigrateOp::COPY_ALL_FILE, tree, ROOT + "/copy", "", "", 0, EMLINK, tree + "/shared"},
        {MigrateOp::COPY_SUB_FILE, tree, ROOT + "/copy", "", "", 0, EMLINK, tree + "/shared"},
        {MigrateOp::MOVE_ALL_FILE, ROOT + "/link", OTHER_ROOT + "/x", "", "", 0, EMLINK, ROOT + "/link"},
        {MigrateOp::MOVE_ALL_FILE, ROOT + "/link", ROOT + "/moved", "", "", 0, 0, ""},
        {MigrateOp::REMOVE_FILE, ROOT + "/moved", "", "", "", 0, 0, ""},
    };
    for (const Row &row : rows) {
        auto request = Request(row.op, row.src, row.dst);
        request.uid = request.gid = row.uid;
        request.perm = row.perm;
        request.recurseOpt = row.recurseOpt;
        RawReply reply = Exchange(request);
        std::string label = Zarvo::Host::MigrateOpName(request.type) + " " + row.src;
        EXPECT_EQ(reply.result, row.errCode == 0 ? 0 : -1) << label;
        EXPECT_EQ(reply.errCode, row.errCode) << label;
    }
    EXPECT_FALSE(std::filesystem::exists(OTHER_ROOT + "/x"));
    EXPECT_FALSE(std::filesystem::exists(ROOT + "/copy/shared"));
    EXPECT_FALSE(std::filesystem::exists(ROOT + "/link"));
    for (const std::string &path : outside) {
        struct stat st = Lstat(path);
        EXPECT_EQ(st.st_mode & 07777, 0640u) << path << ": not changed, nor narrowed by a move of its link";
        EXPECT_EQ(st.st_uid, 0u) << path;
        EXPECT_EQ(st.st_gid, 0u) << path;
        EXPECT_EQ(ReadFile(path), "secret");
    }

    EXPECT_EQ(Stop(), 0);
    std::vector<nlohmann::json> refusals = JournalLines("refused");
    ASSERT_EQ(refusals.size(), 9u);
    for (size_t i = 0; i < refusals.size(); ++i) {
        EXPECT_EQ(refusals[i]["errCode"], EMLINK);
        EXPECT_EQ(refusals[i]["note"].get<std::string>().rfind(rows[i].refused + " has 2 hard links", 0), 0u)
            << refusals[i]["note"];
    }
}

// What the service makes is owner-only until a CHMOD says otherwise, so a hand-over whose CHMOD
// fails leaves nothing readable to others.
TEST_F(DaemonTest, CreatedAndMovedFilesAreOwnerOnlyUntilChmod) {
    WriteFile(ROOT + "/token", "token", 0644);
    WriteFile(ROOT + "/tree/file", "file", 0644);
    WriteFile(ROOT + "/moved", "moved", 0644);
    WriteFile(ROOT + "/crossed", "crossed", 0644);
    WriteFile(ROOT + "/kept", "kept", 0644);
    chmod((ROOT + "/tree").c_str(), 0755);
    std::filesystem::create_directories(ROOT + "/app/busy/inside");
    std::filesystem::create_directories(OTHER_ROOT);
    Start({"--allow", ROOT, "--allow", OTHER_ROOT});

    EXPECT_TRUE(Served(Request(MigrateOp::COPY_ALL_FILE, ROOT + "/token", ROOT + "/app/token")));
    auto chmod = Request(MigrateOp::CHMOD, ROOT + "/app/token");
    chmod.perm = "0800";
    EXPECT_EQ(Exchange(chmod).errCode, EINVAL);
    EXPECT_TRUE(Served(Request(MigrateOp::COPY_ALL_FILE, ROOT + "/tree", ROOT + "/app/tree")));
    EXPECT_TRUE(Served(Request(MigrateOp::MOVE_ALL_FILE, ROOT + "/moved", ROOT + "/app/moved")));
    EXPECT_TRUE(Served(Request(MigrateOp::MOVE_ALL_FILE, ROOT + "/crossed", OTHER_ROOT + "/crossed")));
    // A rename over a non-empty directory fails: the file keeps its own mode.
    EXPECT_EQ(Exchange(Request(MigrateOp::MOVE_ALL_FILE, ROOT + "/kept", ROOT + "/app/busy")).errCode,
              EISDIR);

    struct Expected {
        std::string path, content;
        mode_t mode;
    };
    for (const Expected &e : std::vector<Expected>{{ROOT + "/app/token", "token", 0600},
                                                   {ROOT + "/app/tree", "", 0700},
                                                   {ROOT + "/app/tree/file", "file", 0600},
                                                   {ROOT + "/app/moved", "moved", 0600},
                                                   {OTHER_ROOT + "/crossed", "crossed", 0600},
                                                   {ROOT + "/kept", "kept", 0644}}) {
        struct stat st = Lstat(e.path);
        EXPECT_EQ(st.st_mode & 07777, e.mode) << e.path;
        EXPECT_EQ(st.st_uid, 0u) << e.path;
        EXPECT_EQ(st.st_gid, 0u) << e.path;
        if (S_ISREG(st.st_mode)) {
            EXPECT_EQ(ReadFile(e.path), e.content);
        }
    }
    EXPECT_FALSE(std::filesystem::exists(ROOT + "/crossed"));
}

// A client that sends part of a request, or nothing, is closed after the short timeouts while
// others are served.
TEST_F(DaemonTest, PartialRequestsAndIdleConnectionsAreClosedAfterTheirTimeouts) {
    Start({"--journal", JOURNAL, "--allow", ROOT, "--request-timeout", "1", "--idle-timeout", "2"});
    RawConnection half;
    RawConnection idle;
    ASSERT_TRUE(half.SendBytes(std::string(100, '\0')));
    ASSERT_TRUE(half.WaitUntilRead());
    EXPECT_TRUE(Served(Request(MigrateOp::IS_DIR, ROOT)));
    EXPECT_TRUE(half.PeerClosed());
    EXPECT_TRUE(idle.PeerClosed());

    EXPECT_EQ(Stop(), 0);
    std::vector<nlohmann::json> incomplete = JournalLines("incomplete");
    ASSERT_EQ(incomplete.size(), 1u);
    EXPECT_EQ(incomplete[0]["note"], "100 of 2388 request bytes, then nothing more for 1 s");
}

// A newcomer to a full table takes the place of the connection that has waited longest for a
// request; only when every connection is being served is it turned away.
TEST_F(DaemonTest, FullTableMakesRoomByClosingTheLongestIdleConnection) {
    std::ofstream("/data/stall.json")
        << R"({"faults": [{"operation": "GET_PATH_SIZE", "action": "stall", "stallMs": 600000, "count": -1}]})";
    Start({"--journal", JOURNAL, "--allow", ROOT, "--max-connections", "2", "--faults", "/data/stall.json"});
    auto isDir = Request(MigrateOp::IS_DIR, ROOT);
    RawConnection first;
    RawConnection second;
    EXPECT_EQ(first.Exchange(isDir).result, 0);
    SettleDaemon();
    EXPECT_EQ(second.Exchange(isDir).result, 0);
    SettleDaemon();
    RawConnection third;
    EXPECT_EQ(third.Exchange(isDir).result, 0);
    EXPECT_TRUE(first.PeerClosed());
    EXPECT_EQ(second.Exchange(isDir).result, 0) << "the more recent idle connection stays";

    // Both places busy with stalled requests: a newcomer is closed at once.
    for (RawConnection *busy : {&second, &third}) {
        ASSERT_TRUE(busy->SendBytes(RequestBytes(Request(MigrateOp::GET_PATH_SIZE, ROOT))));
        ASSERT_TRUE(busy->WaitUntilRead());
    }
    SettleDaemon();
    RawConnection fourth;
    EXPECT_TRUE(fourth.PeerClosed());

    EXPECT_EQ(Stop(), 0) << "stopping ends the stalls";
    std::vector<nlohmann::json> closed = JournalLines("closed");
    ASSERT_EQ(closed.size(), 1u);
    EXPECT_EQ(closed[0]["connection"], 1);
    std::vector<nlohmann::json> refused = JournalLines("refused");
    ASSERT_EQ(refused.size(), 1u);
    EXPECT_EQ(refused[0]["connection"], 4);
    EXPECT_NE(refused[0]["note"].get<std::string>().find("being served"), std::string::npos);
}

// A reply its client does not take keeps the connection busy only until the request timeout,
// however the client trickles it out; then the connection's place goes to a newcomer.
TEST_F(DaemonTest, AReplyNotTakenInTimeGivesUpItsPlace) {
    // A path list far larger than the socket's buffers.
    std::filesystem::create_directories(ROOT + "/big");
    for (int i = 0; i < 3000; ++i) {
        std::ofstream(ROOT + "/big/" + std::string(150, 'n') + std::to_string(i));
    }
    Start({"--allow", ROOT, "--max-connections", "1", "--request-timeout", "1"});
    RawConnection slow;
    ASSERT_TRUE(slow.SendBytes(RequestBytes(Request(MigrateOp::GET_PATH_LIST, ROOT + "/big"))));
    ASSERT_TRUE(slow.WaitUntilRead());
    usleep(2 * 1000 * 1000);
    EXPECT_TRUE(Served(Request(MigrateOp::IS_DIR, ROOT)));
}

// With every descriptor taken, a new client's connection is closed rather than left waiting, the
// daemon does not spin, and serving resumes once descriptors are free.
TEST_F(DaemonTest, RunningOutOfDescriptorsClosesNewcomersWithoutSpinning) {
    Start({"--allow", ROOT, "--max-connections", "500"}, 32);
    auto isDir = Request(MigrateOp::IS_DIR, ROOT);
    std::vector<std::unique_ptr<RawConnection>> held;
    bool exhausted = false;
    while (!exhausted && held.size() < 100) {
        auto connection = std::make_unique<RawConnection>();
        exhausted = !connection->Exchange(isDir).complete;
        held.push_back(std::move(connection));
    }
    ASSERT_TRUE(exhausted);

    long ticksBefore = CpuTicks();
    auto start = std::chrono::steady_clock::now();
    int turnedAway = 0;
    while (std::chrono::steady_clock::now() - start < std::chrono::seconds(1)) {
        RawConnection newcomer;
        ASSERT_TRUE(newcomer.Connected());
        ASSERT_TRUE(newcomer.PeerClosed()) << "closed rather than left waiting";
        ++turnedAway;
        usleep(20 * 1000);
    }
    double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    long ticks = CpuTicks() - ticksBefore;
    // A loop spinning on the waiting client would take about all of one CPU.
    EXPECT_LT(static_cast<double>(ticks), 0.25 * seconds * static_cast<double>(sysconf(_SC_CLK_TCK)))
        << turnedAway << " clients turned away";

    std::string err = ReadFile(DAEMON_STDERR);
    EXPECT_NE(err.find("out of file descriptors"), std::string::npos) << err;
    EXPECT_EQ(std::count(err.begin(), err.end(), '\n'), 1) << "one line for the episode: " << err;
    if (SANITIZED_BUILD) {
        // The sanitizers check a type through a pipe of their own; with every descriptor taken, the
        // first connection thread to end fails that check and aborts the daemon.
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
        pid_ = -1;
        return;
    }

    held.clear();
    bool served = false;
    for (int i = 0; i < 200 && !served; ++i) {
        served = Served(isDir);
        if (!served) {
            usleep(50 * 1000);
        }
    }
    EXPECT_TRUE(served);
    EXPECT_EQ(Stop(), 0);
    EXPECT_EQ(ReadFile(DAEMON_STDERR), err) << "nothing more once descriptors are free";
}

}  // namespace

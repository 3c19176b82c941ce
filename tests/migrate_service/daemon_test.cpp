// The daemon executable: its command line, readiness signal, journal file and stop signal.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <nlohmann/json.hpp>

#include "migrate_peers.h"

using namespace Zarvo::Testing;

namespace {

TEST(DaemonTest, BadCommandLinesEndWithOneSentenceAndFailure) {
    std::ofstream("/data/bad.json") << R"({"faults": [{"action": "melt"}]})";
    std::ofstream("/data/state.json") << "[1, 2]";
    for (const std::string &args : std::vector<std::string>{
             "--no-such-option", "--allow relative/dir", "--allow /data/a/../b", "--faults /data/bad.json",
             "--faults /data/missing.json", "--device-state /data/state.json", "--ready-fd 77",
             "--journal /data/no/such/dir/journal", "--socket /data/" + std::string(200, 's')}) {
        // Only stderr comes through the pipe.
        FILE *pipe = popen((MIGRATE_SERVICE_BINARY " " + args + " 2>&1 >/dev/null").c_str(), "r");
        ASSERT_NE(pipe, nullptr);
        std::string err;
        for (int c; (c = fgetc(pipe)) != EOF;) {
            err += static_cast<char>(c);
        }
        int status = pclose(pipe);
        ASSERT_TRUE(WIFEXITED(status)) << args;
        EXPECT_EQ(WEXITSTATUS(status), 1) << args;
        EXPECT_FALSE(err.empty()) << args;
        EXPECT_EQ(err.find('\n'), err.size() - 1) << args << ": " << err;
    }
}

TEST(DaemonTest, SignalsReadinessJournalsRequestsAppliesDeviceStateFaultsAndStopsOnTerm) {
    std::ofstream("/data/state.json")
        << R"({"accounts": [], "migrateService": {"faults": [{"operation": "IS_DIR", "result": 9, "action": "fail"}]}})";
    int ready[2];
    ASSERT_EQ(pipe(ready), 0);
    pid_t pid = fork();
    if (pid == 0) {
        close(ready[0]);
        std::string fd = std::to_string(ready[1]);
        execl(MIGRATE_SERVICE_BINARY, MIGRATE_SERVICE_BINARY, "--ready-fd", fd.c_str(), "--journal",
              "/data/journal.jsonl", "--device-state", "/data/state.json", "--allow", "/data/root", nullptr);
        _exit(127);
    }
    close(ready[1]);
    char buf[16] = {};
    ASSERT_EQ(read(ready[0], buf, sizeof(buf)), 6);
    EXPECT_STREQ(buf, "ready\n");
    close(ready[0]);

    auto request = Request(Zarvo::Host::MigrateOp::IS_DIR, "/data/root");
    EXPECT_EQ(Exchange(request).result, 9);
    EXPECT_EQ(Exchange(request).result, 0);
    request.src = "/data/app/el2/x";
    EXPECT_EQ(Exchange(request).errCode, EACCES) << "--allow replaces the default roots";

    kill(pid, SIGTERM);
    int status = 0;
    waitpid(pid, &status, 0);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0);
    EXPECT_NE(access(MIGRATE_SOCKET.c_str(), F_OK), 0) << "the socket is removed";

    std::ifstream journal("/data/journal.jsonl");
    std::vector<nlohmann::json> lines;
    for (std::string line; std::getline(journal, line);) {
        lines.push_back(nlohmann::json::parse(line));
    }
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[0]["outcome"], "fault");
    EXPECT_EQ(lines[0]["operation"], "IS_DIR");
    EXPECT_EQ(lines[1]["outcome"], "served");
    EXPECT_EQ(lines[1]["src"], "/data/root");
    EXPECT_EQ(lines[2]["outcome"], "refused");
    EXPECT_EQ(lines[2]["errCode"], EACCES);
    EXPECT_EQ(lines[2]["seq"], 3);
}

}  // namespace

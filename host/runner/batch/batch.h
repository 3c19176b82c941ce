#ifndef HOST_RUNNER_BATCH_H
#define HOST_RUNNER_BATCH_H

#include <chrono>
#include <string>
#include <vector>

#include "batch_shard.h"

namespace Zarvo::Host {

// The runner's start (nanoseconds since the epoch), handed from a runner to the one it starts in
// its sandbox so that set-up time counts. A phone's runner in a batch measures from its own start.
constexpr char START_TIME_VARIABLE[] = "ZARVO_RUNNER_START_NS";

struct BatchOptions {
    std::string folder;  // every entry (a snapshot folder or file) is one phone
    std::string out;
    unsigned jobs = 1;
    // A phone's runner still running after this is ended, with everything it started.
    std::chrono::seconds phoneTimeout{300};
    Shard shard;
    bool sharded = false;
    std::string runner;                      // the runner binary each phone runs in
    std::vector<std::string> runnerOptions;  // given to every phone's runner
};

// Restores every phone of the folder (of the shard), each in its own runner process and sandbox,
// `jobs` at a time, each in its own process group. Writes phones/<name>.json, .html and .txt (the summary)
// and the index into `out`, telling the progress on stderr. Returns the batch's exit status (see
// IndexExitStatus), or 2 with one sentence in `error` when the batch itself cannot run.
int RunBatch(const BatchOptions &options, std::string &error);

}  // namespace Zarvo::Host

#endif  // HOST_RUNNER_BATCH_H

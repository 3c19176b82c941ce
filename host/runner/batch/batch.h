#ifndef HOST_RUNNER_BATCH_H
#define HOST_RUNNER_BATCH_H

#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include "batch_shard.h"

namespace Zarvo::Host {

struct BatchOptions {
    std::string folder;  // every entry (a snapshot folder or file) is one phone
    std::string out;
    unsigned jobs = 1;
    // A phone's runner still running after this is ended, with everything it started.
    std::chrono::seconds phoneTimeout{300};
    Shard shard;
    bool sharded = false;
    // Runs one phone's runner with these options in the calling process (a child of the batch made
    // for the phone) and returns its exit status.
    std::function<int(const std::vector<std::string> &)> runPhone;
    std::vector<std::string> runnerOptions;  // given to every phone's runner
};

// Restores every phone of the folder (of the shard), each in its own runner process and sandbox,
// `jobs` at a time, each in its own process group. Writes phones/<name>.json, .html and .txt (the summary)
// and the index into `out`, telling the progress on stderr. Returns the batch's exit status (see
// IndexExitStatus), or 2 with one sentence in `error` when the batch itself cannot run.
int RunBatch(const BatchOptions &options, std::string &error);

}  // namespace Zarvo::Host

#endif  // HOST_RUNNER_BATCH_H

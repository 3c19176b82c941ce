#ifndef HOST_RUNNER_BATCH_PROGRESS_H
#define HOST_RUNNER_BATCH_PROGRESS_H

#include <chrono>
#include <ostream>
#include <string>

namespace Zarvo::Host {

// Tells how a batch goes as phones finish: done of total, failed so far and the time left,
// estimated from the pace so far. On a terminal it is one line that keeps being rewritten,
// elsewhere (a log file, a scheduler's output) one plain line per phone.
class BatchProgress {
public:
    BatchProgress(size_t total, bool terminal, std::ostream &out);
    void PhoneDone(const std::string &phone, const std::string &result, bool failed);
    // Ends the updating line.
    void Finish();

private:
    size_t total_;
    size_t done_ = 0;
    size_t failed_ = 0;
    bool terminal_;
    std::ostream &out_;
    std::chrono::steady_clock::time_point start_;
};

}  // namespace Zarvo::Host

#endif  // HOST_RUNNER_BATCH_PROGRESS_H

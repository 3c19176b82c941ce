#include "batch_progress.h"

#include <cmath>

#include "support/printable.h"

namespace Zarvo::Host {

using Support::Printable;
namespace {

std::string Duration(double seconds) {
    const long rounded = std::lround(seconds);
    if (rounded < 60) {
        return std::to_string(rounded) + " s";
    }
    return std::to_string(rounded / 60) + " min " + std::to_string(rounded % 60) + " s";
}

}  // namespace

BatchProgress::BatchProgress(size_t total, bool terminal, std::ostream &out)
    : total_(total), terminal_(terminal), out_(out), start_(std::chrono::steady_clock::now()) {}

void BatchProgress::PhoneDone(const std::string &phone, const std::string &result, bool failed) {
    ++done_;
    failed_ += failed ? 1 : 0;
    const double elapsed = std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
    const double left = elapsed / static_cast<double>(done_) * static_cast<double>(total_ - done_);
    const std::string status =
        std::to_string(done_) + "/" + std::to_string(total_) + " done, " + std::to_string(failed_) +
        " failed, " +
        (done_ == total_ ? "finished in " + Duration(elapsed) : "about " + Duration(left) + " left");
    if (terminal_) {
        out_ << "\r\x1b[K" << status << std::flush;
    } else {
        out_ << status << " (" << Printable(phone) << ": " << result << ")" << std::endl;
    }
}

void BatchProgress::Finish() {
    if (terminal_ && done_ > 0) {
        out_ << std::endl;
    }
}

}  // namespace Zarvo::Host

#include "migrate_service/request_journal.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <nlohmann/json.hpp>

#include "support/fd_io.h"

namespace Zarvo::Host {

std::string JournalOutcomeName(JournalOutcome outcome) {
    switch (outcome) {
        case JournalOutcome::SERVED:
            return "served";
        case JournalOutcome::REFUSED:
            return "refused";
        case JournalOutcome::FAULT:
            return "fault";
        case JournalOutcome::DROPPED:
            return "dropped";
        case JournalOutcome::INCOMPLETE:
            return "incomplete";
        case JournalOutcome::CLOSED:
            return "closed";
    }
    return "unknown";
}

nlohmann::json JournalEntryJson(const JournalEntry &entry) {
    const MigrateRequest &request = entry.request;
    nlohmann::json json = {
        {"seq", entry.seq},
        {"timeMs", entry.timeMs},
        {"connection", entry.connection},
        {"outcome", JournalOutcomeName(entry.outcome)},
        {"type", request.type},
        {"operation", MigrateOpName(request.type)},
        {"src", request.src},
        {"dst", request.dst},
        {"uid", request.uid},
        {"gid", request.gid},
        {"perm", request.perm},
        {"recurseOpt", request.recurseOpt},
        {"result", entry.result},
        {"errCode", entry.errCode},
        {"pkgNum", entry.pkgNum},
        {"durationUs", entry.durationUs},
    };
    if (!entry.note.empty()) {
        json["note"] = entry.note;
    }
    return json;
}

std::string JournalEntryToJson(const JournalEntry &entry) {
    return JournalEntryJson(entry).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

RequestJournal::~RequestJournal() {
    CloseFile();
}

bool RequestJournal::OpenFile(const std::string &path, std::string &error) {
    // Owner-only, and never written through a link in its place.
    int fd = open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600);
    if (fd < 0) {
        error = "cannot open journal " + path + ": " + std::strerror(errno);
        return false;
    }
    CloseFile();
    {
        std::lock_guard<std::mutex> writing(writeMutex_);
        fd_ = fd;
    }
    std::lock_guard<std::mutex> lock(mutex_);
    hasFile_ = true;
    writer_ = std::thread(&RequestJournal::WriterLoop, this);
    return true;
}

void RequestJournal::CloseFile() {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        stopWriter_ = true;
    }
    wake_.notify_all();
    if (writer_.joinable()) {
        writer_.join();
    }
    Flush();
    std::lock_guard<std::mutex> writing(writeMutex_);
    if (fd_ >= 0) {
        close(fd_);
        fd_ = -1;
    }
    std::lock_guard<std::mutex> lock(mutex_);
    hasFile_ = false;
    stopWriter_ = false;
}

void RequestJournal::WriterLoop() {
    std::unique_lock<std::mutex> lock(mutex_);
    for (;;) {
        wake_.wait(lock, [this] { return stopWriter_ || !unwritten_.empty(); });
        // Let the batch gather; whatever is left when stopping is written by CloseFile.
        if (stopWriter_ || wake_.wait_for(lock, WRITE_DELAY, [this] { return stopWriter_; })) {
            return;
        }
        lock.unlock();
        Flush();
        lock.lock();
    }
}

void RequestJournal::Record(JournalEntry entry) {
    entry.timeMs = std::chrono::duration_cast<std::chrono::milliseconds>(
                       std::chrono::system_clock::now().time_since_epoch())
                       .count();
    bool wakeWriter = false;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        entry.seq = nextSeq_++;
        if (hasFile_) {
            // Only the first entry of a batch wakes the writer, which then waits for the rest.
            wakeWriter = unwritten_.empty();
            unwritten_.push_back(entry);
        }
        entries_.push_back(std::move(entry));
        if (entries_.size() > MEMORY_LIMIT) {
            entries_.pop_front();
        }
    }
    if (wakeWriter) {
        wake_.notify_one();
    }
}

void RequestJournal::Flush() {
    std::lock_guard<std::mutex> writing(writeMutex_);
    std::vector<JournalEntry> batch;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        batch.swap(unwritten_);
    }
    if (fd_ < 0 || batch.empty()) {
        return;
    }
    std::string text;
    for (const JournalEntry &entry : batch) {
        text += JournalEntryToJson(entry);
        text += '\n';
    }
    // A full disk loses these lines, not the service: the entries stay in memory.
    (void)WriteAll(fd_, text.data(), text.size());
}

std::vector<JournalEntry> RequestJournal::Entries() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return {entries_.begin(), entries_.end()};
}

void RequestJournal::Clear() {
    std::lock_guard<std::mutex> lock(mutex_);
    entries_.clear();
}

}  // namespace Zarvo::Host

#include "migrate_service/request_journal.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <nlohmann/json.hpp>

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

std::string JournalEntryToJson(const JournalEntry &entry) {
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
    return json.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

RequestJournal::~RequestJournal() {
    if (file_ != nullptr) {
        std::fclose(file_);
    }
}

bool RequestJournal::OpenFile(const std::string &path, std::string &error) {
    // Owner-only, and never written through a link in its place.
    const int fd = open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600);
    std::FILE *file = fd < 0 ? nullptr : fdopen(fd, "a");
    if (file == nullptr) {
        error = "cannot open journal " + path + ": " + std::strerror(errno);
        if (fd >= 0) {
            close(fd);
        }
        return false;
    }
    std::lock_guard<std::mutex> lock(mutex_);
    if (file_ != nullptr) {
        std::fclose(file_);
    }
    file_ = file;
    return true;
}

void RequestJournal::Record(JournalEntry entry) {
    entry.timeMs = std::chrono::duration_cast<std::chrono::milliseconds>(
                       std::chrono::system_clock::now().time_since_epoch())
                       .count();
    std::lock_guard<std::mutex> lock(mutex_);
    entry.seq = nextSeq_++;
    if (file_ != nullptr) {
        std::string line = JournalEntryToJson(entry);
        line += '\n';
        std::fwrite(line.data(), 1, line.size(), file_);
        std::fflush(file_);
    }
    entries_.push_back(std::move(entry));
    if (entries_.size() > MEMORY_LIMIT) {
        entries_.pop_front();
    }
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

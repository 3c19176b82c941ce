#ifndef MIGRATE_SERVICE_REQUEST_JOURNAL_H
#define MIGRATE_SERVICE_REQUEST_JOURNAL_H

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <nlohmann/json.hpp>
#include <string>
#include <thread>
#include <vector>

#include "migrate_service/migrate_protocol.h"

namespace Zarvo::Host {

// What became of one request.
enum class JournalOutcome {
    SERVED,      // performed; the result may still be a failure of the operation
    REFUSED,     // not performed: malformed or outside what the service allows
    FAULT,       // answered by an injected failure
    DROPPED,     // connection closed by an injected fault, no reply
    INCOMPLETE,  // the connection ended, or timed out, before a whole request arrived
    CLOSED,      // an idle connection closed by the service to make room for a newcomer
};

struct JournalEntry {
    uint64_t seq = 0;
    int64_t timeMs = 0;
    uint64_t connection = 0;
    JournalOutcome outcome = JournalOutcome::SERVED;
    MigrateRequest request;
    int32_t result = 0;
    int32_t errCode = 0;
    int32_t pkgNum = 0;
    int64_t durationUs = 0;
    std::string note;
};

std::string JournalOutcomeName(JournalOutcome outcome);
// The entry as a JSON object; `note` only when there is one.
nlohmann::json JournalEntryJson(const JournalEntry &entry);
// One JSON object on one line (no newline), with texts that are not UTF-8 repaired: the text of
// JournalEntryJson, written without building the object when no text needs escaping.
std::string JournalEntryToJson(const JournalEntry &entry);
// Appends that line to `out`.
void AppendJournalLine(std::string &out, const JournalEntry &entry);

// The requests the service has seen, kept in memory (the most recent ones) and appended to a
// file of JSON lines when one is given. Lines reach the file from a writer thread, in batches at
// most WRITE_DELAY after their entry was recorded, so that recording costs no system call; Flush
// and the destructor write whatever is still waiting.
class RequestJournal {
public:
    static constexpr size_t MEMORY_LIMIT = 10000;
    static constexpr std::chrono::milliseconds WRITE_DELAY{50};

    RequestJournal() = default;
    ~RequestJournal();
    RequestJournal(const RequestJournal &) = delete;
    RequestJournal &operator=(const RequestJournal &) = delete;

    // Appends to `path` from now on; false with `error` set when it cannot be opened. The file is
    // made owner-only if missing, and never opened through a symbolic link.
    bool OpenFile(const std::string &path, std::string &error);
    // Numbers and stamps the entry, keeps it and queues it for the file.
    void Record(JournalEntry entry);
    // Writes every entry recorded so far to the file before it returns.
    void Flush();
    std::vector<JournalEntry> Entries() const;
    void Clear();

private:
    void WriterLoop();
    void CloseFile();

    mutable std::mutex mutex_;
    std::deque<JournalEntry> entries_;
    uint64_t nextSeq_ = 1;

    // The file and its writer. `writeMutex_` keeps batches whole and in order on the file.
    std::mutex writeMutex_;
    int fd_ = -1;                          // under writeMutex_
    bool hasFile_ = false;                 // under mutex_
    std::vector<JournalEntry> unwritten_;  // under mutex_
    // The batch being written and its text, under writeMutex_; kept, emptied, between batches so
    // that their memory is not asked for again each time.
    std::vector<JournalEntry> batch_;
    std::string batchText_;
    bool stopWriter_ = false;  // under mutex_
    std::condition_variable wake_;
    std::thread writer_;
};

}  // namespace Zarvo::Host

#endif  // MIGRATE_SERVICE_REQUEST_JOURNAL_H

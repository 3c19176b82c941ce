#include "migrate_service/request_journal.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <chrono>
#include <cstring>
#include <nlohmann/json.hpp>
#include <string_view>

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

namespace {
// About the length of a journal line with one short path, to size a batch's text once.
constexpr size_t LINE_SIZE_GUESS = 320;

// True when JSON writes the text unchanged: printable ASCII without a quote or a backslash.
bool IsPlainText(const std::string &text) {
    for (unsigned char c : text) {
        if (c < 0x20 || c > 0x7e || c == '"' || c == '\\') {
            return false;
        }
    }
    return true;
}

// A member: `prefix` is everything before its value (the separating comma, the quoted name,
// the colon, and the opening quote of a text).
template <typename Number>
void AppendNumber(std::string &out, std::string_view prefix, Number value) {
    char digits[24];
    auto end = std::to_chars(digits, digits + sizeof(digits), value).ptr;
    out.append(prefix);
    out.append(digits, end);
}

void AppendText(std::string &out, std::string_view prefix, std::string_view text) {
    out.append(prefix);
    out.append(text);
    out += '"';
}
}  // namespace

void AppendJournalLine(std::string &out, const JournalEntry &entry) {
    const MigrateRequest &request = entry.request;
    const std::string operation = MigrateOpName(request.type);
    const std::string outcome = JournalOutcomeName(entry.outcome);
    for (const std::string *text : {&request.src, &request.dst, &request.uid, &request.gid, &request.perm,
                                    &entry.note, &operation, &outcome}) {
        if (!IsPlainText(*text)) {
            out += JournalEntryJson(entry).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
            return;
        }
    }
    // Written directly, with the members in the order the JSON object keeps them (by name).
    AppendNumber(out, "{\"connection\":", entry.connection);
    AppendText(out, ",\"dst\":\"", request.dst);
    AppendNumber(out, ",\"durationUs\":", entry.durationUs);
    AppendNumber(out, ",\"errCode\":", entry.errCode);
    AppendText(out, ",\"gid\":\"", request.gid);
    if (!entry.note.empty()) {
        AppendText(out, ",\"note\":\"", entry.note);
    }
    AppendText(out, ",\"operation\":\"", operation);
    AppendText(out, ",\"outcome\":\"", outcome);
    AppendText(out, ",\"perm\":\"", request.perm);
    AppendNumber(out, ",\"pkgNum\":", entry.pkgNum);
    AppendNumber(out, ",\"recurseOpt\":", request.recurseOpt);
    AppendNumber(out, ",\"result\":", entry.result);
    AppendNumber(out, ",\"seq\":", entry.seq);
    AppendText(out, ",\"src\":\"", request.src);
    AppendNumber(out, ",\"timeMs\":", entry.timeMs);
    AppendNumber(out, ",\"type\":", request.type);
    AppendText(out, ",\"uid\":\"", request.uid);
    out += '}';
}

std::string JournalEntryToJson(const JournalEntry &entry) {
    std::string line;
    line.reserve(LINE_SIZE_GUESS);
    AppendJournalLine(line, entry);
    return line;
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
    {
        std::lock_guard<std::mutex> lock(mutex_);
        batch_.swap(unwritten_);
    }
    if (fd_ >= 0 && !batch_.empty()) {
        batchText_.clear();
        batchText_.reserve(batch_.size() * LINE_SIZE_GUESS);
        for (const JournalEntry &entry : batch_) {
            AppendJournalLine(batchText_, entry);
            batchText_ += '\n';
        }
        // A full disk loses these lines, not the service: the entries stay in memory.
        (void)WriteAll(fd_, batchText_.data(), batchText_.size());
    }
    batch_.clear();
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

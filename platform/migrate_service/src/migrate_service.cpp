#include "migrate_service/migrate_service.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <set>
#include <system_error>
#include <thread>

#include "path_guard.h"
#include "request_handler.h"
#include "unique_fd.h"

namespace Zarvo::Host {

const char *const MIGRATE_SERVICE_SOCKET_PATH = "/dev/unix/socket/file_migrate_ability";

std::vector<std::string> DefaultAllowedRoots() {
    return {"/data/service/el1/public/update/migrate_server/", "/data/app/el2/"};
}

namespace {
constexpr int LISTEN_BACKLOG = 16;
constexpr int SEND_TIMEOUT_SECONDS = 10;
constexpr mode_t ROOT_DIR_MODE = 0755;
constexpr mode_t SOCKET_MODE = 0600;

std::string Describe(const std::string &what, int err) {
    return what + ": " + std::strerror(err);
}

bool MakeDirectories(const std::string &path, std::string &error) {
    std::vector<std::string> components;
    PathGuard::Normalise(path, components);
    for (size_t count = 1; count <= components.size(); ++count) {
        std::string prefix = PathGuard::Join(components, count);
        if (mkdir(prefix.c_str(), ROOT_DIR_MODE) != 0 && errno != EEXIST) {
            error = Describe("cannot make the allowed root " + path, errno);
            return false;
        }
    }
    struct stat st {};
    if (stat(path.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) {
        error = "the allowed root " + path + " is not a directory";
        return false;
    }
    return true;
}

bool FillAddress(const std::string &path, sockaddr_un &address) {
    address = {};
    address.sun_family = AF_UNIX;
    if (path.empty() || path.size() >= sizeof(address.sun_path)) {
        return false;
    }
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    return true;
}

// True when something already accepts connections on the path.
bool SomeoneListens(const sockaddr_un &address) {
    UniqueFd probe(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    return probe.Valid() &&
           connect(probe.Get(), reinterpret_cast<const sockaddr *>(&address), sizeof(address)) == 0;
}

// Reads exactly `length` bytes; the count read when the stream ends or fails first.
size_t ReadFull(int fd, unsigned char *buf, size_t length) {
    size_t got = 0;
    while (got < length) {
        ssize_t n = recv(fd, buf + got, length - got, 0);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            break;
        }
        got += static_cast<size_t>(n);
    }
    return got;
}

bool WriteFull(int fd, const std::string &data) {
    size_t sent = 0;
    while (sent < data.size()) {
        ssize_t n = send(fd, data.data() + sent, data.size() - sent, MSG_NOSIGNAL);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            return false;
        }
        sent += static_cast<size_t>(n);
    }
    return true;
}

int64_t MicrosecondsSince(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() - start)
        .count();
}
}  // namespace

struct MigrateService::Impl {
    explicit Impl(MigrateServiceOptions opts)
        : options(std::move(opts)), guard(std::make_unique<PathGuard>(options.allowedRoots)) {}

    void AcceptLoop();
    void ServeConnection(UniqueFd fd, uint64_t id);
    // False when the connection must end.
    bool ServeOneRequest(int fd, uint64_t id);
    // Waits up to `ms` milliseconds; false when the service is stopping.
    bool PauseUnlessStopping(int32_t ms);

    MigrateServiceOptions options;
    std::unique_ptr<PathGuard> guard;
    FaultPlan faults;
    RequestJournal journal;

    UniqueFd listenFd;
    UniqueFd wakeFd;
    std::thread acceptThread;
    bool started = false;

    std::mutex mutex;
    std::condition_variable changed;
    std::atomic<bool> stopping{false};
    std::set<int> connections;
    uint64_t nextConnection = 1;
};

void MigrateService::Impl::AcceptLoop() {
    for (;;) {
        pollfd fds[2] = {{listenFd.Get(), POLLIN, 0}, {wakeFd.Get(), POLLIN, 0}};
        if (poll(fds, 2, -1) < 0) {
            if (errno == EINTR) {
                continue;
            }
            return;
        }
        if (stopping.load() || (fds[1].revents & POLLIN) != 0) {
            return;
        }
        if ((fds[0].revents & POLLIN) == 0) {
            continue;
        }
        UniqueFd client(accept4(listenFd.Get(), nullptr, nullptr, SOCK_CLOEXEC));
        if (!client.Valid()) {
            continue;
        }
        std::lock_guard<std::mutex> lock(mutex);
        // Over the limit the connection is closed at once; a client sees a failed exchange.
        if (stopping.load() || connections.size() >= options.maxConnections) {
            continue;
        }
        uint64_t id = nextConnection++;
        int fd = client.Get();
        connections.insert(fd);
        try {
            std::thread(&Impl::ServeConnection, this, std::move(client), id).detach();
        } catch (const std::system_error &) {
            // No thread to serve it: the connection is closed like one over the limit.
            connections.erase(fd);
        }
    }
}

void MigrateService::Impl::ServeConnection(UniqueFd fd, uint64_t id) {
    timeval idle = {options.idleTimeoutSeconds, 0};
    timeval sendTimeout = {SEND_TIMEOUT_SECONDS, 0};
    setsockopt(fd.Get(), SOL_SOCKET, SO_RCVTIMEO, &idle, sizeof(idle));
    setsockopt(fd.Get(), SOL_SOCKET, SO_SNDTIMEO, &sendTimeout, sizeof(sendTimeout));
    while (!stopping.load() && ServeOneRequest(fd.Get(), id)) {
    }
    std::lock_guard<std::mutex> lock(mutex);
    connections.erase(fd.Get());
    fd.Reset();
    changed.notify_all();
}

bool MigrateService::Impl::PauseUnlessStopping(int32_t ms) {
    std::unique_lock<std::mutex> lock(mutex);
    return !changed.wait_for(lock, std::chrono::milliseconds(ms), [this] { return stopping.load(); });
}

bool MigrateService::Impl::ServeOneRequest(int fd, uint64_t id) {
    unsigned char buf[REQUEST_LENGTH];
    size_t got = ReadFull(fd, buf, sizeof(buf));
    auto start = std::chrono::steady_clock::now();
    JournalEntry entry;
    entry.connection = id;
    if (got != sizeof(buf)) {
        if (got > 0) {
            entry.outcome = JournalOutcome::INCOMPLETE;
            entry.note = "connection ended after " + std::to_string(got) + " of " +
                         std::to_string(REQUEST_LENGTH) + " request bytes";
            journal.Record(std::move(entry));
        }
        return false;
    }
    std::string badField;
    bool terminated = DecodeRequest(buf, entry.request, badField);
    MigrateReply reply;
    std::optional<FaultRule> fault = terminated ? faults.Take(entry.request.type) : std::nullopt;
    if (fault && fault->action == FaultAction::STALL && !PauseUnlessStopping(fault->stallMs)) {
        return false;
    }
    if (fault && fault->action == FaultAction::DROP) {
        entry.outcome = JournalOutcome::DROPPED;
        entry.note = "connection closed without a reply by an injected fault";
        entry.durationUs = MicrosecondsSince(start);
        journal.Record(std::move(entry));
        return false;
    }
    if (!terminated) {
        reply = MigrateReply{-1, EINVAL, {}};
        entry.outcome = JournalOutcome::REFUSED;
        entry.note = "field " + badField + " is not NUL-terminated";
    } else if (fault && fault->action == FaultAction::FAIL) {
        reply = MigrateReply{fault->result, fault->errCode, {}};
        entry.outcome = JournalOutcome::FAULT;
        entry.note = "injected failure";
    } else {
        Verdict verdict;
        reply = RequestHandler(*guard).Handle(entry.request, verdict);
        entry.outcome = verdict.refused ? JournalOutcome::REFUSED : JournalOutcome::SERVED;
        entry.note = std::move(verdict.note);
        if (fault) {
            entry.note = "stalled " + std::to_string(fault->stallMs) + " ms by an injected fault" +
                         (entry.note.empty() ? "" : "; " + entry.note);
        }
    }
    entry.result = reply.result;
    entry.errCode = reply.errCode;
    entry.pkgNum = static_cast<int32_t>(reply.packageTexts.size());
    entry.durationUs = MicrosecondsSince(start);
    // Journalled before the reply leaves, so a client that has its answer finds the entry.
    journal.Record(std::move(entry));
    return WriteFull(fd, EncodeReply(reply));
}

MigrateService::MigrateService(MigrateServiceOptions options)
    : impl_(std::make_unique<Impl>(std::move(options))) {}

MigrateService::~MigrateService() {
    Stop();
}

bool MigrateService::Start(std::string &error) {
    Impl &s = *impl_;
    if (s.started) {
        error = "the migrate service is already started";
        return false;
    }
    if (!s.guard->Valid()) {
        error = "every allowed root must be an absolute path without \"..\"";
        return false;
    }
    for (const std::string &root : s.guard->Roots()) {
        if (!MakeDirectories(root, error)) {
            return false;
        }
    }
    // Links in the roots' own paths are resolved once here; requests may then contain none.
    s.guard = std::make_unique<PathGuard>(PathGuard::CanonicalRoots(s.guard->Roots()));
    if (!s.options.journalPath.empty() && !s.journal.OpenFile(s.options.journalPath, error)) {
        return false;
    }
    sockaddr_un address{};
    sockaddr_un staging{};
    std::string stagingPath = s.options.socketPath + ".starting";
    if (!FillAddress(s.options.socketPath, address) || !FillAddress(stagingPath, staging)) {
        error = "the socket path " + s.options.socketPath + " is empty or too long";
        return false;
    }
    if (SomeoneListens(address)) {
        error = "another service is already listening on " + s.options.socketPath;
        return false;
    }
    std::string parent = s.options.socketPath.substr(0, s.options.socketPath.rfind('/'));
    if (!parent.empty() && parent[0] == '/' && !MakeDirectories(parent, error)) {
        return false;
    }
    s.listenFd.Reset(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    s.wakeFd.Reset(eventfd(0, EFD_CLOEXEC));
    if (!s.listenFd.Valid() || !s.wakeFd.Valid()) {
        error = Describe("cannot create the service socket", errno);
        return false;
    }
    // Bound under a staging name and renamed once listening, so that the socket path appearing
    // means connections are accepted.
    unlink(stagingPath.c_str());
    if (bind(s.listenFd.Get(), reinterpret_cast<sockaddr *>(&staging), sizeof(staging)) != 0 ||
        chmod(stagingPath.c_str(), SOCKET_MODE) != 0 || listen(s.listenFd.Get(), LISTEN_BACKLOG) != 0 ||
        rename(stagingPath.c_str(), s.options.socketPath.c_str()) != 0) {
        error = Describe("cannot listen on " + s.options.socketPath, errno);
        unlink(stagingPath.c_str());
        s.listenFd.Reset();
        return false;
    }
    s.stopping = false;
    s.started = true;
    s.acceptThread = std::thread(&Impl::AcceptLoop, impl_.get());
    return true;
}

void MigrateService::Stop() {
    Impl &s = *impl_;
    if (!s.started) {
        return;
    }
    {
        std::lock_guard<std::mutex> lock(s.mutex);
        s.stopping = true;
        for (int fd : s.connections) {
            shutdown(fd, SHUT_RDWR);
        }
    }
    s.changed.notify_all();
    uint64_t one = 1;
    (void)!write(s.wakeFd.Get(), &one, sizeof(one));
    s.acceptThread.join();
    std::unique_lock<std::mutex> lock(s.mutex);
    s.changed.wait(lock, [&s] { return s.connections.empty(); });
    lock.unlock();
    unlink(s.options.socketPath.c_str());
    s.listenFd.Reset();
    s.wakeFd.Reset();
    s.started = false;
}

FaultPlan &MigrateService::Faults() {
    return impl_->faults;
}

RequestJournal &MigrateService::Journal() {
    return impl_->journal;
}

const MigrateServiceOptions &MigrateService::Options() const {
    return impl_->options;
}

}  // namespace Zarvo::Host

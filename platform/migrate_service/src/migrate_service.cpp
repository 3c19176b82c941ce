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
#include <cstdio>
#include <cstring>
#include <map>
#include <mutex>
#include <optional>
#include <system_error>
#include <thread>

#include "path_guard.h"
#include "request_handler.h"
#include "support/unique_fd.h"

namespace Zarvo::Host {

const char *const MIGRATE_SERVICE_SOCKET_PATH = "/dev/unix/socket/file_migrate_ability";

std::vector<std::string> DefaultAllowedRoots() {
    return {"/data/service/el1/public/update/migrate_server/", "/data/app/el2/"};
}

namespace {
constexpr int LISTEN_BACKLOG = 16;
// How long the accept loop waits before trying again when it cannot take a waiting client.
constexpr int ACCEPT_BACKOFF_MS = 100;
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

// Reads one request: waits for its first bytes as long as the socket's receive timeout allows
// (the idle timeout), then up to `requestTimeout` for the rest. The count read; `timedOut` tells
// whether the rest was too slow rather than the stream ending or failing.
size_t ReadRequest(int fd, unsigned char *buf, std::chrono::milliseconds requestTimeout, bool &timedOut) {
    ssize_t n = 0;
    do {
        n = recv(fd, buf, REQUEST_LENGTH, 0);
    } while (n < 0 && errno == EINTR);
    if (n <= 0) {
        return 0;
    }
    size_t got = static_cast<size_t>(n);
    if (got == REQUEST_LENGTH) {
        return got;
    }
    auto deadline = std::chrono::steady_clock::now() + requestTimeout;
    while (got < REQUEST_LENGTH) {
        auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        pollfd wait = {fd, POLLIN, 0};
        int ready = left.count() > 0 ? poll(&wait, 1, static_cast<int>(left.count())) : 0;
        if (ready == 0) {
            timedOut = true;
            break;
        }
        n = ready < 0 ? -1 : recv(fd, buf + got, REQUEST_LENGTH - got, MSG_DONTWAIT);
        if (n < 0 && (errno == EINTR || errno == EAGAIN)) {
            continue;
        }
        if (n <= 0) {
            break;
        }
        got += static_cast<size_t>(n);
    }
    return got;
}

// Sends all of `data` within `timeout`: one deadline for the whole reply, so that a client that
// takes a few bytes now and then cannot keep its connection busy for as long as it likes. The
// clock is read only once the socket is full: a reply that fits is sent at once.
bool WriteFull(int fd, const std::string &data, std::chrono::seconds timeout) {
    std::optional<std::chrono::steady_clock::time_point> deadline;
    size_t sent = 0;
    while (sent < data.size()) {
        ssize_t n = send(fd, data.data() + sent, data.size() - sent, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (n > 0) {
            sent += static_cast<size_t>(n);
            continue;
        }
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n == 0 || (errno != EAGAIN && errno != EWOULDBLOCK)) {
            return false;
        }
        if (!deadline) {
            deadline = std::chrono::steady_clock::now() + timeout;
        }
        auto left =
            std::chrono::ceil<std::chrono::milliseconds>(*deadline - std::chrono::steady_clock::now());
        pollfd wait = {fd, POLLOUT, 0};
        if (left.count() <= 0 || poll(&wait, 1, static_cast<int>(left.count())) == 0) {
            return false;
        }
    }
    return true;
}

int64_t MicrosecondsSince(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() - start)
        .count();
}

UniqueFd OpenSpareDescriptor() {
    return UniqueFd(open("/dev/null", O_RDONLY | O_CLOEXEC));
}
}  // namespace

struct MigrateService::Impl {
    explicit Impl(MigrateServiceOptions opts)
        : options(std::move(opts)), guard(std::make_unique<PathGuard>(options.allowedRoots)) {}

    // An accepted connection. It is idle while it waits for a request (or the rest of one) and
    // busy while a request is performed and answered.
    struct Connection {
        int fd = -1;
        bool busy = false;
        bool closing = false;  // closed by the service to make room; its thread is ending
        std::chrono::steady_clock::time_point idleSince;
    };

    void AcceptLoop();
    // Gives the connection a place in the table, or closes it when every place is busy.
    void Admit(UniqueFd client);
    // Closes the connection that has waited longest for a request; false when all are busy.
    bool MakeRoomLocked(uint64_t newcomer);
    // Out of descriptors: lets one waiting client in on the spare descriptor and closes it at
    // once, so that it sees a closed connection instead of waiting. False when that failed.
    bool TurnAwayOneClient();
    void ServeConnection(UniqueFd fd, uint64_t id);
    // False when the connection must end.
    bool ServeOneRequest(int fd, uint64_t id);
    // Marks the connection busy; false when it was closed to make room meanwhile.
    bool StartServing(uint64_t id);
    void FinishServing(uint64_t id);
    // Waits up to `ms` milliseconds; false when the service is stopping.
    bool PauseUnlessStopping(int32_t ms);

    MigrateServiceOptions options;
    std::unique_ptr<PathGuard> guard;
    FaultPlan faults;
    RequestJournal journal;

    UniqueFd listenFd;
    UniqueFd wakeFd;
    UniqueFd spareFd;
    std::thread acceptThread;
    bool started = false;

    std::mutex mutex;
    std::condition_variable changed;
    std::atomic<bool> stopping{false};
    std::map<uint64_t, Connection> connections;  // by id
    size_t closingConnections = 0;
    uint64_t nextConnection = 1;
};

void MigrateService::Impl::AcceptLoop() {
    bool outOfDescriptors = false;
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
        if (client.Valid()) {
            outOfDescriptors = false;
            if (!spareFd.Valid()) {
                spareFd = OpenSpareDescriptor();
            }
            Admit(std::move(client));
            continue;
        }
        int err = errno;
        if (err == EINTR || err == EAGAIN || err == ECONNABORTED) {
            continue;
        }
        if (err == EMFILE || err == ENFILE) {
            if (!outOfDescriptors) {
                std::fprintf(stderr,
                             "migrate_service: out of file descriptors (%s); new connections are closed "
                             "until some are free\n",
                             std::strerror(err));
                outOfDescriptors = true;
            }
            if (TurnAwayOneClient()) {
                continue;
            }
        }
        // The client stays queued: wait a little rather than spin on it.
        pollfd wake = {wakeFd.Get(), POLLIN, 0};
        if (poll(&wake, 1, ACCEPT_BACKOFF_MS) > 0) {
            return;
        }
    }
}

bool MigrateService::Impl::TurnAwayOneClient() {
    if (!spareFd.Valid()) {
        return false;
    }
    spareFd.Reset();
    bool accepted = UniqueFd(accept4(listenFd.Get(), nullptr, nullptr, SOCK_CLOEXEC)).Valid();
    spareFd = OpenSpareDescriptor();
    return accepted && spareFd.Valid();
}

void MigrateService::Impl::Admit(UniqueFd client) {
    std::lock_guard<std::mutex> lock(mutex);
    if (stopping.load()) {
        return;
    }
    uint64_t id = nextConnection++;
    if (connections.size() - closingConnections >= options.maxConnections && !MakeRoomLocked(id)) {
        JournalEntry entry;
        entry.connection = id;
        entry.outcome = JournalOutcome::REFUSED;
        entry.note = "connection closed at once: all " + std::to_string(options.maxConnections) +
                     " connections are being served";
        journal.Record(std::move(entry));
        return;
    }
    int fd = client.Get();
    connections[id] = Connection{fd, false, false, std::chrono::steady_clock::now()};
    try {
        std::thread(&Impl::ServeConnection, this, std::move(client), id).detach();
    } catch (const std::system_error &) {
        // No thread to serve it: the connection is closed at once.
        connections.erase(id);
    }
}

bool MigrateService::Impl::MakeRoomLocked(uint64_t newcomer) {
    auto oldest = connections.end();
    for (auto it = connections.begin(); it != connections.end(); ++it) {
        const Connection &c = it->second;
        if (!c.busy && !c.closing &&
            (oldest == connections.end() || c.idleSince < oldest->second.idleSince)) {
            oldest = it;
        }
    }
    if (oldest == connections.end()) {
        return false;
    }
    oldest->second.closing = true;
    ++closingConnections;
    shutdown(oldest->second.fd, SHUT_RDWR);
    auto idleMs = std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() -
                                                                        oldest->second.idleSince);
    JournalEntry entry;
    entry.connection = oldest->first;
    entry.outcome = JournalOutcome::CLOSED;
    entry.note = "closed after waiting " + std::to_string(idleMs.count()) +
                 " ms for a request, to make room for connection " + std::to_string(newcomer) + " (all " +
                 std::to_string(options.maxConnections) + " in use)";
    journal.Record(std::move(entry));
    return true;
}

void MigrateService::Impl::ServeConnection(UniqueFd fd, uint64_t id) {
    timeval idle = {options.idleTimeoutSeconds, 0};
    setsockopt(fd.Get(), SOL_SOCKET, SO_RCVTIMEO, &idle, sizeof(idle));
    while (!stopping.load() && ServeOneRequest(fd.Get(), id)) {
    }
    std::lock_guard<std::mutex> lock(mutex);
    auto it = connections.find(id);
    if (it->second.closing) {
        --closingConnections;
    }
    connections.erase(it);
    fd.Reset();
    changed.notify_all();
}

bool MigrateService::Impl::StartServing(uint64_t id) {
    std::lock_guard<std::mutex> lock(mutex);
    Connection &c = connections.at(id);
    c.busy = !c.closing;
    return c.busy;
}

void MigrateService::Impl::FinishServing(uint64_t id) {
    auto now = std::chrono::steady_clock::now();
    std::lock_guard<std::mutex> lock(mutex);
    Connection &c = connections.at(id);
    c.busy = false;
    c.idleSince = now;
}

bool MigrateService::Impl::PauseUnlessStopping(int32_t ms) {
    std::unique_lock<std::mutex> lock(mutex);
    return !changed.wait_for(lock, std::chrono::milliseconds(ms), [this] { return stopping.load(); });
}

bool MigrateService::Impl::ServeOneRequest(int fd, uint64_t id) {
    unsigned char buf[REQUEST_LENGTH];
    bool timedOut = false;
    size_t got = ReadRequest(fd, buf, std::chrono::seconds(options.requestTimeoutSeconds), timedOut);
    auto start = std::chrono::steady_clock::now();
    JournalEntry entry;
    entry.connection = id;
    if (got != sizeof(buf)) {
        if (got > 0) {
            entry.outcome = JournalOutcome::INCOMPLETE;
            entry.note =
                std::to_string(got) + " of " + std::to_string(REQUEST_LENGTH) + " request bytes, then " +
                (timedOut ? "nothing more for " + std::to_string(options.requestTimeoutSeconds) + " s"
                          : std::string("the connection ended"));
            journal.Record(std::move(entry));
        }
        return false;
    }
    if (!StartServing(id)) {
        entry.outcome = JournalOutcome::DROPPED;
        entry.note = "the connection was closed to make room just as its request arrived";
        journal.Record(std::move(entry));
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
    bool sent = WriteFull(fd, EncodeReply(reply), std::chrono::seconds(options.requestTimeoutSeconds));
    FinishServing(id);
    return sent;
}

MigrateService::MigrateService(MigrateServiceOptions options)
    : impl_(std::make_unique<Impl>(std::move(options))) {}

MigrateService::~MigrateService() {
    Stop();
}

std::string MigrateService::OptionsProblem(const MigrateServiceOptions &options) {
    if (!PathGuard(options.allowedRoots).Valid()) {
        return "every allowed root must be an absolute path without \"..\"";
    }
    sockaddr_un address{};
    if (!FillAddress(options.socketPath + ".starting", address)) {
        return "the socket path " + options.socketPath + " is empty or too long";
    }
    return "";
}

bool MigrateService::Start(std::string &error) {
    Impl &s = *impl_;
    if (s.started) {
        error = "the migrate service is already started";
        return false;
    }
    error = OptionsProblem(s.options);
    if (!error.empty()) {
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
    FillAddress(s.options.socketPath, address);
    FillAddress(stagingPath, staging);
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
    // Held back for the moment descriptors run out, so that waiting clients can still be told no.
    s.spareFd = OpenSpareDescriptor();
    if (!s.listenFd.Valid() || !s.wakeFd.Valid() || !s.spareFd.Valid()) {
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
        for (const auto &[id, connection] : s.connections) {
            shutdown(connection.fd, SHUT_RDWR);
        }
    }
    s.changed.notify_all();
    uint64_t one = 1;
    (void)!write(s.wakeFd.Get(), &one, sizeof(one));
    s.acceptThread.join();
    std::unique_lock<std::mutex> lock(s.mutex);
    s.changed.wait(lock, [&s] { return s.connections.empty(); });
    lock.unlock();
    s.journal.Flush();
    unlink(s.options.socketPath.c_str());
    s.listenFd.Reset();
    s.wakeFd.Reset();
    s.spareFd.Reset();
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

// Drives the migrate service's request handling in process (DecodeRequest, then RequestHandler
// behind a PathGuard) against a planted work tree: two allowed roots holding files, directories,
// a pipe, symbolic links that lead outside and a hard link to a file outside, next to an "outside"
// tree and a sibling whose name starts like a root. The property: whatever the requests, nothing
// outside the roots changes (names, types, modes, owners, sizes, contents, link targets).
//
// The service runs as root and really changes owners, modes and names, so this target only runs
// inside the sandbox of fuzz/sandbox-run: the host read-only and a fresh tmpfs on /data. It checks
// that it is there before its first input.
#include <fcntl.h>
#include <ftw.h>
#include <fuzzer/FuzzedDataProvider.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "migrate_request_vocabulary.h"
#include "migrate_service/migrate_protocol.h"
#include "path_guard.h"
#include "request_handler.h"

namespace {

namespace fs = std::filesystem;
using namespace Zarvo::Fuzzing;
using Zarvo::Host::MigrateRequest;

constexpr long TMPFS_MAGIC_NUMBER = 0x01021994;
const std::string BASE = MIGRATE_FUZZ_BASE;
const std::string ROOT = BASE + "/root";
const std::string ROOT2 = BASE + "/root2";
const std::string OUTSIDE = BASE + "/outside";

[[noreturn]] void Fail(const std::string &what) {
    std::fprintf(stderr, "migrate_request_fuzzer: %s\n", what.c_str());
    std::abort();
}

void Check(bool holds, const std::string &what) {
    if (!holds) {
        Fail(what + ": " + std::strerror(errno));
    }
}

void RefuseOutsideSandbox() {
    struct statvfs root {};
    struct statfs data {};
    bool sandboxed = std::getenv("ZARVO_FUZZ_SANDBOX") != nullptr && statvfs("/", &root) == 0 &&
                     (root.f_flag & ST_RDONLY) != 0 && statfs("/data", &data) == 0 &&
                     data.f_type == TMPFS_MAGIC_NUMBER;
    if (!sandboxed) {
        std::fprintf(stderr,
                     "migrate_request_fuzzer: refusing to run outside its sandbox (the host read-only, "
                     "a tmpfs on /data); start it through fuzz/sandbox-run.\n");
        std::exit(2);
    }
}

void WriteFile(const std::string &path, const std::string &content, mode_t mode, uid_t uid = 0) {
    std::ofstream(path, std::ios::binary) << content;
    Check(chmod(path.c_str(), mode) == 0 && lchown(path.c_str(), uid, uid) == 0, "cannot plant " + path);
}

void MakeDir(const std::string &path, mode_t mode, uid_t uid = 0) {
    Check(mkdir(path.c_str(), mode) == 0 && chmod(path.c_str(), mode) == 0 &&
              lchown(path.c_str(), uid, uid) == 0,
          "cannot plant " + path);
}

void Link(const std::string &target, const std::string &path) {
    Check(symlink(target.c_str(), path.c_str()) == 0, "cannot plant " + path);
}

// The same tree for every input, so that an input reproduces on its own.
void PlantTree() {
    std::error_code ignored;
    fs::remove_all(BASE, ignored);
    MakeDir(BASE, 0755);
    MakeDir(OUTSIDE, 0755);
    WriteFile(OUTSIDE + "/secret.txt", "secret\n", 0600);
    WriteFile(OUTSIDE + "/hard.txt", "shared with a link inside\n", 0644, 1000);
    MakeDir(OUTSIDE + "/sub", 0750, 1000);
    WriteFile(OUTSIDE + "/sub/deep.txt", "deep\n", 0640);
    Link(ROOT, OUTSIDE + "/link-back");
    MakeDir(ROOT, 0755);
    WriteFile(ROOT + "/file.txt", "inside\n", 0644);
    MakeDir(ROOT + "/dir", 0755);
    WriteFile(ROOT + "/dir/a.txt", "a\n", 0600, 1000);
    MakeDir(ROOT + "/dir/sub", 0700);
    WriteFile(ROOT + "/dir/sub/b.txt", std::string(5000, 'b'), 0644);
    MakeDir(ROOT + "/empty", 0755);
    Link(OUTSIDE, ROOT + "/link-out");
    Link("../outside/secret.txt", ROOT + "/link-rel");
    Link("file.txt", ROOT + "/link-in");
    Link(OUTSIDE + "/sub", ROOT + "/dir/link-dir-out");
    Link(OUTSIDE + "/sub", ROOT + "/link-dir-out");
    Check(link((OUTSIDE + "/hard.txt").c_str(), (ROOT + "/hard-out").c_str()) == 0,
          "cannot plant the hard link");
    Check(mkfifo((ROOT + "/pipe").c_str(), 0644) == 0, "cannot plant the pipe");
    MakeDir(ROOT2, 0755);
    WriteFile(ROOT2 + "/f.txt", "second root\n", 0644);
    MakeDir(BASE + "/root-x", 0755);
    WriteFile(BASE + "/root-x/f.txt", "beside the root\n", 0644);
}

bool IsBelowRoot(const std::string &path) {
    for (const std::string &root : {ROOT, ROOT2}) {
        if (path.size() > root.size() && path.compare(0, root.size(), root) == 0 &&
            path[root.size()] == '/') {
            return true;
        }
    }
    return false;
}

// Everything in the work tree except what lies below an allowed root, one line per entry: type and
// mode, owner, and the content of a file or the target of a link. Times, link counts and the sizes
// of directories are left out: they change with what happens inside the roots.
std::string OutsideState() {
    static std::ostringstream *state = nullptr;
    std::ostringstream out;
    state = &out;
    nftw(
        BASE.c_str(),
        [](const char *path, const struct stat *st, int, FTW *) {
            if (IsBelowRoot(path)) {
                return 0;
            }
            *state << path << ' ' << std::oct << st->st_mode << std::dec << ' ' << st->st_uid << ':'
                   << st->st_gid;
            if (S_ISREG(st->st_mode)) {
                std::ifstream in(path, std::ios::binary);
                *state << " [" << std::string(std::istreambuf_iterator<char>(in), {}) << ']';
            } else if (S_ISLNK(st->st_mode)) {
                char target[PATH_MAX];
                ssize_t length = readlink(path, target, sizeof(target));
                *state << " -> " << std::string(target, length > 0 ? static_cast<size_t>(length) : 0);
            }
            *state << '\n';
            return 0;
        },
        16, FTW_PHYS);
    return out.str();
}

std::string PathWord(FuzzedDataProvider &input) {
    auto pick = [](std::uint8_t index) {
        std::string word = MIGRATE_FUZZ_PATHS[index];
        return word.compare(0, 1, "@") == 0 ? BASE + word.substr(1) : word;
    };
    auto choice = input.ConsumeIntegralInRange<std::uint8_t>(0, MIGRATE_FUZZ_PATH_COUNT + 1);
    if (choice < MIGRATE_FUZZ_PATH_COUNT) {
        return pick(choice);
    }
    if (choice == MIGRATE_FUZZ_PATH_COUNT) {
        return input.ConsumeRandomLengthString(MIGRATE_FUZZ_MAX_RAW_TEXT);
    }
    std::string word = pick(input.ConsumeIntegralInRange<std::uint8_t>(0, MIGRATE_FUZZ_PATH_COUNT - 1));
    return word + input.ConsumeRandomLengthString(MIGRATE_FUZZ_MAX_RAW_TEXT);
}

template <std::size_t N>
std::string Word(FuzzedDataProvider &input, const char *const (&words)[N]) {
    auto choice = input.ConsumeIntegralInRange<std::uint8_t>(0, N + 1);
    if (choice < N) {
        return words[choice];
    }
    std::string word = choice == N ? "" : words[input.ConsumeIntegralInRange<std::uint8_t>(0, N - 1)];
    return word + input.ConsumeRandomLengthString(MIGRATE_FUZZ_MAX_RAW_TEXT);
}

void PutText(unsigned char (&buf)[Zarvo::Host::REQUEST_LENGTH], std::size_t offset, std::size_t width,
             const std::string &text) {
    std::memcpy(buf + offset, text.data(), std::min(width, text.size()));
}

// A request as the service reads it off the socket: texts longer than their field fill it and
// so arrive unterminated.
void BuildRequest(FuzzedDataProvider &input, unsigned char (&buf)[Zarvo::Host::REQUEST_LENGTH]) {
    std::memset(buf, 0, sizeof(buf));
    if (input.ConsumeIntegralInRange<std::uint8_t>(0, MIGRATE_FUZZ_RAW_REQUEST_RANGE) == 0) {
        std::vector<std::uint8_t> raw = input.ConsumeBytes<std::uint8_t>(sizeof(buf));
        std::copy(raw.begin(), raw.end(), buf);
        return;
    }
    auto op = input.ConsumeIntegralInRange<std::uint8_t>(0, MIGRATE_FUZZ_OP_UNKNOWN);
    std::int32_t type = op == MIGRATE_FUZZ_OP_ANY ? input.ConsumeIntegral<std::int32_t>() : op;
    auto recurse = input.ConsumeIntegralInRange<std::uint8_t>(0, MIGRATE_FUZZ_RECURSE_ANY);
    std::int32_t recurseOpt = recurse == MIGRATE_FUZZ_RECURSE_ANY ? input.ConsumeIntegral<std::int32_t>()
                                                                  : MIGRATE_FUZZ_RECURSE_VALUES[recurse];
    std::memcpy(buf + Zarvo::Host::REQUEST_TYPE_OFFSET, &type, sizeof(type));
    std::memcpy(buf + Zarvo::Host::REQUEST_RECURSE_OPT_OFFSET, &recurseOpt, sizeof(recurseOpt));
    PutText(buf, Zarvo::Host::REQUEST_SRC_OFFSET, Zarvo::Host::REQUEST_PATH_WIDTH, PathWord(input));
    PutText(buf, Zarvo::Host::REQUEST_DST_OFFSET, Zarvo::Host::REQUEST_PATH_WIDTH, PathWord(input));
    PutText(buf, Zarvo::Host::REQUEST_UID_OFFSET, Zarvo::Host::REQUEST_ID_WIDTH,
            Word(input, MIGRATE_FUZZ_OWNERS));
    PutText(buf, Zarvo::Host::REQUEST_GID_OFFSET, Zarvo::Host::REQUEST_ID_WIDTH,
            Word(input, MIGRATE_FUZZ_OWNERS));
    PutText(buf, Zarvo::Host::REQUEST_PERM_OFFSET, Zarvo::Host::REQUEST_PERM_WIDTH,
            Word(input, MIGRATE_FUZZ_MODES));
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    RefuseOutsideSandbox();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    PlantTree();
    const std::string before = OutsideState();
    Zarvo::Host::PathGuard guard(Zarvo::Host::PathGuard::CanonicalRoots({ROOT, ROOT2}));
    Zarvo::Host::RequestHandler handler(guard);
    FuzzedDataProvider input(data, size);
    for (std::size_t i = 0; i < MIGRATE_FUZZ_MAX_REQUESTS && input.remaining_bytes() > 0; ++i) {
        unsigned char buf[Zarvo::Host::REQUEST_LENGTH];
        BuildRequest(input, buf);
        MigrateRequest request;
        std::string badField;
        if (!Zarvo::Host::DecodeRequest(buf, request, badField)) {
            continue;  // the service answers EINVAL without handling it
        }
        Zarvo::Host::Verdict verdict;
        Zarvo::Host::MigrateReply reply = handler.Handle(request, verdict);
        (void)Zarvo::Host::EncodeReply(reply);
        std::string after = OutsideState();
        if (after != before) {
            Fail("request " + std::to_string(i) + " (" + Zarvo::Host::MigrateOpName(request.type) +
                 " src \"" + request.src + "\" dst \"" + request.dst + "\" uid \"" + request.uid +
                 "\" gid \"" + request.gid + "\" perm \"" + request.perm + "\" recurseOpt " +
                 std::to_string(request.recurseOpt) + ") changed what lies outside the roots.\nBefore:\n" +
                 before + "After:\n" + after);
        }
    }
    return 0;
}

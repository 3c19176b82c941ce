// The runner plays the migrate server: it prepares the sandbox and the plug-in's work tree from
// an Android data snapshot, starts the migrate service, loads the plug-in, calls RestoreData and
// reports what happened.

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <thread>
#include <vector>

#include "account_restore_vocabulary.h"
#include "batch.h"
#include "batch_compare.h"
#include "batch_index.h"
#include "batch_merge.h"
#include "device_state_file.h"
#include "libxml_messages.h"
#include "migrate_service_process.h"
#include "output_paths.h"
#include "own_path.h"
#include "owner_only_file.h"
#include "path_within.h"
#include "platform_control/device_state.h"
#include "plugin_call.h"
#include "record_source_users.h"
#include "run_record.h"
#include "sample_phone.h"
#include "sandbox.h"
#include "sha256.h"
#include "snapshot.h"
#include "support/build_info.h"
#include "support/printable.h"
#include "view_page.h"
#include "view_report_json.h"
#include "view_summary.h"

namespace fs = std::filesystem;
using namespace Zarvo::Host;
using Zarvo::Support::Printable;

namespace {

constexpr int EXIT_RESTORED = 0;
constexpr int EXIT_NOT_RESTORED = 1;
constexpr int EXIT_USAGE = 2;
const std::string WORK_ROOT = Zarvo::RestoreVocabulary::PLUGIN_ROOT_PATH;
const std::string SAMPLE_SNAPSHOT = "/data/runner/sample_phone";
const std::string APP_DATA_ROOT = "/data/app";
constexpr unsigned MAX_JOBS = 1024;

struct Options {
    std::string plugin;
    std::string snapshot;
    std::string deviceState;
    std::string reportPath;
    std::string htmlPath;
    bool showSecrets = false;
    std::string batch;
    std::string out;
    unsigned jobs = 0;  // 0: the number of cores
    unsigned phoneTimeout = 300;
    std::string shard;
    std::vector<std::string> mergeIndex;
    std::vector<std::string> compare;
    std::string serviceLog;
    std::string eventLog;
    bool useRunningService = false;
    bool noSandbox = false;
    bool showLog = false;
};

int64_t NowNs() {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(
               std::chrono::system_clock::now().time_since_epoch())
        .count();
}

double MsSince(int64_t startNs) {
    return static_cast<double>(NowNs() - startNs) / 1e6;
}

std::string SelfDirectory() {
    const std::string self = OwnPath();
    return self.empty() ? "." : fs::path(self).parent_path().string();
}

// The plug-in built beside the runner (bin/ of a build tree, or lib/ of an installation).
std::string DefaultPlugin() {
    const fs::path dir = SelfDirectory();
    for (const fs::path &candidate :
         {dir / "libaccount_manager_restore.so", dir / ".." / "lib" / "libaccount_manager_restore.so",
          dir / ".." / "lib" / "x86_64-linux-gnu" / "libaccount_manager_restore.so"}) {
        if (fs::exists(candidate)) {
            return fs::absolute(candidate).lexically_normal().string();
        }
    }
    return (dir / "libaccount_manager_restore.so").string();
}

// The sentence may name the phone's files and folders: it reaches the terminal printable and on
// one line, since a batch takes a phone's problem from its runner's last line.
int Fail(const std::string &sentence) {
    std::cerr << "restore_runner: " << Printable(sentence) << std::endl;
    return EXIT_USAGE;
}

int FirstActiveUser() {
    for (const auto &account : OsAccounts()) {
        if (account.GetIsActived()) {
            return account.GetLocalId();
        }
    }
    return -1;
}

std::vector<std::pair<std::string, int>> CallCounts() {
    std::vector<std::pair<std::string, int>> counts;
    for (const std::string &operation : FaultableOperations()) {
        counts.emplace_back(operation, CallCount(operation));
    }
    return counts;
}

bool SameFile(const std::string &a, const std::string &b) {
    std::error_code error;
    return fs::equivalent(a, b, error);
}

// Which runner and plug-in ran, when and where, on which device state and migrate service faults
// (the platform's armed faults are the capture's own).
void RecordContext(const Options &options, int64_t startNs, RunContext &context) {
    context.startedUtc = UtcTimeText(startNs);
    context.host = HostName();
    context.runnerVersion = Zarvo::BuildInfo::Version();
    context.runnerRevision = Zarvo::BuildInfo::Revision();
    context.pluginSha256 = FileSha256(options.plugin);
    context.pluginBuiltWithRunner = SameFile(options.plugin, DefaultPlugin());
    if (options.deviceState.empty()) {
        return;
    }
    context.deviceState = fs::absolute(options.deviceState).lexically_normal().string();
    context.deviceStateSha256 = FileSha256(options.deviceState);
    std::string ignored;  // a file the service cannot read stops its start with the sentence
    if (!options.useRunningService) {
        LoadDeviceStateFaults(options.deviceState, context.serviceFaults, ignored);
    }
}

int Run(const Options &options, int64_t startNs) {
    RunCapture capture;
    capture.plugin = options.plugin;
    std::string error;
    if (!options.deviceState.empty() && !LoadDeviceState(options.deviceState, error)) {
        return Fail(error);
    }
    const char *eventLog = std::getenv("ZARVO_HISYSEVENT_LOG");
    if (!options.eventLog.empty() || eventLog != nullptr) {
        const std::string path = options.eventLog.empty() ? eventLog : options.eventLog;
        // Like the service journal, a run's event log holds that run's events only.
        unlink(path.c_str());
        if (!SetEventLogPath(path, error)) {
            return Fail(error);
        }
    }
    capture.osAccountsBefore = OsAccounts();
    capture.faults = InjectedFaults();
    RecordContext(options, startNs, capture.context);

    std::string snapshot = options.snapshot;
    if (snapshot.empty()) {
        error = Zarvo::Fixtures::BuildSamplePhone(Zarvo::Fixtures::DefaultSamplePhone(), SAMPLE_SNAPSHOT);
        if (!error.empty()) {
            return Fail("could not build the sample phone: " + error);
        }
        snapshot = SAMPLE_SNAPSHOT;
    }
    capture.snapshot = snapshot;
    std::unique_ptr<SnapshotSource> source = OpenSnapshot(snapshot, error);
    if (source == nullptr) {
        return Fail(error);
    }
    error = LaySnapshot(*source, FirstActiveUser(), capture.laid);
    if (!error.empty()) {
        return Fail(error);
    }
    // Read now: the plug-in removes the work tree.
    capture.sourceUsers = ReadSourceUsers(WORK_ROOT + Zarvo::RestoreVocabulary::SOURCE_XML_DIR);

    MigrateServiceProcess service;
    if (!options.useRunningService) {
        const int64_t serviceStart = NowNs();
        error = service.Start(SelfDirectory(), options.deviceState, options.serviceLog);
        if (!error.empty()) {
            return Fail(error);
        }
        capture.serviceStartMs = MsSince(serviceStart);
    }

    capture.setupMs = MsSince(startNs);
    PluginCall call;
    error = CallRestoreData(options.plugin, call);
    if (!error.empty()) {
        return Fail(error);
    }
    capture.result = call.result;
    capture.restoreMs = call.restoreMs;
    capture.logs = std::move(call.logs);
    capture.events = std::move(call.events);
    capture.journal = service.Stop();
    capture.osAccountsAfter = OsAccounts();
    capture.callCounts = CallCounts();
    capture.handedFiles = CollectFiles(APP_DATA_ROOT);
    capture.workTreeRemoved = !fs::exists(WORK_ROOT);
    capture.totalMs = MsSince(startNs);

    const RunRecord record = BuildRunRecord(std::move(capture), options.showSecrets);
    WriteSummary(record, std::cout);
    // Both files carry the same document: built once, and written out as it is serialized.
    StreamedDocument report;
    if (!options.reportPath.empty() || !options.htmlPath.empty()) {
        report = ReportJson(record);
    }
    if (!options.reportPath.empty()) {
        error = WriteOwnerOnlyFile(options.reportPath,
                                   [&report](std::ostream &out) { WriteReportText(report, out); });
    }
    if (error.empty() && !options.htmlPath.empty()) {
        error = WriteOwnerOnlyFile(options.htmlPath,
                                   [&](std::ostream &out) { WriteRunPage(record, report, out); });
    }
    if (error.empty()) {
        error = EventLogError();
    }
    if (!error.empty()) {
        return Fail(error);
    }
    return record.capture.result ? EXIT_RESTORED : EXIT_NOT_RESTORED;
}

// The options of many phones at a time; a batch runs every phone through this program again.
void AddBatchOptions(CLI::App &app, Options &options, const std::vector<CLI::Option *> &perPhone) {
    CLI::Option *batch =
        app.add_option("--batch", options.batch,
                       "Restore every snapshot (folder or file) of this folder, each in its own "
                       "runner and sandbox; needs --out")
            ->check(CLI::ExistingDirectory);
    CLI::Option *out = app.add_option(
        "--out", options.out,
        "Where --batch writes each phone's report, page and summary, and the index; where --compare writes "
        "compare.json and compare.html");
    app.add_option("--jobs", options.jobs,
                   "Phones restored at a time by --batch, 1 to " + std::to_string(MAX_JOBS) +
                       " (default: the number of cores)")
        ->check(CLI::Validator(
            [](const std::string &text) {
                unsigned jobs = 0;
                return CLI::detail::lexical_cast(text, jobs) && jobs >= 1 && jobs <= MAX_JOBS
                           ? std::string()
                           : text + " is not a number of phones from 1 to " + std::to_string(MAX_JOBS);
            },
            "N"))
        ->needs(batch);
    app.add_option("--phone-timeout", options.phoneTimeout,
                   "Seconds a phone of --batch may take; its runner, sandbox and migrate service are ended "
                   "then and the phone is not set up (default: 300)")
        ->check(CLI::Range(1u, 7u * 24 * 3600))
        ->needs(batch);
    app.add_option(
           "--shard", options.shard,
           "K/N: restore only share K of N of the --batch folder (entries sorted by name, every N-th from "
           "the K-th)")
        ->needs(batch);
    CLI::Option *merge =
        app.add_option(
               "--merge-index", options.mergeIndex,
               "OUT_DIR SHARD_DIR...: merge the indexes and phone files of batch folders into OUT_DIR")
            ->expected(2, CLI::detail::expected_max_vector_size);
    batch->needs(out)->excludes(merge);
    CLI::Option *compare =
        app.add_option("--compare", options.compare,
                       "OLD NEW: what changed phone by phone between two batch output folders (or two "
                       "reports); exit status 1 when a phone or a user restored in OLD is not in NEW")
            ->expected(2);
    compare->excludes(batch)->excludes(merge);
    for (const char *single : {"--snapshot", "--event-log", "--service-journal", "--use-running-service",
                               "--no-sandbox", "--device-state", "--reveal-secrets"}) {
        compare->excludes(app.get_option(single));
    }
    for (const char *single : {"--snapshot", "--event-log", "--service-journal", "--use-running-service",
                               "--no-sandbox", "--show-log"}) {
        batch->excludes(app.get_option(single));
    }
    for (CLI::Option *option : perPhone) {
        batch->excludes(option);
        compare->excludes(option);
    }
}

int RunnerMain(int argc, char *argv[]);

// A phone of a batch runs in a child of the batch that runs the runner's main again with the
// phone's options: no program is started anew. As a runner started on its own would, it writes its
// log lines and fault events into its report only.
int RunPhone(const std::vector<std::string> &arguments) {
    unsetenv("ZARVO_HISYSEVENT_LOG");
    SetLogOutput("off");
    std::string ignored;
    SetEventLogPath("", ignored);
    std::vector<std::string> texts = {"restore_runner"};
    texts.insert(texts.end(), arguments.begin(), arguments.end());
    std::vector<char *> argv;
    for (std::string &text : texts) {
        argv.push_back(text.data());
    }
    argv.push_back(nullptr);
    return RunnerMain(static_cast<int>(texts.size()), argv.data());
}

// `deviceStateText`: the device-state file as the pre-flight read and checked it.
int BatchCommand(const Options &options, const std::string &deviceStateText) {
    if (InSandbox()) {
        return Fail("--batch makes a sandbox for each phone; run it outside one.");
    }
    BatchOptions batch;
    batch.folder = fs::absolute(options.batch).lexically_normal().string();
    batch.out = fs::absolute(options.out).lexically_normal().string();
    if (LiesWithin(batch.out, batch.folder)) {
        return Fail("keep --out outside the --batch folder: it would be taken for a phone.");
    }
    batch.jobs = options.jobs > 0 ? options.jobs : std::max(1u, std::thread::hardware_concurrency());
    batch.phoneTimeout = std::chrono::seconds(options.phoneTimeout);
    batch.sharded = !options.shard.empty();
    if (batch.sharded && !ParseShard(options.shard, batch.shard)) {
        return Fail("--shard takes K/N with 1 <= K <= N <= " + std::to_string(MAX_SHARDS) +
                    ", for example 2/8; " + options.shard + " is not that.");
    }
    batch.runPhone = RunPhone;
    const std::string plugin = fs::absolute(options.plugin).string();
    batch.runnerOptions = {"--plugin", plugin};
    // Digested once here; every phone forked from the batch finds the digest while the file is unchanged.
    FileSha256(plugin);
    // Read once for the whole batch: every phone gets the state that was checked.
    UniqueFd deviceState;
    if (!options.deviceState.empty()) {
        std::string path;
        std::string error;
        deviceState = SealedCopy(deviceStateText, path, error);
        if (!error.empty()) {
            return Fail(error);
        }
        batch.runnerOptions.insert(batch.runnerOptions.end(), {"--device-state", path});
    }
    if (options.showSecrets) {
        batch.runnerOptions.emplace_back("--reveal-secrets");
    }
    std::string error;
    const int status = RunBatch(batch, error);
    return error.empty() ? status : Fail(error);
}

// Every problem that can be known before anything runs or is written, as one sentence (empty text:
// none). `deviceStateText` gets the device-state file's content.
std::string PreflightProblem(const Options &options, std::string &deviceStateText) {
    for (const std::string *path :
         {&options.snapshot, &options.deviceState, &options.reportPath, &options.htmlPath, &options.eventLog,
          &options.serviceLog, &options.batch, &options.out}) {
        if (!path->empty() && !options.noSandbox && fs::absolute(*path).string().rfind("/data/", 0) == 0) {
            return *path + " lies under /data, which the sandbox replaces; keep it elsewhere.";
        }
    }
    const char *eventLogVariable = std::getenv("ZARVO_HISYSEVENT_LOG");
    const std::pair<const char *, std::string> files[] = {
        {"--report", options.reportPath},
        {"--html", options.htmlPath},
        {"--event-log", options.eventLog},
        {"ZARVO_HISYSEVENT_LOG",
         options.eventLog.empty() && options.batch.empty() && eventLogVariable != nullptr ? eventLogVariable
                                                                                          : ""},
        {"--service-journal", options.serviceLog},
    };
    for (const auto &[option, path] : files) {
        const std::string problem = path.empty() ? "" : OutputFileProblem(option, path);
        if (!problem.empty()) {
            return problem;
        }
    }
    if (!options.out.empty()) {
        const std::string problem = OutputFolderProblem("--out", options.out);
        if (!problem.empty()) {
            return problem;
        }
    }
    return options.deviceState.empty() ? "" : ReadDeviceStateFile(options.deviceState, deviceStateText);
}

int MergeIndexCommand(const std::vector<std::string> &arguments) {
    nlohmann::json merged;
    std::string warning;
    std::string error = MergeIndexes(arguments[0], {arguments.begin() + 1, arguments.end()}, merged, warning);
    if (!error.empty()) {
        return Fail(error);
    }
    if (!warning.empty()) {
        std::cerr << "restore_runner: " << Printable(warning) << std::endl;
    }
    return IndexExitStatus(merged);
}

int RunnerMain(int argc, char *argv[]) {
    const int64_t startNs = NowNs();
    CLI::App app{
        "Plays the migrate server: restores an Android data snapshot with the account restore plug-in."};
    app.name("restore_runner");
    app.set_version_flag("--version", Zarvo::BuildInfo::VersionLine("restore_runner"),
                         "Print the version and exit");
    app.footer(
        "Exit status: 0 restored (with --batch: every phone), 1 RestoreData returned false (a phone was not "
        "restored), 2 bad usage or input, or the restore could not be set up (a phone could not be).\n\n"
        "Examples:\n"
        "  restore_runner --snapshot phone.tar.gz --html phone.html\n"
        "  restore_runner --snapshot backup/data.ext4.win000 --report run.json --device-state state.json\n"
        "  restore_runner --batch shelf/ --out results/ --jobs 4");
    Options options;
    options.plugin = DefaultPlugin();
    app.add_option("-p,--plugin", options.plugin, "The plug-in to load")->check(CLI::ExistingFile);
    app.add_option("-s,--snapshot", options.snapshot,
                   "An Android data snapshot (system_ce/0/accounts_ce.db, system/users/...) or a work tree "
                   "(back/...), as a folder or an archive (tar, tar.gz/xz/zst/bz2, zip, the first piece of a "
                   "split backup); default: the built-in sample phone")
        ->check(CLI::ExistingPath);
    app.add_option("-d,--device-state", options.deviceState,
                   "Device state JSON (OS accounts, bundles, faults)")
        ->check(CLI::ExistingFile);
    CLI::Option *report =
        app.add_option("-r,--report", options.reportPath, "Write a JSON report to this file");
    CLI::Option *html =
        app.add_option("--html", options.htmlPath, "Write the run as one self-contained HTML page");
    app.add_flag(
        "--reveal-secrets", options.showSecrets,
        "Show the auth token and credential-named account extras in clear in the summary, report and "
        "page (they are masked by default)");
    app.add_option("--event-log", options.eventLog,
                   "Write every fault event as a JSON line to this file, replacing it (default: "
                   "$ZARVO_HISYSEVENT_LOG)");
    app.add_option("--service-journal", options.serviceLog,
                   "Write the migrate service's request journal to this file, replacing it");
    app.add_flag("--use-running-service", options.useRunningService,
                 "Use a migrate service that is already listening instead of starting one");
    app.add_flag("--no-sandbox", options.noSandbox,
                 "Run in the current mount namespace: /data and /dev/unix are already prepared");
    app.add_flag("--show-log", options.showLog,
                 "Print the device log lines of the plug-in and platform on stderr as they come (the report "
                 "and page hold them anyway)");
    AddBatchOptions(app, options, {report, html});
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &e) {
        if (e.get_exit_code() == static_cast<int>(CLI::ExitCodes::Success)) {
            return app.exit(e);
        }
        return Fail(std::string(e.what()) + " (see --help).");
    }

    if (!options.out.empty() && options.batch.empty() && options.compare.empty()) {
        return Fail("--out requires --batch or --compare (see --help).");
    }
    // The device's own log lines are in the report and the page; the terminal shows them when asked.
    if (options.showLog) {
        SetLogOutput("stderr");
    } else if (std::getenv("ZARVO_HILOG_OUTPUT") == nullptr) {
        SetLogOutput("off");
    }
    if (!options.compare.empty()) {
        try {
            std::string error;
            const int status =
                CompareRuns(options.compare[0], options.compare[1], options.out, std::cout, error);
            return error.empty() ? status : Fail(error);
        } catch (const std::exception &e) {
            return Fail(std::string("unexpected failure: ") + e.what() + ".");
        }
    }
    try {
        if (!options.mergeIndex.empty()) {
            return MergeIndexCommand(options.mergeIndex);
        }
        // Inside the sandbox the runner that made it has checked all this already.
        std::string deviceStateText;
        const std::string problem = InSandbox() ? "" : PreflightProblem(options, deviceStateText);
        if (!problem.empty()) {
            return Fail(problem);
        }
        if (!options.batch.empty()) {
            return BatchCommand(options, deviceStateText);
        }
    } catch (const std::exception &e) {
        return Fail(std::string("unexpected failure: ") + e.what() + ".");
    }
    if (!options.noSandbox && !InSandbox()) {
        const std::string problem = EnterSandbox();
        if (!problem.empty()) {
            return Fail(problem);
        }
    }
    try {
        return Run(options, startNs);
    } catch (const std::exception &e) {
        return Fail(std::string("unexpected failure: ") + e.what() + ".");
    }
}

}  // namespace

int main(int argc, char *argv[]) {
    // The runner collects the ends of the processes it starts (migrate service, a batch's phones):
    // an "ignore" inherited from whoever started it would have the kernel reap them.
    signal(SIGCHLD, SIG_DFL);
    PrintLibxmlMessagesPrintably();
    return RunnerMain(argc, argv);
}

#include "view_summary.h"

#include <iomanip>

#include "account_restore_vocabulary.h"
#include "support/printable.h"

namespace Zarvo::Host {

using Support::Printable;
namespace {

std::string CodeLine(const NamedCode &code) {
    return code.hex + " " + code.name + ": " + code.meaning + " (" + SourceName(code.source) + ")";
}

void WriteAccount(const RunRecord &record, std::ostream &out) {
    out << "Account: ";
    if (!record.account) {
        out << record.accountOutcome.state << " (" << Printable(record.accountOutcome.reason) << ")\n";
        return;
    }
    const HandedAccount &account = *record.account;
    if (!account.isJson) {
        out << "an export file that is not JSON";
    } else {
        out << "account \"" << Printable(account.name) << "\" of type " << Printable(account.type) << " (id "
            << account.id << ", " << account.extraCount << " extras, locale \"" << Printable(account.locale)
            << "\", auth token " << Printable(account.authToken) << ")";
    }
    out << " handed to " << Printable(account.file.path) << ", owner " << account.file.uid << ", group "
        << account.file.gid << ", mode " << ModeText(account.file.mode) << "\n";
}

void WriteUsers(const RunRecord &record, std::ostream &out) {
    out << "Users:";
    if (record.users.empty()) {
        out << " none restored or skipped"
            << (record.usersNote.empty() ? "" : " (" + Printable(record.usersNote) + ")") << "\n";
        return;
    }
    out << "\n";
    for (const auto &user : record.users) {
        out << "  source user " << user.outcome.sourceId << ": " << user.outcome.decision;
        if (user.outcome.localId >= 0) {
            out << " as OS account " << user.outcome.localId;
        }
        out << " (" << Printable(user.outcome.explanation) << ")\n";
        if (!user.outcome.detail.empty() && user.outcome.decision == "failed") {
            out << "    plug-in: " << Printable(user.outcome.detail) << "\n";
        }
    }
}

// The run's context, so that two summaries tell whether they are comparable.
void WriteContext(const RunRecord &record, std::ostream &out) {
    const RunContext &context = record.capture.context;
    const LaidSnapshot &laid = record.capture.laid;
    out << "Run: " << context.startedUtc << " on " << Printable(context.host) << ", runner "
        << context.runnerVersion << " (" << Printable(context.runnerRevision) << ")\n";
    out << "Plug-in: " << Printable(record.capture.plugin) << " sha256 " << context.pluginSha256
        << (context.pluginBuiltWithRunner ? " (built beside the runner: its version)"
                                          : " (a file of its own)")
        << "\n";
    if (laid.archiveSha256.empty()) {
        out << "Snapshot digest: laid files " << laid.laidBytes << " bytes, sha256 " << laid.laidSha256
            << "\n";
    } else {
        out << "Snapshot digest: archive " << laid.archiveBytes << " bytes, sha256 " << laid.archiveSha256
            << "; laid files sha256 " << laid.laidSha256 << "\n";
    }
    out << "Device state: "
        << (context.deviceState.empty()
                ? std::string("the typical device")
                : Printable(context.deviceState) + " sha256 " + context.deviceStateSha256)
        << "\n";
    for (const auto &fault : record.capture.faults) {
        out << "  INJECTED: " << Printable(FaultWords(fault)) << "\n";
    }
    for (const auto &rule : context.serviceFaults) {
        out << "  INJECTED: " << Printable(FaultWords(rule)) << "\n";
    }
}

}  // namespace

void WriteSummary(const RunRecord &record, std::ostream &out) {
    const RunCapture &capture = record.capture;
    out << "RestoreData returned " << (capture.result ? "true" : "false") << "\n";
    out << "Verdict: " << Printable(record.verdict.sentence) << "\n";
    if (record.abort) {
        out << "Stopped: " << Printable(record.abort->sentence) << " (" << Printable(record.abort->exception)
            << ")\n";
    }
    out << "Snapshot: " << Printable(capture.snapshot) << " (data root: " << Printable(capture.laid.root)
        << ")\n";
    if (!capture.laid.leftOut.empty()) {
        out << "Left out of the snapshot: " << capture.laid.leftOut.size() << "\n";
        for (const auto &entry : capture.laid.leftOut) {
            out << "  " << Printable(entry.path) << ": " << Printable(entry.reason) << "\n";
        }
    }
    WriteAccount(record, out);
    WriteUsers(record, out);
    out << "Fault events: " << record.events.size() << "\n";
    for (const auto &event : record.events) {
        out << "  " << Printable(event.Text(RestoreVocabulary::PARAM_ERROR_TYPE)) << " code "
            << (event.code ? event.code->hex + " " + event.code->name : std::string("(none)")) << " (task "
            << Printable(event.Text(RestoreVocabulary::PARAM_TASK_ID))
            << "): " << Printable(event.Text(RestoreVocabulary::PARAM_ERROR_MESSAGE)) << "\n";
    }
    if (!record.codes.empty()) {
        out << "Codes:\n";
        for (const auto &code : record.codes) {
            out << "  " << Printable(CodeLine(code)) << "\n";
        }
    }
    WriteContext(record, out);
    out << "Work tree " << (capture.workTreeRemoved ? "removed" : "still present") << "\n";
    out << std::fixed << std::setprecision(1) << "Time: " << capture.totalMs << " ms (set-up "
        << capture.setupMs << " ms, of which starting the migrate service " << capture.serviceStartMs
        << " ms; RestoreData " << capture.restoreMs << " ms)\n";
}

}  // namespace Zarvo::Host

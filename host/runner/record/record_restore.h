#ifndef HOST_RUNNER_RECORD_RESTORE_H
#define HOST_RUNNER_RECORD_RESTORE_H

#include <optional>
#include <string>
#include <vector>

#include "code_names.h"
#include "hisysevent.h"
#include "migrate_service/request_journal.h"
#include "os_account_info.h"
#include "platform_control/device_state.h"
#include "platform_control/log_capture.h"
#include "record_source_users.h"
#include "record_users.h"
#include "snapshot.h"

namespace Zarvo::Host {

// A fault event as the platform took it, its parameters typed.
struct FaultEvent {
    std::string domain;
    std::string name;
    int type = 0;
    std::vector<HiviewDFX::HiSysEventParam> params;
    std::optional<NamedCode> code;  // ERROR_CODE, named

    std::string Text(const std::string &param) const;
    std::optional<int64_t> Number(const std::string &param) const;
};

// What the restore was shown and what it did, as the runner observed it.
struct RestoreObservation {
    bool result = false;
    const std::vector<LogRecord> *logs = nullptr;
    const std::vector<FaultEvent> *events = nullptr;
    const std::vector<AccountSA::OsAccountInfo> *osAccountsBefore = nullptr;
    const std::vector<AccountSA::OsAccountInfo> *osAccountsAfter = nullptr;
    const std::vector<InjectedFault> *faults = nullptr;  // armed before the call
    const std::vector<std::pair<std::string, int>> *callCounts = nullptr;
    const std::vector<JournalEntry> *journal = nullptr;
    const SourceUserList *sourceUsers = nullptr;
    const LaidSnapshot *laid = nullptr;
    bool accountHandedOver = false;  // the export file lies in the account app's folder
};

// Where and why a restore stopped before its end.
struct RestoreAbort {
    std::string exception;  // what the plug-in caught, as it logged it
    std::string operation;  // the platform call that failed, when an injected fault says which
    std::string where;      // "while updating OS account 100"
    std::string why;        // "out of memory"
    std::string sentence;   // "the restore stopped while updating OS account 100: out of memory"
};

// What became of the account of the maker's account service.
struct AccountOutcome {
    std::string state;   // "handed over", "nothing to carry" or "not restored"
    std::string reason;  // in plain words, without a final period
    std::vector<NamedCode> codes;
};

// The restore read from its observations: the account, every user, the abort, and why no user was
// taken when none was.
struct RestoreReading {
    AccountOutcome account;
    std::optional<RestoreAbort> abort;
    bool userRestoreRan = false;
    std::string usersNote;
    std::vector<UserOutcome> users;  // in the order the plug-in took them, then the ones it never reached
};

RestoreReading ReadRestore(const RestoreObservation &observation);

}  // namespace Zarvo::Host

#endif  // HOST_RUNNER_RECORD_RESTORE_H

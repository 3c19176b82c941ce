#ifndef TESTS_USER_USER_RESTORE_SUPPORT_H
#define TESTS_USER_USER_RESTORE_SUPPORT_H

#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

#include "android_users.h"
#include "os_account_info.h"

namespace Zarvo::Testing {

inline const std::string SOURCE_XML_DIR =
    "/data/service/el1/public/update/migrate_server/plugins/200/back/sourceXml/";
inline const std::string CONVERT_XML_DIR =
    "/data/service/el1/public/update/migrate_server/plugins/200/back/convert/";

// One captured fault event, with everything that identifies it.
struct FaultEvent {
    std::string domain;
    std::string name;
    int type = 0;
    std::string parameters;  // names and value types in order, e.g. "TASK_ID:STRING,..."
    std::string taskId;
    std::string errorType;
    int64_t errorCode = 0;
    std::string errorMessage;

    bool operator==(const FaultEvent &other) const;
};
std::ostream &operator<<(std::ostream &out, const FaultEvent &event);

// The fault event the user restore sends for a failure.
FaultEvent RestoreFail(int64_t errorCode, const std::string &errorType, const std::string &errorMessage);
std::vector<FaultEvent> CapturedFaultEvents();

// Writes the users into the source directory as the update engine leaves them.
void LaySourceUsers(const Fixtures::AndroidUsers &users,
                    Fixtures::UserFileForm form = Fixtures::UserFileForm::BINARY);
void WriteSourceFile(const std::string &name, const std::string &content);

// Resets the device to user 100 only, clears captures, faults and the credential service, and
// empties the plug-in's work tree.
void ResetUserRestoreWorld();

const AccountSA::OsAccountInfo *FindAccount(const std::vector<AccountSA::OsAccountInfo> &accounts,
                                            int localId);

}  // namespace Zarvo::Testing

#endif  // TESTS_USER_USER_RESTORE_SUPPORT_H

#ifndef TESTS_USER_USER_RESTORE_SUPPORT_H
#define TESTS_USER_USER_RESTORE_SUPPORT_H

#include <cstdint>
#include <string>
#include <vector>

#include "android_users.h"

namespace Zarvo::Testing {

inline const std::string SOURCE_XML_DIR =
    "/data/service/el1/public/update/migrate_server/plugins/200/back/sourceXml/";
inline const std::string CONVERT_XML_DIR =
    "/data/service/el1/public/update/migrate_server/plugins/200/back/convert/";

// A captured fault event as one line with everything that identifies it: domain, name, type and
// each parameter's name, value type and value, in order.
std::vector<std::string> CapturedFaultEvents();
// The line of the fault event the user restore sends for a failure.
std::string RestoreFail(int64_t errorCode, const std::string &errorType, const std::string &errorMessage);

// Writes the users into the source directory as the update engine leaves them.
void LaySourceUsers(const Fixtures::AndroidUsers &users,
                    Fixtures::UserFileForm form = Fixtures::UserFileForm::BINARY);
void WriteSourceFile(const std::string &name, const std::string &content);

// Resets the device to user 100 only, clears captures, faults and the credential service, and
// empties the plug-in's work tree.
void ResetUserRestoreWorld();

// Runs one user restore and waits for its credential clean-up, expecting exactly one request.
bool RestoreUsers();

std::vector<int> OsAccountIds();
// Every stored field of the account with the local id, or "none".
std::string DescribeAccount(int localId);

}  // namespace Zarvo::Testing

#endif  // TESTS_USER_USER_RESTORE_SUPPORT_H

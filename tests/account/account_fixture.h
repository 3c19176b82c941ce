#ifndef TESTS_ACCOUNT_ACCOUNT_FIXTURE_H
#define TESTS_ACCOUNT_ACCOUNT_FIXTURE_H

#include <string>

#include "android_accounts.h"

namespace Zarvo::Testing {

// The plug-in's work directory of a user, with its trailing slash.
std::string UserBackDir(int userId);
// Writes the user's accounts_ce.db into the work tree (directories included) and returns its path.
std::string WriteUserAccountsDb(int userId, const Fixtures::AccountsCeDb &content);
// One account of the maker's service (id 3, with locale, token and two extras) beside a mail account.
Fixtures::AccountsCeDb CvidAccountDb();
std::string ReadFileBytes(const std::string &path);
// The rows of a read-only query: each value (NULL for none) followed by '|', each row by a newline.
std::string Query(const std::string &dbPath, const std::string &sql);

}  // namespace Zarvo::Testing

#endif  // TESTS_ACCOUNT_ACCOUNT_FIXTURE_H

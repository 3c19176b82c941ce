#ifndef HOST_SAMPLE_ANDROID_ACCOUNTS_H
#define HOST_SAMPLE_ANDROID_ACCOUNTS_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace Zarvo::Fixtures {

// Rows of the credential-encrypted account database (accounts_ce.db) of one Android user.
// Ids are written as given, so gaps and any order can be reproduced.
struct AndroidAccount {
    int64_t id = 0;
    std::string name;
    std::string type;
    std::optional<std::string> password;
};

struct AndroidAuthToken {
    int64_t id = 0;
    int64_t accountId = 0;
    std::string type;
    std::optional<std::string> authtoken;
};

struct AndroidExtra {
    int64_t id = 0;
    std::optional<int64_t> accountId;
    std::string key;
    std::optional<std::string> value;
};

struct AccountsCeDb {
    // The one row of android_metadata; none leaves the table empty.
    std::optional<std::string> locale = std::string("en_US");
    std::vector<AndroidAccount> accounts;
    std::vector<AndroidAuthToken> authtokens;
    std::vector<AndroidExtra> extras;
    // A database carried over from Android 6 or older: accounts has two more columns after password.
    bool legacyAccountsColumns = false;
    // The zero-length rollback journal that lies beside a real file.
    bool withEmptyJournal = true;
    // Write-ahead logging (Android 9 and later): the rows are left in the -wal file beside the
    // database, and no rollback journal is written.
    bool walMode = false;
};

// The account type of the maker's account service.
constexpr char CVID_ACCOUNT_TYPE[] = "com.corvan.cvid";

// Writes a new database at path (replacing any file there) with Android's schema and file settings:
// page size 4096, auto_vacuum FULL, UTF-8, user_version 10. On failure returns false and sets error.
bool WriteAccountsCeDb(const std::string &path, const AccountsCeDb &content, std::string &error);

// What a typical phone holds: the maker's account with token and extras among a mail and a
// messenger account.
AccountsCeDb SamplePhoneAccounts();

}  // namespace Zarvo::Fixtures

#endif  // HOST_SAMPLE_ANDROID_ACCOUNTS_H

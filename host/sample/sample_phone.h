#ifndef HOST_SAMPLE_SAMPLE_PHONE_H
#define HOST_SAMPLE_SAMPLE_PHONE_H

#include <string>

#include "android_accounts.h"
#include "android_users.h"

namespace Zarvo::Fixtures {

// What an Android phone leaves in /data for the restore: the account database of user 0 and the
// user files.
struct SamplePhone {
    AccountsCeDb accounts;
    AndroidUsers users;
    UserFileForm userFileForm = UserFileForm::BINARY;
};

// A typical Android 13 phone: the maker's account with locale, token and extras beside a mail
// and a messenger account; the owner, a secondary user with a photo, a guest and a work profile.
SamplePhone DefaultSamplePhone();

// Writes the phone as an Android data snapshot: <dir>/system_ce/0/accounts_ce.db and
// <dir>/system/users/. Returns an empty text on success, else one sentence.
std::string BuildSamplePhone(const SamplePhone &phone, const std::string &dir);

}  // namespace Zarvo::Fixtures

#endif  // HOST_SAMPLE_SAMPLE_PHONE_H

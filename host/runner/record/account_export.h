#ifndef HOST_RUNNER_ACCOUNT_EXPORT_H
#define HOST_RUNNER_ACCOUNT_EXPORT_H

#include <functional>
#include <nlohmann/json.hpp>
#include <string>

namespace Zarvo::Host {

// The account export file read without holding its extras, which may number hundreds of thousands:
// `account` gets the whole text as JSON except for the elements of its top-level "extras" arrays
// (such a member stands as []). Each of those elements is handed to `onExtra` in turn, with the
// number of the "extras" member it is in (1 for the first), and then dropped. An object that names
// "extras" twice keeps the last, as a parse into one document does: `extrasMembers` tells how many
// there were. False when the text is not JSON; `account` may still be any JSON value.
bool ReadAccountExport(const std::string &text, nlohmann::json &account, int &extrasMembers,
                       const std::function<void(nlohmann::json &extra, int member)> &onExtra);

// Which "extras" member of the text read into `account` holds its extras: the last one, when it is
// an array; 0 when the account has no extras array.
int ExtrasMember(const nlohmann::json &account, int extrasMembers);

}  // namespace Zarvo::Host

#endif  // HOST_RUNNER_ACCOUNT_EXPORT_H

#ifndef HOST_RUNNER_RECORD_SECRETS_H
#define HOST_RUNNER_RECORD_SECRETS_H

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace Zarvo::Host {

// A secret as every view shows it unless the person asked to see it: its first four characters
// and its length, "CgB6… (140 characters)". A secret shorter than 16 characters shows none of
// them ("… (6 characters)"): four would give away too much of it.
std::string MaskSecret(const std::string &secret);

// Whether an account extra's key names a credential (token, password, secret, ...), so that its
// value is masked like the auth token.
bool IsCredentialKey(const std::string &key);

// Masks the secrets of the account export file the plug-in hands over ({"authtoken", "extras",
// ...}): the auth token and every credential-named extra. Their clear values are appended to
// `secrets`. The rest of the object stays as it is.
void MaskAccountExport(nlohmann::json &account, std::vector<std::string> &secrets);

// Replaces every occurrence of each secret (of at least 8 bytes) in `text` by its masked form.
void MaskOccurrences(std::string &text, const std::vector<std::string> &secrets);
// The same in every string of a JSON document, keys included.
void MaskOccurrences(nlohmann::json &document, const std::vector<std::string> &secrets);

}  // namespace Zarvo::Host

#endif  // HOST_RUNNER_RECORD_SECRETS_H

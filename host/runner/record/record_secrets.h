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

// Masks the secrets of the account export file the plug-in hands over ({"authtoken", "extras",
// ...}): the auth token and every credential-named extra (token, password, pwd, session_key, ...),
// and then every other value that is one of them and every occurrence of them in the object
// (MaskOccurrences). Their clear values are
// added to `secrets`, which ends sorted longest first. The rest of the object stays as it is.
void MaskAccountExport(nlohmann::json &account, std::vector<std::string> &secrets);

// MaskAccountExport in steps, for an export read one extra at a time: the auth token of the
// object, then each extra (credential-named: its value), each adding the clear value to `secrets`;
// then the secrets ordered longest first; then every document (the object, each extra) masked with
// them all.
void MaskAuthToken(nlohmann::json &account, std::vector<std::string> &secrets);
void MaskCredentialExtra(nlohmann::json &extra, std::vector<std::string> &secrets);
void OrderSecrets(std::vector<std::string> &secrets);
void MaskSecretsIn(nlohmann::json &document, const std::vector<std::string> &secrets);

// Replaces every occurrence of each secret of at least 8 bytes in `text` (as it is, JSON-escaped
// or percent-encoded) by the secret's masked form.
// The secrets come longest first, so that one that holds a shorter one is masked whole.
void MaskOccurrences(std::string &text, const std::vector<std::string> &secrets);
// Whether MaskOccurrences would change `text`.
bool HasOccurrences(const std::string &text, const std::vector<std::string> &secrets);
// The same in every string of a JSON document, keys included.
void MaskOccurrences(nlohmann::json &document, const std::vector<std::string> &secrets);

}  // namespace Zarvo::Host

#endif  // HOST_RUNNER_RECORD_SECRETS_H

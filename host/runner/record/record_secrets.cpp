#include "record_secrets.h"

#include <algorithm>
#include <cctype>
#include <cstdio>

namespace Zarvo::Host {
namespace {

constexpr size_t SHOWN_CHARACTERS = 4;
constexpr size_t SHORTEST_SHOWN = 16;
// Shorter texts are too common to be replaced wherever they occur.
constexpr size_t SHORTEST_REPLACED = 8;
// A key that contains one of these anywhere names a credential ("accesstoken", "userPassword").
const char *const CREDENTIAL_PARTS[] = {"token", "password", "passwd", "secret", "credential", "cookie"};
// These are too short to be looked for inside other words ("author", "keyboard", "spinner"): a key
// names a credential when one of its words is one of them ("pwd", "session_key", "serviceTkn").
const char *const CREDENTIAL_WORDS[] = {"pwd", "pass", "passcode", "pin",   "otp",
                                        "tkn", "auth", "cred",     "creds", "session",
                                        "sid", "key",  "apikey",   "jwt",   "bearer"};

bool IsContinuationByte(char byte) {
    return (static_cast<unsigned char>(byte) & 0xC0) == 0x80;
}

// The byte offsets of the UTF-8 characters of `text` (a stray byte counts as one character).
std::vector<size_t> CharacterStarts(const std::string &text) {
    std::vector<size_t> starts;
    for (size_t i = 0; i < text.size(); ++i) {
        if (!IsContinuationByte(text[i]) || starts.empty()) {
            starts.push_back(i);
        }
    }
    return starts;
}

void MaskValue(nlohmann::json &holder, const char *member, std::vector<std::string> &secrets) {
    if (holder.is_object() && holder.contains(member) && holder[member].is_string()) {
        std::string secret = holder[member].get<std::string>();
        holder[member] = MaskSecret(secret);
        secrets.push_back(std::move(secret));
    }
}

// The words of a key, in lower case: split at every character that is not a letter or digit and
// where a lower-case letter meets an upper-case one ("serviceTkn" is "service" and "tkn").
std::vector<std::string> KeyWords(const std::string &key) {
    std::vector<std::string> words(1);
    for (size_t i = 0; i < key.size(); ++i) {
        const auto c = static_cast<unsigned char>(key[i]);
        if (!std::isalnum(c)) {
            words.emplace_back();
            continue;
        }
        if (std::isupper(c) && i > 0 && std::islower(static_cast<unsigned char>(key[i - 1]))) {
            words.emplace_back();
        }
        words.back() += static_cast<char>(std::tolower(c));
    }
    return words;
}

// Whether an account extra's key names a credential.
bool IsCredentialKey(const std::string &key) {
    std::string lower = key;
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    if (std::any_of(std::begin(CREDENTIAL_PARTS), std::end(CREDENTIAL_PARTS),
                    [&lower](const char *part) { return lower.find(part) != std::string::npos; })) {
        return true;
    }
    for (const std::string &word : KeyWords(key)) {
        if (std::find(std::begin(CREDENTIAL_WORDS), std::end(CREDENTIAL_WORDS), word) !=
            std::end(CREDENTIAL_WORDS)) {
            return true;
        }
    }
    return false;
}

// The forms a secret takes when it is carried in other text: as it is, inside a JSON string, and
// percent-encoded in a URL (with upper- and lower-case hex digits). Longest first.
std::vector<std::string> CarriedForms(const std::string &secret) {
    std::vector<std::string> forms = {secret};
    const std::string json =
        nlohmann::json(secret).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
    forms.push_back(json.substr(1, json.size() - 2));
    for (const char *hex : {"%%%02X", "%%%02x"}) {
        std::string encoded;
        for (const char c : secret) {
            if (std::isalnum(static_cast<unsigned char>(c)) || c == '-' || c == '.' || c == '_' || c == '~') {
                encoded += c;
            } else {
                char escape[4];
                std::snprintf(escape, sizeof(escape), hex, static_cast<unsigned char>(c));
                encoded += escape;
            }
        }
        forms.push_back(std::move(encoded));
    }
    std::stable_sort(forms.begin(), forms.end(),
                     [](const std::string &a, const std::string &b) { return a.size() > b.size(); });
    forms.erase(std::unique(forms.begin(), forms.end()), forms.end());
    return forms;
}

void MaskWholeValues(nlohmann::json &document, const std::vector<std::string> &secrets) {
    if (document.is_string()) {
        const std::string &text = document.get_ref<const std::string &>();
        if (std::find(secrets.begin(), secrets.end(), text) != secrets.end()) {
            document = MaskSecret(text);
        }
    } else if (document.is_structured()) {
        for (auto &element : document) {
            MaskWholeValues(element, secrets);
        }
    }
}

}  // namespace

std::string MaskSecret(const std::string &secret) {
    const std::vector<size_t> starts = CharacterStarts(secret);
    const std::string shown =
        starts.size() >= SHORTEST_SHOWN ? secret.substr(0, starts[SHOWN_CHARACTERS]) : std::string();
    return shown + "\u2026 (" + std::to_string(starts.size()) +
           (starts.size() == 1 ? " character)" : " characters)");
}

void MaskAccountExport(nlohmann::json &account, std::vector<std::string> &secrets) {
    MaskAuthToken(account, secrets);
    if (account.is_object() && account.contains("extras") && account["extras"].is_array()) {
        for (auto &extra : account["extras"]) {
            MaskCredentialExtra(extra, secrets);
        }
    }
    OrderSecrets(secrets);
    MaskSecretsIn(account, secrets);
}

void MaskAuthToken(nlohmann::json &account, std::vector<std::string> &secrets) {
    MaskValue(account, "authtoken", secrets);
}

void MaskCredentialExtra(nlohmann::json &extra, std::vector<std::string> &secrets) {
    if (extra.is_object() && extra.contains("key") && extra["key"].is_string() &&
        IsCredentialKey(extra["key"].get<std::string>())) {
        MaskValue(extra, "value", secrets);
    }
}

void OrderSecrets(std::vector<std::string> &secrets) {
    std::stable_sort(secrets.begin(), secrets.end(),
                     [](const std::string &a, const std::string &b) { return a.size() > b.size(); });
}

void MaskSecretsIn(nlohmann::json &document, const std::vector<std::string> &secrets) {
    // The same secret in another member: a name that is the token, a URL that carries it. Here
    // even a short one is masked where it is a whole value.
    MaskWholeValues(document, secrets);
    MaskOccurrences(document, secrets);
}

void MaskOccurrences(std::string &text, const std::vector<std::string> &secrets) {
    for (const std::string &secret : secrets) {
        if (secret.size() < SHORTEST_REPLACED) {
            continue;
        }
        const std::string masked = MaskSecret(secret);
        for (const std::string &form : CarriedForms(secret)) {
            for (size_t at = text.find(form); at != std::string::npos;
                 at = text.find(form, at + masked.size())) {
                text.replace(at, form.size(), masked);
            }
        }
    }
}

bool HasOccurrences(const std::string &text, const std::vector<std::string> &secrets) {
    for (const std::string &secret : secrets) {
        if (secret.size() < SHORTEST_REPLACED) {
            continue;
        }
        for (const std::string &form : CarriedForms(secret)) {
            if (text.find(form) != std::string::npos) {
                return true;
            }
        }
    }
    return false;
}

void MaskOccurrences(nlohmann::json &document, const std::vector<std::string> &secrets) {
    if (document.is_string()) {
        MaskOccurrences(document.get_ref<std::string &>(), secrets);
    } else if (document.is_array()) {
        for (auto &element : document) {
            MaskOccurrences(element, secrets);
        }
    } else if (document.is_object()) {
        nlohmann::json masked = nlohmann::json::object();
        for (auto &[key, value] : document.items()) {
            std::string name = key;
            MaskOccurrences(name, secrets);
            MaskOccurrences(value, secrets);
            masked[name] = std::move(value);
        }
        document = std::move(masked);
    }
}

}  // namespace Zarvo::Host

#include "record_secrets.h"

#include <algorithm>
#include <cctype>

namespace Zarvo::Host {
namespace {

constexpr size_t SHOWN_CHARACTERS = 4;
constexpr size_t SHORTEST_SHOWN = 16;
// Shorter texts are too common to be replaced wherever they occur.
constexpr size_t SHORTEST_REPLACED = 8;
const char *const CREDENTIAL_WORDS[] = {"token", "password", "passwd", "secret", "credential", "cookie"};

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

// Whether an account extra's key names a credential (token, password, secret, ...).
bool IsCredentialKey(const std::string &key) {
    std::string lower = key;
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return std::any_of(std::begin(CREDENTIAL_WORDS), std::end(CREDENTIAL_WORDS),
                       [&lower](const char *word) { return lower.find(word) != std::string::npos; });
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
    MaskValue(account, "authtoken", secrets);
    if (!account.is_object() || !account.contains("extras") || !account["extras"].is_array()) {
        return;
    }
    for (auto &extra : account["extras"]) {
        if (extra.is_object() && extra.contains("key") && extra["key"].is_string() &&
            IsCredentialKey(extra["key"].get<std::string>())) {
            MaskValue(extra, "value", secrets);
        }
    }
    std::stable_sort(secrets.begin(), secrets.end(),
                     [](const std::string &a, const std::string &b) { return a.size() > b.size(); });
}

void MaskOccurrences(std::string &text, const std::vector<std::string> &secrets) {
    for (const std::string &secret : secrets) {
        if (secret.size() < SHORTEST_REPLACED) {
            continue;
        }
        const std::string masked = MaskSecret(secret);
        for (size_t at = text.find(secret); at != std::string::npos;
             at = text.find(secret, at + masked.size())) {
            text.replace(at, secret.size(), masked);
        }
    }
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

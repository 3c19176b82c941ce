#ifndef ZARVO_SUPPORT_JSON_INTEGER_H
#define ZARVO_SUPPORT_JSON_INTEGER_H

#include <cstdint>
#include <limits>
#include <nlohmann/json.hpp>

namespace Zarvo::Host {

// Takes a JSON integer into `value` when it fits T. Numbers a document spells without a sign are
// kept unsigned; read as signed 64-bit values, the large ones would wrap (18446744073709551615
// to -1).
template <typename T>
bool JsonInteger(const nlohmann::json &number, T &value) {
    if (!number.is_number_integer()) {
        return false;
    }
    if (number.is_number_unsigned() || number.get<int64_t>() >= 0) {
        const auto magnitude = number.is_number_unsigned() ? number.get<uint64_t>()
                                                           : static_cast<uint64_t>(number.get<int64_t>());
        if (magnitude > static_cast<uint64_t>(std::numeric_limits<T>::max())) {
            return false;
        }
        value = static_cast<T>(magnitude);
        return true;
    }
    const int64_t negative = number.get<int64_t>();
    if constexpr (std::is_unsigned_v<T>) {
        return false;
    } else {
        if (negative < static_cast<int64_t>(std::numeric_limits<T>::min())) {
            return false;
        }
        value = static_cast<T>(negative);
        return true;
    }
}

}  // namespace Zarvo::Host

#endif  // ZARVO_SUPPORT_JSON_INTEGER_H

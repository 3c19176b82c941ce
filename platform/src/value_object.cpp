#include "value_object.h"

#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <sstream>

#include "rdb_errno.h"

namespace Zarvo::NativeRdb {
namespace {

// The value of text that is a whole decimal integer (optional sign, digits only, in range).
bool ParseInteger(const std::string &text, int64_t &value) {
    if (text.empty()) {
        return false;
    }
    errno = 0;
    char *end = nullptr;
    long long parsed = std::strtoll(text.c_str(), &end, 10);
    if (errno != 0 || end != text.c_str() + text.size() ||
        std::isspace(static_cast<unsigned char>(text[0]))) {
        return false;
    }
    value = parsed;
    return true;
}

}  // namespace

int ValueObject::GetLong(int64_t &value) const {
    value = 0;
    if (const auto *integer = std::get_if<int64_t>(&value_)) {
        value = *integer;
    } else if (const auto *real = std::get_if<double>(&value_)) {
        if (std::isfinite(*real) && *real >= -9.2e18 && *real <= 9.2e18) {
            value = static_cast<int64_t>(*real);
        }
    } else if (const auto *text = std::get_if<std::string>(&value_)) {
        ParseInteger(*text, value);
    }
    return E_OK;
}

int ValueObject::GetInt(int &value) const {
    int64_t wide = 0;
    GetLong(wide);
    value = static_cast<int>(static_cast<uint32_t>(static_cast<uint64_t>(wide)));
    return E_OK;
}

int ValueObject::GetDouble(double &value) const {
    value = 0.0;
    if (const auto *integer = std::get_if<int64_t>(&value_)) {
        value = static_cast<double>(*integer);
    } else if (const auto *real = std::get_if<double>(&value_)) {
        value = *real;
    } else if (const auto *text = std::get_if<std::string>(&value_)) {
        char *end = nullptr;
        double parsed = std::strtod(text->c_str(), &end);
        if (!text->empty() && end == text->c_str() + text->size()) {
            value = parsed;
        }
    }
    return E_OK;
}

int ValueObject::GetString(std::string &value) const {
    value.clear();
    if (const auto *integer = std::get_if<int64_t>(&value_)) {
        value = std::to_string(*integer);
    } else if (const auto *real = std::get_if<double>(&value_)) {
        std::ostringstream text;
        text.precision(15);
        text << *real;
        value = text.str();
    } else if (const auto *str = std::get_if<std::string>(&value_)) {
        value = *str;
    } else if (const auto *blob = std::get_if<Blob>(&value_)) {
        value.assign(blob->begin(), blob->end());
    }
    return E_OK;
}

ValueObject::operator int() const {
    int value = 0;
    GetInt(value);
    return value;
}

ValueObject::operator int64_t() const {
    int64_t value = 0;
    GetLong(value);
    return value;
}

ValueObject::operator double() const {
    double value = 0.0;
    GetDouble(value);
    return value;
}

ValueObject::operator std::string() const {
    std::string value;
    GetString(value);
    return value;
}

}  // namespace Zarvo::NativeRdb

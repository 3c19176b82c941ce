#ifndef ZARVO_VALUE_OBJECT_H
#define ZARVO_VALUE_OBJECT_H

#include <cstdint>
#include <string>
#include <variant>
#include <vector>

namespace Zarvo {
namespace NativeRdb {

// One value of a column: null, integer, real, text or blob.
class ValueObject {
public:
    enum class TypeId { TYPE_NULL, TYPE_INT, TYPE_DOUBLE, TYPE_STRING, TYPE_BLOB };
    using Blob = std::vector<uint8_t>;

    ValueObject() = default;
    ValueObject(int64_t value) : value_(value) {}
    ValueObject(int value) : value_(static_cast<int64_t>(value)) {}
    ValueObject(double value) : value_(value) {}
    ValueObject(const std::string &value) : value_(value) {}
    ValueObject(const char *value) : value_(std::string(value)) {}
    ValueObject(const Blob &value) : value_(value) {}

    TypeId GetType() const { return static_cast<TypeId>(value_.index()); }

    // Conversions never fail: null and unconvertible values give 0 or an empty text; an integer
    // outside 32 bits keeps its low 32 bits; text converts only when it is a whole decimal number.
    int GetInt(int &value) const;
    int GetLong(int64_t &value) const;
    int GetDouble(double &value) const;
    int GetString(std::string &value) const;

    operator int() const;
    operator int64_t() const;
    operator double() const;
    operator std::string() const;

    bool operator==(const ValueObject &other) const { return value_ == other.value_; }

private:
    std::variant<std::monostate, int64_t, double, std::string, Blob> value_;
};

}  // namespace NativeRdb
}  // namespace Zarvo

#endif  // ZARVO_VALUE_OBJECT_H

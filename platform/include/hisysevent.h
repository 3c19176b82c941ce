#ifndef ZARVO_HISYSEVENT_H
#define ZARVO_HISYSEVENT_H

#include <cstdint>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace Zarvo {
namespace HiviewDFX {

// One named, typed parameter of a system event.
struct HiSysEventParam {
    enum class Type { BOOL, INT32, INT64, UINT32, UINT64, DOUBLE, STRING };
    std::string name;
    Type type = Type::STRING;
    bool boolValue = false;
    std::int64_t intValue = 0;
    std::uint64_t uintValue = 0;
    double doubleValue = 0.0;
    std::string stringValue;
};

class HiSysEvent {
public:
    enum EventType { FAULT = 1, STATISTIC = 2, SECURITY = 3, BEHAVIOR = 4 };

    // Writes one event; the parameters follow as alternating names and values.
    // Returns 0 when the event was accepted.
    template <typename... Types>
    static int Write(const char *func, int64_t line, const std::string &domain, const std::string &eventName,
                     EventType type, Types... keyValues) {
        static_assert(sizeof...(Types) % 2 == 0, "event parameters come as name/value pairs");
        std::vector<HiSysEventParam> params;
        params.reserve(sizeof...(Types) / 2);
        Collect(params, keyValues...);
        return WriteEvent(func, line, domain, eventName, type, params);
    }

    static int WriteEvent(const char *func, int64_t line, const std::string &domain,
                          const std::string &eventName, EventType type,
                          const std::vector<HiSysEventParam> &params);

private:
    static void Collect(std::vector<HiSysEventParam> &) {}

    template <typename V, typename... Rest>
    static void Collect(std::vector<HiSysEventParam> &params, const std::string &name, V value,
                        Rest... rest) {
        HiSysEventParam param;
        param.name = name;
        Assign(param, value);
        params.push_back(std::move(param));
        Collect(params, rest...);
    }

    template <typename V>
    static void Assign(HiSysEventParam &param, V value) {
        using T = std::decay_t<V>;
        if constexpr (std::is_same_v<T, bool>) {
            param.type = HiSysEventParam::Type::BOOL;
            param.boolValue = value;
        } else if constexpr (std::is_integral_v<T> && std::is_signed_v<T> && sizeof(T) <= 4) {
            param.type = HiSysEventParam::Type::INT32;
            param.intValue = value;
        } else if constexpr (std::is_integral_v<T> && std::is_signed_v<T>) {
            param.type = HiSysEventParam::Type::INT64;
            param.intValue = value;
        } else if constexpr (std::is_integral_v<T> && sizeof(T) <= 4) {
            param.type = HiSysEventParam::Type::UINT32;
            param.uintValue = value;
        } else if constexpr (std::is_integral_v<T>) {
            param.type = HiSysEventParam::Type::UINT64;
            param.uintValue = value;
        } else if constexpr (std::is_floating_point_v<T>) {
            param.type = HiSysEventParam::Type::DOUBLE;
            param.doubleValue = value;
        } else {
            static_assert(std::is_convertible_v<T, std::string>, "unsupported event parameter type");
            param.type = HiSysEventParam::Type::STRING;
            param.stringValue = value;
        }
    }
};

}  // namespace HiviewDFX
}  // namespace Zarvo

#define HiSysEventWrite(domain, eventName, type, ...) \
    Zarvo::HiviewDFX::HiSysEvent::Write(__FUNCTION__, __LINE__, domain, eventName, type, ##__VA_ARGS__)

#endif  // ZARVO_HISYSEVENT_H

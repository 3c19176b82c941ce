#ifndef USER_EVENT_UTIL_H
#define USER_EVENT_UTIL_H

#include <cstdint>
#include <string>

namespace Zarvo {
namespace UpdateEngine {

// One fault event of the user restore.
struct EventInfo {
    std::string taskId;
    std::string errorType;
    int32_t errorCode;
    std::string errorMessage;
};

class UserEventUtil {
public:
    static void SendUserRestoreErrorEvent(int32_t errorCode, const std::string &errorType,
                                          const std::string &errorMessage);
    static void SendEvent(const EventInfo &eventInfo);
};

}  // namespace UpdateEngine
}  // namespace Zarvo

#endif  // USER_EVENT_UTIL_H

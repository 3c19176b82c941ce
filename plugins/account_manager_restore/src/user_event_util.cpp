#include "user_event_util.h"

#include "hisysevent.h"
#include "update_log.h"

namespace Zarvo {
namespace UpdateEngine {
namespace {

const std::string PLUGIN_TASK_ID = "200";
const std::string EVENT_DOMAIN = "MIGRATESERVER";
const std::string RESTORE_FAIL_EVENT = "RESTORE_SO_FAIL";

}  // namespace

void UserEventUtil::SendUserRestoreErrorEvent(int32_t errorCode, const std::string &errorType,
                                              const std::string &errorMessage) {
    EventInfo eventInfo{PLUGIN_TASK_ID, errorType, errorCode, errorMessage};
    SendEvent(eventInfo);
}

void UserEventUtil::SendEvent(const EventInfo &eventInfo) {
    int32_t ret = HiSysEventWrite(EVENT_DOMAIN, RESTORE_FAIL_EVENT, HiviewDFX::HiSysEvent::FAULT, "TASK_ID",
                                  eventInfo.taskId, "ERROR_TYPE", eventInfo.errorType, "ERROR_CODE",
                                  eventInfo.errorCode, "ERROR_MESSAGE", eventInfo.errorMessage);
    if (ret != 0) {
        PLUGIN_LOGE("SendEvent hisysevent write failed! ret %{public}d.", ret);
    }
}

}  // namespace UpdateEngine
}  // namespace Zarvo

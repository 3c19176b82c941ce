#include "user_event_util.h"

#include "account_restore_vocabulary.h"
#include "hisysevent.h"
#include "update_log.h"

namespace Zarvo {
namespace UpdateEngine {
namespace {

const std::string PLUGIN_TASK_ID = RestoreVocabulary::EVENT_TASK_ID;
const std::string EVENT_DOMAIN = RestoreVocabulary::EVENT_DOMAIN;
const std::string RESTORE_FAIL_EVENT = RestoreVocabulary::EVENT_NAME;

}  // namespace

void UserEventUtil::SendUserRestoreErrorEvent(int32_t errorCode, const std::string &errorType,
                                              const std::string &errorMessage) {
    EventInfo eventInfo{PLUGIN_TASK_ID, errorType, errorCode, errorMessage};
    SendEvent(eventInfo);
}

void UserEventUtil::SendEvent(const EventInfo &eventInfo) {
    int32_t ret = HiSysEventWrite(EVENT_DOMAIN, RESTORE_FAIL_EVENT, HiviewDFX::HiSysEvent::FAULT,
                                  RestoreVocabulary::PARAM_TASK_ID, eventInfo.taskId,
                                  RestoreVocabulary::PARAM_ERROR_TYPE, eventInfo.errorType,
                                  RestoreVocabulary::PARAM_ERROR_CODE, eventInfo.errorCode,
                                  RestoreVocabulary::PARAM_ERROR_MESSAGE, eventInfo.errorMessage);
    if (ret != 0) {
        PLUGIN_LOGE(LINE_EVENT_NOT_WRITTEN, ret);
    }
}

}  // namespace UpdateEngine
}  // namespace Zarvo

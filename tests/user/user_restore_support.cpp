#include "user_restore_support.h"

#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "captured_log.h"
#include "platform_control/credential_control.h"
#include "platform_control/device_state.h"
#include "platform_control/event_capture.h"

namespace Zarvo::Testing {
namespace {

const char *TypeName(HiviewDFX::HiSysEventParam::Type type) {
    using Type = HiviewDFX::HiSysEventParam::Type;
    switch (type) {
        case Type::INT32:
            return "INT32";
        case Type::STRING:
            return "STRING";
        default:
            return "OTHER";
    }
}

}  // namespace

bool FaultEvent::operator==(const FaultEvent &other) const {
    return domain == other.domain && name == other.name && type == other.type &&
           parameters == other.parameters && taskId == other.taskId && errorType == other.errorType &&
           errorCode == other.errorCode && errorMessage == other.errorMessage;
}

std::ostream &operator<<(std::ostream &out, const FaultEvent &event) {
    return out << event.domain << "/" << event.name << " type " << event.type << " [" << event.parameters
               << "] task " << event.taskId << " " << event.errorType << " " << event.errorCode << " \""
               << event.errorMessage << "\"";
}

FaultEvent RestoreFail(int64_t errorCode, const std::string &errorType, const std::string &errorMessage) {
    return FaultEvent{"MIGRATESERVER",
                      "RESTORE_SO_FAIL",
                      1,
                      "TASK_ID:STRING,ERROR_TYPE:STRING,ERROR_CODE:INT32,ERROR_MESSAGE:STRING",
                      "200",
                      errorType,
                      errorCode,
                      errorMessage};
}

std::vector<FaultEvent> CapturedFaultEvents() {
    std::vector<FaultEvent> events;
    for (const auto &record : Host::CapturedEvents()) {
        FaultEvent event{record.domain, record.name, record.type, "", "", "", 0, ""};
        for (const auto &param : record.params) {
            event.parameters +=
                (event.parameters.empty() ? "" : ",") + param.name + ":" + TypeName(param.type);
            if (param.name == "TASK_ID") {
                event.taskId = param.stringValue;
            } else if (param.name == "ERROR_TYPE") {
                event.errorType = param.stringValue;
            } else if (param.name == "ERROR_CODE") {
                event.errorCode = param.intValue;
            } else if (param.name == "ERROR_MESSAGE") {
                event.errorMessage = param.stringValue;
            }
        }
        events.push_back(event);
    }
    return events;
}

void LaySourceUsers(const Fixtures::AndroidUsers &users, Fixtures::UserFileForm form) {
    std::string error;
    if (!Fixtures::WriteAndroidUsers(SOURCE_XML_DIR, users, form, error)) {
        throw std::runtime_error(error);
    }
}

void WriteSourceFile(const std::string &name, const std::string &content) {
    std::filesystem::create_directories(SOURCE_XML_DIR);
    std::ofstream(SOURCE_XML_DIR + name, std::ios::binary | std::ios::trunc) << content;
}

void ResetUserRestoreWorld() {
    Host::ResetCredentialService();
    Host::ResetToTypicalDevice();
    ResetCaptures();
    std::filesystem::remove_all("/data/service");
}

const AccountSA::OsAccountInfo *FindAccount(const std::vector<AccountSA::OsAccountInfo> &accounts,
                                            int localId) {
    for (const auto &account : accounts) {
        if (account.GetLocalId() == localId) {
            return &account;
        }
    }
    return nullptr;
}

}  // namespace Zarvo::Testing

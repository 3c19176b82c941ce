#include "user_restore_support.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "captured_log.h"
#include "platform_control/credential_control.h"
#include "platform_control/device_state.h"
#include "platform_control/event_capture.h"
#include "user_data_manager.h"

namespace Zarvo::Testing {

std::vector<std::string> CapturedFaultEvents() {
    using Type = HiviewDFX::HiSysEventParam::Type;
    std::vector<std::string> events;
    for (const auto &record : Host::CapturedEvents()) {
        std::string event = record.domain + "/" + record.name + ":" + std::to_string(record.type);
        for (const auto &param : record.params) {
            event += " " + param.name +
                     (param.type == Type::STRING  ? ":STRING=" + param.stringValue
                      : param.type == Type::INT32 ? ":INT32=" + std::to_string(param.intValue)
                                                  : ":OTHER");
        }
        events.push_back(event);
    }
    return events;
}

std::string RestoreFail(int64_t errorCode, const std::string &errorType, const std::string &errorMessage) {
    return "MIGRATESERVER/RESTORE_SO_FAIL:1 TASK_ID:STRING=200 ERROR_TYPE:STRING=" + errorType +
           " ERROR_CODE:INT32=" + std::to_string(errorCode) + " ERROR_MESSAGE:STRING=" + errorMessage;
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

bool RestoreUsers() {
    bool result = UpdateEngine::UserDataManager().DoRestoreData();
    EXPECT_TRUE(Host::WaitForCredentialAnswers(1, std::chrono::seconds(5)));
    EXPECT_EQ(Host::CredentialClearRequestCount(), 1u) << "one clean-up per run";
    return result;
}

std::vector<int> OsAccountIds() {
    std::vector<int> ids;
    for (const auto &account : Host::OsAccounts()) {
        ids.push_back(account.GetLocalId());
    }
    return ids;
}

std::string DescribeAccount(int localId) {
    for (const auto &account : Host::OsAccounts()) {
        if (account.GetLocalId() == localId) {
            return "name '" + account.GetLocalName() + "' type " + std::to_string(account.GetType()) +
                   " serial " + std::to_string(account.GetSerialNumber()) + " created " +
                   std::to_string(account.GetCreateTime()) + " login " +
                   std::to_string(account.GetLastLoginTime()) + " photo '" + account.GetPhoto() + "'";
        }
    }
    return "none";
}

}  // namespace Zarvo::Testing

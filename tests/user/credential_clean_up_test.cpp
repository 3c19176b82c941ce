#include <gtest/gtest.h>

#include <mutex>
#include <thread>

#include "account_user_idm_client.h"
#include "captured_log.h"
#include "platform_control/credential_control.h"
#include "user_idm_client.h"

using namespace Zarvo::UserIam::UserAuth;
using namespace std::chrono_literals;
using Zarvo::Testing::LogLine;

namespace {

// Records what the service reports and on which thread.
class RecordingCallback : public UserIdmClientCallback {
public:
    void OnAcquireInfo(int32_t module, uint32_t acquireInfo, const Attributes &) override {
        std::lock_guard<std::mutex> lock(mutex);
        calls.push_back("acquire " + std::to_string(module) + " " + std::to_string(acquireInfo));
    }
    void OnResult(int32_t result, const Attributes &extraInfo) override {
        std::lock_guard<std::mutex> lock(mutex);
        int32_t code = -1;
        extraInfo.GetInt32Value(Attributes::ATTR_RESULT_CODE, code);
        calls.push_back("result " + std::to_string(result) + " " + std::to_string(code));
        thread = std::this_thread::get_id();
    }

    std::mutex mutex;
    std::vector<std::string> calls;
    std::thread::id thread;
};

class CredentialCleanUpTest : public testing::Test {
protected:
    void SetUp() override {
        Zarvo::Host::ResetCredentialService();
        Zarvo::Testing::ResetCaptures();
    }
    void TearDown() override { Zarvo::Host::ResetCredentialService(); }
};

TEST_F(CredentialCleanUpTest, ServiceAnswersEachRequestOnceFromAnotherThread) {
    auto first = std::make_shared<RecordingCallback>();
    auto second = std::make_shared<RecordingCallback>();
    UserIdmClient::GetInstance().ClearRedundancyCredential(first);
    Zarvo::Host::SetCredentialAnswer({-5, true, 2, 9});
    UserIdmClient::GetInstance().ClearRedundancyCredential(second);
    EXPECT_EQ(Zarvo::Host::CredentialClearRequestCount(), 2u);
    ASSERT_TRUE(Zarvo::Host::WaitForCredentialAnswers(2, 5s));
    EXPECT_EQ(Zarvo::Host::CredentialClearAnswerCount(), 2u);

    EXPECT_EQ(first->calls, (std::vector<std::string>{"result 0 0"}));
    EXPECT_EQ(second->calls, (std::vector<std::string>{"acquire 2 9", "result -5 -5"}));
    EXPECT_NE(first->thread, std::this_thread::get_id());
}

TEST_F(CredentialCleanUpTest, ServiceKeepsCallbackUntilItHasAnswered) {
    std::weak_ptr<RecordingCallback> watch;
    {
        auto callback = std::make_shared<RecordingCallback>();
        watch = callback;
        UserIdmClient::GetInstance().ClearRedundancyCredential(callback);
    }
    ASSERT_TRUE(Zarvo::Host::WaitForCredentialAnswers(1, 5s));
    EXPECT_TRUE(watch.expired());
}

TEST_F(CredentialCleanUpTest, NullCallbackIsCountedAndIgnored) {
    UserIdmClient::GetInstance().ClearRedundancyCredential(nullptr);
    EXPECT_EQ(Zarvo::Host::CredentialClearRequestCount(), 1u);
    EXPECT_TRUE(Zarvo::Host::WaitForCredentialAnswers(1, 5s));
}

TEST_F(CredentialCleanUpTest, ResetWaitsForPendingAnswersAndRestoresDefaults) {
    Zarvo::Host::SetCredentialAnswer({3, false, 0, 0});
    auto callback = std::make_shared<RecordingCallback>();
    UserIdmClient::GetInstance().ClearRedundancyCredential(callback);
    Zarvo::Host::ResetCredentialService();
    EXPECT_EQ(callback->calls, (std::vector<std::string>{"result 3 3"}));
    EXPECT_EQ(Zarvo::Host::CredentialClearRequestCount(), 0u);

    UserIdmClient::GetInstance().ClearRedundancyCredential(callback);
    ASSERT_TRUE(Zarvo::Host::WaitForCredentialAnswers(1, 5s));
    EXPECT_EQ(callback->calls.back(), "result 0 0");
}

TEST_F(CredentialCleanUpTest, PlugInClientMakesOneRequestAndLogsTheAnswer) {
    Zarvo::Host::SetCredentialAnswer({12345, true, 1, 2});
    Zarvo::UpdateEngine::AccountUserIdmClient client;
    client.ClearRedundancyCredential();
    EXPECT_EQ(Zarvo::Host::CredentialClearRequestCount(), 1u);
    ASSERT_TRUE(Zarvo::Host::WaitForCredentialAnswers(1, 5s));
    EXPECT_EQ(Zarvo::Testing::PluginLogLines(), (std::vector<LogLine>{
                                                    {4, "OnAcquireInfo called."},
                                                    {4, "OnResult result is 12345."},
                                                }));
}

}  // namespace

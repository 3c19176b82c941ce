#include "user_idm_client.h"

#include <condition_variable>
#include <deque>
#include <mutex>
#include <system_error>
#include <thread>

#include "platform_control/credential_control.h"

namespace Zarvo {
namespace UserIam {
namespace UserAuth {
namespace {

// The host's credential service: requests are queued and answered in order by one worker
// thread, the way the device service answers over IPC from a thread of its own.
class HostUserIdmClient final : public UserIdmClient {
public:
    ~HostUserIdmClient() override {
        {
            std::lock_guard<std::mutex> lock(mutex_);
            stopping_ = true;
        }
        queued_.notify_all();
        if (worker_.joinable()) {
            worker_.join();
        }
    }

    void ClearRedundancyCredential(const std::shared_ptr<UserIdmClientCallback> &callback) override {
        std::lock_guard<std::mutex> lock(mutex_);
        ++requests_;
        if (callback == nullptr) {
            ++answers_;
            answered_.notify_all();
            return;
        }
        pending_.push_back({callback, answer_});
        if (!worker_.joinable()) {
            try {
                worker_ = std::thread([this] { Serve(); });
            } catch (const std::system_error &) {
                // Without a thread to answer on, the request is lost, as an IPC call to a busy
                // service would be; the caller never learns of it and must not be held up.
                pending_.pop_back();
                ++answers_;
                answered_.notify_all();
                return;
            }
        }
        queued_.notify_one();
    }

    std::size_t Requests() {
        std::lock_guard<std::mutex> lock(mutex_);
        return requests_;
    }

    std::size_t Answers() {
        std::lock_guard<std::mutex> lock(mutex_);
        return answers_;
    }

    void SetAnswer(const Host::CredentialAnswer &answer) {
        std::lock_guard<std::mutex> lock(mutex_);
        answer_ = answer;
    }

    bool WaitForAnswers(std::size_t count, std::chrono::milliseconds timeout) {
        std::unique_lock<std::mutex> lock(mutex_);
        return answered_.wait_for(lock, timeout, [&] { return answers_ >= count; });
    }

    void Reset() {
        std::unique_lock<std::mutex> lock(mutex_);
        answered_.wait(lock, [&] { return answers_ == requests_; });
        requests_ = 0;
        answers_ = 0;
        answer_ = Host::CredentialAnswer{};
    }

private:
    struct Request {
        std::shared_ptr<UserIdmClientCallback> callback;
        Host::CredentialAnswer answer;
    };

    void Serve() {
        std::unique_lock<std::mutex> lock(mutex_);
        while (true) {
            queued_.wait(lock, [&] { return stopping_ || !pending_.empty(); });
            if (pending_.empty()) {
                return;  // stopping, and every request has been answered
            }
            Request request = std::move(pending_.front());
            pending_.pop_front();
            lock.unlock();
            Deliver(request);
            request.callback.reset();  // the service's reference goes before the answer counts
            lock.lock();
            ++answers_;
            answered_.notify_all();
        }
    }

    static void Deliver(const Request &request) {
        // A callback that throws must not take the service's thread down with it.
        try {
            if (request.answer.sendAcquireInfo) {
                Attributes progress;
                request.callback->OnAcquireInfo(request.answer.module, request.answer.acquireInfo, progress);
            }
            Attributes extraInfo;
            extraInfo.SetInt32Value(Attributes::ATTR_RESULT_CODE, request.answer.result);
            request.callback->OnResult(request.answer.result, extraInfo);
        } catch (...) {
        }
    }

    std::mutex mutex_;
    std::condition_variable queued_;
    std::condition_variable answered_;
    std::deque<Request> pending_;
    Host::CredentialAnswer answer_;
    std::size_t requests_ = 0;
    std::size_t answers_ = 0;
    bool stopping_ = false;
    std::thread worker_;
};

HostUserIdmClient &HostClient() {
    static HostUserIdmClient client;
    return client;
}

}  // namespace

UserIdmClient &UserIdmClient::GetInstance() {
    return HostClient();
}

}  // namespace UserAuth
}  // namespace UserIam

namespace Host {

std::size_t CredentialClearRequestCount() {
    return UserIam::UserAuth::HostClient().Requests();
}

std::size_t CredentialClearAnswerCount() {
    return UserIam::UserAuth::HostClient().Answers();
}

void SetCredentialAnswer(const CredentialAnswer &answer) {
    UserIam::UserAuth::HostClient().SetAnswer(answer);
}

bool WaitForCredentialAnswers(std::size_t count, std::chrono::milliseconds timeout) {
    return UserIam::UserAuth::HostClient().WaitForAnswers(count, timeout);
}

void ResetCredentialService() {
    UserIam::UserAuth::HostClient().Reset();
}

}  // namespace Host
}  // namespace Zarvo

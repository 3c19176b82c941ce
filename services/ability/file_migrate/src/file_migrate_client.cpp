#include "file_migrate_client.h"

#include <chrono>
#include <cstring>
#include <sstream>

#include "migrate_pause.h"
#include "update_log.h"

namespace Zarvo {
namespace UpdateEngine {

namespace {
constexpr int32_t CONNECT_RETRY_TIMES = 2;
constexpr uint32_t CONNECT_RETRY_PAUSE_MS = 100;
constexpr int32_t MAX_CONSECUTIVE_READ_FAILURES = 4;
constexpr int32_t NO_SPACE_ERR_CODE = 28;

int64_t NowMilliseconds() {
    return std::chrono::duration_cast<std::chrono::milliseconds>(
               std::chrono::system_clock::now().time_since_epoch())
        .count();
}

FilePath ParseEntry(const std::string &entry) {
    FilePath filePath{};
    size_t colon = entry.rfind(':');
    if (colon == std::string::npos) {
        filePath.path = entry;
        filePath.kind = 0;
        return filePath;
    }
    filePath.path = entry.substr(0, colon);
    filePath.kind = entry.compare(colon + 1, std::string::npos, "1") == 0 ? 2 : 1;
    return filePath;
}
}  // namespace

FileMigrateClient::FileMigrateClient()
    : socket_(std::make_shared<MigrateSocket>()), connectState_(DISCONNECTED) {}

FileMigrateClient::~FileMigrateClient() {
    if (socket_ != nullptr && connectState_ == CONNECTED) {
        socket_->CloseSocket();
    }
    connectState_ = DISCONNECTED;
    socket_.reset();
}

void FileMigrateClient::SetSocket(std::shared_ptr<MigrateSocket> socket) {
    socket_ = std::move(socket);
}

void FileMigrateClient::CloseConnection() {
    if (socket_ != nullptr && connectState_ == CONNECTED) {
        socket_->CloseSocket();
    }
    connectState_ = DISCONNECTED;
}

int32_t FileMigrateClient::OpenMigrateConnection() {
    if (socket_ == nullptr) {
        PLUGIN_LOGE("failed to open connection without socket!");
        return MIGRATE_ERR_NO_SOCKET;
    }
    if (socket_->CreateSocket() != 0) {
        PLUGIN_LOGE("failed to create socketClient");
        return MIGRATE_ERR_CREATE_SOCKET;
    }
    if (socket_->ConnectSocket() != 0) {
        PLUGIN_LOGE("failed to connect socket");
        socket_->CloseSocket();
        return MIGRATE_ERR_CONNECT;
    }
    return 0;
}

int32_t FileMigrateClient::OpenConnection() {
    if (socket_ == nullptr) {
        PLUGIN_LOGE("failed to open connection without socket!");
        return MIGRATE_ERR_NO_SOCKET;
    }
    int32_t ret = OpenMigrateConnection();
    for (int32_t retry = 1; ret != 0 && retry <= CONNECT_RETRY_TIMES; ++retry) {
        PLUGIN_LOGI("failed to OpenConnection, retry times %{public}d ...", retry);
        g_migratePause(CONNECT_RETRY_PAUSE_MS);
        ret = OpenMigrateConnection();
    }
    if (ret != 0) {
        connectState_ = CONNECT_FAILED;
        PLUGIN_LOGE("failed to openConnection, errorCode is %{public}08x", ret);
        return ret;
    }
    connectState_ = CONNECTED;
    return 0;
}

int32_t FileMigrateClient::StartSendProcess(const char *buf, int32_t len) {
    std::vector<FilePath> discarded;
    return StartSendProcess(buf, len, discarded);
}

int32_t FileMigrateClient::StartSendProcess(const char *buf, int32_t len, std::vector<FilePath> &list) {
    if (socket_ == nullptr) {
        PLUGIN_LOGE("failed to startProcess without socket!");
        return MIGRATE_ERR_NO_SOCKET;
    }
    if (connectState_ != CONNECTED) {
        int32_t ret = OpenConnection();
        if (ret != 0) {
            PLUGIN_LOGE("connect to Migrate service failed!");
            return ret;
        }
    }
    return StartSendProcessImpl(buf, len, list);
}

int32_t FileMigrateClient::StartSendProcessImpl(const char *buf, int32_t len, std::vector<FilePath> &list) {
    int32_t fd = socket_->GetSocketFd();
    PLUGIN_LOGI("StartSendProcessImpl, entry, fd: %{public}d", fd);
    int64_t start = NowMilliseconds();
    if (socket_->WriteSocketMessage(buf, len) != len) {
        PLUGIN_LOGE(
            "StartSendProcessImpl, failed to write message due to invalid write length, fd: %{public}d", fd);
        return MIGRATE_ERR_WRITE;
    }
    MigrateReplyHeader header{};
    if (socket_->ReadSocketMessage(reinterpret_cast<char *>(&header), MIGRATE_REPLY_HEADER_LENGTH) !=
        MIGRATE_REPLY_HEADER_LENGTH) {
        PLUGIN_LOGE("StartSendProcessImpl, failed to read message due to invalid read length, fd: %{public}d",
                    fd);
        return MIGRATE_ERR_READ;
    }
    int64_t end = NowMilliseconds();
    PLUGIN_LOGI(
        "StartSendProcessImpl result: %{public}d, pkgNum: %{public}d, errCode: %{public}d, fd: %{public}d, "
        "cost: %{public}ld ms",
        header.result, header.pkgNum, header.errCode, fd, static_cast<long>(end - start));
    if (header.pkgNum >= 1) {
        return GetAllPackagesMsg(header.pkgNum, list) == header.pkgNum ? header.result : MIGRATE_ERR_PACKAGES;
    }
    if (header.result == -1 && header.errCode == NO_SPACE_ERR_CODE) {
        return NO_SPACE_ERR_CODE;
    }
    return header.result;
}

int32_t FileMigrateClient::GetAllPackagesMsg(int32_t pkgNum, std::vector<FilePath> &list) {
    if (pkgNum < 0) {
        PLUGIN_LOGE("failed to get all packages, need to discard all");
        return 0;
    }
    if (pkgNum == 0) {
        return 0;
    }
    int32_t received = 0;
    int32_t failures = 0;
    std::vector<std::string> texts;
    MigratePackage package{};
    while (received < pkgNum && failures < MAX_CONSECUTIVE_READ_FAILURES) {
        std::memset(&package, 0, sizeof(package));
        if (socket_->ReadSocketMessage(reinterpret_cast<char *>(&package), MIGRATE_PACKAGE_LENGTH) !=
            MIGRATE_PACKAGE_LENGTH) {
            ++failures;
            PLUGIN_LOGE("failed to read message due to invalid read length, ignore it");
            continue;
        }
        PLUGIN_LOGI("pkgNum: %{public}d, pkgIndex: %{public}d,fd: %{public}d", package.pkgNum,
                    package.pkgIndex, socket_->GetSocketFd());
        // A text that fills the whole field without a terminator is taken whole.
        texts.emplace_back(package.pkgText, strnlen(package.pkgText, MIGRATE_PKG_TEXT_WIDTH));
        ++received;
        failures = 0;
    }
    if (received == pkgNum) {
        SplitMessage(std::move(texts), list);
    } else {
        PLUGIN_LOGE("failed to get all packages, need to discard all");
    }
    return received;
}

void FileMigrateClient::SplitMessage(std::vector<std::string> texts, std::vector<FilePath> &list) {
    if (texts.empty()) {
        return;
    }
    for (const std::string &text : texts) {
        std::istringstream stream(text);
        std::string entry;
        while (std::getline(stream, entry, ',')) {
            list.push_back(ParseEntry(entry));
        }
        PLUGIN_LOGI("SplitMessage, fileList size: %{public}zu", list.size());
    }
}

}  // namespace UpdateEngine
}  // namespace Zarvo

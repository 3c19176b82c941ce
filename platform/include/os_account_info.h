#ifndef ZARVO_OS_ACCOUNT_INFO_H
#define ZARVO_OS_ACCOUNT_INFO_H

#include <cstdint>
#include <string>

namespace Zarvo {
namespace AccountSA {

// A fixed underlying type keeps any 32-bit value representable, so the manager can refuse bad ones.
enum OsAccountType : int32_t {
    ADMIN = 0,
    NORMAL,
    GUEST,
    PRIVATE = 1024,
    END,
};

// One OS account as the account manager stores it.
class OsAccountInfo {
public:
    OsAccountInfo() = default;
    OsAccountInfo(int localId, const std::string &localName, OsAccountType type, int64_t serialNumber);

    int GetLocalId() const { return localId_; }
    void SetLocalId(int localId) { localId_ = localId; }
    std::string GetLocalName() const { return localName_; }
    void SetLocalName(const std::string &localName) { localName_ = localName; }
    std::string GetShortName() const { return shortName_; }
    void SetShortName(const std::string &shortName) { shortName_ = shortName; }
    OsAccountType GetType() const { return type_; }
    void SetType(OsAccountType type) { type_ = type; }
    int64_t GetSerialNumber() const { return serialNumber_; }
    void SetSerialNumber(int64_t serialNumber) { serialNumber_ = serialNumber; }
    // Times are milliseconds since the epoch.
    int64_t GetCreateTime() const { return createTime_; }
    void SetCreateTime(int64_t createTime) { createTime_ = createTime; }
    int64_t GetLastLoginTime() const { return lastLoginTime_; }
    void SetLastLoginTime(int64_t lastLoginTime) { lastLoginTime_ = lastLoginTime; }
    // The photo as a data URI ("data:image/png;base64,...") or empty.
    std::string GetPhoto() const { return photo_; }
    void SetPhoto(const std::string &photo) { photo_ = photo; }
    bool GetIsActived() const { return isActived_; }
    void SetIsActived(bool isActived) { isActived_ = isActived; }
    bool GetIsVerified() const { return isVerified_; }
    void SetIsVerified(bool isVerified) { isVerified_ = isVerified; }
    bool GetIsCreateCompleted() const { return isCreateCompleted_; }
    void SetIsCreateCompleted(bool isCreateCompleted) { isCreateCompleted_ = isCreateCompleted; }
    bool GetToBeRemoved() const { return toBeRemoved_; }
    void SetToBeRemoved(bool toBeRemoved) { toBeRemoved_ = toBeRemoved; }

private:
    int localId_ = -1;
    std::string localName_;
    std::string shortName_;
    OsAccountType type_ = OsAccountType::ADMIN;
    int64_t serialNumber_ = 0;
    int64_t createTime_ = 0;
    int64_t lastLoginTime_ = 0;
    std::string photo_;
    bool isActived_ = false;
    bool isVerified_ = false;
    bool isCreateCompleted_ = false;
    bool toBeRemoved_ = false;
};

}  // namespace AccountSA
}  // namespace Zarvo

#endif  // ZARVO_OS_ACCOUNT_INFO_H

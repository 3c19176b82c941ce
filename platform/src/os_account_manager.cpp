#include "os_account_manager.h"

#include "device_state_store.h"

namespace Zarvo::AccountSA {
namespace {

using Host::Internal::DeviceStateMutex;
using Host::Internal::LockedDeviceState;
using Host::Internal::TakeFault;

bool IsValidType(OsAccountType type) {
    return type == OsAccountType::ADMIN || type == OsAccountType::NORMAL || type == OsAccountType::GUEST ||
           type == OsAccountType::PRIVATE;
}

ErrCode ValidateDetails(const OsAccountInfo &info) {
    if (info.GetLocalName().size() > LOCAL_NAME_MAX_SIZE) {
        return ERR_OSACCOUNT_INVALID_PARAMETER;
    }
    if (!IsValidType(info.GetType())) {
        return ERR_OSACCOUNT_INVALID_TYPE;
    }
    return ERR_OK;
}

}  // namespace

OsAccountInfo::OsAccountInfo(int localId, const std::string &localName, OsAccountType type,
                             int64_t serialNumber)
    : localId_(localId), localName_(localName), type_(type), serialNumber_(serialNumber) {}

ErrCode OsAccountManager::QueryAllCreatedOsAccounts(std::vector<OsAccountInfo> &osAccountInfos) {
    ErrCode fault = ERR_OK;
    if (TakeFault("QueryAllCreatedOsAccounts", fault)) {
        return fault;
    }
    std::lock_guard<std::mutex> lock(DeviceStateMutex());
    osAccountInfos.clear();
    for (const auto &entry : LockedDeviceState().accounts) {
        osAccountInfos.push_back(entry.second);
    }
    return ERR_OK;
}

ErrCode OsAccountManager::QueryOsAccountById(const int id, OsAccountInfo &osAccountInfo) {
    ErrCode fault = ERR_OK;
    if (TakeFault("QueryOsAccountById", fault)) {
        return fault;
    }
    if (id < 0) {
        return ERR_OSACCOUNT_INVALID_PARAMETER;
    }
    std::lock_guard<std::mutex> lock(DeviceStateMutex());
    const auto &accounts = LockedDeviceState().accounts;
    auto found = accounts.find(id);
    if (found == accounts.end()) {
        return ERR_OSACCOUNT_NOT_FOUND;
    }
    osAccountInfo = found->second;
    return ERR_OK;
}

ErrCode OsAccountManager::CreateOsAccountWithFullInfo(OsAccountInfo &osAccountInfo) {
    ErrCode fault = ERR_OK;
    if (TakeFault("CreateOsAccountWithFullInfo", fault)) {
        return fault;
    }
    if (osAccountInfo.GetLocalId() < START_USER_ID) {
        return ERR_OSACCOUNT_INVALID_PARAMETER;
    }
    ErrCode result = ValidateDetails(osAccountInfo);
    if (result != ERR_OK) {
        return result;
    }
    std::lock_guard<std::mutex> lock(DeviceStateMutex());
    auto &accounts = LockedDeviceState().accounts;
    if (accounts.count(osAccountInfo.GetLocalId()) != 0) {
        return ERR_OSACCOUNT_ALREADY_EXISTS;
    }
    OsAccountInfo stored = osAccountInfo;
    stored.SetIsActived(false);
    stored.SetIsCreateCompleted(true);
    stored.SetToBeRemoved(false);
    accounts.emplace(stored.GetLocalId(), stored);
    osAccountInfo = stored;
    return ERR_OK;
}

ErrCode OsAccountManager::UpdateOsAccountWithFullInfo(OsAccountInfo &osAccountInfo) {
    ErrCode fault = ERR_OK;
    if (TakeFault("UpdateOsAccountWithFullInfo", fault)) {
        return fault;
    }
    if (osAccountInfo.GetLocalId() < 0) {
        return ERR_OSACCOUNT_INVALID_PARAMETER;
    }
    ErrCode result = ValidateDetails(osAccountInfo);
    if (result != ERR_OK) {
        return result;
    }
    std::lock_guard<std::mutex> lock(DeviceStateMutex());
    auto &accounts = LockedDeviceState().accounts;
    auto found = accounts.find(osAccountInfo.GetLocalId());
    if (found == accounts.end()) {
        return ERR_OSACCOUNT_NOT_FOUND;
    }
    OsAccountInfo &stored = found->second;
    stored.SetLocalName(osAccountInfo.GetLocalName());
    stored.SetShortName(osAccountInfo.GetShortName());
    stored.SetType(osAccountInfo.GetType());
    stored.SetSerialNumber(osAccountInfo.GetSerialNumber());
    stored.SetCreateTime(osAccountInfo.GetCreateTime());
    stored.SetLastLoginTime(osAccountInfo.GetLastLoginTime());
    stored.SetPhoto(osAccountInfo.GetPhoto());
    osAccountInfo = stored;
    return ERR_OK;
}

}  // namespace Zarvo::AccountSA

#ifndef ZARVO_OS_ACCOUNT_MANAGER_H
#define ZARVO_OS_ACCOUNT_MANAGER_H

#include <cstdint>
#include <vector>

#include "os_account_info.h"

namespace Zarvo {
namespace AccountSA {

using ErrCode = int32_t;

// Results of the account manager besides ERR_OK; each failure class has its own code.
constexpr ErrCode ERR_OK = 0;
constexpr ErrCode ERR_OSACCOUNT_INVALID_PARAMETER = 0x00400001;  // id out of range, name too long
constexpr ErrCode ERR_OSACCOUNT_INVALID_TYPE = 0x00400002;       // not one of the OsAccountType values
constexpr ErrCode ERR_OSACCOUNT_ALREADY_EXISTS = 0x00400003;     // create with an id already in use
constexpr ErrCode ERR_OSACCOUNT_NOT_FOUND = 0x00400004;          // query or update of an unknown id

// Smallest local id an account may be created with; lower ids belong to the system.
constexpr int START_USER_ID = 100;
// Longest local name the manager stores, in bytes.
constexpr size_t LOCAL_NAME_MAX_SIZE = 1024;

class OsAccountManager {
public:
    // All created accounts, by ascending local id.
    static ErrCode QueryAllCreatedOsAccounts(std::vector<OsAccountInfo> &osAccountInfos);
    static ErrCode QueryOsAccountById(const int id, OsAccountInfo &osAccountInfo);
    // Stores a new account with every field the caller filled; the id must be free.
    static ErrCode CreateOsAccountWithFullInfo(OsAccountInfo &osAccountInfo);
    // Replaces the details of an existing account (name, short name, type, serial number, times, photo)
    // with those of osAccountInfo; the state flags (active, verified, completed) stay the manager's.
    static ErrCode UpdateOsAccountWithFullInfo(OsAccountInfo &osAccountInfo);
};

}  // namespace AccountSA
}  // namespace Zarvo

#endif  // ZARVO_OS_ACCOUNT_MANAGER_H

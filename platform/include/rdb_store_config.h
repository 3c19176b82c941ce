#ifndef ZARVO_RDB_STORE_CONFIG_H
#define ZARVO_RDB_STORE_CONFIG_H

#include <cstdint>
#include <string>
#include <vector>

namespace Zarvo {
namespace NativeRdb {

enum class StorageMode { MODE_MEMORY = 101, MODE_DISK = 102 };

enum class SecurityLevel { S1 = 1, S2, S3, S4, LAST };

static const std::string DB_DEFAULT_JOURNAL_MODE = "WAL";
static const std::string DB_DEFAULT_ENCRYPT_ALGO = "sha256";

// How a store is to be opened. The host store honours the path, the storage mode (disk only),
// read-only and the encryption key (which must be empty); the other fields are kept and reported
// but never applied to the file (see docs/account-restore.md).
class RdbStoreConfig {
public:
    RdbStoreConfig(const std::string &path, StorageMode storageMode = StorageMode::MODE_DISK,
                   bool readOnly = false, const std::vector<uint8_t> &encryptKey = std::vector<uint8_t>(),
                   const std::string &journalMode = DB_DEFAULT_JOURNAL_MODE, const std::string &syncMode = "",
                   const std::string &databaseFileType = "",
                   SecurityLevel securityLevel = SecurityLevel::LAST, bool isCreateNecessary = true,
                   bool autoCheck = false, int journalSize = 1048576, int pageSize = 4096,
                   const std::string &encryptAlgo = DB_DEFAULT_ENCRYPT_ALGO);

    const std::string &GetPath() const { return path_; }
    StorageMode GetStorageMode() const { return storageMode_; }
    bool IsReadOnly() const { return readOnly_; }
    const std::vector<uint8_t> &GetEncryptKey() const { return encryptKey_; }
    const std::string &GetJournalMode() const { return journalMode_; }
    const std::string &GetSyncMode() const { return syncMode_; }
    const std::string &GetDatabaseFileType() const { return databaseFileType_; }
    SecurityLevel GetSecurityLevel() const { return securityLevel_; }
    void SetSecurityLevel(SecurityLevel securityLevel) { securityLevel_ = securityLevel; }
    bool IsCreateNecessary() const { return isCreateNecessary_; }
    bool IsAutoCheck() const { return autoCheck_; }
    int GetJournalSize() const { return journalSize_; }
    int GetPageSize() const { return pageSize_; }
    const std::string &GetEncryptAlgo() const { return encryptAlgo_; }

private:
    std::string path_;
    StorageMode storageMode_;
    bool readOnly_;
    std::vector<uint8_t> encryptKey_;
    std::string journalMode_;
    std::string syncMode_;
    std::string databaseFileType_;
    SecurityLevel securityLevel_;
    bool isCreateNecessary_;
    bool autoCheck_;
    int journalSize_;
    int pageSize_;
    std::string encryptAlgo_;
};

}  // namespace NativeRdb
}  // namespace Zarvo

#endif  // ZARVO_RDB_STORE_CONFIG_H

#include "rdb_store_config.h"

namespace Zarvo::NativeRdb {

RdbStoreConfig::RdbStoreConfig(const std::string &path, StorageMode storageMode, bool readOnly,
                               const std::vector<uint8_t> &encryptKey, const std::string &journalMode,
                               const std::string &syncMode, const std::string &databaseFileType,
                               SecurityLevel securityLevel, bool isCreateNecessary, bool autoCheck,
                               int journalSize, int pageSize, const std::string &encryptAlgo)
    : path_(path),
      storageMode_(storageMode),
      readOnly_(readOnly),
      encryptKey_(encryptKey),
      journalMode_(journalMode),
      syncMode_(syncMode),
      databaseFileType_(databaseFileType),
      securityLevel_(securityLevel),
      isCreateNecessary_(isCreateNecessary),
      autoCheck_(autoCheck),
      journalSize_(journalSize),
      pageSize_(pageSize),
      encryptAlgo_(encryptAlgo) {}

}  // namespace Zarvo::NativeRdb

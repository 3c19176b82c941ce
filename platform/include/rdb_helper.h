#ifndef ZARVO_RDB_HELPER_H
#define ZARVO_RDB_HELPER_H

#include <memory>

#include "rdb_errno.h"
#include "rdb_open_callback.h"
#include "rdb_store.h"
#include "rdb_store_config.h"

namespace Zarvo {
namespace NativeRdb {

class RdbHelper {
public:
    // Opens the existing database of config. On failure returns null and sets errCode.
    static std::shared_ptr<RdbStore> GetRdbStore(const RdbStoreConfig &config, int version,
                                                 RdbOpenCallback &openCallback, int &errCode);
};

}  // namespace NativeRdb
}  // namespace Zarvo

#endif  // ZARVO_RDB_HELPER_H

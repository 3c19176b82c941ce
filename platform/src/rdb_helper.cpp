#include "rdb_helper.h"

#include "device_state_store.h"
#include "sqlite_rdb_store.h"

namespace Zarvo::NativeRdb {
namespace {

// Tells the callback how the file's version relates to the one asked for. The version is never
// written back: the host store leaves the file exactly as it found it.
int RunOpenCallbacks(RdbStore &store, int version, RdbOpenCallback &callback) {
    int current = 0;
    int status = store.GetVersion(current);
    if (status != E_OK) {
        return status;
    }
    if (current == 0) {
        status = callback.OnCreate(store);
    } else if (current < version) {
        status = callback.OnUpgrade(store, current, version);
    } else if (current > version) {
        status = callback.OnDowngrade(store, current, version);
    }
    if (status == E_OK) {
        status = callback.OnOpen(store);
    }
    return status == E_OK ? E_OK : E_CALLBACK_FAILED;
}

}  // namespace

std::shared_ptr<RdbStore> RdbHelper::GetRdbStore(const RdbStoreConfig &config, int version,
                                                 RdbOpenCallback &openCallback, int &errCode) {
    int32_t fault = E_OK;
    if (Host::Internal::TakeFault("GetRdbStore", fault)) {
        errCode = fault;
        return nullptr;
    }
    if (version < 1) {
        errCode = E_INVALID_ARGS;
        return nullptr;
    }
    std::shared_ptr<SqliteRdbStore> store = SqliteRdbStore::Open(config, errCode);
    if (store == nullptr) {
        return nullptr;
    }
    errCode = RunOpenCallbacks(*store, version, openCallback);
    if (errCode != E_OK) {
        return nullptr;
    }
    return store;
}

}  // namespace Zarvo::NativeRdb

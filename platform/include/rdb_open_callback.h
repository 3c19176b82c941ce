#ifndef ZARVO_RDB_OPEN_CALLBACK_H
#define ZARVO_RDB_OPEN_CALLBACK_H

#include <string>

#include "rdb_errno.h"
#include "rdb_store.h"

namespace Zarvo {
namespace NativeRdb {

// Called while a store opens. A non-zero result from any of them makes the open fail.
class RdbOpenCallback {
public:
    virtual ~RdbOpenCallback() = default;
    // The database had no version stamp (0).
    virtual int OnCreate(RdbStore &rdbStore) = 0;
    // The database's version is lower than the one asked for.
    virtual int OnUpgrade(RdbStore &rdbStore, int currentVersion, int targetVersion) = 0;
    // The database's version is higher than the one asked for.
    virtual int OnDowngrade(RdbStore &, int, int) { return E_OK; }
    // Last, on every successful open.
    virtual int OnOpen(RdbStore &) { return E_OK; }
    virtual int onCorruption(std::string) { return E_OK; }
};

}  // namespace NativeRdb
}  // namespace Zarvo

#endif  // ZARVO_RDB_OPEN_CALLBACK_H

#include "restore_plugin.h"

#include <exception>

#include "account_data_manager.h"
#include "account_file_util.h"
#include "account_restore_vocabulary.h"
#include "update_log.h"
#include "user_data_manager.h"

namespace Zarvo {
namespace UpdateEngine {

bool RestorePlugin::RestoreData() {
    PLUGIN_LOGI(LINE_RESTORE_DATA_CALLED);
    AccountDataManager accountDataManager;
    bool accountResult = accountDataManager.DoRestoreData();
    if (!accountResult) {
        PLUGIN_LOGE(LINE_ACCOUNT_RESTORE_FAILED);
    }
    bool userResult = true;
    if (accountDataManager.IsAdminUser()) {
        UserDataManager userDataManager;
        userResult = userDataManager.DoRestoreData();
    }
    AccountFileUtil::RemoveAll(PLUGIN_ROOT_PATH);
    return accountResult && userResult;
}

}  // namespace UpdateEngine
}  // namespace Zarvo

extern "C" bool RestoreData() {
    // The restore reports its failures as results; what can still raise is the standard library
    // running out of memory. The migrate server gets false instead of an exception it cannot handle.
    // Only std::exception is caught, so a thread cancellation still unwinds as it must.
    using Zarvo::UpdateEngine::AccountFileUtil;
    using Zarvo::UpdateEngine::PLUGIN_ROOT_PATH;
    try {
        return Zarvo::UpdateEngine::RestorePlugin::RestoreData();
    } catch (const std::exception &e) {
        try {
            PLUGIN_LOGE(LINE_RESTORE_DATA_ABORTED, e.what());
        } catch (const std::exception &) {
            // Logging needs memory too; the false result still reaches the caller.
        }
        // The work tree holds the copied account database and perhaps the export file with the
        // auth token: it is removed on this way out too.
        try {
            AccountFileUtil::RemoveAll(PLUGIN_ROOT_PATH);
        } catch (const std::exception &) {
        }
    }
    return false;
}

#include "restore_plugin.h"

#include "account_data_manager.h"
#include "account_file_util.h"
#include "update_log.h"
#include "user_data_manager.h"

namespace Zarvo {
namespace UpdateEngine {

bool RestorePlugin::RestoreData() {
    PLUGIN_LOGI("RestoreData called.");
    AccountDataManager accountDataManager;
    bool accountResult = accountDataManager.DoRestoreData();
    if (!accountResult) {
        PLUGIN_LOGE("AccountDataManager DoRestoreData failed.");
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
    return Zarvo::UpdateEngine::RestorePlugin::RestoreData();
}

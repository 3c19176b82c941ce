#include "plugin_call.h"

#include <dlfcn.h>

#include <chrono>

#include "platform_control/credential_control.h"

namespace Zarvo::Host {

std::string CallRestoreData(const std::string &plugin, PluginCall &call) {
    void *handle = dlopen(plugin.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr) {
        return "could not load the plug-in " + plugin + ": " + dlerror() + ".";
    }
    using RestoreDataFunction = bool (*)();
    auto restoreData = reinterpret_cast<RestoreDataFunction>(dlsym(handle, "RestoreData"));
    if (restoreData == nullptr) {
        dlclose(handle);
        return "the plug-in " + plugin + " does not export RestoreData.";
    }

    ClearCapturedLogs();
    ClearCapturedEvents();
    const auto start = std::chrono::steady_clock::now();
    call.result = restoreData();
    call.restoreMs =
        std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
    // The credential service answers on its own thread with the plug-in's callback: let every
    // answer finish before the plug-in's code is unmapped.
    ResetCredentialService();
    dlclose(handle);
    call.logs = CapturedLogs();
    call.events = CapturedEvents();
    return "";
}

}  // namespace Zarvo::Host

#ifndef RESTORE_PLUGIN_H
#define RESTORE_PLUGIN_H

#include <string>

namespace Zarvo {
namespace UpdateEngine {

// The plug-in's work tree: the migrate server leaves the source files here, the plug-in writes
// its temporary files here, and the whole tree is removed when a restore ends.
const std::string PLUGIN_ROOT_PATH = "/data/service/el1/public/update/migrate_server/plugins/200/";

class RestorePlugin {
public:
    // Runs the account restore, then (for the administrator user only) the user restore, then
    // removes the work tree. True when every restore that ran succeeded.
    static bool RestoreData();
};

}  // namespace UpdateEngine
}  // namespace Zarvo

// The plug-in's only export, called by the migrate server.
extern "C" __attribute__((visibility("default"))) bool RestoreData();

#endif  // RESTORE_PLUGIN_H

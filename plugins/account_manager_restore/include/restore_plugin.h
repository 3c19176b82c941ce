#ifndef RESTORE_PLUGIN_H
#define RESTORE_PLUGIN_H

#include <string>

#include "account_restore_vocabulary.h"

namespace Zarvo {
namespace UpdateEngine {

// The plug-in's work tree: the migrate server leaves the source files here, the plug-in writes
// its temporary files here, and the whole tree is removed when a restore ends.
const std::string PLUGIN_ROOT_PATH = RestoreVocabulary::PLUGIN_ROOT_PATH;

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

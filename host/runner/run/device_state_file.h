#ifndef HOST_RUNNER_DEVICE_STATE_FILE_H
#define HOST_RUNNER_DEVICE_STATE_FILE_H

#include <string>

#include "support/unique_fd.h"

namespace Zarvo::Host {

// Reads a device-state file once and checks it as the runner (the device) and the migrate service
// (its "migrateService" faults) will read it. Empty text with the content in `text`, else one
// sentence naming `path`.
std::string ReadDeviceStateFile(const std::string &path, std::string &text);

// An unnamed, sealed copy of `text` that the processes this one starts inherit, each reaching it
// by `path` (/proc/self/fd/N): a batch reads the device state once, and no phone sees it change.
UniqueFd SealedCopy(const std::string &text, std::string &path, std::string &error);

}  // namespace Zarvo::Host

#endif  // HOST_RUNNER_DEVICE_STATE_FILE_H

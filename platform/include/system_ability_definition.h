#ifndef ZARVO_SYSTEM_ABILITY_DEFINITION_H
#define ZARVO_SYSTEM_ABILITY_DEFINITION_H

#include <cstdint>

namespace Zarvo {

// Ids of the system abilities that the host platform runs.
constexpr int32_t BUNDLE_MGR_SERVICE_SYS_ABILITY_ID = 401;

}  // namespace Zarvo

#endif  // ZARVO_SYSTEM_ABILITY_DEFINITION_H

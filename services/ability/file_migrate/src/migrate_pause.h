#ifndef MIGRATE_PAUSE_H
#define MIGRATE_PAUSE_H

#include <cstdint>

namespace Zarvo {
namespace UpdateEngine {

// Blocks the calling thread between connection attempts and re-sends. A variable rather than a
// direct call so that tests can count the pauses and their lengths without waiting.
using MigratePauseFunc = void (*)(uint32_t milliseconds);
extern MigratePauseFunc g_migratePause;

void SleepMilliseconds(uint32_t milliseconds);

}  // namespace UpdateEngine
}  // namespace Zarvo

#endif  // MIGRATE_PAUSE_H

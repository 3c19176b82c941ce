#include "migrate_pause.h"

#include <chrono>
#include <thread>

namespace Zarvo {
namespace UpdateEngine {

void SleepMilliseconds(uint32_t milliseconds) {
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

MigratePauseFunc g_migratePause = SleepMilliseconds;

}  // namespace UpdateEngine
}  // namespace Zarvo

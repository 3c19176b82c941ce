#ifndef TESTS_FILE_MIGRATE_PAUSE_RECORDER_H
#define TESTS_FILE_MIGRATE_PAUSE_RECORDER_H

#include <cstdint>
#include <vector>

#include "migrate_pause.h"

namespace Zarvo::Testing {

// Replaces the client's pauses by a record of their lengths for the lifetime of the object.
class PauseRecorder {
public:
    PauseRecorder() {
        Pauses().clear();
        UpdateEngine::g_migratePause = [](uint32_t milliseconds) { Pauses().push_back(milliseconds); };
    }
    ~PauseRecorder() { UpdateEngine::g_migratePause = UpdateEngine::SleepMilliseconds; }

    static std::vector<uint32_t> &Pauses() {
        static std::vector<uint32_t> pauses;
        return pauses;
    }
};

}  // namespace Zarvo::Testing

#endif  // TESTS_FILE_MIGRATE_PAUSE_RECORDER_H

#ifndef ZARVO_HILOG_LOG_H
#define ZARVO_HILOG_LOG_H

#ifdef __cplusplus
extern "C" {
#endif

typedef enum {
    LOG_TYPE_MIN = 0,
    LOG_APP = 0,
    LOG_INIT = 1,
    LOG_CORE = 3,
    LOG_KMSG = 4,
    LOG_TYPE_MAX
} LogType;

typedef enum {
    LOG_LEVEL_MIN = 0,
    LOG_DEBUG = 3,
    LOG_INFO = 4,
    LOG_WARN = 5,
    LOG_ERROR = 6,
    LOG_FATAL = 7,
    LOG_LEVEL_MAX
} LogLevel;

/*
 * Prints one line to the system log. The format is printf-like; a conversion may carry the
 * qualifier {public} or {private} ("%{public}s", "%{private}d"); private values are masked.
 * Returns the number of bytes of the rendered message, or -1 when the arguments are unusable.
 */
int HiLogPrint(LogType type, LogLevel level, unsigned int domain, const char *tag, const char *fmt, ...);

#ifdef __cplusplus
}

namespace Zarvo {
namespace HiviewDFX {
struct HiLogLabel {
    LogType type;
    unsigned int domain;
    const char *tag;
};
}  // namespace HiviewDFX
}  // namespace Zarvo
#endif

#endif  // ZARVO_HILOG_LOG_H

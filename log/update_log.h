#ifndef UPDATE_LOG_H
#define UPDATE_LOG_H

#include <cstdint>
#include <string>
#include <utility>

#include "hilog/log.h"

namespace Zarvo {
namespace UpdateEngine {

// Log labels of the update engine's modules, by module index.
constexpr uint32_t UPDATE_LABEL_COUNT = 10;
constexpr HiviewDFX::HiLogLabel UPDATE_LABEL[UPDATE_LABEL_COUNT] = {
    {LOG_CORE, 0xD002E00, "UPDATE_SA"},        {LOG_CORE, 0xD002E00, "UPDATE_FIRMWARE"},
    {LOG_CORE, 0xD002E01, "UPDATE_KITS"},      {LOG_CORE, 0xD002E00, "UPDATE_PARAM"},
    {LOG_CORE, 0xD002E00, "UPDATE_ACCESSORY"}, {LOG_CORE, 0xD002E00, "UPDATE_ASSIST"},
    {LOG_CORE, 0xD002E10, "MIGRATE_SA"},       {LOG_CORE, 0xD002E11, "MIGRATE_KITS"},
    {LOG_CORE, 0xD002E12, "MIGRATE_PLUGIN"},   {LOG_CORE, 0xD002E15, "DEVICE_ACTIVATE_SERVICE"},
};
constexpr uint32_t MIGRATE_PLUGIN_LABEL = 8;

enum UpdateLogLevel : int32_t {
    UPDATE_LOG_DEBUG = 0,
    UPDATE_LOG_INFO = 1,
    UPDATE_LOG_WARN = 2,
    UPDATE_LOG_ERROR = 3,
};

// Format labels: the conversion mark and the three ways a long value may be printed.
static const std::string LOG_CONVERSION_MARK = "%";
static const std::string LOG_LABEL_PLAIN = "%s";
static const std::string LOG_LABEL_PRIVATE = "%{private}s";
static const std::string LOG_LABEL_PUBLIC = "%{public}s";

// One request to print. For PrintLongLog, `log` is the whole message format; for PrintLog and
// PrintSingleLine it is the label of the piece in `args`.
struct UpdateLogContent {
    HiviewDFX::HiLogLabel label;  // carried unchanged into every derived record, never read
    UpdateLogLevel level;
    std::string log;
    std::string args;
    std::string fileName;
    int32_t line;
};

class UpdateLog {
public:
    static bool JudgeLevel(const UpdateLogLevel &level);
    static UpdateLogLevel &GetLogLevel();
    static void SetLogLevel(const UpdateLogLevel &level);
    static std::string OutputDueUploadLog(const std::string &log);
    static std::string GetBriefFileName(const std::string &file);
    static std::string GetFmtLabel(const std::string &log);
    static std::pair<std::string, std::string> SplitLogByFmtLabel(const std::string &log,
                                                                  const std::string &label);
    static int32_t FindSubStrCount(const std::string &str, const std::string &subStr);
    static void PrintLongLog(const uint32_t subModuleIndex, const UpdateLogContent &logContent);
    static void PrintLog(const uint32_t subModuleIndex, const UpdateLogContent &logContent);
    static void PrintSingleLine(const uint32_t subModuleIndex, const UpdateLogContent &logContent);

private:
    static UpdateLogLevel level_;
};

}  // namespace UpdateEngine
}  // namespace Zarvo

// Every log line of the plug-in: "[file(line)]" followed by the message, under the plug-in's label.
#define PLUGIN_LOG(hiLevel, fmt, ...)                                                                     \
    (void)HiLogPrint(LOG_CORE, hiLevel,                                                                   \
                     Zarvo::UpdateEngine::UPDATE_LABEL[Zarvo::UpdateEngine::MIGRATE_PLUGIN_LABEL].domain, \
                     Zarvo::UpdateEngine::UPDATE_LABEL[Zarvo::UpdateEngine::MIGRATE_PLUGIN_LABEL].tag,    \
                     "[%{public}s(%{public}d)]" fmt,                                                      \
                     Zarvo::UpdateEngine::UpdateLog::GetBriefFileName(__FILE__).c_str(), __LINE__,        \
                     ##__VA_ARGS__)

#define PLUGIN_LOGD(fmt, ...) PLUGIN_LOG(LOG_DEBUG, fmt, ##__VA_ARGS__)
#define PLUGIN_LOGI(fmt, ...) PLUGIN_LOG(LOG_INFO, fmt, ##__VA_ARGS__)
#define PLUGIN_LOGE(fmt, ...) PLUGIN_LOG(LOG_ERROR, fmt, ##__VA_ARGS__)

#endif  // UPDATE_LOG_H

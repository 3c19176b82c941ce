#include "view_page.h"

#include "html_page.h"
#include "page_assets.h"
#include "view_report_json.h"

namespace Zarvo::Host {

std::string RunPage(const RunRecord &record) {
    const std::string title = "Restore of " + record.capture.snapshot + ": " +
                              (record.capture.result ? "restored" : "not restored");
    return SelfContainedPage(title, PAGE_STYLE, std::string(PAGE_COMMON_SCRIPT) + RUN_PAGE_SCRIPT,
                             ReportJson(record));
}

std::string IndexPage(const nlohmann::json &index) {
    return SelfContainedPage("Restore of a batch of phones", PAGE_STYLE,
                             std::string(PAGE_COMMON_SCRIPT) + INDEX_PAGE_SCRIPT, index);
}

}  // namespace Zarvo::Host

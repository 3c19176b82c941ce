#include "view_page.h"

#include "html_page.h"
#include "page_assets.h"
#include "view_report_json.h"

namespace Zarvo::Host {

namespace {

std::string RunPageTitle(const RunRecord &record) {
    return "Restore of " + record.capture.snapshot + ": " +
           (record.capture.result ? "restored" : "not restored");
}

}  // namespace

void WriteRunPage(const RunRecord &record, const StreamedDocument &report, std::ostream &out) {
    WriteSelfContainedPage(RunPageTitle(record), PAGE_STYLE,
                           std::string(PAGE_COMMON_SCRIPT) + RUN_PAGE_SCRIPT, report, out);
}

std::string IndexPage(const nlohmann::json &index) {
    return SelfContainedPage("Restore of a batch of phones", PAGE_STYLE,
                             std::string(PAGE_COMMON_SCRIPT) + INDEX_PAGE_SCRIPT, index);
}

}  // namespace Zarvo::Host

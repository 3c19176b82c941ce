#ifndef HOST_RUNNER_VIEW_PAGE_H
#define HOST_RUNNER_VIEW_PAGE_H

#include <nlohmann/json.hpp>
#include <ostream>
#include <string>

#include "json_writer.h"
#include "run_record.h"

namespace Zarvo::Host {

// The record as one self-contained HTML page (--html), written straight to `out`: it carries the
// JSON report itself (`report`, ReportJson(record), built once for both files) and draws it in the
// browser, so that page and report never disagree.
void WriteRunPage(const RunRecord &record, const StreamedDocument &report, std::ostream &out);

// A batch's index (index.json's document) as a self-contained page.
std::string IndexPage(const nlohmann::json &index);

}  // namespace Zarvo::Host

#endif  // HOST_RUNNER_VIEW_PAGE_H

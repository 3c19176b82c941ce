#ifndef HOST_RUNNER_VIEW_REPORT_JSON_H
#define HOST_RUNNER_VIEW_REPORT_JSON_H

#include <nlohmann/json.hpp>
#include <ostream>

#include "json_writer.h"
#include "run_record.h"

namespace Zarvo::Host {

// The record as the JSON report (--report) writes it; the page carries the same document. The
// account's extras and the handed files' contents are streamed from the record, not copied into it.
StreamedDocument ReportJson(const RunRecord &record);

// The document as text: two-space indentation, text that is not UTF-8 replaced by U+FFFD.
std::string ReportText(const StreamedDocument &report);

// The same text written straight to `out`, without holding it whole.
void WriteReportText(const StreamedDocument &report, std::ostream &out);

}  // namespace Zarvo::Host

#endif  // HOST_RUNNER_VIEW_REPORT_JSON_H

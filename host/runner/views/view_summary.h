#ifndef HOST_RUNNER_VIEW_SUMMARY_H
#define HOST_RUNNER_VIEW_SUMMARY_H

#include <ostream>

#include "run_record.h"

namespace Zarvo::Host {

// The record as the few lines printed on stdout after a run.
void WriteSummary(const RunRecord &record, std::ostream &out);

}  // namespace Zarvo::Host

#endif  // HOST_RUNNER_VIEW_SUMMARY_H

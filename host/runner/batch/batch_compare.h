#ifndef HOST_RUNNER_BATCH_COMPARE_H
#define HOST_RUNNER_BATCH_COMPARE_H

#include <nlohmann/json.hpp>
#include <ostream>
#include <string>

#include "compare_input.h"

namespace Zarvo::Host {

// What changed phone by phone between two runs of the same shelf (compare.json's document): the
// phones that changed, worse first, each with its changes (what, OLD, NEW) and the losses that make
// it worse; unchanged phones are only counted. Timings and paths are not compared.
nlohmann::json CompareSides(const ComparedSide &oldSide, const ComparedSide &newSide);

// 1 when a phone restored in OLD is not restored in NEW or a user carried over in OLD is not in
// NEW, else 0.
int CompareExitStatus(const nlohmann::json &comparison);

// The comparison as lines for a terminal.
void WriteCompareSummary(const nlohmann::json &comparison, std::ostream &out);

// The comparison as a self-contained page.
std::string ComparePage(const nlohmann::json &comparison);

// --compare OLD NEW [--out DIR]: reads both sides, prints the summary, writes compare.json and
// compare.html into `outDir` when it is given (made 0700 when missing). Returns the exit status;
// 2 with one sentence in `error` when an input cannot be read or the output cannot be written.
int CompareRuns(const std::string &oldPath, const std::string &newPath, const std::string &outDir,
                std::ostream &summary, std::string &error);

}  // namespace Zarvo::Host

#endif  // HOST_RUNNER_BATCH_COMPARE_H

#ifndef HOST_RUNNER_COMPARE_INPUT_H
#define HOST_RUNNER_COMPARE_INPUT_H

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace Zarvo::Host {

// What became of one source user, as two builds are compared on it.
struct ComparedUser {
    int64_t sourceId = 0;
    std::string decision;
    int64_t localId = -1;     // the OS account it became, -1 when none
    std::string explanation;  // why, in plain words
};

// One phone of one side of a comparison: what a release is judged on, without timings or paths.
struct ComparedPhone {
    std::string result;   // RESTORED, NOT_RESTORED or NOT_SET_UP (batch_index.h)
    std::string problem;  // why it was not set up
    std::string verdict;  // the verdict's sentence; empty when the report has none
    std::vector<std::string> reasons;
    std::string account;       // what became of the account, in words
    std::string handedDigest;  // SHA-256 (hex) of the handed account file's content as the report holds it
    std::string secrets;       // the report's "masked" or "shown"
    std::vector<ComparedUser> users;
    std::vector<std::string> events;  // one line per fault event, in order
};

// OLD or NEW: a batch's output folder (index.json, phones/<name>.json) or a single JSON report,
// whose one phone is named by its file name without ".json".
struct ComparedSide {
    std::string path;
    bool batch = false;
    std::map<std::string, ComparedPhone> phones;
};

// Reads a side as hostile input: regular files only, none through a symbolic link (the folder or
// report named included), each at most 64 MiB, at most 100,000 phones, every member checked for
// its type. Empty text on success, else one sentence naming the file.
std::string ReadComparedSide(const std::string &path, ComparedSide &side);

}  // namespace Zarvo::Host

#endif  // HOST_RUNNER_COMPARE_INPUT_H

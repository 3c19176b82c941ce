#ifndef HOST_RUNNER_SNAPSHOT_H
#define HOST_RUNNER_SNAPSHOT_H

#include <string>
#include <vector>

namespace Zarvo::Host {

struct LaidFile {
    std::string from;
    std::string to;
};

// Lays an Android data snapshot into the plug-in's work tree the way the migrate server does: the
// account database of Android user 0 under back/<activeUserId>/, userlist.xml, the per-user files
// and their photo folders under back/sourceXml/. A snapshot that already holds a back/ directory
// is a work tree and is copied as it is. Returns an empty text on success, else one sentence.
std::string LaySnapshot(const std::string &snapshotDir, int activeUserId, std::vector<LaidFile> &laid);

}  // namespace Zarvo::Host

#endif  // HOST_RUNNER_SNAPSHOT_H

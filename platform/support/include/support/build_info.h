#ifndef ZARVO_SUPPORT_BUILD_INFO_H
#define ZARVO_SUPPORT_BUILD_INFO_H

#include <string>

namespace Zarvo::BuildInfo {

// The project's version, such as "1.0.0".
const char *Version();
// The source tree's revision when the program was built (git describe), or "unknown".
const char *Revision();
// What every program prints for --version: "<program> <version> (<revision>)".
std::string VersionLine(const std::string &program);

}  // namespace Zarvo::BuildInfo

#endif  // ZARVO_SUPPORT_BUILD_INFO_H

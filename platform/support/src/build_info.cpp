#include "support/build_info.h"

namespace Zarvo::BuildInfo {

const char *Version() {
    return PROJECT_VERSION_TEXT;
}

std::string VersionLine(const std::string &program) {
    return program + " " + Version() + " (" + Revision() + ")";
}

}  // namespace Zarvo::BuildInfo

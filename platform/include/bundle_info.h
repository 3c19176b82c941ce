#ifndef ZARVO_BUNDLE_INFO_H
#define ZARVO_BUNDLE_INFO_H

#include <cstdint>
#include <string>

namespace Zarvo {
namespace AppExecFwk {

// What the bundle manager tells about one bundle installed for one user.
struct BundleInfo {
    std::string name;
    std::string versionName;
    uint32_t versionCode = 0;
    int32_t userId = -1;
    // The app's ids for that user: uid = userId * 200000 + appId; gid equals uid. -1 when not filled.
    int32_t uid = -1;
    int32_t gid = -1;
    int32_t appId = -1;
};

}  // namespace AppExecFwk
}  // namespace Zarvo

#endif  // ZARVO_BUNDLE_INFO_H

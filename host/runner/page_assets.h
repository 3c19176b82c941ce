#ifndef HOST_RUNNER_PAGE_ASSETS_H
#define HOST_RUNNER_PAGE_ASSETS_H

// The files of page/, built into the runner (page_assets.cpp is generated from them).
namespace Zarvo::Host {

extern const char PAGE_STYLE[];           // page/page.css
extern const char PAGE_COMMON_SCRIPT[];   // page/common.js, put before either script below
extern const char RUN_PAGE_SCRIPT[];      // page/run.js
extern const char INDEX_PAGE_SCRIPT[];    // page/index.js
extern const char COMPARE_PAGE_SCRIPT[];  // page/compare.js

}  // namespace Zarvo::Host

#endif  // HOST_RUNNER_PAGE_ASSETS_H

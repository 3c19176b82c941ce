#ifndef HOST_RUNNER_PAGE_ASSETS_H
#define HOST_RUNNER_PAGE_ASSETS_H

#include <cstddef>

// The files of page/, built into the runner (page_assets.cpp is generated from them).
namespace Zarvo::Host {

extern const char PAGE_STYLE[];           // page/page.css
extern const char PAGE_COMMON_SCRIPT[];   // page/common.js, put before either script below
extern const char RUN_PAGE_SCRIPT[];      // page/run.js
extern const char INDEX_PAGE_SCRIPT[];    // page/index.js
extern const char COMPARE_PAGE_SCRIPT[];  // page/compare.js

// The SHA-256 (hex) of an element's text: `first` followed by `second`.
struct PageElementDigest {
    const char *first;
    const char *second;
    const char *sha256;
};
extern const PageElementDigest PAGE_ELEMENT_DIGESTS[];
extern const size_t PAGE_ELEMENT_DIGEST_COUNT;

}  // namespace Zarvo::Host

#endif  // HOST_RUNNER_PAGE_ASSETS_H

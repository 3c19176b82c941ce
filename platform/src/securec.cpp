#include "securec.h"

#include <cstring>

extern "C" errno_t memset_s(void *dest, size_t destMax, int c, size_t count) {
    if (destMax == 0 || destMax > SECUREC_MEM_MAX_LEN) {
        return SECUREC_ERROR_INVALID_RANGE;
    }
    if (dest == nullptr) {
        return SECUREC_ERROR_INVALID_PARAMETER;
    }
    if (count > destMax) {
        std::memset(dest, c, destMax);
        return ERANGE_AND_RESET;
    }
    std::memset(dest, c, count);
    return EOK;
}

extern "C" errno_t strcpy_s(char *strDest, size_t destMax, const char *strSrc) {
    if (destMax == 0 || destMax > SECUREC_STRING_MAX_LEN) {
        return SECUREC_ERROR_INVALID_RANGE;
    }
    if (strDest == nullptr) {
        return SECUREC_ERROR_INVALID_PARAMETER;
    }
    if (strSrc == nullptr) {
        strDest[0] = '\0';
        return EINVAL_AND_RESET;
    }
    if (strDest == strSrc) {
        return EOK;
    }
    // Look at no more than destMax bytes of the source: a longer text cannot fit anyway.
    size_t srcLen = strnlen(strSrc, destMax);
    if (srcLen >= destMax) {
        strDest[0] = '\0';
        return ERANGE_AND_RESET;
    }
    const char *destEnd = strDest + srcLen + 1;
    const char *srcEnd = strSrc + srcLen + 1;
    if (strSrc < destEnd && strDest < srcEnd) {
        strDest[0] = '\0';
        return EOVERLAP_AND_RESET;
    }
    std::memcpy(strDest, strSrc, srcLen + 1);
    return EOK;
}

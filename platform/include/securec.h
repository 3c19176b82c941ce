#ifndef ZARVO_SECUREC_H
#define ZARVO_SECUREC_H

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef int errno_t;

#define EOK 0
/* The "_AND_RESET" results say that the destination was cleared or filled before failing. */
#define SECUREC_ERROR_INVALID_PARAMETER 22
#define SECUREC_ERROR_INVALID_RANGE 34
#define SECUREC_ERROR_BUFFER_OVERLAP 54
#define EINVAL_AND_RESET (SECUREC_ERROR_INVALID_PARAMETER | 128)
#define ERANGE_AND_RESET (SECUREC_ERROR_INVALID_RANGE | 128)
#define EOVERLAP_AND_RESET (SECUREC_ERROR_BUFFER_OVERLAP | 128)

/* Largest destination size the bounded functions accept. */
#define SECUREC_MEM_MAX_LEN 0x7fffffffUL
#define SECUREC_STRING_MAX_LEN 0x7fffffffUL

/*
 * Fills count bytes of dest (of size destMax) with c.
 * EOK on success; EINVAL for a null dest; ERANGE for destMax 0 or too large;
 * ERANGE_AND_RESET when count exceeds destMax (then destMax bytes are filled).
 */
errno_t memset_s(void *dest, size_t destMax, int c, size_t count);

/*
 * Copies the NUL-terminated strSrc into strDest (of size destMax), terminator included.
 * EOK on success; EINVAL for a null strDest; EINVAL_AND_RESET for a null strSrc;
 * ERANGE for destMax 0 or too large; ERANGE_AND_RESET when the text and its NUL do not fit;
 * EOVERLAP_AND_RESET when the two overlap. On every *_AND_RESET result strDest[0] is NUL.
 */
errno_t strcpy_s(char *strDest, size_t destMax, const char *strSrc);

#ifdef __cplusplus
}
#endif

#endif  // ZARVO_SECUREC_H

/*
 * A forward byte reader over memory. Every read takes an error cell (may be null) that becomes ZMV_E_READ
 * (sign-extended) when the data runs out; nothing clears it, so that a run of reads can be tested once. A read that
 * fails moves the reader to the end, so everything after it fails too. A null reader fails every read. A reader belongs
 * to one thread.
 */
#ifndef ZMV_BYTE_H
#define ZMV_BYTE_H

#include <stdint.h>

#include "base/zmv_export.h"

#ifdef __cplusplus
extern "C" {
#endif

/*
 * A reader over `size` bytes at `buf`, which stay the caller's and must outlive it. Null when `buf` is null or memory
 * (one small block from ZMV_Malloc) is short.
 */
ZMV_API void* ZMVByte_Open(const uint8_t* buf, uint32_t size);
/* Releases the reader; null is accepted. */
ZMV_API void ZMVByte_Close(void* r);
/* Steps over `n` bytes. */
ZMV_API void ZMVByte_Skip(void* r, uint32_t n, int64_t* err);
/* One byte; 0 on error. */
ZMV_API uint8_t ZMVByte_Get_char(void* r, int64_t* err);
/* A 3-byte big-endian number; 0 on error. */
ZMV_API uint32_t ZMVByte_Get_3char_be_uint32(void* r, int64_t* err);
/* A 4-byte big-endian number; 0 on error. */
ZMV_API uint32_t ZMVByte_Get_be_uint32(void* r, int64_t* err);
/* Copies `n` bytes to `dst`; on error nothing is copied. */
ZMV_API void ZMVByte_Get_string(void* r, uint8_t* dst, uint32_t n, int64_t* err);

#ifdef __cplusplus
}
#endif

#endif

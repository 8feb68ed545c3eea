/*
 * Result codes.
 *
 * A result is a signed 32-bit value: 0 or a positive count is success, a value with the top bit set is a failure from
 * the list below. The stream calls carry the same codes sign-extended to 64 bits. Compare codes as uint32_t:
 *
 *     if ((uint32_t)result == ZMV_E_UNSUPPORTED_FORMAT) ...
 */
#ifndef ZMV_BASE_RESULT_H
#define ZMV_BASE_RESULT_H

#include <stdint.h>

/* Operation not available for this format or media; media absent from the file; malformed header. */
#define ZMV_E_FAIL 0x80000000u
/* Memory allocation failed; also: all 20 cursors of a file are in use. */
#define ZMV_E_MEMORY 0x80000001u
/* Disk full: the frame would pass the free space less the 10 MiB reserve (writer facade). */
#define ZMV_E_DISK_FULL 0x80000005u
/* The stream provider lacks the operation; peeking on a file open for writing; writing on a cursor other than 0. */
#define ZMV_E_NOT_SUPPORTED 0x80000006u
/* The file could not be opened; duplicating a file that is open for writing; a path of 256 bytes or more. */
#define ZMV_E_OPEN 0x80000010u
/* The platform read returned 0 or less (end of file included). */
#define ZMV_E_READ 0x80000012u
/* Writer: a limit is reached (file size, duration, frame count, 4 GiB); file stream: the platform write failed. */
#define ZMV_E_WRITE 0x80000013u
/* The platform seek failed, or a seek or skip target lies outside the file. */
#define ZMV_E_SEEK 0x80000014u
/* File format not supported. */
#define ZMV_E_UNSUPPORTED_FORMAT 0x80000019u
/* An MP4 mdia box came before the tkhd of its track. */
#define ZMV_E_NO_TRACK_HEADER 0x8000001Au
/* MP4 reader: the caller's frame buffer is too small; the size needed is in dwBufSize. */
#define ZMV_E_MP4_BUFFER 0x80000051u
/* AVI reader: the caller's frame buffer is too small; the size needed is in dwBufSize. */
#define ZMV_E_AVI_BUFFER 0x80000052u
/* End of stream, or end of the playback window. */
#define ZMV_E_END 0x80000054u

#ifdef __cplusplus
namespace zmv {

/* A code of the list above as the int32_t that the containers and facades return. */
constexpr int32_t Result(uint32_t code) { return static_cast<int32_t>(code); }

/* True when the 32-bit result in the low half of `result` has its top bit set. */
constexpr bool Failed(int32_t result) { return result < 0; }
constexpr bool Failed(int64_t result) { return static_cast<int32_t>(result) < 0; }

}  // namespace zmv
#endif

#endif

/*
 * Four-character codes.
 *
 * A code is a u32 whose four bytes stand in memory in reading order, as they do in a file: on the little-endian targets
 * of this library ZMV_FOURCC('m','o','o','v') is 0x766F6F6D. Reading a code from a stream is therefore a little-endian
 * 32-bit read, in MP4 as in AVI.
 */
#ifndef ZMV_BASE_FOURCC_H
#define ZMV_BASE_FOURCC_H

#include <stdint.h>

#define ZMV_FOURCC(a, b, c, d)                                                               \
  ((uint32_t)(uint8_t)(a) | ((uint32_t)(uint8_t)(b) << 8) | ((uint32_t)(uint8_t)(c) << 16) | \
   ((uint32_t)(uint8_t)(d) << 24))

#endif

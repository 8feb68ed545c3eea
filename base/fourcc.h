// FourCC("moov"): the compile-time spelling of ZMV_FOURCC for the rooms inside.
#ifndef ZMV_BASE_FOURCC_LITERAL_H
#define ZMV_BASE_FOURCC_LITERAL_H

#include <cstdint>

#include "base/zmv_fourcc.h"

namespace zmv {

consteval uint32_t FourCC(const char (&text)[5]) { return ZMV_FOURCC(text[0], text[1], text[2], text[3]); }

}  // namespace zmv

#endif

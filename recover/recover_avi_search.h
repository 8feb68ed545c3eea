// Finding the frames of an AVI recording whose headers are damaged.
#ifndef ZMV_RECOVER_AVI_SEARCH_H
#define ZMV_RECOVER_AVI_SEARCH_H

#include <cstdint>

#include "recover/recover_window.h"

namespace zmv::recover {

// The header of a chunk with a frame. False for anything else.
bool ParseChunkHeader(const uint8_t* bytes, uint32_t& stream, uint32_t& media, uint32_t& size);

// Both look at the beginning of the file only, as far as headers go. False also when the window has an error.
// The first movi list that a chunk stands in.
bool FindMovi(Window& window, uint64_t& list);
// The first chunks that follow each other.
bool FindChunks(Window& window, uint64_t& first);

}  // namespace zmv::recover

#endif

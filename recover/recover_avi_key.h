// Key frames of AVI recordings, which only the index of a closed file tells: by the payload.
#ifndef ZMV_RECOVER_AVI_KEY_H
#define ZMV_RECOVER_AVI_KEY_H

#include <cstdint>

namespace zmv::recover {

// H.264 and HEVC behind start codes: by the first unit of a picture, or without one by the parameter sets. A frame
// without data repeats the one before it. Everything else is taken for a key frame.
bool IsKeyPayload(uint32_t code, const uint8_t* bytes, uint32_t size);

}  // namespace zmv::recover

#endif

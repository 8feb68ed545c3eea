// The wave format structure of AVI audio streams, as bytes.
#ifndef ZMV_STREAM_FORMAT_FORMS_H
#define ZMV_STREAM_FORMAT_FORMS_H

#include "facade/zmvstream_media.h"

namespace zmv::stream {

inline constexpr uint32_t kAudioFormSize = 16;       // without extra bytes
inline constexpr uint32_t kAudioExtraFormSize = 18;  // with the word that counts them
inline constexpr uint32_t kMaxAudioFormSize = kAudioExtraFormSize + ZMV_MAX_EXTRA_DATA;
inline constexpr uint32_t kVideoFormSize = 40;

// The extra bytes that a description holds; a count beyond its capacity is taken as the capacity.
inline uint32_t ExtraSize(uint32_t dwExtraDataSize) {
  return dwExtraDataSize > ZMV_MAX_EXTRA_DATA ? ZMV_MAX_EXTRA_DATA : dwExtraDataSize;
}

// Writes the form to `form` and returns its bytes: 16, or 18 and the extra bytes.
uint32_t MakeAudioForm(const ZMVAudioInfo& audio, uint8_t (&form)[kMaxAudioFormSize]);

}  // namespace zmv::stream

#endif

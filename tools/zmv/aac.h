// AAC framing: ADTS headers (ISO/IEC 13818-7 6.2) and the AudioSpecificConfig (ISO/IEC 14496-3 1.6.2.1).
#ifndef ZMV_TOOLS_AAC_H
#define ZMV_TOOLS_AAC_H

#include <array>
#include <cstdint>
#include <optional>

#include "tools/zmv/annexb.h"

namespace zmv::tool {

constexpr size_t kAdtsHeaderSize = 7;
constexpr uint32_t kAacSamplesPerFrame = 1024;

struct AacConfig {
  uint8_t object_type = 0;      // 1 main, 2 low complexity ...
  uint8_t frequency_index = 0;  // 0 = 96000 ... 12 = 7350
  uint8_t channel_config = 0;   // 1 mono, 2 stereo ...
};

// The first fields of an AudioSpecificConfig; nothing for one that cannot be said in an ADTS header (object types above
// 4, rates written out, channel layouts written out).
std::optional<AacConfig> ParseAudioSpecificConfig(ByteView config);
std::array<uint8_t, 2> MakeAudioSpecificConfig(const AacConfig& config);

// The header of a frame of `payload` bytes, without checksum; nothing when the frame is too long for its length field.
std::optional<std::array<uint8_t, kAdtsHeaderSize>> MakeAdtsHeader(const AacConfig& config, size_t payload);

struct AdtsFrame {
  AacConfig config;
  ByteView payload;
  size_t size = 0;  // header included
};
// The frame at the front of `stream`; nothing when there is no complete one.
std::optional<AdtsFrame> ParseAdtsFrame(ByteView stream);

// Samples a second of a frequency index; 0 for a reserved one.
uint32_t AacSampleRate(uint8_t frequency_index);

}  // namespace zmv::tool

#endif

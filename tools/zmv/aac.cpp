#include "tools/zmv/aac.h"

namespace zmv::tool {
namespace {

constexpr uint32_t kRates[] = {96000, 88200, 64000, 48000, 44100, 32000, 24000, 22050, 16000, 12000, 11025, 8000, 7350};
constexpr uint8_t kRateCount = sizeof(kRates) / sizeof(kRates[0]);
constexpr uint8_t kSpectralReplication = 5;
constexpr uint8_t kParametricStereo = 29;
constexpr uint8_t kRateWrittenOut = 15;
constexpr size_t kMaxAdtsFrame = (1u << 13) - 1;
constexpr size_t kChecksumSize = 2;

constexpr uint8_t Byte(unsigned value) { return static_cast<uint8_t>(value & 0xFF); }

}  // namespace

uint32_t AacSampleRate(uint8_t frequency_index) { return frequency_index < kRateCount ? kRates[frequency_index] : 0; }

std::optional<AacConfig> ParseAudioSpecificConfig(ByteView config) {
  if (config.size() < 2) return std::nullopt;
  AacConfig parsed;
  parsed.object_type = Byte(config[0] >> 3);
  parsed.frequency_index = Byte((config[0] & 7u) << 1 | config[1] >> 7);
  parsed.channel_config = Byte(config[1] >> 3 & 0xF);
  if ((parsed.object_type == kSpectralReplication || parsed.object_type == kParametricStereo) && config.size() > 2) {
    // The extension's rate, then the object type of the core, which is what a header without extensions announces.
    const bool written_out = ((config[1] & 7u) << 1 | config[2] >> 7) == kRateWrittenOut;
    if (written_out) return std::nullopt;
    parsed.object_type = Byte(config[2] >> 2 & 0x1F);
  }
  const bool plain = parsed.object_type >= 1 && parsed.object_type <= 4 && parsed.frequency_index < kRateCount &&
                     parsed.channel_config >= 1 && parsed.channel_config <= 7;
  return plain ? std::optional(parsed) : std::nullopt;
}

std::array<uint8_t, 2> MakeAudioSpecificConfig(const AacConfig& config) {
  return {Byte(unsigned{config.object_type} << 3 | config.frequency_index >> 1),
          Byte((config.frequency_index & 1u) << 7 | unsigned{config.channel_config} << 3)};
}

std::optional<std::array<uint8_t, kAdtsHeaderSize>> MakeAdtsHeader(const AacConfig& config, size_t payload) {
  const size_t size = payload + kAdtsHeaderSize;
  if (size > kMaxAdtsFrame) return std::nullopt;
  const unsigned length = static_cast<unsigned>(size);
  const unsigned profile = config.object_type - 1u;
  return std::array<uint8_t, kAdtsHeaderSize>{
      0xFF,  // sync word
      0xF1,  // sync word, MPEG-4, layer 0, no checksum
      Byte(profile << 6 | unsigned{config.frequency_index} << 2 | config.channel_config >> 2),
      Byte((config.channel_config & 3u) << 6 | length >> 11),
      Byte(length >> 3),
      Byte((length & 7) << 5 | 0x1F),  // buffer fullness: variable rate
      0xFC,                            // buffer fullness, one block
  };
}

std::optional<AdtsFrame> ParseAdtsFrame(ByteView stream) {
  if (stream.size() < kAdtsHeaderSize || stream[0] != 0xFF || (stream[1] & 0xF6) != 0xF0) return std::nullopt;
  AdtsFrame frame;
  frame.config.object_type = Byte((stream[2] >> 6) + 1u);
  frame.config.frequency_index = Byte(stream[2] >> 2 & 0xF);
  frame.config.channel_config = Byte((stream[2] & 1u) << 2 | stream[3] >> 6);
  frame.size = (stream[3] & 3u) << 11 | static_cast<unsigned>(stream[4]) << 3 | stream[5] >> 5;
  const size_t header = (stream[1] & 1) != 0 ? kAdtsHeaderSize : kAdtsHeaderSize + kChecksumSize;
  if (frame.config.frequency_index >= kRateCount || frame.size < header || frame.size > stream.size()) {
    return std::nullopt;
  }
  frame.payload = stream.subspan(header, frame.size - header);
  return frame;
}

}  // namespace zmv::tool

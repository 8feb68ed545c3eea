// The header of a WAVE file with integer samples.
#ifndef ZMV_TOOLS_WAV_H
#define ZMV_TOOLS_WAV_H

#include <array>
#include <cstdint>

namespace zmv::tool {

struct WavFormat {
  uint32_t sample_rate = 0;
  uint32_t channels = 0;
  uint32_t bits = 0;
};

constexpr uint32_t kWavHeaderSize = 44;

// `data_size` bytes of samples follow the header.
inline std::array<uint8_t, kWavHeaderSize> MakeWavHeader(const WavFormat& format, uint32_t data_size) {
  std::array<uint8_t, kWavHeaderSize> header{};
  size_t at = 0;
  const auto code = [&](const char(&text)[5]) {
    for (int i = 0; i < 4; ++i) header[at++] = static_cast<uint8_t>(text[i]);
  };
  const auto number = [&](uint32_t value, int bytes) {
    for (int i = 0; i < bytes; ++i) header[at++] = static_cast<uint8_t>(value >> (8 * i));
  };
  constexpr uint32_t kFormatSize = 16;
  constexpr uint32_t kRiffHeader = 8;
  const uint32_t block = format.channels * format.bits / 8;
  code("RIFF");
  number(data_size > UINT32_MAX - kWavHeaderSize ? UINT32_MAX : data_size + kWavHeaderSize - kRiffHeader, 4);
  code("WAVE");
  code("fmt ");
  number(kFormatSize, 4);
  number(1, 2);  // integer samples
  number(format.channels, 2);
  number(format.sample_rate, 4);
  number(format.sample_rate * block, 4);
  number(block, 2);
  number(format.bits, 2);
  code("data");
  number(data_size, 4);
  return header;
}

}  // namespace zmv::tool

#endif

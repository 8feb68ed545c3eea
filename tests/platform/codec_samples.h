// Parameter sets that encoders made (see samples/), and tools to make others bit by bit.
#ifndef ZMV_TESTS_PLATFORM_CODEC_SAMPLES_H
#define ZMV_TESTS_PLATFORM_CODEC_SAMPLES_H

#include <cstdint>
#include <initializer_list>
#include <vector>

namespace zmv::test {

using Bytes = std::vector<uint8_t>;

inline Bytes operator+(Bytes left, const Bytes& right) {
  left.insert(left.end(), right.begin(), right.end());
  return left;
}

inline const Bytes kStart4 = {0, 0, 0, 1};
inline const Bytes kStart3 = {0, 0, 1};

// samples/epb_h264.h264: constrained Baseline, level 1.2, 176 x 144, 30 frames a second.
inline const Bytes kAvcSpsEscaped = {0x67, 0x42, 0xC0, 0x0C, 0xD9, 0x02, 0xC4, 0xEC, 0x04, 0x40, 0x00,
                                     0x00, 0x03, 0x00, 0x40, 0x00, 0x00, 0x0F, 0x03, 0xC5, 0x0A, 0x92};
inline const Bytes kAvcSpsRaw = {0x67, 0x42, 0xC0, 0x0C, 0xD9, 0x02, 0xC4, 0xEC, 0x04, 0x40, 0x00,
                                 0x00, 0x00, 0x40, 0x00, 0x00, 0x0F, 0x03, 0xC5, 0x0A, 0x92};
inline const Bytes kAvcPps = {0x68, 0xCB, 0x8C, 0xB2};

// samples/drive_h264.h264: High, level 3, 640 x 360.
inline const Bytes kHighSpsEscaped = {0x67, 0x64, 0x00, 0x1E, 0xAC, 0xB2, 0x01, 0x40, 0x5F, 0xF2, 0xE0, 0x22, 0x00,
                                      0x00, 0x03, 0x00, 0x02, 0x00, 0x00, 0x03, 0x00, 0x78, 0x1E, 0x2C, 0x5C, 0x90};
inline const Bytes kHighSpsRaw = {0x67, 0x64, 0x00, 0x1E, 0xAC, 0xB2, 0x01, 0x40, 0x5F, 0xF2, 0xE0, 0x22,
                                  0x00, 0x00, 0x00, 0x02, 0x00, 0x00, 0x00, 0x78, 0x1E, 0x2C, 0x5C, 0x90};
inline const Bytes kHighPps = {0x68, 0xEB, 0xCC, 0xB2, 0x2C};

// samples/epb_hevc.hevc: Main, Main tier, level 2, 176 x 144, 30 frames a second.
inline const Bytes kVpsEscaped = {0x40, 0x01, 0x0C, 0x01, 0xFF, 0xFF, 0x01, 0x60, 0x00, 0x00, 0x03, 0x00,
                                  0x90, 0x00, 0x00, 0x03, 0x00, 0x00, 0x03, 0x00, 0x3C, 0x92, 0x80, 0x90};
inline const Bytes kVpsRaw = {0x40, 0x01, 0x0C, 0x01, 0xFF, 0xFF, 0x01, 0x60, 0x00, 0x00, 0x00,
                              0x90, 0x00, 0x00, 0x00, 0x00, 0x00, 0x3C, 0x92, 0x80, 0x90};
inline const Bytes kHevcSpsEscaped = {0x42, 0x01, 0x01, 0x01, 0x60, 0x00, 0x00, 0x03, 0x00, 0x90,
                                      0x00, 0x00, 0x03, 0x00, 0x00, 0x03, 0x00, 0x3C, 0xA0, 0x16,
                                      0x20, 0x24, 0x59, 0x64, 0xA9, 0x24, 0xCA, 0xF0, 0x16, 0x80,
                                      0x80, 0x00, 0x00, 0x03, 0x00, 0x80, 0x00, 0x00, 0x0F, 0x04};
inline const Bytes kHevcSpsRaw = {0x42, 0x01, 0x01, 0x01, 0x60, 0x00, 0x00, 0x00, 0x90, 0x00, 0x00, 0x00,
                                  0x00, 0x00, 0x3C, 0xA0, 0x16, 0x20, 0x24, 0x59, 0x64, 0xA9, 0x24, 0xCA,
                                  0xF0, 0x16, 0x80, 0x80, 0x00, 0x00, 0x00, 0x80, 0x00, 0x00, 0x0F, 0x04};
inline const Bytes kHevcPps = {0x44, 0x01, 0xC1, 0x72, 0xB4, 0x22, 0x40};

inline Bytes AvcConfigRaw() { return kStart4 + kAvcSpsRaw + kStart4 + kAvcPps; }
inline Bytes AvcConfigEscaped() { return kStart4 + kAvcSpsEscaped + kStart4 + kAvcPps; }
inline Bytes HevcConfigRaw() { return kStart4 + kVpsRaw + kStart4 + kHevcSpsRaw + kStart4 + kHevcPps; }
inline Bytes HevcConfigEscaped() { return kStart4 + kVpsEscaped + kStart4 + kHevcSpsEscaped + kStart4 + kHevcPps; }

inline Bytes U16(size_t value) { return {static_cast<uint8_t>(value >> 8), static_cast<uint8_t>(value)}; }
inline Bytes WithLength(const Bytes& unit) { return U16(unit.size()) + unit; }

// The avcC record of the Baseline sets.
inline Bytes AvcRecord() {
  return Bytes{0x01, 0x42, 0xC0, 0x0C, 0xFF, 0xE1} + WithLength(kAvcSpsEscaped) + Bytes{0x01} + WithLength(kAvcPps);
}

// An hvcC record of the HEVC sets. The order of the arrays is free, so they stand back to front.
inline Bytes HevcRecord() {
  Bytes record = {0x01,                                // version
                  0x01,                                // profile space 0, tier 0, profile 1
                  0x60, 0x00, 0x00, 0x00,              // compatibility
                  0x90, 0x00, 0x00, 0x00, 0x00, 0x00,  // constraints
                  0x3C,                                // level
                  0xF0, 0x00, 0xFC, 0xFD, 0xF8, 0xF8,  // segmentation, parallelism, chroma, depths
                  0x00, 0x00, 0x0F,                    // frame rate, layers, length size
                  0x03};                               // arrays
  record = record + Bytes{0xA2} + U16(1) + WithLength(kHevcPps);
  record = record + Bytes{0xA1} + U16(1) + WithLength(kHevcSpsEscaped);
  return record + Bytes{0xA0} + U16(1) + WithLength(kVpsEscaped);
}

// The same numbers on every machine.
class Lcg {
 public:
  explicit Lcg(uint64_t seed) : state_(seed) {}
  uint32_t Next() {
    state_ = state_ * 6364136223846793005u + 1442695040888963407u;
    return static_cast<uint32_t>(state_ >> 33);
  }
  uint32_t Below(uint32_t limit) { return Next() % limit; }

 private:
  uint64_t state_;
};

// Writes syntax elements the way parameter sets hold them.
class BitWriter {
 public:
  BitWriter& U(uint32_t count, uint64_t value) {
    for (uint32_t i = count; i > 0; --i) Bit((value >> (i - 1)) & 1);
    return *this;
  }
  BitWriter& Ue(uint32_t value) {
    const uint64_t code = uint64_t{value} + 1;
    uint32_t length = 0;
    while ((code >> length) > 1) ++length;
    return U(length, 0).U(length + 1, code);
  }
  BitWriter& Se(int32_t value) {
    return Ue(value > 0 ? static_cast<uint32_t>(value) * 2 - 1 : static_cast<uint32_t>(-value) * 2);
  }
  // The stop bit and zeros up to the next byte.
  Bytes Finish() {
    Bit(1);
    while (used_ != 0) Bit(0);
    return bytes_;
  }

 private:
  void Bit(uint64_t bit) {
    if (used_ == 0) bytes_.push_back(0);
    bytes_.back() = static_cast<uint8_t>(bytes_.back() | (bit << (7 - used_)));
    used_ = (used_ + 1) % 8;
  }
  Bytes bytes_;
  uint32_t used_ = 0;
};

}  // namespace zmv::test

#endif

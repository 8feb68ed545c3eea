// Reads the syntax elements of parameter sets, most significant bit first: fixed-width numbers and Exp-Golomb codes
// (ISO/IEC 14496-10 clause 9.1, ISO/IEC 23008-2 clause 9.2). Running out of data, a code with more than 31 leading
// zeros or a number above its limit sets Failed() for good; every later read gives 0, so a run of reads is tested once.
#ifndef ZMV_PLATFORM_POSIX_BIT_READER_H
#define ZMV_PLATFORM_POSIX_BIT_READER_H

#include "platform/posix/zmv_nal.h"

namespace zmv::codec {

enum class Escaping : uint8_t { kRaw, kEscaped };

class BitReader {
 public:
  // With kEscaped, emulation-prevention bytes are stepped over as they come.
  BitReader(const NalSpan& unit, Escaping escaping) : unit_(unit), escaping_(escaping) {}

  bool Failed() const { return failed_; }

  uint32_t Bit() {
    if (bits_left_ == 0 && !LoadByte()) return 0;
    --bits_left_;
    return (byte_ >> bits_left_) & 1u;
  }
  bool Flag() { return Bit() != 0; }

  // A number of up to 32 bits.
  uint32_t Bits(uint32_t count) {
    uint32_t value = 0;
    for (uint32_t i = 0; i < count; ++i) value = (value << 1) | Bit();
    return failed_ ? 0 : value;
  }
  uint8_t Byte() { return static_cast<uint8_t>(Bits(8)); }
  void Skip(uint32_t count) {
    for (uint32_t i = 0; i < count && !failed_; ++i) Bit();
  }

  // ue(v)
  uint32_t Ue() {
    uint32_t zeros = 0;
    while (!failed_ && Bit() == 0) {
      if (++zeros > kLongestPrefix) failed_ = true;
    }
    if (failed_) return 0;
    const uint32_t suffix = Bits(zeros);
    return failed_ ? 0 : ((1u << zeros) - 1) + suffix;
  }
  // ue(v) of at most `limit`.
  uint32_t UeUpTo(uint32_t limit) {
    const uint32_t value = Ue();
    if (value <= limit) return value;
    failed_ = true;
    return 0;
  }
  // se(v)
  int32_t Se() {
    const uint32_t code = Ue();
    const int32_t magnitude = static_cast<int32_t>((code >> 1) + (code & 1u));
    return (code & 1u) != 0 ? magnitude : -magnitude;
  }
  void SkipUe(uint32_t count) {
    for (uint32_t i = 0; i < count && !failed_; ++i) Ue();
  }

 private:
  static constexpr uint32_t kLongestPrefix = 31;

  bool LoadByte() {
    if (escaping_ == Escaping::kEscaped && zeros_ >= 2 && position_ < unit_.size && unit_.data[position_] == 3) {
      ++position_;
      zeros_ = 0;
    }
    if (failed_ || position_ >= unit_.size) {
      failed_ = true;
      return false;
    }
    byte_ = unit_.data[position_++];
    zeros_ = byte_ == 0 ? zeros_ + 1 : 0;
    bits_left_ = 8;
    return true;
  }

  NalSpan unit_;
  Escaping escaping_;
  uint32_t position_ = 0;
  uint32_t zeros_ = 0;
  uint32_t byte_ = 0;
  uint32_t bits_left_ = 0;
  bool failed_ = false;
};

}  // namespace zmv::codec

#endif

// NAL units: finding them between start codes, taking emulation prevention out and putting it in, and reading their
// bits. ISO/IEC 14496-10 (H.264) annex B and clause 7.4.1, ISO/IEC 23008-2 (HEVC) annex B and clause 7.4.2.
#ifndef ZMV_PLATFORM_POSIX_NAL_H
#define ZMV_PLATFORM_POSIX_NAL_H

#include <cstdint>

namespace zmv::codec {

enum class Codec : uint8_t { kAvc, kHevc };

// nal_unit_type of the units that configurations hold.
enum NalType : uint8_t {
  kAvcSps = 7,
  kAvcPps = 8,
  kAvcSpsExtension = 13,
  kHevcVps = 32,
  kHevcSps = 33,
  kHevcPps = 34,
};

constexpr uint32_t kAvcNalHeaderSize = 1;
constexpr uint32_t kHevcNalHeaderSize = 2;
constexpr uint32_t kStartCodeSize = 4;
constexpr uint8_t kStartCode[kStartCodeSize] = {0, 0, 0, 1};

// A NAL unit, header included, inside somebody's memory; data is null when absent.
struct NalSpan {
  const uint8_t* data = nullptr;
  uint32_t size = 0;
};

// nal_unit_type of a unit that is not empty.
constexpr uint8_t TypeOf(Codec codec, const NalSpan& unit) {
  return codec == Codec::kAvc ? unit.data[0] & 0x1F : (unit.data[0] >> 1) & 0x3F;
}

// True for data that begins with 00 00 01 or 00 00 00 01.
bool IsStartCodeForm(const uint8_t* data, uint32_t size);

// Steps through the parameter sets of data in start-code form, escaped or not.
//
// Unescaped units can contain 00 00 01. A start code therefore counts only in front of a plausible header: forbidden
// bit 0 and type 7, 8 or 13 (H.264) or 32 to 34 with a temporal ID (HEVC); whatever else follows a set is taken as a
// part of it. Zero bytes at the end of a unit belong to the next start code or are padding: no parameter set ends with
// one.
class ParameterSetWalker {
 public:
  ParameterSetWalker(Codec codec, const uint8_t* data, uint32_t size) : codec_(codec), data_(data), size_(size) {}
  // The next parameter set, in order; false at the end.
  bool Next(NalSpan* unit);

 private:
  struct Mark {
    uint32_t code;  // where the start code is, without its leading zero
    uint32_t unit;  // where the parameter set behind it is
  };
  bool FindMark(uint32_t from, Mark* mark) const;
  bool IsParameterSet(uint32_t at) const;

  Codec codec_;
  const uint8_t* data_;
  uint32_t size_;
  uint32_t position_ = 0;
};

// False when the unit holds what no escaped unit does: 00 00 followed by 00, 01 or 02, which an escape would have
// broken up, or 00 00 03 in front of a byte above 03, where no escape is called for (a tick of 1001 begins so).
bool IsEscaped(const NalSpan& unit);

// Writes the unit with emulation-prevention bytes to `to`: 03 before every byte of 03 or less that follows two zero
// bytes, and behind a last zero byte. False, and nothing that counts is written, when it takes more than `capacity`
// bytes.
bool Escape(const NalSpan& unit, uint8_t* to, uint32_t capacity, uint32_t* written);

// Removes each 03 that follows two zero bytes, in place; returns the new size.
uint32_t Unescape(uint8_t* data, uint32_t size);

}  // namespace zmv::codec

#endif

// Decoder configuration records of ISO/IEC 14496-15: avcC (clause 5.3.3) and hvcC (clause 8.3.3). Layouts that the
// reading and the writing direction share, and the walk over the NAL units of a record.
#ifndef ZMV_PLATFORM_POSIX_CONFIG_RECORD_H
#define ZMV_PLATFORM_POSIX_CONFIG_RECORD_H

#include "base/byte_order.h"
#include "platform/posix/zmv_nal.h"

namespace zmv::codec {

constexpr uint8_t kRecordVersion = 1;
constexpr uint32_t kUnitLengthSize = 2;

// avcC: version, profile, compatibility, level, length size, SPS count, then the SPS; PPS count, the PPS.
constexpr uint32_t kAvcSpsCountOffset = 5;
constexpr uint8_t kAvcSpsCountMask = 0x1F;
constexpr uint8_t kAvcReservedLengthBits = 0xFC;
constexpr uint8_t kAvcReservedCountBits = 0xE0;
constexpr uint32_t kMaxAvcSps = 31;
constexpr uint32_t kMaxAvcPps = 255;
// Profiles above these three carry a trailer: chroma format, two bit depths and the SPS extensions.
constexpr uint8_t kAvcBaselineProfile = 66;
constexpr uint8_t kAvcMainProfile = 77;
constexpr uint8_t kAvcExtendedProfile = 88;
constexpr uint32_t kAvcTrailerFields = 3;
constexpr uint8_t kAvcReservedChromaBits = 0xFC;
constexpr uint8_t kAvcReservedDepthBits = 0xF8;

// hvcC: 22 bytes of fields, array count, then per array its NAL type, a 16-bit unit count and the units.
constexpr uint32_t kHevcArrayCountOffset = 22;
constexpr uint8_t kHevcArrayTypeMask = 0x3F;

constexpr bool HasAvcTrailer(uint8_t profile) {
  return profile != kAvcBaselineProfile && profile != kAvcMainProfile && profile != kAvcExtendedProfile;
}

// Reads forward through a record; past the end it fails for good and gives zeros and absent units.
class RecordCursor {
 public:
  RecordCursor(const uint8_t* data, uint32_t size) : data_(data), left_(size) {}
  bool Failed() const { return failed_; }
  uint32_t Left() const { return left_; }

  void Skip(uint32_t count) { Take(count); }
  uint8_t U8() {
    const uint8_t* at = Take(1);
    return at == nullptr ? uint8_t{0} : *at;
  }
  uint16_t U16() {
    const uint8_t* at = Take(kUnitLengthSize);
    return at == nullptr ? uint16_t{0} : LoadBE16(at);
  }
  // A unit behind its 16-bit length.
  NalSpan Unit() {
    const uint32_t size = U16();
    const uint8_t* at = Take(size);
    return at == nullptr ? NalSpan{} : NalSpan{at, size};
  }

 private:
  const uint8_t* Take(uint32_t count) {
    if (failed_ || count > left_) {
      failed_ = true;
      return nullptr;
    }
    const uint8_t* at = data_;
    data_ += count;
    left_ -= count;
    return at;
  }

  const uint8_t* data_;
  uint32_t left_;
  bool failed_ = false;
};

// Calls visit(type, unit) for `count` units of one list; empty units are passed over.
template <typename Visit>
void VisitUnits(RecordCursor* cursor, uint32_t count, uint8_t type, const Visit& visit) {
  for (uint32_t i = 0; i < count && !cursor->Failed(); ++i) {
    const NalSpan unit = cursor->Unit();
    if (unit.data != nullptr && unit.size != 0) visit(type, unit);
  }
}

// Calls visit(type, unit) for every unit of an avcC record in order; the type is that of the list it stands in. False
// when the record ends before its lists do. A missing trailer is no fault: it joined the record in a later edition.
template <typename Visit>
bool VisitAvcRecord(const uint8_t* record, uint32_t size, const Visit& visit) {
  RecordCursor cursor(record, size);
  cursor.Skip(1);
  const uint8_t profile = cursor.U8();
  cursor.Skip(kAvcSpsCountOffset - 2);
  VisitUnits(&cursor, cursor.U8() & kAvcSpsCountMask, kAvcSps, visit);
  VisitUnits(&cursor, cursor.U8(), kAvcPps, visit);
  if (HasAvcTrailer(profile) && cursor.Left() > kAvcTrailerFields) {
    cursor.Skip(kAvcTrailerFields);
    VisitUnits(&cursor, cursor.U8(), kAvcSpsExtension, visit);
  }
  return !cursor.Failed();
}

// The same for the arrays of an hvcC record.
template <typename Visit>
bool VisitHevcRecord(const uint8_t* record, uint32_t size, const Visit& visit) {
  RecordCursor cursor(record, size);
  cursor.Skip(kHevcArrayCountOffset);
  const uint32_t arrays = cursor.U8();
  for (uint32_t i = 0; i < arrays && !cursor.Failed(); ++i) {
    const uint8_t type = cursor.U8() & kHevcArrayTypeMask;
    VisitUnits(&cursor, cursor.U16(), type, visit);
  }
  return !cursor.Failed();
}

// Collects units behind 4-byte start codes; a unit that does not fit is left out whole.
class StartCodeWriter {
 public:
  StartCodeWriter(uint8_t* to, uint32_t capacity) : to_(to), capacity_(capacity) {}
  void Append(const NalSpan& unit);
  uint32_t Size() const { return used_; }

 private:
  uint8_t* to_;
  uint32_t capacity_;
  uint32_t used_ = 0;
};

// Writes the parameter sets of the record behind start codes; false when the record is malformed.
using RecordToStartCodes = bool (*)(const uint8_t* record, uint32_t size, StartCodeWriter* writer);

// The shared body of the two ...InfoToStartCode helpers: `extra` is a buffer of 512 bytes, `*size` of which are used.
int32_t ConvertRecordInPlace(uint8_t* extra, uint32_t* size, RecordToStartCodes convert);

}  // namespace zmv::codec

#endif

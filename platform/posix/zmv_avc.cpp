// H.264 parameter sets into and out of AVC decoder configuration records.
#include <algorithm>
#include <initializer_list>

#include "base/zmv_result.h"
#include "platform/posix/zmv_config_record.h"
#include "platform/posix/zmv_h26x_sps.h"
#include "platform/zmv_codec.h"

namespace zmv::codec {
namespace {

constexpr uint32_t kMaxLengthSize = 4;
constexpr uint32_t kMaxUnitSize = 0xFFFF;

// What the record says when neither an SPS nor the caller does: High profile, level 5.
constexpr UtilAvcParam kDefaultParam = {100, 0, 0x32, kMaxLengthSize};

// Appends to a record of limited capacity; once something did not fit, nothing more is taken.
class RecordWriter {
 public:
  RecordWriter(uint8_t* to, uint32_t capacity) : to_(to), capacity_(capacity) {}
  bool Fits() const { return fits_; }
  uint32_t Size() const { return used_; }

  void U8(uint32_t value) {
    if (!Reserve(1)) return;
    to_[used_++] = static_cast<uint8_t>(value);
  }
  // An escaped unit behind its 16-bit length.
  void Unit(const NalSpan& unit) {
    if (!Reserve(kUnitLengthSize)) return;
    uint8_t* length = to_ + used_;
    const uint32_t room = std::min(capacity_ - used_ - kUnitLengthSize, kMaxUnitSize);
    uint32_t size = 0;
    if (!Escape(unit, length + kUnitLengthSize, room, &size)) {
      fits_ = false;
      return;
    }
    StoreBE16(length, static_cast<uint16_t>(size));
    used_ += kUnitLengthSize + size;
  }

 private:
  bool Reserve(uint32_t count) {
    if (capacity_ - used_ < count) fits_ = false;
    return fits_;
  }

  uint8_t* to_;
  uint32_t capacity_;
  uint32_t used_ = 0;
  bool fits_ = true;
};

struct AvcSets {
  const uint8_t* config;
  uint32_t size;
  NalSpan first_sps;
  uint32_t sps_count = 0;
  uint32_t pps_count = 0;
  uint32_t extension_count = 0;
};

AvcSets CountSets(const uint8_t* config, uint32_t size) {
  AvcSets sets{config, size, {}};
  ParameterSetWalker walker(Codec::kAvc, config, size);
  NalSpan unit;
  while (walker.Next(&unit)) {
    const uint8_t type = TypeOf(Codec::kAvc, unit);
    if (type == kAvcSps && sets.first_sps.data == nullptr) sets.first_sps = unit;
    uint32_t* count = type == kAvcSps ? &sets.sps_count : type == kAvcPps ? &sets.pps_count : &sets.extension_count;
    ++*count;
  }
  sets.sps_count = std::min(sets.sps_count, kMaxAvcSps);
  sets.pps_count = std::min(sets.pps_count, kMaxAvcPps);
  sets.extension_count = std::min(sets.extension_count, kMaxAvcPps);
  return sets;
}

void WriteUnits(const AvcSets& sets, uint8_t type, uint32_t count, RecordWriter* record) {
  ParameterSetWalker walker(Codec::kAvc, sets.config, sets.size);
  NalSpan unit;
  while (count > 0 && record->Fits() && walker.Next(&unit)) {
    if (TypeOf(Codec::kAvc, unit) != type) continue;
    record->Unit(unit);
    --count;
  }
}

SpsInfo DescribeSets(const AvcSets& sets, const UtilAvcParam& param) {
  SpsInfo info;
  if (ParseAvcSps(sets.first_sps, Escaping::kRaw, &info) == SpsDepth::kNothing) {
    info.profile = static_cast<uint8_t>(param.dwProfile);
    info.compatibility = param.dwCompatibility;
    info.level = static_cast<uint8_t>(param.dwLevel);
  }
  return info;
}

void WriteRecord(const AvcSets& sets, const UtilAvcParam& param, RecordWriter* record) {
  const SpsInfo info = DescribeSets(sets, param);
  const bool length_size_valid = param.dwLengthSize == 1 || param.dwLengthSize == 2;
  const uint32_t length_size = length_size_valid ? param.dwLengthSize : kMaxLengthSize;
  record->U8(kRecordVersion);
  record->U8(info.profile);
  record->U8(info.compatibility);
  record->U8(info.level);
  record->U8(kAvcReservedLengthBits | (length_size - 1));
  record->U8(kAvcReservedCountBits | sets.sps_count);
  WriteUnits(sets, kAvcSps, sets.sps_count, record);
  record->U8(sets.pps_count);
  WriteUnits(sets, kAvcPps, sets.pps_count, record);
  if (!HasAvcTrailer(info.profile)) return;
  record->U8(kAvcReservedChromaBits | uint32_t{info.chroma_format});
  record->U8(kAvcReservedDepthBits | (uint32_t{info.bit_depth_luma} - kDefaultBitDepth));
  record->U8(kAvcReservedDepthBits | (uint32_t{info.bit_depth_chroma} - kDefaultBitDepth));
  record->U8(sets.extension_count);
  WriteUnits(sets, kAvcSpsExtension, sets.extension_count, record);
}

// Every SPS with the extensions behind them, as decoders want them, then the PPS.
bool RecordToStartCodesAvc(const uint8_t* record, uint32_t size, StartCodeWriter* writer) {
  bool whole = true;
  for (const uint8_t wanted : {kAvcSps, kAvcSpsExtension, kAvcPps}) {
    whole = VisitAvcRecord(record, size, [&](uint8_t type, const NalSpan& unit) {
      if (type == wanted) writer->Append(unit);
    });
  }
  return whole;
}

}  // namespace
}  // namespace zmv::codec

extern "C" int32_t UtilConvH264InfoFromStartCode(const uint8_t* config, uint32_t size, uint8_t* record,
                                                 uint32_t* recordSize, const UtilAvcParam* param) {
  using namespace zmv::codec;
  if (record == nullptr || recordSize == nullptr) return zmv::Result(ZMV_E_FAIL);
  RecordWriter writer(record, *recordSize);
  WriteRecord(CountSets(config, config == nullptr ? 0 : size), param == nullptr ? kDefaultParam : *param, &writer);
  *recordSize = writer.Fits() ? writer.Size() : 0;
  return writer.Fits() ? 0 : zmv::Result(ZMV_E_FAIL);
}

extern "C" int32_t ZMVUtil_ConvH264InfoToStartCode(uint8_t* extra, uint32_t* size) {
  return zmv::codec::ConvertRecordInPlace(extra, size, zmv::codec::RecordToStartCodesAvc);
}

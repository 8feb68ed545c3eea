// HEVC parameter sets into the parts of, and out of, HEVC decoder configuration records.
#include <initializer_list>

#include "base/zmv_result.h"
#include "platform/posix/zmv_config_record.h"
#include "platform/posix/zmv_h26x_sps.h"
#include "platform/zmv_codec.h"

namespace zmv::codec {
namespace {

// The first unit of each kind, as it stands in the configuration.
struct HevcSets {
  NalSpan vps;
  NalSpan sps;
  NalSpan pps;

  NalSpan* Of(uint8_t type) {
    if (type == kHevcVps) return &vps;
    if (type == kHevcSps) return &sps;
    return type == kHevcPps ? &pps : nullptr;
  }
  void TakeFirst(uint8_t type, const NalSpan& unit) {
    NalSpan* place = Of(type);
    if (place != nullptr && place->data == nullptr) *place = unit;
  }
};

HevcSets FindSets(const uint8_t* config, uint32_t size) {
  HevcSets sets;
  ParameterSetWalker walker(Codec::kHevc, config, size);
  NalSpan unit;
  while (walker.Next(&unit)) sets.TakeFirst(TypeOf(Codec::kHevc, unit), unit);
  return sets;
}

// Escapes one unit into the caller's buffer behind what is there; false when it does not fit.
bool PlaceUnit(const NalSpan& unit, UtilHevcInfo* info, uint32_t* used, UtilNalUnit* placed) {
  if (unit.data == nullptr) return true;
  const uint32_t room = info->pBuffer == nullptr ? 0 : info->dwBufferSize - *used;
  uint32_t size = 0;
  if (room == 0 || !Escape(unit, info->pBuffer + *used, room, &size)) return false;
  *placed = {info->pBuffer + *used, size};
  *used += size;
  return true;
}

void DescribeSets(const HevcSets& sets, UtilHevcInfo* info) {
  SpsInfo sps;
  ParseHevcSps(sets.sps, Escaping::kRaw, &sps);
  info->bProfileSpace = sps.profile_space;
  info->bTier = sps.tier;
  info->bProfile = sps.profile;
  info->bLevel = sps.level;
  info->dwCompatibility = sps.compatibility;
  info->llConstraint = sps.constraints;
  info->wMinSpatialSegmentation = sps.vui.min_spatial_segmentation;
  // The type says how the segmentation is met, so without one there is nothing to say.
  info->bParallelism =
      sps.vui.min_spatial_segmentation == 0 ? uint8_t{0} : ParseHevcParallelism(sets.pps, Escaping::kRaw);
  info->bChromaFormat = sps.chroma_format;
  info->bBitDepthLuma = sps.bit_depth_luma;
  info->bBitDepthChroma = sps.bit_depth_chroma;
  info->bTemporalLayers = sps.temporal_layers;
  info->bTemporalIdNested = sps.temporal_id_nested ? 1 : 0;
}

bool RecordToStartCodesHevc(const uint8_t* record, uint32_t size, StartCodeWriter* writer) {
  HevcSets sets;
  const bool whole =
      VisitHevcRecord(record, size, [&](uint8_t type, const NalSpan& unit) { sets.TakeFirst(type, unit); });
  for (const NalSpan& unit : {sets.vps, sets.sps, sets.pps}) {
    if (unit.data != nullptr) writer->Append(unit);
  }
  return whole;
}

}  // namespace
}  // namespace zmv::codec

extern "C" int32_t UtilConvH265InfoFromStartCode(const uint8_t* config, uint32_t size, UtilHevcInfo* info) {
  using namespace zmv::codec;
  if (info == nullptr) return zmv::Result(ZMV_E_FAIL);
  UtilHevcInfo filled{};
  filled.pBuffer = info->pBuffer;
  filled.dwBufferSize = info->dwBufferSize;
  const HevcSets sets = FindSets(config, config == nullptr ? 0 : size);
  DescribeSets(sets, &filled);
  uint32_t used = 0;
  bool whole = PlaceUnit(sets.vps, &filled, &used, &filled.vps);
  whole = PlaceUnit(sets.sps, &filled, &used, &filled.sps) && whole;
  whole = PlaceUnit(sets.pps, &filled, &used, &filled.pps) && whole;
  *info = filled;
  return whole ? 0 : zmv::Result(ZMV_E_FAIL);
}

extern "C" int32_t ZMVUtil_ConvHEVCInfoToStartCode(uint8_t* extra, uint32_t* size) {
  return zmv::codec::ConvertRecordInPlace(extra, size, zmv::codec::RecordToStartCodesHevc);
}

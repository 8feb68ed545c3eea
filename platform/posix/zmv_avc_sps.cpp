#include "platform/posix/zmv_h26x_sps.h"

namespace zmv::codec {
namespace {

constexpr uint32_t kMacroblock = 16;
constexpr uint32_t kMaxSpsId = 31;
constexpr uint32_t kMaxBitDepthMinus8 = 6;
constexpr uint32_t kMaxRefFramesInCycle = 255;
constexpr uint32_t kMaxPicOrderType = 2;
constexpr uint32_t kSmallLists = 6;  // the 4x4 scaling lists; 8x8 ones follow
constexpr uint32_t kSmallListSize = 16;
constexpr uint32_t kLargeListSize = 64;
constexpr uint32_t kListCount = 8;
constexpr uint32_t kListCount444 = 12;

// Profiles whose SPS says chroma format and bit depth.
constexpr bool HasChromaFormat(uint8_t profile) {
  constexpr uint8_t kProfiles[] = {100, 110, 122, 244, 44, 83, 86, 118, 128, 138, 139, 134, 135, 144};
  for (const uint8_t listed : kProfiles) {
    if (profile == listed) return true;
  }
  return false;
}

void SkipScalingList(BitReader* bits, uint32_t size) {
  uint32_t last = 8;
  uint32_t next = 8;
  for (uint32_t i = 0; i < size && !bits->Failed(); ++i) {
    if (next != 0) next = (last + static_cast<uint32_t>(bits->Se())) & 0xFFu;
    if (next != 0) last = next;
  }
}

// Chroma format, bit depths and scaling lists; returns ChromaArrayType.
uint32_t ReadHighFields(BitReader* bits, SpsInfo* info) {
  const uint32_t chroma_format = bits->UeUpTo(kMaxChromaFormat);
  const bool separate_planes = chroma_format == kMaxChromaFormat && bits->Flag();
  const uint32_t luma = bits->UeUpTo(kMaxBitDepthMinus8);
  const uint32_t chroma = bits->UeUpTo(kMaxBitDepthMinus8);
  bits->Skip(1);  // transform bypass
  if (bits->Flag()) {
    const uint32_t lists = chroma_format == kMaxChromaFormat ? kListCount444 : kListCount;
    for (uint32_t i = 0; i < lists && !bits->Failed(); ++i) {
      if (bits->Flag()) SkipScalingList(bits, i < kSmallLists ? kSmallListSize : kLargeListSize);
    }
  }
  if (bits->Failed()) return 0;
  info->chroma_format = static_cast<uint8_t>(chroma_format);
  info->bit_depth_luma = static_cast<uint8_t>(kDefaultBitDepth + luma);
  info->bit_depth_chroma = static_cast<uint8_t>(kDefaultBitDepth + chroma);
  return separate_planes ? 0 : chroma_format;
}

void SkipPicOrder(BitReader* bits) {
  const uint32_t type = bits->UeUpTo(kMaxPicOrderType);
  if (type == 0) bits->Ue();
  if (type != 1) return;
  bits->Skip(1);
  bits->SkipUe(2);  // signed, which takes the same bits
  bits->SkipUe(bits->UeUpTo(kMaxRefFramesInCycle));
}

CropWindow ReadCrop(BitReader* bits) {
  CropWindow crop;
  if (!bits->Flag()) return crop;
  crop.left = bits->Ue();
  crop.right = bits->Ue();
  crop.top = bits->Ue();
  crop.bottom = bits->Ue();
  return crop;
}

bool ReadPicture(BitReader* bits, uint32_t chroma_array_type, SpsInfo* info) {
  constexpr uint32_t kMaxMacroblocks = kMaxPictureSide / kMacroblock;
  const uint32_t width = bits->UeUpTo(kMaxMacroblocks - 1) + 1;
  const uint32_t map_units = bits->UeUpTo(kMaxMacroblocks - 1) + 1;
  const bool frames_only = bits->Flag();
  if (!frames_only) bits->Skip(1);  // macroblock-adaptive frame/field coding
  bits->Skip(1);                    // direct 8x8 inference
  const CropWindow crop = ReadCrop(bits);
  if (bits->Failed()) return false;
  const uint32_t fields = frames_only ? 1 : 2;
  info->coded_width = width * kMacroblock;
  info->coded_height = map_units * fields * kMacroblock;
  info->interlaced = !frames_only;
  return ApplyCrop(crop, SubWidth(chroma_array_type), SubHeight(chroma_array_type) * fields, info);
}

bool ReadVui(BitReader* bits, VuiInfo* vui) {
  VuiInfo read;
  ReadCommonVui(bits, &read);
  if (bits->Flag()) {
    read.units_in_tick = bits->Bits(32);
    read.time_scale = bits->Bits(32);
  }
  if (bits->Failed()) return false;
  *vui = read;
  return true;
}

}  // namespace

SpsDepth ParseAvcSps(const NalSpan& unit, Escaping escaping, SpsInfo* info) {
  *info = SpsInfo{};
  BitReader bits(unit, escaping);
  bits.Skip(kAvcNalHeaderSize * 8);
  SpsInfo read;
  read.profile = bits.Byte();
  read.compatibility = bits.Byte();
  read.level = bits.Byte();
  if (bits.Failed()) return SpsDepth::kNothing;
  *info = read;

  bits.UeUpTo(kMaxSpsId);
  const uint32_t chroma_array_type = HasChromaFormat(read.profile) ? ReadHighFields(&bits, &read) : kChroma420;
  bits.Ue();  // frame number length
  SkipPicOrder(&bits);
  bits.Ue();     // reference frames
  bits.Skip(1);  // gaps in frame numbers
  if (!ReadPicture(&bits, chroma_array_type, &read)) return SpsDepth::kProfile;
  const bool has_vui = bits.Flag();
  *info = read;
  if (bits.Failed()) return SpsDepth::kPicture;
  return !has_vui || ReadVui(&bits, &info->vui) ? SpsDepth::kWhole : SpsDepth::kPicture;
}

}  // namespace zmv::codec

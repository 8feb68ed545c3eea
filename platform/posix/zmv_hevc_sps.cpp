#include "platform/posix/zmv_h26x_sps.h"

namespace zmv::codec {
namespace {

constexpr uint32_t kMaxSubLayersMinus1 = 6;
constexpr uint32_t kSubLayerFlagPairs = 8;
constexpr uint32_t kSubLayerProfileBits = 88;
constexpr uint32_t kSubLayerLevelBits = 8;
constexpr uint32_t kMaxSpsId = 15;
constexpr uint32_t kMaxPpsId = 63;
constexpr uint32_t kMaxBitDepthMinus8 = 8;
constexpr uint32_t kMaxPicOrderBitsMinus4 = 12;
constexpr uint32_t kScalingSizes = 4;
constexpr uint32_t kScalingMatrices = 6;
constexpr uint32_t kMaxScalingCoefficients = 64;
constexpr uint32_t kMaxRefPicSets = 64;
constexpr uint32_t kMaxRefPics = 16;
constexpr uint32_t kMaxLongTermRefPics = 32;
constexpr uint32_t kMaxCpbCountMinus1 = 31;
constexpr uint32_t kMaxSpatialSegmentation = 4095;

// profile_tier_level(1, max_sub_layers_minus1)
void ReadProfileTierLevel(BitReader* bits, uint32_t max_sub_layers_minus1, SpsInfo* info) {
  info->profile_space = static_cast<uint8_t>(bits->Bits(2));
  info->tier = static_cast<uint8_t>(bits->Bit());
  info->profile = static_cast<uint8_t>(bits->Bits(5));
  info->compatibility = bits->Bits(32);
  info->constraints = uint64_t{bits->Bits(32)} << 16;
  info->constraints |= bits->Bits(16);
  info->level = bits->Byte();
  if (max_sub_layers_minus1 == 0) return;
  bool profile_present[kMaxSubLayersMinus1] = {};
  bool level_present[kMaxSubLayersMinus1] = {};
  for (uint32_t i = 0; i < max_sub_layers_minus1; ++i) {
    profile_present[i] = bits->Flag();
    level_present[i] = bits->Flag();
  }
  bits->Skip(2 * (kSubLayerFlagPairs - max_sub_layers_minus1));
  for (uint32_t i = 0; i < max_sub_layers_minus1; ++i) {
    if (profile_present[i]) bits->Skip(kSubLayerProfileBits);
    if (level_present[i]) bits->Skip(kSubLayerLevelBits);
  }
}

CropWindow ReadWindow(BitReader* bits) {
  CropWindow window;
  if (!bits->Flag()) return window;
  window.left = bits->Ue();
  window.right = bits->Ue();
  window.top = bits->Ue();
  window.bottom = bits->Ue();
  return window;
}

// Chroma format, picture size and bit depths.
bool ReadPicture(BitReader* bits, SpsInfo* info) {
  bits->UeUpTo(kMaxSpsId);
  const uint32_t chroma_format = bits->UeUpTo(kMaxChromaFormat);
  const bool separate_planes = chroma_format == kMaxChromaFormat && bits->Flag();
  const uint32_t width = bits->UeUpTo(kMaxPictureSide);
  const uint32_t height = bits->UeUpTo(kMaxPictureSide);
  const CropWindow window = ReadWindow(bits);
  const uint32_t luma = bits->UeUpTo(kMaxBitDepthMinus8);
  const uint32_t chroma = bits->UeUpTo(kMaxBitDepthMinus8);
  if (bits->Failed()) return false;
  info->chroma_format = static_cast<uint8_t>(chroma_format);
  info->coded_width = width;
  info->coded_height = height;
  info->bit_depth_luma = static_cast<uint8_t>(kDefaultBitDepth + luma);
  info->bit_depth_chroma = static_cast<uint8_t>(kDefaultBitDepth + chroma);
  const uint32_t cropped_format = separate_planes ? 0 : chroma_format;
  return ApplyCrop(window, SubWidth(cropped_format), SubHeight(cropped_format), info);
}

void SkipScalingLists(BitReader* bits) {
  for (uint32_t size = 0; size < kScalingSizes; ++size) {
    const uint32_t step = size + 1 == kScalingSizes ? 3 : 1;
    for (uint32_t matrix = 0; matrix < kScalingMatrices && !bits->Failed(); matrix += step) {
      if (!bits->Flag()) {
        bits->Ue();  // taken from another matrix
        continue;
      }
      const uint32_t all = 1u << (4 + 2 * size);
      const uint32_t coefficients = all < kMaxScalingCoefficients ? all : kMaxScalingCoefficients;
      bits->SkipUe(coefficients + (size > 1 ? 1 : 0));  // signed numbers take the same bits
    }
  }
}

// One set predicted from the set before it, which had `before` entries; returns the number of its own entries.
uint32_t SkipPredictedRefPicSet(BitReader* bits, uint32_t before) {
  bits->Skip(1);  // sign of the difference
  bits->Ue();
  uint32_t entries = 0;
  for (uint32_t i = 0; i <= before && !bits->Failed(); ++i) {
    const bool used = bits->Flag();
    if (used || bits->Flag()) ++entries;
  }
  return entries <= kMaxRefPics ? entries : kMaxRefPics;
}

uint32_t SkipExplicitRefPicSet(BitReader* bits) {
  const uint32_t negative = bits->UeUpTo(kMaxRefPics);
  const uint32_t positive = bits->UeUpTo(kMaxRefPics - negative);
  for (uint32_t i = 0; i < negative + positive && !bits->Failed(); ++i) {
    bits->Ue();
    bits->Skip(1);
  }
  return negative + positive;
}

void SkipRefPicSets(BitReader* bits) {
  const uint32_t sets = bits->UeUpTo(kMaxRefPicSets);
  uint32_t entries = 0;
  for (uint32_t i = 0; i < sets && !bits->Failed(); ++i) {
    const bool predicted = i != 0 && bits->Flag();
    entries = predicted ? SkipPredictedRefPicSet(bits, entries) : SkipExplicitRefPicSet(bits);
  }
}

// Everything between the bit depths and the usability information.
void SkipCodingTools(BitReader* bits, uint32_t max_sub_layers_minus1) {
  const uint32_t pic_order_bits = bits->UeUpTo(kMaxPicOrderBitsMinus4) + 4;
  const bool every_layer = bits->Flag();
  bits->SkipUe(3 * (every_layer ? max_sub_layers_minus1 + 1 : 1));
  bits->SkipUe(6);  // block sizes and hierarchy depths
  if (bits->Flag() && bits->Flag()) SkipScalingLists(bits);
  bits->Skip(2);  // asymmetric partitions, sample adaptive offset
  if (bits->Flag()) {
    bits->Skip(8);  // PCM bit depths
    bits->SkipUe(2);
    bits->Skip(1);
  }
  SkipRefPicSets(bits);
  if (bits->Flag()) {
    const uint32_t pictures = bits->UeUpTo(kMaxLongTermRefPics);
    bits->Skip(pictures * (pic_order_bits + 1));
  }
  bits->Skip(2);  // temporal motion vectors, strong intra smoothing
}

void SkipSubLayerHrd(BitReader* bits, uint32_t cpb_count, bool sub_pictures) {
  for (uint32_t i = 0; i < cpb_count && !bits->Failed(); ++i) {
    bits->SkipUe(sub_pictures ? 4 : 2);
    bits->Skip(1);
  }
}

// hrd_parameters(1, max_sub_layers_minus1)
void SkipHrd(BitReader* bits, uint32_t max_sub_layers_minus1) {
  const bool nal = bits->Flag();
  const bool vcl = bits->Flag();
  bool sub_pictures = false;
  if (nal || vcl) {
    sub_pictures = bits->Flag();
    if (sub_pictures) bits->Skip(8 + 5 + 1 + 5);
    bits->Skip(4 + 4);  // scales
    if (sub_pictures) bits->Skip(4);
    bits->Skip(5 + 5 + 5);  // delay lengths
  }
  for (uint32_t i = 0; i <= max_sub_layers_minus1 && !bits->Failed(); ++i) {
    const bool fixed_rate = bits->Flag();
    const bool fixed_within_sequence = fixed_rate || bits->Flag();
    bool low_delay = false;
    if (fixed_within_sequence) {
      bits->Ue();
    } else {
      low_delay = bits->Flag();
    }
    const uint32_t cpb_count = low_delay ? 1 : bits->UeUpTo(kMaxCpbCountMinus1) + 1;
    if (nal) SkipSubLayerHrd(bits, cpb_count, sub_pictures);
    if (vcl) SkipSubLayerHrd(bits, cpb_count, sub_pictures);
  }
}

bool ReadVui(BitReader* bits, uint32_t max_sub_layers_minus1, VuiInfo* vui) {
  VuiInfo read;
  ReadCommonVui(bits, &read);
  bits->Skip(3);     // neutral chroma, field sequence, picture timing present
  ReadWindow(bits);  // a window for display, which is no cropping
  if (bits->Flag()) {
    read.units_in_tick = bits->Bits(32);
    read.time_scale = bits->Bits(32);
    if (bits->Flag()) bits->Ue();
    if (bits->Flag()) SkipHrd(bits, max_sub_layers_minus1);
  }
  if (bits->Flag()) {
    bits->Skip(3);
    read.min_spatial_segmentation = static_cast<uint16_t>(bits->UeUpTo(kMaxSpatialSegmentation));
    bits->SkipUe(4);
  }
  if (bits->Failed()) return false;
  *vui = read;
  return true;
}

}  // namespace

SpsDepth ParseHevcSps(const NalSpan& unit, Escaping escaping, SpsInfo* info) {
  *info = SpsInfo{};
  BitReader bits(unit, escaping);
  bits.Skip(kHevcNalHeaderSize * 8);
  bits.Skip(4);  // VPS ID
  const uint32_t max_sub_layers_minus1 = bits.Bits(3);
  if (bits.Failed() || max_sub_layers_minus1 > kMaxSubLayersMinus1) return SpsDepth::kNothing;
  SpsInfo read;
  read.temporal_layers = static_cast<uint8_t>(max_sub_layers_minus1 + 1);
  read.temporal_id_nested = bits.Flag();
  ReadProfileTierLevel(&bits, max_sub_layers_minus1, &read);
  if (bits.Failed()) return SpsDepth::kNothing;
  *info = read;

  if (!ReadPicture(&bits, &read)) return SpsDepth::kProfile;
  *info = read;
  SkipCodingTools(&bits, max_sub_layers_minus1);
  const bool has_vui = bits.Flag();
  if (bits.Failed()) return SpsDepth::kPicture;
  return !has_vui || ReadVui(&bits, max_sub_layers_minus1, &info->vui) ? SpsDepth::kWhole : SpsDepth::kPicture;
}

uint8_t ParseHevcParallelism(const NalSpan& unit, Escaping escaping) {
  constexpr uint8_t kUnknown = 0, kSlices = 1, kTiles = 2, kWavefronts = 3;
  BitReader bits(unit, escaping);
  bits.Skip(kHevcNalHeaderSize * 8);
  bits.UeUpTo(kMaxPpsId);
  bits.UeUpTo(kMaxSpsId);
  bits.Skip(1 + 1 + 3 + 1 + 1);  // dependent slices, output flag, extra header bits, sign hiding, CABAC tables
  bits.SkipUe(3);                // reference counts, initial quantiser
  bits.Skip(1 + 1);              // constrained intra prediction, transform skip
  if (bits.Flag()) bits.Ue();    // quantiser depth
  bits.SkipUe(2);                // chroma quantiser offsets
  bits.Skip(1 + 1 + 1 + 1);      // offsets in slices, weighted prediction (2), lossless blocks
  const bool tiles = bits.Flag();
  const bool wavefronts = bits.Flag();
  if (bits.Failed() || (tiles && wavefronts)) return kUnknown;
  if (wavefronts) return kWavefronts;
  return tiles ? kTiles : kSlices;
}

}  // namespace zmv::codec

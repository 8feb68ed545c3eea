#include "platform/posix/zmv_h26x_sps.h"

namespace zmv::codec {
namespace {

constexpr uint32_t kExtendedAspect = 255;

// Sample aspect ratios by aspect_ratio_idc (ISO/IEC 14496-10 table E-1; HEVC has the same).
struct Aspect {
  uint8_t width;
  uint8_t height;
};
constexpr Aspect kAspects[] = {{0, 0},   {1, 1},    {12, 11}, {10, 11}, {16, 11}, {40, 33},
                               {24, 11}, {20, 11},  {32, 11}, {80, 33}, {18, 11}, {15, 11},
                               {64, 33}, {160, 99}, {4, 3},   {3, 2},   {2, 1}};
constexpr uint32_t kAspectCount = sizeof kAspects / sizeof kAspects[0];

void ReadAspect(BitReader* bits, VuiInfo* vui) {
  const uint32_t index = bits->Bits(8);
  if (index == kExtendedAspect) {
    vui->sample_aspect_width = static_cast<uint16_t>(bits->Bits(16));
    vui->sample_aspect_height = static_cast<uint16_t>(bits->Bits(16));
  } else if (index < kAspectCount) {
    vui->sample_aspect_width = kAspects[index].width;
    vui->sample_aspect_height = kAspects[index].height;
  }
}

}  // namespace

void ReadCommonVui(BitReader* bits, VuiInfo* vui) {
  if (bits->Flag()) ReadAspect(bits, vui);
  if (bits->Flag()) bits->Skip(1);  // overscan
  if (bits->Flag()) {
    bits->Skip(3);  // video format
    vui->full_range = bits->Flag();
    if (bits->Flag()) {
      vui->colour_primaries = bits->Byte();
      vui->transfer = bits->Byte();
      vui->matrix = bits->Byte();
    }
  }
  if (bits->Flag()) bits->SkipUe(2);  // chroma sample location
}

bool ApplyCrop(const CropWindow& crop, uint32_t unit_width, uint32_t unit_height, SpsInfo* info) {
  const uint64_t cut_width = (uint64_t{crop.left} + crop.right) * unit_width;
  const uint64_t cut_height = (uint64_t{crop.top} + crop.bottom) * unit_height;
  if (cut_width >= info->coded_width || cut_height >= info->coded_height) return false;
  info->width = static_cast<uint32_t>(info->coded_width - cut_width);
  info->height = static_cast<uint32_t>(info->coded_height - cut_height);
  return true;
}

}  // namespace zmv::codec

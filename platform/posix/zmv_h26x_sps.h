// What a sequence parameter set says about a stream: H.264 (ISO/IEC 14496-10 clause 7.3.2.1, annex E) and HEVC (ISO/IEC
// 23008-2 clauses 7.3.2.2 and 7.3.3, annex E).
#ifndef ZMV_PLATFORM_POSIX_H26X_SPS_H
#define ZMV_PLATFORM_POSIX_H26X_SPS_H

#include "platform/posix/zmv_bit_reader.h"

namespace zmv::codec {

constexpr uint8_t kDefaultBitDepth = 8;
constexpr uint8_t kChroma420 = 1;
constexpr uint8_t kUnspecifiedColour = 2;

// Video usability information; everything at its inferred value until the set says otherwise.
struct VuiInfo {
  uint16_t sample_aspect_width = 0;  // 0 = unspecified
  uint16_t sample_aspect_height = 0;
  bool full_range = false;
  uint8_t colour_primaries = kUnspecifiedColour;
  uint8_t transfer = kUnspecifiedColour;
  uint8_t matrix = kUnspecifiedColour;
  uint32_t units_in_tick = 0;  // with time_scale: 0 = no timing
  uint32_t time_scale = 0;
  uint16_t min_spatial_segmentation = 0;  // HEVC
};

struct SpsInfo {
  uint8_t profile = 0;
  uint8_t level = 0;
  uint32_t compatibility = 0;  // H.264: the constraint flags byte; HEVC: the 32 compatibility flags
  uint8_t profile_space = 0;   // HEVC from here
  uint8_t tier = 0;
  uint64_t constraints = 0;  // 48 bits
  uint8_t temporal_layers = 0;
  bool temporal_id_nested = false;

  uint8_t chroma_format = kChroma420;
  uint8_t bit_depth_luma = kDefaultBitDepth;
  uint8_t bit_depth_chroma = kDefaultBitDepth;
  uint32_t coded_width = 0;
  uint32_t coded_height = 0;
  uint32_t width = 0;  // after cropping
  uint32_t height = 0;
  bool interlaced = false;  // H.264: fields may occur
  VuiInfo vui;
};

// How much of a set could be read. Fields beyond what the depth covers keep the values they are born with.
enum class SpsDepth : uint8_t {
  kNothing,
  kProfile,  // profile, level, layers
  kPicture,  // and picture size, chroma format, bit depths
  kWhole,    // and everything up to the end of what this reader takes, usability information included
};

SpsDepth ParseAvcSps(const NalSpan& unit, Escaping escaping, SpsInfo* info);
SpsDepth ParseHevcSps(const NalSpan& unit, Escaping escaping, SpsInfo* info);

// parallelismType of an hvcC record, from a picture parameter set: 1 slices, 2 tiles, 3 wavefronts, 0 mixed or unknown.
uint8_t ParseHevcParallelism(const NalSpan& unit, Escaping escaping);

// ---- For the two parsers

// The part of the usability information that both standards begin with, up to and including the chroma location.
void ReadCommonVui(BitReader* bits, VuiInfo* vui);

// Offsets of the conformance (cropping) window in units of its own.
struct CropWindow {
  uint32_t left = 0;
  uint32_t right = 0;
  uint32_t top = 0;
  uint32_t bottom = 0;
};

// Sets the cropped size; false when nothing would be left of the picture.
bool ApplyCrop(const CropWindow& crop, uint32_t unit_width, uint32_t unit_height, SpsInfo* info);

// Picture sides beyond this are taken for damage; the highest levels end well below it.
constexpr uint32_t kMaxPictureSide = 65535;
constexpr uint32_t kMaxChromaFormat = 3;

// Horizontal and vertical chroma subsampling of a chroma_format_idc.
constexpr uint32_t SubWidth(uint32_t chroma_format) { return chroma_format == 1 || chroma_format == 2 ? 2 : 1; }
constexpr uint32_t SubHeight(uint32_t chroma_format) { return chroma_format == 1 ? 2 : 1; }

}  // namespace zmv::codec

#endif

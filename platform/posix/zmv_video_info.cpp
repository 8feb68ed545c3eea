// Picture size and further properties from a decoder configuration, whichever form it has.
#include "base/fourcc.h"
#include "base/zmv_result.h"
#include "facade/zmvstream_media.h"
#include "platform/posix/zmv_config_record.h"
#include "platform/posix/zmv_h26x_sps.h"
#include "platform/zmv_codec.h"

namespace zmv::codec {
namespace {

struct CodecRow {
  uint32_t fourcc;
  Codec codec;
};

constexpr CodecRow kCodecs[] = {
    {FourCC("AVC1"), Codec::kAvc},  {FourCC("avc1"), Codec::kAvc},  {FourCC("H264"), Codec::kAvc},
    {FourCC("h264"), Codec::kAvc},  {FourCC("X264"), Codec::kAvc},  {FourCC("avc3"), Codec::kAvc},
    {FourCC("hvc1"), Codec::kHevc}, {FourCC("HVC1"), Codec::kHevc}, {FourCC("hev1"), Codec::kHevc},
    {FourCC("HEV1"), Codec::kHevc}, {FourCC("H265"), Codec::kHevc}, {FourCC("h265"), Codec::kHevc},
    {FourCC("HEVC"), Codec::kHevc},
};

// The first SPS of a configuration in either form.
NalSpan FindSps(Codec codec, const uint8_t* config, uint32_t size) {
  const uint8_t wanted = codec == Codec::kAvc ? uint8_t{kAvcSps} : uint8_t{kHevcSps};
  NalSpan found;
  if (IsStartCodeForm(config, size)) {
    ParameterSetWalker walker(codec, config, size);
    NalSpan unit;
    while (found.data == nullptr && walker.Next(&unit)) {
      if (TypeOf(codec, unit) == wanted) found = unit;
    }
    return found;
  }
  if (size == 0 || config[0] != kRecordVersion) return found;
  // The unit's own type is tested too, so that one kind of record is not taken for the other.
  const auto take = [&](uint8_t type, const NalSpan& unit) {
    if (found.data == nullptr && type == wanted && TypeOf(codec, unit) == wanted) found = unit;
  };
  if (codec == Codec::kAvc) {
    VisitAvcRecord(config, size, take);
  } else {
    VisitHevcRecord(config, size, take);
  }
  return found;
}

// Units of a record are always escaped; in start-code form both occur, and an unescaped one mostly shows it.
SpsDepth Describe(Codec codec, const uint8_t* config, uint32_t size, SpsInfo* info) {
  *info = SpsInfo{};
  const NalSpan sps = FindSps(codec, config, size);
  if (sps.data == nullptr) return SpsDepth::kNothing;
  const Escaping escaping = IsEscaped(sps) ? Escaping::kEscaped : Escaping::kRaw;
  return codec == Codec::kAvc ? ParseAvcSps(sps, escaping, info) : ParseHevcSps(sps, escaping, info);
}

SpsDepth DescribeByFourCC(uint32_t fourcc, const uint8_t* config, uint32_t size, SpsInfo* info) {
  for (const CodecRow& row : kCodecs) {
    if (row.fourcc == fourcc) return Describe(row.codec, config, size, info);
  }
  // Headers of parameter sets differ between the two standards, so an unnamed configuration speaks for itself.
  const SpsDepth depth = Describe(Codec::kAvc, config, size, info);
  return depth >= SpsDepth::kPicture ? depth : Describe(Codec::kHevc, config, size, info);
}

void Publish(const SpsInfo& info, Codec codec, ZMVCodecInfo* out) {
  out->dwWidth = info.width;
  out->dwHeight = info.height;
  out->dwCodedWidth = info.coded_width;
  out->dwCodedHeight = info.coded_height;
  out->dwProfile = info.profile;
  out->dwLevel = info.level;
  out->dwTier = info.tier;
  out->dwCompatibility = info.compatibility;
  out->llConstraint = info.constraints;
  out->dwChromaFormat = info.chroma_format;
  out->dwBitDepthLuma = info.bit_depth_luma;
  out->dwBitDepthChroma = info.bit_depth_chroma;
  out->dwInterlaced = info.interlaced ? 1 : 0;
  out->dwAspectWidth = info.vui.sample_aspect_width;
  out->dwAspectHeight = info.vui.sample_aspect_height;
  out->dwFullRange = info.vui.full_range ? 1 : 0;
  out->dwColourPrimaries = info.vui.colour_primaries;
  out->dwTransfer = info.vui.transfer;
  out->dwMatrix = info.vui.matrix;
  if (info.vui.units_in_tick == 0 || info.vui.time_scale == 0) return;
  // An H.264 tick is a field, an HEVC tick a picture.
  const uint32_t ticks_per_frame = codec == Codec::kAvc ? 2 : 1;
  out->llRateNum = info.vui.time_scale;
  out->llRateDen = uint64_t{info.vui.units_in_tick} * ticks_per_frame;
}

}  // namespace
}  // namespace zmv::codec

extern "C" int32_t ZMVUtil_GetVideoInfo(const uint8_t* config, uint32_t size, struct ZMVVideoInfo* video) {
  using namespace zmv::codec;
  if (video == nullptr) return zmv::Result(ZMV_E_FAIL);
  if (config == nullptr || size == 0) return 0;
  SpsInfo info;
  if (DescribeByFourCC(video->dwFourCC, config, size, &info) < SpsDepth::kPicture) return zmv::Result(ZMV_E_FAIL);
  if (video->dwWidth == 0) video->dwWidth = info.width;
  if (video->dwHeight == 0) video->dwHeight = info.height;
  return 0;
}

extern "C" int32_t ZMVCodec_Describe(const uint8_t* config, uint32_t size, int hevc, ZMVCodecInfo* out) {
  using namespace zmv::codec;
  if (config == nullptr || out == nullptr) return zmv::Result(ZMV_E_FAIL);
  const Codec codec = hevc != 0 ? Codec::kHevc : Codec::kAvc;
  SpsInfo info;
  const SpsDepth depth = Describe(codec, config, size, &info);
  *out = ZMVCodecInfo{};
  Publish(info, codec, out);
  return depth >= SpsDepth::kPicture ? 0 : zmv::Result(ZMV_E_FAIL);
}

#include "tools/zmv/config_text.h"

#include <fmt/core.h>

#include <algorithm>
#include <cctype>

#include "platform/zmv_codec.h"
#include "tools/zmv/aac.h"
#include "tools/zmv/stream_file.h"

namespace zmv::tool {
namespace {

struct NameRow {
  uint32_t value;
  const char* name;
};

template <size_t kCount>
std::string NameOf(const NameRow (&rows)[kCount], uint32_t value) {
  for (const NameRow& row : rows) {
    if (row.value == value) return row.name;
  }
  return fmt::format("{}", value);
}

// ISO/IEC 14496-10 Annex A, 23008-2 Annex A, 14496-3 table 1.17.
constexpr NameRow kAvcProfiles[] = {{66, "Baseline"}, {77, "Main"},        {88, "Extended"},   {100, "High"},
                                    {110, "High 10"}, {122, "High 4:2:2"}, {244, "High 4:4:4"}};
constexpr NameRow kHevcProfiles[] = {{1, "Main"}, {2, "Main 10"}, {3, "Main Still Picture"}, {4, "Range Extensions"}};
constexpr NameRow kAacTypes[] = {{1, "Main"}, {2, "LC"}, {3, "SSR"}, {4, "LTP"}, {5, "HE"}, {29, "HE v2"}};

constexpr size_t kAvcProfileBytes = 4;
constexpr const char* kUnknown = "unknown";
constexpr uint8_t kConstrained = 0x40;
constexpr uint8_t kAvcSps = 7;
constexpr uint32_t kHevcLevelUnit = 30;

const char* SetName(VideoCodec codec, uint8_t type) {
  if (codec == VideoCodec::kHevc) return type == 32 ? "VPS" : type == 33 ? "SPS" : "PPS";
  return type == kAvcSps ? "SPS" : type == 8 ? "PPS" : "SPS extension";
}

void DescribeAvc(ByteView sps, CodecText& text) {
  if (sps.size() < kAvcProfileBytes) return;
  text.profile = NameOf(kAvcProfiles, sps[1]);
  constexpr uint8_t kBaseline = 66;
  if (sps[1] == kBaseline && (sps[2] & kConstrained) != 0) text.profile = "Constrained Baseline";
  text.level = fmt::format("{}.{}", sps[3] / 10, sps[3] % 10);
}

void DescribeHevc(const ZMVVideoInfo& video, CodecText& text) {
  const uint32_t extra = std::min<uint32_t>(video.dwExtraDataSize, sizeof(video.abExtraData));
  Bytes plain(video.abExtraData, video.abExtraData + extra);
  uint32_t size = extra;
  ZMVUtil_H26xRemoveEPB(plain.data(), &size);
  Bytes escaped(2 * sizeof(video.abExtraData));
  UtilHevcInfo info{};
  info.pBuffer = escaped.data();
  info.dwBufferSize = static_cast<uint32_t>(escaped.size());
  UtilConvH265InfoFromStartCode(plain.data(), size, &info);
  if (info.sps.pData == nullptr) return;
  text.profile = NameOf(kHevcProfiles, info.bProfile);
  text.level = fmt::format("{}.{}{}", info.bLevel / kHevcLevelUnit, info.bLevel % kHevcLevelUnit / 3,
                           info.bTier != 0 ? " high tier" : "");
}

}  // namespace

std::string HexText(ByteView bytes) {
  std::string text;
  for (const uint8_t byte : bytes) text += fmt::format("{}{:02x}", text.empty() ? "" : " ", byte);
  return text;
}

std::optional<VideoCodec> CodecOf(uint32_t fourcc) {
  std::string code = CodeText(fourcc);
  std::transform(code.begin(), code.end(), code.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  if (code == "h264" || code == "x264" || code == "avc1") return VideoCodec::kH264;
  if (code == "h265" || code == "hevc" || code == "hvc1" || code == "hev1") return VideoCodec::kHevc;
  return std::nullopt;
}

CodecText DescribeVideo(const ZMVVideoInfo& video) {
  CodecText text;
  const std::optional<VideoCodec> codec = CodecOf(video.dwFourCC);
  if (!codec) {
    text.name = video.dwFourCC == 0 ? kUnknown : CodeText(video.dwFourCC);
    return text;
  }
  text.name = *codec == VideoCodec::kH264 ? "H.264" : "HEVC";
  const uint32_t extra = std::min<uint32_t>(video.dwExtraDataSize, sizeof(video.abExtraData));
  for (const ByteView set : SplitNals(ByteView(video.abExtraData, extra))) {
    const uint8_t type = NalType(*codec, set);
    text.sets.push_back({SetName(*codec, type), HexText(set)});
    if (*codec == VideoCodec::kH264 && type == kAvcSps && text.profile.empty()) DescribeAvc(set, text);
  }
  if (*codec == VideoCodec::kHevc) DescribeHevc(video, text);
  return text;
}

CodecText DescribeAudio(const ZMVAudioInfo& audio) {
  CodecText text;
  const uint32_t extra = std::min<uint32_t>(audio.dwExtraDataSize, sizeof(audio.abExtraData));
  switch (audio.dwFormat) {
    case ZMV_AUDIO_AAC:
      text.name = "AAC";
      if (extra > 0) text.profile = NameOf(kAacTypes, audio.abExtraData[0] >> 3);
      break;
    case ZMV_AUDIO_MPEG:
      text.name = "MP3";
      break;
    case ZMV_AUDIO_PCM:
    case ZMV_AUDIO_PCM_LE:
      text.name = "PCM";
      break;
    case ZMV_AUDIO_ALAW:
      text.name = "A-law";
      break;
    case ZMV_AUDIO_MULAW:
      text.name = "mu-law";
      break;
    default:
      text.name = audio.dwFormat == 0 ? kUnknown : fmt::format("0x{:X}", audio.dwFormat);
      break;
  }
  if (extra > 0) text.sets.push_back({"config", HexText(ByteView(audio.abExtraData, extra))});
  return text;
}

}  // namespace zmv::tool

#include "demo/demo_record.h"

#include <algorithm>
#include <cstdio>
#include <memory>
#include <stdexcept>

#include "facade/zmvstream_writer.h"
#include "tools/zmv/duration_clock.h"
#include "tools/zmv/recorder.h"
#include "tools/zmv/tool_error.h"

namespace zmv::demo {
namespace {

constexpr uint32_t kAacBits = 16;
constexpr uint32_t kAacSamples = 1024;
constexpr uint32_t kWidth = 640;
constexpr uint32_t kHeight = 360;

struct CloseWriter {
  void operator()(ZMVWriter* writer) const { ZMVWriterClose(writer); }
};

void Check(int32_t result, const std::string& path, const char* what) {
  if (result < 0) throw std::runtime_error(path + ": " + what + ": " + tool::ResultText(result));
}

void Describe(const DemoStream& stream, ZMVFileInfo& info) {
  const auto configuration_size = static_cast<uint32_t>(stream.configuration.size());
  if (stream.media == ZMV_MEDIA_VIDEO) {
    ZMVVideoInfo& video = info.m_Video[info.dwVideoCount++];
    video.dwFourCC = stream.codec == "HEVC" ? ZMV_FOURCC('H', '2', '6', '5') : ZMV_FOURCC('H', '2', '6', '4');
    video.dwWidth = kWidth;
    video.dwHeight = kHeight;
    video.dwFrameRate = stream.rate;
    video.dwFixedRate = stream.rate;  // else an AVI gets the rate that is measured in milliseconds
    video.dwTimeScale = tool::kVideoTimeScale;
    std::copy(stream.configuration.begin(), stream.configuration.end(), video.abExtraData);
    video.dwExtraDataSize = configuration_size;
  } else if (stream.media == ZMV_MEDIA_AUDIO) {
    ZMVAudioInfo& audio = info.m_Audio;
    info.dwAudioCount = 1;
    audio.dwFormat = ZMV_AUDIO_AAC;
    audio.dwSampleRate = stream.rate;
    audio.dwChannels = stream.channels;
    audio.dwBitsPerSample = kAacBits;
    audio.dwSamplesPerFrame = kAacSamples;
    std::copy(stream.configuration.begin(), stream.configuration.end(), audio.abExtraData);
    audio.dwExtraDataSize = configuration_size;
  } else {
    ZMVTextInfo& text = info.m_Text[info.dwTextCount++];
    text.dwFourCC = ZMV_FOURCC('G', 'P', 'S', ' ');
    text.dwRate = stream.rate;
    text.dwFixedRate = stream.rate;
    text.dwTimeScale = tool::kTextTimeScale;
  }
}

// One stream on its way into the file.
struct Lane {
  const DemoStream* stream;
  tool::DurationClock clock;
  size_t next = 0;

  bool done() const { return next == stream->frames.size(); }
  int64_t time_us() const { return stream->frames[next].time_us; }
};

// Video durations are microseconds in an MP4, milliseconds in an AVI.
Lane MakeLane(const DemoStream& stream, bool avi) {
  if (avi) return {&stream, tool::DurationClock(tool::kMilliseconds, tool::kMilliseconds, stream.nominal_us)};
  const bool video = stream.media == ZMV_MEDIA_VIDEO;
  const uint32_t scale = video                             ? tool::kVideoTimeScale
                         : stream.media == ZMV_MEDIA_AUDIO ? stream.rate
                                                           : tool::kTextTimeScale;
  return {&stream, tool::DurationClock(scale, video ? tool::kMicroseconds : tool::kMilliseconds, stream.nominal_us)};
}

void WriteNext(ZMVWriter* writer, const std::string& path, Lane& lane) {
  const DemoFrame& source = lane.stream->frames[lane.next];
  Bytes payload = source.payload;
  ZMVFrame frame{};
  frame.pData = payload.data();
  frame.dwSize = static_cast<uint32_t>(payload.size());
  frame.llTimeStamp = static_cast<uint64_t>((source.time_us + 500) / 1000);
  frame.dwDuration = lane.clock.Next(source.time_us);
  frame.dwMediaType = lane.stream->media;
  frame.dwKeyFrame = source.key ? ZMV_KEY_FRAME : ZMV_NOT_KEY_FRAME;
  Check(ZMVWriterWrite(writer, &frame), path, "a frame cannot be written");
  ++lane.next;
}

}  // namespace

void Record(const std::string& path, const std::vector<DemoStream>& streams) {
  auto info = std::make_unique<ZMVFileInfo>();
  info->m_dwFileType = 1;
  info->dwTimeScale = tool::kVideoTimeScale;
  // A text that begins with F makes the MP4 writer collect positions in the boxes GPSR and SENS.
  std::snprintf(info->szSoftware, sizeof(info->szSoftware), "F zmv demo");
  std::vector<Lane> lanes;
  int64_t end_us = 0;
  for (const DemoStream& stream : streams) {
    Describe(stream, *info);
    lanes.push_back(MakeLane(stream, IsAvi(path)));
    end_us = std::max(end_us, stream.frames.back().time_us + stream.nominal_us);
  }
  info->dwDuration = static_cast<uint32_t>(end_us / 1000);

  ZMVWriterParam param{};
  param.dwFormat = IsAvi(path) ? ZMV_FORMAT_AVI : ZMV_FORMAT_MP4;
  param.pszPath = path.c_str();
  param.bInterleave = 1;
  param.llExpire = static_cast<uint64_t>(end_us / 1000);
  ZMVWriter* opened = nullptr;
  Check(ZMVWriterOpen(&opened, &param), path, "cannot be written");
  const std::unique_ptr<ZMVWriter, CloseWriter> writer(opened);
  Check(ZMVWriterSetInfo(opened, info.get(), 0), path, "its streams cannot be set up");
  while (true) {
    // The frame with the lowest time; streams are given video first, which settles ties.
    const auto open_lane = [](const Lane& a, const Lane& b) {
      return !a.done() && (b.done() || a.time_us() < b.time_us());
    };
    const auto next = std::min_element(lanes.begin(), lanes.end(), open_lane);
    if (next == lanes.end() || next->done()) break;
    WriteNext(opened, path, *next);
  }
}

}  // namespace zmv::demo

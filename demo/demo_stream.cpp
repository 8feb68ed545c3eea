#include "demo/demo_stream.h"

#include <fstream>
#include <iterator>
#include <stdexcept>

#include "tools/zmv/aac.h"
#include "tools/zmv/gps_file.h"

namespace zmv::demo {
namespace {

constexpr int64_t kSecondUs = 1000000;
constexpr int64_t kPicturesPerSecond = 30;
constexpr uint32_t kThousandths = 1000;

Bytes ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) throw std::runtime_error(path + ": cannot be opened");
  return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

}  // namespace

DemoStream LoadVideo(const std::string& path, VideoCodec codec) {
  const Bytes file = ReadFile(path);
  tool::PictureFilter filter(codec);
  filter.Learn(file);
  DemoStream stream;
  stream.media = ZMV_MEDIA_VIDEO;
  stream.codec = codec == VideoCodec::kH264 ? "H.264" : "HEVC";
  stream.configuration = filter.ParameterSets();
  stream.nominal_us = kSecondUs / kPicturesPerSecond;
  stream.rate = kPicturesPerSecond * kThousandths;
  for (const ByteView nal : tool::SplitNals(file)) {
    if (tool::ClassifyNal(codec, nal) != tool::NalKind::kPicture) continue;
    // One NAL unit is one picture in these samples.
    DemoFrame frame;
    tool::AppendNal(nal, frame.payload);
    frame.time_us = static_cast<int64_t>(stream.frames.size()) * kSecondUs / kPicturesPerSecond;
    frame.key = tool::IsRandomAccess(codec, nal);
    stream.frames.push_back(std::move(frame));
  }
  if (stream.frames.empty() || *filter.Missing() != '\0') throw std::runtime_error(path + ": holds no video");
  return stream;
}

DemoStream LoadAac(const std::string& path) {
  const Bytes file = ReadFile(path);
  DemoStream stream;
  stream.media = ZMV_MEDIA_AUDIO;
  stream.codec = "AAC";
  ByteView rest(file);
  while (const auto adts = tool::ParseAdtsFrame(rest)) {
    if (stream.frames.empty()) {
      const auto configuration = tool::MakeAudioSpecificConfig(adts->config);
      stream.configuration.assign(configuration.begin(), configuration.end());
      stream.rate = tool::AacSampleRate(adts->config.frequency_index);
      stream.channels = adts->config.channel_config;
      stream.nominal_us = tool::kAacSamplesPerFrame * kSecondUs / stream.rate;
    }
    DemoFrame frame;
    frame.payload.assign(adts->payload.begin(), adts->payload.end());
    frame.time_us = static_cast<int64_t>(stream.frames.size()) * tool::kAacSamplesPerFrame * kSecondUs / stream.rate;
    frame.key = true;
    stream.frames.push_back(std::move(frame));
    rest = rest.subspan(adts->size);
  }
  if (stream.frames.empty() || !rest.empty())
    throw std::runtime_error(path + ": holds something else than ADTS frames");
  return stream;
}

DemoStream LoadGps(const std::string& path) {
  const tool::GpsTrack track = tool::LoadGpsFile(path);
  DemoStream stream;
  stream.media = ZMV_MEDIA_TEXT;
  stream.codec = "GPS";
  const int64_t start_us = *track.points.front().utc_us;
  for (const tool::GpsPoint& point : track.points) {
    const tool::TelemetryPayload payload = tool::PackTelemetry(point);
    stream.frames.push_back({Bytes(payload.begin(), payload.end()), *point.utc_us - start_us, true});
  }
  stream.nominal_us = stream.frames.size() > 1 ? stream.frames[1].time_us : kSecondUs;
  stream.rate = static_cast<uint32_t>(kSecondUs * kThousandths / stream.nominal_us);
  return stream;
}

DemoStream InAvi(const DemoStream& stream) {
  DemoStream changed = stream;
  if (stream.codec != "H.264") return changed;
  for (DemoFrame& frame : changed.frames) {
    if (frame.key) {
      frame.payload.insert(frame.payload.begin(), stream.configuration.begin(), stream.configuration.end());
    }
  }
  changed.configuration.clear();
  return changed;
}

bool IsAvi(const std::string& path) { return path.ends_with(".avi"); }

}  // namespace zmv::demo

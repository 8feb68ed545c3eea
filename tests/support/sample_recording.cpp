#include "tests/support/sample_recording.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace zmv::test {
namespace {

constexpr uint32_t kFramesPerSecond = 30;
constexpr uint32_t kAacSamples = 1024;
constexpr uint32_t kAacRate = 48000;

uint64_t RoundedDivide(uint64_t value, uint64_t by) { return (value + by / 2) / by; }

// The units between start codes of three or four bytes.
std::vector<std::vector<uint8_t>> SplitUnits(const std::vector<uint8_t>& stream) {
  std::vector<std::vector<uint8_t>> units;
  size_t begin = 0;
  auto close = [&](size_t end) {
    while (end > begin && stream[end - 1] == 0) --end;
    if (begin != 0 && end > begin)
      units.emplace_back(stream.begin() + static_cast<ptrdiff_t>(begin), stream.begin() + static_cast<ptrdiff_t>(end));
  };
  for (size_t i = 0; i + 3 <= stream.size(); ++i) {
    if (stream[i] != 0 || stream[i + 1] != 0 || stream[i + 2] != 1) continue;
    close(i);
    begin = i + 3;
  }
  close(stream.size());
  return units;
}

std::vector<uint8_t> WithStartCode(const std::vector<uint8_t>& unit) {
  std::vector<uint8_t> bytes(4 + unit.size());
  bytes[3] = 1;
  std::copy(unit.begin(), unit.end(), bytes.begin() + 4);
  return bytes;
}

struct UnitKind {
  bool parameter;
  bool slice;
  bool key;
};

UnitKind ClassifyH264(uint8_t head) {
  unsigned type = head & 0x1F;
  return {type == 7 || type == 8, type == 1 || type == 5, type == 5};
}

UnitKind ClassifyHevc(uint8_t head) {
  unsigned type = (head >> 1) & 0x3F;
  return {type >= 32 && type <= 34, type <= 21, type >= 16 && type <= 21};
}

SampleStream LoadVideo(const std::string& name, uint32_t fourcc, UnitKind (*classify)(uint8_t)) {
  SampleStream stream;
  stream.fourcc = fourcc;
  uint64_t last_us = 0;
  bool first_picture_seen = false;
  for (const auto& unit : SplitUnits(ReadWholeFile(SamplesFolder() + "/" + name))) {
    UnitKind kind = classify(unit[0]);
    if (kind.parameter && !first_picture_seen) {
      auto bytes = WithStartCode(unit);
      stream.parameters.insert(stream.parameters.end(), bytes.begin(), bytes.end());
    }
    if (!kind.slice) continue;
    first_picture_seen = true;
    SampleFrame frame;
    uint64_t us = RoundedDivide(stream.frames.size() * uint64_t{1000000}, kFramesPerSecond);
    frame.time_ms = RoundedDivide(us, 1000);
    frame.duration = stream.frames.empty() ? 33333 : static_cast<uint32_t>(us - last_us);
    frame.key = kind.key;
    frame.payload = WithStartCode(unit);
    last_us = us;
    stream.frames.push_back(std::move(frame));
  }
  return stream;
}

}  // namespace

std::string SamplesFolder() {
  const char* folder = std::getenv("ZMV_SAMPLES");
  return folder != nullptr ? folder : "samples";
}

std::vector<uint8_t> ReadWholeFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::vector<uint8_t> bytes{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  if (bytes.empty()) throw std::runtime_error("cannot read " + path);  // a test on nothing would pass
  return bytes;
}

SampleStream LoadH264(const std::string& name) { return LoadVideo(name, ZMV_FOURCC('H', '2', '6', '4'), ClassifyH264); }

SampleStream LoadHevc(const std::string& name) { return LoadVideo(name, ZMV_FOURCC('H', '2', '6', '5'), ClassifyHevc); }

SampleStream LoadAac(const std::string& name) {
  SampleStream stream;
  stream.fourcc = ZMV_AUDIO_AAC;
  std::vector<uint8_t> adts = ReadWholeFile(SamplesFolder() + "/" + name);
  uint64_t last_ms = 0;
  for (size_t at = 0; at + 7 <= adts.size();) {
    const uint8_t* head = adts.data() + at;
    size_t header = (head[1] & 1) != 0 ? 7 : 9;
    size_t size = (static_cast<size_t>(head[3] & 3) << 11) | (static_cast<size_t>(head[4]) << 3) | (head[5] >> 5);
    if (head[0] != 0xFF || size < header || at + size > adts.size()) break;
    if (stream.parameters.empty()) {
      // AudioSpecificConfig: object type, rate index, channel configuration.
      unsigned type = static_cast<unsigned>(head[2] >> 6) + 1;
      unsigned rate = (head[2] >> 2) & 15;
      unsigned channels = ((head[2] & 1u) << 2) | (head[3] >> 6);
      unsigned config = (type << 11) | (rate << 7) | (channels << 3);
      stream.parameters = {static_cast<uint8_t>(config >> 8), static_cast<uint8_t>(config)};
    }
    SampleFrame frame;
    frame.media = ZMV_MEDIA_AUDIO;
    frame.time_ms = RoundedDivide(stream.frames.size() * uint64_t{kAacSamples} * 1000, kAacRate);
    frame.duration = stream.frames.empty() ? 21 : static_cast<uint32_t>(frame.time_ms - last_ms);
    frame.payload.assign(head + header, head + size);
    last_ms = frame.time_ms;
    stream.frames.push_back(std::move(frame));
    at += size;
  }
  return stream;
}

SampleStream MakeGpsText(uint32_t seconds, uint32_t rate) {
  SampleStream stream;
  stream.fourcc = ZMV_FOURCC('G', 'P', 'S', ' ');
  for (uint32_t i = 0; i < seconds * rate; ++i) {
    SampleFrame frame;
    frame.media = ZMV_MEDIA_TEXT;
    frame.time_ms = uint64_t{i} * 1000 / rate;
    frame.duration = 1000 / rate;
    frame.payload.resize(92);
    for (size_t k = 0; k < frame.payload.size(); ++k) frame.payload[k] = static_cast<uint8_t>(i * 7 + k);
    stream.frames.push_back(std::move(frame));
  }
  return stream;
}

ZMVFileInfo DescribeSamples(const SampleSet& set) {
  ZMVFileInfo info{};
  info.m_dwFileType = 1;
  info.dwTimeScale = 90000;
  if (set.video != nullptr) {
    ZMVVideoInfo& video = info.m_Video[info.dwVideoCount++];
    video.dwFourCC = set.video->fourcc;
    video.dwWidth = set.width;
    video.dwHeight = set.height;
    video.dwFrameRate = kFramesPerSecond * 1000;
    video.dwTimeScale = 90000;
    video.dwBitRate = 400000;
    video.dwProjectionMode = set.projection;
    video.dwExtraDataSize = static_cast<uint32_t>(std::min<size_t>(set.video->parameters.size(), ZMV_MAX_EXTRA_DATA));
    std::memcpy(video.abExtraData, set.video->parameters.data(), video.dwExtraDataSize);
  }
  if (set.audio != nullptr) {
    ZMVAudioInfo& audio = info.m_Audio;
    info.dwAudioCount = 1;
    audio.dwFormat = set.audio->fourcc;
    audio.dwSampleRate = kAacRate;
    audio.dwChannels = 2;
    audio.dwBitsPerSample = 16;
    audio.dwSamplesPerFrame = kAacSamples;
    audio.dwBitRate = 64000;
    audio.dwExtraDataSize = static_cast<uint32_t>(set.audio->parameters.size());
    std::memcpy(audio.abExtraData, set.audio->parameters.data(), audio.dwExtraDataSize);
  }
  if (set.text != nullptr) {
    ZMVTextInfo& text = info.m_Text[info.dwTextCount++];
    text.dwFourCC = set.text->fourcc;
    text.dwRate = 10;
    text.dwTimeScale = 1000;
    std::strcpy(info.szSoftware, "F test");
  }
  return info;
}

std::vector<const SampleFrame*> MergeSamples(const SampleSet& set) {
  std::vector<const SampleFrame*> frames;
  for (const SampleStream* stream : {set.video, set.audio, set.text}) {
    if (stream == nullptr) continue;
    for (const SampleFrame& frame : stream->frames) frames.push_back(&frame);
  }
  std::stable_sort(frames.begin(), frames.end(),
                   [](const SampleFrame* a, const SampleFrame* b) { return a->time_ms < b->time_ms; });
  return frames;
}

int32_t RecordSamples(const std::string& path, const SampleSet& set) {
  ZMVWriterParam param{};
  param.dwFormat = ZMV_FORMAT_MP4;
  param.pszPath = path.c_str();
  param.bInterleave = set.interleave;
  param.llExpire = set.expire_ms;
  ZMVWriter* writer = nullptr;
  int32_t result = ZMVWriterOpen(&writer, &param);
  if (result < 0) return result;
  ZMVFileInfo info = DescribeSamples(set);
  result = ZMVWriterSetInfo(writer, &info, 0);
  for (const SampleFrame* source : MergeSamples(set)) {
    if (result < 0) break;
    ZMVFrame frame{};
    frame.pData = const_cast<uint8_t*>(source->payload.data());
    frame.dwSize = static_cast<uint32_t>(source->payload.size());
    frame.llTimeStamp = source->time_ms;
    frame.dwDuration = source->duration;
    frame.dwMediaType = source->media;
    frame.dwKeyFrame = source->key ? ZMV_KEY_FRAME : ZMV_NOT_KEY_FRAME;
    result = ZMVWriterWrite(writer, &frame);
  }
  ZMVWriterClose(writer);
  return result;
}

}  // namespace zmv::test

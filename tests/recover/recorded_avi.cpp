#include "tests/recover/recorded_avi.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "avi/zmvstream_avi_writer.h"
#include "base/byte_order.h"
#include "base/fourcc.h"
#include "stream/zmvstream_buf.h"

namespace zmv::test {
namespace {

constexpr unsigned kSeed = 7;

void Sort(std::vector<AviFrame>& frames) {
  std::stable_sort(frames.begin(), frames.end(), [](const AviFrame& a, const AviFrame& b) { return a.time < b.time; });
}

uint32_t At(const ByteVector& file, uint64_t position) {
  return position + 4 <= file.size() ? LoadLE32(&file[position]) : 0;
}

std::string CodeAt(const ByteVector& file, uint64_t position) {
  if (position + 4 > file.size()) return "";
  const auto begin = file.begin() + static_cast<ptrdiff_t>(position);
  return std::string(begin, begin + 4);
}

ByteVector Part(const ByteVector& file, uint64_t position, uint64_t count) {
  if (position > file.size() || count > file.size() - position) return {};
  const auto begin = file.begin() + static_cast<ptrdiff_t>(position);
  return ByteVector(begin, begin + static_cast<ptrdiff_t>(count));
}

// Frames of tracks that are not described go into the last stream.
uint32_t StreamOf(const ZMVFileInfo& info, const AviFrame& frame) {
  const bool described = frame.track < (frame.media == ZMV_MEDIA_VIDEO   ? info.dwVideoCount
                                        : frame.media == ZMV_MEDIA_AUDIO ? info.dwAudioCount
                                                                         : info.dwTextCount);
  if (!described) return info.dwVideoCount + info.dwAudioCount + info.dwTextCount - 1;
  if (frame.media == ZMV_MEDIA_VIDEO) return frame.track;
  return frame.track + info.dwVideoCount + (frame.media == ZMV_MEDIA_TEXT ? info.dwAudioCount : 0);
}

std::string CodeOf(const ZMVFileInfo& info, const AviFrame& frame) {
  const char* type = frame.media == ZMV_MEDIA_VIDEO ? "dc" : frame.media == ZMV_MEDIA_AUDIO ? "wb" : "tx";
  return std::string("0") + static_cast<char>('0' + StreamOf(info, frame)) + type;
}

// Position of the movi list's header; 0 = none. The chunks in front of it are walked.
uint64_t MoviOf(const ByteVector& file) {
  const auto found = FindCode(file, "movi");
  return found == file.end() ? 0 : static_cast<uint64_t>(found - file.begin()) - 8;
}

}  // namespace

ByteVector AviNoise(uint32_t seed, size_t size) {
  ByteVector bytes(size);
  uint64_t x = seed * uint64_t{0x9E3779B97F4A7C15} + 1;
  for (uint8_t& byte : bytes) {
    x = x * 6364136223846793005u + 1442695040888963407u;
    byte = static_cast<uint8_t>(1 + (x >> 33) % 255);
  }
  return bytes;
}

ByteVector Picture(uint32_t code, bool key, uint32_t seed, size_t size) {
  const bool hevc = code == FourCC("H265");
  // Key pictures follow their parameter sets, as encoders write them.
  const ByteVector sets =
      hevc ? Hex("00000001 40010C01 00000001 42010101 00000001 4401C172") : Hex("00000001 6742C01E 00000001 68CE3C80");
  ByteVector bytes = key ? sets : ByteVector();
  const ByteVector head =
      hevc ? (key ? Hex("00000001 2601") : Hex("00000001 0201")) : (key ? Hex("00000001 65") : Hex("00000001 41"));
  bytes.insert(bytes.end(), head.begin(), head.end());
  const ByteVector rest = AviNoise(seed, size > bytes.size() ? size - bytes.size() : 1);
  bytes.insert(bytes.end(), rest.begin(), rest.end());
  return bytes;
}

ZMVFileInfo AviInfo() {
  ZMVFileInfo info = {};
  info.dwVideoCount = info.dwAudioCount = info.dwTextCount = 1;
  std::strncpy(info.szSoftware, "camera 1.2", sizeof info.szSoftware - 1);
  ZMVVideoInfo& video = info.m_Video[0];
  video.dwFourCC = FourCC("H264");
  video.dwWidth = 640;
  video.dwHeight = 360;
  video.dwFrameRate = 25000;
  video.dwPriority = 3;
  ZMVAudioInfo& audio = info.m_Audio;
  audio.dwFormat = ZMV_AUDIO_AAC;
  audio.dwSampleRate = 48000;
  audio.dwChannels = 2;
  audio.dwBitsPerSample = 16;
  audio.dwSamplesPerFrame = 1024;
  audio.dwBitRate = 128000;
  audio.abExtraData[0] = 0x11;
  audio.abExtraData[1] = 0x90;
  audio.abExtraData[2] = 0x56;
  audio.dwExtraDataSize = 3;  // an odd form, which gets no pad
  info.m_Text[0].dwFourCC = FourCC("gps ");
  info.m_Text[0].dwRate = 10000;
  info.m_Text[0].dwFixedRate = 10000;
  return info;
}

std::vector<AviFrame> AviFrames() {
  std::vector<AviFrame> frames;
  for (uint32_t i = 0; i < 24; ++i) {
    const bool key = i % 6 == 0;
    const size_t size = key ? 600 + 41 * i : 30 + 3 * i;
    frames.push_back({ZMV_MEDIA_VIDEO, 0, 40 * i, 40, key, Picture(FourCC("H264"), key, i, size)});
  }
  for (uint32_t i = 0; i < 40; ++i) {
    ByteVector payload = AviNoise(1000 + i, i == 20 ? 1401 : 20 + i % 7);
    if (i % 5 == 1) payload.back() = 0;
    frames.push_back({ZMV_MEDIA_AUDIO, 0, i * 64 / 3, 21, true, payload});
  }
  for (uint32_t i = 0; i < 9; ++i) {
    ByteVector payload = AviNoise(2000 + i, i == 4 ? 0 : 90 + i % 3);
    for (size_t k = 10; k < payload.size(); k += 3) payload[k] = 0;
    frames.push_back({ZMV_MEDIA_TEXT, 0, i * 100, 100, true, payload});
  }
  Sort(frames);
  return frames;
}

ZMVFileInfo HevcPcmInfo() {
  ZMVFileInfo info = {};
  info.dwVideoCount = info.dwAudioCount = 1;
  ZMVVideoInfo& video = info.m_Video[0];
  video.dwFourCC = FourCC("H265");
  video.dwWidth = 320;
  video.dwHeight = 240;
  video.dwFrameRate = 25000;
  const ByteVector sets = Hex("00000001 40010C01 00000001 42010101 00000001 4401C1");  // odd
  std::copy(sets.begin(), sets.end(), video.abExtraData);
  video.dwExtraDataSize = static_cast<uint32_t>(sets.size());
  ZMVAudioInfo& audio = info.m_Audio;
  audio.dwFormat = ZMV_AUDIO_PCM;
  audio.dwSampleRate = 8000;
  audio.dwChannels = 1;
  audio.dwBitsPerSample = 16;
  audio.dwSamplesPerFrame = 160;
  audio.dwBitRate = 128000;
  return info;
}

std::vector<AviFrame> HevcPcmFrames() {
  std::vector<AviFrame> frames;
  for (uint32_t i = 0; i < 20; ++i) {
    const bool key = i % 7 == 0;
    frames.push_back(
        {ZMV_MEDIA_VIDEO, 0, 40 * i, 40, key, Picture(FourCC("H265"), key, 300 + i, key ? 900 + i : 41 + 17 * i)});
  }
  for (uint32_t i = 0; i < 30; ++i) {
    ByteVector payload = AviNoise(4000 + i, 160);
    if (i % 4 == 3) std::fill(payload.begin(), payload.end(), uint8_t{0});
    frames.push_back({ZMV_MEDIA_AUDIO, 0, i * 20, 20, true, payload});
  }
  Sort(frames);
  return frames;
}

size_t AviRecording::CompleteIn(uint64_t length) const {
  return static_cast<size_t>(
      std::count_if(frames.begin(), frames.end(), [&](const AviFrame& frame) { return frame.end <= length; }));
}

AviRecording RecordAvi(ZMVFileInfo info, std::vector<AviFrame> frames, const std::function<void()>& before_close) {
  ScriptedHost& host = *ScriptedHost::Current();
  AviRecording recording;
  ZMVStreamBuf* stream = nullptr;
  AVIWriterHandle* writer = nullptr;
  EXPECT_EQ(ZMVStreamBuf_Open(&stream, kAviPath, 0, ZMV_STREAM_WRITE), 0);
  EXPECT_EQ(AVIWriterOpen(&writer, stream, 1, 0, 0.0), 0);
  std::srand(kSeed);
  EXPECT_EQ(AVIWriterSetInfo(writer, &info, 0.0), 0);
  recording.movi = host.File(kAviPath).size() - 4;
  for (AviFrame& frame : frames) {
    ZMVFrame written = {};
    written.pData = frame.payload.data();
    written.dwSize = static_cast<uint32_t>(frame.payload.size());
    written.llTimeStamp = frame.time;
    written.dwDuration = frame.duration;
    written.dwTrack = frame.track;
    written.dwMediaType = frame.media;
    written.dwKeyFrame = frame.key ? ZMV_KEY_FRAME : ZMV_NOT_KEY_FRAME;
    frame.position = host.File(kAviPath).size();
    EXPECT_EQ(AVIWriterWriteFrame(writer, &written), 0);
    frame.end = frame.position + 8 + frame.payload.size();
  }
  recording.open = host.File(kAviPath);
  if (before_close) before_close();
  AVIWriterClose(writer);
  ZMVStreamBuf_Close(stream);
  recording.closed = host.File(kAviPath);
  recording.frames = std::move(frames);
  return recording;
}

const ByteVector& AviReferences::ClosedBehind(size_t count) {
  auto found = closed_.find(count);
  if (found == closed_.end()) {
    const std::vector<AviFrame> first(frames_.begin(), frames_.begin() + static_cast<ptrdiff_t>(count));
    found = closed_.emplace(count, RecordAvi(info_, first).closed).first;
  }
  return found->second;
}

std::string CompareAviFrames(const ByteVector& file, const ZMVFileInfo& info, const std::vector<AviFrame>& frames,
                             bool gapless) {
  if (CodeAt(file, 0) != "RIFF" || CodeAt(file, 8) != "AVI ") return "no AVI file";
  const uint64_t list = MoviOf(file);
  if (list == 0) return "no movi list";
  const uint64_t movi = list + 8;
  const uint64_t index = movi + At(file, list + 4);
  if (CodeAt(file, index) != "idx1") return "no index behind the movi list";
  if (At(file, index + 4) != 16 * frames.size()) {
    return "index of " + std::to_string(At(file, index + 4) / 16) + " for " + std::to_string(frames.size());
  }
  uint64_t next = movi + 4;
  for (size_t i = 0; i < frames.size(); ++i) {
    const AviFrame& frame = frames[i];
    const uint64_t entry = index + 8 + 16 * i;
    const std::string name = "frame " + std::to_string(i) + " ";
    if (CodeAt(file, entry) != CodeOf(info, frame)) return name + "code " + CodeAt(file, entry);
    const bool key = frame.media != ZMV_MEDIA_VIDEO || frame.key;
    if (At(file, entry + 4) != (key ? 0x10u : 0u)) return name + "flags";
    if (At(file, entry + 12) != frame.payload.size()) return name + "size " + std::to_string(At(file, entry + 12));
    const uint64_t chunk = movi + At(file, entry + 8);
    if (gapless && chunk != next) return name + "place";
    if (CodeAt(file, chunk) != CodeOf(info, frame) || At(file, chunk + 4) != frame.payload.size())
      return name + "chunk";
    const std::string payload = Difference(Part(file, chunk + 8, frame.payload.size()), frame.payload);
    if (!payload.empty()) return name + payload;
    if (chunk < next || chunk >= index) return name + "order";
    next = chunk + 8 + frame.payload.size() + frame.payload.size() % 2;
  }
  if (gapless && next != index) return "more in the movi list";
  return "";
}

std::string CompareAvi(const ByteVector& file, const ZMVFileInfo& info, const std::vector<AviFrame>& frames,
                       bool gapless) {
  const std::string difference = CompareAviFrames(file, info, frames, gapless);
  if (!difference.empty()) return difference;
  const uint64_t list = MoviOf(file);
  const uint64_t name = list + 8 + At(file, list + 4) + 8 + 16 * frames.size();
  // A file whose name was not written is whole all the same.
  const bool named = CodeAt(file, name) == "JUNK" && At(file, name + 4) == 320;
  const uint64_t end = named ? name + 328 : name;
  if (At(file, 4) + uint64_t{8} != end) return "size of the form " + std::to_string(At(file, 4));
  // Half the header of a chunk that covers nothing does no harm.
  const bool covered = CodeAt(file, end) == "JUNK" && end + 8 + At(file, end + 4) == file.size();
  if (file.size() - end >= 8 && !covered) return "rest";
  return "";
}

}  // namespace zmv::test

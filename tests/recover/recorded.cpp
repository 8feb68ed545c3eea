#include "tests/recover/recorded.h"

#include <algorithm>
#include <cstdlib>

#include "base/fourcc.h"
#include "facade/zmvstream_reader.h"
#include "mp4/zmvstream_mp4_writer.h"
#include "stream/zmvstream_buf.h"

namespace zmv::test {
namespace {

constexpr uint32_t kSeed = 7;
constexpr const char* kPath = "recorded.mp4";
constexpr uint32_t kRecordBytes = 28;
constexpr uint32_t kDurationInRecord = 16;
constexpr uint64_t kLookBack = 65536;  // no spilled table of these recordings is larger

uint32_t Number(const ByteVector& bytes, size_t at) {
  return uint32_t{bytes.at(at)} << 24 | uint32_t{bytes.at(at + 1)} << 16 | uint32_t{bytes.at(at + 2)} << 8 |
         bytes.at(at + 3);
}

bool StartCoded(uint32_t code) {
  return code == FourCC("H264") || code == FourCC("H265") || code == FourCC("avc1") || code == FourCC("hvc1");
}

// A payload as it lies in the file.
ByteVector Stored(const TestFrame& frame, const ZMVFileInfo& info) {
  ByteVector bytes = frame.payload;
  if (frame.media != ZMV_MEDIA_VIDEO || !StartCoded(info.m_Video[frame.track].dwFourCC) || bytes.size() < 4) {
    return bytes;
  }
  const ByteVector length = Be32(static_cast<uint32_t>(bytes.size() - 4));
  std::copy(length.begin(), length.end(), bytes.begin());
  return bytes;
}

ByteVector RecordOf(const TestFrame& frame) {
  const bool key = frame.media == ZMV_MEDIA_VIDEO && frame.key;
  return Join({Text("RECO"), Be32(frame.media), Be32(key ? 1 : 0), Be32(static_cast<uint32_t>(frame.time)),
               Be32(frame.duration), Be32(frame.track), Be32(static_cast<uint32_t>(frame.payload.size()))});
}

ByteVector Part(const ByteVector& bytes, uint64_t at, uint64_t count) {
  if (at > bytes.size() || count > bytes.size() - at) return {};
  return ByteVector(bytes.begin() + static_cast<ptrdiff_t>(at), bytes.begin() + static_cast<ptrdiff_t>(at + count));
}

// Bytes that are never zero, no two payloads alike.
ByteVector Filling(uint32_t seed, size_t size) {
  ByteVector bytes(size);
  uint64_t x = seed * uint64_t{0x9E3779B97F4A7C15} + 1;
  for (uint8_t& byte : bytes) {
    x = x * 6364136223846793005u + 1442695040888963407u;
    byte = static_cast<uint8_t>(1 + (x >> 33) % 255);
  }
  return bytes;
}

ByteVector VideoPayload(uint32_t number, bool key, size_t size, uint32_t code) {
  ByteVector bytes = Filling(number, size);
  const ByteVector head =
      code == FourCC("H265") ? Bytes({0, 0, 0, 1, key ? 0x26 : 0x02, 1}) : Bytes({0, 0, 0, 1, key ? 0x65 : 0x41});
  std::copy(head.begin(), head.end(), bytes.begin());
  return bytes;
}

}  // namespace

// ---- What to record

ZMVFileInfo SmallInfo(uint32_t video_code) {
  static const ByteVector kAvc = Hex("00 00 00 01 67 42 C0 0A DA 08 18 00 00 00 01 68 CE 06 E2");
  static const ByteVector kHevc =
      Hex("00 00 00 01 40 01 0C 01 FF FF 01 60 00 00 03 00 90 00 00 03 00 00 03 00 1E 95 98 09"
          "00 00 00 01 42 01 01 01 60 00 00 03 00 90 00 00 03 00 00 03 00 1E A0 20 81 05 96 56 69 24 CA F0 16 80"
          "00 00 00 01 44 01 C1 72 B4 62 40");
  ZMVFileInfo info{};
  info.m_dwFileType = 1;
  info.dwTimeScale = 90000;
  info.dwVideoCount = info.dwAudioCount = info.dwTextCount = 1;
  ZMVVideoInfo& video = info.m_Video[0];
  video.dwFourCC = video_code;
  video.dwWidth = 64;
  video.dwHeight = 48;
  video.dwFrameRate = 1000;
  video.dwTimeScale = 90000;
  const ByteVector& sets = video_code == FourCC("H265") ? kHevc : kAvc;
  std::copy(sets.begin(), sets.end(), video.abExtraData);
  video.dwExtraDataSize = static_cast<uint32_t>(sets.size());
  ZMVAudioInfo& audio = info.m_Audio;
  audio.dwFormat = ZMV_AUDIO_AAC;
  audio.dwSampleRate = 48000;
  audio.dwChannels = 2;
  audio.dwBitsPerSample = 16;
  audio.dwBitRate = 128000;
  audio.abExtraData[0] = 0x11;
  audio.abExtraData[1] = 0x90;
  audio.dwExtraDataSize = 2;
  info.m_Text[0].dwFourCC = FourCC("GPS ");
  info.m_Text[0].dwRate = 1000;
  info.m_Text[0].dwTimeScale = 1000;
  info.szSoftware[0] = 'F';
  return info;
}

std::vector<TestFrame> SmallFrames() {
  constexpr uint64_t kStart = 0xFFFFFFFFu - 300;
  std::vector<TestFrame> frames;
  for (uint32_t i = 0; i < 26; ++i) {
    const bool key = i % 6 == 0;
    const size_t size = key ? 600 + 40 * i : 30 + 3 * i;
    const uint64_t time = (i * 1000 + 15) / 30;
    frames.push_back({ZMV_MEDIA_VIDEO, 0, kStart + time, i % 3 == 2 ? 33334u : 33333u, key,
                      VideoPayload(i, key, size, FourCC("H264"))});
  }
  for (uint32_t i = 0; i < 40; ++i) {
    frames.push_back({ZMV_MEDIA_AUDIO, 0, kStart + (i * 64 + 1) / 3, i % 3 == 2 ? 22u : 21u, true,
                      Filling(1000 + i, i == 20 ? 1400 : 20 + i % 7)});
  }
  for (uint32_t i = 0; i < 14; ++i) {
    ByteVector payload = Filling(2000 + i, 92 + i % 3);
    payload[12] = 0;  // a block is no text
    frames.push_back({ZMV_MEDIA_TEXT, 0, kStart + i * 60, 60, true, payload});
  }
  std::stable_sort(frames.begin(), frames.end(),
                   [](const TestFrame& a, const TestFrame& b) { return a.time < b.time; });
  return frames;
}

std::vector<TestFrame> FramesFor(const ZMVFileInfo& info, uint32_t count) {
  std::vector<TestFrame> frames;
  for (uint32_t i = 0; i < count; ++i) {
    const uint64_t time = 40 * i;
    for (uint32_t track = 0; track < info.dwVideoCount; ++track) {
      const bool key = i % 5 == track % 5;
      frames.push_back(
          {ZMV_MEDIA_VIDEO, track, time, 40000, key,
           VideoPayload(100 * track + i, key, 25 + (i * 37 + track * 11) % 150, info.m_Video[track].dwFourCC)});
    }
    if (info.dwAudioCount != 0) {
      const bool raw = info.m_Audio.dwFormat == ZMV_AUDIO_PCM_LE;
      frames.push_back({ZMV_MEDIA_AUDIO, 0, time, 40, true, Filling(5000 + i, raw ? 160 : 40 + i % 9)});
    }
    for (uint32_t track = 0; track < info.dwTextCount; ++track) {
      ByteVector payload = Filling(7000 + 100 * track + i, 92);
      payload[30] = 1;
      frames.push_back({ZMV_MEDIA_TEXT, track, time, 40, true, payload});
    }
  }
  return frames;
}

size_t Recording::CompleteIn(uint64_t length) const {
  return static_cast<size_t>(
      std::count_if(frames.begin(), frames.end(), [&](const TestFrame& frame) { return frame.end <= length; }));
}

Recording Record(const ZMVFileInfo& info, std::vector<TestFrame> frames, uint8_t interleave, uint64_t expire,
                 const std::function<void()>& before_close) {
  ScriptedHost& host = *ScriptedHost::Current();
  Recording recording;
  ZMVStreamBuf* stream = nullptr;
  MP4WriterHandle* writer = nullptr;
  EXPECT_EQ(ZMVStreamBuf_Open(&stream, kPath, 0, ZMV_STREAM_WRITE), 0);
  EXPECT_EQ(MP4WriterOpen(&writer, stream, interleave, static_cast<int64_t>(expire)), 0);
  srand(kSeed);
  EXPECT_EQ(MP4WriterSetInfo(writer, &info, 0), 0);
  recording.mdat = host.File(kPath).size() - 8;
  for (TestFrame& frame : frames) {
    ZMVFrame written = {};
    written.pData = frame.payload.data();
    written.dwSize = static_cast<uint32_t>(frame.payload.size());
    written.llTimeStamp = frame.time;
    written.dwDuration = frame.duration;
    written.dwTrack = frame.track;
    written.dwMediaType = frame.media;
    written.dwKeyFrame = frame.key ? ZMV_KEY_FRAME : ZMV_NOT_KEY_FRAME;
    const size_t before = host.File(kPath).size();
    EXPECT_EQ(MP4WriterWriteFrame(writer, &written), 0);
    const ByteVector& file = host.File(kPath);
    // Spilled tables may lie in front of the record.
    const ByteVector record = RecordOf(frame);
    const auto found =
        std::search(file.begin() + static_cast<ptrdiff_t>(before), file.end(), record.begin(), record.end());
    EXPECT_NE(found, file.end());
    frame.position = static_cast<uint64_t>(found - file.begin());
    frame.end = file.size();
  }
  recording.open = host.File(kPath);
  if (before_close) before_close();
  MP4WriterClose(writer);
  ZMVStreamBuf_Close(stream);
  recording.closed = host.File(kPath);
  recording.frames = std::move(frames);
  return recording;
}

const ByteVector& References::ClosedBehind(size_t count) {
  auto found = closed_.find(count);
  if (found == closed_.end()) {
    const std::vector<TestFrame> first(frames_.begin(), frames_.begin() + static_cast<ptrdiff_t>(count));
    found = closed_.emplace(count, Record(info_, first).closed).first;
  }
  return found->second;
}

// ---- What came back

namespace {

// Boxes of [at, end). False when they do not fill it.
bool Boxes(const ByteVector& file, size_t at, size_t end, std::vector<BoxPlace>& boxes) {
  while (at != end) {
    if (end - at < 8) return false;
    const size_t size = Number(file, at);
    if (size < 8 || size > end - at) return false;
    boxes.push_back(
        {std::string(file.begin() + static_cast<ptrdiff_t>(at) + 4, file.begin() + static_cast<ptrdiff_t>(at) + 8), at,
         size});
    at += size;
  }
  return true;
}

std::vector<BoxPlace> Children(const ByteVector& file, const BoxPlace& parent) {
  std::vector<BoxPlace> boxes;
  EXPECT_TRUE(Boxes(file, parent.position + 8, parent.position + parent.size, boxes)) << parent.type;
  return boxes;
}

// The tables of a trak by name.
std::map<std::string, BoxPlace> Tables(const ByteVector& file, BoxPlace box) {
  for (const char* inner : {"mdia", "minf", "stbl"}) {
    const std::vector<BoxPlace> children = Children(file, box);
    const auto found =
        std::find_if(children.begin(), children.end(), [&](const BoxPlace& child) { return child.type == inner; });
    if (found == children.end()) return {};
    box = *found;
  }
  std::map<std::string, BoxPlace> tables;
  for (const BoxPlace& table : Children(file, box)) tables[table.type] = table;
  return tables;
}

std::vector<BoxPlace> Traks(const ByteVector& file) {
  std::vector<BoxPlace> traks;
  for (const BoxPlace& box : TopBoxes(file)) {
    if (box.type != "moov") continue;
    for (const BoxPlace& child : Children(file, box)) {
      if (child.type == "trak") traks.push_back(child);
    }
  }
  return traks;
}

}  // namespace

std::vector<BoxPlace> TopBoxes(const ByteVector& file) {
  std::vector<BoxPlace> boxes;
  EXPECT_TRUE(Boxes(file, 0, file.size(), boxes)) << "behind " << (boxes.empty() ? "nothing" : boxes.back().type);
  return boxes;
}

ByteVector BoxBytes(const ByteVector& file, const std::string& type) {
  for (const BoxPlace& box : TopBoxes(file)) {
    if (box.type == type) return Part(file, box.position, box.size);
  }
  return {};
}

ByteVector MoovWithoutOffsets(const ByteVector& file) {
  ByteVector bytes = file;
  for (const BoxPlace& trak : Traks(file)) {
    auto tables = Tables(file, trak);
    const BoxPlace& stco = tables["stco"];
    if (stco.size > 16) {
      std::fill(bytes.begin() + static_cast<ptrdiff_t>(stco.position) + 16,
                bytes.begin() + static_cast<ptrdiff_t>(stco.position + stco.size), uint8_t{0});
    }
  }
  return BoxBytes(bytes, "moov");
}

std::vector<std::vector<Sample>> TableSamples(const ByteVector& file) {
  std::vector<std::vector<Sample>> tracks;
  for (const BoxPlace& trak : Traks(file)) {
    auto tables = Tables(file, trak);
    const BoxPlace stco = tables["stco"], stsz = tables["stsz"], stsc = tables["stsc"];
    std::vector<Sample> samples;
    const uint32_t constant = Number(file, stsz.position + 12);
    uint32_t entry = 0;
    const uint32_t chunks = Number(file, stco.position + 12);
    uint32_t sample = 0;
    for (uint32_t chunk = 1; chunk <= chunks; ++chunk) {
      // stsc: the entry that is in force for the chunk
      const uint32_t entries = Number(file, stsc.position + 12);
      while (entry + 1 < entries && Number(file, stsc.position + 16 + 12 * (entry + 1)) <= chunk) ++entry;
      const uint32_t in_chunk = Number(file, stsc.position + 16 + 12 * entry + 4);
      uint64_t size = 0;
      for (uint32_t i = 0; i < in_chunk; ++i, ++sample) {
        size += constant != 0 ? constant : Number(file, stsz.position + 20 + 4 * sample);
      }
      const uint64_t position = Number(file, stco.position + 16 + 4 * (chunk - 1));
      samples.push_back({position, Part(file, position, size)});
    }
    tracks.push_back(std::move(samples));
  }
  return tracks;
}

std::string CompareFrames(const ByteVector& file, const ZMVFileInfo& info, const std::vector<TestFrame>& frames,
                          size_t count) {
  return CompareFrames(file, info,
                       std::vector<TestFrame>(frames.begin(), frames.begin() + static_cast<ptrdiff_t>(count)));
}

std::string CompareFrames(const ByteVector& file, const ZMVFileInfo& info, const std::vector<TestFrame>& frames) {
  const std::vector<std::vector<Sample>> tracks = TableSamples(file);
  // Tracks without frames are not in the file.
  std::map<std::pair<uint32_t, uint32_t>, size_t> ordinals;
  for (const TestFrame& frame : frames) ordinals[{frame.media, frame.track}] = 0;
  size_t next = 0;
  for (auto& [stream, ordinal] : ordinals) ordinal = next++;
  if (tracks.size() != ordinals.size()) {
    return "tracks " + std::to_string(tracks.size()) + " of " + std::to_string(ordinals.size());
  }
  std::vector<size_t> at(tracks.size());
  uint64_t last = 0;
  for (size_t i = 0; i < frames.size(); ++i) {
    const TestFrame& frame = frames[i];
    const size_t track = ordinals[{frame.media, frame.track}];
    const std::string name = "frame " + std::to_string(i) + " of track " + std::to_string(track);
    if (at[track] == tracks[track].size()) return name + " is missing";
    const Sample& sample = tracks[track][at[track]++];
    const std::string payload = Difference(sample.bytes, Stored(frame, info));
    if (!payload.empty()) return name + ": " + payload;
    if (sample.position <= last) return name + " is out of order";
    last = sample.position;
    // The record, or a spilled table between it and the payload.
    ByteVector record = RecordOf(frame);
    const uint64_t from = sample.position - std::min<uint64_t>(sample.position, kRecordBytes);
    if (Part(file, from, kRecordBytes) == record) continue;
    if (frame.since != 0) {
      // Stamps are whole milliseconds.
      const uint32_t rounding = frame.media == ZMV_MEDIA_VIDEO ? 1000 : 1;
      TestFrame again = frame;
      again.duration = Number(file, from + kDurationInRecord);
      const bool close = again.duration < frame.since + rounding && again.duration + rounding > frame.since;
      if (close && Part(file, from, kRecordBytes) == RecordOf(again)) continue;
    }
    const auto begin = file.begin() + static_cast<ptrdiff_t>(sample.position - std::min(sample.position, kLookBack));
    const auto end = file.begin() + static_cast<ptrdiff_t>(sample.position);
    const auto found = std::search(begin, end, record.begin(), record.end());
    if (found == end || Part(file, static_cast<uint64_t>(found - file.begin()) + kRecordBytes, 4) != Text("tabl")) {
      return name + ": record " + Difference(Part(file, from, kRecordBytes), record);
    }
  }
  for (size_t track = 0; track < tracks.size(); ++track) {
    if (at[track] != tracks[track].size()) return "track " + std::to_string(track) + " has frames of its own";
  }
  return "";
}

std::vector<std::string> ReadBack(const ByteVector& file) {
  constexpr uint32_t kMostFrames = 100000;
  ScriptedHost::Current()->PutFile("back.mp4", file);
  std::vector<std::string> lines;
  ZMVReaderParam param{"back.mp4", nullptr, 0};
  ZMVReader* reader = nullptr;
  ZMVFileInfo info{};
  if (ZMVReaderOpen(&reader, &param) < 0) return {"can not be opened"};
  if (ZMVReaderGetInfo(reader, &info) < 0) lines.push_back("can not be described");
  lines.push_back("duration " + std::to_string(info.dwDuration));
  ByteVector buffer(1 << 16);
  const auto read = [&](uint32_t media, uint32_t track) {
    for (uint32_t i = 0; i < kMostFrames; ++i) {
      ZMVFrame frame{};
      frame.dwMediaType = media;
      frame.dwTrack = track;
      frame.pData = buffer.data();
      frame.dwBufSize = static_cast<uint32_t>(buffer.size());
      if (ZMVReaderReadFrame(reader, &frame) < 0) return;
      uint64_t sum = 1469598103934665603u;
      for (uint32_t k = 0; k < frame.dwSize; ++k) sum = (sum ^ buffer[k]) * 1099511628211u;
      lines.push_back(std::to_string(media) + "/" + std::to_string(track) + " time " +
                      std::to_string(frame.llTimeStamp) + " duration " + std::to_string(frame.dwDuration) + " key " +
                      std::to_string(frame.dwKeyFrame) + " size " + std::to_string(frame.dwSize) + " sum " +
                      std::to_string(sum));
    }
  };
  for (uint32_t i = 0; i < info.dwVideoCount; ++i) read(ZMV_MEDIA_VIDEO, i);
  for (uint32_t i = 0; i < info.dwAudioCount; ++i) read(ZMV_MEDIA_AUDIO, i);
  for (uint32_t i = 0; i < info.dwTextCount; ++i) read(ZMV_MEDIA_TEXT, i);
  ZMVReaderClose(reader);
  return lines;
}

}  // namespace zmv::test

// A small recording made by the writer, what it holds frame by frame, and ways to damage it.
#ifndef ZMV_TESTS_RECOVER_TEST_H
#define ZMV_TESTS_RECOVER_TEST_H

#include <gmock/gmock.h>

#include <algorithm>
#include <ostream>
#include <random>
#include <string>
#include <vector>

#include "base/byte_order.h"
#include "base/fourcc.h"
#include "mp4/mp4_writer.h"
#include "recover/recover_mp4_scan.h"
#include "tests/support/memory_file.h"
#include "tests/support/mp4_recording.h"

namespace zmv::test {

// One frame as it stands in a file.
struct StoredFrame {
  uint64_t position = 0;  // of its record
  uint64_t payload = 0;
  uint32_t media = 0;
  uint32_t track = 0;
  bool key = false;
  uint64_t time = 0;
  uint32_t duration = 0;
  ByteVector bytes;

  uint64_t End() const { return payload + bytes.size(); }
  bool operator==(const StoredFrame&) const = default;
};

inline std::ostream& operator<<(std::ostream& out, const StoredFrame& frame) {
  return out << "frame at " << frame.position << ", payload " << frame.payload << " + " << frame.bytes.size()
             << ", media " << frame.media << ", track " << frame.track << (frame.key ? ", key" : "") << ", time "
             << frame.time << ", duration " << frame.duration;
}

// A recording of what it is told, and where each frame of it stands in the file.
class FrameLog {
 public:
  explicit FrameLog(const ZMVFileInfo& info, uint8_t interleave = 1, int64_t expire = 1)
      : recording_(info, interleave, expire), info_(info) {}

  void Write(uint32_t media, ByteVector payload, uint64_t time, uint32_t duration, bool key = false,
             uint32_t track = 0) {
    ASSERT_EQ(recording_.Write(media, payload, duration, key ? ZMV_KEY_FRAME : ZMV_NOT_KEY_FRAME, time, track), 0);
    if (media == ZMV_MEDIA_VIDEO && recover::BeginsWithLength(info_.m_Video[track].dwFourCC) && payload.size() >= 4) {
      StoreBE32(payload.data(), static_cast<uint32_t>(payload.size()) - 4);
    }
    frames_.push_back({0, 0, media, track, media == ZMV_MEDIA_VIDEO && key, time, duration, std::move(payload)});
  }

  // Closes the recording and finds the frames in it: each by its whole record and its whole payload, in order.
  ByteVector Finish() {
    ByteVector file = recording_.Finish();
    auto at = file.begin();
    for (StoredFrame& frame : frames_) {
      const ByteVector record = Join({zmv::test::Text("RECO"), Be32(frame.media), Be32(frame.key ? 1 : 0),
                                      Be32(static_cast<uint32_t>(frame.time)), Be32(frame.duration), Be32(frame.track),
                                      Be32(static_cast<uint32_t>(frame.bytes.size()))});
      at = std::search(at, file.end(), record.begin(), record.end());
      EXPECT_NE(at, file.end());
      frame.position = static_cast<uint64_t>(at - file.begin());
      at += 28;
      // Tables can be spilled between the two; no payload of these tests begins as they do.
      while (zmv::test::Text("tabl") == ByteVector(at, at + 4)) {
        at += 8 + static_cast<ptrdiff_t>(NumberAt(file, static_cast<size_t>(at - file.begin()) + 4));
      }
      EXPECT_TRUE(std::equal(frame.bytes.begin(), frame.bytes.end(), at));
      frame.payload = static_cast<uint64_t>(at - file.begin());
      at += static_cast<ptrdiff_t>(frame.bytes.size());
    }
    return file;
  }
  const std::vector<StoredFrame>& frames() const { return frames_; }

 private:
  Mp4Recording recording_;
  ZMVFileInfo info_;
  std::vector<StoredFrame> frames_;
};

class Noise {
 public:
  explicit Noise(uint32_t seed) : random_(seed) {}
  uint8_t Byte() { return static_cast<uint8_t>(random_()); }
  uint32_t Number(uint32_t below) { return static_cast<uint32_t>(random_() % below); }
  // What a compressor makes: no run of zeros, and no zero at the end.
  ByteVector Compressed(size_t size) {
    ByteVector bytes(size);
    for (uint8_t& byte : bytes) byte = static_cast<uint8_t>(1 + Number(255));
    return bytes;
  }
  ByteVector Video(size_t size) {
    ByteVector bytes = Compressed(size);
    std::copy_n("\0\0\0\1", std::min<size_t>(size, 4), bytes.begin());
    return bytes;
  }
  // A position and a sensor block, zeros included.
  ByteVector Text(size_t size) {
    ByteVector bytes(size);
    for (uint8_t& byte : bytes) byte = Number(3) == 0 ? 0 : Byte();
    bytes[10] = 1;
    return bytes;
  }

 private:
  std::mt19937 random_;
};

inline ZMVFileInfo SmallInfo() {
  ZMVFileInfo info = {};
  info.m_dwFileType = 1;
  info.dwTimeScale = 90000;
  info.dwVideoCount = info.dwAudioCount = info.dwTextCount = 1;
  info.dwDuration = 30;
  std::strncpy(info.szSoftware, "F", sizeof info.szSoftware);
  ZMVVideoInfo& video = info.m_Video[0];
  video.dwFourCC = FourCC("H264");
  video.dwWidth = 640;
  video.dwHeight = 360;
  video.dwFrameRate = 1000;
  video.dwBitRate = 4000000;
  video.dwTimeScale = 90000;
  const ByteVector sets = Hex("00000001 6742C01E 00000001 68CE3C80");
  std::copy(sets.begin(), sets.end(), video.abExtraData);
  video.dwExtraDataSize = static_cast<uint32_t>(sets.size());
  info.m_Audio.dwFormat = ZMV_AUDIO_AAC;
  info.m_Audio.dwSampleRate = 48000;
  info.m_Audio.dwChannels = 2;
  info.m_Audio.dwBitsPerSample = 16;
  info.m_Audio.dwBitRate = 128000;
  info.m_Audio.abExtraData[0] = 0x11;
  info.m_Audio.abExtraData[1] = 0x90;
  info.m_Audio.dwExtraDataSize = 2;
  info.m_Text[0].dwFourCC = FourCC("gpsd");
  info.m_Text[0].dwRate = 1000;
  info.m_Text[0].dwTimeScale = 1000;
  return info;
}

// Three streams, spilled tables, every duration different so that the time tables are spilled too.
struct SmallRecording {
  ByteVector file;
  std::vector<StoredFrame> frames;

  explicit SmallRecording(uint32_t seed = 1, uint32_t rounds = 14, uint8_t interleave = 1, uint32_t start = 5000) {
    FrameLog log(SmallInfo(), interleave);
    Noise noise(seed);
    uint64_t time = start;
    for (uint32_t i = 0; i < rounds; ++i, time += 40 + i) {
      log.Write(ZMV_MEDIA_VIDEO, noise.Video(30 + noise.Number(700)), time, (40 + i) * 1000, i % 5 == 0);
      log.Write(ZMV_MEDIA_AUDIO, noise.Compressed(10 + noise.Number(200)), time + 1, 40 + i);
      if (i % 2 == 0) log.Write(ZMV_MEDIA_TEXT, noise.Text(92 + noise.Number(60)), time + 2, 80 + i);
    }
    file = log.Finish();
    frames = log.frames();
  }
  uint64_t MdatPosition() const {
    const ByteVector name = Text("mdat");
    return static_cast<uint64_t>(std::search(file.begin(), file.end(), name.begin(), name.end()) - file.begin()) - 4;
  }
  uint64_t MdatEnd() const { return MdatPosition() + NumberAt(file, MdatPosition()); }
  // As it stands before it is closed: up to the end of the media data, whose size is not stated yet.
  ByteVector Unclosed() const {
    ByteVector bytes(file.begin(), file.begin() + static_cast<ptrdiff_t>(MdatEnd()));
    StoreBE32(&bytes[MdatPosition()], 8);
    return bytes;
  }
};

struct Found {
  int32_t opened = 0;
  int32_t result = 0;
  std::vector<StoredFrame> frames;
  std::vector<uint32_t> new_durations;
  std::vector<bool> after_hole;
  ZMVRecoverReport report = {};
};

inline Found ScanFile(recover::File& file) {
  Found found;
  recover::Mp4Scan scan(file);
  found.opened = scan.Open();
  recover::FoundFrame frame = {};
  while (scan.Next(frame)) {
    found.frames.push_back({frame.position, frame.payload, frame.media, frame.track, frame.key, frame.time,
                            frame.duration, ByteVector(frame.bytes, frame.bytes + frame.size)});
    found.new_durations.push_back(frame.new_duration);
    found.after_hole.push_back(frame.after_hole);
  }
  found.result = scan.Result();
  found.report = scan.Report();
  return found;
}

inline Found ScanBytes(ByteVector bytes) {
  StoredFile file(std::move(bytes));
  return ScanFile(file);
}

class RecoverTest : public ::testing::Test {
 protected:
  RecoverTest() {
    host.record = false;
    host.trace_level = 0;
  }
  ~RecoverTest() override {
    FreeHost(mp4::pExtUserLast);
    mp4::pExtUserLast = nullptr;
    EXPECT_THAT(host.LiveList(), ::testing::IsEmpty());
  }
  ScriptedHost host;
};

}  // namespace zmv::test

#endif

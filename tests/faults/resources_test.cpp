// What a recording and its playback cost, whatever their length: memory is what set-up allocated, nothing is allocated
// per frame, and opening reads headers only.
#include <gmock/gmock.h>

#include "facade/zmvstream_reader.h"
#include "facade/zmvstream_writer.h"
#include "tests/support/scripted_host.h"

namespace zmv::test {
namespace {

constexpr char kPath[] = "long.mp4";
constexpr uint32_t kVideoBytes = 24;
constexpr uint32_t kAudioBytes = 12;

struct Cost {
  uint64_t peak_after_setup = 0;  // bytes beyond what was live when SetInfo returned, until Close
  uint64_t allocations = 0;       // between SetInfo and Close
  uint64_t frames = 0;
};

class LongRecording : public testing::Test {
 protected:
  LongRecording() {
    host_.trace_level = 0;
    host_.record = false;
  }

  static ZMVFileInfo Describe() {
    ZMVFileInfo info{};
    info.m_dwFileType = 1;
    info.dwTimeScale = 90000;
    info.dwVideoCount = 1;
    info.m_Video[0].dwFourCC = ZMV_FOURCC('H', '2', '6', '4');
    info.m_Video[0].dwWidth = 640;
    info.m_Video[0].dwHeight = 360;
    info.m_Video[0].dwFrameRate = 30000;
    info.dwAudioCount = 1;
    info.m_Audio.dwFormat = ZMV_AUDIO_AAC;
    info.m_Audio.dwSampleRate = 48000;
    info.m_Audio.dwChannels = 2;
    info.m_Audio.dwBitsPerSample = 16;
    info.m_Audio.dwSamplesPerFrame = 1024;
    return info;
  }

  // `minutes` of tiny frames with tables sized for two minutes, so that everything longer spills.
  Cost Record(uint32_t minutes) {
    ZMVWriterParam param{};
    param.dwFormat = ZMV_FORMAT_MP4;
    param.pszPath = kPath;
    param.bInterleave = 1;
    ZMVWriter* writer = nullptr;
    EXPECT_EQ(ZMVWriterOpen(&writer, &param), 0);
    ZMVFileInfo info = Describe();
    EXPECT_EQ(ZMVWriterSetInfo(writer, &info, 0), 0);
    const uint64_t live = host_.LiveBytes();
    const uint64_t allocations = host_.Count(HostCall::kMalloc) + host_.Count(HostCall::kReAlloc);
    Cost cost;
    uint8_t payload[64] = {0, 0, 0, 1, 0x41};
    uint64_t audio = 0;
    for (uint64_t video = 0; video < uint64_t{minutes} * 60 * 30; ++video) {
      uint64_t us = video * 1000000 / 30;
      for (; audio * 1024 * 1000000 / 48000 < us; ++audio) {
        uint64_t ms = audio * 1024 * 1000 / 48000;
        Write(writer, ZMV_MEDIA_AUDIO, ms, audio == 0 ? 21 : ms - (audio - 1) * 1024 * 1000 / 48000, payload,
              kAudioBytes + static_cast<uint32_t>(audio % 5));
      }
      Write(writer, ZMV_MEDIA_VIDEO, us / 1000, 33333 + (video % 3 == 2), payload,
            kVideoBytes + static_cast<uint32_t>(video % 7), video % 30 == 0);
      cost.frames = video + audio;
    }
    cost.allocations = host_.Count(HostCall::kMalloc) + host_.Count(HostCall::kReAlloc) - allocations;
    cost.peak_after_setup = host_.LiveBytes() - live;
    ZMVWriterClose(writer);
    return cost;
  }

  static void Write(ZMVWriter* writer, uint32_t media, uint64_t ms, uint64_t duration, uint8_t* payload, uint32_t size,
                    bool key = false) {
    ZMVFrame frame{};
    frame.pData = payload;
    frame.dwSize = size;
    frame.llTimeStamp = ms;
    frame.dwDuration = static_cast<uint32_t>(duration);
    frame.dwMediaType = media;
    frame.dwKeyFrame = key ? ZMV_KEY_FRAME : ZMV_NOT_KEY_FRAME;
    ASSERT_EQ(ZMVWriterWrite(writer, &frame), 0);
  }

  ScriptedHost host_;
};

TEST_F(LongRecording, FourHours_CostNoMoreMemoryThanSetUp) {
  Cost cost = Record(240);
  EXPECT_GT(cost.frames, 1000000u);
  EXPECT_EQ(cost.allocations, 0u);
  EXPECT_EQ(cost.peak_after_setup, 0u);
  EXPECT_EQ(host_.LiveBlocks(), 0u);
}

TEST_F(LongRecording, OpeningAndReading_CostTheSameWhateverTheLength) {
  struct Opening {
    uint64_t reads, bytes, blocks;
  };
  auto open = [&](uint32_t minutes, uint64_t* per_frame) {
    Record(minutes);
    ZMVReaderParam param{kPath, nullptr, 0};
    ZMVReader* reader = nullptr;
    uint64_t reads = host_.Count(HostCall::kRead);
    uint64_t blocks = host_.Count(HostCall::kMalloc);
    EXPECT_EQ(ZMVReaderOpen(&reader, &param), 0);
    ZMVFileInfo info{};
    EXPECT_EQ(ZMVReaderGetInfo(reader, &info), 0);
    Opening cost{host_.Count(HostCall::kRead) - reads, host_.LiveBytes(), host_.Count(HostCall::kMalloc) - blocks};
    EXPECT_EQ(info.m_Video[0].dwFrames, minutes * 1800);
    const uint64_t allocated = host_.Count(HostCall::kMalloc);
    uint8_t buffer[64];
    for (uint32_t i = 0; i < minutes * 1800; ++i) {
      ZMVFrame frame{};
      frame.dwMediaType = ZMV_MEDIA_VIDEO;
      frame.pData = buffer;
      frame.dwBufSize = sizeof buffer;
      EXPECT_EQ(ZMVReaderReadFrame(reader, &frame), 0);
      EXPECT_EQ(frame.dwSize, kVideoBytes + i % 7);
      EXPECT_EQ(frame.dwKeyFrame, i % 30 == 0 ? ZMV_KEY_FRAME : ZMV_NOT_KEY_FRAME);
    }
    *per_frame = host_.Count(HostCall::kMalloc) - allocated;
    ZMVReaderClose(reader);
    return cost;
  };
  uint64_t short_allocations = 0;
  uint64_t long_allocations = 0;
  Opening ten = open(10, &short_allocations);
  Opening long_one = open(60, &long_allocations);
  EXPECT_EQ(long_one.reads, ten.reads);
  EXPECT_EQ(long_one.bytes, ten.bytes);
  EXPECT_EQ(long_one.blocks, ten.blocks);
  EXPECT_EQ(short_allocations, 0u);
  EXPECT_EQ(long_allocations, 0u);
  EXPECT_EQ(host_.LiveBlocks(), 0u);
}

}  // namespace
}  // namespace zmv::test

// The writer under failures of its host and through a recording of four hours.
#include "tests/mp4/writer_test.h"

namespace zmv::test {
namespace {

using ::testing::IsEmpty;

class WriterEndurance : public WriterTest {};

// Every host call that a recording makes, failing once or for good: a code at worst, and nothing left behind.
TEST_F(WriterEndurance, AnyHostCallFails_LeavesNothingBehind) {
  host.trace_level = 1;
  host.record = false;
  for (const HostCall call :
       {HostCall::kOpen, HostCall::kMalloc, HostCall::kWrite, HostCall::kRead, HostCall::kSeek, HostCall::kSize}) {
    for (const auto duration : {ScriptedHost::kOnce, ScriptedHost::kForGood}) {
      for (const uint8_t interleave : {uint8_t{0}, uint8_t{1}}) {
        uint64_t sweep = 0;
        for (uint64_t nth = 1;; ++nth) {
          ASSERT_LT(nth, 3000u);
          FreeHost(mp4::pExtUserLast);
          mp4::pExtUserLast = nullptr;
          const uint64_t before = host.Count(call);
          host.Fail(call, nth, duration);
          struct {
            ZMVStreamBuf* stream = nullptr;
          } owner;
          if (!Failed(ZMVStreamBuf_Open(&owner, kPath, 0, ZMV_STREAM_WRITE))) {
            stream = owner.stream;
            info = {};
            Brand("F");
            AddVideo(FourCC("H264"), 1000).dwExtraDataSize = 8;
            AddAudio(ZMV_AUDIO_PCM).dwBlockAlign = 96000;
            AddText(1000);
            info.dwDuration = 1;
            if (Open(interleave, 1) == 0 && SetInfo() == 0) WriteAll(12);
          }
          Close();
          host.ClearFailures();
          host.ClearRecords();
          sweep = nth;
          const uint64_t left = mp4::pExtUserLast == nullptr ? 0 : 1;
          ASSERT_EQ(host.LiveBlocks(), left) << static_cast<int>(call) << " " << nth;
          if (host.Count(call) - before < nth) break;
        }
        EXPECT_GT(sweep, 1u);
      }
    }
  }
}

// ---- Memory of a long recording

// A stream that counts what it is given and keeps nothing.
struct CountingStream {
  ZMVStreamBuf handle = {};
  uint32_t cursors = 0;
  uint64_t position = 0;
  uint64_t written = 0;
  uint64_t writes = 0;

  static CountingStream& Of(void* context) { return *static_cast<CountingStream*>(context); }
  CountingStream() {
    handle.hInOut = this;
    handle.Index = [](void* context, uint32_t* idx, uint32_t) -> int64_t {
      *idx = Of(context).cursors++;
      return 0;
    };
    handle.WriteBuffer = [](void* context, uint32_t, const void*, uint32_t len) -> int64_t {
      Of(context).position += len;
      Of(context).written += len;
      ++Of(context).writes;
      return len;
    };
    handle.ReadBuffer = [](void*, uint32_t, void* dst, uint32_t len) -> int64_t {
      std::memset(dst, 0, len);
      return len;
    };
    handle.Seek = [](void* context, uint32_t idx, uint32_t pos) -> int64_t {
      if (idx == 0) Of(context).position = pos;
      return 0;
    };
    handle.Pos = [](void* context, uint32_t) { return static_cast<uint32_t>(Of(context).position); };
    handle.GetFilesize = [](void* context) { return static_cast<int64_t>(Of(context).position); };
  }
};

TEST_F(WriterEndurance, FourHoursOfTinyFrames_TakeNoMemoryAfterSetUp) {
  host.record = false;
  host.trace_level = 0;
  CountingStream counting;
  AddVideo().dwTimeScale = 90000;
  AddAudio();
  ASSERT_EQ(MP4WriterOpen(&writer, &counting.handle, 1, 0), 0);
  ASSERT_EQ(SetInfo(), 0);
  const uint64_t allocations = host.Count(HostCall::kMalloc) + host.Count(HostCall::kReAlloc);
  const uint64_t peak = host.PeakBytes();
  const uint64_t blocks = host.LiveBlocks();

  uint8_t payload[256] = {0, 0, 0, 1, 0x41};
  uint64_t expected = counting.written;
  auto write = [&](uint32_t media, uint64_t index, uint64_t time, uint32_t duration) {
    ZMVFrame frame = {};
    frame.pData = payload;
    frame.dwSize = static_cast<uint32_t>(84 + index * 2654435761u % 100);  // sizes that differ
    frame.llTimeStamp = time;
    frame.dwDuration = duration;
    frame.dwMediaType = media;
    frame.dwKeyFrame = index % 30 == 0 ? 1 : 2;
    expected += 28 + frame.dwSize;
    return MP4WriterWriteFrame(writer, &frame);
  };
  const uint64_t video_frames = 4 * 3600 * 30;
  const uint64_t audio_frames = uint64_t{4} * 3600 * 48000 / 1024;
  uint64_t audio = 0;
  for (uint64_t video = 0; video < video_frames; ++video) {
    ASSERT_EQ(write(ZMV_MEDIA_VIDEO, video, video * 1000 / 30, 33333), 0);
    for (; audio < audio_frames && audio * 1024 * 30 <= video * 48000; ++audio) {
      ASSERT_EQ(write(ZMV_MEDIA_AUDIO, audio, audio * 64 / 3, 21 + (audio % 3 == 2)), 0);
    }
  }
  EXPECT_GT(audio + video_frames, 1100000u);
  EXPECT_EQ(host.Count(HostCall::kMalloc) + host.Count(HostCall::kReAlloc), allocations);
  EXPECT_EQ(host.PeakBytes(), peak);
  EXPECT_EQ(host.LiveBlocks(), blocks);
  EXPECT_GT(Track(0).m_Stsz.m_dwSpillNum + Track(1).m_Stts.m_dwSpillNum, 100u);
  for (uint32_t i = 0; i < 2; ++i) {
    for (const MP4WriterTable* table : {&Track(i).m_Stts, &Track(i).m_Stsz, &Track(i).m_Stco, &Track(i).m_Stss}) {
      expected += table->m_dwSpillNum * uint64_t{8 + table->m_dwBufSize};
    }
  }
  EXPECT_EQ(counting.written, expected);
  CloseWriter();
  EXPECT_EQ(host.Count(HostCall::kMalloc) + host.Count(HostCall::kReAlloc), allocations + 1 + 1);  // box buffer, stsd
  EXPECT_THAT(host.LiveList(), IsEmpty());
}

}  // namespace
}  // namespace zmv::test

// The writer under failures of its host and through a recording of four hours.
#include "tests/mp4/writer_test.h"

namespace zmv::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class WriterEndurance : public WriterTest {
 protected:
  // A text track with room for ten entries in every table.
  void StartText(uint8_t interleave = 1) {
    AddText(1000);
    Start(interleave, 1);
  }
  std::vector<uint32_t> Offsets() {
    const MP4WriterTable& table = Track().m_Stco;
    std::vector<uint32_t> numbers;
    for (uint32_t i = 0; i < table.m_dwUsed; i += 4) numbers.push_back(LoadBE32(table.m_pBuf + i));
    return numbers;
  }
};

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

// Every write in front of the frames that is cut short, by one byte or to none: SetInfo says so.
TEST_F(WriterEndurance, NoRoomInFrontOfTheFrames_FailsSetInfo) {
  AddVideo();
  AddText();
  Start();
  const uint32_t front = MdatEnd();
  Close();
  for (uint32_t room = 0; room < front; ++room) {
    std::srand(1);
    ASSERT_EQ(Open(), 0);
    host.file_capacity = room;
    EXPECT_EQ(static_cast<uint32_t>(SetInfo()), ZMV_E_WRITE) << room;
    host.file_capacity = UINT64_MAX;
    Close();
  }
}

// ---- Frames of which a write fails

TEST_F(WriterEndurance, Payload_WriteFails_GivesTheCodeAndKeepsTheEntries) {
  AddAudio();
  Start();
  host.Fail(HostCall::kWrite, 2);
  const uint32_t end = MdatEnd();
  EXPECT_EQ(static_cast<uint32_t>(WriteAudio(10)), ZMV_E_WRITE);
  EXPECT_TRUE(host.Traced("write error (-2147483629)\n"));
  EXPECT_EQ(MdatEnd(), end + 28);
  EXPECT_EQ(Track().m_Stsz.m_dwEntryNum, 1u);
  EXPECT_EQ(Track().m_Stco.m_dwEntryNum, 1u);
  EXPECT_EQ(Track().m_dwMaxSize, 0u);
}

TEST_F(WriterEndurance, Payload_EitherOrBothPartsFail_GivesTheCode) {
  AddVideo();
  Start();
  for (const uint64_t call : {2u, 3u}) {
    host.Fail(HostCall::kWrite, call);
    EXPECT_EQ(static_cast<uint32_t>(WriteVideo(10)), ZMV_E_WRITE) << call;
  }
  host.Fail(HostCall::kWrite, 2, ScriptedHost::kForGood);
  EXPECT_EQ(static_cast<uint32_t>(WriteVideo(10)), ZMV_E_WRITE);
}

TEST_F(WriterEndurance, Record_WriteFails_IsNotLookedAt) {
  AddAudio();
  Start();
  const uint32_t end = MdatEnd();
  host.Fail(HostCall::kWrite, 1);
  EXPECT_EQ(WriteAudio(10), 0);
  EXPECT_EQ(MdatEnd(), end + 38);
  // The record's place is kept, so that the payload stands where its chunk offset says.
  EXPECT_EQ(Difference(FileFrom(end), Join({Zeros(28), ByteVector(10, 0xAA)})), "");
  EXPECT_THAT(Offsets(), ElementsAre(end + 28));
}

TEST_F(WriterEndurance, Record_CutShort_IsFilledUp) {
  AddAudio();
  Start();
  const uint32_t end = MdatEnd();
  host.max_transfer = 9;
  EXPECT_EQ(WriteAudio(9), static_cast<int32_t>(ZMV_E_WRITE));  // the filling is cut short as well
  host.max_transfer = UINT64_MAX;
  EXPECT_EQ(WriteAudio(10), 0);
  const ByteVector record = Join({
      Text("RECO"), Be32(2), Be32(0), Be32(0),  // tag, audio, no key frame, time
      Be32(20), Be32(0), Be32(10),              // duration, stream, size
  });
  EXPECT_EQ(Difference(FileFrom(end + 28), Join({record, ByteVector(10, 0xAA)})), "");
  EXPECT_THAT(Offsets(), ElementsAre(end + 28, end + 28 + 28));
}

TEST_F(WriterEndurance, Payload_CutShort_CountsWhatWasWritten) {
  AddAudio();
  Start();
  const uint32_t end = MdatEnd();
  host.file_capacity = end + 28 + 4;
  EXPECT_EQ(WriteAudio(10), 0);
  EXPECT_EQ(MdatEnd(), end + 28 + 4);
  host.file_capacity = UINT64_MAX;
  EXPECT_EQ(WriteAudio(5), 0);
  EXPECT_EQ(File().size(), MdatEnd());
  EXPECT_THAT(Offsets(), ElementsAre(end + 28, end + 60));
}

TEST_F(WriterEndurance, Payload_LengthWithoutTheRest_IsWrittenOver) {
  AddVideo();
  Start();
  EXPECT_EQ(WriteVideo(10), 0);
  const uint32_t end = MdatEnd();
  host.Fail(HostCall::kWrite, 3);
  EXPECT_EQ(static_cast<uint32_t>(WriteVideo(50)), ZMV_E_WRITE);
  EXPECT_EQ(MdatEnd(), end + 28);
  EXPECT_EQ(WriteVideo(10, 5), 0);
  EXPECT_EQ(Difference(BytesOf(File(), {"", end + 28, 4}), Text("RECO")), "");
  EXPECT_EQ(Difference(FileFrom(end + 56), Join({Be32(6), ByteVector(6, 0x55)})), "");
  EXPECT_EQ(Offsets().back(), end + 56);
}

// Every write gives a code of its own.
TEST_F(WriterEndurance, Payload_TwoCodes_GiveTheFirst) {
  AddVideo();
  Start();
  static uint32_t calls = 0;
  calls = 0;
  stream->WriteBuffer = [](void*, uint32_t, const void*, uint32_t count) -> int64_t {
    ++calls;
    if (calls == 1) return count;  // the record
    return Result(calls == 2 ? ZMV_E_DISK_FULL : ZMV_E_NOT_SUPPORTED);
  };
  stream->Pos = [](void*, uint32_t) -> uint32_t { return 0; };
  EXPECT_EQ(static_cast<uint32_t>(WriteVideo(10)), ZMV_E_DISK_FULL);
  EXPECT_EQ(calls, 3u);
  EXPECT_THAT(host.Traces(1), ::testing::Contains("write error (-2147483643)\n"));
}

TEST_F(WriterEndurance, Stream_ThatCannotGoBack_GivesItsCodeUntilItCan) {
  AddVideo();
  Start();
  host.Fail(HostCall::kWrite, 2);  // the length is missing, the rest stays behind
  EXPECT_EQ(static_cast<uint32_t>(WriteVideo(100)), ZMV_E_WRITE);
  const uint32_t end = MdatEnd();
  const auto seek = stream->Seek;
  stream->Seek = [](void*, uint32_t, uint32_t) -> int64_t { return Result(ZMV_E_NOT_SUPPORTED); };
  EXPECT_EQ(static_cast<uint32_t>(WriteVideo(10)), ZMV_E_NOT_SUPPORTED);
  EXPECT_EQ(MdatEnd(), end + 28);
  stream->Seek = seek;
  EXPECT_EQ(WriteVideo(10), 0);
  EXPECT_EQ(Difference(BytesOf(File(), {"", end + 28, 4}), Text("RECO")), "");
  EXPECT_EQ(Difference(BytesOf(File(), {"", end + 56, 10}), Join({Be32(6), ByteVector(6, 0x55)})), "");
}

TEST_F(WriterEndurance, Stco_SpillFails_IsReportedAndReturned) {
  StartText(1);
  for (uint32_t i = 0; i < 10; ++i) EXPECT_EQ(WriteText(10 + i), 0);
  host.Fail(HostCall::kWrite, 4);  // two for stsz, one for the record
  EXPECT_EQ(static_cast<uint32_t>(WriteText(5)), ZMV_E_WRITE);
  EXPECT_TRUE(host.Traced("stco entry write error (-2147483629)\n"));
  EXPECT_EQ(Track().m_Stsz.m_dwEntryNum, 11u);
  // The entry is added all the same: without it every later frame would be found at the offset of the next.
  EXPECT_EQ(Track().m_Stco.m_dwEntryNum, 11u);
  EXPECT_EQ(WriteText(5), 0);
  EXPECT_EQ(Difference(FileFrom(Offsets().back()), ByteVector(5, 0x77)), "");
}

TEST_F(WriterEndurance, Stco_SpillFailsTwice_LeavesTheEntryOut) {
  StartText(1);
  for (uint32_t i = 0; i < 10; ++i) EXPECT_EQ(WriteText(10 + i), 0);
  host.Fail(HostCall::kWrite, 4, ScriptedHost::kForGood);
  EXPECT_EQ(static_cast<uint32_t>(WriteText(5)), ZMV_E_WRITE);
  EXPECT_EQ(Track().m_Stsz.m_dwEntryNum, 11u);
  EXPECT_EQ(Track().m_Stco.m_dwEntryNum, 10u);
}

TEST_F(WriterEndurance, OtherSpillsThatFail_DoNotStopTheFrame) {
  StartText(0);
  for (uint32_t i = 0; i < 10; ++i) EXPECT_EQ(WriteText(10 + i), 0);
  host.Fail(HostCall::kWrite, 1);
  EXPECT_EQ(WriteText(5), 0);
  EXPECT_EQ(Track().m_Stsz.m_dwEntryNum, 11u);  // at the second attempt
  EXPECT_EQ(Track().dwTotalFrames, 11u);
}

// ---- Memory of a long recording

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

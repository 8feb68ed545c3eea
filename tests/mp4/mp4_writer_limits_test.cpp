// Where a recording ends: at 4 GiB, or when a table has spilled as often as it can.
#include "tests/mp4/writer_test.h"

namespace zmv::test {
namespace {

using ::testing::HasSubstr;

class WriterLimits : public WriterTest {
 protected:
  // A text track with room for ten entries in every table.
  void StartText(uint8_t interleave = 1) {
    AddText(1000);
    Start(interleave, 1);
  }
  // Everything that a refused frame must leave as it was.
  ByteVector State() const {
    ByteVector state(reinterpret_cast<const uint8_t*>(writer), reinterpret_cast<const uint8_t*>(writer + 1));
    for (uint32_t i = 0; i < writer->m_dwTrackNum; ++i) {
      const auto* track = reinterpret_cast<const uint8_t*>(writer->m_pTrack[i]);
      state.insert(state.end(), track, track + sizeof(MP4WriterTrack));
    }
    return state;
  }
};

TEST_F(WriterLimits, Beyond4GiB_IsRefusedBeforeAnythingIsTouched) {
  AddVideo();
  AddAudio();
  Start();
  EXPECT_EQ(WriteAudio(10), 0);
  for (const bool mdat : {false, true}) {
    uint32_t& counter = mdat ? writer->m_dwMdatSize : writer->m_dwCurSize;
    const uint32_t before = counter;
    counter = 0xFFFFFFFF - 100;
    const ByteVector state = State();
    const size_t size = File().size();
    EXPECT_EQ(static_cast<uint32_t>(WriteAudio(73)), ZMV_E_WRITE);
    EXPECT_EQ(Difference(State(), state), "");
    EXPECT_EQ(File().size(), size);
    counter = before;
    EXPECT_EQ(WriteAudio(73), 0);
  }
  EXPECT_THAT(host.Traces(1).back(), HasSubstr("no room for frame media(2) index(0) size(73)"));
}

TEST_F(WriterLimits, At4GiB_TheLastByteIsTaken) {
  AddAudio();
  Start();
  EXPECT_EQ(WriteAudio(10), 0);
  // Record, payload and an entry of every table; the moov header, two entries of stts and one of stsc at close, and
  // what the sample description may take.
  const uint32_t largest = 0xFFFFFFFF - (28 + 10 + 32) - (8 + 16 + 12 + 64);
  const uint32_t before = writer->m_dwCurSize;
  writer->m_dwCurSize = largest + 1;
  const ByteVector state = State();
  EXPECT_EQ(static_cast<uint32_t>(WriteAudio(10)), ZMV_E_WRITE);
  EXPECT_EQ(Difference(State(), state), "");
  writer->m_dwCurSize = largest;
  EXPECT_EQ(WriteAudio(10), 0);
  EXPECT_EQ(writer->m_dwCurSize, largest + 28 + 10 + 8);  // entries of stsz and stco
  writer->m_dwCurSize = before;
}

// As if a payload had brought mdat to below 4 GiB, by more than the 3400 bytes that closing may take: the frames that
// are still taken leave room for it.
TEST_F(WriterLimits, At4GiB_ClosingStaysBelow) {
  host.record = false;
  host.trace_level = 0;
  for (const uint8_t interleave : {uint8_t{0}, uint8_t{1}}) {
    uint32_t closest = UINT32_MAX;
    for (uint32_t frames = 40; frames <= 112; ++frames) {
      for (uint32_t distance = 3600; distance <= 5000; distance += 37) {
        CountingStream counting;
        info = {};
        AddVideo(FourCC("MP4V"), 1000);
        AddText(1000);
        std::srand(1);
        ASSERT_EQ(MP4WriterOpen(&writer, &counting.handle, interleave, 100'000), 0);  // 110 entries
        ASSERT_EQ(SetInfo(), 0);
        // Durations, sizes and chunks that differ from each other fill the tables.
        uint32_t time = 0;
        const auto write_pair = [&] {
          for (uint32_t i = 0; i < 1 + time % 2; ++i) {
            if (WriteVideo(5 + time % 2, time, ZMV_NOT_KEY_FRAME, 30000 + 1000 * time) != 0) return false;
          }
          ++time;
          return WriteText(5 + time % 2, time, 1000 + time) == 0;
        };
        for (uint32_t i = 0; i < frames; ++i) ASSERT_TRUE(write_pair());
        const uint32_t jump = 0xFFFFFFFF - distance - writer->m_dwCurSize;
        writer->m_dwCurSize += jump;
        writer->m_dwMdatSize += jump;
        counting.position += jump;
        while (write_pair()) {
        }
        CloseWriter();
        ASSERT_LE(counting.end, 0xFFFFFFFFu) << frames << " " << distance;
        closest = std::min(closest, static_cast<uint32_t>(0xFFFFFFFF - counting.end));
      }
    }
    EXPECT_LT(closest, 700u);  // and not much is given away
  }
}

TEST_F(WriterLimits, Below4GiB_RoomForClosingIsKept) {
  AddAudio(ZMV_AUDIO_PCM);
  Start();
  EXPECT_EQ(WriteAudio(10), 0);
  writer->m_dwCurSize = 0xFFFFFFFF - 100000;
  EXPECT_EQ(WriteAudio(10), 0);
  // Closing lists every chunk of raw audio in 12 bytes, which the projection does not hold.
  Track().m_Stsz.m_dwEntryNum = 100000 / 12;
  EXPECT_EQ(static_cast<uint32_t>(WriteAudio(10)), ZMV_E_WRITE);
  Track().m_Stsz.m_dwEntryNum = 2;
  EXPECT_EQ(WriteAudio(10), 0);
}

TEST_F(WriterLimits, Below4GiB_RoomForTheUserBoxesIsKept) {
  Brand("F");
  AddText(1000).dwRate = 1;
  Start();
  EXPECT_EQ(WriteText(92), 0);
  ASSERT_EQ(writer->m_dwGpsrNum, 1u);
  // GPSR, SENS and AIDD of this sample and the next one take 212 bytes, all else less than 250.
  writer->m_dwCurSize = 0xFFFFFFFF - 28 - 92 - 250;
  EXPECT_EQ(static_cast<uint32_t>(WriteText(92)), ZMV_E_WRITE);
  writer->m_bExtUserData = 0;
  EXPECT_EQ(WriteText(92), 0);
  writer->m_bExtUserData = 1;
}

TEST_F(WriterLimits, Beyond4GiB_TheSpillsOfTheFrameCount) {
  StartText(1);
  for (uint32_t i = 0; i < 10; ++i) EXPECT_EQ(WriteText(10 + i), 0);
  const uint32_t before = writer->m_dwCurSize;
  // Both stsz and stco are full, which costs 96 bytes; entries and closing take less than 150 with the payload.
  writer->m_dwCurSize = 0xFFFFFFFF - 28 - 5 - 150;
  EXPECT_EQ(static_cast<uint32_t>(WriteText(5)), ZMV_E_WRITE);
  EXPECT_EQ(Track().m_Stsz.m_dwSpillNum, 0u);
  writer->m_dwCurSize = before;
  EXPECT_EQ(WriteText(5), 0);
  EXPECT_EQ(Track().m_Stsz.m_dwSpillNum, 1u);
  writer->m_dwCurSize = 0xFFFFFFFF - 28 - 5 - 150;
  EXPECT_EQ(WriteText(5), 0);  // nothing is full now
}

TEST_F(WriterLimits, TableAtItsLastSpill_RefusesTheFrameBeforeAnythingIsTouched) {
  AddVideo(FourCC("H264"), 1000);
  Start(0, 1);
  EXPECT_EQ(WriteVideo(10, 0, 1), 0);
  MP4WriterTrack& track = Track();
  for (MP4WriterTable* table : {&track.m_Stts, &track.m_Stsz, &track.m_Stco, &track.m_Stsc, &track.m_Stss}) {
    const uint32_t used = table->m_dwUsed;
    table->m_dwUsed = table->m_dwBufSize;
    table->m_dwSpillNum = 1440;
    const ByteVector state = State();
    const size_t size = File().size();
    EXPECT_EQ(static_cast<uint32_t>(WriteVideo(10, 0, 1)), ZMV_E_WRITE);
    EXPECT_EQ(Difference(State(), state), "");
    EXPECT_EQ(File().size(), size);
    if (table == &track.m_Stss) {
      EXPECT_EQ(WriteVideo(10, 0, 2), 0);  // no key frame, no entry
    }
    table->m_dwUsed = used;
    table->m_dwSpillNum = 0;
    EXPECT_EQ(WriteVideo(10, 0, 2), 0);
  }
}

TEST_F(WriterLimits, TableOfTheTrackBefore_AtItsLastSpill_RefusesTheFrameThatEndsItsChunk) {
  AddVideo();
  AddAudio();
  Start(0, 1);
  EXPECT_EQ(WriteVideo(10), 0);
  MP4WriterTable& table = Track(0).m_Stsc;
  table.m_dwUsed = table.m_dwBufSize;
  table.m_dwSpillNum = 1440;
  EXPECT_EQ(static_cast<uint32_t>(WriteAudio(10)), ZMV_E_WRITE);
  EXPECT_EQ(Track(1).dwTotalFrames, 0u);
  table.m_dwUsed = 0;
  table.m_dwSpillNum = 0;
}

TEST_F(WriterLimits, LongRecording_EndsWhenATableHasSpilledAsOftenAsItCan) {
  host.trace_level = 1;
  host.record = false;
  StartText(1);
  uint32_t frames = 0;
  int32_t result = 0;
  while ((result = WriteText(frames % 2, frames, 1000 + frames % 2)) == 0) ++frames;
  EXPECT_EQ(static_cast<uint32_t>(result), ZMV_E_WRITE);
  EXPECT_EQ(frames, 1441u * 10);
  EXPECT_EQ(Track().m_Stsz.m_dwEntryNum, frames);
  EXPECT_EQ(Track().m_Stco.m_dwEntryNum, frames);
  CloseWriter();
  const ByteVector stts = SampleTableBox(File(), "stts");
  ASSERT_FALSE(stts.empty());
  uint64_t counted = 0;
  for (size_t i = 16; i < stts.size(); i += 8) counted += Be32At(stts, i);
  EXPECT_EQ(counted, frames);
}

}  // namespace
}  // namespace zmv::test

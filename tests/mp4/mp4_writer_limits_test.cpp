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

#include "tests/mp4/writer_test.h"

namespace zmv::test {
namespace {

using ::testing::Contains;

// One text track with room for ten entries in every table, or a video track with ten key frames.
class WriterTables : public WriterTest {
 protected:
  void StartText(uint8_t interleave = 1) {
    AddText(1000);
    Start(interleave, 1);
  }
  static ByteVector Held(const MP4WriterTable& table) {
    return ByteVector(table.m_pBuf, table.m_pBuf + table.m_dwUsed);
  }
};

TEST_F(WriterTables, Stts_EqualDeltas_OnlyGrowTheRun) {
  StartText();
  const uint32_t size = writer->m_dwCurSize;
  for (int i = 0; i < 5; ++i) EXPECT_EQ(MP4WriterWriteSttsEntry(writer, &Track(), 40), 0);
  EXPECT_EQ(Track().m_dwRunCount, 5u);
  EXPECT_EQ(Track().m_dwRunDelta, 40u);
  EXPECT_EQ(Track().m_Stts.m_dwEntryNum, 0u);
  EXPECT_EQ(writer->m_dwCurSize, size);
}

TEST_F(WriterTables, Stts_OtherDelta_WritesTheRunBeforeIt) {
  StartText();
  const uint32_t size = writer->m_dwCurSize;
  for (const uint32_t delta : {40u, 40u, 41u, 40u}) EXPECT_EQ(MP4WriterWriteSttsEntry(writer, &Track(), delta), 0);
  const ByteVector entries = Join({
      Be32(2),
      Be32(40),  // count, delta
      Be32(1),
      Be32(41),
  });
  EXPECT_EQ(Difference(Held(Track().m_Stts), entries), "");
  EXPECT_EQ(Track().m_Stts.m_dwEntryNum, 2u);
  EXPECT_EQ(Track().m_Stts.m_dwBoxSize, 16u + 16);
  EXPECT_EQ(writer->m_dwCurSize, size + 16);
  EXPECT_EQ(Track().m_dwRunCount, 1u);
}

TEST_F(WriterTables, Stts_FirstDeltaZero_IsARunLikeAnyOther) {
  StartText();
  EXPECT_EQ(MP4WriterWriteSttsEntry(writer, &Track(), 0), 0);
  EXPECT_EQ(MP4WriterWriteSttsEntry(writer, &Track(), 0), 0);
  EXPECT_EQ(MP4WriterWriteSttsEntry(writer, &Track(), 7), 0);
  EXPECT_EQ(Difference(Held(Track().m_Stts), Join({Be32(2), Be32(0)})), "");
}

TEST_F(WriterTables, Stts_RawAudio_CountsSamplesOfOneTick) {
  AddAudio(ZMV_AUDIO_PCM);
  Start(1, 1);
  Track().m_dwSampPerFrame = 1024;
  for (const uint32_t delta : {21u, 21u, 22u}) EXPECT_EQ(MP4WriterWriteSttsEntry(writer, &Track(), delta), 0);
  EXPECT_EQ(Difference(Held(Track().m_Stts), Join({Be32(2048), Be32(1)})), "");
}

TEST_F(WriterTables, Stsz_OneSize_IsRemembered) {
  StartText();
  for (int i = 0; i < 3; ++i) EXPECT_EQ(MP4WriterWriteStszEntry(writer, &Track(), 100), 0);
  EXPECT_EQ(Track().m_dwConstSize, 100u);
  EXPECT_EQ(Difference(Held(Track().m_Stsz), Join({Be32(100), Be32(100), Be32(100)})), "");
  EXPECT_EQ(Track().m_Stsz.m_dwEntryNum, 3u);
}

TEST_F(WriterTables, Stsz_OtherSize_EndsTheCommonSizeForGood) {
  StartText();
  for (const uint32_t size : {5u, 6u, 5u, 5u}) EXPECT_EQ(MP4WriterWriteStszEntry(writer, &Track(), size), 0);
  EXPECT_EQ(Track().m_dwConstSize, 0u);
}

TEST_F(WriterTables, Stsz_FirstSizeZero_IsNoCommonSize) {
  StartText();
  for (const uint32_t size : {0u, 6u, 6u}) EXPECT_EQ(MP4WriterWriteStszEntry(writer, &Track(), size), 0);
  EXPECT_EQ(Track().m_dwConstSize, 0u);
}

TEST_F(WriterTables, Stco_EntryIsTheEndOfMdat) {
  StartText();
  EXPECT_EQ(MP4WriterWriteStcoEntry(writer, &Track()), 0);
  EXPECT_EQ(Difference(Held(Track().m_Stco), Be32(MdatEnd())), "");
}

TEST_F(WriterTables, Stco_Spill_MovesTheOffset) {
  StartText();
  for (int i = 0; i < 10; ++i) EXPECT_EQ(MP4WriterWriteStcoEntry(writer, &Track()), 0);
  const uint32_t end = MdatEnd();
  EXPECT_EQ(MP4WriterWriteStcoEntry(writer, &Track()), 0);
  EXPECT_EQ(MdatEnd(), end + 8 + 40);
  EXPECT_EQ(Difference(Held(Track().m_Stco), Be32(end + 48)), "");
}

TEST_F(WriterTables, Stsc_WritesOnlyChangesOfSamplesPerChunk) {
  StartText(0);
  const struct { uint32_t chunk, samples; } chunks[] = {{1, 3}, {2, 3}, {3, 1}, {4, 3}};
  for (const auto& chunk : chunks) {
    Track().m_dwCurChunk = chunk.chunk;
    Track().m_dwChunkSamples = chunk.samples;
    EXPECT_EQ(MP4WriterWriteStscEntry(writer, &Track()), 0);
  }
  const ByteVector entries = Join({
      Be32(1),
      Be32(3),
      Be32(1),  // first chunk, samples per chunk, sample description
      Be32(3),
      Be32(1),
      Be32(1),
      Be32(4),
      Be32(3),
      Be32(1),
  });
  EXPECT_EQ(Difference(Held(Track().m_Stsc), entries), "");
  EXPECT_EQ(Track().m_dwLastSpc, 3u);
  EXPECT_EQ(MP4WriterWriteStscEntry(writer, &Track()), 0);  // once more changes nothing
  EXPECT_EQ(Track().m_Stsc.m_dwEntryNum, 3u);
}

TEST_F(WriterTables, Stss_EntryIsTheFrameJustCounted) {
  AddVideo();
  Start(1, 1);
  Track().dwTotalFrames = 31;
  EXPECT_EQ(MP4WriterWriteStssEntry(writer, &Track()), 0);
  EXPECT_EQ(Difference(Held(Track().m_Stss), Be32(31)), "");
}

TEST_F(WriterTables, Spill_FullBuffer_GoesToTheEndOfMdatAsOneBlock) {
  StartText();
  for (uint32_t i = 1; i <= 10; ++i) EXPECT_EQ(MP4WriterWriteStszEntry(writer, &Track(), i), 0);
  EXPECT_EQ(Track().m_Stsz.m_dwUsed, Track().m_Stsz.m_dwBufSize);
  EXPECT_EQ(Track().m_Stsz.m_dwSpillNum, 0u);
  EXPECT_EQ(writer->m_bNewChunk, 0);
  const uint32_t end = MdatEnd();
  const uint32_t projected = writer->m_dwCurSize;

  EXPECT_EQ(MP4WriterWriteStszEntry(writer, &Track(), 11), 0);
  const ByteVector block = Join({
      Text("tabl"),
      Be32(40),  // tag, length of what follows
      Be32(1),
      Be32(2),
      Be32(3),
      Be32(4),
      Be32(5),  // sizes
      Be32(6),
      Be32(7),
      Be32(8),
      Be32(9),
      Be32(10),
  });
  EXPECT_EQ(Difference(FileFrom(end), block), "");
  EXPECT_EQ(Track().m_Stsz.m_dwSpillNum, 1u);
  EXPECT_EQ(Track().m_Stsz.m_dwSpillPos[0], end);
  EXPECT_EQ(Track().m_Stsz.m_dwEntryNum, 11u);
  EXPECT_EQ(Track().m_Stsz.m_dwBoxSize, 20u + 44);
  EXPECT_EQ(Difference(Held(Track().m_Stsz), Be32(11)), "");
  EXPECT_EQ(writer->m_bNewChunk, 1);
  EXPECT_EQ(MdatEnd(), end + 48);
  EXPECT_EQ(writer->m_dwCurSize, projected + 48 + 4);
  char line[64];
  std::snprintf(line, sizeof line, "pos(0x%x) size(40)\n", end);
  EXPECT_THAT(host.Traces(3), Contains(line));
}

TEST_F(WriterTables, WriteBuf_Room_TouchesNothing) {
  StartText();
  const size_t size = File().size();
  EXPECT_EQ(MP4WriterWriteBuf(writer, &Track(), &Track().m_Stts, 80), 0);
  EXPECT_EQ(File().size(), size);
  EXPECT_EQ(Track().m_Stts.m_dwSpillNum, 0u);
}

TEST_F(WriterTables, WriteBuf_NoBuffer_IsAMemoryError) {
  StartText();
  const size_t size = File().size();
  EXPECT_EQ(static_cast<uint32_t>(MP4WriterWriteBuf(writer, &Track(), &Track().m_Stss, 4)), ZMV_E_MEMORY);
  EXPECT_EQ(static_cast<uint32_t>(MP4WriterWriteStscEntry(writer, &Track())), ZMV_E_MEMORY);
  EXPECT_EQ(File().size(), size);
}

TEST_F(WriterTables, Entry_AfterTheLastSpill_IsRefusedAndNotAdded) {
  StartText(0);
  MP4WriterTrack& track = Track();
  struct {
    MP4WriterTable& table;
    int32_t (*add)(MP4WriterHandle*, MP4WriterTrack*);
  } rows[] = {
      {track.m_Stsz, [](MP4WriterHandle* w, MP4WriterTrack* t) { return MP4WriterWriteStszEntry(w, t, 1); }},
      {track.m_Stco, [](MP4WriterHandle* w, MP4WriterTrack* t) { return MP4WriterWriteStcoEntry(w, t); }},
      {track.m_Stsc, [](MP4WriterHandle* w, MP4WriterTrack* t) { return MP4WriterWriteStscEntry(w, t); }},
      {track.m_Stts, [](MP4WriterHandle* w, MP4WriterTrack* t) { return MP4WriterWriteSttsEntry(w, t, 9); }},
  };
  track.m_dwChunkSamples = 2;
  track.m_dwRunCount = 1;
  for (auto& row : rows) {
    row.table.m_dwUsed = row.table.m_dwBufSize;
    row.table.m_dwSpillNum = 1440;
    const size_t size = File().size();
    EXPECT_EQ(static_cast<uint32_t>(row.add(writer, &track)), ZMV_E_WRITE);
    EXPECT_EQ(File().size(), size);
    EXPECT_EQ(row.table.m_dwEntryNum, 0u);
    EXPECT_EQ(row.table.m_dwSpillNum, 1440u);
    row.table.m_dwSpillNum = 1439;  // the last slot is good
    EXPECT_EQ(row.add(writer, &track), 0);
    EXPECT_EQ(row.table.m_dwSpillNum, 1440u);
    EXPECT_EQ(row.table.m_dwEntryNum, 1u);
  }
}

TEST_F(WriterTables, Spill_WriteFails_KeepsTheBufferAndTheSlot) {
  for (const uint64_t call : {1u, 2u}) {
    info = {};
    StartText();
    for (uint32_t i = 1; i <= 10; ++i) EXPECT_EQ(MP4WriterWriteStszEntry(writer, &Track(), i), 0);
    const uint32_t end = MdatEnd();
    host.Fail(HostCall::kWrite, call);
    EXPECT_EQ(static_cast<uint32_t>(MP4WriterWriteStszEntry(writer, &Track(), 11)), ZMV_E_WRITE);
    EXPECT_EQ(Track().m_Stsz.m_dwSpillNum, 0u);
    EXPECT_EQ(Track().m_Stsz.m_dwEntryNum, 10u);
    EXPECT_EQ(Track().m_Stsz.m_dwUsed, 40u);
    EXPECT_EQ(MdatEnd(), end);
    EXPECT_EQ(writer->m_bNewChunk, 0);
    EXPECT_EQ(MP4WriterWriteStszEntry(writer, &Track(), 11), 0);
    EXPECT_EQ(Track().m_Stsz.m_dwSpillNum, 1u);
    // The second attempt takes the place of the first.
    EXPECT_EQ(Track().m_Stsz.m_dwSpillPos[0], end);
    EXPECT_EQ(File().size(), end + 48);
    EXPECT_EQ(Difference(BytesOf(File(), {"", end, 12}), Join({Text("tabl"), Be32(40), Be32(1)})), "");
    Close();
  }
}

TEST_F(WriterTables, Spill_CutShort_IsAWriteError) {
  for (const uint64_t room : {1u, 7u, 8u, 47u}) {
    info = {};
    StartText();
    for (uint32_t i = 1; i <= 10; ++i) EXPECT_EQ(MP4WriterWriteStszEntry(writer, &Track(), i), 0);
    const uint32_t end = MdatEnd();
    host.file_capacity = end + room;
    host.ClearRecords();
    EXPECT_EQ(static_cast<uint32_t>(MP4WriterWriteStszEntry(writer, &Track(), 11)), ZMV_E_WRITE) << room;
    EXPECT_THAT(host.Traces(1), Contains("err (0x80000013)\n"));
    EXPECT_EQ(Track().m_Stsz.m_dwSpillNum, 0u);
    EXPECT_EQ(MdatEnd(), end);
    host.file_capacity = UINT64_MAX;
    EXPECT_EQ(MP4WriterWriteStszEntry(writer, &Track(), 11), 0);
    EXPECT_EQ(Track().m_Stsz.m_dwSpillPos[0], end);
    EXPECT_EQ(File().size(), end + 48);
    Close();
  }
}

TEST_F(WriterTables, Stts_SpillFails_KeepsTheRun) {
  StartText();
  for (uint32_t i = 1; i <= 11; ++i) EXPECT_EQ(MP4WriterWriteSttsEntry(writer, &Track(), i), 0);
  EXPECT_EQ(Track().m_Stts.m_dwUsed, Track().m_Stts.m_dwBufSize);
  host.Fail(HostCall::kWrite, 1);
  EXPECT_EQ(static_cast<uint32_t>(MP4WriterWriteSttsEntry(writer, &Track(), 12)), ZMV_E_WRITE);
  EXPECT_EQ(Track().m_dwRunCount, 1u);
  EXPECT_EQ(Track().m_dwRunDelta, 11u);
}

TEST_F(WriterTables, NoHandle_IsRefused) {
  EXPECT_EQ(static_cast<uint32_t>(MP4WriterWriteBuf(nullptr, nullptr, nullptr, 4)), ZMV_E_FAIL);
  EXPECT_EQ(static_cast<uint32_t>(MP4WriterWriteSttsEntry(nullptr, nullptr, 1)), ZMV_E_FAIL);
  EXPECT_EQ(static_cast<uint32_t>(MP4WriterWriteStszEntry(nullptr, nullptr, 1)), ZMV_E_FAIL);
  EXPECT_EQ(static_cast<uint32_t>(MP4WriterWriteStscEntry(nullptr, nullptr)), ZMV_E_FAIL);
  EXPECT_EQ(static_cast<uint32_t>(MP4WriterWriteStcoEntry(nullptr, nullptr)), ZMV_E_FAIL);
  EXPECT_EQ(static_cast<uint32_t>(MP4WriterWriteStssEntry(nullptr, nullptr)), ZMV_E_FAIL);
}

}  // namespace
}  // namespace zmv::test

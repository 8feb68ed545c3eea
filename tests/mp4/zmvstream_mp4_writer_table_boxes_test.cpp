#include "tests/mp4/writer_test.h"

namespace zmv::test {
namespace {

class WriterTableBoxes : public WriterTest {
 protected:
  using BoxWriter = int32_t (*)(MP4WriterHandle*, MP4WriterTrack*, uint8_t*, uint32_t);

  void StartText(uint8_t interleave = 1) {
    AddText(1000);
    Start(interleave, 1);
  }
  // What `write` appends to the file, with a scratch buffer of `size` bytes.
  ByteVector Written(BoxWriter write, uint32_t size = 64) {
    const size_t before = File().size();
    ByteVector scratch(size);
    EXPECT_EQ(write(writer, &Track(), scratch.data(), size), 0);
    return FileFrom(before);
  }
  void AddSizes(uint32_t first, uint32_t last) {
    for (uint32_t i = first; i <= last; ++i) ASSERT_EQ(MP4WriterWriteStszEntry(writer, &Track(), i), 0);
  }
  static ByteVector Numbers(uint32_t first, uint32_t last) {
    ByteVector bytes;
    for (uint32_t i = first; i <= last; ++i) bytes = Join({bytes, Be32(i)});
    return bytes;
  }
};

TEST_F(WriterTableBoxes, Stsz_SizesThatDiffer_AreListed) {
  StartText();
  for (const uint32_t size : {5u, 6u, 5u}) MP4WriterWriteStszEntry(writer, &Track(), size);
  EXPECT_EQ(Difference(Written(MP4WriterWriteStsz),
                       Hex("00000020 7374737A 00000000 00000000 00000003 00000005 00000006 00000005")),
            "");
}

TEST_F(WriterTableBoxes, Stsz_OneSize_IsStatedOnce) {
  StartText();
  for (int i = 0; i < 3; ++i) MP4WriterWriteStszEntry(writer, &Track(), 100);
  EXPECT_EQ(Difference(Written(MP4WriterWriteStsz), Hex("00000014 7374737A 00000000 00000064 00000003")), "");
}

TEST_F(WriterTableBoxes, Stsz_RawAudio_StatesOneSampleAlsoWhenFramesDiffer) {
  AddAudio(ZMV_AUDIO_PCM_LE);
  Start(1, 1);
  Track().m_dwSampPerFrame = 1024;
  MP4WriterWriteStszEntry(writer, &Track(), 2048);
  MP4WriterWriteStszEntry(writer, &Track(), 1000);
  const ByteVector box = Join({
      Be32(20), Text("stsz"), Be32(0),  // box, version and flags
      Be32(2), Be32(2 * 1024),          // bytes of a sample, samples
  });
  EXPECT_EQ(Difference(Written(MP4WriterWriteStsz), box), "");
}

TEST_F(WriterTableBoxes, Stsz_RawAudioWithoutBits_ListsTheFrames) {
  AddAudio(ZMV_AUDIO_PCM).dwBitsPerSample = 0;
  Start(1, 1);
  MP4WriterWriteStszEntry(writer, &Track(), 7);
  const ByteVector box = Join({
      Be32(24),
      Text("stsz"),
      Be32(0),  // box, version and flags
      Be32(0),
      Be32(0),  // no common size; no frame counts as samples
      Be32(7),
  });
  EXPECT_EQ(Difference(Written(MP4WriterWriteStsz), box), "");
}

TEST_F(WriterTableBoxes, Stts_Stco_Stss_AreHeaderAndEntries) {
  AddVideo(FourCC("H264"), 1000);
  Start(1, 1);
  MP4WriterWriteSttsEntry(writer, &Track(), 3000);
  MP4WriterWriteSttsEntry(writer, &Track(), 3001);
  EXPECT_EQ(Difference(Written(MP4WriterWriteStts), Join({Be32(24), Text("stts"), Be32(0), Be32(1),  // one entry
                                                          Be32(1), Be32(3000)})),
            "");
  MP4WriterWriteStcoEntry(writer, &Track());
  EXPECT_EQ(Difference(Written(MP4WriterWriteStco), Join({Be32(20), Text("stco"), Be32(0), Be32(1), Be32(MdatEnd())})),
            "");
  Track().dwTotalFrames = 4;
  MP4WriterWriteStssEntry(writer, &Track());
  EXPECT_EQ(Difference(Written(MP4WriterWriteStss), Join({Be32(20), Text("stss"), Be32(0), Be32(1), Be32(4)})), "");
}

TEST_F(WriterTableBoxes, NoEntries_NoBox) {
  AddVideo();
  Start(0, 1);
  for (const BoxWriter write :
       {MP4WriterWriteStts, MP4WriterWriteStsz, MP4WriterWriteStsc, MP4WriterWriteStco, MP4WriterWriteStss}) {
    EXPECT_TRUE(Written(write).empty());
  }
}

TEST_F(WriterTableBoxes, Stsc_Interleaved_IsOneFixedEntry) {
  StartText(1);
  const ByteVector box = Join({
      Be32(28), Text("stsc"), Be32(0), Be32(1),  // box, one entry
      Be32(1), Be32(1), Be32(1),                 // first chunk, samples per chunk, sample description
  });
  EXPECT_EQ(Difference(Written(MP4WriterWriteStsc), box), "");
}

TEST_F(WriterTableBoxes, Stsc_NotInterleaved_IsTheTable) {
  AddAudio(ZMV_AUDIO_PCM);  // raw audio, too
  Start(0, 1);
  Track().m_dwCurChunk = 1;
  Track().m_dwChunkSamples = 5;
  MP4WriterWriteStscEntry(writer, &Track());
  const ByteVector box = Join({
      Be32(28), Text("stsc"), Be32(0), Be32(1),  // box, one entry
      Be32(1), Be32(5), Be32(1),                 // first chunk, samples per chunk, sample description
  });
  EXPECT_EQ(Difference(Written(MP4WriterWriteStsc), box), "");
}

TEST_F(WriterTableBoxes, Stsc_InterleavedRawAudio_ListsEveryChunkInPieces) {
  AddAudio(ZMV_AUDIO_PCM);
  Start(1, 1);
  Track().m_dwSampPerFrame = 1024;
  AddSizes(1, 5);
  ByteVector box = Join({Be32(16 + 12 * 5), Text("stsc"), Be32(0), Be32(5)});
  for (uint32_t i = 1; i <= 5; ++i) box = Join({box, Be32(i), Be32(1024), Be32(1)});
  const uint64_t writes = host.Count(HostCall::kWrite);
  EXPECT_EQ(Difference(Written(MP4WriterWriteStsc, 24 + 11), box), "");  // two entries at a time
  EXPECT_EQ(host.Count(HostCall::kWrite) - writes, 1u + 3);
}

TEST_F(WriterTableBoxes, Stsc_ScratchBelowAnEntry_IsRefused) {
  AddAudio(ZMV_AUDIO_PCM);
  Start(1, 1);
  AddSizes(1, 1);
  uint8_t scratch[11];
  EXPECT_EQ(static_cast<uint32_t>(MP4WriterWriteStsc(writer, &Track(), scratch, sizeof scratch)), ZMV_E_FAIL);
}

TEST_F(WriterTableBoxes, Spills_AreCopiedBackInOrderThroughASmallScratch) {
  StartText();
  AddSizes(1, 25);
  ASSERT_EQ(Track().m_Stsz.m_dwSpillNum, 2u);
  const ByteVector box = Join({
      Be32(20 + 100),
      Text("stsz"),
      Be32(0),
      Be32(0),
      Be32(25),  // box, no common size, samples
      Numbers(1, 25),
  });
  for (const uint32_t scratch : {7u, 40u, 16384u}) {
    EXPECT_EQ(Difference(Written(MP4WriterWriteStsz, scratch), box), "") << scratch;
  }
  char line[64];
  std::snprintf(line, sizeof line, "pos(%x) size(40)\n", Track().m_Stsz.m_dwSpillPos[1]);
  EXPECT_TRUE(host.Traced(line));
}

TEST_F(WriterTableBoxes, Spill_LengthBeyondTheBuffer_IsReportedAndTheCapacityCopied) {
  StartText();
  AddSizes(1, 11);
  File()[Track().m_Stsz.m_dwSpillPos[0] + 6] = 1;  // the length now says 296
  const ByteVector copied = Written([](MP4WriterHandle* w, MP4WriterTrack* t, uint8_t* s, uint32_t n) {
    return MP4WriterWriteTable(w, t, &t->m_Stsz, s, n);
  });
  EXPECT_EQ(Difference(copied, Numbers(1, 11)), "");
  EXPECT_TRUE(host.Traced("STSZ table size is too big (296) dwSize(40)\n"));
}

TEST_F(WriterTableBoxes, Spill_StscTable_GoesByTheNameOfStco) {
  StartText(0);
  for (uint32_t i = 1; i <= 11; ++i) {
    Track().m_dwCurChunk = i;
    Track().m_dwChunkSamples = i;
    ASSERT_EQ(MP4WriterWriteStscEntry(writer, &Track()), 0);
  }
  File()[Track().m_Stsc.m_dwSpillPos[0] + 6] = 1;
  Written(MP4WriterWriteStsc);
  EXPECT_TRUE(host.Traced("STCO table size is too big (376) dwSize(120)\n"));
}

TEST_F(WriterTableBoxes, Spill_NoScratch_IsRefused) {
  StartText();
  AddSizes(1, 11);
  EXPECT_EQ(static_cast<uint32_t>(MP4WriterWriteTable(writer, &Track(), &Track().m_Stsz, nullptr, 0)), ZMV_E_FAIL);
}

TEST_F(WriterTableBoxes, AnyStreamCallFails_GivesItsCode) {
  StartText();
  AddSizes(1, 25);
  ByteVector scratch(16);
  const struct {
    HostCall call;
    uint32_t code;
  } kinds[] = {{HostCall::kRead, ZMV_E_READ}, {HostCall::kWrite, ZMV_E_WRITE}, {HostCall::kSeek, ZMV_E_SEEK}};
  for (const auto& kind : kinds) {
    uint64_t failed = 0;
    for (uint64_t call = 1;; ++call) {
      ASSERT_LT(call, 200u);
      const uint64_t before = host.Count(kind.call);
      host.Fail(kind.call, call);
      const int32_t result = MP4WriterWriteStsz(writer, &Track(), scratch.data(), 16);
      host.ClearFailures();
      if (host.Count(kind.call) - before < call) break;
      EXPECT_EQ(static_cast<uint32_t>(result), kind.code) << call;
      EXPECT_EQ(host.Count(kind.call) - before, call) << "nothing follows a failure";
      ++failed;
    }
    EXPECT_GE(failed, 8u);
  }
}

TEST_F(WriterTableBoxes, Spill_BehindTheEndOfTheFile_IsAReadError) {
  StartText();
  AddSizes(1, 11);
  ByteVector scratch(64);
  File().resize(Track().m_Stsz.m_dwSpillPos[0] + 6);  // ends inside the length
  EXPECT_EQ(static_cast<uint32_t>(MP4WriterWriteTable(writer, &Track(), &Track().m_Stsz, scratch.data(), 64)),
            ZMV_E_READ);
  Track().m_Stsz.m_dwSpillPos[0] = 0xFFFFFF00;
  EXPECT_EQ(static_cast<uint32_t>(MP4WriterWriteTable(writer, &Track(), &Track().m_Stsz, scratch.data(), 64)),
            ZMV_E_SEEK);
}

TEST_F(WriterTableBoxes, ShortReadsAndNoProgress_EndWell) {
  StartText();
  AddSizes(1, 11);
  host.max_transfer = 4;
  const ByteVector copied = Written([](MP4WriterHandle* w, MP4WriterTrack* t, uint8_t* s,
                                       uint32_t n) { return MP4WriterWriteTable(w, t, &t->m_Stsz, s, n); },
                                    4);
  host.max_transfer = UINT64_MAX;
  EXPECT_EQ(Difference(copied, Numbers(1, 11)), "");
}

TEST_F(WriterTableBoxes, ShortWrites_AreWriteErrors) {
  StartText();
  AddSizes(1, 11);
  ByteVector scratch(64);
  // Inside the header, inside the copied block, inside the buffer.
  for (const uint64_t room : {19u, 20u, 59u, 60u, 63u}) {
    host.file_capacity = File().size() + room;
    EXPECT_EQ(static_cast<uint32_t>(MP4WriterWriteStsz(writer, &Track(), scratch.data(), 64)), ZMV_E_WRITE) << room;
    host.file_capacity = UINT64_MAX;
  }
  EXPECT_EQ(MP4WriterWriteStsz(writer, &Track(), scratch.data(), 64), 0);
}

TEST_F(WriterTableBoxes, NoHandle_IsRefused) {
  for (const BoxWriter write :
       {MP4WriterWriteStts, MP4WriterWriteStsz, MP4WriterWriteStsc, MP4WriterWriteStco, MP4WriterWriteStss}) {
    EXPECT_EQ(static_cast<uint32_t>(write(nullptr, nullptr, nullptr, 0)), ZMV_E_FAIL);
  }
  EXPECT_EQ(static_cast<uint32_t>(MP4WriterWriteTable(nullptr, nullptr, nullptr, nullptr, 0)), ZMV_E_FAIL);
}

}  // namespace
}  // namespace zmv::test

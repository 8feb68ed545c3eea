#include <algorithm>

#include "tests/mp4/writer_test.h"

namespace zmv::test {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Not;

class WriterClose : public WriterTest {
 protected:
  ~WriterClose() override { ZMVStreamBuf_SetOption(0, nullptr); }

  std::vector<FoundBox> TopBoxes() { return BoxesIn(File(), 0, File().size()); }
  static uint64_t SttsCount(const ByteVector& stts) {
    uint64_t count = 0;
    for (size_t i = 16; i + 8 <= stts.size(); i += 8) count += Be32At(stts, i);
    return count;
  }
};

TEST_F(WriterClose, NoHandle_OnlySaysLeave) {
  MP4WriterClose(nullptr);
  EXPECT_THAT(host.Traces(4), ElementsAre("Leave.\n"));
}

TEST_F(WriterClose, WithoutInformation_WritesNothing) {
  ASSERT_EQ(Open(), 0);
  CloseWriter();
  EXPECT_EQ(host.Count(HostCall::kWrite), 0u);
  EXPECT_TRUE(File().empty());
}

TEST_F(WriterClose, NoStreams_GivesAMovieOfItsHeader) {
  Start();
  const uint32_t mdat = writer->m_dwMdatPos;
  CloseWriter();
  EXPECT_EQ(Difference(FileFrom(mdat), Join({
                                           Be32(8),          Text("mdat"),                    // empty
                                           Be32(116),        Text("moov"),                    // box
                                           Be32(108),        Text("mvhd"),     Zeros(4 + 8),  // box, version, times
                                           Be32(0),          Be32(0),                         // time scale, duration
                                           Be32(0x00010000), Be16(0x0100),     Zeros(10),     // rate, volume
                                           Be32(0x00010000), Zeros(12),        Be32(0x00010000),  // matrix
                                           Zeros(12),        Be32(0x40000000),                    //
                                           Zeros(24),        Be32(0),                             // next track ID
                                       })),
            "");
}

TEST_F(WriterClose, Sizes_ArePatchedInMdatMoovAndFtyp) {
  AddAudio();
  Start();
  for (int i = 0; i < 3; ++i) EXPECT_EQ(WriteAudio(10, 0), 0);
  const uint32_t position = writer->m_dwMdatPos;
  const uint32_t size = writer->m_dwMdatSize;
  EXPECT_EQ(Be32At(File(), position), 8u);
  host.ClearRecords();
  CloseWriter();
  EXPECT_EQ(Be32At(File(), position), size);
  EXPECT_EQ(Be32At(File(), position + size), File().size() - position - size);
  const std::vector<CallRecord> writes = host.Calls(HostCall::kWrite);
  ASSERT_GE(writes.size(), 3u);
  EXPECT_EQ(writes[writes.size() - 3].position, position);
  EXPECT_EQ(writes[writes.size() - 2].position, position + size);
  EXPECT_EQ(writes[writes.size() - 1].position, 0u);
  EXPECT_TRUE(host.Traced("Mdat Size (" + std::to_string(size) + ")\n"));
  EXPECT_TRUE(host.Traced("Moov Size (" + std::to_string(File().size() - position - size) + ")\n"));
  EXPECT_EQ(Types(TopBoxes()), (std::vector<std::string>{"ftyp", "free", "free", "free", "mdat", "moov"}));
}

TEST_F(WriterClose, Stts_CountsEveryFrameAndTheLastLikeTheOneBefore) {
  AddVideo().dwTimeScale = 90000;
  Start();
  for (uint64_t i = 0; i < 5; ++i) EXPECT_EQ(WriteVideo(10 + i, i * 33), 0);
  CloseWriter();
  EXPECT_EQ(Difference(SampleTableBox(File(), "stts"), Join({
                                                           Be32(24), Text("stts"), Be32(0), Be32(1),  // one run
                                                           Be32(5), Be32(3000),                       // count, delta
                                                       })),
            "");
}

TEST_F(WriterClose, Stts_LastDurationZero_IsCountedToo) {
  AddAudio();
  Start();
  for (const uint32_t duration : {20u, 20u, 0u}) EXPECT_EQ(WriteAudio(10, 0, duration), 0);
  CloseWriter();
  EXPECT_EQ(Difference(SampleTableBox(File(), "stts"), Join({
                                                           Be32(32),
                                                           Text("stts"),
                                                           Be32(0),
                                                           Be32(2),  // two runs
                                                           Be32(1),
                                                           Be32(960),  // count, delta
                                                           Be32(2),
                                                           Be32(0),
                                                       })),
            "");
}

TEST_F(WriterClose, Stts_AllDurationsZero_StillCountsTheFrames) {
  AddText();
  Start();
  for (int i = 0; i < 4; ++i) EXPECT_EQ(WriteText(10, 0, 0), 0);
  CloseWriter();
  EXPECT_EQ(
      Difference(SampleTableBox(File(), "stts"), Join({Be32(24), Text("stts"), Be32(0), Be32(1), Be32(4), Be32(0)})),
      "");
}

TEST_F(WriterClose, Stts_OneFrame_IsOneRun) {
  AddText();
  Start();
  EXPECT_EQ(WriteText(10, 0, 500), 0);
  CloseWriter();
  EXPECT_EQ(
      Difference(SampleTableBox(File(), "stts"), Join({Be32(24), Text("stts"), Be32(0), Be32(1), Be32(1), Be32(500)})),
      "");
}

TEST_F(WriterClose, TrackWithoutSamples_HasNoTrakButCounts) {
  AddVideo();
  AddAudio();
  Start();
  EXPECT_EQ(WriteAudio(10), 0);
  CloseWriter();
  const ByteVector moov = BoxAt(File(), {"moov"});
  EXPECT_EQ(Types(BoxesIn(moov, 8, moov.size())), (std::vector<std::string>{"mvhd", "trak"}));
  EXPECT_EQ(Be32At(BoxAt(File(), {"moov", "mvhd"}), 104), 2u);
  EXPECT_EQ(Be32At(BoxAt(File(), {"moov", "trak", "tkhd"}), 20), 2u);  // track ID
}

TEST_F(WriterClose, Interleaved_StscIsOneEntryAndSizesThatAgreeAreStatedOnce) {
  AddVideo();
  Start(1);
  for (int i = 0; i < 3; ++i) EXPECT_EQ(WriteVideo(100), 0);
  CloseWriter();
  EXPECT_EQ(Difference(SampleTableBox(File(), "stsc"),
                       Join({Be32(28), Text("stsc"), Be32(0), Be32(1), Be32(1), Be32(1), Be32(1)})),
            "");
  EXPECT_EQ(Difference(SampleTableBox(File(), "stsz"), Hex("00000014 7374737A 00000000 00000064 00000003")), "");
  EXPECT_TRUE(SampleTableBox(File(), "stss").empty());  // no key frame
}

TEST_F(WriterClose, NotInterleaved_TheLastChunkIsListed) {
  AddVideo();
  AddAudio();
  Start(0);
  for (int i = 0; i < 3; ++i) EXPECT_EQ(WriteVideo(10), 0);
  for (int i = 0; i < 2; ++i) EXPECT_EQ(WriteAudio(10), 0);
  CloseWriter();
  EXPECT_EQ(Difference(SampleTableBox(File(), "stsc", 0),
                       Join({Be32(28), Text("stsc"), Be32(0), Be32(1), Be32(1), Be32(3), Be32(1)})),
            "");
  EXPECT_EQ(Difference(SampleTableBox(File(), "stsc", 1),
                       Join({Be32(28), Text("stsc"), Be32(0), Be32(1), Be32(1), Be32(2), Be32(1)})),
            "");
}

TEST_F(WriterClose, RawAudio_InterleavedListsEveryChunk) {
  AddAudio(ZMV_AUDIO_PCM_LE).dwChannels = 1;
  Start(1);
  for (int i = 0; i < 3; ++i) EXPECT_EQ(WriteAudio(2048, 0, 21), 0);
  CloseWriter();
  EXPECT_EQ(Difference(SampleTableBox(File(), "stsc"), Join({
                                                           Be32(52),
                                                           Text("stsc"),
                                                           Be32(0),
                                                           Be32(3),  // box, chunks
                                                           Be32(1),
                                                           Be32(1024),
                                                           Be32(1),
                                                           Be32(2),
                                                           Be32(1024),
                                                           Be32(1),
                                                           Be32(3),
                                                           Be32(1024),
                                                           Be32(1),
                                                       })),
            "");
  EXPECT_EQ(Difference(SampleTableBox(File(), "stsz"), Hex("00000014 7374737A 00000000 00000002 00000C00")), "");
  EXPECT_EQ(
      Difference(SampleTableBox(File(), "stts"), Join({Be32(24), Text("stts"), Be32(0), Be32(1), Be32(3072), Be32(1)})),
      "");
  const FoundBox last = TopBoxes().back();
  EXPECT_EQ(last.type, "moov");
  EXPECT_EQ(last.position + last.size, File().size());
}

TEST_F(WriterClose, RawAudio_NotInterleavedKeepsTheTable) {
  AddAudio(ZMV_AUDIO_PCM_LE);
  Start(0);
  for (int i = 0; i < 3; ++i) EXPECT_EQ(WriteAudio(2048, 0, 21), 0);
  CloseWriter();
  EXPECT_EQ(Difference(SampleTableBox(File(), "stsc"),
                       Join({Be32(28), Text("stsc"), Be32(0), Be32(1), Be32(1), Be32(3), Be32(1)})),
            "");
  const FoundBox last = TopBoxes().back();
  EXPECT_EQ(last.position + last.size, File().size());
}

TEST_F(WriterClose, SpillsOfEveryTable_ComeBackWhole) {
  for (const uint8_t interleave : {uint8_t{0}, uint8_t{1}}) {
    StartAll(interleave);
    WriteAll(35);
    EXPECT_EQ(Track(0).m_Stss.m_dwSpillNum, 3u);
    for (uint32_t i = 0; i < 3; ++i) {
      for (const MP4WriterTable* table : {&Track(i).m_Stts, &Track(i).m_Stsz, &Track(i).m_Stco}) {
        EXPECT_EQ(table->m_dwSpillNum, 3u) << i;
      }
    }
    CloseWriter();
    ByteVector key_frames;
    for (uint32_t frame = 1; frame <= 35; ++frame) key_frames = Join({key_frames, Be32(frame)});
    EXPECT_EQ(
        Difference(SampleTableBox(File(), "stss"), Join({Be32(156), Text("stss"), Be32(0), Be32(35), key_frames})), "");
    for (uint32_t i = 0; i < 3; ++i) {
      const uint32_t least = i == 2 ? 92 : 10;
      const ByteVector stsz = SampleTableBox(File(), "stsz", i);
      const ByteVector stco = SampleTableBox(File(), "stco", i);
      EXPECT_EQ(SttsCount(SampleTableBox(File(), "stts", i)), 35u);
      ASSERT_EQ(stsz.size(), 20u + 4 * 35);
      ASSERT_EQ(stco.size(), 16u + 4 * 35);
      for (uint32_t frame = 0; frame < 35; ++frame) {
        EXPECT_EQ(Be32At(stsz, 20 + 4 * frame), least + frame);
        // The record in front of the payload names its size, unless a table was spilled between the two.
        const uint32_t offset = Be32At(stco, 16 + 4 * frame);
        const bool spilled = frame != 0 && frame % 10 == 0;
        if (!spilled) {
          EXPECT_EQ(Be32At(File(), offset - 4), least + frame);
        }
        const uint32_t first = i == 0 ? 0 : i == 1 ? 0xAA : 0x77;
        EXPECT_EQ(File()[offset], first);
      }
    }
    const FoundBox last = TopBoxes().back();
    EXPECT_EQ(last.type, "moov");
    EXPECT_EQ(last.position + last.size, File().size());
    Close();
  }
}

TEST_F(WriterClose, SpillOfTheClosingEntry_GoesIntoMdat) {
  AddText(1000);
  Start(1, 1);
  for (uint32_t i = 0; i < 12; ++i) EXPECT_EQ(WriteText(10, i, 1000 + i), 0);  // ten entries and an open run
  EXPECT_EQ(Track().m_Stts.m_dwUsed, 80u);
  const uint32_t end = MdatEnd();
  CloseWriter();
  EXPECT_EQ(Difference(BytesOf(File(), {"", end, 8}), Join({Text("tabl"), Be32(80)})), "");
  EXPECT_EQ(Difference(BytesOf(File(), {"", end + 88 + 4, 4}), Text("moov")), "");
  EXPECT_EQ(SttsCount(SampleTableBox(File(), "stts")), 12u);
}

TEST_F(WriterClose, UserBoxes_StandBetweenMdatAndMoov) {
  StartAll(1);
  WriteAll(3);
  const uint32_t end = MdatEnd();
  CloseWriter();
  const std::vector<std::string> types = Types(TopBoxes());
  EXPECT_EQ(std::vector<std::string>(types.end() - 5, types.end()),
            (std::vector<std::string>{"mdat", "GPSR", "SENS", "AIDD", "moov"}));
  EXPECT_EQ(Be32At(File(), end), 8u + 3 * 80);
  EXPECT_EQ(Be32At(File(), end + 248), 8u + 3 * 12);
  EXPECT_EQ(Be32At(File(), end + 248 + 44), 12u);
}

TEST_F(WriterClose, UserData_NoTextFrame_WritesOnlyAidd) {
  StartAll(1);
  EXPECT_EQ(WriteAudio(10), 0);
  CloseWriter();
  EXPECT_THAT(Types(TopBoxes()), Contains("AIDD"));
  EXPECT_THAT(Types(TopBoxes()), Not(Contains("GPSR")));
  EXPECT_THAT(Types(TopBoxes()), Not(Contains("SENS")));
}

TEST_F(WriterClose, PresizedFile_IsCoveredToItsEnd) {
  AddAudio();
  Start();
  EXPECT_EQ(WriteAudio(10), 0);
  host.presized = 5000;
  const uint32_t end = MdatEnd();
  CloseWriter();
  const uint32_t moov = Be32At(File(), end);
  EXPECT_EQ(Difference(FileFrom(end + moov), Join({Be32(5000 - end - moov), Text("free")})), "");
}

TEST_F(WriterClose, PresizedFile_WithUserBoxes_CountsThem) {
  StartAll(1);
  WriteAll(2);
  host.presized = 20000;
  CloseWriter();
  const std::vector<FoundBox> boxes = TopBoxes();
  const FoundBox moov = boxes.back();
  ASSERT_EQ(moov.type, "moov");
  EXPECT_EQ(Be32At(File(), moov.position + moov.size), 20000 - moov.position - moov.size);
}

TEST_F(WriterClose, PresizedFile_RestBelowAHeader_IsAHeader) {
  AddAudio();
  Start();
  EXPECT_EQ(WriteAudio(10), 0);
  CloseWriter();
  const uint64_t whole = File().size();
  Close();
  // A rest of 4 GiB and more is stated by its low half.
  const uint64_t low = UINT64_C(1) << 32;
  for (const uint64_t rest :
       {uint64_t{0}, uint64_t{1}, uint64_t{7}, uint64_t{8}, uint64_t{9}, low, low + 1, low + 7, low + 9}) {
    std::srand(1);
    Start();
    EXPECT_EQ(WriteAudio(10), 0);
    host.presized = whole + rest;
    CloseWriter();
    if (rest == 0) {
      EXPECT_EQ(File().size(), whole);
    } else {
      EXPECT_EQ(Difference(FileFrom(whole), Join({Be32(std::max(static_cast<uint32_t>(rest), 8u)), Text("free")})), "");
    }
    host.presized = 0;
    Close();
    std::srand(1);
  }
}

TEST_F(WriterClose, FileSizeUnknown_CoversNothing) {
  AddAudio();
  Start();
  host.Fail(HostCall::kSize, 1, ScriptedHost::kForGood);
  CloseWriter();
  EXPECT_EQ(TopBoxes().back().type, "moov");
}

TEST_F(WriterClose, StreamOption_GivesAnEmptyBoxAtTheEnd) {
  ZMVStreamBuf_SetOption(1, nullptr);
  AddAudio();
  Start();
  EXPECT_EQ(WriteAudio(10), 0);
  host.presized = 5000;
  CloseWriter();
  const FoundBox last = TopBoxes().back();
  EXPECT_EQ(last.type, "free");
  EXPECT_EQ(last.size, 8u);
  EXPECT_EQ(last.position + 8, File().size());
}

TEST_F(WriterClose, NoMemoryForTheBoxBuffer_PatchesNothingAndReleasesAll) {
  StartAll(0);
  WriteAll(3);
  const uint32_t position = writer->m_dwMdatPos;
  host.Fail(HostCall::kMalloc, 1);
  CloseWriter();
  EXPECT_TRUE(host.Traced("MAX_BOX_SIZE(16384) Malloc Fail!!!\n"));
  EXPECT_EQ(Be32At(File(), position), 8u);
  EXPECT_THAT(Types(TopBoxes()), Not(Contains("moov")));
  ZMVStreamBuf_Close(stream);
  stream = nullptr;
  EXPECT_EQ(host.LiveBlocks(), 1u);  // the last sample outlives the writer
}

TEST_F(WriterClose, UncheckedRecordThatFailed_LeavesTheMovieSizeRight) {
  AddAudio();
  Start();
  host.Fail(HostCall::kWrite, 1);
  EXPECT_EQ(WriteAudio(10), 0);
  CloseWriter();
  const ByteVector name = Text("moov");
  const auto found = std::search(File().begin(), File().end(), name.begin(), name.end());
  const size_t moov = static_cast<size_t>(found - File().begin()) - 4;
  EXPECT_EQ(Be32At(File(), moov), File().size() - moov);
}

// Three user boxes of two writes each, then moov.
TEST_F(WriterClose, UserBoxThatFailed_LeavesMoovWhereTheSizesLeadTo) {
  for (uint64_t call = 1; call <= 5; ++call) {
    StartAll(1);
    WriteAll(2);
    const uint32_t end = MdatEnd();
    host.Fail(HostCall::kWrite, call);
    CloseWriter();
    EXPECT_EQ(Difference(BytesOf(File(), {"", end + 168 + 32 + 12 + 4, 4}), Text("moov")), "") << call;
    EXPECT_EQ(Be32At(File(), end + 168 + 32 + 12), File().size() - end - 168 - 32 - 12);
    Close();
  }
}

TEST_F(WriterClose, PayloadThatFailed_LeavesNothingBetweenMdatAndMoov) {
  AddVideo();
  Start();
  EXPECT_EQ(WriteVideo(10), 0);
  host.Fail(HostCall::kWrite, 3);
  EXPECT_EQ(static_cast<uint32_t>(WriteVideo(10)), ZMV_E_WRITE);
  CloseWriter();
  EXPECT_EQ(Types(TopBoxes()), (std::vector<std::string>{"ftyp", "free", "free", "free", "mdat", "moov"}));
}

TEST_F(WriterClose, Messages_HaveTheirLevels) {
  AddAudio();
  Start();
  EXPECT_EQ(WriteAudio(10), 0);
  const std::string mdat = "Mdat Size (" + std::to_string(writer->m_dwMdatSize) + ")\n";
  const size_t begin = MdatEnd();
  CloseWriter();
  const std::string moov = "Moov Size (" + std::to_string(File().size() - begin) + ")\n";
  EXPECT_THAT(host.Traces(3), ::testing::IsSupersetOf({mdat, moov}));
  EXPECT_EQ(host.traces().back().text, "Leave.\n");
  EXPECT_EQ(host.traces().back().level, 4);
  Close();
  Start();
  host.Fail(HostCall::kMalloc, 1);
  CloseWriter();
  EXPECT_THAT(host.Traces(1), Contains("MAX_BOX_SIZE(16384) Malloc Fail!!!\n"));
}

TEST_F(WriterClose, SeekFails_PatchesNothingElsewhere) {
  AddAudio();
  Start();
  EXPECT_EQ(WriteAudio(10), 0);
  const uint32_t end = MdatEnd();
  stream->Seek = [](void*, uint32_t, uint32_t) -> int64_t { return Result(ZMV_E_SEEK); };
  CloseWriter();
  EXPECT_TRUE(host.Traced("err (0x80000014)\n"));
  // The placeholders stand, and nothing follows the last table.
  EXPECT_EQ(Difference(BytesOf(File(), {"", end, 8}), Join({Be32(8), Text("moov")})), "");
  EXPECT_EQ(Difference(ByteVector(File().end() - 20, File().end()),
                       Join({Be32(20), Text("stco"), Be32(0), Be32(1), Be32(end - 10)})),
            "");
}

}  // namespace
}  // namespace zmv::test

// The super and standard indexes of OpenDML.
#include "tests/avi/avi_index_test.h"

namespace zmv::test {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

using AviOdml = AviIndexTest;

// ---- Super indexes

TEST_F(AviOdml, SuperIndex_IsKept) {
  for (uint32_t sub_type : {0u, 1u}) {
    ASSERT_EQ(ReadSuper(Join(
                  {SuperIndexHeader(0, sub_type, 2), SuperIndexEntry(0x1122334455667788, 64, 3), SuperIndexEntry(5)})),
              0u);
    const AVIReaderStream& stream = Stream(0);
    ASSERT_EQ(stream.m_dwSuperEntries, 2u);
    EXPECT_EQ(stream.m_pSuper[0].m_llOffset, 0x1122334455667788u);
    EXPECT_EQ(stream.m_pSuper[0].m_dwSize, 64u);
    EXPECT_EQ(stream.m_pSuper[0].m_dwDuration, 3u);
    EXPECT_EQ(stream.m_pSuper[1].m_llOffset, 5u);
    EXPECT_EQ(reader_->m_bSuperIndex, 1);
    EXPECT_EQ(Position(), 0x40u + 56);
    EXPECT_THAT(host_.Traces(2), IsEmpty());
  }
}

TEST_F(AviOdml, SuperIndex_LeavesTheCursorBehindItsChunk) {
  ASSERT_EQ(ReadSuper(Join({SuperIndexHeader(0, 0, 1), SuperIndexEntry(1)}), 24 + 16 + 100), 0u);
  EXPECT_EQ(Position(), 0x40u + 140);
  ASSERT_EQ(ReadSuper(Join({SuperIndexHeader(0, 0, 1), SuperIndexEntry(1)}), 24 + 16 + 7), 0u);
  EXPECT_EQ(Position(), 0x40u + 48);
  ASSERT_EQ(ReadSuper(SuperIndexHeader(1, 1, 0), 24 + 9), 0u);
  EXPECT_EQ(Position(), 0x40u + 34);
}

TEST_F(AviOdml, SuperIndexEntries_AreClampedToTheChunk) {
  const ByteVector data = Join({SuperIndexHeader(0, 0, 0xFFFFFFFF), SuperIndexEntry(1), SuperIndexEntry(2)});
  ASSERT_EQ(ReadSuper(data), 0u);
  EXPECT_EQ(Stream(0).m_dwSuperEntries, 2u);
  ASSERT_EQ(ReadSuper(data, 55), 0u);
  EXPECT_EQ(Stream(0).m_dwSuperEntries, 1u);
  for (uint32_t size = 0; size < 40; ++size) {
    ASSERT_EQ(ReadSuper(data, size), 0u) << size;
    EXPECT_EQ(Stream(0).m_dwSuperEntries, 0u);
    EXPECT_EQ(reader_->m_bSuperIndex, 0);
  }
}

TEST_F(AviOdml, SuperIndexThatRunsPastTheData_IsAFailedReadAndTakesNoMemory) {
  for (uint32_t size : {0x10000u, 0x7FFFFFFFu, 0xFFFFFFFFu}) {
    LoadIndex(SuperIndexHeader(0, 0, 0xFFFFFFFF), 2, 0x1000);
    ASSERT_EQ(ZMVStreamBuf_Seek(stream_, reader_->m_dwIndex, 0x40), 0);
    const uint64_t calls = host_.Count(HostCall::kMalloc);
    EXPECT_EQ(Code(AVIReaderReadStreamIndex(reader_, reader_->m_pStream[0], size)), ZMV_E_READ);
    EXPECT_EQ(host_.Count(HostCall::kMalloc), calls);
    EXPECT_EQ(Stream(0).m_pSuper, nullptr);
    EXPECT_THAT(host_.Traces(1), ElementsAre("err (0x80000012)\n"));
  }
}

TEST_F(AviOdml, SecondSuperIndexOfAStream_ReplacesTheFirst) {
  ASSERT_EQ(ReadSuper(Join({SuperIndexHeader(0, 0, 1), SuperIndexEntry(1)})), 0u);
  ASSERT_EQ(ZMVStreamBuf_Seek(stream_, reader_->m_dwIndex, 0x40), 0);
  ASSERT_EQ(Code(AVIReaderReadStreamIndex(reader_, reader_->m_pStream[0], 40)), 0u);
  EXPECT_EQ(Stream(0).m_dwSuperEntries, 1u);
}

TEST_F(AviOdml, SuperIndexWithoutMemory_CountsAsNone) {
  LoadIndex(Join({SuperIndexHeader(0, 0, 1), SuperIndexEntry(1)}));
  ASSERT_EQ(ZMVStreamBuf_Seek(stream_, reader_->m_dwIndex, 0x40), 0);
  host_.Fail(HostCall::kMalloc, 1);
  EXPECT_EQ(Code(AVIReaderReadStreamIndex(reader_, reader_->m_pStream[0], 40)), 0u);
  EXPECT_EQ(reader_->m_bSuperIndex, 0);
  EXPECT_EQ(Stream(0).m_dwSuperEntries, 0u);
  EXPECT_EQ(Position(), 0x40u + 40);
}

TEST_F(AviOdml, OtherIndexTypes_AreReportedAndIgnored) {
  struct Case {
    uint32_t type;
    uint32_t sub_type;
    std::vector<std::string> lines;
  };
  const std::string sub = "[Reader] AVIReaderReadStreamIndex - Field Index's sub-type is not valid.\n";
  const std::string chunks = "AVIReaderReadStreamIndex - Index Type is AVI_INDEX_OF_CHUNKS\n";
  const Case cases[] = {
      {0, 2, {"[Reader] AVIReaderReadStreamIndex - Super Index's sub-type is not valid.\n"}},
      {1, 1, {chunks}},
      {1, 0, {chunks, sub}},
      {0x80, 0, {"[Reader] AVIReaderReadStreamIndex - Index Type is AVI_INDEX_IS_DATA\n"}},
      {2, 0, {"[Reader] AVIReaderReadStreamIndex - Not-supported/Unknown Sub type defined.\n"}},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(ReadSuper(Join({SuperIndexHeader(c.type, c.sub_type, 1), SuperIndexEntry(1)})), 0u);
    EXPECT_EQ(host_.Traces(2), c.lines);
    EXPECT_EQ(reader_->m_bSuperIndex, 0);
    EXPECT_EQ(Position(), 0x40u + 40);
  }
}

TEST_F(AviOdml, SuperIndexNullArguments_AreRefused) {
  LoadIndex({});
  EXPECT_EQ(Code(AVIReaderReadStreamIndex(nullptr, reader_->m_pStream[0], 24)), ZMV_E_FAIL);
  EXPECT_EQ(Code(AVIReaderReadStreamIndex(reader_, nullptr, 24)), ZMV_E_FAIL);
  EXPECT_EQ(Code(AVIReaderReadStdIndex(nullptr)), ZMV_E_FAIL);
}

// ---- Standard indexes

TEST_F(AviOdml, StandardIndex_NamesChunksByTheirData) {
  ASSERT_EQ(ReadStd({{.base = 0x1000, .entries = {{0x20, 100}, {0x120, 0x80000400}}}}), 0u);
  EXPECT_THAT(Entries(0), ElementsAre(Entry{0x10, 0x1018, 100}, Entry{0, 0x1118, 1024}));
  EXPECT_EQ(Stream(0).m_dwIndexBytes, 1124u);
  EXPECT_EQ(reader_->m_bHasIndex, 1);
  EXPECT_EQ(Stream(0).m_pSuper, nullptr);
  EXPECT_EQ(Stream(0).m_dwSuperEntries, 0u);
  EXPECT_THAT(host_.Traces(4), Contains("Standard Index Parsing Successful\n"));
}

TEST_F(AviOdml, StandardIndexes_FollowEachOther) {
  ASSERT_EQ(ReadStd({{.base = 0x100, .entries = {{8, 1}}}, {.entries = {}}, {.base = 0x200, .entries = {{8, 2}}}}), 0u);
  EXPECT_THAT(Entries(0), ElementsAre(Entry{0x10, 0x100, 1}, Entry{0x10, 0x200, 2}));
}

TEST_F(AviOdml, BaseOffset_CountsInItsLowHalf) {
  ASSERT_EQ(ReadStd({{.base = 0x700000300, .entries = {{8, 1}}}}), 0u);
  EXPECT_THAT(Entries(0), ElementsAre(Entry{0x10, 0x300, 1}));
}

TEST_F(AviOdml, StandardIndexPosition_CountsInItsLowHalfFromTheRiffData) {
  LoadIndex(StdChunk({.base = 0x100, .entries = {{8, 1}}}));
  GiveSuper(0, {0x500000030});
  reader_->m_dwBase = 0x10;
  ASSERT_EQ(AVIReaderReadStdIndex(reader_), 0);
  EXPECT_THAT(Entries(0), ElementsAre(Entry{0x10, 0x100, 1}));
}

TEST_F(AviOdml, KindsOfStandardIndex_ThatAreRead) {
  for (const char* code : {"00dc", "00db", "00wb", "99dc"}) {
    ASSERT_EQ(ReadStd({{.code = code, .entries = {{16, 1}}}}), 0u);
    EXPECT_EQ(Entries(0).size(), 1u) << code;
  }
  for (const char* code : {"00tx", "00sb", "00pc", "dc00"}) {
    ASSERT_EQ(ReadStd({{.code = code, .entries = {{16, 1}}}}), 0u);
    EXPECT_EQ(Entries(0).size(), 0u) << code;
    EXPECT_EQ(reader_->m_bHasIndex, 1);
  }
}

TEST_F(AviOdml, ReservedWordOfAStandardIndex_MustBeZero) {
  EXPECT_EQ(ReadStd({{.entries = {{16, 1}}, .reserved = 1}}), ZMV_E_FAIL);
  EXPECT_THAT(host_.Traces(2), ElementsAre("[Reaser] AVIReaderReadStdIndex - Standard Index is not valid.\n"));
  EXPECT_EQ(reader_->m_bHasIndex, 0);
}

TEST_F(AviOdml, StandardIndexEntries_AreClampedToTheChunk) {
  ASSERT_EQ(ReadStd({{.entries = {{16, 1}, {32, 2}}, .count = 0xFFFFFFFF}}), 0u);
  EXPECT_EQ(Entries(0).size(), 2u);
  // A chunk shorter than its header has no entries.
  LoadIndex(Join({Text("ix00"), Le32(23), StdIndexData({.entries = {{16, 1}}})}));
  GiveSuper(0, {0x40});
  ASSERT_EQ(AVIReaderReadStdIndex(reader_), 0);
  EXPECT_EQ(Entries(0).size(), 0u);
}

TEST_F(AviOdml, StandardIndexEntriesOutsideTheFile_AreDropped) {
  ASSERT_EQ(ReadStd({{.entries = {{0, 1}, {7, 2}, {8, 3}, {0x10007, 4}, {0x10008, 5}, {0xFFFFFFFF, 6}}}}), 0u);
  EXPECT_THAT(Entries(0), ElementsAre(Entry{0x10, 0, 3}, Entry{0x10, 0xFFFF, 4}));
  ASSERT_EQ(ReadStd({{.base = 0xFFFFFFF0, .entries = {{0x20, 1}}}}), 0u);
  EXPECT_EQ(Entries(0).size(), 0u);
}

TEST_F(AviOdml, LargeStandardIndex_IsReadInBatches) {
  StdIndexSpec index;
  for (uint32_t i = 0; i < 20001; ++i) index.entries.push_back({8 + i, i});
  LoadIndex(StdChunk(index), 2, 0x40000);
  ByteVector& file = host_.File("b.avi");
  const ByteVector super = Join({SuperIndexHeader(0, 0, 1), SuperIndexEntry(0x40)});
  std::copy(super.begin(), super.end(), file.begin() + 0x30000);
  ASSERT_EQ(ZMVStreamBuf_Seek(stream_, reader_->m_dwIndex, 0x30000), 0);
  ASSERT_EQ(Code(AVIReaderReadStreamIndex(reader_, reader_->m_pStream[0], 40)), 0u);
  host_.ClearRecords();
  ASSERT_EQ(AVIReaderReadStdIndex(reader_), 0);
  std::vector<uint64_t> sizes;
  for (const CallRecord& call : host_.Calls(HostCall::kRead)) sizes.push_back(call.size);
  EXPECT_THAT(sizes, ElementsAre(8, 24, 80000, 80000, 8));
  ASSERT_EQ(Stream(0).m_dwIndexEntries, 20001u);
  EXPECT_EQ(Entries(0)[20000], (Entry{0x10, 20000, 20000}));
}

TEST_F(AviOdml, StandardIndexNamedTwice_IsReadOnce) {
  LoadIndex(StdChunk({.entries = {{16, 1}}}));
  GiveSuper(0, {0x40, 0x40, 0x30, 0x40});
  host_.ClearRecords();
  ASSERT_EQ(AVIReaderReadStdIndex(reader_), 0);
  EXPECT_EQ(host_.Calls(HostCall::kRead).size(), 3u);
  EXPECT_EQ(Entries(0).size(), 1u);
}

TEST_F(AviOdml, StandardIndexesThatOverlap_AreReadInTimeOfTheFile) {
  // Every 32 bytes stands the front of an index that reaches to the end of the file, and a super entry for each.
  ByteVector file;
  constexpr uint32_t kChunks = 500;
  ByteVector super = SuperIndexHeader(0, 0, kChunks);
  for (uint32_t i = 0; i < kChunks; ++i) {
    file = Join({file, Text("ix00"), Le32((kChunks - i) * 32 - 8),
                 Join({Le16(2), Bytes({0, 1}), Le32(0xFFFFFF), Text("00dc"), Le32(16), Le32(0), Le32(0)})});
    super = Join({super, SuperIndexEntry(0x40 + i * 32)});
  }
  LoadIndex(Join({file, super}), 1);
  ASSERT_EQ(ZMVStreamBuf_Seek(stream_, reader_->m_dwIndex, 0x40 + kChunks * 32), 0);
  ASSERT_EQ(Code(AVIReaderReadStreamIndex(reader_, reader_->m_pStream[0], static_cast<uint32_t>(super.size()))), 0u);
  host_.ClearRecords();
  ASSERT_EQ(AVIReaderReadStdIndex(reader_), 0);
  EXPECT_LT(host_.Calls(HostCall::kRead).size(), 10u);
}

TEST_F(AviOdml, StandardIndexThatIsNotThere_IsAFailure) {
  LoadIndex({});
  GiveSuper(0, {0x20000});
  EXPECT_EQ(Code(AVIReaderReadStdIndex(reader_)), ZMV_E_SEEK);
  LoadIndex({});
  GiveSuper(0, {0xFFFF});
  EXPECT_EQ(Code(AVIReaderReadStdIndex(reader_)), ZMV_E_READ);
  EXPECT_THAT(host_.Traces(1), Contains("err (0x80000012)\n"));
  // Entries that end behind the file.
  LoadIndex({});
  ByteVector& file = host_.File("b.avi");
  const ByteVector head = Join({Text("ix00"), Le32(1000), StdIndexData({.entries = {}, .count = 100})});
  std::copy(head.begin(), head.end(), file.end() - 64);
  GiveSuper(0, {0x10000 - 64});
  EXPECT_EQ(Code(AVIReaderReadStdIndex(reader_)), ZMV_E_READ);
}

TEST_F(AviOdml, FaultsWhileReadingStandardIndexes_GiveTheirCode) {
  const auto prepare = [&] {
    LoadIndex(StdChunk({.entries = {{16, 1}}}));
    GiveSuper(0, {0x40});
  };
  for (uint64_t nth : {1u, 2u, 3u}) {  // chunk header, index header, entries
    prepare();
    host_.Fail(HostCall::kRead, nth);
    EXPECT_EQ(Code(AVIReaderReadStdIndex(reader_)), ZMV_E_READ) << nth;
  }
  prepare();
  host_.Fail(HostCall::kMalloc, 1);
  EXPECT_EQ(Code(AVIReaderReadStdIndex(reader_)), ZMV_E_MEMORY);
  prepare();
  host_.Fail(HostCall::kReAlloc, 1);
  EXPECT_EQ(Code(AVIReaderReadStdIndex(reader_)), ZMV_E_MEMORY);
}

// ---- Whole files

TEST_F(AviOdml, WholeFile_IsIndexedAcrossItsForms) {
  for (const bool old_index : {false, true}) {
    AviSpec file;
    file.streams = {VideoStream(), PcmStream()};
    file.streams[0].length = 3;
    file.streams[0].sample_size = 9;
    file.streams[1].length = 12;
    std::vector<uint32_t> movi;
    const ByteVector bytes =
        BuildOpenDml(file,
                     {{{"00dc", ByteVector(10)}, {"01wb", ByteVector(7)}, {"00dc", ByteVector(4), 0}},
                      {{"00dc", ByteVector(6)}, {"01wb", ByteVector(5)}}},
                     old_index, &movi);
    ASSERT_EQ(Describe(bytes), 0u);
    // hdrl: 312 + 2 x (8 + 56) = 440, so the list's data begin at 452; behind two indexes of 48 and 40 bytes the
    // chunks.
    ASSERT_EQ(movi[0], 452u);
    EXPECT_EQ(reader_->m_dwMoviPos, 448u);
    EXPECT_EQ(reader_->m_dwDataPos, 540u);
    EXPECT_EQ(reader_->m_bSuperIndex, 1);
    EXPECT_EQ(reader_->m_bHasIndex, 1);
    // The list ends at 540 + 18 + 16 + 12; the old index takes 8 + 3 x 16, the next form and list 24, its indexes 80.
    const uint32_t second = 586 + (old_index ? 56 : 0) + 24 + 80;
    EXPECT_THAT(Entries(0), ElementsAre(Entry{0x10, 540, 10}, Entry{0, 574, 4}, Entry{0x10, second, 6}));
    EXPECT_THAT(Entries(1), ElementsAre(Entry{0x10, 558, 7}, Entry{0x10, second + 14, 5}));
    EXPECT_EQ(Stream(0).m_dwPos, 540u);
    EXPECT_EQ(Stream(1).m_dwPos, 558u);
    EXPECT_EQ(Stream(0).m_dwSampleSize, 9u) << "only an old index takes it";
    // With an old index the walk ends in front of the second form.
    EXPECT_EQ(reader_->m_bExtended, old_index ? 0 : 1);
    EXPECT_EQ(reader_->m_dwDataPos2, old_index ? 0u : second);
    EXPECT_EQ(host_.File("a.avi")[second + 4], 6);
  }
}

TEST_F(AviOdml, CutInTheLastForm_KeepsWhatTheIndexesName) {
  AviSpec file;
  file.streams = {VideoStream()};
  const ByteVector bytes = BuildOpenDml(file, {{{"00dc", ByteVector(10)}}, {{"00dc", ByteVector(6)}}});
  ASSERT_EQ(Describe(bytes), 0u);
  const std::vector<Entry> whole = Entries(0);
  const uint32_t data = reader_->m_dwDataPos2;
  // As long as the frame's first byte is there the entry is; the list is not complete and the walk ends in it.
  ASSERT_EQ(Describe(Front(bytes, data + 1)), 0u);
  EXPECT_EQ(Entries(0), whole);
  EXPECT_EQ(reader_->m_dwDataPos2, data);
  ASSERT_EQ(Describe(Front(bytes, data)), 0u);
  EXPECT_THAT(Entries(0), ElementsAre(whole[0]));
}

TEST_F(AviOdml, WholeFileBehindAPrefix_CountsFromTheRiffData) {
  AviSpec file;
  file.streams = {VideoStream()};
  const ByteVector riff = BuildOpenDml(file, {{{"00dc", ByteVector(10)}}, {{"00dc", ByteVector(6)}}});
  ASSERT_EQ(Describe(riff), 0u);
  const std::vector<Entry> plain = Entries(0);
  ASSERT_EQ(plain.size(), 2u);
  ASSERT_EQ(Describe(Join({ByteVector(92, 1), Le32(200), ByteVector(104), riff})), 0u);
  EXPECT_EQ(Entries(0), plain);
  EXPECT_EQ(Stream(0).m_dwPos, 200 + plain[0][1]);
}

TEST_F(AviOdml, IndexesThatOnlyStandInFrontOfTheChunks_AreSteppedOverWithASuperIndexAlone) {
  AviSpec file;
  file.streams = {VideoStream()};
  file.chunks = {{"ix00", ByteVector(8)}, {"00dc", ByteVector(2)}};
  file.has_index = false;
  ASSERT_EQ(Describe(file), 0u);
  EXPECT_EQ(reader_->m_dwDataPos, 224u);
}

TEST_F(AviOdml, SuperIndexWithoutEntries_LeavesTheOldIndexInCharge) {
  AviSpec file = SmallFile();
  file.streams[0].behind = Chunk("indx", Join({SuperIndexHeader(0, 0, 0), ByteVector(64)}));
  ASSERT_EQ(Describe(file), 0u);
  EXPECT_EQ(reader_->m_bSuperIndex, 0);
  EXPECT_EQ(Stream(0).m_dwIndexEntries, 2u);
}

TEST_F(AviOdml, SecondSuperIndexWithoutEntries_LeavesTheFirst) {
  AviSpec file = SmallFile();
  file.has_index = false;
  const ByteVector one = Chunk("indx", Join({SuperIndexHeader(0, 0, 1), SuperIndexEntry(0x7FFFFFFF)}));
  const ByteVector none = Chunk("indx", SuperIndexHeader(0, 0, 0));
  file.streams[0].behind = Join({one, none});
  Load(BuildAvi(file));
  // Its only entry leads nowhere, which is found out because it is followed.
  EXPECT_EQ(GetInfo(), ZMV_E_SEEK);
}

TEST_F(AviOdml, SuperIndexOfAStreamThatWasPassedOver_GoesToNoOther) {
  AviStream overlay = VideoStream(25000, 1000, "DXSB");
  overlay.behind = Chunk("indx", Join({SuperIndexHeader(0, 0, 1), SuperIndexEntry(0x20)}));
  AviSpec file = SmallFile();
  file.streams.push_back(overlay);
  ASSERT_EQ(Describe(file), 0u);
  EXPECT_EQ(reader_->m_bSuperIndex, 0);
  EXPECT_EQ(Stream(1).m_dwIndexEntries, 1u);
  // In front of any stream.
  file = SmallFile();
  file.streams[0].has_header = file.streams[0].has_format = false;
  file.streams[0].behind = overlay.behind;
  ASSERT_EQ(Describe(file), 0u);
  EXPECT_EQ(reader_->m_bSuperIndex, 0);
}

}  // namespace
}  // namespace zmv::test

// The index entries of a stream, and "idx1".
#include "tests/avi/avi_index_test.h"

namespace zmv::test {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr const char* kAbsolute = "index position start at file start position pos(";

using AviIndex = AviIndexTest;

// ---- Entries

TEST_F(AviIndex, AddStreamIndex_KeepsRisingPositions) {
  LoadIndex({});
  AVIReaderStream& stream = Stream(0);
  for (uint32_t position : {100u, 100u, 90u, 200u}) {
    EXPECT_EQ(AVIReaderAddStreamIndex(&stream, 0x10, position, 7), 0);
  }
  EXPECT_THAT(EntriesOf(stream), ElementsAre(Entry{0x10, 100, 7}, Entry{0x10, 200, 7}));
  EXPECT_EQ(stream.m_dwIndexBytes, 14u);
  EXPECT_EQ(Code(AVIReaderAddStreamIndex(nullptr, 0, 0, 0)), ZMV_E_FAIL);
}

TEST_F(AviIndex, AddStreamIndex_TakesAtMostSixteenBytesAnEntry) {
  LoadIndex({});
  host_.record = false;
  host_.trace_level = 0;
  AVIReaderStream& stream = Stream(0);
  const uint64_t calls = host_.Count(HostCall::kReAlloc);
  for (uint32_t i = 0; i < 100000; ++i) {
    ASSERT_EQ(AVIReaderAddStreamIndex(&stream, i, i * 3, 1), 0);
    if (i >= 1000) {
      ASSERT_LE(stream.m_dwIndexCapacity * sizeof(AVIReaderIndexEntry), 16u * (i + 1)) << i;
    }
  }
  EXPECT_EQ(stream.m_dwIndexEntries, 100000u);
  EXPECT_EQ(EntriesOf(stream)[99999], (Entry{99999, 299997, 1}));
  EXPECT_LT(host_.Count(HostCall::kReAlloc) - calls, 40u);
}

TEST_F(AviIndex, AddStreamIndex_WithoutMemory_KeepsWhatThereIs) {
  LoadIndex({});
  AVIReaderStream& stream = Stream(0);
  host_.Fail(HostCall::kReAlloc, 1);
  EXPECT_EQ(Code(AVIReaderAddStreamIndex(&stream, 0x10, 1, 1)), ZMV_E_MEMORY);
  EXPECT_EQ(stream.m_dwIndexEntries, 0u);
  EXPECT_EQ(AVIReaderAddStreamIndex(&stream, 0x10, 1, 1), 0);
  host_.Fail(HostCall::kReAlloc, 1, ScriptedHost::kForGood);
  uint32_t position = 2;
  while (AVIReaderAddStreamIndex(&stream, 0x10, position, 1) == 0) ++position;
  host_.ClearFailures();
  EXPECT_EQ(stream.m_dwIndexEntries, position - 1);
  EXPECT_EQ(stream.m_pIndex[0].m_dwPos, 1u);
  EXPECT_EQ(AVIReaderAddStreamIndex(&stream, 0x10, position, 1), 0);
  EXPECT_EQ(stream.m_pIndex[position - 1].m_dwPos, position);
}

// ---- idx1

TEST_F(AviIndex, OffsetsThatBeginBelowNine_CountFromMovi) {
  for (uint32_t first : {0u, 4u, 8u}) {
    ASSERT_EQ(ReadIndex(Join({IndexEntry("00dc", 0x10, first, 100), IndexEntry("01wb", 0x10, 0x200, 50),
                              IndexEntry("00dc", 0, 0x300, 60)})),
              0u);
    EXPECT_THAT(Entries(0), ElementsAre(Entry{0x10, 20 + first, 100}, Entry{0, 20 + 0x300, 60}));
    EXPECT_THAT(Entries(1), ElementsAre(Entry{0x10, 20 + 0x200, 50}));
    EXPECT_EQ(Stream(0).m_dwIndexBytes, 160u);
    EXPECT_EQ(reader_->m_bHasIndex, 1);
    EXPECT_THAT(host_.Traces(1), IsEmpty());
    EXPECT_EQ(CursorsInUse(), 1u);
  }
}

TEST_F(AviIndex, OffsetsThatBeginAboveEight_CountFromTheStart) {
  ASSERT_EQ(ReadIndex(Join({IndexEntry("00dc", 0x10, 0x1000, 100), IndexEntry("00dc", 0, 0x1008, 60)})), 0u);
  EXPECT_THAT(Entries(0), ElementsAre(Entry{0x10, 0x1000, 100}, Entry{0, 0x1008, 60}));
  EXPECT_THAT(host_.Traces(1), ElementsAre(kAbsolute + std::string("4096)\n")));
  ASSERT_EQ(ReadIndex(IndexEntry("00dc", 0x10, 9, 100)), 0u);
  EXPECT_THAT(Entries(0), ElementsAre(Entry{0x10, 9, 100}));
}

TEST_F(AviIndex, FirstAcceptedEntry_DecidesForAllStreams) {
  ASSERT_EQ(ReadIndex(Join({IndexEntry("01wb", 0x10, 4, 50), IndexEntry("00dc", 0x10, 0x1000, 100)})), 0u);
  EXPECT_THAT(Entries(0), ElementsAre(Entry{0x10, 20 + 0x1000, 100}));
}

TEST_F(AviIndex, FiveKindsOfChunk_AreTaken) {
  ASSERT_EQ(ReadIndex(Join({IndexEntry("00db", 1, 4, 1), IndexEntry("00dc", 2, 14, 2), IndexEntry("00sb", 3, 24, 3),
                            IndexEntry("00wb", 4, 34, 4), IndexEntry("00tx", 0x30, 44, 5)})),
            0u);
  EXPECT_THAT(Entries(0),
              ElementsAre(Entry{1, 24, 1}, Entry{2, 34, 2}, Entry{3, 44, 3}, Entry{4, 54, 4}, Entry{0x30, 64, 5}));
}

TEST_F(AviIndex, StreamNumbers_AreTheDifferenceFromTwoZeros) {
  const auto index = [](const char* code) {
    return Join({IndexEntry("00dc", 0x10, 4, 1), IndexEntry(code, 0x10, 40, 2)});
  };
  ASSERT_EQ(ReadIndex(index("0:dc"), 12), 0u);
  EXPECT_THAT(Entries(10), ElementsAre(Entry{0x10, 60, 2}));
  ASSERT_EQ(ReadIndex(index("0;dc"), 12), 0u);
  EXPECT_THAT(Entries(11), ElementsAre(Entry{0x10, 60, 2}));
  for (const char* code : {"0<dc", "10dc", "0/dc", "ffdc", "  dc"}) {
    ASSERT_EQ(ReadIndex(index(code), 12), 0u);
    size_t entries = 0;
    for (uint32_t i = 0; i < 12; ++i) entries += Entries(i).size();
    EXPECT_EQ(entries, 1u) << code;
  }
}

TEST_F(AviIndex, EntryThatIsNotTaken_CostsFourBytesAndAWholeEntry) {
  ASSERT_EQ(ReadIndex(Join({
                IndexEntry("rec ", 0, 4, 1000),
                IndexEntry("00dc", 0x10, 16, 10),
                IndexEntry("00dc", 0, 40, 10),
                IndexEntry("00dc", 0, 60, 10),
                IndexEntry("00dc", 0, 80, 10),
            })),
            0u);
  EXPECT_THAT(Entries(0), ElementsAre(Entry{0x10, 16, 10}));
  EXPECT_THAT(host_.Traces(1), ElementsAre(kAbsolute + std::string("16)\n")));
}

TEST_F(AviIndex, ForeignEntry_AmongMany_LosesThreeAtTheEnd) {
  ByteVector index;
  for (uint32_t i = 0; i < 1000; ++i) {
    index = Join({index, IndexEntry(i == 500 ? "junk" : "00dc", 0x10, 4 + 20 * i, i)});
  }
  ASSERT_EQ(ReadIndex(index), 0u);
  // Entries 997 to 999 are lost; the one that was passed over is not there either.
  EXPECT_EQ(Stream(0).m_dwIndexEntries, 996u);
  EXPECT_EQ(Entries(0)[500], (Entry{0x10, 24 + 20 * 501, 501}));
  EXPECT_EQ(Entries(0)[995], (Entry{0x10, 24 + 20 * 996, 996}));
}

TEST_F(AviIndex, EntriesThatDoNotRise_AreDropped) {
  ASSERT_EQ(ReadIndex(Join({IndexEntry("00dc", 0x10, 4, 1), IndexEntry("00dc", 0x10, 4, 2),
                            IndexEntry("01wb", 0x10, 4, 3), IndexEntry("00dc", 0x10, 3, 4)})),
            0u);
  EXPECT_THAT(Entries(0), ElementsAre(Entry{0x10, 24, 1}));
  EXPECT_THAT(Entries(1), ElementsAre(Entry{0x10, 24, 3}));
}

TEST_F(AviIndex, EntriesBehindTheFile_AreDropped) {
  const uint32_t last = 0x10000 - 1 - 20;
  ASSERT_EQ(ReadIndex(Join({IndexEntry("00dc", 0x10, 4, 1), IndexEntry("00dc", 0x10, last, 2),
                            IndexEntry("00dc", 0x10, last + 1, 3), IndexEntry("00dc", 0x10, 0xFFFFFFFF, 4),
                            IndexEntry("01wb", 0x10, 0xFFFFFFF0, 5)})),
            0u);
  EXPECT_THAT(Entries(0), ElementsAre(Entry{0x10, 24, 1}, Entry{0x10, 0xFFFF, 2}));
  EXPECT_THAT(Entries(1), IsEmpty());
}

TEST_F(AviIndex, TruncatedIndex_GivesWhatIsThere) {
  const ByteVector index = Join({IndexEntry("00dc", 0x10, 4, 1), IndexEntry("00dc", 0, 30, 2)});
  for (size_t present = 0; present <= 32; ++present) {
    LoadIndex(Front(index, present), 2, 0);
    ASSERT_EQ(Code(AVIReaderReadIndex(reader_, 0x40, 32)), 0u) << present;
    EXPECT_EQ(Stream(0).m_dwIndexEntries, present / 16);
    EXPECT_EQ(reader_->m_bHasIndex, present == 32 ? 1 : 0);
  }
  AviSpec file = SmallFile();
  const ByteVector bytes = BuildAvi(file);
  ASSERT_EQ(Describe(Front(bytes, bytes.size() - 1)), 0u);  // of three entries the last lacks a byte
  EXPECT_THAT(Entries(0), ElementsAre(Entry{0x10, 324, 10}));
  EXPECT_THAT(Entries(1), ElementsAre(Entry{0x10, 342, 8}));
  EXPECT_EQ(reader_->m_bHasIndex, 0);
  EXPECT_EQ(Stream(1).m_dwPos, 324u) << "the frames are scanned for";
}

TEST_F(AviIndex, SizeThatIsNoMultipleOfAnEntry_LosesTheRest) {
  LoadIndex(Join({IndexEntry("00dc", 0x10, 4, 1), IndexEntry("00dc", 0, 30, 2)}));
  ASSERT_EQ(Code(AVIReaderReadIndex(reader_, 0x40, 31)), 0u);
  EXPECT_THAT(Entries(0), ElementsAre(Entry{0x10, 24, 1}));
  EXPECT_EQ(reader_->m_bHasIndex, 1);
}

TEST_F(AviIndex, SuperIndex_MakesOffsetsCountFromTheStart) {
  LoadIndex(IndexEntry("00dc", 0x10, 4, 1));
  reader_->m_bSuperIndex = 1;
  ASSERT_EQ(Code(AVIReaderReadIndex(reader_, 0x40, 16)), 0u);
  EXPECT_THAT(Entries(0), ElementsAre(Entry{0x10, 4, 1}));
}

TEST_F(AviIndex, LargeIndex_IsReadInBlocksAndExactly) {
  // 4 bytes in front put every later entry across the blocks in which it is read.
  ByteVector index = Text("junk");
  for (uint32_t i = 0; i < 3000; ++i) index = Join({index, IndexEntry(i % 2 == 0 ? "00dc" : "01wb", i, 4 + i * 20, i)});
  LoadIndex(index);
  const uint64_t reads = host_.Count(HostCall::kRead);
  ASSERT_EQ(Code(AVIReaderReadIndex(reader_, 0x40, static_cast<uint32_t>(index.size()))), 0u);
  EXPECT_LT(host_.Count(HostCall::kRead) - reads, 20u);  // 48 KB in blocks of 4 KiB
  // 3000 whole entries fit the size; one is spent on the stray bytes.
  ASSERT_EQ(Stream(0).m_dwIndexEntries, 1500u);
  ASSERT_EQ(Stream(1).m_dwIndexEntries, 1499u);
  for (uint32_t i = 0; i < 2999; ++i) {
    ASSERT_EQ(Entries(i % 2)[i / 2], (Entry{i, 24 + i * 20, i}));
    if (i > 20) i += 97;
  }
}

TEST_F(AviIndex, ShortReadsOfTheHost_AreMadeUpFor) {
  LoadIndex(Join({IndexEntry("00dc", 0x10, 4, 1), IndexEntry("00dc", 0, 30, 2)}));
  host_.max_transfer = 5;
  ASSERT_EQ(Code(AVIReaderReadIndex(reader_, 0x40, 32)), 0u);
  EXPECT_EQ(Stream(0).m_dwIndexEntries, 2u);
}

TEST_F(AviIndex, FaultsWhileReading_GiveTheirCode) {
  LoadIndex(IndexEntry("00dc", 0x10, 4, 1));
  host_.Fail(HostCall::kRead, 1);
  EXPECT_EQ(Code(AVIReaderReadIndex(reader_, 0x40, 16)), ZMV_E_READ);
  EXPECT_THAT(host_.Traces(1), Contains("err (0x80000012)\n"));
  EXPECT_EQ(CursorsInUse(), 1u);
  for (uint64_t nth : {1u, 2u}) {  // the cursor, its cache
    host_.Fail(HostCall::kMalloc, nth);
    EXPECT_EQ(Code(AVIReaderReadIndex(reader_, 0x40, 16)), ZMV_E_MEMORY);
  }
  host_.Fail(HostCall::kReAlloc, 1);
  EXPECT_EQ(Code(AVIReaderReadIndex(reader_, 0x40, 16)), ZMV_E_MEMORY);
  EXPECT_EQ(Code(AVIReaderReadIndex(reader_, 0x10001, 16)), ZMV_E_SEEK);
  EXPECT_EQ(Code(AVIReaderReadIndex(nullptr, 0x40, 16)), ZMV_E_FAIL);
  EXPECT_EQ(CursorsInUse(), 1u);
  EXPECT_EQ(Code(AVIReaderReadIndex(reader_, 0x40, 16)), 0u);
}

// ---- Sample sizes

TEST_F(AviIndex, OldIndex_TakesTheSampleSizeOfVideo) {
  AviSpec file = SmallFile();
  file.streams[0].sample_size = 2;
  file.streams[0].length = 8;
  ASSERT_EQ(Describe(file), 0u);
  EXPECT_EQ(Stream(0).m_dwSampleSize, 0u);
  EXPECT_EQ(info_->m_Video[0].dwDuration, 320u) << "the duration is computed afterwards";
  EXPECT_EQ(Stream(1).m_dwSampleSize, 4u);
}

TEST_F(AviIndex, SampleSizeStays_WithoutACompleteIndexOrWithExtensions) {
  AviSpec file = SmallFile();
  file.streams[0].sample_size = 2;
  file.streams[0].length = 8;
  const ByteVector bytes = BuildAvi(file);
  ASSERT_EQ(Describe(Front(bytes, bytes.size() - 1)), 0u);
  EXPECT_EQ(Stream(0).m_dwSampleSize, 2u);
  EXPECT_EQ(info_->m_Video[0].dwDuration, 160u);
  reader_->m_bHasIndex = 1;
  reader_->m_bExtended = 1;
  AVIReaderCheckSampleSize(reader_);
  EXPECT_EQ(Stream(0).m_dwSampleSize, 2u);
  reader_->m_bExtended = 0;
  AVIReaderCheckSampleSize(reader_);
  EXPECT_EQ(Stream(0).m_dwSampleSize, 0u);
  EXPECT_EQ(Stream(1).m_dwSampleSize, 4u);
  AVIReaderCheckSampleSize(nullptr);
}

}  // namespace
}  // namespace zmv::test

#include "stream/zmvstream_file.h"
#include "tests/stream/stream_test.h"

namespace zmv::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class ReadTest : public StreamTest {
 protected:
  // A writing file with nodes of 8 bytes: "ABCDEFGH" in the file, "IJKLMNOP" ready, "QRST" in the fill node.
  ZMVStreamFile* HalfWrittenFile() {
    ZMVStreamFile* const file = WriteFile(16);
    EXPECT_EQ(Write(file, Text("ABCDEFGHIJKLMNOPQRST")), 20);
    return file;
  }
  // A writing file with nodes of 8 bytes, "ABCDEFGHIJKLMNOPQRSTUVWX" in the file, and "efgh" over EFGH in the fill
  // node.
  ZMVStreamFile* PatchedFile() {
    ZMVStreamFile* const file = WriteFile(16);
    EXPECT_EQ(Write(file, Text("ABCDEFGHIJKLMNOPQRSTUVWX")), 24);
    EXPECT_EQ(ZMVStreamFile_Seek(file, 0, 4), 0);
    EXPECT_EQ(Write(file, Text("e")), 1);  // flushes IJKLMNOP
    EXPECT_EQ(ZMVStreamFile_Seek(file, 0, 20), 0);
    EXPECT_EQ(Write(file, Text("U")), 1);  // flushes QRSTUVWX
    EXPECT_EQ(ZMVStreamFile_Seek(file, 0, 4), 0);
    EXPECT_EQ(Write(file, Text("efgh")), 4);  // flushes e
    return file;
  }
};

TEST_F(ReadTest, FirstRead_MissesAndFillsTheCacheBehindIt) {
  ZMVStreamFile* const file = ReadFile(Pattern(5000));
  Cursor(file, 1024);
  ByteVector bytes;
  EXPECT_EQ(Read(file, 0, 4, &bytes), 4);
  EXPECT_THAT(bytes, ElementsAre(0, 1, 2, 3));
  EXPECT_EQ(ZMVStreamFile_Pos(file, 0), 4u);
  EXPECT_EQ(file->m_pIndex[0]->m_dwPos, 1028u);
  EXPECT_EQ(file->m_pIndex[0]->m_dwCacheRemain, 1024u);
  EXPECT_EQ(file->m_pIndex[0]->m_pCachePos, file->m_pIndex[0]->m_pCache);
}

TEST_F(ReadTest, CachedReads_MakeNoCallUntilTheCacheIsUsedUp) {
  ZMVStreamFile* const file = ReadFile(Pattern(5000));
  Cursor(file, 1024);
  ByteVector bytes;
  EXPECT_EQ(Read(file, 0, 4, &bytes), 4);
  const size_t calls = host.calls().size();
  for (uint32_t i = 1; i <= 256; ++i) {
    ASSERT_EQ(Read(file, 0, 4, &bytes), 4);
    ASSERT_EQ(bytes, Pattern(4, 4 * i));
  }
  EXPECT_EQ(host.calls().size(), calls);
  EXPECT_EQ(Read(file, 0, 4, &bytes), 4);
  EXPECT_EQ(bytes, Pattern(4, 1028));
  EXPECT_EQ(host.Count(HostCall::kRead), 4u);
  EXPECT_EQ(host.Count(HostCall::kSeek), 0u);
}

TEST_F(ReadTest, CachedReadsOfAnyWidth_GiveTheBytesInOrder) {
  ZMVStreamFile* const file = ReadFile(Pattern(5000));
  Cursor(file, 256);
  uint32_t position = 0;
  for (uint32_t width = 1; position + width < 4000; width = width % 37 + 1) {
    ByteVector bytes;
    ASSERT_EQ(Read(file, 0, width, &bytes), width);
    ASSERT_EQ(bytes, Pattern(width, position));
    position += width;
    ASSERT_EQ(ZMVStreamFile_Pos(file, 0), position);
  }
}

TEST_F(ReadTest, ReadAcrossTheCache_TakesTheRestFromTheFileAndRefills) {
  ZMVStreamFile* const file = ReadFile(Pattern(5000));
  Cursor(file, 16);
  ByteVector bytes;
  EXPECT_EQ(Read(file, 0, 10, &bytes), 10);
  EXPECT_EQ(Read(file, 0, 12, &bytes), 12);
  host.ClearRecords();
  EXPECT_EQ(Read(file, 0, 30, &bytes), 30);  // 4 cached, 26 from the file, past the size of the cache
  EXPECT_EQ(bytes, Pattern(30, 22));
  const auto reads = host.Calls(HostCall::kRead);
  ASSERT_EQ(reads.size(), 2u);
  EXPECT_EQ(reads[0].position, 26u);
  EXPECT_EQ(reads[0].size, 26u);
  EXPECT_EQ(reads[1].position, 52u);
  EXPECT_EQ(reads[1].size, 16u);
  EXPECT_EQ(ZMVStreamFile_Pos(file, 0), 52u);
}

TEST_F(ReadTest, ReadUpToTheEnd_DoesNotRefill) {
  ZMVStreamFile* const file = ReadFile(Pattern(20));
  Cursor(file, 16);
  ByteVector bytes;
  EXPECT_EQ(Read(file, 0, 20, &bytes), 20);
  EXPECT_EQ(host.Count(HostCall::kRead), 1u);
  EXPECT_THAT(host.Traces(1), IsEmpty());
}

TEST_F(ReadTest, RefillNearTheEnd_HoldsWhatThereIs) {
  ZMVStreamFile* const file = ReadFile(Pattern(20));
  Cursor(file, 16);
  ByteVector bytes;
  EXPECT_EQ(Read(file, 0, 14, &bytes), 14);
  EXPECT_EQ(file->m_pIndex[0]->m_dwCacheRemain, 6u);
  EXPECT_EQ(Read(file, 0, 6, &bytes), 6);
  EXPECT_EQ(bytes, Pattern(6, 14));
}

TEST_F(ReadTest, ReadPastTheEndOfACachedFile_FailsAndConsumesTheCache) {
  ZMVStreamFile* const file = ReadFile(Pattern(20));
  Cursor(file, 16);
  ByteVector bytes;
  ASSERT_EQ(Read(file, 0, 10, &bytes), 10);
  EXPECT_EQ(Read(file, 0, 16, &bytes), int64_t{Result(ZMV_E_READ)});
  EXPECT_EQ(ByteVector(bytes.begin(), bytes.begin() + 10), Pattern(10, 10));
  EXPECT_EQ(ZMVStreamFile_Pos(file, 0), 20u);
  EXPECT_THAT(host.Traces(1),
              ElementsAre("ZMV_FileRead error. len(6) ret(0)\n", "ZMVStreamFile_Read failed. ret(-2147483630)\n"));
}

TEST_F(ReadTest, ReadBeforeTheEndWithoutCache_IsShortThenFails) {
  ZMVStreamFile* const file = ReadFile(Pattern(100));
  Cursor(file, 0);
  ASSERT_EQ(ZMVStreamFile_Seek(file, 0, 90), 0);
  ByteVector bytes;
  EXPECT_EQ(Read(file, 0, 16, &bytes), 10);
  EXPECT_EQ(ByteVector(bytes.begin(), bytes.begin() + 10), Pattern(10, 90));
  EXPECT_EQ(Read(file, 0, 1, &bytes), int64_t{Result(ZMV_E_READ)});
}

TEST_F(ReadTest, ReadOfNothing_MakesNoCall) {
  ZMVStreamFile* const file = ReadFile(Pattern(100));
  Cursor(file, 0);
  Cursor(file, 16);
  EXPECT_EQ(ZMVStreamFile_ReadBuffer(file, 0, nullptr, 0), 0);
  EXPECT_EQ(ZMVStreamFile_ReadBuffer(file, 1, nullptr, 0), 0);
  EXPECT_EQ(host.Count(HostCall::kRead), 0u);
}

TEST_F(ReadTest, FailedRefill_ShowsAtTheNextRead) {
  ZMVStreamFile* const file = ReadFile(Pattern(5000));
  Cursor(file, 1024);
  host.Fail(HostCall::kRead, 2, ScriptedHost::kForGood);
  ByteVector bytes;
  EXPECT_EQ(Read(file, 0, 4, &bytes), 4);
  EXPECT_EQ(bytes, Pattern(4));
  EXPECT_EQ(file->m_pIndex[0]->m_dwCacheRemain, 0u);
  EXPECT_EQ(ZMVStreamFile_Pos(file, 0), 4u);
  EXPECT_EQ(Read(file, 0, 4, &bytes), int64_t{Result(ZMV_E_READ)});
  host.ClearFailures();
  EXPECT_EQ(Read(file, 0, 4, &bytes), 4);
  EXPECT_EQ(bytes, Pattern(4, 4));
}

TEST_F(ReadTest, FailedSeek_IsReportedAndLeavesTheCursor) {
  ZMVStreamFile* const file = ReadFile(Pattern(100));
  Cursor(file, 0);
  ASSERT_EQ(ZMVStreamFile_Seek(file, 0, 60), 0);
  host.Fail(HostCall::kSeek, 1);
  ByteVector bytes;
  EXPECT_EQ(Read(file, 0, 4, &bytes), int64_t{Result(ZMV_E_SEEK)});
  EXPECT_THAT(host.Traces(1),
              ElementsAre("ZMV_FileSeek pos(3c)error. ret(-1)\n", "ZMVStreamFile_Read failed. ret(-2147483628)\n"));
  EXPECT_EQ(Read(file, 0, 4, &bytes), 4);
  EXPECT_EQ(bytes, Pattern(4, 60));
}

TEST_F(ReadTest, SequentialReads_SeekOnlyWhenTheHandleStandsElsewhere) {
  ZMVStreamFile* const file = ReadFile(Pattern(100));
  Cursor(file, 0);
  Cursor(file, 0);
  ByteVector bytes;
  Read(file, 0, 4, &bytes);
  Read(file, 0, 4, &bytes);
  EXPECT_EQ(host.Count(HostCall::kSeek), 0u);
  Read(file, 1, 4, &bytes);
  EXPECT_EQ(host.Count(HostCall::kSeek), 1u);
  Read(file, 0, 4, &bytes);
  EXPECT_EQ(host.Count(HostCall::kSeek), 2u);
}

TEST_F(ReadTest, ReadUpToTheLastPosition_AsksForNoMore) {
  host.presized = 0x100000010;
  ZMVStreamFile* const file = ReadFile(Pattern(100));
  Cursor(file, 0);
  ASSERT_EQ(ZMVStreamFile_Seek(file, 0, 0xFFFFFFFD), 0);
  ByteVector bytes;
  EXPECT_EQ(Read(file, 0, 16, &bytes), int64_t{Result(ZMV_E_READ)});
  ASSERT_EQ(host.Calls(HostCall::kRead).size(), 1u);
  EXPECT_EQ(host.Calls(HostCall::kRead)[0].size, 2u);
}

TEST_F(ReadTest, ReadAtTheLastPosition_FailsWithoutACall) {
  host.presized = 0x100000010;
  ZMVStreamFile* const file = ReadFile(Pattern(100));
  Cursor(file, 0);
  ASSERT_EQ(ZMVStreamFile_Seek(file, 0, 0xFFFFFFFF), 0);
  ByteVector bytes;
  EXPECT_EQ(Read(file, 0, 4, &bytes), int64_t{Result(ZMV_E_READ)});
  EXPECT_EQ(ZMVStreamFile_Pos(file, 0), 0xFFFFFFFFu);
  EXPECT_EQ(host.Count(HostCall::kRead), 0u);
}

TEST_F(ReadTest, ReadBackWithoutWriteCache_ComesFromTheFile) {
  ZMVStreamFile* const file = WriteFile(0);
  ASSERT_EQ(Cursor(file, 0), 1u);
  ASSERT_EQ(Write(file, Text("ABCDEFGH")), 8);
  ASSERT_EQ(ZMVStreamFile_Seek(file, 1, 2), 0);
  ByteVector bytes;
  EXPECT_EQ(Read(file, 1, 4, &bytes), 4);
  EXPECT_EQ(bytes, Text("CDEF"));
  EXPECT_EQ(Write(file, Text("IJ")), 2);
  EXPECT_EQ(host.File("out"), Text("ABCDEFGHIJ"));
}

TEST_F(ReadTest, ReadBackInsideTheFillNode_MakesNoCall) {
  ZMVStreamFile* const file = HalfWrittenFile();
  ASSERT_EQ(ZMVStreamFile_Seek(file, 0, 17), 0);
  const uint64_t reads = host.Count(HostCall::kRead);
  ByteVector bytes;
  EXPECT_EQ(Read(file, 0, 2, &bytes), 2);
  EXPECT_EQ(bytes, Text("RS"));
  EXPECT_EQ(ZMVStreamFile_Pos(file, 0), 19u);
  EXPECT_EQ(host.Count(HostCall::kRead), reads);
}

TEST_F(ReadTest, ReadBackBeforeTheFillNode_ComesFromTheFile) {
  ZMVStreamFile* const file = HalfWrittenFile();
  ASSERT_EQ(ZMVStreamFile_Seek(file, 0, 2), 0);
  ByteVector bytes;
  EXPECT_EQ(Read(file, 0, 6, &bytes), 6);
  EXPECT_EQ(bytes, Text("CDEFGH"));
  EXPECT_EQ(ZMVStreamFile_Pos(file, 0), 8u);
}

TEST_F(ReadTest, ReadBackOfANodeThatWaits_EndsWhereTheFileEnds) {
  ZMVStreamFile* const file = HalfWrittenFile();  // IJKLMNOP waits, so the part before QRST comes back short
  ASSERT_EQ(ZMVStreamFile_Seek(file, 0, 4), 0);
  ByteVector bytes;
  EXPECT_EQ(Read(file, 0, 16, &bytes), 4);
  EXPECT_EQ(ByteVector(bytes.begin(), bytes.begin() + 4), Text("EFGH"));
  EXPECT_EQ(ZMVStreamFile_Pos(file, 0), 8u);
}

TEST_F(ReadTest, ReadBackAcrossTheFillNode_JoinsFileAndNode) {
  ZMVStreamFile* const file = PatchedFile();
  ASSERT_EQ(file->m_pFillNode->m_dwFilePos, 4u);
  ASSERT_EQ(file->m_pFillNode->m_dwUsed, 4u);
  ASSERT_EQ(ZMVStreamFile_Seek(file, 0, 1), 0);
  ByteVector bytes;
  EXPECT_EQ(Read(file, 0, 6, &bytes), 6);
  EXPECT_EQ(bytes, Text("BCDefg"));
  EXPECT_EQ(ZMVStreamFile_Pos(file, 0), 7u);
}

TEST_F(ReadTest, ReadBackPastTheFillNode_MovesTwiceOverThePartBehind) {
  ZMVStreamFile* const file = PatchedFile();
  ASSERT_EQ(ZMVStreamFile_Seek(file, 0, 2), 0);
  ByteVector bytes;
  EXPECT_EQ(Read(file, 0, 9, &bytes), 9);
  EXPECT_EQ(bytes, Text("CDefghIJK"));
  EXPECT_EQ(ZMVStreamFile_Pos(file, 0), 14u);  // 11, and once more the 3 bytes behind the node
}

TEST_F(ReadTest, ReadBackRightBehindTheFillNode_MovesOnce) {
  ZMVStreamFile* const file = PatchedFile();
  ASSERT_EQ(ZMVStreamFile_Seek(file, 0, 8), 0);
  ByteVector bytes;
  EXPECT_EQ(Read(file, 0, 4, &bytes), 4);
  EXPECT_EQ(bytes, Text("IJKL"));
  EXPECT_EQ(ZMVStreamFile_Pos(file, 0), 12u);
}

TEST_F(ReadTest, ReadBackThatFailsBehindTheNode_ReportsIt) {
  ZMVStreamFile* const file = HalfWrittenFile();
  ASSERT_EQ(ZMVStreamFile_Seek(file, 0, 18), 0);
  ByteVector bytes;
  EXPECT_EQ(Read(file, 0, 4, &bytes), int64_t{Result(ZMV_E_READ)});
  EXPECT_EQ(ByteVector(bytes.begin(), bytes.begin() + 2), Text("ST"));
  EXPECT_EQ(ZMVStreamFile_Pos(file, 0), 20u);
}

TEST_F(ReadTest, ReadBackThatFailsBeforeTheNode_ReportsIt) {
  ZMVStreamFile* const file = PatchedFile();
  ASSERT_EQ(ZMVStreamFile_Seek(file, 0, 2), 0);
  host.Fail(HostCall::kRead, 1);
  ByteVector bytes;
  EXPECT_EQ(Read(file, 0, 4, &bytes), int64_t{Result(ZMV_E_READ)});
  EXPECT_EQ(ZMVStreamFile_Pos(file, 0), 2u);
}

TEST_F(ReadTest, Peek_HasAPositionOfItsOwn) {
  ZMVStreamFile* const file = ReadFile(Pattern(100));
  Cursor(file, 16);
  ByteVector bytes;
  ASSERT_EQ(Read(file, 0, 4, &bytes), 4);
  uint8_t shown[4] = {};
  EXPECT_EQ(ZMVStreamFile_ShowBuffer(file, shown, 4), 4);
  EXPECT_THAT(shown, ElementsAre(0, 1, 2, 3));
  EXPECT_EQ(ZMVStreamFile_ShowSkip(file, 6), 0);
  EXPECT_EQ(ZMVStreamFile_ShowPos(file), 10u);
  EXPECT_EQ(ZMVStreamFile_ShowBuffer(file, shown, 2), 2);
  EXPECT_EQ(shown[0], 10);
  EXPECT_EQ(ZMVStreamFile_ShowSkip(file, -12), 0);
  EXPECT_EQ(ZMVStreamFile_ShowPos(file), 0u);
  EXPECT_EQ(file->m_dwFilePos, 0u);
  EXPECT_EQ(file->m_pIndex[0]->m_dwCacheRemain, 16u);
  ASSERT_EQ(Read(file, 0, 20, &bytes), 20);
  EXPECT_EQ(bytes, Pattern(20, 4));
}

TEST_F(ReadTest, Peek_Reset_StartsOver) {
  ZMVStreamFile* const file = ReadFile(Pattern(100));
  ASSERT_EQ(ZMVStreamFile_ShowSkip(file, 50), 0);
  EXPECT_EQ(ZMVStreamFile_ShowReset(file), 0);
  EXPECT_EQ(ZMVStreamFile_ShowPos(file), 0u);
  uint8_t byte = 0xEE;
  EXPECT_EQ(ZMVStreamFile_ShowBuffer(file, &byte, 1), 1);
  EXPECT_EQ(byte, 0);
}

TEST_F(ReadTest, Peek_AtTheEnd_IsShortThenFails) {
  ZMVStreamFile* const file = ReadFile(Pattern(10));
  uint8_t bytes[16];
  EXPECT_EQ(ZMVStreamFile_ShowBuffer(file, bytes, 16), 10);
  EXPECT_EQ(ZMVStreamFile_ShowBuffer(file, bytes, 16), int64_t{Result(ZMV_E_READ)});
  EXPECT_THAT(host.Traces(1), ElementsAre("ZMV_FileRead failed. ret(0)\n"));
  EXPECT_EQ(ZMVStreamFile_ShowPos(file), 10u);
  EXPECT_EQ(ZMVStreamFile_ShowBuffer(file, bytes, 0), 0);
}

TEST_F(ReadTest, Peek_WithAFailingSeek_ReportsIt) {
  ZMVStreamFile* const file = ReadFile(Pattern(10));
  Cursor(file, 0);
  ByteVector bytes;
  ASSERT_EQ(Read(file, 0, 4, &bytes), 4);
  uint8_t byte = 0;
  host.Fail(HostCall::kSeek, 1);
  EXPECT_EQ(ZMVStreamFile_ShowBuffer(file, &byte, 1), int64_t{Result(ZMV_E_SEEK)});
  host.Fail(HostCall::kSeek, 2);
  EXPECT_EQ(ZMVStreamFile_ShowSkip(file, 5), int64_t{Result(ZMV_E_SEEK)});
  EXPECT_EQ(file->m_dwFilePos, 0u);  // the seek to the peek position was made
  EXPECT_EQ(ZMVStreamFile_ShowPos(file), 0u);
  EXPECT_THAT(host.Traces(1), ElementsAre("ZMV_FileSeek failed. ret(-1)\n", "ZMV_FileSeek failed. ret(-1)\n"));
  ASSERT_EQ(Read(file, 0, 2, &bytes), 2);
  EXPECT_EQ(bytes, Pattern(2, 4));
}

TEST_F(ReadTest, Peek_BelowTheStart_IsRefused) {
  ZMVStreamFile* const file = ReadFile(Pattern(10));
  EXPECT_EQ(ZMVStreamFile_ShowSkip(file, -1), int64_t{Result(ZMV_E_SEEK)});
  EXPECT_EQ(ZMVStreamFile_ShowPos(file), 0u);
}

TEST_F(ReadTest, Peek_OutsideThePositionsThereAre_IsRefusedWithoutACall) {
  ZMVStreamFile* const file = ReadFile(Pattern(10));
  ASSERT_EQ(ZMVStreamFile_ShowSkip(file, 5), 0);
  EXPECT_EQ(ZMVStreamFile_ShowSkip(file, -5), 0);
  EXPECT_EQ(ZMVStreamFile_ShowSkip(file, INT32_MAX), 0);
  EXPECT_EQ(ZMVStreamFile_ShowSkip(file, INT32_MAX), 0);
  EXPECT_EQ(ZMVStreamFile_ShowSkip(file, 1), 0);
  EXPECT_EQ(ZMVStreamFile_ShowPos(file), 0xFFFFFFFFu);  // the last one
  const uint64_t seeks = host.Count(HostCall::kSeek);
  EXPECT_EQ(ZMVStreamFile_ShowSkip(file, 1), int64_t{Result(ZMV_E_SEEK)});
  EXPECT_EQ(ZMVStreamFile_ShowPos(file), 0xFFFFFFFFu);
  EXPECT_EQ(host.Count(HostCall::kSeek), seeks);
  EXPECT_EQ(ZMVStreamFile_ShowReset(file), 0);
  EXPECT_EQ(ZMVStreamFile_ShowSkip(file, -1), int64_t{Result(ZMV_E_SEEK)});
  EXPECT_EQ(host.Count(HostCall::kSeek), seeks + 1);  // to the peek position
  EXPECT_EQ(ZMVStreamFile_ShowPos(file), 0u);
}

TEST_F(ReadTest, Peek_OnAWritingFile_IsNotSupported) {
  ZMVStreamFile* const file = WriteFile(0);
  uint8_t byte = 0;
  EXPECT_EQ(ZMVStreamFile_ShowBuffer(file, &byte, 1), int64_t{Result(ZMV_E_NOT_SUPPORTED)});
  EXPECT_EQ(ZMVStreamFile_ShowSkip(file, 1), int64_t{Result(ZMV_E_NOT_SUPPORTED)});
  EXPECT_THAT(host.Traces(1), ElementsAre("can not support in write mode\n", "can not support in write mode\n"));
}

}  // namespace
}  // namespace zmv::test

#include "stream/zmvstream_file.h"
#include "tests/stream/stream_test.h"

namespace zmv::test {
namespace {

using ::testing::ElementsAre;

class CursorTest : public StreamTest {
 protected:
  // A 5000-byte file with a cursor whose cache of 1024 bytes was filled by reading 4 bytes at 0.
  ZMVStreamFile* CachedFile() {
    ZMVStreamFile* const file = ReadFile(Pattern(5000));
    Cursor(file, 1024);
    ByteVector bytes;
    EXPECT_EQ(Read(file, 0, 4, &bytes), 4);
    return file;
  }
  static ByteVector NextBytes(ZMVStreamFile* file, uint32_t count) {
    ByteVector bytes;
    EXPECT_EQ(Read(file, 0, count, &bytes), count);
    return bytes;
  }
};

TEST_F(CursorTest, Index_HandsOutTheLowestFreeNumber) {
  ZMVStreamFile* const file = ReadFile(Pattern(10));
  EXPECT_EQ(Cursor(file, 0), 0u);
  EXPECT_EQ(Cursor(file, 0), 1u);
  EXPECT_EQ(Cursor(file, 0), 2u);
  EXPECT_EQ(ZMVStreamFile_Release(file, 1), 2);
  EXPECT_EQ(Cursor(file, 0), 1u);
  EXPECT_EQ(Cursor(file, 0), 3u);
}

TEST_F(CursorTest, Index_TheTwentyFirst_IsRefusedUntilOneIsReleased) {
  ZMVStreamFile* const file = ReadFile(Pattern(10));
  for (uint32_t i = 0; i < 20; ++i) EXPECT_EQ(Cursor(file, 16), i);
  uint32_t idx = 99;
  EXPECT_EQ(ZMVStreamFile_Index(file, &idx, 0), int64_t{Result(ZMV_E_MEMORY)});
  EXPECT_EQ(idx, 99u);
  EXPECT_THAT(host.Traces(1), ElementsAre("opened index too many\n"));
  EXPECT_EQ(ZMVStreamFile_Release(file, 7), 19);
  EXPECT_EQ(Cursor(file, 0), 7u);
}

TEST_F(CursorTest, Index_WithAnyAllocationFailing_UndoesTheCursor) {
  ZMVStreamFile* const file = ReadFile(Pattern(10));
  const uint64_t blocks = host.LiveBlocks();
  for (uint64_t nth = 1; nth <= 2; ++nth) {
    host.Fail(HostCall::kMalloc, nth);
    uint32_t idx = 99;
    EXPECT_EQ(ZMVStreamFile_Index(file, &idx, 1024), int64_t{Result(ZMV_E_MEMORY)});
    EXPECT_EQ(file->m_dwIndexCount, 0u);
    EXPECT_EQ(file->m_pIndex[0], nullptr);
    EXPECT_EQ(host.LiveBlocks(), blocks);
  }
  EXPECT_THAT(host.Traces(1),
              ElementsAre("ZMVFileIndex alloc failed. size(32)\n", "m_pCache alloc failed. size(1024)\n"));
  EXPECT_EQ(Cursor(file, 1024), 0u);
}

TEST_F(CursorTest, Index_OfAWritingFileWithAnyAllocationFailing_UndoesCursorAndRing) {
  ZMVStreamFile* file = nullptr;
  ASSERT_EQ(ZMVStreamFile_Open(&file, "out", 1, 1), 0);
  const uint64_t blocks = host.LiveBlocks();
  for (uint64_t nth = 1; nth <= 5; ++nth) {
    host.Fail(HostCall::kMalloc, nth);
    uint32_t idx = 99;
    EXPECT_EQ(ZMVStreamFile_Index(file, &idx, 64), int64_t{Result(ZMV_E_MEMORY)});
    EXPECT_EQ(file->m_dwIndexCount, 0u);
    EXPECT_EQ(file->m_pIndex[0], nullptr);
    EXPECT_EQ(file->m_pFillNode, nullptr);
    EXPECT_EQ(file->m_pFlushNode, nullptr);
    EXPECT_EQ(file->m_dwNodeCount, 0u);
    EXPECT_EQ(host.LiveBlocks(), blocks);
  }
  const std::string node = "ZMVWCacheNode alloc failed. size(32)\n";
  const std::string buffer = "m_pBuffer of ZMVWCacheNode alloc failed. size(32)\n";
  EXPECT_THAT(host.Traces(1), ElementsAre("ZMVFileIndex alloc failed. size(32)\n", node, buffer, node, buffer));
  EXPECT_EQ(Cursor(file, 64), 0u);
  EXPECT_EQ(Write(file, Text("still works")), 11);
  ZMVStreamFile_Close(file);
  EXPECT_EQ(host.File("out"), Text("still works"));
}

TEST_F(CursorTest, Index_WithCacheSizeOne_HasNoCache) {
  ZMVStreamFile* const reading = ReadFile(Pattern(10));
  Cursor(reading, 1);
  EXPECT_EQ(reading->m_pIndex[0]->m_pCache, nullptr);
  ZMVStreamFile* const writing = WriteFile(1);
  EXPECT_EQ(writing->m_pFillNode, nullptr);
  EXPECT_EQ(Write(writing, Text("AB")), 2);
  EXPECT_EQ(host.File("out"), Text("AB"));
}

TEST_F(CursorTest, Index_OfAWritingFile_BuildsARingOfTwoNodes) {
  ZMVStreamFile* const file = WriteFile(16);
  EXPECT_EQ(file->m_dwNodeSize, 8u);
  EXPECT_EQ(file->m_dwNodeCount, 2u);
  EXPECT_EQ(file->m_pFillNode, file->m_pFlushNode);
  EXPECT_NE(file->m_pFillNode->m_pNext, file->m_pFillNode);
  EXPECT_EQ(file->m_pFillNode->m_pNext->m_pNext, file->m_pFillNode);
}

TEST_F(CursorTest, Index_OfAnotherWritingCursor_HasNoCache) {
  ZMVStreamFile* const file = WriteFile(0);
  EXPECT_EQ(Cursor(file, 4096), 1u);
  EXPECT_EQ(file->m_pFillNode, nullptr);
  EXPECT_EQ(file->m_pIndex[1]->m_pCache, nullptr);
}

TEST_F(CursorTest, Index_OfCursorZeroAgain_KeepsTheRingAndItsData) {
  ZMVStreamFile* const file = WriteFile(16);
  ASSERT_EQ(Write(file, Text("ABC")), 3);
  ZMVWCacheNode* const node = file->m_pFillNode;
  EXPECT_EQ(ZMVStreamFile_Release(file, 0), 0);
  const uint64_t blocks = host.LiveBlocks();
  EXPECT_EQ(Cursor(file, 64), 0u);
  EXPECT_EQ(file->m_pFillNode, node);
  EXPECT_EQ(file->m_dwNodeSize, 8u);
  EXPECT_EQ(host.LiveBlocks(), blocks + 1);
  CloseFile(file);
  EXPECT_EQ(host.File("out"), Text("ABC"));
}

TEST_F(CursorTest, Release_OfAFreeNumber_ReturnsTheUnchangedCount) {
  ZMVStreamFile* const file = ReadFile(Pattern(10));
  Cursor(file, 0);
  Cursor(file, 0);
  EXPECT_EQ(ZMVStreamFile_Release(file, 0), 1);
  EXPECT_EQ(ZMVStreamFile_Release(file, 0), 1);
  EXPECT_EQ(ZMVStreamFile_Release(file, 20), 1);
  EXPECT_EQ(ZMVStreamFile_Release(file, 0xFFFFFFFF), 1);
}

TEST_F(CursorTest, FreeNumbers_AreRefusedEverywhere) {
  ZMVStreamFile* const file = ReadFile(Pattern(10));
  Cursor(file, 0);
  Cursor(file, 16);
  ZMVStreamFile_Release(file, 1);
  uint8_t byte = 0xEE;
  for (const uint32_t idx : {1u, 19u, 20u, 0xFFFFFFFFu}) {
    EXPECT_EQ(ZMVStreamFile_ReadBuffer(file, idx, &byte, 1), int64_t{Result(ZMV_E_FAIL)});
    EXPECT_EQ(ZMVStreamFile_Skip(file, idx, 0), int64_t{Result(ZMV_E_FAIL)});
    EXPECT_EQ(ZMVStreamFile_Seek(file, idx, 0), int64_t{Result(ZMV_E_FAIL)});
    EXPECT_EQ(ZMVStreamFile_SeekEnd(file, idx, 0), int64_t{Result(ZMV_E_FAIL)});
    EXPECT_EQ(ZMVStreamFile_Pos(file, idx), 0u);
  }
  EXPECT_EQ(byte, 0xEE);
  EXPECT_EQ(host.Count(HostCall::kRead), 0u);
}

TEST_F(CursorTest, Cursors_MoveIndependently) {
  ZMVStreamFile* const file = ReadFile(Pattern(100));
  Cursor(file, 0);
  Cursor(file, 16);
  ByteVector bytes;
  ASSERT_EQ(ZMVStreamFile_Seek(file, 1, 50), 0);
  ASSERT_EQ(Read(file, 0, 3, &bytes), 3);
  EXPECT_THAT(bytes, ElementsAre(0, 1, 2));
  ASSERT_EQ(Read(file, 1, 3, &bytes), 3);
  EXPECT_THAT(bytes, ElementsAre(50, 51, 52));
  ASSERT_EQ(Read(file, 0, 3, &bytes), 3);
  EXPECT_THAT(bytes, ElementsAre(3, 4, 5));
  ASSERT_EQ(Read(file, 1, 3, &bytes), 3);
  EXPECT_THAT(bytes, ElementsAre(53, 54, 55));
}

TEST_F(CursorTest, Skip_BehindTheCache_DropsIt) {
  ZMVStreamFile* const file = CachedFile();
  EXPECT_EQ(ZMVStreamFile_Skip(file, 0, 1024), 0);
  EXPECT_EQ(file->m_pIndex[0]->m_dwCacheRemain, 0u);
  EXPECT_EQ(file->m_pIndex[0]->m_pCachePos, file->m_pIndex[0]->m_pCache);
  EXPECT_EQ(ZMVStreamFile_Pos(file, 0), 1028u);
  EXPECT_EQ(NextBytes(file, 3), Pattern(3, 1028));
}

TEST_F(CursorTest, Skip_ToTheLastCachedByte_StaysInside) {
  ZMVStreamFile* const file = CachedFile();
  EXPECT_EQ(ZMVStreamFile_Skip(file, 0, 1023), 0);
  EXPECT_EQ(file->m_pIndex[0]->m_dwCacheRemain, 1u);
  EXPECT_EQ(ZMVStreamFile_Pos(file, 0), 1027u);
  const uint64_t reads = host.Count(HostCall::kRead);
  EXPECT_EQ(NextBytes(file, 1), Pattern(1, 1027));
  EXPECT_EQ(host.Count(HostCall::kRead), reads);
}

TEST_F(CursorTest, Skip_BackRightAfterARefill_Repositions) {
  ZMVStreamFile* const file = CachedFile();
  EXPECT_EQ(ZMVStreamFile_Skip(file, 0, -1), 0);
  EXPECT_EQ(file->m_pIndex[0]->m_dwCacheRemain, 0u);
  EXPECT_EQ(ZMVStreamFile_Pos(file, 0), 3u);
  EXPECT_EQ(NextBytes(file, 2), Pattern(2, 3));
}

TEST_F(CursorTest, Skip_BackInsideTheCache_NeedsOneMoreConsumedByte) {
  ZMVStreamFile* file = CachedFile();
  NextBytes(file, 10);
  EXPECT_EQ(ZMVStreamFile_Skip(file, 0, -9), 0);
  EXPECT_EQ(file->m_pIndex[0]->m_dwCacheRemain, 1023u);
  EXPECT_EQ(ZMVStreamFile_Pos(file, 0), 5u);
  EXPECT_EQ(NextBytes(file, 9), Pattern(9, 5));
  EXPECT_EQ(ZMVStreamFile_Skip(file, 0, -10), 0);  // as many as are consumed: to the cache's first byte
  EXPECT_EQ(file->m_pIndex[0]->m_dwCacheRemain, 0u);
  EXPECT_EQ(ZMVStreamFile_Pos(file, 0), 4u);
  EXPECT_EQ(NextBytes(file, 2), Pattern(2, 4));
}

// The last fetch goes past the cache and leaves nothing to refill it with.
TEST_F(CursorTest, Skip_BackAfterAReadToTheEnd_DoesNotGoIntoTheCacheBefore) {
  ZMVStreamFile* const file = ReadFile(Pattern(1032));
  Cursor(file, 1024);
  NextBytes(file, 4);
  NextBytes(file, 1024);
  EXPECT_EQ(NextBytes(file, 4), Pattern(4, 1028));
  ASSERT_EQ(ZMVStreamFile_Pos(file, 0), 1032u);
  EXPECT_EQ(ZMVStreamFile_Skip(file, 0, -4), 0);
  EXPECT_EQ(ZMVStreamFile_Pos(file, 0), 1028u);
  EXPECT_EQ(NextBytes(file, 4), Pattern(4, 1028));
}

TEST_F(CursorTest, Skip_OfNothing_KeepsThePosition) {
  ZMVStreamFile* const file = CachedFile();
  EXPECT_EQ(ZMVStreamFile_Skip(file, 0, 0), 0);
  EXPECT_EQ(file->m_pIndex[0]->m_dwCacheRemain, 1024u);
  EXPECT_EQ(ZMVStreamFile_Pos(file, 0), 4u);
}

TEST_F(CursorTest, Skip_ToTheEndOfTheFile_IsAllowed) {
  ZMVStreamFile* const file = ReadFile(Pattern(100));
  Cursor(file, 0);
  EXPECT_EQ(ZMVStreamFile_Skip(file, 0, 100), 0);
  EXPECT_EQ(ZMVStreamFile_Pos(file, 0), 100u);
  EXPECT_EQ(ZMVStreamFile_Skip(file, 0, 1), int64_t{Result(ZMV_E_SEEK)});
  EXPECT_THAT(host.Traces(1), ElementsAre("Out of File size!!! cur(100) pos(101)\n"));
  EXPECT_EQ(ZMVStreamFile_Pos(file, 0), 100u);
}

TEST_F(CursorTest, Skip_BelowTheStart_IsOutOfTheFile) {
  ZMVStreamFile* const file = ReadFile(Pattern(100));
  Cursor(file, 0);
  ASSERT_EQ(ZMVStreamFile_Seek(file, 0, 10), 0);
  EXPECT_EQ(ZMVStreamFile_Skip(file, 0, -11), int64_t{Result(ZMV_E_SEEK)});
  EXPECT_EQ(ZMVStreamFile_Skip(file, 0, INT32_MIN), int64_t{Result(ZMV_E_SEEK)});
  EXPECT_EQ(ZMVStreamFile_Pos(file, 0), 10u);
  EXPECT_EQ(ZMVStreamFile_Skip(file, 0, -10), 0);
  EXPECT_EQ(ZMVStreamFile_Pos(file, 0), 0u);
}

TEST_F(CursorTest, Skip_ThatFailsBehindTheCache_LeavesTheCursorAtTheEndOfTheFill) {
  ZMVStreamFile* const file = CachedFile();
  EXPECT_EQ(ZMVStreamFile_Skip(file, 0, 4997), int64_t{Result(ZMV_E_SEEK)});
  EXPECT_THAT(host.Traces(1), ElementsAre("Out of File size!!! cur(5000) pos(5001)\n"));
  EXPECT_EQ(ZMVStreamFile_Pos(file, 0), 1028u);
}

TEST_F(CursorTest, Seek_ToTheEnd_SucceedsAndNothingCanBeReadThere) {
  ZMVStreamFile* const file = ReadFile(Pattern(100));
  Cursor(file, 16);
  EXPECT_EQ(ZMVStreamFile_Seek(file, 0, 100), 0);
  EXPECT_EQ(ZMVStreamFile_Pos(file, 0), 100u);
  uint8_t byte = 0;
  EXPECT_EQ(ZMVStreamFile_ReadBuffer(file, 0, &byte, 1), int64_t{Result(ZMV_E_READ)});
}

TEST_F(CursorTest, Seek_BehindTheEnd_ChangesNothing) {
  ZMVStreamFile* const file = CachedFile();
  EXPECT_EQ(ZMVStreamFile_Seek(file, 0, 5001), int64_t{Result(ZMV_E_SEEK)});
  EXPECT_THAT(host.Traces(1), ElementsAre("Out of File size!!! cur(5000) pos(5001)\n"));
  EXPECT_EQ(ZMVStreamFile_Pos(file, 0), 4u);
  EXPECT_EQ(file->m_pIndex[0]->m_dwCacheRemain, 1024u);
}

TEST_F(CursorTest, Seek_InsideTheFile_DropsTheCache) {
  ZMVStreamFile* const file = CachedFile();
  EXPECT_EQ(ZMVStreamFile_Seek(file, 0, 8), 0);
  EXPECT_EQ(file->m_pIndex[0]->m_dwPos, 8u);
  EXPECT_EQ(file->m_pIndex[0]->m_dwCacheRemain, 0u);
  EXPECT_EQ(NextBytes(file, 4), Pattern(4, 8));
}

TEST_F(CursorTest, SeekEnd_TakesADistanceFromTheEnd) {
  ZMVStreamFile* const file = ReadFile(Pattern(100));
  Cursor(file, 0);
  EXPECT_EQ(ZMVStreamFile_SeekEnd(file, 0, 0), 0);
  EXPECT_EQ(ZMVStreamFile_Pos(file, 0), 100u);
  EXPECT_EQ(ZMVStreamFile_SeekEnd(file, 0, -100), 0);
  EXPECT_EQ(ZMVStreamFile_Pos(file, 0), 0u);
  EXPECT_EQ(ZMVStreamFile_SeekEnd(file, 0, 1), int64_t{Result(ZMV_E_SEEK)});
  EXPECT_EQ(ZMVStreamFile_SeekEnd(file, 0, -101), int64_t{Result(ZMV_E_SEEK)});
  EXPECT_THAT(host.Traces(1),
              ElementsAre("Out of File size!!! cur(100) pos(101)\n", "Out of File size!!! cur(100) pos(4294967295)\n"));
}

TEST_F(CursorTest, Pos_OfACachedCursor_IsWhereTheNextReadStarts) {
  ZMVStreamFile* const file = CachedFile();
  EXPECT_EQ(ZMVStreamFile_Pos(file, 0), 4u);
  NextBytes(file, 100);
  EXPECT_EQ(ZMVStreamFile_Pos(file, 0), 104u);
  EXPECT_EQ(file->m_pIndex[0]->m_dwPos, 1028u);
}

}  // namespace
}  // namespace zmv::test

#include <algorithm>

#include "stream/zmvstream_file.h"
#include "tests/stream/stream_test.h"

namespace zmv::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr uint32_t kMebibyte = 1 << 20;

class WriteTest : public StreamTest {
 protected:
  // The platform writes so far, as "size at position".
  std::vector<std::string> PlatformWrites() {
    std::vector<std::string> writes;
    for (const CallRecord& call : host.Calls(HostCall::kWrite)) {
      writes.push_back(std::to_string(call.size) + " at " + std::to_string(call.position));
    }
    return writes;
  }
};

TEST_F(WriteTest, Write_ThroughAnotherCursor_IsRefused) {
  ZMVStreamFile* const file = WriteFile(0);
  ASSERT_EQ(Cursor(file, 0), 1u);
  EXPECT_EQ(Write(file, Text("AB"), 1), int64_t{Result(ZMV_E_NOT_SUPPORTED)});
  EXPECT_EQ(Write(file, Text("AB"), 20), int64_t{Result(ZMV_E_NOT_SUPPORTED)});
  EXPECT_THAT(host.Traces(1), ElementsAre("index must be zero\n", "index must be zero\n"));
  EXPECT_EQ(host.Count(HostCall::kWrite), 0u);
}

TEST_F(WriteTest, Write_WithoutCursorZero_IsRefused) {
  ZMVStreamFile* const file = WriteFile(16);
  ZMVStreamFile_Release(file, 0);
  EXPECT_EQ(Write(file, Text("AB")), int64_t{Result(ZMV_E_FAIL)});
}

TEST_F(WriteTest, WriteWithoutCache_GoesStraightToTheFile) {
  ZMVStreamFile* const file = WriteFile(0);
  EXPECT_EQ(Write(file, Text("ABCD")), 4);
  EXPECT_EQ(Write(file, Text("EF")), 2);
  EXPECT_THAT(PlatformWrites(), ElementsAre("4 at 0", "2 at 4"));
  EXPECT_EQ(host.Count(HostCall::kSeek), 0u);
  EXPECT_EQ(ZMVStreamFile_Size(file), 6);
  EXPECT_EQ(ZMVStreamFile_Pos(file, 0), 6u);
}

TEST_F(WriteTest, WriteWithoutCache_OverEarlierBytes_KeepsTheSize) {
  ZMVStreamFile* const file = WriteFile(0);
  ASSERT_EQ(Write(file, Text("ABCDEFGH")), 8);
  ASSERT_EQ(ZMVStreamFile_Seek(file, 0, 2), 0);
  EXPECT_EQ(Write(file, Text("cd")), 2);
  EXPECT_EQ(ZMVStreamFile_Size(file), 8);
  EXPECT_EQ(ZMVStreamFile_Pos(file, 0), 4u);
  EXPECT_EQ(host.File("out"), Text("ABcdEFGH"));
}

TEST_F(WriteTest, WriteWithoutCache_ThatFails_IsReported) {
  ZMVStreamFile* const file = WriteFile(0);
  host.Fail(HostCall::kWrite, 1);
  EXPECT_EQ(Write(file, Text("ABCD")), int64_t{Result(ZMV_E_WRITE)});
  EXPECT_THAT(host.Traces(1), ElementsAre("ZMV_FileWrite error err(0)\n"));
  EXPECT_EQ(ZMVStreamFile_Pos(file, 0), 0u);
  EXPECT_EQ(ZMVStreamFile_Size(file), 0);
}

TEST_F(WriteTest, WriteWithoutCache_WithANegativeResult_FailsWithoutAnErrorOfTheStream) {
  ZMVStreamFile* const file = WriteFile(0);
  host.write_result = -5;
  EXPECT_EQ(Write(file, Text("ABCD")), int64_t{Result(ZMV_E_WRITE)});
  EXPECT_THAT(host.Traces(1), ElementsAre("ZMV_FileWrite error err(-5)\n"));
  EXPECT_EQ(ZMVStreamFile_Pos(file, 0), 0u);
  EXPECT_EQ(ZMVStreamFile_Size(file), 0);
}

TEST_F(WriteTest, WriteWithoutCache_OfZeroBytesWithoutAnErrorOfTheStream_IsNoFailure) {
  ZMVStreamFile* const file = WriteFile(0);
  host.write_result = 0;
  EXPECT_EQ(Write(file, Text("ABCD")), 0);
  EXPECT_THAT(host.Traces(1), IsEmpty());
  EXPECT_EQ(ZMVStreamFile_Pos(file, 0), 0u);
}

TEST_F(WriteTest, WriteWithoutCache_CutShort_ReturnsTheCount) {
  ZMVStreamFile* const file = WriteFile(0);
  host.file_capacity = 3;
  EXPECT_EQ(Write(file, Text("ABCD")), 3);
  EXPECT_EQ(ZMVStreamFile_Pos(file, 0), 3u);
  EXPECT_EQ(ZMVStreamFile_Size(file), 3);
}

TEST_F(WriteTest, WriteWithoutCache_OfNothing_IsNoFailure) {
  ZMVStreamFile* const file = WriteFile(0);
  EXPECT_EQ(ZMVStreamFile_WriteBuffer(file, 0, nullptr, 0), 0);
  EXPECT_THAT(host.Traces(1), IsEmpty());
}

TEST_F(WriteTest, WriteWithoutCache_WithAFailingSeek_IsReported) {
  ZMVStreamFile* const file = WriteFile(0);
  ASSERT_EQ(Write(file, Text("ABCD")), 4);
  ASSERT_EQ(ZMVStreamFile_Seek(file, 0, 1), 0);
  host.Fail(HostCall::kSeek, 1);
  EXPECT_EQ(Write(file, Text("x")), int64_t{Result(ZMV_E_SEEK)});
  EXPECT_THAT(host.Traces(1), ElementsAre("ZMV_FileSeek error pos(1)\n"));
  EXPECT_EQ(Write(file, Text("b")), 1);
  EXPECT_EQ(host.File("out"), Text("AbCD"));
}

TEST_F(WriteTest, Write_Past4GiB_IsRefusedBeforeAnythingIsTouched) {
  for (const uint32_t cache_size : {0u, 16u}) {
    ZMVStreamFile* const file = WriteFile(cache_size);
    file->m_dwFileSize = 0xFFFFFFF0;
    ASSERT_EQ(ZMVStreamFile_Seek(file, 0, 0xFFFFFFF0), 0);
    EXPECT_EQ(Write(file, Zeros(16)), int64_t{Result(ZMV_E_WRITE)});
    EXPECT_EQ(ZMVStreamFile_Pos(file, 0), 0xFFFFFFF0u);
    EXPECT_EQ(host.Count(HostCall::kWrite), 0u);
    file->m_dwFileSize = 0;
  }
}

TEST_F(WriteTest, TwentyBytesThroughNodesOfEight_FlushTheFirstNodeOnly) {
  ZMVStreamFile* const file = WriteFile(16);
  EXPECT_EQ(Write(file, Text("ABCDEFGHIJKLMNOPQRST")), 20);
  EXPECT_THAT(PlatformWrites(), ElementsAre("8 at 0"));
  EXPECT_EQ(host.File("out"), Text("ABCDEFGH"));
  EXPECT_EQ(ZMVStreamFile_Size(file), 20);
  EXPECT_EQ(ZMVStreamFile_GetFilesize(file), 8);
  EXPECT_EQ(ZMVStreamFile_Pos(file, 0), 20u);
}

TEST_F(WriteTest, AFullNode_IsNotWrittenBeforeTheOtherIsFull) {
  ZMVStreamFile* const file = WriteFile(16);
  EXPECT_EQ(Write(file, Text("ABCDEFGH")), 8);
  EXPECT_EQ(host.Count(HostCall::kWrite), 0u);
  EXPECT_EQ(file->m_pFillNode->m_bReady, 0);
  EXPECT_EQ(Write(file, Text("I")), 1);
  EXPECT_EQ(host.Count(HostCall::kWrite), 0u);
  EXPECT_EQ(file->m_pFlushNode->m_bReady, 1);
  EXPECT_EQ(ZMVStreamFile_Size(file), 9);
}

TEST_F(WriteTest, OneAndAHalfMebibytes_ThroughNodesOfHalfAMebibyte) {
  ZMVStreamFile* const file = WriteFile(kMebibyte);
  const ByteVector bytes = Pattern(kMebibyte + kMebibyte / 2);
  EXPECT_EQ(Write(file, bytes), kMebibyte + kMebibyte / 2);
  EXPECT_THAT(PlatformWrites(), ElementsAre("524288 at 0"));
  CloseFile(file);
  EXPECT_THAT(PlatformWrites(), ElementsAre("524288 at 0", "524288 at 524288", "524288 at 1048576"));
  EXPECT_EQ(Difference(host.File("out"), bytes), "");
}

TEST_F(WriteTest, SequentialWritesOfAnySize_ReachTheFileInOrder) {
  ZMVStreamFile* const file = WriteFile(64);
  ByteVector expected;
  for (uint32_t size = 0; size < 150; ++size) {
    const ByteVector bytes = Pattern(size, expected.size());
    ASSERT_EQ(Write(file, bytes), size);
    expected = Join({expected, bytes});
  }
  CloseFile(file);
  EXPECT_EQ(Difference(host.File("out"), expected), "");
  for (const CallRecord& call : host.Calls(HostCall::kWrite)) {
    EXPECT_EQ(call.size, std::min<uint64_t>(32, expected.size() - call.position));
  }
}

TEST_F(WriteTest, PatchInsideTheFillNode_NeedsNoCallAndKeepsItsLength) {
  ZMVStreamFile* const file = WriteFile(64);
  ASSERT_EQ(Write(file, Text("size....data")), 12);
  ASSERT_EQ(ZMVStreamFile_Skip(file, 0, -8), 0);
  const size_t calls = host.calls().size();
  EXPECT_EQ(Write(file, Text("0012")), 4);
  EXPECT_EQ(host.calls().size(), calls);
  EXPECT_EQ(file->m_pFillNode->m_dwUsed, 12u);
  EXPECT_EQ(ZMVStreamFile_Size(file), 12);
  CloseFile(file);
  EXPECT_EQ(host.File("out"), Text("size0012data"));
}

TEST_F(WriteTest, PatchOutsideTheFillNode_FlushesItFirst) {
  ZMVStreamFile* const file = WriteFile(16);
  ASSERT_EQ(Write(file, Text("ABCDEFGHIJKLMNOPQRST")), 20);
  ASSERT_EQ(ZMVStreamFile_Seek(file, 0, 2), 0);
  EXPECT_EQ(Write(file, Text("cd")), 2);
  EXPECT_THAT(PlatformWrites(), ElementsAre("8 at 0", "8 at 8"));  // IJKLMNOP was the older one; QRST waits
  ASSERT_EQ(ZMVStreamFile_SeekEnd(file, 0, 0), 0);
  EXPECT_EQ(Write(file, Text("U")), 1);
  EXPECT_THAT(PlatformWrites(), ElementsAre("8 at 0", "8 at 8", "4 at 16"));
  CloseFile(file);
  EXPECT_EQ(host.File("out"), Text("ABcdEFGHIJKLMNOPQRSTU"));
}

TEST_F(WriteTest, PatchWithOnlyTheFillNodeInUse_FlushesThatNode) {
  ZMVStreamFile* const file = WriteFile(16);
  ASSERT_EQ(Write(file, Text("ABCDEF")), 6);
  ASSERT_EQ(ZMVStreamFile_Seek(file, 0, 3), 0);
  ASSERT_EQ(Write(file, Text("d")), 1);
  EXPECT_THAT(PlatformWrites(), IsEmpty());
  file->m_pFillNode->m_dwFilePos = 1;  // now position 0 lies outside
  ASSERT_EQ(ZMVStreamFile_Seek(file, 0, 0), 0);
  ASSERT_EQ(Write(file, Text("x")), 1);
  EXPECT_THAT(PlatformWrites(), ElementsAre("6 at 1"));
}

TEST_F(WriteTest, WriteAcrossNodesThatLieOverEachOther_KeepsTheOrder) {
  ZMVStreamFile* const file = WriteFile(16);
  ASSERT_EQ(Write(file, Text("ABCDEFGHIJKLMNOP")), 16);
  ASSERT_EQ(ZMVStreamFile_Seek(file, 0, 0), 0);
  ASSERT_EQ(Write(file, Text("abcdefghijkl")), 12);
  CloseFile(file);
  EXPECT_EQ(host.File("out"), Text("abcdefghijklMNOP"));
}

TEST_F(WriteTest, WriteOfNothing_ElsewhereClosesTheNodeAllTheSame) {
  ZMVStreamFile* const file = WriteFile(16);
  ASSERT_EQ(Write(file, Text("ABCDEFGHIJ")), 10);
  ASSERT_EQ(ZMVStreamFile_Seek(file, 0, 0), 0);
  EXPECT_EQ(ZMVStreamFile_WriteBuffer(file, 0, nullptr, 0), 0);
  EXPECT_THAT(PlatformWrites(), ElementsAre("8 at 0"));
  EXPECT_EQ(ZMVStreamFile_Size(file), 10);
}

TEST_F(WriteTest, WriteOfNothing_IntoTheNode_ChangesNothing) {
  ZMVStreamFile* const file = WriteFile(16);
  ASSERT_EQ(Write(file, Text("ABC")), 3);
  EXPECT_EQ(ZMVStreamFile_WriteBuffer(file, 0, nullptr, 0), 0);
  EXPECT_EQ(file->m_pFillNode->m_dwUsed, 3u);
  EXPECT_EQ(ZMVStreamFile_Size(file), 3);
}

TEST_F(WriteTest, FailedFlush_StaysWithTheFile) {
  ZMVStreamFile* const file = WriteFile(16);
  host.Fail(HostCall::kWrite, 1);
  EXPECT_EQ(Write(file, Text("ABCDEFGHIJKLMNOPQRST")), int64_t{Result(ZMV_E_WRITE)});
  EXPECT_EQ(file->m_llFlushError, int64_t{Result(ZMV_E_WRITE)});
  EXPECT_EQ(Write(file, Text("U")), int64_t{Result(ZMV_E_WRITE)});
  EXPECT_THAT(host.Traces(1),
              ElementsAre("SysFileWrite error. ret(0) Pos(0) Size(8)\n", "already has error err(-2147483629)\n"));
  EXPECT_EQ(host.Count(HostCall::kWrite), 1u);
}

TEST_F(WriteTest, FailedFlushOfALeftNode_IsReturned) {
  ZMVStreamFile* const file = WriteFile(16);
  ASSERT_EQ(Write(file, Text("ABCDEFGHIJ")), 10);
  ASSERT_EQ(ZMVStreamFile_Seek(file, 0, 0), 0);
  host.Fail(HostCall::kWrite, 1);
  EXPECT_EQ(Write(file, Text("a")), int64_t{Result(ZMV_E_WRITE)});
  EXPECT_EQ(Write(file, Text("a")), int64_t{Result(ZMV_E_WRITE)});
}

TEST_F(WriteTest, OffsetOutsideTheNode_IsRefused) {
  ZMVStreamFile* const file = WriteFile(16);
  ASSERT_EQ(Write(file, Text("ABC")), 3);
  file->m_pFillNode->m_dwUsed = 100;  // a node that claims more than it can hold
  file->m_dwFileSize = 100;
  ASSERT_EQ(ZMVStreamFile_Seek(file, 0, 50), 0);
  EXPECT_EQ(Write(file, Text("x")), int64_t{Result(ZMV_E_WRITE)});
  ASSERT_EQ(host.Traces(1).size(), 1u);
  EXPECT_THAT(host.Traces(1)[0],
              ::testing::MatchesRegex("invaild buffer access \t\t\t\t\tbufused\\(100\\) calc used\\(50\\) "
                                      "pbuf\\(0x[0-9a-f]+\\) pbufpos\\(0x00000000\\) loop\\(0\\) lRet\\(0\\)\n"));
  file->m_pFillNode->m_dwUsed = 3;
}

}  // namespace
}  // namespace zmv::test

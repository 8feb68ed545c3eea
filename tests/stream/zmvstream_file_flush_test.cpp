#include "stream/zmvstream_file.h"
#include "tests/stream/stream_test.h"

namespace zmv::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class FlushTest : public StreamTest {
 protected:
  // A file whose flush node holds 8 bytes and waits to be written at 0.
  ZMVStreamFile* ReadyFile() {
    ZMVStreamFile* const file = WriteFile(16);
    EXPECT_EQ(Write(file, Text("ABCDEFGHI")), 9);
    EXPECT_EQ(file->m_pFlushNode->m_bReady, 1);
    return file;
  }
};

TEST_F(FlushTest, WriteCache_WithNothingReady_IsAnInvalidAction) {
  ZMVStreamFile* const file = WriteFile(16);
  ASSERT_EQ(Write(file, Text("ABC")), 3);
  EXPECT_EQ(ZMVStreamFile_WriteCache(file), 0);
  EXPECT_EQ(ZMVStreamFile_WriteCache(WriteFile(0)), 0);
  EXPECT_THAT(host.Traces(1), ElementsAre("invalid action\n", "invalid action\n"));
  EXPECT_EQ(host.Count(HostCall::kWrite), 0u);
}

TEST_F(FlushTest, WriteCache_WritesTheNodeAndEmptiesIt) {
  ZMVStreamFile* const file = ReadyFile();
  ZMVWCacheNode* const node = file->m_pFlushNode;
  EXPECT_EQ(ZMVStreamFile_WriteCache(file), 0);
  EXPECT_EQ(host.File("out"), Text("ABCDEFGH"));
  EXPECT_EQ(node->m_bReady, 0);
  EXPECT_EQ(node->m_dwUsed, 0u);
  EXPECT_EQ(file->m_pFlushNode, node->m_pNext);
  EXPECT_EQ(file->m_dwFilePos, 8u);
}

TEST_F(FlushTest, WriteCache_CutShort_StaysAsWritten) {
  ZMVStreamFile* const file = ReadyFile();
  host.file_capacity = 5;
  EXPECT_EQ(ZMVStreamFile_WriteCache(file), 0);
  EXPECT_EQ(file->m_dwFilePos, 5u);
  EXPECT_EQ(host.File("out"), Text("ABCDE"));
}

TEST_F(FlushTest, WriteCache_ThatFails_KeepsTheNode) {
  ZMVStreamFile* const file = ReadyFile();
  ZMVWCacheNode* const node = file->m_pFlushNode;
  host.Fail(HostCall::kWrite, 1);
  EXPECT_EQ(ZMVStreamFile_WriteCache(file), int64_t{Result(ZMV_E_WRITE)});
  EXPECT_THAT(host.Traces(1), ElementsAre("SysFileWrite error. ret(0) Pos(0) Size(8)\n"));
  EXPECT_EQ(file->m_pFlushNode, node);
  EXPECT_EQ(node->m_bReady, 1);
  EXPECT_EQ(file->m_dwFilePos, 0u);
}

TEST_F(FlushTest, WriteCache_WithAnyResultBelowOne_FailsWithoutAnErrorOfTheStream) {
  ZMVStreamFile* const file = ReadyFile();
  ZMVWCacheNode* const node = file->m_pFlushNode;
  for (const int64_t result : {-5, 0}) {
    host.ClearRecords();
    host.write_result = result;
    EXPECT_EQ(ZMVStreamFile_WriteCache(file), int64_t{Result(ZMV_E_WRITE)});
    EXPECT_THAT(host.Traces(1),
                ElementsAre("SysFileWrite error. ret(" + std::to_string(result) + ") Pos(0) Size(8)\n"));
    EXPECT_EQ(file->m_pFlushNode, node);
    EXPECT_EQ(node->m_bReady, 1);
    EXPECT_EQ(file->m_dwFilePos, 0u);
  }
  host.write_result.reset();
  EXPECT_EQ(ZMVStreamFile_WriteCache(file), 0);
  EXPECT_EQ(host.File("out"), Text("ABCDEFGH"));
}

TEST_F(FlushTest, WriteCache_WithAFailingSeek_IsReported) {
  ZMVStreamFile* const file = ReadyFile();
  file->m_dwFilePos = 3;
  host.Fail(HostCall::kSeek, 1);
  EXPECT_EQ(ZMVStreamFile_WriteCache(file), int64_t{Result(ZMV_E_SEEK)});
  EXPECT_THAT(host.Traces(1), ElementsAre("ZMV_FileSeek error pos(0)\n"));
  EXPECT_EQ(host.Count(HostCall::kWrite), 0u);
}

TEST_F(FlushTest, Counters_FollowEveryFlush) {
  host.tick = 1000;
  host.tick_step = 10;
  ZMVStreamFile* const file = ReadyFile();
  ASSERT_EQ(ZMVStreamFile_WriteCache(file), 0);
  EXPECT_EQ(g_dwStartTime, 1000u);
  EXPECT_EQ(g_dwWSTime, 1010u);
  EXPECT_EQ(g_dwWETime, 1020u);
  EXPECT_EQ(g_dwEndTime, 1020u);
  EXPECT_EQ(g_dwWTotalTime, 10u);
  EXPECT_EQ(g_dwTotalTime, 20u);
  EXPECT_EQ(g_dwWriteBytes, 8u);
  EXPECT_EQ(g_dwWriteBPS, 0u);
  ASSERT_EQ(Write(file, Text("JKLMNOPQ")), 8);
  ASSERT_EQ(ZMVStreamFile_WriteCache(file), 0);
  EXPECT_EQ(g_dwStartTime, 1000u);
  EXPECT_EQ(g_dwWSTime, 1030u);
  EXPECT_EQ(g_dwWETime, 1040u);
  EXPECT_EQ(g_dwWTotalTime, 20u);
  EXPECT_EQ(g_dwTotalTime, 60u);  // 20, and the 40 since the period began
  EXPECT_EQ(g_dwWriteBytes, 16u);
}

TEST_F(FlushTest, Report_AtTheEndOfAPeriod_StartsTheNextOne) {
  host.tick = 5000;
  g_dwStartTime = 2000;
  g_dwWriteBytes = 600000 - 8;
  g_dwWTotalTime = 50;
  ASSERT_EQ(ZMVStreamFile_WriteCache(ReadyFile()), 0);
  EXPECT_EQ(g_dwWriteBPS, 96000000u);
  EXPECT_EQ(g_dwWriteBytes, 0u);
  EXPECT_EQ(g_dwWTotalTime, 0u);
  EXPECT_EQ(g_dwTotalTime, 0u);
  EXPECT_EQ(g_dwStartTime, 5000u);
  EXPECT_THAT(host.Traces(2), ElementsAre("PERF elapse time(50)ms, size(600000)byte, (96000000)bps\n"));
}

TEST_F(FlushTest, Report_IsDueAboveThePeriodOnly) {
  host.tick = 5000;
  g_dwStartTime = 5000 - 2999;
  g_dwWTotalTime = 50;
  ASSERT_EQ(ZMVStreamFile_WriteCache(ReadyFile()), 0);
  EXPECT_EQ(g_dwTotalTime, 2999u);
  EXPECT_EQ(g_dwWriteBytes, 8u);
  EXPECT_THAT(host.Traces(2), IsEmpty());
}

TEST_F(FlushTest, Report_WithoutTimeInWrites_HasTheLargestRate) {
  host.tick = 5000;
  g_dwStartTime = 1;
  ASSERT_EQ(ZMVStreamFile_WriteCache(ReadyFile()), 0);
  EXPECT_EQ(g_dwWriteBPS, 0xFFFFFFFFu);
}

TEST_F(FlushTest, Report_BeyondTheLargestRate_Saturates) {
  host.tick = 5000;
  g_dwStartTime = 1;
  g_dwWriteBytes = 0xFFFFFFF0;
  g_dwWTotalTime = 1;
  ASSERT_EQ(ZMVStreamFile_WriteCache(ReadyFile()), 0);
  EXPECT_EQ(g_dwWriteBPS, 0xFFFFFFFFu);
}

TEST_F(FlushTest, Report_UsesTheLow32BitsOfTheTime) {
  host.tick = 5000;
  g_dwStartTime = 1;
  g_dwWriteBytes = 1000 - 8;
  g_dwWTotalTime = 0x100000064;  // 100 ms in the low half
  ASSERT_EQ(ZMVStreamFile_WriteCache(ReadyFile()), 0);
  EXPECT_EQ(g_dwWriteBPS, 80000u);
}

TEST_F(FlushTest, FailedWrite_CountsItsBytesAndNoTime) {
  host.tick = 1000;
  ZMVStreamFile* const file = ReadyFile();
  host.Fail(HostCall::kWrite, 1);
  ASSERT_EQ(ZMVStreamFile_WriteCache(file), int64_t{Result(ZMV_E_WRITE)});
  EXPECT_EQ(g_dwWriteBytes, 8u);
  EXPECT_EQ(g_dwStartTime, 1000u);
  EXPECT_EQ(g_dwWETime, 0u);
}

}  // namespace
}  // namespace zmv::test

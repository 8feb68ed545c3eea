#include <chrono>
#include <thread>

#include "stream/zmvstream_file.h"
#include "tests/stream/stream_test.h"

namespace zmv::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

std::vector<std::string>* handed_over = nullptr;
void TakeDescriptor(int, const char* path) { handed_over->push_back(path); }

class CloseTest : public StreamTest {
 protected:
  CloseTest() { handed_over = &handed_over_; }

  // The calls that end a file, in order.
  std::vector<std::string> EndCalls() {
    std::vector<std::string> names;
    for (const CallRecord& call : host.calls()) {
      if (call.call == HostCall::kWrite) names.push_back("write " + std::to_string(call.size));
      if (call.call == HostCall::kSync) names.push_back("sync");
      if (call.call == HostCall::kClose) names.push_back("close");
      if (call.call == HostCall::kThreadDelete) names.push_back("thread");
    }
    return names;
  }

  std::vector<std::string> handed_over_;
};

TEST_F(CloseTest, Close_OfNull_DoesNothing) {
  ZMVStreamFile_Close(nullptr);
  EXPECT_THAT(host.calls(), IsEmpty());
}

TEST_F(CloseTest, Close_FreesEveryCursorWhateverWasReleasedBefore) {
  ZMVStreamFile* const file = ReadFile(Pattern(100));
  for (uint32_t i = 0; i < 20; ++i) Cursor(file, 16);
  for (uint32_t i = 0; i < 18; ++i) ZMVStreamFile_Release(file, i);
  CloseFile(file);
  EXPECT_THAT(host.LiveList(), IsEmpty());
  EXPECT_THAT(EndCalls(), ElementsAre("close"));
}

TEST_F(CloseTest, Close_WithAWrongCount_StillFreesAllTwenty) {
  ZMVStreamFile* const file = ReadFile(Pattern(100));
  for (uint32_t i = 0; i < 20; ++i) Cursor(file, 0);
  file->m_dwIndexCount = 1;
  CloseFile(file);
  EXPECT_THAT(host.LiveList(), IsEmpty());
}

TEST_F(CloseTest, Close_WritesWhatIsCachedOldestFirst) {
  ZMVStreamFile* const file = WriteFile(16);
  ASSERT_EQ(Write(file, Text("ABCDEFGHIJK")), 11);
  CloseFile(file);
  EXPECT_THAT(EndCalls(), ElementsAre("write 8", "write 3", "close"));
  EXPECT_EQ(host.File("out"), Text("ABCDEFGHIJK"));
  EXPECT_THAT(host.Traces(1), IsEmpty());
}

TEST_F(CloseTest, Close_OfAnEmptyCache_WritesNothingAndReportsNothing) {
  CloseFile(WriteFile(16));
  EXPECT_THAT(EndCalls(), ElementsAre("close"));
  EXPECT_THAT(host.Traces(1), IsEmpty());
}

TEST_F(CloseTest, Close_WithAFailingFlush_StillClosesAndFreesAll) {
  ZMVStreamFile* const file = WriteFile(16);
  ASSERT_EQ(Write(file, Text("ABCDEFGHIJK")), 11);
  host.Fail(HostCall::kWrite, 1);
  CloseFile(file);
  EXPECT_THAT(EndCalls(), ElementsAre("write 8", "close"));
  EXPECT_THAT(host.Traces(1),
              ElementsAre("SysFileWrite error. ret(0) Pos(0) Size(8)\n", "ZMVStreamFile_WriteCache failed\n"));
  EXPECT_THAT(host.LiveList(), IsEmpty());
}

TEST_F(CloseTest, Close_AfterAFailedFlush_WritesNothingMore) {
  ZMVStreamFile* const file = WriteFile(16);
  host.Fail(HostCall::kWrite, 1);
  ASSERT_EQ(Write(file, Text("ABCDEFGHIJKLMNOPQRST")), int64_t{Result(ZMV_E_WRITE)});
  host.ClearRecords();
  CloseFile(file);
  EXPECT_THAT(EndCalls(), ElementsAre("close"));
  ASSERT_EQ(host.Traces(1).size(), 1u);
  EXPECT_THAT(host.Traces(1)[0],
              ::testing::MatchesRegex("can not flush flushnode\\([0-9a-f]+\\) has error\\(80000013\\)\n"));
}

TEST_F(CloseTest, Close_WithSync_SyncsAfterTheLastWrite) {
  ZMVStreamFile* const file = WriteFile(16);
  ASSERT_EQ(Write(file, Text("ABC")), 3);
  ZMVStreamFile_SetSync(file, 1);
  CloseFile(file);
  EXPECT_THAT(EndCalls(), ElementsAre("write 3", "sync", "close"));
}

TEST_F(CloseTest, Close_OfAReadingFileWithSync_SyncsToo) {
  ZMVStreamFile* const file = ReadFile(Pattern(10));
  ZMVStreamFile_SetSync(file, 1);
  CloseFile(file);
  EXPECT_THAT(EndCalls(), ElementsAre("sync", "close"));
}

TEST_F(CloseTest, Close_WithACallback_HandsTheFileOverInsteadOfClosingIt) {
  ZMVStreamFile* const file = WriteFile(16);
  ASSERT_EQ(Write(file, Text("ABC")), 3);
  ZMVStreamFile_SetOption(1, &TakeDescriptor);
  CloseFile(file);
  EXPECT_THAT(handed_over_, ElementsAre("out"));
  EXPECT_THAT(EndCalls(), ElementsAre("write 3", "sync"));
  EXPECT_THAT(host.LiveList(), IsEmpty());
}

TEST_F(CloseTest, Close_OfAReadingFileWithACallback_HandsItOverToo) {
  ZMVStreamFile* const file = ReadFile(Pattern(10));
  ZMVStreamFile_SetOption(1, &TakeDescriptor);
  CloseFile(file);
  EXPECT_THAT(handed_over_, ElementsAre("in"));
  EXPECT_THAT(EndCalls(), ElementsAre("sync"));
}

TEST_F(CloseTest, Close_WithHalfTheOption_ClosesAsUsual) {
  ZMVStreamFile_SetOption(0, &TakeDescriptor);
  CloseFile(WriteFile(0));
  ZMVStreamFile_SetOption(1, nullptr);
  CloseFile(WriteFile(0));
  EXPECT_THAT(handed_over_, IsEmpty());
  EXPECT_THAT(EndCalls(), ElementsAre("close", "close"));
}

TEST_F(CloseTest, Close_JoinsAFlushThreadBeforeTheLastFlush) {
  ZMVStreamFile* const file = WriteFile(16);
  ASSERT_EQ(Write(file, Text("ABC")), 3);
  file->m_hFlushThread = ZMV_ThreadCreate(
      "flush", 0, 0x20000, [](void*) {}, nullptr);
  CloseFile(file);
  EXPECT_THAT(EndCalls(), ElementsAre("thread", "write 3", "close"));
  EXPECT_THAT(host.Traces(1), IsEmpty());
}

// Ends when it is told to, and counts itself; after five seconds it gives up.
int told_to_stop = 0;
void FlushUntilStopped(void* context) {
  auto* const file = static_cast<ZMVStreamFile*>(context);
  for (int i = 0; i < 5000; ++i) {
    if (__atomic_load_n(&file->m_bFlushStop, __ATOMIC_RELAXED) != 0) {
      ++told_to_stop;
      return;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}

TEST_F(CloseTest, Close_TellsAFlushThreadToStopBeforeItJoinsIt) {
  ZMVStreamFile* const file = WriteFile(0);
  told_to_stop = 0;
  file->m_hFlushThread = ZMV_ThreadCreate("flush", 0, 0x20000, &FlushUntilStopped, file);
  CloseFile(file);
  EXPECT_EQ(told_to_stop, 1);
}

TEST_F(CloseTest, Close_WithAFlushThreadThatDoesNotEnd_SaysSo) {
  ZMVStreamFile* const file = WriteFile(0);
  void* const thread = ZMV_ThreadCreate(
      "flush", 0, 0x20000, [](void*) {}, nullptr);
  file->m_hFlushThread = thread;
  host.Fail(HostCall::kThreadDelete, 1);
  CloseFile(file);
  EXPECT_THAT(host.Traces(1), ElementsAre("ZMV_ThreadDelete failed\n"));
  EXPECT_EQ(ZMV_ThreadDelete(thread, nullptr), 0);
}

}  // namespace
}  // namespace zmv::test

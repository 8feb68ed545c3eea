#include <errno.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "platform/zmv_host.h"
#include "platform/zmv_platform.h"

namespace {

using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

struct Lines {
  std::vector<std::string> texts;
  ZMVHostTraceLine last = {};
  static void Sink(void* user, const ZMVHostTraceLine* line) {
    auto* lines = static_cast<Lines*>(user);
    lines->texts.emplace_back(line->text);
    lines->last = *line;
  }
};

class PosixTrace : public ::testing::Test {
 protected:
  void TearDown() override {
    unsetenv("ZMV_TRACE");
    ZMVHost_SetTraceSink(ZMV_HOST_TRACE_DEFAULT, nullptr, nullptr);
  }
  static void TraceEveryLevel() {
    ZMV_Trace("TAG", ZMV_TRACE_ERROR, "file.cpp", 12, "Func", "error %d\n", 1);
    ZMV_Trace("TAG", ZMV_TRACE_WARNING, "file.cpp", 12, "Func", "warning %d\n", 2);
    ZMV_Trace("TAG", ZMV_TRACE_INFO, "file.cpp", 12, "Func", "information %d\n", 3);
    ZMV_Trace("TAG", ZMV_TRACE_DEBUG, "file.cpp", 12, "Func", "debugging %d\n", 4);
  }
  // What the standard error stream shows under ZMV_TRACE=`value` (null: not set).
  static std::string ShownUnder(const char* value) {
    if (value == nullptr) {
      unsetenv("ZMV_TRACE");
    } else {
      setenv("ZMV_TRACE", value, 1);
    }
    ZMVHost_SetTraceSink(ZMV_HOST_TRACE_DEFAULT, nullptr, nullptr);
    ::testing::internal::CaptureStderr();
    TraceEveryLevel();
    return ::testing::internal::GetCapturedStderr();
  }
};

TEST_F(PosixTrace, Environment_SelectsTheLevels) {
  const std::string lines[] = {
      "E TAG file.cpp:12 Func: error 1\n",
      "W TAG file.cpp:12 Func: warning 2\n",
      "I TAG file.cpp:12 Func: information 3\n",
      "D TAG file.cpp:12 Func: debugging 4\n",
  };
  std::string expected;
  EXPECT_EQ(ShownUnder("0"), expected);
  EXPECT_EQ(ShownUnder("1"), expected += lines[0]);
  EXPECT_EQ(ShownUnder("2"), expected += lines[1]);
  EXPECT_EQ(ShownUnder("3"), expected += lines[2]);
  EXPECT_EQ(ShownUnder("4"), expected += lines[3]);
}

TEST_F(PosixTrace, Environment_NotSetOrNoLevel_ShowsErrors) {
  for (const char* value : {static_cast<const char*>(nullptr), "", "5", "44", "-1", "x", " 3"}) {
    EXPECT_EQ(ShownUnder(value), "E TAG file.cpp:12 Func: error 1\n");
    EXPECT_EQ(ZMVHost_TraceLevel(), ZMV_TRACE_ERROR);
  }
}

// A new process, so that the level is found by the first line and not by setting a sink.
TEST_F(PosixTrace, Environment_IsReadByTheFirstLine) {
  ::testing::FLAGS_gtest_death_test_style = "threadsafe";
  setenv("ZMV_TRACE", "2", 1);
  EXPECT_EXIT(
      {
        TraceEveryLevel();
        exit(ZMVHost_TraceLevel());
      },
      ::testing::ExitedWithCode(2), "error 1\n.*warning 2\n$");
}

TEST_F(PosixTrace, Sink_GetsTheLinesUpToItsLevelAndStandardErrorNone) {
  Lines lines;
  for (int32_t level = 0; level <= 4; ++level) {
    lines.texts.clear();
    ZMVHost_SetTraceSink(level, &Lines::Sink, &lines);
    EXPECT_EQ(ZMVHost_TraceLevel(), level);
    ::testing::internal::CaptureStderr();
    TraceEveryLevel();
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(lines.texts.size(), static_cast<size_t>(level));
  }
  EXPECT_THAT(lines.texts, ElementsAre("error 1\n", "warning 2\n", "information 3\n", "debugging 4\n"));
}

TEST_F(PosixTrace, Sink_GetsThePlaceOfTheCall) {
  Lines lines;
  ZMVHost_SetTraceSink(4, &Lines::Sink, &lines);
  ZMV_Trace("ZMVMP4W", ZMV_TRACE_WARNING, "writer.cpp", 77, "Write", "%s at %lld of %x\n", "x", 1LL << 40, 0xABCu);
  EXPECT_THAT(lines.texts, ElementsAre("x at 1099511627776 of abc\n"));
  EXPECT_STREQ(lines.last.module, "ZMVMP4W");
  EXPECT_EQ(lines.last.level, ZMV_TRACE_WARNING);
  EXPECT_STREQ(lines.last.file, "writer.cpp");
  EXPECT_EQ(lines.last.line, 77u);
  EXPECT_STREQ(lines.last.function, "Write");
}

TEST_F(PosixTrace, Sink_TakenAway_LinesGoToStandardErrorAtTheLevelGiven) {
  Lines lines;
  ZMVHost_SetTraceSink(4, &Lines::Sink, &lines);
  ZMVHost_SetTraceSink(ZMV_TRACE_WARNING, nullptr, nullptr);
  ::testing::internal::CaptureStderr();
  TraceEveryLevel();
  EXPECT_EQ(::testing::internal::GetCapturedStderr(),
            "E TAG file.cpp:12 Func: error 1\nW TAG file.cpp:12 Func: warning 2\n");
  EXPECT_THAT(lines.texts, IsEmpty());
}

TEST_F(PosixTrace, Sink_ThatTraces_DoesNotMeetItself) {
  static int calls;
  calls = 0;
  ZMVHost_SetTraceSink(
      4,
      [](void*, const ZMVHostTraceLine*) {
        ++calls;
        TraceEveryLevel();
      },
      nullptr);
  ZMV_Trace("TAG", 1, "f", 1, "F", "once\n");
  EXPECT_EQ(calls, 1);
}

TEST_F(PosixTrace, Sink_MayReplaceItself) {
  static Lines lines;
  ZMVHost_SetTraceSink(
      4, [](void*, const ZMVHostTraceLine*) { ZMVHost_SetTraceSink(1, &Lines::Sink, &lines); }, nullptr);
  TraceEveryLevel();
  TraceEveryLevel();
  EXPECT_THAT(lines.texts, ElementsAre("error 1\n"));
}

TEST_F(PosixTrace, FilteredLine_IsNotFormatted) {
  ZMVHost_SetTraceSink(3, &Lines::Sink, nullptr);
  // Formatting would read the text, and a line that passed would reach the null user.
  const char* bad = reinterpret_cast<const char*>(uintptr_t{16});
  ZMV_Trace("TAG", 4, "f", 1, "F", "%s\n", bad);
  EXPECT_EQ(ZMVHost_TraceLevel(), 3);
}

TEST_F(PosixTrace, LongLine_IsCutAndStillEndsInANewline) {
  Lines lines;
  ZMVHost_SetTraceSink(4, &Lines::Sink, &lines);
  for (size_t size : {1021u, 1022u, 1023u, 1024u, 5000u}) {
    lines.texts.clear();
    ZMV_Trace("TAG", 1, "f", 1, "F", "%s\n", std::string(size, 'x').c_str());
    ASSERT_EQ(lines.texts.size(), 1u);
    if (size <= 1022) {
      EXPECT_EQ(lines.texts[0], std::string(size, 'x') + "\n");
    } else {
      EXPECT_EQ(lines.texts[0].size(), 1023u);
      EXPECT_THAT(lines.texts[0], EndsWith("xxx...\n"));
    }
  }
}

TEST_F(PosixTrace, LongPlace_IsCutAndTheTextKept) {
  ZMVHost_SetTraceSink(1, nullptr, nullptr);
  ::testing::internal::CaptureStderr();
  ZMV_Trace("TAG", 1, std::string(2000, 'p').c_str(), 1, "F", "the text\n");
  const std::string shown = ::testing::internal::GetCapturedStderr();
  EXPECT_LT(shown.size(), 300u);
  EXPECT_THAT(shown, EndsWith("the text\n"));
}

TEST_F(PosixTrace, NullTexts_AreEmpty) {
  ZMVHost_SetTraceSink(1, nullptr, nullptr);
  ::testing::internal::CaptureStderr();
  ZMV_Trace(nullptr, 1, nullptr, 3, nullptr, "text\n");
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "E  :3 : text\n");
}

TEST_F(PosixTrace, NullFormat_IsNoLine) {
  Lines lines;
  ZMVHost_SetTraceSink(4, &Lines::Sink, &lines);
  const char* format = nullptr;
  ZMV_Trace("TAG", 1, "f", 1, "F", format, 1);
  EXPECT_THAT(lines.texts, IsEmpty());
}

TEST_F(PosixTrace, ErrorNumber_StaysAsItWas) {
  Lines lines;
  ZMVHost_SetTraceSink(
      4, [](void*, const ZMVHostTraceLine*) { errno = 1; }, nullptr);
  errno = ENOSPC;
  ZMV_Trace("TAG", 1, "f", 1, "F", "text\n");
  EXPECT_EQ(errno, ENOSPC);
}

TEST_F(PosixTrace, SeveralThreads_EveryLineArrivesWholeAndAlone) {
  struct Counter {
    int inside = 0;  // not atomic: the sink is called by one thread at a time
    int lines = 0;
    int bad = 0;
  } counter;
  ZMVHost_SetTraceSink(
      4,
      [](void* user, const ZMVHostTraceLine* line) {
        auto* own = static_cast<Counter*>(user);
        if (++own->inside != 1) ++own->bad;
        if (std::string(line->text) != "thread " + std::string(line->module) + "\n") ++own->bad;
        ++own->lines;
        --own->inside;
      },
      &counter);
  std::vector<std::thread> threads;
  for (const char* name : {"A", "BB", "CCC", "DDDD"}) {
    threads.emplace_back([name] {
      for (int i = 0; i < 1000; ++i) ZMV_Trace(name, 1 + i % 4, "f", 1, "F", "thread %s\n", name);
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(counter.lines, 4000);
  EXPECT_EQ(counter.bad, 0);
}

TEST_F(PosixTrace, SinkReplacedWhileOthersTrace_TheOldOneIsNotCalledAgain) {
  std::atomic<bool> stop{false};
  std::vector<std::thread> threads;
  for (int i = 0; i < 3; ++i) {
    threads.emplace_back([&stop] {
      while (!stop) ZMV_Trace("TAG", 2, "f", 1, "F", "line\n");
    });
  }
  for (int i = 0; i < 200; ++i) {
    auto lines = std::make_unique<Lines>();
    ZMVHost_SetTraceSink(4, &Lines::Sink, lines.get());
    std::this_thread::yield();
    ZMVHost_SetTraceSink(0, nullptr, nullptr);
    lines.reset();  // a late call would touch freed memory
  }
  stop = true;
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(ZMVHost_TraceLevel(), 0);
}

}  // namespace

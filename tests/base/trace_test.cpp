#include "base/trace.h"

#include <gmock/gmock.h>

#include "platform/zmv_platform.h"
#include "tests/support/scripted_host.h"

namespace zmv {
namespace {

using test::ScriptedHost;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr TraceModule kModule{"tag", "source"};

TEST(TraceTest, Line_CarriesModuleSourceLevelAndFunction) {
  ScriptedHost host;
  ZMV_TRACE(kModule, kTraceWarning, "size(%d)\n", 7);
  ASSERT_EQ(host.traces().size(), 1u);
  EXPECT_EQ(host.traces()[0].module, "tag");
  EXPECT_EQ(host.traces()[0].file, "source");
  EXPECT_EQ(host.traces()[0].level, 2);
  EXPECT_EQ(host.traces()[0].function, "TestBody");
  EXPECT_EQ(host.traces()[0].text, "size(7)\n");
}

TEST(TraceTest, Scope_TracesEnterAndLeaveAtDebugLevel) {
  ScriptedHost host;
  {
    TraceScope scope(kModule, "Function");
    EXPECT_THAT(host.Traces(4), ElementsAre("Enter.\n"));
  }
  EXPECT_THAT(host.Traces(4), ElementsAre("Enter.\n", "Leave.\n"));
  EXPECT_EQ(host.traces()[1].function, "Function");
}

TEST(TraceTest, ScopeEnteredByItsOwnLine_TracesLeaveOnly) {
  ScriptedHost host;
  { TraceScope scope(kModule, "Function", TraceScope::Entered{}); }
  EXPECT_THAT(host.Traces(4), ElementsAre("Leave.\n"));
}

// A log that names the place is of no use without a line.
TEST(TraceTest, Scope_NamesTheLineItStandsIn) {
  ScriptedHost host;
  const uint32_t line = __LINE__ + 1;
  { TraceScope scope(kModule, "Function"); }
  { TraceScope scope(kModule, "Function", TraceScope::Entered{}); }
  ASSERT_EQ(host.traces().size(), 3u);
  EXPECT_EQ(host.traces()[0].line, line);
  EXPECT_EQ(host.traces()[1].line, line);
  EXPECT_EQ(host.traces()[2].line, line + 1);
}

TEST(TraceTest, FailedScope_NamesTheLineOfTheFailure) {
  ScriptedHost host;
  uint32_t line = 0;
  {
    TraceScope scope(kModule, "Function");
    line = __LINE__ + 1;
    EXPECT_EQ(scope.Fail(-1, "ret(%d) of %s\n", 3, "it"), -1);
  }
  ASSERT_EQ(host.traces().size(), 2u);
  EXPECT_EQ(host.traces()[1].line, line);
  EXPECT_EQ(host.traces()[1].text, "ret(3) of it\n");
}

int Failing(const char* message) {
  TraceScope scope(kModule, "Failing");
  return message == nullptr ? scope.Fail(-5) : scope.Fail(-7, message, 3);
}

TEST(TraceTest, FailedScope_TracesTheErrorInPlaceOfLeave) {
  ScriptedHost host;
  EXPECT_EQ(Failing("ret(%d)\n"), -7);
  EXPECT_THAT(host.Traces(1), ElementsAre("ret(3)\n"));
  EXPECT_THAT(host.Traces(4), ElementsAre("Enter.\n"));
}

TEST(TraceTest, ScopeFailedWithoutMessage_TracesNothingMore) {
  ScriptedHost host;
  EXPECT_EQ(Failing(nullptr), -5);
  EXPECT_THAT(host.Traces(1), IsEmpty());
  EXPECT_THAT(host.Traces(4), ElementsAre("Enter.\n"));
}

}  // namespace
}  // namespace zmv

#include "tools/zmv/interrupt.h"

#include <gtest/gtest.h>

namespace zmv::tool {
namespace {

int seen = 0;

// What SIGHUP does for the length of a test, whoever started it.
class Hangup {
 public:
  explicit Hangup(void (*handler)(int)) {
    struct sigaction action {};
    action.sa_handler = handler;
    sigaction(SIGHUP, &action, &before_);
  }
  ~Hangup() { sigaction(SIGHUP, &before_, nullptr); }
  Hangup(const Hangup&) = delete;
  Hangup& operator=(const Hangup&) = delete;

 private:
  struct sigaction before_;
};

TEST(Interrupt, FirstSignal_IsNotedAndTheProgramGoesOn) {
  const Hangup hangup(SIG_DFL);
  for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
    const Interrupt interrupt;
    EXPECT_FALSE(Interrupt::Requested());
    raise(number);
    EXPECT_TRUE(Interrupt::Requested());
  }
}

TEST(Interrupt, SecondSignal_EndsTheProgram) {
  const auto twice = [] {
    const Interrupt interrupt;
    raise(SIGINT);
    raise(SIGINT);
  };
  EXPECT_EXIT(twice(), testing::KilledBySignal(SIGINT), "");
}

TEST(Interrupt, AtItsEnd_TheHandlersBeforeItAreBack) {
  struct sigaction own {};
  struct sigaction before {};
  own.sa_handler = [](int) { ++seen; };
  sigaction(SIGINT, &own, &before);
  { const Interrupt interrupt; }
  raise(SIGINT);
  sigaction(SIGINT, &before, nullptr);
  EXPECT_EQ(seen, 1);
}

TEST(Interrupt, Hangup_BelongsToItsHandlerAgain) {
  seen = 0;
  const Hangup hangup([](int) { ++seen; });
  { const Interrupt interrupt; }
  raise(SIGHUP);
  EXPECT_EQ(seen, 1);
}

TEST(Interrupt, HangupThatIsIgnored_StaysIgnored) {
  const Hangup hangup(SIG_IGN);
  const Interrupt interrupt;
  raise(SIGHUP);
  EXPECT_FALSE(Interrupt::Requested());
}

}  // namespace
}  // namespace zmv::tool

#include "tools/zmv/interrupt.h"

#include <gtest/gtest.h>

namespace zmv::tool {
namespace {

int seen = 0;

TEST(Interrupt, FirstSignal_IsNotedAndTheProgramGoesOn) {
  for (const int number : {SIGINT, SIGTERM}) {
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

}  // namespace
}  // namespace zmv::tool

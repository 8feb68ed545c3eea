#include "mp4/mp4_seek_ticks.h"

#include <gtest/gtest.h>

#include <chrono>

namespace zmv::mp4::reader {
namespace {

TEST(SeekTicks, TicksThatReach_AreTheFewest) {
  for (uint32_t scale : {1u, 600u, 1000u, 48000u, 90000u, 0x80000001u, 0xFFFFFFFFu}) {
    for (uint32_t time : {0u, 1u, 2u, 999u, 60000u, 3600000u, 4194305u, 16777217u, 0x7FFFFFFFu, 0xFFFFFFFFu}) {
      const uint64_t ticks = TicksThatReach(time, scale);
      ASSERT_LE(ticks, kTickModulus);
      if (ticks < kTickModulus) {
        EXPECT_GE(TicksToUnits(static_cast<uint32_t>(ticks), 1000.0f, scale), time) << scale;
      }
      if (ticks != 0) {
        EXPECT_LT(TicksToUnits(static_cast<uint32_t>(ticks - 1), 1000.0f, scale), time) << scale;
      }
    }
  }
}

TEST(SeekTicks, TimeScaleZero_OnlyTimeZeroIsReached) {
  EXPECT_EQ(TicksThatReach(0, 0), 0u);
  EXPECT_EQ(TicksThatReach(1, 0), kTickModulus);
}

TEST(SeekTicks, FirstMultipleWithin_IsTheOneThatCountingFinds) {
  for (uint64_t modulus = 2; modulus <= 30; ++modulus) {
    for (uint64_t step = 0; step < modulus; ++step) {
      for (uint64_t low = 0; low < modulus; ++low) {
        for (uint64_t high = low; high < modulus; ++high) {
          uint64_t expected = 0;
          while (expected < modulus && (expected * step % modulus < low || expected * step % modulus > high))
            ++expected;
          if (expected == modulus) expected = kNever;
          ASSERT_EQ(FirstMultipleWithin(step, modulus, low, high), expected)
              << step << " mod " << modulus << " in " << low << ".." << high;
        }
      }
    }
  }
}

TEST(SeekTicks, StepsAcrossTheWrap_AreThoseThatCountingFinds) {
  for (uint32_t delta : {0u, 1u, 3u, 0x00100000u, 0x7FFFFFFFu, 0x80000000u, 0x80000001u, 0xFFF00001u, 0xFFFFFFFFu}) {
    for (uint32_t dts : {0u, 5u, 0x10000u, 0x7FFFFFFEu, 0xF0000000u}) {
      for (uint64_t reach : {uint64_t{dts} + 1, uint64_t{0xFFFFFF00}, uint64_t{0xFFFFFFFF}, kTickModulus}) {
        if (reach <= dts) continue;
        constexpr uint32_t kSpan = 100000;
        uint32_t expected = 1;
        uint32_t at = dts + delta;
        for (; expected < kSpan && at < reach; ++expected) at += delta;
        ASSERT_EQ(StepsToTicks(dts, delta, reach, kSpan), expected) << delta << " " << dts << " " << reach;
      }
    }
  }
}

}  // namespace
}  // namespace zmv::mp4::reader

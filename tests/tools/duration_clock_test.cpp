#include "tools/zmv/duration_clock.h"

#include <gtest/gtest.h>

#include <cstdlib>

namespace zmv::tool {
namespace {

// What the writer makes of a duration.
int64_t Ticks(uint32_t scale, uint32_t units, uint32_t duration) {
  return std::llround(static_cast<double>(scale) * duration / units);
}

TEST(DurationClock, FirstFrame_TakesTheNominalDuration) {
  DurationClock video(90000, kMicroseconds, 33333);
  EXPECT_EQ(video.Next(0), 33333u);
  DurationClock text(1000, kMilliseconds, 500000);
  EXPECT_EQ(text.Next(0), 500u);
}

TEST(DurationClock, Video30_GivesThreeThousandTicksEach) {
  DurationClock clock(90000, kMicroseconds, 33333);
  clock.Next(0);
  for (int64_t i = 1; i < 1000; ++i) {
    const int64_t us = (i * 1000000 + 15) / 30;
    ASSERT_EQ(Ticks(90000, kMicroseconds, clock.Next(us)), 3000) << i;
  }
}

TEST(DurationClock, Aac48kHz_Gives21And21And22InTurn) {
  DurationClock clock(48000, kMilliseconds, 21333);
  EXPECT_EQ(clock.Next(0), 21u);
  EXPECT_EQ(clock.Next(21333), 21u);
  EXPECT_EQ(clock.Next(42667), 22u);
  EXPECT_EQ(clock.Next(64000), 21u);
  EXPECT_EQ(clock.Next(85333), 21u);
  EXPECT_EQ(clock.Next(106667), 22u);
}

// Four hours of frames whose distances are no whole units: the stored time never strays by more than half a unit and
// half a tick, here rounded up.
void ExpectNoDrift(uint32_t scale, uint32_t units, double seconds_per_frame) {
  DurationClock clock(scale, units, static_cast<int64_t>(seconds_per_frame * 1e6));
  clock.Next(0);
  int64_t ticks = 0;
  const double allowed = 0.5 * scale / units + 0.5 + 0.001;
  for (int64_t i = 1; static_cast<double>(i) * seconds_per_frame < 4 * 3600; ++i) {
    const int64_t us = std::llround(static_cast<double>(i) * seconds_per_frame * 1e6);
    ticks += Ticks(scale, units, clock.Next(us));
    ASSERT_NEAR(static_cast<double>(ticks), static_cast<double>(us) * scale / 1e6, allowed) << "frame " << i;
  }
}

TEST(DurationClock, Film23976_DoesNotDriftIn4Hours) { ExpectNoDrift(90000, kMicroseconds, 1001.0 / 24000); }

TEST(DurationClock, Aac44100_DoesNotDriftIn4Hours) { ExpectNoDrift(44100, kMilliseconds, 1024.0 / 44100); }

TEST(DurationClock, Mp3At22050_DoesNotDriftIn4Hours) { ExpectNoDrift(22050, kMilliseconds, 576.0 / 22050); }

TEST(DurationClock, TimesThatStandStillOrGoBack_GiveAtLeastOneTick) {
  DurationClock video(90000, kMicroseconds, 33333);
  video.Next(0);
  EXPECT_GE(Ticks(90000, kMicroseconds, video.Next(0)), 1);
  DurationClock text(1000, kMilliseconds, 1000000);
  text.Next(0);
  EXPECT_EQ(text.Next(5000000), 5000u);
  EXPECT_EQ(text.Next(4000000), 1u);
  EXPECT_EQ(text.Next(6000000), 999u);  // and the stored time is back where it belongs
}

TEST(DurationClock, GapOfHours_StaysInRange) {
  DurationClock video(90000, kMicroseconds, 33333);
  video.Next(0);
  EXPECT_EQ(video.Next(int64_t{10} * 3600 * 1000000), 0xFFFFFFFFu);  // 71.6 minutes are the most in microseconds
}

}  // namespace
}  // namespace zmv::tool

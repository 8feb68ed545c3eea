#include "base/arith.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>

namespace zmv {
namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();

TEST(SaturatingU32Test, ValueInRange_IsTruncatedTowardZero) {
  EXPECT_EQ(SaturatingU32(0.0), 0u);
  EXPECT_EQ(SaturatingU32(0.999), 0u);
  EXPECT_EQ(SaturatingU32(33.99), 33u);
  EXPECT_EQ(SaturatingU32(4294967294.9), 0xFFFFFFFEu);
}

TEST(SaturatingU32Test, ValueOutOfRange_StopsAtTheEnds) {
  EXPECT_EQ(SaturatingU32(-0.5), 0u);
  EXPECT_EQ(SaturatingU32(-1e30), 0u);
  EXPECT_EQ(SaturatingU32(4294967296.0), 0xFFFFFFFFu);
  EXPECT_EQ(SaturatingU32(4294967296.0f), 0xFFFFFFFFu);
  EXPECT_EQ(SaturatingU32(kInfinity), 0xFFFFFFFFu);
  EXPECT_EQ(SaturatingU32(-kInfinity), 0u);
}

TEST(SaturatingU32Test, NotANumber_IsZero) {
  EXPECT_EQ(SaturatingU32(std::nan("")), 0u);
  EXPECT_EQ(SaturatingU32(std::nanf("")), 0u);
}

TEST(SaturatingU32Test, LargestFloatBelowTheEnd_IsKept) { EXPECT_EQ(SaturatingU32(4294967040.0f), 4294967040u); }

TEST(SaturatingU32Test, WideInteger_StopsAtTheEnd) {
  EXPECT_EQ(SaturatingU32(uint64_t{0xFFFFFFFE}), 0xFFFFFFFEu);
  EXPECT_EQ(SaturatingU32(uint64_t{0xFFFFFFFF}), 0xFFFFFFFFu);
  EXPECT_EQ(SaturatingU32(uint64_t{0x100000000}), 0xFFFFFFFFu);
}

TEST(SaturatingI32Test, Values_TruncateAndSaturateOnBothSides) {
  EXPECT_EQ(SaturatingI32(-1.9), -1);
  EXPECT_EQ(SaturatingI32(1.9f), 1);
  EXPECT_EQ(SaturatingI32(2147483647.0), 2147483647);
  EXPECT_EQ(SaturatingI32(2147483648.0), 2147483647);
  EXPECT_EQ(SaturatingI32(-2147483648.0), std::numeric_limits<int32_t>::min());
  EXPECT_EQ(SaturatingI32(-1e10f), std::numeric_limits<int32_t>::min());
  EXPECT_EQ(SaturatingI32(std::nan("")), 0);
}

TEST(DivideOrZeroTest, ZeroDivisor_GivesZero) {
  EXPECT_EQ(DivideOrZero(7u, 0u), 0u);
  EXPECT_EQ(DivideOrZero(uint64_t{7}, uint64_t{0}), 0u);
}

TEST(DivideOrZeroTest, OtherDivisor_RoundsDown) { EXPECT_EQ(DivideOrZero(7u, 2u), 3u); }

TEST(MulFitsTest, ProductThatFits_IsStored) {
  uint32_t product = 0;
  EXPECT_TRUE(MulFits(65535u, 65537u, &product));
  EXPECT_EQ(product, 0xFFFFFFFFu);
  EXPECT_TRUE(MulFits(0xFFFFFFFFu, 0u, &product));
  EXPECT_EQ(product, 0u);
}

TEST(MulFitsTest, ProductThatDoesNotFit_LeavesTheOutputAlone) {
  uint32_t product = 5;
  EXPECT_FALSE(MulFits(65536u, 65536u, &product));
  EXPECT_EQ(product, 5u);
  uint64_t wide = 6;
  EXPECT_FALSE(MulFits(uint64_t{1} << 32, uint64_t{1} << 32, &wide));
  EXPECT_EQ(wide, 6u);
}

TEST(TicksToUnitsTest, TimeScale_ConvertsToMilliseconds) {
  EXPECT_EQ(TicksToUnits(3000, 1000.0f, 90000), 33u);
  EXPECT_EQ(TicksToUnits(3000, 1000000.0f, 90000), 33333u);
}

TEST(TicksToUnitsTest, ZeroScale_GivesZero) { EXPECT_EQ(TicksToUnits(3000, 1000.0f, 0), 0u); }

TEST(TicksToUnitsTest, LargeTicks_RoundToSinglePrecisionFirst) {
  // 16777217 is not a float; its neighbour 16777216 is what the product starts from.
  EXPECT_EQ(TicksToUnits(16777217, 1000.0f, 1000), 16777216u);
  EXPECT_EQ(TicksToUnits(0xFFFFFFFFu, 1000000.0f, 1), 0xFFFFFFFFu);
}

static_assert(SaturatingU32(-3.0f) == 0);
static_assert(TicksToUnits(90000, 1000.0f, 90000) == 1000);

}  // namespace
}  // namespace zmv

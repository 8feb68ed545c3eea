#include "platform/posix/zmv_h26x_sps.h"

#include <gtest/gtest.h>

#include "tests/platform/codec_samples.h"

namespace zmv::codec {
namespace {

using test::BitWriter;
using test::Bytes;

VuiInfo Read(const Bytes& data, bool* failed) {
  BitReader bits({data.data(), static_cast<uint32_t>(data.size())}, Escaping::kRaw);
  VuiInfo vui;
  ReadCommonVui(&bits, &vui);
  *failed = bits.Failed();
  return vui;
}

TEST(CommonVui, AspectIndex_GivesTheTabledRatio) {
  const struct {
    uint32_t index;
    uint16_t width, height;
  } rows[] = {{0, 0, 0}, {1, 1, 1}, {2, 12, 11}, {13, 160, 99}, {14, 4, 3}, {16, 2, 1}, {17, 0, 0}, {254, 0, 0}};
  for (const auto& row : rows) {
    bool failed = true;
    const VuiInfo vui = Read(BitWriter().U(1, 1).U(8, row.index).U(3, 0).Finish(), &failed);
    EXPECT_FALSE(failed);
    EXPECT_EQ(vui.sample_aspect_width, row.width) << row.index;
    EXPECT_EQ(vui.sample_aspect_height, row.height) << row.index;
  }
}

TEST(CommonVui, NothingPresent_LeavesInferredValues) {
  bool failed = true;
  const VuiInfo vui = Read(BitWriter().U(4, 0).Finish(), &failed);
  EXPECT_FALSE(failed);
  EXPECT_FALSE(vui.full_range);
  EXPECT_EQ(vui.colour_primaries, 2);
  EXPECT_EQ(vui.transfer, 2);
  EXPECT_EQ(vui.matrix, 2);
}

TEST(CommonVui, RangeWithoutColours_LeavesThemUnspecified) {
  bool failed = true;
  const VuiInfo vui = Read(BitWriter().U(2, 0).U(1, 1).U(3, 5).U(1, 1).U(1, 0).U(1, 0).Finish(), &failed);
  EXPECT_FALSE(failed);
  EXPECT_TRUE(vui.full_range);
  EXPECT_EQ(vui.colour_primaries, 2);
}

TEST(ApplyCrop, WindowInUnits_IsTakenOff) {
  SpsInfo info;
  info.coded_width = 100;
  info.coded_height = 50;
  EXPECT_TRUE(ApplyCrop({1, 2, 3, 4}, 2, 4, &info));
  EXPECT_EQ(info.width, 94u);
  EXPECT_EQ(info.height, 22u);
}

TEST(ApplyCrop, WholePictureOrMore_IsRefused) {
  SpsInfo info;
  info.coded_width = 100;
  info.coded_height = 50;
  EXPECT_FALSE(ApplyCrop({50, 0, 0, 0}, 2, 2, &info));
  EXPECT_FALSE(ApplyCrop({0, 0, 0, 25}, 2, 2, &info));
  EXPECT_FALSE(ApplyCrop({0xFFFFFFFF, 0xFFFFFFFF, 0, 0}, 2, 2, &info));
  EXPECT_EQ(info.width, 0u);
  EXPECT_TRUE(ApplyCrop({49, 0, 0, 24}, 2, 2, &info));
  EXPECT_EQ(info.width, 2u);
  EXPECT_EQ(info.height, 2u);
}

}  // namespace
}  // namespace zmv::codec

#include <gtest/gtest.h>

#include "platform/posix/zmv_h26x_sps.h"
#include "tests/platform/codec_samples.h"

namespace zmv::codec {
namespace {

using test::BitWriter;
using test::Bytes;

SpsDepth Parse(const Bytes& sps, SpsInfo* info) {
  return ParseAvcSps({sps.data(), static_cast<uint32_t>(sps.size())}, Escaping::kRaw, info);
}

BitWriter SpsHead(uint8_t profile) {
  BitWriter bits;
  bits.U(8, 0x67).U(8, profile).U(8, 0).U(8, 40).Ue(0);
  return bits;
}

TEST(AvcSps, EncodersSet_SaysSizeAndRate) {
  SpsInfo info;
  ASSERT_EQ(Parse(test::kAvcSpsRaw, &info), SpsDepth::kWhole);
  EXPECT_EQ(info.width, 176u);
  EXPECT_EQ(info.height, 144u);
  EXPECT_EQ(info.profile, 66);
  EXPECT_EQ(info.compatibility, 0xC0u);
  EXPECT_EQ(info.level, 12);
  EXPECT_EQ(info.vui.time_scale, 60u);
  EXPECT_EQ(info.vui.units_in_tick, 1u);
  EXPECT_FALSE(info.interlaced);
}

TEST(AvcSps, FieldCodingAndCropping_GiveHalfUnits) {
  // 1920 x 1080 in fields: 34 pairs of macroblock rows, cropped by 2 units of 4 lines (4:2:0, two fields).
  const Bytes sps = SpsHead(77)
                        .Ue(0)    // frame number length
                        .Ue(0)    // picture order type
                        .Ue(4)    //
                        .Ue(2)    // reference frames
                        .U(1, 0)  // gaps
                        .Ue(119)  // macroblocks in a row, less 1
                        .Ue(33)   // map unit rows, less 1
                        .U(1, 0)  // not frames only
                        .U(1, 1)  // macroblock-adaptive
                        .U(1, 1)  // direct inference
                        .U(1, 1)  // cropping
                        .Ue(0)
                        .Ue(0)
                        .Ue(0)
                        .Ue(2)
                        .U(1, 0)  // no usability information
                        .Finish();
  SpsInfo info;
  ASSERT_EQ(Parse(sps, &info), SpsDepth::kWhole);
  EXPECT_EQ(info.coded_height, 1088u);
  EXPECT_EQ(info.width, 1920u);
  EXPECT_EQ(info.height, 1080u);
  EXPECT_TRUE(info.interlaced);
}

TEST(AvcSps, High422WithScalingListsAndOrderCycle_IsReadThrough) {
  BitWriter bits = SpsHead(122);
  bits.Ue(2)     // 4:2:2
      .Ue(2)     // 10 bits luma
      .Ue(1)     // 9 bits chroma
      .U(1, 0)   // transform bypass
      .U(1, 1);  // scaling lists
  for (int list = 0; list < 8; ++list) {
    if (list == 1) {
      bits.U(1, 1).Se(-8);  // next scale 0: the default list, nothing more
    } else if (list == 7) {
      bits.U(1, 1);
      for (int i = 0; i < 64; ++i) bits.Se(i % 2 == 0 ? 1 : -1);
    } else {
      bits.U(1, 0);
    }
  }
  const Bytes sps = bits.Ue(0)
                        .Ue(1)  // picture order type 1
                        .U(1, 1)
                        .Se(-3)
                        .Se(5)  //
                        .Ue(3)
                        .Se(1)
                        .Se(-1)
                        .Se(1000)  // a cycle of three
                        .Ue(1)
                        .U(1, 0)
                        .Ue(9)    // 160 wide
                        .Ue(5)    // 96 high
                        .U(1, 1)  // frames only
                        .U(1, 1)
                        .U(1, 1)  // cropping, in units of 2 x 1
                        .Ue(1)
                        .Ue(2)
                        .Ue(3)
                        .Ue(4)    //
                        .U(1, 1)  // usability information
                        .U(1, 1)
                        .U(8, 255)
                        .U(16, 64)
                        .U(16, 45)
                        .U(1, 1)
                        .U(1, 0)  // overscan
                        .U(1, 1)
                        .U(3, 5)
                        .U(1, 1)
                        .U(1, 1)
                        .U(8, 9)
                        .U(8, 16)
                        .U(8, 9)
                        .U(1, 1)
                        .Ue(0)
                        .Ue(0)  // chroma location
                        .U(1, 1)
                        .U(32, 1001)
                        .U(32, 60000)
                        .U(1, 1)
                        .U(5, 0)
                        .Finish();
  SpsInfo info;
  ASSERT_EQ(Parse(sps, &info), SpsDepth::kWhole);
  EXPECT_EQ(info.chroma_format, 2);
  EXPECT_EQ(info.bit_depth_luma, 10);
  EXPECT_EQ(info.bit_depth_chroma, 9);
  EXPECT_EQ(info.width, 160u - 6);
  EXPECT_EQ(info.height, 96u - 7);
  EXPECT_EQ(info.vui.sample_aspect_width, 64);
  EXPECT_EQ(info.vui.sample_aspect_height, 45);
  EXPECT_TRUE(info.vui.full_range);
  EXPECT_EQ(info.vui.colour_primaries, 9);
  EXPECT_EQ(info.vui.transfer, 16);
  EXPECT_EQ(info.vui.matrix, 9);
  EXPECT_EQ(info.vui.units_in_tick, 1001u);
  EXPECT_EQ(info.vui.time_scale, 60000u);
}

TEST(AvcSps, SeparatePlanes_CropInWholePixels) {
  const Bytes sps = SpsHead(244)
                        .Ue(3)
                        .U(1, 1)
                        .Ue(0)
                        .Ue(0)
                        .U(1, 0)
                        .U(1, 0)  // 4:4:4, separate planes
                        .Ue(0)
                        .Ue(2)  // picture order type 2
                        .Ue(1)
                        .U(1, 0)
                        .Ue(0)
                        .Ue(0)  // 16 x 16
                        .U(1, 1)
                        .U(1, 1)
                        .U(1, 1)
                        .Ue(1)
                        .Ue(0)
                        .Ue(0)
                        .Ue(3)
                        .U(1, 0)
                        .Finish();
  SpsInfo info;
  ASSERT_EQ(Parse(sps, &info), SpsDepth::kWhole);
  EXPECT_EQ(info.width, 15u);
  EXPECT_EQ(info.height, 13u);
}

TEST(AvcSps, CropThatLeavesNothing_LosesThePicture) {
  const Bytes sps = SpsHead(66)
                        .Ue(0)
                        .Ue(0)
                        .Ue(0)
                        .Ue(1)
                        .U(1, 0)
                        .Ue(0)
                        .Ue(0)
                        .U(1, 1)
                        .U(1, 1)
                        .U(1, 1)
                        .Ue(4)
                        .Ue(4)
                        .Ue(0)
                        .Ue(0)
                        .U(1, 0)
                        .Finish();
  SpsInfo info;
  EXPECT_EQ(Parse(sps, &info), SpsDepth::kProfile);
  EXPECT_EQ(info.profile, 66);
  EXPECT_EQ(info.width, 0u);
}

TEST(AvcSps, HugeNumbers_AreRefused) {
  const Bytes wide = SpsHead(66).Ue(0).Ue(0).Ue(0).Ue(1).U(1, 0).Ue(0xFFFFFFFEu).Ue(0).U(8, 0).Finish();
  SpsInfo info;
  EXPECT_EQ(Parse(wide, &info), SpsDepth::kProfile);
  const Bytes cycle = SpsHead(66).Ue(0).Ue(1).U(1, 0).Se(0).Se(0).Ue(256).Finish();
  EXPECT_EQ(Parse(cycle, &info), SpsDepth::kProfile);
  const Bytes crop = SpsHead(66)
                         .Ue(0)
                         .Ue(0)
                         .Ue(0)
                         .Ue(1)
                         .U(1, 0)
                         .Ue(9)
                         .Ue(9)
                         .U(1, 1)
                         .U(1, 1)
                         .U(1, 1)
                         .Ue(0xFFFFFFFEu)
                         .Ue(0xFFFFFFFEu)
                         .Ue(0)
                         .Ue(0)
                         .U(1, 0)
                         .Finish();
  EXPECT_EQ(Parse(crop, &info), SpsDepth::kProfile);
}

TEST(AvcSps, EveryTruncation_ReadsLessAndLess) {
  SpsDepth last = SpsDepth::kWhole;
  for (size_t cut = test::kHighSpsRaw.size(); cut-- > 0;) {
    SpsInfo info;
    const Bytes prefix(test::kHighSpsRaw.begin(), test::kHighSpsRaw.begin() + static_cast<ptrdiff_t>(cut));
    const SpsDepth depth = Parse(prefix, &info);
    EXPECT_LE(depth, last) << cut;
    if (depth >= SpsDepth::kPicture) {
      EXPECT_EQ(info.width, 640u);
      EXPECT_EQ(info.height, 360u);
    }
    last = depth;
  }
  EXPECT_EQ(last, SpsDepth::kNothing);
}

TEST(AvcSps, RandomDamage_NeverLeavesThePictureEmpty) {
  test::Lcg random(4);
  for (int round = 0; round < 30000; ++round) {
    Bytes sps = test::kHighSpsRaw;
    for (uint32_t i = 0; i < 1 + random.Below(4); ++i) {
      sps[1 + random.Below(static_cast<uint32_t>(sps.size() - 1))] = static_cast<uint8_t>(random.Next());
    }
    SpsInfo info;
    const SpsDepth depth = Parse(sps, &info);
    if (depth >= SpsDepth::kPicture) {
      ASSERT_GT(info.width, 0u);
      ASSERT_GT(info.height, 0u);
      ASSERT_LE(info.width, info.coded_width);
    } else {
      ASSERT_EQ(info.width, 0u);
    }
  }
}

}  // namespace
}  // namespace zmv::codec

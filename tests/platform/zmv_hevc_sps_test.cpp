#include <gtest/gtest.h>

#include "platform/posix/zmv_h26x_sps.h"
#include "tests/platform/codec_samples.h"

namespace zmv::codec {
namespace {

using test::BitWriter;
using test::Bytes;

SpsDepth Parse(const Bytes& sps, SpsInfo* info) {
  return ParseHevcSps({sps.data(), static_cast<uint32_t>(sps.size())}, Escaping::kRaw, info);
}

// Header, VPS ID, layers, and a profile: Main 10, High tier, level 5.1.
BitWriter SpsHead(uint32_t layers_minus1) {
  BitWriter bits;
  bits.U(16, 0x4201).U(4, 0).U(3, layers_minus1).U(1, 1);
  bits.U(2, 0).U(1, 1).U(5, 2).U(32, 0x20000000).U(48, 0xB00000000001).U(8, 153);
  return bits;
}

TEST(HevcSps, EverySyntaxBranch_IsReadThroughToTheRestrictions) {
  BitWriter bits = SpsHead(2);
  bits.U(2, 3).U(2, 1).U(12, 0);                             // layer 0 has a profile and a level, layer 1 a level
  bits.U(32, 0xDEADBEEF).U(32, 0xDEADBEEF).U(24, 0xABCDEF);  // 88 bits of profile
  bits.U(8, 90).U(8, 120);                                   // levels
  bits.Ue(0)                                                 // SPS ID
      .Ue(2)                                                 // 4:2:2
      .Ue(1920)
      .Ue(1088)  //
      .U(1, 1)
      .Ue(1)
      .Ue(2)
      .Ue(0)
      .Ue(8)  // conformance window, units of 2 x 1
      .Ue(2)
      .Ue(2)     // 10 bits each
      .Ue(4)     // picture order count in 8 bits
      .U(1, 1);  // ordering for each of three layers
  for (int i = 0; i < 9; ++i) bits.Ue(static_cast<uint32_t>(i));
  for (int i = 0; i < 6; ++i) bits.Ue(1);  // block sizes
  bits.U(1, 1).U(1, 1);                    // scaling lists with data
  for (int size = 0; size < 4; ++size) {
    for (int matrix = 0; matrix < 6; matrix += size == 3 ? 3 : 1) {
      if (matrix == 0) {
        bits.U(1, 0).Ue(0);
        continue;
      }
      bits.U(1, 1);
      if (size > 1) bits.Se(8);
      for (int i = 0; i < (size == 0 ? 16 : 64); ++i) bits.Se(i % 3 - 1);
    }
  }
  bits.U(2, 3)  // partitions, adaptive offset
      .U(1, 1)
      .U(4, 7)
      .U(4, 7)
      .Ue(0)
      .Ue(2)
      .U(1, 0)  // PCM
      .Ue(3)    // three reference picture sets
      .Ue(2)
      .Ue(1)  // two before, one after
      .Ue(0)
      .U(1, 1)
      .Ue(1)
      .U(1, 1)
      .Ue(0)
      .U(1, 0)  //
      .U(1, 1)
      .U(1, 0)
      .Ue(0)  // predicted from three entries: four pairs of flags
      .U(1, 1)
      .U(1, 0)
      .U(1, 1)
      .U(1, 0)
      .U(1, 0)
      .U(1, 1)  // of which three become entries
      .U(1, 1)
      .U(1, 1)
      .Ue(3)      // predicted from three again
      .U(4, 0xF)  //
      .U(1, 1)
      .Ue(2)
      .U(8, 5)
      .U(1, 1)
      .U(8, 6)
      .U(1, 0)   // two long-term pictures
      .U(2, 3)   // temporal vectors, smoothing
      .U(1, 1);  // usability information
  bits.U(1, 1)
      .U(8, 14)  // aspect ratio 4:3
      .U(1, 0)   // no overscan
      .U(1, 1)
      .U(3, 5)
      .U(1, 1)
      .U(1, 1)
      .U(8, 9)
      .U(8, 18)
      .U(8, 9)
      .U(1, 1)
      .Ue(0)
      .Ue(0)    // chroma location
      .U(3, 0)  //
      .U(1, 1)
      .Ue(1)
      .Ue(1)
      .Ue(1)
      .Ue(1)  // display window
      .U(1, 1)
      .U(32, 1001)
      .U(32, 60000)  // timing
      .U(1, 1)
      .Ue(0)    // proportional to picture order
      .U(1, 1)  // reference decoder
      .U(1, 1)
      .U(1, 1)  // NAL and VCL
      .U(1, 1)
      .U(8, 1)
      .U(5, 1)
      .U(1, 0)
      .U(5, 1)  // sub-pictures
      .U(8, 0)
      .U(4, 0)
      .U(15, 0);  //
  const auto cpb = [&bits](int count) {
    for (int i = 0; i < count; ++i) bits.Ue(1).Ue(2).Ue(3).Ue(4).U(1, 1);
  };
  bits.U(1, 1).Ue(7).Ue(1);  // layer 0: fixed rate, two buffers
  cpb(2 * 2);
  bits.U(1, 0).U(1, 0).U(1, 1);  // layer 1: low delay, one buffer
  cpb(2);
  bits.U(1, 0).U(1, 0).U(1, 0).Ue(0);  // layer 2: neither
  cpb(2);
  const Bytes sps = bits.U(1, 1)
                        .U(3, 0)
                        .Ue(321)
                        .Ue(0)
                        .Ue(0)
                        .Ue(0)
                        .Ue(0)    // restrictions
                        .U(1, 0)  // no extension
                        .Finish();
  SpsInfo info;
  ASSERT_EQ(Parse(sps, &info), SpsDepth::kWhole);
  EXPECT_EQ(info.profile, 2);
  EXPECT_EQ(info.tier, 1);
  EXPECT_EQ(info.level, 153);
  EXPECT_EQ(info.compatibility, 0x20000000u);
  EXPECT_EQ(info.constraints, 0xB00000000001u);
  EXPECT_EQ(info.temporal_layers, 3);
  EXPECT_EQ(info.chroma_format, 2);
  EXPECT_EQ(info.bit_depth_luma, 10);
  EXPECT_EQ(info.width, 1914u);
  EXPECT_EQ(info.height, 1080u);
  EXPECT_EQ(info.vui.sample_aspect_width, 4);
  EXPECT_EQ(info.vui.sample_aspect_height, 3);
  EXPECT_EQ(info.vui.transfer, 18);
  EXPECT_EQ(info.vui.units_in_tick, 1001u);
  EXPECT_EQ(info.vui.time_scale, 60000u);
  EXPECT_EQ(info.vui.min_spatial_segmentation, 321);

  // The last byte holds nothing but the extension flag and the stop bit.
  for (size_t cut = 0; cut + 1 < sps.size(); ++cut) {
    const Bytes prefix(sps.begin(), sps.begin() + static_cast<ptrdiff_t>(cut));
    const SpsDepth depth = Parse(prefix, &info);
    EXPECT_NE(depth, SpsDepth::kWhole) << cut;
    EXPECT_EQ(info.width, depth == SpsDepth::kPicture ? 1914u : 0u) << cut;
    EXPECT_EQ(info.vui.min_spatial_segmentation, 0) << cut;
  }
}

TEST(HevcPps, Parallelism_FollowsTheTwoFlags) {
  const auto pps = [](uint32_t tiles, uint32_t wavefronts) {
    return BitWriter()
        .U(16, 0x4401)
        .Ue(0)
        .Ue(0)
        .U(7, 0)
        .Ue(0)
        .Ue(0)
        .Se(-3)
        .U(2, 0)
        .U(1, 0)
        .Se(0)
        .Se(0)
        .U(4, 0)
        .U(1, tiles)
        .U(1, wavefronts)
        .Finish();
  };
  const auto parse = [](const Bytes& unit) {
    return ParseHevcParallelism({unit.data(), static_cast<uint32_t>(unit.size())}, Escaping::kRaw);
  };
  EXPECT_EQ(parse(pps(0, 0)), 1);
  EXPECT_EQ(parse(pps(1, 0)), 2);
  EXPECT_EQ(parse(pps(0, 1)), 3);
  EXPECT_EQ(parse(pps(1, 1)), 0);
  EXPECT_EQ(parse({0x44, 0x01}), 0);
  EXPECT_EQ(parse({}), 0);
}

TEST(HevcSps, TooManyLayers_AreRefused) {
  SpsInfo info;
  EXPECT_EQ(Parse(BitWriter().U(16, 0x4201).U(4, 0).U(3, 7).U(1, 1).U(32, 0).U(32, 0).U(32, 0).Finish(), &info),
            SpsDepth::kNothing);
  EXPECT_EQ(info.level, 0);
}

TEST(HevcSps, HugeCounts_EndQuickly) {
  SpsInfo info;
  BitWriter bits = SpsHead(0);
  bits.Ue(0).Ue(1).Ue(64).Ue(64).U(1, 0).Ue(0).Ue(0).Ue(4).U(1, 1).Ue(0).Ue(0).Ue(0);
  for (int i = 0; i < 6; ++i) bits.Ue(0);
  const Bytes sps = bits.U(1, 0).U(2, 0).U(1, 0).Ue(64).Ue(0xFFFFFFFEu).Ue(0xFFFFFFFEu).Finish();
  EXPECT_EQ(Parse(sps, &info), SpsDepth::kPicture);
  EXPECT_EQ(info.width, 64u);
  EXPECT_EQ(info.height, 64u);
}

TEST(HevcSps, ZeroSize_LosesThePicture) {
  SpsInfo info;
  const Bytes sps = SpsHead(0).Ue(0).Ue(1).Ue(0).Ue(64).U(1, 0).Ue(0).Ue(0).Finish();
  EXPECT_EQ(Parse(sps, &info), SpsDepth::kProfile);
  EXPECT_EQ(info.level, 153);
  EXPECT_EQ(info.width, 0u);
}

TEST(HevcSps, RandomDamage_NeverLeavesThePictureEmpty) {
  test::Lcg random(6);
  for (int round = 0; round < 30000; ++round) {
    Bytes sps = test::kHevcSpsRaw;
    sps.resize(sps.size() + random.Below(200), static_cast<uint8_t>(random.Next()));
    for (uint32_t i = 0; i < 1 + random.Below(6); ++i) {
      sps[2 + random.Below(static_cast<uint32_t>(sps.size() - 2))] = static_cast<uint8_t>(random.Next());
    }
    SpsInfo info;
    const SpsDepth depth = Parse(sps, &info);
    if (depth >= SpsDepth::kPicture) {
      ASSERT_GT(info.width, 0u);
      ASSERT_GT(info.height, 0u);
    } else {
      ASSERT_EQ(info.width, 0u);
    }
  }
}

}  // namespace
}  // namespace zmv::codec

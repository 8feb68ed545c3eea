#include <gtest/gtest.h>

#include <cstring>

#include "facade/zmvstream_media.h"
#include "platform/zmv_codec.h"
#include "tests/platform/codec_samples.h"

namespace {

using zmv::test::Bytes;
using zmv::test::operator+;

int32_t GetVideoInfo(const Bytes& config, ZMVVideoInfo* video) {
  return ZMVUtil_GetVideoInfo(config.data(), static_cast<uint32_t>(config.size()), video);
}

int32_t Describe(const Bytes& config, int hevc, ZMVCodecInfo* out) {
  return ZMVCodec_Describe(config.data(), static_cast<uint32_t>(config.size()), hevc, out);
}

TEST(GetVideoInfo, EveryFormOfBothStandards_GivesTheSize) {
  const uint32_t avc[] = {ZMV_FOURCC('A', 'V', 'C', '1'), ZMV_FOURCC('H', '2', '6', '4'), 0u};
  const Bytes avc_forms[] = {zmv::test::AvcRecord(), zmv::test::AvcConfigRaw(), zmv::test::AvcConfigEscaped()};
  const uint32_t hevc[] = {ZMV_FOURCC('H', '2', '6', '5'), ZMV_FOURCC('h', 'v', 'c', '1'), 0u};
  const Bytes hevc_forms[] = {zmv::test::HevcRecord(), zmv::test::HevcConfigRaw(), zmv::test::HevcConfigEscaped()};
  for (int code = 0; code < 3; ++code) {
    for (int form = 0; form < 3; ++form) {
      ZMVVideoInfo video{};
      video.dwFourCC = avc[code];
      EXPECT_EQ(GetVideoInfo(avc_forms[form], &video), 0) << code << form;
      EXPECT_EQ(video.dwWidth, 176u) << code << form;
      EXPECT_EQ(video.dwHeight, 144u) << code << form;
      video = {};
      video.dwFourCC = hevc[code];
      EXPECT_EQ(GetVideoInfo(hevc_forms[form], &video), 0) << code << form;
      EXPECT_EQ(video.dwWidth, 176u) << code << form;
      EXPECT_EQ(video.dwHeight, 144u) << code << form;
    }
  }
}

TEST(GetVideoInfo, SizeThatIsThere_Stays) {
  ZMVVideoInfo video{};
  video.dwFourCC = ZMV_FOURCC('H', '2', '6', '4');
  video.dwWidth = 1000;
  EXPECT_EQ(GetVideoInfo(zmv::test::AvcRecord(), &video), 0);
  EXPECT_EQ(video.dwWidth, 1000u);
  EXPECT_EQ(video.dwHeight, 144u);
  video.dwWidth = 0;
  video.dwHeight = 500;
  EXPECT_EQ(GetVideoInfo(zmv::test::AvcRecord(), &video), 0);
  EXPECT_EQ(video.dwWidth, 176u);
  EXPECT_EQ(video.dwHeight, 500u);
}

TEST(GetVideoInfo, NothingButWidthAndHeight_IsTouched) {
  ZMVVideoInfo video{};
  video.dwFourCC = ZMV_FOURCC('H', '2', '6', '5');
  ZMVVideoInfo expected = video;
  expected.dwWidth = 176;
  expected.dwHeight = 144;
  EXPECT_EQ(GetVideoInfo(zmv::test::HevcRecord(), &video), 0);
  EXPECT_EQ(std::memcmp(&video, &expected, sizeof video), 0);
}

TEST(GetVideoInfo, NoConfiguration_ChangesNothing) {
  ZMVVideoInfo video{};
  const uint8_t nothing = 0;
  EXPECT_EQ(ZMVUtil_GetVideoInfo(nullptr, 7, &video), 0);
  EXPECT_EQ(ZMVUtil_GetVideoInfo(&nothing, 0, &video), 0);
  EXPECT_EQ(video.dwWidth, 0u);
  EXPECT_LT(ZMVUtil_GetVideoInfo(&nothing, 1, nullptr), 0);
}

TEST(GetVideoInfo, WrongStandardOrForeignData_IsReported) {
  ZMVVideoInfo video{};
  video.dwFourCC = ZMV_FOURCC('H', '2', '6', '5');
  EXPECT_LT(GetVideoInfo(zmv::test::AvcRecord(), &video), 0);
  EXPECT_LT(GetVideoInfo(zmv::test::AvcConfigEscaped(), &video), 0);
  video.dwFourCC = ZMV_FOURCC('M', 'P', '4', 'V');
  const Bytes visual_object = {0x00, 0x00, 0x01, 0xB0, 0x01, 0x00, 0x00, 0x01, 0xB5, 0x89, 0x13,
                               0x00, 0x00, 0x01, 0x00, 0x00, 0x00, 0x01, 0x20, 0x00, 0xC4, 0x88};
  EXPECT_LT(GetVideoInfo(visual_object, &video), 0);
  EXPECT_EQ(video.dwWidth, 0u);
  EXPECT_EQ(video.dwHeight, 0u);
}

TEST(GetVideoInfo, EveryTruncation_IsSafeAndGivesTheSizeOrNothing) {
  for (const Bytes& whole :
       {zmv::test::AvcRecord(), zmv::test::AvcConfigRaw(), zmv::test::HevcRecord(), zmv::test::HevcConfigEscaped()}) {
    for (size_t cut = 1; cut < whole.size(); ++cut) {
      const Bytes prefix(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(cut));
      ZMVVideoInfo video{};
      const int32_t result = GetVideoInfo(prefix, &video);
      EXPECT_EQ(video.dwWidth, result < 0 ? 0u : 176u) << cut;
      EXPECT_EQ(video.dwHeight, result < 0 ? 0u : 144u) << cut;
    }
  }
}

TEST(GetVideoInfo, RandomDamage_IsSafe) {
  zmv::test::Lcg random(7);
  const Bytes seeds[] = {zmv::test::AvcRecord(), zmv::test::AvcConfigRaw(), zmv::test::HevcRecord(),
                         zmv::test::HevcConfigRaw()};
  for (int round = 0; round < 40000; ++round) {
    Bytes data = seeds[round % 4];
    for (uint32_t i = 0; i < 1 + random.Below(5); ++i) {
      data[random.Below(static_cast<uint32_t>(data.size()))] = static_cast<uint8_t>(random.Next());
    }
    ZMVVideoInfo video{};
    const int32_t result = GetVideoInfo(data, &video);
    ASSERT_EQ(result < 0, video.dwWidth == 0);
    ASSERT_EQ(result < 0, video.dwHeight == 0);
  }
}

TEST(CodecDescribe, AvcSets_SayEverything) {
  ZMVCodecInfo info;
  ASSERT_EQ(Describe(zmv::test::kStart4 + zmv::test::kHighSpsEscaped, 0, &info), 0);
  EXPECT_EQ(info.dwWidth, 640u);
  EXPECT_EQ(info.dwHeight, 360u);
  EXPECT_EQ(info.dwCodedWidth, 640u);
  EXPECT_EQ(info.dwCodedHeight, 368u);
  EXPECT_EQ(info.dwProfile, 100u);
  EXPECT_EQ(info.dwLevel, 30u);
  EXPECT_EQ(info.dwChromaFormat, 1u);
  EXPECT_EQ(info.dwBitDepthLuma, 8u);
  EXPECT_EQ(info.dwBitDepthChroma, 8u);
  EXPECT_EQ(info.dwAspectWidth, 1u);
  EXPECT_EQ(info.dwAspectHeight, 1u);
  EXPECT_EQ(info.llRateNum, 60u);  // fields
  EXPECT_EQ(info.llRateDen, 2u);
}

TEST(CodecDescribe, HevcSets_SayEverything) {
  ZMVCodecInfo info;
  ASSERT_EQ(Describe(zmv::test::HevcRecord(), 1, &info), 0);
  EXPECT_EQ(info.dwWidth, 176u);
  EXPECT_EQ(info.dwHeight, 144u);
  EXPECT_EQ(info.dwProfile, 1u);
  EXPECT_EQ(info.dwTier, 0u);
  EXPECT_EQ(info.dwLevel, 60u);
  EXPECT_EQ(info.dwCompatibility, 0x60000000u);
  EXPECT_EQ(info.llConstraint, 0x900000000000u);
  EXPECT_EQ(info.llRateNum, 30u);
  EXPECT_EQ(info.llRateDen, 1u);
}

TEST(CodecDescribe, SpsCutBehindItsLevel_KeepsProfileAndLevel) {
  const Bytes cut(zmv::test::kHighSpsRaw.begin(), zmv::test::kHighSpsRaw.begin() + 5);
  ZMVCodecInfo info;
  EXPECT_LT(Describe(zmv::test::kStart4 + cut, 0, &info), 0);
  EXPECT_EQ(info.dwProfile, 100u);
  EXPECT_EQ(info.dwLevel, 30u);
  EXPECT_EQ(info.dwWidth, 0u);
  EXPECT_EQ(info.dwColourPrimaries, 2u);
}

TEST(CodecDescribe, NullArguments_AreRefused) {
  ZMVCodecInfo info;
  const uint8_t byte = 1;
  EXPECT_LT(ZMVCodec_Describe(nullptr, 1, 0, &info), 0);
  EXPECT_LT(ZMVCodec_Describe(&byte, 1, 0, nullptr), 0);
}

}  // namespace

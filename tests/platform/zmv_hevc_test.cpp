#include <gtest/gtest.h>

#include <algorithm>

#include "platform/zmv_codec.h"
#include "tests/platform/codec_samples.h"

namespace zmv::codec {
namespace {

using test::BitWriter;
using test::Bytes;
using test::HevcRecord;
using test::kStart3;
using test::kStart4;
using test::operator+;
using test::U16;
using test::WithLength;

constexpr uint32_t kExtraSize = 512;

struct Taken {
  int32_t result;
  UtilHevcInfo info;
  Bytes buffer;

  static Bytes Of(const UtilNalUnit& unit) { return Bytes(unit.pData, unit.pData + unit.dwSize); }
};

Taken Take(const Bytes& config, uint32_t capacity = 4096) {
  Taken taken{};
  taken.buffer.assign(capacity + 8, 0xEE);
  taken.info.pBuffer = taken.buffer.data();
  taken.info.dwBufferSize = capacity;
  taken.info.bTemporalLayers = 77;  // what was there before must not show
  taken.info.sps = {taken.buffer.data(), 9};
  taken.result = UtilConvH265InfoFromStartCode(config.data(), static_cast<uint32_t>(config.size()), &taken.info);
  for (uint32_t i = capacity; i < taken.buffer.size(); ++i) EXPECT_EQ(taken.buffer[i], 0xEE);
  return taken;
}

Bytes InPlace(const Bytes& data, int32_t* result) {
  Bytes buffer = data;
  buffer.resize(std::max<size_t>(data.size(), kExtraSize) + 16, 0xEE);
  const Bytes before = buffer;
  uint32_t size = static_cast<uint32_t>(data.size());
  *result = ZMVUtil_ConvHEVCInfoToStartCode(buffer.data(), &size);
  EXPECT_LE(size, kExtraSize);
  EXPECT_TRUE(std::equal(buffer.begin() + kExtraSize, buffer.end(), before.begin() + kExtraSize));
  buffer.resize(size);
  return buffer;
}

TEST(H265FromStartCode, EncodersSets_AreEscapedAndDescribed) {
  const Taken taken = Take(test::HevcConfigRaw());
  EXPECT_EQ(taken.result, 0);
  EXPECT_EQ(Taken::Of(taken.info.vps), test::kVpsEscaped);
  EXPECT_EQ(Taken::Of(taken.info.sps), test::kHevcSpsEscaped);
  EXPECT_EQ(Taken::Of(taken.info.pps), test::kHevcPps);
  EXPECT_EQ(taken.info.bProfileSpace, 0);
  EXPECT_EQ(taken.info.bTier, 0);
  EXPECT_EQ(taken.info.bProfile, 1);
  EXPECT_EQ(taken.info.dwCompatibility, 0x60000000u);
  EXPECT_EQ(taken.info.llConstraint, 0x900000000000u);
  EXPECT_EQ(taken.info.bLevel, 60);
  EXPECT_EQ(taken.info.bChromaFormat, 1);
  EXPECT_EQ(taken.info.bBitDepthLuma, 8);
  EXPECT_EQ(taken.info.bBitDepthChroma, 8);
  EXPECT_EQ(taken.info.bTemporalLayers, 1);
  EXPECT_EQ(taken.info.bTemporalIdNested, 1);
  EXPECT_EQ(taken.info.wMinSpatialSegmentation, 0);
  EXPECT_EQ(taken.info.bParallelism, 0);
}

TEST(H265FromStartCode, OnlyTheFirstOfEachKind_IsTaken) {
  const Bytes second_pps = {0x44, 0x01, 0xAA, 0x80};
  const Taken taken = Take(kStart3 + test::kHevcPps + test::HevcConfigRaw() + kStart4 + second_pps);
  EXPECT_EQ(Taken::Of(taken.info.pps), test::kHevcPps);
  EXPECT_EQ(Taken::Of(taken.info.vps), test::kVpsEscaped);
}

TEST(H265FromStartCode, Segmentation_BringsTheParallelismOfThePps) {
  const auto sps = [](uint32_t segmentation) {
    BitWriter bits;
    bits.U(16, 0x4201).U(4, 0).U(3, 0).U(1, 1).U(8, 1).U(32, 0x60000000).U(32, 0).U(16, 0).U(8, 60);
    bits.Ue(0).Ue(1).Ue(64).Ue(64).U(1, 0).Ue(0).Ue(0).Ue(4).U(1, 0).Ue(0).Ue(0).Ue(0);
    for (int i = 0; i < 6; ++i) bits.Ue(0);
    bits.U(4, 0).Ue(0).U(3, 0);  // no lists, tools, PCM, reference sets, long-term pictures, smoothing
    bits.U(1, 1).U(4, 0).U(3, 0).U(1, 0).U(1, 0);  // usability information: nothing but
    return bits.U(1, 1).U(3, 0).Ue(segmentation).Ue(0).Ue(0).Ue(0).Ue(0).U(1, 0).Finish();
  };
  const Bytes tiles = BitWriter()
                          .U(16, 0x4401)
                          .Ue(0)
                          .Ue(0)
                          .U(7, 0)
                          .Ue(0)
                          .Ue(0)
                          .Se(0)
                          .U(2, 0)
                          .U(1, 1)
                          .Ue(1)
                          .Se(0)
                          .Se(0)
                          .U(4, 0)
                          .U(1, 1)
                          .U(1, 0)
                          .Finish();
  const Taken with = Take(kStart4 + sps(321) + kStart4 + tiles);
  EXPECT_EQ(with.info.wMinSpatialSegmentation, 321);
  EXPECT_EQ(with.info.bParallelism, 2);
  const Taken without = Take(kStart4 + sps(0) + kStart4 + tiles);
  EXPECT_EQ(without.info.bLevel, 60);
  EXPECT_EQ(without.info.wMinSpatialSegmentation, 0);
  EXPECT_EQ(without.info.bParallelism, 0);
}

TEST(H265FromStartCode, NoConfiguration_LeavesNeutralValues) {
  UtilHevcInfo info{};
  uint8_t place[8];
  info.pBuffer = place;
  info.dwBufferSize = sizeof place;
  info.bLevel = 99;
  EXPECT_EQ(UtilConvH265InfoFromStartCode(nullptr, 55, &info), 0);
  EXPECT_EQ(info.vps.pData, nullptr);
  EXPECT_EQ(info.sps.pData, nullptr);
  EXPECT_EQ(info.pps.pData, nullptr);
  EXPECT_EQ(info.sps.dwSize, 0u);
  EXPECT_EQ(info.bLevel, 0);
  EXPECT_EQ(info.bProfile, 0);
  EXPECT_EQ(info.bChromaFormat, 1);
  EXPECT_EQ(info.bBitDepthLuma, 8);
  EXPECT_EQ(info.bBitDepthChroma, 8);
  EXPECT_EQ(info.bTemporalLayers, 0);
  EXPECT_EQ(info.pBuffer, place);
  EXPECT_LT(UtilConvH265InfoFromStartCode(nullptr, 0, nullptr), 0);
}

TEST(H265FromStartCode, UnitThatDoesNotFit_IsAbsentAndReported) {
  const uint32_t vps = static_cast<uint32_t>(test::kVpsEscaped.size());
  const uint32_t sps = static_cast<uint32_t>(test::kHevcSpsEscaped.size());
  const uint32_t pps = static_cast<uint32_t>(test::kHevcPps.size());
  const Taken exact = Take(test::HevcConfigRaw(), vps + sps + pps);
  EXPECT_EQ(exact.result, 0);
  const Taken short_by_one = Take(test::HevcConfigRaw(), vps + sps + pps - 1);
  EXPECT_LT(short_by_one.result, 0);
  EXPECT_EQ(short_by_one.info.pps.pData, nullptr);
  EXPECT_EQ(Taken::Of(short_by_one.info.sps), test::kHevcSpsEscaped);
  const Taken no_sps = Take(test::HevcConfigRaw(), vps + pps);
  EXPECT_LT(no_sps.result, 0);
  EXPECT_EQ(no_sps.info.sps.pData, nullptr);
  EXPECT_EQ(Taken::Of(no_sps.info.pps), test::kHevcPps);
  EXPECT_EQ(no_sps.info.bLevel, 60);
  const Taken nothing = Take(test::HevcConfigRaw(), 0);
  EXPECT_LT(nothing.result, 0);
  EXPECT_EQ(nothing.info.vps.pData, nullptr);
}

TEST(HevcToStartCode, Record_BecomesVpsSpsPps) {
  int32_t result = 1;
  EXPECT_EQ(InPlace(HevcRecord(), &result), test::HevcConfigEscaped());
  EXPECT_EQ(result, 0);
}

TEST(HevcToStartCode, FurtherUnitsAndOtherArrays_AreLeftOut) {
  Bytes record = HevcRecord();
  record[22] = 5;
  record = record + Bytes{0xA7} + U16(1) + WithLength({0x4E, 0x01, 0x05, 0x80});             // SEI
  record = record + Bytes{0xA2} + U16(2) + WithLength({0x44, 0x01, 0xAA}) + WithLength({});  // more PPS
  int32_t result = 1;
  EXPECT_EQ(InPlace(record, &result), test::HevcConfigEscaped());
  EXPECT_EQ(result, 0);
}

TEST(HevcToStartCode, StartCodeFormOrNothing_StaysAsItIs) {
  int32_t result = 1;
  EXPECT_EQ(InPlace(test::HevcConfigEscaped(), &result), test::HevcConfigEscaped());
  EXPECT_EQ(result, 0);
  EXPECT_EQ(InPlace({}, &result), Bytes{});
  EXPECT_EQ(result, 0);
  uint32_t size = 1;
  EXPECT_LT(ZMVUtil_ConvHEVCInfoToStartCode(nullptr, &size), 0);
}

TEST(HevcToStartCode, EveryTruncation_KeepsTheWholeUnits) {
  const Bytes record = HevcRecord();
  const size_t pps_end = 23 + 5 + test::kHevcPps.size();
  const size_t sps_end = pps_end + 5 + test::kHevcSpsEscaped.size();
  for (size_t cut = 1; cut < record.size(); ++cut) {
    const Bytes prefix(record.begin(), record.begin() + static_cast<ptrdiff_t>(cut));
    int32_t result = 1;
    const Bytes converted = InPlace(prefix, &result);
    EXPECT_LT(result, 0) << cut;
    Bytes expected;
    if (cut >= sps_end) expected = kStart4 + test::kHevcSpsEscaped;
    if (cut >= pps_end) expected = expected + kStart4 + test::kHevcPps;
    EXPECT_EQ(converted, expected) << cut;
  }
}

TEST(HevcToStartCode, LargeUnits_StayWithin512) {
  Bytes vps(150, 0x77), sps(230, 0x88), pps(120, 0x99);
  vps[0] = 0x40, sps[0] = 0x42, pps[0] = 0x44;
  Bytes record = HevcRecord();
  record.resize(23);
  record = record + Bytes{0xA0} + U16(1) + WithLength(vps) + Bytes{0xA2} + U16(1) + WithLength(pps);
  record = record + Bytes{0xA1} + U16(1) + WithLength(sps);
  ASSERT_GT(record.size(), kExtraSize);
  int32_t result = 1;
  EXPECT_EQ(InPlace(record, &result), kStart4 + vps + kStart4 + pps);
  EXPECT_LT(result, 0);
}

TEST(HevcToStartCode, RandomBytes_StayInside) {
  test::Lcg random(5);
  const Bytes record = HevcRecord();
  for (int round = 0; round < 20000; ++round) {
    Bytes data = record;
    data.resize(1 + random.Below(600), 0x01);
    for (int i = 0; i < 6; ++i)
      data[random.Below(static_cast<uint32_t>(data.size()))] = static_cast<uint8_t>(random.Next());
    int32_t result = 1;
    InPlace(data, &result);
    EXPECT_LE(result, 0);
  }
}

}  // namespace
}  // namespace zmv::codec

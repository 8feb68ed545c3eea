#include <gtest/gtest.h>

#include <algorithm>

#include "platform/posix/zmv_nal.h"
#include "platform/zmv_codec.h"
#include "tests/platform/codec_samples.h"

namespace zmv::codec {
namespace {

using test::AvcRecord;
using test::BitWriter;
using test::Bytes;
using test::kStart3;
using test::kStart4;
using test::operator+;
using test::U16;
using test::WithLength;

constexpr uint32_t kExtraSize = 512;

// The record that the helper makes, or an empty one when it fails.
Bytes Record(const Bytes& config, UtilAvcParam param = {77, 0, 0x32, 4}, uint32_t capacity = 1u << 17) {
  Bytes record(capacity, 0xEE);
  uint32_t size = capacity;
  const int32_t result =
      UtilConvH264InfoFromStartCode(config.data(), static_cast<uint32_t>(config.size()), record.data(), &size, &param);
  EXPECT_EQ(result < 0, size == 0);
  record.resize(size);
  return record;
}

// What the in-place helper makes of `data` in a buffer with guard bytes behind its 512.
Bytes InPlace(const Bytes& data, int32_t* result) {
  Bytes buffer = data;
  buffer.resize(std::max<size_t>(data.size(), kExtraSize) + 16, 0xEE);
  const Bytes before = buffer;
  uint32_t size = static_cast<uint32_t>(data.size());
  *result = ZMVUtil_ConvH264InfoToStartCode(buffer.data(), &size);
  EXPECT_LE(size, kExtraSize);
  EXPECT_TRUE(std::equal(buffer.begin() + kExtraSize, buffer.end(), before.begin() + kExtraSize));
  buffer.resize(size);
  return buffer;
}

TEST(H264FromStartCode, BaselineSets_GiveRecordWithoutTrailer) {
  const Bytes expected = Bytes{0x01,              // version
                               0x42, 0xC0, 0x0C,  // profile 66, constraint flags, level 1.2
                               0xFF,              // reserved, length size 4
                               0xE1,              // reserved, one SPS
                               0x00, 0x16} +      // its length, escaped
                         test::kAvcSpsEscaped +   //
                         Bytes{0x01,              // one PPS
                               0x00, 0x04} +      // its length
                         test::kAvcPps;
  EXPECT_EQ(Record(test::AvcConfigRaw()), expected);
}

TEST(H264FromStartCode, HighSets_GiveRecordWithTrailer) {
  const Bytes expected = Bytes{0x01, 0x64, 0x00, 0x1E,  // version, profile 100, flags, level 3
                               0xFF, 0xE1,              // length size 4, one SPS
                               0x00, 0x1A} +            // its length
                         test::kHighSpsEscaped +        //
                         Bytes{0x01, 0x00, 0x05} +      // one PPS and its length
                         test::kHighPps +               //
                         Bytes{0xFD,                    // chroma format 4:2:0
                               0xF8, 0xF8,              // 8 bits luma, 8 bits chroma
                               0x00};                   // no SPS extension
  EXPECT_EQ(Record(kStart4 + test::kHighSpsRaw + kStart3 + test::kHighPps), expected);
}

TEST(H264FromStartCode, ChromaAndDepths_GoToTheTrailer) {
  const Bytes sps = BitWriter()
                        .U(8, 0x67)
                        .U(8, 122)
                        .U(8, 0)
                        .U(8, 40)
                        .Ue(0)    // SPS ID
                        .Ue(2)    // 4:2:2
                        .Ue(2)    // 10 bits luma
                        .Ue(1)    // 9 bits chroma
                        .U(2, 0)  // no lossless mode, no scaling lists
                        .Ue(0)    // frame number length
                        .Ue(2)    // picture order type
                        .Ue(1)    // reference frames
                        .U(1, 0)  // gaps
                        .Ue(9)
                        .Ue(5)      // 160 x 96
                        .U(4, 0xC)  // frames only, direct inference, no cropping, no usability information
                        .Finish();
  const Bytes record = Record(kStart4 + sps);
  EXPECT_EQ(Bytes(record.end() - 4, record.end()), (Bytes{0xFE, 0xFA, 0xF9, 0x00}));
}

TEST(H264FromStartCode, SpsExtension_GoesToTheTrailer) {
  const Bytes extension = {0x6D, 0x92, 0x80};
  const Bytes record = Record(kStart4 + test::kHighSpsRaw + kStart4 + extension + kStart4 + test::kHighPps);
  const Bytes tail = Bytes{0xFD, 0xF8, 0xF8, 0x01} + WithLength(extension);
  ASSERT_GT(record.size(), tail.size());
  EXPECT_EQ(Bytes(record.end() - static_cast<ptrdiff_t>(tail.size()), record.end()), tail);
}

TEST(H264FromStartCode, SetsInAnyOrder_AreSorted) {
  const Bytes config = kStart4 + test::kAvcPps + kStart4 + test::kAvcSpsRaw;
  EXPECT_EQ(Record(config), AvcRecord());
}

TEST(H264FromStartCode, NoConfiguration_GivesTheFallbackAndNoSets) {
  uint8_t record[32];
  uint32_t size = sizeof record;
  const UtilAvcParam main = {77, 0x40, 0x32, 4};
  EXPECT_EQ(UtilConvH264InfoFromStartCode(nullptr, 0, record, &size, &main), 0);
  EXPECT_EQ(Bytes(record, record + size), (Bytes{0x01, 0x4D, 0x40, 0x32, 0xFF, 0xE0, 0x00}));

  const UtilAvcParam high = {100, 0, 0x32, 4};
  size = sizeof record;
  const uint8_t nothing = 0;
  EXPECT_EQ(UtilConvH264InfoFromStartCode(&nothing, 0, record, &size, &high), 0);
  EXPECT_EQ(Bytes(record, record + size), (Bytes{0x01, 0x64, 0x00, 0x32, 0xFF, 0xE0, 0x00, 0xFD, 0xF8, 0xF8, 0x00}));

  size = sizeof record;
  EXPECT_EQ(UtilConvH264InfoFromStartCode(nullptr, 99, record, &size, nullptr), 0);
  EXPECT_EQ(record[1], 100);
}

TEST(H264FromStartCode, SpsTooShortForAProfile_TakesTheFallback) {
  const Bytes record = Record(kStart4 + Bytes{0x67, 0x64, 0x80}, {77, 0, 0x32, 4});
  EXPECT_EQ(record, (Bytes{0x01, 0x4D, 0x00, 0x32, 0xFF, 0xE1, 0x00, 0x03, 0x67, 0x64, 0x80, 0x00}));
}

TEST(H264FromStartCode, LengthSize_IsThatOfTheParameterBlock) {
  EXPECT_EQ(Record({}, {77, 0, 0x32, 1})[4], 0xFC);
  EXPECT_EQ(Record({}, {77, 0, 0x32, 2})[4], 0xFD);
  EXPECT_EQ(Record({}, {77, 0, 0x32, 3})[4], 0xFF);
  EXPECT_EQ(Record({}, {77, 0, 0x32, 0})[4], 0xFF);
}

TEST(H264FromStartCode, MoreSetsThanTheCountsHold_AreLeftOut) {
  Bytes config;
  for (int i = 0; i < 40; ++i) config = config + kStart4 + Bytes{0x67, 0x42, 0xC0, 0x0C, 0x80};
  for (int i = 0; i < 300; ++i) config = config + kStart3 + Bytes{0x68, 0xCE};
  const Bytes record = Record(config);
  ASSERT_EQ(record.size(), 6u + 31 * 7 + 1 + 255 * 4);
  EXPECT_EQ(record[5], 0xE0 | 31);
  EXPECT_EQ(record[6 + 31 * 7], 255);
}

TEST(H264FromStartCode, EveryCapacityTooSmall_FailsAndStaysInside) {
  const Bytes config = test::AvcConfigRaw();
  const uint32_t whole = static_cast<uint32_t>(Record(config).size());
  for (uint32_t capacity = 0; capacity < whole; ++capacity) {
    Bytes record(whole, 0xEE);
    uint32_t size = capacity;
    EXPECT_LT(UtilConvH264InfoFromStartCode(config.data(), static_cast<uint32_t>(config.size()), record.data(), &size,
                                            nullptr),
              0);
    EXPECT_EQ(size, 0u);
    for (uint32_t i = capacity; i < whole; ++i) ASSERT_EQ(record[i], 0xEE);
  }
  EXPECT_EQ(Record(config, {77, 0, 0x32, 4}, whole).size(), whole);
}

TEST(H264FromStartCode, UnitLongerThanItsLengthField_Fails) {
  const Bytes sps(0x10000, 0x67);
  EXPECT_TRUE(Record(kStart4 + sps).empty());
  EXPECT_EQ(Record(kStart4 + Bytes(0xFFFF, 0x67)).size(), 6u + 2 + 0xFFFF + 1 + 4);
}

TEST(H264FromStartCode, NullPlaceOrCell_IsRefused) {
  uint8_t record[16];
  uint32_t size = sizeof record;
  EXPECT_LT(UtilConvH264InfoFromStartCode(nullptr, 0, nullptr, &size, nullptr), 0);
  EXPECT_LT(UtilConvH264InfoFromStartCode(nullptr, 0, record, nullptr, nullptr), 0);
}

TEST(H264ToStartCode, Record_BecomesSpsAndPps) {
  int32_t result = 1;
  EXPECT_EQ(InPlace(AvcRecord(), &result), test::AvcConfigEscaped());
  EXPECT_EQ(result, 0);
}

TEST(H264ToStartCode, SpsExtension_FollowsTheSps) {
  const Bytes extension = {0x6D, 0x92, 0x80};
  const Bytes record = Record(kStart4 + test::kHighSpsRaw + kStart4 + extension + kStart4 + test::kHighPps);
  int32_t result = 1;
  EXPECT_EQ(InPlace(record, &result), kStart4 + test::kHighSpsEscaped + kStart4 + extension + kStart4 + test::kHighPps);
  EXPECT_EQ(result, 0);
}

TEST(H264ToStartCode, HighRecordWithoutTrailer_IsTaken) {
  const Bytes record = Bytes{0x01, 0x64, 0x00, 0x1E, 0xFF, 0xE1} + WithLength(test::kHighSpsEscaped) + Bytes{0x01} +
                       WithLength(test::kHighPps);
  int32_t result = 1;
  EXPECT_EQ(InPlace(record, &result), kStart4 + test::kHighSpsEscaped + kStart4 + test::kHighPps);
  EXPECT_EQ(result, 0);
}

TEST(H264ToStartCode, StartCodeForm_StaysAsItIs) {
  int32_t result = 1;
  EXPECT_EQ(InPlace(test::AvcConfigEscaped(), &result), test::AvcConfigEscaped());
  EXPECT_EQ(result, 0);
  const Bytes three = kStart3 + test::kAvcSpsEscaped;
  EXPECT_EQ(InPlace(three, &result), three);
  EXPECT_EQ(result, 0);
}

TEST(H264ToStartCode, NeitherForm_StaysAndIsReported) {
  int32_t result = 1;
  const Bytes other = {0x67, 0x42, 0xC0};
  EXPECT_EQ(InPlace(other, &result), other);
  EXPECT_LT(result, 0);
}

TEST(H264ToStartCode, NothingOrNull_IsHandled) {
  int32_t result = 1;
  EXPECT_EQ(InPlace({}, &result), Bytes{});
  EXPECT_EQ(result, 0);
  uint32_t size = 4;
  uint8_t data[512] = {};
  EXPECT_LT(ZMVUtil_ConvH264InfoToStartCode(nullptr, &size), 0);
  EXPECT_LT(ZMVUtil_ConvH264InfoToStartCode(data, nullptr), 0);
}

TEST(H264ToStartCode, RecordBeyond512_LosesTheUnitThatIsCut) {
  Bytes sps(300, 0x55), pps(206, 0x66);
  sps[0] = 0x67, pps[0] = 0x68;
  const Bytes record = Bytes{0x01, 0x42, 0xC0, 0x0C, 0xFF, 0xE1} + WithLength(sps) + Bytes{0x01} + WithLength(pps);
  ASSERT_GT(record.size(), kExtraSize);
  int32_t result = 1;
  EXPECT_EQ(InPlace(record, &result), kStart4 + sps);
  EXPECT_LT(result, 0);
}

TEST(H264ToStartCode, UnitThatDoesNotFit_IsLeftOutWhole) {
  const Bytes small = {0x68, 0xCE}, large(401, 0x68);
  Bytes record = {0x01, 0x42, 0xC0, 0x0C, 0xFF, 0xE0, 20};
  for (int i = 0; i < 18; ++i) record = record + WithLength(small);
  record = record + WithLength(large) + WithLength(small);
  ASSERT_LE(record.size(), kExtraSize);
  Bytes expected;
  for (int i = 0; i < 19; ++i) expected = expected + kStart4 + small;
  int32_t result = 1;
  EXPECT_EQ(InPlace(record, &result), expected);
  EXPECT_EQ(result, 0);
}

TEST(H264ToStartCode, ManySmallUnits_GrowUpToTheLimit) {
  Bytes record = {0x01, 0x42, 0xC0, 0x0C, 0xFF, 0xE0, 100};
  const Bytes pps = {0x68, 0xCE, 0x80};
  for (int i = 0; i < 100; ++i) record = record + WithLength(pps);
  ASSERT_EQ(record.size(), 507u);
  int32_t result = 1;
  const Bytes converted = InPlace(record, &result);
  EXPECT_EQ(converted.size(), 511u);  // 73 units of 7 bytes
  EXPECT_EQ(result, 0);
}

TEST(H264ToStartCode, SizeAbove512_CountsAs512) {
  Bytes record = AvcRecord();
  record.resize(4000, 0x99);
  int32_t result = 1;
  EXPECT_EQ(InPlace(record, &result), test::AvcConfigEscaped());
  EXPECT_EQ(result, 0);
}

TEST(H264ToStartCode, EveryTruncation_KeepsTheWholeUnits) {
  const Bytes record = AvcRecord();
  const size_t sps_end = 8 + test::kAvcSpsEscaped.size();
  for (size_t cut = 1; cut < record.size(); ++cut) {
    const Bytes prefix(record.begin(), record.begin() + static_cast<ptrdiff_t>(cut));
    int32_t result = 1;
    const Bytes converted = InPlace(prefix, &result);
    EXPECT_LT(result, 0) << cut;
    EXPECT_EQ(converted, cut < sps_end ? Bytes{} : kStart4 + test::kAvcSpsEscaped) << cut;
  }
}

TEST(H264ToStartCode, RandomBytes_StayInside) {
  test::Lcg random(2);
  const Bytes record = AvcRecord();
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

TEST(H264RoundTrip, RandomSets_ComeBackEscaped) {
  test::Lcg random(3);
  for (int round = 0; round < 5000; ++round) {
    Bytes config, escaped;
    for (const uint8_t header : {uint8_t{0x67}, uint8_t{0x68}}) {
      // Small numbers exercise the escapes; no 00 00 01 in front of what looks like a header.
      Bytes unit = {header};
      const uint32_t length = 5 + random.Below(30);
      while (unit.size() < length) unit.push_back(static_cast<uint8_t>(random.Below(3) * 2));
      unit.push_back(0x80);
      config = config + kStart4 + unit;
      Bytes out(unit.size() * 2);
      uint32_t written = 0;
      ASSERT_TRUE(Escape({unit.data(), static_cast<uint32_t>(unit.size())}, out.data(),
                         static_cast<uint32_t>(out.size()), &written));
      out.resize(written);
      escaped = escaped + kStart4 + out;
    }
    int32_t result = 1;
    ASSERT_EQ(InPlace(Record(config, {77, 0, 0x32, 4}, 4096), &result), escaped);
    ASSERT_EQ(result, 0);
  }
}

}  // namespace
}  // namespace zmv::codec

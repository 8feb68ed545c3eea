#include "platform/posix/zmv_nal.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/zmv_codec.h"
#include "tests/platform/codec_samples.h"

namespace zmv::codec {
namespace {

using test::Bytes;
using test::kStart3;
using test::kStart4;
using test::operator+;
using testing::ElementsAre;

NalSpan Span(const Bytes& bytes) { return {bytes.data(), static_cast<uint32_t>(bytes.size())}; }

std::vector<Bytes> Walk(Codec codec, const Bytes& data) {
  std::vector<Bytes> units;
  ParameterSetWalker walker(codec, data.data(), static_cast<uint32_t>(data.size()));
  NalSpan unit;
  while (walker.Next(&unit)) units.emplace_back(unit.data, unit.data + unit.size);
  return units;
}

Bytes Escaped(const Bytes& raw) {
  Bytes out(raw.size() * 3 / 2 + 1);
  uint32_t written = 0;
  EXPECT_TRUE(Escape(Span(raw), out.data(), static_cast<uint32_t>(out.size()), &written));
  out.resize(written);
  return out;
}

Bytes Unescaped(Bytes data) {
  uint32_t size = static_cast<uint32_t>(data.size());
  EXPECT_EQ(ZMVUtil_H26xRemoveEPB(data.data(), &size), 0);
  data.resize(size);
  return data;
}

TEST(ParameterSetWalker, ThreeAndFourByteCodes_BothSeparate) {
  const Bytes sps = {0x67, 0x42, 0x01}, pps = {0x68, 0xCE};
  EXPECT_THAT(Walk(Codec::kAvc, kStart4 + sps + kStart3 + pps), ElementsAre(sps, pps));
  EXPECT_THAT(Walk(Codec::kAvc, kStart3 + sps + kStart4 + pps), ElementsAre(sps, pps));
}

TEST(ParameterSetWalker, CodeBeforeAnImplausibleHeader_BelongsToTheUnit) {
  const Bytes sps = {0x67, 0x64, 0x00, 0x28, 0x00, 0x00, 0x01, 0x2C,  // type 12
                     0x00, 0x00, 0x01, 0xE7,                          // type 7 with the forbidden bit
                     0x00, 0x00, 0x00, 0x01, 0x00};                   // type 0
  const Bytes ending = {0x80};
  EXPECT_THAT(Walk(Codec::kAvc, kStart4 + sps + ending), ElementsAre(sps + ending));
}

TEST(ParameterSetWalker, HevcHeaderWithoutTemporalId_IsImplausible) {
  const Bytes sps = {0x42, 0x01, 0x11, 0x00, 0x00, 0x01, 0x44, 0x00, 0x80};
  EXPECT_THAT(Walk(Codec::kHevc, kStart4 + sps), ElementsAre(sps));
  const Bytes split = {0x42, 0x01, 0x11, 0x00, 0x00, 0x01, 0x44, 0x01, 0x80};
  EXPECT_THAT(Walk(Codec::kHevc, kStart4 + split), ElementsAre(Bytes{0x42, 0x01, 0x11}, Bytes{0x44, 0x01, 0x80}));
}

TEST(ParameterSetWalker, ZerosBehindAUnit_AreNoPartOfIt) {
  const Bytes sps = {0x67, 0x42}, pps = {0x68, 0xCE};
  const Bytes zeros = {0, 0, 0, 0, 0};
  EXPECT_THAT(Walk(Codec::kAvc, zeros + kStart4 + sps + zeros + kStart3 + pps + zeros), ElementsAre(sps, pps));
}

// Bytes of an unescaped set look the same, so nothing tells such a unit from the set's own bytes.
TEST(ParameterSetWalker, CodeBeforeAnyOtherType_BelongsToTheSet) {
  const Bytes sps = {0x67, 0x42, 0x01};
  for (uint32_t type = 0; type < 32; ++type) {
    if (type == 7 || type == 8 || type == 13) continue;
    const Bytes other = kStart4 + Bytes{static_cast<uint8_t>(type), 0x10, 0x80};
    EXPECT_THAT(Walk(Codec::kAvc, kStart4 + sps + other), ElementsAre(sps + other)) << type;
    EXPECT_THAT(Walk(Codec::kAvc, other + kStart4 + sps), ElementsAre(sps)) << type;
  }
  const Bytes vps = {0x40, 0x01, 0x0C};
  for (uint32_t type = 0; type < 64; ++type) {
    if (type >= 32 && type <= 34) continue;
    const Bytes other = kStart4 + Bytes{static_cast<uint8_t>(type << 1), 0x01, 0x50};
    EXPECT_THAT(Walk(Codec::kHevc, kStart4 + vps + other), ElementsAre(vps + other)) << type;
    EXPECT_THAT(Walk(Codec::kHevc, other + kStart4 + vps), ElementsAre(vps)) << type;
  }
}

TEST(ParameterSetWalker, CodeBeforeEveryParameterSet_StartsIt) {
  const Bytes sps = {0x67, 0x42, 0x01};
  for (const uint8_t header : Bytes{0x67, 0x68, 0x6D}) {
    const Bytes set = {header, 0x10, 0x80};
    EXPECT_THAT(Walk(Codec::kAvc, kStart4 + sps + kStart3 + set), ElementsAre(sps, set));
  }
  const Bytes vps = {0x40, 0x01, 0x0C};
  for (const uint8_t header : Bytes{0x40, 0x42, 0x44}) {
    const Bytes set = {header, 0x01, 0x50};
    EXPECT_THAT(Walk(Codec::kHevc, kStart4 + vps + kStart3 + set), ElementsAre(vps, set));
  }
}

TEST(ParameterSetWalker, NoUnits_GivesNone) {
  EXPECT_THAT(Walk(Codec::kAvc, {}), ElementsAre());
  EXPECT_THAT(Walk(Codec::kAvc, {0x67, 0x42, 0x00}), ElementsAre());
  EXPECT_THAT(Walk(Codec::kAvc, {0, 0, 1}), ElementsAre());
  EXPECT_THAT(Walk(Codec::kHevc, {0, 0, 0, 1, 0x42}), ElementsAre());
}

TEST(ParameterSetWalker, EmptyUnitBetweenCodes_IsPassedOver) {
  EXPECT_THAT(Walk(Codec::kAvc, kStart4 + Bytes{0x67} + kStart4 + Bytes{0x68, 0xCE}),
              ElementsAre(Bytes{0x67}, Bytes{0x68, 0xCE}));
}

TEST(IsStartCodeForm, TakesBothCodesAndNothingElse) {
  const Bytes four = {0, 0, 0, 1}, three = {0, 0, 1}, short_zeros = {0, 0, 0}, record = {1, 0x64, 0, 0x28};
  EXPECT_TRUE(IsStartCodeForm(four.data(), 4));
  EXPECT_TRUE(IsStartCodeForm(three.data(), 3));
  EXPECT_FALSE(IsStartCodeForm(four.data(), 3));
  EXPECT_FALSE(IsStartCodeForm(three.data(), 2));
  EXPECT_FALSE(IsStartCodeForm(short_zeros.data(), 3));
  EXPECT_FALSE(IsStartCodeForm(record.data(), 4));
}

TEST(Escape, EveryByteUpToThreeBehindTwoZeros_GetsAnEscape) {
  EXPECT_EQ(Escaped({0x67, 0, 0, 0, 0x80}), (Bytes{0x67, 0, 0, 3, 0, 0x80}));
  EXPECT_EQ(Escaped({0x67, 0, 0, 1, 0x80}), (Bytes{0x67, 0, 0, 3, 1, 0x80}));
  EXPECT_EQ(Escaped({0x67, 0, 0, 2, 0x80}), (Bytes{0x67, 0, 0, 3, 2, 0x80}));
  EXPECT_EQ(Escaped({0x67, 0, 0, 3, 0x80}), (Bytes{0x67, 0, 0, 3, 3, 0x80}));
  EXPECT_EQ(Escaped({0x67, 0, 0, 4, 0x80}), (Bytes{0x67, 0, 0, 4, 0x80}));
}

TEST(Escape, RunOfZeros_GetsAnEscapeAtEveryPair) {
  EXPECT_EQ(Escaped({0x67, 0, 0, 0, 0, 0, 0x3C}), (Bytes{0x67, 0, 0, 3, 0, 0, 3, 0, 0x3C}));
}

TEST(Escape, UnitEndingInZeros_GetsALastEscape) {
  EXPECT_EQ(Escaped({0x65, 0x80, 0, 0}), (Bytes{0x65, 0x80, 0, 0, 3}));
  EXPECT_EQ(Escaped({0x65, 0x80, 0, 0, 0, 0}), (Bytes{0x65, 0x80, 0, 0, 3, 0, 0, 3}));
}

TEST(Escape, OneByteTooLittle_Fails) {
  const Bytes raw = {0x67, 0, 0, 1, 0x80, 0, 0};
  const Bytes whole = Escaped(raw);
  for (uint32_t capacity = 0; capacity < whole.size(); ++capacity) {
    Bytes out(whole.size(), 0xEE);
    uint32_t written = 77;
    EXPECT_FALSE(Escape(Span(raw), out.data(), capacity, &written)) << capacity;
    EXPECT_EQ(written, 77u);
    EXPECT_EQ(out[capacity], 0xEE) << capacity;
  }
}

TEST(Escape, EncodersSets_ComeOutAsTheEncoderWroteThem) {
  EXPECT_EQ(Escaped(test::kAvcSpsRaw), test::kAvcSpsEscaped);
  EXPECT_EQ(Escaped(test::kHighSpsRaw), test::kHighSpsEscaped);
  EXPECT_EQ(Escaped(test::kVpsRaw), test::kVpsEscaped);
  EXPECT_EQ(Escaped(test::kHevcSpsRaw), test::kHevcSpsEscaped);
}

TEST(Escape, RandomUnits_ComeBackAndHoldNoForbiddenSequence) {
  test::Lcg random(1);
  for (int round = 0; round < 20000; ++round) {
    Bytes raw(1 + random.Below(60));
    for (uint8_t& byte : raw) byte = static_cast<uint8_t>(random.Below(3) != 0 ? random.Below(5) : random.Below(256));
    if (raw.back() == 0) raw.back() = 0x80;
    const Bytes escaped = Escaped(raw);
    ASSERT_TRUE(IsEscaped(Span(escaped)));
    ASSERT_EQ(Unescaped(escaped), raw);
    ASSERT_EQ(Escaped(Unescaped(escaped)), escaped);
  }
}

TEST(RemoveEpb, EachThreeBehindTwoZeros_IsRemoved) {
  EXPECT_EQ(Unescaped({0x42, 0, 0, 3, 0, 0, 3, 1, 0, 0, 3}), (Bytes{0x42, 0, 0, 0, 0, 1, 0, 0}));
  EXPECT_EQ(Unescaped({0, 0, 3, 3, 0, 3, 0, 0, 4}), (Bytes{0, 0, 3, 0, 3, 0, 0, 4}));
}

TEST(RemoveEpb, StartCodesBetweenUnits_Stay) {
  EXPECT_EQ(Unescaped(test::AvcConfigEscaped()), test::AvcConfigRaw());
  EXPECT_EQ(Unescaped(test::HevcConfigEscaped()), test::HevcConfigRaw());
}

TEST(RemoveEpb, NullArguments_AreRefused) {
  uint8_t byte = 3;
  uint32_t size = 1;
  EXPECT_LT(ZMVUtil_H26xRemoveEPB(nullptr, &size), 0);
  EXPECT_EQ(size, 1u);
  EXPECT_LT(ZMVUtil_H26xRemoveEPB(&byte, nullptr), 0);
  size = 0;
  EXPECT_EQ(ZMVUtil_H26xRemoveEPB(nullptr, &size), 0);
}

TEST(IsEscaped, TellsTheTwoForms) {
  EXPECT_TRUE(IsEscaped(Span(test::kHevcSpsEscaped)));
  EXPECT_FALSE(IsEscaped(Span(test::kHevcSpsRaw)));
  EXPECT_TRUE(IsEscaped(Span({0, 0, 3})));
  EXPECT_FALSE(IsEscaped(Span({0, 0, 2})));
  EXPECT_FALSE(IsEscaped(Span({0, 0, 3, 0xE9})));
  EXPECT_TRUE(IsEscaped(Span({0, 0, 3, 3, 0xE9})));
}

}  // namespace
}  // namespace zmv::codec

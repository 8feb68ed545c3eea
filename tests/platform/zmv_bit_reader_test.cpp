#include "platform/posix/zmv_bit_reader.h"

#include <gtest/gtest.h>

#include "tests/platform/codec_samples.h"

namespace zmv::codec {
namespace {

using test::Bytes;

NalSpan Span(const Bytes& bytes) { return {bytes.data(), static_cast<uint32_t>(bytes.size())}; }

TEST(BitReader, Numbers_AreReadMostSignificantBitFirst) {
  const Bytes data = {0xA5, 0x0F, 0x12, 0x34, 0x56, 0x78};
  BitReader bits(Span(data), Escaping::kRaw);
  EXPECT_EQ(bits.Bits(3), 5u);
  EXPECT_FALSE(bits.Flag());
  EXPECT_EQ(bits.Bits(12), 0x50Fu);
  EXPECT_EQ(bits.Bits(32), 0x12345678u);
  EXPECT_FALSE(bits.Failed());
  EXPECT_EQ(bits.Bit(), 0u);
  EXPECT_TRUE(bits.Failed());
}

TEST(BitReader, ExpGolomb_ComesBackAsWritten) {
  const uint32_t values[] = {0, 1, 2, 3, 254, 255, 65535, 0x7FFFFFFEu, 0xFFFFFFFEu};
  for (const uint32_t value : values) {
    const Bytes data = test::BitWriter().Ue(value).Finish();
    BitReader bits(Span(data), Escaping::kRaw);
    EXPECT_EQ(bits.Ue(), value);
    EXPECT_FALSE(bits.Failed());
  }
  for (const int32_t value : {0, 1, -1, 2, -2, 1000, -1000, 0x7FFFFFFF, -0x7FFFFFFF}) {
    const Bytes data = test::BitWriter().Se(value).Finish();
    BitReader bits(Span(data), Escaping::kRaw);
    EXPECT_EQ(bits.Se(), value);
    EXPECT_FALSE(bits.Failed());
  }
}

TEST(BitReader, CodeOf32LeadingZeros_Fails) {
  const Bytes data(20, 0);
  BitReader bits(Span(data), Escaping::kRaw);
  EXPECT_EQ(bits.Ue(), 0u);
  EXPECT_TRUE(bits.Failed());
  EXPECT_EQ(bits.Bits(8), 0u);
}

TEST(BitReader, NumberAboveItsLimit_Fails) {
  const Bytes data = test::BitWriter().Ue(7).Ue(8).Finish();
  BitReader bits(Span(data), Escaping::kRaw);
  EXPECT_EQ(bits.UeUpTo(7), 7u);
  EXPECT_FALSE(bits.Failed());
  EXPECT_EQ(bits.UeUpTo(7), 0u);
  EXPECT_TRUE(bits.Failed());
}

TEST(BitReader, Escapes_AreSteppedOverOnlyWhenAsked) {
  const Bytes data = {0, 0, 3, 1, 0, 0, 3};
  BitReader escaped(Span(data), Escaping::kEscaped);
  EXPECT_EQ(escaped.Bits(24), 1u);
  EXPECT_EQ(escaped.Bits(16), 0u);
  EXPECT_FALSE(escaped.Failed());
  escaped.Bit();
  EXPECT_TRUE(escaped.Failed());
  BitReader raw(Span(data), Escaping::kRaw);
  EXPECT_EQ(raw.Bits(32), 0x00000301u);
}

}  // namespace
}  // namespace zmv::codec

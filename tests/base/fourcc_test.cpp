#include "base/fourcc.h"

#include <gtest/gtest.h>

#include <cstring>

namespace zmv {
namespace {

TEST(FourCCTest, Code_StandsInMemoryInReadingOrder) {
  const uint32_t code = FourCC("moov");
  EXPECT_EQ(std::memcmp(&code, "moov", 4), 0);
  EXPECT_EQ(code, 0x766F6F6Du);
}

TEST(FourCCTest, Macro_AgreesWithTheLiteral) {
  EXPECT_EQ(FourCC("hvc1"), ZMV_FOURCC('h', 'v', 'c', '1'));
  EXPECT_EQ(FourCC("\0\0\0\1"), 0x01000000u);
}

TEST(FourCCTest, BytesAboveAscii_DoNotSpread) { EXPECT_EQ(ZMV_FOURCC('\xA9', 't', 'o', 'o'), 0x6F6F74A9u); }

}  // namespace
}  // namespace zmv

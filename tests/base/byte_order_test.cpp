#include "base/byte_order.h"

#include <gmock/gmock.h>

#include <array>
#include <cstdint>

namespace zmv {
namespace {

using ::testing::ElementsAre;

// One byte in front, so that every access is unaligned.
constexpr uint8_t kBytes[] = {0xEE, 0x01, 0x02, 0x03, 0x84, 0x05, 0x06, 0x07, 0x88};

TEST(ByteOrderTest, LittleEndianLoads_TakeTheFirstByteAsLowest) {
  EXPECT_EQ(LoadLE16(kBytes + 1), 0x0201u);
  EXPECT_EQ(LoadLE32(kBytes + 1), 0x84030201u);
  EXPECT_EQ(LoadLE64(kBytes + 1), 0x8807060584030201u);
}

TEST(ByteOrderTest, BigEndianLoads_TakeTheFirstByteAsHighest) {
  EXPECT_EQ(LoadBE16(kBytes + 1), 0x0102u);
  EXPECT_EQ(LoadBE24(kBytes + 1), 0x010203u);
  EXPECT_EQ(LoadBE24(kBytes + 4), 0x840506u);
  EXPECT_EQ(LoadBE32(kBytes + 1), 0x01020384u);
  EXPECT_EQ(LoadBE64(kBytes + 1), 0x0102038405060788u);
}

TEST(ByteOrderTest, Stores_WriteTheirWidthOnly) {
  std::array<uint8_t, 6> bytes{};
  StoreLE16(bytes.data() + 1, 0x1234);
  EXPECT_THAT(bytes, ElementsAre(0, 0x34, 0x12, 0, 0, 0));
  StoreBE16(bytes.data() + 1, 0x1234);
  EXPECT_THAT(bytes, ElementsAre(0, 0x12, 0x34, 0, 0, 0));
  StoreLE32(bytes.data() + 1, 0x89ABCDEF);
  EXPECT_THAT(bytes, ElementsAre(0, 0xEF, 0xCD, 0xAB, 0x89, 0));
  StoreBE32(bytes.data() + 1, 0x89ABCDEF);
  EXPECT_THAT(bytes, ElementsAre(0, 0x89, 0xAB, 0xCD, 0xEF, 0));
}

}  // namespace
}  // namespace zmv

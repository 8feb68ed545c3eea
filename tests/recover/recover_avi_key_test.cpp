#include "recover/recover_avi_key.h"

#include <gtest/gtest.h>

#include "base/fourcc.h"
#include "tests/support/scripted_host.h"

namespace zmv::test {
namespace {

bool IsKey(uint32_t code, const ByteVector& bytes) {
  return recover::IsKeyPayload(code, bytes.data(), static_cast<uint32_t>(bytes.size()));
}

constexpr uint32_t kAvc = FourCC("H264");
constexpr uint32_t kHevc = FourCC("H265");

TEST(IsKeyPayload, H264_ByTheFirstPicture) {
  EXPECT_TRUE(IsKey(kAvc, Hex("00000001 65 88")));                                       // IDR
  EXPECT_FALSE(IsKey(kAvc, Hex("00000001 41 9A")));                                      // other picture
  EXPECT_TRUE(IsKey(kAvc, Hex("000001 09 F0 000001 67 42 000001 68 CE 000001 65 88")));  // delimiter, sets, IDR
  EXPECT_FALSE(IsKey(kAvc, Hex("000001 67 42 000001 68 CE 000001 41 9A")));  // sets in front of no key picture
  EXPECT_FALSE(IsKey(kAvc, Hex("00000001 61 9A 00000001 65 88")));           // the first one counts
}

TEST(IsKeyPayload, H264WithoutAPicture_ByTheSequenceParameterSet) {
  EXPECT_TRUE(IsKey(kAvc, Hex("00000001 67 42")));
  EXPECT_FALSE(IsKey(kAvc, Hex("00000001 68 CE")));
  EXPECT_FALSE(IsKey(kAvc, Hex("00000001 06 05")));
}

TEST(IsKeyPayload, Hevc_EveryPointWhereDecodingCanBegin) {
  for (uint32_t type = 0; type < 32; ++type) {
    const ByteVector payload = Join({Hex("00000001"), {static_cast<uint8_t>(type << 1)}, Hex("01 AF")});
    EXPECT_EQ(IsKey(kHevc, payload), type >= 16 && type <= 23) << type;
  }
  EXPECT_TRUE(IsKey(kHevc, Hex("00000001 4001 00000001 4201 00000001 4401 00000001 2601 AF")));
  EXPECT_FALSE(IsKey(kHevc, Hex("00000001 4E01 00000001 0201 D0")));
}

TEST(IsKeyPayload, EverythingElse_IsKey) {
  EXPECT_TRUE(IsKey(FourCC("MJPG"), Hex("FFD8")));
  EXPECT_TRUE(IsKey(kAvc, Hex("41 9A 24")));  // no start code
  EXPECT_TRUE(IsKey(kAvc, Hex("000001")));    // nothing behind it
}

TEST(IsKeyPayload, NoData_IsNoKey) {
  EXPECT_FALSE(IsKey(kAvc, {}));
  EXPECT_FALSE(IsKey(FourCC("MJPG"), {}));
}

}  // namespace
}  // namespace zmv::test

#include "avi/riff_builder.h"

#include <gtest/gtest.h>

#include "tests/support/scripted_host.h"

namespace zmv::test {
namespace {

using avi::RiffBuilder;
using avi::RiffChunk;
using avi::RiffList;

ByteVector Built(const uint8_t* bytes, const RiffBuilder& out) { return ByteVector(bytes, bytes + out.Size()); }

TEST(RiffBuilder, Numbers_AreLittleEndianAndCodesInReadingOrder) {
  uint8_t bytes[32];
  RiffBuilder out(bytes);
  out.U32(0x01020304).Code(FourCC("RIFF")).Bytes("ab", 2).Zeros(3).Bytes(nullptr, 0);
  EXPECT_EQ(Built(bytes, out), Join({Bytes({4, 3, 2, 1}), Text("RIFF"), Text("ab"), Zeros(3)}));
  EXPECT_EQ(out.At(), bytes + 13);
}

TEST(RiffBuilder, ChunksAndLists_SetTheirOwnSizes) {
  uint8_t bytes[64];
  RiffBuilder out(bytes);
  {
    RiffList info(out, FourCC("INFO"));
    { RiffChunk empty(out, FourCC("IART")); }
    RiffChunk isft(out, FourCC("ISFT"));
    out.Bytes("odd", 3);
  }
  const ByteVector expected = Join({
      Text("LIST"), Le32(23), Text("INFO"),  // 4 + 8 + 11, and no pad
      Text("IART"), Le32(0),                 //
      Text("ISFT"), Le32(3), Text("odd"),    //
  });
  EXPECT_EQ(Built(bytes, out), expected);
}

}  // namespace
}  // namespace zmv::test

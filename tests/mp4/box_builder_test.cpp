#include "mp4/box_builder.h"

#include <gtest/gtest.h>

#include "tests/support/scripted_host.h"

namespace zmv::test {
namespace {

using mp4::Box;
using mp4::BoxBuilder;
using mp4::FullBox;

TEST(BoxBuilderTest, NestedBoxes_PatchTheirOwnSizes) {
  uint8_t bytes[64] = {};
  BoxBuilder out(bytes);
  {
    Box outer(out, FourCC("outr"));
    {
      FullBox inner(out, FourCC("innr"), 7);
      out.U8(0x11).U16(0x2233).U24(0x445566).U32(0x778899AA).Code(FourCC("code"));
    }
    Box empty(out, FourCC("empt"));
    out.Elsewhere(0x100);
  }
  EXPECT_EQ(out.Size(), 0x100u + 42u);
  EXPECT_EQ(ByteVector(bytes, out.At()), Join({
                                             Be32(0x12A), Text("outr"),        // what stands elsewhere included
                                             Be32(26), Text("innr"), Be32(7),  // flags
                                             Hex("11 2233 445566 778899AA"),   //
                                             Text("code"),                     //
                                             Be32(0x108), Text("empt"),        //
                                         }));
}

TEST(BoxBuilderTest, Elsewhere_CountsModulo32Bits) {
  uint8_t bytes[16] = {};
  BoxBuilder out(bytes);
  {
    Box outer(out, FourCC("outr"));
    Box inner(out, FourCC("innr"));
    out.Elsewhere(0xFFFFFFFF);  // one byte less
  }
  EXPECT_EQ(out.Size(), 15u);
  EXPECT_EQ(ByteVector(bytes, bytes + 16), Join({Be32(15), Text("outr"), Be32(7), Text("innr")}));
}

TEST(BoxBuilderTest, CountedBytes_AreTheCallersOwn) {
  uint8_t bytes[16] = {};
  BoxBuilder out(bytes);
  {
    Box box(out, FourCC("data"));
    out.At()[0] = 0x5A;
    out.Counted(1).Bytes(nullptr, 0).Zeros(2);
  }
  EXPECT_EQ(ByteVector(bytes, out.At()), Join({Be32(11), Text("data"), Hex("5A 00 00")}));
}

}  // namespace
}  // namespace zmv::test

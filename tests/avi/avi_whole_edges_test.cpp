// Whole files at the edges: nothing recorded, every stream there can be, frames that no stream counts.
#include "tests/avi/writer_test.h"

namespace zmv::test {
namespace {

class AviWholeEdges : public AviWriterTest {
 protected:
  const ByteVector& Finish() {
    Close();
    return File();
  }
};

TEST_F(AviWholeEdges, NoStreams_IsHeadersAndTrailer) {
  Start();
  const ByteVector file = Finish();
  const uint32_t junk = RandomJunkSize();
  const ByteVector expected = Join({
      Text("RIFF"),  Le32(88 + 8 + junk + 12 + 8 + 328 - 8),
      Text("AVI "),  //
      Text("LIST"),  Le32(68),
      Text("hdrl"),  //
      Text("avih"),  Le32(56),
      Zeros(56),  //
      Text("JUNK"),  Le32(junk),
      Zeros(junk),  //
      Text("LIST"),  Le32(4),
      Text("movi"),            //
      Text("idx1"),  Le32(0),  //
      Text("JUNK"),  Le32(320),
      Text("a.avi"), Zeros(315),  //
      Text("JUNK"),  Le32(0),     //
  });
  EXPECT_EQ(Difference(file, expected), "");
}

TEST_F(AviWholeEdges, AudioAlone_HasNoFlagsAndNoPicture) {
  NoFill();
  AddAudio();
  Start();
  EXPECT_EQ(WriteAudio(6), 0);
  const ByteVector file = Finish();
  const uint32_t junk = RandomJunkSize();
  // clang-format off
  const ByteVector expected = Join({
      Text("RIFF"), Le32(static_cast<uint32_t>(file.size()) - 8), Text("AVI "),
      Text("LIST"), Le32(168), Text("hdrl"),
      Text("avih"), Le32(56),
      Zeros(24), Le32(1), Le32(6), Zeros(24),            // streams, buffer size
      Text("LIST"), Le32(92), Text("strl"),
      Text("strh"), Le32(56),
      Text("auds"), Le32(1), Zeros(12),                  // type, format tag
      Le32(4), Le32(192000), Le32(0),                    // scale, rate, start
      Le32(4), Le32(6), Le32(0), Le32(4), Zeros(8),      // length, buffer size, quality, sample size
      Text("strf"), Le32(16),
      Le16(1), Le16(2), Le32(48000),                     // tag, channels, sample rate
      Le32(192000), Le16(4), Le16(16),                   // bytes a second, block alignment, bits
      Text("JUNK"), Le32(junk), Zeros(junk),
      Text("LIST"), Le32(18), Text("movi"),
      Text("00wb"), Le32(6), ByteVector(6, 0xAA),
      Text("idx1"), Le32(16),
      Text("00wb"), Le32(0x10), Le32(4), Le32(6),
      Text("JUNK"), Le32(320), Text("a.avi"), Zeros(315),
  });
  // clang-format on
  EXPECT_EQ(Difference(file, expected), "");
}

// The chunks of twelve streams, and the rates of those without frames.
TEST_F(AviWholeEdges, TwelveStreams_EachHasItsChunkCode) {
  NoFill();
  for (uint32_t i = 0; i < 9; ++i) AddVideo(kH264, 1000 * (i + 1));
  AddAudio();
  AddText(3000);
  AddText(4000);
  Start();
  const size_t movi = MoviEnd() - 4;
  for (uint32_t i = 0; i < 9; ++i) EXPECT_EQ(Write(ZMV_MEDIA_VIDEO, {1, 2}, 0, 0, i, 1), 0);
  EXPECT_EQ(Write(ZMV_MEDIA_AUDIO, {3, 4}, 0), 0);
  EXPECT_EQ(Write(ZMV_MEDIA_TEXT, {5, 6}, 0, 0, 0), 0);
  EXPECT_EQ(Write(ZMV_MEDIA_TEXT, {7, 8}, 0, 0, 1), 0);
  const ByteVector file = Finish();

  ByteVector expected = Text("movi");
  ByteVector index;
  const char* const codes[] = {"00dc", "01dc", "02dc", "03dc", "04dc", "05dc",
                               "06dc", "07dc", "08dc", "09wb", "0:tx", "0;tx"};
  for (uint32_t i = 0; i < 12; ++i) {
    const int first = i < 9 ? 1 : i == 9 ? 3 : i == 10 ? 5 : 7;
    index = Join({index, IndexEntryOf(codes[i], 0x10, 4 + 10 * i, 2)});
    expected = Join({expected, Text(codes[i]), Le32(2), Bytes({first, first + 1})});
  }
  expected = Join({expected, Text("idx1"), Le32(192), index});
  EXPECT_EQ(Difference(Part(file, movi, expected.size()), expected), "");
  for (uint32_t i = 0; i < 9; ++i) EXPECT_EQ(StreamHeader(i, kRate), 1000 * (i + 1));
  EXPECT_EQ(StreamHeader(10, kRate), 20000u);  // one frame of 50 ms
  EXPECT_EQ(StreamHeader(11, kRate), 20000u);
  EXPECT_EQ(MainHeader(16), 9u);
  EXPECT_EQ(MainHeader(24), 12u);
}

TEST_F(AviWholeEdges, RefusedUnknownAndFailedFrames_LeaveAFileOfTheOthers) {
  NoFill();
  AddVideo();
  Start();
  const size_t movi = MoviEnd() - 4;
  EXPECT_EQ(Write(ZMV_MEDIA_VIDEO, {1}, 100, 40, 0, 1), 0);
  EXPECT_EQ(static_cast<uint32_t>(Write(ZMV_MEDIA_VIDEO, {2}, 99)), ZMV_E_FAIL);
  EXPECT_EQ(Write(77, {3, 3, 3}, 100), 0);
  host.Fail(HostCall::kWrite, 1);
  EXPECT_EQ(static_cast<uint32_t>(Write(ZMV_MEDIA_VIDEO, {4}, 140)), ZMV_E_FAIL);
  EXPECT_EQ(Write(ZMV_MEDIA_VIDEO, {5, 5}, 140), 0);
  const ByteVector file = Finish();
  const ByteVector expected = Join({
      Text("movi"),  //
      Text("00dc"),
      Le32(1),
      Bytes({1, 0}),  //
      Text("00tx"),
      Le32(3),
      Bytes({3, 3, 3, 0}),  //
      Text("00dc"),
      Le32(2),
      Bytes({5, 5}),  //
      Text("idx1"),
      Le32(48),                           //
      IndexEntryOf("00dc", 0x10, 4, 1),   //
      IndexEntryOf("00tx", 0x10, 14, 3),  //
      IndexEntryOf("00dc", 0, 14, 2),     // short by the chunk that nothing counts
      Text("JUNK"),
      Le32(320),
      Text("a.avi"),
      Zeros(315),  //
  });
  EXPECT_EQ(Difference(Part(file, movi), expected), "");
  EXPECT_EQ(Le32At(file, movi - 4), 4u + 10 + 12 + 10);
  EXPECT_EQ(StreamHeader(0, kLength), 2u);
  EXPECT_EQ(StreamHeader(0, kSuggestedSize), 2u);
}

}  // namespace
}  // namespace zmv::test

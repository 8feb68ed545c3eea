// Whole files, byte by byte: without streams, without frames, unknown codecs, and what follows moov.
#include <gtest/gtest.h>

#include "tests/support/mp4_expected.h"

namespace zmv::test {
namespace {

using namespace expected;

class WholeEdges : public ::testing::Test {
 protected:
  void TearDown() override { ZMVStreamBuf_SetOption(0, nullptr); }
  ScriptedHost host_;
};

TEST_F(WholeEdges, StructureCheck_FindsWhatIsWrong) {
  ZMVFileInfo info = FileInfo();
  AddVideo(info, FourCC("avc1"), 640, 360, 0, {});
  Mp4Recording recording(info);
  recording.Video(Hex("00 00 00 01 65"), 10000, false);
  const ByteVector file = recording.Finish();
  EXPECT_EQ(StructureFaults(file, recording), "");
  // The last twenty bytes are stco, its entry the last four.
  ByteVector wrong_offset = file;
  --wrong_offset.back();
  EXPECT_NE(StructureFaults(wrong_offset, recording), "");
  ByteVector wrong_count = file;
  ++wrong_count[file.size() - 5];
  EXPECT_NE(StructureFaults(wrong_count, recording), "");
  ByteVector short_file = file;
  short_file.pop_back();
  EXPECT_NE(StructureFaults(short_file, recording), "");
}

TEST_F(WholeEdges, NoStreams_IsAFrameAroundNothing) {
  ZMVFileInfo info = FileInfo(0);
  std::string_view("Recovery").copy(info.szSoftware, 8);
  Mp4Recording recording(info);
  EXPECT_EQ(recording.Write(ZMV_MEDIA_VIDEO, Hex("00 00 00 01 65"), 1, 1, 0, 0), -1);
  const ByteVector file = recording.Finish();
  // clang-format off
  const ByteVector expected = Join({
      FtypWithoutBrand(),
      RandomBox(Text("rcvf")), BuildInformation(),
      Be32(8), Text("mdat"),
      Be32(116), Text("moov"), Mvhd(0, 0, 0),
  });
  // clang-format on
  EXPECT_EQ(Difference(file, expected), "");
  EXPECT_EQ(StructureFaults(file, recording), "");
  EXPECT_EQ(recording.projected_size(), expected.size() - 8);  // the moov header is not counted
  EXPECT_TRUE(host_.Traced("can not find matched stream media(1) index(0)\n"));
  EXPECT_EQ(host_.LiveBlocks(), 0u);
}

TEST_F(WholeEdges, TrackWithoutFrames_WritesNoTrakButIsCounted) {
  ZMVFileInfo info = FileInfo();
  AddVideo(info, FourCC("avc1"), 640, 360, 0, {});
  AddAudio(info, ZMV_AUDIO_AAC, 2, 48000, 96000, {});
  Mp4Recording recording(info);
  recording.Audio(Hex("21 10 04 60"), 21);
  const ByteVector file = recording.Finish();

  const uint32_t mdat = 28 + 44 + 44 + RandomBoxSize() + 23;
  // clang-format off
  const ByteVector expected = Join({
      Ftyp41(),
      Be32(44), Text("free"), Text("RECO"), Be32(0), Be32(0xFF),      // audio, format
      Be32(2), Be32(48000), Be32(16), Be32(96000), Be32(48000),       // channels, rate, bits, bit rate, rate
      Be32(0),                                                        // no configuration
      Be32(44), Text("free"), Text("RECO"), Be32(0), Text("avc1"),    // video, sample entry type
      Be32(640), Be32(360), Be32(30000), Be32(0), Be32(90000),        // size, frame rate, bit rate, time scale
      Be32(0),                                                        // no configuration
      RandomBox(), BuildInformation(),
      Be32(40), Text("mdat"), Reco(2, 0, 0, 21, 0, 4), Hex("21 10 04 60"),
      BoxOf("moov", {
          Mvhd(48000, 1008, 2),
          TrakOf({Tkhd(2, 1008, 0x0100, 0, 0), Mdhd(48000, 1008), Hdlr("soun", "soun"), Smhd(),
                  StsdOf({AudioEntry(71, "mp4a", 2, 16, 48000), PlainEsds(0x40, 0x15, 4, 96000)}),
                  {
                      TableOf("stts", 1, {SttsEntry(1, 1008)}),
                      StscInterleaved(),
                      StszConstant(4, 1),
                      StcoOf({mdat + 36}),
                  }}),
      }),
  });
  // clang-format on
  EXPECT_EQ(Difference(file, expected), "");
  EXPECT_EQ(StructureFaults(file, recording), "");
  EXPECT_EQ(host_.LiveBlocks(), 0u);
}

// ---- A video of an unknown codec, as a small file to look behind

ZMVFileInfo UnknownVideo() {
  ZMVFileInfo info = FileInfo();
  AddVideo(info, FourCC("X264"), 64, 48, 0, {});
  return info;
}

// Without a key frame.
void RecordUnknown(Mp4Recording& recording) { recording.Video(Hex("00 00 00 01 41 9A 24"), 10000, false); }

ByteVector UnknownFile() {
  const uint32_t mdat = 28 + 44 + RandomBoxSize() + 23;
  // clang-format off
  return Join({
      Ftyp41(),
      Be32(44), Text("free"), Text("RECO"), Be32(0), Text("X264"),  // recovery box, the code as it is
      Be32(64), Be32(48), Be32(30000), Be32(0), Be32(90000),        // size, frame rate, bit rate, time scale
      Be32(0),                                                      // no configuration
      RandomBox(), BuildInformation(),
      Be32(43), Text("mdat"),
      Reco(1, 0, 0, 10000, 0, 7), Be32(3), Hex("41 9A 24"),         // the start code gives way to the length
      BoxOf("moov", {
          Mvhd(90000, 900, 1),
          TrakOf({Tkhd(1, 900, 0, 64, 48), Mdhd(90000, 900), Hdlr("vide", "vide"), Vmhd(),
                  EmptyStsd(),
                  {
                      TableOf("stts", 1, {SttsEntry(1, 900)}),
                      StscInterleaved(),
                      StszConstant(7, 1),
                      StcoOf({mdat + 36}),                          // and no stss
                  }}),
      }),
  });
  // clang-format on
}

TEST_F(WholeEdges, UnknownCodec_HasAnEmptyDescription) {
  Mp4Recording recording(UnknownVideo());
  RecordUnknown(recording);
  const ByteVector file = recording.Finish();
  EXPECT_EQ(Difference(file, UnknownFile()), "");
  EXPECT_EQ(StructureFaults(file, recording), "");
}

TEST_F(WholeEdges, Presized_FreeCoversTheRest) {
  const ByteVector whole = UnknownFile();
  for (uint32_t rest : {3u, 7u, 8u, 9u, 5000u}) {
    host_.presized = whole.size() + rest;
    Mp4Recording recording(UnknownVideo());
    RecordUnknown(recording);
    const ByteVector file = recording.Finish();
    // A box has a header at least.
    EXPECT_EQ(Difference(file, Join({whole, Be32(rest < 8 ? 8 : rest), Text("free")})), "") << rest;
    EXPECT_EQ(StructureFaults(file, recording), "");
  }
}

TEST_F(WholeEdges, PresizedBeyond4GiB_FreeTakesTheLow32Bits) {
  const ByteVector whole = UnknownFile();
  host_.presized = whole.size() + 0x100000000 + 0x1234;
  Mp4Recording recording(UnknownVideo());
  RecordUnknown(recording);
  EXPECT_EQ(Difference(recording.Finish(), Join({whole, Be32(0x1234), Text("free")})), "");
}

TEST_F(WholeEdges, OptionSet_FreeIsAHeaderOnly) {
  ZMVStreamBuf_SetOption(1, nullptr);
  for (uint64_t presized : {uint64_t{0}, uint64_t{5000}}) {
    host_.presized = presized;
    Mp4Recording recording(UnknownVideo());
    RecordUnknown(recording);
    const ByteVector file = recording.Finish();
    EXPECT_EQ(Difference(file, Join({UnknownFile(), Be32(8), Text("free")})), "");
  }
}

TEST_F(WholeEdges, SampleDescriptionWithoutMemory_LeavesTheRestInOrder) {
  // The stbl header of the video is a byte short; the audio behind it and moov itself keep their places.
  ZMVFileInfo info = FileInfo();
  AddVideo(info, FourCC("avc1"), 640, 360, 0, {});
  AddAudio(info, ZMV_AUDIO_AAC, 2, 48000, 96000, {});
  Mp4Recording recording(info);
  recording.Video(Hex("00 00 00 01 65"), 10000, false);
  recording.Audio(Hex("21 10 04 60"), 21);
  // Close takes the box buffer, then the record of avcC.
  host_.Fail(HostCall::kMalloc, 2);
  const ByteVector file = recording.Finish();

  const uint32_t mdat = 28 + 44 + 44 + RandomBoxSize() + 23;
  ASSERT_GT(file.size(), mdat + 73u);
  const ByteVector moov(file.begin() + mdat + 73, file.end());
  // clang-format off
  const ByteVector expected = Join({
      Be32(880), Text("moov"), Mvhd(48000, 1008, 2),                   // 8 + 108 + 340 + 424
      Be32(340), Text("trak"), Tkhd(1, 900, 0, 640, 360),              // 8 + 92 + 240
      Be32(240), Text("mdia"), Mdhd(90000, 900), Hdlr("vide", "vide"), // 8 + 32 + 37 + 163
      Be32(163), Text("minf"), Vmhd(), Dinf(),                         // 8 + 20 + 36 + 99
      Be32(99), Text("stb"),                                           // 7 + 92
      TableOf("stts", 1, {SttsEntry(1, 900)}), StscInterleaved(), StszConstant(5, 1), StcoOf({mdat + 36}),
      TrakOf({Tkhd(2, 1008, 0x0100, 0, 0), Mdhd(48000, 1008), Hdlr("soun", "soun"), Smhd(),
              StsdOf({AudioEntry(71, "mp4a", 2, 16, 48000), PlainEsds(0x40, 0x15, 4, 96000)}),
              {
                  TableOf("stts", 1, {SttsEntry(1, 1008)}),
                  StscInterleaved(),
                  StszConstant(4, 1),
                  StcoOf({mdat + 69}),
              }}),
  });
  // clang-format on
  EXPECT_EQ(Difference(moov, expected), "");
  EXPECT_EQ(host_.LiveBlocks(), 0u);
}

// High profile: a trailer behind the sets states the chroma format and the bit depths.
TEST_F(WholeEdges, TwoVideos_EachHasItsTrackAndHighProfileItsTrailer) {
  const ByteVector sps = Hex("67 64 00 0A AC D9 42 90");
  const ByteVector pps = Hex("68 EE 3C 80");
  const ByteVector config = Join({Be32(1), sps, Be32(1), pps});
  ZMVFileInfo info = FileInfo();
  AddVideo(info, FourCC("H264"), 640, 360, 1000000, config);
  AddVideo(info, FourCC("avc1"), 320, 180, 0, AvcConfig());
  Mp4Recording recording(info);
  recording.Video(Hex("00 00 00 01 65 88"), 10000, true, 1, 0);
  recording.Video(Hex("00 00 00 01 65"), 20000, true, 2, 1);
  recording.Video(Hex("00 00 00 01 41 9A"), 10000, false, 3, 0);
  const ByteVector file = recording.Finish();

  const uint32_t mdat = 28 + 64 + 63 + RandomBoxSize() + 23;
  // clang-format off
  const ByteVector high = Join({
      Be32(35), Text("avcC"), Bytes({1}),       // box, version
      Bytes({0x64, 0x00, 0x0A}),                // profile, compatibility, level
      Bytes({0xFF, 0xE1}), Be16(8), sps,        // length size 4, one SPS
      Bytes({1}), Be16(4), pps,                 // one PPS
      Bytes({0xFD, 0xF8, 0xF8, 0}),             // 4:2:0, 8 and 8 bits, no SPS extension
  });
  const ByteVector expected = Join({
      Ftyp41(),
      Be32(64), Text("free"), Text("RECO"), Be32(0), Text("avc1"),          // first video, sample entry type
      Be32(640), Be32(360), Be32(30000), Be32(1000000), Be32(90000),        // size, frame rate, bit rate, time scale
      Be32(20), config,
      Be32(63), Text("free"), Text("RECO"), Be32(0), Text("avc1"),          // second video
      Be32(320), Be32(180), Be32(30000), Be32(0), Be32(90000),
      Be32(19), AvcConfig(),
      RandomBox(), BuildInformation(),
      Be32(109), Text("mdat"),                                              // 8 + 34 + 33 + 34
      Reco(1, 1, 1, 10000, 0, 6), Be32(2), Hex("65 88"),
      Reco(1, 1, 2, 20000, 1, 5), Be32(1), Hex("65"),
      Reco(1, 0, 3, 10000, 0, 6), Be32(2), Hex("41 9A"),
      BoxOf("moov", {
          Mvhd(90000, 1800, 2),
          TrakOf({Tkhd(1, 1800, 0, 640, 360), Mdhd(90000, 1800), Hdlr("vide", "vide"), Vmhd(),
                  StsdOf({VideoEntry(141, "avc1", 640, 360), high, Btrt(1000000)}),
                  {
                      TableOf("stts", 1, {SttsEntry(2, 900)}),
                      StscInterleaved(),
                      StszConstant(6, 2),
                      StcoOf({mdat + 36, mdat + 36 + 6 + 28 + 5 + 28}),
                      TableOf("stss", 1, {Be32(1)}),
                  }}),
          TrakOf({Tkhd(2, 1800, 0, 320, 180), Mdhd(90000, 1800), Hdlr("vide", "vide"), Vmhd(),
                  AvcStsd(320, 180, 0),
                  {
                      TableOf("stts", 1, {SttsEntry(1, 1800)}),
                      StscInterleaved(),
                      StszConstant(5, 1),
                      StcoOf({mdat + 36 + 6 + 28}),
                      TableOf("stss", 1, {Be32(1)}),
                  }}),
      }),
  });
  // clang-format on
  EXPECT_EQ(Difference(file, expected), "");
  EXPECT_EQ(StructureFaults(file, recording), "");
}

}  // namespace
}  // namespace zmv::test

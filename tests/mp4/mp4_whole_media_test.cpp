// Whole files, byte by byte: HEVC, uncompressed audio, text with user data.
#include <gtest/gtest.h>

#include "tests/support/mp4_expected.h"

namespace zmv::test {
namespace {

using namespace expected;

class WholeMedia : public ::testing::Test {
 protected:
  ScriptedHost host_;
};

// ---- HEVC

// Main profile, 176 x 144, as an encoder hands it out: every set holds emulation prevention.
const ByteVector kHevcVps = Hex("40 01 0C 01 FF FF 01 60 00 00 03 00 90 00 00 03 00 00 03 00 3C 92 80 90");
const ByteVector kHevcSps =
    Hex("42 01 01 01 60 00 00 03 00 90 00 00 03 00 00 03 00 3C A0 16 20 24 59 64 A9 24 CA F0 16 80 80"
        "00 00 03 00 80 00 00 0F 04");
const ByteVector kHevcPps = Hex("44 01 C1 72 B4 22 40");

TEST_F(WholeMedia, Hevc_RecordHoldsTheSetsEscapedAgain) {
  const ByteVector config = Join({Be32(1), kHevcVps, Be32(1), kHevcSps, Be32(1), kHevcPps});
  ZMVFileInfo info = FileInfo();
  info.dwTimeScale = 1000;  // too coarse for video, which takes 90000
  AddVideo(info, FourCC("H265"), 176, 144, 500000, config);
  Mp4Recording recording(info);
  recording.Video(Hex("00 00 00 01 26 01 AF 08"), 33367, true);
  const ByteVector file = recording.Finish();

  const uint32_t mdat = 28 + 127 + RandomBoxSize() + 23;
  // clang-format off
  const ByteVector hvcc = Join({
      Be32(117), Text("hvcC"), Bytes({1}),              // box, version
      Bytes({0x01}), Hex("60 00 00 00"),                // profile, compatibility flags
      Hex("90 00 00 00 00 00"), Bytes({0x3C}),          // constraint flags, level
      Hex("F0 00"), Hex("FC"), Hex("FD"), Hex("F8 F8"), // segmentation, parallelism, chroma, bit depths
      Hex("00 00"), Hex("0F"), Bytes({3}),              // frame rate, layers and length size, arrays
      Hex("A0"), Be16(1), Be16(24), kHevcVps,
      Hex("A1"), Be16(1), Be16(40), kHevcSps,
      Hex("A2"), Be16(1), Be16(7), kHevcPps,
  });
  const ByteVector expected = Join({
      Ftyp41(),
      Be32(127), Text("free"), Text("RECO"), Be32(0), Text("hvc1"),   // recovery box, sample entry type
      Be32(176), Be32(144), Be32(30000), Be32(500000), Be32(90000),   // size, frame rate, bit rate, time scale
      Be32(83), config,                                               // as given
      RandomBox(), BuildInformation(),
      Be32(44), Text("mdat"),                                         // 8 + 28 + 8
      Reco(1, 1, 0, 33367, 0, 8), Be32(4), Hex("26 01 AF 08"),
      BoxOf("moov", {
          Mvhd(90000, 3003, 1),
          TrakOf({Tkhd(1, 3003, 0, 176, 144), Mdhd(90000, 3003), Hdlr("vide", "vide"), Vmhd(),
                  StsdOf({VideoEntry(203, "hvc1", 176, 144), hvcc}),  // no btrt
                  {
                      TableOf("stts", 1, {SttsEntry(1, 3003)}),       // the last frame's own duration
                      StscInterleaved(),
                      StszConstant(8, 1),
                      StcoOf({mdat + 36}),
                      TableOf("stss", 1, {Be32(1)}),
                  }}),
      }),
  });
  // clang-format on
  EXPECT_EQ(Difference(file, expected), "");
  EXPECT_EQ(StructureFaults(file, recording), "");
}

// ---- Uncompressed audio

ZMVFileInfo Pcm() {
  ZMVFileInfo info = FileInfo();
  info.dwTimeScale = 1000;
  AddAudio(info, ZMV_AUDIO_PCM_LE, 1, 8000, 128000, {});
  return info;
}

// Three frames of eight 16-bit samples, a millisecond each.
void RecordPcm(Mp4Recording& recording) {
  recording.Audio(ByteVector(16, 0x11), 1, 0);
  recording.Audio(ByteVector(16, 0x22), 1, 1);
  recording.Audio(ByteVector(16, 0x33), 1, 2);
}

ByteVector PcmUpToMedia() {
  // clang-format off
  return Join({
      Ftyp41(),
      Be32(44), Text("free"), Text("RECO"), Be32(0), Be32(0xF7774),  // recovery box, format
      Be32(1), Be32(8000), Be32(16), Be32(128000), Be32(8000),       // channels, rate, bits, bit rate, rate
      Be32(0),                                                       // no configuration
      RandomBox(), BuildInformation(),
      Be32(140), Text("mdat"),                                       // 8 + 3 x 44
      Reco(2, 0, 0, 1, 0, 16), ByteVector(16, 0x11),
      Reco(2, 0, 1, 1, 0, 16), ByteVector(16, 0x22),
      Reco(2, 0, 2, 1, 0, 16), ByteVector(16, 0x33),
  });
  // clang-format on
}

TEST_F(WholeMedia, PcmMono16_IsCountedInSamples) {
  Mp4Recording recording(Pcm());
  RecordPcm(recording);
  const ByteVector file = recording.Finish();

  const uint32_t mdat = 28 + 44 + RandomBoxSize() + 23;
  // clang-format off
  const ByteVector expected = Join({
      PcmUpToMedia(),
      BoxOf("moov", {
          Mvhd(8000, 24, 1),                                                   // ticks as they were added up
          TrakOf({Tkhd(1, 3, 0x0100, 0, 0), Mdhd(8000, 192),                   // 8000 x 24 / 1000
                  Hdlr("soun", "soun"), Smhd(),
                  StsdOf({AudioEntry(71, "sowt", 1, 16, 8000), PlainEsds(0, 0, 16, 128000)}),
                  {
                      TableOf("stts", 1, {SttsEntry(24, 1)}),                  // one tick a sample
                      TableOf("stsc", 3, {StscEntry(1, 8), StscEntry(2, 8), StscEntry(3, 8)}),
                      StszConstant(2, 24),                                     // bytes of a sample
                      StcoOf({mdat + 36, mdat + 80, mdat + 124}),
                  }}),
      }),
  });
  // clang-format on
  EXPECT_EQ(Difference(file, expected), "");
  EXPECT_EQ(StructureFaults(file, recording), "");
}

TEST_F(WholeMedia, PcmNotInterleaved_KeepsTheTableOfRuns) {
  Mp4Recording recording(Pcm(), 0);
  RecordPcm(recording);
  const ByteVector file = recording.Finish();

  const uint32_t mdat = 28 + 44 + RandomBoxSize() + 23;
  // clang-format off
  const ByteVector expected = Join({
      PcmUpToMedia(),
      BoxOf("moov", {
          Mvhd(8000, 24, 1),
          TrakOf({Tkhd(1, 3, 0x0100, 0, 0), Mdhd(8000, 192),
                  Hdlr("soun", "soun"), Smhd(),
                  StsdOf({AudioEntry(71, "sowt", 1, 16, 8000), PlainEsds(0, 0, 16, 128000)}),
                  {
                      TableOf("stts", 1, {SttsEntry(24, 1)}),
                      TableOf("stsc", 1, {StscEntry(1, 3)}),  // frames, not samples
                      StszConstant(2, 24),
                      StcoOf({mdat + 36}),
                  }}),
      }),
  });
  // clang-format on
  EXPECT_EQ(Difference(file, expected), "");
}

// ---- Text and user data

// A text payload: eight bytes of the producer's, 72 bytes of position, 12 bytes of sensor data.
ByteVector TextPayload(uint8_t gps, uint8_t sensor) {
  return Join({zmv::test::Text("KPZ text"), ByteVector(72, gps), ByteVector(12, sensor)});
}

ZMVFileInfo TextInfo(const char* software) {
  ZMVFileInfo info = FileInfo();
  info.dwTimeScale = 1000;
  std::string_view(software).copy(info.szSoftware, sizeof info.szSoftware - 1);
  AddText(info, FourCC("abcd"), 2).dwBitRate = 736;
  return info;
}

ByteVector TextFront() {
  // clang-format off
  return Join({
      Ftyp41(),
      Be32(32), Text("free"), Text("RECO"), Be32(0), Text("abcd"),  // recovery box, code
      Be32(2), Be32(736), Be32(1000),                               // rate, bit rate, time scale
      RandomBox(), BuildInformation(),
  });
  // clang-format on
}

ByteVector TextMedia() {
  return Join({
      Be32(248),
      Text("mdat"),  // 8 + 2 x 120
      Reco(3, 0, 0, 500, 0, 92),
      TextPayload(0xA1, 0xB1),
      Reco(3, 0, 500, 500, 0, 92),
      TextPayload(0xA2, 0xB2),
  });
}

ByteVector TextMovie(uint32_t mdat) {
  // clang-format off
  return BoxOf("moov", {
      Mvhd(1000, 1000, 1),
      TrakOf({Tkhd(1, 1000, 0, 0, 0), Mdhd(1000, 1000), Hdlr("tvxt", "dcba"), Nmhd(),
              StsdOf({Be32(51), Text("mp4s"), Zeros(6), Be16(1), PlainEsds(0, 0, 92, 0)}),
              {
                  TableOf("stts", 1, {SttsEntry(2, 500)}),
                  StscInterleaved(),
                  StszConstant(92, 2),
                  StcoOf({mdat + 36, mdat + 156}),
              }}),
  });
  // clang-format on
}

void RecordText(Mp4Recording& recording) {
  recording.Text(TextPayload(0xA1, 0xB1), 500, 0);
  recording.Text(TextPayload(0xA2, 0xB2), 500, 500);
}

TEST_F(WholeMedia, TextOnly_IsADataTrack) {
  Mp4Recording recording(TextInfo("KPZ"));
  RecordText(recording);
  const ByteVector file = recording.Finish();
  const uint32_t mdat = 28 + 32 + RandomBoxSize() + 23;
  EXPECT_EQ(Difference(file, Join({TextFront(), TextMedia(), TextMovie(mdat)})), "");
  EXPECT_EQ(StructureFaults(file, recording), "");
}

TEST_F(WholeMedia, TextWithUserData_WritesItsBoxesBehindTheMedia) {
  host_.presized = 8192;
  Mp4Recording recording(TextInfo("F1"));
  RecordText(recording);
  const ByteVector file = recording.Finish();

  const uint32_t mdat = 28 + 32 + RandomBoxSize() + 23;
  // clang-format off
  const ByteVector boxes = Join({
      TextFront(), TextMedia(),
      Be32(168), Text("GPSR"),                         // 8 + 2 x 80
      Le32(0), Le32(72), ByteVector(72, 0xA1),         // entry number, length
      Le32(1), Le32(72), ByteVector(72, 0xA2),
      Be32(32), Text("SENS"),                          // 8 + 2 x 12
      ByteVector(12, 0xB1), ByteVector(12, 0xB2),
      Be32(12), Text("AIDD"), Be32(0),
      TextMovie(mdat),
  });
  // clang-format on
  const uint32_t rest = 8192 - static_cast<uint32_t>(boxes.size());
  EXPECT_EQ(Difference(file, Join({boxes, Be32(rest), Text("free")})), "");
  EXPECT_EQ(StructureFaults(file, recording), "");
}

TEST_F(WholeMedia, UserDataWithoutTextFrames_RepeatsTheLastSample) {
  {
    Mp4Recording before(TextInfo("F1"));
    RecordText(before);
    before.Finish();
  }
  Mp4Recording recording(TextInfo("F1"));
  const ByteVector file = recording.Finish();

  // clang-format off
  const ByteVector expected = Join({
      TextFront(),
      Be32(8), Text("mdat"),
      Be32(88), Text("GPSR"), Le32(1), Le32(72), ByteVector(72, 0xA2),  // as it stood there
      Be32(20), Text("SENS"), ByteVector(12, 0xB2),
      Be32(12), Text("AIDD"), Be32(0),
      BoxOf("moov", {Mvhd(1000, 0, 1)}),                                // counts a track that is not there
  });
  // clang-format on
  EXPECT_EQ(Difference(file, expected), "");
}

TEST_F(WholeMedia, EveryMedium_TogetherWithUserData) {
  ZMVFileInfo info = TextInfo("F1");
  info.dwTimeScale = 90000;
  AddVideo(info, FourCC("avc1"), 320, 240, 700000, AvcConfig());
  AddAudio(info, ZMV_AUDIO_AAC, 2, 44100, 64000, Hex("12 10"));
  Mp4Recording recording(info);
  recording.Text(TextPayload(0xC1, 0xD1), 1000, 0);
  recording.Video(Hex("00 00 00 01 65 88"), 20000, true, 0);
  recording.Audio(Hex("21 10 04"), 23, 0);
  recording.Video(Hex("00 00 00 01 41 9A"), 20000, false, 20);
  const ByteVector file = recording.Finish();

  const uint32_t mdat = 28 + 46 + 63 + 32 + RandomBoxSize() + 23;
  // clang-format off
  const ByteVector expected = Join({
      Ftyp41(),
      Be32(46), Text("free"), Text("RECO"), Be32(0), Be32(0xFF),     // audio, format
      Be32(2), Be32(44100), Be32(16), Be32(64000), Be32(44100),      // channels, rate, bits, bit rate, rate
      Be32(2), Hex("12 10"),                                         // configuration
      Be32(63), Text("free"), Text("RECO"), Be32(0), Text("avc1"),   // video, sample entry type
      Be32(320), Be32(240), Be32(30000), Be32(700000), Be32(90000),  // size, frame rate, bit rate, time scale
      Be32(19), AvcConfig(),                                         // configuration
      Be32(32), Text("free"), Text("RECO"), Be32(0), Text("abcd"),   // text, code
      Be32(2), Be32(736), Be32(90000),                               // rate, bit rate, time scale
      RandomBox(), BuildInformation(),
      Be32(227), Text("mdat"),                                       // 8 + 120 + 34 + 31 + 34
      Reco(3, 0, 0, 1000, 0, 92), TextPayload(0xC1, 0xD1),
      Reco(1, 1, 0, 20000, 0, 6), Be32(2), Hex("65 88"),
      Reco(2, 0, 0, 23, 0, 3), Hex("21 10 04"),
      Reco(1, 0, 20, 20000, 0, 6), Be32(2), Hex("41 9A"),
      Be32(88), Text("GPSR"), Le32(0), Le32(72), ByteVector(72, 0xC1),
      Be32(20), Text("SENS"), ByteVector(12, 0xD1),
      Be32(12), Text("AIDD"), Be32(0),
      BoxOf("moov", {
          Mvhd(90000, 90000, 3),                                     // the text has most ticks
          TrakOf({Tkhd(1, 3600, 0, 320, 240), Mdhd(90000, 3600), Hdlr("vide", "vide"), Vmhd(),
                  AvcStsd(320, 240, 700000),
                  {
                      TableOf("stts", 1, {SttsEntry(2, 1800)}),
                      StscInterleaved(),
                      StszConstant(6, 2),
                      StcoOf({mdat + 156, mdat + 221}),
                      TableOf("stss", 1, {Be32(1)}),
                  }}),
          TrakOf({Tkhd(2, 2070, 0x0100, 0, 0), Mdhd(44100, 1014),    // 23 ms
                  Hdlr("soun", "soun"), Smhd(), AacStsd(Hex("12 10"), 44100, 3, 64000),
                  {
                      TableOf("stts", 1, {SttsEntry(1, 1014)}),
                      StscInterleaved(),
                      StszConstant(3, 1),
                      StcoOf({mdat + 190}),
                  }}),
          TrakOf({Tkhd(3, 90000, 0, 0, 0), Mdhd(90000, 90000), Hdlr("tvxt", "dcba"), Nmhd(),
                  StsdOf({Be32(51), Text("mp4s"), Zeros(6), Be16(1), PlainEsds(0, 0, 92, 0)}),
                  {
                      TableOf("stts", 1, {SttsEntry(1, 90000)}),
                      StscInterleaved(),
                      StszConstant(92, 1),
                      StcoOf({mdat + 36}),
                  }}),
      }),
  });
  // clang-format on
  EXPECT_EQ(Difference(file, expected), "");
  EXPECT_EQ(StructureFaults(file, recording), "");
}

}  // namespace
}  // namespace zmv::test

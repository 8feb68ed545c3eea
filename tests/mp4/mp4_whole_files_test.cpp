// Whole files, byte by byte: one medium each, and video with audio.
#include <gtest/gtest.h>

#include "tests/support/mp4_expected.h"

namespace zmv::test {
namespace {

using namespace expected;

class WholeFiles : public ::testing::Test {
 protected:
  void TearDown() override { ZMVStreamBuf_SetOption(0, nullptr); }
  ScriptedHost host_;
};

const ByteVector kKeyFrame = Hex("00 00 00 01 65 88 84 00 01 02 03 04");
const ByteVector kFrame1 = Hex("00 00 00 01 41 9A 24 6C 41");
const ByteVector kFrame2 = Hex("00 00 00 01 41 9A 46 3C 10");

TEST_F(WholeFiles, H264_ThreeFrames_IsWrittenFieldByField) {
  ZMVFileInfo info = FileInfo();
  AddVideo(info, FourCC("H264"), 1920, 1080, 8000000, AvcConfig());
  Mp4Recording recording(info);
  recording.Video(kKeyFrame, 33333, true, 0);
  recording.Video(kFrame1, 33333, false, 33);
  recording.Video(kFrame2, 33333, false, 0x100000042);
  const ByteVector file = recording.Finish();

  const uint32_t mdat = 28 + 63 + RandomBoxSize() + 23;
  // clang-format off
  const ByteVector expected = Join({
      Be32(28), Text("ftyp"),                      // box
      Text("mp41"), Be32(1),                       // major brand, minor version
      Text("isom"), Text("avc1"), Text("mp41"),    // compatible brands
      Be32(63), Text("free"), Text("RECO"),        // recovery box of the video
      Be32(0), Text("avc1"),                       // reserved, sample entry type
      Be32(1920), Be32(1080),                      // width, height
      Be32(30000), Be32(8000000),                  // frame rate, bit rate
      Be32(90000), Be32(19),                       // time scale, bytes of configuration
      Hex("00 00 00 01 67 42 C0 0A DA 08 18"),     // SPS
      Hex("00 00 00 01 68 CE 06 E2"),              // PPS
      Be32(RandomBoxSize()), Text("free"),         // random box
      Be32(0), Zeros(RandomBoxSize() - 12),        // no mark, nothing
      Be32(23), Text("free"),                      // build information
      Text(kFixedDate), Text(" KPZ"),
      Be32(122), Text("mdat"),                     // 8 + 40 + 37 + 37
      Text("RECO"), Be32(1), Be32(1),              // video, key
      Be32(0), Be32(33333), Be32(0), Be32(12),     // time, duration, stream, size
      Be32(8), Hex("65 88 84 00 01 02 03 04"),     // length and NAL unit
      Text("RECO"), Be32(1), Be32(0),              // video, not key
      Be32(33), Be32(33333), Be32(0), Be32(9),     // time, duration, stream, size
      Be32(5), Hex("41 9A 24 6C 41"),              // length and NAL unit
      Text("RECO"), Be32(1), Be32(0),              // video, not key
      Be32(0x42), Be32(33333), Be32(0), Be32(9),   // low half of the time, duration, stream, size
      Be32(5), Hex("41 9A 46 3C 10"),              // length and NAL unit
      Be32(649), Text("moov"),                     // 8 + 108 + 533
      Be32(108), Text("mvhd"), Be32(0),            // version and flags
      Be32(0), Be32(0),                            // creation, modification
      Be32(90000), Be32(9000),                     // time scale, duration
      Be32(0x00010000), Be16(0x0100), Zeros(10),   // rate, volume, reserved
      Be32(0x00010000), Zeros(12),                 // matrix
      Be32(0x00010000), Zeros(12),
      Be32(0x40000000), Zeros(24),                 // pre-defined
      Be32(1),                                     // "next" track ID
      Be32(533), Text("trak"),                     // 8 + 92 + 433
      Be32(92), Text("tkhd"), Be32(1),             // enabled
      Be32(0), Be32(0), Be32(1), Be32(0),          // creation, modification, track ID, reserved
      Be32(9000), Zeros(8),                        // duration, reserved
      Be16(0), Be16(0), Be16(0), Be16(0),          // layer, alternate group, volume, reserved
      Be32(0x00010000), Zeros(12),                 // matrix
      Be32(0x00010000), Zeros(12),
      Be32(0x40000000),
      Hex("07 80 00 00"), Hex("04 38 00 00"),      // width, height
      Be32(433), Text("mdia"),                     // 8 + 32 + 37 + 356
      Be32(32), Text("mdhd"), Be32(0),             // version and flags
      Be32(0), Be32(0),                            // creation, modification
      Be32(90000), Be32(9000), Be32(0),            // time scale, duration, language and pre-defined
      Be32(37), Text("hdlr"), Be32(0), Be32(0),    // version and flags, pre-defined
      Text("vide"), Zeros(12),                     // handler, reserved
      Text("vide"), Bytes({0}),                    // name
      Be32(356), Text("minf"),                     // 8 + 20 + 36 + 292
      Be32(20), Text("vmhd"), Be32(0), Zeros(8),   // flags 0, graphics mode and colour
      Be32(36), Text("dinf"),
      Be32(28), Text("dref"), Be32(0), Be32(1),    // one entry
      Be32(12), Text("url "), Be32(1),             // media in the same file
      Be32(292), Text("stbl"),                     // 8 + 152 + 24 + 28 + 32 + 28 + 20
      Be32(152), Text("stsd"), Be32(0), Be32(1),   // one entry
      Be32(136), Text("avc1"), Zeros(6), Be16(1),  // 86 + 30 + 20, data reference index
      Zeros(16), Be16(1920), Be16(1080),           // width, height
      Be32(0x00480000), Be32(0x00480000),          // 72 dpi
      Be32(0), Be16(1), Zeros(32),                 // reserved, frame count, compressor
      Be16(0x18), Be16(0xFFFF),                    // depth, pre-defined
      Be32(30), Text("avcC"), Bytes({1}),          // version
      Hex("42 C0 0A"), Hex("FF E1"),               // profile and level, length size 4 and one SPS
      Be16(7), Hex("67 42 C0 0A DA 08 18"),        // SPS
      Bytes({1}), Be16(4), Hex("68 CE 06 E2"),     // one PPS
      Be32(20), Text("btrt"), Be32(0x5601),        // buffer size
      Be32(8000000), Be32(8000000),                // maximum and average bit rate
      Be32(24), Text("stts"), Be32(0), Be32(1),    // one entry
      Be32(3), Be32(3000),                         // three samples of 3000 ticks
      Be32(28), Text("stsc"), Be32(0), Be32(1),    // one entry
      Be32(1), Be32(1), Be32(1),                   // every sample a chunk
      Be32(32), Text("stsz"), Be32(0),             // version and flags
      Be32(0), Be32(3),                            // sizes differ, three samples
      Be32(12), Be32(9), Be32(9),
      Be32(28), Text("stco"), Be32(0), Be32(3),    // three entries
      Be32(mdat + 36),                             // behind the first record
      Be32(mdat + 76), Be32(mdat + 113),
      Be32(20), Text("stss"), Be32(0), Be32(1),    // one entry
      Be32(1),                                     // the first sample
  });
  // clang-format on
  EXPECT_EQ(Difference(file, expected), "");
  EXPECT_EQ(StructureFaults(file, recording), "");
  EXPECT_EQ(host_.LiveBlocks(), 0u) << ::testing::PrintToString(host_.LiveList());
}

TEST_F(WholeFiles, Aac_ThreeFrames_IsWrittenFieldByField) {
  ZMVFileInfo info = FileInfo(0);
  AddAudio(info, ZMV_AUDIO_AAC, 2, 48000, 128000, Hex("11 90"));
  Mp4Recording recording(info);
  recording.Audio(Hex("21 10 04 60 8C 1C"), 21, 0);
  recording.Audio(Hex("21 10 05 40 2C"), 21, 21);
  recording.Audio(Hex("21 10 06 20 3D 5E"), 22, 42);
  const ByteVector file = recording.Finish();

  const uint32_t mdat = 28 + 46 + RandomBoxSize() + 23;
  // clang-format off
  const ByteVector expected = Join({
      Be32(28), Text("ftyp"),                     // box
      Be32(0), Be32(0),                           // empty major brand
      Text("isom"), Text("avc1"), Text("mp41"),   // compatible brands
      Be32(46), Text("free"), Text("RECO"),       // recovery box of the audio
      Be32(0), Be32(0xFF),                        // reserved, format
      Be32(2), Be32(48000), Be32(16),             // channels, rate, bits
      Be32(128000), Be32(48000),                  // bit rate, rate again
      Be32(2), Hex("11 90"),                      // configuration
      Be32(RandomBoxSize()), Text("free"),        // random box
      Be32(0), Zeros(RandomBoxSize() - 12),       // no mark, nothing
      Be32(23), Text("free"),                     // build information
      Text(kFixedDate), Text(" KPZ"),
      Be32(109), Text("mdat"),                    // 8 + 34 + 33 + 34
      Text("RECO"), Be32(2), Be32(0),             // audio has no key frames
      Be32(0), Be32(21), Be32(0), Be32(6),        // time, duration, stream, size
      Hex("21 10 04 60 8C 1C"),
      Text("RECO"), Be32(2), Be32(0),
      Be32(21), Be32(21), Be32(0), Be32(5),
      Hex("21 10 05 40 2C"),
      Text("RECO"), Be32(2), Be32(0),
      Be32(42), Be32(22), Be32(0), Be32(6),
      Hex("21 10 06 20 3D 5E"),
      Be32(572), Text("moov"),                    // 8 + 108 + 456
      Be32(108), Text("mvhd"), Be32(0),           // version and flags
      Be32(0), Be32(0),                           // creation, modification
      Be32(48000), Be32(3072),                    // time scale, 1008 + 1008 + 1056
      Be32(0x00010000), Be16(0x0100), Zeros(10),  // rate, volume, reserved
      Be32(0x00010000), Zeros(12),                // matrix
      Be32(0x00010000), Zeros(12),
      Be32(0x40000000), Zeros(24),                // pre-defined
      Be32(1),                                    // "next" track ID
      Be32(456), Text("trak"),                    // 8 + 92 + 356
      Be32(92), Text("tkhd"), Be32(1),            // enabled
      Be32(0), Be32(0), Be32(1), Be32(0),         // creation, modification, track ID, reserved
      Be32(3072), Zeros(8),                       // duration in the track's own scale, reserved
      Be16(0), Be16(0), Be16(0x0100), Be16(0),    // layer, alternate group, volume, reserved
      Be32(0x00010000), Zeros(12),                // matrix
      Be32(0x00010000), Zeros(12),
      Be32(0x40000000),
      Be32(0), Be32(0),                           // no picture
      Be32(356), Text("mdia"),                    // 8 + 32 + 37 + 279
      Be32(32), Text("mdhd"), Be32(0),            // version and flags
      Be32(0), Be32(0),                           // creation, modification
      Be32(48000), Be32(3072), Be32(0),           // time scale, duration, language and pre-defined
      Be32(37), Text("hdlr"), Be32(0), Be32(0),   // version and flags, pre-defined
      Text("soun"), Zeros(12),                    // handler, reserved
      Text("soun"), Bytes({0}),                   // name
      Be32(279), Text("minf"),                    // 8 + 16 + 36 + 219
      Be32(16), Text("smhd"), Be32(0), Be32(0),   // balance, reserved
      Be32(36), Text("dinf"),
      Be32(28), Text("dref"), Be32(0), Be32(1),   // one entry
      Be32(12), Text("url "), Be32(1),            // media in the same file
      Be32(219), Text("stbl"),                    // 8 + 91 + 32 + 28 + 32 + 28
      Be32(91), Text("stsd"), Be32(0), Be32(1),   // one entry
      Be32(75), Text("mp4a"), Zeros(6), Be16(1),  // 36 + 39, data reference index
      Zeros(8), Be16(2), Be16(16), Zeros(2),      // channels, bits
      Hex("00 00 BB 80 00 00"),                   // 48000 Hz
      Be32(39), Text("esds"), Be32(0),            // version and flags
      Hex("03 19 00 00 00"),                      // ES descriptor
      Hex("04 11 40 15"), Hex("00 00 06"),        // decoder configuration, largest payload
      Be32(128000), Be32(128000),                 // maximum and average bit rate
      Hex("05 02 11 90"), Hex("06 01 02"),        // configuration, SL configuration
      Be32(32), Text("stts"), Be32(0), Be32(2),   // two entries
      Be32(1), Be32(1008),                        // a sample lasts as the next one says
      Be32(2), Be32(1056),                        // and the last one counts twice
      Be32(28), Text("stsc"), Be32(0), Be32(1),   // one entry
      Be32(1), Be32(1), Be32(1),                  // every sample a chunk
      Be32(32), Text("stsz"), Be32(0),            // version and flags
      Be32(0), Be32(3),                           // sizes differ, three samples
      Be32(6), Be32(5), Be32(6),
      Be32(28), Text("stco"), Be32(0), Be32(3),   // three entries
      Be32(mdat + 36),                            // behind the first record
      Be32(mdat + 70), Be32(mdat + 103),
  });
  // clang-format on
  EXPECT_EQ(Difference(file, expected), "");
  EXPECT_EQ(StructureFaults(file, recording), "");
  EXPECT_EQ(host_.LiveBlocks(), 0u);
}

// Video frames of 12, 9 and 9 bytes and AAC frames of 5, in the order V A V A A V.
void RecordVideoAndAudio(Mp4Recording& recording) {
  recording.Video(kKeyFrame, 40000, true, 0);
  recording.Audio(Hex("21 10 04 60 8C"), 21, 0);
  recording.Video(kFrame1, 40000, false, 40);
  recording.Audio(Hex("21 10 05 40 2C"), 21, 21);
  recording.Audio(Hex("21 10 06 20 3D"), 21, 42);
  recording.Video(kFrame2, 40000, true, 80);
}

ZMVFileInfo VideoAndAudio() {
  ZMVFileInfo info = FileInfo();
  info.dwTimeScale = 90000;
  AddVideo(info, FourCC("avc1"), 640, 360, 1000000, AvcConfig());
  AddAudio(info, ZMV_AUDIO_AAC, 2, 48000, 96000, Hex("11 90"));
  return info;
}

// What stands in front of mdat: the audio's recovery box comes before the video's.
ByteVector VideoAndAudioFront() {
  // clang-format off
  return Join({
      Ftyp41(),
      Be32(46), Text("free"), Text("RECO"), Be32(0), Be32(0xFF),      // audio, format
      Be32(2), Be32(48000), Be32(16), Be32(96000), Be32(48000),       // channels, rate, bits, bit rate, rate
      Be32(2), Hex("11 90"),                                          // configuration
      Be32(63), Text("free"), Text("RECO"), Be32(0), Text("avc1"),    // video, sample entry type
      Be32(640), Be32(360), Be32(30000), Be32(1000000), Be32(90000),  // size, frame rate, bit rate, time scale
      Be32(19), AvcConfig(),                                          // configuration
      RandomBox(), BuildInformation(),
  });
  // clang-format on
}

ByteVector VideoAndAudioMedia() {
  return Join({
      Be32(221), Text("mdat"),                                               // 8 + 40 + 33 + 37 + 33 + 33 + 37
      Reco(1, 1, 0, 40000, 0, 12), Be32(8), Hex("65 88 84 00 01 02 03 04"),  //
      Reco(2, 0, 0, 21, 0, 5), Hex("21 10 04 60 8C"),                        //
      Reco(1, 0, 40, 40000, 0, 9), Be32(5), Hex("41 9A 24 6C 41"),           //
      Reco(2, 0, 21, 21, 0, 5), Hex("21 10 05 40 2C"),                       //
      Reco(2, 0, 42, 21, 0, 5), Hex("21 10 06 20 3D"),                       //
      Reco(1, 1, 80, 40000, 0, 9), Be32(5), Hex("41 9A 46 3C 10"),           //
  });
}

TEST_F(WholeFiles, VideoAndAudio_Interleaved_EveryFrameIsAChunk) {
  Mp4Recording recording(VideoAndAudio());
  RecordVideoAndAudio(recording);
  const ByteVector file = recording.Finish();

  const uint32_t mdat = 28 + 46 + 63 + RandomBoxSize() + 23;
  const ByteVector expected = Join({
      VideoAndAudioFront(),
      VideoAndAudioMedia(),
      BoxOf("moov",
            {
                Mvhd(90000, 10800, 2),  // the video has most ticks
                TrakOf({Tkhd(1, 10800, 0, 640, 360),
                        Mdhd(90000, 10800),
                        Hdlr("vide", "vide"),
                        Vmhd(),
                        AvcStsd(640, 360, 1000000),
                        {
                            TableOf("stts", 1, {SttsEntry(3, 3600)}),
                            StscInterleaved(),
                            StszOf({12, 9, 9}),
                            StcoOf({mdat + 36, mdat + 109, mdat + 212}),
                            TableOf("stss", 2, {Be32(1), Be32(3)}),
                        }}),
                TrakOf({Tkhd(2, 5670, 0x0100, 0, 0),  // 63 ms of 90 ticks
                        Mdhd(48000, 3024),
                        Hdlr("soun", "soun"),
                        Smhd(),
                        AacStsd(Hex("11 90"), 48000, 5, 96000),
                        {
                            TableOf("stts", 1, {SttsEntry(3, 1008)}),
                            StscInterleaved(),
                            StszConstant(5, 3),
                            StcoOf({mdat + 76, mdat + 146, mdat + 179}),
                        }}),
            }),
  });
  EXPECT_EQ(Difference(file, expected), "");
  EXPECT_EQ(StructureFaults(file, recording), "");
}

TEST_F(WholeFiles, VideoAndAudio_NotInterleaved_RunsAreChunks) {
  Mp4Recording recording(VideoAndAudio(), 0);
  RecordVideoAndAudio(recording);
  const ByteVector file = recording.Finish();

  const uint32_t mdat = 28 + 46 + 63 + RandomBoxSize() + 23;
  const ByteVector expected = Join({
      VideoAndAudioFront(),
      VideoAndAudioMedia(),
      BoxOf("moov",
            {
                Mvhd(90000, 10800, 2),
                TrakOf({Tkhd(1, 10800, 0, 640, 360),
                        Mdhd(90000, 10800),
                        Hdlr("vide", "vide"),
                        Vmhd(),
                        AvcStsd(640, 360, 1000000),
                        {
                            TableOf("stts", 1, {SttsEntry(3, 3600)}),
                            TableOf("stsc", 1, {StscEntry(1, 1)}),  // three chunks of one
                            StszOf({12, 9, 9}),
                            StcoOf({mdat + 36, mdat + 109, mdat + 212}),
                            TableOf("stss", 2, {Be32(1), Be32(3)}),
                        }}),
                TrakOf({Tkhd(2, 5670, 0x0100, 0, 0),
                        Mdhd(48000, 3024),
                        Hdlr("soun", "soun"),
                        Smhd(),
                        AacStsd(Hex("11 90"), 48000, 5, 96000),
                        {
                            TableOf("stts", 1, {SttsEntry(3, 1008)}),
                            TableOf("stsc", 2, {StscEntry(1, 1), StscEntry(2, 2)}),  // one, then two
                            StszConstant(5, 3),
                            StcoOf({mdat + 76, mdat + 146}),
                        }}),
            }),
  });
  EXPECT_EQ(Difference(file, expected), "");
  EXPECT_EQ(StructureFaults(file, recording), "");
}

}  // namespace
}  // namespace zmv::test

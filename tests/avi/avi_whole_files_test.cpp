// Whole files, byte by byte.
#include "tests/avi/writer_test.h"

namespace zmv::test {
namespace {

class AviWhole : public AviWriterTest {
 protected:
  // The closed file.
  const ByteVector& Finish() {
    Close();
    return File();
  }
};

const ByteVector kKeyFrame = Hex("00 00 00 01 65 88 84 00 01 02 03");
const ByteVector kFrame1 = Hex("00 00 00 01 41 9A 24 6C");
const ByteVector kFrame2 = Hex("00 00 00 01 41 9A 46 3C 10");

TEST_F(AviWhole, H264AndPcm_IsWrittenFieldByField) {
  AddVideo().dwPriority = 3;
  AddAudio();
  Start(60000);
  EXPECT_EQ(Write(ZMV_MEDIA_VIDEO, kKeyFrame, 0, 40, 0, ZMV_KEY_FRAME), 0);
  EXPECT_EQ(Write(ZMV_MEDIA_AUDIO, Hex("01 00 02 00 03 00 04 00"), 0, 20), 0);
  EXPECT_EQ(Write(ZMV_MEDIA_VIDEO, kFrame1, 40), 0);
  EXPECT_EQ(Write(ZMV_MEDIA_AUDIO, Hex("05 00 06 00"), 20, 20), 0);
  EXPECT_EQ(Write(ZMV_MEDIA_VIDEO, kFrame2, 80), 0);
  const ByteVector file = Finish();

  const uint32_t junk = RandomJunkSize();
  // clang-format off
  const ByteVector expected = Join({
      Text("RIFF"), Le32(static_cast<uint32_t>(file.size()) - 8 - 8),  // all but the fill chunk
      Text("AVI "),
      Text("LIST"), Le32(292), Text("hdrl"),             // 68 + 124 + 100
      Text("avih"), Le32(56),
      Le32(0), Le32(0), Le32(0),                         // frame time, data rate, granularity
      Le32(0x910), Le32(3), Le32(0),                     // flags, frames, initial frames
      Le32(2), Le32(11), Le32(640), Le32(360),           // streams, buffer size, width, height
      Zeros(16),                                         // reserved
      Text("LIST"), Le32(116), Text("strl"),             // 76 + 40
      Text("strh"), Le32(56),
      Text("vids"), Text("H264"), Le32(0),               // type, handler, flags
      Le16(3), Le16(0), Le32(0),                         // priority, language, initial frames
      Le32(1000), Le32(25000), Le32(0),                  // scale, rate, start
      Le32(3), Le32(11), Le32(0), Le32(0),               // length, buffer size, quality, sample size
      Le16(0), Le16(0), Le16(640), Le16(360),            // frame
      Text("strf"), Le32(40),
      Le32(40), Le32(640), Le32(360),                    // size, width, height
      Le16(1), Le16(24), Text("H264"),                   // planes, bits, codec
      Le32(691200), Zeros(16),                           // image size
      Text("LIST"), Le32(92), Text("strl"),              // 76 + 16
      Text("strh"), Le32(56),
      Text("auds"), Le32(1), Le32(0),                    // type, format tag, flags
      Le16(0), Le16(0), Le32(0),                         // priority, language, initial frames
      Le32(4), Le32(192000), Le32(0),                    // scale, rate, start
      Le32(5 + 3), Le32(8), Le32(0), Le32(4),            // length, buffer size, quality, sample size
      Zeros(8),                                          // frame
      Text("strf"), Le32(16),
      Le16(1), Le16(2), Le32(48000),                     // tag, channels, sample rate
      Le32(192000), Le16(4), Le16(16),                   // bytes a second, block alignment, bits
      Text("JUNK"), Le32(junk), Zeros(junk),
      Text("LIST"), Le32(4 + 20 + 16 + 16 + 12 + 18), Text("movi"),
      Text("00dc"), Le32(11), kKeyFrame, Zeros(1),
      Text("01wb"), Le32(8), Hex("01 00 02 00 03 00 04 00"),
      Text("00dc"), Le32(8), kFrame1,
      Text("01wb"), Le32(4), Hex("05 00 06 00"),
      Text("00dc"), Le32(9), kFrame2, Zeros(1),
      Text("idx1"), Le32(80),
      Text("00dc"), Le32(0x10), Le32(4), Le32(11),       // code, key frame, offset, size
      Text("01wb"), Le32(0x10), Le32(24), Le32(8),
      Text("00dc"), Le32(0), Le32(40), Le32(8),
      Text("01wb"), Le32(0x10), Le32(56), Le32(4),
      Text("00dc"), Le32(0), Le32(68), Le32(9),
      Text("JUNK"), Le32(320), Text("a.avi"), Zeros(315),
      Text("JUNK"), Le32(0),
  });
  // clang-format on
  EXPECT_EQ(Difference(file, expected), "");
}

TEST_F(AviWhole, H264AndAac_WithEverythingAround_IsWrittenFieldByField) {
  char name[] = "front";
  uint8_t extra[] = {'A', 'D', 'A', 'S', 9, 8, 7};
  info.pStreamName = name;
  info.pExtraHeader = extra;
  info.dwExtraHeaderSize = sizeof extra;
  Software("KPZ cam 1.2");
  NoFill();
  AddVideo(kH264, 30000);
  ZMVAudioInfo& audio = AddAudio(ZMV_AUDIO_AAC);
  std::memcpy(audio.abExtraData, "\x11\x90", 2);
  audio.dwExtraDataSize = 2;
  Start(60000);
  EXPECT_EQ(Write(ZMV_MEDIA_VIDEO, kKeyFrame, 100, 33, 0, ZMV_KEY_FRAME), 0);
  EXPECT_EQ(Write(ZMV_MEDIA_AUDIO, Hex("21 10 04 60 8C"), 100, 21), 0);
  EXPECT_EQ(Write(ZMV_MEDIA_AUDIO, Hex("21 10 05 40"), 121, 21), 0);
  EXPECT_EQ(Write(ZMV_MEDIA_VIDEO, kFrame1, 133, 33), 0);
  const ByteVector file = Finish();

  const uint32_t junk = RandomJunkSize();
  // clang-format off
  const ByteVector expected = Join({
      Text("RIFF"), Le32(static_cast<uint32_t>(file.size()) - 8), Text("AVI "),
      Text("LIST"), Le32(310), Text("hdrl"),             // 68 + 138 + 104
      Text("avih"), Le32(56),
      Le32(0), Le32(0), Le32(0),                         // frame time, data rate, granularity
      Le32(0x910), Le32(2), Le32(0),                     // flags, frames, initial frames
      Le32(2), Le32(11), Le32(640), Le32(360),           // streams, buffer size, width, height
      Zeros(16),                                         // reserved
      Text("LIST"), Le32(130), Text("strl"),             // 76 + 40 + 14
      Text("strh"), Le32(56),
      Text("vids"), Text("H264"), Le32(0),               // type, handler, flags
      Le16(0), Le16(0), Le32(0),                         // priority, language, initial frames
      Le32(1000), Le32(30303), Le32(0),                  // scale, rate (2 frames in 66 ms), start
      Le32(2), Le32(11), Le32(0), Le32(0),               // length, buffer size, quality, sample size
      Le16(0), Le16(0), Le16(640), Le16(360),            // frame
      Text("strf"), Le32(40),
      Le32(40), Le32(640), Le32(360),                    // size, width, height
      Le16(1), Le16(24), Text("H264"),                   // planes, bits, codec
      Le32(691200), Zeros(16),                           // image size
      Text("strn"), Le32(6), Text("front"), Zeros(1),
      Text("LIST"), Le32(96), Text("strl"),              // 76 + 20
      Text("strh"), Le32(56),
      Text("auds"), Le32(0xFF), Le32(0),                 // type, format tag, flags
      Le16(0), Le16(0), Le32(0),                         // priority, language, initial frames
      Le32(1024), Le32(48000), Le32(0),                  // scale, rate, start
      Le32(4), Le32(5), Le32(0), Le32(0),                // length, buffer size, quality, sample size
      Zeros(8),                                          // frame
      Text("strf"), Le32(20),
      Le16(0xFF), Le16(2), Le32(48000),                  // tag, channels, sample rate
      Le32(16000), Le16(1024), Le16(16),                 // bytes a second, block alignment, bits
      Le16(2), Hex("11 90"),                             // configuration
      Text("LIST"), Le32(24), Text("INFO"),
      Text("ISFT"), Le32(12), Text("KPZ cam 1.2"), Zeros(1),
      Text("JUNK"), Le32(junk), Zeros(junk),
      Text("JUNK"), Le32(7), Text("ADAS"), Hex("09 08 07"),  // no pad
      Text("LIST"), Le32(4 + 20 + 14 + 12 + 16), Text("movi"),
      Text("00dc"), Le32(11), kKeyFrame, Zeros(1),
      Text("01wb"), Le32(5), Hex("21 10 04 60 8C"), Zeros(1),
      Text("01wb"), Le32(4), Hex("21 10 05 40"),
      Text("00dc"), Le32(8), kFrame1,
      Text("idx1"), Le32(64),
      Text("00dc"), Le32(0x10), Le32(4), Le32(11),       // code, key frame, offset, size
      Text("01wb"), Le32(0x10), Le32(24), Le32(5),
      Text("01wb"), Le32(0x10), Le32(38), Le32(4),
      Text("00dc"), Le32(0), Le32(50), Le32(8),
      Text("JUNK"), Le32(320), Text("a.avi"), Zeros(315),
  });
  // clang-format on
  EXPECT_EQ(Difference(file, expected), "");
}

TEST_F(AviWhole, HevcInAPreSizedFile_IsWrittenFieldByField) {
  ZMVVideoInfo& video = AddVideo(FourCC("hvc1"));
  const ByteVector configuration = Hex("00 00 00 01 40 01 0C 01 FF 00 00 00 01 42 01");
  std::copy(configuration.begin(), configuration.end(), video.abExtraData);
  video.dwExtraDataSize = 15;
  Start(1000);
  EXPECT_EQ(Write(ZMV_MEDIA_VIDEO, Hex("00 00 00 01 26 01 AF"), 0, 40, 0, ZMV_KEY_FRAME), 0);
  EXPECT_EQ(Write(ZMV_MEDIA_VIDEO, Hex("00 00 00 01 02 01"), 40), 0);
  host.presized = 20000;
  const ByteVector file = Finish();

  const uint32_t junk = RandomJunkSize();
  const uint32_t riff = 12 + 216 + 8 + junk + 12 + 30 + 40 + 328;  // up to the fill chunk
  // clang-format off
  const ByteVector expected = Join({
      Text("RIFF"), Le32(riff - 8), Text("AVI "),
      Text("LIST"), Le32(208), Text("hdrl"),             // 68 + 140
      Text("avih"), Le32(56),
      Le32(0), Le32(0), Le32(0),                         // frame time, data rate, granularity
      Le32(0x810), Le32(2), Le32(0),                     // flags, frames, initial frames
      Le32(1), Le32(7), Le32(640), Le32(360),            // streams, buffer size, width, height
      Zeros(16),                                         // reserved
      Text("LIST"), Le32(132), Text("strl"),             // 76 + 56
      Text("strh"), Le32(56),
      Text("vids"), Text("hvc1"), Le32(0),               // type, handler, flags
      Le16(0), Le16(0), Le32(0),                         // priority, language, initial frames
      Le32(1000), Le32(25000), Le32(0),                  // scale, rate, start
      Le32(2), Le32(7), Le32(0), Le32(0),                // length, buffer size, quality, sample size
      Le16(0), Le16(0), Le16(640), Le16(360),            // frame
      Text("strf"), Le32(56),
      Le32(56), Le32(640), Le32(360),                    // size, width, height
      Le16(1), Le16(24), Text("hvc1"),                   // planes, bits, codec
      Le32(691200), Zeros(16),                           // image size
      configuration, Zeros(1),                           // of even length
      Text("JUNK"), Le32(junk), Zeros(junk),
      Text("LIST"), Le32(4 + 16 + 14), Text("movi"),
      Text("00dc"), Le32(7), Hex("00 00 00 01 26 01 AF"), Zeros(1),
      Text("00dc"), Le32(6), Hex("00 00 00 01 02 01"),
      Text("idx1"), Le32(32),
      Text("00dc"), Le32(0x10), Le32(4), Le32(7),        // code, key frame, offset, size
      Text("00dc"), Le32(0), Le32(20), Le32(6),
      Text("JUNK"), Le32(320), Text("a.avi"), Zeros(315),
      Text("JUNK"), Le32(20000 - riff - 8),              // what is left of the file
  });
  // clang-format on
  EXPECT_EQ(Difference(file, expected), "");
}

TEST_F(AviWhole, VideoAndText_IsWrittenFieldByField) {
  NoFill();
  AddVideo(FourCC("MJPG"), 10000).dwBitCount = 16;
  AddText(2000);
  Start();
  EXPECT_EQ(Write(ZMV_MEDIA_TEXT, Text("$GPRMC"), 0), 0);
  EXPECT_EQ(Write(ZMV_MEDIA_VIDEO, Hex("FF D8 FF"), 0, 100, 0, ZMV_KEY_FRAME), 0);
  EXPECT_EQ(Write(ZMV_MEDIA_TEXT, Text("$GPGGA,"), 500), 0);
  const ByteVector file = Finish();

  const uint32_t junk = RandomJunkSize();
  // clang-format off
  const ByteVector expected = Join({
      Text("RIFF"), Le32(static_cast<uint32_t>(file.size()) - 8), Text("AVI "),
      Text("LIST"), Le32(316), Text("hdrl"),             // 68 + 124 + 124
      Text("avih"), Le32(56),
      Le32(0), Le32(0), Le32(0),                         // frame time, data rate, granularity
      Le32(0x810), Le32(1), Le32(0),                     // flags, frames, initial frames
      Le32(2), Le32(7), Le32(640), Le32(360),            // streams, buffer size, width, height
      Zeros(16),                                         // reserved
      Text("LIST"), Le32(116), Text("strl"),
      Text("strh"), Le32(56),
      Text("vids"), Text("MJPG"), Le32(0),               // type, handler, flags
      Le16(0), Le16(0), Le32(0),                         // priority, language, initial frames
      Le32(1000), Le32(10000), Le32(0),                  // scale, rate, start
      Le32(1), Le32(3), Le32(0), Le32(0),                // length, buffer size, quality, sample size
      Le16(0), Le16(0), Le16(640), Le16(360),            // frame
      Text("strf"), Le32(40),
      Le32(40), Le32(640), Le32(360),                    // size, width, height
      Le16(1), Le16(16), Text("MJPG"),                   // planes, bits, codec
      Le32(460800), Zeros(16),                           // image size
      Text("LIST"), Le32(116), Text("strl"),
      Text("strh"), Le32(56),
      Text("txts"), Text("gps "), Le32(0),               // type, handler, flags
      Le16(0), Le16(0), Le32(0),                         // priority, language, initial frames
      Le32(1000), Le32(20000), Le32(0),                  // scale, rate (2 frames in 50 + 50 ms), start
      Le32(2), Le32(7), Le32(0), Le32(0),                // length, buffer size, quality, sample size
      Zeros(8),                                          // frame
      Text("strf"), Le32(40),
      Le32(40), Le32(0), Le32(0),                        // size, no picture
      Le16(1), Le16(24), Le32(0),                        // planes, bits, no codec
      Le32(0), Zeros(16),                                // image size
      Text("JUNK"), Le32(junk), Zeros(junk),
      Text("LIST"), Le32(4 + 14 + 12 + 16), Text("movi"),
      Text("01tx"), Le32(6), Text("$GPRMC"),
      Text("00dc"), Le32(3), Hex("FF D8 FF"), Zeros(1),
      Text("01tx"), Le32(7), Text("$GPGGA,"), Zeros(1),
      Text("idx1"), Le32(48),
      Text("01tx"), Le32(0x10), Le32(4), Le32(6),        // code, key frame, offset, size
      Text("00dc"), Le32(0x10), Le32(18), Le32(3),
      Text("01tx"), Le32(0x10), Le32(30), Le32(7),
      Text("JUNK"), Le32(320), Text("a.avi"), Zeros(315),
  });
  // clang-format on
  EXPECT_EQ(Difference(file, expected), "");
}

}  // namespace
}  // namespace zmv::test

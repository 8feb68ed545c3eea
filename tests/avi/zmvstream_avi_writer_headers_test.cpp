#include "tests/avi/writer_test.h"

namespace zmv::test {
namespace {

using ::testing::Contains;

constexpr size_t kFirstList = 88;

class AviHeaders : public AviWriterTest {};

TEST_F(AviHeaders, Video_IsWrittenFieldByField) {
  ZMVVideoInfo& video = AddVideo(kH264, 29970);
  video.dwWidth = 0x11280;  // only the low half fits the frame rectangle
  video.dwPriority = 0x12345;
  video.dwBitRate = 8000000;
  video.dwExtraDataSize = 8;  // not stored for this codec
  Start();
  const ByteVector expected = Join({
      Text("LIST"),
      Le32(116),
      Text("strl"),  // 76 + 40
      Text("strh"),
      Le32(56),  //
      Text("vids"),
      Text("H264"),  // type, handler
      Le32(0),
      Le16(0x2345),
      Le16(0),  // flags, priority, language
      Le32(0),
      Le32(1000),
      Le32(29970),  // initial frames, scale, rate
      Le32(0),
      Le32(0),
      Le32(0),  // start, length, suggested size
      Le32(0),
      Le32(0),  // quality, sample size
      Le16(0),
      Le16(0),
      Le16(0x1280),
      Le16(360),  // frame
      Text("strf"),
      Le32(40),  //
      Le32(40),
      Le32(0x11280),
      Le32(360),  // size, width, height
      Le16(1),
      Le16(24),
      Text("H264"),  // planes, bits, codec
      Le32(0x11280 * 360 * 3),
      Zeros(16),     // image size
      Text("JUNK"),  //
  });
  EXPECT_EQ(Difference(Part(File(), kFirstList, 128), expected), "");
  EXPECT_EQ(Stream().m_dwMediaType, ZMV_MEDIA_VIDEO);
  EXPECT_EQ(Stream().m_dwStreamNo, 0u);
  EXPECT_EQ(Stream().m_dwScaleHint, 1000u);
  EXPECT_EQ(Stream().m_dwInitRate, 29970u);
  EXPECT_EQ(Stream().m_dwHeaderPos, kFirstList + 20);
}

TEST_F(AviHeaders, Hevc_FormatIsAsLongAsTheHelperSays) {
  ZMVVideoInfo& video = AddVideo(FourCC("hvc1"));
  const ByteVector configuration = Hex("00 00 00 01 40 01 0C 01");
  std::copy(configuration.begin(), configuration.end(), video.abExtraData);
  video.dwExtraDataSize = 8;
  Start();
  // A last byte that is not zero brings two more bytes than the format's own size says.
  EXPECT_EQ(Le32At(File(), kFirstList + 4), 76u + 50);
  EXPECT_EQ(Le32At(File(), kFirstList + 80), 50u);
  EXPECT_EQ(Le32At(File(), kFirstList + 84), 48u);
  const ByteVector behind = Join({configuration, Zeros(2), Text("JUNK")});
  EXPECT_EQ(Difference(Part(File(), kFirstList + 84 + 40, 14), behind), "");
  EXPECT_EQ(Le32At(File(), 16), 68u + 8 + 76 + 50);
}

TEST_F(AviHeaders, Pcm_IsWrittenFieldByField) {
  ZMVAudioInfo& audio = AddAudio();
  audio.dwBlockAlign = 77;
  Start();
  const ByteVector expected = Join({
      Text("LIST"), Le32(92), Text("strl"),  // 76 + 16
      Text("strh"), Le32(56),                //
      Text("auds"), Le32(1),                 // type, format tag
      Le32(0),      Le16(0),  Le16(0),       // flags, priority, language
      Le32(0),      Le32(4),  Le32(192000),  // initial frames, scale, rate
      Le32(0),      Le32(0),  Le32(0),       // start, length, suggested size
      Le32(0),      Le32(4),  Zeros(8),      // quality, sample size, frame
      Text("strf"), Le32(16),                //
      Le16(1),      Le16(2),  Le32(48000),   // tag, channels, sample rate
      Le32(192000), Le16(4),  Le16(16),      // bytes a second, block alignment, bits
      Text("JUNK"),                          //
  });
  EXPECT_EQ(Difference(Part(File(), kFirstList, 104), expected), "");
  EXPECT_EQ(audio.dwBlockAlign, 4u);
  EXPECT_EQ(Stream().m_dwBlockAlign, 4u);
  EXPECT_EQ(Stream().m_dwAudioTag, 1u);
  EXPECT_EQ(Stream().m_dwScaleHint, 8u);
  EXPECT_EQ(Stream().m_dwInitRate, 1536000u);
}

TEST_F(AviHeaders, Aac_OfOddLength_GetsNoPad) {
  ZMVAudioInfo& audio = AddAudio(ZMV_AUDIO_AAC);
  std::memcpy(audio.abExtraData, "\x11\x90\x08", 3);
  audio.dwExtraDataSize = 3;
  Start();
  const ByteVector expected = Join({
      Text("LIST"), Le32(97),        Text("strl"),  // 76 + 21
      Text("strh"), Le32(56),                       //
      Text("auds"), Le32(0xFF),                     // type, format tag
      Le32(0),      Le16(0),         Le16(0),       // flags, priority, language
      Le32(0),      Le32(1024),      Le32(48000),   // initial frames, scale, rate
      Le32(0),      Le32(0),         Le32(0),       // start, length, suggested size
      Le32(0),      Le32(0),         Zeros(8),      // quality, sample size, frame
      Text("strf"), Le32(21),                       //
      Le16(0xFF),   Le16(2),         Le32(48000),   // tag, channels, sample rate
      Le32(16000),  Le16(1024),      Le16(16),      // bytes a second, block alignment, bits
      Le16(3),      Hex("11 90 08"),                // configuration
      Text("JUNK"),                                 // right behind it
  });
  EXPECT_EQ(Difference(Part(File(), kFirstList, 109), expected), "");
  EXPECT_EQ(audio.dwBlockAlign, 1024u);
  EXPECT_EQ(Stream().m_dwBlockAlign, 0u);
}

TEST_F(AviHeaders, Text_IsWrittenFieldByField) {
  AddText(10000).dwFixedRate = 5000;
  Start();
  const ByteVector expected = Join({
      Text("LIST"), Le32(116),    Text("strl"),  // 76 + 40
      Text("strh"), Le32(56),                    //
      Text("txts"), Text("gps "),                // type, handler
      Le32(0),      Le16(0),      Le16(0),       // flags, priority, language
      Le32(0),      Le32(1000),   Le32(10000),   // initial frames, scale, rate
      Le32(0),      Le32(0),      Le32(0),       // start, length, suggested size
      Le32(0),      Le32(0),      Zeros(8),      // quality, sample size, frame
      Text("strf"), Le32(40),                    //
      Le32(40),     Le32(0),      Le32(0),       // size, no picture
      Le16(1),      Le16(24),     Le32(0),       // planes, bits, no codec
      Le32(0),      Zeros(16),                   // image size
      Text("JUNK"),                              //
  });
  EXPECT_EQ(Difference(Part(File(), kFirstList, 128), expected), "");
  EXPECT_EQ(Stream().m_dwInitRate, 10000u);
  EXPECT_EQ(Stream().m_dwFixedRate, 5000u);
  EXPECT_EQ(Stream().m_dwScaleHint, 1000u);
}

TEST_F(AviHeaders, StreamName_EndsWithZerosToAnEvenLength) {
  const std::pair<const char*, ByteVector> cases[] = {
      {"", Join({Text("strn"), Le32(2), Zeros(2)})},
      {"a", Join({Text("strn"), Le32(2), Text("a"), Zeros(1)})},
      {"ab", Join({Text("strn"), Le32(4), Text("ab"), Zeros(2)})},
      {"front", Join({Text("strn"), Le32(6), Text("front"), Zeros(1)})},
      {"rear 1", Join({Text("strn"), Le32(8), Text("rear 1"), Zeros(2)})},
  };
  for (const auto& [name, chunk] : cases) {
    info = {};
    AddVideo();
    AddVideo();
    ByteVector text = Join({Text(name), Zeros(1)});
    info.pStreamName = reinterpret_cast<char*>(text.data());
    Start();
    EXPECT_EQ(Difference(Part(File(), kFirstList + 124, chunk.size() + 4), Join({chunk, Text("LIST")})), "");
    const uint32_t size = 116 + static_cast<uint32_t>(chunk.size());
    EXPECT_EQ(Le32At(File(), kFirstList + 4), size);
    EXPECT_EQ(Le32At(File(), kFirstList + 8 + size + 4), 116u);  // only the first stream has it
    EXPECT_EQ(Le32At(File(), 16), 68u + 8 + size + 124);
    EXPECT_EQ(Find(File(), "strn", 1), File().size());
    Close();
  }
}

TEST_F(AviHeaders, StreamName_WithoutVideo_IsNotWritten) {
  char name[] = "name";
  info.pStreamName = name;
  AddAudio();
  AddText();
  Start();
  EXPECT_EQ(Find(File(), "strn"), File().size());
}

TEST_F(AviHeaders, StreamName_BehindAnOddFormat_StandsRightThere) {
  char name[] = "n";
  info.pStreamName = name;
  ZMVVideoInfo& video = AddVideo(FourCC("hvc1"));
  std::memcpy(video.abExtraData, "\0\0\0\1\x40", 5);
  video.dwExtraDataSize = 5;
  Start();
  const ByteVector behind = Join({Hex("00 00 00 01 40 00"), Text("strn"), Le32(2), Text("n"), Zeros(1)});
  EXPECT_EQ(Difference(Part(File(), kFirstList + 124, behind.size()), behind), "");
  EXPECT_EQ(Le32At(File(), kFirstList + 4), 76u + 46 + 10);
}

TEST_F(AviHeaders, Streams_StandInTheOrderVideoAudioText) {
  for (int i = 0; i < 9; ++i) AddVideo(FourCC("MJPG")).dwHeight = 100 + static_cast<uint32_t>(i);
  AddAudio();
  AddText();
  AddText().dwFourCC = FourCC("sens");
  Start();
  ASSERT_EQ(writer->m_dwStreamCount, 12u);
  for (uint32_t i = 0; i < 12; ++i) {
    EXPECT_EQ(Stream(i).m_dwStreamNo, i);
    EXPECT_EQ(Stream(i).m_dwMediaType, i < 9 ? ZMV_MEDIA_VIDEO : i == 9 ? ZMV_MEDIA_AUDIO : ZMV_MEDIA_TEXT);
    const std::string type = i < 9 ? "vids" : i == 9 ? "auds" : "txts";
    EXPECT_EQ(Difference(Part(File(), Stream(i).m_dwHeaderPos, 4), Text(type)), "");
    if (i < 9) {
      EXPECT_EQ(Difference(Part(File(), Stream(i).m_dwHeaderPos + 54, 2), Le16(100 + i)), "");
    }
  }
  EXPECT_THAT(host.Traces(3), Contains("video header write done index(8) stream index(8)\n"));
  EXPECT_THAT(host.Traces(3), Contains("audio header write done index(0) stream index(9)\n"));
  EXPECT_THAT(host.Traces(3), Contains("text header write done index(1) stream index(11)\n"));
  EXPECT_EQ(StreamHeader(11, 4), FourCC("sens"));
}

TEST_F(AviHeaders, HostileNumbers_AreWrittenAsTheyCome) {
  ZMVVideoInfo& video = AddVideo(FourCC("hvc1"), 0xFFFFFFFF);
  video.dwExtraDataSize = 0xFFFFFFFF;
  video.abExtraData[3] = 1;
  video.dwWidth = video.dwHeight = video.dwBitCount = 0xFFFFFFFF;
  ZMVAudioInfo& audio = AddAudio();
  audio.dwChannels = audio.dwBitsPerSample = audio.dwSampleRate = 0xFFFFFFFF;
  audio.dwExtraDataSize = 0xFFFFFFFF;
  Start();
  EXPECT_EQ(Le32At(File(), kFirstList + 80), 40u + 512);
  EXPECT_EQ(StreamHeader(0, 48), 0u);
  EXPECT_EQ(StreamHeader(0, 52), 0xFFFFFFFFu);
  EXPECT_EQ(audio.dwBlockAlign, static_cast<uint32_t>(-0x1FFFFFFF));
  EXPECT_EQ(Le32At(File(), Find(File(), "strf", 1) + 4), 18u + 512);
}

TEST_F(AviHeaders, FormatThatCannotBeWritten_ReturnsTheStreamsCode) {
  AddVideo();
  ASSERT_EQ(Open(), 0);
  // Header of the file, head of the list, then the format.
  host.Fail(HostCall::kWrite, 3);
  EXPECT_EQ(static_cast<uint32_t>(SetInfo()), ZMV_E_WRITE);
  EXPECT_THAT(host.Traces(1), Contains("err (0x80000013)\n"));
  EXPECT_EQ(writer->m_dwStreamCount, 0u);
}

TEST_F(AviHeaders, FormatThatIsCutShort_IsAFailedWrite) {
  AddVideo();
  ASSERT_EQ(Open(), 0);
  host.file_capacity = 88 + 84 + 20;
  EXPECT_EQ(static_cast<uint32_t>(SetInfo()), ZMV_E_WRITE);
  host.file_capacity = UINT64_MAX;
}

}  // namespace
}  // namespace zmv::test

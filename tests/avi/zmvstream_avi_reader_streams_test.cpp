// Streams: what becomes of their headers and formats.
#include "tests/avi/avi_reader_test.h"

namespace zmv::test {
namespace {

using ::testing::Contains;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Not;

class AviStreams : public AviReaderTest {
 protected:
  uint32_t DescribeStreams(const std::vector<AviStream>& streams, uint32_t frame_time = 0) {
    AviSpec file;
    file.streams = streams;
    file.frame_time = frame_time;
    return Describe(file);
  }
  static AviStream Video(uint32_t rate, uint32_t scale, uint32_t length = 0, uint32_t start = 0) {
    AviStream stream = VideoStream(rate, scale);
    stream.length = length;
    stream.start = start;
    return stream;
  }
};

// ---- Video

TEST_F(AviStreams, Video_IsDescribed) {
  AviStream video = Video(30000, 1001, 300);
  video.suggested_size = 70000;
  video.format = Join({BitmapFormat("HEVC", 1280, 720), Bytes({0, 0, 0, 1, 0x40, 1})});
  ASSERT_EQ(DescribeStreams({video}), 0u);
  const ZMVVideoInfo& info = info_->m_Video[0];
  EXPECT_EQ(info.dwFourCC, FourCC("HEVC"));
  EXPECT_EQ(info.dwWidth, 1280u);
  EXPECT_EQ(info.dwHeight, 720u);
  EXPECT_EQ(info.dwBitCount, 24u);
  EXPECT_EQ(info.dwFrames, 300u);
  EXPECT_EQ(info.dwBufferSize, 70000u);
  EXPECT_EQ(info.dwFrameRate, 29970u);
  EXPECT_EQ(info.dwExtraDataSize, 6u);
  EXPECT_EQ(info.abExtraData[4], 0x40);
  EXPECT_EQ(info.dwDuration, 10010u);
  EXPECT_EQ(info_->dwDuration, 10010u);
  const AVIReaderStream& stream = Stream(0);
  EXPECT_EQ(stream.m_dwMediaType, ZMV_MEDIA_VIDEO);
  EXPECT_EQ(stream.m_dwFourCC, FourCC("HEVC"));
  EXPECT_EQ(stream.m_dwScale, 1001u);
  EXPECT_EQ(stream.m_dwRate, 30000u);
  EXPECT_EQ(stream.m_dwLength, 300u);
  EXPECT_EQ(stream.m_dwDuration, 10010u);
  EXPECT_NE(stream.m_hStream, stream_);
  EXPECT_THAT(host_.Traces(2), Contains("video fourcc(43564548 : HEVC)\n"));
}

TEST_F(AviStreams, FrameRates_AreTruncated) {
  ASSERT_EQ(DescribeStreams({Video(30000, 1001), Video(1000000, 33367), Video(25000, 1000)}), 0u);
  EXPECT_EQ(info_->m_Video[0].dwFrameRate, 29970u);
  EXPECT_EQ(info_->m_Video[1].dwFrameRate, 29969u);
  EXPECT_EQ(info_->m_Video[2].dwFrameRate, 25000u);
}

TEST_F(AviStreams, StartTime_IsInMilliseconds) {
  ASSERT_EQ(DescribeStreams({Video(30000, 1001, 0, 7), Video(25, 1, 0, 3)}), 0u);
  EXPECT_EQ(Stream(0).m_dwStartTime, 233u);
  EXPECT_EQ(Stream(1).m_dwStartTime, 120u);
}

TEST_F(AviStreams, VideoWithoutRate_TakesTheMainHeadersFrameTime) {
  for (const AviStream& video : {Video(0, 0, 50), Video(0, 7, 50), Video(7, 0, 50)}) {
    ASSERT_EQ(DescribeStreams({video}, 40000), 0u);
    EXPECT_EQ(Stream(0).m_dwScale, 40000u);
    EXPECT_EQ(Stream(0).m_dwRate, 1000000u);
    EXPECT_EQ(info_->m_Video[0].dwFrameRate, 25000u);
    EXPECT_EQ(info_->m_Video[0].dwDuration, 2000u);
  }
}

TEST_F(AviStreams, VideoWithoutAnyRate_Is25ASecond) {
  ASSERT_EQ(DescribeStreams({Video(0, 0, 50)}), 0u);
  EXPECT_EQ(Stream(0).m_dwScale, 1u);
  EXPECT_EQ(Stream(0).m_dwRate, 25u);
  EXPECT_EQ(info_->m_Video[0].dwDuration, 2000u);
}

TEST_F(AviStreams, LargestPicture_IsAtMostAMebibyte) {
  AviStream small = VideoStream(), large = VideoStream();
  small.suggested_size = 0x100000;
  large.suggested_size = 0x100001;
  ASSERT_EQ(DescribeStreams({small, large}), 0u);
  EXPECT_EQ(info_->m_Video[0].dwBufferSize, 0x100000u);
  EXPECT_EQ(info_->m_Video[1].dwBufferSize, 0x100000u);
}

TEST_F(AviStreams, Overlay_IsNoStream) {
  AviStream overlay = VideoStream(25000, 1000, "DXSB");
  overlay.format = Join({BitmapFormat("DXSB", 7, 7), ByteVector(6, 1)});
  ASSERT_EQ(DescribeStreams({overlay, PcmStream(), VideoStream()}), 0u);
  EXPECT_THAT(Media(), ElementsAre(2, 1));
  EXPECT_EQ(Stream(1).m_dwStreamNo, 1u);
  EXPECT_EQ(reader_->m_dwFirstVideo, 1u);
  EXPECT_EQ(info_->dwVideoCount, 1u);
  EXPECT_EQ(info_->m_Video[0].dwFourCC, FourCC("H264"));
  EXPECT_EQ(info_->m_Video[0].dwExtraDataSize, 0u) << "nothing is left of the one before";
  EXPECT_THAT(host_.Traces(2), Not(Contains(::testing::HasSubstr("DXSB"))));
}

TEST_F(AviStreams, OverlayAlone_LeavesNoTrace) {
  ASSERT_EQ(DescribeStreams({VideoStream(25000, 1000, "DXSB")}), 0u);
  EXPECT_THAT(Media(), IsEmpty());
  EXPECT_EQ(info_->dwVideoCount, 0u);
  EXPECT_EQ(info_->m_Video[0].dwFourCC, 0u);
  EXPECT_EQ(reader_->m_bHasVideo, 0);
}

// ---- Audio

TEST_F(AviStreams, Pcm_IsDescribed) {
  AviStream audio = PcmStream();  // scale 4, rate 192000, sample size 4
  audio.length = 192000;
  audio.suggested_size = 20000;
  ASSERT_EQ(DescribeStreams({audio}), 0u);
  const ZMVAudioInfo& info = info_->m_Audio;
  EXPECT_EQ(info.dwFormat, 1u);
  EXPECT_EQ(info.dwChannels, 2u);
  EXPECT_EQ(info.dwSampleRate, 48000u);
  EXPECT_EQ(info.dwBitsPerSample, 16u);
  EXPECT_EQ(info.dwBlockAlign, 4u);
  EXPECT_EQ(info.dwBitRate, 1536000u);
  EXPECT_EQ(info.dwBufferSize, 20000u);
  EXPECT_EQ(info.dwFrames, 192000u);
  EXPECT_EQ(info.bValid, 1);
  EXPECT_EQ(info.dwSampleBlock, 4u);
  EXPECT_EQ(info.dwSamplesPerFrame, 0u);
  EXPECT_EQ(info.dwDuration, 1000u);  // 192000 / 4 units of 4 / 192000 s
  EXPECT_EQ(Stream(0).m_dwSampleSize, 4u);
}

TEST_F(AviStreams, CompressedAudio_HasFramesOfAtMost8192Bytes) {
  AviStream audio = AacStream();  // scale 1024, rate 48000
  audio.length = 94;
  audio.suggested_size = 20000;
  ASSERT_EQ(DescribeStreams({audio}), 0u);
  EXPECT_EQ(info_->m_Audio.dwBufferSize, 8192u);
  EXPECT_EQ(info_->m_Audio.dwSampleBlock, 0u);
  EXPECT_EQ(info_->m_Audio.dwBlockAlign, 1024u);
  EXPECT_EQ(info_->m_Audio.dwExtraDataSize, 2u);
  EXPECT_EQ(info_->m_Audio.abExtraData[0], 0x11);
  EXPECT_EQ(info_->m_Audio.dwDuration, 2005u);  // 94 x 1024000 / 48000 = 2005.33
  audio.suggested_size = 8191;
  ASSERT_EQ(DescribeStreams({audio}), 0u);
  EXPECT_EQ(info_->m_Audio.dwBufferSize, 8191u);
}

TEST_F(AviStreams, AudioWithoutRate_Is25ASecond) {
  AviStream audio = AacStream();
  audio.rate = 0;
  audio.length = 50;
  ASSERT_EQ(DescribeStreams({audio}, 40000), 0u);
  EXPECT_EQ(Stream(0).m_dwScale, 1u);
  EXPECT_EQ(Stream(0).m_dwRate, 25u);
  EXPECT_EQ(info_->m_Audio.dwDuration, 2000u);
}

TEST_F(AviStreams, LengthThatIsNoMultipleOfTheSampleSize_IsCutBeforeItIsScaled) {
  AviStream audio = PcmStream();
  audio.scale = 1;
  audio.rate = 1;
  audio.length = 11;
  ASSERT_EQ(DescribeStreams({audio}), 0u);
  EXPECT_EQ(info_->m_Audio.dwDuration, 2000u);
}

// ---- Text and others

TEST_F(AviStreams, Text_IsDescribed) {
  AviStream text = TextStream(10000);
  text.length = 12;
  text.suggested_size = 345;
  ASSERT_EQ(DescribeStreams({text, text}), 0u);
  EXPECT_THAT(Media(), ElementsAre(3, 3));
  EXPECT_EQ(info_->dwTextCount, 2u);
  for (const ZMVTextInfo& info : info_->m_Text) {
    EXPECT_EQ(info.dwFrames, 12u);
    EXPECT_EQ(info.dwBufferSize, 345u);
  }
  EXPECT_EQ(info_->dwDuration, 1200u);
}

TEST_F(AviStreams, TextWithoutRate_DoesNotSetTheDuration) {
  AviStream text = TextStream(0);
  text.length = 12;
  text.start = 5;
  ASSERT_EQ(DescribeStreams({text, Video(25000, 1000, 10)}), 0u);
  EXPECT_EQ(Stream(0).m_dwDuration, 0u);
  EXPECT_EQ(Stream(0).m_dwStartTime, 0u);
  EXPECT_EQ(Stream(0).m_dwRate, 0u);
  EXPECT_EQ(info_->dwDuration, 400u);
}

TEST_F(AviStreams, OtherTypes_AreStreamsOfNoMedium) {
  AviStream other = VideoStream();
  other.type = "iavs";
  ASSERT_EQ(DescribeStreams({other, VideoStream()}), 0u);
  EXPECT_THAT(Media(), ElementsAre(0, 1));
  EXPECT_EQ(reader_->m_dwFirstVideo, 1u);
  EXPECT_EQ(info_->dwVideoCount, 1u);
}

// ---- More streams than there is room for

TEST_F(AviStreams, StreamsBeyondTwelve_AreIgnored) {
  std::vector<AviStream> streams(13, TextStream());
  streams[12] = VideoStream();
  ASSERT_EQ(DescribeStreams(streams), 0u);
  EXPECT_EQ(reader_->m_dwStreamCount, 12u);
  EXPECT_THAT(Media(), Each(ZMV_MEDIA_TEXT));
  EXPECT_EQ(info_->dwTextCount, 2u);
  EXPECT_EQ(info_->dwVideoCount, 0u);
  EXPECT_EQ(reader_->m_bHasVideo, 0);
}

TEST_F(AviStreams, SecondAudioStream_IsReadableButNotDescribed) {
  AviStream first = PcmStream(), second = AacStream();
  first.length = 400;
  second.length = 4000;
  ASSERT_EQ(DescribeStreams({first, second}), 0u);
  EXPECT_THAT(Media(), ElementsAre(2, 2));
  EXPECT_EQ(info_->dwAudioCount, 1u);
  EXPECT_EQ(info_->m_Audio.dwFormat, 1u);
  EXPECT_EQ(info_->m_Audio.dwFrames, 400u);
  EXPECT_EQ(info_->m_Audio.dwDuration, 2u);
  EXPECT_EQ(Stream(1).m_dwDuration, 85333u);
  EXPECT_EQ(info_->dwDuration, 85333u) << "it counts for the file";
  EXPECT_EQ(reader_->m_dwFirstAudio, 0u);
}

TEST_F(AviStreams, TenthVideoStream_IsReadableButNotDescribed) {
  std::vector<AviStream> streams;
  for (uint32_t i = 1; i <= 10; ++i) streams.push_back(Video(25, 1, i));
  streams.push_back(VideoStream(25000, 1000, "DXSB"));
  ASSERT_EQ(DescribeStreams(streams), 0u);
  EXPECT_EQ(reader_->m_dwStreamCount, 10u);
  EXPECT_EQ(info_->dwVideoCount, 9u);
  for (uint32_t i = 0; i < 9; ++i) {
    EXPECT_EQ(info_->m_Video[i].dwFrames, i + 1);
    EXPECT_EQ(info_->m_Video[i].dwDuration, (i + 1) * 40);
  }
  EXPECT_EQ(Stream(9).m_dwLength, 10u);
  EXPECT_EQ(info_->dwDuration, 400u);
  EXPECT_EQ(info_->m_Text[0].dwFrames, 0u) << "nothing is written behind the last description";
}

TEST_F(AviStreams, ThirdTextStream_IsReadableButNotDescribed) {
  AviStream text = TextStream();
  text.length = 3;
  ASSERT_EQ(DescribeStreams({text, text, text}), 0u);
  EXPECT_EQ(info_->dwTextCount, 2u);
  EXPECT_EQ(Stream(2).m_dwLength, 3u);
  EXPECT_EQ(info_->pStreamName, nullptr);
}

// ---- Lengths

TEST_F(AviStreams, LengthZero_IsCounted) {
  AviSpec file = SmallFile();
  file.streams[0].length = 0;
  file.streams[1].length = 0;
  ASSERT_EQ(Describe(file), 0u);
  EXPECT_EQ(Stream(0).m_dwLength, 2u);
  EXPECT_EQ(Stream(1).m_dwLength, 8u);
  EXPECT_EQ(info_->m_Video[0].dwDuration, 80u);
}

TEST_F(AviStreams, LargestNumbers_SaturateAndDoNotTrap) {
  AviStream video = VideoStream(1, 0xFFFFFFFF);
  video.length = video.start = video.suggested_size = 0xFFFFFFFF;
  AviStream audio = PcmStream();
  audio.scale = audio.length = 0xFFFFFFFF;
  audio.rate = audio.sample_size = 1;
  ASSERT_EQ(DescribeStreams({video, audio}), 0u);
  EXPECT_EQ(Stream(0).m_dwStartTime, 0xFFFFFFFFu);
  EXPECT_EQ(info_->dwDuration, 0xFFFFFFFFu);
  EXPECT_EQ(info_->m_Video[0].dwFrameRate, 0u);
}

// ---- Where reading begins

TEST_F(AviStreams, ReadingBeginsAtTheFirstEntry_OrAtTheFirstChunk) {
  AviSpec file = SmallFile();
  file.streams.push_back(TextStream());
  ASSERT_EQ(Describe(file), 0u);
  EXPECT_EQ(reader_->m_dwDataPos, 448u);  // 124 bytes further than without text
  EXPECT_EQ(Stream(0).m_dwPos, 448u);
  EXPECT_EQ(Stream(1).m_dwPos, 448u + 18);
  EXPECT_EQ(Stream(2).m_dwPos, 448u) << "no entries";
  for (uint32_t i = 0; i < 3; ++i) {
    EXPECT_EQ(ZMVStreamBuf_Pos(Stream(i).m_hStream, Stream(i).m_dwIndex), Stream(i).m_dwPos) << i;
    EXPECT_EQ(Stream(i).m_dwIndexCur, 0u);
  }
}

// ---- Faults

TEST_F(AviStreams, FileThatCannotBeOpenedAgain_FailsWithoutAStream) {
  Load(BuildAvi(SmallFile()));
  host_.Fail(HostCall::kOpen, 1);
  EXPECT_EQ(GetInfo(), ZMV_E_OPEN);
  EXPECT_EQ(reader_->m_dwStreamCount, 0u);
  EXPECT_THAT(host_.Traces(2), Contains("AVIReaderOpen - ZMVStreamBuf_Dup error!!!\n"));
  EXPECT_EQ(GetInfo(), 0u);
}

TEST_F(AviStreams, CursorThatCannotBeHad_FailsWithoutAStream) {
  // The stream record, then the duplicate's handle and file record, then its cursor.
  AviSpec file;
  file.streams = {VideoStream()};
  bool seen = false;
  for (uint64_t nth = 1; !seen && nth < 10; ++nth) {
    Load(BuildAvi(file));
    host_.ClearRecords();
    host_.Fail(HostCall::kMalloc, nth);
    EXPECT_EQ(GetInfo(), ZMV_E_MEMORY) << nth;
    EXPECT_EQ(reader_->m_dwStreamCount, 0u);
    const std::vector<std::string> lines = host_.Traces(2);
    seen = std::count(lines.begin(), lines.end(), "AVIReaderOpen - ZMVStreamBuf_Index error!!!\n") != 0;
  }
  EXPECT_TRUE(seen);
}

}  // namespace
}  // namespace zmv::test

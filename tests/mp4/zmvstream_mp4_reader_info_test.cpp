#include <cstring>

#include "mp4/mp4_reader.h"
#include "tests/mp4/reader_test.h"

namespace zmv::test {
namespace {

using ::testing::Contains;

class ReaderInfo : public ReaderTest {
 protected:
  static TrackSpec Filled(TrackSpec track, bool sync = false) {
    track.frames = {Unit(1, 4)};
    if (sync) track.sync = {{1}};
    return track;
  }
  static ByteVector Extra(const ZMVVideoInfo& video) {
    return ByteVector(video.abExtraData, video.abExtraData + video.dwExtraDataSize);
  }
};

const ByteVector kStartCodedSets = Join({
    Bytes({0, 0, 0, 1}), Bytes({0x67, 100, 0, 0x1E, 0xAC, 0xD9}),  // SPS
    Bytes({0, 0, 0, 1}), Bytes({0x68, 0xEE, 0x3C, 0x80}),          // PPS
});

// ---- Video

TEST_F(ReaderInfo, FrameRate_ComesFromWholeMilliseconds) {
  TrackSpec track = VideoTrack();
  track.duration = 10000;
  track.constant_size = 1;
  track.sample_count = 300;
  ASSERT_EQ(Describe(BuildMp4({track})), 0u);
  EXPECT_EQ(info_->m_Video[0].dwFrames, 300u);
  EXPECT_EQ(info_->m_Video[0].dwFrameRate, 30303u);
  EXPECT_THAT(host_.Traces(2), Contains("[Reader] FrameRate 30303\n"));
}

TEST_F(ReaderInfo, FrameRate_IsZeroWithoutSamplesOrBelowAMillisecond) {
  TrackSpec track = VideoTrack();
  track.duration = 10000;
  ASSERT_EQ(Describe(BuildMp4({track})), 0u);
  EXPECT_EQ(info_->m_Video[0].dwFrameRate, 0u);
  track.duration = 2;
  track.constant_size = 1;
  track.sample_count = 3;
  ASSERT_EQ(Describe(BuildMp4({track})), 0u);
  EXPECT_EQ(info_->m_Video[0].dwFrameRate, 0u);
}

TEST_F(ReaderInfo, Video_IsDescribed) {
  TrackSpec track = Filled(VideoTrack());
  track.entries = {VideoEntry("avc1", Join({Box("avcC", AvcConfig()), Btrt(22017, 8000000, 6000000)}), 1920, 1080)};
  track.time_scale = 90000;
  track.duration = 180000;
  ASSERT_EQ(Describe(BuildMp4({track})), 0u);
  const ZMVVideoInfo& video = info_->m_Video[0];
  EXPECT_EQ(info_->m_dwFileType, 1u);
  EXPECT_EQ(info_->dwVideoCount, 1u);
  EXPECT_EQ(video.dwFourCC, FourCC("AVC1"));
  EXPECT_EQ(video.dwWidth, 1920u);
  EXPECT_EQ(video.dwHeight, 1080u);
  EXPECT_EQ(video.dwBitRate, 8000000u);
  EXPECT_EQ(video.dwBufferSize, 22017u);
  EXPECT_EQ(video.dwDuration, 2000u);
  EXPECT_EQ(video.dwFrames, 1u);
  EXPECT_EQ(Extra(video), kStartCodedSets);
  EXPECT_EQ(video.dwSpherical, 0u);
  EXPECT_EQ(Track(0).m_pConfig, nullptr);
}

TEST_F(ReaderInfo, Codes_DecideAboutTheConversion) {
  struct Case {
    int object_type;
    uint32_t profile;
    const char* code;
  };
  for (const Case& sample : {Case{0, 77, "H264"}, Case{0, 100, "AVC1"}, Case{0xF1, 100, "AVC1"}}) {
    TrackSpec track = Filled(VideoTrack());
    ByteVector children = Box("avcC", AvcConfig(static_cast<int>(sample.profile)));
    if (sample.object_type != 0) Append(children, Esds(sample.object_type, AvcConfig()));
    track.entries = {VideoEntry("avc1", children)};
    ASSERT_EQ(Describe(BuildMp4({track})), 0u);
    EXPECT_EQ(std::memcmp(&info_->m_Video[0].dwFourCC, sample.code, 4), 0);
    EXPECT_EQ(Extra(info_->m_Video[0]).at(3), 1) << sample.code;
  }
  // Another codec's configuration stays as it is.
  TrackSpec other = Filled(VideoTrack());
  other.entries = {VideoEntry("mp4v", Esds(0x20, AvcConfig()))};
  ASSERT_EQ(Describe(BuildMp4({other})), 0u);
  EXPECT_EQ(Extra(info_->m_Video[0]), AvcConfig());
}

TEST_F(ReaderInfo, X264_PassesForH264AndLowerCaseDoesNot) {
  for (const char* code : {"AVC1", "avc1", "H264", "X264"}) {
    uint32_t value = 0;
    std::memcpy(&value, code, 4);
    EXPECT_TRUE(mp4::reader::IsH264(value)) << code;
  }
  for (const char* code : {"h264", "x264", "AVC2", "Avc1", "H265", "MP4V"}) {
    uint32_t value = 0;
    std::memcpy(&value, code, 4);
    EXPECT_FALSE(mp4::reader::IsH264(value)) << code;
  }
}

TEST_F(ReaderInfo, Hevc_IsDescribed) {
  const ByteVector record = Join({
      Bytes({1, 1, 0x60, 0, 0, 0, 0x90, 0, 0, 0, 0, 0, 93, 0xF0, 0, 0xFC, 0xFD, 0xF8, 0xF8, 0, 0, 0x0F}),
      Bytes({3}),                                      // arrays
      Bytes({0xA0, 0, 1, 0, 4, 0x40, 1, 0x0C, 1}),     // VPS
      Bytes({0xA1, 0, 1, 0, 4, 0x42, 1, 1, 1}),        // SPS
      Bytes({0xA2, 0, 1, 0, 4, 0x44, 1, 0xC1, 0x73}),  // PPS
  });
  for (const char* entry : {"hvc1", "hev1"}) {
    TrackSpec track = Filled(VideoTrack());
    track.entries = {VideoEntry(entry, Box("hvcC", record))};
    ASSERT_EQ(Describe(BuildMp4({track})), 0u);
    EXPECT_EQ(info_->m_Video[0].dwFourCC, FourCC("H265"));
    EXPECT_EQ(Extra(info_->m_Video[0]), Join({StartCoded(Bytes({0x40, 1, 0x0C, 1})), StartCoded(Bytes({0x42, 1, 1, 1})),
                                              StartCoded(Bytes({0x44, 1, 0xC1, 0x73}))}));
  }
}

TEST_F(ReaderInfo, Configuration_IsCutToItsRoom) {
  const ByteVector config = Unit(3, 600);
  TrackSpec video = Filled(VideoTrack(1));
  video.entries = {VideoEntry("mp4v", Esds(0x20, config))};
  TrackSpec audio = Filled(AudioTrack(2));
  audio.entries = {AudioEntry("mp4a", Esds(0x40, config))};
  ASSERT_EQ(Describe(BuildMp4({video, audio})), 0u);
  EXPECT_EQ(Extra(info_->m_Video[0]), ByteVector(config.begin(), config.begin() + 512));
  EXPECT_EQ(info_->m_Audio.dwExtraDataSize, 512u);
}

TEST_F(ReaderInfo, HevcConfiguration_IsCutToItsRoomBeforeItIsConverted) {
  const ByteVector record = Join({
      Bytes({1, 1, 0x60, 0, 0, 0, 0x90, 0, 0, 0, 0, 0, 93, 0xF0, 0, 0xFC, 0xFD, 0xF8, 0xF8, 0, 0, 0x0F}),
      Bytes({3}),                                   // arrays
      Bytes({0xA0, 0, 1, 0, 4, 0x40, 1, 0x0C, 1}),  // VPS
      Bytes({0xA1, 0, 1, 0, 4, 0x42, 1, 1, 1}),     // SPS
      Bytes({0xA2, 0, 1, 2, 88}), Unit(0x44, 600),  // PPS of 600 bytes, which ends behind byte 512
  });
  TrackSpec track = Filled(VideoTrack());
  track.entries = {VideoEntry("hvc1", Box("hvcC", record))};
  ASSERT_EQ(Describe(BuildMp4({track})), 0u);
  EXPECT_EQ(Extra(info_->m_Video[0]),
            Join({StartCoded(Bytes({0x40, 1, 0x0C, 1})), StartCoded(Bytes({0x42, 1, 1, 1}))}));
}

TEST_F(ReaderInfo, BufferSizes_AreCapped) {
  TrackSpec video = Filled(VideoTrack(1));
  video.entries = {VideoEntry("avc1", Btrt(0x100001, 1, 1))};
  TrackSpec audio = Filled(AudioTrack(2));
  audio.entries = {AudioEntry("mp4a", Esds(0x40, {}, 8193))};
  TrackSpec text = Filled(TextTrack(3));
  ASSERT_EQ(Describe(BuildMp4({video, audio, text})), 0u);
  EXPECT_EQ(info_->m_Video[0].dwBufferSize, 0x100000u);
  EXPECT_EQ(info_->m_Audio.dwBufferSize, 8192u);
}

// ---- Audio and text

TEST_F(ReaderInfo, Audio_IsDescribed) {
  TrackSpec track = Filled(AudioTrack());
  track.duration = 480;
  ASSERT_EQ(Describe(BuildMp4({track})), 0u);
  const ZMVAudioInfo& audio = info_->m_Audio;
  EXPECT_EQ(audio.dwFormat, ZMV_AUDIO_AAC);
  EXPECT_EQ(audio.dwSampleRate, 48000u);
  EXPECT_EQ(audio.dwChannels, 2u);
  EXPECT_EQ(audio.dwBitsPerSample, 16u);
  EXPECT_EQ(audio.dwBitRate, 128000u);
  EXPECT_EQ(audio.dwBufferSize, 1536u);
  EXPECT_EQ(audio.dwDuration, 480u);
  EXPECT_EQ(audio.dwFrames, 1u);
  EXPECT_EQ(audio.bValid, 1);
  ASSERT_EQ(audio.dwExtraDataSize, 2u);
  EXPECT_EQ(audio.abExtraData[0], 0x11);
  EXPECT_EQ(audio.abExtraData[1], 0x90);
}

TEST_F(ReaderInfo, Text_TakesItsCodeFromTheHandlerName) {
  ASSERT_EQ(Describe(BuildMp4({Filled(TextTrack())})), 0u);
  EXPECT_EQ(info_->m_Text[0].dwFourCC, FourCC("GGPS"));
  EXPECT_EQ(info_->m_Text[0].dwFrames, 1u);
  EXPECT_EQ(info_->m_Text[0].dwBitRate, 0u);
}

TEST_F(ReaderInfo, TextWithAKnownEntry_TakesItsCodeAndItsBufferSizeFromThere) {
  TrackSpec track = Filled(TextTrack());
  track.entries = {VideoEntry("mp4v", Btrt(0x7FFFFFFF, 2, 3))};
  ASSERT_EQ(Describe(BuildMp4({track})), 0u);
  EXPECT_EQ(info_->m_Text[0].dwFourCC, FourCC("MP4V"));
  EXPECT_EQ(info_->m_Text[0].dwBufferSize, 0x7FFFFFFFu);  // not capped
  EXPECT_EQ(info_->m_Text[0].dwBitRate, 3u);
}

// ---- The file

TEST_F(ReaderInfo, Duration_IsThatOfTheLongestTrack) {
  TrackSpec video = Filled(VideoTrack(1));
  video.duration = 10000;
  TrackSpec audio = Filled(AudioTrack(2));
  audio.duration = 10005;
  FileSpec file;
  file.movie_header = Mvhd(1000, 77);
  ASSERT_EQ(Describe(BuildMp4({video, audio}, file)), 0u);
  EXPECT_EQ(info_->dwDuration, 10005u);
  EXPECT_EQ(reader_->m_dwDuration, 10005u);
  EXPECT_THAT(host_.Traces(2), Contains("TotalRange(10005) Duration(77)\n"));
}

TEST_F(ReaderInfo, DurationOfTheMovie_StandsInForTracksWithout) {
  FileSpec file;
  file.movie_header = Mvhd(1000, 5000);
  ASSERT_EQ(Describe(BuildMp4({Filled(VideoTrack())}, file)), 0u);
  EXPECT_EQ(info_->dwDuration, 5000u);
  EXPECT_EQ(info_->m_Video[0].dwDuration, 0u);
}

TEST_F(ReaderInfo, Durations_AreSinglePrecision) {
  TrackSpec track = Filled(VideoTrack());
  track.duration = 16777217;
  ASSERT_EQ(Describe(BuildMp4({track})), 0u);
  EXPECT_EQ(info_->m_Video[0].dwDuration, 16777216u);
}

TEST_F(ReaderInfo, TimeScaleZero_GivesDurationZero) {
  TrackSpec track = Filled(VideoTrack());
  track.time_scale = 0;
  track.duration = 500;
  ASSERT_EQ(Describe(BuildMp4({track})), 0u);
  EXPECT_EQ(info_->dwDuration, 0u);
}

TEST_F(ReaderInfo, SecondCall_GivesTheSameRecordAndStartsOver) {
  TrackSpec video = Filled(VideoTrack(1), true);
  video.duration = 90000;
  video.time_scale = 90000;
  FileSpec file;
  file.before_moov = Box("AIDD", {Be32(6)});
  ASSERT_EQ(Describe(BuildMp4({video, Filled(AudioTrack(2)), Filled(TextTrack(3))}, file)), 0u);
  const ZMVFileInfo first = *info_;
  const uint64_t blocks = host_.LiveBlocks();
  ASSERT_EQ(Read(ZMV_MEDIA_AUDIO).code, 0u);
  for (int i = 0; i < 3; ++i) {
    ASSERT_EQ(GetInfo(), 0u);
    EXPECT_EQ(std::memcmp(&first, info_.get(), sizeof first), 0);
    EXPECT_EQ(CursorsInUse(), 14u);
    EXPECT_EQ(host_.LiveBlocks(), blocks);
  }
  EXPECT_EQ(Read(ZMV_MEDIA_AUDIO).data, Unit(1, 4));
}

TEST_F(ReaderInfo, InputsStay_AndOldDescriptionsGo) {
  uint8_t header[4] = {};
  std::memset(info_.get(), 0xEE, sizeof *info_);
  info_->pExtraHeader = header;
  info_->dwExtraHeaderSize = 4;
  ASSERT_EQ(Describe(BuildMp4({Filled(VideoTrack())})), 0u);
  EXPECT_EQ(info_->pExtraHeader, header);
  EXPECT_EQ(info_->dwExtraHeaderSize, 4u);
  EXPECT_EQ(info_->dwTimeScale, 0u);
  EXPECT_EQ(info_->dwAudioCount, 0u);
  EXPECT_EQ(info_->m_Video[0].dwPriority, 0u);
  EXPECT_EQ(info_->m_Video[0].dwSpherical, 0u);
}

TEST_F(ReaderInfo, TracksBeyondTheRecord_AreReadableButNotDescribed) {
  TrackSpec second = AudioTrack(2);
  second.frames = {Unit(9, 6)};
  ASSERT_EQ(Describe(BuildMp4({Filled(AudioTrack(1)), second})), 0u);
  EXPECT_EQ(info_->dwAudioCount, 1u);
  EXPECT_EQ(reader_->m_dwCurAudio, 0u);
  EXPECT_EQ(Read(ZMV_MEDIA_AUDIO, 100, 1).data, Unit(9, 6));
  ASSERT_EQ(Describe(BuildMp4({Filled(TextTrack(1)), Filled(TextTrack(2)), Filled(TextTrack(3))})), 0u);
  EXPECT_EQ(info_->dwTextCount, 2u);
}

TEST_F(ReaderInfo, CurrentTracks_AreTheFirstOfTheirKind) {
  ASSERT_EQ(
      Describe(BuildMp4({Filled(TextTrack(1)), Filled(AudioTrack(2)), Filled(VideoTrack(3)), Filled(AudioTrack(4))})),
      0u);
  EXPECT_EQ(reader_->m_dwCurText, 0u);
  EXPECT_EQ(reader_->m_dwCurAudio, 1u);
  EXPECT_EQ(reader_->m_dwCurVideo, 2u);
  EXPECT_EQ(reader_->m_bHasVideo + reader_->m_bHasAudio + reader_->m_bHasText, 3);
}

// ---- Cursors

TEST_F(ReaderInfo, Cursors_AreFourOrFiveForATrackAndOneForTheWalk) {
  struct Case {
    std::vector<TrackSpec> tracks;
    uint32_t code;
    uint32_t cursors;
  };
  auto video = [](uint32_t id) { return Filled(VideoTrack(id), true); };
  auto plain = [](uint32_t id) { return Filled(VideoTrack(id)); };
  const TrackSpec audio = Filled(AudioTrack(20));
  const TrackSpec text = Filled(TextTrack(21));
  const Case cases[] = {
      {{video(1), audio, text}, 0, 14},
      {{video(1), video(2), audio, text}, 0, 19},
      {{video(1), video(2), video(3), audio}, 0, 20},
      {{video(1), video(2), video(3), audio, text}, ZMV_E_MEMORY, 0},
      {{video(1), video(2), video(3), video(4)}, ZMV_E_MEMORY, 0},
      {{plain(1), plain(2), plain(3), plain(4), plain(5)}, ZMV_E_MEMORY, 0},
  };
  for (const Case& sample : cases) {
    EXPECT_EQ(Describe(BuildMp4(sample.tracks)), sample.code);
    if (sample.code == 0) {
      EXPECT_EQ(CursorsInUse(), sample.cursors);
    } else {
      EXPECT_TRUE(host_.Traced("[Reader]\t\tMP4ReaderParseStbl - ZMVStreamBuf_Index error!!!\n"));
    }
  }
}

TEST_F(ReaderInfo, PayloadStreamThatCannotBeOpened_FailsWithItsMessage) {
  Load(BuildMp4({Filled(AudioTrack())}));
  host_.Fail(HostCall::kOpen, 1);
  EXPECT_EQ(GetInfo(), ZMV_E_OPEN);
  EXPECT_THAT(host_.Traces(1), Contains("[Reader]\t\tMP4FReaderGetInfo - ZMVStreamBuf_Dup error!!!\n"));
  EXPECT_EQ(reader_->m_pTrack[0], nullptr);
  EXPECT_EQ(GetInfo(), 0u);
}

TEST_F(ReaderInfo, PayloadCursorThatCannotBeTaken_FailsWithItsMessage) {
  Load(BuildMp4({Filled(AudioTrack())}));
  const uint64_t before = host_.Count(HostCall::kMalloc);
  ASSERT_EQ(GetInfo(), 0u);
  const uint64_t needed = host_.Count(HostCall::kMalloc) - before;
  host_.Fail(HostCall::kMalloc, needed);
  EXPECT_EQ(GetInfo(), ZMV_E_MEMORY);
  EXPECT_THAT(host_.Traces(1), Contains("[Reader]\t\tMP4FReaderGetInfo - ZMVStreamBuf_Index error!!!\n"));
}

}  // namespace
}  // namespace zmv::test

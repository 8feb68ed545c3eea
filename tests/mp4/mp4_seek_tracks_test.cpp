// Seeks of several tracks: who leads, where the others go, and what is read afterwards.
#include "facade/zmvstream_reader.h"
#include "tests/mp4/reader_seek.h"

namespace zmv::test {
namespace {

using ::testing::ElementsAre;

class SeekTracks : public ReaderSeek {};

// ---- Who leads and who follows

TEST_F(SeekTracks, ByTime_VideoLeadsToTheNearest) {
  ASSERT_EQ(Describe(BuildMp4({Video(), Audio(), Subtitle()})), 0u);
  EXPECT_EQ(To(&MP4FReaderSeekByTime, 1600, uint8_t{0}), "1617");
  EXPECT_THAT(Samples(), ElementsAre(49, 77, 17)) << "1617, 1617 and 1700 ms";
  EXPECT_EQ(To(&MP4FReaderSeekByTime, 1100, uint8_t{0}), "990");
  EXPECT_THAT(Samples(), ElementsAre(30, 48, 10)) << "990, 1008 and 1000 ms";
}

TEST_F(SeekTracks, ByTimeAudioLed_AudioLeadsAndAllGoBackward) {
  ASSERT_EQ(Describe(BuildMp4({Video(), Audio(), Subtitle()})), 0u);
  EXPECT_EQ(To(&MP4FReaderSeekByTime, 1600, uint8_t{1}), "1617");
  EXPECT_THAT(Samples(), ElementsAre(30, 77, 17));
}

TEST_F(SeekTracks, ByKeyFrame_VideoLeads) {
  ASSERT_EQ(Describe(BuildMp4({Video(), Audio(), Subtitle()})), 0u);
  EXPECT_EQ(To(&MP4FReaderSeekByKeyFrame, 1500, uint8_t{0}), "990");
  EXPECT_THAT(Samples(), ElementsAre(30, 48, 10));
  EXPECT_EQ(To(&MP4FReaderSeekByKeyFrame, 1500, uint8_t{1}), "1518");
  EXPECT_THAT(Samples(), ElementsAre(46, 73, 16)) << "1518, 1533 and 1600 ms";
}

TEST_F(SeekTracks, BySubtitle_TextLeads) {
  ASSERT_EQ(Describe(BuildMp4({Video(), Audio(), Subtitle()})), 0u);
  EXPECT_EQ(To(&MP4FReaderSeekBySubtitle, 1550, uint8_t{1}), "1600");
  EXPECT_THAT(Samples(), ElementsAre(30, 77, 16));
  EXPECT_EQ(To(&MP4FReaderSeekBySubtitle, 1550, uint8_t{0}), "1600") << "every text frame is a key frame";
}

TEST_F(SeekTracks, BySubtitle_TextWithKeyFramesTellsTheDirections) {
  TrackSpec text = Subtitle();
  text.sync = {{1, 11, 21}};
  ASSERT_EQ(Describe(BuildMp4({Video(), Audio(), text})), 0u);
  EXPECT_EQ(To(&MP4FReaderSeekBySubtitle, 1550, uint8_t{0}), "1000");
  EXPECT_EQ(To(&MP4FReaderSeekBySubtitle, 1550, uint8_t{1}), "1600");
}

TEST_F(SeekTracks, BySubtitleWithoutText_IsNotDone) {
  ASSERT_EQ(Describe(BuildMp4({Video(), Audio()})), 0u);
  EXPECT_EQ(To(&MP4FReaderSeekBySubtitle, 100, uint8_t{0}), "result 0");
}

TEST_F(SeekTracks, LeaderMissing_TheFirstThereIsLeads) {
  TrackSpec text = Subtitle(1);
  text.sync = {{1, 11, 21}};
  ASSERT_EQ(Describe(BuildMp4({text, Audio()})), 0u);
  EXPECT_EQ(To(&MP4FReaderSeekByTime, 1600, uint8_t{0}), "1617") << "audio, to the nearest";
  EXPECT_EQ(To(&MP4FReaderSeekByKeyFrame, 1600, uint8_t{0}), "1617");
  ASSERT_EQ(Describe(BuildMp4({text})), 0u);
  EXPECT_EQ(To(&MP4FReaderSeekByTime, 1600, uint8_t{0}), "1000") << "text, backward";
  EXPECT_EQ(To(&MP4FReaderSeekByKeyFrame, 1510, uint8_t{1}), "1600") << "text, forward";
  ASSERT_EQ(Describe(BuildMp4({Video(2), text})), 0u);
  EXPECT_EQ(To(&MP4FReaderSeekByTime, 1600, uint8_t{1}), "990") << "video for audio, backward";
  EXPECT_THAT(Samples(), ElementsAre(30, -1, 0));
}

// ---- The modes of the followers, which key frames tell apart

class SeekFollowers : public ReaderSeek {
 protected:
  // 33, 21 and 100 ms a frame.
  void Open() {
    TrackSpec audio = Audio();
    audio.sync = {{1, 51, 80, 111}};
    TrackSpec text = Subtitle();
    text.sync = {{1, 12, 19, 26}};
    ASSERT_EQ(Describe(BuildMp4({Video(), audio, text})), 0u);
  }
};

TEST_F(SeekFollowers, ByTime_AudioGoesToTheNearestAndTextBackward) {
  Open();
  EXPECT_EQ(To(&MP4FReaderSeekByTime, 1600, uint8_t{0}), "1617");
  EXPECT_THAT(Samples(), ElementsAre(49, 77, 11)) << "audio: 79 is nearer than 50";
  EXPECT_EQ(To(&MP4FReaderSeekByTime, 1100, uint8_t{0}), "990");
  EXPECT_THAT(Samples(), ElementsAre(30, 48, 0)) << "audio: 50 is nearer than 0";
  EXPECT_EQ(To(&MP4FReaderSeekByTime, 2000, uint8_t{0}), "1980");
  EXPECT_THAT(Samples(), ElementsAre(60, 95, 18)) << "audio: 110 is nearer than 79";
  EXPECT_EQ(To(&MP4FReaderSeekByTime, 1700, uint8_t{0}), "1716");
  EXPECT_THAT(Samples(), ElementsAre(52, 79, 11)) << "audio: 79 is nearer than 110";
}

TEST_F(SeekFollowers, ByTimeAudioLed_AllGoBackward) {
  Open();
  EXPECT_EQ(To(&MP4FReaderSeekByTime, 1630, uint8_t{1}), "1050");
  EXPECT_THAT(Samples(), ElementsAre(30, 50, 0));
  EXPECT_EQ(To(&MP4FReaderSeekByTime, 1900, uint8_t{1}), "1659");
  EXPECT_THAT(Samples(), ElementsAre(30, 79, 11)) << "text: 18 is nearer";
}

TEST_F(SeekFollowers, ByKeyFrame_AllGoTheSameWay) {
  Open();
  EXPECT_EQ(To(&MP4FReaderSeekByKeyFrame, 2500, uint8_t{0}), "1980");
  EXPECT_THAT(Samples(), ElementsAre(60, 79, 18)) << "backward";
  EXPECT_EQ(To(&MP4FReaderSeekByKeyFrame, 1180, uint8_t{0}), "990");
  EXPECT_THAT(Samples(), ElementsAre(30, 0, 0)) << "backward; audio 50 and text 11 are nearer";
  EXPECT_EQ(To(&MP4FReaderSeekByKeyFrame, 1200, uint8_t{1}), "1221");
  EXPECT_THAT(Samples(), ElementsAre(37, 59, 13)) << "forward; audio 50 and text 11 are nearer";
}

TEST_F(SeekFollowers, BySubtitle_AudioGoesToTheNearestAndVideoBackward) {
  Open();
  EXPECT_EQ(To(&MP4FReaderSeekBySubtitle, 1550, uint8_t{1}), "1600");
  EXPECT_THAT(Samples(), ElementsAre(30, 77, 16)) << "audio: 79 is nearer than 50; video: 60 is nearer";
  EXPECT_EQ(To(&MP4FReaderSeekBySubtitle, 1150, uint8_t{1}), "1200");
  EXPECT_THAT(Samples(), ElementsAre(30, 50, 12)) << "audio: 50 is nearer than 79";
  EXPECT_EQ(To(&MP4FReaderSeekBySubtitle, 1750, uint8_t{0}), "1100");
  EXPECT_THAT(Samples(), ElementsAre(30, 50, 11)) << "text goes backward";
}

TEST_F(SeekTracks, NoTracks_IsNotDone) {
  ASSERT_EQ(Describe(BuildMp4({})), 0u);
  EXPECT_EQ(To(&MP4FReaderSeekByTime, 0, uint8_t{0}), "result 0");
  EXPECT_EQ(To(&MP4FReaderSeekByTime, 0, uint8_t{1}), "result 0");
  EXPECT_EQ(To(&MP4FReaderSeekByKeyFrame, 0, uint8_t{1}), "result 0");
}

TEST_F(SeekTracks, ShorterAudio_StandsAtItsEnd) {
  ASSERT_EQ(Describe(BuildMp4({Video(), Audio(2, 20)})), 0u);
  EXPECT_EQ(To(&MP4FReaderSeekByTime, 1600, uint8_t{0}), "1617");
  EXPECT_THAT(Samples(), ElementsAre(49, -1, -1));
  EXPECT_EQ(To(&MP4FReaderSeekByTime, 100, uint8_t{0}), "0");
  EXPECT_THAT(Samples(), ElementsAre(0, 0, -1)) << "the end is no dead end";
}

TEST_F(SeekTracks, FollowerThatFails_LeavesEveryTrackWhereItRead) {
  TrackSpec text = Subtitle();
  text.offsets = std::vector<uint32_t>(30, 60);
  for (uint32_t i = 12; i < 30; ++i) (*text.offsets)[i] = 0xFFFFFFF0;
  TrackSpec video = Video();
  video.sync = {{1, 4, 31, 61}};
  ASSERT_EQ(Describe(BuildMp4({video, Audio(), text})), 0u);
  Advance(ZMV_MEDIA_VIDEO, 3);
  Advance(ZMV_MEDIA_AUDIO, 5);
  Advance(ZMV_MEDIA_TEXT, 7);
  const std::vector<PlainPlace> before = AllPlaces();
  EXPECT_EQ(To(&MP4FReaderSeekByTime, 1600, uint8_t{0}), "result 0");
  EXPECT_EQ(AllPlaces(), before);
  EXPECT_EQ(To(&MP4FReaderSeekByKeyFrame, 1600, uint8_t{1}), "result 0");
  EXPECT_EQ(AllPlaces(), before);
  const ReadResult key = Read(ZMV_MEDIA_VIDEO);
  EXPECT_EQ(key.data, Unit(3, 6));
  EXPECT_EQ(key.frame.dwKeyFrame, ZMV_KEY_FRAME);
  EXPECT_EQ(Read(ZMV_MEDIA_AUDIO).data, Unit(105, 4));
}

// ---- After a seek

TEST_F(SeekTracks, ForwardOffTheKeyFrames_KeepsTheKeyFlags) {
  ASSERT_EQ(Describe(BuildMp4({Video()})), 0u);
  EXPECT_EQ(To(&MP4FReaderSeekByKeyFrame, 1056, uint8_t{1}), "1056");
  for (uint32_t i = 32; i < 90; ++i) {
    const ReadResult read = Read(ZMV_MEDIA_VIDEO);
    ASSERT_EQ(read.data, Unit(static_cast<uint8_t>(i), 6));
    EXPECT_EQ(read.frame.dwKeyFrame, i == 60 ? ZMV_KEY_FRAME : ZMV_NOT_KEY_FRAME) << i;
    EXPECT_NEAR(static_cast<double>(read.frame.llTimeStamp), i * 33, 1);
    EXPECT_EQ(read.frame.dwChunk, i + 1);
  }
}

TEST_F(SeekTracks, LandingOnKeyFrames_ReportsThemTheLastOneIncluded) {
  ASSERT_EQ(Describe(BuildMp4({Video()})), 0u);
  for (uint32_t key : {0u, 30u, 60u}) {
    EXPECT_EQ(To(&MP4FReaderSeekByKeyFrame, key * 33, uint8_t{1}), std::to_string(key * 33));
    EXPECT_EQ(Read(ZMV_MEDIA_VIDEO).frame.dwKeyFrame, ZMV_KEY_FRAME) << key;
    EXPECT_EQ(Read(ZMV_MEDIA_VIDEO).frame.dwKeyFrame, ZMV_NOT_KEY_FRAME) << key;
  }
}

TEST_F(SeekTracks, LandingRightBehindAKeyFrame_LaterKeyFramesAreNotReported) {
  ASSERT_EQ(Describe(BuildMp4({Video()})), 0u);
  EXPECT_EQ(To(&MP4FReaderSeekByKeyFrame, 31 * 33, uint8_t{1}), "1023");
  for (uint32_t i = 31; i < 90; ++i) EXPECT_EQ(Read(ZMV_MEDIA_VIDEO).frame.dwKeyFrame, ZMV_NOT_KEY_FRAME) << i;
}

TEST_F(SeekTracks, Audio_ReadsOnFromTheChunkThatWasFound) {
  ASSERT_EQ(Describe(BuildMp4({Audio(1)})), 0u);
  EXPECT_EQ(To(&MP4FReaderSeekByMedia, 139 * 21, ZMV_MEDIA_AUDIO), "2919");
  const ReadResult last = Read(ZMV_MEDIA_AUDIO);
  EXPECT_EQ(last.data, Unit(239, 4));
  EXPECT_EQ(last.frame.dwChunk, 140u);
  EXPECT_EQ(Read(ZMV_MEDIA_AUDIO).code, ZMV_E_END);
}

TEST_F(SeekTracks, Pcm_IsSearchedInMillisecondsAndStampedInTicks) {
  TrackSpec track = AudioTrack(1);
  track.entries = {AudioEntry("sowt", {}, 1, 16, 48000)};
  track.time_scale = 48000;
  for (uint32_t i = 0; i < 50; ++i) track.frames.push_back(Unit(static_cast<uint8_t>(i), 2048));
  track.times = {{50 * 1024, 1}};
  track.chunks = {{{1, 1024, 1}}};
  track.constant_size = 2;
  track.sample_count = 50 * 1024;
  track.duration = 50 * 1024;
  ASSERT_EQ(Describe(BuildMp4({track})), 0u);
  EXPECT_EQ(To(&MP4FReaderSeekByMedia, 200, ZMV_MEDIA_AUDIO), "210") << "21 ms a chunk";
  const ReadResult read = Read(ZMV_MEDIA_AUDIO);
  EXPECT_EQ(read.data, Unit(10, 2048));
  EXPECT_EQ(read.frame.llTimeStamp, 10u * 1024 * 1000 / 48000);
  EXPECT_EQ(Read(ZMV_MEDIA_AUDIO).frame.llTimeStamp, 11u * 1024 * 1000 / 48000);
}

TEST_F(SeekTracks, ByMedia_MovesThatMediumAlone) {
  ASSERT_EQ(Describe(BuildMp4({Video(), Audio(), Subtitle()})), 0u);
  EXPECT_EQ(To(&MP4FReaderSeekByMedia, 1500, ZMV_MEDIA_VIDEO), "1518");
  EXPECT_EQ(To(&MP4FReaderSeekByMedia, 250, ZMV_MEDIA_TEXT), "300");
  EXPECT_THAT(Samples(), ElementsAre(46, 0, 3));
}

// ---- Another track

TEST_F(SeekTracks, ChangeTrack_MovesTheOtherTrackAndMakesItCurrent) {
  TrackSpec second = Video(2);
  second.sync = {{1, 21}};
  ASSERT_EQ(Describe(BuildMp4({Video(), second, Subtitle()})), 0u);
  EXPECT_EQ(MP4FReaderChangeTrack(reader_, 0, 1500, ZMV_MEDIA_VIDEO), 0) << "it is current";
  EXPECT_EQ(MP4FReaderChangeTrack(reader_, 2, 1500, ZMV_MEDIA_VIDEO), 0) << "there is none";
  EXPECT_EQ(MP4FReaderChangeTrack(reader_, 1, 5000, ZMV_MEDIA_VIDEO), 0) << "nothing there";
  EXPECT_EQ(reader_->m_dwCurVideo, 0u);
  EXPECT_EQ(MP4FReaderChangeTrack(reader_, 1, 1500, ZMV_MEDIA_VIDEO), 1);
  EXPECT_EQ(reader_->m_dwCurVideo, 1u);
  EXPECT_EQ(Read(ZMV_MEDIA_VIDEO, 4096, 1).data, Unit(20, 6));
  EXPECT_EQ(Read(ZMV_MEDIA_VIDEO, 4096, 0).data, Unit(0, 6));
  EXPECT_EQ(To(&MP4FReaderSeekByKeyFrame, 2000, uint8_t{0}), "660") << "the current track leads";
  EXPECT_EQ(MP4FReaderChangeTrack(reader_, 0, 1500, ZMV_MEDIA_VIDEO), 1);
  EXPECT_EQ(Read(ZMV_MEDIA_VIDEO, 4096, 0).data, Unit(30, 6));
}

TEST_F(SeekTracks, ChangeTrack_CountsWithinAudioAndText) {
  ASSERT_EQ(Describe(BuildMp4({Subtitle(1), Audio(2), Audio(3), Subtitle(4)})), 0u);
  EXPECT_EQ(MP4FReaderChangeTrack(reader_, 1, 100, ZMV_MEDIA_AUDIO), 1);
  EXPECT_EQ(MP4FReaderChangeTrack(reader_, 1, 150, ZMV_MEDIA_TEXT), 1);
  EXPECT_EQ(reader_->m_dwCurAudio, 2u);
  EXPECT_EQ(reader_->m_dwCurText, 3u);
  EXPECT_EQ(Read(ZMV_MEDIA_AUDIO, 4096, 1).data, Unit(105, 4));
  EXPECT_EQ(Read(ZMV_MEDIA_TEXT, 4096, 1).data, Unit(9, 3));
}

// ---- Through the facade

class SeekFacade : public ReaderSeek {
 protected:
  void Open(const std::vector<TrackSpec>& tracks) {
    host_.PutFile("f.mp4", BuildMp4(tracks));
    ZMVReaderParam param{"f.mp4", nullptr, 0};
    ASSERT_EQ(ZMVReaderOpen(&facade_, &param), 0);
    ASSERT_EQ(ZMVReaderGetInfo(facade_, info_.get()), 0);
  }
  ~SeekFacade() override { ZMVReaderClose(facade_); }
  // The first byte of the next frame.
  int Next(uint32_t media, uint32_t track = 0) {
    uint8_t buffer[64] = {};
    ZMVFrame frame = {};
    frame.pData = buffer;
    frame.dwBufSize = sizeof(buffer);
    frame.dwMediaType = media;
    frame.dwTrack = track;
    return ZMVReaderReadFrame(facade_, &frame) == 0 ? buffer[0] : -1;
  }

  ZMVReader* facade_ = nullptr;
};

TEST_F(SeekFacade, EverySeek_ReachesTheContainer) {
  Open({Video(1), Audio(2), Subtitle(3), Audio(4)});
  uint32_t time = 1600;
  EXPECT_EQ(ZMVReaderSeekByTime(facade_, &time, 0), 1);
  EXPECT_EQ(time, 1617u);
  EXPECT_EQ(Next(ZMV_MEDIA_VIDEO), 49);
  time = 1500;
  EXPECT_EQ(ZMVReaderSeekByKeyFrame(facade_, &time, 0), 1);
  EXPECT_EQ(time, 990u);
  EXPECT_EQ(Next(ZMV_MEDIA_AUDIO), 148);
  time = 1550;
  EXPECT_EQ(ZMVReaderSeekBySubtitle(facade_, &time, 1), 1);
  EXPECT_EQ(time, 1600u);
  EXPECT_EQ(Next(ZMV_MEDIA_TEXT), 23);
  time = 250;
  EXPECT_EQ(ZMVReaderSeekByMedia(facade_, &time, ZMV_MEDIA_TEXT), 1);
  EXPECT_EQ(time, 300u);
  EXPECT_EQ(Next(ZMV_MEDIA_TEXT), 10);
  EXPECT_EQ(ZMVReaderChangeTrack(facade_, 1, ZMV_MEDIA_AUDIO), 1) << "to the last seek's time, 1600";
  EXPECT_EQ(Next(ZMV_MEDIA_AUDIO, 1), 177);
}

TEST_F(SeekFacade, Window_RaisesAndRefusesTargets) {
  Open({Video()});
  ZMVReaderSetSkip(facade_, 1000, 2000, 1, 1);
  uint32_t time = 100;
  EXPECT_EQ(ZMVReaderSeekByKeyFrame(facade_, &time, 0), 1);
  EXPECT_EQ(time, 0u) << "the window begins at 990, whose key frame before is the first";
  time = 2500;
  EXPECT_EQ(ZMVReaderSeekByTime(facade_, &time, 0), 0);
  EXPECT_EQ(time, 2500u);
}

}  // namespace
}  // namespace zmv::test

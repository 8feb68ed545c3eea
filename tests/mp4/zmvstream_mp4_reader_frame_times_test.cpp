#include "tests/mp4/reader_test.h"

namespace zmv::test {
namespace {

using ::testing::ElementsAre;

class ReaderFrameTimes : public ReaderTest {
 protected:
  // Reads `count` frames and gives one of their fields.
  template <typename Field>
  auto Collect(uint32_t media, size_t count, Field field, uint32_t capacity = 4096) {
    std::vector<std::decay_t<decltype(std::declval<ZMVFrame>().*field)>> values;
    for (size_t i = 0; i < count; ++i) {
      const ReadResult read = Read(media, capacity);
      EXPECT_EQ(read.code, 0u) << "frame " << i;
      values.push_back(read.frame.*field);
    }
    return values;
  }
};

TrackSpec PcmTrack(uint32_t frames, uint32_t samples, uint32_t sample_size) {
  TrackSpec track = AudioTrack();
  track.entries = {AudioEntry("sowt", {}, 1, 16, 48000)};
  track.time_scale = 48000;
  for (uint32_t i = 0; i < frames; ++i) track.frames.push_back(Unit(static_cast<uint8_t>(i), samples * sample_size));
  track.times = {{frames * samples, 1}};
  track.chunks = {{{1, samples, 1}}};
  track.constant_size = sample_size;
  track.sample_count = frames * samples;
  return track;
}

TrackSpec PlainVideo(std::vector<ByteVector> frames) {
  TrackSpec track = VideoTrack();
  track.entries = {VideoEntry("mp4v", {})};
  track.frames = std::move(frames);
  return track;
}

// ---- Times

TEST_F(ReaderFrameTimes, VideoTimes_AreMicrosecondsInSinglePrecision) {
  TrackSpec track = PlainVideo({Unit(1, 1)});
  track.time_scale = 90000;
  track.constant_size = 1;
  track.sample_count = 130000;
  track.chunks = {{{1, 200000, 1}}};
  track.times = {{200000, 3003}};
  FileSpec file;
  file.after_moov = Box("free", Zeros(140000));
  ASSERT_EQ(Describe(BuildMp4({track}, file)), 0u);
  std::map<int, std::pair<uint64_t, uint64_t>> stamps;
  for (int i = 0; i <= 128722; ++i) {
    const ReadResult read = Read(ZMV_MEDIA_VIDEO, 1);
    ASSERT_EQ(read.code, 0u);
    stamps[i] = {read.frame.llTimeStampUs, read.frame.llTimeStamp};
  }
  EXPECT_EQ(stamps[15].first, 500499u);
  EXPECT_EQ(stamps[27].first, 900900u);
  EXPECT_EQ(stamps[10000].first, 333666656u);
  EXPECT_EQ(stamps[128720].first, 4294957568u);
  for (int i : {128721, 128722}) {
    EXPECT_EQ(stamps[i].first, 0xFFFFFFFFu);
    EXPECT_EQ(stamps[i].second, 4294967u);
  }
}

TEST_F(ReaderFrameTimes, TimesRunOut_TheLastDeltaStays) {
  TrackSpec track = PlainVideo({Unit(1, 1), Unit(2, 1), Unit(3, 1), Unit(4, 1)});
  track.times = {{2, 40}};
  ASSERT_EQ(Describe(BuildMp4({track})), 0u);
  EXPECT_THAT(Collect(ZMV_MEDIA_VIDEO, 4, &ZMVFrame::llTimeStamp), ElementsAre(0, 40, 80, 120));
}

TEST_F(ReaderFrameTimes, EmptyTimeEntries_ArePassedOver) {
  TrackSpec track = PlainVideo({Unit(1, 1), Unit(2, 1), Unit(3, 1), Unit(4, 1), Unit(5, 1)});
  track.times = {{0, 7}, {1, 40}, {0, 9}, {0, 0}, {2, 50}, {0, 99}};
  ASSERT_EQ(Describe(BuildMp4({track})), 0u);
  EXPECT_THAT(Collect(ZMV_MEDIA_VIDEO, 5, &ZMVFrame::llTimeStamp), ElementsAre(0, 40, 90, 140, 190));
}

TEST_F(ReaderFrameTimes, NoTimes_AreZero) {
  TrackSpec track = PlainVideo({Unit(1, 1), Unit(2, 1)});
  track.leave_out = {"stts"};
  ASSERT_EQ(Describe(BuildMp4({track})), 0u);
  EXPECT_THAT(Collect(ZMV_MEDIA_VIDEO, 2, &ZMVFrame::llTimeStamp), ElementsAre(0, 0));
}

TEST_F(ReaderFrameTimes, EmptyTimeTable_GivesTimesZero) {
  TrackSpec track = PlainVideo({Unit(1, 1), Unit(2, 1)});
  track.leave_out = {"stts"};
  track.table_extra = Table("stts", 0, {});
  ASSERT_EQ(Describe(BuildMp4({track})), 0u);
  EXPECT_THAT(Collect(ZMV_MEDIA_VIDEO, 2, &ZMVFrame::llTimeStamp), ElementsAre(0, 0));
  EXPECT_EQ(Track(0).m_dwSttsDelta, 0u);
}

TEST_F(ReaderFrameTimes, TableAtTheEndOfTheFile_IsReadToItsLastEntryAndNoFurther) {
  TrackSpec track = PlainVideo({Unit(1, 3), Unit(2, 4), Unit(3, 5), Unit(4, 6), Unit(5, 7)});
  track.samples_per_chunk = 2;
  track.chunks = {{{1, 2, 1}, {3, 1, 1}}};
  track.times = {{2, 40}, {2, 50}};  // one sample short
  const ByteVector whole = BuildMp4({track});
  for (const char* type : {"stts", "stsc", "stsz", "stco"}) {
    // Every box around the tables ends with the file, so a table can be moved to its end.
    const ByteVector name = Text(type);
    const auto header = std::search(whole.begin(), whole.end(), name.begin(), name.end()) - 4;
    const ptrdiff_t size = header[2] << 8 | header[3];
    const ByteVector moved = Join(
        {ByteVector(whole.begin(), header), ByteVector(header + size, whole.end()), ByteVector(header, header + size)});
    ASSERT_EQ(Describe(moved), 0u) << type;
    host_.ClearRecords();
    std::vector<uint64_t> times;
    for (const ByteVector& frame : track.frames) {
      const ReadResult read = Read(ZMV_MEDIA_VIDEO);
      EXPECT_EQ(read.data, frame) << type;
      times.push_back(read.frame.llTimeStamp);
    }
    EXPECT_THAT(times, ElementsAre(0, 40, 80, 130, 180)) << type;
    EXPECT_EQ(Read(ZMV_MEDIA_VIDEO).code, ZMV_E_END);
    EXPECT_THAT(host_.Traces(1), ElementsAre()) << type;
  }
}

TEST_F(ReaderFrameTimes, TimeScaleZero_GivesTimesZero) {
  TrackSpec video = PlainVideo({Unit(1, 1), Unit(2, 1)});
  video.time_scale = 0;
  TrackSpec audio = AudioTrack();
  audio.frames = {Unit(1, 1), Unit(2, 1)};
  audio.time_scale = 0;
  ASSERT_EQ(Describe(BuildMp4({video, audio})), 0u);
  EXPECT_THAT(Collect(ZMV_MEDIA_VIDEO, 2, &ZMVFrame::llTimeStamp), ElementsAre(0, 0));
  EXPECT_THAT(Collect(ZMV_MEDIA_AUDIO, 2, &ZMVFrame::llTimeStamp), ElementsAre(0, 0));
}

TEST_F(ReaderFrameTimes, LongVideoFrame_IsReportedWithTheAverage) {
  TrackSpec track = PlainVideo({Unit(1, 1), Unit(2, 1), Unit(3, 1), Unit(4, 1)});
  track.duration = 133;  // 33 ms on average
  track.times = {{1, 1000}, {1, 38}, {1, 39}, {1, 33}};
  ASSERT_EQ(Describe(BuildMp4({track})), 0u);
  EXPECT_THAT(Collect(ZMV_MEDIA_VIDEO, 4, &ZMVFrame::dwDuration), ElementsAre(33, 38, 33, 33));
}

TEST_F(ReaderFrameTimes, LongVideoFrame_KeepsItsDurationInFrameInfo) {
  TrackSpec track = PlainVideo({Unit(1, 1), Unit(2, 1)});
  track.duration = 66;
  track.times = {{1, 1000}, {1, 33}};
  ASSERT_EQ(Describe(BuildMp4({track})), 0u);
  EXPECT_EQ(ReadInfo(ZMV_MEDIA_VIDEO).frame.dwDuration, 1000u);
}

TEST_F(ReaderFrameTimes, AudioTimes_PassThirtyTwoBitsInFramesOnly) {
  TrackSpec track = AudioTrack();
  track.time_scale = 1;
  track.frames = {Unit(1, 1), Unit(2, 1), Unit(3, 1), Unit(4, 1)};
  track.times = {{4, 0x40000000}};
  ASSERT_EQ(Describe(BuildMp4({track})), 0u);
  ASSERT_EQ(Read(ZMV_MEDIA_AUDIO).code, 0u);
  EXPECT_EQ(Read(ZMV_MEDIA_AUDIO).frame.llTimeStamp, 1073741824000u);
  EXPECT_EQ(ReadInfo(ZMV_MEDIA_AUDIO).frame.llTimeStamp, 0xFFFFFFFFu);
}

// ---- Audio chunks

TEST_F(ReaderFrameTimes, PcmChunks_AreFrames) {
  ASSERT_EQ(Describe(BuildMp4({PcmTrack(4, 1024, 2)})), 0u);
  EXPECT_EQ(info_->m_Audio.dwFrames, 4u);
  for (uint32_t i = 0; i < 4; ++i) {
    const ReadResult read = Read(ZMV_MEDIA_AUDIO);
    EXPECT_EQ(read.data, Unit(static_cast<uint8_t>(i), 2048));
    EXPECT_EQ(read.frame.llTimeStamp, (std::array{0u, 21u, 42u, 64u})[i]);
    EXPECT_EQ(read.frame.dwChunk, i + 1);
    EXPECT_EQ(read.frame.dwKeyFrame, ZMV_KEY_FRAME);
  }
  EXPECT_EQ(Read(ZMV_MEDIA_AUDIO).code, ZMV_E_END);
}

TEST_F(ReaderFrameTimes, PcmWithTwiceTheSamples_TakesTwiceTheTime) {
  ASSERT_EQ(Describe(BuildMp4({PcmTrack(4, 2048, 1)})), 0u);
  EXPECT_THAT(Collect(ZMV_MEDIA_AUDIO, 4, &ZMVFrame::llTimeStamp), ElementsAre(0, 42, 85, 128));
}

TEST_F(ReaderFrameTimes, ConstantAudioOfAnUnknownEntry_KeepsTheDeltaOfASample) {
  TrackSpec track = PcmTrack(500, 160, 1);
  track.entries = {AudioEntry("alaw", {}, 1, 8, 8000)};
  track.time_scale = 8000;
  ASSERT_EQ(Describe(BuildMp4({track})), 0u);
  EXPECT_EQ(info_->m_Audio.dwFormat, 0u);
  for (uint32_t i = 0; i < 500; ++i) {
    const ReadResult read = Read(ZMV_MEDIA_AUDIO);
    ASSERT_EQ(read.data, Unit(static_cast<uint8_t>(i), 160));
    EXPECT_EQ(read.frame.llTimeStamp, i / 8);
    EXPECT_EQ(read.frame.dwDuration, 0u);
  }
}

TEST_F(ReaderFrameTimes, AudioChunksUsedUp_IsTheEnd) {
  TrackSpec track = AudioTrack();
  track.frames = {Unit(1, 4)};
  track.sizes = {{4, 4, 4}};
  ASSERT_EQ(Describe(BuildMp4({track})), 0u);
  EXPECT_EQ(info_->m_Audio.dwFrames, 3u);
  EXPECT_EQ(Read(ZMV_MEDIA_AUDIO).code, 0u);
  for (int i = 0; i < 3; ++i) EXPECT_EQ(Read(ZMV_MEDIA_AUDIO).code, ZMV_E_END);
}

TEST_F(ReaderFrameTimes, AudioChunksUsedUp_TheSizeIsTestedFirst) {
  TrackSpec track = AudioTrack();
  track.frames = {Unit(1, 4)};
  track.sizes = {{4, 5, 6}};
  ASSERT_EQ(Describe(BuildMp4({track})), 0u);
  ASSERT_EQ(Read(ZMV_MEDIA_AUDIO).code, 0u);
  for (int i = 0; i < 5; ++i) {
    const ReadResult refused = Read(ZMV_MEDIA_AUDIO, 4);
    EXPECT_EQ(refused.code, ZMV_E_MP4_BUFFER);
    EXPECT_EQ(refused.frame.dwBufSize, 5u);  // the second size every time
    EXPECT_EQ(Read(ZMV_MEDIA_AUDIO, 5).code, ZMV_E_END);
  }
}

TEST_F(ReaderFrameTimes, PcmInfo_ReadsTheDeltaOfTheTable) {
  TrackSpec track = PcmTrack(4, 1024, 2);
  track.times = {{4096, 480}};
  ASSERT_EQ(Describe(BuildMp4({track})), 0u);
  for (uint32_t i = 0; i < 4; ++i) {
    const ReadResult read = ReadInfo(ZMV_MEDIA_AUDIO);
    ASSERT_EQ(read.code, 0u);
    EXPECT_EQ(read.frame.llTimeStamp, 10 * i);
    EXPECT_EQ(read.frame.dwDuration, 10u);
  }
}

TEST_F(ReaderFrameTimes, AudioNeverReadsItsChunkTable) {
  TrackSpec track = AudioTrack();
  track.frames = {Unit(1, 4), Unit(2, 4), Unit(3, 4)};
  track.chunks = {{{1, 1, 1}, {2, 9, 2}, {3, 5, 3}}};
  ASSERT_EQ(Describe(BuildMp4({track})), 0u);
  for (const ByteVector& frame : track.frames) EXPECT_EQ(Read(ZMV_MEDIA_AUDIO).data, frame);
  EXPECT_EQ(Track(0).m_dwStscEntry, 0u);
}

// ---- Key flags

TEST_F(ReaderFrameTimes, NoSyncTable_EveryFrameIsKey) {
  ASSERT_EQ(Describe(BuildMp4({PlainVideo({Unit(1, 1), Unit(2, 1)})})), 0u);
  EXPECT_THAT(Collect(ZMV_MEDIA_VIDEO, 2, &ZMVFrame::dwKeyFrame), ElementsAre(1, 1));
}

TEST_F(ReaderFrameTimes, SyncTable_NamesTheKeyFramesTheLastOneIncluded) {
  TrackSpec track = PlainVideo({Unit(1, 1), Unit(2, 1), Unit(3, 1), Unit(4, 1), Unit(5, 1)});
  track.sync = {{1, 3, 4}};
  ASSERT_EQ(Describe(BuildMp4({track})), 0u);  // stss is the last box of the file
  EXPECT_THAT(Collect(ZMV_MEDIA_VIDEO, 5, &ZMVFrame::dwKeyFrame), ElementsAre(1, 2, 1, 1, 2));
}

TEST_F(ReaderFrameTimes, EmptySyncTable_NoFrameIsKey) {
  TrackSpec track = PlainVideo({Unit(1, 1), Unit(2, 1)});
  track.sync = std::vector<uint32_t>{};
  ASSERT_EQ(Describe(BuildMp4({track})), 0u);
  EXPECT_THAT(Collect(ZMV_MEDIA_VIDEO, 2, &ZMVFrame::dwKeyFrame), ElementsAre(2, 2));
}

}  // namespace
}  // namespace zmv::test

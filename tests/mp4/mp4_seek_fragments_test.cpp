// Seeks that end in the fragments of a file, or fail there.
#include "tests/mp4/fragment_test.h"

namespace zmv::test {
namespace {

using testing::ElementsAre;

class SeekIntoFragments : public FragmentTest {
 protected:
  // 80 ms of video and 40 ms of audio in moov, then two fragments of 120 ms.
  static FragmentFile File() {
    TrackSpec video = VideoTrack();
    video.frames = {Prefixed(Unit(0x65, 9)), Prefixed(Unit(0x41, 8))};
    video.duration = 80;
    video.sync = std::vector<uint32_t>{1};
    TrackSpec audio = AudioTrack();
    audio.frames = {Unit(7, 5), Unit(8, 5)};
    audio.duration = 40;
    audio.times = {{2, 20}};
    FragmentFile file({video, audio}, {FullBox("mehd", {Be32(400)}), Trex(1, 40), Trex(2, 20)});
    for (uint8_t i = 0; i < 2; ++i) {
      file.Add(
          {{.track = 1, .base = 0, .runs = {{.samples = Samples(static_cast<uint8_t>(10 + i), {3, 4, 5})}}},
           {.track = 2, .base = 0, .runs = {{.samples = Samples(static_cast<uint8_t>(100 + i), {3, 4, 5, 6, 7, 8})}}}});
    }
    return file;
  }
};

TEST_F(SeekIntoFragments, Video_LandsOnTheSampleAndAudioFollows) {
  for (uint32_t target = 81; target <= 280; ++target) {
    ASSERT_EQ(Describe(File()), 0u);
    uint32_t time = target;
    ASSERT_EQ(MP4FReaderSeekByKeyFrame(reader_, &time, 0), 1) << target;
    const uint32_t passed = (target - 80 + 39) / 40;
    EXPECT_EQ(time, 80 + 40 * passed);
    const std::vector<ReadResult> video = ReadAll(ZMV_MEDIA_VIDEO), audio = ReadAll(ZMV_MEDIA_AUDIO);
    ASSERT_EQ(video.size(), 6 - passed) << target;
    EXPECT_EQ(video[0].frame.llTimeStamp, time);
    if (time < 280) {
      ASSERT_FALSE(audio.empty());
      EXPECT_EQ(audio[0].frame.llTimeStamp, time) << target;
    }
  }
}

TEST_F(SeekIntoFragments, FollowerWithoutSuchATime_LeavesEveryTrackWhereItRead) {
  for (uint32_t target : {281u, 320u, 321u}) {
    ASSERT_EQ(Describe(File()), 0u);
    for (int i = 0; i < 3; ++i) ASSERT_EQ(Read(ZMV_MEDIA_VIDEO).code, 0u);
    ASSERT_EQ(Read(ZMV_MEDIA_AUDIO).code, 0u);
    uint32_t time = target;
    EXPECT_EQ(MP4FReaderSeekByKeyFrame(reader_, &time, 0), 0) << target;
    EXPECT_EQ(Read(ZMV_MEDIA_VIDEO).data, Unit(26, 4));
    EXPECT_EQ(Read(ZMV_MEDIA_AUDIO).data, Unit(8, 5));
  }
}

TEST_F(SeekIntoFragments, BackIntoMoov_ReadsTheFragmentsAnew) {
  ASSERT_EQ(Describe(File()), 0u);
  ASSERT_EQ(ReadAll(ZMV_MEDIA_VIDEO).size(), 8u);
  uint32_t time = 0;
  ASSERT_EQ(MP4FReaderSeekByKeyFrame(reader_, &time, 0), 1);
  EXPECT_EQ(ReadAll(ZMV_MEDIA_VIDEO).size(), 8u);
}

// ---- Boxes with room behind their samples

TEST_F(SeekIntoFragments, PaddedTrun_HidesNoneBehindIt) {
  for (uint32_t claimed : {0u, 1u, 2u}) {
    FragmentFile file({VideoTrack()}, {Trex(1, 40)});
    file.Add({{.base = 0,
               .runs = {{.samples = Samples(1, {5, 5, 5}), .count = claimed}, {.samples = Samples(60, {5, 5})}}}});
    file.Add({{.base = 0, .runs = {{.samples = Samples(100, {5, 5})}}}});
    ASSERT_EQ(Describe(file), 0u);
    std::vector<ByteVector> expected = Samples(1, {5, 5});
    expected.resize(claimed);
    for (uint8_t first : {uint8_t{60}, uint8_t{100}}) {
      for (const ByteVector& sample : Samples(first, {5, 5})) expected.push_back(sample);
    }
    EXPECT_EQ(ReadPayloads(ZMV_MEDIA_VIDEO), expected) << claimed;
    for (uint32_t sample = 1; sample < expected.size(); ++sample) {
      uint32_t time = 40 * sample;
      ASSERT_EQ(Search(&time), 1u) << claimed << " " << time;
      EXPECT_EQ(time, 40 * sample);
      Take();
      EXPECT_EQ(ReadPayloads(ZMV_MEDIA_VIDEO), std::vector<ByteVector>(expected.begin() + sample, expected.end()))
          << claimed;
    }
  }
}

TEST_F(SeekIntoFragments, PaddedTrun_IsReadAgainWhenTheBufferIsTooSmall) {
  FragmentFile file({VideoTrack()}, {Trex(1, 40)});
  file.Add({{.base = 0, .runs = {{.samples = Samples(1, {5, 9, 5}), .count = 2}}}});
  file.Add({{.base = 0, .runs = {{.samples = Samples(100, {5})}}}});
  ASSERT_EQ(Describe(file), 0u);
  ASSERT_EQ(Read(ZMV_MEDIA_VIDEO).data, Unit(1, 5));
  ASSERT_EQ(Read(ZMV_MEDIA_VIDEO, 8).code, ZMV_E_MP4_BUFFER);
  EXPECT_THAT(ReadPayloads(ZMV_MEDIA_VIDEO), ElementsAre(Unit(17, 9), Unit(100, 5)));
}

// ---- Back into moov

// One sample of 40 ms in moov.
TrackSpec OneSample() {
  TrackSpec video = VideoTrack();
  video.entries = {VideoEntry("mp4v", {})};
  video.frames = {Unit(200, 9)};
  video.duration = 40;
  return video;
}

TEST_F(SeekIntoFragments, BackInMoov_TheFragmentsAreReadAsTheFirstTime) {
  FragmentFile file({OneSample()}, {Trex(1, 40, 5)});
  file.Add({{.flags = 0, .runs = {{.flags = kDataOffset, .samples = Samples(1, {5, 5})}}}});  // offsets from the start
  file.Add({{.flags = kBaseOffset | kDefaultDuration | kDefaultSize,
             .duration = 7,
             .size = 4,
             .runs = {{.flags = kDataOffset, .samples = Samples(60, {4, 4})}}}});
  ASSERT_EQ(Describe(file), 0u);
  const std::vector<ReadResult> first = ReadAll(ZMV_MEDIA_VIDEO);
  ASSERT_EQ(first.size(), 5u);
  uint32_t time = 0;
  ASSERT_EQ(MP4FReaderSeekByTime(reader_, &time, 0), 1);
  const std::vector<ReadResult> second = ReadAll(ZMV_MEDIA_VIDEO);
  ASSERT_EQ(second.size(), 5u);
  for (size_t i = 0; i < 5; ++i) {
    EXPECT_EQ(second[i].data, first[i].data) << i;
    EXPECT_EQ(second[i].frame.llTimeStamp, first[i].frame.llTimeStamp) << i;
  }
}

TEST_F(SeekIntoFragments, BackInMoov_NoDefaultsOfALaterFragmentAreInForce) {
  FragmentFile file({OneSample()}, {Trex(1, 40, 5)});
  file.Add({{.runs = {{.flags = kDataOffset, .samples = Samples(60, {5, 5})}}}});
  ASSERT_EQ(Describe(file), 0u);
  ASSERT_EQ(ReadAll(ZMV_MEDIA_VIDEO).size(), 3u);
  ASSERT_NE(Track(0).m_dwBaseOffset, 0u);
  uint32_t time = 0;
  ASSERT_EQ(Search(&time), 1u);
  Take();
  EXPECT_EQ(Track(0).m_dwBaseOffset, 0u);
  EXPECT_EQ(Track(0).m_dwTfhdDuration, 0u);
  EXPECT_EQ(Track(0).m_dwTfhdSize, 0u);
}

TEST_F(SeekIntoFragments, BackInMoov_SeeksIntoTheFragmentsStillFindTheirData) {
  FragmentFile file({OneSample()}, {Trex(1, 40)});
  const uint32_t base = file.Size();
  for (uint8_t i = 0; i < 3; ++i) {
    file.Add({{.base = base, .runs = {{.samples = Samples(static_cast<uint8_t>(1 + 60 * i), {5, 5})}}}});
  }
  ASSERT_EQ(Describe(file), 0u);
  ASSERT_EQ(ReadAll(ZMV_MEDIA_VIDEO).size(), 7u);
  for (int turn = 0; turn < 2; ++turn) {
    uint32_t time = 0;
    ASSERT_EQ(Search(&time), 1u);
    Take();
    time = 40 + 5 * 40;
    ASSERT_EQ(Search(&time), 1u);
    Take();
    EXPECT_THAT(ReadPayloads(ZMV_MEDIA_VIDEO), ElementsAre(Unit(137, 5))) << turn;
  }
}

}  // namespace
}  // namespace zmv::test

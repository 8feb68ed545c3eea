// Seeks that end in the fragments of a file, or fail there.
#include "tests/mp4/fragment_test.h"

namespace zmv::test {
namespace {

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

}  // namespace
}  // namespace zmv::test

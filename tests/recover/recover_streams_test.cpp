#include "recover/recover_streams.h"

#include "tests/recover/recover_test.h"

namespace zmv::test {
namespace {

using recover::FoundFrame;
using recover::Record;

class StreamsTest : public ::testing::Test {
 protected:
  FoundFrame Accept(uint32_t media, uint32_t stamp, uint32_t duration, uint32_t track = 0) {
    FoundFrame frame = {};
    streams.Accept({media, false, stamp, duration, track, 10}, frame, report);
    return frame;
  }
  recover::Streams streams;
  ZMVRecoverReport report = {};
};

TEST_F(StreamsTest, Stamps_AreCarriedOnOverTheWrap) {
  EXPECT_EQ(Accept(ZMV_MEDIA_VIDEO, 0xFFFFFFF0, 0).time, 0xFFFFFFF0u);
  EXPECT_EQ(Accept(ZMV_MEDIA_AUDIO, 0x00000004, 0).time, 0x100000004u) << "the first of its stream, behind the wrap";
  EXPECT_EQ(Accept(ZMV_MEDIA_VIDEO, 0x00000010, 0).time, 0x100000010u);
  EXPECT_EQ(Accept(ZMV_MEDIA_TEXT, 0xFFFFFFFF, 0).time, 0xFFFFFFFFu) << "the first of its stream, before the wrap";
  EXPECT_EQ(Accept(ZMV_MEDIA_VIDEO, 0x80000000, 0).time, 0x180000000u);
  EXPECT_EQ(Accept(ZMV_MEDIA_VIDEO, 0xFFFFFFFF, 0).time, 0x1FFFFFFFFu);
  EXPECT_EQ(Accept(ZMV_MEDIA_VIDEO, 0x00000000, 0).time, 0x200000000u);
  EXPECT_EQ(report.llLastTime, 0x200000000u);
}

TEST_F(StreamsTest, StampsThatGoBack_StayWhatTheyAre) {
  EXPECT_EQ(Accept(ZMV_MEDIA_VIDEO, 100, 0).time, 100u);
  EXPECT_EQ(Accept(ZMV_MEDIA_VIDEO, 60, 0).time, 60u);
  EXPECT_EQ(Accept(ZMV_MEDIA_AUDIO, 0, 0).time, 0u);
  EXPECT_EQ(report.llLastTime, 100u);
}

TEST_F(StreamsTest, WithoutHoles_DurationsAreThoseRecorded) {
  for (uint32_t i = 0; i < 5; ++i) {
    const FoundFrame frame = Accept(ZMV_MEDIA_VIDEO, 100 + 33 * i, 33333);
    EXPECT_EQ(frame.duration, 33333u);
    EXPECT_EQ(frame.new_duration, 33333u);
    EXPECT_FALSE(frame.after_hole);
  }
}

TEST_F(StreamsTest, BehindAHole_EachStreamTakesTheTimeSinceItsLastFrame) {
  Accept(ZMV_MEDIA_VIDEO, 1000, 33333);
  Accept(ZMV_MEDIA_AUDIO, 1005, 21);
  streams.Interrupt();
  const FoundFrame audio = Accept(ZMV_MEDIA_AUDIO, 1305, 21);
  EXPECT_TRUE(audio.after_hole);
  EXPECT_EQ(audio.duration, 21u);
  EXPECT_EQ(audio.new_duration, 300u) << "milliseconds";
  EXPECT_EQ(Accept(ZMV_MEDIA_AUDIO, 1326, 21).new_duration, 21u);
  const FoundFrame video = Accept(ZMV_MEDIA_VIDEO, 1266, 33333);
  EXPECT_TRUE(video.after_hole);
  EXPECT_EQ(video.new_duration, 266000u) << "microseconds";
  EXPECT_FALSE(Accept(ZMV_MEDIA_VIDEO, 1300, 33333).after_hole);
}

TEST_F(StreamsTest, DroppedFrame_InterruptsItsStreamOnly) {
  Accept(ZMV_MEDIA_VIDEO, 0, 40000);
  Accept(ZMV_MEDIA_AUDIO, 0, 20);
  streams.Interrupt({ZMV_MEDIA_VIDEO, false, 40, 40000, 0, 10});
  EXPECT_EQ(Accept(ZMV_MEDIA_AUDIO, 21, 20).new_duration, 20u);
  EXPECT_EQ(Accept(ZMV_MEDIA_VIDEO, 80, 40000).new_duration, 80000u);
}

TEST_F(StreamsTest, TimeThatGoesBackOverAHole_KeepsTheDuration) {
  Accept(ZMV_MEDIA_VIDEO, 1000, 40000);
  streams.Interrupt();
  EXPECT_EQ(Accept(ZMV_MEDIA_VIDEO, 900, 40000).new_duration, 40000u);
}

TEST_F(StreamsTest, HoleOfHours_SaturatesTheDuration) {
  Accept(ZMV_MEDIA_VIDEO, 0, 40000);
  streams.Interrupt();
  EXPECT_EQ(Accept(ZMV_MEDIA_VIDEO, 5000000, 40000).new_duration, UINT32_MAX);
}

// 30 pictures a second, stamps in whole milliseconds: what they leave out does not add up over the holes.
TEST_F(StreamsTest, ManyHoles_KeepTheTimeToTheMillisecond) {
  constexpr uint32_t kDurations[] = {33333, 33333, 33334};
  uint64_t exact = 0;
  uint64_t shown = 0;
  uint64_t taken = 0;
  for (uint32_t i = 0; i < 3000; ++i, exact += kDurations[i % 3]) {
    if (i % 7 == 3) {
      streams.Interrupt();
      continue;
    }
    const FoundFrame frame = Accept(ZMV_MEDIA_VIDEO, static_cast<uint32_t>(exact / 1000), kDurations[(i + 2) % 3]);
    if (taken++ != 0) shown += frame.new_duration;
    ASSERT_LE(shown, exact) << i;
    ASSERT_GE(shown + 1000, exact) << i;
  }
}

// Its first frame is shown at the start of the recording, since nothing else can be said; the second one at its time.
TEST_F(StreamsTest, StreamThatBeginsBehindAHole_IsRightFromItsSecondFrame) {
  Accept(ZMV_MEDIA_VIDEO, 1000, 40000);
  streams.Interrupt();
  EXPECT_EQ(Accept(ZMV_MEDIA_TEXT, 3000, 500).new_duration, 500u);
  EXPECT_EQ(Accept(ZMV_MEDIA_TEXT, 3500, 500).new_duration, 2500u) << "since the first stamp of the recording";
  EXPECT_EQ(Accept(ZMV_MEDIA_TEXT, 4000, 500).new_duration, 500u);
}

TEST_F(StreamsTest, Report_CountsByStream) {
  recover::Front front = {};
  front.info.dwVideoCount = 2;
  front.info.dwTextCount = 1;
  front.described_video[0] = true;
  streams.Open(front, report);
  ASSERT_EQ(report.dwStreamCount, 3u);
  FoundFrame frame = {};
  streams.Accept({ZMV_MEDIA_VIDEO, true, 50, 1, 1, 700}, frame, report);
  streams.Accept({ZMV_MEDIA_VIDEO, false, 90, 1, 1, 300}, frame, report);
  streams.Accept({ZMV_MEDIA_AUDIO, false, 60, 1, 0, 5}, frame, report);
  ASSERT_EQ(report.dwStreamCount, 4u) << "audio was not described";
  EXPECT_EQ(report.dwFrames, 3u);
  const ZMVRecoverStream& video = report.Stream[1];
  EXPECT_EQ(video.dwMediaType, ZMV_MEDIA_VIDEO);
  EXPECT_EQ(video.dwTrack, 1u);
  EXPECT_EQ(video.dwFrames, 2u);
  EXPECT_EQ(video.dwKeyFrames, 1u);
  EXPECT_EQ(video.llFirstTime, 50u);
  EXPECT_EQ(video.llLastTime, 90u);
  EXPECT_EQ(video.llBytes, 1000u);
  EXPECT_EQ(report.Stream[0].bDescribed, 1u);
  EXPECT_EQ(report.Stream[1].bDescribed, 0u);
  EXPECT_EQ(report.Stream[2].dwMediaType, ZMV_MEDIA_AUDIO);
  EXPECT_EQ(report.Stream[2].dwFrames, 1u);
  EXPECT_EQ(report.Stream[3].dwMediaType, ZMV_MEDIA_TEXT);
}

}  // namespace
}  // namespace zmv::test

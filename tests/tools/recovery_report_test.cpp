#include "tools/zmv/recovery_report.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace zmv::tool {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

// Ten minutes of video that began at 1 s.
ZMVRecoverReport Found() {
  ZMVRecoverReport report{};
  report.dwState = ZMV_RECOVER_CUT;
  report.dwFrames = 17982;
  report.llLastTime = 600466;
  report.dwStreamCount = 2;
  report.Stream[0] = {ZMV_MEDIA_VIDEO, 0, 17982, 600, 1000, 600466, 1 << 20, 1};
  report.Stream[1] = {ZMV_MEDIA_AUDIO, 0, 0, 0, 0, 0, 0, 1};
  return report;
}

TEST(RecoveryReport, FramesAndTime_CountFromTheFirstFrame) {
  EXPECT_EQ(FramesText(Found()), "17,982 of 17,982 complete frames, up to 00:09:59.4");
  EXPECT_EQ(RecoveredMs(Found()), 599466u);
  EXPECT_EQ(RecoveredMs(ZMVRecoverReport{}), 0u);
}

TEST(RecoveryReport, NothingLost_IsSilent) {
  EXPECT_THAT(LossTexts(Found()), IsEmpty());
  EXPECT_THAT(RemarkTexts(Found()), IsEmpty());
  EXPECT_FALSE(IsIncomplete(Found()));
}

TEST(RecoveryReport, OneHole_IsNamedWithItsPlace) {
  ZMVRecoverReport report = Found();
  report.dwHoles = 1;
  report.llHoleBytes = 3072;
  report.Hole[0] = {1234567, 3072};
  EXPECT_THAT(LossTexts(report), ElementsAre("1 hole of 3 KiB at byte 1,234,567"));
  EXPECT_TRUE(IsIncomplete(report));
}

TEST(RecoveryReport, ManyHoles_AreCountedAndTheFirstOnesNamed) {
  ZMVRecoverReport report = Found();
  report.dwHoles = 2;
  report.llHoleBytes = 512 + (3 << 19);
  report.Hole[0] = {512, 512};
  report.Hole[1] = {4096, 3 << 19};
  EXPECT_THAT(LossTexts(report), ElementsAre("2 holes, 1.5 MiB in all: 512 bytes at byte 512, 1.5 MiB at byte 4,096"));
  report.dwHoles = 1000;  // of which 64 are listed
  for (ZMVRecoverHole& hole : report.Hole) hole = {1024, 1};
  EXPECT_THAT(LossTexts(report)[0], HasSubstr("1 byte at byte 1,024 and 992 more"));
  EXPECT_EQ(RecoveryJson(report)["holes"].size(), 64u);
  EXPECT_EQ(RecoveryJson(report)["hole_count"], 1000u);
}

TEST(RecoveryReport, DroppedFrames_CountAmongTheCompleteOnes) {
  ZMVRecoverReport report = Found();
  report.dwFrames = 17980;
  report.dwDropped = 2;
  EXPECT_THAT(FramesText(report), HasSubstr("17,980 of 17,982 complete frames"));
  EXPECT_THAT(LossTexts(report), ElementsAre("2 frames left out: damaged inside"));
  report.dwDropped = 1;
  EXPECT_THAT(LossTexts(report), ElementsAre("1 frame left out: damaged inside"));
  EXPECT_TRUE(IsIncomplete(report));
}

TEST(RecoveryReport, LostDescriptions_AreNamedByStream) {
  ZMVRecoverReport report = Found();
  report.Stream[0].bDescribed = 0;
  EXPECT_THAT(LossTexts(report), ElementsAre(HasSubstr("description is lost of: video 0;")));
  report.Stream[1].bDescribed = 0;
  EXPECT_THAT(LossTexts(report), ElementsAre(HasSubstr("video 0, audio 0;")));
  EXPECT_EQ(RecoveryJson(report)["streams"][1]["described"], false);
}

TEST(RecoveryReport, IncompleteFrameAndUniformTimes_AreNoLoss) {
  ZMVRecoverReport report = Found();
  report.llIncomplete = 1536;
  report.bUniformTimes = 1;
  EXPECT_THAT(RemarkTexts(report),
              ElementsAre("the last frame is not complete: 1.5 KiB of it left out", HasSubstr("times are uniform")));
  EXPECT_FALSE(IsIncomplete(report));
  EXPECT_EQ(RecoveryJson(report)["uniform_times"], true);
}

TEST(RecoveryReport, DamagedState_IsIncompleteByItself) {
  ZMVRecoverReport report = Found();
  report.dwState = ZMV_RECOVER_DAMAGED;
  EXPECT_TRUE(IsIncomplete(report));
}

TEST(RecoveryReport, Container_IsNamed) {
  ZMVRecoverReport report = Found();
  for (const auto& [format, name] : {std::pair{ZMV_FORMAT_MP4, "MP4"}, std::pair{ZMV_FORMAT_AVI, "AVI"}}) {
    report.dwFormat = format;
    EXPECT_EQ(RecoveryJson(report)["container"], name);
  }
}

TEST(RecoveryReport, Json_HasTheWordsToo) {
  const Json json = RecoveryJson(Found());
  EXPECT_EQ(json["state"], "cut");
  EXPECT_EQ(json["up_to_ms"], 599466u);
  EXPECT_EQ(json["messages"].size(), 1u);
  EXPECT_EQ(json["messages"][0], FramesText(Found()));
}

}  // namespace
}  // namespace zmv::tool

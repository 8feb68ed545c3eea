#include "tools/zmv/import_plan.h"

#include <gtest/gtest.h>

#include <string>

namespace zmv::tool {
namespace {

class DescribedSource : public MediaSource {
 public:
  explicit DescribedSource(const std::vector<uint32_t>& media) {
    for (const uint32_t kind : media) {
      StreamDescription stream;
      stream.media = kind;
      stream.nominal_us = kind * 1000;
      stream.audio.dwSampleRate = 48000;
      stream.video.dwWidth = 16;
      streams_.push_back(stream);
    }
  }
  const std::vector<StreamDescription>& streams() const override { return streams_; }
  int64_t duration_us() const override { return 5000000; }
  double progress() const override { return 0; }
  bool Read(MediaFrame&) override { return false; }

 private:
  std::vector<StreamDescription> streams_;
};

GpsTrack Drive(size_t points, int64_t step_us) {
  GpsTrack track;
  for (size_t i = 0; i < points; ++i) {
    GpsPoint point;
    point.utc_us = 1000000000 + static_cast<int64_t>(i) * step_us;
    point.latitude = 1;
    point.longitude = 2;
    track.points.push_back(point);
  }
  return track;
}

// What the writer makes of the description: positions that find room in the box GPSR.
uint64_t Capacity(const ZMVFileInfo& info) {
  const auto whole = [](uint32_t value) { return value > 1000 ? value / 1000 : value; };
  return uint64_t{whole(info.dwDuration)} * whole(info.m_Text[0].dwRate) * 2;
}

TEST(PlanImport, StreamsOfAllInputs_BecomeTracksVideoFirst) {
  std::vector<std::unique_ptr<MediaSource>> sources;
  sources.push_back(std::make_unique<DescribedSource>(std::vector<uint32_t>{ZMV_MEDIA_AUDIO}));
  sources.push_back(std::make_unique<DescribedSource>(std::vector<uint32_t>{ZMV_MEDIA_VIDEO, ZMV_MEDIA_VIDEO}));
  Console console;
  const ImportPlan plan = PlanImport(sources, "zmv test", console);
  EXPECT_EQ(plan.info.m_dwFileType, 1u);
  EXPECT_EQ(plan.info.dwTimeScale, 90000u);
  EXPECT_EQ(plan.info.dwVideoCount, 2u);
  EXPECT_EQ(plan.info.dwAudioCount, 1u);
  EXPECT_EQ(plan.info.m_Video[1].dwTimeScale, 90000u);
  EXPECT_STREQ(plan.info.szSoftware, "zmv test");
  ASSERT_EQ(plan.tracks.size(), 3u);
  EXPECT_EQ(plan.tracks[1].stream, 1u);
  EXPECT_EQ(plan.tracks[1].track, 1u);
  EXPECT_EQ(plan.tracks[2].media, ZMV_MEDIA_AUDIO);
  EXPECT_EQ(plan.nominal_us, (std::vector<int64_t>{1000, 1000, 2000}));
  EXPECT_EQ(plan.duration_us, 5000000);
}

TEST(PlanImport, SecondAudioAndTenthVideo_AreLeftOut) {
  std::vector<std::unique_ptr<MediaSource>> sources;
  std::vector<uint32_t> media(10, ZMV_MEDIA_VIDEO);
  media.insert(media.end(), {ZMV_MEDIA_AUDIO, ZMV_MEDIA_AUDIO});
  sources.push_back(std::make_unique<DescribedSource>(media));
  Console console;
  testing::internal::CaptureStderr();
  const ImportPlan plan = PlanImport(sources, std::string(100, 'x'), console);
  const std::string said = testing::internal::GetCapturedStderr();
  EXPECT_EQ(plan.info.dwVideoCount, 9u);
  EXPECT_EQ(plan.info.dwAudioCount, 1u);
  EXPECT_EQ(plan.tracks.size(), 10u);
  EXPECT_EQ(std::string(plan.info.szSoftware), std::string(63, 'x'));
  EXPECT_NE(said.find("left out"), std::string::npos);
}

TEST(PlanGps, AnySpacing_LeavesRoomForAllPointsButNotForMillions) {
  struct Case {
    size_t points;
    int64_t step_us;
  };
  for (const Case& c : {Case{1, 0}, Case{2, 1000000}, Case{13, 500000}, Case{36000, 100000}, Case{3600, 1000000},
                        Case{100, 60000000}, Case{50000, 1000}}) {
    const GpsTrack track = Drive(c.points, c.step_us);
    ImportPlan plan;
    PlanGps(track, plan);
    EXPECT_EQ(plan.info.dwTextCount, 1u);
    EXPECT_GE(Capacity(plan.info), c.points + 1) << c.points << " points";
    const uint64_t seconds = c.points * static_cast<uint64_t>(c.step_us) / 1000000 + 2;
    EXPECT_LE(Capacity(plan.info), 2 * (c.points + seconds) + 2) << c.points << " points";
    EXPECT_GT(plan.nominal_us.back(), 0);
  }
}

TEST(GpsFrames, FirstPoint_IsAtTheStart) {
  const GpsTrack track = Drive(3, 500000);
  GpsFrames frames(track, 0);
  MediaFrame frame;
  ASSERT_TRUE(frames.Next(0, frame));
  EXPECT_EQ(frame.time_us, 0);
  EXPECT_EQ(frame.media, ZMV_MEDIA_TEXT);
  EXPECT_EQ(frame.data.size(), kTelemetrySize);
  EXPECT_FALSE(frames.Next(499999, frame));
  ASSERT_TRUE(frames.Next(500000, frame));
  EXPECT_EQ(frame.time_us, 500000);
  EXPECT_EQ(frames.left(), 1u);
  EXPECT_EQ(frames.before_start(), 0u);
}

TEST(GpsFrames, Offset_MovesPointsAndDropsThoseBeforeTheStart) {
  const GpsTrack track = Drive(3, 500000);
  MediaFrame frame;
  GpsFrames later(track, 2000000);
  EXPECT_FALSE(later.Next(1999999, frame));
  ASSERT_TRUE(later.Next(2000000, frame));
  GpsFrames earlier(track, -750000);
  EXPECT_EQ(earlier.before_start(), 2u);
  ASSERT_TRUE(earlier.Next(250000, frame));
  EXPECT_EQ(frame.time_us, 250000);
}

}  // namespace
}  // namespace zmv::tool

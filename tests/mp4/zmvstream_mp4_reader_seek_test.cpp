#include "tests/mp4/reader_seek.h"

namespace zmv::test {
namespace {

using ::testing::HasSubstr;

// ---- The search of one track

TEST_F(ReaderSeek, Backward_LandsOnTheKeyFrameBefore) {
  ASSERT_EQ(Describe(BuildMp4({Video()})), 0u);
  EXPECT_EQ(Search(1500, kBackward), "sample 30 at 990");
  EXPECT_EQ(Search(2969, kBackward), "sample 60 at 1980");
  EXPECT_EQ(Search(0, kBackward), "sample 0 at 0");
}

TEST_F(ReaderSeek, BackwardToExactKeyFrame_LandsOnTheOneBefore) {
  ASSERT_EQ(Describe(BuildMp4({Video()})), 0u);
  EXPECT_EQ(Search(990, kBackward), "sample 0 at 0");
  EXPECT_EQ(Search(991, kBackward), "sample 30 at 990");
  EXPECT_EQ(Search(1980, kBackward), "sample 30 at 990");
}

TEST_F(ReaderSeek, Nearest_ComparesDistancesInSamples) {
  ASSERT_EQ(Describe(BuildMp4({Video()})), 0u);
  EXPECT_EQ(Search(40 * 33, kNearest), "sample 30 at 990");
  EXPECT_EQ(Search(45 * 33, kNearest), "sample 30 at 990") << "a tie goes backward";
  EXPECT_EQ(Search(46 * 33, kNearest), "sample 46 at 1518");
  EXPECT_EQ(Search(50 * 33, kNearest), "sample 50 at 1650");
  EXPECT_EQ(Search(50 * 33 + 1, kNearest), "sample 51 at 1683");
  EXPECT_EQ(Search(60 * 33, kNearest), "sample 60 at 1980");
}

TEST_F(ReaderSeek, NearestBehindTheLastKeyFrame_GoesBackToIt) {
  ASSERT_EQ(Describe(BuildMp4({Video()})), 0u);
  EXPECT_EQ(Search(89 * 33, kNearest), "sample 60 at 1980");
  EXPECT_EQ(Search(90 * 33, kNearest), "sample 60 at 1980");
}

TEST_F(ReaderSeek, Forward_TakesTheFirstSampleAtOrBehindTheTime) {
  ASSERT_EQ(Describe(BuildMp4({Video()})), 0u);
  EXPECT_EQ(Search(1056, kForward), "sample 32 at 1056");
  EXPECT_EQ(Search(1057, kForward), "sample 33 at 1089");
  EXPECT_EQ(Search(60 * 33, kForward), "sample 60 at 1980");
}

TEST_F(ReaderSeek, ForwardBehindTheLastKeyFrame_FindsExactTimesOnly) {
  ASSERT_EQ(Describe(BuildMp4({Video()})), 0u);
  EXPECT_EQ(Search(61 * 33, kForward), "sample 61 at 2013");
  EXPECT_EQ(Search(61 * 33 + 1, kForward), "result 0");
}

TEST_F(ReaderSeek, NoSyncTable_EverySampleIsFound) {
  ASSERT_EQ(Describe(BuildMp4({Audio(1)})), 0u);
  for (uint32_t mode : {kForward, kBackward, kNearest}) {
    EXPECT_EQ(Search(210, mode), "sample 10 at 210");
    EXPECT_EQ(Search(211, mode), "sample 11 at 231");
  }
}

TEST_F(ReaderSeek, EmptySyncTable_HasOnlyTheFirstSampleToGoTo) {
  TrackSpec track = Video();
  track.sync = std::vector<uint32_t>{};
  ASSERT_EQ(Describe(BuildMp4({track})), 0u);
  EXPECT_EQ(Search(500, kBackward), "sample 0 at 0");
  EXPECT_EQ(Search(500, kNearest), "sample 0 at 0");
  EXPECT_EQ(Search(500, kForward), "result 0");
  EXPECT_EQ(Search(330, kForward), "sample 10 at 330");
}

TEST_F(ReaderSeek, FirstKeyFrameBehindTheFirstSample_ShiftsTheTimes) {
  TrackSpec track = Video();
  track.sync = {{6, 31}};
  ASSERT_EQ(Describe(BuildMp4({track})), 0u);
  EXPECT_EQ(Search(0, kBackward), "sample 5 at 0");
  EXPECT_EQ(Search(33, kForward), "sample 6 at 33");
}

TEST_F(ReaderSeek, SyncEntryZero_CountsAsOne) {
  TrackSpec track = Video();
  track.sync = {{0, 31}};
  ASSERT_EQ(Describe(BuildMp4({track})), 0u);
  EXPECT_EQ(Search(100, kBackward), "sample 0 at 0");
  EXPECT_EQ(Search(1000, kBackward), "sample 30 at 990");
}

TEST_F(ReaderSeek, TimeBehindTheTrack_IsMovedToItsEnd) {
  ASSERT_EQ(Describe(BuildMp4({Video(), Audio(2, 200)})), 0u);  // 2970 and 4200 ms
  EXPECT_EQ(Search(4200, kBackward), "sample 60 at 1980");
  EXPECT_EQ(Search(4201, kBackward), "result 0");
}

TEST_F(ReaderSeek, TimeAtTheEnd_LandsBehindTheLastSample) {
  ASSERT_EQ(Describe(BuildMp4({Audio(1)})), 0u);
  uint32_t time = 140 * 21;
  ASSERT_EQ(MP4FReaderGetSeekPos(reader_, &Track(0), &time, kNearest), 1);
  EXPECT_EQ(time, 140u * 21);
  EXPECT_EQ(Track(0).m_dwSeekSample, 140u);
  EXPECT_EQ(Track(0).m_dwSeekChunk, 140u);
  EXPECT_EQ(Track(0).m_dwSeekSamplesLeft, 0u);
  EXPECT_EQ(MP4FReaderStreamSeek(&Track(0)), 1);
  for (int i = 0; i < 3; ++i) EXPECT_EQ(Read(ZMV_MEDIA_AUDIO).code, ZMV_E_END);
}

TEST_F(ReaderSeek, SampleThatIsNotWrittenYet_IsNotFound) {
  TrackSpec track = Video();
  ByteVector file = BuildMp4({track});
  track.offsets = std::vector<uint32_t>(90, 60);
  (*track.offsets)[40] = static_cast<uint32_t>(file.size());
  (*track.offsets)[41] = static_cast<uint32_t>(file.size()) - 1;
  ASSERT_EQ(Describe(BuildMp4({track})), 0u);
  EXPECT_EQ(Search(40 * 33, kForward), "result 0");
  EXPECT_EQ(Search(41 * 33, kForward), "sample 41 at 1353");
}

TEST_F(ReaderSeek, MissingTables_AreNotFound) {
  for (const char* table : {"stsz", "stco"}) {
    TrackSpec track = Video();
    track.leave_out = {table};
    ASSERT_EQ(Describe(BuildMp4({track})), 0u);
    EXPECT_EQ(Search(500, kBackward), "result 0") << table;
  }
  TrackSpec track = Video();
  track.leave_out = {"stts"};
  ASSERT_EQ(Describe(BuildMp4({track})), 0u);
  EXPECT_EQ(Search(500, kBackward), "sample 0 at 0");
  track.leave_out = {"stsc"};
  ASSERT_EQ(Describe(BuildMp4({track})), 0u);
  EXPECT_EQ(Search(1056, kForward), "sample 32 at 1056");
}

TEST_F(ReaderSeek, Search_SaysWhereItLands) {
  ASSERT_EQ(Describe(BuildMp4({Video(), Audio(), Subtitle()})), 0u);
  host_.ClearRecords();
  Search(1056, kForward, 0);
  Search(210, kForward, 1);
  Search(300, kForward, 2);
  std::vector<std::string> lines;
  for (uint32_t slot : {0u, 1u, 2u}) {
    const char* names[] = {"VIDEO", "AUDIO", "TEXT"};
    char text[100];
    snprintf(text, sizeof(text), "[Reader]\tMP4 SEEK %s(%u) chk=%u pos=%x cts=%u \n", names[slot],
             Track(slot).m_dwSeekSample, Track(slot).m_dwSeekChunk, Track(slot).m_dwSeekPos,
             slot == 0   ? 1056u
             : slot == 1 ? 210u
                         : 300u);
    lines.push_back(text);
  }
  EXPECT_EQ(host_.Traces(1), lines);
  EXPECT_THAT(lines[1], HasSubstr("AUDIO(10) chk=11 "));
}

TEST_F(ReaderSeek, Search_ChangesNothingThatReadingUses) {
  ASSERT_EQ(Describe(BuildMp4({Video()})), 0u);
  Advance(ZMV_MEDIA_VIDEO, 10);
  const PlainPlace before = Live(Track(0));
  uint32_t time = 1500;
  ASSERT_EQ(MP4FReaderGetSeekPos(reader_, &Track(0), &time, kBackward), 1);
  EXPECT_EQ(Track(0).m_dwNextSync, before.next_sync);
  EXPECT_EQ(Track(0).m_dwSyncEntry, before.sync_entry);
  ASSERT_EQ(MP4ReaderLoadStblPos(reader_, &Track(0)), 0);
  EXPECT_EQ(Live(Track(0)), before);
}

TEST_F(ReaderSeek, TimeBehindTheMovie_LeavesTheTrackWhereItRead) {
  ASSERT_EQ(Describe(BuildMp4({Video()})), 0u);
  Advance(ZMV_MEDIA_VIDEO, 33);
  const PlainPlace before = Live(Track(0));
  EXPECT_EQ(Search(2971, kBackward), "result 0");
  EXPECT_EQ(Live(Track(0)), before);
  EXPECT_EQ(Read(ZMV_MEDIA_VIDEO).data, Unit(33, 6));
}

// ---- Arguments

TEST_F(ReaderSeek, BadArguments_AreRefused) {
  uint32_t time = 0;
  EXPECT_EQ(MP4FReaderSeekByTime(nullptr, &time, 0), 0);
  EXPECT_EQ(MP4FReaderSeekByKeyFrame(nullptr, &time, 0), 0);
  EXPECT_EQ(MP4FReaderSeekBySubtitle(nullptr, &time, 0), 0);
  EXPECT_EQ(MP4FReaderSeekByMedia(nullptr, &time, ZMV_MEDIA_VIDEO), 0);
  EXPECT_EQ(MP4FReaderChangeTrack(nullptr, 0, 0, ZMV_MEDIA_VIDEO), 0);
  EXPECT_EQ(MP4FReaderStreamSeek(nullptr), 0);
  ASSERT_EQ(Describe(BuildMp4({Video()})), 0u);
  EXPECT_EQ(MP4FReaderGetSeekPos(nullptr, &Track(0), &time, kForward), 0);
  EXPECT_EQ(MP4FReaderGetSeekPos(reader_, nullptr, &time, kForward), 0);
  EXPECT_EQ(MP4FReaderGetSeekPos(reader_, &Track(0), nullptr, kForward), 0);
  EXPECT_EQ(MP4FReaderSeekByTime(reader_, nullptr, 0), 0);
  EXPECT_EQ(MP4FReaderSeekByMedia(reader_, nullptr, ZMV_MEDIA_VIDEO), 0);
  for (uint32_t mode : {0u, 4u, 0xFFFFFFFFu}) EXPECT_EQ(MP4FReaderGetSeekPos(reader_, &Track(0), &time, mode), 0);
  for (uint32_t media : {0u, 4u, 0xFFFFFFFFu}) {
    EXPECT_EQ(MP4FReaderSeekByMedia(reader_, &time, media), 0);
    EXPECT_EQ(MP4FReaderChangeTrack(reader_, 0, 0, media), 0);
  }
}

TEST_F(ReaderSeek, BeforeInformation_NothingIsFound) {
  Load(BuildMp4({Video()}));
  uint32_t time = 0;
  EXPECT_EQ(MP4FReaderSeekByTime(reader_, &time, 0), 0);
  EXPECT_EQ(MP4FReaderSeekByMedia(reader_, &time, ZMV_MEDIA_VIDEO), 0);
  EXPECT_EQ(MP4FReaderChangeTrack(reader_, 0, 0, ZMV_MEDIA_VIDEO), 0);
}

TEST_F(ReaderSeek, EveryFailureOfInformation_LeavesSeeksThatFindNothingOrWork) {
  const ByteVector file = BuildMp4({Video(), Audio(), Subtitle()});
  for (uint64_t nth = 1;; ++nth) {
    Load(file);
    host_.Fail(HostCall::kMalloc, nth);
    const uint32_t result = GetInfo();
    host_.ClearFailures();
    uint32_t time = 500;
    MP4FReaderSeekByTime(reader_, &time, 0);
    MP4FReaderSeekByKeyFrame(reader_, &time, 1);
    MP4FReaderSeekBySubtitle(reader_, &time, 0);
    for (uint32_t media : {ZMV_MEDIA_VIDEO, ZMV_MEDIA_AUDIO, ZMV_MEDIA_TEXT}) {
      MP4FReaderSeekByMedia(reader_, &time, media);
      MP4FReaderChangeTrack(reader_, 0, time, media);
    }
    if (result == 0) break;
    ASSERT_LT(nth, 1000u);
  }
}

}  // namespace
}  // namespace zmv::test

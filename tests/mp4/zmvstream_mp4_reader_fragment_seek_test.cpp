#include "tests/mp4/fragment_test.h"

namespace zmv::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::Not;

class FragmentSeek : public FragmentTest {
 protected:
  // Two fragments of five samples of 40 ms each, offsets counted from the start of the file.
  FragmentFile Plain(uint32_t trun_flags = kDataOffset | kSizes) {
    FragmentFile file({VideoTrack()}, {Trex(1, 40, 6)});
    for (uint8_t i = 0; i < 2; ++i) {
      file.Add({{.base = 0, .runs = {{.flags = trun_flags, .samples = All(i), .duration = 40}}}});
    }
    return file;
  }
  static std::vector<ByteVector> All(uint8_t i) { return Samples(static_cast<uint8_t>(1 + 100 * i), {6, 6, 6, 6, 6}); }
};

TEST_F(FragmentSeek, Time_LandsOnTheFirstSampleThatReachesIt) {
  const struct {
    uint32_t time, found, trun, left;
  } kCases[] = {{0, 40, 1, 4},    {1, 40, 1, 4},    {40, 40, 1, 4},   {41, 80, 1, 3},   {160, 160, 1, 1},
                {161, 200, 1, 0}, {200, 200, 1, 0}, {201, 240, 2, 4}, {399, 400, 2, 0}, {400, 400, 2, 0}};
  for (const auto& c : kCases) {
    ASSERT_EQ(Describe(Plain()), 0u);
    uint32_t time = c.time;
    ASSERT_EQ(Search(&time), 1u) << c.time;
    EXPECT_EQ(time, c.found);
    EXPECT_EQ(Track(0).m_dwSeekTrunIndex, c.trun);
    EXPECT_EQ(Track(0).m_dwSeekTrunLeft, c.left);
    EXPECT_EQ(Track(0).m_dwSeekFragDts, c.found);
    Take();
    std::vector<ByteVector> expected = All(0);
    const std::vector<ByteVector> second = All(1);
    expected.insert(expected.end(), second.begin(), second.end());
    expected.erase(expected.begin(), expected.begin() + c.found / 40);
    EXPECT_EQ(ReadPayloads(ZMV_MEDIA_VIDEO), expected) << c.time;
  }
}

TEST_F(FragmentSeek, TimeBehindTheFragments_IsNotFoundAndMovesNothing) {
  ASSERT_EQ(Describe(Plain()), 0u);
  ASSERT_EQ(Read(ZMV_MEDIA_VIDEO).data, All(0)[0]);
  const MP4ReaderTrack before = Track(0);
  const uint32_t cursor = ZMVStreamBuf_Pos(stream_, before.m_Frag.m_dwCursor);
  uint32_t time = 401;
  EXPECT_EQ(Search(&time), 0u);
  EXPECT_EQ(time, 401u);
  EXPECT_EQ(ZMVStreamBuf_Pos(stream_, before.m_Frag.m_dwCursor), cursor);
  EXPECT_EQ(Track(0).m_dwTrunLeft, before.m_dwTrunLeft);
  Take();  // the place that was pending is the one that is read
  EXPECT_EQ(Read(ZMV_MEDIA_VIDEO).data, All(0)[1]);
}

TEST_F(FragmentSeek, SearchOfTheFragmentsAlone_KeepsToTheSavedPositions) {
  ASSERT_EQ(Describe(Plain()), 0u);
  ASSERT_EQ(Read(ZMV_MEDIA_VIDEO).data, All(0)[0]);
  const uint32_t cursor = ZMVStreamBuf_Pos(stream_, Track(0).m_Frag.m_dwCursor);
  for (uint32_t target : {240u, 401u}) {
    uint32_t time = target;
    ASSERT_EQ(MP4ReaderSaveStblPos(reader_, &Track(0)), 0);
    ASSERT_EQ(MP4ReaderSetStblPos(reader_, &Track(0)), 0);
    const uint32_t found = MP4ReaderGetSeekPosFrag(reader_, &Track(0), &time, 2);
    ASSERT_EQ(found, target == 240 ? 1u : 0u);
    EXPECT_EQ(time, target);
    if (found == 1) {
      EXPECT_EQ(Track(0).m_dwSeekTrunIndex, 2u);
      ASSERT_EQ(MP4ReaderLoadStblPos(reader_, &Track(0)), 0);
    }
    EXPECT_EQ(ZMVStreamBuf_Pos(stream_, Track(0).m_Frag.m_dwCursor), cursor);
  }
  EXPECT_EQ(Read(ZMV_MEDIA_VIDEO).data, All(0)[1]);
}

TEST_F(FragmentSeek, SamplesWithoutFields_AreFoundAsThoseWithThem) {
  for (uint32_t time = 0; time <= 410; ++time) {
    uint32_t plain = time, listed = time;
    ASSERT_EQ(Describe(Plain(kDataOffset)), 0u);
    const uint32_t found = Search(&plain);
    const MP4ReaderTrack counted = Track(0);
    const uint32_t base = ZMVStreamBuf_Pos(stream_, counted.m_Frag.m_dwCursor);
    ASSERT_EQ(Describe(Plain(kDataOffset | kSizes)), 0u);
    ASSERT_EQ(Search(&listed), found);
    EXPECT_EQ(plain, listed) << time;
    if (found == 0) continue;
    EXPECT_EQ(counted.m_dwSeekTrunLeft, Track(0).m_dwSeekTrunLeft);
    EXPECT_EQ(counted.m_dwSeekFragDts, Track(0).m_dwSeekFragDts);
    // Ten bytes of samples without sizes: the boxes in front are five words shorter for each trun passed.
    EXPECT_EQ(counted.m_dwSeekPos + 20 * counted.m_dwSeekTrunIndex, Track(0).m_dwSeekPos);
    EXPECT_GT(base, counted.m_Frag.m_dwStart);
  }
}

TEST_F(FragmentSeek, OwnDurations_AreAddedUp) {
  FragmentFile file({VideoTrack()}, {Trex(1, 1)});
  file.Add({{.base = 0,
             .runs = {{.flags = kDataOffset | kFirstFlags | kDurations | kSizes | kFlags | kComposition,
                       .samples = Samples(1, {3, 4, 5, 6}),
                       .duration = 100}}}});  // 100, 101, 102, 103
  ASSERT_EQ(Describe(file), 0u);
  uint32_t time = 102;
  ASSERT_EQ(Search(&time), 1u);
  EXPECT_EQ(time, 201u);
  Take();
  const ReadResult read = Read(ZMV_MEDIA_VIDEO);
  EXPECT_EQ(read.data, Unit(33, 5));
  EXPECT_EQ(read.frame.llTimeStamp, 201u);
  EXPECT_EQ(read.frame.dwKeyFrame, 2u);
}

TEST_F(FragmentSeek, TfhdDefaults_GoWithTheFragment) {
  FragmentFile file({VideoTrack()}, {Trex(1, 40, 6)});
  file.Add({{.flags = kBaseOffset | kDefaultDuration | kDefaultSize,
             .duration = 10,
             .size = 3,
             .base = 0,
             .runs = {{.flags = kDataOffset, .samples = Samples(1, {3, 3, 3})}}}});
  file.Add({{.base = 0, .runs = {{.flags = kDataOffset, .samples = Samples(90, {6, 6, 6})}}}});
  ASSERT_EQ(Describe(file), 0u);
  uint32_t time = 20;
  ASSERT_EQ(Search(&time), 1u);
  Take();
  std::vector<uint64_t> stamps;
  for (const ReadResult& read : ReadAll(ZMV_MEDIA_VIDEO)) stamps.push_back(read.frame.llTimeStamp);
  EXPECT_THAT(stamps, ElementsAre(20, 30, 70, 110));
  time = 100;
  ASSERT_EQ(Search(&time), 1u);
  EXPECT_EQ(time, 110u);
  Take();
  EXPECT_THAT(ReadPayloads(ZMV_MEDIA_VIDEO), ElementsAre(Unit(122, 6)));
}

// The truns behind the one that was found, in the same traf, have no tfhd of their own.
TEST_F(FragmentSeek, BaseAndDefaults_StayInForceBehindThePlaceFound) {
  FragmentFile file({VideoTrack()}, {Trex(1, 40, 6)});
  const uint32_t base = file.Size();
  file.Add({{.base = base, .runs = {{.flags = kDataOffset, .samples = Samples(200, {6})}}}});
  file.Add({{.flags = kBaseOffset | kDefaultDuration | kDefaultSize,
             .duration = 10,
             .size = 3,
             .base = base,
             .runs = {{.flags = kDataOffset, .samples = Samples(1, {3, 3, 3})},
                      {.flags = kDataOffset, .samples = Samples(60, {3, 3})}}}});
  ASSERT_EQ(Describe(file), 0u);
  ASSERT_EQ(Read(ZMV_MEDIA_VIDEO).data, Unit(200, 6));  // the base is known now
  for (int turn = 0; turn < 2; ++turn) {
    uint32_t time = 45;
    ASSERT_EQ(Search(&time), 1u);
    EXPECT_EQ(time, 50u);
    Take();
    const std::vector<ReadResult> frames = ReadAll(ZMV_MEDIA_VIDEO);
    ASSERT_EQ(frames.size(), 4u) << turn;
    const ByteVector payloads[] = {Unit(17, 3), Unit(33, 3), Unit(60, 3), Unit(76, 3)};
    for (size_t i = 0; i < 4; ++i) {
      EXPECT_EQ(frames[i].data, payloads[i]) << i;
      EXPECT_EQ(frames[i].frame.llTimeStamp, 50 + 10 * i);
    }
  }
}

TEST_F(FragmentSeek, AfterTheSamplesOfMoov_TimesGoOn) {
  TrackSpec video = VideoTrack();
  video.duration = 1000;
  video.frames = {Prefixed(Unit(0x65, 3))};
  FragmentFile file({video}, {Trex(1, 40)});
  file.Add({{.base = 0, .runs = {{.samples = Samples(1, {3, 4, 5})}}}});
  ASSERT_EQ(Describe(file), 0u);
  uint32_t time = 1041;
  ASSERT_EQ(Search(&time), 1u);
  EXPECT_EQ(time, 1080u);
  EXPECT_EQ(Track(0).m_dwSeekSample, 1u);
  EXPECT_EQ(Track(0).m_dwSampleIndex, 0u);
  Take();
  EXPECT_THAT(ReadPayloads(ZMV_MEDIA_VIDEO), ElementsAre(Unit(33, 5)));
}

TEST_F(FragmentSeek, OtherTracks_ArePassedOver) {
  TrackSpec audio = AudioTrack();
  FragmentFile file({VideoTrack(), audio}, {Trex(1, 40), Trex(2, 20)});
  for (uint8_t i = 0; i < 3; ++i) {
    file.Add({{.track = 1, .base = 0, .runs = {{.samples = Samples(i, {3, 3})}}},
              {.track = 2, .base = 0, .runs = {{.samples = Samples(static_cast<uint8_t>(50 + i), {4, 4, 4, 4})}}}});
  }
  ASSERT_EQ(Describe(file), 0u);
  uint32_t time = 121;
  ASSERT_EQ(Search(&time, 1), 1u);
  EXPECT_EQ(time, 140u);
  Take(1);
  EXPECT_EQ(Read(ZMV_MEDIA_AUDIO).data, Unit(51 + 48, 4));
  EXPECT_EQ(Read(ZMV_MEDIA_AUDIO).data, Unit(52, 4));
  EXPECT_EQ(Read(ZMV_MEDIA_VIDEO).data, Unit(0, 3));
}

TEST_F(FragmentSeek, SampleInsideATrun_IsNoKeyFrameWhateverWasReadBefore) {
  FragmentFile file({VideoTrack()}, {Trex(1, 40)});
  file.Add({{.base = 0, .runs = {{.samples = Samples(1, {3, 3})}, {.samples = Samples(50, {3, 3, 3})}}}});
  ASSERT_EQ(Describe(file), 0u);
  ASSERT_EQ(Read(ZMV_MEDIA_VIDEO).frame.dwKeyFrame, 1u);  // of a trun with as many samples as will be left
  uint32_t time = 120;
  ASSERT_EQ(Search(&time), 1u);
  Take();
  ASSERT_EQ(Track(0).m_dwTrunLeft, 2u);
  const ReadResult read = Read(ZMV_MEDIA_VIDEO);
  EXPECT_EQ(read.data, Unit(66, 3));
  EXPECT_EQ(read.frame.dwKeyFrame, 2u);
}

TEST_F(FragmentSeek, FoundPlace_IsTraced) {
  const struct {
    TrackSpec track;
    const char* line;
  } kCases[] = {{VideoTrack(), "[Reader]\tMP4 SEEK VIDEO Frag(1, 2) pos=%x cts=40 \n"},
                {AudioTrack(1), "[Reader]\tMP4 SEEK AUDIO Frag(1, 2) pos=%x cts=40 \n"},
                {TextTrack(1), "[Reader]\tMP4 SEEK TEXT Frag(1, 2) pos=%x cts=40 \n"}};
  for (const auto& c : kCases) {
    FragmentFile file({c.track}, {Trex(1, 40)});
    file.Add({{.base = 0, .runs = {{.samples = Samples(1, {3, 3, 3})}}}});
    ASSERT_EQ(Describe(file), 0u);
    uint32_t time = 30;
    ASSERT_EQ(Search(&time), 1u);
    char line[128];
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    snprintf(line, sizeof line, c.line, file.Size() - 6);
#pragma GCC diagnostic pop
    EXPECT_THAT(host_.Traces(1), Contains(line));
  }
}

TEST_F(FragmentSeek, BaseOfTheFragmentBeingRead_IsTheOneThatCounts) {
  FragmentFile file({VideoTrack()}, {Trex(1, 40)});
  const uint32_t base = file.Size();
  for (uint8_t i = 0; i < 2; ++i) file.Add({{.base = base, .runs = {{.samples = Samples(i, {3, 3})}}}});
  ASSERT_EQ(Describe(file), 0u);
  ASSERT_EQ(Read(ZMV_MEDIA_VIDEO).data, Unit(0, 3));
  uint32_t time = 120;
  ASSERT_EQ(Search(&time), 1u);
  EXPECT_EQ(Track(0).m_dwSeekPos, file.Size() - 3);
  const std::vector<std::string> lines = host_.Traces(2);
  EXPECT_EQ(std::count(lines.begin(), lines.end(), kBaseRemark), 0);
}

TEST_F(FragmentSeek, BaseThatASeekCameTo_IsInForceForTheNext) {
  FragmentFile file({VideoTrack()}, {Trex(1, 40)});
  const uint32_t base = file.Size();
  for (uint8_t i = 0; i < 2; ++i) file.Add({{.base = base, .runs = {{.samples = Samples(i, {3, 3})}}}});
  ASSERT_EQ(Describe(file), 0u);
  for (uint32_t place : {file.Size() - 3 - base, file.Size() - 3}) {
    uint32_t time = 120;
    ASSERT_EQ(Search(&time), 1u);
    EXPECT_EQ(Track(0).m_dwSeekPos, place);
    Take();
  }
  EXPECT_THAT(ReadPayloads(ZMV_MEDIA_VIDEO), ElementsAre(Unit(17, 3)));
}

TEST_F(FragmentSeek, BaseThatIsNotYetInForce_IsRemarkedOn) {
  FragmentFile file({VideoTrack()}, {Trex(1, 40)});
  const uint32_t base = file.Size();
  for (uint8_t i = 0; i < 2; ++i) file.Add({{.base = base, .runs = {{.samples = Samples(i, {3, 3})}}}});
  ASSERT_EQ(Describe(file), 0u);
  EXPECT_THAT(host_.Traces(2), Not(Contains(kBaseRemark)));
  uint32_t time = 120;
  ASSERT_EQ(Search(&time), 1u);
  EXPECT_EQ(Track(0).m_dwSeekPos, file.Size() - 3 - base);
  EXPECT_THAT(host_.Traces(2), Contains(kBaseRemark));
}

TEST_F(FragmentSeek, TrunWithoutDataOffset_GoesOnFromTheLastPlace) {
  FragmentFile file({VideoTrack()}, {Trex(1, 40)});
  file.Add({{.base = 0, .runs = {{.samples = Samples(1, {3, 4})}, {.flags = kSizes, .samples = Samples(9, {5, 6})}}}});
  ASSERT_EQ(Describe(file), 0u);
  uint32_t time = 120;
  ASSERT_EQ(Search(&time), 1u);
  EXPECT_EQ(Track(0).m_dwSeekPos, file.Size() - 6);
  Take();
  EXPECT_THAT(ReadPayloads(ZMV_MEDIA_VIDEO), ElementsAre(Unit(25, 6)));
}

TEST_F(FragmentSeek, ReadThatFails_GivesTheLowByteAndMovesNothing) {
  for (uint64_t n = 1;; ++n) {
    ASSERT_EQ(Describe(Plain()), 0u);
    ASSERT_EQ(Read(ZMV_MEDIA_VIDEO).code, 0u);
    const uint32_t cursor = ZMVStreamBuf_Pos(stream_, Track(0).m_Frag.m_dwCursor);
    uint32_t time = 399;
    const uint64_t reads = host_.Count(HostCall::kRead);
    host_.Fail(HostCall::kRead, n);
    const uint32_t found = Search(&time);
    host_.ClearFailures();
    if (host_.Count(HostCall::kRead) - reads < n) {
      EXPECT_EQ(found, 1u);
      EXPECT_GT(n, 2u);
      return;
    }
    if (found == 1) continue;  // the failure hit a read-ahead that nothing needed
    EXPECT_EQ(found, 0x12u) << n;
    EXPECT_EQ(time, 399u);
    EXPECT_EQ(ZMVStreamBuf_Pos(stream_, Track(0).m_Frag.m_dwCursor), cursor);
    Take();  // a caller that takes the failure for done
    EXPECT_EQ(Track(0).m_dwTrunIndex, 1u) << n;
    EXPECT_EQ(Read(ZMV_MEDIA_VIDEO).data, All(0)[1]) << n;
    EXPECT_EQ(Read(ZMV_MEDIA_VIDEO).frame.llTimeStamp, 80u) << n;
  }
}

TEST_F(FragmentSeek, TimeScaleZero_FindsNothingBehindMoov) {
  TrackSpec video = VideoTrack();
  video.time_scale = 0;
  FragmentFile file({video}, {Trex(1, 40)});
  file.Add({{.base = 0, .runs = {{.samples = Samples(1, {3, 3, 3})}}}});
  ASSERT_EQ(Describe(file), 0u);
  uint32_t time = 1;
  EXPECT_EQ(Search(&time), 0u);
}

TEST_F(FragmentSeek, TimesBeyond32Bits_AreNotFound) {
  for (uint32_t flags : {kDataOffset, kDataOffset | kSizes}) {
    FragmentFile file({VideoTrack()}, {Trex(1, 0xFFFFFFFF, 1)});
    file.Add({{.base = 0, .runs = {{.flags = flags, .samples = Samples(1, {1, 1, 1})}}}});
    ASSERT_EQ(Describe(file), 0u);
    uint32_t time = 0x7FFFFFFF;  // where the times of the search end
    EXPECT_EQ(Search(&time), 1u);
    time = 0x80000000;
    EXPECT_EQ(Search(&time), 0u);
  }
}

TEST_F(FragmentSeek, ManySamplesWithoutFields_CostNothing) {
  FragmentFile file({VideoTrack()}, {Trex(1, 0)});
  file.Add({{.base = 0,
             .runs = {{.flags = kDataOffset, .count = 0xFFFFFFFF}, {.flags = kDataOffset, .count = 0xFFFFFFFF}}}});
  ASSERT_EQ(Describe(file), 0u);
  const uint64_t reads = host_.Count(HostCall::kRead);
  uint32_t time = 1;
  EXPECT_EQ(Search(&time), 0u);
  EXPECT_LT(host_.Count(HostCall::kRead) - reads, 50u);
}

TEST_F(FragmentSeek, PlaceBehindTheData_IsNotFound) {
  FragmentFile file({VideoTrack()}, {Trex(1, 40, 0xFFFFFFFF)});
  file.Add({{.base = 0, .runs = {{.flags = kDataOffset, .count = 50}, {.flags = 0, .count = 50}}}});
  ASSERT_EQ(Describe(file), 0u);
  uint32_t time = 60 * 40;
  EXPECT_EQ(Search(&time), 0u);
}

TEST_F(FragmentSeek, NullArgumentsAndTracksWithoutFragments_FindNothing) {
  ASSERT_EQ(Describe(FragmentFile({VideoTrack()})), 0u);
  uint32_t time = 0;
  EXPECT_EQ(Search(&time), 0u);
  EXPECT_EQ(MP4ReaderGetSeekPosFrag(nullptr, &Track(0), &time, 1), 0);
  EXPECT_EQ(MP4ReaderGetSeekPosFrag(reader_, nullptr, &time, 1), 0);
  EXPECT_EQ(MP4ReaderGetSeekPosFrag(reader_, &Track(0), nullptr, 1), 0);
}

}  // namespace
}  // namespace zmv::test

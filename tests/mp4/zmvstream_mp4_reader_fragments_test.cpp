#include "tests/mp4/fragment_test.h"

namespace zmv::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;
using testing::Not;

// 300 samples over 10 seconds.
TrackSpec TenSeconds() {
  TrackSpec video = VideoTrack();
  video.duration = 10000;
  video.frames.assign(300, Prefixed(Unit(0x65, 3)));
  video.times = {{300, 33}};
  return video;
}

// ---- mvex

using MovieExtends = FragmentTest;

TEST_F(MovieExtends, FragmentDuration_IsEveryDuration) {
  TrackSpec video = VideoTrack();
  video.duration = 10000;
  FragmentFile file({video, AudioTrack()}, {FullBox("mehd", {Be32(30000)})});
  ASSERT_EQ(Describe(file), 0u);
  EXPECT_EQ(info_->m_Video[0].dwDuration, 30000u);
  EXPECT_EQ(info_->m_Audio.dwDuration, 30000u);
  EXPECT_EQ(info_->dwDuration, 30000u);
  EXPECT_EQ(reader_->m_dwFragDuration, 30000u);
}

TEST_F(MovieExtends, LongFragmentDuration_KeepsItsLowHalf) {
  FragmentFile file({VideoTrack()}, {Box("mehd", {Be32(0x01000000), Be64(0x1'0000'1388)})});
  ASSERT_EQ(Describe(file), 0u);
  EXPECT_EQ(info_->dwDuration, 5000u);
}

TEST_F(MovieExtends, FragmentDuration_CountsInTheTimeScaleOfTheMovie) {
  FileSpec plan;
  plan.movie_header = Mvhd(90000, 0);
  plan.movie_end = Box("mvex", FullBox("mehd", {Be32(180000)}));
  ASSERT_EQ(ReaderTest::Describe(BuildMp4({VideoTrack()}, plan)), 0u);
  EXPECT_EQ(info_->dwDuration, 2000u);
}

TEST_F(MovieExtends, TrackDefaults_GoToTheirTrackInFrontOfTheTracksToo) {
  FileSpec plan;
  plan.movie_header = Join({Mvhd(1000, 0), Box("mvex", {Trex(2, 20, 7), Trex(1, 40, 9)})});
  ASSERT_EQ(ReaderTest::Describe(BuildMp4({VideoTrack(), AudioTrack()}, plan)), 0u);
  ASSERT_EQ(reader_->m_dwTrackCount, 2u);
  EXPECT_EQ(MP4ReaderFindTrak(reader_, 1)->m_dwTrexDuration, 40u);
  EXPECT_EQ(MP4ReaderFindTrak(reader_, 1)->m_dwTrexSize, 9u);
  EXPECT_EQ(MP4ReaderFindTrak(reader_, 2)->m_dwTrexDuration, 20u);
  EXPECT_EQ(MP4ReaderFindTrak(reader_, 2)->m_dwTrexSize, 7u);
}

TEST_F(MovieExtends, DefaultsOfAThirteenthTrack_ArePassedOver) {
  std::vector<ByteVector> extends;
  for (uint32_t id = 1; id <= 13; ++id) extends.push_back(Trex(id, id));
  FragmentFile file({VideoTrack()}, extends);
  ASSERT_EQ(Describe(file), 0u);
  EXPECT_EQ(reader_->m_dwTrackCount, 12u);
  EXPECT_EQ(info_->dwVideoCount, 1u);
}

TEST_F(MovieExtends, DefaultsWithoutMemoryForTheTrack_ArePassedOver) {
  Load(Trex(7, 40));
  host_.Fail(HostCall::kMalloc, 1);
  EXPECT_EQ(MP4ReaderParseMvex(reader_, 32), 0);
  EXPECT_EQ(reader_->m_dwTrackCount, 0u);
}

TEST_F(MovieExtends, NullHandle_Fails) {
  EXPECT_EQ(Code(MP4ReaderParseMvex(nullptr, 8)), ZMV_E_FAIL);
  EXPECT_EQ(Code(MP4ReaderParseMoof(nullptr, 8)), ZMV_E_FAIL);
  EXPECT_EQ(Code(MP4ReaderParseTraf(nullptr, 8)), ZMV_E_FAIL);
}

// ---- Counting

using FragmentCount = FragmentTest;

TEST_F(FragmentCount, Truns_AreCountedForTheirTrackAndReadLater) {
  FragmentFile file({VideoTrack(), AudioTrack()}, {Trex(1, 40), Trex(2, 20)});
  const uint32_t first = file.Size();
  file.Add({{.track = 1, .runs = {{.samples = Samples(1, {3})}, {.samples = Samples(2, {4})}}},
            {.track = 2, .runs = {{.samples = Samples(3, {5})}}}});
  file.Add({{.track = 1, .runs = {{.samples = Samples(4, {6})}}}});
  ASSERT_EQ(Describe(file), 0u);
  EXPECT_EQ(Track(0).m_dwTrunCount, 3u);
  EXPECT_EQ(Track(1).m_dwTrunCount, 1u);
  EXPECT_EQ(Track(0).m_Frag.m_dwStart, first + 8 + 16 + 8);  // moof header, mfhd, traf header
  EXPECT_EQ(ZMVStreamBuf_Pos(stream_, Track(0).m_Frag.m_dwCursor), Track(0).m_Frag.m_dwStart);
  EXPECT_EQ(Track(0).m_dwTrunIndex, 0u);
  EXPECT_EQ(CursorsInUse(), 1u + 4 + 4 + 2);
}

TEST_F(FragmentCount, TrunInFrontOfItsTfhd_DoesNotCount) {
  FragmentFile file({VideoTrack()});
  Append(file.bytes, Box("moof", Box("traf", {BuildTrun({}, 0), BuildTfhd({}, 0)})));
  ASSERT_EQ(Describe(file), 0u);
  EXPECT_EQ(Track(0).m_dwTrunCount, 0u);
  EXPECT_EQ(Read(ZMV_MEDIA_VIDEO).code, ZMV_E_END);
}

TEST_F(FragmentCount, DescribedTwice_CountsOnce) {
  FragmentFile file({VideoTrack()});
  file.Add({{.runs = {{.samples = Samples(1, {3})}}}});
  ASSERT_EQ(Describe(file), 0u);
  const uint32_t cursors = CursorsInUse();
  ASSERT_EQ(Read(ZMV_MEDIA_VIDEO).code, 0u);
  ASSERT_EQ(GetInfo(), 0u);
  EXPECT_EQ(Track(0).m_dwTrunCount, 1u);
  EXPECT_EQ(CursorsInUse(), cursors);
  EXPECT_EQ(Read(ZMV_MEDIA_VIDEO).data, Unit(1, 3));
}

TEST_F(FragmentCount, FragmentsInFrontOfMoov_AreKeptForTheirTrack) {
  FileSpec plan;
  const auto brand = static_cast<uint32_t>(BuildMp4({}).size() - Box("moov", Mvhd(1000, 0)).size());
  plan.before_moov = BuildFragment({{.runs = {{.samples = Samples(1, {3})}}}}, brand);
  ASSERT_EQ(ReaderTest::Describe(BuildMp4({VideoTrack()}, plan)), 0u);
  EXPECT_THAT(ReadPayloads(ZMV_MEDIA_VIDEO), ElementsAreArray(Samples(1, {3})));
}

TEST_F(FragmentCount, NoCursorLeft_FailsWithItsTrace) {
  std::vector<TrackSpec> tracks = {VideoTrack(1), VideoTrack(2), VideoTrack(3), AudioTrack(4)};
  for (TrackSpec& track : tracks) track.sync = std::vector<uint32_t>{};
  tracks[3].sync.reset();
  FragmentFile file(tracks);  // 20 cursors
  file.Add({{.track = 1, .runs = {{.samples = Samples(1, {3})}}}});
  EXPECT_EQ(Describe(file), ZMV_E_MEMORY);
  EXPECT_THAT(host_.Traces(1), Contains("[Reader]\t\tMP4ReaderParseTraf - ZMVStreamBuf_Index error!!!\n"));
}

TEST_F(FragmentCount, FragmentOfAThirteenthTrack_IsPassedOver) {
  std::vector<ByteVector> extends;
  for (uint32_t id = 1; id <= 12; ++id) extends.push_back(Trex(id, id));
  FragmentFile file({VideoTrack()}, extends);
  file.Add({{.track = 13, .runs = {{.samples = Samples(9, {9})}}}, {.runs = {{.samples = Samples(1, {3})}}}});
  ASSERT_EQ(Describe(file), 0u);
  EXPECT_THAT(ReadPayloads(ZMV_MEDIA_VIDEO), ElementsAreArray(Samples(1, {3})));
}

// ---- Remarks on forms that are read wrongly

using FragmentRemarks = FragmentTest;

TEST_F(FragmentRemarks, OffsetsFromMoof_AreRemarkedOnOnce) {
  FragmentFile file({VideoTrack()});
  file.Add({{.flags = kBaseIsMoof, .runs = {{.samples = Samples(1, {3})}}}});
  file.Add({{.flags = kBaseIsMoof, .runs = {{.samples = Samples(1, {3})}}}});
  ASSERT_EQ(Describe(file), 0u);
  const std::vector<std::string> lines = host_.Traces(2);
  EXPECT_EQ(std::count(lines.begin(), lines.end(), kNoBaseRemark), 1);
}

TEST_F(FragmentRemarks, ChangingBase_IsRemarkedOnOnce) {
  FragmentFile file({VideoTrack()});
  for (int i = 0; i < 3; ++i) file.Add({{.runs = {{.samples = Samples(1, {3})}}}});
  ASSERT_EQ(Describe(file), 0u);
  const std::vector<std::string> lines = host_.Traces(2);
  EXPECT_EQ(std::count(lines.begin(), lines.end(), kBaseRemark), 1);
}

TEST_F(FragmentRemarks, SecondRunWithoutOffset_IsRemarkedOn) {
  FragmentFile file({VideoTrack()});
  file.Add({{.runs = {{.samples = Samples(1, {3})}, {.flags = kSizes, .samples = Samples(2, {3})}}}});
  ASSERT_EQ(Describe(file), 0u);
  EXPECT_THAT(host_.Traces(2), Contains(kNoOffsetRemark));
}

TEST_F(FragmentRemarks, FirstRunWithoutOffset_IsNot) {
  FragmentFile file({VideoTrack()});
  file.Add({{.runs = {{.samples = Samples(1, {3})}}}});
  file.Add({{.base_at_data = true, .runs = {{.flags = kSizes, .samples = Samples(2, {3})}}}});
  ASSERT_EQ(Describe(file), 0u);
  EXPECT_THAT(host_.Traces(2), Not(Contains(kNoOffsetRemark)));
}

TEST_F(FragmentRemarks, FormsThatAreReadRightly_AreNot) {
  FragmentFile file({VideoTrack()});
  for (int i = 0; i < 2; ++i) {
    file.Add({{.base = 0, .runs = {{.samples = Samples(1, {3})}, {.samples = Samples(2, {3})}}}});
  }
  ASSERT_EQ(Describe(file), 0u);
  for (const std::string& line : host_.Traces(2)) EXPECT_THAT(line, Not(testing::HasSubstr("TrackID(1)")));
}

// ---- Frames

using FragmentFrames = FragmentTest;

TEST_F(FragmentFrames, FollowTheSamplesOfMoov_AsStored) {
  TrackSpec video = VideoTrack();
  video.frames = {Prefixed(Unit(0x65, 5))};
  FragmentFile file({video}, {Trex(1, 40)});
  const std::vector<ByteVector> stored = {Prefixed(Unit(0x65, 9)), Prefixed(Unit(0x41, 4))};
  file.Add({{.runs = {{.samples = stored}}}});
  ASSERT_EQ(Describe(file), 0u);
  EXPECT_THAT(ReadPayloads(ZMV_MEDIA_VIDEO), ElementsAre(StartCoded(Unit(0x65, 5)), stored[0], stored[1]));
  EXPECT_EQ(end_, ZMV_E_END);
  EXPECT_EQ(Read(ZMV_MEDIA_VIDEO).code, ZMV_E_END);
  EXPECT_EQ(Track(0).m_dwSampleIndex, 1u);
}

TEST_F(FragmentFrames, FirstFragmentSample_ContinuesWhereMoovEnds) {
  FragmentFile file({TenSeconds()}, {Trex(1, 33)});
  file.Add({{.runs = {{.samples = Samples(1, {3, 4})}}}});
  ASSERT_EQ(Describe(file), 0u);
  const std::vector<ReadResult> frames = ReadAll(ZMV_MEDIA_VIDEO);
  ASSERT_EQ(frames.size(), 302u);
  EXPECT_EQ(frames[300].frame.llTimeStamp, 10000u);
  EXPECT_EQ(frames[300].frame.llTimeStampUs, 0u);
  EXPECT_EQ(frames[300].frame.dwDuration, 33u);
  EXPECT_EQ(frames[301].frame.llTimeStamp, 10033u);
  EXPECT_EQ(frames[301].frame.llTimeStampUs, 33000u);
}

TEST_F(FragmentFrames, AudioAndTextStamps_AreMilliseconds) {
  TrackSpec audio = AudioTrack();
  audio.time_scale = 48000;
  FragmentFile file({audio, TextTrack()}, {Trex(2, 1024), Trex(3, 500)});
  file.Add({{.track = 2, .runs = {{.samples = Samples(1, {3, 3, 3, 3})}}},
            {.track = 3, .runs = {{.samples = Samples(9, {2, 2})}}}});
  ASSERT_EQ(Describe(file), 0u);
  std::vector<uint64_t> stamps;
  for (const ReadResult& read : ReadAll(ZMV_MEDIA_AUDIO)) stamps.push_back(read.frame.llTimeStamp);
  EXPECT_THAT(stamps, ElementsAre(0, 21, 42, 64));
  stamps.clear();
  for (const ReadResult& read : ReadAll(ZMV_MEDIA_TEXT)) stamps.push_back(read.frame.llTimeStamp);
  EXPECT_THAT(stamps, ElementsAre(0, 500));
}

TEST_F(FragmentFrames, TimeScaleZero_GivesTimesOfZero) {
  TrackSpec video = VideoTrack();
  video.time_scale = 0;
  FragmentFile file({video}, {Trex(1, 40)});
  file.Add({{.runs = {{.samples = Samples(1, {3, 3})}}}});
  ASSERT_EQ(Describe(file), 0u);
  for (const ReadResult& read : ReadAll(ZMV_MEDIA_VIDEO)) {
    EXPECT_EQ(read.frame.llTimeStamp, 0u);
    EXPECT_EQ(read.frame.dwDuration, 0u);
  }
}

TEST_F(FragmentFrames, FirstSampleOfEachTrun_IsTheKeyFrame) {
  FragmentFile file({VideoTrack()}, {Trex(1, 40)});
  file.Add({{.runs = {{.samples = Samples(1, {3, 3})}, {.samples = Samples(2, {3})}}}});
  file.Add({{.runs = {{.samples = Samples(3, {3, 3})}}}});
  ASSERT_EQ(Describe(file), 0u);
  std::vector<uint32_t> keys;
  for (int i = 0; i < 5; ++i) {
    ASSERT_EQ(Read(ZMV_MEDIA_VIDEO, 2).code, ZMV_E_MP4_BUFFER);  // does not use the key flag up
    keys.push_back(Read(ZMV_MEDIA_VIDEO).frame.dwKeyFrame);
  }
  EXPECT_THAT(keys, ElementsAre(1, 2, 1, 1, 2));
}

TEST_F(FragmentFrames, ChunkNumber_IsLeftAlone) {
  FragmentFile file({VideoTrack()}, {Trex(1, 40)});
  file.Add({{.runs = {{.samples = Samples(1, {3})}}}});
  ASSERT_EQ(Describe(file), 0u);
  uint8_t buffer[8];
  ZMVFrame frame{};
  frame.pData = buffer;
  frame.dwBufSize = sizeof buffer;
  frame.dwMediaType = ZMV_MEDIA_VIDEO;
  frame.dwChunk = 77;
  EXPECT_EQ(MP4FReaderReadFrame(reader_, &frame), 0);
  EXPECT_EQ(frame.dwChunk, 77u);
}

TEST_F(FragmentFrames, InfoOnly_EndsWithTheSamplesOfMoov) {
  TrackSpec video = VideoTrack();
  video.frames = {Prefixed(Unit(0x65, 5))};
  FragmentFile file({video}, {Trex(1, 40)});
  file.Add({{.runs = {{.samples = Samples(1, {3})}}}});
  ASSERT_EQ(Describe(file), 0u);
  EXPECT_EQ(ReadInfo(ZMV_MEDIA_VIDEO).code, 0u);
  EXPECT_EQ(ReadInfo(ZMV_MEDIA_VIDEO).code, ZMV_E_END);
}

TEST_F(FragmentFrames, ConstantSizes_ComeFromTfhdOrElseFromTrex) {
  const uint32_t plain = kDataOffset;
  FragmentFile file({VideoTrack()}, {Trex(1, 40, 6)});
  file.Add(
      {{.flags = kBaseOffset | kDefaultSize, .size = 4, .runs = {{.flags = plain, .samples = Samples(1, {4, 4})}}}});
  // A tfhd without defaults goes back to those of the trex.
  file.Add({{.runs = {{.flags = plain, .samples = Samples(3, {6, 6})}}}});
  file.Add({{.flags = kBaseOffset | kDefaultSize, .size = 0, .runs = {{.flags = plain, .samples = Samples(5, {6})}}}});
  ASSERT_EQ(Describe(file), 0u);
  std::vector<ByteVector> expected = Samples(1, {4, 4});
  for (const auto& more : {Samples(3, {6, 6}), Samples(5, {6})})
    expected.insert(expected.end(), more.begin(), more.end());
  EXPECT_THAT(ReadPayloads(ZMV_MEDIA_VIDEO), ElementsAreArray(expected));
}

TEST_F(FragmentFrames, Durations_ComeFromTheSampleOrTfhdOrTrex) {
  FragmentFile file({VideoTrack()}, {Trex(1, 40)});
  file.Add({{.flags = kBaseOffset | kDefaultDuration, .duration = 25, .runs = {{.samples = Samples(1, {3, 3})}}}});
  file.Add({{.runs = {{.samples = Samples(2, {3})}}}});
  file.Add({{.runs = {{.flags = kDataOffset | kDurations | kSizes, .samples = Samples(3, {3, 3}), .duration = 100}}}});
  file.Add({{.flags = kBaseOffset | kDefaultDuration, .duration = 0, .runs = {{.samples = Samples(1, {3, 3})}}}});
  ASSERT_EQ(Describe(file), 0u);
  std::vector<uint64_t> stamps;
  for (const ReadResult& read : ReadAll(ZMV_MEDIA_VIDEO)) stamps.push_back(read.frame.llTimeStamp);
  EXPECT_THAT(stamps, ElementsAre(0, 25, 50, 90, 190, 291, 331));
}

// Each combination of the fields that a tfhd and a trun may carry.
TEST_F(FragmentFrames, EveryCombinationOfFields_IsReadRightly) {
  host_.trace_level = 0;
  const uint32_t tfhd_bits[] = {kDescription, kDefaultDuration, kDefaultSize, kDefaultFlags};
  const uint32_t trun_bits[] = {kDataOffset, kFirstFlags, kDurations, kSizes, kFlags, kComposition};
  for (uint32_t mask = 0; mask < 1u << 10; ++mask) {
    uint32_t tfhd = kBaseOffset;
    uint32_t trun = 0;
    for (uint32_t i = 0; i < 4; ++i) tfhd |= mask & 1u << i ? tfhd_bits[i] : 0;
    for (uint32_t i = 0; i < 6; ++i) trun |= mask & 16u << i ? trun_bits[i] : 0;
    const size_t constant = tfhd & kDefaultSize ? 5 : 7;
    const std::vector<ByteVector> samples =
        trun & kSizes ? Samples(1, {3, 9, 1}) : Samples(1, {constant, constant, constant});
    FragmentFile file({VideoTrack()}, {Trex(1, 40, 7)});
    file.Add({{.flags = tfhd,
               .duration = 25,
               .size = 5,
               .base_at_data = !(trun & kDataOffset),
               .runs = {{.flags = trun, .samples = samples, .duration = 100}}}});
    file.Add({{.flags = tfhd,
               .duration = 25,
               .size = 5,
               .base_at_data = !(trun & kDataOffset),
               .runs = {{.flags = trun, .samples = samples, .duration = 100}}}});
    ASSERT_EQ(Describe(file), 0u) << mask;
    const std::vector<ReadResult> frames = ReadAll(ZMV_MEDIA_VIDEO);
    ASSERT_EQ(frames.size(), 6u) << mask;
    uint64_t time = 0;
    for (size_t i = 0; i < 6; ++i) {
      ASSERT_EQ(frames[i].data, samples[i % 3]) << mask << " " << i;
      ASSERT_EQ(frames[i].frame.llTimeStamp, time) << mask << " " << i;
      ASSERT_EQ(frames[i].frame.dwKeyFrame, i % 3 == 0 ? 1u : 2u) << mask << " " << i;
      time += trun & kDurations ? 100 + i % 3 : tfhd & kDefaultDuration ? 25 : 40;
    }
  }
}

TEST_F(FragmentFrames, TracksInOneMoof_AreReadSideBySide) {
  FragmentFile file({VideoTrack(), AudioTrack()}, {Trex(1, 40), Trex(2, 20)});
  std::vector<ByteVector> video, audio;
  for (uint8_t i = 0; i < 4; ++i) {
    const std::vector<ByteVector> v = Samples(i, {3, 4}), a = Samples(static_cast<uint8_t>(100 + i), {5, 6, 7});
    file.Add({{.track = 2, .runs = {{.samples = {a[0]}}, {.samples = {a[1], a[2]}}}},
              {.track = 1, .runs = {{.samples = v}}}});
    video.insert(video.end(), v.begin(), v.end());
    audio.insert(audio.end(), a.begin(), a.end());
  }
  ASSERT_EQ(Describe(file), 0u);
  std::vector<ByteVector> got_video, got_audio;
  for (size_t i = 0; i < audio.size(); ++i) {
    if (i < video.size()) got_video.push_back(Read(ZMV_MEDIA_VIDEO).data);
    got_audio.push_back(Read(ZMV_MEDIA_AUDIO).data);
  }
  EXPECT_EQ(got_video, video);
  EXPECT_EQ(got_audio, audio);
  EXPECT_EQ(Read(ZMV_MEDIA_VIDEO).code, ZMV_E_END);
  EXPECT_EQ(Read(ZMV_MEDIA_AUDIO).code, ZMV_E_END);
}

TEST_F(FragmentFrames, WithoutBase_TheEarlierBaseStays) {
  FragmentFile file({VideoTrack()}, {Trex(1, 40)});
  file.Add({{.flags = 0, .runs = {{.samples = Samples(1, {3})}}}});  // offsets from the start of the file
  const uint32_t base = file.Size();
  file.Add({{.runs = {{.samples = Samples(2, {4})}}}});
  const ByteVector again =
      Join({BuildTfhd({.flags = 0}, 0), BuildTrun({.samples = Samples(2, {4})}, file.Size() - 4 - base)});
  Append(file.bytes, Box("moof", Box("traf", again)));
  ASSERT_EQ(Describe(file), 0u);
  EXPECT_THAT(ReadPayloads(ZMV_MEDIA_VIDEO), ElementsAre(Unit(1, 3), Unit(2, 4), Unit(2, 4)));
}

TEST_F(FragmentFrames, DataInFrontOfTheBase_IsReached) {
  TrackSpec video = VideoTrack();
  FragmentFile file({video}, {Trex(1, 40)});
  const uint32_t data = file.Size() + 8;
  Append(file.bytes, Box("mdat", Unit(9, 12)));
  const uint32_t base = file.Size();
  const ByteVector traf = Join({BuildTfhd({}, base), BuildTrun({.samples = {Unit(9, 12)}}, data - base)});
  Append(file.bytes, Box("moof", Box("traf", traf)));
  ASSERT_EQ(Describe(file), 0u);
  EXPECT_THAT(ReadPayloads(ZMV_MEDIA_VIDEO), ElementsAre(Unit(9, 12)));
}

TEST_F(FragmentFrames, TrunWithoutSamples_IsFollowedByTheNext) {
  FragmentFile file({VideoTrack()}, {Trex(1, 40)});
  file.Add({{.runs = {{}, {.samples = Samples(1, {3, 4})}, {}}}});
  ASSERT_EQ(Describe(file), 0u);
  EXPECT_THAT(ReadPayloads(ZMV_MEDIA_VIDEO), ElementsAreArray(Samples(1, {3, 4})));
  EXPECT_EQ(end_, ZMV_E_END);
  EXPECT_EQ(Track(0).m_dwTrunLeft, 0u);
}

TEST_F(FragmentFrames, OnlyTrunsWithoutSamples_End) {
  FragmentFile file({VideoTrack()}, {Trex(1, 40)});
  file.Add({{.runs = {{}, {}, {}}}});
  ASSERT_EQ(Describe(file), 0u);
  EXPECT_EQ(Read(ZMV_MEDIA_VIDEO).code, ZMV_E_END);
}

TEST_F(FragmentFrames, BufferTooSmall_AsksForTheSizeAndRepeats) {
  for (uint32_t more : {0u, kDurations, kFlags | kComposition, kDurations | kFlags}) {
    FragmentFile file({VideoTrack()}, {Trex(1, 40)});
    file.Add({{.runs = {{.flags = kDataOffset | kSizes | more, .samples = Samples(1, {300, 5})}}}});
    ASSERT_EQ(Describe(file), 0u);
    for (int i = 0; i < 3; ++i) {
      const ReadResult small = Read(ZMV_MEDIA_VIDEO, 299);
      EXPECT_EQ(small.code, ZMV_E_MP4_BUFFER);
      EXPECT_EQ(small.frame.dwBufSize, 300u);
    }
    EXPECT_EQ(Read(ZMV_MEDIA_VIDEO, 300).data, Unit(1, 300));
    EXPECT_EQ(Read(ZMV_MEDIA_VIDEO, 4).code, ZMV_E_MP4_BUFFER);
    EXPECT_EQ(Read(ZMV_MEDIA_VIDEO, 5).data, Unit(17, 5));
    EXPECT_EQ(Read(ZMV_MEDIA_VIDEO).code, ZMV_E_END);
  }
}

TEST_F(FragmentFrames, NoBuffer_AsksForTheSize) {
  FragmentFile file({VideoTrack()}, {Trex(1, 40)});
  file.Add({{.runs = {{.samples = Samples(1, {0, 30})}}}});
  ASSERT_EQ(Describe(file), 0u);
  ZMVFrame frame{};
  frame.dwMediaType = ZMV_MEDIA_VIDEO;
  frame.dwBufSize = 100;
  EXPECT_EQ(MP4FReaderReadFrame(reader_, &frame), 0);
  EXPECT_EQ(frame.dwSize, 0u);
  EXPECT_EQ(Code(MP4FReaderReadFrame(reader_, &frame)), ZMV_E_MP4_BUFFER);
  EXPECT_EQ(frame.dwBufSize, 30u);
}

TEST_F(FragmentFrames, ExportedCall_IsTheSame) {
  FragmentFile file({VideoTrack()}, {Trex(1, 40)});
  file.Add({{.runs = {{.samples = Samples(1, {3})}}}});
  ASSERT_EQ(Describe(file), 0u);
  uint8_t buffer[8];
  ZMVFrame frame{};
  frame.pData = buffer;
  frame.dwBufSize = sizeof buffer;
  EXPECT_EQ(MP4ReaderReadFrameFrag(reader_, &Track(0), &frame), 0);
  EXPECT_EQ(ByteVector(buffer, buffer + 3), Unit(1, 3));
  EXPECT_EQ(Code(MP4ReaderReadFrameFrag(reader_, &Track(0), &frame)), ZMV_E_END);
  EXPECT_EQ(Code(MP4ReaderReadFrameFrag(nullptr, &Track(0), &frame)), ZMV_E_FAIL);
  EXPECT_EQ(Code(MP4ReaderReadFrameFrag(reader_, nullptr, &frame)), ZMV_E_FAIL);
  EXPECT_EQ(Code(MP4ReaderReadFrameFrag(reader_, &Track(0), nullptr)), ZMV_E_FAIL);
}

// ---- Failures

TEST_F(FragmentFrames, PayloadReadThatFails_IsReportedAndRepeats) {
  FragmentFile file({VideoTrack()}, {Trex(1, 40)});
  file.Add({{.runs = {{.flags = kDataOffset | kSizes | kFlags, .samples = Samples(1, {3, 4})}}}});
  ASSERT_EQ(Describe(file), 0u);
  ASSERT_EQ(Read(ZMV_MEDIA_VIDEO).code, 0u);
  host_.ClearRecords();
  host_.Fail(HostCall::kRead, 1);
  EXPECT_EQ(Read(ZMV_MEDIA_VIDEO).code, ZMV_E_READ);
  EXPECT_THAT(host_.Traces(1), Contains("err (0x80000012)\n"));
  EXPECT_EQ(Read(ZMV_MEDIA_VIDEO).data, Unit(17, 4));
  EXPECT_EQ(Read(ZMV_MEDIA_VIDEO).code, ZMV_E_END);
}

TEST_F(FragmentFrames, DataThatIsCutShort_Ends) {
  FragmentFile file({VideoTrack()}, {Trex(1, 40)});
  const uint32_t at = file.Size();
  const ByteVector moof = BuildMoof({{.runs = {{.samples = {Unit(1, 50)}}}}}, at, 0);
  Append(file.bytes, BuildMoof({{.runs = {{.samples = {Unit(1, 50)}}}}}, at, at + static_cast<uint32_t>(moof.size())));
  Append(file.bytes, Unit(1, 20));
  ASSERT_EQ(Describe(file), 0u);
  EXPECT_EQ(Read(ZMV_MEDIA_VIDEO).code, ZMV_E_END);
  EXPECT_EQ(Read(ZMV_MEDIA_VIDEO).code, ZMV_E_END);
}

TEST_F(FragmentFrames, DataBehindTheFile_IsASeekThatFails) {
  for (uint32_t base : {0x10000u, 0xFFFFFFFFu}) {
    FragmentFile file({VideoTrack()}, {Trex(1, 40)});
    Append(file.bytes, Box("moof", Box("traf", {BuildTfhd({}, base), BuildTrun({.samples = {Unit(1, 5)}}, 8)})));
    ASSERT_EQ(Describe(file), 0u);
    EXPECT_EQ(Read(ZMV_MEDIA_VIDEO).code, ZMV_E_SEEK);
    EXPECT_EQ(Read(ZMV_MEDIA_VIDEO).code, ZMV_E_SEEK);
    EXPECT_EQ(Track(0).m_dwTrunIndex, 0u);
  }
}

}  // namespace
}  // namespace zmv::test

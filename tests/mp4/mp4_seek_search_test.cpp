// The search on tables that a search by steps would take long for, and on tables that no writer would make.
#include "mp4/mp4_seek_search.h"

#include <chrono>

#include "tests/mp4/seek_test.h"

namespace zmv::test {
namespace {

using mp4::reader::SeekMode;

constexpr uint32_t kManySamples = 200000000;

class SeekSearch : public SeekTest {
 protected:
  // A video track of samples of one byte each, of which few are really there.
  static TrackSpec ManySamples(uint32_t count, uint32_t time_scale, std::vector<std::pair<uint32_t, uint32_t>> times) {
    TrackSpec track = VideoTrack();
    track.entries = {VideoEntry("mp4v", {})};
    track.frames = {Unit(1, 1)};
    track.constant_size = 1;
    track.sample_count = count;
    track.time_scale = time_scale;
    track.times = std::move(times);
    return track;
  }
  // The sample count is bounded by the size of the file, which tests of many samples do not want to be true.
  void DescribeMany(const TrackSpec& track, uint32_t duration = 0xFFFFFFFF) {
    ASSERT_EQ(Describe(BuildMp4({track})), 0u);
    Track(0).m_dwSampleCount = *track.sample_count;
    Track(0).m_dwDuration = duration;
  }
  int32_t Find(uint32_t time, SeekMode mode) {
    EXPECT_EQ(MP4ReaderSetStblPos(reader_, &Track(0)), 0);
    mp4::reader::SyncTable syncs(*reader_, Track(0));
    return mp4::reader::FindSample(*reader_, Track(0), syncs, time, mode, &found_time_);
  }

  uint32_t found_time_ = 0;
};

TEST_F(SeekSearch, LongRun_IsSteppedOverAtOnce) {
  DescribeMany(ManySamples(kManySamples, 1000, {{kManySamples, 1}}));
  host_.record = false;
  for (uint32_t time : {0u, 1u, 4097u, 16777215u, 16777216u}) {
    ASSERT_EQ(Find(time, SeekMode::kForward), mp4::reader::kSeekFound);
    EXPECT_EQ(Track(0).m_dwSeekSample, time);
    EXPECT_EQ(Track(0).m_dwSeekSttsLeft, kManySamples - time);
    EXPECT_EQ(found_time_, time);
  }
}

// Single precision does not tell every tick from the next: the first sample of those with the same time is found.
TEST_F(SeekSearch, TimesBeyondSinglePrecision_FindTheFirstSampleThatReachesThem) {
  DescribeMany(ManySamples(kManySamples, 90000, {{kManySamples, 3}}));
  for (uint32_t time : {3000001u, 4194305u, 6000000u}) {
    ASSERT_EQ(Find(time, SeekMode::kBackward), mp4::reader::kSeekFound);
    const uint32_t dts = Track(0).m_dwSeekDts;
    EXPECT_EQ(dts, Track(0).m_dwSeekSample * 3);
    EXPECT_GE(static_cast<uint32_t>(static_cast<float>(dts) * 1000.0f / 90000.0f), time);
    EXPECT_LT(static_cast<uint32_t>(static_cast<float>(dts - 3) * 1000.0f / 90000.0f), time);
  }
}

TEST_F(SeekSearch, TicksThatPassThirtyTwoBits_FallBackToSmallTimes) {
  // 2000 ticks a sample: past 32 bits behind sample 2147483, where the time falls from 4294966 to 0 ms.
  DescribeMany(ManySamples(kManySamples, 1000000, {{3000000, 2000}, {kManySamples, 1000}}));
  ASSERT_EQ(Find(4294960, SeekMode::kForward), mp4::reader::kSeekFound);
  EXPECT_LT(Track(0).m_dwSeekSample, 2147484u);
  // Never reached, not even in the runs behind: the search goes through them to the end of the track.
  ASSERT_EQ(Find(4294968, SeekMode::kForward), mp4::reader::kSeekFound);
  EXPECT_EQ(Track(0).m_dwSeekSample, kManySamples);
}

// Ticks that wrap with nearly every sample: counting them through to the one that reaches the time would take minutes
// in the reader's own way.
TEST_F(SeekSearch, TicksThatWrapAtEverySample_AreNotCountedThrough) {
  constexpr uint32_t kScale = 0xFFFFFFFF;
  DescribeMany(ManySamples(4000000000, kScale, {{0xFFFFFFFF, 0x80000001}}));
  host_.record = false;
  for (uint32_t time : {400u, 499u, 501u, 600u}) {
    ASSERT_EQ(Find(time, SeekMode::kForward), mp4::reader::kSeekFound);
    uint32_t expected = 0;
    uint32_t dts = 0;
    for (; static_cast<uint32_t>(static_cast<float>(dts) * 1000.0f / static_cast<float>(kScale)) < time; ++expected) {
      dts += 0x80000001;
    }
    EXPECT_EQ(Track(0).m_dwSeekSample, expected) << time;
    EXPECT_EQ(Track(0).m_dwSeekDts, dts) << time;
  }
  // Single precision gives 1000 for the last ticks, and nothing beyond.
  const auto before = std::chrono::steady_clock::now();
  for (uint32_t time : {999u, 1000u, 1001u, 5000u}) {
    for (int i = 0; i < 100; ++i) ASSERT_EQ(Find(time, SeekMode::kForward), mp4::reader::kSeekFound);
  }
  EXPECT_EQ(Track(0).m_dwSeekSample, 4000000000u);
  EXPECT_LT(std::chrono::steady_clock::now() - before, std::chrono::seconds(5));
}

TEST_F(SeekSearch, KeyFramesInOneRun_AreMetOneByOne) {
  TrackSpec track = ManySamples(kManySamples, 1000, {{kManySamples, 10}});
  track.sync = {{1, 1000001, 1000301, 90000001}};
  DescribeMany(track);
  ASSERT_EQ(Find(10003500, SeekMode::kBackward), mp4::reader::kSeekFound);
  EXPECT_EQ(Track(0).m_dwSeekSample, 1000300u);
  EXPECT_EQ(Track(0).m_dwSeekSttsLeft, kManySamples - 1000300);
  EXPECT_EQ(Track(0).m_dwSeekDts, 10003000u);
  ASSERT_EQ(Find(10001000, SeekMode::kNearest), mp4::reader::kSeekFound);
  EXPECT_EQ(Track(0).m_dwSeekSample, 1000000u);
  ASSERT_EQ(Find(10002000, SeekMode::kNearest), mp4::reader::kSeekFound);
  EXPECT_EQ(Track(0).m_dwSeekSample, 1000200u);
}

TEST_F(SeekSearch, NearestFarBehindTheOnlyKeyFrame_GoesBackToIt) {
  constexpr uint32_t kSamples = 2000000000;
  TrackSpec track = ManySamples(kSamples, 1000, {{kSamples, 1}});
  track.sync = {{1}};
  DescribeMany(track);
  ASSERT_EQ(Find(1500000000, SeekMode::kNearest), mp4::reader::kSeekFound);
  EXPECT_EQ(Track(0).m_dwSeekSample, 0u);
  EXPECT_EQ(Track(0).m_dwSeekSttsLeft, kSamples);
}

TEST_F(SeekSearch, KeyFrameInAnEarlierRun_BringsItsRunBack) {
  TrackSpec track = ManySamples(1000, 1000, {{10, 5}, {10, 7}, {10, 9}, {970, 11}});
  track.sync = {{1, 15, 900}};
  DescribeMany(track);
  ASSERT_EQ(Find(400, SeekMode::kBackward), mp4::reader::kSeekFound);
  EXPECT_EQ(Track(0).m_dwSeekSample, 14u);
  EXPECT_EQ(Track(0).m_dwSeekSttsLeft, 6u);
  EXPECT_EQ(Track(0).m_dwSeekSttsDelta, 7u);
  EXPECT_EQ(Track(0).m_dwSeekDts, 10u * 5 + 4 * 7);
  EXPECT_EQ(ZMVStreamBuf_Pos(stream_, Track(0).m_Stts.m_dwCursor), Track(0).m_Stts.m_dwStart + 16);
}

TEST_F(SeekSearch, TimesThatEndEarly_GoOnToTheNextKeyFrame) {
  TrackSpec track = ManySamples(1000, 1000, {{10, 5}});
  track.sync = {{1, 13}};
  DescribeMany(track, 10000);
  ASSERT_EQ(Find(5000, SeekMode::kForward), mp4::reader::kSeekFound);
  EXPECT_EQ(Track(0).m_dwSeekSample, 12u);
  EXPECT_EQ(found_time_, 60u);
  ASSERT_EQ(Find(55, SeekMode::kForward), mp4::reader::kSeekFound);
  EXPECT_EQ(Track(0).m_dwSeekSample, 11u);
  ASSERT_EQ(Find(5000, SeekMode::kBackward), mp4::reader::kSeekFound);
  EXPECT_EQ(Track(0).m_dwSeekSample, 0u);
}

TEST_F(SeekSearch, TimeScaleZero_FindsTheFirstSample) {
  DescribeMany(ManySamples(kManySamples, 0, {{kManySamples, 3003}}), 0);
  ASSERT_EQ(Find(0, SeekMode::kForward), mp4::reader::kSeekFound);
  EXPECT_EQ(Track(0).m_dwSeekSample, 0u);
}

// ---- Chunks

class SeekChunks : public SeekSearch {
 protected:
  // The chunk of a sample in a track of 100 chunks, or 0.
  uint32_t ChunkOf(uint32_t sample, const std::vector<std::array<uint32_t, 3>>& chunks) {
    TrackSpec track = ManySamples(1000, 1000, {{1000, 1}});
    track.chunks = chunks;
    track.offsets = std::vector<uint32_t>(100, 40);
    DescribeMany(track);
    Track(0).m_dwSeekSample = sample;
    EXPECT_EQ(MP4ReaderSetStblPos(reader_, &Track(0)), 0);
    const int32_t result = mp4::reader::PlaceSample(*reader_, Track(0));
    EXPECT_GE(result, 0);
    return result == mp4::reader::kSeekFound ? Track(0).m_dwSeekChunk : 0;
  }
};

TEST_F(SeekChunks, OneSampleInEach_TheChunkIsTheSample) {
  EXPECT_EQ(ChunkOf(0, {{1, 1, 1}}), 1u);
  EXPECT_EQ(ChunkOf(99, {{1, 1, 1}}), 100u);
  EXPECT_EQ(ChunkOf(100, {{1, 1, 1}}), 0u) << "beyond the last chunk";
  EXPECT_EQ(ChunkOf(50, {{1, 1, 1}, {20, 1, 1}, {51, 1, 1}}), 51u);
}

TEST_F(SeekChunks, SeveralSamplesInEach_TheChunkStillHasTheNumberOfTheSample) {
  EXPECT_EQ(ChunkOf(7, {{1, 4, 1}}), 8u);
  EXPECT_EQ(Track(0).m_dwSeekSamplesLeft, 8u * 4 - 7);
  EXPECT_EQ(Track(0).m_dwSeekSamplesPerChunk, 4u);
}

TEST_F(SeekChunks, EntriesWithoutSamples_StopTheSearch) {
  EXPECT_EQ(ChunkOf(5, {{1, 0, 1}}), 0u);
  EXPECT_EQ(ChunkOf(5, {{1, 1, 1}, {4, 0, 1}}), 0u);
  EXPECT_EQ(ChunkOf(2, {{1, 1, 1}, {4, 0, 1}}), 3u) << "not met";
}

TEST_F(SeekChunks, ChunksThatRunBackward_StopTheSearch) {
  EXPECT_EQ(ChunkOf(5, {{1, 1, 1}, {4, 1, 1}, {2, 1, 1}}), 0u);
  EXPECT_EQ(ChunkOf(5, {{1, 1, 1}, {4, 1, 1}, {0, 1, 1}}), 0u);
  EXPECT_EQ(ChunkOf(5, {{1, 1, 1}, {1, 1, 1}}), 0u);
  EXPECT_EQ(ChunkOf(0, {{0, 1, 1}}), 0u);
}

TEST_F(SeekChunks, FirstChunkBehindTheFirst_IsReached) {
  EXPECT_EQ(ChunkOf(0, {{3, 1, 1}}), 3u);
  EXPECT_EQ(ChunkOf(0, {{101, 1, 1}}), 0u);
  EXPECT_EQ(ChunkOf(0, {{0xFFFFFFFF, 1, 1}}), 0u);
}

TEST_F(SeekChunks, HugeNumbers_DoNotWrap) {
  EXPECT_EQ(ChunkOf(99, {{1, 0xFFFFFFFF, 1}}), 100u);
  EXPECT_EQ(Track(0).m_dwSeekSamplesLeft, 0xFFFFFFFFu);
  EXPECT_EQ(ChunkOf(50, {{1, 0xFFFFFFFF, 1}, {2, 1, 1}}), 2u);
  EXPECT_EQ(Track(0).m_dwSeekSamplesLeft, 0xFFFFFFFFu - 49);
}

TEST_F(SeekChunks, AudioBehindItsLastChunk_IsNotFound) {
  TrackSpec track = AudioTrack();
  track.frames = {Unit(1, 4), Unit(2, 4)};
  track.sizes = {{4, 4, 4}};
  ASSERT_EQ(Describe(BuildMp4({track})), 0u);
  for (uint32_t sample : {0u, 1u, 2u}) {
    Track(0).m_dwSeekSample = sample;
    ASSERT_EQ(MP4ReaderSetStblPos(reader_, &Track(0)), 0);
    EXPECT_EQ(mp4::reader::PlaceSample(*reader_, Track(0)), sample < 2 ? 1 : 0) << sample;
  }
}

// ---- Sync samples

TEST_F(SeekSearch, SyncEntryBehindASample_IsTheFirstThatIsNotBelowIt) {
  TrackSpec track = ManySamples(100, 1000, {{100, 10}});
  track.sync = {{1, 31, 61}};
  DescribeMany(track);
  struct Expected {
    uint32_t sample, next_sync, entry;
  };
  for (const Expected& expected :
       {Expected{0, 1, 0}, {1, 1, 0}, {2, 31, 1}, {30, 31, 1}, {31, 31, 1}, {32, 61, 2}, {60, 61, 2}, {99, 61, 2}}) {
    Track(0).m_dwSeekSample = expected.sample;
    mp4::reader::SyncTable syncs(*reader_, Track(0));
    ASSERT_EQ(mp4::reader::PlaceSyncEntry(*reader_, Track(0), syncs), mp4::reader::kSeekFound);
    EXPECT_EQ(Track(0).m_dwSeekNextSync, expected.next_sync) << expected.sample;
    EXPECT_EQ(Track(0).m_dwSeekSyncEntry, expected.entry) << expected.sample;
  }
}

}  // namespace
}  // namespace zmv::test

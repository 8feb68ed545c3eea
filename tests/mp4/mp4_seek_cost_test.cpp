// What a seek reads of a long recording: the blocks of its tables that it needs, and no more for more samples.
#include "tests/mp4/seek_test.h"

namespace zmv::test {
namespace {

constexpr uint32_t kFramesPerSecond = 30;
constexpr uint32_t kKeyDistance = 30;
constexpr uint32_t kAudioPerMinute = 2813;
constexpr uint64_t kBlockSize = 1024;

class SeekCost : public SeekTest {
 protected:
  struct Cost {
    uint64_t reads;
    uint64_t bytes;
  };

  enum class Durations { kConstant, kChanging };

  // A recording of tiny frames, opened.
  void Record(uint32_t minutes, Durations durations = Durations::kConstant) {
    TrackSpec video = VideoTrack(1);
    video.entries = {VideoEntry("mp4v", {})};
    const uint32_t frames = minutes * 60 * kFramesPerSecond;
    video.frames.assign(frames, Unit(1, 2));
    video.times = {{frames, 3000}};
    video.time_scale = 90000;
    video.duration = frames * 3000;
    video.sync.emplace();
    for (uint32_t i = 0; i < frames; i += kKeyDistance) video.sync->push_back(i + 1);
    TrackSpec audio = AudioTrack(2);
    audio.frames.assign(minutes * kAudioPerMinute, Unit(2, 2));
    audio.times = {{minutes * kAudioPerMinute, 1024}};
    audio.time_scale = 48000;
    audio.duration = minutes * kAudioPerMinute * 1024;
    if (durations == Durations::kChanging) {
      audio.times.clear();
      for (uint32_t i = 0; i < minutes * kAudioPerMinute; i += 3) {
        audio.times.push_back({2, 1008});
        audio.times.push_back({1, 1056});
      }
    }
    host_.record = false;
    ASSERT_EQ(Describe(BuildMp4({video, audio})), 0u);
    host_.record = true;
  }
  Cost Seek(uint32_t time) {
    host_.ClearRecords();
    EXPECT_EQ(MP4FReaderSeekByTime(reader_, &time, 0), 1);
    Cost cost{};
    for (const CallRecord& call : host_.Calls(HostCall::kRead)) {
      ++cost.reads;
      cost.bytes += call.size;
      CheckInTables(call);
    }
    return cost;
  }

 private:
  // In a table, or right behind it: the cache is filled behind the last word, too.
  static bool In(uint32_t start, uint64_t size, const CallRecord& call) {
    return call.position >= start && call.position <= start + size;
  }
  void CheckInTables(const CallRecord& call) {
    bool inside = false;
    for (uint32_t slot : {0u, 1u}) {
      const MP4ReaderTrack& track = Track(slot);
      inside = inside || In(track.m_Stts.m_dwStart, uint64_t{8} * track.m_dwSttsCount, call) ||
               In(track.m_Stsc.m_dwStart, uint64_t{12} * track.m_dwStscCount, call) ||
               In(track.m_Stco.m_dwStart, uint64_t{4} * track.m_dwChunkCount, call) ||
               In(track.m_dwStssStart, uint64_t{4} * track.m_dwStssCount, call);
    }
    EXPECT_TRUE(inside) << "read of " << call.size << " at " << call.position;
  }
};

TEST_F(SeekCost, SeekInFourHours_ReadsTheKeyFramesInBlocksAndAWordOrTwoOfTheRest) {
  ASSERT_NO_FATAL_FAILURE(Record(240));
  const uint32_t samples = Track(0).m_dwSampleCount;
  ASSERT_EQ(samples, 240u * 60 * 30);
  for (uint32_t minute : {1u, 60u, 120u, 239u}) {
    const Cost cost = Seek(minute * 60000 + 500);
    // Up to the target, stss is gone through once at most. Each block takes two reads. stts, stsc and stco of two
    // tracks take two reads each.
    const uint64_t sync_bytes = uint64_t{minute} * 60 * kFramesPerSecond / kKeyDistance * 4;
    const uint64_t sync_blocks = sync_bytes / kBlockSize + 2;
    EXPECT_LE(cost.reads, 2 * 2 * sync_blocks + 2 * 6) << minute;
    EXPECT_LE(cost.bytes, (3 * sync_blocks + 6) * (kBlockSize + 8)) << minute;
    EXPECT_GT(Track(0).m_dwSampleIndex, minute * 60 * kFramesPerSecond - kKeyDistance);
  }
}

// Durations of 21, 21 and 22 ms in turn, as a recorder gives them: two runs for every three audio frames, 450,000 in
// four hours. The first seek goes through those in front of its target, a later one through those between two marks.
TEST_F(SeekCost, ChangingDurations_AreGoneThroughOnce) {
  uint64_t reads_of_an_hour = 0;
  for (uint32_t hours : {1u, 4u}) {
    ASSERT_NO_FATAL_FAILURE(Record(60 * hours, Durations::kChanging));
    const MP4ReaderTrack& audio = Track(1);
    const uint64_t table = uint64_t{8} * audio.m_dwSttsCount;
    ASSERT_GT(audio.m_dwSttsCount, hours * 112000);
    const uint32_t end = hours * 3600000 - 2000;
    const Cost first = Seek(end);
    EXPECT_LE(first.bytes, table * 6 / 5 + 64 * kBlockSize) << "blocks do not overlap";
    EXPECT_LE(first.reads, 3 * (table / (3 * kBlockSize) + 16));
    uint64_t most = 0;
    for (uint32_t time = 1000; time < end; time += 997001) {
      const Cost later = Seek(time);
      // Two marks are a 512th of the table apart.
      EXPECT_LE(later.bytes, table / 512 + 24 * kBlockSize) << time;
      most = std::max(most, later.reads);
    }
    EXPECT_LE(most, 24u) << hours;
    if (hours == 1) reads_of_an_hour = most;
    EXPECT_LE(most, reads_of_an_hour + 4);
  }
}

TEST_F(SeekCost, SeekToTheSameTime_CostsTheSameInALongerRecording) {
  ASSERT_NO_FATAL_FAILURE(Record(10));
  const Cost in_short = Seek(8 * 60000 + 500);
  ASSERT_NO_FATAL_FAILURE(Record(240));
  const Cost in_long = Seek(8 * 60000 + 500);
  EXPECT_LE(in_long.reads, in_short.reads + 2);
  EXPECT_LE(in_long.bytes, in_short.bytes + 2 * kBlockSize);
}

TEST_F(SeekCost, Seek_TakesNoMemory) {
  ASSERT_NO_FATAL_FAILURE(Record(10));
  const uint64_t blocks = host_.Count(HostCall::kMalloc);
  for (uint32_t time = 0; time < 600000; time += 7001) Seek(time);
  EXPECT_EQ(host_.Count(HostCall::kMalloc), blocks);
}

}  // namespace
}  // namespace zmv::test

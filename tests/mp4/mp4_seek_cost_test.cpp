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

  // A recording of tiny frames at constant rate, opened.
  void Record(uint32_t minutes) {
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
    // Up to the target, stss is gone through twice: once for the key frame, once for the place in it afterwards. Each
    // block takes two reads. stts, stsc and stco of two tracks take two reads each.
    const uint64_t sync_bytes = uint64_t{minute} * 60 * kFramesPerSecond / kKeyDistance * 4;
    const uint64_t sync_blocks = sync_bytes / kBlockSize + 2;
    EXPECT_LE(cost.reads, 2 * 2 * sync_blocks + 2 * 6) << minute;
    EXPECT_LE(cost.bytes, (2 * sync_blocks + 6) * (kBlockSize + 4)) << minute;
    EXPECT_GT(Track(0).m_dwSampleIndex, minute * 60 * kFramesPerSecond - kKeyDistance);
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

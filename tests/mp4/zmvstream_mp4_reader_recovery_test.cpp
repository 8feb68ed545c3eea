// Reading on after a read that failed: what is delivered then is still what was recorded.
#include <map>

#include "tests/mp4/reader_test.h"

namespace zmv::test {
namespace {

class ReaderRecovery : public ReaderTest {
 protected:
  struct Expected {
    ByteVector data;
    uint32_t key;
    uint32_t chunk;
  };

  static TrackSpec PlainVideo(std::vector<ByteVector> frames) {
    TrackSpec track = VideoTrack();
    track.entries = {VideoEntry("mp4v", {})};
    track.frames = std::move(frames);
    return track;
  }
  // Video of many samples in chunks of one to three, with a key frame every seventh and uneven times. `width` 0: no
  // NAL units.
  static TrackSpec LongVideo(int width) {
    TrackSpec track = VideoTrack();
    track.entries = {width == 0 ? VideoEntry("mp4v", {})
                                : VideoEntry("avc1", Box("avcC", AvcConfig(100, 0xFC | (width - 1))))};
    track.samples_per_chunk = 3;
    track.times.clear();
    track.sync.emplace();
    for (uint32_t i = 0; i < kFrames; ++i) {
      const ByteVector unit = Join({Be32(0x65000000 + i), Unit(static_cast<uint8_t>(i), i % 11)});
      track.frames.push_back(width == 0 ? unit : Prefixed(unit, width));
      track.times.push_back({1, 20 + i % 3});
      if (i % 7 == 0) track.sync->push_back(i + 1);
    }
    // The same layout in entries of one chunk each, so that the table has to be read on as well.
    track.chunks.emplace();
    for (uint32_t chunk = 1; chunk <= kFrames / 3; ++chunk) track.chunks->push_back({chunk, 3, 1});
    return track;
  }
  // What reading delivers when nothing fails, by time.
  std::map<uint64_t, Expected> Record(uint32_t media) {
    std::map<uint64_t, Expected> frames;
    for (;;) {
      const ReadResult read = Read(media, 64);
      if (read.code != 0) break;
      frames[read.frame.llTimeStamp] = {read.data, read.frame.dwKeyFrame, read.frame.dwChunk};
    }
    return frames;
  }
  // Reads to the end of the track. Every frame has to be one that was recorded, in its place. Gives their
  // number.
  size_t ReadOn(uint32_t media, const std::map<uint64_t, Expected>& recorded) {
    size_t count = 0;
    auto next = recorded.begin();
    const MP4ReaderTrack& track = Track(0);
    for (uint32_t calls = 0; calls < 3 * kFrames && track.m_dwSampleIndex < track.m_dwSampleCount; ++calls) {
      const ReadResult read = Read(media, 64);
      if (read.code != 0) continue;
      const auto frame = recorded.find(read.frame.llTimeStamp);
      if (frame == recorded.end() || std::distance(next, frame) < 0) {
        ADD_FAILURE() << "time " << read.frame.llTimeStamp;
        return count;
      }
      EXPECT_EQ(read.data, frame->second.data);
      EXPECT_EQ(read.frame.dwKeyFrame, frame->second.key);
      EXPECT_EQ(read.frame.dwChunk, frame->second.chunk);
      next = std::next(frame);
      ++count;
    }
    EXPECT_EQ(Read(media, 64).code, ZMV_E_END);
    return count;
  }
  // Fails every host call of a kind once, one after another.
  void FailEach(const TrackSpec& track, uint32_t media, HostCall call) {
    const ByteVector bytes = BuildMp4({track});
    host_.record = false;
    host_.trace_level = 0;
    ASSERT_EQ(Describe(bytes), 0u);
    const auto recorded = Record(media);
    ASSERT_EQ(recorded.size(), kFrames);
    for (uint64_t nth = 1;; ++nth) {
      ASSERT_EQ(Describe(bytes), 0u);
      const uint64_t before = host_.Count(call);
      host_.Fail(call, nth);
      const size_t delivered = ReadOn(media, recorded);
      ASSERT_GE(delivered + 1, recorded.size()) << nth;
      ASSERT_FALSE(HasFailure()) << "failed call " << nth;
      if (host_.Count(call) - before < nth) break;
    }
    host_.ClearFailures();
  }

  static constexpr uint32_t kFrames = 300;
};

// ---- Chunks that cannot be reached

TEST_F(ReaderRecovery, AudioChunkBeyondTheFile_TheNextReadGivesTheNextFrame) {
  TrackSpec track = AudioTrack();
  track.frames = {Unit(0x49, 4), Unit(0x50, 4), Unit(0x57, 4)};
  track.offsets = {{0x7FFFFFF0, 42, 51}};
  ASSERT_EQ(Describe(BuildMp4({track})), 0u);
  EXPECT_EQ(Read(ZMV_MEDIA_AUDIO).code, ZMV_E_SEEK);
  const ReadResult second = Read(ZMV_MEDIA_AUDIO);
  EXPECT_EQ(second.code, 0u);
  EXPECT_EQ(second.data, Hex("50 57 5E 65"));
  EXPECT_EQ(second.frame.llTimeStamp, 40u);
  EXPECT_EQ(second.frame.dwChunk, 2u);
  EXPECT_EQ(Read(ZMV_MEDIA_AUDIO).data, Hex("57 5E 65 6C"));
  EXPECT_EQ(Read(ZMV_MEDIA_AUDIO).code, ZMV_E_END);
}

TEST_F(ReaderRecovery, VideoChunkBeyondTheFile_NoneOfItsSamplesIsDelivered) {
  TrackSpec track = PlainVideo({Unit(1, 4), Unit(2, 4), Unit(3, 4), Unit(4, 4), Unit(5, 4), Unit(6, 4)});
  track.samples_per_chunk = 2;
  track.offsets = {{33, 0x7FFFFFF0, 59}};  // chunks of 8 bytes behind gaps of 5
  track.sync = {{1, 3, 5}};
  ASSERT_EQ(Describe(BuildMp4({track})), 0u);
  EXPECT_EQ(Read(ZMV_MEDIA_VIDEO).data, Unit(1, 4));
  EXPECT_EQ(Read(ZMV_MEDIA_VIDEO).data, Unit(2, 4));
  EXPECT_EQ(Read(ZMV_MEDIA_VIDEO).code, ZMV_E_SEEK);
  EXPECT_EQ(Read(ZMV_MEDIA_VIDEO).code, ZMV_E_END);
  const ReadResult fifth = Read(ZMV_MEDIA_VIDEO);
  EXPECT_EQ(fifth.data, Unit(5, 4));
  EXPECT_EQ(fifth.frame.llTimeStamp, 160u);
  EXPECT_EQ(fifth.frame.dwKeyFrame, ZMV_KEY_FRAME);
  EXPECT_EQ(Read(ZMV_MEDIA_VIDEO).data, Unit(6, 4));
}

TEST_F(ReaderRecovery, InfoOfAChunkBeyondTheFile_IsPassedOver) {
  TrackSpec track = PlainVideo({Unit(1, 4), Unit(2, 5)});
  track.offsets = {{0x7FFFFFF0, 42}};
  ASSERT_EQ(Describe(BuildMp4({track})), 0u);
  EXPECT_EQ(ReadInfo(ZMV_MEDIA_VIDEO).code, ZMV_E_SEEK);
  const ReadResult second = ReadInfo(ZMV_MEDIA_VIDEO);
  EXPECT_EQ(second.code, 0u);
  EXPECT_EQ(second.frame.dwSize, 5u);
  EXPECT_EQ(second.frame.llTimeStamp, 40u);
  EXPECT_EQ(ReadInfo(ZMV_MEDIA_VIDEO).code, ZMV_E_END);
}

// ---- Payloads that cannot be read

TEST_F(ReaderRecovery, BrokenUnit_IsPassedOverInsideItsChunk) {
  TrackSpec track = VideoTrack();
  track.frames = {Prefixed(Unit(1, 5)), Join({Be32(200), Unit(9, 3)}), Prefixed(Unit(3, 5))};
  track.samples_per_chunk = 3;
  track.sync = {{1, 3}};
  ASSERT_EQ(Describe(BuildMp4({track})), 0u);
  EXPECT_EQ(Read(ZMV_MEDIA_VIDEO).data, StartCoded(Unit(1, 5)));
  EXPECT_EQ(Read(ZMV_MEDIA_VIDEO).code, ZMV_E_END);
  const ReadResult third = Read(ZMV_MEDIA_VIDEO);
  EXPECT_EQ(third.data, StartCoded(Unit(3, 5)));
  EXPECT_EQ(third.frame.llTimeStamp, 80u);
  EXPECT_EQ(third.frame.dwKeyFrame, ZMV_KEY_FRAME);
}

TEST_F(ReaderRecovery, FileThatEndsInsideAPayload_GivesNothingOfItToTheNextSample) {
  TrackSpec track = PlainVideo({Unit(1, 4)});
  track.sizes = {{5000, 4, 4}};  // the first one passes the end of the file
  ASSERT_EQ(Describe(BuildMp4({track})), 0u);
  for (int i = 0; i < 4; ++i) EXPECT_EQ(Read(ZMV_MEDIA_VIDEO, 6000).code, ZMV_E_END);
}

// ---- Host calls that fail

TEST_F(ReaderRecovery, EveryHostReadFailing_DeliversRecordedFramesOnly) {
  for (int width : {0, 2, 4}) FailEach(LongVideo(width), ZMV_MEDIA_VIDEO, HostCall::kRead);
  TrackSpec audio = AudioTrack(1);
  for (uint32_t i = 0; i < kFrames; ++i) {
    audio.frames.push_back(Join({Be32(i), Unit(static_cast<uint8_t>(i), i % 5)}));
    audio.times.push_back({1, 20 + i % 3});
  }
  FailEach(audio, ZMV_MEDIA_AUDIO, HostCall::kRead);
}

TEST_F(ReaderRecovery, EveryHostSeekFailing_DeliversRecordedFramesOnly) {
  for (int width : {0, 2}) FailEach(LongVideo(width), ZMV_MEDIA_VIDEO, HostCall::kSeek);
}

TEST_F(ReaderRecovery, TableReadFailing_TheNextReadGivesTheSameFrame) {
  TrackSpec track = PlainVideo({Unit(1, 4), Unit(2, 5)});
  track.sync = {{1}};
  const ByteVector bytes = BuildMp4({track});
  // The reads of sizes, offsets and times, and between them the refills of their caches.
  for (uint64_t nth = 1; nth <= 4; ++nth) {
    ASSERT_EQ(Describe(bytes), 0u);
    host_.Fail(HostCall::kRead, nth, ScriptedHost::kForGood);
    EXPECT_EQ(Read(ZMV_MEDIA_VIDEO).code, ZMV_E_READ) << nth;
    EXPECT_EQ(Read(ZMV_MEDIA_VIDEO).code, ZMV_E_READ) << nth;
    host_.ClearFailures();
    EXPECT_EQ(Read(ZMV_MEDIA_VIDEO).data, Unit(1, 4)) << nth;
    EXPECT_EQ(Read(ZMV_MEDIA_VIDEO).data, Unit(2, 5)) << nth;
  }
}

}  // namespace
}  // namespace zmv::test

// Recordings with holes, and recordings of which the storage medium has lost what was not synced: what comes back is
// what was recorded, with stamps that stay true behind a hole.
#include <random>

#include "tests/recover/recovery_test.h"

namespace zmv::test {
namespace {

class DamagedRecording : public RecoveryTest {
 protected:
  DamagedRecording() { recording_ = Record(info_, SmallFrames()); }

  static void Fill(ByteVector& bytes, uint64_t from, uint64_t to, uint8_t with) {
    std::fill(bytes.begin() + static_cast<ptrdiff_t>(from), bytes.begin() + static_cast<ptrdiff_t>(to), with);
  }
  // The frames without those that touch [from, to). The first of each stream behind the gap may carry the time since
  // the one before it; where there is none before it, the second one may carry the time since the recording began.
  std::vector<TestFrame> Without(uint64_t from, uint64_t to) const {
    struct Stream {
      uint64_t time = 0;
      bool before = false;  // it has frames in front of the gap
      uint32_t behind = 0;  // and so many behind it
    };
    std::vector<TestFrame> left;
    std::map<uint32_t, Stream> streams;
    for (const TestFrame& frame : recording_.frames) {
      if (frame.end > from && frame.position < to) continue;
      left.push_back(frame);
      Stream& stream = streams[frame.media];
      if (frame.position < from) stream.before = true;
      if (frame.position >= to) {
        ++stream.behind;
        const uint64_t back = stream.before ? stream.time : left.front().time;
        if (stream.behind == (stream.before ? 1u : 2u)) {
          left.back().since = static_cast<uint32_t>(frame.time - back) * (frame.media == ZMV_MEDIA_VIDEO ? 1000 : 1);
        }
      }
      stream.time = frame.time;
    }
    return left;
  }
  // True when all of the frame is on the medium, or all but so few bytes that zeros in their place can be the frame's
  // own: three of a NAL unit, some of sound, any number of a text, which holds blocks of bytes.
  bool MayCount(const ByteVector& medium, const TestFrame& frame) const {
    constexpr uint64_t kRecord = 28;
    if (frame.end > medium.size()) return false;
    uint64_t zeros = 0;
    for (uint64_t at = frame.position; at < frame.end; ++at) {
      if (medium[at] == recording_.open[at]) continue;
      if (medium[at] != 0 || at < frame.position + kRecord) return false;
      ++zeros;
    }
    return frame.media == ZMV_MEDIA_TEXT || zeros <= (frame.media == ZMV_MEDIA_VIDEO ? 3u : 63u);
  }
  // Sum of the durations that the tables give the samples of the first video track, milliseconds.
  static std::vector<std::string> VideoTimes(const ByteVector& file) {
    std::vector<std::string> times;
    for (const std::string& line : ReadBack(file)) {
      if (line.starts_with("1/0 ")) times.push_back(line.substr(0, line.find(" size")));
    }
    return times;
  }

  ZMVFileInfo info_ = SmallInfo(FourCC("H264"));
  Recording recording_;
};

TEST_F(DamagedRecording, Hole_LaterStampsStayTrue) {
  // Two records and a half in the middle of the recording are gone.
  const TestFrame& first = recording_.frames[30];
  const TestFrame& last = recording_.frames[36];
  ByteVector damaged = recording_.open;
  Fill(damaged, first.position, last.end, 0xEE);
  const std::vector<TestFrame> expected = Without(first.position, last.end);
  ASSERT_EQ(expected.size(), recording_.frames.size() - 7);
  const ByteVector made = ToFile(damaged);
  // The frame in front of the gap ends where the damage begins: it may reach back into its last sector.
  if (report_.dwDropped == 0) {
    EXPECT_EQ(CompareFrames(made, info_, expected), "");
  }
  EXPECT_EQ(report_.dwHoles, 1u);
  EXPECT_EQ(report_.dwState, ZMV_RECOVER_DAMAGED);
  // Frames behind the hole are shown when they were recorded.
  const uint64_t start = recording_.frames[0].time;
  std::vector<uint64_t> behind;
  for (const TestFrame& frame : expected) {
    if (frame.media == ZMV_MEDIA_VIDEO && frame.position > last.position) behind.push_back(frame.time - start);
  }
  const std::vector<std::string> times = VideoTimes(made);
  ASSERT_GT(times.size(), behind.size());
  for (size_t i = 0; i < behind.size(); ++i) {
    const std::string& line = times[times.size() - behind.size() + i];
    const uint64_t time = std::stoull(line.substr(line.find("time ") + 5));
    EXPECT_NEAR(static_cast<double>(time), static_cast<double>(behind[i]), 2) << line;
  }
}

// Every sector of the media data in turn; the frames that it does not touch come back, both ways alike.
TEST_F(DamagedRecording, AnySectorOfZeros_LosesTheFramesItTouches) {
  for (uint64_t sector = (recording_.mdat + 8) / 512 * 512 + 512; sector < recording_.open.size(); sector += 512) {
    const uint64_t end = std::min<uint64_t>(sector + 512, recording_.open.size());
    ByteVector damaged = recording_.open;
    Fill(damaged, sector, end, 0);
    const ByteVector made = ToFile(damaged);
    ASSERT_EQ(result_, 0) << sector;
    const uint32_t frames = report_.dwFrames;
    const std::vector<TestFrame> untouched = Without(sector, end);
    ASSERT_EQ(CompareFrames(made, info_, untouched), "") << sector;
    const ByteVector completed = InPlace(damaged);
    ASSERT_EQ(result_, 0) << sector;
    ASSERT_EQ(report_.dwFrames, frames) << sector;
    // What the records say is not changed in place; the tables say what the new ones of the other way say.
    ASSERT_EQ(Difference(MoovWithoutOffsets(completed), MoovWithoutOffsets(made)), "") << sector;
  }
}

TEST_F(DamagedRecording, FirstFrameOfAStreamBehindAHole_TheSecondOneIsInTime) {
  // No text in front of the hole.
  std::vector<TestFrame> frames = FramesFor(info_, 40);
  std::erase_if(frames, [](const TestFrame& frame) { return frame.media == ZMV_MEDIA_TEXT && frame.time < 400; });
  recording_ = Record(info_, frames);
  const auto gone = std::find_if(recording_.frames.begin(), recording_.frames.end(),
                                 [](const TestFrame& frame) { return frame.media == ZMV_MEDIA_TEXT; });
  ByteVector damaged = recording_.open;
  Fill(damaged, gone->position, gone->position + 28, 0xEE);
  const ByteVector made = ToFile(damaged);
  ASSERT_EQ(result_, 0);
  std::vector<uint64_t> times;
  for (const std::string& line : ReadBack(made)) {
    if (line.starts_with("3/0 ")) times.push_back(std::stoull(line.substr(line.find("time ") + 5)));
  }
  ASSERT_GT(times.size(), 10u);
  EXPECT_EQ(times[0], 0u);
  EXPECT_EQ(times[1], 480u);  // the first that is left was recorded at 440
  EXPECT_EQ(times[2], 520u);
}

TEST_F(DamagedRecording, CompletedInPlace_IsLeftAloneTheSecondTime) {
  ByteVector damaged = recording_.open;
  Fill(damaged, recording_.frames[20].position, recording_.frames[22].end, 0xEE);
  const ByteVector completed = InPlace(damaged);
  ASSERT_EQ(result_, 0);
  LogFile again(completed);
  EXPECT_EQ(recover::RecoverInPlace(again, param_, report_), 0);
  EXPECT_TRUE(again.log().empty());
  EXPECT_EQ(report_.dwState, ZMV_RECOVER_DAMAGED);
}

// Sound with a run of zeros, as an encoder of silence may make it.
TEST_F(DamagedRecording, ClosedWithZerosOfTheEncoder_IsWhole) {
  std::vector<TestFrame> frames = SmallFrames();
  const auto sound =
      std::find_if(frames.begin(), frames.end(), [](const TestFrame& frame) { return frame.media == ZMV_MEDIA_AUDIO; });
  sound->payload.insert(sound->payload.end(), 2000, 0);
  sound->payload.push_back(1);
  recording_ = Record(info_, frames);
  LogFile healthy(recording_.closed);
  EXPECT_EQ(recover::RecoverInPlace(healthy, param_, report_), 0);
  EXPECT_EQ(report_.dwState, ZMV_RECOVER_WHOLE);
  EXPECT_EQ(report_.dwDropped, 0u);
  EXPECT_TRUE(healthy.log().empty());
}

// Closing has put frames into the index that cannot be told from damaged ones, or not be found: it is kept.
TEST_F(DamagedRecording, Closed_IsLeftAloneInPlace) {
  ByteVector damaged = recording_.closed;
  Fill(damaged, recording_.frames[20].position, recording_.frames[22].end, 0xEE);
  LogFile file(damaged);
  EXPECT_EQ(recover::RecoverInPlace(file, param_, report_), 0);
  EXPECT_EQ(report_.dwState, ZMV_RECOVER_DAMAGED);
  EXPECT_TRUE(file.log().empty());
}

// Behind damage to both, the index lacks frames that are there: a new recording has more of them than the file.
TEST_F(DamagedRecording, ClosedWithALostPartOfItsIndex_GoesToANewFile) {
  ByteVector damaged = recording_.closed;
  Fill(damaged, recording_.frames[20].position, recording_.frames[22].end, 0xEE);
  const ByteVector name = Text("stco");
  const auto stco = std::search(damaged.begin(), damaged.end(), name.begin(), name.end());
  ASSERT_NE(stco, damaged.end());
  constexpr ptrdiff_t kFirstEntry = 12;
  std::fill_n(stco + kFirstEntry, 8, uint8_t{0});
  LogFile file(damaged);
  EXPECT_EQ(recover::RecoverInPlace(file, param_, report_), Result(ZMV_E_NOT_SUPPORTED));
  EXPECT_EQ(report_.bCanInPlace, 0);
  EXPECT_EQ(report_.bChanged, 0);
  EXPECT_TRUE(file.log().empty());
  EXPECT_FALSE(ToFile(damaged).empty());
}

TEST_F(DamagedRecording, Report_SaysWhetherTheFileWasChanged) {
  InPlace(recording_.open);
  EXPECT_EQ(report_.bChanged, 1);
  InPlace(recording_.closed);
  EXPECT_EQ(report_.bChanged, 0);
  ToFile(recording_.open);
  EXPECT_EQ(report_.bChanged, 0);
}

// Tables are written over the beginning of a last frame that is not complete, while the frames are looked for once
// more. What its end looks like does not matter.
TEST_F(DamagedRecording, PieceOfARecordingInTheIncompleteFrame_IsNotCompletedInPlace) {
  constexpr uint32_t kRounds = 4000;  // tables that are larger than a write buffer
  const auto begin = recording_.open.begin() + static_cast<ptrdiff_t>(recording_.frames[3].position);
  const auto end = recording_.open.begin() + static_cast<ptrdiff_t>(recording_.frames[12].end);
  ByteVector payload(400000, 0x21);
  payload.insert(payload.end(), begin, end);
  payload.resize(payload.size() + 5000, 0x22);
  std::vector<TestFrame> frames = FramesFor(info_, kRounds);
  frames.push_back({ZMV_MEDIA_TEXT, 0, frames.back().time + 40, 40, true, payload});
  const Recording long_one = Record(info_, frames, 1, 10000000);
  ByteVector damaged = First(long_one.open, long_one.open.size() - 2000);
  Fill(damaged, long_one.frames[2000].position, long_one.frames[2000].end, 0xEE);
  const ByteVector completed = InPlace(damaged);
  ASSERT_EQ(result_, 0);
  ASSERT_EQ(report_.dwHoles, 1u);
  size_t samples = 0;
  for (const auto& track : TableSamples(completed)) samples += track.size();
  EXPECT_EQ(samples, report_.dwFrames);
}

// ---- Lost writes

// What the host wrote, in its order, on a medium that has put down everything up to some moment and of the rest what it
// liked, sector by sector.
TEST_F(DamagedRecording, WritesLostBehindASync_KeepEveryFrameBeforeIt) {
  std::mt19937 random(3);
  const uint64_t first = recording_.mdat + 8;
  for (int round = 0; round < 1500; ++round) {
    const uint64_t synced = first + random() % (recording_.open.size() - first);
    const uint64_t written = synced + random() % (recording_.open.size() - synced + 1);
    const uint32_t chance = static_cast<uint32_t>(random() % 9);
    ByteVector medium = First(recording_.open, synced);
    medium.resize(written);
    uint64_t end = synced;
    for (uint64_t at = synced; at < written;) {
      const uint64_t next = std::min((at / 512 + 1) * 512, written);
      if (random() % 8 < chance) {
        std::copy(recording_.open.begin() + static_cast<ptrdiff_t>(at),
                  recording_.open.begin() + static_cast<ptrdiff_t>(next), medium.begin() + static_cast<ptrdiff_t>(at));
        end = next;
      }
      at = next;
    }
    // The size of the file is put down with its last sector, or ahead of it.
    if (round % 2 == 0) medium.resize(end);
    const ByteVector made = ToFile(medium);
    ASSERT_EQ(result_, 0);
    // Every frame that was synced, and of the others only those that are there.
    size_t left = 0;
    for (const TestFrame& frame : recording_.frames) {
      if (MayCount(medium, frame)) ++left;
    }
    const size_t must = recording_.CompleteIn(synced);
    ASSERT_GE(report_.dwFrames, must) << "round " << round << " synced " << synced << " written " << written;
    ASSERT_LE(report_.dwFrames, left) << "round " << round << " synced " << synced << " written " << written;
    const std::vector<std::vector<Sample>> tracks = TableSamples(made);
    size_t samples = 0;
    for (const auto& track : tracks) samples += track.size();
    ASSERT_EQ(samples, report_.dwFrames);
    if (report_.dwFrames == must) {
      ASSERT_EQ(CompareFrames(made, info_, recording_.frames, must), "") << round;
    }
    const ByteVector completed = InPlace(medium);
    ASSERT_EQ(result_, 0);
    ASSERT_EQ(Difference(MoovWithoutOffsets(completed), MoovWithoutOffsets(made)), "") << round;
  }
}

}  // namespace
}  // namespace zmv::test

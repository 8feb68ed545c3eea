// Power that fails while a recording is being closed, or while it is being recovered in place: the frames stay.
#include <random>

#include "tests/recover/recovery_test.h"

namespace zmv::test {
namespace {

class SecondCut : public RecoveryTest {
 protected:
  // Both recoveries of `cut` must give the first `count` frames. Words on what they do not give.
  std::string Faults(const ByteVector& cut, const std::vector<TestFrame>& frames, size_t count, bool to_file = true) {
    const ByteVector completed = InPlace(cut);
    if (result_ != 0) return "in place: result " + std::to_string(result_);
    std::string difference = CompareFrames(completed, info_, frames, count);
    if (!difference.empty()) return "in place: " + difference;
    if (TopBoxes(completed).empty()) return "in place: no boxes";
    if (!to_file) return "";
    const ByteVector made = ToFile(cut);
    if (result_ != 0) return "to file: result " + std::to_string(result_);
    difference = CompareFrames(made, info_, frames, count);
    return difference.empty() ? "" : "to file: " + difference;
  }

  // Recovers `cut` in place and lets the power fail behind every action on the file, with what was not synced kept as
  // a whole, lost, or kept in part; from each of these states all `count` frames must come back once more.
  void CutTheRecovery(const ByteVector& cut, const std::vector<TestFrame>& frames, size_t count) {
    LogFile file(cut);
    ASSERT_EQ(recover::RecoverInPlace(file, param_, report_, table_bytes_), 0);
    std::mt19937 random(static_cast<uint32_t>(cut.size()));
    for (size_t actions = 0; actions <= file.log().size(); ++actions) {
      for (int variant = 0; variant < 12; ++variant) {
        const auto salt = static_cast<uint32_t>(random());
        const ByteVector after = file.After(actions, [&](uint64_t sector, size_t action) {
          if (variant < 2) return variant == 0;
          if (variant == 2) return action + 1 != actions;  // all but the last
          if (variant == 3) return action + 1 == actions;  // nothing but the last
          if (variant < 8) return (sector * 2654435761u ^ salt) % 8 < 4;
          return (sector * 2654435761u ^ salt) % 8 == 0;
        });
        ASSERT_EQ(Faults(after, frames, count, variant < 2), "")
            << "cut at " << cut.size() << " behind action " << actions << " variant " << variant;
      }
    }
  }

  ZMVFileInfo info_ = SmallInfo(FourCC("H264"));
};

TEST_F(SecondCut, WhileClosing_EveryWriteDropped) {
  // With GPS and sensor boxes, with the last sample of another recording, without any, without text.
  for (const uint32_t variant : {0u, 1u, 2u, 3u}) {
    std::vector<TestFrame> frames = SmallFrames();
    if (variant != 0) std::erase_if(frames, [](const TestFrame& frame) { return frame.media == ZMV_MEDIA_TEXT; });
    if (variant == 2) info_.szSoftware[0] = 0;
    if (variant == 3) info_.dwTextCount = 0;
    uint64_t writes = 0;
    Record(info_, frames, 1, 1, [&] { writes = host_.Count(HostCall::kWrite); });
    writes = host_.Count(HostCall::kWrite) - writes;
    ASSERT_GT(writes, 20u);
    for (uint64_t dropped = 1; dropped <= writes; ++dropped) {
      for (const auto duration : {ScriptedHost::kOnce, ScriptedHost::kForGood}) {
        const Recording recording =
            Record(info_, frames, 1, 1, [&] { host_.Fail(HostCall::kWrite, dropped, duration); });
        host_.ClearFailures();
        ASSERT_EQ(Faults(recording.closed, recording.frames, recording.frames.size()), "")
            << "variant " << variant << " write " << dropped << " of " << writes
            << (duration == ScriptedHost::kOnce ? " dropped" : " and on");
      }
    }
  }
}

TEST_F(SecondCut, WhileClosing_CutAtEveryByte) {
  const Recording recording = Record(info_, SmallFrames());
  // Before the sizes are patched.
  ByteVector closing = recording.closed;
  std::copy_n(recording.open.begin() + static_cast<ptrdiff_t>(recording.mdat), 4,
              closing.begin() + static_cast<ptrdiff_t>(recording.mdat));
  for (size_t length = recording.open.size(); length <= closing.size(); ++length) {
    ASSERT_EQ(Faults(First(closing, length), recording.frames, recording.frames.size()), "") << length;
  }
}

TEST_F(SecondCut, WhileRecoveringInPlace_TheSameFramesComeBack) {
  const Recording recording = Record(info_, SmallFrames());
  std::mt19937 random(1);
  for (int i = 0; i < 40; ++i) {
    const uint64_t length = i == 0 ? recording.open.size()
                                   : recording.mdat + 200 + random() % (recording.open.size() - recording.mdat - 200);
    CutTheRecovery(First(recording.open, length), recording.frames, recording.CompleteIn(length));
  }
}

TEST_F(SecondCut, WhileRecoveringInPlaceAPresizedFile_TheSameFramesComeBack) {
  const Recording recording = Record(info_, SmallFrames());
  std::mt19937 random(2);
  for (int i = 0; i < 20; ++i) {
    // What is not written are whole sectors.
    const uint64_t length =
        (recording.mdat / 512 + 1 + random() % (recording.open.size() / 512 - recording.mdat / 512)) * 512;
    ByteVector cut = First(recording.open, length);
    cut.resize(recording.open.size() + 20000);
    CutTheRecovery(cut, recording.frames, recording.CompleteIn(length));
  }
}

TEST_F(SecondCut, WhileRecoveringInPlace_MediaDataIsMadeWholeLast) {
  const Recording recording = Record(info_, SmallFrames());
  LogFile file(recording.open);
  ASSERT_EQ(recover::RecoverInPlace(file, param_, report_, table_bytes_), 0);
  const auto& log = file.log();
  ASSERT_GE(log.size(), 6u);
  EXPECT_EQ(log.back().kind, LogFile::Kind::kSync);
  EXPECT_EQ(log[log.size() - 2].position, recording.mdat);
  EXPECT_EQ(log[log.size() - 3].kind, LogFile::Kind::kSync);
  for (size_t i = 0; i + 2 < log.size(); ++i) {
    if (log[i].kind == LogFile::Kind::kWrite) {
      EXPECT_GE(log[i].position, recording.open.size()) << i;
    }
  }
}

// A write that fails ends the recovery with its code; what is in the file by then is a file to recover.
TEST_F(SecondCut, FailingWritesInPlace_LeaveARecoverableFile) {
  const Recording recording = Record(info_, SmallFrames());
  const ByteVector cut = First(recording.open, recording.open.size() - 10);
  const size_t count = recording.CompleteIn(cut.size());
  const uint64_t blocks = host_.LiveBlocks();
  bool failed = true;
  for (uint64_t nth = 1; failed; ++nth) {
    LogFile file(cut);
    file.fail_at = nth;
    const int32_t result = recover::RecoverInPlace(file, param_, report_, table_bytes_);
    failed = file.fail_at == 1 && result != 0;
    EXPECT_EQ(failed, static_cast<uint32_t>(result) == ZMV_E_WRITE) << nth;
    EXPECT_EQ(host_.LiveBlocks(), blocks) << nth;
    ASSERT_EQ(Faults(file.bytes(), recording.frames, count), "") << nth;
    ASSERT_LT(nth, 100u);
  }
}

TEST_F(SecondCut, FullDiskInPlace_GivesTheSpaceBack) {
  const Recording recording = Record(info_, SmallFrames());
  const ByteVector completed = InPlace(recording.open);
  for (uint64_t more = 0; more < completed.size() - recording.open.size(); more += 37) {
    LogFile file(recording.open);
    file.capacity = recording.open.size() + more;
    ASSERT_EQ(static_cast<uint32_t>(recover::RecoverInPlace(file, param_, report_, table_bytes_)), ZMV_E_WRITE);
    ASSERT_EQ(Difference(file.bytes(), recording.open), "");
  }
}

}  // namespace
}  // namespace zmv::test

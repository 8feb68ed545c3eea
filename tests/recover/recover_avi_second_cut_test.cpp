// Power that fails while an AVI recording is being closed, or while it is being recovered in place: the frames stay.
#include <random>

#include "tests/recover/avi_recovery_test.h"

namespace zmv::test {
namespace {

class AviSecondCut : public AviRecoveryTest {
 protected:
  // Both recoveries of `cut` must give the first `count` frames. Words on what they do not give.
  std::string Faults(const ByteVector& cut, const AviRecording& recording, size_t count, bool to_file = true) {
    const std::vector<AviFrame> frames = FirstFrames(recording, count);
    const ByteVector completed = InPlace(cut);
    if (result_ != 0) return "in place: result " + std::to_string(result_);
    std::string difference = CompareAvi(completed, info_, frames);
    if (!difference.empty()) return "in place: " + difference;
    if (!to_file) return "";
    const ByteVector made = ToFile(cut);
    if (result_ != 0) return "to file: result " + std::to_string(result_);
    difference = CompareAvi(made, info_, frames);
    return difference.empty() ? "" : "to file: " + difference;
  }

  void CutTheRecovery(const ByteVector& cut, const AviRecording& recording, size_t count) {
    LogFile file(cut);
    ASSERT_EQ(recover::RecoverInPlace(file, param_, report_), 0);
    std::mt19937 random(static_cast<uint32_t>(cut.size()));
    for (size_t actions = 0; actions <= file.log().size(); ++actions) {
      for (int variant = 0; variant < 12; ++variant) {
        const auto salt = static_cast<uint32_t>(random());
        const ByteVector after = file.After(actions, [&](uint64_t sector, size_t action) {
          if (variant < 2) return variant == 0;
          if (variant == 2) return action + 1 != actions;  // all but the last
          if (variant == 3) return action + 1 == actions;  // nothing but the last
          return (sector * 2654435761u ^ salt) % 8 < (variant < 8 ? 4u : 1u);
        });
        ASSERT_EQ(Faults(after, recording, count, variant < 2), "")
            << "cut at " << cut.size() << " behind action " << actions << " variant " << variant;
      }
    }
  }

  ZMVFileInfo info_ = AviInfo();
};

TEST_F(AviSecondCut, WhileClosing_EveryWriteDropped) {
  for (const uint32_t variant : {0u, 1u, 2u}) {
    info_ = variant == 2 ? HevcPcmInfo() : AviInfo();
    if (variant == 1) info_.dwAiddValue = 0;  // with a fill chunk
    const std::vector<AviFrame> frames = variant == 2 ? HevcPcmFrames() : AviFrames();
    uint64_t writes = 0;
    RecordAvi(info_, frames, [&] { writes = host_.Count(HostCall::kWrite); });
    writes = host_.Count(HostCall::kWrite) - writes;
    ASSERT_GT(writes, 6u);
    for (uint64_t dropped = 1; dropped <= writes; ++dropped) {
      for (const auto duration : {ScriptedHost::kOnce, ScriptedHost::kForGood}) {
        const AviRecording recording =
            RecordAvi(info_, frames, [&] { host_.Fail(HostCall::kWrite, dropped, duration); });
        host_.ClearFailures();
        ASSERT_EQ(Faults(recording.closed, recording, recording.frames.size()), "")
            << "variant " << variant << " write " << dropped << " of " << writes
            << (duration == ScriptedHost::kOnce ? " dropped" : " and on");
      }
    }
  }
}

TEST_F(AviSecondCut, WhileClosing_CutAtEveryByte) {
  const AviRecording recording = RecordAvi(info_, AviFrames());
  // Before the headers and the sizes are set.
  ByteVector closing = recording.closed;
  std::copy(recording.open.begin(), recording.open.end(), closing.begin());
  for (size_t length = recording.open.size(); length <= closing.size(); ++length) {
    ASSERT_EQ(Faults(First(closing, length), recording, recording.frames.size()), "") << length;
  }
}

TEST_F(AviSecondCut, WhileRecoveringInPlace_TheSameFramesComeBack) {
  for (const bool hevc : {false, true}) {
    info_ = hevc ? HevcPcmInfo() : AviInfo();
    const AviRecording recording = RecordAvi(info_, hevc ? HevcPcmFrames() : AviFrames());
    std::mt19937 random(1);
    for (int i = 0; i < 60; ++i) {
      const uint64_t length =
          i == 0 ? recording.open.size()
                 : recording.FirstChunk() + random() % (recording.open.size() - recording.FirstChunk());
      CutTheRecovery(First(recording.open, length), recording, recording.CompleteIn(length));
      if (HasFatalFailure()) return;
    }
  }
}

TEST_F(AviSecondCut, WhileRecoveringInPlaceAPresizedFile_TheSameFramesComeBack) {
  const AviRecording recording = RecordAvi(info_, AviFrames());
  std::mt19937 random(2);
  for (int i = 0; i < 20; ++i) {
    // What is not written are whole sectors.
    const uint64_t first = recording.FirstChunk() / 512 + 1;
    const uint64_t length = (first + random() % (recording.open.size() / 512 - first)) * 512;
    ByteVector cut = First(recording.open, length);
    cut.resize(recording.open.size() + 20000);
    // A frame without data whose size is unwritten is not known to be one.
    InPlace(cut);
    const size_t count = report_.dwFrames;
    ASSERT_LE(count, recording.CompleteIn(length));
    ASSERT_GE(count + 1, recording.CompleteIn(length));
    CutTheRecovery(cut, recording, count);
    if (HasFatalFailure()) return;
  }
}

TEST_F(AviSecondCut, WhileRecoveringInPlace_TheSizeOfTheFormIsSetLast) {
  const AviRecording recording = RecordAvi(info_, AviFrames());
  LogFile file(recording.open);
  ASSERT_EQ(recover::RecoverInPlace(file, param_, report_), 0);
  const auto& log = file.log();
  ASSERT_GE(log.size(), 8u);
  EXPECT_EQ(log.back().kind, LogFile::Kind::kSync);
  EXPECT_EQ(log[log.size() - 2].position, 4u);
  EXPECT_EQ(log[log.size() - 3].kind, LogFile::Kind::kSync);
  bool headers = false;
  for (size_t i = 0; i < log.size(); ++i) {
    if (log[i].kind != LogFile::Kind::kWrite) continue;
    if (log[i].position >= recording.frames.back().end) {
      EXPECT_FALSE(headers) << "appended behind the headers";
      continue;
    }
    if (!headers) {
      EXPECT_EQ(log[i - 1].kind, LogFile::Kind::kSync) << "headers before the index is on the medium";
    }
    headers = true;
    EXPECT_LT(log[i].position, recording.FirstChunk());
  }
}

TEST_F(AviSecondCut, FailingWritesInPlace_LeaveARecoverableFile) {
  const AviRecording recording = RecordAvi(info_, AviFrames());
  const ByteVector cut = First(recording.open, recording.open.size() - 10);
  const size_t count = recording.CompleteIn(cut.size());
  bool failed = true;
  for (uint64_t nth = 1; failed; ++nth) {
    LogFile file(cut);
    file.fail_at = nth;
    const int32_t result = recover::RecoverInPlace(file, param_, report_);
    failed = file.fail_at == 1 && result != 0;
    EXPECT_EQ(failed, static_cast<uint32_t>(result) == ZMV_E_WRITE) << nth;
    EXPECT_EQ(host_.LiveBlocks(), 0u) << nth;
    ASSERT_EQ(Faults(file.bytes(), recording, count), "") << nth;
    ASSERT_LT(nth, 100u);
  }
}

TEST_F(AviSecondCut, FullDiskInPlace_GivesTheSpaceBack) {
  const AviRecording recording = RecordAvi(info_, AviFrames());
  const ByteVector completed = InPlace(recording.open);
  for (uint64_t more = 0; more < completed.size() - recording.open.size(); more += 37) {
    LogFile file(recording.open);
    file.capacity = recording.open.size() + more;
    ASSERT_EQ(static_cast<uint32_t>(recover::RecoverInPlace(file, param_, report_)), ZMV_E_WRITE);
    ASSERT_EQ(Difference(file.bytes(), recording.open), "");
  }
}

// Memory that runs out and calls that are stopped end with their codes.
TEST_F(AviSecondCut, FailingHosts_AreTheirCodes) {
  char name[] = "front camera";
  uint8_t extra[] = {1, 2, 3, 4};
  info_.pStreamName = name;
  info_.pExtraHeader = extra;
  info_.dwExtraHeaderSize = sizeof extra;
  const AviRecording recording = RecordAvi(info_, AviFrames());
  for (uint64_t nth = 1;; ++nth) {
    ASSERT_LT(nth, 100u);
    host_.Fail(HostCall::kMalloc, nth);
    const ByteVector completed = InPlace(recording.open);
    host_.ClearFailures();
    EXPECT_EQ(host_.LiveBlocks(), 0u) << nth;
    if (result_ == 0) break;
    ASSERT_EQ(static_cast<uint32_t>(result_), ZMV_E_MEMORY) << nth;
    ASSERT_EQ(Faults(completed, recording, recording.frames.size()), "") << nth;
  }
  for (uint32_t calls = 0; calls < 4; ++calls) {
    uint32_t left = calls;
    param_.pContext = &left;
    param_.pfnProgress = [](void* context, uint64_t, uint64_t) -> uint32_t {
      return (*static_cast<uint32_t*>(context))-- == 0 ? 1u : 0u;
    };
    const ByteVector stopped = InPlace(recording.open);
    param_.pfnProgress = nullptr;
    ASSERT_TRUE(result_ == 0 || static_cast<uint32_t>(result_) == ZMV_E_CANCELLED) << calls;
    ASSERT_EQ(Faults(stopped, recording, recording.frames.size()), "") << calls;
  }
}

}  // namespace
}  // namespace zmv::test

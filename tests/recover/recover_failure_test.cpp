// Recoveries that cannot be carried through: hosts that fail, full disks, calls that are stopped, files that would grow
// too large.
#include "facade/zmvstream_writer.h"
#include "recover/recover_in_place.h"
#include "tests/recover/recovery_test.h"

namespace zmv::test {
namespace {

class FailingRecovery : public RecoveryTest {
 protected:
  FailingRecovery() { recording_ = Record(info_, SmallFrames()); }

  // Runs `recover` with the nth call of the host failing for good, n = 1, 2 ... until none fails any more. Every
  // failure gives one of `codes`, and all memory back. The last `unnoticed` calls may fail without a code.
  template <typename Recover>
  void Sweep(HostCall call, std::vector<uint32_t> codes, Recover recover, uint64_t unnoticed = 0) {
    const uint64_t blocks = host_.LiveBlocks();
    const uint64_t start = host_.Count(call);
    ASSERT_EQ(recover(), 0);
    const uint64_t calls = host_.Count(call) - start;
    for (uint64_t nth = 1;; ++nth) {
      const uint64_t before = host_.Count(call);
      host_.Fail(call, nth, ScriptedHost::kForGood);
      const int32_t result = recover();
      host_.ClearFailures();
      ASSERT_EQ(host_.LiveBlocks(), blocks) << nth;
      if (host_.Count(call) - before < nth) {
        ASSERT_EQ(result, 0);
        ASSERT_GT(nth, 1u);
        return;
      }
      if (result == 0 && nth + unnoticed > calls) continue;
      ASSERT_THAT(codes, testing::Contains(static_cast<uint32_t>(result))) << nth;
    }
  }
  int32_t TryToFile() {
    ToFile(recording_.open);
    return result_;
  }
  int32_t TryInPlace() {
    InPlace(recording_.open);
    return result_;
  }

  static uint32_t StopLater(void* context, uint64_t done, uint64_t total) {
    EXPECT_LE(done, total);
    auto* left = static_cast<uint32_t*>(context);
    if (*left == 0) return 1;
    --*left;
    return 0;
  }

  ZMVFileInfo info_ = SmallInfo(FourCC("H264"));
  Recording recording_;
};

TEST_F(FailingRecovery, ToFile_EveryWriteFailing_IsReported) {
  Sweep(HostCall::kWrite, {ZMV_E_WRITE}, [&] { return TryToFile(); });
}

TEST_F(FailingRecovery, ToFile_WritesFailingOnce_AreReported) {
  ToFile(recording_.open);
  const uint64_t before = host_.Count(HostCall::kWrite);
  ToFile(recording_.open);
  const uint64_t writes = host_.Count(HostCall::kWrite) - before;
  for (uint64_t nth = 1; nth <= writes; ++nth) {
    host_.Fail(HostCall::kWrite, nth);
    ASSERT_EQ(static_cast<uint32_t>(TryToFile()), ZMV_E_WRITE) << nth;
  }
}

TEST_F(FailingRecovery, ToFile_OtherHostCallsFailing_AreReported) {
  // The last allocation is for the description of the video track, which the writer leaves empty without it.
  Sweep(
      HostCall::kMalloc, {ZMV_E_MEMORY, ZMV_E_WRITE}, [&] { return TryToFile(); }, 1);
  Sweep(HostCall::kOpen, {ZMV_E_OPEN}, [&] { return TryToFile(); });
  Sweep(HostCall::kMutexCreate, {ZMV_E_MEMORY}, [&] { return TryToFile(); });
  host_.Fail(HostCall::kSync, 1);
  EXPECT_EQ(static_cast<uint32_t>(TryToFile()), ZMV_E_WRITE);
}

// What the writer reads back when it closes: spilled tables, and the text frames that the boxes repeat.
TEST_F(FailingRecovery, ToFile_ReadsAndSeeksFailing_AreReported) {
  Sweep(HostCall::kRead, {ZMV_E_READ}, [&] { return TryToFile(); });
  Sweep(HostCall::kSeek, {ZMV_E_SEEK, ZMV_E_WRITE}, [&] { return TryToFile(); });
}

TEST_F(FailingRecovery, ToFile_HostThatWritesNothingWithoutAnError_IsReported) {
  host_.write_result = 0;
  EXPECT_EQ(static_cast<uint32_t>(TryToFile()), ZMV_E_WRITE);
}

TEST_F(FailingRecovery, InPlace_WithoutMemory_LeavesTheFile) {
  Sweep(
      HostCall::kMalloc, {ZMV_E_MEMORY, ZMV_E_WRITE},
      [&] {
        const ByteVector file = InPlace(recording_.open);
        if (result_ != 0) {
          EXPECT_EQ(Difference(file, recording_.open), "");
        }
        return result_;
      },
      1);
}

TEST_F(FailingRecovery, ToFile_FullDisk_IsReported) {
  constexpr int64_t kReserve = 10 * 1024 * 1024;
  host_.free_space = kReserve + 5000;
  EXPECT_EQ(static_cast<uint32_t>(TryToFile()), ZMV_E_DISK_FULL);
  host_.free_space = int64_t{1} << 40;
  host_.file_capacity = 7000;
  EXPECT_EQ(static_cast<uint32_t>(TryToFile()), ZMV_E_WRITE);
  host_.file_capacity = UINT64_MAX;
  EXPECT_EQ(TryToFile(), 0);
}

// The callback is asked about every mebibyte, at the start and at the end.
TEST_F(FailingRecovery, Stopped_GivesTheCodeAndLeavesTheFile) {
  std::vector<TestFrame> frames = FramesFor(info_, 12);
  for (TestFrame& frame : frames) {
    if (frame.media == ZMV_MEDIA_VIDEO) frame.payload.resize(400000, 0x55);
  }
  recording_ = Record(info_, frames);
  param_.pfnProgress = &StopLater;
  for (const bool in_place : {false, true}) {
    uint32_t calls = 0;
    for (;; ++calls) {
      uint32_t left = calls;
      param_.pContext = &left;
      const ByteVector file = in_place ? InPlace(recording_.open) : ToFile(recording_.open);
      if (result_ == 0) break;
      ASSERT_EQ(static_cast<uint32_t>(result_), ZMV_E_CANCELLED);
      if (in_place) {
        ASSERT_EQ(Difference(file, recording_.open), "");
      }
    }
    EXPECT_GE(calls, 5u) << in_place;
  }
}

TEST_F(FailingRecovery, Foreign_IsRefused) {
  for (const ByteVector& file : {ByteVector(), Text("hello"), ByteVector(5000, 0x47),
                                 Join({Be32(24), Text("ftypisom"), Zeros(12), Be32(8), Text("mdat"), Zeros(500)})}) {
    ToFile(file);
    EXPECT_EQ(static_cast<uint32_t>(result_), ZMV_E_UNSUPPORTED_FORMAT);
    const ByteVector after = InPlace(file);
    EXPECT_EQ(static_cast<uint32_t>(result_), ZMV_E_UNSUPPORTED_FORMAT);
    EXPECT_EQ(after, file);
  }
}

TEST_F(FailingRecovery, DamagedFront_OnlyToFile) {
  ByteVector damaged = recording_.open;
  std::fill_n(damaged.begin() + 40, 300, uint8_t{0xEE});
  const ByteVector after = InPlace(damaged);
  EXPECT_EQ(static_cast<uint32_t>(result_), ZMV_E_NOT_SUPPORTED);
  EXPECT_EQ(Difference(after, damaged), "");
  param_.pDescription = &info_;
  const ByteVector made = ToFile(damaged);
  ASSERT_EQ(result_, 0);
  EXPECT_EQ(CompareFrames(made, info_, recording_.frames, recording_.frames.size()), "");
  EXPECT_EQ(Difference(MoovWithoutOffsets(made), MoovWithoutOffsets(recording_.closed)), "");
}

// ---- 4 GiB

// Frames that only their records describe, as many as are asked for.
class ManyFrames final : public recover::Scan {
 public:
  ManyFrames(uint64_t first, uint32_t size, uint32_t count) : position_(first), size_(size), left_(count) {
    bytes_.resize(size, 0x21);
  }
  bool Next(recover::FoundFrame& frame) override {
    if (left_ == 0) return false;
    --left_;
    frame = {};
    frame.position = position_;
    frame.payload = position_ + 28;
    frame.size = size_;
    frame.media = ZMV_MEDIA_AUDIO;
    frame.duration = frame.new_duration = 21;
    frame.bytes = bytes_.data();
    position_ += 28 + size_;
    return true;
  }
  int32_t Result() const override { return 0; }
  const ZMVRecoverReport& Report() const override { return report_; }
  uint64_t position() const { return position_; }

 private:
  uint64_t position_;
  uint32_t size_;
  uint32_t left_;
  ByteVector bytes_;
  ZMVRecoverReport report_ = {};
};

// A file of which only the end is there.
class HugeFile final : public recover::File {
 public:
  explicit HugeFile(uint64_t size) : size_(size) {}
  uint64_t Size() const override { return size_; }
  int64_t ReadAt(uint64_t, void* bytes, uint32_t count) override {
    std::fill_n(static_cast<uint8_t*>(bytes), count, uint8_t{0});
    return count;
  }
  int32_t WriteAt(uint64_t position, const void*, uint32_t count) override {
    largest = std::max(largest, position + count);
    size_ = std::max(size_, position + count);
    return 0;
  }
  int32_t Truncate(uint64_t size) override { return size_ = size, 0; }
  int32_t Sync() override { return 0; }
  uint64_t largest = 0;

 private:
  uint64_t size_;
};

TEST_F(FailingRecovery, InPlaceBeyond4GiB_IsRefused) {
  constexpr uint64_t kMdat = 600;
  constexpr uint32_t kCount = 400;
  constexpr uint64_t kLimit = 0xFFFFFFFF;
  info_.dwVideoCount = info_.dwTextCount = 0;
  ZMVRecoverParam param = {};
  recover::Progress progress(param, 1);
  bool written = false, refused = false;
  for (uint64_t spare = 1000; spare < 20000; spare += 500) {
    const uint64_t data = kLimit - spare - kMdat - 8;
    ManyFrames frames(kMdat + 8, static_cast<uint32_t>(data / kCount) - 28, kCount);
    const uint64_t end = kMdat + 8 + data / kCount * kCount;
    HugeFile file(end);
    const int32_t result =
        recover::CompleteInPlace({file, info_, kMdat, end, end - kMdat - 8, frames, false, progress});
    if (result == 0) {
      EXPECT_LE(file.Size(), kLimit);
      written = true;
    } else {
      EXPECT_FALSE(written) << spare;
      EXPECT_EQ(static_cast<uint32_t>(result), ZMV_E_WRITE);
      EXPECT_EQ(file.Size(), end) << "the space is given back";
      refused = true;
    }
  }
  EXPECT_TRUE(written);
  EXPECT_TRUE(refused);
}

// A recorder whose buffers take whole tables goes on until the frames and the index fill 4 GiB. What it leaves when its
// power is cut is completed as well: there is no room for pieces of tables beside the index.
TEST_F(FailingRecovery, InPlaceOfANearlyFullFile_NeedsNoMoreThanItsIndex) {
  constexpr uint64_t kMdat = 600;
  constexpr uint32_t kCount = 250000;
  constexpr uint64_t kIndex = 8 * kCount + 3000;
  constexpr uint64_t kLimit = 0xFFFFFFFF;
  info_.dwVideoCount = info_.dwTextCount = 0;
  const auto size = static_cast<uint32_t>((kLimit - kIndex - kMdat - 8) / kCount - 28);
  const uint64_t end = kMdat + 8 + uint64_t{28 + size} * kCount;
  ZMVRecoverParam param = {};
  recover::Progress progress(param, 1);
  for (const bool memory : {true, false}) {
    ManyFrames frames(kMdat + 8, size, kCount);
    HugeFile file(end);
    if (!memory) host_.max_block = 1 << 20;
    const int32_t result =
        recover::CompleteInPlace({file, info_, kMdat, end, end - kMdat - 8, frames, false, progress});
    EXPECT_EQ(static_cast<uint32_t>(result), memory ? 0 : ZMV_E_WRITE);
    EXPECT_LE(file.Size(), kLimit);
    EXPECT_EQ(file.Size() > end, memory);
  }
}

}  // namespace
}  // namespace zmv::test

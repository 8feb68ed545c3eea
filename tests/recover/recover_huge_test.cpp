// Recordings in files beyond 4 GiB, and recordings that would become ones.
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <filesystem>

#include "recover/recover_to_file.h"
#include "tests/recover/recovery_test.h"
#include "tests/recover/sparse_file.h"

namespace zmv::test {
namespace {

constexpr uint64_t kLargest = 0xFFFFFFFF;  // a file that 32-bit positions and sizes can express
constexpr uint64_t kGiB = uint64_t{1} << 30;

class HugeRecording : public RecoveryTest {
 protected:
  HugeRecording() { recording_ = Record(info_, SmallFrames()); }

  int32_t Complete(recover::File& file) { return recover::RecoverInPlace(file, param_, report_, table_bytes_); }

  ZMVFileInfo info_ = SmallInfo(FourCC("H264"));
  Recording recording_;
};

TEST_F(HugeRecording, MadeLongerThan4GiBInAdvance_IsCutToWhatABoxCovers) {
  SparseFile file(recording_.open, 5 * kGiB);
  ASSERT_EQ(Complete(file), 0);
  EXPECT_EQ(report_.dwState, ZMV_RECOVER_CUT);
  EXPECT_EQ(report_.dwFrames, recording_.frames.size());
  EXPECT_EQ(file.Size(), kLargest);
  // The boxes fill the file: without the last one they fill what is not zero.
  ByteVector boxes = file.bytes();
  const size_t cover = boxes.size() - 8;
  EXPECT_EQ(ByteVector(boxes.begin() + static_cast<ptrdiff_t>(cover), boxes.end()),
            Join({Be32(static_cast<uint32_t>(kLargest - cover)), Text("free")}));
  boxes.resize(cover);
  EXPECT_EQ(TopBoxes(boxes).back().type, "moov");
  EXPECT_EQ(CompareFrames(boxes, info_, recording_.frames), "");
  // A whole recording, which is then left alone.
  const size_t actions = file.log().size();
  ASSERT_EQ(Complete(file), 0);
  EXPECT_EQ(report_.dwState, ZMV_RECOVER_WHOLE);
  EXPECT_EQ(file.log().size(), actions);
}

// What is cut off goes behind everything that was appended and in front of the sizes, with syncs between.
TEST_F(HugeRecording, MadeLongerThan4GiBInAdvance_IsCutInASafeOrder) {
  SparseFile file(recording_.open, 5 * kGiB);
  ASSERT_EQ(Complete(file), 0);
  using Kind = SparseFile::Kind;
  const auto& log = file.log();
  const auto cut =
      std::find_if(log.begin(), log.end(), [](const auto& action) { return action.kind == Kind::kTruncate; });
  ASSERT_NE(cut, log.end());
  EXPECT_EQ(cut->position, kLargest);
  ASSERT_GE(log.end() - cut, 4);
  EXPECT_EQ(cut[1].kind, Kind::kSync);
  for (auto action = log.begin(); action != cut; ++action) {
    if (action->kind == Kind::kWrite) {
      EXPECT_GE(action->position, recording_.open.size());
    }
  }
  EXPECT_EQ(log[log.size() - 2].position, recording_.mdat);
  // The power fails behind the cut.
  SparseFile after(recording_.open, 5 * kGiB);
  after.fail_at = static_cast<uint64_t>(cut - log.begin()) + 2;
  EXPECT_EQ(static_cast<uint32_t>(Complete(after)), ZMV_E_WRITE);
  EXPECT_EQ(after.Size(), kLargest);
  after.fail_at = 0;
  ASSERT_EQ(Complete(after), 0);
  EXPECT_EQ(after.bytes(), file.bytes());
  EXPECT_EQ(after.Size(), kLargest);
}

// ---- To a new file

// A recording of sound in a file of the operating system that takes no disk, with silence that takes no memory; and a
// host that counts what it is given.
class HugeSound : public RecoveryTest {
 protected:
  static constexpr uint32_t kRecord = 28;
  static constexpr uint32_t kPayload = 8 << 20;

  HugeSound() {
    std::string name = (std::filesystem::temp_directory_path() / "zmvrecover.XXXXXX").string();
    folder_ = mkdtemp(name.data());
    file_ = memfd_create("cut.mp4", MFD_CLOEXEC);
    source_ = "/proc/self/fd/" + std::to_string(file_);
    target_ = (folder_ / "new.mp4").string();
    info_.dwVideoCount = info_.dwTextCount = 0;
    info_.dwTimeScale = 0;
    info_.m_Audio.dwFormat = ZMV_AUDIO_PCM_LE;
    info_.m_Audio.dwChannels = 1;
    info_.m_Audio.dwExtraDataSize = 0;
    param_.pszPath = source_.c_str();
    param_.pszTarget = target_.c_str();
    // The scripted host keeps its files to itself: this one stands for the target on the disk.
    param_.pfnProgress = [](void* context, uint64_t, uint64_t) {
      close(open(static_cast<const char*>(context), O_WRONLY | O_CREAT, 0600));
      return uint32_t{0};
    };
    param_.pContext = target_.data();
    host_.kept = 1 << 16;
  }
  ~HugeSound() override {
    close(file_);
    std::filesystem::remove_all(folder_);
  }

  // A recording of `size` bytes that was not closed.
  void Store(uint64_t size) {
    front_ = Record(info_, {}).open;
    ASSERT_EQ(ftruncate(file_, 0), 0);
    Put(0, front_);
    frames_ = 0;
    for (uint64_t at = front_.size(); at < size; ++frames_) {
      const uint64_t left = size - at - kRecord;
      const uint32_t payload = left < kPayload + 2 * kRecord ? static_cast<uint32_t>(left) : kPayload;
      Put(at,
          Join({Text("RECO"), Be32(ZMV_MEDIA_AUDIO), Be32(0), Be32(frames_ * 100), Be32(100), Be32(0), Be32(payload)}));
      at += kRecord + payload;
      Put(at - 1, {1});  // the last sample is not silent
    }
    ASSERT_EQ(std::filesystem::file_size(source_), size);
  }
  void Put(uint64_t at, const ByteVector& bytes) const {
    ASSERT_EQ(pwrite(file_, bytes.data(), bytes.size(), static_cast<off_t>(at)), static_cast<ssize_t>(bytes.size()));
  }

  ZMVFileInfo info_ = SmallInfo(FourCC("H264"));
  std::filesystem::path folder_;
  int file_ = -1;
  std::string source_;
  std::string target_;
  ByteVector front_;
  uint32_t frames_ = 0;
};

TEST_F(HugeSound, ThatStaysBelow4GiB_IsRecoveredToAFile) {
  Store(kLargest - 20000);
  ASSERT_EQ(ZMVRecoverToFile(&param_, &report_), 0);
  EXPECT_EQ(report_.dwState, ZMV_RECOVER_CUT);
  EXPECT_EQ(report_.dwFrames, frames_);
  EXPECT_EQ(report_.llDataEnd, kLargest - 20000);
  EXPECT_GT(frames_, 500u);
  const ByteVector& made = host_.File(target_);
  const ByteVector mdat = Text("mdat");
  const auto found = std::search(made.begin(), made.end(), mdat.begin(), mdat.end());
  ASSERT_NE(found, made.end());
  EXPECT_EQ(ByteVector(found - 4, found), Be32(static_cast<uint32_t>(kLargest - 20000 - front_.size() + 8)));
  EXPECT_LE(host_.FileSize(target_), kLargest);
  EXPECT_GT(host_.FileSize(target_), kLargest - 20000);
}

// The frames alone fit, or not even they: nothing is left of the new file, nor changed in the old one.
TEST_F(HugeSound, ThatWouldPass4GiB_IsRefusedAndLeavesNoFile) {
  for (const uint64_t size : {kLargest - 100, 4 * kGiB + kPayload}) {
    Store(size);
    const auto written = std::filesystem::last_write_time(source_);
    EXPECT_EQ(static_cast<uint32_t>(ZMVRecoverToFile(&param_, &report_)), ZMV_E_WRITE) << size;
    EXPECT_FALSE(std::filesystem::exists(target_)) << size;
    EXPECT_GT(host_.FileSize(target_), kLargest - 2 * kPayload) << "it ended early";
    EXPECT_LE(host_.FileSize(target_), kLargest);
    EXPECT_EQ(std::filesystem::last_write_time(source_), written);
    EXPECT_EQ(std::filesystem::file_size(source_), size);
  }
}

// ---- Boxes behind the frames

// Sound in frames up to a size, then texts that carry the blocks.
class SoundAndTexts final : public recover::Scan {
 public:
  SoundAndTexts(uint64_t sound, uint32_t texts, uint32_t payload = 8 << 20)
      : sound_(sound), texts_(texts), bytes_(payload, 0x21) {}
  bool Next(recover::FoundFrame& frame) override {
    frame = {};
    frame.duration = frame.new_duration = 40;
    frame.bytes = bytes_.data();
    if (sound_ > 28) {
      frame.media = ZMV_MEDIA_AUDIO;
      frame.size = static_cast<uint32_t>(std::min<uint64_t>(sound_ - 28, bytes_.size()));
      sound_ -= 28 + frame.size;
      return true;
    }
    frame.media = ZMV_MEDIA_TEXT;
    frame.size = 92;
    return texts_ != 0 && texts_-- != 0;
  }
  int32_t Result() const override { return 0; }
  const ZMVRecoverReport& Report() const override { return report_; }

 private:
  uint64_t sound_;
  uint32_t texts_;
  ByteVector bytes_;
  ZMVRecoverReport report_ = {};
};

// The frames and their index fit, the boxes of positions do not: no file without its end is taken for a good one.
TEST_F(RecoveryTest, PositionsThatWouldPass4GiB_AreReported) {
  constexpr uint32_t kTexts = 2000;
  constexpr uint64_t kRoom = 60000;
  host_.kept = 1 << 16;
  ZMVFileInfo info = SmallInfo(FourCC("H264"));
  info.dwVideoCount = 0;
  info.szSoftware[0] = 0;
  for (const bool wanted : {false, true}) {
    SoundAndTexts frames(kLargest - kTexts * (28 + 92) - kRoom, kTexts);
    const int32_t result =
        recover::WriteNewRecording({.frames = frames,
                                    .info = info,
                                    .format = ZMV_FORMAT_MP4,
                                    .target = kTarget,
                                    .user_data = wanted ? ZMV_RECOVER_USER_DATA_ALWAYS : ZMV_RECOVER_USER_DATA_NEVER});
    EXPECT_EQ(static_cast<uint32_t>(result), wanted ? ZMV_E_WRITE : 0u);
    EXPECT_LE(host_.FileSize(kTarget), kLargest);
    EXPECT_GT(host_.FileSize(kTarget), kLargest - kRoom);
    EXPECT_EQ(host_.LiveBlocks(), 0u);
  }
}

// Beside frames and index a nearly full file has no room for pieces of tables; other files have.
TEST_F(RecoveryTest, NearlyFullFile_NeedsNoMoreThanItsIndex) {
  constexpr uint32_t kPayload = 16 * 1024;
  constexpr uint64_t kFrames = kLargest / (28 + kPayload);
  constexpr uint64_t kIndex = 8 * kFrames + 5000;
  host_.kept = 1 << 16;
  ZMVFileInfo info = SmallInfo(FourCC("H264"));
  info.dwVideoCount = info.dwTextCount = 0;
  for (const uint64_t source_size : {kLargest, uint64_t{0}}) {
    SoundAndTexts frames(kLargest - kIndex, 0, kPayload);
    const int32_t result = recover::WriteNewRecording({.frames = frames,
                                                       .info = info,
                                                       .format = ZMV_FORMAT_MP4,
                                                       .target = kTarget,
                                                       .user_data = ZMV_RECOVER_USER_DATA_NEVER,
                                                       .source_size = source_size});
    EXPECT_EQ(static_cast<uint32_t>(result), source_size != 0 ? 0 : ZMV_E_WRITE);
    EXPECT_LE(host_.FileSize(kTarget), kLargest);
  }
}

}  // namespace
}  // namespace zmv::test

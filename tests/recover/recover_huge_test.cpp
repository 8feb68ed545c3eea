// Recordings in files beyond 4 GiB, and recordings that would become ones.
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

}  // namespace
}  // namespace zmv::test

// AVI recordings that are large, or long: up to the last byte that such a file can have, and a million frames.
#include <map>

#include "base/zmv_result.h"
#include "tests/recover/avi_recovery_test.h"
#include "tests/recover/sparse_file.h"

namespace zmv::test {
namespace {

constexpr uint64_t kMaxFileSize = 0xFFFFFFFF;
constexpr uint64_t kMegabyte = 1u << 20;

// A front, the same chunk over and over, and at the end perhaps another one. What is written is kept beside them.
class RepeatedFile final : public recover::File {
 public:
  RepeatedFile(ByteVector front, ByteVector chunk, uint32_t count, ByteVector last)
      : front_(std::move(front)), chunk_(std::move(chunk)), last_(std::move(last)) {
    last_begin_ = front_.size() + uint64_t{count} * chunk_.size();
    size_ = last_begin_ + last_.size();
  }

  uint64_t writes() const { return writes_; }

  uint64_t Size() const override { return size_; }
  int64_t ReadAt(uint64_t position, void* bytes, uint32_t count) override {
    if (position >= size_) return 0;
    const auto got = static_cast<uint32_t>(std::min<uint64_t>(count, size_ - position));
    uint8_t* to = static_cast<uint8_t*>(bytes);
    for (uint32_t done = 0; done < got;) done += Recorded(position + done, to + done, got - done);
    auto written = written_.upper_bound(position);
    if (written != written_.begin()) --written;
    for (; written != written_.end() && written->first < position + got; ++written) {
      const uint64_t begin = std::max(position, written->first);
      const uint64_t end = std::min<uint64_t>(position + got, written->first + written->second.size());
      if (begin >= end) continue;
      std::copy_n(written->second.begin() + static_cast<ptrdiff_t>(begin - written->first), end - begin,
                  to + (begin - position));
    }
    return got;
  }
  // Pieces that overlap are written at the same place and with the same size, here.
  int32_t WriteAt(uint64_t position, const void* bytes, uint32_t count) override {
    const uint8_t* from = static_cast<const uint8_t*>(bytes);
    written_[position] = ByteVector(from, from + count);
    size_ = std::max(size_, position + count);
    ++writes_;
    return 0;
  }
  int32_t Truncate(uint64_t size) override {
    size_ = size;
    return 0;
  }
  int32_t Sync() override { return 0; }

 private:
  uint32_t Recorded(uint64_t position, uint8_t* to, uint32_t count) const {
    const ByteVector* source = &front_;
    uint64_t offset = position;
    if (position >= last_begin_) {
      source = &last_;
      offset = position - last_begin_;
    } else if (position >= front_.size()) {
      source = &chunk_;
      offset = (position - front_.size()) % chunk_.size();
    }
    if (offset >= source->size()) return Zero(to, count);
    const auto part = static_cast<uint32_t>(std::min<uint64_t>(count, source->size() - offset));
    std::copy_n(source->begin() + static_cast<ptrdiff_t>(offset), part, to);
    return part;
  }
  static uint32_t Zero(uint8_t* to, uint32_t count) {
    std::fill_n(to, count, uint8_t{0});
    return count;
  }

  ByteVector front_;
  ByteVector chunk_;
  ByteVector last_;
  uint64_t last_begin_ = 0;
  uint64_t size_ = 0;
  uint64_t writes_ = 0;
  std::map<uint64_t, ByteVector> written_;
};

class AviLarge : public AviRecoveryTest {
 protected:
  AviLarge() {
    info_ = AviInfo();
    info_.dwAudioCount = info_.dwTextCount = 0;
    front_ = RecordAvi(info_, {}).open;
  }
  static ByteVector Chunk(size_t payload) {
    return Join({Text("00dc"), Le32(static_cast<uint32_t>(payload)), Picture(FourCC("H264"), true, 1, payload)});
  }
  uint32_t At(RepeatedFile& file, uint64_t position) {
    uint8_t bytes[4] = {};
    EXPECT_EQ(file.ReadAt(position, bytes, sizeof bytes), 4);
    return LoadLE32(bytes);
  }

  ZMVFileInfo info_;
  ByteVector front_;
};

TEST_F(AviLarge, UpToTheLastByteOfAFile_CompletesInPlace) {
  constexpr uint32_t kCount = 1023;
  const ByteVector chunk = Chunk(4 * kMegabyte - 8);
  const uint64_t tail = 8 + 16 * uint64_t{kCount + 1} + 328;
  // The last frame fills the file up; one of two more bytes does not fit.
  const uint64_t room = kMaxFileSize - tail - front_.size() - kCount * chunk.size();
  const size_t largest = (room - 8) / 2 * 2;
  for (const size_t last : {largest, largest + 2}) {
    RepeatedFile file(front_, chunk, kCount, Chunk(last));
    const uint64_t data_end = file.Size();
    const int32_t result = recover::RecoverInPlace(file, param_, report_);
    EXPECT_EQ(report_.dwFrames, kCount + 1);
    EXPECT_EQ(report_.llDataEnd, data_end);
    if (last > largest) {
      EXPECT_EQ(result, Result(ZMV_E_WRITE));
      EXPECT_EQ(file.writes(), 0u);
      continue;
    }
    ASSERT_EQ(result, 0);
    EXPECT_EQ(file.Size(), data_end + tail);
    EXPECT_GE(file.Size(), kMaxFileSize - 1);
    EXPECT_EQ(At(file, 4), data_end + tail - 8);
    const uint64_t movi = front_.size() - 4;
    EXPECT_EQ(At(file, movi - 4), data_end - movi);
    EXPECT_EQ(At(file, data_end), FourCC("idx1"));
    const uint64_t entry = data_end + 8 + 16 * uint64_t{kCount};
    EXPECT_EQ(At(file, entry), FourCC("00dc"));
    EXPECT_EQ(At(file, entry + 8), 4 + kCount * chunk.size());
    EXPECT_EQ(At(file, entry + 12), last);
    EXPECT_EQ(recover::RecoverInPlace(file, param_, report_), 0);
    EXPECT_EQ(report_.dwState, ZMV_RECOVER_WHOLE);
  }
}

// Space that was taken in advance is covered as far as positions of 32 bits reach; the rest goes.
TEST_F(AviLarge, MadeLongerThan4GiBInAdvance_IsCutToWhatAChunkCovers) {
  const AviRecording recording = RecordAvi(AviInfo(), AviFrames());
  SparseFile file(recording.open, 5 * 1024 * kMegabyte);
  ASSERT_EQ(recover::RecoverInPlace(file, param_, report_), 0);
  EXPECT_EQ(report_.dwFrames, recording.frames.size());
  ASSERT_EQ(file.Size(), kMaxFileSize);
  ByteVector expected = recording.closed;
  StoreLE32(&expected[expected.size() - 4], static_cast<uint32_t>(kMaxFileSize - expected.size()));
  EXPECT_EQ(Difference(file.bytes(), expected), "");
  // It is cut before the headers change.
  const auto& log = file.log();
  const auto cut = std::find_if(log.begin(), log.end(),
                                [](const SparseFile::Action& one) { return one.kind == SparseFile::Kind::kTruncate; });
  ASSERT_NE(cut, log.end());
  EXPECT_TRUE(std::any_of(cut, log.end(), [](const SparseFile::Action& one) { return one.position == 4; }));
  EXPECT_TRUE(std::none_of(log.begin(), cut, [&](const SparseFile::Action& one) {
    return one.kind == SparseFile::Kind::kWrite && one.position < recording.FirstChunk();
  }));
  EXPECT_EQ(recover::RecoverInPlace(file, param_, report_), 0);
  EXPECT_EQ(report_.dwState, ZMV_RECOVER_WHOLE);
  SparseFile failing(recording.open, 5 * 1024 * kMegabyte);
  failing.fail_at = 1;
  EXPECT_EQ(recover::RecoverInPlace(failing, param_, report_), Result(ZMV_E_WRITE));
  EXPECT_EQ(failing.Size(), 5 * 1024 * kMegabyte);
}

// Memory does not grow with the frames in place. A new file has its index in memory until it is closed.
TEST_F(AviLarge, MillionFrames_TakeNoMemoryInPlaceAndAnEntryEachInANewFile) {
  constexpr uint64_t kEntry = 16;
  constexpr uint64_t kSlack = 20000;  // the step by which the writer's index grows
  uint64_t in_place[2] = {};
  uint64_t to_file[2] = {};
  const uint32_t counts[2] = {10000, 1000000};
  for (int i = 0; i < 2; ++i) {
    {
      ScriptedHost host;
      host.record = false;
      host.trace_level = 0;
      RepeatedFile file(front_, Chunk(30), counts[i], {});
      ASSERT_EQ(recover::RecoverInPlace(file, param_, report_), 0);
      EXPECT_EQ(report_.dwFrames, counts[i]);
      in_place[i] = host.PeakBytes();
    }
    ScriptedHost host;
    host.record = false;
    host.trace_level = 0;
    RepeatedFile file(front_, Chunk(30), counts[i], {});
    param_.pszTarget = kTarget;
    ASSERT_EQ(recover::RecoverToFile(file, param_, report_), 0);
    EXPECT_EQ(report_.dwFrames, counts[i]);
    to_file[i] = host.PeakBytes();
  }
  EXPECT_EQ(in_place[0], in_place[1]);
  EXPECT_LT(in_place[1], kMegabyte);
  EXPECT_LE(to_file[1] - to_file[0], kEntry * (counts[1] - counts[0]) + kSlack);
}

}  // namespace
}  // namespace zmv::test

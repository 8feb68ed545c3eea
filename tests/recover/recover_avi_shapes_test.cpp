// AVI recordings of every shape: cut anywhere, before they were closed and after, and lost in part while they were.
#include <random>

#include "tests/recover/avi_recovery_test.h"
#include "tests/recover/avi_shapes.h"

namespace zmv::test {
namespace {

constexpr uint64_t kSector = 512;

class AviShapes : public AviRecoveryTest {
 protected:
  // Recovery in place of `cut` must give these frames, and to a new file as well. Words on what they do not give.
  std::string Faults(const ByteVector& cut, const ZMVFileInfo& info, const std::vector<AviFrame>& frames,
                     bool to_file = true) {
    const ByteVector completed = InPlace(cut);
    if (result_ != 0) return "in place: result " + std::to_string(result_);
    std::string difference = CompareAviFrames(completed, info, frames);
    if (!difference.empty()) return "in place: " + difference;
    if (!to_file) return "";
    const ByteVector made = ToFile(cut);
    if (result_ != 0) return "to file: result " + std::to_string(result_);
    difference = CompareAvi(made, info, frames);
    return difference.empty() ? "" : "to file: " + difference;
  }
  // The same of what is cut at a length. The report calls it no more than cut.
  std::string FaultsAt(const ByteVector& bytes, uint64_t length, const AviRecording& recording,
                       const ZMVFileInfo& info) {
    // Both find the same frames; a new file is made of some.
    const size_t count = recording.CompleteIn(length);
    const bool to_file = length % 8 == 0 || count != last_count_;
    last_count_ = count;
    std::string faults = Faults(First(bytes, length), info, FirstFrames(recording, count), to_file);
    if (faults.empty() && report_.dwState != ZMV_RECOVER_CUT) faults = "state " + std::to_string(report_.dwState);
    return faults;
  }
  // A last frame that ends with zeros cannot be told from one whose end the medium does not have.
  static bool EndsInZero(const AviFrame& frame) { return frame.payload.empty() || frame.payload.back() == 0; }

  size_t last_count_ = SIZE_MAX;
};

TEST_F(AviShapes, CutAtEveryByte_GiveTheCompleteFrames) {
  for (const AviShape& shape : AllAviShapes()) {
    const AviRecording recording = RecordAvi(shape.info, shape.frames);
    for (uint64_t length = recording.FirstChunk(); length <= recording.open.size(); ++length) {
      ASSERT_EQ(FaultsAt(recording.open, length, recording, shape.info), "") << shape.name << " cut at " << length;
    }
  }
}

TEST_F(AviShapes, CutBehindTheLastFrame_EqualTheClosedFileInPlace) {
  for (const AviShape& shape : AllAviShapes()) {
    const AviRecording recording = RecordAvi(shape.info, shape.frames);
    EXPECT_EQ(Difference(InPlace(recording.open), recording.closed), "") << shape.name;
  }
}

TEST_F(AviShapes, Closed_AreWholeAndStayAsTheyAre) {
  constexpr uint32_t kNoFill = 1;
  for (AviShape& shape : AllAviShapes()) {
    for (const uint32_t fill : {0u, kNoFill}) {
      shape.info.dwAiddValue = fill;
      const AviRecording recording = RecordAvi(shape.info, shape.frames);
      EXPECT_EQ(Difference(InPlace(recording.closed), recording.closed), "") << shape.name;
      EXPECT_EQ(report_.dwState, ZMV_RECOVER_WHOLE) << shape.name;
      EXPECT_EQ(CompareAvi(ToFile(recording.closed), shape.info, recording.frames), "") << shape.name;
    }
  }
}

// Wherever their chunks lie in the sectors, and whatever is taken for frames within their payloads: the index tells.
TEST_F(AviShapes, ClosedLookalikes_StayAsTheyAre) {
  for (size_t shift = 0; shift < kSector; shift += 2) {
    AviShape shape = Lookalikes();
    ByteVector& first = shape.frames.front().payload;
    first.insert(first.end(), shift, uint8_t{0x5A});
    const AviRecording recording = RecordAvi(shape.info, shape.frames);
    ASSERT_EQ(Difference(InPlace(recording.closed), recording.closed), "") << shift;
    ASSERT_EQ(result_, 0);
  }
}

// The headers state more than there is.
TEST_F(AviShapes, ClosedAndThenCut_AreAsIfNeverClosed) {
  constexpr uint64_t kCover = 8;  // says nothing that is missed
  for (const AviShape& shape : AllAviShapes()) {
    const AviRecording recording = RecordAvi(shape.info, shape.frames);
    for (uint64_t length = recording.FirstChunk(); length + kCover < recording.closed.size(); length += 5) {
      ASSERT_EQ(FaultsAt(recording.closed, length, recording, shape.info), "") << shape.name << " cut at " << length;
    }
  }
}

// Whatever the medium has of the writes that close a recording, sector by sector.
TEST_F(AviShapes, LostInPartWhileClosing_KeepEveryFrame) {
  for (const AviShape& shape : AllAviShapes()) {
    const AviRecording recording = RecordAvi(shape.info, shape.frames);
    const size_t count = recording.frames.size();
    std::mt19937 random(5);
    for (int i = 0; i < 400; ++i) {
      ByteVector torn = recording.open;
      uint64_t size = recording.closed.size();
      if (i % 3 == 1) size -= (size - recording.open.size()) * (random() % 100) / 100;
      torn.resize(size == recording.closed.size() ? size : std::max(size / kSector * kSector, recording.open.size()));
      const uint64_t kept = 1 + random() % 7;  // of 8 sectors
      for (uint64_t from = 0; from < torn.size(); from += kSector) {
        if (random() % 8 >= kept) continue;
        const auto end = static_cast<ptrdiff_t>(std::min<uint64_t>(torn.size(), from + kSector));
        std::copy(recording.closed.begin() + static_cast<ptrdiff_t>(from), recording.closed.begin() + end,
                  torn.begin() + static_cast<ptrdiff_t>(from));
      }
      std::string faults = Faults(torn, shape.info, recording.frames);
      if (!faults.empty() && report_.dwFrames == count - 1 && EndsInZero(recording.frames.back())) {
        faults = Faults(torn, shape.info, FirstFrames(recording, count - 1));
      }
      ASSERT_EQ(faults, "") << shape.name << " run " << i;
    }
  }
}

TEST_F(AviShapes, MadeLongInAdvance_GiveTheFramesOfTheSectorsThatWereWritten) {
  for (const AviShape& shape : AllAviShapes()) {
    const AviRecording recording = RecordAvi(shape.info, shape.frames);
    const uint64_t first = recording.FirstChunk() / kSector + 1;
    for (uint64_t length = first * kSector; length < recording.open.size() + kSector; length += kSector) {
      ByteVector cut = First(recording.open, std::min<uint64_t>(length, recording.open.size()));
      cut.resize(recording.open.size() + 30000);
      size_t count = recording.CompleteIn(length);
      InPlace(cut);
      while (count > report_.dwFrames && EndsInZero(recording.frames[count - 1])) --count;
      ASSERT_EQ(Faults(cut, shape.info, FirstFrames(recording, count)), "") << shape.name << " cut at " << length;
    }
  }
}

}  // namespace
}  // namespace zmv::test

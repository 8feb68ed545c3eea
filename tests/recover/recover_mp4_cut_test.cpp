// Recordings that end early: exactly the frames that are complete come back.
#include "tests/recover/recover_test.h"

namespace zmv::test {
namespace {

class Mp4Cut : public RecoverTest {};

std::vector<StoredFrame> CompleteAt(const std::vector<StoredFrame>& frames, uint64_t size) {
  std::vector<StoredFrame> complete;
  for (const StoredFrame& frame : frames) {
    if (frame.End() <= size) complete.push_back(frame);
  }
  return complete;
}

size_t Tables(const ByteVector& file) {
  const ByteVector tag = Text("tabl");
  size_t count = 0;
  for (auto at = file.begin(); (at = std::search(at, file.end(), tag.begin(), tag.end())) != file.end(); ++at) ++count;
  return count;
}

void ExpectEveryCut(const ByteVector& file, const std::vector<StoredFrame>& frames) {
  ASSERT_GE(Tables(file), 6u) << "tables are spilled between the frames";
  const auto between = [](const StoredFrame& frame) { return frame.payload != frame.position + 28; };
  ASSERT_TRUE(std::any_of(frames.begin(), frames.end(), between)) << "and between a record and its payload";
  for (size_t size = 0; size <= file.size(); ++size) {
    const Found found = ScanBytes(ByteVector(file.begin(), file.begin() + static_cast<ptrdiff_t>(size)));
    ASSERT_EQ(found.frames, CompleteAt(frames, size)) << "cut to " << size;
    ASSERT_EQ(found.report.dwHoles, 0u) << "cut to " << size;
    ASSERT_EQ(found.report.dwDropped, 0u) << "cut to " << size;
    ASSERT_NE(found.report.dwState, ZMV_RECOVER_DAMAGED) << "cut to " << size;
  }
}

TEST_F(Mp4Cut, AnyLength_GivesTheCompleteFrames) {
  const SmallRecording recording;
  ExpectEveryCut(recording.Unclosed(), recording.frames);
}

TEST_F(Mp4Cut, AnyLengthWithoutInterleaving_GivesTheCompleteFrames) {
  const SmallRecording recording(2, 14, 0);
  ExpectEveryCut(recording.Unclosed(), recording.frames);
}

TEST_F(Mp4Cut, AnyLengthOfAClosedFile_GivesTheCompleteFrames) {
  const SmallRecording recording(3);
  ByteVector file = recording.file;
  StoreBE32(&file[recording.MdatPosition()], 8);
  ExpectEveryCut(file, recording.frames);
}

}  // namespace
}  // namespace zmv::test

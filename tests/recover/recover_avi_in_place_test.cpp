#include "recover/recover_avi_in_place.h"

#include "stream/zmvstream_buf.h"
#include "tests/recover/avi_recovery_test.h"
#include "tests/recover/avi_shapes.h"

namespace zmv::test {
namespace {

class AviInPlaceTest : public AviRecoveryTest {
 protected:
  AviInPlaceTest() : recording_(RecordAvi(AviInfo(), AviFrames())) {}
  ~AviInPlaceTest() override { ZMVStreamBuf_SetOption(0, nullptr); }

  // Completes a file behind its first `count` frames, which are said to be `stated`.
  int32_t Complete(LogFile& file, size_t count, size_t stated, const char* path = kAviPath) {
    recover::AviScan frames(file);
    EXPECT_EQ(frames.Open(nullptr), 0);
    return recover::CompleteAviInPlace({.file = file,
                                        .frames = frames,
                                        .count = static_cast<uint32_t>(stated),
                                        .data_end = recording_.frames[count - 1].end,
                                        .path = path});
  }

  const AviRecording recording_;
};

TEST_F(AviInPlaceTest, BehindAnyFrame_IsTheFileThatClosingWrites) {
  AviReferences references(AviInfo(), recording_.frames);
  for (size_t count = 1; count <= recording_.frames.size(); ++count) {
    LogFile file(First(recording_.open, recording_.frames[count - 1].end));
    ASSERT_EQ(Complete(file, count, count), 0) << count;
    ASSERT_EQ(Difference(file.bytes(), references.ClosedBehind(count)), "") << count;
  }
}

TEST_F(AviInPlaceTest, WithoutAPath_TheNameIsEmpty) {
  LogFile file(recording_.open);
  ASSERT_EQ(Complete(file, recording_.frames.size(), recording_.frames.size(), nullptr), 0);
  const size_t index = recording_.open.size();
  const size_t name = index + 8 + 16 * recording_.frames.size();
  ByteVector expected = recording_.closed;
  std::fill_n(expected.begin() + static_cast<ptrdiff_t>(name) + 8, 320, uint8_t{0});
  EXPECT_EQ(Difference(file.bytes(), expected), "");
}

TEST_F(AviInPlaceTest, LongPath_IsCutAsClosingCutsIt) {
  const std::string path(500, 'p');
  LogFile file(recording_.open);
  ASSERT_EQ(Complete(file, recording_.frames.size(), recording_.frames.size(), path.c_str()), 0);
  const size_t name = recording_.open.size() + 8 + 16 * recording_.frames.size() + 8;
  EXPECT_EQ(file.bytes().at(name), 'p');
  EXPECT_EQ(file.bytes().at(name + 318), 'p');
  EXPECT_EQ(file.bytes().at(name + 319), 0);
}

// What is left of an incomplete frame, or of space that was given in advance, is covered to the end of the file.
TEST_F(AviInPlaceTest, RestOfTheFile_IsCovered) {
  const size_t closed = recording_.closed.size();
  for (const size_t rest :
       {size_t{0}, size_t{1}, closed - recording_.open.size() - 9, closed - recording_.open.size() - 1,
        closed - recording_.open.size(), closed - recording_.open.size() + 1, size_t{100000}}) {
    ByteVector frame = Join({Text("00dc"), Le32(1000000)});
    frame.resize(rest, 0xEE);
    const ByteVector bytes = Join({recording_.open, frame});
    LogFile file(bytes);
    ASSERT_EQ(Complete(file, recording_.frames.size(), recording_.frames.size()), 0) << rest;
    const size_t size = std::max(bytes.size(), closed);
    ASSERT_EQ(file.bytes().size(), size) << rest;
    ByteVector expected = recording_.closed;
    StoreLE32(&expected[closed - 4], static_cast<uint32_t>(size - closed));
    EXPECT_EQ(Difference(First(file.bytes(), closed), expected), "") << rest;
  }
}

// An application that takes care of the rest of its files by itself gets none.
TEST_F(AviInPlaceTest, RestOfTheFile_GoesWhereTheApplicationCaresForIt) {
  ZMVStreamBuf_SetOption(1, nullptr);
  ByteVector bytes = recording_.open;
  bytes.resize(bytes.size() + 100000);
  LogFile file(bytes);
  ASSERT_EQ(Complete(file, recording_.frames.size(), recording_.frames.size()), 0);
  EXPECT_EQ(Difference(file.bytes(), First(recording_.closed, recording_.closed.size() - 8)), "");
}

// More frames were told of than there are: the file stays as long as it was, and can be recovered.
TEST_F(AviInPlaceTest, FewerFramesThanStated_LeaveARecoverableFile) {
  LogFile file(recording_.open);
  EXPECT_EQ(Complete(file, recording_.frames.size(), recording_.frames.size() + 1), Result(ZMV_E_READ));
  EXPECT_EQ(Difference(file.bytes(), recording_.open), "");
}

TEST_F(AviInPlaceTest, EveryShape_CutAgainWhileItIsCompleted) {
  for (const AviShape& shape : RegularAviShapes()) {
    const AviRecording recording = RecordAvi(shape.info, shape.frames);
    LogFile file(recording.open);
    ASSERT_EQ(recover::RecoverInPlace(file, param_, report_), 0) << shape.name;
    for (size_t actions = 0; actions <= file.log().size(); ++actions) {
      for (uint32_t salt = 0; salt < 8; ++salt) {
        const ByteVector after = file.After(
            actions, [&](uint64_t sector, size_t) { return (sector * 2654435761u ^ salt * 40503u) % 8 < salt; });
        const ByteVector again = InPlace(after);
        ASSERT_EQ(result_, 0) << shape.name << " " << actions << " " << salt;
        std::string difference = CompareAviFrames(again, shape.info, recording.frames);
        const ByteVector& last = recording.frames.back().payload;
        if (!difference.empty() && (last.empty() || last.back() == 0)) {
          difference = CompareAviFrames(again, shape.info, FirstFrames(recording, recording.frames.size() - 1));
        }
        ASSERT_EQ(difference, "") << shape.name << " behind action " << actions << " salt " << salt;
      }
    }
  }
}

}  // namespace
}  // namespace zmv::test

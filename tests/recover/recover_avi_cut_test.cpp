// An AVI recording cut anywhere: exactly the frames that were complete come back, and in place the file becomes the one
// that closing it behind the last of them would have written.
#include "tests/recover/avi_recovery_test.h"

namespace zmv::test {
namespace {

class AviCut : public AviRecoveryTest {
 protected:
  void CutEverywhere(const ZMVFileInfo& info, const std::vector<AviFrame>& frames) {
    const AviRecording recording = RecordAvi(info, frames);
    AviReferences references(info, recording.frames);
    ASSERT_GT(recording.open.size(), 6000u);
    size_t last = SIZE_MAX;
    for (uint64_t length = recording.FirstChunk(); length <= recording.open.size(); ++length) {
      const ByteVector cut = First(recording.open, length);
      const size_t count = recording.CompleteIn(length);
      const std::vector<AviFrame> complete = FirstFrames(recording, count);
      const ByteVector& reference = references.ClosedBehind(count);

      const ByteVector made = ToFile(cut);
      ASSERT_EQ(result_, 0) << "cut at " << length;
      ASSERT_EQ(report_.dwFrames, count) << "cut at " << length;
      ASSERT_EQ(report_.dwState, ZMV_RECOVER_CUT);
      ASSERT_EQ(CompareAvi(made, info, complete), "") << "cut at " << length;

      const ByteVector completed = InPlace(cut);
      ASSERT_EQ(result_, 0) << "cut at " << length;
      ASSERT_EQ(report_.dwFrames, count) << "cut at " << length;
      ASSERT_EQ(CompareAvi(completed, info, complete), "") << "cut at " << length;
      // What is left of a frame that is not complete is covered by the last chunk, whose size tells how much that is.
      const size_t before_cover = reference.size() - sizeof(uint32_t);
      ASSERT_EQ(Difference(First(completed, before_cover), First(reference, before_cover)), "") << "cut at " << length;
      if (count != last) {
        ASSERT_EQ(Difference(completed, reference), "") << "cut at " << length;
        ASSERT_EQ(ReadBack(completed), ReadBack(reference)) << "cut at " << length;
        ASSERT_EQ(ReadBack(made), ReadBack(reference)) << "cut at " << length;
      }
      last = count;
    }
    EXPECT_EQ(host_.LiveBlocks(), 0u);
  }
};

TEST_F(AviCut, H264AacAndText_AtEveryByte) { CutEverywhere(AviInfo(), AviFrames()); }

TEST_F(AviCut, HevcAndPcm_AtEveryByte) { CutEverywhere(HevcPcmInfo(), HevcPcmFrames()); }

TEST_F(AviCut, WithinTheFront_NothingIsMadeUp) {
  const AviRecording recording = RecordAvi(AviInfo(), AviFrames());
  for (uint64_t length = 0; length < recording.FirstChunk(); ++length) {
    const ByteVector cut = First(recording.open, length);
    ToFile(cut);
    ASSERT_EQ(report_.dwFrames, 0u) << length;
    ASSERT_EQ(Difference(InPlace(cut), cut), "") << length;
    ASSERT_LT(result_, 0) << length;
    ASSERT_EQ(report_.dwFrames, 0u) << length;
  }
}

TEST_F(AviCut, Whole_IsLeftAloneInPlaceAndCopiedToFile) {
  for (const uint32_t fill : {0u, 1u}) {
    ZMVFileInfo info = AviInfo();
    info.dwAiddValue = fill;
    const AviRecording recording = RecordAvi(info, AviFrames());
    LogFile file(recording.closed);
    EXPECT_EQ(recover::RecoverInPlace(file, param_, report_), 0);
    EXPECT_TRUE(file.log().empty());
    EXPECT_EQ(report_.dwState, ZMV_RECOVER_WHOLE);
    EXPECT_EQ(report_.dwFormat, ZMV_FORMAT_AVI);
    EXPECT_EQ(report_.bUniformTimes, 1);
    EXPECT_EQ(CompareAvi(ToFile(recording.closed), info, recording.frames), "");
  }
}

// All headers come over: of the new front only the chunk of random size differs.
TEST_F(AviCut, ToFile_KeepsEveryHeader) {
  char name[] = "front";
  uint8_t extra[] = {'A', 'D', 'A', 'S', 1, 2, 3, 4, 5};
  ZMVFileInfo info = AviInfo();
  info.pStreamName = name;
  info.pExtraHeader = extra;
  info.dwExtraHeaderSize = sizeof extra;
  info.m_Text[1] = info.m_Text[0];
  info.dwTextCount = 2;
  info.m_Video[1] = HevcPcmInfo().m_Video[0];
  info.m_Video[1].dwFrameRate = 29970;
  info.dwVideoCount = 2;
  const AviRecording recording = RecordAvi(info, {});
  const ByteVector made = ToFile(recording.open);
  ASSERT_EQ(result_, 0);
  const auto without_junk = [](const ByteVector& file) {
    const auto junk = FindCode(file, "JUNK");
    const auto behind = junk + 8 + LoadLE32(&junk[4]);
    const auto end = FindCode(file, "idx1");
    ByteVector bytes(file.begin(), junk);
    bytes.insert(bytes.end(), behind, end);
    StoreLE32(&bytes[4], 0);
    return bytes;
  };
  EXPECT_EQ(Difference(without_junk(made), without_junk(recording.closed)), "");
}

// What is measured when a recording is closed is not in the cut file: the declared rate stays.
TEST_F(AviCut, MeasuredRate_IsTheDeclaredOne) {
  ZMVFileInfo info = AviInfo();
  info.m_Video[0].dwFrameRate = 26000;
  const AviRecording recording = RecordAvi(info, AviFrames());
  const ByteVector completed = InPlace(recording.open);
  ASSERT_EQ(completed.size(), recording.closed.size());
  const auto header = FindCode(completed, "vids");
  const size_t rate = static_cast<size_t>(header - completed.begin()) + 24;
  EXPECT_EQ(LoadLE32(&completed[rate]), 26000u);
  EXPECT_EQ(LoadLE32(&recording.closed[rate]), 25000u);
  ByteVector expected = recording.closed;
  StoreLE32(&expected[rate], 26000);
  EXPECT_EQ(Difference(completed, expected), "");
  const ByteVector made = ToFile(recording.open);
  EXPECT_EQ(LoadLE32(&made[rate]), 26000u);
}

TEST_F(AviCut, PresizedWithZeros_IsCoveredToItsEnd) {
  const AviRecording recording = RecordAvi(AviInfo(), AviFrames());
  for (const size_t count : {size_t{1}, recording.frames.size() / 2 + 1, recording.frames.size()}) {
    const AviFrame& last = recording.frames[count - 1];
    if (last.payload.empty() || last.payload.back() == 0) continue;
    ByteVector cut = First(recording.open, last.end);
    cut.resize(cut.size() + 100000);
    const ByteVector completed = InPlace(cut);
    EXPECT_EQ(result_, 0);
    EXPECT_EQ(completed.size(), cut.size());
    EXPECT_EQ(CompareAvi(completed, AviInfo(), FirstFrames(recording, count)), "");
    EXPECT_EQ(CompareAvi(ToFile(cut), AviInfo(), FirstFrames(recording, count)), "");
  }
}

TEST_F(AviCut, Report_CountsTheStreams) {
  const AviRecording recording = RecordAvi(AviInfo(), AviFrames());
  ToFile(recording.open);
  ASSERT_EQ(report_.dwStreamCount, 3u);
  EXPECT_EQ(report_.Stream[0].dwFrames, 24u);
  EXPECT_EQ(report_.Stream[0].dwKeyFrames, 4u);
  EXPECT_EQ(report_.Stream[0].llLastTime, 23u * 40);
  EXPECT_EQ(report_.Stream[1].dwMediaType, ZMV_MEDIA_AUDIO);
  EXPECT_EQ(report_.Stream[1].llLastTime, 39u * 1024 * 1000 / 48000);
  EXPECT_EQ(report_.Stream[2].dwFrames, 9u);
  EXPECT_EQ(report_.Stream[2].llLastTime, 800u);
  EXPECT_EQ(report_.bCanInPlace, 1);
  EXPECT_EQ(report_.llDataEnd, recording.frames.back().end);
}

}  // namespace
}  // namespace zmv::test

// A recording cut anywhere: exactly the frames that were complete come back, and the tables are those that closing it
// behind the last of them would have written.
#include "tests/recover/recovery_test.h"

namespace zmv::test {
namespace {

class CutRecording : public RecoveryTest {
 protected:
  // Compares a recovered file with the recording that was closed behind frame `count`. Both are read by the library's
  // reader only where `read` says so: it is the slowest part, and what it reads are the same tables.
  std::string Compare(const ByteVector& file, const ByteVector& reference, const std::vector<TestFrame>& frames,
                      size_t count, bool in_place, bool read) {
    if (result_ != 0) return "result " + std::to_string(result_);
    if (report_.dwFrames != count) return "frames " + std::to_string(report_.dwFrames);
    const std::string moov = in_place ? Difference(BoxBytes(file, "moov"), BoxBytes(reference, "moov"))
                                      : Difference(MoovWithoutOffsets(file), MoovWithoutOffsets(reference));
    if (!moov.empty()) return "moov: " + moov;
    // Without a sample of its own a recording repeats the last one of its process, which recovery does not know.
    const bool samples = std::any_of(frames.begin(), frames.begin() + static_cast<ptrdiff_t>(count),
                                     [](const TestFrame& frame) { return frame.media == ZMV_MEDIA_TEXT; });
    for (const char* box : {"GPSR", "SENS"}) {
      if (BoxBytes(file, box) != (samples ? BoxBytes(reference, box) : ByteVector())) return box;
    }
    const std::string difference = CompareFrames(file, info_, frames, count);
    if (!difference.empty()) return difference;
    if (read && count != 0 && ReadBack(file) != ReadBack(reference)) return "read back";
    return "";
  }

  ZMVFileInfo info_ = SmallInfo(FourCC("H264"));
};

TEST_F(CutRecording, AtEveryByte_BothWaysGiveTheCompleteFrames) {
  const Recording recording = Record(info_, SmallFrames());
  References references(info_, recording.frames);
  ASSERT_GT(recording.open.size(), 9000u);
  size_t last = SIZE_MAX;
  for (uint64_t length = recording.mdat + 8; length <= recording.open.size(); ++length) {
    const ByteVector cut = First(recording.open, length);
    const size_t count = recording.CompleteIn(length);
    const ByteVector& reference = references.ClosedBehind(count);
    const bool read = count != last;
    last = count;
    const ByteVector made = ToFile(cut);
    ASSERT_EQ(Compare(made, reference, recording.frames, count, false, read), "") << "cut at " << length;
    const ByteVector completed = InPlace(cut);
    ASSERT_EQ(Compare(completed, reference, recording.frames, count, true, read), "") << "cut at " << length;
  }
  EXPECT_EQ(host_.LiveBlocks(), 1u) << "the last sample of the process";
}

TEST_F(CutRecording, WithinTheFront_NothingIsMadeUp) {
  const Recording recording = Record(info_, SmallFrames());
  for (uint64_t length = 0; length < recording.mdat + 8; ++length) {
    const ByteVector cut = First(recording.open, length);
    ToFile(cut);
    ASSERT_EQ(report_.dwFrames, 0u) << length;
    ASSERT_EQ(Difference(InPlace(cut), cut), "") << length;
    ASSERT_LT(result_, 0) << length;
  }
}

// What was recorded is written in other pieces than those in which the file is cut: the cut frame stays in the media
// data and is covered by what is appended.
TEST_F(CutRecording, InPlace_KeepsEveryByteOfTheFrames) {
  const Recording recording = Record(info_, SmallFrames());
  const ByteVector completed = InPlace(recording.open);
  ASSERT_EQ(result_, 0);
  ByteVector kept = First(completed, recording.open.size());
  std::copy_n(recording.open.begin() + static_cast<ptrdiff_t>(recording.mdat), 4,
              kept.begin() + static_cast<ptrdiff_t>(recording.mdat));
  EXPECT_EQ(Difference(kept, recording.open), "");
}

TEST_F(CutRecording, BehindTheLastFrameWithoutSpills_EqualsTheClosedFile) {
  const Recording recording = Record(info_, SmallFrames(), 1, 600000);
  table_bytes_ = 4800;
  EXPECT_EQ(Difference(InPlace(recording.open), recording.closed), "");
}

// The writer puts frames of a stream that nobody described into the last track.
TEST_F(CutRecording, FramesOfUndescribedStreams_GoWhereTheyWere) {
  std::vector<TestFrame> frames = SmallFrames();
  for (TestFrame& frame : frames) {
    if (frame.media == ZMV_MEDIA_TEXT) frame.track = 3;
  }
  const Recording recording = Record(info_, frames, 1, 600000);
  table_bytes_ = 4800;
  EXPECT_EQ(Difference(InPlace(recording.open), recording.closed), "");
  EXPECT_EQ(ReadBack(ToFile(recording.open)), ReadBack(recording.closed));
}

// Those of pictures carry no samples: the boxes, which cannot tell them from texts, are left out.
TEST_F(CutRecording, PicturesOfUndescribedStreams_GoWhereTheyWere) {
  std::vector<TestFrame> frames = SmallFrames();
  for (size_t i = 0; i < frames.size(); i += 5) frames[i].track = static_cast<uint32_t>(1 + i % 3);
  const Recording recording = Record(info_, frames);
  const ByteVector completed = InPlace(recording.open);
  EXPECT_EQ(ReadBack(completed), ReadBack(recording.closed));
  EXPECT_EQ(ReadBack(ToFile(recording.open)), ReadBack(recording.closed));
  EXPECT_TRUE(BoxBytes(completed, "GPSR").empty());
}

TEST_F(CutRecording, PresizedWithZeros_IsCoveredToItsEnd) {
  const Recording recording = Record(info_, SmallFrames());
  References references(info_, recording.frames);
  for (const size_t count : {size_t{1}, recording.frames.size() / 2, recording.frames.size()}) {
    ByteVector cut = First(recording.open, recording.frames[count - 1].end);
    cut.resize(cut.size() + 100000);
    const ByteVector completed = InPlace(cut);
    EXPECT_EQ(Compare(completed, references.ClosedBehind(count), recording.frames, count, true, true), "");
    EXPECT_EQ(completed.size(), cut.size());
    EXPECT_EQ(TopBoxes(completed).back().type, "free");
    EXPECT_EQ(Compare(ToFile(cut), references.ClosedBehind(count), recording.frames, count, false, true), "");
  }
}

TEST_F(CutRecording, WithTheCloseCallbackOption_IsCutBehindItsLastBox) {
  const Recording recording = Record(info_, SmallFrames());
  ByteVector cut = recording.open;
  cut.resize(cut.size() + 100000);
  ZMVStreamBuf_SetOption(1, nullptr);
  const ByteVector completed = InPlace(cut);
  ZMVStreamBuf_SetOption(0, nullptr);
  ASSERT_EQ(result_, 0);
  EXPECT_LT(completed.size(), cut.size());
  EXPECT_EQ(Difference(First(completed, completed.size()), completed), "");
  EXPECT_EQ(TopBoxes(completed).back().size, 8u);
  EXPECT_EQ(CompareFrames(completed, info_, recording.frames, recording.frames.size()), "");
}

TEST_F(CutRecording, NotInterleaved_EveryFrameGetsAChunk) {
  const Recording recording = Record(info_, SmallFrames(), 0);
  for (const size_t count : {size_t{7}, recording.frames.size()}) {
    const ByteVector cut = First(recording.open, recording.frames[count - 1].end);
    for (const ByteVector& file : {ToFile(cut), InPlace(cut)}) {
      ASSERT_EQ(result_, 0);
      EXPECT_EQ(CompareFrames(file, info_, recording.frames, count), "");
    }
  }
}

// What comes from one recovery can be cut again: all of it went through the same writer.
TEST_F(CutRecording, ToFile_IsItselfRecoverable) {
  const Recording recording = Record(info_, SmallFrames());
  ByteVector made = ToFile(recording.open);
  const ByteVector moov = BoxBytes(made, "moov");
  made.resize(made.size() - moov.size());
  ASSERT_EQ(CompareFrames(InPlace(made), info_, recording.frames, recording.frames.size()), "");
  EXPECT_EQ(result_, 0);
}

TEST_F(CutRecording, Whole_IsLeftAloneInPlaceAndCopiedToFile) {
  const Recording recording = Record(info_, SmallFrames());
  LogFile file(recording.closed);
  EXPECT_EQ(recover::RecoverInPlace(file, param_, report_), 0);
  EXPECT_TRUE(file.log().empty());
  EXPECT_EQ(report_.dwState, ZMV_RECOVER_WHOLE);
  EXPECT_EQ(CompareFrames(ToFile(recording.closed), info_, recording.frames, recording.frames.size()), "");
}

// ---- User data

TEST_F(CutRecording, UserData_AsThePolicySays) {
  const Recording recording = Record(info_, SmallFrames());
  for (const uint32_t policy :
       {ZMV_RECOVER_USER_DATA_AUTO, ZMV_RECOVER_USER_DATA_NEVER, ZMV_RECOVER_USER_DATA_ALWAYS}) {
    param_.dwUserData = policy;
    const ByteVector expected =
        policy == ZMV_RECOVER_USER_DATA_NEVER ? ByteVector() : BoxBytes(recording.closed, "GPSR");
    EXPECT_EQ(BoxBytes(InPlace(recording.open), "GPSR"), expected);
    EXPECT_EQ(BoxBytes(ToFile(recording.open), "GPSR"), expected);
  }
}

TEST_F(CutRecording, UserData_OfPlainTextIsNotMadeUp) {
  std::vector<TestFrame> frames = SmallFrames();
  for (TestFrame& frame : frames) {
    if (frame.media == ZMV_MEDIA_TEXT) frame.payload = Text(std::string(120, 'a'));
  }
  const Recording recording = Record(info_, frames);
  EXPECT_EQ(BoxBytes(InPlace(recording.open), "GPSR"), ByteVector());
  EXPECT_EQ(BoxBytes(ToFile(recording.open), "AIDD"), ByteVector());
  param_.dwUserData = ZMV_RECOVER_USER_DATA_ALWAYS;
  EXPECT_EQ(BoxBytes(InPlace(recording.open), "GPSR").size(), 8u + 14 * 80);
  EXPECT_EQ(BoxBytes(ToFile(recording.open), "SENS").size(), 8u + 14 * 12);
}

TEST_F(CutRecording, UserData_OfTwoTextTracksStandsInFileOrder) {
  info_.dwTextCount = 2;
  info_.m_Text[1] = info_.m_Text[0];
  info_.dwDuration = 3600;
  const Recording recording = Record(info_, FramesFor(info_, 40));
  const ByteVector completed = InPlace(recording.open);
  ASSERT_EQ(BoxBytes(recording.closed, "GPSR").size(), 8u + 80 * 80);
  EXPECT_EQ(Difference(BoxBytes(completed, "GPSR"), BoxBytes(recording.closed, "GPSR")), "");
  EXPECT_EQ(Difference(BoxBytes(completed, "SENS"), BoxBytes(recording.closed, "SENS")), "");
  EXPECT_EQ(Difference(BoxBytes(completed, "AIDD"), BoxBytes(recording.closed, "AIDD")), "");
  EXPECT_EQ(Difference(BoxBytes(ToFile(recording.open), "GPSR"), BoxBytes(recording.closed, "GPSR")), "");
}

// ---- Other media

TEST_F(CutRecording, OtherMedia_EqualTheClosedFile) {
  struct Case {
    const char* name;
    uint32_t code;
    uint32_t videos;
    uint32_t audio;  // format; 0 = none
    uint32_t texts;
  };
  const Case cases[] = {
      {"three videos", FourCC("H264"), 3, ZMV_AUDIO_AAC, 1},
      {"HEVC", FourCC("H265"), 1, ZMV_AUDIO_AAC, 0},
      {"PCM", FourCC("H264"), 1, ZMV_AUDIO_PCM_LE, 2},
      {"sound alone", FourCC("H264"), 0, ZMV_AUDIO_AAC, 0},
      {"text alone", FourCC("H264"), 0, 0, 1},
      {"nine videos", FourCC("H264"), 9, 0, 1},
  };
  for (const Case& with : cases) {
    ZMVFileInfo info = SmallInfo(with.code);
    info.dwVideoCount = with.videos;
    for (uint32_t i = 1; i < with.videos; ++i) info.m_Video[i] = info.m_Video[0];
    info.dwAudioCount = with.audio != 0 ? 1 : 0;
    info.dwTextCount = with.texts;
    info.m_Text[1] = info.m_Text[0];
    if (with.audio != 0) info.m_Audio.dwFormat = with.audio;
    if (with.audio == ZMV_AUDIO_PCM_LE) {
      info.m_Audio.dwChannels = 1;
      info.m_Audio.dwExtraDataSize = 0;
    }
    // The front does not say which movie time scale was asked for: it is that of the first video.
    if (with.videos == 0) info.dwTimeScale = 0;
    info_ = info;
    const Recording recording = Record(info, FramesFor(info, 23));
    References references(info, recording.frames);
    for (size_t count = 1; count <= recording.frames.size(); count += 1 + count / 9) {
      const ByteVector cut = First(recording.open, recording.frames[count - 1].end);
      ASSERT_EQ(Compare(InPlace(cut), references.ClosedBehind(count), recording.frames, count, true, true), "")
          << with.name << " " << count;
      ASSERT_EQ(Compare(ToFile(cut), references.ClosedBehind(count), recording.frames, count, false, true), "")
          << with.name << " " << count;
    }
  }
}

}  // namespace
}  // namespace zmv::test

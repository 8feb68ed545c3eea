#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "recover/recover_probe.h"
#include "tests/recover/recover_test.h"

namespace zmv::test {
namespace {

using ::testing::ElementsAre;

class Probe : public RecoverTest {
 protected:
  ZMVRecoverReport Report(const ByteVector& bytes, uint32_t user_data = ZMV_RECOVER_USER_DATA_AUTO) {
    StoredFile file(bytes);
    ZMVRecoverParam param = {};
    param.dwUserData = user_data;
    EXPECT_EQ(recover::ProbeFile(file, param, finding), 0);
    return finding.report;
  }
  recover::Finding finding;
};

TEST_F(Probe, ClosedRecording_IsWhole) {
  const SmallRecording recording;
  const ZMVRecoverReport report = Report(recording.file);
  EXPECT_EQ(report.dwState, ZMV_RECOVER_WHOLE);
  EXPECT_EQ(report.dwFormat, ZMV_FORMAT_MP4);
  EXPECT_EQ(report.llFileSize, recording.file.size());
  EXPECT_EQ(report.llDataEnd, recording.frames.back().End());
  EXPECT_EQ(report.llIncomplete, 0u);
  EXPECT_EQ(report.llLastTime, recording.frames.back().time);
  EXPECT_EQ(report.dwFrames, recording.frames.size());
  EXPECT_EQ(report.dwHoles + report.dwDropped, 0u);
  EXPECT_EQ(report.bUniformTimes, 0u);
  EXPECT_EQ(report.bUserData, 1u);
  EXPECT_EQ(report.bCanInPlace, 1u);
  ASSERT_EQ(report.dwStreamCount, 3u);
  EXPECT_EQ(report.Stream[0].dwFrames, 14u);
  EXPECT_EQ(report.Stream[0].dwKeyFrames, 3u);
  EXPECT_EQ(report.Stream[1].dwFrames, 14u);
  EXPECT_EQ(report.Stream[2].dwFrames, 7u);
  EXPECT_EQ(report.Stream[2].bDescribed, 1u);
  EXPECT_TRUE(finding.complete);
  EXPECT_EQ(finding.info.dwVideoCount, 1u);
  EXPECT_EQ(finding.info.m_Video[0].dwWidth, 640u);
}

TEST_F(Probe, RecordingWithoutFrames_IsWholeOnceItIsClosed) {
  FrameLog log(SmallInfo());
  const ByteVector file = log.Finish();
  EXPECT_EQ(Report(file).dwState, ZMV_RECOVER_WHOLE);
  const ByteVector name = Text("moov");
  const auto moov = std::search(file.begin(), file.end(), name.begin(), name.end()) - 4;
  // Without the user boxes and moov: it ends with the header of its media data.
  const ByteVector media = Text("mdat");
  const auto end = std::search(file.begin(), moov, media.begin(), media.end()) + 4;
  EXPECT_EQ(Report(ByteVector(file.begin(), end)).dwState, ZMV_RECOVER_CUT);
  EXPECT_EQ(Report(ByteVector(file.begin(), file.end() - 1)).dwState, ZMV_RECOVER_CUT);
  EXPECT_EQ(finding.report.dwFrames, 0u);
}

TEST_F(Probe, UnclosedRecording_IsCut) {
  const SmallRecording recording;
  ByteVector bytes = recording.Unclosed();
  EXPECT_EQ(Report(bytes).dwState, ZMV_RECOVER_CUT);
  EXPECT_FALSE(finding.complete);
  const StoredFrame& last = recording.frames.back();
  bytes.resize(last.position + 50);
  const ZMVRecoverReport report = Report(bytes);
  EXPECT_EQ(report.dwState, ZMV_RECOVER_CUT);
  EXPECT_EQ(report.dwFrames, recording.frames.size() - 1);
  EXPECT_EQ(report.llIncomplete, 50u);
  EXPECT_EQ(report.llDataEnd, recording.frames[recording.frames.size() - 2].End());
  EXPECT_EQ(report.bCanInPlace, 1u);
}

// Closing puts the size of the media data on the medium last but one: until then it is cut, whatever else is there.
TEST_F(Probe, RecordingCutWhileItWasClosed_IsCut) {
  const SmallRecording recording;
  for (size_t size = recording.MdatEnd(); size <= recording.file.size(); ++size) {
    ByteVector bytes(recording.file.begin(), recording.file.begin() + static_cast<ptrdiff_t>(size));
    StoreBE32(&bytes[recording.MdatPosition()], 8);
    const ZMVRecoverReport report = Report(bytes);
    ASSERT_EQ(report.dwState, ZMV_RECOVER_CUT) << size;
    ASSERT_EQ(report.dwFrames, recording.frames.size()) << size;
    ASSERT_EQ(report.dwHoles, 0u) << size;
    ASSERT_EQ(report.llDataEnd, recording.frames.back().End()) << size;
  }
}

TEST_F(Probe, ClosedRecordingWhoseTablesDisagree_IsCut) {
  const SmallRecording recording;
  ByteVector bytes = recording.file;
  const ByteVector name = Text("stco");
  const auto at =
      std::search(bytes.begin() + static_cast<ptrdiff_t>(recording.MdatEnd()), bytes.end(), name.begin(), name.end());
  *(at + 15) ^= 1;  // the first chunk offset
  EXPECT_EQ(Report(bytes).dwState, ZMV_RECOVER_CUT);
}

TEST_F(Probe, DamagedRecording_IsDamagedAndStillComplete) {
  const SmallRecording recording;
  ByteVector bytes = recording.file;
  const StoredFrame& frame = recording.frames[20];
  bytes[frame.position] = 'X';
  EXPECT_EQ(Report(bytes).dwState, ZMV_RECOVER_DAMAGED);
  EXPECT_FALSE(finding.complete);
  EXPECT_EQ(finding.report.bCanInPlace, 1u);
  bytes = recording.file;
  std::fill_n(bytes.begin(), 100, 0xEE);
  EXPECT_EQ(Report(bytes).dwState, ZMV_RECOVER_DAMAGED);
  EXPECT_EQ(finding.report.bCanInPlace, 0u) << "its front is lost";
  EXPECT_EQ(finding.report.dwFrames, recording.frames.size());
}

TEST_F(Probe, UserData_IsWhatTheCallerSaysOrTheTextLooksLike) {
  const auto text_only = [](const ByteVector& payload) {
    FrameLog log(SmallInfo());
    log.Write(ZMV_MEDIA_TEXT, Noise(1).Text(100), 0, 1000);
    log.Write(ZMV_MEDIA_TEXT, payload, 1000, 1000);
    return log.Finish();
  };
  const ByteVector blocks = text_only(Noise(2).Text(100));
  const ByteVector subtitles = text_only(ByteVector(100, 'a'));
  EXPECT_EQ(Report(blocks).bUserData, 1u);
  EXPECT_EQ(Report(blocks, ZMV_RECOVER_USER_DATA_NEVER).bUserData, 0u);
  EXPECT_EQ(Report(subtitles).bUserData, 0u);
  EXPECT_EQ(Report(subtitles, ZMV_RECOVER_USER_DATA_ALWAYS).bUserData, 1u);
  ZMVFileInfo info = SmallInfo();
  info.dwTextCount = 0;
  FrameLog video(info);
  video.Write(ZMV_MEDIA_VIDEO, Noise(3).Video(100), 0, 33333, true);
  EXPECT_EQ(Report(video.Finish(), ZMV_RECOVER_USER_DATA_ALWAYS).bUserData, 0u) << "there is no text stream";
}

TEST_F(Probe, ForeignFile_IsAReport) {
  const ZMVRecoverReport report = Report(ByteVector(3000, 'a'));
  EXPECT_EQ(report.dwState, ZMV_RECOVER_FOREIGN);
  EXPECT_EQ(report.llFileSize, 3000u);
  EXPECT_EQ(report.bCanInPlace, 0u);
  EXPECT_EQ(Report({}).dwState, ZMV_RECOVER_FOREIGN);
}

TEST_F(Probe, FailedReads_AreTheirCode) {
  const SmallRecording recording;
  uint64_t nth = 0;
  int32_t result = 0;
  do {
    StoredFile file(recording.file);
    file.Fail(StoredFile::kRead, ++nth);
    result = recover::ProbeFile(file, ZMVRecoverParam{}, finding);
    ASSERT_TRUE(result == 0 || result == Result(ZMV_E_READ)) << nth;
    ASSERT_LT(nth, 1000u);
  } while (result != 0);
  EXPECT_GT(nth, 50u);
}

TEST_F(Probe, NoMemory_IsItsCode) {
  const SmallRecording recording;
  for (uint64_t nth = 1;; ++nth) {
    host.Fail(HostCall::kMalloc, nth);
    StoredFile file(recording.file);
    const int32_t result = recover::ProbeFile(file, ZMVRecoverParam{}, finding);
    host.ClearFailures();
    if (result == 0) {
      EXPECT_EQ(nth, 3u);
      break;
    }
    ASSERT_EQ(result, Result(ZMV_E_MEMORY));
  }
}

TEST_F(Probe, Progress_EndsAtTheWholeFile) {
  const SmallRecording recording;
  std::vector<uint64_t> done;
  ZMVRecoverParam param = {};
  param.pContext = &done;
  param.pfnProgress = [](void* context, uint64_t bytes, uint64_t) -> uint32_t {
    static_cast<std::vector<uint64_t>*>(context)->push_back(bytes);
    return 0;
  };
  StoredFile file(recording.file);
  EXPECT_EQ(recover::ProbeFile(file, param, finding), 0);
  ASSERT_GE(done.size(), 2u);
  EXPECT_TRUE(std::is_sorted(done.begin(), done.end()));
  EXPECT_EQ(done.back(), recording.file.size());
  param.pfnProgress = [](void*, uint64_t bytes, uint64_t total) -> uint32_t { return bytes == total ? 1 : 0; };
  EXPECT_EQ(recover::ProbeFile(file, param, finding), Result(ZMV_E_CANCELLED));
}

TEST_F(Probe, ByPath_ReadsTheFileAndChecksItsArguments) {
  const SmallRecording recording;
  char name[] = "/tmp/recover_probe_XXXXXX";
  const int descriptor = mkstemp(name);
  ASSERT_EQ(write(descriptor, recording.file.data(), recording.file.size()),
            static_cast<ssize_t>(recording.file.size()));
  close(descriptor);
  ZMVRecoverParam param = {};
  param.pszPath = name;
  ZMVRecoverReport report = {};
  ZMVFileInfo info = {};
  EXPECT_EQ(ZMVRecoverProbe(&param, &report, &info), 0);
  EXPECT_EQ(report.dwState, ZMV_RECOVER_WHOLE);
  EXPECT_EQ(info.dwAudioCount, 1u);
  report = {};
  EXPECT_EQ(ZMVRecoverProbe(&param, &report, nullptr), 0);
  EXPECT_EQ(report.dwFrames, recording.frames.size());
  EXPECT_EQ(ZMVRecoverProbe(nullptr, &report, nullptr), Result(ZMV_E_FAIL));
  EXPECT_EQ(ZMVRecoverProbe(&param, nullptr, nullptr), Result(ZMV_E_FAIL));
  unlink(name);
  EXPECT_EQ(ZMVRecoverProbe(&param, &report, nullptr), Result(ZMV_E_OPEN));
  param.pszPath = nullptr;
  EXPECT_EQ(ZMVRecoverProbe(&param, &report, nullptr), Result(ZMV_E_FAIL));
}

}  // namespace
}  // namespace zmv::test

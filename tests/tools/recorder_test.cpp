#include "tools/zmv/recorder.h"

#include <gtest/gtest.h>

#include "tests/tools/temp_folder.h"
#include "tools/zmv/gps_point.h"
#include "tools/zmv/playback.h"
#include "tools/zmv/tool_error.h"

namespace zmv::tool {
namespace {

ZMVFileInfo VideoInfo() {
  ZMVFileInfo info{};
  info.m_dwFileType = 1;
  info.dwTimeScale = kVideoTimeScale;
  info.dwVideoCount = 1;
  ZMVVideoInfo& video = info.m_Video[0];
  video.dwFourCC = ZMV_FOURCC('H', '2', '6', '4');
  video.dwWidth = 16;
  video.dwHeight = 16;
  video.dwFrameRate = 10000;
  video.dwTimeScale = kVideoTimeScale;
  const uint8_t sets[] = {0, 0, 0, 1, 0x67, 0x42, 0x00, 0x0A, 0x80, 0, 0, 0, 1, 0x68, 0xCE};
  std::copy(std::begin(sets), std::end(sets), video.abExtraData);
  video.dwExtraDataSize = sizeof(sets);
  return info;
}

MediaFrame Picture(int64_t time_us, bool key, uint8_t mark, size_t size = 20) {
  MediaFrame frame{ZMV_MEDIA_VIDEO, 0, time_us, key, Bytes(size, mark)};
  const uint8_t start[] = {0, 0, 0, 1, 0x65};
  std::copy(std::begin(start), std::end(start), frame.data.begin());
  return frame;
}

MediaFrame Position(int64_t time_us) {
  GpsPoint point;
  point.utc_us = time_us + 1;
  const TelemetryPayload payload = PackTelemetry(point);
  return {ZMV_MEDIA_TEXT, 0, time_us, true, Bytes(payload.begin(), payload.end())};
}

TEST(NumberedPath, FirstFile_HasTheNameItselfAndLaterOnesANumber) {
  EXPECT_EQ(Recorder::NumberedPath("a/out.mp4", 1), "a/out.mp4");
  EXPECT_EQ(Recorder::NumberedPath("a/out.mp4", 2), "a/out_0002.mp4");
  EXPECT_EQ(Recorder::NumberedPath("out", 12), "out_0012");
}

TEST(Recorder, Split_BeginsEachFileWithAKeyFrameAtTimeZero) {
  const TempFolder folder;
  Console console;
  RecorderOptions options;
  options.path = folder / "out.mp4";
  options.split_us = 500000;
  Recorder recorder(options, VideoInfo(), {100000}, console);
  for (uint8_t i = 0; i < 20; ++i) ASSERT_TRUE(recorder.Write(Picture(i * 100000, i % 4 == 0, i)));
  recorder.Finish();
  // Key frames stand at 0, 0.4, 0.8, 1.2 and 1.6 s; 0.5 s after 0 the next is at 0.8, then at 1.6.
  ASSERT_EQ(recorder.files().size(), 3u);
  const uint8_t first_marks[] = {0, 8, 16};
  for (size_t i = 0; i < 3; ++i) {
    Playback playback(recorder.files()[i].path);
    ZMVFrame frame;
    ASSERT_TRUE(playback.Read(ZMV_MEDIA_VIDEO, 0, frame));
    EXPECT_EQ(frame.llTimeStamp, 0u);
    EXPECT_EQ(frame.dwKeyFrame, ZMV_KEY_FRAME);
    EXPECT_EQ(frame.pData[10], first_marks[i]);
    ASSERT_TRUE(playback.Read(ZMV_MEDIA_VIDEO, 0, frame));
    EXPECT_NEAR(static_cast<double>(frame.llTimeStamp), 100, 1);  // the reader cuts to whole milliseconds
  }
}

TEST(Recorder, SizeLimit_EndsTheRecordingWithACompleteFile) {
  const TempFolder folder;
  Console console;
  RecorderOptions options;
  options.path = folder / "out.mp4";
  options.max_size = 20000;
  Recorder recorder(options, VideoInfo(), {100000}, console);
  unsigned written = 0;
  while (written < 100 && recorder.Write(Picture(written * 100000, written == 0, 1, 1000))) ++written;
  EXPECT_GT(written, 5u);
  EXPECT_LT(written, 20u);
  EXPECT_LE(std::filesystem::file_size(options.path), options.max_size);
  Playback playback(options.path);
  EXPECT_EQ(playback.info().m_Video[0].dwFrames, written);
}

TEST(Recorder, SizeLimitWithSplit_GoesOnAtTheNextKeyFrame) {
  const TempFolder folder;
  Console console;
  RecorderOptions options;
  options.path = folder / "out.mp4";
  options.max_size = 20000;
  options.split_us = 1000000000;
  Recorder recorder(options, VideoInfo(), {100000}, console);
  for (uint8_t i = 0; i < 60; ++i) ASSERT_TRUE(recorder.Write(Picture(i * 100000, i % 10 == 0, i, 1200)));
  recorder.Finish();
  ASSERT_GT(recorder.files().size(), 2u);
  uint64_t recorded = 0;
  for (const RecordedFile& file : recorder.files()) recorded += file.tracks[0].frames;
  EXPECT_EQ(recorded + recorder.left_out(), 60u);
  Playback second(recorder.files()[1].path);
  ZMVFrame frame;
  ASSERT_TRUE(second.Read(ZMV_MEDIA_VIDEO, 0, frame));
  EXPECT_EQ(frame.dwKeyFrame, ZMV_KEY_FRAME);
  EXPECT_EQ(frame.pData[10] % 10, 0);
}

TEST(Recorder, LimitBelowOneFrame_GivesUp) {
  const TempFolder folder;
  Console console;
  RecorderOptions options;
  options.path = folder / "out.mp4";
  options.max_size = 1000;
  options.split_us = 1000000;
  Recorder recorder(options, VideoInfo(), {100000}, console);
  EXPECT_FALSE(recorder.Write(Picture(0, true, 1, 5000)));
}

TEST(Recorder, TextThatBeginsLater_FollowsABlankPosition) {
  const TempFolder folder;
  Console console;
  ZMVFileInfo info = VideoInfo();
  info.dwTextCount = 1;
  info.m_Text[0].dwFourCC = ZMV_FOURCC('G', 'P', 'S', ' ');
  info.m_Text[0].dwRate = 1;
  info.m_Text[0].dwTimeScale = kTextTimeScale;
  RecorderOptions options;
  options.path = folder / "out.mp4";
  {
    Recorder recorder(options, info, {100000, 1000000}, console);
    ASSERT_TRUE(recorder.Write(Picture(0, true, 1)));
    ASSERT_TRUE(recorder.Write(Position(2500000)));
    ASSERT_TRUE(recorder.Write(Position(3500000)));
    recorder.Finish();
  }
  Playback playback(options.path);
  const uint64_t times[] = {0, 2500, 3500};
  for (const uint64_t time : times) {
    ZMVFrame frame;
    ASSERT_TRUE(playback.Read(ZMV_MEDIA_TEXT, 0, frame));
    EXPECT_EQ(frame.llTimeStamp, time);
    const auto point = UnpackTelemetry(Playback::Payload(frame));
    ASSERT_TRUE(point);
    EXPECT_EQ(point->utc_us.has_value(), time != 0);
  }
}

TEST(Recorder, ExistingFile_IsOverwrittenOnlyWhenForced) {
  const TempFolder folder;
  Console console;
  RecorderOptions options;
  options.path = folder / "out.mp4";
  WriteText(options.path, "precious");
  EXPECT_THROW(Recorder(options, VideoInfo(), {100000}, console), ToolError);
  EXPECT_EQ(ReadBytes(options.path).size(), 8u);
  options.force = true;
  Recorder recorder(options, VideoInfo(), {100000}, console);
  EXPECT_TRUE(recorder.Write(Picture(0, true, 1)));
  recorder.Finish();
  EXPECT_GT(ReadBytes(options.path).size(), 100u);
}

TEST(Recorder, FolderThatIsNotThere_IsReported) {
  const TempFolder folder;
  Console console;
  RecorderOptions options;
  options.path = folder / "none/out.mp4";
  EXPECT_THROW(Recorder(options, VideoInfo(), {100000}, console), ToolError);
  options.path = folder / std::string(260, 'x');
  EXPECT_THROW(Recorder(options, VideoInfo(), {100000}, console), ToolError);
}

}  // namespace
}  // namespace zmv::tool

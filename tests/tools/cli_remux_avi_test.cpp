// `zmv remux` between MP4 and AVI: parameter sets move, payloads stay.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/tools/cli.h"
#include "tests/tools/riff_bytes.h"
#include "tests/tools/small_recording.h"
#include "tools/zmv/playback.h"

namespace zmv::tool {
namespace {

using nlohmann::json;
using testing::HasSubstr;

struct Stored {
  Bytes payload;
  bool key = false;
  uint64_t time_ms = 0;
};

std::vector<Stored> FramesOf(const std::string& path, uint32_t media) {
  Playback playback(path);
  std::vector<Stored> frames;
  ZMVFrame frame;
  while (playback.Read(media, 0, frame)) {
    const ByteView payload = Playback::Payload(frame);
    frames.push_back({Bytes(payload.begin(), payload.end()), frame.dwKeyFrame == ZMV_KEY_FRAME, frame.llTimeStamp});
  }
  return frames;
}

// `sets`: what stands in front of the key frames of `after` only.
void ExpectSame(const std::string& before, const std::string& after, uint32_t media, const Bytes& sets = {}) {
  const std::vector<Stored> source = FramesOf(before, media);
  const std::vector<Stored> copy = FramesOf(after, media);
  ASSERT_EQ(source.size(), copy.size()) << MediaName(media);
  for (size_t i = 0; i < source.size(); ++i) {
    EXPECT_EQ(copy[i].payload, source[i].key ? Joined({sets, source[i].payload}) : source[i].payload) << i;
    EXPECT_EQ(copy[i].key, source[i].key) << i;
    EXPECT_NEAR(static_cast<double>(copy[i].time_ms), static_cast<double>(source[i].time_ms), 1.0) << i;
  }
}

const Bytes kSets(std::begin(kSmallSets), std::end(kSmallSets));

class CliRemuxAvi : public testing::Test {
 protected:
  CliResult Remux(const std::string& from, const std::string& to) const {
    return Zmv(folder_, {"remux", from, "-o", to});
  }

  json Info(const std::string& path) const { return json::parse(Zmv(folder_, {"info", path, "--json"}).out); }

  void WritePictures(const std::string& path, int64_t count) const {
    Console console;
    RecorderOptions options;
    options.path = path;
    options.container = ContainerOfName(path);
    Recorder recorder(options, SmallInfo("test", 0), {33333, kSmallAudioFrameUs}, console);
    for (int64_t i = 0; i < count; ++i) {
      recorder.Write(SmallPicture(i));
      recorder.Write(SmallSound(i));
    }
    recorder.Finish();
  }

  // Mono PCM of frames of 320 bytes, the last one of `last`.
  void WritePcm(const std::string& path, uint32_t channels, size_t last) const {
    ZMVFileInfo info = SmallInfo("test", 0);
    info.dwVideoCount = 0;
    info.m_Audio = ZMVAudioInfo{};
    info.m_Audio.dwFormat = ContainerOfName(path) == Container::kAvi ? ZMV_AUDIO_PCM : ZMV_AUDIO_PCM_LE;
    info.m_Audio.dwSampleRate = 8000;
    info.m_Audio.dwChannels = channels;
    info.m_Audio.dwBitsPerSample = 16;
    info.m_Audio.dwSamplesPerFrame = 160;
    info.m_Audio.dwBlockAlign = 320;
    Console console;
    RecorderOptions options;
    options.path = path;
    options.container = ContainerOfName(path);
    Recorder recorder(options, info, {20000}, console);
    for (int64_t i = 0; i < 50; ++i) {
      recorder.Write({ZMV_MEDIA_AUDIO, 0, i * 20000, true, Bytes(i == 49 ? last : 320, static_cast<uint8_t>(i + 1))});
    }
    recorder.Finish();
  }

  const TempFolder folder_;
  const std::string mp4_ = folder_ / "drive.mp4";
  const std::string avi_ = folder_ / "drive.avi";
  const std::string back_ = folder_ / "back.mp4";
};

TEST_F(CliRemuxAvi, ThereAndBack_KeepsEveryPayloadKeyAndTime) {
  WritePictures(mp4_, 95);
  ASSERT_EQ(Remux(mp4_, avi_).code, 0);
  ExpectSame(mp4_, avi_, ZMV_MEDIA_VIDEO, kSets);
  ExpectSame(mp4_, avi_, ZMV_MEDIA_AUDIO);
  const CliResult back = Remux(avi_, back_);
  ASSERT_EQ(back.code, 0) << back.err;
  ExpectSame(mp4_, back_, ZMV_MEDIA_VIDEO);
  ExpectSame(mp4_, back_, ZMV_MEDIA_AUDIO);
  EXPECT_EQ(Info(back_)["streams"][0]["config"], Info(mp4_)["streams"][0]["config"]);
  EXPECT_EQ(Info(avi_)["streams"][0]["config"], Info(mp4_)["streams"][0]["config"]);
  EXPECT_EQ(Info(avi_)["streams"][0]["frame_rate"], 30.0);
}

TEST_F(CliRemuxAvi, AviToAvi_IsByteForByteButForItsNameAndFiller) {
  WritePictures(avi_, 40);
  const std::string copy = folder_ / "copy.avi";
  ASSERT_EQ(Remux(avi_, copy).code, 0);
  ExpectSame(avi_, copy, ZMV_MEDIA_VIDEO);
  ExpectSame(avi_, copy, ZMV_MEDIA_AUDIO);
  EXPECT_EQ(Info(copy)["streams"], Info(avi_)["streams"]);
}

TEST_F(CliRemuxAvi, TextAndValue_MoveAlong) {
  GpsPoint point;
  point.utc_us = 1717230600000000;
  WriteSmallRecording(mp4_, {PayloadOf(point), PayloadOf(point), PayloadOf(point)});
  ASSERT_EQ(Zmv(folder_, {"aidd", mp4_, "0xBEEF"}).code, 0);
  const CliResult there = Remux(mp4_, avi_);
  ASSERT_EQ(there.code, 0) << there.err;
  EXPECT_THAT(there.err, HasSubstr("evenly spaced"));
  ExpectSame(mp4_, avi_, ZMV_MEDIA_TEXT);
  EXPECT_EQ(Info(avi_)["user"]["aidd"]["value"], 0xBEEF);
  EXPECT_EQ(Info(avi_)["streams"][2]["codec"], "GPS ");
  ASSERT_EQ(Remux(avi_, back_).code, 0);
  ExpectSame(mp4_, back_, ZMV_MEDIA_TEXT);
  EXPECT_EQ(Info(back_)["user"]["gps_entries"], 3);
  EXPECT_EQ(Info(back_)["user"]["aidd"]["value"], 0xBEEF);
}

TEST_F(CliRemuxAvi, ValueOfMoreThan16Bits_IsReportedAsLost) {
  WriteSmallRecording(mp4_, {PayloadOf(GpsPoint())});
  ASSERT_EQ(Zmv(folder_, {"aidd", mp4_, "0x12345"}).code, 0);
  const CliResult there = Remux(mp4_, avi_);
  EXPECT_EQ(there.code, 0);
  EXPECT_THAT(there.err, HasSubstr("has no place in the new recording"));
  EXPECT_EQ(Info(avi_)["user"]["aidd"]["value"], 0);
}

TEST_F(CliRemuxAvi, MonoPcm_GoesThereAndBack) {
  WritePcm(mp4_, 1, 320);
  ASSERT_EQ(Remux(mp4_, avi_).code, 0);
  ExpectSame(mp4_, avi_, ZMV_MEDIA_AUDIO);
  EXPECT_EQ(Info(avi_)["streams"][0]["duration_ms"], 1000);
  ASSERT_EQ(Remux(avi_, back_).code, 0);
  ExpectSame(mp4_, back_, ZMV_MEDIA_AUDIO);
}

TEST_F(CliRemuxAvi, ShorterLastPcmFrame_IsFilledUpInAnMp4) {
  WritePcm(avi_, 1, 100);
  ASSERT_EQ(Remux(avi_, back_).code, 0);
  const std::vector<Stored> frames = FramesOf(back_, ZMV_MEDIA_AUDIO);
  ASSERT_EQ(frames.size(), 50u);
  Bytes last(100, 50);
  last.resize(320, 0);
  EXPECT_EQ(frames.back().payload, last);
}

TEST_F(CliRemuxAvi, StereoPcm_StaysAnAvi) {
  WritePcm(avi_, 2, 320);
  const CliResult refused = Remux(avi_, back_);
  EXPECT_EQ(refused.code, 1);
  EXPECT_THAT(refused.err, HasSubstr("wrong speed in an MP4"));
  EXPECT_FALSE(std::filesystem::exists(back_));
  const std::string copy = folder_ / "copy.avi";
  ASSERT_EQ(Remux(avi_, copy).code, 0);
  ExpectSame(avi_, copy, ZMV_MEDIA_AUDIO);
}

TEST_F(CliRemuxAvi, OtherCodecs_GoToAviOnly) {
  const Bytes media = List("movi", Joined({Chunk("00dc", Bytes(9, 1)), Chunk("00dc", Bytes(7, 2))}));
  const Bytes index = Chunk("idx1", Joined({IndexEntry("00dc", 4, 9), IndexEntry("00dc", 22, 7)}));
  WriteBytes(avi_, Form("AVI ", Joined({Headers(Stream("vids", "MJPG", 1000, 25000)), media, index})));
  EXPECT_EQ(Remux(avi_, back_).code, 1);
  const std::string copy = folder_ / "copy.avi";
  const CliResult copied = Remux(avi_, copy);
  ASSERT_EQ(copied.code, 0) << copied.err;
  ExpectSame(avi_, copy, ZMV_MEDIA_VIDEO);
}

TEST_F(CliRemuxAvi, CutAvi_BecomesAWholeRecordingAndSaysWhatIsLost) {
  WritePictures(avi_, 60);
  Bytes file = ReadBytes(avi_);
  const char tag[] = {'m', 'o', 'v', 'i'};
  const auto media = std::search(file.begin(), file.end(), std::begin(tag), std::end(tag));
  constexpr std::ptrdiff_t kFirstHalf = 900;  // of a little less than 2000 bytes
  file.erase(media + kFirstHalf, file.end());
  WriteBytes(avi_, file);
  const CliResult result = Remux(avi_, back_);
  EXPECT_EQ(result.code, 4);
  EXPECT_THAT(result.err, HasSubstr("found by scanning"));
  EXPECT_EQ(Info(back_)["health"]["state"], "complete");
  const size_t pictures = FramesOf(back_, ZMV_MEDIA_VIDEO).size();
  EXPECT_GT(pictures, 20u);
  EXPECT_LT(pictures, 60u);
}

TEST_F(CliRemuxAvi, UnevenPictures_AreReported) {
  {
    Console console;
    RecorderOptions options;
    options.path = mp4_;
    Recorder recorder(options, SmallInfo("test", 0), {33333, kSmallAudioFrameUs}, console);
    for (int64_t i = 0; i < 20; ++i) {
      MediaFrame picture = SmallPicture(i);
      if (i >= 10) picture.time_us += 500000;
      recorder.Write(picture);
      recorder.Write(SmallSound(i));
    }
    recorder.Finish();
  }
  const CliResult result = Remux(mp4_, avi_);
  EXPECT_EQ(result.code, 0);
  EXPECT_THAT(result.err, HasSubstr("533 ms apart"));
}

}  // namespace
}  // namespace zmv::tool

// `zmv remux`: the new recording has every frame of the old one, at its time.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/tools/cli.h"
#include "tests/tools/small_recording.h"
#include "tools/zmv/playback.h"

namespace zmv::tool {
namespace {

using nlohmann::json;
using testing::HasSubstr;

// Every frame of both files, side by side; the number of frames.
uint64_t Compare(const std::string& before, const std::string& after) {
  Playback source(before);
  Playback copy(after);
  uint64_t frames = 0;
  for (const uint32_t media : {ZMV_MEDIA_VIDEO, ZMV_MEDIA_AUDIO, ZMV_MEDIA_TEXT}) {
    EXPECT_EQ(copy.TrackCount(media), source.TrackCount(media));
    for (uint32_t track = 0; track < source.TrackCount(media); ++track) {
      ZMVFrame old_frame;
      ZMVFrame new_frame;
      while (source.Read(media, track, old_frame)) {
        if (!copy.Read(media, track, new_frame)) {
          ADD_FAILURE() << MediaName(media) << " " << track << " ends early";
          return frames;
        }
        const ByteView a = Playback::Payload(old_frame);
        const ByteView b = Playback::Payload(new_frame);
        EXPECT_TRUE(std::equal(a.begin(), a.end(), b.begin(), b.end())) << MediaName(media) << " " << frames;
        EXPECT_EQ(new_frame.dwKeyFrame, old_frame.dwKeyFrame) << MediaName(media) << " " << frames;
        EXPECT_NEAR(static_cast<double>(new_frame.llTimeStamp), static_cast<double>(old_frame.llTimeStamp), 1.0)
            << MediaName(media) << " " << frames;
        ++frames;
      }
      EXPECT_FALSE(copy.Read(media, track, new_frame)) << MediaName(media) << " " << track << " goes on";
    }
  }
  return frames;
}

class CliRemux : public testing::Test {
 protected:
  CliResult Run(std::vector<std::string> more = {}) const {
    std::vector<std::string> arguments = {"remux", path_, "-o", copy_};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return Zmv(folder_, arguments);
  }

  static json Info(const TempFolder& folder, const std::string& path) {
    return json::parse(Zmv(folder, {"info", path, "--json"}).out);
  }

  static GpsPoint Somewhere() {
    GpsPoint point;
    point.utc_us = 1717230600000000;
    point.latitude = 48.2;
    point.longitude = 16.3;
    point.fix = GpsFix::k2d;
    return point;
  }

  const TempFolder folder_;
  const std::string path_ = folder_ / "drive.mp4";
  const std::string copy_ = folder_ / "copy.mp4";
};

TEST_F(CliRemux, SmallRecording_IsCopiedWithItsUserBoxes) {
  WriteSmallRecording(path_, {PayloadOf(Somewhere()), PayloadOf(Somewhere()), Bytes(10, 7)});
  ASSERT_EQ(Zmv(folder_, {"aidd", path_, "0xCAFE"}).code, 0);
  const CliResult result = Run();
  ASSERT_EQ(result.code, 0) << result.err;
  EXPECT_EQ(Compare(path_, copy_), 9u);
  const json before = Info(folder_, path_);
  const json after = Info(folder_, copy_);
  EXPECT_EQ(after["user"]["gps_entries"], before["user"]["gps_entries"]);
  EXPECT_EQ(after["user"]["sensor_entries"], before["user"]["sensor_entries"]);
  EXPECT_EQ(after["user"]["aidd"]["value"], 0xCAFE);
  EXPECT_EQ(after["health"]["state"], "complete");
  for (const char* name : {"codec", "profile", "config", "width", "height", "frames"}) {
    EXPECT_EQ(after["streams"][0][name], before["streams"][0][name]) << name;
  }
  for (const char* name : {"codec", "config", "sample_rate", "channels", "frames"}) {
    EXPECT_EQ(after["streams"][1][name], before["streams"][1][name]) << name;
  }
  EXPECT_EQ(after["streams"][2]["codec"], "GPS ");
}

TEST_F(CliRemux, RecordingWithoutUserBoxes_GetsNone) {
  WriteSmallRecording(path_, {PayloadOf(Somewhere())}, "test");
  ASSERT_EQ(Run().code, 0);
  EXPECT_EQ(Compare(path_, copy_), 7u);
  EXPECT_TRUE(Info(folder_, copy_)["user"]["gps_entries"].is_null());
  EXPECT_TRUE(Info(folder_, copy_)["user"]["aidd"].is_null());
}

TEST_F(CliRemux, TenMinutes_DoNotDrift) {
  constexpr int64_t kMinutesUs = 600000000;
  {
    Console console;
    RecorderOptions options;
    options.path = path_;
    options.expected_ms = 600000;
    Recorder recorder(options, SmallInfo("F test", 2), {33333, kSmallAudioFrameUs, 1000000, 1000000}, console);
    int64_t picture = 0;
    int64_t sound = 0;
    for (int64_t second = 0; second * 1000000 < kMinutesUs; ++second) {
      const int64_t end_us = (second + 1) * 1000000;
      for (; SmallPicture(picture).time_us < end_us; ++picture) recorder.Write(SmallPicture(picture));
      for (; SmallSound(sound).time_us < end_us; ++sound) recorder.Write(SmallSound(sound));
      recorder.Write(SmallText(second * 1000000, PayloadOf(Somewhere())));
      recorder.Write(SmallText(second * 1000000, Bytes(3, 'x'), 1));
    }
    recorder.Finish();
  }
  ASSERT_EQ(Run().code, 0);
  EXPECT_EQ(Compare(path_, copy_), 18000u + 28125 + 600 + 600);
  // Copies of copies show what a single one hides.
  ASSERT_EQ(Zmv(folder_, {"remux", copy_, "-o", folder_ / "again.mp4"}).code, 0);
  EXPECT_EQ(Compare(path_, folder_ / "again.mp4"), 18000u + 28125 + 600 + 600);
  EXPECT_EQ(Info(folder_, copy_)["user"]["gps_entries"], Info(folder_, path_)["user"]["gps_entries"]);
}

TEST_F(CliRemux, MonoPcm_StaysWhatItWas) {
  {
    ZMVFileInfo info = SmallInfo("test", 0);
    info.dwVideoCount = 0;
    info.m_Audio = ZMVAudioInfo{};
    info.m_Audio.dwFormat = ZMV_AUDIO_PCM_LE;
    info.m_Audio.dwSampleRate = 8000;
    info.m_Audio.dwChannels = 1;
    info.m_Audio.dwBitsPerSample = 16;
    info.m_Audio.dwSamplesPerFrame = 160;
    info.m_Audio.dwBlockAlign = 320;
    Console console;
    RecorderOptions options;
    options.path = path_;
    Recorder recorder(options, info, {20000}, console);
    for (int64_t i = 0; i < 50; ++i) {
      recorder.Write({ZMV_MEDIA_AUDIO, 0, i * 20000, true, Bytes(320, static_cast<uint8_t>(i))});
    }
    recorder.Finish();
  }
  const CliResult result = Run();
  ASSERT_EQ(result.code, 0) << result.err;
  EXPECT_EQ(Compare(path_, copy_), 50u);
  EXPECT_EQ(Info(folder_, copy_)["recovery_boxes"][0]["code"], Info(folder_, path_)["recovery_boxes"][0]["code"]);
}

TEST_F(CliRemux, FramesThatCannotBeRead_AreLeftOutAndThoseBehindThemKeepTheirTimes) {
  {
    Console console;
    RecorderOptions options;
    options.path = path_;
    Recorder recorder(options, SmallInfo("test"), {33333, kSmallAudioFrameUs, 1000000}, console);
    for (int64_t i = 0; i < 30; ++i) {
      recorder.Write(SmallPicture(i));
      recorder.Write(SmallSound(i));
    }
    recorder.Finish();
  }
  Bytes file = ReadBytes(path_);
  const char tag[] = "stco";
  const auto video = std::search(file.begin(), file.end(), tag, tag + 4);
  ASSERT_NE(video, file.end());
  constexpr std::ptrdiff_t kFirstOffset = 12;
  for (std::ptrdiff_t i = 10; i < 15; ++i) video[kFirstOffset + 4 * i] = 0x7F;  // behind the end of the file
  WriteBytes(path_, file);
  const CliResult result = Run();
  EXPECT_EQ(result.code, 5);
  EXPECT_THAT(result.err, HasSubstr("video 0: only 25 of 30 frames can be read"));
  Playback copy(copy_);
  EXPECT_EQ(copy.FrameCount(ZMV_MEDIA_VIDEO, 0), 25u);
  EXPECT_EQ(copy.FrameCount(ZMV_MEDIA_AUDIO, 0), 30u);
  ZMVFrame frame;
  for (int64_t i = 0; i < 30; ++i) {
    if (i >= 10 && i < 15) continue;
    ASSERT_TRUE(copy.Read(ZMV_MEDIA_VIDEO, 0, frame));
    EXPECT_EQ(frame.pData[5], SmallPicture(i).data[5]);
    EXPECT_NEAR(static_cast<double>(frame.llTimeStamp), static_cast<double>(i) * 1000 / 30, 1.5) << i;
  }
}

TEST_F(CliRemux, OutputsThatDoNotTakeEverything_FailWithTheirReason) {
  WriteSmallRecording(path_, std::vector<Bytes>(20, PayloadOf(Somewhere())));
  ASSERT_GT(std::filesystem::file_size(path_), 4096u);
  const CliResult device = Zmv(folder_, {"remux", path_, "-o", "/dev/full", "--force"});
  EXPECT_EQ(device.code, 1);
  EXPECT_THAT(device.err, HasSubstr("not a plain file"));
  EXPECT_THAT(Zmv(folder_, {"remux", path_, "-o", folder_ / "none" + "/copy.mp4"}).err, HasSubstr("No such file"));
  // Room for 4 blocks of 512 bytes: the tables do not reach the file.
  std::string said;
  const std::string limited = "trap '' XFSZ; ulimit -f 4; " + Quoted(ZMV_TOOL_PATH) + " remux " + Quoted(path_);
  EXPECT_EQ(Program(folder_, limited + " -o " + Quoted(copy_), said), 1);
  EXPECT_THAT(said, HasSubstr("could not be finished: File too large"));
}

TEST_F(CliRemux, FailedWrites_AreNotCalledALimit) {
  {
    Console console;
    RecorderOptions options;
    options.path = path_;
    Recorder recorder(options, SmallInfo("test", 0), {33333, kSmallAudioFrameUs}, console);
    for (int64_t i = 0; i < 100; ++i) {
      MediaFrame picture = SmallPicture(i);
      picture.data.resize(50000, 0x55);
      recorder.Write(picture);
      recorder.Write(SmallSound(i));
    }
    recorder.Finish();
  }
  std::string said;
  const std::string limited = "trap '' XFSZ; ulimit -f 1000; " + Quoted(ZMV_TOOL_PATH) + " remux " + Quoted(path_);
  EXPECT_EQ(Program(folder_, limited + " -o " + Quoted(copy_), said), 1);
  EXPECT_THAT(said, HasSubstr("File too large"));
  EXPECT_THAT(said, testing::Not(HasSubstr("limit of the format")));
}

TEST_F(CliRemux, Refusals_LeaveFilesAlone) {
  WriteSmallRecording(path_, {PayloadOf(Somewhere())});
  WriteText(copy_, "precious");
  EXPECT_EQ(Run().code, 1);
  EXPECT_EQ(TextOf(copy_), "precious");
  const Bytes before = ReadBytes(path_);
  EXPECT_EQ(Zmv(folder_, {"remux", path_, "-o", path_, "--force"}).code, 1);
  EXPECT_EQ(ReadBytes(path_), before);
  const CliResult forced = Run({"--force", "--software", "plain", "--json"});
  EXPECT_EQ(forced.code, 0);
  EXPECT_THAT(forced.err, HasSubstr("does not begin with F"));
  EXPECT_EQ(json::parse(forced.out)["software"], "plain");
  EXPECT_TRUE(Info(folder_, copy_)["user"]["gps_entries"].is_null());
  WriteText(folder_ / "garbage", std::string(100, 'g'));
  EXPECT_EQ(Zmv(folder_, {"remux", folder_ / "garbage", "-o", folder_ / "g.mp4"}).code, 3);
  EXPECT_FALSE(std::filesystem::exists(folder_ / "g.mp4"));
}

}  // namespace
}  // namespace zmv::tool

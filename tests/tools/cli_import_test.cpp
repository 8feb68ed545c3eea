// `zmv import` on the samples and on inputs that FFmpeg makes.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/tools/cli.h"
#include "tools/zmv/playback.h"

namespace zmv::tool {
namespace {

using nlohmann::json;
using testing::HasSubstr;

class CliImport : public testing::Test {
 protected:
  void Make(const std::string& arguments) {
    std::string said;
    ASSERT_EQ(Program(folder_, "ffmpeg -hide_banner -nostdin -loglevel error -y " + arguments, said), 0) << said;
  }

  void ExpectDecodes(const std::string& path) {
    std::string said;
    EXPECT_EQ(Program(folder_, "ffmpeg -v error -nostdin -i " + Quoted(path) + " -map 0 -c:s copy -f null -", said), 0);
    EXPECT_EQ(said, "");
  }

  json Info(const std::string& path) {
    const CliResult info = Zmv(folder_, {"info", path, "--json"});
    EXPECT_EQ(info.code, 0) << info.err;
    return json::parse(info.out);
  }

  const TempFolder folder_;
  const std::string out_ = folder_ / "out.mp4";
};

TEST_F(CliImport, SampleDrive_BecomesARecordingOfThreeTracks) {
  const CliResult result = Zmv(folder_, {"import", Sample("drive_h264.h264"), Sample("drive_aac.aac"), "--gps",
                                         Sample("drive_gps.gpx"), "-o", out_, "--json"});
  ASSERT_EQ(result.code, 0) << result.err;
  const json report = json::parse(result.out);
  ASSERT_EQ(report["files"].size(), 1u);
  EXPECT_EQ(report["files"][0]["tracks"][0]["frames"], 180);
  EXPECT_EQ(report["files"][0]["tracks"][0]["key_frames"], 6);
  const json info = Info(out_);
  EXPECT_EQ(info["health"]["state"], "complete");
  ASSERT_EQ(info["streams"].size(), 3u);
  EXPECT_EQ(info["streams"][0]["codec"], "H.264");
  EXPECT_EQ(info["streams"][0]["profile"], "High");
  EXPECT_EQ(info["streams"][0]["width"], 640);
  EXPECT_EQ(info["streams"][0]["frames"], 180);
  EXPECT_EQ(info["streams"][0]["duration_ms"], 6000);
  EXPECT_NEAR(info["streams"][0]["frame_rate"].get<double>(), 30.0, 0.001);
  EXPECT_EQ(info["streams"][1]["codec"], "AAC");
  EXPECT_EQ(info["streams"][1]["frames"], 283);
  EXPECT_EQ(info["streams"][2]["frames"], 13);
  EXPECT_EQ(info["user"]["gps_entries"], 13);
  EXPECT_EQ(info["user"]["sensor_entries"], 13);
  EXPECT_EQ(info["user"]["aidd"]["value"], 0);
  ExpectDecodes(out_);
}

TEST_F(CliImport, SampleHevc_BecomesARecording) {
  ASSERT_EQ(Zmv(folder_, {"import", Sample("drive_hevc.hevc"), Sample("drive_aac.aac"), "-o", out_}).code, 0);
  const json info = Info(out_);
  EXPECT_EQ(info["streams"][0]["codec"], "HEVC");
  EXPECT_EQ(info["streams"][0]["profile"], "Main");
  EXPECT_EQ(info["streams"][0]["config"].size(), 3u);
  EXPECT_TRUE(info["user"]["aidd"].is_null());
  ExpectDecodes(out_);
}

TEST_F(CliImport, ExistingOutput_StaysWithoutForce) {
  WriteText(out_, "precious");
  const CliResult refused = Zmv(folder_, {"import", Sample("drive_h264.h264"), "-o", out_});
  EXPECT_EQ(refused.code, 1);
  EXPECT_THAT(refused.err, HasSubstr("--force"));
  EXPECT_EQ(TextOf(out_), "precious");
  EXPECT_EQ(Zmv(folder_, {"import", Sample("drive_h264.h264"), "-o", out_, "--force"}).code, 0);
  EXPECT_EQ(Info(out_)["streams"][0]["frames"], 180);
}

TEST_F(CliImport, PicturesOfSeveralSlices_AreRefusedUnlessAllowed) {
  const CliResult refused = Zmv(folder_, {"import", Sample("units_h264.h264"), "-o", out_});
  EXPECT_EQ(refused.code, 1);
  EXPECT_THAT(refused.err, HasSubstr("2 slices"));
  EXPECT_FALSE(std::filesystem::exists(out_));
  const CliResult allowed = Zmv(folder_, {"import", Sample("units_h264.h264"), "-o", out_, "--allow-slices"});
  EXPECT_EQ(allowed.code, 0);
  EXPECT_THAT(allowed.err, HasSubstr("warning"));
  EXPECT_EQ(Info(out_)["streams"][0]["frames"], 30);
}

TEST_F(CliImport, FrameRateOption_SpacesPicturesOfAnElementaryStream) {
  ASSERT_EQ(Zmv(folder_, {"import", Sample("drive_h264.h264"), "-o", out_, "--fps", "23.976"}).code, 0);
  const json stream = Info(out_)["streams"][0];
  EXPECT_NEAR(stream["frame_rate"].get<double>(), 23.976, 0.01);
  EXPECT_NEAR(stream["duration_ms"].get<double>(), 180 / 23.976 * 1000, 2);
}

TEST_F(CliImport, Split_MakesNumberedFilesWithAllFrames) {
  const CliResult result = Zmv(folder_, {"import", Sample("drive_h264.h264"), Sample("drive_aac.aac"), "--gps",
                                         Sample("drive_gps.csv"), "-o", out_, "--split", "2", "--json"});
  ASSERT_EQ(result.code, 0) << result.err;
  const json files = json::parse(result.out)["files"];
  ASSERT_EQ(files.size(), 3u);
  EXPECT_EQ(files[1]["file"], folder_ / "out_0002.mp4");
  unsigned positions = 0;
  unsigned sounds = 0;
  for (const json& file : files) {
    EXPECT_EQ(file["tracks"][0]["frames"], 60);
    EXPECT_EQ(file["tracks"][0]["key_frames"], 2);
    sounds += file["tracks"][1]["frames"].get<unsigned>();
    positions += file["tracks"][2]["frames"].get<unsigned>();
    ExpectDecodes(file["file"].get<std::string>());
  }
  EXPECT_EQ(sounds, 283u);
  EXPECT_EQ(positions, 13u);
}

TEST_F(CliImport, SizeLimit_FailsButLeavesACompleteFile) {
  const CliResult result =
      Zmv(folder_, {"import", Sample("drive_h264.h264"), Sample("drive_aac.aac"), "-o", out_, "--max-size", "100k"});
  EXPECT_EQ(result.code, 1);
  EXPECT_THAT(result.err, HasSubstr("size limit"));
  EXPECT_LE(std::filesystem::file_size(out_), 100u * 1024);
  EXPECT_GT(Info(out_)["streams"][0]["frames"].get<int>(), 30);
  ExpectDecodes(out_);
}

TEST_F(CliImport, PositionsBeyondTheMedia_AreLeftOutAndCounted) {
  const CliResult result = Zmv(folder_, {"import", Sample("drive_h264.h264"), "--gps", Sample("drive_gps.gpx"),
                                         "--gps-offset", "4.25", "-o", out_});
  ASSERT_EQ(result.code, 0) << result.err;
  // 4.25, 4.75, 5.25 and 5.75 s; nine are later. A blank one stands at the start.
  EXPECT_THAT(result.err, HasSubstr("9 after the end"));
  EXPECT_EQ(Info(out_)["streams"][1]["frames"], 5);
}

TEST_F(CliImport, SoftwareTextWithoutF_IsWarnedAboutAndKeepsBoxesAway) {
  const CliResult result = Zmv(folder_, {"import", Sample("drive_h264.h264"), "--gps", Sample("drive_gps.gpx"),
                                         "--software", "camera 1", "-o", out_});
  ASSERT_EQ(result.code, 0) << result.err;
  EXPECT_THAT(result.err, HasSubstr("warning: --software"));
  EXPECT_TRUE(Info(out_)["user"]["gps_entries"].is_null());
}

TEST_F(CliImport, Container_IsRecordedFromConfigurationRecords) {
  const std::string input = folder_ / "in.mp4";
  Make(
      "-f lavfi -i testsrc2=size=160x120:rate=30000/1001:duration=2 -f lavfi -i sine=sample_rate=44100:duration=2 "
      "-c:v libx264 -bf 0 -c:a aac " +
      Quoted(input));
  ASSERT_EQ(Zmv(folder_, {"import", input, "-o", out_}).code, 0);
  const json streams = Info(out_)["streams"];
  ASSERT_EQ(streams.size(), 2u);
  EXPECT_NEAR(streams[0]["frame_rate"].get<double>(), 29.97, 0.02);
  EXPECT_EQ(streams[1]["sample_rate"], 44100);
  ExpectDecodes(out_);
}

TEST_F(CliImport, ReorderedPictures_AreRefusedFromContainersAndElementaryStreams) {
  const std::string container = folder_ / "in.mp4";
  const std::string bare = folder_ / "in.h264";
  Make("-f lavfi -i testsrc2=size=160x120:rate=30:duration=1 -c:v libx264 -bf 3 " + Quoted(container));
  Make("-i " + Quoted(container) + " -c copy " + Quoted(bare));
  for (const std::string& input : {container, bare}) {
    const CliResult result = Zmv(folder_, {"import", input, "-o", out_});
    EXPECT_EQ(result.code, 1) << input;
    EXPECT_THAT(result.err, HasSubstr("B frames"));
    EXPECT_FALSE(std::filesystem::exists(out_));
  }
}

TEST_F(CliImport, MonoPcm_IsCutIntoEqualFramesAndComesBackAsWav) {
  const std::string input = folder_ / "in.wav";
  Make("-f lavfi -i sine=sample_rate=16000:duration=1 -ac 1 -bitexact " + Quoted(input));
  const CliResult result = Zmv(folder_, {"import", input, "-o", out_});
  ASSERT_EQ(result.code, 0) << result.err;
  EXPECT_THAT(result.err, HasSubstr("384 samples of silence"));  // 16 frames of 1024 for 16000 samples
  const std::string back = folder_ / "back.wav";
  ASSERT_EQ(Zmv(folder_, {"export", out_, "--audio", back}).code, 0);
  const Bytes wanted = ReadBytes(input);
  const Bytes got = ReadBytes(back);
  ASSERT_EQ(got.size(), 44u + 16 * 1024 * 2);
  constexpr size_t kSampleBytes = 16000 * 2;
  EXPECT_TRUE(std::equal(wanted.end() - kSampleBytes, wanted.end(), got.begin() + 44));
  ExpectDecodes(out_);
}

TEST_F(CliImport, StereoPcmAndTelephoneSound_AreRefusedWithAdvice) {
  const std::string stereo = folder_ / "stereo.wav";
  const std::string phone = folder_ / "phone.wav";
  Make("-f lavfi -i sine=sample_rate=16000:duration=0.2 -ac 2 " + Quoted(stereo));
  Make("-f lavfi -i sine=sample_rate=8000:duration=0.2 -c:a pcm_alaw " + Quoted(phone));
  for (const std::string& input : {stereo, phone}) {
    const CliResult result = Zmv(folder_, {"import", input, "-o", out_});
    EXPECT_EQ(result.code, 1);
    EXPECT_THAT(result.err, HasSubstr("AAC"));
  }
}

TEST_F(CliImport, BadCommandLines_AreUsageErrors) {
  EXPECT_EQ(Zmv(folder_, {}).code, 2);
  EXPECT_EQ(Zmv(folder_, {"imports"}).code, 2);
  EXPECT_EQ(Zmv(folder_, {"import", Sample("drive_h264.h264")}).code, 2);
  EXPECT_EQ(Zmv(folder_, {"import", "-o", out_}).code, 2);
  EXPECT_EQ(Zmv(folder_, {"import", Sample("drive_h264.h264"), "-o", out_, "--max-size", "10x"}).code, 2);
  EXPECT_EQ(Zmv(folder_, {"import", Sample("drive_h264.h264"), "-o", out_, "--max-size", "4G"}).code, 2);
  EXPECT_EQ(Zmv(folder_, {"import", Sample("drive_h264.h264"), "-o", out_, "--fps", "fast"}).code, 2);
  EXPECT_FALSE(std::filesystem::exists(out_));
}

TEST_F(CliImport, Projection_IsCheckedAndItsLimitsAreTold) {
  const std::string video = Sample("drive_h264.h264");
  for (const char* mode : {"flat", "1x", "-1", "4294967296"}) {
    EXPECT_EQ(Zmv(folder_, {"import", video, "-o", out_, std::string("--projection=") + mode}).code, 2) << mode;
  }
  EXPECT_FALSE(std::filesystem::exists(out_));
  for (const char* mode : {"none", "circ"}) {
    const CliResult result = Zmv(folder_, {"import", video, "-o", out_, "--force", "--projection", mode});
    EXPECT_EQ(result.code, 0) << result.err;
    EXPECT_EQ(result.err.find("warning"), std::string::npos) << result.err;
  }
  EXPECT_THAT(Zmv(folder_, {"import", video, "-o", out_, "--force", "--projection", "equi"}).err,
              HasSubstr("cannot open the file"));
  EXPECT_THAT(Zmv(folder_, {"import", Sample("drive_hevc.hevc"), "-o", out_, "--force", "--projection", "circ"}).err,
              HasSubstr("only H.264"));
  EXPECT_EQ(Zmv(folder_, {"import", Sample("drive_aac.aac"), "-o", out_, "--force", "--projection", "circ"}).code, 2);
}

TEST_F(CliImport, CircularProjection_IsShownByInfo) {
  ASSERT_EQ(Zmv(folder_, {"import", Sample("drive_h264.h264"), "-o", out_, "--projection", "circ"}).code, 0);
  const json stream = Info(out_)["streams"][0];
  EXPECT_EQ(stream["spherical"]["projection_mode"], 1);
  EXPECT_EQ(stream["spherical"]["bounds"], (std::vector<int>{0, 0, 0}));
  EXPECT_EQ(stream["frames"], 180);
  EXPECT_THAT(Zmv(folder_, {"info", out_}).out, HasSubstr("spherical, projection mode 1 (circ)"));
  // A copy keeps it, a flat picture has none.
  ASSERT_EQ(Zmv(folder_, {"remux", out_, "-o", folder_ / "copy.mp4"}).code, 0);
  EXPECT_EQ(Info(folder_ / "copy.mp4")["streams"][0]["spherical"], stream["spherical"]);
  ASSERT_EQ(Zmv(folder_, {"import", Sample("drive_h264.h264"), "-o", out_, "--force"}).code, 0);
  EXPECT_FALSE(Info(out_)["streams"][0].contains("spherical"));
}

TEST_F(CliImport, OtherProjections_AreNamedByWhatCannotOpenThem) {
  for (const char* mode : {"equi", "7", "3"}) {
    ASSERT_EQ(Zmv(folder_, {"import", Sample("drive_h264.h264"), "-o", out_, "--force", "--projection", mode}).code, 0);
    for (const char* command : {"info", "frames"}) {
      const CliResult result = Zmv(folder_, {command, out_});
      EXPECT_EQ(result.code, 3) << mode;
      EXPECT_THAT(result.err,
                  HasSubstr("its video carries projection metadata (\"equi\") that this reader cannot open"));
      EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1);
    }
  }
}

TEST_F(CliImport, NumbersThatAreNone_AreUsageErrors) {
  for (const char* option : {"--fps", "--split", "--gps-offset"}) {
    for (const char* value : {"nan", "inf", "1e9", "x"}) {
      EXPECT_EQ(Zmv(folder_, {"import", Sample("drive_h264.h264"), "-o", out_, option, value}).code, 2)
          << option << " " << value;
    }
  }
  EXPECT_FALSE(std::filesystem::exists(out_));
}

TEST_F(CliImport, InputsThatCannotBeRead_Fail) {
  EXPECT_EQ(Zmv(folder_, {"import", folder_ / "none.h264", "-o", out_}).code, 1);
  WriteText(folder_ / "text.h264", "this is no video");
  EXPECT_EQ(Zmv(folder_, {"import", folder_ / "text.h264", "-o", out_}).code, 1);
  const std::string same = folder_ / "same.mp4";
  ASSERT_EQ(Zmv(folder_, {"import", Sample("drive_h264.h264"), "-o", same}).code, 0);
  EXPECT_EQ(Zmv(folder_, {"import", same, "-o", same, "--force"}).code, 1);
  EXPECT_EQ(Info(same)["streams"][0]["frames"], 180);
}

TEST_F(CliImport, Help_BeginsWithAnExample) {
  for (const std::string command : {"", "import", "info", "frames", "export", "remux", "telemetry", "aidd"}) {
    std::vector<std::string> arguments = {"--help"};
    if (!command.empty()) arguments.insert(arguments.begin(), command);
    const CliResult help = Zmv(folder_, arguments);
    EXPECT_EQ(help.code, 0);
    EXPECT_EQ(help.out.rfind("Example:\n  zmv ", 0), 0u) << help.out;
  }
  EXPECT_EQ(Zmv(folder_, {"--version"}).out.rfind("zmv ", 0), 0u);
}

}  // namespace
}  // namespace zmv::tool

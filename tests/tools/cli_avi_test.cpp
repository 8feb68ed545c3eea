// The tool on AVI files: recorded from the samples and from inputs that FFmpeg makes, described, listed, exported.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/tools/cli.h"
#include "tools/zmv/playback.h"

namespace zmv::tool {
namespace {

using nlohmann::json;
using testing::HasSubstr;

class CliAvi : public testing::Test {
 protected:
  void Make(const std::string& arguments) {
    std::string said;
    ASSERT_EQ(Program(folder_, "ffmpeg -hide_banner -nostdin -loglevel error -y " + arguments, said), 0) << said;
  }

  // The checksums of every decoded picture.
  std::string Pictures(const std::string& path) {
    std::string said;
    EXPECT_EQ(Program(folder_,
                      "ffmpeg -v error -nostdin -i " + Quoted(path) +
                          " -map 0:v -fps_mode passthrough -f rawvideo -c:v rawvideo - | md5sum",
                      said),
              0);
    return said;
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

  CliResult Import(std::vector<std::string> inputs, const std::vector<std::string>& more = {}) {
    inputs.insert(inputs.begin(), "import");
    inputs.insert(inputs.end(), {"-o", out_});
    inputs.insert(inputs.end(), more.begin(), more.end());
    return Zmv(folder_, inputs);
  }

  CliResult ImportDrive() {
    return Import({Sample("drive_h264.h264"), Sample("drive_aac.aac"), "--gps", Sample("drive_gps.gpx")});
  }

  const TempFolder folder_;
  const std::string out_ = folder_ / "out.avi";
};

TEST_F(CliAvi, SampleDrive_BecomesAnAviOfThreeTracks) {
  const CliResult result = ImportDrive();
  ASSERT_EQ(result.code, 0) << result.err;
  EXPECT_THAT(result.err, HasSubstr("evenly spaced"));
  const json info = Info(out_);
  EXPECT_EQ(info["container"], "AVI");
  EXPECT_EQ(info["index"], "idx1");
  EXPECT_TRUE(info["brand"].is_null());
  EXPECT_EQ(info["health"]["state"], "complete");
  EXPECT_EQ(info["duration_ms"], 6500);
  ASSERT_EQ(info["streams"].size(), 3u);
  EXPECT_EQ(info["streams"][0]["codec"], "H.264");
  EXPECT_EQ(info["streams"][0]["profile"], "High");
  EXPECT_EQ(info["streams"][0]["config"].size(), 2u);
  EXPECT_EQ(info["streams"][0]["frames"], 180);
  EXPECT_EQ(info["streams"][0]["duration_ms"], 6000);
  EXPECT_EQ(info["streams"][0]["frame_rate"], 30.0);
  EXPECT_EQ(info["streams"][1]["frames"], 283);
  EXPECT_EQ(info["streams"][1]["duration_ms"], 6037);
  EXPECT_EQ(info["streams"][2]["codec"], "GPS ");
  EXPECT_EQ(info["streams"][2]["frames"], 13);
  EXPECT_EQ(info["streams"][2]["duration_ms"], 6500);
  ExpectDecodes(out_);
  EXPECT_EQ(Pictures(out_), Pictures(Sample("drive_h264.h264")));
}

TEST_F(CliAvi, InfoForPeople_NamesTheChunks) {
  ASSERT_EQ(ImportDrive().code, 0);
  const CliResult result = Zmv(folder_, {"info", out_});
  for (const char* word : {"AVI (index idx1)", "complete", "H.264 High", "30.000 fps", "AAC LC", "RIFF AVI",
                           "LIST hdrl", "LIST strl", "LIST INFO", "JUNK", "LIST movi", "idx1", "AIDD  0x0000"}) {
    EXPECT_THAT(result.out, HasSubstr(word));
  }
}

TEST_F(CliAvi, SampleHevc_KeepsItsConfigurationInTheHeader) {
  ASSERT_EQ(Import({Sample("drive_hevc.hevc"), Sample("drive_aac.aac")}).code, 0);
  EXPECT_EQ(Info(out_)["streams"][0]["config"].size(), 3u);
  EXPECT_EQ(Info(out_)["streams"][0]["profile"], "Main");
  ExpectDecodes(out_);
  EXPECT_EQ(Pictures(out_), Pictures(Sample("drive_hevc.hevc")));
}

TEST_F(CliAvi, PicturesOfSeveralSlices_AreFine) {
  const CliResult result = Import({Sample("units_h264.h264")});
  ASSERT_EQ(result.code, 0) << result.err;
  EXPECT_EQ(Info(out_)["streams"][0]["frames"], 30);
  ExpectDecodes(out_);
  EXPECT_EQ(Pictures(out_), Pictures(Sample("units_h264.h264")));
  // An MP4 has no room for them.
  const CliResult copied = Zmv(folder_, {"remux", out_, "-o", folder_ / "out.mp4"});
  EXPECT_EQ(copied.code, 1);
  EXPECT_THAT(copied.err, HasSubstr("several slices"));
}

TEST_F(CliAvi, StereoPcm_IsRecordedSampleForSample) {
  Make("-f lavfi -i sine=frequency=440:sample_rate=44100:duration=1.5 -ac 2 -c:a pcm_s16le " + (folder_ / "in.wav"));
  const CliResult mp4 = Zmv(folder_, {"import", folder_ / "in.wav", "-o", folder_ / "out.mp4"});
  EXPECT_EQ(mp4.code, 1);
  EXPECT_THAT(mp4.err, HasSubstr("record an AVI"));
  const CliResult result = Import({folder_ / "in.wav"});
  ASSERT_EQ(result.code, 0) << result.err;
  EXPECT_EQ(Info(out_)["streams"][0]["duration_ms"], 1500);
  EXPECT_EQ(Info(out_)["streams"][0]["channels"], 2);
  ExpectDecodes(out_);
  ASSERT_EQ(Zmv(folder_, {"export", out_, "--audio", folder_ / "back.wav"}).code, 0);
  std::string before, after;
  ASSERT_EQ(Program(folder_, "ffmpeg -v error -i " + (folder_ / "in.wav") + " -f md5 -", before), 0);
  ASSERT_EQ(Program(folder_, "ffmpeg -v error -i " + (folder_ / "back.wav") + " -f md5 -", after), 0);
  EXPECT_EQ(before, after);
  ASSERT_EQ(Program(folder_, "ffmpeg -v error -i " + out_ + " -f md5 -", after), 0);
  EXPECT_EQ(before, after);
}

TEST_F(CliAvi, Mp3_IsRecordedFrameByFrame) {
  Make("-f lavfi -i sine=frequency=440:sample_rate=44100:duration=2 -c:a libmp3lame -q:a 5 " + (folder_ / "in.mp3"));
  ASSERT_EQ(Import({folder_ / "in.mp3"}).code, 0);
  EXPECT_EQ(Info(out_)["streams"][0]["codec"], "MP3");
  ExpectDecodes(out_);
}

TEST_F(CliAvi, Projection_IsAUsageError) {
  const CliResult result = Import({Sample("drive_h264.h264")}, {"--projection", "circ"});
  EXPECT_EQ(result.code, 2);
  EXPECT_THAT(result.err, HasSubstr("an AVI has no place for it"));
  EXPECT_FALSE(std::filesystem::exists(out_));
}

TEST_F(CliAvi, UpperCaseExtension_MakesAnAviToo) {
  const std::string upper = folder_ / "OUT.AVI";
  ASSERT_EQ(Zmv(folder_, {"import", Sample("drive_h264.h264"), "-o", upper}).code, 0);
  EXPECT_EQ(Info(upper)["container"], "AVI");
}

TEST_F(CliAvi, Split_GoesOnAtKeyFrames) {
  ASSERT_EQ(Import({Sample("drive_h264.h264"), Sample("drive_aac.aac")}, {"--split", "2"}).code, 0);
  int pictures = 0;
  for (const char* name : {"out.avi", "out_0002.avi", "out_0003.avi"}) {
    const json info = Info(folder_ / name);
    EXPECT_EQ(info["health"]["state"], "complete");
    pictures += info["streams"][0]["frames"].get<int>();
    ExpectDecodes(folder_ / name);
  }
  EXPECT_EQ(pictures, 180);
}

TEST_F(CliAvi, MaxSize_EndsTheRecordingWithAWholeFile) {
  const CliResult result = Import({Sample("drive_h264.h264")}, {"--max-size", "100k"});
  EXPECT_EQ(result.code, 1);
  EXPECT_THAT(result.err, HasSubstr("the size limit ended the recording"));
  EXPECT_LE(std::filesystem::file_size(out_), 102400u);
  EXPECT_EQ(Info(out_)["health"]["state"], "complete");
  ExpectDecodes(out_);
}

TEST_F(CliAvi, Frames_HaveThePositionsOfTheirPayloads) {
  ASSERT_EQ(ImportDrive().code, 0);
  const json frames = json::parse(Zmv(folder_, {"frames", out_, "--json"}).out);
  ASSERT_EQ(frames.size(), 180u + 283 + 13);
  const Bytes file = ReadBytes(out_);
  for (const json& frame : frames) {
    const auto at = frame["position"].get<size_t>();
    const uint32_t stated = static_cast<uint32_t>(file[at - 4] | file[at - 3] << 8 | file[at - 2] << 16);
    ASSERT_EQ(stated, frame["size"].get<uint32_t>());
    const char* code = frame["media"] == "video" ? "00dc" : frame["media"] == "audio" ? "01wb" : "02tx";
    ASSERT_TRUE(std::equal(code, code + 4, file.begin() + static_cast<std::ptrdiff_t>(at) - 8)) << frame;
  }
}

TEST_F(CliAvi, Exports_AreTheSameAsThoseOfAnMp4) {
  ASSERT_EQ(ImportDrive().code, 0);
  const std::string mp4 = folder_ / "out.mp4";
  ASSERT_EQ(Zmv(folder_, {"import", Sample("drive_h264.h264"), Sample("drive_aac.aac"), "--gps",
                          Sample("drive_gps.gpx"), "-o", mp4})
                .code,
            0);
  for (const std::string& name : {out_, mp4}) {
    ASSERT_EQ(Zmv(folder_, {"export", name, "--video", name + ".h264", "--audio", name + ".aac", "--text",
                            name + ".txt", "--repeat-parameters"})
                  .code,
              0);
  }
  for (const char* extension : {".h264", ".aac", ".txt"}) {
    EXPECT_EQ(ReadBytes(out_ + extension), ReadBytes(mp4 + extension)) << extension;
  }
}

TEST_F(CliAvi, Value_IsRewrittenInTwoBytes) {
  ASSERT_EQ(ImportDrive().code, 0);
  const Bytes before = ReadBytes(out_);
  EXPECT_EQ(Zmv(folder_, {"aidd", out_}).out, "0 (0x0000)\n");
  ASSERT_EQ(Zmv(folder_, {"aidd", out_, "0x1234"}).code, 0);
  Bytes expected = before;
  const auto position = Info(out_)["user"]["aidd"]["position"].get<size_t>();
  expected[position] = 0x34;
  expected[position + 1] = 0x12;
  EXPECT_EQ(ReadBytes(out_), expected);
  EXPECT_EQ(json::parse(Zmv(folder_, {"aidd", out_, "--json"}).out)["value"], 0x1234);
  const CliResult large = Zmv(folder_, {"aidd", out_, "65536"});
  EXPECT_EQ(large.code, 2);
  EXPECT_THAT(large.err, HasSubstr("up to 65535"));
  EXPECT_EQ(ReadBytes(out_), expected);
}

TEST_F(CliAvi, Telemetry_ComesFromTheTextTrack) {
  ASSERT_EQ(ImportDrive().code, 0);
  const CliResult result = Zmv(folder_, {"telemetry", out_, "--format", "csv"});
  EXPECT_EQ(result.code, 0) << result.err;
  EXPECT_EQ(std::count(result.out.begin(), result.out.end(), '\n'), 14);
  EXPECT_THAT(result.out, HasSubstr("2024-06-01T08:30:00.500Z,48.2030775,16.3610547"));
}

TEST_F(CliAvi, FileOfFfmpeg_IsDescribedAndCopied) {
  const std::string foreign = folder_ / "foreign.avi";
  Make(
      "-f lavfi -i testsrc2=size=160x120:rate=25:duration=3 -f lavfi -i sine=duration=3:sample_rate=48000 -c:v libx264 "
      "-bf 0 -x264-params slices=1 -c:a aac " +
      foreign);
  const json info = Info(foreign);
  EXPECT_EQ(info["streams"][0]["codec"], "H.264");
  EXPECT_EQ(info["streams"][0]["frames"], 75);
  EXPECT_NEAR(info["streams"][0]["duration_ms"].get<double>(), 3000, 50);  // it begins with an empty frame
  EXPECT_NEAR(info["streams"][1]["duration_ms"].get<double>(), 3000, 50);
  for (const char* name : {"copy.avi", "copy.mp4"}) {
    const CliResult copied = Zmv(folder_, {"remux", foreign, "-o", folder_ / name});
    ASSERT_EQ(copied.code, 0) << copied.err;
    ExpectDecodes(folder_ / name);
    EXPECT_EQ(Pictures(folder_ / name), Pictures(foreign)) << name;
  }
}

}  // namespace
}  // namespace zmv::tool

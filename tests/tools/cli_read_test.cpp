// `zmv info`, `zmv frames` and `zmv export` on recordings made of the samples, whole, cut and foreign.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/tools/cli.h"
#include "tools/zmv/annexb.h"
#include "tools/zmv/gps_file.h"

namespace zmv::tool {
namespace {

using nlohmann::json;
using testing::HasSubstr;

// The recording that most tests look at is made once.
class CliRead : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    shared_ = new TempFolder;
    const CliResult made = Zmv(*shared_, {"import", Sample("drive_h264.h264"), Sample("drive_aac.aac"), "--gps",
                                          Sample("drive_gps.gpx"), "-o", *shared_ / "drive.mp4"});
    ASSERT_EQ(made.code, 0) << made.err;
  }
  static void TearDownTestSuite() {
    delete shared_;
    shared_ = nullptr;
  }

  static std::string Drive() { return *shared_ / "drive.mp4"; }

  // The first `part` of the drive as a power cut leaves it: no index, and the size of the media data not yet written.
  std::string Cut(double part) {
    Bytes file = ReadBytes(Drive());
    const char tag[] = "mdat";
    const auto at = std::search(file.begin(), file.end(), tag, tag + 4);
    const Bytes open = {0, 0, 0, 8};
    std::copy(open.begin(), open.end(), at - 4);
    file.resize(static_cast<size_t>(static_cast<double>(file.size()) * part));
    WriteBytes(folder_ / "cut.mp4", file);
    return folder_ / "cut.mp4";
  }

  static std::vector<Bytes> Pictures(VideoCodec codec, const Bytes& stream) {
    std::vector<Bytes> pictures;
    for (const ByteView nal : SplitNals(stream)) {
      if (ClassifyNal(codec, nal) == NalKind::kPicture) pictures.emplace_back(nal.begin(), nal.end());
    }
    return pictures;
  }

  static std::vector<Bytes> AllNals(const Bytes& stream) {
    std::vector<Bytes> nals;
    for (const ByteView nal : SplitNals(stream)) nals.emplace_back(nal.begin(), nal.end());
    return nals;
  }

  static TempFolder* shared_;
  const TempFolder folder_;
};

TempFolder* CliRead::shared_ = nullptr;

TEST_F(CliRead, Info_ListsBoxesThatCoverTheFile) {
  const CliResult result = Zmv(folder_, {"info", Drive(), "--json"});
  ASSERT_EQ(result.code, 0) << result.err;
  const json info = json::parse(result.out);
  uint64_t end = 0;
  for (const json& box : info["boxes"]) {
    EXPECT_EQ(box["position"], end);
    end += box["size"].get<uint64_t>();
  }
  EXPECT_EQ(end, std::filesystem::file_size(Drive()));
  EXPECT_EQ(info["size"], end);
  ASSERT_EQ(info["recovery_boxes"].size(), 3u);
  EXPECT_EQ(info["recovery_boxes"][1]["width"], 640);
}

TEST_F(CliRead, Info_ForPeopleNamesTheSameThings) {
  const CliResult result = Zmv(folder_, {"info", Drive()});
  ASSERT_EQ(result.code, 0) << result.err;
  for (const char* word : {"complete", "H.264 High", "640x360", "AAC LC", "48000 Hz", "GPSR  13 positions", "moov"}) {
    EXPECT_THAT(result.out, HasSubstr(word));
  }
}

TEST_F(CliRead, CutRecording_GivesExitCode4AndItsReason) {
  const CliResult info = Zmv(folder_, {"info", Cut(0.6), "--json"});
  EXPECT_EQ(info.code, 4);
  const json parsed = json::parse(info.out);
  EXPECT_EQ(parsed["health"]["state"], "cut");
  EXPECT_TRUE(parsed["streams"].empty());
  EXPECT_EQ(parsed["recovery_boxes"].size(), 3u);
  EXPECT_EQ(Zmv(folder_, {"frames", Cut(0.6)}).code, 4);
  const CliResult exported = Zmv(folder_, {"export", Cut(0.6), "--video", folder_ / "v.h264"});
  EXPECT_EQ(exported.code, 4);
  EXPECT_THAT(exported.err, HasSubstr("cut before it was finished"));
  EXPECT_THAT(Zmv(folder_, {"frames", Cut(0.6)}).err, HasSubstr("zmv recover"));
  EXPECT_FALSE(std::filesystem::exists(folder_ / "v.h264"));
}

TEST_F(CliRead, ForeignEmptyAndMissingFiles_HaveTheirExitCodes) {
  WriteText(folder_ / "garbage", std::string(5000, 'g'));
  WriteText(folder_ / "empty", "");
  for (const std::string command : {"info", "frames"}) {
    EXPECT_EQ(Zmv(folder_, {command, folder_ / "garbage"}).code, 3);
    EXPECT_EQ(Zmv(folder_, {command, folder_ / "empty"}).code, 3);
    EXPECT_EQ(Zmv(folder_, {command, folder_ / "none"}).code, 1);
    EXPECT_EQ(Zmv(folder_, {command, folder_ / "."}).code, 1);
    EXPECT_EQ(Zmv(folder_, {command}).code, 2);
  }
}

TEST_F(CliRead, PayloadsMissingBehindAnIndex_GiveExitCode5) {
  // Chunk offsets that point behind the file: what an index looks like whose media was lost.
  Bytes file = ReadBytes(Drive());
  const char tag[] = "stco";
  const auto at = std::search(file.begin(), file.end(), tag, tag + 4);
  ASSERT_NE(at, file.end());
  constexpr std::ptrdiff_t kFirstOffset = 12;
  for (std::ptrdiff_t i = 0; i < 180 * 4; i += 4) at[kFirstOffset + i] = 0x7F;
  WriteBytes(folder_ / "lost.mp4", file);
  EXPECT_EQ(Zmv(folder_, {"frames", folder_ / "lost.mp4", "--media", "video"}).code, 5);
  EXPECT_EQ(Zmv(folder_, {"export", folder_ / "lost.mp4", "--video", folder_ / "v.h264"}).code, 5);
  EXPECT_EQ(Zmv(folder_, {"frames", folder_ / "lost.mp4", "--media", "audio"}).code, 0);
}

TEST_F(CliRead, Frames_AreInOrderAndTheirPositionsHoldTheirPayloads) {
  const CliResult result = Zmv(folder_, {"frames", Drive(), "--json"});
  ASSERT_EQ(result.code, 0) << result.err;
  const json frames = json::parse(result.out);
  ASSERT_EQ(frames.size(), 180u + 283 + 13);
  const Bytes file = ReadBytes(Drive());
  const std::vector<Bytes> pictures = Pictures(VideoCodec::kH264, ReadBytes(Sample("drive_h264.h264")));
  uint64_t last = 0;
  size_t picture = 0;
  for (const json& frame : frames) {
    const auto time = frame["time_ms"].get<uint64_t>();
    EXPECT_LE(last, time);
    last = time;
    const auto position = frame["position"].get<size_t>();
    const auto size = frame["size"].get<size_t>();
    ASSERT_LE(position + size, file.size());
    if (frame["media"] != "video") continue;
    const Bytes& expected = pictures[picture];
    EXPECT_EQ(size, expected.size() + 4);
    EXPECT_TRUE(std::equal(expected.begin(), expected.end(), file.begin() + static_cast<std::ptrdiff_t>(position) + 4));
    EXPECT_EQ(frame["key"], picture % 30 == 0);
    EXPECT_NEAR(frame["time_ms"].get<double>(), static_cast<double>(picture) * 1000 / 30, 1.0);
    ++picture;
  }
  EXPECT_EQ(picture, 180u);
}

TEST_F(CliRead, FramesForPeople_HaveOneLineEach) {
  const CliResult all = Zmv(folder_, {"frames", Drive()});
  ASSERT_EQ(all.code, 0);
  EXPECT_EQ(std::count(all.out.begin(), all.out.end(), '\n'), 1 + 180 + 283 + 13);
  const CliResult text = Zmv(folder_, {"frames", Drive(), "--media", "text", "--track", "0"});
  EXPECT_EQ(std::count(text.out.begin(), text.out.end(), '\n'), 1 + 13);
  EXPECT_EQ(Zmv(folder_, {"frames", Drive(), "--media", "text", "--track", "1"}).code, 1);
  EXPECT_EQ(Zmv(folder_, {"frames", Drive(), "--media", "smell"}).code, 2);
}

TEST_F(CliRead, Export_GivesTheSourceBack) {
  const std::string video = folder_ / "v.h264";
  const std::string audio = folder_ / "a.aac";
  const std::string text = folder_ / "t.bin";
  const CliResult result = Zmv(folder_, {"export", Drive(), "--video", video, "--audio", audio, "--text", text,
                                         "--repeat-parameters", "--json"});
  ASSERT_EQ(result.code, 0) << result.err;
  EXPECT_EQ(json::parse(result.out).size(), 3u);
  // The sample has its parameter sets in front of every key frame, so all its NAL units come back in order.
  EXPECT_EQ(AllNals(ReadBytes(video)), AllNals(ReadBytes(Sample("drive_h264.h264"))));
  EXPECT_EQ(ReadBytes(audio), ReadBytes(Sample("drive_aac.aac")));
  const Bytes payloads = ReadBytes(text);
  const GpsTrack drive = LoadGpsFile(Sample("drive_gps.gpx"));
  ASSERT_EQ(payloads.size(), drive.points.size() * kTelemetrySize);
  for (size_t i = 0; i < drive.points.size(); ++i) {
    const auto point = UnpackTelemetry(ByteView(payloads).subspan(i * kTelemetrySize, kTelemetrySize));
    ASSERT_TRUE(point);
    EXPECT_EQ(point->utc_us, drive.points[i].utc_us);
    EXPECT_EQ(point->latitude, drive.points[i].latitude);
    EXPECT_EQ(point->speed, drive.points[i].speed);
  }
}

TEST_F(CliRead, Export_WritesParameterSetsOnceByDefault) {
  const std::string video = folder_ / "v.h264";
  ASSERT_EQ(Zmv(folder_, {"export", Drive(), "--video", video}).code, 0);
  const std::vector<Bytes> nals = AllNals(ReadBytes(video));
  EXPECT_EQ(nals.size(), 180u + 2);
  EXPECT_EQ(NalType(VideoCodec::kH264, nals[0]), 7);
  EXPECT_EQ(NalType(VideoCodec::kH264, nals[1]), 8);
}

TEST_F(CliRead, ExportOfEscapedParameterSets_GivesThemBackEscaped) {
  struct Case {
    const char* sample;
    const char* out;
    VideoCodec codec;
  };
  for (const Case& c :
       {Case{"epb_h264.h264", "v.h264", VideoCodec::kH264}, Case{"epb_hevc.hevc", "v.hevc", VideoCodec::kHevc}}) {
    const std::string recording = folder_ / (std::string(c.out) + ".mp4");
    ASSERT_EQ(Zmv(folder_, {"import", Sample(c.sample), "-o", recording}).code, 0);
    ASSERT_EQ(Zmv(folder_, {"export", recording, "--video", folder_ / c.out}).code, 0);
    PictureFilter source(c.codec);
    PictureFilter back(c.codec);
    source.Learn(ReadBytes(Sample(c.sample)));
    back.Learn(ReadBytes(folder_ / c.out));
    EXPECT_EQ(back.ParameterSets(), source.ParameterSets()) << c.sample;
    EXPECT_EQ(Pictures(c.codec, ReadBytes(folder_ / c.out)), Pictures(c.codec, ReadBytes(Sample(c.sample))))
        << c.sample;
  }
}

TEST_F(CliRead, ExportOfPicturesWithSlices_GivesTheirUnitsBack) {
  const std::string recording = folder_ / "units.mp4";
  ASSERT_EQ(Zmv(folder_, {"import", Sample("units_h264.h264"), "-o", recording, "--allow-slices"}).code, 0);
  ASSERT_EQ(Zmv(folder_, {"export", recording, "--video", folder_ / "v.h264"}).code, 0);
  EXPECT_EQ(Pictures(VideoCodec::kH264, ReadBytes(folder_ / "v.h264")),
            Pictures(VideoCodec::kH264, ReadBytes(Sample("units_h264.h264"))));
}

TEST_F(CliRead, ExportRefusals_LeaveFilesAlone) {
  WriteText(folder_ / "v.h264", "precious");
  EXPECT_EQ(Zmv(folder_, {"export", Drive(), "--video", folder_ / "v.h264"}).code, 1);
  EXPECT_EQ(TextOf(folder_ / "v.h264"), "precious");
  EXPECT_EQ(Zmv(folder_, {"export", Drive()}).code, 2);
  EXPECT_EQ(Zmv(folder_, {"export", Drive(), "--video", folder_ / "w.h264", "--track", "1"}).code, 1);
  EXPECT_FALSE(std::filesystem::exists(folder_ / "w.h264"));
  const Bytes before = ReadBytes(Drive());
  EXPECT_EQ(Zmv(folder_, {"export", Drive(), "--video", Drive(), "--force"}).code, 1);
  EXPECT_EQ(ReadBytes(Drive()), before);
}

TEST_F(CliRead, Quiet_SaysNothingWhenAllIsWell) {
  const CliResult result = Zmv(folder_, {"export", Drive(), "--audio", folder_ / "a.aac", "--quiet"});
  EXPECT_EQ(result.code, 0);
  EXPECT_EQ(result.out + result.err, "");
}

}  // namespace
}  // namespace zmv::tool

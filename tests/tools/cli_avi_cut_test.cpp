// The tool on AVI recordings whose power was cut, and on files that were shortened later.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/tools/cli.h"
#include "tools/zmv/annexb.h"

namespace zmv::tool {
namespace {

using nlohmann::json;
using testing::HasSubstr;

class CliAviCut : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    shared_ = new TempFolder;
    const CliResult made = Zmv(*shared_, {"import", Sample("drive_h264.h264"), Sample("drive_aac.aac"), "--gps",
                                          Sample("drive_gps.gpx"), "-o", *shared_ / "drive.avi"});
    ASSERT_EQ(made.code, 0) << made.err;
  }
  static void TearDownTestSuite() {
    delete shared_;
    shared_ = nullptr;
  }

  static size_t Media(const Bytes& file) {
    const char tag[] = {'m', 'o', 'v', 'i'};
    return static_cast<size_t>(std::search(file.begin(), file.end(), std::begin(tag), std::end(tag)) - file.begin());
  }

  // The first `part` of the drive as a power cut leaves it: without index and sizes.
  std::string Cut(double part) {
    Bytes file = ReadBytes(*shared_ / "drive.avi");
    std::fill_n(file.begin() + 4, 4, 0);
    std::fill_n(file.begin() + static_cast<std::ptrdiff_t>(Media(file)) - 4, 4, 0);
    file.resize(static_cast<size_t>(static_cast<double>(file.size()) * part));
    WriteBytes(cut_, file);
    return cut_;
  }

  static TempFolder* shared_;
  const TempFolder folder_;
  const std::string cut_ = folder_ / "cut.avi";
};

TempFolder* CliAviCut::shared_ = nullptr;

TEST_F(CliAviCut, Info_GivesExitCode4AndTheFramesThatAreThere) {
  const CliResult result = Zmv(folder_, {"info", Cut(0.5), "--json"});
  EXPECT_EQ(result.code, 4);
  EXPECT_THAT(result.err, HasSubstr("cut before it was finished"));
  const json info = json::parse(result.out);
  EXPECT_EQ(info["health"]["state"], "cut");
  EXPECT_TRUE(info["index"].is_null());
  ASSERT_EQ(info["streams"].size(), 3u);
  EXPECT_EQ(info["streams"][0]["config"].size(), 2u);
  EXPECT_GT(info["streams"][0]["frames"], 60);
  EXPECT_LT(info["streams"][0]["frames"], 120);
  EXPECT_EQ(info["streams"][2]["frames"], 0);
  EXPECT_GT(info["streams"][2]["frames_without_index"], 3);
}

TEST_F(CliAviCut, Frames_AreListedWithTheirKeyFlags) {
  const CliResult result = Zmv(folder_, {"frames", Cut(0.5), "--json"});
  EXPECT_EQ(result.code, 4);
  EXPECT_THAT(result.err, HasSubstr("cannot be told without an index"));
  int pictures = 0;
  for (const json& frame : json::parse(result.out)) {
    EXPECT_NE(frame["media"], "text");
    EXPECT_FALSE(frame["position"].is_null());
    if (frame["media"] != "video") continue;
    EXPECT_EQ(frame["key"], pictures % 30 == 0) << pictures;
    ++pictures;
  }
  const json info = json::parse(Zmv(folder_, {"info", cut_, "--json"}).out);
  EXPECT_EQ(info["streams"][0]["frames"], pictures);
}

TEST_F(CliAviCut, Export_WritesTheWholeFramesThatAreThere) {
  const CliResult result = Zmv(folder_, {"export", Cut(0.5), "--video", folder_ / "v.h264"});
  EXPECT_EQ(result.code, 4);
  std::vector<Bytes> there;
  const Bytes exported = ReadBytes(folder_ / "v.h264");
  for (const ByteView nal : SplitNals(exported)) {
    if (ClassifyNal(VideoCodec::kH264, nal) == NalKind::kPicture) there.emplace_back(nal.begin(), nal.end());
  }
  const Bytes sample = ReadBytes(Sample("drive_h264.h264"));
  size_t at = 0;
  for (const ByteView nal : SplitNals(sample)) {
    if (ClassifyNal(VideoCodec::kH264, nal) != NalKind::kPicture || at == there.size()) continue;
    ASSERT_EQ(Bytes(nal.begin(), nal.end()), there[at]) << at;
    ++at;
  }
  EXPECT_GT(at, 60u);
  EXPECT_EQ(at, there.size());
}

TEST_F(CliAviCut, Remux_MakesARecordingOfWhatIsThere) {
  const CliResult result = Zmv(folder_, {"remux", Cut(0.7), "-o", folder_ / "whole.avi"});
  EXPECT_EQ(result.code, 4);
  const CliResult info = Zmv(folder_, {"info", folder_ / "whole.avi", "--json"});
  EXPECT_EQ(info.code, 0);
  EXPECT_EQ(json::parse(info.out)["streams"].size(), 2u);
}

TEST_F(CliAviCut, Telemetry_SaysThatItNeedsTheIndex) {
  const CliResult result = Zmv(folder_, {"telemetry", Cut(0.7), "--format", "gpx"});
  EXPECT_EQ(result.code, 4);
  EXPECT_THAT(result.err, HasSubstr("those of text streams are not"));
}

TEST_F(CliAviCut, FileShortenedLater_IsReadByScanningToo) {
  Bytes file = ReadBytes(*shared_ / "drive.avi");
  const size_t media = Media(file);
  file.resize(file.size() / 2);
  WriteBytes(cut_, file);
  const CliResult half = Zmv(folder_, {"frames", cut_, "--media", "video"});
  EXPECT_EQ(half.code, 4);
  EXPECT_THAT(half.err, HasSubstr("the end of the file is missing"));
  // Nothing but headers.
  file.resize(media + 4);
  WriteBytes(cut_, file);
  const CliResult empty = Zmv(folder_, {"info", cut_});
  EXPECT_EQ(empty.code, 5);
  EXPECT_THAT(empty.err, HasSubstr("cut before its first frame"));
  EXPECT_EQ(Zmv(folder_, {"frames", cut_}).code, 5);
}

TEST_F(CliAviCut, IndexCutInTheMiddle_StillHasAllMedia) {
  Bytes file = ReadBytes(*shared_ / "drive.avi");
  file.resize(file.size() - 4000);
  WriteBytes(cut_, file);
  const CliResult info = Zmv(folder_, {"info", cut_, "--json"});
  EXPECT_EQ(info.code, 4);
  EXPECT_EQ(json::parse(info.out)["streams"][0]["frames"], 180);
  EXPECT_EQ(json::parse(info.out)["streams"][1]["frames"], 283);
}

TEST_F(CliAviCut, FramesMissingBehindTheIndex_GiveExitCode5) {
  // Entries that point behind the file: what an index looks like whose media was lost.
  Bytes file = ReadBytes(*shared_ / "drive.avi");
  const char tag[] = {'i', 'd', 'x', '1'};
  const auto index = std::search(file.begin(), file.end(), std::begin(tag), std::end(tag)) - file.begin();
  const auto entries = (file.size() - static_cast<size_t>(index)) / 16;
  for (size_t entry = entries / 2; entry < entries - 25; ++entry) {
    file[static_cast<size_t>(index) + 8 + entry * 16 + 8 + 3] = 0x7F;
  }
  WriteBytes(cut_, file);
  const CliResult result = Zmv(folder_, {"frames", cut_});
  EXPECT_EQ(result.code, 5);
  EXPECT_THAT(result.err, HasSubstr("of 180 frames can be read"));
}

TEST_F(CliAviCut, OtherRiffFiles_AreNoRecordings) {
  WriteText(folder_ / "sound.wav", "RIFF" + std::string(4, '\x20') + "WAVE" + std::string(500, 'x'));
  for (const std::string command : {"info", "frames"})
    EXPECT_EQ(Zmv(folder_, {command, folder_ / "sound.wav"}).code, 3);
}

}  // namespace
}  // namespace zmv::tool

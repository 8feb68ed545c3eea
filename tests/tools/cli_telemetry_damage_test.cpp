// `zmv telemetry` on recordings that are cut or damaged, and on text frames that are no positions.
#include <gmock/gmock.h>

#include <algorithm>

#include "tests/tools/cli_telemetry.h"

namespace zmv::tool {
namespace {

using testing::HasSubstr;

TEST_F(CliTelemetry, RecordingsCutInTheirFrames_TellTheDriveUpToThere) {
  Record({0, 1, 2, 3});
  const std::string whole = Out("gpx");
  Bytes file = ReadBytes(path_);
  const Bytes last = PayloadOf(At(3));
  const auto at = std::search(file.begin(), file.end(), last.begin(), last.end());
  ASSERT_NE(at, file.end());
  file.erase(at + 91, file.end());  // a byte short
  const char tag[] = "mdat";
  const uint8_t open[] = {0, 0, 0, 8};
  std::copy(std::begin(open), std::end(open), std::search(file.begin(), file.end(), tag, tag + 4) - 4);
  WriteBytes(path_, file);
  const CliResult result = Run("gpx");
  EXPECT_EQ(result.code, 4);
  EXPECT_THAT(result.err, HasSubstr("can be rebuilt"));
  Record({0, 1, 2});
  EXPECT_EQ(result.out, Out("gpx"));
  WriteBytes(path_, file);
  const json report = ReportOf(4);
  EXPECT_EQ(report["source"], "text frames");
  EXPECT_EQ(report["points"], 3);
  EXPECT_EQ(report["state"], "cut");
  EXPECT_EQ(Run("gpx", {"--track", "1"}).code, 4);
}

TEST_F(CliTelemetry, TextFramesThatCannotBeRead_ArePassedOverAndCounted) {
  Record({0, 1, 2, 3, 4}, "test");
  Bytes file = ReadBytes(path_);
  const char tag[] = "stco";
  const auto at = std::find_end(file.begin(), file.end(), tag, tag + 4);  // of the text track, which is last
  ASSERT_NE(at, file.end());
  constexpr std::ptrdiff_t kFirstOffset = 12;
  at[kFirstOffset + 4 * 2] = 0x7F;  // the third stands behind the end of the file
  WriteBytes(path_, file);
  const json report = ReportOf(5);
  EXPECT_EQ(report["points"], 4);
  EXPECT_EQ(report["missing_frames"], 1);
  EXPECT_THAT(Run("csv").out, HasSubstr(",4000\n"));
}

TEST_F(CliTelemetry, FilesWithoutPositions_HaveTheirExitCodes) {
  WriteSmallRecording(path_, {PayloadOf(At(0))});
  Bytes file = ReadBytes(path_);
  const char tag[] = "mdat";
  const auto at = std::search(file.begin(), file.end(), tag, tag + 4);
  file.resize(static_cast<size_t>(at - file.begin()) + 100);
  WriteBytes(folder_ / "cut.mp4", file);
  EXPECT_EQ(Zmv(folder_, {"telemetry", folder_ / "cut.mp4", "--format", "gpx"}).code, 4);
  WriteText(folder_ / "garbage", std::string(100, 'g'));
  const std::string out = folder_ / "none.gpx";
  EXPECT_EQ(Zmv(folder_, {"telemetry", folder_ / "garbage", "--format", "gpx", "-o", out}).code, 3);
  EXPECT_FALSE(std::filesystem::exists(out));
  EXPECT_EQ(Run("gpx", {"--track", "1"}).code, 1);
}

TEST_F(CliTelemetry, BoxThatPromisesMoreThanTheFileHas_EndsWithTheFile) {
  Record({0, 1, 2});
  EXPECT_EQ(Run("csv", {"--track", "1"}).code, 1);
  Bytes file = ReadBytes(path_);
  const char tag[] = "GPSR";
  const auto at = std::search(file.begin(), file.end(), tag, tag + 4);
  ASSERT_NE(at, file.end());
  const uint8_t huge[] = {0xFF, 0xFF, 0xFF, 0xF0};
  std::copy(std::begin(huge), std::end(huge), at - 4);
  file.resize(static_cast<size_t>(at - file.begin()) + 4 + 2 * 80 + 40);  // two entries and a half
  WriteBytes(path_, file);
  // The frames of the text track are all there.
  json report = ReportOf(4);
  EXPECT_EQ(report["source"], "text frames");
  EXPECT_EQ(report["points"], 3);
  // Without their records there is nothing but the two.
  const char record[] = "RECO";
  const char data[] = "mdat";
  auto first = std::search(std::search(file.begin(), file.end(), data, data + 4), file.end(), record, record + 4);
  first[3] = '0';
  WriteBytes(path_, file);
  report = ReportOf(4);
  EXPECT_EQ(report["source"], "boxes");
  EXPECT_EQ(report["points"], 2);
}

TEST_F(CliTelemetry, FilesCutBehindTheirBoxes_StillTellTheDrive) {
  Record({0, 1, 2});
  const std::string whole = Out("gpx");
  Bytes file = ReadBytes(path_);
  file.resize(file.size() - 20);  // the index is cut, the boxes stand before it
  WriteBytes(path_, file);
  const CliResult result = Run("gpx");
  EXPECT_EQ(result.code, 4);
  EXPECT_EQ(result.out, whole);
}

TEST_F(CliTelemetry, BoxesThatRanFull_GiveWayToTextFrames) {
  ZMVFileInfo info = SmallInfo("F test");
  info.dwDuration = 1;
  info.m_Text[0].dwRate = 1;  // room for two entries
  Console console;
  RecorderOptions options;
  options.path = path_;
  Recorder recorder(options, info, {33333, kSmallAudioFrameUs, kSecond}, console);
  recorder.Write(SmallPicture(0));
  recorder.Write(SmallSound(0));
  for (int64_t i = 0; i < 5; ++i) recorder.Write(SmallText(i * kSecond, PayloadOf(At(i))));
  recorder.Finish();
  EXPECT_EQ(json::parse(Zmv(folder_, {"info", path_, "--json"}).out)["user"]["gps_entries"], 2);
  const json report = Report();
  EXPECT_EQ(report["source"], "text frames");
  EXPECT_EQ(report["points"], 5);
}

TEST_F(CliTelemetry, EntryOfAnEarlierRecording_IsNotTakenForADrive) {
  Record({0, 1});
  WriteSmallRecording(path_, {});
  EXPECT_EQ(json::parse(Zmv(folder_, {"info", path_, "--json"}).out)["user"]["gps_entries"], 1);
  EXPECT_EQ(Run("gpx").code, 1);
}

TEST_F(CliTelemetry, UnknownPayloads_AreLeftOutAndCounted) {
  WriteSmallRecording(path_, {Bytes(92, 0x20), PayloadOf(At(1)), Bytes(10, 1)});
  const CliResult result = Run("csv");
  EXPECT_EQ(result.code, 0);
  EXPECT_THAT(result.err, HasSubstr("2 samples are in another layout"));
  EXPECT_EQ(std::count(result.out.begin(), result.out.end(), '\n'), 2);
}

}  // namespace
}  // namespace zmv::tool

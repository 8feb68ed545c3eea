// `zmv recover` and what `zmv info` says of recordings that are cut or damaged.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <thread>

#include "tests/tools/cli.h"
#include "tests/tools/small_recording.h"

namespace zmv::tool {
namespace {

using nlohmann::json;
using testing::HasSubstr;
using testing::Not;

constexpr size_t kSector = 512;
constexpr int64_t kPictures = 60;
constexpr int64_t kStartUtcUs = 1700000000000000;

// One frame as `zmv frames` lists it, with its payload.
struct Listed {
  std::string media;
  uint64_t time = 0;
  bool key = false;
  Bytes payload;
  size_t position = 0;
  friend void PrintTo(const Listed& frame, std::ostream* out) {
    *out << frame.media << " at " << frame.time << " ms, " << frame.payload.size() << " bytes at " << frame.position;
  }
  bool operator==(const Listed& other) const {
    return media == other.media && time == other.time && key == other.key && payload == other.payload;
  }
};

class CliRecover : public testing::Test {
 protected:
  // Two seconds: pictures and sound in turn, two positions.
  void SetUp() override {
    Console console;
    RecorderOptions options;
    options.path = Whole();
    Recorder recorder(options, SmallInfo("F test"), {33333, kSmallAudioFrameUs, 1000000}, console);
    GpsPoint point;
    for (int64_t i = 0; i < kPictures; ++i) {
      point.utc_us = kStartUtcUs + i * 33333;
      if (i % 30 == 0) recorder.Write(SmallText(i * 1000000 / 30, PayloadOf(point)));
      recorder.Write(SmallPicture(i));
      recorder.Write(SmallSound(i));
    }
    recorder.Finish();
  }

  std::string Whole() const { return folder_ / "whole.mp4"; }

  static size_t Find(const Bytes& file, const char* tag, size_t from = 0) {
    const auto at = std::search(file.begin() + static_cast<std::ptrdiff_t>(from), file.end(), tag, tag + 4);
    if (at == file.end()) throw std::runtime_error(std::string(tag) + " is missing");
    return static_cast<size_t>(at - file.begin());
  }
  static size_t DataOf(const Bytes& file) { return Find(file, "mdat") + 4; }

  // As a power cut leaves it: the size of the media data not yet written, and nothing behind `length`.
  static Bytes Opened(Bytes file, size_t length) {
    const Bytes open = {0, 0, 0, 8};
    std::copy(open.begin(), open.end(), file.begin() + static_cast<std::ptrdiff_t>(Find(file, "mdat")) - 4);
    file.resize(length);
    return file;
  }
  // Cut behind the first byte of a payload in the middle.
  Bytes CutBytes() const {
    const Bytes file = ReadBytes(Whole());
    constexpr size_t kRecord = 28;
    return Opened(file, Find(file, "RECO", DataOf(file) + 2000) + kRecord + 1);
  }
  std::string Cut() const {
    WriteBytes(folder_ / "cut.mp4", CutBytes());
    return folder_ / "cut.mp4";
  }
  // A sector of zeros in the middle of the frames.
  static Bytes Damaged(Bytes file) {
    const size_t at = (DataOf(file) + 1000) / kSector * kSector;
    std::fill_n(file.begin() + static_cast<std::ptrdiff_t>(at), kSector, uint8_t{0});
    return file;
  }

  std::vector<Listed> Frames(const std::string& path) const {
    const CliResult result = Zmv(folder_, {"frames", path, "--json"});
    EXPECT_EQ(result.code, 0) << result.err;
    const Bytes file = ReadBytes(path);
    std::vector<Listed> frames;
    for (const json& frame : json::parse(result.out)) {
      const auto position = frame["position"].get<size_t>();
      const auto from = file.begin() + static_cast<std::ptrdiff_t>(position);
      frames.push_back({frame["media"], frame["time_ms"], frame["key"],
                        Bytes(from, from + frame["size"].get<std::ptrdiff_t>()), position});
    }
    return frames;
  }
  // The frames of the whole recording that end within the first `length` bytes of it.
  std::vector<Listed> FramesWithin(size_t length) const {
    std::vector<Listed> within;
    for (const Listed& frame : Frames(Whole())) {
      if (frame.position + frame.payload.size() <= length) within.push_back(frame);
    }
    return within;
  }

  CliResult Recover(std::vector<std::string> arguments) const {
    arguments.insert(arguments.begin(), "recover");
    return Zmv(folder_, arguments);
  }

  const TempFolder folder_;
};

TEST_F(CliRecover, CutRecording_ComesBackInANewFile) {
  const std::string cut = Cut();
  const Bytes before = ReadBytes(cut);
  const std::string out = folder_ / "out.mp4";
  const CliResult result = Recover({cut, "-o", out});
  ASSERT_EQ(result.code, 0) << result.err;
  EXPECT_EQ(ReadBytes(cut), before);
  const std::vector<Listed> expected = FramesWithin(before.size());
  ASSERT_GT(expected.size(), 40u);
  EXPECT_EQ(Frames(out), expected);
  EXPECT_THAT(result.err, HasSubstr(std::to_string(expected.size()) + " of " + std::to_string(expected.size()) +
                                    " complete frames, up to 00:00:0"));
  EXPECT_THAT(result.err, HasSubstr("the last frame is not complete: 29 bytes of it left out"));
  EXPECT_THAT(result.err, Not(HasSubstr("warning")));
  EXPECT_EQ(Zmv(folder_, {"info", out}).code, 0);
}

TEST_F(CliRecover, InPlace_CompletesTheFileItself) {
  const std::string cut = Cut();
  const size_t length = ReadBytes(cut).size();
  const CliResult result = Recover({cut, "--in-place"});
  ASSERT_EQ(result.code, 0) << result.err;
  EXPECT_EQ(Frames(cut), FramesWithin(length));
  const json info = json::parse(Zmv(folder_, {"info", cut, "--json"}).out);
  EXPECT_EQ(info["health"]["state"], "complete");
  EXPECT_EQ(info["user"]["gps_entries"], 1);
}

TEST_F(CliRecover, JsonSaysWhatTheWordsSay) {
  const std::string cut = Cut();
  const CliResult result = Recover({cut, "-o", folder_ / "out.mp4", "--json"});
  ASSERT_EQ(result.code, 0) << result.err;
  const json report = json::parse(result.out);
  const std::vector<Listed> expected = FramesWithin(ReadBytes(cut).size());
  EXPECT_EQ(report["file"], cut);
  EXPECT_EQ(report["output"], folder_ / "out.mp4");
  EXPECT_EQ(report["in_place"], false);
  EXPECT_EQ(report["state"], "cut");
  EXPECT_EQ(report["frames"], expected.size());
  EXPECT_EQ(report["dropped"], 0);
  EXPECT_EQ(report["hole_count"], 0);
  EXPECT_EQ(report["incomplete_bytes"], 29);
  EXPECT_EQ(report["uniform_times"], false);
  ASSERT_EQ(report["streams"].size(), 3u);
  uint64_t last = 0;
  for (const Listed& frame : expected) last = std::max(last, frame.time);
  EXPECT_NEAR(report["up_to_ms"].get<double>(), static_cast<double>(last), 1.0);
}

TEST_F(CliRecover, UserBoxesNever_LeavesThemOut) {
  ASSERT_EQ(Recover({Cut(), "-o", folder_ / "out.mp4", "--user-boxes", "never"}).code, 0);
  const json info = json::parse(Zmv(folder_, {"info", folder_ / "out.mp4", "--json"}).out);
  EXPECT_TRUE(info["user"]["gps_entries"].is_null());
  EXPECT_EQ(Recover({Cut(), "-o", folder_ / "x.mp4", "--user-boxes", "maybe"}).code, 2);
}

TEST_F(CliRecover, DamagedSector_IsAHoleAndExitCode5) {
  WriteBytes(folder_ / "bad.mp4", Damaged(CutBytes()));
  const CliResult result = Recover({folder_ / "bad.mp4", "-o", folder_ / "out.mp4", "--json"});
  EXPECT_EQ(result.code, 5) << result.err;
  const json report = json::parse(result.out);
  EXPECT_EQ(report["state"], "damaged");
  ASSERT_EQ(report["hole_count"], 1);
  const Bytes file = ReadBytes(folder_ / "bad.mp4");
  const auto position = report["holes"][0]["position"].get<size_t>();
  const auto length = report["holes"][0]["length"].get<size_t>();
  EXPECT_EQ(report["hole_bytes"], length);
  const size_t sector = (DataOf(file) + 1000) / kSector * kSector;
  EXPECT_LE(position, sector);
  EXPECT_GE(position + length, sector + kSector);
  EXPECT_THAT(result.err, HasSubstr("warning: 1 hole of "));
  // Every frame is one that was recorded.
  const std::vector<Listed> recorded = Frames(Whole());
  const std::vector<Listed> back = Frames(folder_ / "out.mp4");
  EXPECT_EQ(back.size(), report["frames"]);
  EXPECT_GT(back.size(), 20u);
  for (const Listed& frame : back) {
    EXPECT_TRUE(std::any_of(recorded.begin(), recorded.end(),
                            [&](const Listed& other) { return other.payload == frame.payload; }));
  }
}

TEST_F(CliRecover, WholeRecording_IsLeftAloneInPlaceAndCopiedToAFile) {
  const Bytes before = ReadBytes(Whole());
  const CliResult in_place = Recover({Whole(), "--in-place"});
  EXPECT_EQ(in_place.code, 0);
  EXPECT_THAT(in_place.err, HasSubstr("is whole, nothing was changed"));
  EXPECT_EQ(ReadBytes(Whole()), before);
  EXPECT_EQ(Recover({Whole(), "-o", folder_ / "copy.mp4"}).code, 0);
  EXPECT_EQ(Frames(folder_ / "copy.mp4"), Frames(Whole()));
}

TEST_F(CliRecover, ExistingFiles_AreReplacedOnlyByForceAndOnlyByARecording) {
  const std::string out = folder_ / "out.mp4";
  WriteText(out, "precious");
  EXPECT_EQ(Recover({Cut(), "-o", out}).code, 1);
  EXPECT_EQ(TextOf(out), "precious");
  WriteText(folder_ / "garbage", std::string(5000, 'g'));
  EXPECT_EQ(Recover({folder_ / "garbage", "-o", out, "--force"}).code, 3);
  EXPECT_EQ(TextOf(out), "precious");
  EXPECT_EQ(Recover({Cut(), "-o", Cut(), "--force"}).code, 1);
  EXPECT_EQ(ReadBytes(folder_ / "cut.mp4"), CutBytes());
  EXPECT_EQ(Recover({Cut(), "-o", out, "--force"}).code, 0);
  EXPECT_EQ(Frames(out), FramesWithin(CutBytes().size()));
  EXPECT_FALSE(std::filesystem::exists(out + ".recovering"));
}

TEST_F(CliRecover, OutputThatIsNoPlainFile_IsRefusedAndStays) {
  const std::string out = folder_ / "out.mp4";
  ASSERT_EQ(mkfifo(out.c_str(), 0600), 0);
  const std::string cut = Cut();
  for (const std::vector<std::string>& more : {std::vector<std::string>{}, std::vector<std::string>{"--force"}}) {
    std::vector<std::string> arguments = {cut, "-o", out};
    arguments.insert(arguments.end(), more.begin(), more.end());
    const CliResult result = Recover(arguments);
    EXPECT_EQ(result.code, 1);
    EXPECT_THAT(result.err, HasSubstr(out + ": is not a plain file"));
    EXPECT_TRUE(std::filesystem::is_fifo(out));
  }
  std::filesystem::create_symlink(out, folder_ / "link.mp4");
  EXPECT_EQ(Recover({cut, "-o", folder_ / "link.mp4", "--force"}).code, 1);
  EXPECT_TRUE(std::filesystem::is_symlink(folder_ / "link.mp4"));
}

TEST_F(CliRecover, OutputThatCannotBeMade_IsNamedAndNotTheInput) {
  const std::string cut = Cut();
  WriteText(folder_ / "file", "no folder");
  constexpr size_t kTooLong = 300;
  for (const std::string& name :
       {std::string("none/out.mp4"), std::string("file/out.mp4"), std::string(kTooLong, 'n')}) {
    const CliResult result = Recover({cut, "-o", folder_ / name});
    EXPECT_EQ(result.code, 1);
    EXPECT_THAT(result.err, HasSubstr((folder_ / name) + ": cannot be written: "));
    EXPECT_THAT(result.err, Not(HasSubstr(cut)));
  }
}

TEST_F(CliRecover, FileSizeLimit_IsAFailureThatLeavesNoFile) {
  const std::string cut = Cut();
  const std::string out = folder_ / "out.mp4";
  const std::string command =
      "ulimit -f 1; exec " + Quoted(ZMV_TOOL_PATH) + " recover " + Quoted(cut) + " -o " + Quoted(out);
  std::string said;
  EXPECT_EQ(Program(folder_, "sh -c " + Quoted(command), said), 1);
  EXPECT_THAT(said, HasSubstr(out + ": cannot be written: "));
  EXPECT_FALSE(std::filesystem::exists(out));
}

TEST_F(CliRecover, WrongUseAndFilesThatAreNone_HaveTheirExitCodes) {
  const std::string out = folder_ / "out.mp4";
  WriteText(folder_ / "garbage", std::string(5000, 'g'));
  WriteText(folder_ / "empty", "");
  EXPECT_EQ(Recover({Cut()}).code, 2);
  EXPECT_EQ(Recover({Cut(), "-o", out, "--in-place"}).code, 2);
  EXPECT_EQ(Recover({Cut(), "--in-place", "--force"}).code, 2);
  EXPECT_EQ(Recover({"-o", out}).code, 2);
  EXPECT_EQ(Recover({folder_ / "garbage", "-o", out}).code, 3);
  EXPECT_EQ(Recover({folder_ / "garbage", "--in-place"}).code, 3);
  EXPECT_EQ(Recover({folder_ / "empty", "-o", out}).code, 3);
  EXPECT_EQ(Recover({folder_ / "none", "-o", out}).code, 1);
  EXPECT_EQ(Recover({folder_ / ".", "-o", out}).code, 1);
  EXPECT_EQ(Recover({Cut(), "-o", folder_ / "none/out.mp4"}).code, 1);
  EXPECT_FALSE(std::filesystem::exists(out));
  EXPECT_EQ(TextOf(folder_ / "garbage"), std::string(5000, 'g'));
}

TEST_F(CliRecover, ClosedAndDamaged_IsSaidToBeLeftAloneInPlace) {
  const Bytes damaged = Damaged(ReadBytes(Whole()));
  WriteBytes(folder_ / "bad.mp4", damaged);
  const CliResult result = Recover({folder_ / "bad.mp4", "--in-place", "--json"});
  EXPECT_EQ(result.code, 5);
  EXPECT_THAT(result.err, HasSubstr("its index is kept, nothing was changed"));
  EXPECT_THAT(result.err, testing::Not(HasSubstr("recovered")));
  EXPECT_EQ(json::parse(result.out)["changed"], false);
  EXPECT_EQ(ReadBytes(folder_ / "bad.mp4"), damaged);
}

TEST_F(CliRecover, CutBeforeItsFirstFrame_GivesExitCode5AndNoFile) {
  const Bytes file = ReadBytes(Whole());
  WriteBytes(folder_ / "early.mp4", Opened(file, DataOf(file) + 20));
  const CliResult result = Recover({folder_ / "early.mp4", "-o", folder_ / "out.mp4"});
  EXPECT_EQ(result.code, 5);
  EXPECT_THAT(result.err, HasSubstr("holds no complete frame"));
  EXPECT_FALSE(std::filesystem::exists(folder_ / "out.mp4"));
  const CliResult in_place = Recover({folder_ / "early.mp4", "--in-place"});
  EXPECT_EQ(in_place.code, 5);
  EXPECT_THAT(in_place.err, HasSubstr("it was completed as a recording without frames"));
}

TEST_F(CliRecover, WholeRecordingWithoutFrames_IsWhole) {
  const std::string empty = folder_ / "empty.mp4";
  const Bytes file = ReadBytes(Whole());
  WriteBytes(empty, Opened(file, DataOf(file)));
  ASSERT_EQ(Recover({empty, "--in-place"}).code, 5);
  const Bytes completed = ReadBytes(empty);
  const CliResult again = Recover({empty, "--in-place"});
  EXPECT_EQ(again.code, 0) << again.err;
  EXPECT_THAT(again.err, HasSubstr("is whole, nothing was changed"));
  EXPECT_THAT(again.err, HasSubstr("holds 0 of 0 complete frames"));
  EXPECT_EQ(ReadBytes(empty), completed);
  const CliResult copied = Recover({empty, "-o", folder_ / "copy.mp4"});
  EXPECT_EQ(copied.code, 0) << copied.err;
  EXPECT_EQ(Zmv(folder_, {"info", folder_ / "copy.mp4"}).code, 0);
}

TEST_F(CliRecover, LostFront_IsDescribedByAnotherRecording) {
  Bytes file = CutBytes();
  std::fill_n(file.begin(), DataOf(file), uint8_t{0});
  WriteBytes(folder_ / "front.mp4", file);
  const CliResult alone = Recover({folder_ / "front.mp4", "-o", folder_ / "alone.mp4"});
  EXPECT_EQ(alone.code, 5);
  EXPECT_THAT(alone.err, HasSubstr("description is lost of: video 0, audio 0, text 0"));
  const CliResult result = Recover({folder_ / "front.mp4", "-o", folder_ / "out.mp4", "--like", Whole()});
  EXPECT_EQ(result.code, 5) << result.err;
  EXPECT_THAT(result.err, Not(HasSubstr("description is lost")));
  const json whole = json::parse(Zmv(folder_, {"info", Whole(), "--json"}).out);
  const json info = json::parse(Zmv(folder_, {"info", folder_ / "out.mp4", "--json"}).out);
  ASSERT_EQ(info["streams"].size(), 3u);
  EXPECT_EQ(info["streams"][0]["config"], whole["streams"][0]["config"]);
  EXPECT_EQ(info["streams"][1]["sample_rate"], kSmallSampleRate);
  // Milliseconds are all that the records tell of the time in front of the first frame.
  std::vector<Listed> back = Frames(folder_ / "out.mp4");
  std::vector<Listed> stored = FramesWithin(file.size());
  ASSERT_EQ(back.size(), stored.size());
  const auto in_file = [](const Listed& a, const Listed& b) { return a.position < b.position; };
  std::sort(back.begin(), back.end(), in_file);
  std::sort(stored.begin(), stored.end(), in_file);
  for (size_t i = 0; i < back.size(); ++i) {
    EXPECT_NEAR(static_cast<double>(back[i].time), static_cast<double>(stored[i].time), 1.0) << i;
    back[i].time = stored[i].time;
    EXPECT_EQ(back[i], stored[i]) << i;
  }
  // A recording without text tells nothing of the text.
  {
    Console console;
    RecorderOptions options;
    options.path = folder_ / "mute.mp4";
    Recorder recorder(options, SmallInfo("test", 0), {33333, kSmallAudioFrameUs}, console);
    recorder.Write(SmallPicture(0));
    recorder.Finish();
  }
  const CliResult partly = Recover({folder_ / "front.mp4", "-o", folder_ / "y.mp4", "--like", folder_ / "mute.mp4"});
  EXPECT_THAT(partly.err, HasSubstr("description is lost of: text 0;"));
  WriteText(folder_ / "garbage", std::string(5000, 'g'));
  EXPECT_EQ(Recover({folder_ / "front.mp4", "-o", folder_ / "x.mp4", "--like", folder_ / "garbage"}).code, 3);
}

// ---- Ctrl-C

TEST_F(CliRecover, Interrupt_EndsItWithoutANewFile) {
  constexpr int64_t kLarge = 160;
  const std::string long_one = folder_ / "long.mp4";
  {
    Console console;
    RecorderOptions options;
    options.path = long_one;
    Recorder recorder(options, SmallInfo("test", 0), {33333, kSmallAudioFrameUs}, console);
    for (int64_t i = 0; i < kLarge; ++i) {
      MediaFrame picture = SmallPicture(i);
      picture.data.resize(size_t{1} << 20, 0x55);
      recorder.Write(picture);
    }
    recorder.Finish();
  }
  const std::string out = folder_ / "out.mp4";
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    execl(ZMV_TOOL_PATH, "zmv", "recover", long_one.c_str(), "-o", out.c_str(), "--quiet", nullptr);
    _exit(127);
  }
  // Stopped as soon as the new file shows, and told while it waits.
  while (!std::filesystem::exists(out) && waitpid(child, nullptr, WNOHANG) == 0) {
    std::this_thread::sleep_for(std::chrono::microseconds(100));
  }
  kill(child, SIGINT);
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 1);
  EXPECT_FALSE(std::filesystem::exists(out));
}

// ---- zmv info

TEST_F(CliRecover, InfoOfACutRecording_SaysWhatComesBack) {
  const std::string cut = Cut();
  const size_t frames = FramesWithin(ReadBytes(cut).size()).size();
  const CliResult result = Zmv(folder_, {"info", cut, "--json"});
  EXPECT_EQ(result.code, 4);
  const json info = json::parse(result.out);
  EXPECT_EQ(info["health"]["state"], "cut");
  EXPECT_EQ(info["recovery"]["state"], "cut");
  EXPECT_EQ(info["recovery"]["frames"], frames);
  EXPECT_EQ(info["recovery"]["can_in_place"], true);
  const CliResult words = Zmv(folder_, {"info", cut});
  EXPECT_THAT(words.out, HasSubstr("Recovery\n  " + std::to_string(frames) + " of " + std::to_string(frames) +
                                   " complete frames, up to "));
}

TEST_F(CliRecover, InfoOfADamagedRecording_NamesItsHoles) {
  WriteBytes(folder_ / "bad.mp4", Damaged(CutBytes()));
  const CliResult result = Zmv(folder_, {"info", folder_ / "bad.mp4", "--json"});
  EXPECT_EQ(result.code, 5);
  const json info = json::parse(result.out);
  EXPECT_EQ(info["health"]["state"], "damaged");
  EXPECT_THAT(info["health"]["message"].get<std::string>(), HasSubstr("1 hole of "));
  EXPECT_EQ(info["recovery"]["hole_count"], 1);
}

TEST_F(CliRecover, InfoOfARecordingWithoutItsFront_KnowsItByItsFrames) {
  Bytes file = CutBytes();
  std::fill_n(file.begin(), DataOf(file), uint8_t{0});
  WriteBytes(folder_ / "front.mp4", file);
  const CliResult result = Zmv(folder_, {"info", folder_ / "front.mp4", "--json"});
  EXPECT_EQ(result.code, 5) << result.err;
  EXPECT_EQ(json::parse(result.out)["recovery"]["frames"], FramesWithin(file.size()).size());
}

TEST_F(CliRecover, InfoOfAWholeRecording_LooksAtItsFramesOnlyWhenAsked) {
  const json fast = json::parse(Zmv(folder_, {"info", Whole(), "--json"}).out);
  EXPECT_FALSE(fast.contains("recovery"));
  const CliResult checked = Zmv(folder_, {"info", Whole(), "--json", "--check"});
  EXPECT_EQ(checked.code, 0);
  EXPECT_EQ(json::parse(checked.out)["recovery"]["state"], "whole");
  WriteBytes(folder_ / "bad.mp4", Damaged(ReadBytes(Whole())));
  EXPECT_EQ(Zmv(folder_, {"info", folder_ / "bad.mp4"}).code, 0);
  EXPECT_EQ(Zmv(folder_, {"info", folder_ / "bad.mp4", "--check"}).code, 5);
}

TEST_F(CliRecover, InfoOfABrokenIndex_SaysThatTheFramesAreThere) {
  Bytes file = ReadBytes(Whole());
  const size_t trak = Find(file, "trak", Find(file, "moov"));
  std::fill_n(file.begin() + static_cast<std::ptrdiff_t>(trak) - 4, 200, uint8_t{0xFF});
  WriteBytes(folder_ / "index.mp4", file);
  const CliResult result = Zmv(folder_, {"info", folder_ / "index.mp4", "--json"});
  EXPECT_EQ(result.code, 4) << result.err;
  EXPECT_EQ(json::parse(result.out)["recovery"]["frames"], Frames(Whole()).size());
  ASSERT_EQ(Recover({folder_ / "index.mp4", "--in-place"}).code, 0);
  EXPECT_EQ(Frames(folder_ / "index.mp4"), Frames(Whole()));
}

}  // namespace
}  // namespace zmv::tool

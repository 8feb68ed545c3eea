// `zmv recover` and what `zmv info` says of AVI recordings that are cut or damaged.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <map>

#include "tests/tools/cli.h"
#include "tests/tools/small_recording.h"

namespace zmv::tool {
namespace {

using nlohmann::json;
using testing::AllOf;
using testing::Each;
using testing::HasSubstr;
using testing::Not;

constexpr size_t kSector = 512;
constexpr int64_t kPictures = 90;
constexpr size_t kComplete = 141;  // frames in front of the cut, which goes through a picture
constexpr const char* kUniform = "times are uniform, computed from the rate: an AVI stores none";

// A chunk of the file, and where it ends.
struct Chunk {
  std::string media;
  Bytes payload;
  size_t end = 0;
  bool operator==(const Chunk& other) const { return media == other.media && payload == other.payload; }
};

class CliRecoverAvi : public testing::Test {
 protected:
  // Three seconds: pictures of every length and sound in turn, a position each second.
  void SetUp() override {
    Console console;
    RecorderOptions options;
    options.path = Whole();
    options.container = Container::kAvi;
    Recorder recorder(options, SmallInfo("camera 7"), {33333, kSmallAudioFrameUs, 1000000}, console);
    GpsPoint point;
    for (int64_t i = 0; i < kPictures; ++i) {
      point.utc_us = 1700000000000000 + i * 33333;
      if (i % 30 == 0) recorder.Write(SmallText(i * 1000000 / 30, PayloadOf(point)));
      MediaFrame picture = SmallPicture(i);
      picture.data[4] = i % 30 == 0 ? 0x65 : 0x41;
      picture.data.resize(picture.data.size() + static_cast<size_t>(i) * 5 % 97, static_cast<uint8_t>(1 + i));
      recorder.Write(picture);
      recorder.Write(SmallSound(i));
    }
    recorder.Finish();
  }

  std::string Whole() const { return folder_ / "whole.avi"; }

  static size_t Find(const Bytes& file, const char* tag) {
    const auto at = std::search(file.begin(), file.end(), tag, tag + 4);
    if (at == file.end()) throw std::runtime_error(std::string(tag) + " is missing");
    return static_cast<size_t>(at - file.begin());
  }
  // Where the first chunk stands.
  static size_t DataOf(const Bytes& file) { return Find(file, "movi") + 4; }
  static uint32_t Number(const Bytes& file, size_t at) {
    return uint32_t{file.at(at)} | uint32_t{file.at(at + 1)} << 8 | uint32_t{file.at(at + 2)} << 16 |
           uint32_t{file.at(at + 3)} << 24;
  }

  // As a power cut leaves it: no sizes, no index, and nothing behind `length`.
  static Bytes Opened(Bytes file, size_t length) {
    std::fill_n(file.begin() + 4, 4, uint8_t{0});
    std::fill_n(file.begin() + static_cast<std::ptrdiff_t>(DataOf(file)) - 8, 4, uint8_t{0});
    file.resize(length);
    return file;
  }
  Bytes CutBytes() const {
    const Bytes file = ReadBytes(Whole());
    return Opened(file, ChunksOf(file).at(kComplete).end - 1);
  }
  std::string Cut() const {
    WriteBytes(folder_ / "cut.avi", CutBytes());
    return folder_ / "cut.avi";
  }
  // A sector of zeros in the middle of the frames.
  static size_t DamagedSector(const Bytes& file) { return (DataOf(file) + 1500) / kSector * kSector; }
  std::string Damaged(Bytes file) const {
    std::fill_n(file.begin() + static_cast<std::ptrdiff_t>(DamagedSector(file)), kSector, uint8_t{0});
    WriteBytes(folder_ / "bad.avi", file);
    return folder_ / "bad.avi";
  }

  // The chunks that follow each other from the beginning of the movi list on.
  static std::vector<Chunk> ChunksOf(const Bytes& file) {
    static const std::map<std::string, std::string> kMedia = {{"00dc", "video"}, {"01wb", "audio"}, {"02tx", "text"}};
    std::vector<Chunk> chunks;
    for (size_t at = DataOf(file); at + 8 <= file.size();) {
      const auto media = kMedia.find(std::string(file.begin() + static_cast<std::ptrdiff_t>(at),
                                                 file.begin() + static_cast<std::ptrdiff_t>(at) + 4));
      const size_t size = Number(file, at + 4);
      if (media == kMedia.end() || size > file.size() - at - 8) break;
      const auto begin = file.begin() + static_cast<std::ptrdiff_t>(at) + 8;
      chunks.push_back({media->second, Bytes(begin, begin + static_cast<std::ptrdiff_t>(size)), at + 8 + size});
      at += 8 + size + size % 2;
    }
    return chunks;
  }
  std::vector<Chunk> ChunksWithin(size_t length) const {
    std::vector<Chunk> chunks = ChunksOf(ReadBytes(Whole()));
    std::erase_if(chunks, [&](const Chunk& chunk) { return chunk.end > length; });
    return chunks;
  }
  // The frames of a medium as `zmv frames` lists them: their times and key flags.
  std::vector<std::pair<uint64_t, bool>> Listed(const std::string& path, const std::string& media) const {
    const CliResult result = Zmv(folder_, {"frames", path, "--json"});
    EXPECT_EQ(result.code, 0) << result.err;
    std::vector<std::pair<uint64_t, bool>> frames;
    for (const json& frame : json::parse(result.out)) {
      if (frame["media"] == media) frames.emplace_back(frame["time_ms"], frame["key"]);
    }
    return frames;
  }

  CliResult Recover(std::vector<std::string> arguments) const {
    arguments.insert(arguments.begin(), "recover");
    return Zmv(folder_, arguments);
  }
  json Info(const std::string& path) const { return json::parse(Zmv(folder_, {"info", path, "--json"}).out); }

  const TempFolder folder_;
};

TEST_F(CliRecoverAvi, CutRecording_ComesBackInANewFile) {
  const std::string cut = Cut();
  const Bytes before = ReadBytes(cut);
  const std::string out = folder_ / "out.avi";
  const CliResult result = Recover({cut, "-o", out});
  ASSERT_EQ(result.code, 0) << result.err;
  EXPECT_EQ(ReadBytes(cut), before);
  EXPECT_EQ(ChunksOf(ReadBytes(out)), ChunksWithin(before.size()));
  EXPECT_THAT(result.err, HasSubstr("141 of 141 complete frames, up to 00:00:02.2"));
  EXPECT_THAT(result.err, HasSubstr("the last frame is not complete: "));
  EXPECT_THAT(result.err, HasSubstr(kUniform));
  EXPECT_THAT(result.err, Not(HasSubstr("warning")));
  EXPECT_EQ(Zmv(folder_, {"info", out, "--check"}).code, 0);
}

TEST_F(CliRecoverAvi, InPlace_CompletesTheFileItself) {
  const std::string cut = Cut();
  const size_t length = ReadBytes(cut).size();
  const CliResult result = Recover({cut, "--in-place"});
  ASSERT_EQ(result.code, 0) << result.err;
  EXPECT_THAT(result.err, HasSubstr(kUniform));
  EXPECT_EQ(ChunksOf(ReadBytes(cut)), ChunksWithin(length));
  const json info = Info(cut);
  EXPECT_EQ(info["health"]["state"], "complete");
  EXPECT_EQ(info["index"], "idx1");
  // Key frames by the index, times as they were while nothing was missing.
  const auto pictures = Listed(cut, "video");
  ASSERT_GT(pictures.size(), 60u);
  const auto recorded = Listed(Whole(), "video");
  EXPECT_TRUE(std::equal(pictures.begin(), pictures.end(), recorded.begin()));
  EXPECT_EQ(Listed(cut, "text").size(), 3u);
  EXPECT_EQ(Zmv(folder_, {"info", cut, "--check"}).code, 0);
}

TEST_F(CliRecoverAvi, JsonSaysWhatTheWordsSay) {
  const std::string cut = Cut();
  const CliResult result = Recover({cut, "-o", folder_ / "out.avi", "--json"});
  ASSERT_EQ(result.code, 0) << result.err;
  const json report = json::parse(result.out);
  EXPECT_EQ(report["file"], cut);
  EXPECT_EQ(report["output"], folder_ / "out.avi");
  EXPECT_EQ(report["in_place"], false);
  EXPECT_EQ(report["container"], "AVI");
  EXPECT_EQ(report["state"], "cut");
  EXPECT_EQ(report["frames"], kComplete);
  EXPECT_EQ(report["dropped"], 0);
  EXPECT_EQ(report["hole_count"], 0);
  EXPECT_EQ(report["uniform_times"], true);
  EXPECT_EQ(report["telemetry"], false);
  EXPECT_EQ(report["can_in_place"], true);
  EXPECT_THAT(report["messages"], testing::Contains(kUniform));
  const std::vector<Chunk> chunks = ChunksWithin(ReadBytes(cut).size());
  EXPECT_EQ(report["data_end"], chunks.back().end);
  EXPECT_EQ(report["incomplete_bytes"], ReadBytes(cut).size() - chunks.back().end - chunks.back().payload.size() % 2);
  ASSERT_EQ(report["streams"].size(), 3u);
  for (const json& stream : report["streams"]) {
    const auto count =
        std::count_if(chunks.begin(), chunks.end(), [&](const Chunk& chunk) { return chunk.media == stream["media"]; });
    EXPECT_EQ(stream["frames"], count) << stream;
    EXPECT_EQ(stream["described"], true);
  }
  EXPECT_EQ(report["streams"][0]["key_frames"], 3);
}

TEST_F(CliRecoverAvi, DamagedSector_IsAHoleAndExitCode5) {
  for (const bool in_place : {false, true}) {
    const std::string bad = Damaged(CutBytes());
    const Bytes before = ReadBytes(bad);
    const std::string result_path = in_place ? bad : folder_ / "out.avi";
    const CliResult result =
        in_place ? Recover({bad, "--in-place", "--json"}) : Recover({bad, "-o", result_path, "--json"});
    EXPECT_EQ(result.code, 5) << result.err;
    const json report = json::parse(result.out);
    EXPECT_EQ(report["state"], "damaged");
    ASSERT_EQ(report["hole_count"], 1);
    const auto position = report["holes"][0]["position"].get<size_t>();
    const auto length = report["holes"][0]["length"].get<size_t>();
    EXPECT_EQ(report["hole_bytes"], length);
    // With the frames that are dropped because the sector holds a piece of them, it covers the sector.
    const size_t sector = DamagedSector(before);
    EXPECT_LT(position, sector + kSector);
    EXPECT_GE(position + length, sector + kSector);
    EXPECT_THAT(result.err, AllOf(HasSubstr("warning: 1 hole of "), HasSubstr(kUniform)));
    // What comes back are all the frames that the sector does not touch.
    std::vector<Chunk> untouched = ChunksWithin(before.size());
    std::erase_if(untouched, [&](const Chunk& chunk) {
      return chunk.end > sector && chunk.end - chunk.payload.size() - 8 < sector + kSector;
    });
    EXPECT_EQ(report["frames"], untouched.size());
    if (!in_place) {
      EXPECT_EQ(ChunksOf(ReadBytes(result_path)), untouched);
    }
    size_t listed = 0;
    for (const char* media : {"video", "audio", "text"}) listed += Listed(result_path, media).size();
    EXPECT_EQ(listed, untouched.size());
  }
}

TEST_F(CliRecoverAvi, WholeRecording_IsLeftAloneInPlaceAndCopiedToAFile) {
  const Bytes before = ReadBytes(Whole());
  const CliResult in_place = Recover({Whole(), "--in-place"});
  EXPECT_EQ(in_place.code, 0);
  EXPECT_THAT(in_place.err, HasSubstr("is whole, nothing was changed"));
  EXPECT_EQ(ReadBytes(Whole()), before);
  EXPECT_EQ(Recover({Whole(), "-o", folder_ / "copy.avi"}).code, 0);
  EXPECT_EQ(ChunksOf(ReadBytes(folder_ / "copy.avi")), ChunksOf(before));
  for (const char* media : {"video", "audio", "text"}) {
    EXPECT_EQ(Listed(folder_ / "copy.avi", media), Listed(Whole(), media)) << media;
  }
}

TEST_F(CliRecoverAvi, ClosedAndDamaged_StaysAsItIsInPlace) {
  const std::string bad = Damaged(ReadBytes(Whole()));
  const Bytes before = ReadBytes(bad);
  EXPECT_EQ(Recover({bad, "--in-place"}).code, 5);
  EXPECT_EQ(ReadBytes(bad), before);
  EXPECT_EQ(Zmv(folder_, {"info", bad}).code, 0);
  EXPECT_EQ(Zmv(folder_, {"info", bad, "--check"}).code, 5);
}

TEST_F(CliRecoverAvi, LostIndex_IsMadeAnewFromTheFrames) {
  const Bytes whole = ReadBytes(Whole());
  Bytes file = whole;
  const size_t index = Find(file, "idx1");
  std::fill_n(file.begin() + static_cast<std::ptrdiff_t>(index) + 8 + 160, kSector, uint8_t{0xEE});
  WriteBytes(folder_ / "index.avi", file);
  EXPECT_EQ(Zmv(folder_, {"info", folder_ / "index.avi", "--check"}).code, 4);
  ASSERT_EQ(Recover({folder_ / "index.avi", "--in-place"}).code, 0);
  const Bytes after = ReadBytes(folder_ / "index.avi");
  EXPECT_TRUE(std::equal(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(index), after.begin()));
  EXPECT_EQ(Listed(folder_ / "index.avi", "video"), Listed(Whole(), "video"));
}

TEST_F(CliRecoverAvi, LostFront_IsDescribedByAnotherRecording) {
  Bytes file = CutBytes();
  std::fill_n(file.begin(), kSector, uint8_t{0});
  const std::string front = folder_ / "front.avi";
  WriteBytes(front, file);
  const CliResult alone = Recover({front, "-o", folder_ / "alone.avi"});
  EXPECT_EQ(alone.code, 5);
  EXPECT_THAT(alone.err, HasSubstr("description is lost of: video 0, audio 0, text 0"));
  EXPECT_THAT(Recover({front, "--in-place"}).err, HasSubstr("cannot be completed in place; -o makes a new"));
  EXPECT_EQ(ReadBytes(front), file);
  // The other recording is of either container.
  {
    Console console;
    RecorderOptions options;
    options.path = folder_ / "like.mp4";
    Recorder recorder(options, SmallInfo("camera 7"), {33333, kSmallAudioFrameUs, 1000000}, console);
    recorder.Write(SmallPicture(0));
    recorder.Write(SmallSound(0));
    recorder.Write(SmallText(0, Bytes(92, 1)));
    recorder.Finish();
  }
  const json whole = Info(Whole());
  for (const std::string& like : {Whole(), folder_ / "like.mp4"}) {
    const std::string out = folder_ / "out.avi";
    const CliResult result = Recover({front, "-o", out, "--like", like, "--force"});
    EXPECT_EQ(result.code, 5) << result.err;
    EXPECT_THAT(result.err, Not(HasSubstr("description is lost")));
    const json info = Info(out);
    ASSERT_EQ(info["streams"].size(), 3u) << like;
    EXPECT_EQ(info["streams"][0]["codec"], whole["streams"][0]["codec"]);
    EXPECT_EQ(info["streams"][0]["width"], whole["streams"][0]["width"]);
    EXPECT_EQ(info["streams"][1]["sample_rate"], kSmallSampleRate);
    EXPECT_EQ(info["streams"][1]["config"], whole["streams"][1]["config"]);
    const auto sounds = Listed(out, "audio");
    const auto recorded = Listed(Whole(), "audio");
    ASSERT_GT(sounds.size(), 60u);
    EXPECT_TRUE(std::equal(sounds.begin(), sounds.end(), recorded.begin())) << like;
  }
}

TEST_F(CliRecoverAvi, CutBeforeItsFirstFrame_GivesExitCode5AndNoFile) {
  const Bytes file = ReadBytes(Whole());
  for (const size_t length : {DataOf(file) - 30, DataOf(file), DataOf(file) + 9}) {
    WriteBytes(folder_ / "early.avi", Opened(file, DataOf(file) + 9));
    Bytes early = ReadBytes(folder_ / "early.avi");
    early.resize(length);
    WriteBytes(folder_ / "early.avi", early);
    const CliResult result = Recover({folder_ / "early.avi", "-o", folder_ / "out.avi"});
    EXPECT_EQ(result.code, 5) << length;
    EXPECT_THAT(result.err, HasSubstr("holds no complete frame"));
    EXPECT_FALSE(std::filesystem::exists(folder_ / "out.avi"));
  }
}

TEST_F(CliRecoverAvi, FilesOfOthers_HaveExitCode3AndStayAsTheyAre) {
  // The time of a frame, which this library leaves open, in the main header.
  Bytes other = CutBytes();
  other[32] = 0x35;
  other[33] = 0x82;
  WriteBytes(folder_ / "other.avi", other);
  WriteText(folder_ / "sound.wav", "RIFF....WAVEfmt ");
  for (const std::string name : {"other.avi", "sound.wav"}) {
    const Bytes before = ReadBytes(folder_ / name);
    EXPECT_EQ(Recover({folder_ / name, "-o", folder_ / "out.avi"}).code, 3) << name;
    EXPECT_EQ(Recover({folder_ / name, "--in-place"}).code, 3) << name;
    EXPECT_EQ(ReadBytes(folder_ / name), before) << name;
  }
  EXPECT_FALSE(std::filesystem::exists(folder_ / "out.avi"));
}

// A recording stays what it is; a name that says otherwise is remarked on.
TEST_F(CliRecoverAvi, NewFileNamedForTheOtherContainer_IsWarnedOf) {
  const CliResult result = Recover({Cut(), "-o", folder_ / "out.mp4"});
  EXPECT_EQ(result.code, 0);
  EXPECT_THAT(result.err, HasSubstr("warning: " + (folder_ / "out.mp4") + ": is an AVI, as the damaged recording is"));
  EXPECT_EQ(Info(folder_ / "out.mp4")["container"], "AVI");
  EXPECT_THAT(Recover({Cut(), "-o", folder_ / "out"}).err, Not(HasSubstr("warning")));
  EXPECT_THAT(Recover({Cut(), "-o", folder_ / "OUT.AVI"}).err, Not(HasSubstr("warning")));
  WriteSmallRecording(folder_ / "small.mp4", {});
  const CliResult mp4 = Recover({folder_ / "small.mp4", "-o", folder_ / "mp4.avi"});
  EXPECT_THAT(mp4.err, HasSubstr("mp4.avi: is an MP4, as the damaged recording is"));
}

// ---- zmv info

TEST_F(CliRecoverAvi, InfoOfACutRecording_SaysWhatComesBack) {
  const CliResult result = Zmv(folder_, {"info", Cut(), "--json"});
  EXPECT_EQ(result.code, 4);
  const json info = json::parse(result.out);
  EXPECT_EQ(info["health"]["state"], "cut");
  EXPECT_EQ(info["recovery"]["state"], "cut");
  EXPECT_EQ(info["recovery"]["frames"], kComplete);
  EXPECT_EQ(info["recovery"]["can_in_place"], true);
  EXPECT_EQ(info["recovery"]["uniform_times"], true);
  const CliResult words = Zmv(folder_, {"info", folder_ / "cut.avi"});
  EXPECT_THAT(words.out, HasSubstr("Recovery\n  141 of 141 complete frames, up to 00:00:02.2"));
  EXPECT_THAT(words.out, HasSubstr(kUniform));
}

TEST_F(CliRecoverAvi, InfoOfADamagedRecording_NamesItsHoles) {
  const CliResult result = Zmv(folder_, {"info", Damaged(CutBytes()), "--json"});
  EXPECT_EQ(result.code, 5);
  const json info = json::parse(result.out);
  EXPECT_EQ(info["health"]["state"], "damaged");
  EXPECT_THAT(info["health"]["message"].get<std::string>(), HasSubstr("1 hole of "));
  EXPECT_EQ(info["recovery"]["hole_count"], 1);
}

TEST_F(CliRecoverAvi, InfoOfARecordingWithoutItsFront_KnowsItByItsFrames) {
  Bytes file = CutBytes();
  std::fill_n(file.begin(), DataOf(file), uint8_t{0});
  WriteBytes(folder_ / "front.avi", file);
  const CliResult result = Zmv(folder_, {"info", folder_ / "front.avi", "--json"});
  EXPECT_EQ(result.code, 5) << result.err;
  const json info = json::parse(result.out);
  EXPECT_EQ(info["container"], "AVI");
  EXPECT_EQ(info["recovery"]["frames"], kComplete);
  EXPECT_EQ(info["recovery"]["can_in_place"], false);
}

}  // namespace
}  // namespace zmv::tool

#include "tools/zmv/riff_scan.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "facade/zmvstream_media.h"
#include "tests/tools/riff_bytes.h"
#include "tests/tools/small_recording.h"
#include "tests/tools/temp_folder.h"

namespace zmv::tool {
namespace {

using testing::HasSubstr;

const Bytes kVideo = Stream("vids", "H264", 1000, 25000);
const Bytes kSound = Stream("auds", "PCM ", 4, 192000, 4);
const Bytes kText = Stream("txts", "GPS ", 1000, 2000);
const Bytes kMedia = List("movi", Joined({Chunk("00dc", Bytes(9, 1)), Chunk("01wb", Bytes(8, 2))}));
const Bytes kIndex = Chunk("idx1", Joined({IndexEntry("00dc", 4, 9), IndexEntry("01wb", 22, 8)}));

class RiffScan : public testing::Test {
 protected:
  FileMap Scan(const Bytes& file) {
    WriteBytes(path_, file);
    return ScanFile(path_);
  }

  Bytes Recording() {
    WriteSmallRecording(path_, {Bytes(20, 1), Bytes(20, 2)}, "test");
    return ReadBytes(path_);
  }

  static Bytes Whole(const Bytes& streams = Joined({kVideo, kSound})) {
    return Form("AVI ", Joined({Headers(streams), kMedia, kIndex}));
  }

  const TempFolder folder_;
  const std::string path_ = folder_ / "file.avi";
};

TEST_F(RiffScan, WholeFile_IsCompleteWithItsStreamsAndChunks) {
  const FileMap map = Scan(Whole());
  EXPECT_EQ(map.container, Container::kAvi);
  EXPECT_EQ(map.health, Health::kComplete) << map.sentence;
  EXPECT_TRUE(map.readable);
  EXPECT_EQ(map.index, "idx1");
  ASSERT_EQ(map.streams.size(), 2u);
  EXPECT_EQ(map.streams[0].media, ZMV_MEDIA_VIDEO);
  EXPECT_EQ(map.streams[0].handler, ZMV_FOURCC('H', '2', '6', '4'));
  EXPECT_EQ(map.streams[0].rate, 25000u);
  EXPECT_EQ(map.streams[1].media, ZMV_MEDIA_AUDIO);
  EXPECT_EQ(map.streams[1].sample_size, 4u);
  std::vector<std::string> names;
  for (const BoxEntry& box : map.boxes) names.push_back(box.type);
  EXPECT_EQ(names, (std::vector<std::string>{"RIFF AVI ", "LIST hdrl", "LIST strl", "LIST strl", "LIST movi", "idx1"}));
  EXPECT_EQ(map.boxes[0].size, map.size);
  EXPECT_EQ(map.boxes[4].size, kMedia.size());
}

TEST_F(RiffScan, UserValue_IsTheLanguageOfTheFirstVideoHeader) {
  const Bytes file = Whole();
  const FileMap map = Scan(file);
  ASSERT_TRUE(map.aidd.has_value());
  EXPECT_EQ(map.aidd->value, 7u);
  EXPECT_EQ(map.aidd->largest(), 65535u);
  EXPECT_EQ(file[map.aidd->position], 7);
  EXPECT_FALSE(Scan(Whole(kSound)).aidd.has_value());
}

TEST_F(RiffScan, SmallRecording_IsCompleteAndNamesItsSoftware) {
  const FileMap map = Scan(Recording());
  EXPECT_EQ(map.health, Health::kComplete) << map.sentence;
  EXPECT_EQ(map.software, "test");
  ASSERT_EQ(map.streams.size(), 3u);
  EXPECT_EQ(map.streams[2].handler, ZMV_FOURCC('G', 'P', 'S', ' '));
  EXPECT_EQ(map.aidd->value, 0u);
}

TEST_F(RiffScan, OtherForms_AreNoRecording) {
  EXPECT_EQ(Scan(Form("WAVE", Bytes(100))).health, Health::kNotRecording);
  EXPECT_EQ(Scan(Code("RIFF")).readable, false);
}

TEST_F(RiffScan, FileWithoutIndex_IsCompleteUnlessItsHeaderPromisesOne) {
  const FileMap none = Scan(Form("AVI ", Joined({Headers(kVideo, 0), kMedia})));
  EXPECT_EQ(none.health, Health::kComplete);
  EXPECT_TRUE(none.index.empty());
  EXPECT_TRUE(none.readable);
  const FileMap promised = Scan(Form("AVI ", Joined({Headers(kVideo), kMedia})));
  EXPECT_EQ(promised.health, Health::kCut);
  EXPECT_THAT(promised.sentence, HasSubstr("index is incomplete or missing"));
}

TEST_F(RiffScan, SizesNotYetWritten_AreACutRecordingThatCanBeRead) {
  Bytes file = Whole(Joined({kVideo, kSound, kText}));
  std::fill_n(file.begin() + 4, 4, 0);
  const char tag[] = {'m', 'o', 'v', 'i'};
  std::fill_n(std::search(file.begin(), file.end(), std::begin(tag), std::end(tag)) - 4, 4, 0);
  const FileMap map = Scan(file);
  EXPECT_EQ(map.health, Health::kCut);
  EXPECT_TRUE(map.readable);
  EXPECT_TRUE(map.index.empty());
  EXPECT_THAT(map.sentence, HasSubstr("cut before it was finished"));
  EXPECT_THAT(map.sentence, HasSubstr("those of text streams are not"));
}

TEST_F(RiffScan, OnlyTheOuterSizeMissing_StillHasItsIndex) {
  Bytes file = Whole();
  std::fill_n(file.begin() + 4, 4, 0);
  const FileMap map = Scan(file);
  EXPECT_EQ(map.health, Health::kCut);
  EXPECT_EQ(map.index, "idx1");
  EXPECT_THAT(map.sentence, HasSubstr("while it was being finished"));
}

TEST_F(RiffScan, EveryTruncation_IsJudgedAndNeverCalledComplete) {
  const Bytes file = Recording();
  Health last = Health::kNotRecording;
  constexpr size_t kFillChunk = 8;  // behind the form, where nothing depends on it
  for (size_t size = 1; size < file.size() - kFillChunk; ++size) {
    const FileMap map = Scan(Bytes(file.begin(), file.begin() + static_cast<std::ptrdiff_t>(size)));
    ASSERT_NE(map.health, Health::kComplete) << size;
    // It does not get worse with more of the file.
    if (last == Health::kCut) {
      ASSERT_EQ(map.health, Health::kCut) << size;
    }
    last = map.health;
  }
  EXPECT_EQ(last, Health::kCut);
}

TEST_F(RiffScan, OpenDml_HasItsIndexInTheHeaders) {
  const Bytes streams = Stream("vids", "H264", 1000, 25000, 0, Chunk("indx", Bytes(40)));
  const FileMap map = Scan(Joined({Form("AVI ", Joined({Headers(streams), kMedia})), Form("AVIX", kMedia)}));
  EXPECT_EQ(map.health, Health::kComplete) << map.sentence;
  EXPECT_EQ(map.index, "OpenDML");
}

TEST_F(RiffScan, OddFormatWithoutPad_IsSteppedOver) {
  const Bytes header = Bytes(56);
  const Bytes odd = Joined({Code("strf"), Little32(17), Bytes(17, 3)});
  const Bytes stream = List("strl", Joined({Chunk("strh", header), odd, Chunk("indx", Bytes(24))}));
  EXPECT_EQ(Scan(Form("AVI ", Joined({Headers(stream), kMedia}))).index, "OpenDML");
}

TEST_F(RiffScan, SizesBeyondTheFile_EndTheWalk) {
  Bytes file = Whole();
  for (size_t at = 4; at < file.size(); at += 4) {
    Bytes bent = file;
    std::fill_n(bent.begin() + static_cast<std::ptrdiff_t>(at), 4, 0xFF);
    const FileMap map = Scan(bent);
    for (const BoxEntry& box : map.boxes) ASSERT_LE(box.position + box.size, map.size) << at;
  }
}

}  // namespace
}  // namespace zmv::tool

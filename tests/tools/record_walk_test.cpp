#include "tools/zmv/record_walk.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "facade/zmvstream_media.h"
#include "tests/tools/small_recording.h"
#include "tests/tools/temp_folder.h"

namespace zmv::tool {
namespace {

void Put32(Bytes& out, uint32_t value) {
  for (int shift = 24; shift >= 0; shift -= 8) out.push_back(static_cast<uint8_t>(value >> shift));
}

void Put(Bytes& out, const std::string& text) { out.insert(out.end(), text.begin(), text.end()); }

void PutRecord(Bytes& out, uint32_t media, uint32_t time_ms, uint32_t track, uint32_t size) {
  Put(out, "RECO");
  Put32(out, media);
  Put32(out, 0);  // key flag
  Put32(out, time_ms);
  Put32(out, 33);  // duration
  Put32(out, track);
  Put32(out, size);
}

void PutSpill(Bytes& out, uint32_t size) {
  Put(out, "tabl");
  Put32(out, size);
  out.resize(out.size() + size, 0xAB);
}

class Walk : public testing::Test {
 protected:
  Walk() {
    Put32(file_, 8);  // media data that was never closed
    Put(file_, "mdat");
  }

  void Frame(uint32_t media, uint32_t time_ms, const std::string& payload, uint32_t track = 0) {
    PutRecord(file_, media, time_ms, track, static_cast<uint32_t>(payload.size()));
    Put(file_, payload);
  }

  // The texts with their times, "0:first 500:second".
  std::string Found(uint32_t track = 0) {
    WriteBytes(path_, file_);
    RecordWalk walk(path_, ScanFile(path_), track);
    std::string all;
    FoundText text;
    while (walk.Next(text)) {
      all += (all.empty() ? "" : " ") + std::to_string(text.time_ms) + ":" +
             std::string(text.payload.begin(), text.payload.end());
    }
    return all;
  }

  const TempFolder folder_;
  const std::string path_ = folder_ / "cut.mp4";
  Bytes file_;
};

TEST_F(Walk, TextsBetweenOtherFrames_AreFoundByTrack) {
  Frame(ZMV_MEDIA_VIDEO, 0, "picture");
  Frame(ZMV_MEDIA_TEXT, 0, "first");
  Frame(ZMV_MEDIA_TEXT, 0, "other", 1);
  Frame(ZMV_MEDIA_AUDIO, 20, "sound");
  Frame(ZMV_MEDIA_TEXT, 500, "second");
  EXPECT_EQ(Found(), "0:first 500:second");
  EXPECT_EQ(Found(1), "0:other");
  EXPECT_EQ(Found(2), "");
}

TEST_F(Walk, PiecesOfTables_AreSteppedOver) {
  PutSpill(file_, 40);
  Frame(ZMV_MEDIA_TEXT, 0, "first");
  PutSpill(file_, 4);
  PutSpill(file_, 0);
  PutRecord(file_, ZMV_MEDIA_TEXT, 500, 0, 6);
  PutSpill(file_, 100);
  Put(file_, "second");
  EXPECT_EQ(Found(), "0:first 500:second");
}

TEST_F(Walk, TimeStamps_CountFromTheFirstFrameAndMayTurnOver) {
  Frame(ZMV_MEDIA_VIDEO, 0xFFFFFF00, "picture");
  Frame(ZMV_MEDIA_TEXT, 0xFFFFFEFF, "early");  // a millisecond before the picture
  Frame(ZMV_MEDIA_TEXT, 0xFFFFFF10, "first");
  Frame(ZMV_MEDIA_TEXT, 0x10, "second");
  EXPECT_EQ(Found(), "0:early 16:first 272:second");
}

TEST_F(Walk, DamagedRecords_EndIt) {
  Frame(ZMV_MEDIA_TEXT, 0, "first");
  const size_t end = file_.size();
  Put(file_, "RUBBISH, AND MORE OF IT THAN A RECORD");
  EXPECT_EQ(Found(), "0:first");
  file_.resize(end);
  PutRecord(file_, ZMV_MEDIA_TEXT, 1, 0, 0xFFFFFFF0);
  Put(file_, "more");
  EXPECT_EQ(Found(), "0:first");
  file_.resize(end);
  PutSpill(file_, 0);
  file_.resize(file_.size() - 4);
  Put32(file_, 0xFFFFFFFF);
  EXPECT_EQ(Found(), "0:first");
}

TEST_F(Walk, LongTexts_GiveTheirBeginning) {
  Frame(ZMV_MEDIA_TEXT, 0, std::string(100000, 'x'));
  Frame(ZMV_MEDIA_TEXT, 1, "second");
  EXPECT_EQ(Found(), "0:" + std::string(kMostFoundBytes, 'x') + " 1:second");
}

// Of a real recording cut anywhere, the texts are those that were complete, in their order.
TEST_F(Walk, EveryTruncation_GivesTheWholeTextsBeforeIt) {
  std::vector<Bytes> payloads;
  for (uint8_t i = 0; i < 4; ++i) payloads.push_back(Bytes(92, static_cast<uint8_t>('a' + i)));
  WriteSmallRecording(path_, payloads);
  Bytes whole = ReadBytes(path_);
  const char tag[] = "mdat";
  const auto data = std::search(whole.begin(), whole.end(), tag, tag + 4);
  ASSERT_NE(data, whole.end());
  const uint8_t open[] = {0, 0, 0, 8};
  std::copy(std::begin(open), std::end(open), data - 4);
  std::vector<size_t> ends;
  for (const Bytes& payload : payloads) {
    const auto at = std::search(whole.begin(), whole.end(), payload.begin(), payload.end());
    ends.push_back(static_cast<size_t>(at - whole.begin()) + payload.size());
  }
  for (auto size = static_cast<size_t>(data - whole.begin()) + 4; size < ends.back() + 10; ++size) {
    file_.assign(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
    std::string expected;
    for (size_t i = 0; i < payloads.size() && ends[i] <= size; ++i) {
      expected += (i == 0 ? "" : " ") + std::to_string(i * 1000) + ":";
      expected.append(payloads[i].begin(), payloads[i].end());
    }
    ASSERT_EQ(Found(), expected) << size;
  }
}

}  // namespace
}  // namespace zmv::tool

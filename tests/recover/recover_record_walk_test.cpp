#include "recover/recover_record_walk.h"

#include "tests/recover/recover_test.h"

namespace zmv::test {
namespace {

using recover::FoundFrame;

class RecordWalkTest : public RecoverTest {
 protected:
  static ByteVector Item(uint32_t media, uint32_t stamp, const ByteVector& payload, bool key = false,
                         uint32_t track = 0) {
    return Join({Record(media, stamp, payload.size(), key, track), payload});
  }
  static ByteVector Record(uint32_t media, uint32_t stamp, size_t size, bool key = false, uint32_t track = 0) {
    return Join({Text("RECO"), Be32(media), Be32(key ? 1 : 0), Be32(stamp), Be32(40), Be32(track),
                 Be32(static_cast<uint32_t>(size))});
  }
  static ByteVector Table(size_t size) {
    return Join({Text("tabl"), Be32(static_cast<uint32_t>(size)), ByteVector(size, 7)});
  }

  // Walks up to `data_end`; the results are kept.
  void Walk(StoredFile& file, const recover::Front& front, uint64_t data_end) {
    recover::Window window(file);
    recover::Mp4Chain chain(window);
    ASSERT_EQ(chain.Open(front), 0);
    ZMVRecoverReport report = {};
    report.llDataEnd = data_end;
    recover::RecordWalk walk(file, chain, front, report);
    EXPECT_EQ(&walk.Report(), &report);
    FoundFrame frame = {};
    frames_.clear();
    while (walk.Next(frame)) {
      EXPECT_EQ(frame.bytes, nullptr);
      EXPECT_FALSE(frame.after_hole);
      EXPECT_EQ(frame.new_duration, frame.duration);
      frames_.push_back(frame);
    }
    result_ = static_cast<uint32_t>(walk.Result());
    EXPECT_FALSE(walk.Next(frame));
  }
  // The same, of a file that is nothing but items behind 600 bytes.
  void Walk(const ByteVector& items) {
    StoredFile file(Join({ByteVector(kFront, 1), items}));
    recover::Front front = {};
    front.end = kFront;
    front.info.dwVideoCount = front.info.dwAudioCount = front.info.dwTextCount = 1;
    Walk(file, front, file.Size());
  }

  static constexpr uint64_t kFront = 600;
  std::vector<FoundFrame> frames_;
  uint32_t result_ = 0;
};

TEST_F(RecordWalkTest, Recording_GivesTheFramesOfTheScan) {
  for (const uint8_t interleave : {uint8_t{1}, uint8_t{0}}) {
    const SmallRecording recording(3, 40, interleave, 0xFFFFFE00);
    const ByteVector bytes = recording.Unclosed();
    StoredFile file(bytes);
    recover::Window window(file);
    recover::Front front;
    ASSERT_TRUE(recover::ReadFront(window, front));
    Walk(file, front, bytes.size());
    ASSERT_EQ(result_, 0u);
    ASSERT_EQ(frames_.size(), recording.frames.size());
    uint64_t last_end = front.end;
    bool table_between = false, table_within = false;
    for (size_t i = 0; i < frames_.size(); ++i) {
      const FoundFrame& found = frames_[i];
      const StoredFrame& frame = recording.frames[i];
      EXPECT_EQ(found.position, frame.position) << i;
      EXPECT_EQ(found.payload, frame.payload) << i;
      EXPECT_EQ(found.size, frame.bytes.size()) << i;
      EXPECT_EQ(found.media, frame.media) << i;
      EXPECT_EQ(found.track, frame.track) << i;
      EXPECT_EQ(found.key, frame.key) << i;
      EXPECT_EQ(found.time, frame.time) << i;
      EXPECT_EQ(found.duration, frame.duration) << i;
      table_between |= found.position != last_end;
      table_within |= found.payload != found.position + 28;
      last_end = frame.End();
    }
    EXPECT_TRUE(table_between) << "the test needs tables in front of records";
    EXPECT_TRUE(table_within) << "and behind them";
    EXPECT_GT(frames_.back().time, uint64_t{0xFFFFFFFF}) << "and stamps that wrap";
  }
}

TEST_F(RecordWalkTest, StampsGoForthAndBack_AcrossTheWrap) {
  Walk(Join({Item(ZMV_MEDIA_VIDEO, 0xFFFFFFF0, {1, 2, 3, 4}, true), Item(ZMV_MEDIA_AUDIO, 0xFFFFFFE0, {5}),
             Item(ZMV_MEDIA_TEXT, 0x10, {6}), Item(ZMV_MEDIA_AUDIO, 0xFFFFFFF8, {7}),
             Item(ZMV_MEDIA_AUDIO, 0x20, {8})}));
  ASSERT_EQ(result_, 0u);
  ASSERT_EQ(frames_.size(), 5u);
  const uint64_t expected[] = {0xFFFFFFF0, 0xFFFFFFE0, 0x100000010, 0xFFFFFFF8, 0x100000020};
  for (size_t i = 0; i < 5; ++i) EXPECT_EQ(frames_[i].time, expected[i]) << i;
  EXPECT_TRUE(frames_[0].key);
  EXPECT_EQ(frames_[2].duration, 40u);
}

TEST_F(RecordWalkTest, TablesAreSteppedOver) {
  Walk(Join({Table(40), Table(8), Item(ZMV_MEDIA_AUDIO, 5, {1, 2, 3}), Record(ZMV_MEDIA_AUDIO, 6, 2), Table(16),
             Table(24), ByteVector{9, 9}, Table(32)}));
  ASSERT_EQ(result_, 0u);
  ASSERT_EQ(frames_.size(), 2u);
  EXPECT_EQ(frames_[0].position, kFront + 48 + 16);
  EXPECT_EQ(frames_[0].payload, frames_[0].position + 28);
  EXPECT_EQ(frames_[1].position, frames_[0].payload + 3);
  EXPECT_EQ(frames_[1].payload, frames_[1].position + 28 + 24 + 32);
}

TEST_F(RecordWalkTest, EmptyPayloadsAndTheEnd) {
  Walk(Join({Item(ZMV_MEDIA_AUDIO, 5, {}), Item(ZMV_MEDIA_AUDIO, 6, {})}));
  ASSERT_EQ(result_, 0u);
  ASSERT_EQ(frames_.size(), 2u);
  EXPECT_EQ(frames_[1].position, kFront + 28);
  EXPECT_EQ(frames_[1].size, 0u);
  Walk(ByteVector());
  EXPECT_EQ(result_, 0u);
  EXPECT_TRUE(frames_.empty());
}

// What follows the end that the scan found is not looked at.
TEST_F(RecordWalkTest, BehindTheDataEnd_NothingIsFound) {
  const SmallRecording recording;
  StoredFile file(recording.Unclosed());
  recover::Window window(file);
  recover::Front front;
  ASSERT_TRUE(recover::ReadFront(window, front));
  Walk(file, front, recording.frames[9].End());
  EXPECT_EQ(result_, 0u);
  EXPECT_EQ(frames_.size(), 10u);
}

// The file is not what it was when it was scanned.
TEST_F(RecordWalkTest, SomethingElse_EndsTheWalk) {
  const ByteVector frame = Item(ZMV_MEDIA_AUDIO, 5, {1, 2, 3});
  for (const ByteVector& other : {Text("something that is neither a record nor a table"), Text("RECO"), Text("tab")}) {
    Walk(Join({frame, other}));
    EXPECT_EQ(result_, ZMV_E_READ);
    EXPECT_EQ(frames_.size(), 1u);
  }
}

TEST_F(RecordWalkTest, FailedRead_EndsTheWalkWithItsCode) {
  const SmallRecording recording;
  StoredFile file(recording.Unclosed());
  recover::Window window(file);
  recover::Front front;
  ASSERT_TRUE(recover::ReadFront(window, front));
  recover::Mp4Chain chain(window);
  ASSERT_EQ(chain.Open(front), 0);
  ZMVRecoverReport report = {};
  report.llDataEnd = file.Size();
  recover::RecordWalk walk(file, chain, front, report);
  FoundFrame frame = {};
  ASSERT_TRUE(walk.Next(frame));
  file.Fail(StoredFile::kRead, 1, true);
  EXPECT_FALSE(walk.Next(frame));
  EXPECT_EQ(static_cast<uint32_t>(walk.Result()), ZMV_E_READ);
}

// Payloads are not read: what is read does not depend on their sizes.
TEST_F(RecordWalkTest, ReadsRecordsAlone) {
  ByteVector items;
  for (uint32_t i = 0; i < 20; ++i) items = Join({items, Item(ZMV_MEDIA_AUDIO, i, ByteVector(50000, 3))});
  StoredFile file(Join({ByteVector(kFront, 1), items}));
  recover::Front front = {};
  front.end = kFront;
  front.info.dwAudioCount = 1;
  recover::Window window(file);
  recover::Mp4Chain chain(window);
  ASSERT_EQ(chain.Open(front), 0);
  ZMVRecoverReport report = {};
  report.llDataEnd = file.Size();
  recover::RecordWalk walk(file, chain, front, report);
  const uint64_t before = file.read_bytes();
  FoundFrame frame = {};
  uint32_t count = 0;
  while (walk.Next(frame)) ++count;
  EXPECT_EQ(count, 20u);
  EXPECT_LE(file.read_bytes() - before, 20u * 64);
}

}  // namespace
}  // namespace zmv::test

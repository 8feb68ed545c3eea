// Recordings that a writer would not make, or that something else got hold of.
#include "tests/recover/recover_test.h"

namespace zmv::test {
namespace {

using ::testing::IsEmpty;

constexpr size_t kSector = 512;
constexpr size_t kRecordSize = 28;

// A recording put together by hand: front of a real one, then whatever is added.
class Mp4ScanTest : public RecoverTest {
 protected:
  static ByteVector FrontOf(const ZMVFileInfo& info) {
    FrameLog log(info);
    ByteVector file = log.Finish();
    const ByteVector name = Text("mdat");
    const auto at = std::search(file.begin(), file.end(), name.begin(), name.end());
    StoreBE32(&*(at - 4), 8);
    return ByteVector(file.begin(), at + 4);
  }
  static ByteVector Record(uint32_t media, uint32_t stamp, uint32_t size, uint32_t track = 0) {
    return Join({Text("RECO"), Be32(media), Be32(0), Be32(stamp), Be32(20), Be32(track), Be32(size)});
  }
  static ByteVector Audio(uint32_t stamp, const ByteVector& payload) {
    return Join({Record(ZMV_MEDIA_AUDIO, stamp, static_cast<uint32_t>(payload.size())), payload});
  }
  static ByteVector Table(uint32_t size) { return Join({Text("tabl"), Be32(size), ByteVector(size, 0x11)}); }
  static std::vector<uint32_t> Sizes(const Found& found) {
    std::vector<uint32_t> sizes;
    for (const StoredFrame& frame : found.frames) sizes.push_back(static_cast<uint32_t>(frame.bytes.size()));
    return sizes;
  }

  const ByteVector front = FrontOf(SmallInfo());
};

TEST_F(Mp4ScanTest, TablesBetweenRecordAndPayload_AreSteppedOver) {
  const ByteVector payload(50, 0x42);
  const ByteVector file = Join({front, Audio(0, payload), Record(ZMV_MEDIA_AUDIO, 20, 50), Table(40), Table(120),
                                payload, Table(40), Audio(40, payload)});
  const Found found = ScanBytes(file);
  ASSERT_EQ(found.frames.size(), 3u);
  EXPECT_EQ(found.frames[1].position, front.size() + 78);
  EXPECT_EQ(found.frames[1].payload, front.size() + 78 + 28 + 48 + 128);
  for (const StoredFrame& frame : found.frames) EXPECT_EQ(frame.bytes, payload);
  EXPECT_EQ(found.report.dwHoles, 0u);
  EXPECT_EQ(found.report.dwState, ZMV_RECOVER_CUT);
  EXPECT_EQ(found.report.llDataEnd, file.size());
}

TEST_F(Mp4ScanTest, PayloadThatBeginsAsATable_IsAPayload) {
  // 40 bytes, of which the first 48 look like a table with 40 bytes of entries.
  const ByteVector payload = Join({Text("tabl"), Be32(40), ByteVector(32, 0x33)});
  const Found found = ScanBytes(Join({front, Audio(0, payload), Audio(20, {1, 2, 3}), Audio(40, {4})}));
  EXPECT_THAT(Sizes(found), ::testing::ElementsAre(40, 3, 1));
  const ByteVector words = Text("table of contents");
  EXPECT_THAT(Sizes(ScanBytes(Join({front, Audio(0, words)}))), ::testing::ElementsAre(17));
}

TEST_F(Mp4ScanTest, TableCutWhereAPayloadWouldEnd_IsNoFrame) {
  // The record's table is cut off exactly as many bytes behind it as the payload has.
  const ByteVector cut = Join({Text("tabl"), Be32(40), ByteVector(12, 0x11)});
  const Found found = ScanBytes(Join({front, Audio(0, {7}), Record(ZMV_MEDIA_AUDIO, 20, 20), cut}));
  EXPECT_THAT(Sizes(found), ::testing::ElementsAre(1));
  EXPECT_EQ(found.report.llIncomplete, 48u);
}

// However few bytes stand behind the place where the payload would end without tables in front of it.
TEST_F(Mp4ScanTest, PayloadCutBehindItsTables_IsNoFrame) {
  ByteVector payload(66, 0x42);
  for (size_t i = 0; i < payload.size(); i += 2) payload[i] = 0;
  const ByteVector sound = Join({front, Audio(0, {7})});
  for (const ByteVector& tables : {Table(40), Join({Table(40), Table(40)}), Join({Table(120), Table(40)})}) {
    const ByteVector file = Join({sound, Record(ZMV_MEDIA_AUDIO, 20, 66), tables, payload});
    for (size_t size = sound.size(); size < file.size(); ++size) {
      const Found found = ScanBytes(ByteVector(file.begin(), file.begin() + static_cast<ptrdiff_t>(size)));
      ASSERT_THAT(Sizes(found), ::testing::ElementsAre(1)) << "cut to " << size << " of " << file.size();
      ASSERT_EQ(found.report.dwState, ZMV_RECOVER_CUT) << "cut to " << size << " of " << file.size();
    }
    EXPECT_THAT(Sizes(ScanBytes(file)), ::testing::ElementsAre(1, 66));
  }
}

// What a recovery in place leaves when it is cut behind its first write: the first bytes of a size, which are zero.
TEST_F(Mp4ScanTest, BeginOfABoxAtTheEndOfASector_DoesNotReachBack) {
  ByteVector words(100, 0x42);
  words.back() = 0;
  uint32_t ends = 0;
  for (uint32_t first = 1; first <= kSector; ++first) {
    ByteVector file = Join({front, Audio(0, ByteVector(first, 0x42)), Record(ZMV_MEDIA_TEXT, 20, 100), words});
    const size_t rest = kSector - file.size() % kSector;
    if (rest > 3) continue;
    ++ends;
    EXPECT_THAT(Sizes(ScanBytes(Join({file, Zeros(rest), ByteVector(600, 0xEE)}))), ::testing::ElementsAre(first, 100));
    // Behind a hole it is found, too.
    file[front.size()] = 'X';
    EXPECT_THAT(Sizes(ScanBytes(Join({file, Zeros(rest), ByteVector(600, 0xEE)}))), ::testing::ElementsAre(100));
  }
  EXPECT_EQ(ends, 3u);
}

TEST_F(Mp4ScanTest, EmptyPayloads_AreFrames) {
  EXPECT_THAT(Sizes(ScanBytes(Join({front, Audio(0, {}), Audio(1, {}), Audio(2, {9}), Audio(3, {})}))),
              ::testing::ElementsAre(0, 0, 1, 0));
}

// A table whose header goes on in the damaged sector: a frame without a payload in front of it is complete.
TEST_F(Mp4ScanTest, EmptyPayloadInFrontOfADamagedTable_IsAFrame) {
  constexpr size_t kTagInFront = 3;
  const size_t used = front.size() + kRecordSize + kRecordSize + kTagInFront;
  const ByteVector filler(2 * kSector - used % kSector, 0x21);
  const ByteVector items = Join({front, Audio(0, filler), Audio(20, {})});
  ASSERT_EQ((items.size() + kTagInFront) % kSector, 0u);
  ByteVector file = Join({items, Table(800), Audio(40, {5}), Audio(60, {6, 7})});
  std::fill_n(file.begin() + static_cast<ptrdiff_t>(items.size() + kTagInFront), kSector, 0);
  EXPECT_THAT(Sizes(ScanBytes(file)), ::testing::ElementsAre(filler.size(), 0, 1, 2));
}

TEST_F(Mp4ScanTest, VideoWhoseLengthDisagrees_IsDropped) {
  const auto video = [](uint32_t stamp, uint32_t length, ByteVector rest) {
    return Join({Record(ZMV_MEDIA_VIDEO, stamp, static_cast<uint32_t>(rest.size()) + 4), Be32(length), rest});
  };
  const ByteVector rest(90, 0x65);
  const Found found = ScanBytes(Join({front, video(0, 90, rest), video(33, 91, rest), video(66, 90, rest)}));
  ASSERT_EQ(found.frames.size(), 2u);
  EXPECT_EQ(found.report.dwDropped, 1u);
  EXPECT_EQ(found.report.dwHoles, 0u);
  EXPECT_EQ(found.report.dwState, ZMV_RECOVER_DAMAGED);
  EXPECT_EQ(found.new_durations[1], 66000u) << "time since the frame in front of the dropped one";
  EXPECT_TRUE(found.after_hole[1]);
}

TEST_F(Mp4ScanTest, UnwrittenSpace_EndsTheRecording) {
  const SmallRecording recording(7, 10);
  const ByteVector unclosed = recording.Unclosed();
  for (size_t zeros : {1u, 3u, 600u, 5000u, 300000u}) {
    const Found found = ScanBytes(Join({unclosed, Zeros(zeros)}));
    EXPECT_EQ(found.frames, recording.frames) << zeros;
    EXPECT_EQ(found.report.dwState, ZMV_RECOVER_CUT) << zeros;
    EXPECT_EQ(found.report.llDataEnd, unclosed.size()) << zeros;
    EXPECT_EQ(found.report.llIncomplete, 0u) << zeros;
  }
}

// The end of what was written, wherever it is, in a file whose space was taken in advance.
TEST_F(Mp4ScanTest, UnwrittenRest_GivesTheFramesInFrontOfIt) {
  FrameLog log(SmallInfo());
  Noise noise(3);
  for (uint32_t i = 0; i < 12; ++i) {
    log.Write(ZMV_MEDIA_VIDEO, noise.Video(5 + noise.Number(900)), 33 * i, 33333, i == 0);
    log.Write(ZMV_MEDIA_AUDIO, noise.Compressed(1 + noise.Number(90)), 33 * i, 33);
  }
  const ByteVector file = log.Finish();
  for (size_t written = log.frames()[0].position; written < log.frames().back().End(); ++written) {
    ByteVector bytes = file;
    StoreBE32(&bytes[log.frames()[0].position - 8], 8);
    std::fill(bytes.begin() + static_cast<ptrdiff_t>(written), bytes.end(), 0);
    std::vector<StoredFrame> complete = log.frames();
    std::erase_if(complete, [written](const StoredFrame& frame) { return frame.End() > written; });
    const Found found = ScanBytes(std::move(bytes));
    ASSERT_EQ(found.frames, complete) << written;
    ASSERT_EQ(found.report.dwState, ZMV_RECOVER_CUT) << written;
  }
}

// A stretch in the middle that never reached the medium, frames in front of it that did.
TEST_F(Mp4ScanTest, StretchThatWasNotWritten_LosesNothingInFrontOfIt) {
  FrameLog log(SmallInfo());
  Noise noise(4);
  for (uint32_t i = 0; i < 40; ++i) {
    log.Write(ZMV_MEDIA_VIDEO, noise.Video(5 + noise.Number(900)), 33 * i, 33333, i == 0);
    log.Write(ZMV_MEDIA_AUDIO, noise.Compressed(1 + noise.Number(90)), 33 * i, 33);
  }
  const ByteVector file = log.Finish();
  const auto& frames = log.frames();
  for (size_t last = 4; last < 60; ++last) {
    // Written up to the end of one frame, and again from a later sector on.
    const size_t from = frames[last].End();
    const size_t to = (frames[last + 12].position + kSector) / kSector * kSector;
    ByteVector bytes = file;
    std::fill(bytes.begin() + static_cast<ptrdiff_t>(from), bytes.begin() + static_cast<ptrdiff_t>(to), 0);
    std::vector<StoredFrame> whole = frames;
    std::erase_if(whole, [=](const StoredFrame& frame) { return frame.position < to && frame.End() > from; });
    const Found found = ScanBytes(std::move(bytes));
    ASSERT_EQ(found.frames, whole) << last;
    ASSERT_EQ(found.report.dwHoles, 1u) << last;
  }
}

TEST_F(Mp4ScanTest, StampsOverTheWrap_GoOn) {
  FrameLog log(SmallInfo());
  Noise noise(5);
  for (uint32_t i = 0; i < 20; ++i) {
    log.Write(ZMV_MEDIA_VIDEO, noise.Video(50), uint64_t{0xFFFFFF00} + 33 * i, 33333, i == 0);
    log.Write(ZMV_MEDIA_AUDIO, noise.Compressed(20), uint64_t{0xFFFFFF00} + 33 * i, 33);
  }
  const Found found = ScanBytes(log.Finish());
  EXPECT_EQ(found.frames, log.frames());
  EXPECT_EQ(found.report.llLastTime, uint64_t{0xFFFFFF00} + 33 * 19);
}

TEST_F(Mp4ScanTest, FileFullOfTags_IsReadAFewTimesAtMost) {
  for (uint32_t size : {0u, 1u, 0x00FFFFFFu, 0x7FFFFFFFu, 200000u, 60000u}) {
    for (uint32_t gap : {0u, 3u, 100u}) {
      ByteVector bytes = front;
      const ByteVector item = Join({Record(ZMV_MEDIA_AUDIO, 0, size), ByteVector(gap, 0x77)});
      while (bytes.size() < 400000) bytes.insert(bytes.end(), item.begin(), item.end());
      const size_t length = bytes.size();
      StoredFile file(std::move(bytes));
      EXPECT_EQ(ScanFile(file).result, 0);
      EXPECT_LE(file.read_bytes(), 6 * length) << size << " " << gap;
    }
  }
}

TEST_F(Mp4ScanTest, FileFullOfTables_IsReadAFewTimesAtMost) {
  for (uint32_t size : {4u, 400u, 0x00FFFFFCu, 100000u}) {
    ByteVector bytes = front;
    const ByteVector item = Join({Record(ZMV_MEDIA_AUDIO, 0, 3000), Text("tabl"), Be32(size), Be32(7)});
    while (bytes.size() < 400000) bytes.insert(bytes.end(), item.begin(), item.end());
    const size_t length = bytes.size();
    StoredFile file(std::move(bytes));
    EXPECT_EQ(ScanFile(file).result, 0);
    EXPECT_LE(file.read_bytes(), 12 * length) << size;
  }
}

TEST_F(Mp4ScanTest, RandomBytes_AreForeign) {
  Noise noise(6);
  for (int i = 0; i < 300; ++i) {
    ByteVector bytes(noise.Number(5000));
    for (uint8_t& byte : bytes) byte = noise.Byte();
    const Found found = ScanBytes(bytes);
    EXPECT_THAT(found.frames, IsEmpty());
    EXPECT_EQ(found.report.dwState, ZMV_RECOVER_FOREIGN);
  }
}

// Many small changes all over: whatever comes out has a payload of the file, and nothing crashes.
TEST_F(Mp4ScanTest, RandomChanges_GiveFramesOfTheFile) {
  const SmallRecording recording(8);
  Noise noise(7);
  for (int i = 0; i < 3000; ++i) {
    ByteVector bytes = recording.file;
    for (uint32_t changes = 1 + noise.Number(30); changes != 0; --changes) {
      const size_t at = noise.Number(static_cast<uint32_t>(bytes.size()));
      const uint32_t kind = noise.Number(4);
      if (kind == 0) bytes[at] = noise.Byte();
      if (kind == 1 && at + 4 <= bytes.size()) StoreBE32(&bytes[at], noise.Number(40000));
      if (kind == 2 && at + 4 <= bytes.size()) std::copy_n("RECO", 4, bytes.begin() + static_cast<ptrdiff_t>(at));
      if (kind == 3) bytes.resize(std::max<size_t>(at, 1000));
    }
    const ByteVector copy = bytes;
    const Found found = ScanBytes(std::move(bytes));
    ASSERT_TRUE(found.result == 0 || found.opened != 0);
    uint64_t end = 0;
    for (const StoredFrame& frame : found.frames) {
      ASSERT_GE(frame.position, end);
      end = frame.End();
      ASSERT_LE(end, copy.size());
      ASSERT_EQ(NumberAt(copy, frame.position + 24), frame.bytes.size());
    }
  }
}

TEST_F(Mp4ScanTest, FailedReads_EndTheScanWithTheirCode) {
  const SmallRecording recording(9, 100);
  ByteVector bytes = recording.file;
  bytes.insert(bytes.end(), 300000, 0x99);
  StoredFile counting(bytes);
  EXPECT_EQ(ScanFile(counting).result, 0);
  const uint64_t reads = counting.Count(StoredFile::kRead);
  ASSERT_GT(reads, 2u);
  for (uint64_t nth = 1; nth <= reads; ++nth) {
    StoredFile file(bytes);
    file.Fail(StoredFile::kRead, nth);
    const Found found = ScanFile(file);
    EXPECT_EQ(found.opened != 0 ? found.opened : found.result, Result(ZMV_E_READ)) << nth;
  }
}

TEST_F(Mp4ScanTest, NoMemory_IsItsCode) {
  const SmallRecording recording(9, 5);
  host.Fail(HostCall::kMalloc, 1);
  EXPECT_EQ(ScanBytes(recording.file).opened, Result(ZMV_E_MEMORY));
}

TEST_F(Mp4ScanTest, Memory_IsAWindowOrTheLargestFrame) {
  ByteVector bytes = front;
  for (uint32_t i = 0; i < 3000; ++i) {
    const ByteVector item = Audio(20 * i, ByteVector(700, 0x21));
    bytes.insert(bytes.end(), item.begin(), item.end());
  }
  const uint64_t before = host.LiveBytes();
  StoredFile file(bytes);
  recover::Mp4Scan scan(file);
  ASSERT_EQ(scan.Open(), 0);
  recover::FoundFrame frame;
  uint64_t most = 0;
  while (scan.Next(frame)) most = std::max(most, host.LiveBytes() - before);
  EXPECT_EQ(scan.Report().dwFrames, 3000u);
  EXPECT_LE(most, 256 * 1024u);
  EXPECT_LE(file.read_bytes(), bytes.size() * 101 / 100 + 2 * 256 * 1024) << "once, and the end of the file";
  EXPECT_LE(file.Count(StoredFile::kRead), bytes.size() / (250 * 1024) + 6);
}

TEST_F(Mp4ScanTest, Cancelling_StopsTheScan) {
  const SmallRecording recording(10, 100);
  struct Calls {
    uint32_t count = 0;
    uint64_t total = 0;
  } calls;
  ZMVRecoverParam param = {};
  param.pContext = &calls;
  param.pfnProgress = [](void* context, uint64_t, uint64_t total) -> uint32_t {
    static_cast<Calls*>(context)->total = total;
    return ++static_cast<Calls*>(context)->count == 1;
  };
  StoredFile file(recording.file);
  recover::Progress progress(param, file.Size());
  recover::Mp4Scan scan(file, &progress);
  ASSERT_EQ(scan.Open(), 0);
  recover::FoundFrame frame;
  EXPECT_FALSE(scan.Next(frame));
  EXPECT_EQ(scan.Result(), Result(ZMV_E_CANCELLED));
  EXPECT_FALSE(scan.Next(frame));
  EXPECT_EQ(calls.count, 1u);
  EXPECT_EQ(calls.total, recording.file.size());
}

}  // namespace
}  // namespace zmv::test

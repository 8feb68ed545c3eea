// The walk from one trun of a track to the next.
#include "mp4/mp4_fragments.h"

#include "tests/mp4/fragment_test.h"

namespace zmv::test {
namespace {

class TrunWalk : public FragmentTest {
 protected:
  uint32_t Next(uint32_t slot = 0) { return MP4ReaderReadTrun(reader_, &Track(slot)); }
  uint32_t Cursor(uint32_t slot = 0) { return ZMVStreamBuf_Pos(stream_, Track(slot).m_Frag.m_dwCursor); }
};

TEST_F(TrunWalk, Trun_LeavesTheCursorOnItsFlags) {
  FragmentFile file({VideoTrack()}, {Trex(1, 40)});
  const uint32_t moof = file.Size();
  file.Add({{.flags = kBaseOffset | kDescription | kDefaultDuration | kDefaultSize,
             .duration = 11,
             .size = 22,
             .boxes = FullBox("tfdt", {Be32(5)}),
             .runs = {{.samples = Samples(1, {3})}}}});
  ASSERT_EQ(Describe(file), 0u);
  ASSERT_EQ(Next(), 1u);
  EXPECT_EQ(Track(0).m_dwBaseOffset, moof);
  EXPECT_EQ(Track(0).m_dwTfhdDuration, 11u);
  EXPECT_EQ(Track(0).m_dwTfhdSize, 22u);
  // moof, mfhd, traf, tfhd of 36 bytes, tfdt, header of the trun
  EXPECT_EQ(Cursor(), moof + 8 + 16 + 8 + 36 + 16 + 8);
}

TEST_F(TrunWalk, BaseOffset_KeepsItsLowHalf) {
  FragmentFile file({VideoTrack()}, {Trex(1, 40)});
  const ByteVector tfhd = FlaggedBox("tfhd", kBaseOffset, Join({Be32(1), Be64(0x7'0000'0123)}));
  Append(file.bytes, Box("moof", Box("traf", {tfhd, BuildTrun({}, 0)})));
  ASSERT_EQ(Describe(file), 0u);
  ASSERT_EQ(Next(), 1u);
  EXPECT_EQ(Track(0).m_dwBaseOffset, 0x123u);
}

TEST_F(TrunWalk, TwoTfhdInOneTraf_EachTrunBelongsToTheOneInFront) {
  FragmentFile file({VideoTrack(), VideoTrack(2)}, {Trex(1, 40), Trex(2, 40)});
  const uint32_t moof = file.Size();
  const ByteVector mine = BuildTfhd({.track = 1, .flags = 0}, 0), other = BuildTfhd({.track = 2, .flags = 0}, 0);
  const ByteVector trun = BuildTrun({}, 0);
  Append(file.bytes, Box("moof", Box("traf", {mine, trun, other, trun, mine, trun})));
  ASSERT_EQ(Describe(file), 0u);
  const auto tfhd_size = static_cast<uint32_t>(mine.size()), trun_size = static_cast<uint32_t>(trun.size());
  ASSERT_EQ(Next(), 1u);
  EXPECT_EQ(Cursor(), moof + 16 + tfhd_size + 8);
  ZMVStreamBuf_Seek(stream_, Track(0).m_Frag.m_dwCursor, Cursor() - 8 + trun_size);
  ASSERT_EQ(Next(), 1u);
  EXPECT_EQ(Cursor(), moof + 16 + 3 * tfhd_size + 2 * trun_size + 8);
}

TEST_F(TrunWalk, TrafOfAnotherTrack_IsPassedOverWhole) {
  FragmentFile file({VideoTrack(), VideoTrack(2)}, {Trex(1, 40), Trex(2, 40)});
  const ByteVector mine = BuildTfhd({.track = 1, .flags = 0}, 0), other = BuildTfhd({.track = 2, .flags = 0}, 0);
  const ByteVector trun = BuildTrun({}, 0);
  // What follows the other track's tfhd in its traf does not count, a tfhd of this track included.
  const uint32_t start = file.Size();
  Append(file.bytes, Box("moof", {Box("traf", {mine}), Box("traf", {other, mine, trun}), Box("traf", {mine, trun})}));
  ASSERT_EQ(Describe(file), 0u);
  ASSERT_EQ(Next(), 1u);
  EXPECT_EQ(Cursor(),
            start + 8 + Box("traf", mine).size() + Box("traf", {other, mine, trun}).size() + 8 + mine.size() + 8);
}

TEST_F(TrunWalk, EndOfTheBoxes_IsNoTrunAndMovesNothing) {
  FragmentFile file({VideoTrack()}, {Trex(1, 40)});
  const ByteVector tails[] = {
      {},                                                // the end of the file
      Zeros(4),                                          // not even a header
      Zeros(8),                                          // size 0
      Join({Be32(7), Text("free")}),                     // size below a header
      Join({Be32(1), Text("trun"), Be64(0x100)}),        // 64-bit size
      Join({Be32(17), Text("trun"), Zeros(8)}),          // a byte longer than the data
      Join({Be32(0xFFFFFFFF), Text("moof"), Zeros(8)}),  // longer than any file
      Box("free", Zeros(8)),
  };
  for (const ByteVector& tail : tails) {
    FragmentFile cut = file;
    Append(cut.bytes, Box("moof", Box("traf", BuildTfhd({}, 0))));
    Append(cut.bytes, tail);
    ASSERT_EQ(Describe(cut), 0u);
    const uint32_t before = Cursor();
    for (int i = 0; i < 2; ++i) {
      EXPECT_EQ(Next(), 0u);
      EXPECT_EQ(Cursor(), before);
    }
  }
}

TEST_F(TrunWalk, ReadThatFails_GivesTheLowByteAndMovesNothing) {
  FragmentFile file({VideoTrack()}, {Trex(1, 40)});
  file.Add({{.boxes = Box("free", Zeros(3000)), .runs = {{.samples = Samples(1, {3})}}}});
  for (uint64_t n = 1; n <= 2; ++n) {
    ASSERT_EQ(Describe(file), 0u);
    const uint32_t before = Cursor();
    host_.Fail(HostCall::kRead, n == 1 ? 1 : 3);  // a read of the cursor's cache comes in two calls
    EXPECT_EQ(Next(), 0x12u) << n;
    EXPECT_EQ(Cursor(), before);
    host_.ClearFailures();
    EXPECT_EQ(Next(), 1u);
  }
}

TEST_F(TrunWalk, NullArgumentsAndTracksWithoutFragments_GiveNone) {
  ASSERT_EQ(Describe(FragmentFile({VideoTrack()})), 0u);
  EXPECT_EQ(Next(), 0u);
  EXPECT_EQ(MP4ReaderReadTrun(nullptr, &Track(0)), 0);
  EXPECT_EQ(MP4ReaderReadTrun(reader_, nullptr), 0);
}

TEST_F(TrunWalk, EntrySize_IsAWordForEachField) {
  using mp4::reader::TrunEntrySize;
  EXPECT_EQ(TrunEntrySize(kDataOffset | kFirstFlags), 0u);
  EXPECT_EQ(TrunEntrySize(kSizes), 4u);
  EXPECT_EQ(TrunEntrySize(kDurations | kFlags), 8u);
  EXPECT_EQ(TrunEntrySize(kDurations | kSizes | kFlags | kComposition | 0xFF00000F), 16u);
}

// ---- Counts that the box has no room for

TEST_F(TrunWalk, SampleCount_IsBoundedByTheBox) {
  FragmentFile file({VideoTrack()}, {Trex(1, 40)});
  file.Add(
      {{.runs = {{.flags = kDataOffset | kDurations | kSizes, .samples = Samples(1, {3, 4}), .count = 0xFFFFFFFF}}}});
  ASSERT_EQ(Describe(file), 0u);
  EXPECT_THAT(ReadPayloads(ZMV_MEDIA_VIDEO), testing::ElementsAreArray(Samples(1, {3, 4})));
}

TEST_F(TrunWalk, SampleCountWithoutFields_IsBoundedByTheFile) {
  FragmentFile file({VideoTrack()}, {Trex(1, 40)});
  file.Add({{.runs = {{.flags = kDataOffset, .count = 0xFFFFFFFF}}}});
  ASSERT_EQ(Describe(file), 0u);
  EXPECT_EQ(ReadAll(ZMV_MEDIA_VIDEO).size(), file.Size());
}

TEST_F(TrunWalk, TrunTooShortForItsHeader_HasNoSamples) {
  for (size_t size = 0; size < 8; ++size) {
    FragmentFile file({VideoTrack()}, {Trex(1, 40)});
    Append(file.bytes, Box("moof", Box("traf", {BuildTfhd({}, 0), Box("trun", ByteVector(size, 0xFF))})));
    ASSERT_EQ(Describe(file), 0u);
    EXPECT_EQ(Read(ZMV_MEDIA_VIDEO).code, ZMV_E_END) << size;
  }
}

}  // namespace
}  // namespace zmv::test

#include "mp4/mp4_table_cursor.h"
#include "tests/mp4/reader_test.h"

namespace zmv::test {
namespace {

using mp4::reader::TableCursor;
using ::testing::Contains;

class ReaderTables : public ReaderTest {
 protected:
  // Parses the children of an stbl box for a track of the medium.
  uint32_t ParseTables(uint32_t media, const ByteVector& boxes) {
    Load(boxes);
    track_ = MP4ReaderFindTrak(reader_, 1);
    track_->m_dwMediaType = media;
    return Code(MP4ReaderParseStbl(reader_, track_, static_cast<uint32_t>(boxes.size())));
  }
};

// ---- Set-up

TEST_F(ReaderTables, EveryTable_GetsACursorAtItsFirstEntry) {
  const ByteVector stts = Table("stts", 1, Words({3, 40}));
  const ByteVector stsc = Table("stsc", 1, Words({1, 2, 1}));
  const ByteVector stsz = FullBox("stsz", {Be32(0), Be32(2), Words({7, 8})});
  const ByteVector stco = Table("stco", 2, Words({100, 200}));
  const ByteVector stss = Table("stss", 1, Words({5}));
  ASSERT_EQ(ParseTables(ZMV_MEDIA_VIDEO, Join({stts, stsc, stsz, stco, stss})), 0u);
  uint32_t start = 0;
  EXPECT_EQ(track_->m_Stts.m_dwStart, start + 16);
  EXPECT_EQ(track_->m_dwSttsDelta, 40u);
  start += static_cast<uint32_t>(stts.size());
  EXPECT_EQ(track_->m_Stsc.m_dwStart, start + 16);
  EXPECT_EQ(track_->m_dwNextFirstChunk, 0u);
  start += static_cast<uint32_t>(stsc.size());
  EXPECT_EQ(track_->m_Stsz.m_dwStart, start + 20);
  EXPECT_EQ(track_->m_dwSampleCount, 2u);
  start += static_cast<uint32_t>(stsz.size());
  EXPECT_EQ(track_->m_Stco.m_dwStart, start + 16);
  EXPECT_EQ(track_->m_dwChunkCount, 2u);
  start += static_cast<uint32_t>(stco.size());
  EXPECT_EQ(track_->m_dwStssStart, start + 16);
  EXPECT_EQ(track_->m_dwNextSync, 5u);
  EXPECT_EQ(CursorsInUse(), 6u);
}

TEST_F(ReaderTables, Caches_AreOfOneKilobyte) {
  ASSERT_EQ(ParseTables(ZMV_MEDIA_VIDEO, Table("stco", 1, Words({1}))), 0u);
  EXPECT_EQ(host_.Calls(HostCall::kMalloc).back().size, 1024u);
}

TEST_F(ReaderTables, FirstDeltaZero_TakesTheSecond) {
  ASSERT_EQ(ParseTables(ZMV_MEDIA_VIDEO, Table("stts", 3, Words({1, 0, 5, 33, 6, 34}))), 0u);
  EXPECT_EQ(track_->m_dwSttsDelta, 33u);
  ASSERT_EQ(ParseTables(ZMV_MEDIA_VIDEO, Join({Table("stts", 1, Words({1, 0})), Box("free", Words({5, 33}))})), 0u);
  EXPECT_EQ(track_->m_dwSttsDelta, 0u);
}

TEST_F(ReaderTables, Counts_AreClampedToTheirBoxes) {
  for (uint32_t count : {3u, 0x40000000u, 0xFFFFFFFFu}) {
    ASSERT_EQ(ParseTables(ZMV_MEDIA_VIDEO, Join({
                                               Table("stts", count, Words({1, 1, 1, 1, 9})),
                                               Table("stsc", count, Words({1, 1, 1, 9, 9})),
                                               FullBox("stsz", {Be32(0), Be32(count), Words({7, 8}), Bytes({1, 2, 3})}),
                                               Table("stco", count, Words({7, 8})),
                                               Table("stss", count, Words({1, 2})),
                                           })),
              0u);
    EXPECT_EQ(track_->m_dwSttsCount, 2u);
    EXPECT_EQ(track_->m_dwStscCount, 1u);
    EXPECT_EQ(track_->m_dwSampleCount, 2u);
    EXPECT_EQ(track_->m_dwChunkCount, 2u);
    EXPECT_EQ(track_->m_dwStssCount, 2u);
  }
}

TEST_F(ReaderTables, ConstantSizeCount_IsClampedToTheFile) {
  const ByteVector stsz = FullBox("stsz", {Be32(9), Be32(0xFFFFFFFF)});
  ASSERT_EQ(ParseTables(ZMV_MEDIA_VIDEO, stsz), 0u);
  EXPECT_EQ(track_->m_dwSampleCount, static_cast<uint32_t>(stsz.size()));
}

TEST_F(ReaderTables, BoxesWithoutRoomForTheirFields_AreEmptyTables) {
  for (uint32_t size = 0; size < 12; ++size) {
    for (const char* type : {"stsd", "stts", "stsc", "stsz", "stco", "stss"}) {
      ASSERT_EQ(ParseTables(ZMV_MEDIA_AUDIO, Box(type, ByteVector(size, 0xFF))), 0u) << type << size;
      EXPECT_EQ(track_->m_dwSttsCount + track_->m_dwStscCount + track_->m_dwChunkCount + track_->m_dwStssCount, 0u);
      EXPECT_LE(track_->m_dwSampleCount, 20u);
    }
  }
}

TEST_F(ReaderTables, OtherTables_TakeNoCursor) {
  ASSERT_EQ(ParseTables(ZMV_MEDIA_VIDEO, Join({Table("ctts", 1, Words({1, 5})), Table("co64", 1, Words({0, 9}))})), 0u);
  EXPECT_EQ(CursorsInUse(), 1u);
}

TEST_F(ReaderTables, RepeatedTable_GivesTheFirstCursorBack) {
  ASSERT_EQ(ParseTables(ZMV_MEDIA_VIDEO, Join({Table("stco", 1, Words({1})), Table("stco", 2, Words({2, 3}))})), 0u);
  EXPECT_EQ(CursorsInUse(), 2u);
  EXPECT_EQ(track_->m_dwChunkCount, 2u);
}

TEST_F(ReaderTables, NoCursorLeft_FailsWithItsMessage) {
  Load(Table("stco", 1, Words({1})));
  uint32_t cursor = 0;
  while (CursorsInUse() < 20) ASSERT_EQ(ZMVStreamBuf_Index(stream_, &cursor, 0), 0);
  track_ = MP4ReaderFindTrak(reader_, 1);
  EXPECT_EQ(Code(MP4ReaderParseStbl(reader_, track_, 20)), ZMV_E_MEMORY);
  EXPECT_THAT(host_.Traces(1), Contains("[Reader]\t\tMP4ReaderParseStbl - ZMVStreamBuf_Index error!!!\n"));
}

// ---- Audio

TEST_F(ReaderTables, AudioChunks_BecomeSamplesInAnyOrderOfTheTables) {
  const ByteVector stts = Table("stts", 1, Words({8, 1}));
  const ByteVector stsc = Table("stsc", 1, Words({1, 4, 1}));
  const ByteVector stsz = FullBox("stsz", {Be32(2), Be32(11)});
  for (const ByteVector& boxes : {Join({stts, stsc, stsz}), Join({stsz, stsc, stts}), Join({stsc, stts, stsz})}) {
    ASSERT_EQ(ParseTables(ZMV_MEDIA_AUDIO, boxes), 0u);
    EXPECT_EQ(track_->m_dwSampleSize, 8u);
    EXPECT_EQ(track_->m_dwSampleCount, 2u);  // a shorter last chunk is left out
    EXPECT_EQ(track_->m_dwSttsDelta, 4u);
  }
  ASSERT_EQ(ParseTables(ZMV_MEDIA_VIDEO, Join({stts, stsc, stsz})), 0u);
  EXPECT_EQ(track_->m_dwSampleSize, 2u);
  EXPECT_EQ(track_->m_dwSttsDelta, 1u);
}

TEST_F(ReaderTables, AudioChunkTable_StandsBehindWhatWasRead) {
  ASSERT_EQ(ParseTables(ZMV_MEDIA_AUDIO, Table("stsc", 1, Words({1, 1, 77}))), 0u);
  EXPECT_EQ(track_->m_Stsc.m_dwStart, 16u + 8u);
  EXPECT_EQ(track_->m_dwNextFirstChunk, 76u);
}

TEST_F(ReaderTables, SizeOfAJoinedChunk_DoesNotWrap) {
  ASSERT_EQ(ParseTables(ZMV_MEDIA_AUDIO,
                        Join({Table("stsc", 1, Words({1, 0x10000, 1})), FullBox("stsz", {Be32(0x10000), Be32(40)})})),
            0u);
  EXPECT_EQ(track_->m_dwSampleSize, 0xFFFFFFFFu);
}

// ---- Positions

TEST_F(ReaderTables, Positions_AreSavedLoadedAndSet) {
  TrackSpec track = VideoTrack();
  track.entries = {VideoEntry("mp4v", {})};
  for (uint8_t i = 0; i < 6; ++i) track.frames.push_back(Unit(i, 3u + i));
  track.times = {{1, 1}, {1, 2}, {1, 3}, {1, 4}, {1, 5}, {1, 6}};
  track.sync = {{1, 2, 3}};
  ASSERT_EQ(Describe(BuildMp4({track})), 0u);
  MP4ReaderTrack& video = Track(0);
  for (int i = 0; i < 2; ++i) ASSERT_EQ(Read(ZMV_MEDIA_VIDEO).code, 0u);
  ASSERT_EQ(MP4ReaderSaveStblPos(reader_, &video), 0);
  const auto positions = [&] {
    std::vector<uint32_t> all;
    for (uint32_t cursor : {video.m_Stts.m_dwCursor, video.m_Stsc.m_dwCursor, video.m_Stsz.m_dwCursor,
                            video.m_Stco.m_dwCursor, video.m_dwStssCursor}) {
      all.push_back(ZMVStreamBuf_Pos(stream_, cursor));
    }
    return all;
  };
  const auto saved = positions();
  ASSERT_EQ(Read(ZMV_MEDIA_VIDEO).code, 0u);
  EXPECT_NE(positions(), saved);
  ASSERT_EQ(MP4ReaderSetStblPos(reader_, &video), 0);
  EXPECT_EQ(positions(), (std::vector<uint32_t>{video.m_Stts.m_dwStart, video.m_Stsc.m_dwStart, video.m_Stsz.m_dwStart,
                                                video.m_Stco.m_dwStart, video.m_dwStssStart}));
  EXPECT_EQ(video.m_dwSampleIndex, 3u);
  ASSERT_EQ(MP4ReaderLoadStblPos(reader_, &video), 0);
  EXPECT_EQ(positions(), saved);
}

TEST_F(ReaderTables, AbsentTables_AreLeftOut) {
  ASSERT_EQ(ParseTables(ZMV_MEDIA_VIDEO, Table("stco", 1, Words({1}))), 0u);
  const uint32_t walk = ZMVStreamBuf_Pos(stream_, reader_->m_dwIndex);
  EXPECT_EQ(MP4ReaderSaveStblPos(reader_, track_), 0);
  EXPECT_EQ(MP4ReaderSetStblPos(reader_, track_), 0);
  EXPECT_EQ(MP4ReaderLoadStblPos(reader_, track_), 0);
  EXPECT_EQ(ZMVStreamBuf_Pos(stream_, reader_->m_dwIndex), walk);
  EXPECT_EQ(Code(MP4ReaderSaveStblPos(reader_, nullptr)), ZMV_E_FAIL);
  EXPECT_EQ(Code(MP4ReaderLoadStblPos(reader_, nullptr)), ZMV_E_FAIL);
  EXPECT_EQ(Code(MP4ReaderSetStblPos(nullptr, track_)), ZMV_E_FAIL);
}

// ---- The cursor class

TEST_F(ReaderTables, Cursor_NeverReadsPastItsLastEntry) {
  Load(Words({1, 2, 3, 4}));
  MP4ReaderTable place = {};
  TableCursor table(*stream_, place, 4, 2);
  EXPECT_FALSE(table.Present());
  uint32_t word = 0;
  EXPECT_FALSE(table.Next(&word));
  ASSERT_EQ(table.Open(4), 0);
  EXPECT_TRUE(table.Next(&word));
  EXPECT_EQ(word, 2u);
  EXPECT_TRUE(table.Next(&word));
  EXPECT_EQ(word, 3u);
  EXPECT_FALSE(table.Next(&word));
  EXPECT_EQ(word, 3u);
  EXPECT_FALSE(table.Failed());
  EXPECT_EQ(table.SeekTo(1), 0);
  table.Save();
  EXPECT_TRUE(table.Next(&word));
  EXPECT_EQ(table.Restore(), 0);
  EXPECT_EQ(table.Position(), 8u);
  EXPECT_EQ(table.SeekTo(99), 0);
  EXPECT_EQ(table.Position(), 12u);
  table.Release();
  EXPECT_EQ(CursorsInUse(), 1u);
}

TEST_F(ReaderTables, Cursor_KeepsItsFirstFailure) {
  Load(Words({1, 2, 3, 4}));
  MP4ReaderTable place = {};
  TableCursor table(*stream_, place, 4, 4);
  ASSERT_EQ(table.Open(0), 0);
  host_.Fail(HostCall::kRead, 1);
  uint32_t word = 9;
  EXPECT_FALSE(table.Next(&word));
  EXPECT_EQ(Code(table.Error()), ZMV_E_READ);
  EXPECT_FALSE(table.Next(&word));
  EXPECT_EQ(word, 9u);
}

}  // namespace
}  // namespace zmv::test

#include "tools/zmv/riff_frames.h"

#include <gtest/gtest.h>

#include "facade/zmvstream_media.h"
#include "tests/tools/riff_bytes.h"
#include "tests/tools/temp_folder.h"

namespace zmv::tool {
namespace {

const Bytes kStreams = Joined(
    {Stream("vids", "H264", 1000, 30000), Stream("auds", "PCM ", 4, 192000, 4), Stream("txts", "GPS ", 1000, 2000)});

class RiffFrames : public testing::Test {
 protected:
  std::vector<RiffTrack> Count(const Bytes& file) {
    WriteBytes(path_, file);
    map_ = ScanFile(path_);
    return CountRiffFrames(path_, map_);
  }

  const TempFolder folder_;
  const std::string path_ = folder_ / "file.avi";
  FileMap map_;
};

TEST_F(RiffFrames, Index_TellsFramesBytesAndEmptyOnes) {
  const Bytes media = List("movi", Joined({Chunk("00dc", Bytes(9)), Chunk("01wb", Bytes(400)), Chunk("00dc", {}),
                                           Chunk("00dc", Bytes(3)), Chunk("02tx", Bytes(5))}));
  const Bytes index =
      Chunk("idx1", Joined({IndexEntry("00dc", 4, 9), IndexEntry("01wb", 22, 400), IndexEntry("00dc", 430, 0),
                            IndexEntry("00dc", 438, 3), IndexEntry("02tx", 450, 5), IndexEntry("99dc", 0, 1)}));
  const std::vector<RiffTrack> tracks = Count(Form("AVI ", Joined({Headers(kStreams), media, index})));
  ASSERT_EQ(tracks.size(), 3u);
  EXPECT_EQ(tracks[0].frames, 2u);
  EXPECT_EQ(tracks[0].intervals, 3u);
  EXPECT_EQ(tracks[0].bytes, 12u);
  EXPECT_EQ(tracks[0].DurationMs(), 100u);  // three intervals of 33.3 ms
  EXPECT_EQ(tracks[1].bytes, 400u);
  EXPECT_EQ(tracks[1].DurationMs(), 2u);  // 100 samples
  EXPECT_EQ(tracks[2].frames, 1u);
  EXPECT_EQ(tracks[2].hidden, 0u);
  EXPECT_EQ(tracks[0].UnitsUs(1), 33333);
}

TEST_F(RiffFrames, WithoutIndex_ChunksAreCountedAndTextIsHidden) {
  const Bytes group = List("rec ", Joined({Chunk("00dc", Bytes(7)), Chunk("01wb", Bytes(8))}));
  const Bytes media = List("movi", Joined({Chunk("00dc", Bytes(9)), group, Chunk("JUNK", Bytes(5)),
                                           Chunk("02tx", Bytes(6)), Chunk("00dc", Bytes(2))}));
  const std::vector<RiffTrack> tracks = Count(Form("AVI ", Joined({Headers(kStreams, 0), media})));
  ASSERT_EQ(tracks.size(), 3u);
  EXPECT_EQ(tracks[0].frames, 3u);
  EXPECT_EQ(tracks[0].bytes, 18u);
  EXPECT_EQ(tracks[1].frames, 1u);
  EXPECT_EQ(tracks[2].frames, 0u);
  EXPECT_EQ(tracks[2].hidden, 1u);
}

TEST_F(RiffFrames, CutChunk_EndsTheWalk) {
  Bytes file = Form(
      "AVI ", Joined({Headers(kStreams), List("movi", Joined({Chunk("00dc", Bytes(9)), Chunk("00dc", Bytes(50))}))}));
  file.resize(file.size() - 1);
  const std::vector<RiffTrack> tracks = Count(file);
  EXPECT_EQ(tracks[0].frames, 1u);
}

TEST_F(RiffFrames, SecondForm_IsWalkedToo) {
  const Bytes stream = Stream("vids", "H264", 1000, 30000, 0, Chunk("indx", Bytes(24)));
  const Bytes media = List("movi", Joined({Chunk("ix00", Bytes(24)), Chunk("00dc", Bytes(9))}));
  const std::vector<RiffTrack> tracks =
      Count(Joined({Form("AVI ", Joined({Headers(stream), media})), Form("AVIX", media)}));
  EXPECT_EQ(map_.index, "OpenDML");
  EXPECT_EQ(tracks[0].frames, 2u);
}

TEST_F(RiffFrames, Positions_FollowOneStreamUntilASizeDiffers) {
  const Bytes media =
      List("movi", Joined({Chunk("00dc", Bytes(9, 0xA0)), Chunk("01wb", Bytes(8)), Chunk("00dc", Bytes(4, 0xA1)),
                           Chunk("00dc", {}), Chunk("00dc", Bytes(6, 0xA2)), Chunk("00dc", Bytes(6, 0xA3))}));
  Count(Form("AVI ", Joined({Headers(kStreams, 0), media})));
  const Bytes file = ReadBytes(path_);
  RiffPositions positions(path_, map_, 0);
  const uint32_t sizes[] = {9, 4, 6};
  for (uint8_t i = 0; i < 3; ++i) {
    const auto position = positions.Next(sizes[i]);
    ASSERT_TRUE(position.has_value()) << int{i};
    EXPECT_EQ(file[*position], 0xA0 + i);
  }
  EXPECT_FALSE(positions.Next(7).has_value());
  EXPECT_FALSE(positions.Next(6).has_value());
}

}  // namespace
}  // namespace zmv::tool

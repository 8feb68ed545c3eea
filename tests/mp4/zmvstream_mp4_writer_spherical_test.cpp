#include "mp4/mp4_writer_boxes.h"
#include "tests/mp4/writer_test.h"

namespace zmv::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr uint8_t kFiller = 0xEE;
constexpr uint32_t kNone = mp4::kNoSampleDescription;
constexpr size_t kEntryEnd = 16 + 86;  // stsd and the fields of a video sample entry
constexpr size_t kAvccSize = 19;       // without parameter sets
constexpr size_t kBtrtSize = 20;

// clang-format off
const ByteVector kStereoSt3d = Join({
    Be32(13), Text("st3d"),  // box
    Be32(0),                 // version, flags
    Bytes({0}),              // stereo mode: monoscopic
});
const ByteVector kStereoNt3d = Join({
    Be32(13), Text("nt3d"),  // box
    Be32(0),                 // version, flags
    Bytes({0}),              // stereo mode
});
const ByteVector kNamedSource = Join({
    Be32(30), Text("svhd"),     // box
    Be32(0),                    // version, flags
    Text("KPZ 3D Projection"),  // metadata source ...
    Bytes({0}),                 // ... and its end
});
const ByteVector kEmptySource = Join({
    Be32(13), Text("svhd"),  // box
    Be32(0),                 // version, flags
    Bytes({0}),              // the end of an empty metadata source
});
const ByteVector kPose = Join({
    Be32(24), Text("prhd"),        // box
    Be32(0),                       // version, flags
    Be32(0), Be32(0), Be32(0),     // yaw, pitch, roll
});
// clang-format on

// A stream whose projection is set up by the writer, and a destination in which untouched bytes show.
class WriterSpherical : public WriterTest {
 protected:
  MP4WriterTrack& StartWithMode(uint32_t mode, uint32_t code = kH264) {
    ZMVVideoInfo& video = AddVideo(code);
    video.dwProjectionMode = mode;
    video.dwStereoBound = 0x01020304;
    video.dwStereoParam[0] = 0x11121314;
    video.dwStereoParam[1] = 0x21222324;
    Start();
    host.ClearRecords();
    return Track(0);
  }
  ByteVector Boxes() {
    std::fill(dst_.begin(), dst_.end(), kFiller);
    const uint32_t size = mp4::MakeSphericalBoxes(Track(0), dst_.data());
    if (size >= dst_.size()) {
      ADD_FAILURE() << "no boxes";
      return {};
    }
    EXPECT_EQ(dst_[size], kFiller);
    return ByteVector(dst_.begin(), dst_.begin() + size);
  }
  // One picture in every video track.
  void WritePictures() {
    for (uint32_t i = 0; i < info.dwVideoCount; ++i) {
      EXPECT_EQ(Write(ZMV_MEDIA_VIDEO, ByteVector(40 + i, 0x55), 0, 33333, i, ZMV_KEY_FRAME), 0);
    }
  }
  uint32_t StsdSize() { return MP4WriterMakeStsd(&Track(0), dst_.data()); }
  ByteVector Stsd() { return ByteVector(dst_.begin(), dst_.begin() + StsdSize()); }

  ByteVector dst_ = ByteVector(2048, kFiller);
};

// ---- The two variants

// clang-format off
TEST_F(WriterSpherical, Mode7_GivesSt3dAndEqui) {
  StartWithMode(7);
  const ByteVector boxes = Boxes();
  EXPECT_EQ(boxes.size(), 115u);
  EXPECT_EQ(Difference(boxes, Join({
      kStereoSt3d,
      Be32(102), Text("sv3d"),  // box
      kNamedSource,
      Be32(64), Text("proj"),   // box
      kPose,
      Be32(32), Text("equi"),   // box
      Be32(0),                  // version, flags
      Be32(0),                  // nothing
      Be32(0), Be32(0), Be32(0), Be32(0),  // bounds: the description's belong to the circular image
  })), "");
}

TEST_F(WriterSpherical, Mode1_GivesNt3dAndCirc) {
  StartWithMode(1);
  EXPECT_EQ(Difference(Boxes(), Join({
      kStereoNt3d,
      Be32(102), Text("sv3d"),  // box
      kNamedSource,
      Be32(64), Text("proj"),   // box
      kPose,
      Be32(32), Text("circ"),   // box
      Be32(0),                  // version, flags
      Be32(0),                  // projection type
      Be32(0x01020304), Be32(0x11121314), Be32(0x21222324),  // bounds of the description
      Be32(0),                  // nothing
  })), "");
}

TEST_F(WriterSpherical, OtherModes_GiveSt3dAndEquiWithoutASource) {
  StartWithMode(3);
  EXPECT_EQ(Difference(Boxes(), Join({
      kStereoSt3d,
      Be32(85), Text("sv3d"),  // box
      kEmptySource,
      Be32(64), Text("proj"),  // box
      kPose,
      Be32(32), Text("equi"),  // box
      Be32(0),                 // version, flags
      Be32(0), Be32(0), Be32(0), Be32(0), Be32(0),  // nothing, bounds
  })), "");
}

TEST_F(WriterSpherical, EveryField_HasItsPlaceInBothVariants) {
  MP4WriterTrack& track = StartWithMode(7);
  track.m_dwStereoMode = 0x302;  // its low byte counts
  track.m_dwProjYaw = 0xA1;
  track.m_dwProjPitch = 0xA2;
  track.m_dwProjRoll = 0xA3;
  for (uint32_t i = 0; i < 4; ++i) track.m_dwProjBound[i] = 0xB1 + i;
  track.m_pszMetaSource = "s";
  const auto expected = [](const char* stereo, const char* projection, const ByteVector& words) {
    return Join({
        Be32(13), Text(stereo), Be32(0), Bytes({2}),                               // stereo mode
        Be32(86), Text("sv3d"),
        Be32(14), Text("svhd"), Be32(0), Text("s"), Bytes({0}),                    // metadata source
        Be32(64), Text("proj"),
        Be32(24), Text("prhd"), Be32(0), Be32(0xA1), Be32(0xA2), Be32(0xA3),       // yaw, pitch, roll
        Be32(32), Text(projection), Be32(0), words});
  };
  EXPECT_EQ(Difference(Boxes(), expected("st3d", "equi", Join({
      Be32(0),                                             // nothing
      Be32(0xB1), Be32(0xB2), Be32(0xB3), Be32(0xB4)}))),  // four bounds
      "");
  track.m_bStereo = 1;
  EXPECT_EQ(Difference(Boxes(), expected("nt3d", "circ", Join({
      Be32(0),                                 // projection type
      Be32(0xB1), Be32(0xB2), Be32(0xB3),      // three bounds
      Be32(0)}))),                             // nothing
      "");
}
// clang-format on

TEST_F(WriterSpherical, Stereo_ChoosesTheCircularVariantByItself) {
  MP4WriterTrack& track = StartWithMode(7);
  track.m_bSpherical = 0;
  EXPECT_THAT(Boxes(), IsEmpty());
  track.m_bStereo = 1;
  EXPECT_EQ(ByteVector(dst_.begin(), dst_.begin() + mp4::MakeSphericalBoxes(track, dst_.data()) - 102), kStereoNt3d);
}

// ---- Metadata source

TEST_F(WriterSpherical, EmptySource_GivesSvhdOf13Bytes) {
  MP4WriterTrack& track = StartWithMode(7);
  for (const char* source : {"", static_cast<const char*>(nullptr)}) {
    track.m_pszMetaSource = source;
    const ByteVector boxes = Boxes();
    ASSERT_EQ(boxes.size(), 98u);
    EXPECT_EQ(ByteVector(boxes.begin() + 21, boxes.begin() + 34), kEmptySource);
  }
}

TEST_F(WriterSpherical, LongSource_IsCutTo127Characters) {
  MP4WriterTrack& track = StartWithMode(7);
  for (const size_t length : {126u, 127u, 128u, 1000u}) {
    const std::string source(length, 'm');
    track.m_pszMetaSource = source.c_str();
    const auto kept = static_cast<uint32_t>(std::min<size_t>(length, 127));
    const ByteVector boxes = Boxes();
    ASSERT_EQ(boxes.size(), 98u + kept) << length;
    EXPECT_LE(boxes.size(), mp4::kMaxSphericalBoxes);
    EXPECT_EQ(Be32At(boxes, 13), 85u + kept);  // sv3d
    EXPECT_EQ(ByteVector(boxes.begin() + 21, boxes.begin() + 34 + kept),
              Join({Be32(13 + kept), Text("svhd"), Be32(0), ByteVector(kept, 'm'), Bytes({0})}));
  }
  track.m_pszMetaSource = nullptr;
}

// ---- Projection types

// clang-format off
TEST_F(WriterSpherical, Types1And2_HaveNoProjectionBox) {
  for (const bool stereo : {false, true}) {
    for (const uint32_t type : {1u, 2u}) {
      MP4WriterTrack& track = writer == nullptr ? StartWithMode(7) : Track(0);
      track.m_bStereo = stereo ? 1 : 0;
      track.m_dwProjType = type;
      EXPECT_EQ(Difference(Boxes(), Join({
          stereo ? kStereoNt3d : kStereoSt3d,
          Be32(70), Text("sv3d"),  // box
          kNamedSource,
          Be32(32), Text("proj"),  // box, which ends behind the pose
          kPose,
      })), "");
    }
  }
  EXPECT_THAT(host.Traces(1), IsEmpty());
}
// clang-format on

TEST_F(WriterSpherical, OtherTypes_FailTheSampleDescription) {
  MP4WriterTrack& track = StartWithMode(7);
  for (const uint32_t type : {3u, 4u, 0xFFFFFFFFu}) {
    track.m_dwProjType = type;
    EXPECT_EQ(mp4::MakeSphericalBoxes(track, dst_.data()), kNone);
    EXPECT_EQ(static_cast<int32_t>(StsdSize()), -1);
  }
  EXPECT_THAT(host.Traces(1), IsEmpty());  // only the circular variant has a message
  track.m_bStereo = 1;
  track.m_dwProjType = 3;
  EXPECT_EQ(StsdSize(), kNone);
  EXPECT_THAT(host.Traces(1), ElementsAre("invalid projection type(3)\n"));
  track.m_dwProjType = 0xFFFFFFFF;
  EXPECT_EQ(StsdSize(), kNone);
  EXPECT_EQ(host.Traces(1).back(), "invalid projection type(-1)\n");
  EXPECT_EQ(host.traces().back().module, "ZMVMP4W");
}

TEST_F(WriterSpherical, FailedDescription_LeavesTheOtherTracksRight) {
  AddVideo();
  AddVideo().dwProjectionMode = 1;
  AddAudio();
  Start();
  WritePictures();
  EXPECT_EQ(WriteAudio(20), 0);
  Track(1).m_dwProjType = 3;
  CloseWriter();
  const ByteVector moov = BoxAt(File(), {"moov"});
  ASSERT_FALSE(moov.empty());
  EXPECT_EQ(Be32At(BoxAt(File(), {"moov", "trak", "tkhd"}, 2), 20), 3u);  // track ID
  EXPECT_EQ(SampleTableBox(File(), "stsz", 2), Join({Be32(20), Text("stsz"), Be32(0), Be32(20), Be32(1)}));
}

// ---- Inside the sample entry

TEST_F(WriterSpherical, Boxes_StandBehindConfigurationAndBitRates) {
  for (const uint32_t mode : {0u, 1u, 7u}) {
    info = {};
    StartWithMode(mode);
    const ByteVector stsd = Stsd();
    const ByteVector boxes = Boxes();
    EXPECT_EQ(boxes.size(), mode == 0 ? 0u : 115u);
    EXPECT_EQ(stsd.size(), kEntryEnd + kAvccSize + kBtrtSize + boxes.size());
    EXPECT_EQ(Be32At(stsd, 0), stsd.size());
    EXPECT_EQ(Be32At(stsd, 16), stsd.size() - 16);
    EXPECT_EQ(ByteVector(stsd.begin() + kEntryEnd + 4, stsd.begin() + kEntryEnd + 8), Text("avcC"));
    EXPECT_EQ(Be32At(stsd, kEntryEnd + kAvccSize), kBtrtSize);
    EXPECT_EQ(ByteVector(stsd.begin() + kEntryEnd + kAvccSize + kBtrtSize, stsd.end()), boxes);
    Close();
  }
}

TEST_F(WriterSpherical, OtherCodecs_DropTheBoxes) {
  for (const uint32_t code : {FourCC("H265"), FourCC("MP4V"), FourCC("X264")}) {
    ByteVector plain;
    for (const uint32_t mode : {0u, 1u, 7u}) {
      info = {};
      StartWithMode(mode, code);
      if (mode == 0) plain = Stsd();
      EXPECT_EQ(Stsd(), plain);
      Close();
    }
  }
}

TEST_F(WriterSpherical, Recording_CarriesTheBoxesOfEveryTrack) {
  for (const uint32_t mode : {7u, 0u, 1u}) AddVideo().dwProjectionMode = mode;
  Start();
  WritePictures();
  const uint32_t mdat_end = MdatEnd();
  CloseWriter();
  // clang-format off
  const std::vector<std::vector<std::string>> expected = {
      {"avcC", "btrt", "st3d", "sv3d"},
      {"avcC", "btrt"},
      {"avcC", "btrt", "nt3d", "sv3d"},
  };
  // clang-format on
  for (uint32_t i = 0; i < 3; ++i) {
    const ByteVector stsd = SampleTableBox(File(), "stsd", i);
    ASSERT_FALSE(stsd.empty());
    EXPECT_EQ(Types(BoxesIn(stsd, kEntryEnd, stsd.size())), expected[i]);
  }
  EXPECT_EQ(mdat_end + Be32At(File(), mdat_end), File().size());  // moov reaches to the end
}

TEST_F(WriterSpherical, Below4GiB_RoomForTheBoxesIsKept) {
  // The longest boxes of nine tracks take more than what is kept back for nine tracks without.
  for (uint32_t i = 0; i < 9; ++i) AddVideo().dwProjectionMode = 7;
  Start();
  const std::string source(127, 'm');
  for (uint32_t i = 0; i < 9; ++i) Track(i).m_pszMetaSource = source.c_str();
  EXPECT_EQ(WriteVideo(40, 0, ZMV_KEY_FRAME), 0);
  const uint32_t projected = writer->m_dwCurSize;
  constexpr uint32_t kFrame = 28 + 40;
  constexpr uint32_t kBoxes = 9 * mp4::kMaxSphericalBoxes;
  // Everything but the boxes: a frame and its table entries, and what closing needs for nine tracks.
  constexpr uint32_t kRest = kFrame + 32 + 8 + 9 * 92;
  writer->m_dwCurSize = 0xFFFFFFFF - kRest - kBoxes + 1;
  EXPECT_EQ(static_cast<uint32_t>(WriteVideo(40)), ZMV_E_WRITE);
  writer->m_dwCurSize = 0xFFFFFFFF - kRest - kBoxes;
  EXPECT_EQ(WriteVideo(40), 0);
  writer->m_dwCurSize = projected;
  CloseWriter();
}

TEST_F(WriterSpherical, LongestBoxesBehindTheLargestConfiguration_FillTheBoxBuffer) {
  constexpr size_t kTrackHeaders = 249;  // in front of stsd
  constexpr size_t kSets = 16252;        // the PPS that fills the configuration
  MP4WriterTrack& track = StartWithMode(1);
  const std::string source(127, 'm');
  dst_.resize(20 * 1024, kFiller);
  // Zeros in the PPS grow by a half when they are escaped: one byte for every two, but for the first.
  for (const size_t escapes : {534u, 535u}) {
    ByteVector config = Join({Be32(1), Hex("67 42 C0 0A DA 08 18"), Be32(1), Bytes({0x68}), Zeros(2 * escapes + 1)});
    config.resize(16267, 0x55);
    track.m_pConfig = config.data();
    track.m_dwConfigSize = static_cast<uint32_t>(config.size());
    track.m_pszMetaSource = source.c_str();
    std::fill(dst_.begin(), dst_.end(), kFiller);
    const bool fits = escapes == 534;
    const size_t size = kEntryEnd + 8 + 18 + kSets + escapes + kBtrtSize + mp4::kMaxSphericalBoxes;
    EXPECT_EQ(StsdSize(), fits ? size : kNone);
    if (fits) {
      EXPECT_EQ(kTrackHeaders + size, mp4::kBoxBufferAllocation);
    }
    EXPECT_EQ(dst_[mp4::kBoxBufferAllocation - kTrackHeaders], kFiller);
    track.m_pConfig = nullptr;
    track.m_dwConfigSize = 0;
    track.m_pszMetaSource = nullptr;
  }
}

// ---- Boxes on their own

class WriterSphericalBox : public WriterTest {
 protected:
  using Call = int32_t (*)(MP4WriterHandle*);
  // What a call appends to the file.
  ByteVector Appended(Call call, int32_t result) {
    const size_t before = File().size();
    const uint32_t projected = writer->m_dwCurSize;
    const uint32_t mdat = writer->m_dwMdatSize;
    EXPECT_EQ(call(writer), result);
    EXPECT_EQ(writer->m_dwCurSize, projected);
    EXPECT_EQ(writer->m_dwMdatSize, mdat);
    return FileFrom(before);
  }
};

TEST_F(WriterSphericalBox, Vhdr_Is140BytesOfZerosBehindItsHeader) {
  ASSERT_EQ(Open(), 0);
  EXPECT_EQ(Appended(&MP4WriterWriteSphericalVhdr, 140), Join({Be32(140), Text("svhd"), Zeros(132)}));
}

TEST_F(WriterSphericalBox, ProjectionAndItsHandler_AreOneEmptyBox) {
  ASSERT_EQ(Open(), 0);
  const ByteVector proj = Join({Be32(8), Text("proj")});
  EXPECT_EQ(Appended(&MP4WriterWriteProjectionHdlr, 8), proj);
  EXPECT_EQ(Appended(&MP4WriterWriteProjection, 8), proj);
  EXPECT_EQ(Appended(&MP4WriterWriteSphericalVhdr, 140).size(), 140u);  // behind the others
}

TEST_F(WriterSphericalBox, Failures_AreHandedBack) {
  ASSERT_EQ(Open(), 0);
  for (const Call call : {&MP4WriterWriteSphericalVhdr, &MP4WriterWriteProjectionHdlr, &MP4WriterWriteProjection}) {
    EXPECT_EQ(static_cast<uint32_t>(call(nullptr)), ZMV_E_FAIL);
    EXPECT_EQ(host.Traces(1).back(), "no handle\n");
    host.Fail(HostCall::kWrite, 1);
    const int32_t result = call(writer);
    EXPECT_EQ(static_cast<uint32_t>(result), ZMV_E_WRITE);
    EXPECT_TRUE(host.Traced("err (0x80000013)\n"));
    EXPECT_NE(host.Traces(4).back(), "Leave.\n");
    host.ClearRecords();
  }
  EXPECT_THAT(File(), IsEmpty());
}

}  // namespace
}  // namespace zmv::test

// Stereo and spherical metadata, written and read back.
#include "mp4/zmvstream_mp4_writer.h"
#include "tests/mp4/reader_test.h"

namespace zmv::test {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;

// The six words of a description that are about the projection.
std::vector<uint32_t> Words(const ZMVVideoInfo& video) {
  return {video.dwSpherical,      video.dwProjectionMode, video.dwStereoBound,
          video.dwStereoTypeZero, video.dwStereoParam[0], video.dwStereoParam[1]};
}

class SphericalRoundTrip : public ReaderTest {
 protected:
  static ZMVFileInfo VideoFile(uint32_t code, uint32_t mode) {
    ZMVFileInfo info = {};
    info.m_dwFileType = 1;
    info.dwTimeScale = 90000;
    info.dwVideoCount = 1;
    ZMVVideoInfo& video = info.m_Video[0];
    video.dwFourCC = code;
    video.dwWidth = 1920;
    video.dwHeight = 960;
    video.dwFrameRate = 30000;
    video.dwProjectionMode = mode;
    video.dwStereoBound = 11;
    video.dwStereoParam[0] = 22;
    video.dwStereoParam[1] = 0x80000033;
    return info;
  }
  // Records one picture of every video and hands back the file.
  ByteVector Record(const ZMVFileInfo& info) {
    ZMVStreamBuf* out = nullptr;
    MP4WriterHandle* writer = nullptr;
    EXPECT_EQ(ZMVStreamBuf_Open(&out, "own.mp4", 0, ZMV_STREAM_WRITE), 0);
    EXPECT_EQ(MP4WriterOpen(&writer, out, 1, 0), 0);
    EXPECT_EQ(MP4WriterSetInfo(writer, &info, 0), 0);
    ByteVector picture = StartCoded(Unit(0x65, 50));
    ZMVFrame frame = {};
    frame.pData = picture.data();
    frame.dwSize = static_cast<uint32_t>(picture.size());
    frame.dwDuration = 33333;
    frame.dwMediaType = ZMV_MEDIA_VIDEO;
    frame.dwKeyFrame = ZMV_KEY_FRAME;
    for (frame.dwTrack = 0; frame.dwTrack < info.dwVideoCount; ++frame.dwTrack) {
      EXPECT_EQ(MP4WriterWriteFrame(writer, &frame), 0);
    }
    MP4WriterClose(writer);
    ZMVStreamBuf_Close(out);
    return host_.File("own.mp4");
  }
};

TEST_F(SphericalRoundTrip, StereoMode_ComesBackAndCanBeWrittenAgain) {
  ASSERT_EQ(Describe(Record(VideoFile(FourCC("H264"), 1))), 0u);
  const std::vector<uint32_t> words = Words(info_->m_Video[0]);
  // Present, mode, first bound, projection type is 0, second and third bound.
  EXPECT_THAT(words, ElementsAre(1u, 1u, 11u, 1u, 22u, 0x80000033u));
  EXPECT_THAT(host_.Traces(2), Contains("Shperical Header Meta info (KPZ 3D Projection)\n"));
  EXPECT_EQ(Read(ZMV_MEDIA_VIDEO).data, StartCoded(Unit(0x65, 50)));

  for (uint32_t generation = 0; generation < 2; ++generation) {
    const ZMVFileInfo read_back = *info_;
    ASSERT_EQ(Describe(Record(read_back)), 0u);
    EXPECT_EQ(Words(info_->m_Video[0]), words);
  }
}

TEST_F(SphericalRoundTrip, EveryVideo_KeepsItsOwnBounds) {
  ZMVFileInfo info = VideoFile(FourCC("H264"), 1);
  info.dwVideoCount = 2;
  info.m_Video[1] = info.m_Video[0];
  info.m_Video[1].dwStereoBound = 77;
  ASSERT_EQ(Describe(Record(info)), 0u);
  EXPECT_THAT(Words(info_->m_Video[0]), ElementsAre(1u, 1u, 11u, 1u, 22u, 0x80000033u));
  EXPECT_THAT(Words(info_->m_Video[1]), ElementsAre(1u, 1u, 77u, 1u, 22u, 0x80000033u));
}

TEST_F(SphericalRoundTrip, OtherModes_AreRefusedByTheReader) {
  for (const uint32_t mode : {2u, 3u, 7u, 0xFFFFFFFFu}) {
    host_.ClearRecords();
    EXPECT_EQ(Describe(Record(VideoFile(FourCC("H264"), mode))), ZMV_E_FAIL) << mode;
    EXPECT_THAT(host_.Traces(2), Contains("is not projection data box fourcc(equi)\n"));
  }
}

TEST_F(SphericalRoundTrip, Hevc_LosesTheProjection) {
  for (const uint32_t mode : {1u, 7u}) {
    ZMVFileInfo info = VideoFile(FourCC("H265"), mode);
    ASSERT_EQ(Describe(Record(info)), 0u) << mode;
    EXPECT_THAT(Words(info_->m_Video[0]), ElementsAre(0u, 0u, 0u, 0u, 0u, 0u));
  }
}

TEST_F(SphericalRoundTrip, NoProjection_HasNoWords) {
  const ByteVector file = Record(VideoFile(FourCC("H264"), 0));
  const std::string text(file.begin(), file.end());
  for (const char* type : {"st3d", "nt3d", "sv3d"}) EXPECT_EQ(text.find(type), std::string::npos) << type;
  ASSERT_EQ(Describe(file), 0u);
  EXPECT_THAT(Words(info_->m_Video[0]), ElementsAre(0u, 0u, 0u, 0u, 0u, 0u));
}

}  // namespace
}  // namespace zmv::test

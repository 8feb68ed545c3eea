#include "tests/mp4/reader_test.h"

namespace zmv::test {
namespace {

using ::testing::Contains;

class ReaderSpherical : public ReaderTest {
 protected:
  static ByteVector Spherical(const std::string& type, const ByteVector& source = Text("KPZ 3D Projection"),
                              const std::string& projection = "circ") {
    const ByteVector bounds = Words({0, 11, 22, 33, 44});
    const ByteVector proj = Box("proj", {FullBox("prhd", {Be32(1), Be32(2), Be32(3)}), FullBox(projection, {bounds})});
    return Box(type, {FullBox("svhd", {source, Bytes({0})}), proj});
  }
  static ByteVector Payload(const ByteVector& box) { return ByteVector(box.begin() + 8, box.end()); }
  static TrackSpec SphericalTrack(const ByteVector& boxes) {
    TrackSpec track = VideoTrack();
    track.entries = {VideoEntry("avc1", Join({Box("avcC", AvcConfig()), boxes}))};
    return track;
  }
};

TEST_F(ReaderSpherical, StereoMode_IsOneByte) {
  ASSERT_EQ(Parse(&MP4ReaderParseST3D, Bytes({0, 0, 0, 0, 2})), 0u);
  EXPECT_EQ(track_->m_dwStereoMode, 2u);
  EXPECT_EQ(track_->m_bSpherical, 0);
  ASSERT_EQ(Parse(&MP4ReaderParseST3D, Bytes({0, 0, 0})), 0u);
  EXPECT_EQ(track_->m_dwStereoMode, 0u);
}

TEST_F(ReaderSpherical, Bounds_AreReadAndTheSourceIsTraced) {
  ASSERT_EQ(Parse(&MP4ReaderParseSV3D, Payload(Spherical("sv3d"))), 0u);
  EXPECT_EQ(track_->m_dwProj0, 0u);
  EXPECT_EQ(track_->m_dwProj1, 11u);
  EXPECT_EQ(track_->m_dwProj2, 22u);
  EXPECT_EQ(track_->m_dwProj3, 33u);
  EXPECT_THAT(host_.Traces(2), Contains("Shperical Header Meta info (KPZ 3D Projection)\n"));
}

TEST_F(ReaderSpherical, OwnBoxes_ComeBackInTheDescription) {
  for (const char* type : {"sv3d", "nv3d"}) {
    ASSERT_EQ(Describe(BuildMp4({SphericalTrack(Join({FullBox("nt3d", {Bytes({1})}), Spherical(type)}))})), 0u);
    const ZMVVideoInfo& video = info_->m_Video[0];
    EXPECT_EQ(video.dwSpherical, 1u);
    EXPECT_EQ(video.dwProjectionMode, 1u);
    EXPECT_EQ(video.dwStereoBound, 11u);
    EXPECT_EQ(video.dwStereoTypeZero, 1u);
    EXPECT_EQ(video.dwStereoParam[0], 22u);
    EXPECT_EQ(video.dwStereoParam[1], 33u);
  }
}

TEST_F(ReaderSpherical, StandardBoxes_AreReadButNotDescribed) {
  ASSERT_EQ(Describe(BuildMp4({SphericalTrack(Join({FullBox("st3d", {Bytes({1})}), Spherical("sv3d")}))})), 0u);
  EXPECT_EQ(Track(0).m_dwStereoMode, 1u);
  EXPECT_EQ(Track(0).m_dwProj1, 11u);
  EXPECT_EQ(info_->m_Video[0].dwSpherical, 0u);
  EXPECT_EQ(info_->m_Video[0].dwStereoBound, 0u);
}

TEST_F(ReaderSpherical, AnotherProjection_FailsTheDescription) {
  EXPECT_EQ(Describe(BuildMp4({SphericalTrack(Spherical("sv3d", Text("x"), "equi"))})), ZMV_E_FAIL);
  EXPECT_THAT(host_.Traces(2), Contains("is not projection data box fourcc(equi)\n"));
}

TEST_F(ReaderSpherical, OtherBoxesInItsOrder_AreRefused) {
  const ByteVector head = FullBox("svhd", {Text("x"), Bytes({0})});
  EXPECT_EQ(Parse(&MP4ReaderParseSV3D, Join({head, Box("junk", Zeros(60))})), ZMV_E_FAIL);
  EXPECT_THAT(host_.Traces(2), Contains("is not projection box fourcc(junk)\n"));
  EXPECT_EQ(Parse(&MP4ReaderParseSV3D, Join({head, Box("proj", Box("prxx", Zeros(50)))})), ZMV_E_FAIL);
  EXPECT_THAT(host_.Traces(2), Contains("is not projection box fourcc(prxx)\n"));
}

TEST_F(ReaderSpherical, SizesThatCannotBe_AreRefused) {
  for (uint32_t payload = 0; payload < 12; ++payload) {
    EXPECT_EQ(Parse(&MP4ReaderParseSV3D, Zeros(payload)), ZMV_E_FAIL) << payload;
  }
  for (uint32_t size = 0; size < 12; ++size) {
    EXPECT_EQ(Parse(&MP4ReaderParseSV3D, Join({Be32(size), Text("svhd"), Zeros(290)})), ZMV_E_FAIL) << size;
    EXPECT_THAT(host_.Traces(1), Contains("Invalid data size (" + std::to_string(size) + ")\n"));
  }
  EXPECT_EQ(Parse(&MP4ReaderParseSV3D, Join({Be32(89), Text("svhd"), Zeros(92)})), ZMV_E_FAIL);
  EXPECT_THAT(host_.Traces(1), Contains("Invalid data size (89)\n"));
  EXPECT_EQ(Parse(&MP4ReaderParseSV3D, Join({Be32(0xFFFFFFFF), Text("svhd"), Zeros(92)})), ZMV_E_FAIL);
  EXPECT_THAT(host_.Traces(1), Contains("Invalid data size (128)\n"));
}

TEST_F(ReaderSpherical, LongSource_IsReadInPart) {
  // 128 bytes of the box are taken whatever it says, so what follows is looked for inside the text.
  EXPECT_EQ(Parse(&MP4ReaderParseSV3D, Payload(Spherical("sv3d", ByteVector(200, 'a')))), ZMV_E_FAIL);
  EXPECT_THAT(host_.Traces(2), Contains("Shperical Header Meta info (" + std::string(116, 'a') + ")\n"));
  EXPECT_EQ(Parse(&MP4ReaderParseSV3D, Payload(Spherical("sv3d", ByteVector(115, 'a')))), 0u);
  EXPECT_EQ(track_->m_dwProj3, 33u);
}

TEST_F(ReaderSpherical, EveryTruncation_IsRefusedOrReadsZeros) {
  const ByteVector payload = Payload(Spherical("sv3d"));
  for (size_t size = 0; size < payload.size(); ++size) {
    const uint32_t code =
        Parse(&MP4ReaderParseSV3D, ByteVector(payload.begin(), payload.begin() + static_cast<ptrdiff_t>(size)));
    EXPECT_TRUE(code == ZMV_E_FAIL || track_->m_dwProj3 == 0 || size >= payload.size() - 4) << size;
  }
}

}  // namespace
}  // namespace zmv::test

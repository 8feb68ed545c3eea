#include "tests/mp4/reader_test.h"

namespace zmv::test {
namespace {

using ::testing::Contains;

class ReaderWalk : public ReaderTest {
 protected:
  static TrackSpec OneFrame(TrackSpec track) {
    track.frames = {Unit(1, 4)};
    return track;
  }
};

// ---- Top level

TEST_F(ReaderWalk, BoxOfSizeBelowEight_EndsTheWalk) {
  for (uint32_t size = 0; size < 8; ++size) {
    ASSERT_EQ(Describe(Join({Box("ftyp", Text("mp41")), Be32(size), Text("free"), Box("moov", Mvhd(1000, 5000))})), 0u);
    EXPECT_EQ(info_->dwDuration, 0u) << size;
    EXPECT_EQ(reader_->m_dwMajorBrand, FourCC("mp41"));
  }
}

TEST_F(ReaderWalk, BoxPastTheFile_EndsTheWalk) {
  for (uint32_t size : {1000u, 0x7FFFFFFFu, 0xFFFFFFFFu}) {
    ASSERT_EQ(Describe(Join({Box("moov", Mvhd(1000, 5000)), Be32(size), Text("mdat"), Zeros(40)})), 0u);
    EXPECT_EQ(info_->dwDuration, 5000u);
    EXPECT_EQ(reader_->m_dwMdatPos, 0u);
  }
}

TEST_F(ReaderWalk, AFewBytesBehindTheLastBox_AreAFailedRead) {
  EXPECT_EQ(Describe(Join({Box("moov", Mvhd(1000, 5000)), Bytes({0, 0, 0})})), ZMV_E_READ);
  EXPECT_TRUE(host_.Traced("err (0x80000012)\n"));
}

TEST_F(ReaderWalk, MovieHeader_GivesTheDuration) {
  ASSERT_EQ(Describe(Box("moov", Mvhd(1000, 5000))), 0u);
  EXPECT_EQ(reader_->m_dwDuration, 5000u);
  EXPECT_EQ(info_->dwDuration, 5000u);
  EXPECT_THAT(host_.Traces(3), Contains("hReader MVHD scaled Reader Duration(5000) scale(1000)\n"));
}

TEST_F(ReaderWalk, TimeScaleZeroOrVersionOne_GivesNoTimes) {
  ASSERT_EQ(Describe(Box("moov", Mvhd(0, 5000))), 0u);
  EXPECT_EQ(info_->dwDuration, 0u);
  const ByteVector version1 = Box("mvhd", {Bytes({1, 0, 0, 0}), Be64(0x0000000500000005), Be64(0x0000000500000005),
                                           Be32(1000), Be64(5000), Zeros(80)});
  ASSERT_EQ(Describe(Box("moov", version1)), 0u);
  EXPECT_EQ(info_->dwDuration, 0u);
}

TEST_F(ReaderWalk, UserValue_IsFoundWithItsPlace) {
  FileSpec file;
  file.before_moov = Box("AIDD", {Be32(0x01020304)});
  const ByteVector bytes = BuildMp4({OneFrame(AudioTrack())}, file);
  ASSERT_EQ(Describe(bytes), 0u);
  EXPECT_EQ(info_->dwAiddValue, 0x01020304u);
  const ByteVector found(bytes.begin() + info_->dwAiddPos, bytes.begin() + info_->dwAiddPos + 4);
  EXPECT_EQ(found, Bytes({1, 2, 3, 4}));
  EXPECT_EQ(info_->dwAudioCount, 1u);
}

TEST_F(ReaderWalk, UserValueBoxWithoutValue_IsPassedOver) {
  ASSERT_EQ(Describe(Join({Box("AIDD", Zeros(3)), Box("moov", Mvhd(1000, 9))})), 0u);
  EXPECT_EQ(info_->dwAiddPos, 0u);
  EXPECT_EQ(info_->dwDuration, 9u);
}

TEST_F(ReaderWalk, PaddedBoxes_DoNotShiftTheirSiblings) {
  const ByteVector brand = Box("ftyp", {Text("mp42"), Zeros(20)});
  const ByteVector value = Box("AIDD", {Be32(5), Zeros(16)});
  const ByteVector movie = Box("moov", {Box("mvhd", {Zeros(12), Be32(1000), Be32(7), Zeros(200)})});
  ASSERT_EQ(Describe(Join({brand, value, movie})), 0u);
  EXPECT_EQ(info_->dwAiddValue, 5u);
  EXPECT_EQ(info_->dwDuration, 7u);
}

TEST_F(ReaderWalk, LastMediaDataWithBytes_IsWherePayloadsBegin) {
  ASSERT_EQ(Describe(Join({Box("mdat", Zeros(4)), Box("mdat", Zeros(9)), Box("mdat", {})})), 0u);
  EXPECT_EQ(reader_->m_dwMdatPos, 12u);
}

TEST_F(ReaderWalk, FragmentOfATrackWithoutTrak_AddsNothing) {
  FileSpec file;
  file.after_moov = Join({Box("moof", Box("traf", FullBox("tfhd", {Be32(1)}))), Box("mdat", Zeros(8))});
  ASSERT_EQ(Describe(BuildMp4({OneFrame(AudioTrack())}, file)), 0u);
  EXPECT_EQ(Read(ZMV_MEDIA_AUDIO).code, 0u);
  EXPECT_EQ(Read(ZMV_MEDIA_AUDIO).code, ZMV_E_END);
}

// ---- Inside

TEST_F(ReaderWalk, ChildLargerThanItsParent_EndsTheParentQuietly) {
  const ByteVector child = Join({Be32(0x7FFFFFFF), Text("mvhd"), Zeros(12), Be32(1000), Be32(5000)});
  ASSERT_EQ(Describe(Join({Box("moov", child), Box("AIDD", {Be32(3)})})), 0u);
  EXPECT_EQ(info_->dwDuration, 0u);
  EXPECT_EQ(info_->dwAiddValue, 3u);
}

TEST_F(ReaderWalk, ChildOfSizeBelowEight_EndsTheParentQuietly) {
  for (uint32_t size = 0; size < 8; ++size) {
    ASSERT_EQ(Describe(Join({Box("moov", {Be32(size), Text("free"), Mvhd(1000, 5000)}), Box("AIDD", {Be32(3)})})), 0u);
    EXPECT_EQ(info_->dwDuration, 0u) << size;
    EXPECT_EQ(info_->dwAiddValue, 3u);
  }
}

TEST_F(ReaderWalk, ShortHeaders_ReadWhatIsThere) {
  const ByteVector trak = Box(
      "trak", {FullBox("tkhd", {Zeros(8), Be32(9)}),
               Box("mdia", {FullBox("mdhd", {Zeros(8), Be32(1000)}), Box("hdlr", {}), Box("minf", Box("smhd", {}))})});
  ASSERT_EQ(Describe(Box("moov", {Box("mvhd", {}), trak})), 0u);
  EXPECT_EQ(Track(0).m_dwTrackID, 9u);
  EXPECT_EQ(Track(0).m_dwTimeScale, 1000u);
  EXPECT_EQ(Track(0).m_dwDuration, 0u);
  EXPECT_EQ(info_->dwAudioCount, 1u);
}

TEST_F(ReaderWalk, MediaBeforeTheTrackHeader_IsRefused) {
  const ByteVector trak = Box("trak", {Box("mdia", Mdhd(1000, 1)), Tkhd(1, 0)});
  EXPECT_EQ(Describe(Box("moov", trak)), ZMV_E_NO_TRACK_HEADER);
  EXPECT_TRUE(host_.Traced("err (0x8000001a)\n"));
  Load(Mdhd(1000, 1));
  EXPECT_EQ(Code(MP4ReaderParseMdia(reader_, nullptr, 32)), ZMV_E_NO_TRACK_HEADER);
}

TEST_F(ReaderWalk, NoMemoryForATrack_IsReported) {
  Load(BuildMp4({OneFrame(AudioTrack())}));
  host_.Fail(HostCall::kMalloc, 1);
  EXPECT_EQ(GetInfo(), ZMV_E_MEMORY);
  EXPECT_EQ(reader_->m_dwTrackCount, 0u);
  EXPECT_EQ(GetInfo(), 0u);
  EXPECT_EQ(info_->dwAudioCount, 1u);
}

TEST_F(ReaderWalk, MediaHeaderOfVersionOne_GivesNoTimes) {
  const ByteVector mdhd = Box("mdhd", {Bytes({1, 0, 0, 0}), Be64(0x0000000500000005), Be64(0x0000000500000005),
                                       Be32(1000), Be64(5000), Zeros(4)});
  ASSERT_EQ(Describe(Box("moov", Box("trak", {Tkhd(1, 77), Box("mdia", {mdhd, Box("minf", Box("smhd", {}))})}))), 0u);
  EXPECT_EQ(Track(0).m_dwTimeScale, 0u);
  EXPECT_EQ(Track(0).m_dwDuration, 0u);
  EXPECT_EQ(info_->m_Audio.dwDuration, 0u);
}

TEST_F(ReaderWalk, RepeatedTrackHeader_KeepsTheTrack) {
  ByteVector bytes = BuildMp4({OneFrame(AudioTrack(5))});
  // The header once more behind mdia, at the end of trak and moov, which end the file.
  const ByteVector again = Tkhd(5, 90);
  for (const char* parent : {"moov", "trak"}) {
    const ByteVector name = Text(parent);
    const auto header = std::search(bytes.begin(), bytes.end(), name.begin(), name.end()) - 4;
    const ByteVector size = Be32(static_cast<uint32_t>(bytes.end() - header) + static_cast<uint32_t>(again.size()));
    std::copy(size.begin(), size.end(), header);
  }
  Append(bytes, again);
  ASSERT_EQ(Describe(bytes), 0u);
  EXPECT_EQ(info_->dwAudioCount, 1u);
  EXPECT_EQ(info_->m_Audio.dwDuration, 90u);
  EXPECT_EQ(Read(ZMV_MEDIA_AUDIO).data, Unit(1, 4));
}

TEST_F(ReaderWalk, ParsingMoovAfterGetInfo_ReplacesTheTracksAndLeavesNothing) {
  const ByteVector bytes = BuildMp4({OneFrame(AudioTrack(5))});
  ASSERT_EQ(Describe(bytes), 0u);
  const ByteVector name = Text("moov");
  const auto payload = std::search(bytes.begin(), bytes.end(), name.begin(), name.end()) - bytes.begin() + 4;
  ASSERT_EQ(ZMVStreamBuf_Seek(stream_, reader_->m_dwIndex, static_cast<uint32_t>(payload)), 0);
  ASSERT_EQ(MP4ReaderParseMoov(reader_, static_cast<uint32_t>(static_cast<ptrdiff_t>(bytes.size()) - payload)), 0);
  EXPECT_EQ(Track(0).m_hStream, nullptr);
  EXPECT_EQ(CursorsInUse(), 1u + 4u);
  EXPECT_EQ(Read(ZMV_MEDIA_AUDIO).code, ZMV_E_END);
  ASSERT_EQ(GetInfo(), 0u);
  EXPECT_EQ(Read(ZMV_MEDIA_AUDIO).data, Unit(1, 4));
}

TEST_F(ReaderWalk, FailedMedia_EmptiesItsSlot) {
  TrackSpec bad = VideoTrack(2);
  bad.entries = {VideoEntry("avc1", Box("nv3d", Zeros(3)))};
  EXPECT_EQ(Describe(BuildMp4({OneFrame(AudioTrack(1)), bad})), ZMV_E_FAIL);
  EXPECT_EQ(reader_->m_dwTrackCount, 2u);
  EXPECT_EQ(reader_->m_pTrack[1], nullptr);
  EXPECT_EQ(Read(ZMV_MEDIA_VIDEO).code, ZMV_E_END);
  EXPECT_EQ(Read(ZMV_MEDIA_AUDIO).code, ZMV_E_END);  // no track has a payload stream
}

TEST_F(ReaderWalk, TracksBeyondTwelve_AreIgnored) {
  ByteVector moov;
  for (uint32_t id = 1; id <= 14; ++id)
    Append(moov, Box("trak", {Tkhd(id, 0), Box("mdia", Box("minf", Box("vmhd", {})))}));
  ASSERT_EQ(Describe(Box("moov", moov)), 0u);
  EXPECT_EQ(reader_->m_dwTrackCount, 12u);
  EXPECT_EQ(info_->dwVideoCount, 9u);
}

TEST_F(ReaderWalk, ASecondTrackOfTheSameId_TakesThePlaceOfTheFirst) {
  TrackSpec first = OneFrame(VideoTrack(1));
  first.sync = {{1}};
  TrackSpec second = OneFrame(AudioTrack(1));
  ASSERT_EQ(Describe(BuildMp4({first, second})), 0u);
  EXPECT_EQ(reader_->m_dwTrackCount, 1u);
  EXPECT_EQ(info_->dwVideoCount, 0u);
  EXPECT_EQ(info_->dwAudioCount, 1u);
  EXPECT_EQ(CursorsInUse(), 1u + 4u);
  EXPECT_EQ(Read(ZMV_MEDIA_AUDIO).frame.dwKeyFrame, ZMV_KEY_FRAME);
}

// ---- Media headers

TEST_F(ReaderWalk, HintTrack_IsDroppedAndGivesItsCursorsBack) {
  TrackSpec hint = OneFrame(VideoTrack(2));
  hint.media_header = FullBox("hmhd", {Zeros(16)});
  TrackSpec bare = OneFrame(VideoTrack(3));
  bare.media_header = {};  // tables, but no medium
  bare.sync = {{1}};
  ASSERT_EQ(Describe(BuildMp4({hint, bare, OneFrame(AudioTrack(4))})), 0u);
  EXPECT_EQ(info_->dwVideoCount, 0u);
  EXPECT_EQ(info_->dwAudioCount, 1u);
  EXPECT_EQ(reader_->m_dwTrackCount, 3u);
  EXPECT_EQ(reader_->m_pTrack[0], nullptr);
  EXPECT_EQ(reader_->m_pTrack[1], nullptr);
  EXPECT_EQ(CursorsInUse(), 1u + 4u);
  EXPECT_EQ(Read(ZMV_MEDIA_AUDIO).data, Unit(1, 4));
  // They give them back at once, so any number of them leaves room for the tracks that follow.
  std::vector<TrackSpec> tracks(8, bare);
  for (uint32_t i = 0; i < 8; ++i) tracks[i].id = 10 + i;
  tracks.push_back(OneFrame(AudioTrack(4)));
  EXPECT_EQ(Describe(BuildMp4(tracks)), 0u);
}

TEST_F(ReaderWalk, TextTrack_NeedsItsHandlerAndAName) {
  struct Case {
    const char* handler;
    const char* name;
    uint32_t tracks;
  };
  for (const Case& text : {Case{"sdsm", "abcd", 1}, Case{"tvxt", "SPGG", 1}, Case{"subp", "abcdef", 1},
                           Case{"text", "abcd", 0}, Case{"tvxt", "abc", 0}, Case{"tvxt", "", 0}}) {
    TrackSpec track = OneFrame(TextTrack());
    track.handler = text.handler;
    track.handler_name = Text(text.name);
    ASSERT_EQ(Describe(BuildMp4({track})), 0u);
    EXPECT_EQ(info_->dwTextCount, text.tracks) << text.handler << " " << text.name;
    EXPECT_EQ(Read(ZMV_MEDIA_TEXT).code, text.tracks == 1 ? 0u : ZMV_E_END);
  }
}

TEST_F(ReaderWalk, TrackTimes_AreTraced) {
  TrackSpec track = OneFrame(AudioTrack(7));
  track.time_scale = 48000;
  track.duration = 96000;
  ASSERT_EQ(Describe(BuildMp4({track})), 0u);
  EXPECT_THAT(host_.Traces(3), Contains("hStream TrackID(7) TKHD Duration(96000)\n"));
  EXPECT_THAT(host_.Traces(3), Contains("hStream TrackID(7) MDHD Duration(96000) scale(48000)\n"));
  EXPECT_THAT(host_.Traces(3), Contains("hStream TrackID(7) index(0) MDHD Duration(2000) scale(48000)\n"));
}

TEST_F(ReaderWalk, Parsers_WorkOnTheirOwn) {
  EXPECT_EQ(Parse([](auto* reader, auto*, uint32_t size) { return MP4ReaderParseMoov(reader, size); }, Mvhd(1000, 8)),
            0u);
  EXPECT_EQ(reader_->m_dwDuration, 8u);
  EXPECT_EQ(Parse([](auto* reader, auto*, uint32_t size) { return MP4ReaderParseTrak(reader, size); }, Tkhd(1, 8)), 0u);
  EXPECT_EQ(track_->m_dwDuration, 8u);
  EXPECT_EQ(Parse(&MP4ReaderParseMdia, Mdhd(90000, 8)), 0u);
  EXPECT_EQ(track_->m_dwTimeScale, 90000u);
  EXPECT_EQ(Parse(&MP4ReaderParseMinf, Box("smhd", {})), 0u);
  EXPECT_EQ(track_->m_dwMediaType, ZMV_MEDIA_AUDIO);
}

TEST_F(ReaderWalk, EmptyParent_ReadsNothing) {
  EXPECT_EQ(Parse(&MP4ReaderParseMdia, {}), 0u);
  EXPECT_EQ(host_.Count(HostCall::kRead), 0u);
}

TEST_F(ReaderWalk, ParentPastTheData_IsAFailedReadUnderTheParsersName) {
  EXPECT_EQ(ParseAs(&MP4ReaderParseMinf, Zeros(2), 100), ZMV_E_READ);
  EXPECT_THAT(host_.traces(),
              Contains(::testing::AllOf(::testing::Field(&TraceRecord::text, "err (0x80000012)\n"),
                                        ::testing::Field(&TraceRecord::function, "MP4ReaderParseMinf"))));
}

TEST_F(ReaderWalk, ChildPastTheData_EndsTheWalkQuietly) {
  EXPECT_EQ(ParseAs(&MP4ReaderParseMinf, Join({Be32(50), Text("smhd")}), 100), 0u);
  EXPECT_EQ(track_->m_dwMediaType, ZMV_MEDIA_AUDIO);
}

}  // namespace
}  // namespace zmv::test

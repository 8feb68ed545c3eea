// The header walk.
#include "tests/avi/avi_reader_test.h"

namespace zmv::test {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Not;

class AviInfo : public AviReaderTest {
 protected:
  // A file of one video stream whose list holds `chunks` behind the header.
  static ByteVector WithHeaders(const ByteVector& chunks) {
    AviSpec file;
    file.streams = {VideoStream()};
    file.headers = chunks;
    return BuildAvi(file);
  }
  // A stream list without a pad byte of its own.
  static ByteVector OpenList(const ByteVector& chunks) { return Chunk("LIST", Join({Text("strl"), chunks}), false); }
  // RIFF and hdrl with one video stream, no sizes patched: 212 bytes, as they stand while recording.
  static ByteVector OpenHeaders() {
    AviSpec file;
    file.streams = {VideoStream()};
    ByteVector bytes = Front(BuildAvi(file), 212);
    std::fill(bytes.begin() + 4, bytes.begin() + 8, uint8_t{0});
    return bytes;
  }
};

// ---- The whole

TEST_F(AviInfo, SmallFile_IsDescribed) {
  host_.ClearRecords();
  Load(BuildAvi(SmallFile()));
  host_.ClearRecords();
  ASSERT_EQ(GetInfo(), 0u);
  EXPECT_THAT(Media(), ElementsAre(1, 2));
  EXPECT_EQ(info_->dwVideoCount, 1u);
  EXPECT_EQ(info_->dwAudioCount, 1u);
  EXPECT_EQ(info_->dwTextCount, 0u);
  EXPECT_EQ(reader_->m_dwMoviPos, 320u);
  EXPECT_EQ(reader_->m_dwDataPos, 324u);
  EXPECT_EQ(reader_->m_dwDataPos2, 0u);
  // Chunks of 8 + 10, 8 + 8 and 8 + 6 bytes lie in the list, then "idx1" and its size.
  EXPECT_EQ(reader_->m_dwIdx1Pos, 324u + 48 + 8);
  EXPECT_EQ(reader_->m_bHasIndex, 1);
  EXPECT_EQ(reader_->m_bExtended, 0);
  EXPECT_EQ(reader_->m_bOdml, 0);
  EXPECT_THAT(host_.Traces(1), IsEmpty());
  EXPECT_EQ(host_.Traces(4)[1], "AVIReaderGetInfo\n");
  EXPECT_THAT(host_.Traces(4), Contains("AVIReaderGetInfo End\n"));
}

TEST_F(AviInfo, SecondCall_GivesTheSameAndLeavesNothing) {
  ASSERT_EQ(Describe(SmallFile()), 0u);
  const ZMVFileInfo first = *info_;
  const uint64_t bytes = host_.LiveBytes();
  info_->m_Text[1].dwFrames = 7;
  info_->dwTextCount = 2;
  info_->m_Video[3].dwWidth = 9;
  ASSERT_EQ(GetInfo(), 0u);
  EXPECT_EQ(std::memcmp(&first, info_.get(), sizeof first), 0);
  EXPECT_EQ(host_.LiveBytes(), bytes);
  EXPECT_EQ(CursorsInUse(), 1u);
  EXPECT_THAT(Media(), ElementsAre(1, 2));
  EXPECT_EQ(Stream(0).m_dwIndexEntries, 2u);
}

TEST_F(AviInfo, ClearsTheFirstWordsOfTheRecordOnly) {
  AviSpec file;  // no streams
  info_->m_dwFileType = info_->dwDuration = info_->dwTimeScale = info_->dwAudioCount = 5;
  std::strcpy(info_->szSoftware, "V1");
  char name[] = "front";
  info_->pStreamName = name;
  ASSERT_EQ(Describe(file), 0u);
  EXPECT_EQ(info_->m_dwFileType, 0u);
  EXPECT_EQ(info_->dwDuration, 0u);
  EXPECT_EQ(info_->dwTimeScale, 0u);
  EXPECT_EQ(info_->dwAudioCount, 0u);
  EXPECT_STREQ(info_->szSoftware, "V1");
  EXPECT_EQ(info_->pStreamName, name);
}

TEST_F(AviInfo, PrefixedFile_CountsFromTheRiffData) {
  const ByteVector riff = BuildAvi(SmallFile());
  ASSERT_EQ(Describe(Join({ByteVector(92, 1), Le32(100), ByteVector(4), riff})), 0u);
  EXPECT_EQ(reader_->m_dwMoviPos, 320u);
  EXPECT_EQ(reader_->m_dwDataPos, 324u);
  EXPECT_EQ(reader_->m_dwIdx1Pos, 100u + 380);
  EXPECT_THAT(Entries(0), ElementsAre(Entry{0x10, 324, 10}, Entry{0, 358, 5}));
  EXPECT_EQ(Stream(0).m_dwPos, 100u + 324);
  EXPECT_EQ(Stream(1).m_dwPos, 100u + 342);
  EXPECT_EQ(info_->dwAiddPos, 100u + 108 + 14);
}

TEST_F(AviInfo, AviForm_ThatTurnsOutToBeAnother_IsRefused) {
  EXPECT_EQ(Describe(Join({Riff("AVI ", {}), Riff("WAVE", {})})), ZMV_E_FAIL);
  EXPECT_THAT(host_.Traces(1), ElementsAre("AVIReaderOpen - File is not AVI\n"));
}

TEST_F(AviInfo, PrefixThatLeadsToNoForm_IsNoAvi) {
  // At offset 96 stands a form that nobody reads.
  EXPECT_EQ(Describe(Join({ByteVector(92, 1), Le32(96), Riff("FORM", {})})), ZMV_E_FAIL);
}

// ---- Without an index

TEST_F(AviInfo, GetInfo2_DescribesTheSameWithoutAnIndex) {
  Load(BuildAvi(SmallFile()));
  ASSERT_EQ(AVIReaderGetInfo2(reader_, info_.get()), 0);
  EXPECT_EQ(reader_->m_bHasIndex, 0);
  EXPECT_EQ(reader_->m_dwIdx1Pos, 380u);
  EXPECT_EQ(Stream(0).m_dwIndexEntries, 0u);
  EXPECT_EQ(Stream(0).m_dwPos, 324u);
  EXPECT_EQ(Stream(1).m_dwPos, 324u);
  EXPECT_EQ(info_->m_Video[0].dwDuration, 80u);
  ASSERT_EQ(AVIReaderGetInfo(reader_, info_.get(), 0), 0);
  EXPECT_EQ(reader_->m_bHasIndex, 0);
  EXPECT_EQ(Stream(0).m_dwIndexEntries, 0u);
}

TEST_F(AviInfo, GetInfo2_PassesSuperIndexesOver) {
  AviSpec file = SmallFile();
  file.streams[0].behind = Chunk(
      "indx", Join({Le16(4), Bytes({0, 0}), Le32(1), Text("00dc"), ByteVector(12), Le32(0x7FFFFFFF), ByteVector(12)}));
  Load(BuildAvi(file));
  ASSERT_EQ(AVIReaderGetInfo2(reader_, info_.get()), 0);
  EXPECT_EQ(reader_->m_bSuperIndex, 0);
  EXPECT_EQ(reader_->m_bHasIndex, 0);
  EXPECT_EQ(Stream(0).m_pSuper, nullptr);
}

// ---- Recordings that were never closed

TEST_F(AviInfo, UnfinishedRecording_EndsAtItsMovi) {
  const ByteVector frame = Chunk("00dc", ByteVector(10, 1));
  ASSERT_EQ(Describe(Join({OpenHeaders(), Text("LIST"), Le32(0), Text("movi"), frame, frame})), 0u);
  EXPECT_EQ(reader_->m_dwMoviPos, 220u);
  EXPECT_EQ(reader_->m_dwDataPos, 224u);
  EXPECT_EQ(reader_->m_bHasIndex, 0);
  EXPECT_EQ(Stream(0).m_dwPos, 224u);
  EXPECT_EQ(Stream(0).m_dwLength, 0u);
  EXPECT_EQ(info_->dwVideoCount, 1u);
  EXPECT_EQ(info_->dwDuration, 0u);
  EXPECT_THAT(host_.Traces(1), IsEmpty());
}

TEST_F(AviInfo, MoviThatRunsPastTheData_EndsTheWalkQuietly) {
  // Behind the list, as far as there is data, stands what would be another stream.
  for (uint32_t size : {1u, 3u, 200u, 0x7FFFFFFFu, 0xFFFFFFFFu}) {
    ASSERT_EQ(Describe(Join({OpenHeaders(), Text("LIST"), Le32(size), Text("movi"), StreamList(VideoStream())})), 0u);
    EXPECT_THAT(Media(), ElementsAre(1)) << size;
    EXPECT_EQ(reader_->m_dwDataPos, 224u);
  }
}

TEST_F(AviInfo, EveryCutBehindTheHeaders_StillDescribesTheStreams) {
  const ByteVector bytes = BuildAvi(SmallFile());
  for (size_t size = 324; size <= bytes.size(); ++size) {
    ASSERT_EQ(Describe(Front(bytes, size)), 0u) << size;
    EXPECT_EQ(info_->dwVideoCount, 1u) << size;
    EXPECT_EQ(info_->dwAudioCount, 1u) << size;
    EXPECT_EQ(reader_->m_dwDataPos, 324u) << size;
    EXPECT_EQ(reader_->m_bHasIndex, size == bytes.size() ? 1 : 0) << size;
  }
}

TEST_F(AviInfo, EveryCutInsideTheHeaders_EndsWithACodeOrQuietly) {
  const ByteVector bytes = BuildAvi(SmallFile());
  for (size_t size = 12; size < 324; ++size) {
    Load(Front(bytes, size));
    const uint32_t code = GetInfo();
    EXPECT_TRUE(code == 0 || code == ZMV_E_READ || code == ZMV_E_SEEK) << size << " " << code;
  }
}

// ---- Empty headers

TEST_F(AviInfo, TwoThousandAndFortyEightEmptyHeaders_ArePassed) {
  ASSERT_EQ(Describe(WithHeaders(ByteVector(8 * 2048))), 0u);
  EXPECT_EQ(reader_->m_dwDataPos, 224u + 8 * 2048);
}

TEST_F(AviInfo, OneMoreEmptyHeader_EndsTheWalk) {
  ASSERT_EQ(Describe(WithHeaders(ByteVector(8 * 2049))), 0u);
  EXPECT_EQ(reader_->m_dwDataPos, 0u);
  EXPECT_THAT(Media(), ElementsAre(1));
}

TEST_F(AviInfo, EmptyHeadersAreCountedInARow) {
  const ByteVector run(8 * 2000);
  ASSERT_EQ(Describe(WithHeaders(Join({run, Chunk("note", {}), run}))), 0u);
  EXPECT_EQ(reader_->m_dwDataPos, 224u + 2 * 16000 + 8);
}

// ---- Lists

TEST_F(AviInfo, OdmlListIsNoted_InBothSpellings) {
  EXPECT_EQ(Describe(WithHeaders(List("odml", Chunk("dmlh", ByteVector(4))))), 0u);
  EXPECT_EQ(reader_->m_bOdml, 1);
  EXPECT_EQ(Describe(WithHeaders(List("lmdo", {}))), 0u);
  EXPECT_EQ(reader_->m_bOdml, 1);
  EXPECT_EQ(Describe(WithHeaders(List("odmx", {}))), 0u);
  EXPECT_EQ(reader_->m_bOdml, 0);
}

TEST_F(AviInfo, UnknownListsAndChunks_AreSteppedOver) {
  const ByteVector hidden = StreamList(VideoStream());
  ASSERT_EQ(Describe(WithHeaders(Join({List("INFO", hidden), Chunk("note", hidden), Chunk("odd ", {1, 2, 3})}))), 0u);
  EXPECT_THAT(Media(), ElementsAre(1));
  // 212 + 12 + 124 + 8 + 124 + 8 + 4, then the list's header.
  EXPECT_EQ(reader_->m_dwDataPos, 492u + 12);
}

TEST_F(AviInfo, ListBelowFourBytes_IsSteppedOver) {
  // The type that the reader sees is the front of the next chunk.
  const ByteVector empty = Join({Text("LIST"), Le32(0)});
  ASSERT_EQ(Describe(WithHeaders(Join({empty, Chunk("strl", {}), empty}))), 0u);
  EXPECT_EQ(reader_->m_dwDataPos, 224u + 24);
  EXPECT_THAT(Media(), ElementsAre(1));
}

TEST_F(AviInfo, MenuChunk_ClosesTheStreamListsBehindIt) {
  AviSpec file;
  file.streams = {VideoStream()};
  const ByteVector menu =
      Join({Chunk("MENU", {1, 2}), List("DMNU", Join({StreamList(VideoStream()), Chunk("JUNK", {})}))});
  ASSERT_EQ(Describe(WithHeaders(menu)), 0u);
  EXPECT_EQ(reader_->m_bMenu, 1);
  EXPECT_THAT(Media(), ElementsAre(1));
}

TEST_F(AviInfo, MenuList_IsEntered) {
  ASSERT_EQ(Describe(WithHeaders(List("DMNU", StreamList(PcmStream())))), 0u);
  EXPECT_THAT(Media(), ElementsAre(1, 2));
}

TEST_F(AviInfo, MenuForm_IsWalked) {
  AviSpec file = SmallFile();
  ByteVector bytes = BuildAvi(file);
  std::copy_n("MENU", 4, bytes.begin() + 8);
  ASSERT_EQ(Describe(bytes), 0u);
  EXPECT_THAT(Media(), ElementsAre(1, 2));
  EXPECT_EQ(reader_->m_bMenu, 0);
}

TEST_F(AviInfo, ExtensionForms_GiveTheSecondDataPosition_TheLastOneStays) {
  AviSpec file;
  file.streams = {VideoStream()};
  file.has_index = false;
  const ByteVector first = BuildAvi(file);
  ASSERT_EQ(Describe(Join({first, Riff("AVIX", List("movi", {})), Riff("AVIX", List("movi", {}))})), 0u);
  EXPECT_EQ(reader_->m_bExtended, 1);
  EXPECT_EQ(reader_->m_dwMoviPos, 220u);
  EXPECT_EQ(reader_->m_dwDataPos, 224u);
  EXPECT_EQ(reader_->m_dwDataPos2, 224u + 2 * 24);
}

TEST_F(AviInfo, FormCutShortBehindTheFrames_EndsTheWalkQuietly) {
  AviSpec file = SmallFile();
  file.has_index = false;
  const ByteVector whole = BuildAvi(file);
  const ByteVector extension = Riff("AVIX", List("movi", {}));
  for (size_t kept = 0; kept <= 12; ++kept) {
    ASSERT_EQ(Describe(Join({whole, Front(extension, kept)})), 0u) << kept;
    EXPECT_EQ(reader_->m_dwStreamCount, 2u);
    EXPECT_EQ(reader_->m_bExtended, kept == 12 ? 1 : 0);
  }
}

TEST_F(AviInfo, OldIndex_EndsTheWalk) {
  AviSpec file;
  file.streams = {VideoStream()};
  ASSERT_EQ(Describe(Join({BuildAvi(file), Riff("AVIX", List("movi", {}))})), 0u);
  EXPECT_EQ(reader_->m_bExtended, 0);
  EXPECT_EQ(reader_->m_dwDataPos2, 0u);
}

// ---- Chunks of odd size

TEST_F(AviInfo, OddJunk_WithPadAndWithout) {
  for (const bool padded : {false, true}) {
    ASSERT_EQ(Describe(WithHeaders(Chunk("JUNK", ByteVector(5, 7), padded))), 0u) << padded;
    EXPECT_EQ(reader_->m_dwDataPos, 224u + 13 + (padded ? 1 : 0));
  }
}

TEST_F(AviInfo, OddStreamFormat_WithPadAndWithout) {
  for (const bool padded : {false, true}) {
    AviStream audio = AacStream();
    audio.format = WaveFormat(0xFF, 2, 48000, 16000, 1024, 16, {0x11, 0x90, 0x33});  // 21 bytes
    const ByteVector list = OpenList(Join({Chunk("strh", StreamHeader(audio)), Chunk("strf", audio.format, padded)}));
    ASSERT_EQ(Describe(WithHeaders(Join({list, StreamList(VideoStream())}))), 0u) << padded;
    EXPECT_THAT(Media(), ElementsAre(1, 2, 1)) << padded;
    EXPECT_EQ(info_->m_Audio.dwExtraDataSize, 3u);
  }
}

TEST_F(AviInfo, OddStreamHeader_WithPadAndWithout) {
  for (const bool padded : {false, true}) {
    AviStream video = VideoStream();
    const ByteVector header = Join({StreamHeader(video), {7}});
    const ByteVector list = OpenList(Join({Chunk("strh", header, padded), Chunk("strf", video.format)}));
    ASSERT_EQ(Describe(WithHeaders(list)), 0u) << padded;
    EXPECT_THAT(Media(), ElementsAre(1, 1)) << padded;
  }
}

TEST_F(AviInfo, OtherOddChunks_AreAlwaysRoundedUp) {
  ASSERT_EQ(Describe(WithHeaders(Join({Text("note"), Le32(3), Bytes({1, 2, 3, 0xFF})}))), 0u);
  EXPECT_EQ(reader_->m_dwDataPos, 224u + 12);
}

TEST_F(AviInfo, LastChunkOfOddSizeWithoutPad_EndsTheWalkQuietly) {
  for (const char* code : {"note", "JUNK"}) {
    EXPECT_EQ(Describe(Join({OpenHeaders(), Chunk(code, {1, 2, 3}, false)})), 0u) << code;
    EXPECT_THAT(host_.Traces(1), IsEmpty());
  }
}

TEST_F(AviInfo, ChunkThatRunsPastTheData_IsAFailedSkip) {
  for (uint32_t size : {5u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFF8u, 0xFFFFFFFFu}) {
    host_.ClearRecords();
    EXPECT_EQ(Describe(Join({OpenHeaders(), Text("note"), Le32(size), ByteVector(4)})), ZMV_E_SEEK) << size;
    EXPECT_THAT(host_.Traces(1), ElementsAre("err (0x80000014)\n"));
  }
}

TEST_F(AviInfo, RestShorterThanAHeader_EndsTheWalkQuietly) {
  for (size_t rest = 0; rest < 8; ++rest) {
    EXPECT_EQ(Describe(Join({OpenHeaders(), ByteVector(rest, 0x41)})), 0u) << rest;
  }
}

// ---- Stream headers

TEST_F(AviInfo, StreamHeaderOfSixtyFourBytes_IsAccepted) {
  AviStream video = VideoStream();
  video.header = Join({StreamHeader(video), ByteVector(8, 9)});
  AviSpec file;
  file.streams = {video};
  ASSERT_EQ(Describe(file), 0u);
  EXPECT_THAT(Media(), ElementsAre(1));
  EXPECT_EQ(info_->m_Video[0].dwFrameRate, 25000u);
  EXPECT_THAT(host_.Traces(1), ElementsAre("invalid StreamHeader size dwsize(64) header(56)\n"));
}

TEST_F(AviInfo, ShortStreamHeader_ReadsAsZerosBehindItsEnd) {
  AviStream video = VideoStream(30000, 1001);
  video.length = 77;
  video.suggested_size = 5000;
  video.header = Front(StreamHeader(video), 32);  // up to dwStart
  AviSpec file;
  file.streams = {video};
  ASSERT_EQ(Describe(file), 0u);
  EXPECT_EQ(info_->m_Video[0].dwFrameRate, 29970u);
  EXPECT_EQ(info_->m_Video[0].dwFrames, 0u);
  EXPECT_EQ(info_->m_Video[0].dwBufferSize, 0u);
}

TEST_F(AviInfo, EmptyStreamHeader_GivesAStreamOfNoMedium) {
  const ByteVector list = List("strl", Join({Chunk("strh", {}), Chunk("strf", ByteVector(4))}));
  ASSERT_EQ(Describe(WithHeaders(list)), 0u);
  EXPECT_THAT(Media(), ElementsAre(1, 0));
}

TEST_F(AviInfo, FirstVideoHeader_GivesTheRewritableValue) {
  AviSpec file;
  file.streams = {PcmStream(), VideoStream(), VideoStream()};
  file.streams[0].language = 3;
  file.streams[1].language = 0xBEEF;
  file.streams[2].language = 5;
  ASSERT_EQ(Describe(file), 0u);
  EXPECT_EQ(info_->dwAiddValue, 0xBEEFu);
  // The second stream's list begins 100 bytes behind the first's, at 188.
  EXPECT_EQ(info_->dwAiddPos, 188u + 12 + 8 + 14);
  const ByteVector& bytes = host_.File("a.avi");
  EXPECT_EQ(bytes[info_->dwAiddPos], 0xEF);
}

TEST_F(AviInfo, VideoHeaderTooShortForTheValue_GivesNone) {
  AviStream video = VideoStream();
  video.header = Front(StreamHeader(video), 15);
  video.header[0] = 'v';
  AviSpec file;
  file.streams = {video};
  Describe(file);
  EXPECT_EQ(info_->dwAiddPos, 0u);
}

TEST_F(AviInfo, FormatWithoutHeader_IsRefused) {
  AviStream video = VideoStream();
  video.has_header = false;
  AviSpec file;
  file.streams = {video};
  EXPECT_EQ(Describe(file), ZMV_E_FAIL);
  file.streams = {VideoStream(), video};
  EXPECT_EQ(Describe(file), ZMV_E_FAIL) << "a header serves one format";
}

TEST_F(AviInfo, MainHeaderBelowFourBytes_IsSteppedOver) {
  AviStream video = VideoStream(0, 0);
  const ByteVector headers = List("hdrl", Join({Chunk("avih", {0x40, 0x9C}), StreamList(video)}));
  ASSERT_EQ(Describe(Riff("AVI ", Join({headers, List("movi", {})}))), 0u);
  EXPECT_EQ(Stream(0).m_dwScale, 1u);
  EXPECT_EQ(Stream(0).m_dwRate, 25u);
}

// ---- The application's header

TEST_F(AviInfo, ExtraHeader_IsTakenFromTheSecondJunkChunk) {
  const ByteVector block = Join({Text("ADAS"), Bytes({1, 2, 3, 4, 5, 6})});
  ByteVector buffer(10, 0xEE);
  info_->pExtraHeader = buffer.data();
  info_->dwExtraHeaderSize = 8;
  ASSERT_EQ(Describe(WithHeaders(Join({Chunk("JUNK", block), Chunk("JUNK", block)}))), 0u);
  EXPECT_EQ(buffer, Bytes({'A', 'D', 'A', 'S', 1, 2, 3, 4, 0xEE, 0xEE}));
}

TEST_F(AviInfo, ExtraHeader_NeverTakesMoreThanTheChunkHolds) {
  ByteVector buffer(10, 0xEE);
  info_->pExtraHeader = buffer.data();
  info_->dwExtraHeaderSize = 10;
  const ByteVector junk = Chunk("JUNK", Join({Text("ADAS"), Bytes({1, 2, 3})}), false);
  ASSERT_EQ(Describe(WithHeaders(Join({Chunk("JUNK", {}), junk}))), 0u);
  EXPECT_EQ(buffer, Bytes({'A', 'D', 'A', 'S', 1, 2, 3, 0xEE, 0xEE, 0xEE}));
  EXPECT_EQ(reader_->m_dwDataPos, 224u + 8 + 15);
}

TEST_F(AviInfo, ExtraHeader_IsLeftAloneWhereThereIsNone) {
  const ByteVector block = Text("ADAS1234");
  const ByteVector none = Chunk("JUNK", Text("ADAx1234"));
  ByteVector buffer(8, 0xEE);
  info_->pExtraHeader = buffer.data();
  info_->dwExtraHeaderSize = 8;
  for (const ByteVector& headers :
       {Chunk("JUNK", block), Join({Chunk("JUNK", {}), none}), Join({Chunk("JUNK", {}), Chunk("JUNK", Text("ADA"))}),
        Join({Chunk("JUNK", {}), Chunk("JUNK", {}), Chunk("JUNK", block)})}) {
    ASSERT_EQ(Describe(WithHeaders(headers)), 0u);
    EXPECT_EQ(buffer, ByteVector(8, 0xEE));
  }
  info_->dwExtraHeaderSize = 0;
  const ByteVector wanted = WithHeaders(Join({Chunk("JUNK", {}), Chunk("JUNK", block)}));
  ASSERT_EQ(Describe(wanted), 0u);
  EXPECT_EQ(buffer, ByteVector(8, 0xEE));
  info_->dwExtraHeaderSize = 8;
  info_->pExtraHeader = nullptr;
  EXPECT_EQ(Describe(wanted), 0u);
}

}  // namespace
}  // namespace zmv::test

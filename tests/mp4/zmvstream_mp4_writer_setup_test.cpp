#include "tests/mp4/writer_test.h"

namespace zmv::test {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class WriterSetup : public WriterTest {
 protected:
  uint64_t HorizonFor(int64_t expire) {
    EXPECT_EQ(Open(1, expire), 0);
    const uint64_t horizon = writer->m_llExpire;
    Close();
    return horizon;
  }
  int32_t ResultOf(void (*change)(ZMVFileInfo&)) {
    info = {};
    change(info);
    EXPECT_EQ(Open(), 0);
    const int32_t result = SetInfo();
    written = File().size();
    Close();
    return result;
  }
  size_t written = 0;
};

TEST_F(WriterSetup, Open_ExpectedLength_GivesHorizonInSecondsWithMargin) {
  EXPECT_EQ(HorizonFor(0), 120u);
  EXPECT_EQ(HorizonFor(1), 10u);
  EXPECT_EQ(HorizonFor(1000), 11u);
  EXPECT_EQ(HorizonFor(300000), 310u);
  EXPECT_TRUE(host.Traced("expire duration (300000)\n"));
}

TEST_F(WriterSetup, Open_TakesTheWriteCursorFirstAndBothWithoutCache) {
  OpenStream();
  host.ClearRecords();
  const uint64_t before = host.Count(HostCall::kMalloc);
  ASSERT_EQ(Open(), 0);
  EXPECT_EQ(writer->m_dwWidx, 0u);
  EXPECT_EQ(writer->m_dwRidx, 1u);
  EXPECT_EQ(writer->m_hInOut, stream);
  EXPECT_EQ(writer->m_bNoInterleave, 0);
  char enter[80];
  std::snprintf(enter, sizeof enter, "Enter. hInOut(%p) interleave(1) Exp(0)\n", static_cast<void*>(stream));
  char leave[80];
  std::snprintf(leave, sizeof leave, "Leave hWriter(%p)\n", static_cast<void*>(writer));
  EXPECT_THAT(host.Traces(3), ElementsAre(enter, "StreamBuf Index Widx(0)\n", "StreamBuf Index Ridx(1)\n", leave));
  EXPECT_EQ(host.traces().back().module, "ZMVMP4W");
  EXPECT_EQ(host.traces().back().file, "zmvstream_mp4_writer");
  // The handle and a record per cursor; a cache would be one more.
  EXPECT_EQ(host.Count(HostCall::kMalloc) - before, 1u + 2);
}

TEST_F(WriterSetup, Open_InterleaveZero_IsKept) {
  ASSERT_EQ(Open(0), 0);
  EXPECT_EQ(writer->m_bNoInterleave, 1);
}

TEST_F(WriterSetup, Open_NoMemoryForTheHandle_SaysSo) {
  OpenStream();
  host.Fail(HostCall::kMalloc, 1);
  EXPECT_EQ(static_cast<uint32_t>(Open()), ZMV_E_MEMORY);
  EXPECT_EQ(writer, nullptr);
  EXPECT_THAT(host.Traces(1), ElementsAre("can not create mp4 writer handle\n"));
}

TEST_F(WriterSetup, Open_CursorFails_ReleasesTheHandleAndReturnsTheCode) {
  for (const uint64_t call : {2u, 3u}) {
    OpenStream();
    const uint64_t blocks = host.LiveBlocks();
    host.Fail(HostCall::kMalloc, call);
    host.ClearRecords();
    EXPECT_EQ(static_cast<uint32_t>(Open()), ZMV_E_MEMORY);
    EXPECT_EQ(writer, nullptr);
    EXPECT_THAT(host.Traces(1), Contains("ZMVStreamBuf_Index error!!!\n"));
    EXPECT_EQ(host.LiveBlocks(), blocks + call - 2);  // the cursor taken before stays with the stream
    Close();
  }
}

TEST_F(WriterSetup, Open_NoStream_IsRefused) {
  EXPECT_EQ(static_cast<uint32_t>(MP4WriterOpen(&writer, nullptr, 1, 0)), ZMV_E_FAIL);
  EXPECT_EQ(writer, nullptr);
}

TEST_F(WriterSetup, SetInfo_FileType_ChoosesTheMajorBrand) {
  info.m_dwFileType = 1;
  Start();
  const ByteVector mp41 = Join({
      Be32(28), Text("ftyp"),                    // box
      Text("mp41"), Be32(1),                     // major brand, minor version
      Text("isom"), Text("avc1"), Text("mp41"),  // compatible brands
  });
  EXPECT_EQ(Difference(ByteVector(File().begin(), File().begin() + 28), mp41), "");
  Close();
  info.m_dwFileType = 0;
  Start();
  const ByteVector empty = Join({
      Be32(28), Text("ftyp"),                    // box
      Zeros(4), Be32(0),                         // no major brand
      Text("isom"), Text("avc1"), Text("mp41"),  // compatible brands
  });
  EXPECT_EQ(Difference(ByteVector(File().begin(), File().begin() + 28), empty), "");
}

TEST_F(WriterSetup, SetInfo_NoStreams_WritesFrontBoxesAndMdatHeader) {
  Start();
  const uint32_t front = 28 + writer->m_dwRecoverSize + 23;
  EXPECT_EQ(File().size(), front + 8);
  EXPECT_EQ(writer->m_dwMdatPos, front);
  EXPECT_EQ(writer->m_dwMdatSize, 8u);
  EXPECT_EQ(Difference(FileFrom(front), Join({Be32(8), Text("mdat")})), "");
  EXPECT_EQ(MP4WriterGetCurSize(writer), front + 8 + 108);
}

TEST_F(WriterSetup, SetInfo_VideoCodes_MapToSampleEntries) {
  AddVideo(FourCC("H264"));
  AddVideo(FourCC("H265"));
  AddVideo(FourCC("hev1"));
  Start();
  EXPECT_EQ(Track(0).dwFourCC, FourCC("avc1"));
  EXPECT_EQ(Track(1).dwFourCC, FourCC("hvc1"));
  EXPECT_EQ(Track(2).dwFourCC, FourCC("hev1"));
  EXPECT_TRUE(host.Traced("maked video stream index(2)\n"));
}

TEST_F(WriterSetup, SetInfo_FrameRates_AreRoundedHalvesToEven) {
  for (const uint32_t rate : {29970u, 23976u, 30500u, 31500u}) AddVideo(FourCC("H264"), rate);
  AddText(2500);
  Start();
  EXPECT_EQ(Track(0).m_dwFps, 30u);
  EXPECT_EQ(Track(1).m_dwFps, 24u);
  EXPECT_EQ(Track(2).m_dwFps, 30u);
  EXPECT_EQ(Track(3).m_dwFps, 32u);
  EXPECT_EQ(Track(4).m_dwFps, 2u);
}

TEST_F(WriterSetup, SetInfo_VideoTrack_TakesTheDescription) {
  ZMVVideoInfo& video = AddVideo();
  video.dwBitRate = 1234567;
  video.dwTimeScale = 90000;
  Start();
  EXPECT_EQ(Track().dwMediaType, ZMV_MEDIA_VIDEO);
  EXPECT_EQ(Track().dwTrackID, 1u);
  EXPECT_EQ(Track().dwWidth, 640u);
  EXPECT_EQ(Track().dwHeight, 360u);
  EXPECT_EQ(Track().dwVidExtra, 1234567u);
  EXPECT_EQ(Track().m_dwTimeScale, 90000u);
  EXPECT_EQ(Track().m_dwMovieScale, 90000u);
  EXPECT_EQ(Track().m_pConfig, nullptr);
}

TEST_F(WriterSetup, SetInfo_AudioTrack_TakesTheDescription) {
  ZMVAudioInfo& audio = AddAudio();
  audio.dwBitRate = 128000;
  Start();
  EXPECT_EQ(Track().dwMediaType, ZMV_MEDIA_AUDIO);
  EXPECT_EQ(Track().dwFourCC, ZMV_AUDIO_AAC);
  EXPECT_EQ(Track().dwChannels, 2u);
  EXPECT_EQ(Track().dwSampleRate, 48000u);
  EXPECT_EQ(Track().dwBitsPerSample, 16u);
  EXPECT_EQ(Track().dwDataRefIndex, 1u);
  EXPECT_EQ(Track().dwVidExtra, 128000u);
  EXPECT_EQ(Track().m_dwTimeScale, 48000u);
  EXPECT_EQ(Track().m_dwMovieScale, 48000u);
  EXPECT_EQ(Track().m_bRawAudio, 0);
  EXPECT_TRUE(host.Traced("maked audio stream index(0)\n"));
}

TEST_F(WriterSetup, SetInfo_MovieScale_ComesFromTheFile) {
  info.dwTimeScale = 600;
  AddVideo().dwTimeScale = 25000;
  AddAudio();
  AddText().dwTimeScale = 50;
  Start();
  EXPECT_EQ(Track(0).m_dwMovieScale, 25000u);
  EXPECT_EQ(Track(1).m_dwMovieScale, 600u);
  EXPECT_EQ(Track(2).m_dwMovieScale, 600u);
  EXPECT_EQ(Track(2).m_dwTimeScale, 50u);
  EXPECT_TRUE(host.Traced("maked text stream index(0)\n"));
}

TEST_F(WriterSetup, SetInfo_TimeScaleLeftOut_TakesTheFilesWhereItIsFineEnough) {
  const struct {
    uint32_t file, video, text;
  } rows[] = {{0, 90000, 1000}, {1000, 90000, 1000}, {1001, 1001, 1001}, {25, 90000, 25}, {90000, 90000, 90000}};
  for (const auto& row : rows) {
    info = {};
    info.dwTimeScale = row.file;
    AddVideo();
    AddText();
    Start();
    EXPECT_EQ(Track(0).m_dwTimeScale, row.video) << row.file;
    EXPECT_EQ(Track(1).m_dwTimeScale, row.text) << row.file;
    Close();
  }
}

TEST_F(WriterSetup, SetInfo_RawAudioFormats_AreMarked) {
  const struct {
    uint32_t format;
    int raw;
  } rows[] = {{1, 1}, {6, 1}, {7, 1}, {0xF7774, 1}, {0xFF, 0}, {0x55, 0}};
  for (const auto& row : rows) {
    info = {};
    AddAudio(row.format);
    Start();
    EXPECT_EQ(Track().m_bRawAudio, row.raw) << row.format;
    Close();
  }
}

TEST_F(WriterSetup, SetInfo_PacketRate_ComesFromTheBlockSize) {
  AddAudio();
  Start();
  EXPECT_EQ(Track().m_dwFps, 47u);  // 2 x 48000 / 2048 = 46.875
  EXPECT_EQ(Track().m_Stts.m_dwBufSize, 47u * 120 * 8);
  Close();
  info.m_Audio.dwBlockAlign = 0;
  info.m_Audio.dwSamplesPerFrame = 1024;
  Start();
  EXPECT_EQ(Track().m_dwFps, 47u);  // a block of 1024 samples of 2 bytes
  Close();
  info.m_Audio.dwSamplesPerFrame = 0;
  Start();
  EXPECT_EQ(Track().m_dwFps, 0u);
  EXPECT_EQ(Track().m_Stts.m_dwBufSize, 120u * 8);  // counts as one packet per second
}

TEST_F(WriterSetup, SetInfo_Tables_AreSizedByRateAndHorizon) {
  AddVideo(FourCC("H264"), 30000);
  Start(0, 1);
  const MP4WriterTrack& track = Track();
  EXPECT_EQ(track.m_Stts.m_dwBufSize, 30u * 10 * 8);
  EXPECT_EQ(track.m_Stsz.m_dwBufSize, 30u * 10 * 4);
  EXPECT_EQ(track.m_Stco.m_dwBufSize, 30u * 10 * 4);
  EXPECT_EQ(track.m_Stsc.m_dwBufSize, 30u * 10 * 12);
  EXPECT_EQ(track.m_Stss.m_dwBufSize, 10u * 4);
  EXPECT_EQ(std::string(track.m_Stts.m_szName, 4), "STTS");
  EXPECT_EQ(std::string(track.m_Stsz.m_szName, 4), "STSZ");
  EXPECT_EQ(std::string(track.m_Stco.m_szName, 4), "STCO");
  EXPECT_EQ(std::string(track.m_Stsc.m_szName, 4), "STCO");
  EXPECT_EQ(std::string(track.m_Stss.m_szName, 4), "STSS");
  EXPECT_EQ(track.m_Stts.m_dwBoxSize, 16u);
  EXPECT_EQ(track.m_Stsz.m_dwBoxSize, 20u);
  EXPECT_EQ(track.m_Stco.m_dwBoxSize, 16u);
  EXPECT_EQ(track.m_Stsc.m_dwBoxSize, 16u);
  EXPECT_EQ(track.m_Stss.m_dwBoxSize, 16u);
}

TEST_F(WriterSetup, SetInfo_Interleaved_HasOneFixedStscEntryAndNoBuffer) {
  AddText();
  Start(1);
  EXPECT_EQ(Track().m_Stsc.m_pBuf, nullptr);
  EXPECT_EQ(Track().m_Stsc.m_dwBoxSize, 28u);
  EXPECT_EQ(Track().m_Stsc.m_dwEntryNum, 1u);
  EXPECT_EQ(Track().m_Stss.m_pBuf, nullptr);
}

TEST_F(WriterSetup, SetInfo_CapacityThatWraps_HoldsAtLeastOneEntry) {
  AddText(1000);
  Start(0, INT64_C(1073741814000));  // (1073741814 + 10) entries of 4, 8 or 12 bytes: 0 in 32 bits
  EXPECT_EQ(Track().m_Stts.m_dwBufSize, 8u);
  EXPECT_EQ(Track().m_Stsz.m_dwBufSize, 4u);
  EXPECT_EQ(Track().m_Stsc.m_dwBufSize, 12u);
  Close();
  Start(0, INT64_C(1073741819000));  // five more
  EXPECT_EQ(Track().m_Stts.m_dwBufSize, 40u);
  EXPECT_EQ(Track().m_Stsz.m_dwBufSize, 20u);
  EXPECT_EQ(Track().m_Stsc.m_dwBufSize, 60u);
}

TEST_F(WriterSetup, SetInfo_HorizonOfZero_CountsAsOneSecond) {
  AddVideo(FourCC("H264"), 2000);
  ASSERT_EQ(Open(), 0);
  writer->m_llExpire = 0;
  ASSERT_EQ(SetInfo(), 0);
  EXPECT_EQ(Track().m_Stsz.m_dwBufSize, 2u * 4);
  EXPECT_EQ(Track().m_Stss.m_dwBufSize, 4u);
}

TEST_F(WriterSetup, SetInfo_ProjectedSize_CountsTheMovieToCome) {
  AddVideo();
  AddAudio();
  AddText();
  Start(1);
  const uint32_t tables = 16 + 20 + 16 + 28;
  const uint32_t tracks = 3 * (429 + tables) + 36 + 15 + 20;
  EXPECT_EQ(MP4WriterGetCurSize(writer), 28 + writer->m_dwRecoverSize + 23 + 8 + 108 + tracks);
  Close();
  Start(0);
  EXPECT_EQ(MP4WriterGetCurSize(writer), 28 + writer->m_dwRecoverSize + 23 + 8 + 108 + tracks - 3 * 12);
}

TEST_F(WriterSetup, SetInfo_ProjectionModes_FillTheTrack) {
  for (const uint32_t mode : {0u, 1u, 3u, 7u}) {
    ZMVVideoInfo& video = AddVideo();
    video.dwProjectionMode = mode;
    video.dwStereoBound = 11;
    video.dwStereoParam[0] = 22;
    video.dwStereoParam[1] = 33;
  }
  Start();
  EXPECT_EQ(Track(0).m_bSpherical, 0);
  EXPECT_EQ(Track(0).m_llVidParam, (uint64_t{33} << 32) | 22);

  EXPECT_EQ(Track(1).m_bSpherical, 1);
  EXPECT_EQ(Track(1).m_bStereo, 1);
  EXPECT_STREQ(Track(1).m_pszMetaSource, "KPZ 3D Projection");
  EXPECT_EQ(Track(1).m_dwProjBound[0], 11u);
  EXPECT_EQ(Track(1).m_dwProjBound[1], 22u);
  EXPECT_EQ(Track(1).m_dwProjBound[2], 33u);
  EXPECT_EQ(Track(1).m_dwProjBound[3], 0u);

  EXPECT_EQ(Track(2).m_bSpherical, 1);
  EXPECT_EQ(Track(2).m_bStereo, 0);
  EXPECT_EQ(Track(2).m_pszMetaSource, nullptr);

  EXPECT_EQ(Track(3).m_bSpherical, 1);
  EXPECT_EQ(Track(3).m_bStereo, 0);
  EXPECT_STREQ(Track(3).m_pszMetaSource, "KPZ 3D Projection");
  EXPECT_EQ(Track(3).m_dwProjBound[0], 0u);
}

TEST_F(WriterSetup, SetInfo_VideoConfiguration_LosesEmulationPrevention) {
  ZMVVideoInfo& video = AddVideo();
  const ByteVector sets = Hex("00000001 67 0000 03 01 00000001 68 EE");
  std::copy(sets.begin(), sets.end(), video.abExtraData);
  video.dwExtraDataSize = static_cast<uint32_t>(sets.size());
  ZMVAudioInfo& audio = AddAudio();
  const ByteVector configuration = Hex("00 00 03 11");
  std::copy(configuration.begin(), configuration.end(), audio.abExtraData);
  audio.dwExtraDataSize = 4;
  Start();
  const ByteVector kept(Track(0).m_pConfig, Track(0).m_pConfig + Track(0).m_dwConfigSize);
  EXPECT_EQ(Difference(kept, Hex("00000001 67 0000 01 00000001 68 EE")), "");
  const ByteVector specific(Track(1).m_pConfig, Track(1).m_pConfig + Track(1).m_dwConfigSize);
  EXPECT_EQ(Difference(specific, configuration), "");
}

TEST_F(WriterSetup, SetInfo_BeyondCapacity_IsRefusedBeforeAnythingIsWritten) {
  using Change = void (*)(ZMVFileInfo&);
  const Change changes[] = {
      [](ZMVFileInfo& i) { i.dwAudioCount = 2; },
      [](ZMVFileInfo& i) { i.dwVideoCount = 10; },
      [](ZMVFileInfo& i) { i.dwTextCount = 3; },
      [](ZMVFileInfo& i) { i.dwVideoCount = 0xFFFFFFFF; },
      [](ZMVFileInfo& i) { i.dwVideoCount = 9, i.dwAudioCount = 1, i.dwTextCount = 1; },
      [](ZMVFileInfo& i) { i.dwVideoCount = 9, i.dwTextCount = 2; },
      [](ZMVFileInfo& i) { i.dwVideoCount = 2, i.m_Video[1].dwExtraDataSize = 513; },
      [](ZMVFileInfo& i) { i.dwAudioCount = 1, i.m_Audio.dwExtraDataSize = 0xFFFFFFFF; },
  };
  for (const Change change : changes) {
    EXPECT_EQ(static_cast<uint32_t>(ResultOf(change)), ZMV_E_FAIL);
    EXPECT_EQ(written, 0u);
  }
  EXPECT_EQ(ResultOf([](ZMVFileInfo& i) { i.dwVideoCount = 9, i.dwTextCount = 1; }), 0);
  EXPECT_EQ(ResultOf([](ZMVFileInfo& i) { i.dwVideoCount = 1, i.m_Video[0].dwExtraDataSize = 512; }), 0);
  // What stands in descriptions that are not in use is not looked at.
  EXPECT_EQ(ResultOf([](ZMVFileInfo& i) { i.m_Audio.dwExtraDataSize = 513; }), 0);
}

TEST_F(WriterSetup, SetInfo_Twice_IsRefused) {
  AddText();
  Start();
  const size_t size = File().size();
  EXPECT_EQ(static_cast<uint32_t>(SetInfo()), ZMV_E_FAIL);
  EXPECT_EQ(File().size(), size);
  EXPECT_EQ(writer->m_dwTrackNum, 1u);
}

TEST_F(WriterSetup, SetInfo_AnyAllocationFails_GivesTheCodeAndCloseReleasesTheRest) {
  AddVideo().dwExtraDataSize = 8;
  AddAudio().dwExtraDataSize = 2;
  AddText();
  uint64_t failed = 0;
  for (uint64_t call = 1;; ++call) {
    ASSERT_LT(call, 100u);
    ASSERT_EQ(Open(0, 1), 0);
    host.ClearRecords();
    const uint64_t before = host.Count(HostCall::kMalloc);
    host.Fail(HostCall::kMalloc, call);
    const int32_t result = SetInfo();
    host.ClearFailures();
    const uint64_t made = host.Count(HostCall::kMalloc) - before;
    if (result != 0) {
      EXPECT_EQ(static_cast<uint32_t>(result), ZMV_E_MEMORY);
      EXPECT_THAT(host.Traces(1), ElementsAre("Brand custom ()\n"));
      EXPECT_EQ(made, call);
      ++failed;
    }
    Close();
    ASSERT_THAT(host.LiveList(), IsEmpty()) << call;
    if (made < call) break;
  }
  // Two configurations, three tracks, four tables each and the key frame table; the random box is let go.
  EXPECT_EQ(failed, 2u + 3 + 3 * 4 + 1);
}

TEST_F(WriterSetup, SetInfo_FrontWriteFails_GivesTheStreamsCode) {
  AddVideo().dwExtraDataSize = 8;
  AddAudio();
  AddText();
  for (uint64_t call = 1; call <= 8; ++call) {  // ftyp, three boxes, two halves of the random box, build, mdat
    ASSERT_EQ(Open(), 0);
    host.ClearRecords();
    host.Fail(HostCall::kWrite, call);
    EXPECT_EQ(static_cast<uint32_t>(SetInfo()), ZMV_E_WRITE) << call;
    EXPECT_TRUE(host.Traced("err (0x80000013)\n"));
    EXPECT_EQ(writer->m_dwMdatSize, 0u);
    Close();
  }
}

TEST_F(WriterSetup, GetCurSize_WithoutHandle_IsNothing) { EXPECT_EQ(MP4WriterGetCurSize(nullptr), 0u); }

TEST_F(WriterSetup, SetInfo_KeepsTheStartTimeAndTracesIt) {
  ASSERT_EQ(Open(), 0);
  EXPECT_EQ(MP4WriterSetInfo(writer, &info, 777), 0);
  EXPECT_EQ(writer->m_llStartCTS, 777u);
  EXPECT_TRUE(host.Traced("Enter. dwStartCTS(777)\n"));
}

}  // namespace
}  // namespace zmv::test

#include <cmath>
#include <random>

#include "base/arith.h"
#include "tests/mp4/writer_test.h"

namespace zmv::test {
namespace {

using ::testing::ElementsAre;

class WriterFrames : public WriterTest {
 protected:
  // A text track with room for ten entries in every table.
  void StartText(uint8_t interleave = 1) {
    AddText(1000);
    Start(interleave, 1);
  }
  static ByteVector Held(const MP4WriterTable& table) {
    return ByteVector(table.m_pBuf, table.m_pBuf + table.m_dwUsed);
  }
  static std::vector<uint32_t> Numbers(const MP4WriterTable& table) {
    std::vector<uint32_t> numbers;
    for (uint32_t i = 0; i < table.m_dwUsed; i += 4) numbers.push_back(LoadBE32(table.m_pBuf + i));
    return numbers;
  }
};

TEST_F(WriterFrames, NoTracks_GivesMinusOneAndSaysSo) {
  Start();
  const size_t size = File().size();
  EXPECT_EQ(Write(ZMV_MEDIA_AUDIO, {1, 2}, 0, 20, 3), -1);
  EXPECT_EQ(File().size(), size);
  EXPECT_TRUE(host.Traced("can not find matched stream media(2) index(3)\n"));
}

TEST_F(WriterFrames, Frame_IsItsRecoveryRecordAndItsPayload) {
  AddAudio();
  Start();
  const uint32_t end = MdatEnd();
  const uint32_t projected = writer->m_dwCurSize;
  EXPECT_EQ(Write(ZMV_MEDIA_AUDIO, {9, 8, 7, 6, 5}, 40, 21), 0);
  const ByteVector bytes = Join({
      Text("RECO"), Be32(2), Be32(0),        // tag, audio, no key frame
      Be32(40), Be32(21), Be32(0), Be32(5),  // time, duration, stream, size
      Bytes({9, 8, 7, 6, 5}),                // payload
  });
  EXPECT_EQ(Difference(FileFrom(end), bytes), "");
  EXPECT_EQ(MdatEnd(), end + 33);
  EXPECT_EQ(writer->m_dwCurSize, projected + 33 + 8);  // an entry of stsz and of stco
  EXPECT_EQ(Track().m_dwMaxSize, 5u);
  EXPECT_EQ(Track().dwTotalFrames, 1u);
  EXPECT_THAT(Numbers(Track().m_Stco), ElementsAre(end + 28));
}

TEST_F(WriterFrames, StartCode_BecomesTheLengthOfTheRest) {
  AddVideo(FourCC("H264"));
  Start();
  ByteVector payload = Join({Bytes({0, 0, 0, 1}), ByteVector(96, 0x65)});
  payload[50] = payload[51] = payload[52] = 0;  // another start code inside stays
  payload[53] = 1;
  const uint32_t end = MdatEnd();
  EXPECT_EQ(Write(ZMV_MEDIA_VIDEO, payload, 0, 33333), 0);
  const ByteVector expected = Join({Bytes({0, 0, 0, 0x60}), ByteVector(payload.begin() + 4, payload.end())});
  EXPECT_EQ(Difference(FileFrom(end + 28), expected), "");
}

TEST_F(WriterFrames, StartCode_OnlyOfTheCodecsThatHaveOne) {
  const char* const with[] = {"H264", "X264", "avc1", "AVC1", "hvc1", "hev1", "HEV1", "HEVC", "H265"};
  const char* const without[] = {"MJPG", "h264", "x264", "HVC1", "264H"};
  auto first_word = [&](const char* code) {
    info = {};
    AddVideo(ZMV_FOURCC(code[0], code[1], code[2], code[3]));
    Start();
    const uint32_t end = MdatEnd();
    EXPECT_EQ(WriteVideo(20), 0);
    const uint32_t word = Be32At(File(), end + 28);
    EXPECT_EQ(File().size(), end + 28 + 20);
    Close();
    return word;
  };
  for (const char* code : with) EXPECT_EQ(first_word(code), 16u) << code;
  for (const char* code : without) EXPECT_EQ(first_word(code), 1u) << code;
}

TEST_F(WriterFrames, StartCode_PayloadBelowFourBytes_IsWrittenAsItIs) {
  AddVideo();
  Start();
  const uint32_t end = MdatEnd();
  EXPECT_EQ(Write(ZMV_MEDIA_VIDEO, {0, 0, 1}, 0, 33333), 0);
  EXPECT_EQ(Difference(FileFrom(end + 28), Bytes({0, 0, 1})), "");
  EXPECT_EQ(Write(ZMV_MEDIA_VIDEO, {}, 33, 33333), 0);
  EXPECT_EQ(File().size(), end + 28 + 3 + 28);
  EXPECT_EQ(Write(ZMV_MEDIA_VIDEO, {0, 0, 0, 1}, 66, 33333), 0);
  EXPECT_EQ(Difference(FileFrom(end + 28 + 3 + 28 + 28), Zeros(4)), "");
}

TEST_F(WriterFrames, VideoDurations_AreMicrosecondsRoundedToTicks) {
  AddVideo().dwTimeScale = 90000;
  Start();
  EXPECT_EQ(WriteVideo(10, 0, 2, 33333), 0);
  EXPECT_EQ(Track().m_dwRunCount, 0u);  // the first frame adds no entry
  EXPECT_EQ(Track().m_dwLastDur, 3000u);
  EXPECT_EQ(WriteVideo(10, 33, 2, 33333), 0);
  EXPECT_EQ(Track().m_dwRunDelta, 3000u);  // round(2999.97)
  EXPECT_EQ(Track().m_dwRunCount, 1u);
  EXPECT_EQ(Track().m_dwMediaDur, 6000u);
  EXPECT_EQ(Track().m_dwMovieDur, 6000u);
}

TEST_F(WriterFrames, AudioDurations_AreMillisecondsInTheTracksAndTheMoviesScale) {
  info.dwTimeScale = 90000;
  AddAudio();
  Start();
  for (const uint32_t duration : {21u, 21u, 22u}) EXPECT_EQ(WriteAudio(10, 0, duration), 0);
  EXPECT_EQ(Track().m_dwMediaDur, 64u * 48);
  EXPECT_EQ(Track().m_dwMovieDur, 64u * 90);
  EXPECT_EQ(Track().m_dwLastDur, 22u * 48);
}

TEST_F(WriterFrames, Durations_HalvesGoAwayFromZeroAndHugeOnesSaturate) {
  AddAudio().dwSampleRate = 500;
  Start();
  EXPECT_EQ(WriteAudio(1, 0, 1), 0);
  EXPECT_EQ(Track().m_dwMediaDur, 1u);  // half a tick
  EXPECT_EQ(WriteAudio(1, 0, 5), 0);
  EXPECT_EQ(Track().m_dwLastDur, 3u);  // two and a half
  Close();
  info.m_Audio.dwSampleRate = 0xFFFFFFFF;
  info.m_Audio.dwBitsPerSample = 0;  // no packet rate, so small tables
  Start();
  EXPECT_EQ(WriteAudio(1, 0, 0xFFFFFFFF), 0);
  EXPECT_EQ(Track().m_dwLastDur, 0xFFFFFFFFu);
  EXPECT_EQ(Track().m_dwMediaDur, 0xFFFFFFFFu);
}

TEST_F(WriterFrames, Durations_OfEveryScale_AreRoundedAsTheMathLibraryDoes) {
  AddVideo();
  Start();
  const auto expect = [this](uint32_t scale, uint32_t duration) {
    Track().m_dwTimeScale = scale;
    ASSERT_EQ(WriteVideo(1, 0, ZMV_NOT_KEY_FRAME, duration), 0) << scale << " " << duration;
    const double ticks = std::round(static_cast<double>(scale) * duration / 1000000.0);
    ASSERT_EQ(Track().m_dwLastDur, SaturatingU32(ticks)) << scale << " " << duration;
  };
  // Around halves, among small ticks and among the largest there are.
  for (uint32_t half : {500000u, 1500000u, 2500000u, 4294500000u}) {
    for (uint32_t duration : {half - 1, half, half + 1}) {
      for (uint32_t scale : {1u, 3u, 999u, 999999u, 1000000u, 1000001u}) expect(scale, duration);
    }
  }
  std::mt19937 random(5);
  for (int i = 0; i < 20000; ++i) {
    const uint32_t scale = static_cast<uint32_t>(random()) >> random() % 32;
    expect(scale, static_cast<uint32_t>(random()) >> random() % 32);
  }
}

TEST_F(WriterFrames, ConstantRate_IsOneRunAndOneOddDurationMakesThree) {
  AddVideo().dwTimeScale = 90000;
  Start();
  for (uint64_t i = 0; i < 10; ++i) EXPECT_EQ(WriteVideo(10, i * 40, 2, i == 5 ? 60000 : 40000), 0);
  EXPECT_EQ(Difference(Held(Track().m_Stts), Join({
                                                 Be32(4),
                                                 Be32(3600),  // frames 0 to 3 last as long as 1 to 4 say
                                                 Be32(1),
                                                 Be32(5400),
                                             })),
            "");
  EXPECT_EQ(Track().m_dwRunCount, 4u);
}

TEST_F(WriterFrames, Times_FirstAndLastAreKept) {
  AddAudio();
  Start();
  EXPECT_EQ(WriteAudio(1, 500), 0);
  EXPECT_EQ(Track().m_llFirstCTS, 500u);
  EXPECT_EQ(Track().m_llLastCTS, 0u);
  EXPECT_EQ(WriteAudio(1, 520), 0);
  EXPECT_EQ(Track().m_llFirstCTS, 500u);
  EXPECT_EQ(Track().m_llLastCTS, 520u);
}

TEST_F(WriterFrames, BackwardTime_IsReportedAndTheFrameWritten) {
  AddAudio();
  Start();
  EXPECT_EQ(WriteAudio(1, 100), 0);
  EXPECT_EQ(WriteAudio(1, 120), 0);
  const size_t size = File().size();
  EXPECT_EQ(WriteAudio(1, 110, 33), 0);
  EXPECT_EQ(File().size(), size + 29);
  EXPECT_EQ(Track().dwTotalFrames, 3u);
  EXPECT_EQ(Track().m_llLastCTS, 110u);
  EXPECT_TRUE(host.Traced("CTS went backwards.!!! (prev 120 > curr 110) media(2) index(0) dur(33)\n"));
}

TEST_F(WriterFrames, KeyFrames_OfVideoEnterStss) {
  AddVideo();
  AddAudio();
  Start();
  for (const uint32_t key : {1u, 2u, 0u, 1u}) EXPECT_EQ(WriteVideo(10, 0, key), 0);
  EXPECT_THAT(Numbers(Track(0).m_Stss), ElementsAre(1u, 4u));
  EXPECT_EQ(Write(ZMV_MEDIA_AUDIO, {1}, 0, 20, 0, ZMV_KEY_FRAME), 0);
  EXPECT_EQ(Track(1).m_Stss.m_dwEntryNum, 0u);
}

TEST_F(WriterFrames, StreamNumber_ChoosesAmongTheTracksOfItsMedium) {
  AddVideo();
  AddVideo();
  AddAudio();
  Start();
  EXPECT_EQ(Write(ZMV_MEDIA_VIDEO, {1}, 0, 33333, 1), 0);
  EXPECT_EQ(Track(1).dwTotalFrames, 1u);
  EXPECT_EQ(WriteAudio(1), 0);
  EXPECT_EQ(Track(2).dwTotalFrames, 1u);
  EXPECT_EQ(Track(0).dwTotalFrames, 0u);
}

TEST_F(WriterFrames, UnknownStreamNumber_GoesToTheLastTrackInTheUnitsOfItsMedium) {
  AddVideo();
  AddAudio();
  Start();
  EXPECT_EQ(Write(ZMV_MEDIA_VIDEO, {0, 0, 0, 1, 5}, 0, 33333, 7, ZMV_KEY_FRAME), 0);
  EXPECT_EQ(Track(0).dwTotalFrames, 0u);
  EXPECT_EQ(Track(1).dwTotalFrames, 1u);
  EXPECT_EQ(Track(1).m_dwLastDur, 1600u);  // 33333 microseconds at 48000
  EXPECT_EQ(Track(1).m_dwMovieDur, 1600u);
  EXPECT_EQ(Track(1).m_Stss.m_dwEntryNum, 0u);
  EXPECT_EQ(Write(9, {1}, 0, 20, 0), 0);
  EXPECT_EQ(Track(1).dwTotalFrames, 2u);
}

TEST_F(WriterFrames, LargestPayload_IsKept) {
  AddAudio();
  Start();
  for (const size_t size : {5u, 9u, 3u}) EXPECT_EQ(WriteAudio(size), 0);
  EXPECT_EQ(Track().m_dwMaxSize, 9u);
}

TEST_F(WriterFrames, RawAudio_FirstFrameGivesTheSamplesPerFrame) {
  AddAudio(ZMV_AUDIO_PCM);
  Start();
  EXPECT_EQ(WriteAudio(2048), 0);
  EXPECT_EQ(Track().m_dwSampPerFrame, 1024u);  // channels do not count
  EXPECT_EQ(WriteAudio(100), 0);
  EXPECT_EQ(Track().m_dwSampPerFrame, 1024u);
  Close();
  info.m_Audio.dwBitsPerSample = 7;
  Start();
  EXPECT_EQ(WriteAudio(2048), 0);
  EXPECT_EQ(Track().m_dwSampPerFrame, 0u);
}

TEST_F(WriterFrames, Interleaved_EveryFrameIsAChunk) {
  AddAudio();
  Start(1);
  for (int i = 0; i < 3; ++i) EXPECT_EQ(WriteAudio(10), 0);
  const uint32_t first = writer->m_dwMdatPos + 8 + 28;
  EXPECT_THAT(Numbers(Track().m_Stco), ElementsAre(first, first + 38, first + 76));
  EXPECT_EQ(writer->m_pLastTrack, nullptr);
}

TEST_F(WriterFrames, NotInterleaved_AlternatingTracksMakeAChunkPerFrame) {
  AddVideo();
  AddAudio();
  Start(0);
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(WriteVideo(10), 0);
    EXPECT_EQ(WriteAudio(10), 0);
  }
  EXPECT_EQ(Track(0).m_Stco.m_dwEntryNum, 3u);
  EXPECT_EQ(Track(1).m_Stco.m_dwEntryNum, 3u);
  EXPECT_EQ(Track(0).m_dwChunkNum, 3u);
  EXPECT_THAT(Numbers(Track(0).m_Stsc), ElementsAre(1u, 1u, 1u));
}

TEST_F(WriterFrames, NotInterleaved_ARunOfOneTrackIsAChunk) {
  AddVideo();
  AddAudio();
  Start(0);
  for (int i = 0; i < 3; ++i) EXPECT_EQ(WriteVideo(10), 0);
  for (int i = 0; i < 2; ++i) EXPECT_EQ(WriteAudio(10), 0);
  EXPECT_EQ(WriteVideo(10), 0);
  EXPECT_EQ(WriteAudio(10), 0);
  EXPECT_THAT(Numbers(Track(0).m_Stsc), ElementsAre(1u, 3u, 1u, 2u, 1u, 1u));
  EXPECT_THAT(Numbers(Track(1).m_Stsc), ElementsAre(1u, 2u, 1u));
  EXPECT_EQ(Track(1).m_dwChunkSamples, 1u);
  const uint32_t first = writer->m_dwMdatPos + 8;
  EXPECT_THAT(Numbers(Track(0).m_Stco), ElementsAre(first + 28, first + 5 * 38 + 28));
  EXPECT_EQ(writer->m_pLastTrack, &Track(1));
}

TEST_F(WriterFrames, NotInterleaved_ASpilledTableBreaksTheChunk) {
  StartText(0);
  for (uint32_t i = 0; i < 10; ++i) EXPECT_EQ(WriteText(10 + i), 0);
  EXPECT_EQ(Track().m_dwChunkNum, 1u);
  EXPECT_EQ(WriteText(30), 0);  // stsz is full
  EXPECT_EQ(Track().m_Stsz.m_dwSpillNum, 1u);
  EXPECT_EQ(Track().m_dwChunkNum, 2u);
  EXPECT_EQ(Track().m_dwChunkSamples, 1u);
  EXPECT_EQ(writer->m_bNewChunk, 0);
  EXPECT_THAT(Numbers(Track().m_Stsc), ElementsAre(1u, 10u, 1u));
  EXPECT_EQ(WriteText(30), 0);
  EXPECT_EQ(Track().m_dwChunkSamples, 2u);
}

TEST_F(WriterFrames, Spill_OfChunkOffsetsStandsBetweenRecordAndPayload) {
  StartText(1);
  for (uint32_t i = 0; i < 10; ++i) EXPECT_EQ(WriteText(10 + i), 0);
  const uint32_t end = MdatEnd();
  EXPECT_EQ(WriteText(5), 0);
  // stsz before the record, stco behind it.
  EXPECT_EQ(Difference(BytesOf(File(), {"", end, 8}), Join({Text("tabl"), Be32(40)})), "");
  EXPECT_EQ(Difference(BytesOf(File(), {"", end + 48, 4}), Text("RECO")), "");
  EXPECT_EQ(Difference(BytesOf(File(), {"", end + 48 + 28, 8}), Join({Text("tabl"), Be32(40)})), "");
  EXPECT_EQ(Difference(FileFrom(end + 48 + 28 + 48), ByteVector(5, 0x77)), "");
  EXPECT_THAT(Numbers(Track().m_Stco), ElementsAre(end + 48 + 28 + 48));
}

TEST_F(WriterFrames, Messages_HaveTheirLevels) {
  EXPECT_EQ(Open(), 0);
  EXPECT_EQ(WriteAudio(1), -1);
  Close();
  AddAudio();
  Start();
  EXPECT_EQ(WriteAudio(1, 100), 0);
  EXPECT_EQ(WriteAudio(1, 100), 0);
  EXPECT_EQ(WriteAudio(1, 90), 0);
  host.Fail(HostCall::kWrite, 2);
  EXPECT_EQ(static_cast<uint32_t>(WriteAudio(1, 100)), ZMV_E_WRITE);
  EXPECT_THAT(host.Traces(1), ::testing::IsSupersetOf({
                                  "can not find matched stream media(2) index(0)\n",
                                  "CTS went backwards.!!! (prev 100 > curr 90) media(2) index(0) dur(20)\n",
                                  "write error (-2147483629)\n",
                              }));
}

TEST_F(WriterFrames, NoHandleOrPayload_IsRefused) {
  ZMVFrame frame = {};
  EXPECT_EQ(static_cast<uint32_t>(MP4WriterWriteFrame(nullptr, &frame)), ZMV_E_FAIL);
  AddAudio();
  Start();
  EXPECT_EQ(static_cast<uint32_t>(MP4WriterWriteFrame(writer, nullptr)), ZMV_E_FAIL);
  frame.dwMediaType = ZMV_MEDIA_AUDIO;
  frame.dwSize = 1;
  EXPECT_EQ(static_cast<uint32_t>(MP4WriterWriteFrame(writer, &frame)), ZMV_E_FAIL);
  EXPECT_EQ(Track().dwTotalFrames, 0u);
}

}  // namespace
}  // namespace zmv::test

#include <set>

#include "tests/avi/writer_test.h"

namespace zmv::test {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr uint32_t kHeadsBeforeStreams = 88;

class AviSetup : public AviWriterTest {};

// ---- Open

TEST_F(AviSetup, Open_WritesTheRiffHeader) {
  ASSERT_EQ(Open(), 0);
  EXPECT_EQ(Difference(File(), Join({Text("RIFF"), Le32(0), Text("AVI ")})), "");
  EXPECT_EQ(writer->m_hInOut, stream);
  EXPECT_EQ(writer->m_dwCursor, 0u);
  EXPECT_THAT(host.Traces(4), Contains("Enter.\n"));
  EXPECT_EQ(host.traces().back().module, "ZMVAVIW");
  EXPECT_EQ(host.traces().back().file, "zmvstream_avi_writer");
}

TEST_F(AviSetup, Open_LimitIsKeptInWholeSeconds) {
  const std::pair<uint64_t, uint32_t> cases[] = {
      {0, 0}, {999, 0}, {1000, 1}, {59999, 59}, {uint64_t{1000} * 0xFFFFFFFF, 0xFFFFFFFF}, {UINT64_MAX, 0xFFFFFFFF}};
  for (const auto& [limit, seconds] : cases) {
    ASSERT_EQ(Open(limit), 0);
    EXPECT_EQ(writer->m_dwLimitSeconds, seconds) << limit;
    Close();
  }
}

TEST_F(AviSetup, Open_WithoutArguments_IsRefused) {
  EXPECT_EQ(static_cast<uint32_t>(AVIWriterOpen(&writer, nullptr, 0, 0, 0.0)), ZMV_E_FAIL);
  EXPECT_EQ(writer, nullptr);
  ASSERT_EQ(ZMVStreamBuf_Open(&stream, kPath, 0, ZMV_STREAM_WRITE), 0);
  EXPECT_EQ(static_cast<uint32_t>(AVIWriterOpen(nullptr, stream, 0, 0, 0.0)), ZMV_E_FAIL);
}

TEST_F(AviSetup, Open_WithoutMemory_Fails) {
  ASSERT_EQ(ZMVStreamBuf_Open(&stream, kPath, 0, ZMV_STREAM_WRITE), 0);
  host.Fail(HostCall::kMalloc, 1);
  EXPECT_EQ(static_cast<uint32_t>(Open()), ZMV_E_MEMORY);
  EXPECT_EQ(writer, nullptr);
  EXPECT_EQ(host.Count(HostCall::kWrite), 0u);
}

TEST_F(AviSetup, Open_WithoutACursor_SaysSoAndReturnsTheCode) {
  ASSERT_EQ(ZMVStreamBuf_Open(&stream, kPath, 0, ZMV_STREAM_WRITE), 0);
  host.Fail(HostCall::kMalloc, 2);
  EXPECT_EQ(static_cast<uint32_t>(Open()), ZMV_E_MEMORY);
  EXPECT_EQ(writer, nullptr);
  EXPECT_THAT(host.Traces(1), Contains("ZMVStreamBuf_Index error!!!\n"));
}

TEST_F(AviSetup, Open_FailedWrite_ReturnsTheCodeAndGivesTheCursorBack) {
  ASSERT_EQ(ZMVStreamBuf_Open(&stream, kPath, 0, ZMV_STREAM_WRITE), 0);
  host.Fail(HostCall::kWrite, 1);
  EXPECT_EQ(static_cast<uint32_t>(Open()), ZMV_E_WRITE);
  EXPECT_EQ(writer, nullptr);
  EXPECT_THAT(host.Traces(1), Contains("err (0x80000013)\n"));
  EXPECT_EQ(Open(), 0);
}

TEST_F(AviSetup, Open_ShortWrite_IsAFailedOne) {
  host.max_transfer = 5;
  EXPECT_EQ(static_cast<uint32_t>(Open()), ZMV_E_WRITE);
  EXPECT_EQ(writer, nullptr);
}

// ---- The main header

TEST_F(AviSetup, Headers_OfNoStreams_AreWrittenFieldByField) {
  Start();
  const uint32_t junk = RandomJunkSize();
  const ByteVector expected = Join({
      Text("RIFF"), Le32(0), Text("AVI "),    // set at close
      Text("LIST"), Le32(68), Text("hdrl"),   //
      Text("avih"), Le32(56), Zeros(56),      // no flags, no streams, no size
      Text("JUNK"), Le32(junk), Zeros(junk),  //
      Text("LIST"), Le32(0), Text("movi"),    // set at close
  });
  EXPECT_EQ(Difference(File(), expected), "");
  EXPECT_EQ(writer->m_dwMoviSize, 4u);
  EXPECT_EQ(writer->m_dwChunkOffset, 4u);
}

TEST_F(AviSetup, MainHeader_FlagsAndStreams) {
  struct Case {
    uint32_t videos, audios, texts, flags;
  };
  const Case cases[] = {{1, 0, 0, 0x810}, {1, 1, 0, 0x910}, {2, 0, 1, 0x810}, {9, 1, 2, 0x910},
                        {0, 1, 0, 0},     {0, 0, 1, 0},     {0, 1, 2, 0}};
  for (const Case& c : cases) {
    info = {};
    for (uint32_t i = 0; i < c.videos; ++i) AddVideo().dwWidth = 640 + i;
    if (c.audios != 0) AddAudio();
    for (uint32_t i = 0; i < c.texts; ++i) AddText();
    Start();
    EXPECT_EQ(MainHeader(12), c.flags);
    EXPECT_EQ(MainHeader(24), c.videos + c.audios + c.texts);
    EXPECT_EQ(MainHeader(32), c.videos != 0 ? 640u : 0u);  // the first video's
    EXPECT_EQ(MainHeader(36), c.videos != 0 ? 360u : 0u);
    EXPECT_EQ(Difference(Part(File(), 32, 12), Zeros(12)), "");
    EXPECT_EQ(writer->m_dwStreamCount, c.videos + c.audios + c.texts);
    char line[80];
    snprintf(line, sizeof line, "total stream size(%u) v(%u)a(%u)t(%u)\n", c.videos + c.audios + c.texts, c.videos,
             c.audios, c.texts);
    EXPECT_THAT(host.Traces(3), Contains(line));
    Close();
  }
}

TEST_F(AviSetup, HdrlSize_CountsTheStreamListsButNotInfo) {
  AddVideo();
  AddAudio();
  Software("camera");
  Start();
  // 4 + 8 + 56; video 8 + 76 + 40; audio 8 + 76 + 16
  EXPECT_EQ(Le32At(File(), 16), 68u + 124 + 100);
  EXPECT_EQ(Find(File(), "INFO"), 20u + 68 + 124 + 100 + 8);
}

TEST_F(AviSetup, Positions_AreTraced) {
  Start();
  EXPECT_THAT(host.Traces(4), Contains("avi first list size pos(10)\n"));
  EXPECT_THAT(host.Traces(4), Contains("avih size pos(20)\n"));
  EXPECT_EQ(writer->m_dwMainHeaderPos, 32u);
}

TEST_F(AviSetup, SetInfo_KeepsItsValue) {
  ASSERT_EQ(Open(), 0);
  ASSERT_EQ(AVIWriterSetInfo(writer, &info, 12.5), 0);
  EXPECT_EQ(writer->m_dValue, 12.5);
}

TEST_F(AviSetup, SetInfo_WithoutArgumentsOrTwice_IsRefused) {
  EXPECT_EQ(static_cast<uint32_t>(AVIWriterSetInfo(nullptr, &info, 0.0)), ZMV_E_FAIL);
  ASSERT_EQ(Open(), 0);
  EXPECT_EQ(static_cast<uint32_t>(AVIWriterSetInfo(writer, nullptr, 0.0)), ZMV_E_FAIL);
  AddVideo();
  ASSERT_EQ(SetInfo(), 0);
  const ByteVector before = File();
  EXPECT_EQ(static_cast<uint32_t>(SetInfo()), ZMV_E_FAIL);
  EXPECT_EQ(Difference(File(), before), "");
  EXPECT_EQ(writer->m_dwStreamCount, 1u);
}

TEST_F(AviSetup, SetInfo_CountsBeyondTheirArrays_AreRefusedBeforeAnythingIsWritten) {
  ASSERT_EQ(Open(), 0);
  for (const uint32_t beyond : {0u, 1u, 0x7FFFFFFFu}) {
    for (uint32_t ZMVFileInfo::*count :
         {&ZMVFileInfo::dwAudioCount, &ZMVFileInfo::dwVideoCount, &ZMVFileInfo::dwTextCount}) {
      const uint32_t capacity = count == &ZMVFileInfo::dwAudioCount ? 1 : count == &ZMVFileInfo::dwVideoCount ? 9 : 2;
      info = {};
      info.*count = capacity + 1 + beyond;
      EXPECT_EQ(static_cast<uint32_t>(SetInfo()), ZMV_E_FAIL);
    }
  }
  info = {};
  info.dwVideoCount = 0xFFFFFFFF;  // a sum that would wrap
  info.dwTextCount = 2;
  EXPECT_EQ(static_cast<uint32_t>(SetInfo()), ZMV_E_FAIL);
  EXPECT_EQ(File().size(), 12u);
  info = {};
  EXPECT_EQ(SetInfo(), 0);
}

// ---- INFO and JUNK

TEST_F(AviSetup, Software_V1_IsAnInfoListOf24Bytes) {
  Software("V1");
  Start();
  EXPECT_EQ(
      Difference(Part(File(), kHeadsBeforeStreams, 24), Hex("4C495354 10000000 494E464F 49534654 04000000 56310000")),
      "");
}

TEST_F(AviSetup, Software_OfOddLength_EndsWithOneZero) {
  Software("cam");
  Start();
  const ByteVector expected = Join({
      Text("LIST"), Le32(16), Text("INFO"),          //
      Text("ISFT"), Le32(4), Text("cam"), Zeros(1),  //
      Text("JUNK"),                                  //
  });
  EXPECT_EQ(Difference(Part(File(), kHeadsBeforeStreams, 28), expected), "");
}

TEST_F(AviSetup, Software_WithoutAnEnd_IsTakenWhole) {
  std::memset(info.szSoftware, 'x', sizeof info.szSoftware);
  Start();
  const ByteVector expected = Join({
      Text("LIST"), Le32(78), Text("INFO"),                   //
      Text("ISFT"), Le32(66), ByteVector(64, 'x'), Zeros(2),  //
      Text("JUNK"),                                           //
  });
  EXPECT_EQ(Difference(Part(File(), kHeadsBeforeStreams, 90), expected), "");
}

TEST_F(AviSetup, RandomJunk_IsEvenZeroAndFrom32To256) {
  host.record = false;
  host.trace_level = 0;
  std::set<uint32_t> sizes;
  for (unsigned seed = 0; seed < 3000; ++seed) {
    ASSERT_EQ(Open(), 0);
    std::srand(seed);
    ASSERT_EQ(AVIWriterSetInfo(writer, &info, 0.0), 0);
    const uint32_t size = Le32At(File(), kHeadsBeforeStreams + 4);
    ASSERT_EQ(size, RandomJunkSize(seed));
    ASSERT_EQ(Difference(Part(File(), kHeadsBeforeStreams + 8, size), Zeros(size)), "");
    sizes.insert(size);
    Close();
  }
  EXPECT_EQ(*sizes.begin(), 32u);
  EXPECT_EQ(*sizes.rbegin(), 256u);
  EXPECT_TRUE(std::none_of(sizes.begin(), sizes.end(), [](uint32_t size) { return size % 2 != 0; }));
}

TEST_F(AviSetup, ExtraHeader_IsASecondJunkChunkWithoutAPad) {
  uint8_t extra[] = {'A', 'D', 'A', 'S', 1};
  info.pExtraHeader = extra;
  info.dwExtraHeaderSize = sizeof extra;
  Start();
  const ByteVector expected = Join({
      Text("JUNK"), Le32(5), Text("ADAS"), Bytes({1}),  //
      Text("LIST"), Le32(0), Text("movi"),              //
  });
  EXPECT_EQ(Difference(Part(File(), kHeadsBeforeStreams + 8 + RandomJunkSize()), expected), "");
}

TEST_F(AviSetup, ExtraHeader_WithoutBytesOrSize_IsNotWritten) {
  uint8_t extra[] = {1};
  for (const bool bytes : {false, true}) {
    info = {};
    info.pExtraHeader = bytes ? extra : nullptr;
    info.dwExtraHeaderSize = bytes ? 0 : 1;
    Start();
    EXPECT_EQ(File().size(), kHeadsBeforeStreams + 8 + RandomJunkSize() + 12);
    Close();
  }
}

// ---- The index's first memory

TEST_F(AviSetup, IndexCapacity_OfVideoAndPcm) {
  AddVideo(kH264, 30000);
  AddAudio();
  Start(60000);
  EXPECT_EQ(writer->m_dwIndexCapacity, 72960u);  // (30 + 46) x 60 x 16
  EXPECT_TRUE(host.Traced("Tblsize(72960)\n"));
}

TEST_F(AviSetup, IndexCapacity_OfEveryKindOfStream) {
  const auto capacity = [this](uint64_t limit = 1000) {
    Start(limit);
    const uint32_t bytes = writer->m_dwIndexCapacity;
    Close();
    info = {};
    return bytes;
  };
  AddVideo(kH264, 29970);
  AddVideo(kH264, 999);
  EXPECT_EQ(capacity(), 29u * 16);
  AddAudio(ZMV_AUDIO_AAC).dwSamplesPerFrame = 1;  // the format's own frame counts
  EXPECT_EQ(capacity(), 46u * 16);
  AddAudio(0x1234);  // no known frame
  EXPECT_EQ(capacity(), 0u);
  AddAudio().dwSamplesPerFrame = 0;
  EXPECT_EQ(capacity(), 0u);
  AddText(10500);
  AddText(1000);
  EXPECT_EQ(capacity(2500), 11u * 2 * 16);
}

TEST_F(AviSetup, IndexCapacity_OfNothing_IsNoError) {
  AddVideo();
  Start(999);
  EXPECT_EQ(writer->m_dwIndexCapacity, 0u);
  EXPECT_EQ(WriteVideo(5), 0);
  EXPECT_EQ(writer->m_dwIndexCapacity, 16000u);
}

TEST_F(AviSetup, IndexCapacity_BeyondWhatMemoryCanBe_Fails) {
  for (const uint32_t rate : {1000u, 0xFFFFFFFFu}) {
    info = {};
    AddVideo(kH264, rate);
    AddAudio().dwSampleRate = rate == 1000 ? 1024 : 0xFFFFFFFF;
    info.m_Audio.dwSamplesPerFrame = rate == 1000 ? 1024 : 1;
    // Two a second for 2^27 seconds take 2^32 bytes, one too many.
    ASSERT_EQ(Open(uint64_t{rate == 1000 ? 0x08000000u : 0xFFFFFFFFu} * 1000), 0);
    EXPECT_EQ(static_cast<uint32_t>(SetInfo()), ZMV_E_MEMORY);
    EXPECT_EQ(writer->m_dwIndexCapacity, 0u);
    Close();
  }
}

// ---- Sizes

TEST_F(AviSetup, CurSize_IsMoviIndexAndHeaders) {
  EXPECT_EQ(AVIWriterGetCurSize(nullptr), 0u);
  ASSERT_EQ(Open(), 0);
  EXPECT_EQ(AVIWriterGetCurSize(writer), 56u);
  AddVideo();
  AddAudio();
  ASSERT_EQ(SetInfo(), 0);
  EXPECT_EQ(AVIWriterGetCurSize(writer), 4u + 2 * 96 + 56);
  EXPECT_EQ(WriteVideo(5), 0);
  EXPECT_EQ(AVIWriterGetCurSize(writer), 4u + 14 + 16 + 2 * 96 + 56);
  const uint32_t before = writer->m_dwMoviSize;
  writer->m_dwMoviSize = 0xFFFFFFFF;
  EXPECT_EQ(AVIWriterGetCurSize(writer), uint64_t{0xFFFFFFFF} + 16 + 2 * 96 + 56);
  writer->m_dwMoviSize = before;
}

TEST_F(AviSetup, TagSize_IsWrittenAndTheCursorGoesToTheEnd) {
  Start();
  const size_t size = File().size();
  EXPECT_EQ(AVIWriterWriteTagSize(writer, 4, 0x01020304), 0);
  EXPECT_EQ(Difference(Part(File(), 4, 4), Bytes({4, 3, 2, 1})), "");
  EXPECT_EQ(ZMVStreamBuf_Pos(stream, 0), size);
  EXPECT_EQ(File().size(), size);
}

TEST_F(AviSetup, TagSize_ThatFails_ReturnsTheCodeAndTheNextFrameFindsItsPlace) {
  AddVideo();
  Start();
  EXPECT_EQ(static_cast<uint32_t>(AVIWriterWriteTagSize(nullptr, 4, 1)), ZMV_E_FAIL);
  host.Fail(HostCall::kWrite, 1);
  EXPECT_EQ(static_cast<uint32_t>(AVIWriterWriteTagSize(writer, 4, 1)), ZMV_E_WRITE);
  EXPECT_THAT(host.Traces(1), Contains("err (0x80000013)\n"));
  EXPECT_EQ(ZMVStreamBuf_Pos(stream, 0), 4u);
  const size_t end = File().size();
  EXPECT_EQ(static_cast<uint32_t>(AVIWriterWriteTagSize(writer, static_cast<uint32_t>(end) + 1, 1)), ZMV_E_SEEK);
  EXPECT_EQ(WriteVideo(4), 0);
  EXPECT_EQ(Difference(Part(File(), end), Join({Text("00dc"), Le32(4), ByteVector(4, 0x55)})), "");
}

TEST_F(AviSetup, Traces_OfASetUpThatGoesWell_HoldNoError) {
  AddVideo();
  AddAudio();
  AddText();
  Start(10000);
  EXPECT_THAT(host.Traces(1), IsEmpty());
  EXPECT_THAT(host.Traces(2), IsEmpty());
  std::vector<std::string> own;
  for (const TraceRecord& trace : host.traces()) {
    if (trace.module == "ZMVAVIW" && trace.level == 3) own.push_back(trace.text);
  }
  EXPECT_THAT(own, ElementsAre("total stream size(3) v(1)a(1)t(1)\n",                 //
                               "video header write done index(0) stream index(0)\n",  //
                               "audio header write done index(0) stream index(1)\n",  //
                               "text header write done index(0) stream index(2)\n",   //
                               "Tblsize(12960)\n"));                                  // (25 + 46 + 10) x 10 x 16
}

}  // namespace
}  // namespace zmv::test

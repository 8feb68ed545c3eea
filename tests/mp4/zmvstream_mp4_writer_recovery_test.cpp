#include <regex>
#include <thread>

#include "tests/mp4/writer_test.h"

namespace zmv::test {
namespace {

using ::testing::Contains;

constexpr size_t kFront = 28;  // ftyp

class WriterRecovery : public WriterTest {
 protected:
  // Makes the next random box `size` bytes long.
  static void DrawRandomBox(uint32_t size) {
    for (unsigned seed = 1;; ++seed) {
      std::srand(seed);
      const uint32_t drawn = static_cast<uint32_t>(std::rand()) % 1024 + 31;
      if (drawn / 32 * 32 != size) continue;
      std::srand(seed);
      return;
    }
  }
  FoundBox RandomBox() {
    for (const FoundBox& box : BoxesIn(File(), 0, File().size())) {
      if (box.type != "free" || box.size % 32 != 0) continue;
      if (std::memcmp(&File()[box.position + 8], "RECO", 4) != 0) return box;
    }
    return {};
  }
  static void Fill(uint8_t* extra, uint32_t& size, const ByteVector& bytes) {
    std::copy(bytes.begin(), bytes.end(), extra);
    size = static_cast<uint32_t>(bytes.size());
  }

  // A text payload whose GPS block and sensor block hold `fill` and the bytes after it.
  static ByteVector UserPayload(uint8_t fill) {
    ByteVector payload(100);
    for (size_t i = 0; i < payload.size(); ++i) payload[i] = static_cast<uint8_t>(fill + i);
    return payload;
  }
  static ByteVector GpsEntry(uint32_t number, uint8_t fill) {
    const ByteVector payload = UserPayload(fill);
    return Join({Le32(number), Le32(72), ByteVector(payload.begin() + 8, payload.begin() + 80)});
  }
  static ByteVector SensorEntry(uint8_t fill) {
    const ByteVector payload = UserPayload(fill);
    return ByteVector(payload.begin() + 80, payload.begin() + 92);
  }
  int32_t WriteUser(uint8_t fill) { return Write(ZMV_MEDIA_TEXT, UserPayload(fill), 0, 1000); }
  void StartUser(uint32_t seconds = 10) {
    info = {};
    Brand("F");
    AddText(1000);
    info.m_Text[0].dwRate = 1;
    info.dwDuration = seconds;
    Start(1, 1);
    ASSERT_EQ(writer->m_bExtUserData, 1);
  }
};

TEST_F(WriterRecovery, Boxes_DescribeAudioVideoAndText) {
  ZMVAudioInfo& audio = AddAudio();
  audio.dwBitRate = 128000;
  Fill(audio.abExtraData, audio.dwExtraDataSize, Bytes({0x11, 0x90}));
  ZMVVideoInfo& first = AddVideo(FourCC("H264"), 29970);
  first.dwBitRate = 4000000;
  Fill(first.abExtraData, first.dwExtraDataSize, Hex("00000001 67 0000 03 01"));
  AddVideo(FourCC("H265")).dwTimeScale = 600;
  ZMVTextInfo& text = AddText(10000);
  text.dwBitRate = 7360;
  info.dwTimeScale = 90000;
  DrawRandomBox(64);
  Start();
  const ByteVector boxes = Join({
      Be32(46),      Text("free"),
      Text("RECO"),  Be32(0),  // audio
      Be32(0xFF),    Be32(2),
      Be32(48000),   Be32(16),             // format, channels, rate, bits
      Be32(128000),  Be32(48000),          // bit rate, time scale
      Be32(2),       Bytes({0x11, 0x90}),  // configuration
      Be32(53),      Text("free"),
      Text("RECO"),  Be32(0),  // first video
      Text("avc1"),  Be32(640),
      Be32(360),     Be32(29970),                    // type, width, height, frame rate
      Be32(4000000), Be32(90000),                    // bit rate, time scale in force
      Be32(9),       Hex("00000001 67 0000 03 01"),  // configuration as given
      Be32(44),      Text("free"),
      Text("RECO"),  Be32(0),  // second video
      Text("hvc1"),  Be32(640),
      Be32(360),     Be32(30000),  //
      Be32(0),       Be32(600),
      Be32(0),  //
      Be32(32),      Text("free"),
      Text("RECO"),  Be32(0),  // text
      Text("abcd"),  Be32(10000),
      Be32(7360),    Be32(90000),  // code, rate, bit rate, time scale
      Be32(64),      Text("free"),
      Be32(0),       Zeros(52),  // random size
  });
  const ByteVector written(File().begin() + kFront, File().begin() + kFront + static_cast<long>(boxes.size()));
  EXPECT_EQ(Difference(written, boxes), "");
  EXPECT_EQ(writer->m_dwRecoverSize, boxes.size());
}

TEST_F(WriterRecovery, Boxes_RandomBoxFollowsThem) {
  ZMVVideoInfo& video = AddVideo();
  Fill(video.abExtraData, video.dwExtraDataSize, ByteVector(10, 1));
  AddAudio();
  AddText();
  DrawRandomBox(96);
  Start();
  EXPECT_EQ(RandomBox().position, 28u + 130);
  EXPECT_EQ(RandomBox().size, 96u);
  EXPECT_EQ(writer->m_dwRecoverSize, 130u + 96);
}

TEST_F(WriterRecovery, RandomBox_RecoveryBrand_IsMarked) {
  const struct {
    const char* brand;
    ByteVector word;
  } rows[] = {{"Recovery", Text("rcvf")}, {"Recovery2", Be32(0)}, {"recovery", Be32(0)}, {"", Be32(0)}};
  for (const auto& row : rows) {
    info = {};
    Brand(row.brand);
    DrawRandomBox(32);
    Start();
    EXPECT_EQ(Difference(BytesOf(File(), RandomBox()), Join({Be32(32), Text("free"), row.word, Zeros(20)})), "");
    EXPECT_THAT(host.Traces(1), Contains(std::string("Brand custom (") + row.brand + ")\n"));
    Close();
  }
}

TEST_F(WriterRecovery, RandomBox_BrandWithoutTerminator_EndsWithItsField) {
  std::memset(info.szSoftware, 'B', sizeof info.szSoftware);
  Start();
  EXPECT_TRUE(host.Traced("Brand custom (" + std::string(64, 'B') + ")\n"));
}

TEST_F(WriterRecovery, RandomBox_SizeZero_IsLeftOutWithoutAnAllocation) {
  DrawRandomBox(0);
  Start();
  EXPECT_EQ(writer->m_dwRecoverSize, 0u);
  EXPECT_EQ(writer->m_dwMdatPos, 28u + 23);
  EXPECT_TRUE(host.Traced("can not alloc for random size chunk data size(-12)\n"));
  for (const CallRecord& call : host.Calls(HostCall::kMalloc)) EXPECT_NE(call.name, "WriteRandomBox");
}

TEST_F(WriterRecovery, RandomBox_NoMemory_IsLeftOut) {
  DrawRandomBox(1024);
  ASSERT_EQ(Open(), 0);
  host.Fail(HostCall::kMalloc, 1);
  EXPECT_EQ(SetInfo(), 0);
  EXPECT_EQ(writer->m_dwMdatPos, 28u + 23);
  EXPECT_TRUE(host.Traced("can not alloc for random size chunk data size(1012)\n"));
}

TEST_F(WriterRecovery, RandomBox_SizesAreMultiplesOf32UpTo1024) {
  for (unsigned seed = 0; seed < 200; ++seed) {
    std::srand(seed);
    Start();
    EXPECT_EQ(writer->m_dwRecoverSize % 32, 0u);
    EXPECT_LE(writer->m_dwRecoverSize, 1024u);
    Close();
  }
}

TEST_F(WriterRecovery, SetRecoverInfo_Alone_CountsWhatItWrites) {
  AddText();
  ASSERT_EQ(Open(), 0);
  DrawRandomBox(32);
  EXPECT_EQ(MP4WriterSetRecoverInfo(writer, &info), 0);
  EXPECT_EQ(writer->m_dwRecoverSize, 64u);
  EXPECT_EQ(writer->m_dwCurSize, 64u);
  EXPECT_EQ(File().size(), 64u);
  info.dwVideoCount = 10;
  EXPECT_EQ(static_cast<uint32_t>(MP4WriterSetRecoverInfo(writer, &info)), ZMV_E_FAIL);
  EXPECT_EQ(File().size(), 64u);
}

TEST_F(WriterRecovery, BuildInfo_IsADateOfElevenCharactersAndTheSuffix) {
  ASSERT_EQ(Open(), 0);
  EXPECT_EQ(MP4WriterSetBuildInfo(writer), 0);
  ASSERT_EQ(File().size(), 23u);
  EXPECT_EQ(Difference(BytesOf(File(), {"", 0, 8}), Join({Be32(23), Text("free")})), "");
  EXPECT_EQ(Difference(BytesOf(File(), {"", 19, 4}), Text(" KPZ")), "");
  const std::string text(File().begin() + 8, File().end());
  EXPECT_TRUE(std::regex_match(text, std::regex("[A-Z][a-z]{2} [ 1-3][0-9] [0-9]{4} KPZ"))) << text;
  EXPECT_EQ(writer->m_dwCurSize, 23u);
}

TEST_F(WriterRecovery, Record_KeyVideoFrame) {
  AddVideo();
  Start();
  const uint32_t end = MdatEnd();
  ZMVFrame frame = {};
  frame.dwMediaType = ZMV_MEDIA_VIDEO;
  frame.dwKeyFrame = ZMV_KEY_FRAME;
  frame.llTimeStamp = UINT64_C(0x100000005);
  frame.dwDuration = 33333;
  frame.dwSize = 100;
  EXPECT_EQ(MP4WriterWriteRecoverData(writer, &Track(), &frame), 0);
  EXPECT_EQ(Difference(FileFrom(end), Hex("5245434F 00000001 00000001 00000005 00008235 00000000 00000064")), "");
  host.Fail(HostCall::kWrite, 1);
  EXPECT_EQ(static_cast<uint32_t>(MP4WriterWriteRecoverData(writer, &Track(), &frame)), ZMV_E_WRITE);
}

TEST_F(WriterRecovery, Record_KeyFlagOfOtherMediaAndOtherFlags_IsZero) {
  AddVideo();
  AddAudio();
  Start();
  const uint32_t end = MdatEnd();
  EXPECT_EQ(Write(ZMV_MEDIA_AUDIO, {}, 0, 20, 0, ZMV_KEY_FRAME), 0);
  EXPECT_EQ(Write(ZMV_MEDIA_VIDEO, {}, 0, 20, 0, ZMV_NOT_KEY_FRAME), 0);
  EXPECT_EQ(Write(ZMV_MEDIA_VIDEO, {}, 0, 20, 0, 3), 0);
  for (const uint32_t i : {0u, 1u, 2u}) EXPECT_EQ(Be32At(File(), end + i * 28 + 8), 0u);
  EXPECT_EQ(Track(1).m_Stss.m_dwEntryNum, 0u);
}

TEST_F(WriterRecovery, UserData_TextFrames_BecomeEntries) {
  StartUser();
  for (const uint8_t fill : Bytes({1, 2, 3})) EXPECT_EQ(WriteUser(fill), 0);
  EXPECT_EQ(writer->m_dwGpsrNum, 3u);
  EXPECT_EQ(writer->m_dwSensNum, 3u);
  size_t before = File().size();
  EXPECT_EQ(MP4WriterWriteGPSR(writer), 8 + 240);
  const ByteVector gpsr = Join({Be32(248), Text("GPSR"), GpsEntry(0, 1), GpsEntry(1, 2), GpsEntry(2, 3)});
  EXPECT_EQ(Difference(FileFrom(before), gpsr), "");
  EXPECT_EQ(Difference(ByteVector(gpsr.begin() + 8 + 160, gpsr.begin() + 8 + 168), Hex("02000000 48000000")), "");
  before = File().size();
  EXPECT_EQ(MP4WriterWriteSENS(writer), 8 + 36);
  EXPECT_EQ(
      Difference(FileFrom(before), Join({Be32(44), Text("SENS"), SensorEntry(1), SensorEntry(2), SensorEntry(3)})), "");
  before = File().size();
  EXPECT_EQ(MP4WriterWriteAIDD(writer), 12);
  EXPECT_EQ(Difference(FileFrom(before), Join({Be32(12), Text("AIDD"), Be32(0)})), "");
}

TEST_F(WriterRecovery, UserData_AiddIsZeroWhateverTheDescriptionSays) {
  info.dwAiddValue = 77;
  Start();
  const size_t before = File().size();
  MP4WriterWriteAIDD(writer);
  EXPECT_EQ(Be32At(File(), before + 8), 0u);
}

TEST_F(WriterRecovery, UserData_BeyondCapacity_IsDroppedAndThePayloadKept) {
  StartUser(1);  // two samples
  for (const uint8_t fill : Bytes({1, 2})) EXPECT_EQ(WriteUser(fill), 0);
  EXPECT_FALSE(host.Traced("ExtUserData over than max(2)\n"));
  const size_t size = File().size();
  EXPECT_EQ(WriteUser(3), 0);
  EXPECT_TRUE(host.Traced("ExtUserData over than max(2)\n"));
  EXPECT_EQ(writer->m_dwGpsrNum, 2u);
  EXPECT_EQ(File().size(), size + 128);
  EXPECT_EQ(Difference(ByteVector(mp4::pExtUserLast, mp4::pExtUserLast + 80), GpsEntry(1, 2)), "");
}

TEST_F(WriterRecovery, UserData_NoRoomAtAll_StillRecords) {
  StartUser(1);
  Close();
  info.m_Text[0].dwRate = 0;
  Start(1, 1);
  EXPECT_EQ(writer->m_dwGpsrMax, 0u);
  EXPECT_EQ(WriteUser(1), 0);
  EXPECT_TRUE(host.Traced("ExtUserData over than max(0)\n"));
}

TEST_F(WriterRecovery, UserData_ShortPayload_IsStoredWithoutASample) {
  StartUser();
  EXPECT_EQ(WriteText(91), 0);
  EXPECT_EQ(writer->m_dwGpsrNum, 0u);
  EXPECT_EQ(Track().dwTotalFrames, 1u);
  EXPECT_EQ(WriteText(92), 0);
  EXPECT_EQ(writer->m_dwGpsrNum, 1u);
}

TEST_F(WriterRecovery, UserData_OtherMedia_AreNotLookedInto) {
  StartUser();
  EXPECT_EQ(Write(ZMV_MEDIA_VIDEO, UserPayload(1), 0, 33333), 0);  // lands in the text track
  EXPECT_EQ(writer->m_dwGpsrNum, 0u);
}

TEST_F(WriterRecovery, UserData_NoSampleYet_WritesTheOneOfTheRecordingBefore) {
  StartUser();
  size_t before = File().size();
  EXPECT_EQ(MP4WriterWriteGPSR(writer), 0);  // there never was one
  EXPECT_EQ(MP4WriterWriteSENS(writer), 0);
  EXPECT_EQ(MP4WriterWriteAIDD(writer), 12);
  EXPECT_EQ(File().size(), before + 12);
  EXPECT_EQ(WriteUser(4), 0);
  EXPECT_EQ(WriteUser(9), 0);
  Close();

  StartUser();
  before = File().size();
  EXPECT_EQ(MP4WriterWriteGPSR(writer), 88);
  EXPECT_EQ(MP4WriterWriteSENS(writer), 20);
  EXPECT_EQ(Difference(FileFrom(before), Join({
                                             Be32(88),
                                             Text("GPSR"),
                                             GpsEntry(1, 9),  // its number is kept
                                             Be32(20),
                                             Text("SENS"),
                                             SensorEntry(9),
                                         })),
            "");
}

TEST_F(WriterRecovery, UserData_NoMemoryForTheLastSample_StillCollects) {
  AddText();
  info.m_Text[0].dwRate = 1;
  Brand("F");
  ASSERT_EQ(Open(1, 1), 0);
  host.Fail(HostCall::kMalloc, 8);  // random box, track, three tables, two arrays, the last sample
  ASSERT_EQ(SetInfo(), 0);
  EXPECT_EQ(mp4::pExtUserLast, nullptr);
  EXPECT_EQ(WriteUser(1), 0);
  EXPECT_EQ(writer->m_dwGpsrNum, 1u);
}

TEST_F(WriterRecovery, UserData_WritersOnTwoThreads_ShareTheLastSample) {
  StartUser();
  // The second writer has a file of its own.
  ZMVStreamBuf* other_stream = nullptr;
  MP4WriterHandle* other = nullptr;
  ASSERT_EQ(ZMVStreamBuf_Open(&other_stream, "b.mp4", 0, ZMV_STREAM_WRITE), 0);
  ASSERT_EQ(MP4WriterOpen(&other, other_stream, 1, 1), 0);
  ASSERT_EQ(MP4WriterSetInfo(other, &info, 0), 0);
  host.record = false;
  host.trace_level = 0;
  auto collect = [](MP4WriterHandle* handle, uint8_t fill) {
    ByteVector payload(92, fill);
    ZMVFrame frame = {};
    frame.pData = payload.data();
    frame.dwSize = 92;
    frame.dwMediaType = ZMV_MEDIA_TEXT;
    for (int i = 0; i < 20; ++i) mp4::CollectUserData(*handle, frame);
  };
  std::thread first(collect, writer, 0x11);
  std::thread second(collect, other, 0x22);
  first.join();
  second.join();
  // The two halves come from one writer.
  EXPECT_EQ(mp4::pExtUserLast[8], mp4::pExtUserLast[80]);
  MP4WriterClose(other);
  ZMVStreamBuf_Close(other_stream);
}

TEST_F(WriterRecovery, NoHandle_WritesNothing) {
  EXPECT_EQ(MP4WriterWriteGPSR(nullptr), 0);
  EXPECT_EQ(MP4WriterWriteSENS(nullptr), 0);
  EXPECT_EQ(MP4WriterWriteAIDD(nullptr), 0);
  EXPECT_EQ(static_cast<uint32_t>(MP4WriterSetBuildInfo(nullptr)), ZMV_E_FAIL);
  EXPECT_EQ(static_cast<uint32_t>(MP4WriterSetRecoverInfo(nullptr, &info)), ZMV_E_FAIL);
  EXPECT_EQ(static_cast<uint32_t>(MP4WriterWriteRecoverData(nullptr, nullptr, nullptr)), ZMV_E_FAIL);
}

}  // namespace
}  // namespace zmv::test

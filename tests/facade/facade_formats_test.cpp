#include "facade/facade_formats.h"

#include <gtest/gtest.h>

#include "tests/facade/small_recording.h"

namespace zmv::test {
namespace {

using facade::FindReader;
using facade::FindWriter;

ByteVector Front(const ByteVector& bytes) {
  ByteVector front = bytes;
  front.resize(facade::kSniffSize);
  return front;
}

TEST(FacadeFormats, Writers_AreFoundByTheirNumber) {
  ASSERT_NE(FindWriter(ZMV_FORMAT_MP4), nullptr);
  EXPECT_STREQ(FindWriter(ZMV_FORMAT_MP4)->name, "MP4");
  ASSERT_NE(FindWriter(ZMV_FORMAT_AVI), nullptr);
  EXPECT_STREQ(FindWriter(ZMV_FORMAT_AVI)->name, "AVI");
  EXPECT_EQ(FindWriter(2), nullptr);
  EXPECT_EQ(FindWriter(0xFFFFFFFF), nullptr);
}

TEST(FacadeFormats, Readers_AreFoundByTheFront) {
  const ZMVReaderOperations* mp4 = FindReader(Front(Join({Be32(28), Text("ftyp")})).data());
  ASSERT_NE(mp4, nullptr);
  EXPECT_EQ(FindReader(Front(Join({Be32(1), Text("mdat")})).data()), mp4);
  EXPECT_EQ(FindReader(Front(Join({Be32(0), Text("moov")})).data()), mp4);
  EXPECT_EQ(FindReader(Front({}).data()), nullptr);
  EXPECT_EQ(FindReader(Front(Text("ftypmoo")).data()), nullptr);
}

TEST(FacadeFormats, AviReader_IsFoundByTheFront) {
  const ZMVReaderOperations* mp4 = FindReader(Front(Join({Be32(28), Text("ftyp")})).data());
  const ZMVReaderOperations* avi = FindReader(Front(Join({Text("RIFF"), Le32(4), Text("AVI ")})).data());
  ASSERT_NE(avi, nullptr);
  EXPECT_NE(avi, mp4);
  EXPECT_EQ(FindReader(Front(Join({Text("RIFF"), Le32(4), Text("WAVE")})).data()), avi);
  EXPECT_EQ(FindReader(Front(Join({Zeros(8), Text("AVI")})).data()), avi);
  EXPECT_EQ(FindReader(Front(Join({Zeros(8), Text("AVI ")})).data()), nullptr);
  // The second four bytes decide first.
  EXPECT_EQ(FindReader(Front(Join({Text("RIFF"), Text("moov")})).data()), mp4);
}

// Opens that fail leave the container's handle alone, closes accept null: the façades rely on both.
TEST(FacadeFormats, FailedOpen_StoresNothing) {
  const std::pair<uint32_t, ByteVector> containers[] = {
      {ZMV_FORMAT_MP4, Join({Be32(8), Text("moov")})},
      {ZMV_FORMAT_AVI, Join({Text("RIFF"), Le32(4), Text("AVI ")})},
  };
  for (const auto& [format, bytes] : containers) {
    ScriptedHost host;
    host.PutFile("in", bytes);
    const ZMVReaderOperations& reader_slots = *FindReader(Front(bytes).data());
    const ZMVWriterOperations& writer_slots = *FindWriter(format)->operations;
    ZMVStreamBuf* input = nullptr;
    ZMVStreamBuf* output = nullptr;
    ASSERT_EQ(ZMVStreamBuf_Open(&input, "in", 0, ZMV_STREAM_READ), 0);
    ASSERT_EQ(ZMVStreamBuf_Open(&output, "out", 0, ZMV_STREAM_WRITE), 0);
    void* handle = nullptr;
    host.Fail(HostCall::kMalloc, 1);
    EXPECT_EQ(Code(reader_slots.Open(&handle, input)), ZMV_E_MEMORY);
    EXPECT_EQ(handle, nullptr);
    host.Fail(HostCall::kMalloc, 1);
    EXPECT_EQ(Code(writer_slots.Open(&handle, output, 1, 0)), ZMV_E_MEMORY);
    EXPECT_EQ(handle, nullptr);
    reader_slots.Close(nullptr);
    writer_slots.Close(nullptr);
    ZMVStreamBuf_Close(input);
    ZMVStreamBuf_Close(output);
    EXPECT_EQ(host.LiveBlocks(), 0u);
  }
}

TEST(FacadeFormats, Mp4_SizesAndHorizon_PassThroughTheAdapters) {
  ScriptedHost host;
  const ZMVWriterOperations& slots = *FindWriter(ZMV_FORMAT_MP4)->operations;
  // A longer horizon makes larger tables.
  uint64_t taken[2] = {};
  for (int i = 0; i < 2; ++i) {
    ZMVStreamBuf* output = nullptr;
    ASSERT_EQ(ZMVStreamBuf_Open(&output, "b.mp4", 0, ZMV_STREAM_WRITE), 0);
    void* handle = nullptr;
    ASSERT_EQ(slots.Open(&handle, output, 1, i == 0 ? 1000 : 3600000), 0);
    ZMVFileInfo info = SmallInfo();
    ASSERT_EQ(slots.SetInfo(handle, &info, 0), 0);
    taken[i] = host.LiveBytes();
    EXPECT_GT(slots.GetCurSize(handle), host.File("b.mp4").size());
    slots.Close(handle);
    ZMVStreamBuf_Close(output);
  }
  EXPECT_GT(taken[1], 10 * taken[0]);
}

TEST(FacadeFormats, Avi_SizesAndHorizon_PassThroughTheAdapters) {
  ScriptedHost host;
  const ZMVWriterOperations& slots = *FindWriter(ZMV_FORMAT_AVI)->operations;
  uint64_t taken[2] = {};
  for (int i = 0; i < 2; ++i) {
    ZMVStreamBuf* output = nullptr;
    ASSERT_EQ(ZMVStreamBuf_Open(&output, "b.avi", 0, ZMV_STREAM_WRITE), 0);
    void* handle = nullptr;
    ASSERT_EQ(slots.Open(&handle, output, 1, i == 0 ? 1000 : 101000), 0);
    ZMVFileInfo info = SmallInfo();
    info.m_Audio.dwSamplesPerFrame = 1024;
    ASSERT_EQ(slots.SetInfo(handle, &info, 0), 0);
    EXPECT_EQ(info.m_Audio.dwBlockAlign, 1024u);
    taken[i] = host.LiveBytes();
    EXPECT_EQ(slots.GetCurSize(handle), 4 + 2 * 96 + 56u);  // an empty movi list, two streams, the main header
    slots.Close(handle);
    ZMVStreamBuf_Close(output);
  }
  // 25 frames and 46 packets a second, 16 bytes each.
  EXPECT_EQ(taken[1] - taken[0], 100u * (25 + 46) * 16);
}

TEST(FacadeFormats, Avi_RecordedAndPlayedBackThroughTheFacades) {
  ScriptedHost host;
  ZMVWriterParam param = SmallParam("a.avi");
  param.dwFormat = ZMV_FORMAT_AVI;
  ZMVFileInfo info = SmallInfo();
  info.m_Audio.dwSamplesPerFrame = 1024;
  ZMVWriter* writer = nullptr;
  ASSERT_EQ(ZMVWriterOpen(&writer, &param), 0);
  ASSERT_EQ(ZMVWriterSetInfo(writer, &info, 0), 0);
  for (uint32_t i = 0; i < kSmallFrames; ++i) {
    ASSERT_EQ(WriteSmallFrame(writer, ZMV_MEDIA_VIDEO, i), 0);
    ASSERT_EQ(WriteSmallFrame(writer, ZMV_MEDIA_AUDIO, i), 0);
  }
  ZMVWriterClose(writer);

  ZMVReader* reader = nullptr;
  ZMVReaderParam from{};
  from.pszPath = "a.avi";
  ASSERT_EQ(ZMVReaderOpen(&reader, &from), 0);
  ZMVFileInfo found{};
  ASSERT_EQ(ZMVReaderGetInfo(reader, &found), 0);
  EXPECT_EQ(found.dwVideoCount, 1u);
  EXPECT_EQ(found.dwAudioCount, 1u);
  EXPECT_EQ(found.m_Video[0].dwFrames, kSmallFrames);
  EXPECT_EQ(found.m_Audio.dwFormat, ZMV_AUDIO_AAC);
  uint8_t buffer[100];
  for (const uint32_t media : {ZMV_MEDIA_VIDEO, ZMV_MEDIA_AUDIO}) {
    for (uint32_t i = 0; i < kSmallFrames; ++i) {
      ZMVFrame frame{};
      frame.pData = buffer;
      frame.dwBufSize = sizeof buffer;
      frame.dwMediaType = media;
      ASSERT_EQ(ZMVReaderReadFrame(reader, &frame), 0) << media << ' ' << i;
      EXPECT_EQ(ByteVector(buffer, buffer + frame.dwSize), SmallPayload(media, i));
      const bool key = media == ZMV_MEDIA_AUDIO || i == 0;
      EXPECT_EQ(frame.dwKeyFrame, key ? ZMV_KEY_FRAME : ZMV_NOT_KEY_FRAME);
    }
    ZMVFrame frame{};
    frame.pData = buffer;
    frame.dwBufSize = sizeof buffer;
    frame.dwMediaType = media;
    EXPECT_EQ(Code(ZMVReaderReadFrame(reader, &frame)), ZMV_E_END);
  }
  uint32_t time = 80;
  EXPECT_EQ(ZMVReaderSeekByKeyFrame(reader, &time, 0), 1);
  ZMVReaderClose(reader);
  EXPECT_EQ(host.LiveBlocks(), 0u);
}

}  // namespace
}  // namespace zmv::test

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

// Opens that fail leave the container's handle alone, closes accept null: the façades rely on both.
TEST(FacadeFormats, Mp4_FailedOpen_StoresNothing) {
  ScriptedHost host;
  host.PutFile("a.mp4", Join({Be32(8), Text("moov")}));
  const ZMVReaderOperations& reader_slots = *FindReader(Front(Join({Be32(28), Text("ftyp")})).data());
  const ZMVWriterOperations& writer_slots = *FindWriter(ZMV_FORMAT_MP4)->operations;
  ZMVStreamBuf* input = nullptr;
  ZMVStreamBuf* output = nullptr;
  ASSERT_EQ(ZMVStreamBuf_Open(&input, "a.mp4", 0, ZMV_STREAM_READ), 0);
  ASSERT_EQ(ZMVStreamBuf_Open(&output, "b.mp4", 0, ZMV_STREAM_WRITE), 0);
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

}  // namespace
}  // namespace zmv::test

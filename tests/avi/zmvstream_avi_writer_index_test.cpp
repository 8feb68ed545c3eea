#include "tests/avi/writer_test.h"

namespace zmv::test {
namespace {

using ::testing::Contains;

class AviIndex : public AviWriterTest {};

TEST_F(AviIndex, Entry_Is16BytesFieldByField) {
  AddVideo();
  Start();
  writer->m_dwChunkOffset = 0x01020304;
  EXPECT_EQ(AVIWriterWriteIndex(writer, 2, ZMV_MEDIA_VIDEO, 1, 0x0A0B0C0D), 0);
  const ByteVector expected = Join({
      Text("02dc"), Bytes({0x10, 0, 0, 0}),                  // code, key frame
      Bytes({4, 3, 2, 1}), Bytes({0x0D, 0x0C, 0x0B, 0x0A}),  // offset, size
  });
  EXPECT_EQ(Difference(Index(), expected), "");
  EXPECT_EQ(writer->m_dwIndexEntries, 1u);
  EXPECT_EQ(writer->m_dwIndexBytes, 16u);
}

TEST_F(AviIndex, Entry_CodesAndFlags) {
  Start();
  EXPECT_EQ(AVIWriterWriteIndex(writer, 0, ZMV_MEDIA_VIDEO, 2, 1), 0);
  EXPECT_EQ(Difference(Entry(), IndexEntryOf("00dc", 0, 4, 1)), "");
  EXPECT_EQ(AVIWriterWriteIndex(writer, 9, ZMV_MEDIA_AUDIO, 2, 1), 0);
  EXPECT_EQ(Difference(Entry(), IndexEntryOf("09wb", 0x10, 4, 1)), "");
  EXPECT_EQ(AVIWriterWriteIndex(writer, 10, ZMV_MEDIA_TEXT, 0, 1), 0);
  EXPECT_EQ(Difference(Entry(), IndexEntryOf("0:tx", 0x10, 4, 1)), "");
  EXPECT_EQ(AVIWriterWriteIndex(writer, 11, 4, 0, 1), 0);
  EXPECT_EQ(Difference(Entry(), IndexEntryOf("0;tx", 0x10, 4, 1)), "");
  EXPECT_EQ(static_cast<uint32_t>(AVIWriterWriteIndex(nullptr, 0, 1, 1, 1)), ZMV_E_FAIL);
}

TEST_F(AviIndex, Table_GrowsBy16000WhenTheNextEntryReachesItsEnd) {
  AddVideo(kH264, 1000);
  Start(10000);  // ten entries
  ASSERT_EQ(writer->m_dwIndexCapacity, 160u);
  for (int i = 0; i < 9; ++i) EXPECT_EQ(WriteVideo(2, static_cast<uint64_t>(i)), 0);
  EXPECT_EQ(host.Count(HostCall::kReAlloc), 0u);
  EXPECT_EQ(WriteVideo(2, 9), 0);  // 144 + 16 reaches the capacity
  EXPECT_EQ(host.Count(HostCall::kReAlloc), 1u);
  EXPECT_EQ(writer->m_dwIndexCapacity, 16160u);
  for (uint64_t i = 10; i < 1009; ++i) EXPECT_EQ(WriteVideo(2, i), 0);
  EXPECT_EQ(host.Count(HostCall::kReAlloc), 1u);
  EXPECT_EQ(WriteVideo(2, 1009), 0);
  EXPECT_EQ(host.Count(HostCall::kReAlloc), 2u);
  EXPECT_EQ(writer->m_dwIndexCapacity, 32160u);
  EXPECT_EQ(writer->m_dwIndexEntries, 1010u);
  EXPECT_EQ(writer->m_dwIndexBytes, 16160u);
  for (uint32_t i = 0; i < 1010; ++i) {
    ASSERT_EQ(Difference(Part(Index(), i * 16, 16), IndexEntryOf("00dc", 0, 4 + i * 10, 2)), "") << i;
  }
}

TEST_F(AviIndex, TableThatCannotGrow_KeepsItsEntries) {
  AddVideo(kH264, 1000);
  Start(2000);
  EXPECT_EQ(WriteVideo(2, 10), 0);
  const ByteVector before = Index();
  host.Fail(HostCall::kReAlloc, 1);
  const size_t end = MoviEnd();
  EXPECT_EQ(static_cast<uint32_t>(WriteVideo(4, 20)), ZMV_E_MEMORY);
  EXPECT_THAT(host.Traces(2), Contains("not enough memory size(16032)\n"));
  EXPECT_THAT(host.Traces(1), Contains("AVIWriterWriteIndex fail\n"));
  EXPECT_EQ(Difference(Index(), before), "");
  EXPECT_EQ(writer->m_dwIndexCapacity, 32u);
  EXPECT_EQ(Stream().m_StreamInfo.dwLength, 1u);
  EXPECT_EQ(Stream().m_ullPrevTS, 10u);
  // The chunk stays in the list, and the entries behind it point at their own chunks.
  EXPECT_EQ(MoviEnd(), end + 12);
  EXPECT_EQ(WriteVideo(6, 30), 0);
  EXPECT_EQ(Difference(Index(), Join({before, IndexEntryOf("00dc", 0, 4 + 10 + 12, 6)})), "");
  CloseWriter();
  EXPECT_EQ(Le32At(File(), Find(File(), "idx1") + 4), 32u);
}

TEST_F(AviIndex, TableThatWouldPass4GiB_CannotGrow) {
  AddVideo();
  Start();
  EXPECT_EQ(WriteVideo(2), 0);
  const uint32_t bytes = writer->m_dwIndexBytes;
  const uint32_t capacity = writer->m_dwIndexCapacity;
  const uint64_t calls = host.Count(HostCall::kReAlloc);
  writer->m_dwIndexCapacity = 0xFFFFFFFF - 15999;
  writer->m_dwIndexBytes = writer->m_dwIndexCapacity - 16;
  EXPECT_EQ(static_cast<uint32_t>(AVIWriterWriteIndex(writer, 0, 1, 1, 1)), ZMV_E_MEMORY);
  EXPECT_EQ(host.Count(HostCall::kReAlloc), calls);
  writer->m_dwIndexBytes = bytes;
  writer->m_dwIndexCapacity = capacity;
}

TEST_F(AviIndex, LongRecording_Costs16BytesAFrame) {
  host.record = false;
  host.trace_level = 0;
  AddVideo(kH264, 1000);
  Start();
  const uint64_t before = host.LiveBytes();
  const uint64_t mallocs = host.Count(HostCall::kMalloc);
  for (uint64_t i = 0; i < 100000; ++i) ASSERT_EQ(WriteVideo(2, i), 0);
  EXPECT_LE(host.LiveBytes() - before, 100000u * 16 + 16000);
  EXPECT_EQ(host.Count(HostCall::kMalloc), mallocs);
  EXPECT_EQ(host.Count(HostCall::kReAlloc), 101u);
  CloseWriter();
  EXPECT_EQ(Le32At(File(), Find(File(), "idx1") + 4), 1600000u);
}

}  // namespace
}  // namespace zmv::test

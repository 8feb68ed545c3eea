#include "tests/avi/writer_test.h"

namespace zmv::test {
namespace {

using ::testing::Contains;
using ::testing::IsEmpty;
using ::testing::Not;

class AviFrames : public AviWriterTest {
 protected:
  // The bytes that `write` adds to the file.
  template <typename Call>
  ByteVector Added(Call write, int32_t result = 0) {
    const size_t before = File().size();
    EXPECT_EQ(write(), result);
    return Part(File(), before);
  }
};

// ---- Chunks

TEST_F(AviFrames, OddFrame_IsPaddedAndTheNextOneStands18BytesOn) {
  AddVideo();
  Start();
  EXPECT_EQ(Difference(Added([&] { return WriteVideo(5, 0, 1); }),
                       Join({Text("00dc"), Le32(5), ByteVector(5, 0x55), Zeros(1)})),
            "");
  EXPECT_EQ(Difference(Entry(), IndexEntryOf("00dc", 0x10, 4, 5)), "");
  EXPECT_EQ(Difference(Added([&] { return WriteVideo(6, 40); }), Join({Text("00dc"), Le32(6), ByteVector(6, 0x55)})),
            "");
  EXPECT_EQ(Difference(Entry(), IndexEntryOf("00dc", 0, 18, 6)), "");
  EXPECT_EQ(writer->m_dwMoviSize, 4u + 14 + 14);
  EXPECT_EQ(writer->m_dwChunkOffset, 4u + 14 + 14);
}

TEST_F(AviFrames, EmptyFrame_IsABareHeader) {
  AddVideo();
  Start();
  EXPECT_EQ(Difference(Added([&] { return WriteVideo(0); }), Join({Text("00dc"), Le32(0)})), "");
  EXPECT_EQ(Difference(Entry(), IndexEntryOf("00dc", 0, 4, 0)), "");
  EXPECT_EQ(writer->m_dwMoviSize, 12u);
  ZMVFrame frame = {};
  frame.dwMediaType = ZMV_MEDIA_VIDEO;  // no payload at all
  EXPECT_EQ(AVIWriterWriteFrame(writer, &frame), 0);
  EXPECT_EQ(writer->m_dwMoviSize, 20u);
}

// Around the size up to which a chunk goes out in one write.
TEST_F(AviFrames, FramesOfEverySize_AreChunks) {
  AddVideo();
  Start();
  uint64_t time = 0;
  for (const size_t size : {1u, 2u, 7u, 1013u, 1014u, 1015u, 1016u, 1017u, 1018u, 5000u, 5001u, 100001u}) {
    ByteVector payload(size);
    for (size_t i = 0; i < size; ++i) payload[i] = static_cast<uint8_t>(i * 7 + size);
    const ByteVector expected = Join({Text("00dc"), Le32(static_cast<uint32_t>(size)), payload, Zeros(size % 2)});
    EXPECT_EQ(Difference(Added([&] { return Write(ZMV_MEDIA_VIDEO, payload, ++time); }), expected), "") << size;
  }
}

TEST_F(AviFrames, SmallFrame_IsOneWriteAndAllocatesNothing) {
  AddVideo();
  AddAudio();
  Start(60000);
  host.ClearRecords();
  const uint64_t mallocs = host.Count(HostCall::kMalloc);
  EXPECT_EQ(WriteVideo(247), 0);
  EXPECT_EQ(WriteAudio(115), 0);
  EXPECT_EQ(host.Calls(HostCall::kWrite).size(), 2u);
  EXPECT_EQ(WriteVideo(20001, 40), 0);
  EXPECT_EQ(host.Calls(HostCall::kWrite).size(), 2u + 3);  // header, payload, pad
  EXPECT_EQ(host.Count(HostCall::kMalloc), mallocs);
  EXPECT_EQ(host.Count(HostCall::kReAlloc), 0u);
  EXPECT_THAT(host.Calls(HostCall::kSeek), IsEmpty());
}

TEST_F(AviFrames, ChunkCodes_OfTwelveStreams) {
  for (int i = 0; i < 9; ++i) AddVideo();
  AddAudio();
  AddText();
  AddText();
  Start();
  for (uint32_t i = 0; i < 9; ++i) {
    const std::string code = {'0', static_cast<char>('0' + i), 'd', 'c'};
    EXPECT_EQ(Difference(Part(Added([&] { return Write(ZMV_MEDIA_VIDEO, {1, 2}, 0, 40, i); }), 0, 4), Text(code)), "");
    EXPECT_EQ(Difference(Part(Entry(), 0, 4), Text(code)), "");
  }
  EXPECT_EQ(Difference(Part(Added([&] { return WriteAudio(2); }), 0, 4), Text("09wb")), "");
  EXPECT_EQ(Difference(Part(Added([&] { return WriteText(2); }), 0, 4), Text("0:tx")), "");
  EXPECT_EQ(Difference(Part(Added([&] { return Write(ZMV_MEDIA_TEXT, {1}, 0, 40, 1); }), 0, 4), Text("0;tx")), "");
  EXPECT_EQ(Difference(Entry(), IndexEntryOf("0;tx", 0x10, writer->m_dwChunkOffset - 10, 1)), "");
}

TEST_F(AviFrames, KeyFrames_AreFlaggedWhenTheKeyIsExactlyOne) {
  AddVideo();
  AddAudio();
  AddText();
  Start();
  for (const uint32_t key : {0u, 1u, 2u, 3u, 0x10u, 0xFFFFFFFFu}) {
    EXPECT_EQ(WriteVideo(2, 0, key), 0);
    EXPECT_EQ(Le32At(Entry(), 4), key == 1 ? 0x10u : 0u) << key;
    EXPECT_EQ(Write(ZMV_MEDIA_AUDIO, {1, 2}, 0, 20, 0, key), 0);
    EXPECT_EQ(Le32At(Entry(), 4), 0x10u);
    EXPECT_EQ(Write(ZMV_MEDIA_TEXT, {1, 2}, 0, 20, 0, key), 0);
    EXPECT_EQ(Le32At(Entry(), 4), 0x10u);
  }
}

TEST_F(AviFrames, Prefix_GoesInFrontOfOneFrame) {
  for (const size_t size : {3u, 3000u}) {
    info = {};
    AddVideo();
    Start();
    Stream().m_pPrefix = AllocateBytes(avi::kWriterModule, 2, __func__).Release();
    Stream().m_pPrefix[0] = 8;
    Stream().m_pPrefix[1] = 9;
    Stream().m_dwPrefixSize = 2;
    const uint32_t with_prefix = static_cast<uint32_t>(size) + 2;
    EXPECT_EQ(
        Difference(Added([&] { return WriteVideo(size); }), Join({Text("00dc"), Le32(with_prefix), Bytes({8, 9}),
                                                                  ByteVector(size, 0x55), Zeros(with_prefix % 2)})),
        "");
    EXPECT_EQ(Le32At(Entry(), 12), with_prefix);
    EXPECT_EQ(Stream().m_StreamInfo.dwSuggestedBufferSize, with_prefix);
    EXPECT_EQ(Stream().m_dwPrefixSize, 0u);
    EXPECT_EQ(Difference(Added([&] { return WriteVideo(2); }), Join({Text("00dc"), Le32(2), ByteVector(2, 0x55)})), "");
    Close();  // frees the prefix
  }
}

// ---- Streams

TEST_F(AviFrames, NoStreams_GivesMinusOneAtOnce) {
  ASSERT_EQ(Open(), 0);
  EXPECT_EQ(WriteVideo(5), -1);
  ASSERT_EQ(SetInfo(), 0);
  EXPECT_TRUE(Added([&] { return WriteVideo(5); }, -1).empty());
  EXPECT_THAT(host.Traces(1), IsEmpty());
}

TEST_F(AviFrames, TrackNumber_ChoosesAmongTheStreamsOfItsMedium) {
  AddVideo();
  AddVideo();
  AddAudio();
  AddText();
  AddText();
  Start();
  EXPECT_EQ(Write(ZMV_MEDIA_TEXT, {1}, 0, 40, 0), 0);
  EXPECT_EQ(Stream(3).m_dwChunks, 1u);
  EXPECT_EQ(Write(ZMV_MEDIA_VIDEO, {1}, 0, 40, 1), 0);
  EXPECT_EQ(Stream(1).m_dwChunks, 1u);
  EXPECT_EQ(Write(ZMV_MEDIA_AUDIO, {1}, 0, 40, 0), 0);
  EXPECT_EQ(Stream(2).m_dwChunks, 1u);
  EXPECT_EQ(Write(ZMV_MEDIA_TEXT, {1}, 0, 40, 1), 0);
  EXPECT_EQ(Stream(4).m_dwChunks, 1u);
}

TEST_F(AviFrames, UnknownTrack_GoesToTheLastStreamUnderTheFramesOwnMedium) {
  AddVideo();
  AddAudio();
  Start();
  const ByteVector added = Added([&] { return Write(ZMV_MEDIA_VIDEO, {1, 2}, 40, 33, 5, 1); });
  EXPECT_EQ(Difference(added, Join({Text("01dc"), Le32(2), Bytes({1, 2})})), "");
  EXPECT_EQ(Difference(Entry(), IndexEntryOf("01dc", 0x10, 4, 2)), "");
  EXPECT_EQ(Stream(0).m_dwChunks, 0u);
  EXPECT_EQ(Stream(1).dwTotalFrames, 1u);
  EXPECT_EQ(Stream(1).m_dwVidDur, 33u);
  EXPECT_EQ(Stream(1).m_StreamInfo.dwLength, 1u);
  EXPECT_EQ(Stream(1).m_ullPrevTS, 40u);
  EXPECT_EQ(writer->m_MainHeader.dwTotalFrames, 1u);
  EXPECT_EQ(WriteText(2, 50), 0);  // no text stream at all
  EXPECT_EQ(Difference(Part(Entry(), 0, 4), Text("01tx")), "");
}

TEST_F(AviFrames, UnknownMedium_IsStoredAndIndexedButCountedByNothing) {
  AddVideo();
  Start();
  EXPECT_EQ(WriteVideo(4, 100, 1), 0);
  const ByteVector added = Added([&] { return Write(9, {1, 2, 3}, 200); });
  EXPECT_EQ(Difference(added, Join({Text("00tx"), Le32(3), Bytes({1, 2, 3}), Zeros(1)})), "");
  EXPECT_THAT(host.Traces(1), Contains("Unknown media type (0x9)\n"));
  EXPECT_EQ(Difference(Entry(), IndexEntryOf("00tx", 0x10, 16, 3)), "");
  EXPECT_EQ(writer->m_dwMoviSize, 4u + 12 + 12);
  EXPECT_EQ(writer->m_dwChunkOffset, 16u);
  EXPECT_EQ(Stream().m_dwChunks, 2u);
  EXPECT_EQ(Stream().m_StreamInfo.dwLength, 1u);
  EXPECT_EQ(Stream().m_ullPrevTS, 100u);
  EXPECT_EQ(WriteVideo(6, 140), 0);
  EXPECT_EQ(Difference(Entry(), IndexEntryOf("00dc", 0, 16, 6)), "");  // twelve bytes short
  EXPECT_EQ(Write(0, {1}, 200), 0);
  EXPECT_THAT(host.Traces(1), Contains("Unknown media type (0x0)\n"));
}

// ---- Times

TEST_F(AviFrames, Time_BelowThePreviousOne_IsRefusedAndNothingWritten) {
  AddVideo();
  AddAudio();
  Start();
  EXPECT_EQ(WriteVideo(5, 100), 0);
  EXPECT_EQ(WriteVideo(5, 100), 0);  // the same is accepted
  const size_t size = File().size();
  const uint32_t entries = writer->m_dwIndexEntries;
  EXPECT_EQ(static_cast<uint32_t>(WriteVideo(7, 99)), ZMV_E_FAIL);
  EXPECT_THAT(host.Traces(1), Contains("Video CTS Check!!! media(1) id(0) size(7) prev(100) > curr(99)\n"));
  EXPECT_EQ(File().size(), size);
  EXPECT_EQ(writer->m_dwIndexEntries, entries);
  EXPECT_EQ(Stream().m_StreamInfo.dwLength, 2u);
  EXPECT_EQ(WriteAudio(4, 99), 0);  // each stream has its own time
  EXPECT_EQ(static_cast<uint32_t>(WriteAudio(4, 98)), ZMV_E_FAIL);
  EXPECT_THAT(host.Traces(1), Contains("Video CTS Check!!! media(2) id(1) size(4) prev(99) > curr(98)\n"));
  EXPECT_EQ(WriteVideo(5, 100), 0);
}

TEST_F(AviFrames, Times_Of64Bits_AreComparedWhole) {
  AddVideo();
  Start();
  EXPECT_EQ(WriteVideo(5, uint64_t{1} << 40), 0);
  EXPECT_EQ(static_cast<uint32_t>(WriteVideo(5, 5)), ZMV_E_FAIL);
  EXPECT_THAT(host.Traces(1), Contains("Video CTS Check!!! media(1) id(0) size(5) prev(1099511627776) > curr(5)\n"));
  EXPECT_EQ(WriteVideo(5, UINT64_MAX), 0);
  EXPECT_EQ(Stream().m_ullPrevTS, UINT64_MAX);
}

// ---- Counters

TEST_F(AviFrames, VideoDurations_AreTheTimesBetweenFrames) {
  AddVideo();
  Start();
  EXPECT_EQ(WriteVideo(5, 0, 1, 33), 0);
  EXPECT_EQ(Stream().m_dwVidDur, 33u);  // its own
  EXPECT_EQ(WriteVideo(5, 40, 2, 34), 0);
  EXPECT_EQ(Stream().m_dwVidDur, 67u);  // its own again: the one before was at 0
  EXPECT_EQ(WriteVideo(5, 85, 2, 99), 0);
  EXPECT_EQ(Stream().m_dwVidDur, 112u);
  EXPECT_EQ(WriteVideo(5, 85, 2, 99), 0);
  EXPECT_EQ(Stream().m_dwVidDur, 112u);
  EXPECT_EQ(Stream().dwTotalFrames, 4u);
  EXPECT_EQ(Stream().m_StreamInfo.dwLength, 4u);
  EXPECT_EQ(writer->m_MainHeader.dwTotalFrames, 4u);
}

TEST_F(AviFrames, VideoFrames_OfAllStreams_CountInTheMainHeader) {
  AddVideo();
  AddVideo();
  Start();
  EXPECT_EQ(Write(ZMV_MEDIA_VIDEO, {1}, 0, 40, 0), 0);
  EXPECT_EQ(Write(ZMV_MEDIA_VIDEO, {1}, 0, 40, 1), 0);
  EXPECT_EQ(Write(ZMV_MEDIA_VIDEO, {1}, 0, 40, 1), 0);
  EXPECT_EQ(writer->m_MainHeader.dwTotalFrames, 3u);
  EXPECT_EQ(Stream(0).dwTotalFrames, 1u);
  EXPECT_EQ(Stream(1).dwTotalFrames, 2u);
}

TEST_F(AviFrames, TextDurations_WithoutAFrameBefore_Are50) {
  AddText();
  Start();
  EXPECT_EQ(WriteText(5, 0), 0);
  EXPECT_EQ(Stream().m_dwTxtDur, 50u);
  EXPECT_EQ(WriteText(5, 100), 0);
  EXPECT_EQ(Stream().m_dwTxtDur, 100u);
  EXPECT_EQ(WriteText(5, 170), 0);
  EXPECT_EQ(Stream().m_dwTxtDur, 170u);
  EXPECT_EQ(Stream().dwTotalFrames, 3u);
  EXPECT_EQ(Stream().m_StreamInfo.dwLength, 3u);
  EXPECT_EQ(writer->m_MainHeader.dwTotalFrames, 0u);
}

TEST_F(AviFrames, AudioLength_GrowsByHalfTheBytesOfPcmAndByTwoOtherwise) {
  AddAudio();
  Start();
  uint32_t length = 0;
  for (const uint32_t size : {4096u, 5u, 1u, 0u}) {
    EXPECT_EQ(WriteAudio(size), 0);
    length += size / 2 + 1;
    EXPECT_EQ(Stream().m_StreamInfo.dwLength, length);
  }
  EXPECT_EQ(Stream().dwTotalFrames, 0u);
  Close();
  info = {};
  AddAudio(ZMV_AUDIO_AAC);
  Start();
  for (const uint32_t size : {300u, 1u, 0u}) EXPECT_EQ(WriteAudio(size), 0);
  EXPECT_EQ(Stream().m_StreamInfo.dwLength, 6u);
}

TEST_F(AviFrames, LargestPayload_IsKeptPerStreamAndForTheFile) {
  AddVideo();
  AddAudio();
  Start();
  for (const size_t size : {5u, 901u, 30u}) EXPECT_EQ(WriteVideo(size), 0);
  for (const size_t size : {1u, 200u}) EXPECT_EQ(WriteAudio(size), 0);
  EXPECT_EQ(Stream(0).m_StreamInfo.dwSuggestedBufferSize, 901u);
  EXPECT_EQ(Stream(1).m_StreamInfo.dwSuggestedBufferSize, 200u);
  EXPECT_EQ(writer->m_MainHeader.dwSuggestedBufferSize, 901u);
}

// ---- Refusals and failures

TEST_F(AviFrames, NoHandleFrameOrPayload_IsRefused) {
  AddVideo();
  Start();
  ZMVFrame frame = {};
  frame.dwMediaType = ZMV_MEDIA_VIDEO;
  EXPECT_EQ(static_cast<uint32_t>(AVIWriterWriteFrame(nullptr, &frame)), ZMV_E_FAIL);
  EXPECT_EQ(static_cast<uint32_t>(AVIWriterWriteFrame(writer, nullptr)), ZMV_E_FAIL);
  frame.dwSize = 1;
  EXPECT_EQ(static_cast<uint32_t>(AVIWriterWriteFrame(writer, &frame)), ZMV_E_FAIL);
  EXPECT_EQ(writer->m_dwIndexEntries, 0u);
}

TEST_F(AviFrames, BeforeTheMoviListStands_AFrameIsRefused) {
  AddVideo();
  Software("x");
  ASSERT_EQ(Open(), 0);
  host.Fail(HostCall::kWrite, 6);  // INFO
  EXPECT_EQ(static_cast<uint32_t>(SetInfo()), ZMV_E_WRITE);
  ASSERT_EQ(writer->m_dwStreamCount, 1u);
  EXPECT_TRUE(Added([&] { return WriteVideo(5); }, static_cast<int32_t>(ZMV_E_FAIL)).empty());
}

TEST_F(AviFrames, ChunkThatCannotBeWritten_IsNotCountedAndTheNextTakesItsPlace) {
  AddVideo();
  Start();
  EXPECT_EQ(WriteVideo(4, 100), 0);
  const size_t end = MoviEnd();
  // A large chunk is header, payload and pad.
  for (const uint64_t nth : {1u, 2u, 3u}) {
    host.Fail(HostCall::kWrite, nth);
    EXPECT_EQ(static_cast<uint32_t>(WriteVideo(2001, 200)), ZMV_E_FAIL);
    EXPECT_THAT(host.Traces(1), Contains("AVIWriterWriteChunk fail\n"));
    EXPECT_EQ(MoviEnd(), end);
    EXPECT_EQ(writer->m_dwChunkOffset, 16u);
    EXPECT_EQ(writer->m_dwIndexEntries, 1u);
    EXPECT_EQ(Stream().m_dwChunks, 1u);
    EXPECT_EQ(Stream().m_StreamInfo.dwLength, 1u);
    EXPECT_EQ(Stream().m_ullPrevTS, 100u);
    // What was written is not taken back.
    EXPECT_EQ(File().size(), end + (nth == 1 ? 0 : nth == 2 ? 8 : 2009));
    host.File(kPath).resize(end);
    host.ClearRecords();
  }
  host.Fail(HostCall::kWrite, 2);
  EXPECT_EQ(static_cast<uint32_t>(WriteVideo(2001, 200)), ZMV_E_FAIL);
  EXPECT_EQ(WriteVideo(6, 150), 0);
  EXPECT_EQ(Difference(Part(File(), end), Join({Text("00dc"), Le32(6), ByteVector(6, 0x55)})), "");
  EXPECT_EQ(Difference(Entry(), IndexEntryOf("00dc", 0, 16, 6)), "");
}

TEST_F(AviFrames, ShortWrite_IsAFailedOne) {
  AddVideo();
  Start();
  const size_t end = MoviEnd();
  for (const size_t size : {100u, 3000u}) {
    host.file_capacity = end + 50;
    EXPECT_EQ(static_cast<uint32_t>(WriteVideo(size)), ZMV_E_FAIL);
    host.file_capacity = UINT64_MAX;
  }
  EXPECT_EQ(MoviEnd(), end);
  EXPECT_EQ(WriteVideo(100), 0);
  EXPECT_EQ(Difference(Part(File(), end, 108), Join({Text("00dc"), Le32(100), ByteVector(100, 0x55)})), "");
}

TEST_F(AviFrames, Traces_OfAFrame_AreEnterAndLeave) {
  AddVideo();
  Start();
  host.ClearRecords();
  EXPECT_EQ(WriteVideo(5), 0);
  EXPECT_EQ(host.traces().size(), 2u);
  EXPECT_EQ(host.traces()[0].function, "AVIWriterWriteFrame");
}

// ---- Chunks on their own

TEST_F(AviFrames, WriteChunk_ReturnsItsBytesAndCounts) {
  AddVideo();
  Start();
  const ByteVector payload(5, 1);
  AVIWriterStream record = {};
  record.m_dwStreamNo = 3;
  EXPECT_EQ(AVIWriterWriteChunk(stream, 0, &record, ZMV_MEDIA_AUDIO, payload.data(), 5), 14u);
  EXPECT_EQ(AVIWriterWriteChunk(stream, 0, &record, ZMV_MEDIA_AUDIO, payload.data(), 4), 12u);
  EXPECT_EQ(AVIWriterWriteChunk(stream, 0, &record, 17, nullptr, 0), 8u);
  EXPECT_EQ(record.m_dwChunks, 3u);
  const ByteVector expected = Join({
      Text("03wb"), Le32(5), ByteVector(5, 1), Zeros(1),  //
      Text("03wb"), Le32(4), ByteVector(4, 1),            //
      Text("03tx"), Le32(0),                              //
  });
  EXPECT_EQ(Difference(Part(File(), MoviEnd()), expected), "");
  EXPECT_EQ(writer->m_dwMoviSize, 4u);
}

TEST_F(AviFrames, WriteChunk_ThatCannotBe_IsZero) {
  AddVideo();
  Start();
  AVIWriterStream record = {};
  const uint8_t byte = 1;
  EXPECT_EQ(AVIWriterWriteChunk(nullptr, 0, &record, 1, &byte, 1), 0u);
  EXPECT_EQ(AVIWriterWriteChunk(stream, 0, nullptr, 1, &byte, 1), 0u);
  EXPECT_EQ(AVIWriterWriteChunk(stream, 0, &record, 1, nullptr, 1), 0u);
  EXPECT_EQ(AVIWriterWriteChunk(stream, 1, &record, 1, &byte, 1), 0u);           // only cursor 0 writes
  EXPECT_EQ(AVIWriterWriteChunk(stream, 0, &record, 1, &byte, 0xFFFFFFF8), 0u);  // beyond 4 GiB
  EXPECT_EQ(AVIWriterWriteChunk(stream, 0, &record, 1, &byte, 0xFFFFFFFF), 0u);
  host.Fail(HostCall::kWrite, 1);
  EXPECT_EQ(AVIWriterWriteChunk(stream, 0, &record, 1, &byte, 1), 0u);
  EXPECT_EQ(record.m_dwChunks, 0u);
}

}  // namespace
}  // namespace zmv::test

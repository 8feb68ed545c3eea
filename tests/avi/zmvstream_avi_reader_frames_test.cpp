#include "tests/avi/reader_records_test.h"

namespace zmv::test {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class AviFrames : public ReaderRecords {
 protected:
  // One video stream with these chunks.
  static AviSpec Video(std::vector<AviChunk> chunks, uint32_t rate = 25000, uint32_t scale = 1000) {
    AviSpec file;
    file.streams = {VideoStream(rate, scale)};
    file.chunks = std::move(chunks);
    return file;
  }
};

TEST_F(AviFrames, Indexed_DeliversPayloadsTimesAndKeyFlags) {
  AviSpec file = Video({{"00dc", Payload(5, 1), 0x10}, {"00dc", Payload(6, 2), 0}, {"00dc", Payload(1, 3), 0x11}});
  Load(file);
  ReadResult frame = Read(ZMV_MEDIA_VIDEO);
  EXPECT_EQ(frame.code, 0u);
  EXPECT_EQ(frame.data, Payload(5, 1));
  EXPECT_EQ(frame.frame.llTimeStamp, 0u);
  EXPECT_EQ(frame.frame.dwDuration, 40u);
  EXPECT_EQ(frame.frame.dwKeyFrame, 1u);
  frame = Read(ZMV_MEDIA_VIDEO);
  EXPECT_EQ(frame.data, Payload(6, 2));
  EXPECT_EQ(frame.frame.llTimeStamp, 40u);
  EXPECT_EQ(frame.frame.dwKeyFrame, 2u);
  frame = Read(ZMV_MEDIA_VIDEO);
  EXPECT_EQ(frame.data, Payload(1, 3));
  EXPECT_EQ(frame.frame.dwKeyFrame, 2u) << "only flags of exactly 0x10 name a key frame";
  EXPECT_EQ(Read(ZMV_MEDIA_VIDEO).code, ZMV_E_END);
  EXPECT_EQ(Read(ZMV_MEDIA_VIDEO).code, ZMV_E_END);
}

TEST_F(AviFrames, OddFrameRate_StampsInSinglePrecision) {
  AviSpec file = Video({}, 29970);
  for (uint8_t i = 0; i < 8; ++i) file.chunks.push_back({"00dc", Payload(4, i)});
  Load(file);
  for (uint32_t expected : {0u, 33u, 66u, 100u, 133u, 166u, 200u, 233u}) {
    const ReadResult frame = Read(ZMV_MEDIA_VIDEO);
    EXPECT_EQ(frame.frame.llTimeStamp, expected);
    EXPECT_EQ(frame.frame.dwDuration, 33u);
  }
}

TEST_F(AviFrames, StartTime_IsAddedBehindTheTruncation) {
  Load(Video({{"00dc", Payload(4)}, {"00dc", Payload(4)}}, 29970));
  Stream(0).m_dwStartTime = 1234;
  EXPECT_EQ(Read(ZMV_MEDIA_VIDEO).frame.llTimeStamp, 1234u);
  EXPECT_EQ(Read(ZMV_MEDIA_VIDEO).frame.llTimeStamp, 1267u);
}

TEST_F(AviFrames, LateFrame_IsStampedInTheDocumentedOrder) {
  Load(Video({{"00dc", Payload(4)}}, 30000, 1001));
  Stream(0).m_dwFrameNo = 16777219;
  // (float)16777219 = 16777220, times 1001000 rounds to 16793995739136, divided by 30000 to 559799872.
  const float expected = 16777220.0f * (1001.0f * 1000.0f) / 30000.0f;
  EXPECT_EQ(Read(ZMV_MEDIA_VIDEO).frame.llTimeStamp, static_cast<uint32_t>(expected));
}

TEST_F(AviFrames, SampleSize_TimesCountSamples) {
  AviSpec file;
  file.streams = {PcmStream()};  // 4 bytes a sample, 48000 a second
  file.chunks = {{"00wb", Payload(4800)}, {"00wb", Payload(9603)}, {"00wb", Payload(2)}, {"00wb", Payload(4)}};
  Load(file);
  ReadResult frame = Read(ZMV_MEDIA_AUDIO, 10000);
  EXPECT_EQ(frame.frame.llTimeStamp, 0u);
  EXPECT_EQ(frame.frame.dwDuration, 25u);  // 1200 samples
  EXPECT_EQ(frame.frame.dwKeyFrame, 1u);
  frame = Read(ZMV_MEDIA_AUDIO, 10000);
  EXPECT_EQ(frame.frame.llTimeStamp, 25u);
  EXPECT_EQ(frame.frame.dwDuration, 50u);  // 2400 samples and a part of one
  frame = Read(ZMV_MEDIA_AUDIO, 10000);
  EXPECT_EQ(frame.frame.llTimeStamp, 75u);  // 14403 / 4 = 3600 samples
  EXPECT_EQ(frame.frame.dwDuration, 0u);
  EXPECT_EQ(Read(ZMV_MEDIA_AUDIO).frame.llTimeStamp, 75u);  // 14405 / 4 = 3601 samples
}

TEST_F(AviFrames, ZeroRateOrScale_GivesTimesOfZero) {
  for (auto [rate, scale] : {std::pair{0u, 1000u}, {25000u, 0u}, {0u, 0u}}) {
    for (uint32_t sample_size : {0u, 2u}) {
      Load(Video({{"00dc", Payload(4)}, {"00dc", Payload(4)}}, rate, scale));
      Stream(0).m_dwSampleSize = sample_size;
      Stream(0).m_dwStartTime = 9;
      for (int i = 0; i < 2; ++i) {
        const ReadResult frame = Read(ZMV_MEDIA_VIDEO);
        EXPECT_EQ(frame.code, 0u);
        EXPECT_EQ(frame.frame.llTimeStamp, 9u);
        EXPECT_EQ(frame.frame.dwDuration, 0u);
      }
    }
  }
}

TEST_F(AviFrames, HugeScale_SaturatesTheTimes) {
  Load(Video({{"00dc", Payload(4)}, {"00dc", Payload(4)}}, 1, 0xFFFFFFFF));
  EXPECT_EQ(Read(ZMV_MEDIA_VIDEO).frame.dwDuration, 0xFFFFFFFFu);
  EXPECT_EQ(Read(ZMV_MEDIA_VIDEO).frame.llTimeStamp, 0xFFFFFFFFu);
}

TEST_F(AviFrames, SmallBuffer_SaysTheSizeAndKeepsTheFrame) {
  Load(Video({{"00dc", Payload(1000, 1), 0x10}, {"00dc", Payload(10, 2), 0}}));
  for (int i = 0; i < 3; ++i) {
    const ReadResult small = Read(ZMV_MEDIA_VIDEO, 100);
    EXPECT_EQ(small.code, ZMV_E_AVI_BUFFER);
    EXPECT_EQ(small.frame.dwBufSize, 1000u);
  }
  const ReadResult frame = Read(ZMV_MEDIA_VIDEO, 1000);
  EXPECT_EQ(frame.code, 0u);
  EXPECT_EQ(frame.data, Payload(1000, 1));
  EXPECT_EQ(frame.frame.llTimeStamp, 0u);
  EXPECT_EQ(frame.frame.dwKeyFrame, 1u);
  EXPECT_EQ(Read(ZMV_MEDIA_VIDEO, 10).data, Payload(10, 2));
}

TEST_F(AviFrames, NoBuffer_CountsAsASmallOne) {
  Load(Video({{"00dc", Payload(10)}}));
  ZMVFrame frame{};
  frame.dwMediaType = ZMV_MEDIA_VIDEO;
  frame.dwBufSize = 4096;
  EXPECT_EQ(Code(AVIReaderReadFrame(Reader(), &frame)), ZMV_E_AVI_BUFFER);
  EXPECT_EQ(frame.dwBufSize, 10u);
  EXPECT_EQ(Read(ZMV_MEDIA_VIDEO).data, Payload(10));
}

TEST_F(AviFrames, MissingTrack_GivesAnEmptyFrame) {
  Load(Video({{"00dc", Payload(10)}}));
  for (auto [media, track] : {std::pair<uint32_t, uint32_t>{ZMV_MEDIA_VIDEO, 1}, {ZMV_MEDIA_AUDIO, 0}}) {
    host_.ClearRecords();
    ReadResult result = Read(media, 64, track);
    EXPECT_EQ(result.code, 0u);
    EXPECT_EQ(result.frame.dwSize, 0u);
    const std::string line = "AVIReaderReadFrame can not find stream idx req(" + std::to_string(track) + ") total(1)\n";
    EXPECT_THAT(host_.Traces(2), ElementsAre(line));
  }
  LoadBytes(Payload(10), {});
  EXPECT_EQ(Read(ZMV_MEDIA_VIDEO).code, 0u);
}

TEST_F(AviFrames, Tracks_AreCountedWithinTheirMedium) {
  AviSpec file;
  file.streams = {VideoStream(), AacStream(), VideoStream(), TextStream()};
  file.chunks = {{"00dc", Payload(3, 1)},
                 {"01wb", Payload(4, 2)},
                 {"02dc", Payload(5, 3)},
                 {"03tx", Payload(6, 4)},
                 {"00dc", Payload(7, 5)}};
  Load(file);
  EXPECT_EQ(Read(ZMV_MEDIA_VIDEO, 64, 1).data, Payload(5, 3));
  EXPECT_EQ(Read(ZMV_MEDIA_TEXT).data, Payload(6, 4));
  EXPECT_EQ(Read(ZMV_MEDIA_AUDIO).data, Payload(4, 2));
  EXPECT_EQ(Read(ZMV_MEDIA_VIDEO).data, Payload(3, 1));
  EXPECT_EQ(Read(ZMV_MEDIA_VIDEO).data, Payload(7, 5));
}

TEST_F(AviFrames, EmptyEntries_ArePassedOverAndCounted) {
  Load(Video(
      {{"00dc", {}}, {"00dc", {}}, {"00dc", Payload(4, 1)}, {"00dc", {}}, {"00dc", Payload(4, 2)}, {"00dc", {}}}));
  EXPECT_EQ(Read(ZMV_MEDIA_VIDEO).frame.llTimeStamp, 80u);
  EXPECT_EQ(Read(ZMV_MEDIA_VIDEO).frame.llTimeStamp, 160u);
  EXPECT_EQ(Read(ZMV_MEDIA_VIDEO).code, ZMV_E_END);
}

TEST_F(AviFrames, EntryOfAnEmptyChunk_IsDeliveredEmpty) {
  Load(Video({{"00dc", {}}, {"00dc", Payload(4, 2)}}));
  index_[0][0].m_dwSize = 20;
  const ReadResult frame = Read(ZMV_MEDIA_VIDEO, 0);
  EXPECT_EQ(frame.code, 0u);
  EXPECT_EQ(frame.frame.dwSize, 0u);
  EXPECT_EQ(frame.frame.dwKeyFrame, 1u);
  EXPECT_EQ(Read(ZMV_MEDIA_VIDEO).data, Payload(4, 2));
}

TEST_F(AviFrames, SizeInTheFile_CountsNotThatOfTheIndex) {
  Load(Video({{"00dc", Payload(10, 1)}, {"00dc", Payload(4, 2)}}));
  index_[0][0].m_dwSize = 3;
  EXPECT_EQ(Read(ZMV_MEDIA_VIDEO).data, Payload(10, 1));
  EXPECT_EQ(Read(ZMV_MEDIA_VIDEO).data, Payload(4, 2));
}

TEST_F(AviFrames, PrefixedFile_PositionsCountFromTheBase) {
  Load(Interleaved(4), Payload(4096));
  EXPECT_EQ(Read(ZMV_MEDIA_VIDEO).data, Payload(30, 0));
  EXPECT_EQ(Read(ZMV_MEDIA_AUDIO).data, Payload(21, 100));
}

TEST_F(AviFrames, EntryBehindTheFile_IsTheEnd) {
  Load(Video({{"00dc", Payload(4, 1)}, {"00dc", Payload(4, 2)}}));
  const uint32_t file_size = Reader()->m_dwFileSize;
  for (uint32_t position : {file_size - 4, file_size, 0xFFFFFFFBu, 0xFFFFFFFCu, 0xFFFFFFFFu}) {
    index_[0][0].m_dwPos = position;
    EXPECT_EQ(Read(ZMV_MEDIA_VIDEO).code, ZMV_E_END) << position;
  }
  Reader()->m_dwBase = 0xFFFFFFFF;
  EXPECT_EQ(Read(ZMV_MEDIA_VIDEO).code, ZMV_E_END);
}

// The size field itself is cut.
TEST_F(AviFrames, EntryAtTheEndOfTheFile_IsAFailedRead) {
  Load(Video({{"00dc", Payload(4, 1)}}));
  index_[0][0].m_dwPos = Reader()->m_dwFileSize - 6;
  host_.ClearRecords();
  EXPECT_EQ(Read(ZMV_MEDIA_VIDEO).code, ZMV_E_READ);
  EXPECT_THAT(host_.Traces(1), Contains("err (0x80000012)\n"));
}

TEST_F(AviFrames, DataThatIsNotThereYet_IsAFailureUntilItIs) {
  Load(Video({{"00dc", Payload(4, 1)}, {"00dc", Payload(4, 2)}}));
  const uint32_t size_field = index_[0][1].m_dwPos + 4;
  Present(size_field);
  EXPECT_EQ(Read(ZMV_MEDIA_VIDEO).data, Payload(4, 1));
  EXPECT_EQ(Read(ZMV_MEDIA_VIDEO).code, ZMV_E_FAIL);
  EXPECT_EQ(Read(ZMV_MEDIA_VIDEO).code, ZMV_E_FAIL);
  Present(size_field + 8);
  const ReadResult frame = Read(ZMV_MEDIA_VIDEO);
  EXPECT_EQ(frame.data, Payload(4, 2));
  EXPECT_EQ(frame.frame.llTimeStamp, 40u);
}

// A host that cannot tell how much there is has nothing.
TEST_F(AviFrames, UnknownDataSize_CountsAsNone) {
  Load(Video({{"00dc", Payload(4, 1)}}));
  Stream(0).m_hStream->CurSize = [](void*) { return int64_t{Result(ZMV_E_NOT_SUPPORTED)}; };
  EXPECT_EQ(Read(ZMV_MEDIA_VIDEO).code, ZMV_E_FAIL);
}

TEST_F(AviFrames, CutChunk_FailsAndIsPassedOver) {
  for (uint32_t size : {5u, 0x7FFFFFFFu, 0xFFFFFFFFu}) {
    AviSpec file = Video({{"00dc", Payload(4, 1)}, {"00dc", Payload(4, 2)}, {"00dc", Payload(4, 3)}});
    file.has_index = false;
    Load(file);
    host_.File("a.avi")[index_[0][2].m_dwPos + 4] = static_cast<uint8_t>(size);
    host_.File("a.avi")[index_[0][2].m_dwPos + 7] = static_cast<uint8_t>(size >> 24);
    Read(ZMV_MEDIA_VIDEO);
    Read(ZMV_MEDIA_VIDEO);
    const ReadResult result = Read(ZMV_MEDIA_VIDEO, 4);
    EXPECT_EQ(result.code, ZMV_E_FAIL);
    EXPECT_EQ(result.frame.dwBufSize, 4u) << "nobody is sent for 4 GiB";
    EXPECT_EQ(Read(ZMV_MEDIA_VIDEO).code, ZMV_E_END);
  }
}

TEST_F(AviFrames, Cuts_NeverGiveAPartOfAFrame) {
  AviSpec file = Interleaved(8);
  file.has_index = false;
  const ByteVector whole = BuildAvi(file);
  Load(file);
  const std::vector<AVIReaderIndexEntry> entries = index_[0];
  const uint32_t first = Reader()->m_dwDataPos;
  for (uint32_t size = first; size < whole.size(); ++size) {
    LoadBytes(ByteVector(whole.begin(), whole.begin() + size), file.streams);
    index_[0] = entries;
    Reader()->m_bHasIndex = 1;
    UseIndex();
    size_t complete = 0;
    for (;;) {
      const ReadResult result = Read(ZMV_MEDIA_VIDEO);
      if (result.code != 0) break;
      while (entries[complete].m_dwSize == 0) ++complete;
      EXPECT_EQ(result.data.size(), entries[complete].m_dwSize);
      EXPECT_LE(entries[complete].m_dwPos + 8 + entries[complete].m_dwSize, size);
      ++complete;
    }
    while (complete < entries.size() && entries[complete].m_dwSize == 0) ++complete;
    if (complete < entries.size()) {
      EXPECT_GT(entries[complete].m_dwPos + 8 + entries[complete].m_dwSize, size);
    }
  }
}

TEST_F(AviFrames, ReadsInPieces_GiveWholeFrames) {
  host_.max_transfer = 7;
  for (uint32_t cache : {0u, 16u, 1024u}) {
    cache_size_ = cache;
    const AviSpec file = Interleaved();
    Load(file);
    std::vector<ByteVector> expected;
    for (const AviChunk& chunk : file.chunks) {
      if (chunk.code == "00dc" && !chunk.data.empty()) expected.push_back(chunk.data);
    }
    EXPECT_EQ(ReadAll(ZMV_MEDIA_VIDEO), expected);
  }
}

// Every read of the host fails once: the frame or its size is lost, and what follows is as without the failure.
TEST_F(AviFrames, EveryFailedRead_LeavesTheFramesBehindIt) {
  const AviSpec file = Interleaved();
  for (uint32_t cache : {0u, 1024u}) {
    cache_size_ = cache;
    Load(file);
    std::vector<ReadResult> whole;
    for (ReadResult frame = Read(ZMV_MEDIA_VIDEO); frame.code == 0; frame = Read(ZMV_MEDIA_VIDEO))
      whole.push_back(frame);
    for (uint64_t nth = 1, reads = nth; reads >= nth; ++nth) {
      Load(file);
      const uint64_t before = host_.Count(HostCall::kRead);
      host_.Fail(HostCall::kRead, nth);
      uint32_t failures = 0;
      size_t expected = 0;
      for (;;) {
        const ReadResult frame = Read(ZMV_MEDIA_VIDEO);
        if (frame.code == ZMV_E_END) break;
        if (frame.code != 0) {
          EXPECT_EQ(frame.code, ZMV_E_READ);
          ++failures;
          continue;
        }
        if (expected < whole.size() && frame.data != whole[expected].data) ++expected;
        ASSERT_LT(expected, whole.size());
        EXPECT_EQ(frame.data, whole[expected].data);
        EXPECT_EQ(frame.frame.llTimeStamp, whole[expected].frame.llTimeStamp);
        EXPECT_EQ(frame.frame.dwKeyFrame, whole[expected].frame.dwKeyFrame);
        ++expected;
      }
      EXPECT_GE(expected + failures, whole.size());
      EXPECT_LE(failures, 1u);
      reads = host_.Count(HostCall::kRead) - before;
      host_.ClearFailures();
    }
  }
}

TEST_F(AviFrames, LastingFailure_IsReportedEveryTime) {
  Load(Interleaved());
  host_.Fail(HostCall::kRead, 1, ScriptedHost::kForGood);
  host_.ClearRecords();
  EXPECT_EQ(Read(ZMV_MEDIA_VIDEO).code, ZMV_E_READ);
  EXPECT_EQ(Read(ZMV_MEDIA_VIDEO).code, ZMV_E_READ);
  EXPECT_EQ(PlaceOf(0).frame, 0u);
  EXPECT_THAT(host_.Traces(1), Contains("err (0x80000012)\n").Times(2));
}

TEST_F(AviFrames, ReadingAllocatesNothing) {
  Load(Interleaved());
  host_.ClearRecords();
  const uint64_t before = host_.Count(HostCall::kMalloc);
  ReadAll(ZMV_MEDIA_VIDEO);
  EXPECT_EQ(host_.Count(HostCall::kMalloc), before);
}

TEST_F(AviFrames, FindStreamFrame2_MakesTheChunkPending) {
  Load(Video({{"00dc", Payload(5, 1)}, {"00dc", Payload(6, 2)}}));
  EXPECT_EQ(AVIReaderFindStreamFrame2(Reader(), &Stream(0)), 0);
  EXPECT_EQ(PlaceOf(0).pending, 5u);
  EXPECT_EQ(PlaceOf(0).frame, 1u);
  EXPECT_EQ(PlaceOf(0).position, index_[0][0].m_dwPos + 8 + 5);
  EXPECT_EQ(AVIReaderFindStreamFrame2(Reader(), &Stream(0)), 0) << "the first chunk is passed over";
  EXPECT_EQ(Read(ZMV_MEDIA_VIDEO).data, Payload(6, 2));
  EXPECT_EQ(Code(AVIReaderFindStreamFrame2(Reader(), &Stream(0))), ZMV_E_END);
}

TEST_F(AviFrames, NullArguments_AreRefused) {
  Load(Video({{"00dc", Payload(5, 1)}}));
  ZMVFrame frame{};
  AVIReaderStream empty{};
  EXPECT_EQ(Code(AVIReaderReadFrame(nullptr, &frame)), ZMV_E_FAIL);
  EXPECT_EQ(Code(AVIReaderReadFrame(Reader(), nullptr)), ZMV_E_FAIL);
  EXPECT_EQ(Code(AVIReaderFindStreamFrame2(nullptr, &Stream(0))), ZMV_E_FAIL);
  EXPECT_EQ(Code(AVIReaderFindStreamFrame2(Reader(), nullptr)), ZMV_E_FAIL);
  EXPECT_EQ(Code(AVIReaderFindStreamFrame2(Reader(), &empty)), ZMV_E_FAIL);
}

TEST_F(AviFrames, Traces_SayEnterAndLeaveUnlessReadingFailed) {
  Load(Video({{"00dc", Payload(5, 1)}, {"00dc", Payload(5, 1)}}));
  const auto of_reader = [this] {
    std::vector<std::string> lines;
    for (const TraceRecord& trace : host_.traces()) {
      if (trace.module == "ZMVAVIR") lines.push_back(trace.function + ": " + trace.text);
    }
    return lines;
  };
  host_.ClearRecords();
  Read(ZMV_MEDIA_VIDEO);
  EXPECT_THAT(of_reader(), ElementsAre("AVIReaderReadFrame: Enter.\n", "AVIReaderReadFrame: Leave.\n"));
  Load(Video({{"00dc", Payload(5, 1)}}));
  host_.Fail(HostCall::kRead, 1);
  host_.ClearRecords();
  Read(ZMV_MEDIA_VIDEO);
  EXPECT_THAT(of_reader(), ElementsAre("AVIReaderReadFrame: Enter.\n", "AVIReaderReadFrame: err (0x80000012)\n"));
}

// Whatever the index says, reading stays inside the file and the buffer and comes to an end.
TEST_F(AviFrames, RandomEntries_AreReadToTheEnd) {
  std::mt19937 engine(7);
  const auto random = [&engine] { return static_cast<uint32_t>(engine()); };
  const AviSpec file = Interleaved();
  for (int run = 0; run < 300; ++run) {
    Load(file);
    uint32_t position = 0;
    for (auto& entry : index_[0]) {
      position += random() % 200;
      entry = {random() % 3 * 0x10, random() % 20 == 0 ? random() : position, random() % 4 == 0 ? 0 : random()};
    }
    Stream(0).m_dwSampleSize = random() % 3;
    size_t calls = 0;
    for (ReadResult result = Read(ZMV_MEDIA_VIDEO, 300); result.code != ZMV_E_END && result.code != ZMV_E_READ;
         result = Read(ZMV_MEDIA_VIDEO, result.code == ZMV_E_AVI_BUFFER ? result.frame.dwBufSize : 300)) {
      ASSERT_LT(++calls, 2 * index_[0].size());
      EXPECT_LE(result.frame.dwBufSize, Reader()->m_dwFileSize);
    }
  }
}

}  // namespace
}  // namespace zmv::test

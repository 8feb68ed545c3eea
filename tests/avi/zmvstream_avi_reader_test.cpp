#include "tests/avi/avi_reader_test.h"

namespace zmv::test {
namespace {

using ::testing::AllOf;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::Field;
using ::testing::IsEmpty;

class AviReader : public AviReaderTest {
 protected:
  // A block in front of the RIFF data, which begins behind it.
  static ByteVector Prefixed(const ByteVector& riff, uint32_t base = 128) {
    return Join({ByteVector(92, 0x55), Le32(base), ByteVector(base - 96, 0x66), riff});
  }
  uint8_t IsValid() { return AVIReaderIsValidInfo(reader_); }
};

// ---- Open

TEST_F(AviReader, Open_AcceptsThreeForms) {
  for (const char* form : {"AVI ", "AVIX", "MENU"}) {
    EXPECT_EQ(TryOpen(Riff(form, {})), 0u) << form;
    EXPECT_EQ(reader_->m_dwBase, 0u);
    EXPECT_EQ(reader_->m_dwFileSize, 12u);
  }
  EXPECT_THAT(host_.Traces(1), IsEmpty());
}

TEST_F(AviReader, Open_RefusesAnotherForm) {
  EXPECT_EQ(TryOpen(Riff("WAVE", {})), ZMV_E_FAIL);
  EXPECT_EQ(reader_, nullptr);
  EXPECT_THAT(host_.Traces(1), ElementsAre("AVIReaderOpen - File is not AVI\n"));
  EXPECT_EQ(CursorsInUse(), 0u);
}

TEST_F(AviReader, Open_TracesUnderItsModule) {
  Load(Riff("AVI ", {}));
  EXPECT_THAT(host_.traces(),
              Contains(AllOf(Field(&TraceRecord::module, "ZMVAVIR"), Field(&TraceRecord::level, 4),
                             Field(&TraceRecord::file, "zmvstream_avi_reader"),
                             Field(&TraceRecord::function, "AVIReaderOpen"), Field(&TraceRecord::text, "Enter.\n"))));
  EXPECT_EQ(host_.traces().back().text, "Leave.\n");
}

TEST_F(AviReader, Open_FindsTheRiffDataBehindAPrefix) {
  ASSERT_EQ(TryOpen(Prefixed(Riff("AVI ", {}))), 0u);
  EXPECT_EQ(reader_->m_dwBase, 128u);
  EXPECT_EQ(ZMVStreamBuf_Pos(stream_, reader_->m_dwIndex), 128u);
}

TEST_F(AviReader, Open_PrefixThatPointsBehindTheFile_IsAFailedSeek) {
  EXPECT_EQ(TryOpen(Join({Text("LEAD"), ByteVector(88), Le32(97)})), ZMV_E_SEEK);
  EXPECT_EQ(reader_, nullptr);
  EXPECT_THAT(host_.Traces(1), Contains("err (0x80000014)\n"));
}

TEST_F(AviReader, Open_FileTooShort_IsAFailedRead) {
  for (const ByteVector& bytes : {ByteVector{}, Text("RIF"), Text("RIFF"), Front(Riff("AVI ", {}), 11)}) {
    EXPECT_EQ(TryOpen(bytes), ZMV_E_READ) << bytes.size();
    EXPECT_THAT(host_.Traces(1), Contains("err (0x80000012)\n"));
    host_.ClearRecords();
  }
  // The word at 92 is cut.
  EXPECT_EQ(TryOpen(ByteVector(95, 1)), ZMV_E_READ);
  EXPECT_EQ(TryOpen(ByteVector(91, 1)), ZMV_E_SEEK);
}

TEST_F(AviReader, Open_WithoutMemory_LeavesTheHandleAlone) {
  host_.PutFile("a.avi", Riff("AVI ", {}));
  ASSERT_EQ(ZMVStreamBuf_Open(&stream_, "a.avi", 0, ZMV_STREAM_READ), 0);
  for (uint64_t nth : {1u, 2u}) {  // the handle, its cursor
    host_.Fail(HostCall::kMalloc, nth);
    EXPECT_EQ(Code(AVIReaderOpen(&reader_, stream_)), ZMV_E_MEMORY);
    EXPECT_EQ(reader_, nullptr);
  }
}

TEST_F(AviReader, Open_SizeAboveFourGigabytes_IsTakenAsTheLargestOfThirtyTwoBits) {
  host_.PutFile("a.avi", Riff("AVI ", {}));
  ASSERT_EQ(ZMVStreamBuf_Open(&stream_, "a.avi", 0, ZMV_STREAM_READ), 0);
  stream_->Size = [](void*) { return int64_t{0x100000005}; };
  ASSERT_EQ(AVIReaderOpen(&reader_, stream_), 0);
  EXPECT_EQ(reader_->m_dwFileSize, 0xFFFFFFFFu);
}

TEST_F(AviReader, NullArguments_AreRefused) {
  EXPECT_EQ(Code(AVIReaderOpen(&reader_, nullptr)), ZMV_E_FAIL);
  EXPECT_EQ(Code(AVIReaderGetInfo(nullptr, info_.get(), 1)), ZMV_E_FAIL);
  EXPECT_EQ(Code(AVIReaderGetInfo2(nullptr, info_.get())), ZMV_E_FAIL);
  EXPECT_EQ(Code(AVIReaderMakeIndex(nullptr)), ZMV_E_FAIL);
  EXPECT_EQ(AVIReaderIsValidInfo(nullptr), 0);
  EXPECT_EQ(AVIReaderGetStreamSize(nullptr, 0), 0u);
  Load(Riff("AVI ", {}));
  EXPECT_EQ(Code(AVIReaderOpen(nullptr, stream_)), ZMV_E_FAIL);
  EXPECT_EQ(Code(AVIReaderGetInfo(reader_, nullptr, 1)), ZMV_E_FAIL);
  EXPECT_EQ(Code(AVIReaderGetInfo2(reader_, nullptr)), ZMV_E_FAIL);
}

// ---- Close and MakeIndex

TEST_F(AviReader, CloseNull_OnlyTraces) {
  AVIReaderClose(nullptr);
  EXPECT_THAT(host_.Traces(4), ElementsAre("Enter.\n", "AVIReaderClose\n", "Leave.\n"));
}

TEST_F(AviReader, Close_FreesStreamsAndGivesTheCursorBack) {
  ASSERT_EQ(Describe(SmallFile()), 0u);
  EXPECT_EQ(CursorsInUse(), 1u);
  AVIReaderClose(reader_);
  reader_ = nullptr;
  EXPECT_EQ(CursorsInUse(), 0u);
  EXPECT_EQ(host_.Count(HostCall::kClose), 2u);  // the duplicates; the stream itself stays open
}

TEST_F(AviReader, MakeIndex_ReadsTheTickAndNothingElse) {
  Load(BuildAvi(SmallFile()));
  const uint64_t ticks = host_.Count(HostCall::kTick);
  const uint64_t reads = host_.Count(HostCall::kRead);
  EXPECT_EQ(AVIReaderMakeIndex(reader_), 0);
  EXPECT_EQ(host_.Count(HostCall::kTick), ticks + 1);
  EXPECT_EQ(host_.Count(HostCall::kRead), reads);
}

// ---- IsValidInfo

TEST_F(AviReader, IsValidInfo_StepsOverWhatIsCompleteAndStopsAtMovi) {
  AviSpec file = SmallFile();
  file.headers = Join({List("INFO", Chunk("ISFT", Text("V1"))), Chunk("JUNK", ByteVector(20))});
  const ByteVector bytes = BuildAvi(file);
  Load(bytes);
  host_.ClearRecords();
  EXPECT_EQ(IsValid(), 1);
  // hdrl: 12 + 12 + 64 + 124 + 100 = 312; INFO: 12 + 10 = 22; JUNK: 28.
  const std::string size = std::to_string(bytes.size());
  EXPECT_THAT(host_.Traces(2),
              ElementsAre("CurPos=312 Remain=" + std::to_string(bytes.size() - 12) + " File=" + size + "\n",
                          "CurPos=334 Remain=" + std::to_string(bytes.size() - 312) + " File=" + size + "\n",
                          "CurPos=362 Remain=" + std::to_string(bytes.size() - 334) + " File=" + size + "\n",
                          "AVIReaderIsValidInfo " + size + "\n"));
  EXPECT_EQ(ZMVStreamBuf_Pos(stream_, reader_->m_dwIndex), 0u);
  EXPECT_EQ(reader_->m_dwCheckPos, 362u);
  EXPECT_EQ(IsValid(), 1);
}

TEST_F(AviReader, IsValidInfo_GoesOnWhereItStoppedWhileTheFileGrows) {
  AviSpec file = SmallFile();
  file.headers = Join({Chunk("JUNK", ByteVector(7, 1)), Chunk("JUNK", Join({Text("ADAS"), ByteVector(5, 9)}), false)});
  const ByteVector bytes = BuildAvi(file);
  const size_t movi = 312 + 16 + 17;  // where the list begins
  ASSERT_EQ(Front(ByteVector(bytes.begin() + static_cast<ptrdiff_t>(movi), bytes.end()), 4), Text("LIST"));
  static uint64_t present;
  Load(bytes);
  stream_->CurSize = [](void*) { return static_cast<int64_t>(present); };
  uint64_t steps = 0;
  for (present = 0; present <= bytes.size(); ++present) {
    host_.ClearRecords();
    ASSERT_EQ(IsValid(), present >= movi + 12 ? 1 : 0) << present;
    steps += host_.Traces(2).size();
    if (present >= movi + 12) break;
  }
  EXPECT_EQ(steps, 4u);  // three chunks stepped over once each, then the list
  EXPECT_EQ(GetInfo(), 0u);
}

TEST_F(AviReader, IsValidInfo_EveryLengthOfAFile) {
  const ByteVector bytes = BuildAvi(SmallFile());
  for (size_t size = 12; size <= bytes.size(); ++size) {
    Load(Front(bytes, size));
    ASSERT_EQ(IsValid(), size >= 312 + 12 ? 1 : 0) << size;
    ASSERT_EQ(IsValid(), size >= 312 + 12 ? 1 : 0) << size;
  }
}

TEST_F(AviReader, IsValidInfo_IncompleteChunk_LeavesTheCursorInFrontOfIt) {
  Load(Join(
      {Text("RIFF"), Le32(0), Text("AVI "), Chunk("JUNK", ByteVector(4)), Text("JUNK"), Le32(100), ByteVector(20)}));
  EXPECT_EQ(IsValid(), 0);
  EXPECT_EQ(reader_->m_dwCheckPos, 24u);
  EXPECT_EQ(ZMVStreamBuf_Pos(stream_, reader_->m_dwIndex), 24u);
}

TEST_F(AviReader, IsValidInfo_CountsFromTheRiffDataOfAPrefixedFile) {
  const ByteVector bytes = Prefixed(BuildAvi(SmallFile()));
  Load(bytes);
  EXPECT_EQ(IsValid(), 1);
  EXPECT_EQ(reader_->m_dwCheckPos, 312u);
  EXPECT_EQ(ZMVStreamBuf_Pos(stream_, reader_->m_dwIndex), 128u);
  Load(Front(bytes, 128 + 323));
  EXPECT_EQ(IsValid(), 0);
}

TEST_F(AviReader, IsValidInfo_HugeSizesNeverMoveItBackward) {
  for (uint32_t size : {0xFFFFFFFFu, 0xFFFFFFF8u, 0xFFFFFFECu, 0x80000000u}) {
    Load(Join({Text("RIFF"), Le32(0), Text("AVI "), Text("LIST"), Le32(size), Text("hdrl"), ByteVector(40)}));
    EXPECT_EQ(IsValid(), 0);
    EXPECT_EQ(reader_->m_dwCheckPos, 12u);
  }
}

TEST_F(AviReader, IsValidInfo_FailedRead_GivesItsLowByte) {
  for (uint64_t nth : {1u, 2u, 3u, 4u}) {  // RIFF, its form, LIST, its type
    Load(BuildAvi(SmallFile()));
    host_.ClearRecords();
    host_.Fail(HostCall::kRead, nth);
    EXPECT_EQ(IsValid(), 0x12) << nth;
    EXPECT_THAT(host_.Traces(1), Contains("err (0x80000012)\n"));
    EXPECT_EQ(IsValid(), 1) << "the next call goes on";
  }
}

TEST_F(AviReader, IsValidInfo_LeavesGetInfoAtTheStart) {
  Load(BuildAvi(SmallFile()));
  ASSERT_EQ(IsValid(), 1);
  EXPECT_EQ(GetInfo(), 0u);
  EXPECT_THAT(Media(), ElementsAre(1, 2));
}

}  // namespace
}  // namespace zmv::test

#include "tests/avi/reader_records_test.h"

namespace zmv::test {
namespace {

using ::testing::Contains;
using ::testing::Not;

uint32_t CodeOf(const char* text) {
  return static_cast<uint32_t>(text[0]) | static_cast<uint32_t>(text[1]) << 8 | static_cast<uint32_t>(text[2]) << 16 |
         static_cast<uint32_t>(text[3]) << 24;
}

struct TagResult {
  uint32_t result, code, size, cursor;
  bool operator==(const TagResult&) const = default;
};
void PrintTo(const TagResult& tag, std::ostream* out) {
  *out << std::hex << "result " << tag.result << " code " << tag.code << " size " << tag.size << " cursor "
       << tag.cursor;
}

class AviTag : public ReaderRecords {
 protected:
  TagResult TagIn(const ByteVector& bytes) {
    LoadBytes(bytes, {VideoStream()});
    return NextTag();
  }
  TagResult NextTag() {
    TagResult tag{0, 1, 1, 0};
    AVIReaderStream& stream = Stream(0);
    tag.result = Code(AVIReaderGetTag(stream.m_hStream, stream.m_dwIndex, &tag.code, &tag.size));
    tag.cursor = ZMVStreamBuf_Pos(stream.m_hStream, stream.m_dwIndex);
    return tag;
  }
};

TEST_F(AviTag, ChunkHeader_GivesCodeAndSize) {
  for (const char* code : {"00dc", "01wb", "99zz", "05tx", "JUNK", "idx1", "ix00", "ixZ9"}) {
    EXPECT_EQ(TagIn(Join({Text(code), Le32(3), Bytes({1, 2, 3})})), (TagResult{0, CodeOf(code), 3, 8}));
  }
}

TEST_F(AviTag, OtherBytes_ArePassedOver) {
  const ByteVector tag = Join({Text("00dc"), Le32(0)});
  for (const char* text : {"z", "abc", "0", "rec ", "00", "0 ", "IDX1", "junk", "Ix00", "00d1", "0a", "movi", "000"}) {
    const ByteVector bytes = Text(text);
    EXPECT_EQ(TagIn(Join({bytes, tag})), (TagResult{0, CodeOf("00dc"), 0, static_cast<uint32_t>(bytes.size()) + 8}))
        << text;
  }
  EXPECT_EQ(TagIn(Join({Text("0"), Bytes({0xE1}), Text("0dc"), tag})).cursor, 13u) << "other bytes part codes";
  EXPECT_EQ(TagIn(Join({Text("00d"), Bytes({0}), Text("c"), tag})).cursor, 13u);
}

TEST_F(AviTag, Lists_AreSteppedOverWithSizeAndForm) {
  // The size of the list reads as the code of a chunk, and is none.
  EXPECT_EQ(TagIn(Join({Text("LIST"), Text("00dc"), Text("rec "), Text("01wb"), Le32(0)})),
            (TagResult{0, CodeOf("01wb"), 0, 20}));
  EXPECT_EQ(TagIn(Join({Text("RIFF"), Le32(100), Text("AVIX"), Text("LIST"), Le32(50), Text("movi"), Text("00dc"),
                        Le32(1), Bytes({9})})),
            (TagResult{0, CodeOf("00dc"), 1, 32}));
}

TEST_F(AviTag, CutList_IsAFailedSeek) {
  for (uint32_t rest = 0; rest < 8; ++rest) {
    EXPECT_EQ(TagIn(Join({Text("LIST"), Zeros(rest)})).result, ZMV_E_SEEK);
    EXPECT_EQ(NextTag().result, ZMV_E_END);
  }
  EXPECT_EQ(TagIn(Join({Text("LIST"), Zeros(8)})), (TagResult{ZMV_E_END, 0, 0, 12}));
}

TEST_F(AviTag, ZeroRun_EndsTheSearchBeyond2048) {
  const ByteVector tag = Join({Text("00dc"), Le32(0)});
  for (uint32_t zeros : {0u, 1u, 2047u, 2048u}) {
    EXPECT_EQ(TagIn(Join({Zeros(zeros), tag})), (TagResult{0, CodeOf("00dc"), 0, zeros + 8}));
  }
  EXPECT_EQ(TagIn(Join({Zeros(2049), tag})), (TagResult{ZMV_E_FAIL, 0, 0, 2049}));
  EXPECT_EQ(NextTag(), (TagResult{0, CodeOf("00dc"), 0, 2057}));
  EXPECT_EQ(TagIn(Join({Zeros(2048), Bytes({1}), Zeros(2048), tag})).result, 0u) << "only zeros in a row count";
  EXPECT_EQ(TagIn(Zeros(2048)), (TagResult{ZMV_E_END, 0, 0, 2048}));
}

TEST_F(AviTag, EndOfData_GoesBackOverWhatMayBecomeACode) {
  EXPECT_EQ(TagIn(Bytes({1})).cursor, 1u);
  EXPECT_EQ(TagIn(Text("..0")), (TagResult{ZMV_E_END, 0, 0, 2}));
  EXPECT_EQ(TagIn(Text("..00d")), (TagResult{ZMV_E_END, 0, 0, 2}));
  EXPECT_EQ(TagIn(Text("abcde")), (TagResult{ZMV_E_END, 0, 0, 2}));
  EXPECT_EQ(TagIn(Text("ab.")), (TagResult{ZMV_E_END, 0, 0, 3}));
  for (int i = 0; i < 2; ++i) EXPECT_EQ(NextTag(), (TagResult{ZMV_E_END, 0, 0, 3}));
}

TEST_F(AviTag, IncompleteChunk_GoesBackToItsCode) {
  for (uint32_t present = 0; present < 4; ++present) {
    EXPECT_EQ(TagIn(Join({Text("..00dc"), ByteVector(present, 1)})), (TagResult{ZMV_E_FAIL, CodeOf("00dc"), 0, 2}));
  }
  for (uint32_t size : {4u, 0x7FFFFFFFu, 0xFFFFFFFFu}) {
    EXPECT_EQ(TagIn(Join({Text("..00dc"), Le32(size), Text("abc")})), (TagResult{ZMV_E_FAIL, CodeOf("00dc"), size, 2}));
  }
  EXPECT_EQ(TagIn(Join({Text("..00dc"), Le32(3), Text("abc")})), (TagResult{0, CodeOf("00dc"), 3, 10}));
}

TEST_F(AviTag, FailedRead_LosesNothing) {
  const ByteVector bytes = Join({ByteVector(30, '.'), Text("00dc"), Le32(2), Bytes({1, 2})});
  for (uint32_t cache : {0u, 2u, 16u, 1024u}) {
    cache_size_ = cache;
    for (uint64_t nth = 1;; ++nth) {
      LoadBytes(bytes, {VideoStream()});
      host_.Fail(HostCall::kRead, nth);
      TagResult tag = NextTag();
      const bool failed = tag.result != 0;
      if (failed) {
        EXPECT_EQ(tag.result, ZMV_E_READ);
        tag = NextTag();
      }
      EXPECT_EQ(tag, (TagResult{0, CodeOf("00dc"), 2, 38}));
      host_.ClearFailures();
      if (!failed && nth > 8) break;
    }
  }
}

TEST_F(AviTag, FailedReadOfTheSize_IsTraced) {
  cache_size_ = 0;
  LoadBytes(Join({Text("..00dc"), Le32(2), Bytes({1, 2})}), {VideoStream()});
  host_.max_transfer = 1;
  host_.Fail(HostCall::kRead, 8);
  host_.ClearRecords();
  EXPECT_EQ(NextTag(), (TagResult{ZMV_E_READ, CodeOf("00dc"), 0, 2}));
  EXPECT_THAT(host_.Traces(1), Contains("err (0x80000012)\n"));
  host_.ClearRecords();
  host_.Fail(HostCall::kRead, 3);
  EXPECT_EQ(NextTag().result, ZMV_E_READ);
  EXPECT_THAT(host_.Traces(1), Not(Contains("err (0x80000012)\n")));
}

TEST_F(AviTag, NullArguments_AreRefused) {
  LoadBytes(Text("00dc"), {VideoStream()});
  uint32_t word = 0;
  EXPECT_EQ(Code(AVIReaderGetTag(nullptr, 0, &word, &word)), ZMV_E_FAIL);
  EXPECT_EQ(Code(AVIReaderGetTag(Stream(0).m_hStream, 0, nullptr, &word)), ZMV_E_FAIL);
  EXPECT_EQ(Code(AVIReaderGetTag(Stream(0).m_hStream, 0, &word, nullptr)), ZMV_E_FAIL);
}

class AviScan : public ReaderRecords {
 protected:
  // A video and an audio stream in these bytes.
  void ScanBytes(const ByteVector& bytes) { LoadBytes(bytes, {VideoStream(), AacStream()}); }

  static std::vector<ByteVector> FramesOf(const AviSpec& file, const std::string& code) {
    std::vector<ByteVector> frames;
    for (const AviChunk& chunk : file.chunks) {
      if (chunk.code == code && !chunk.data.empty()) frames.push_back(chunk.data);
    }
    return frames;
  }
  static ByteVector Frame(uint8_t seed) { return Chunk("00dc", Payload(5, seed)); }
  uint64_t BytesRead() const {
    uint64_t sum = 0;
    for (const CallRecord& call : host_.Calls(HostCall::kRead)) sum += static_cast<uint64_t>(call.result);
    return sum;
  }
};

TEST_F(AviScan, Frames_AreThoseOfTheIndex) {
  const AviSpec file = Interleaved(40);
  for (uint32_t media : {ZMV_MEDIA_VIDEO, ZMV_MEDIA_AUDIO}) {
    Load(file);
    std::vector<ReadResult> indexed;
    for (ReadResult frame = Read(media); frame.code == 0; frame = Read(media)) indexed.push_back(frame);
    EXPECT_GT(indexed.size(), 30u);
    Load(file);
    Scan();
    for (const ReadResult& expected : indexed) {
      const ReadResult frame = Read(media);
      EXPECT_EQ(frame.code, 0u);
      EXPECT_EQ(frame.data, expected.data);
      EXPECT_EQ(frame.frame.llTimeStamp, expected.frame.llTimeStamp);
      EXPECT_EQ(frame.frame.dwDuration, expected.frame.dwDuration);
      EXPECT_EQ(frame.frame.dwKeyFrame, 77u) << "not known without an index";
    }
    EXPECT_EQ(Read(media).code, ZMV_E_END);
    EXPECT_EQ(Read(media).code, ZMV_E_END);
  }
}

TEST_F(AviScan, SmallBuffer_KeepsTheFrame) {
  ScanBytes(Join({Chunk("00dc", Payload(1000, 1)), Frame(2)}));
  for (int i = 0; i < 2; ++i) {
    const ReadResult small = Read(ZMV_MEDIA_VIDEO, 100);
    EXPECT_EQ(small.code, ZMV_E_AVI_BUFFER);
    EXPECT_EQ(small.frame.dwBufSize, 1000u);
  }
  EXPECT_EQ(Read(ZMV_MEDIA_VIDEO, 1000).data, Payload(1000, 1));
  EXPECT_EQ(Read(ZMV_MEDIA_VIDEO).data, Payload(5, 2));
}

TEST_F(AviScan, ZeroRuns_ArePassedOverUpTo2048) {
  for (uint32_t zeros : {1u, 100u, 2047u, 2048u}) {
    ScanBytes(Join({Chunk("00dc", Payload(4, 1)), Zeros(zeros), Frame(2)}));
    EXPECT_EQ(ReadAll(ZMV_MEDIA_VIDEO), (std::vector<ByteVector>{Payload(4, 1), Payload(5, 2)})) << zeros;
  }
  ScanBytes(Join({Chunk("00dc", Payload(4, 1)), Zeros(2049), Frame(2)}));
  EXPECT_EQ(ReadAll(ZMV_MEDIA_VIDEO), (std::vector<ByteVector>{Payload(4, 1)}));
}

TEST_F(AviScan, PadByte_IsSkippedWhateverItHolds) {
  ScanBytes(Join({Text("00dc"), Le32(1), Bytes({0x81, '0'}), Text("00dc"), Le32(2), Payload(2)}));
  EXPECT_EQ(ReadAll(ZMV_MEDIA_VIDEO), (std::vector<ByteVector>{{0x81}, Payload(2)}));
}

TEST_F(AviScan, LastPadByteMissing_IsTheEnd) {
  ScanBytes(Join({Chunk("01wb", Payload(3)), Chunk("00dc", Payload(3), false)}));
  EXPECT_EQ(ReadAll(ZMV_MEDIA_VIDEO).size(), 1u);
  EXPECT_EQ(PlaceOf(0).cursor, Reader()->m_dwFileSize);
  ScanBytes(Join({Frame(1), Chunk("01wb", Payload(3), false)}));
  EXPECT_EQ(ReadAll(ZMV_MEDIA_VIDEO).size(), 1u);
}

TEST_F(AviScan, EmptyChunks_AreCounted) {
  ScanBytes(Join({Chunk("00dc", {}), Chunk("00dc", {}), Frame(1), Chunk("00dc", {}), Frame(2)}));
  EXPECT_EQ(Read(ZMV_MEDIA_VIDEO).frame.llTimeStamp, 80u);
  EXPECT_EQ(Read(ZMV_MEDIA_VIDEO).frame.llTimeStamp, 160u);
}

TEST_F(AviScan, IndexChunks_AreSkipped) {
  const ByteVector hidden = Frame(9);  // 14 bytes
  for (const char* code : {"ix00", "ix01", "idx1"}) {
    ScanBytes(Join({Frame(1), Chunk(code, hidden), Frame(2), Chunk(code, Join({hidden, Bytes({'0'})})), Frame(3)}));
    EXPECT_EQ(ReadAll(ZMV_MEDIA_VIDEO), (std::vector<ByteVector>{Payload(5, 1), Payload(5, 2), Payload(5, 3)})) << code;
  }
}

TEST_F(AviScan, Idx1OfAnExtendedFile_IsLookedInto) {
  const ByteVector bytes = Join({Frame(1), Chunk("idx1", Frame(9)), Frame(2)});
  ScanBytes(bytes);
  Reader()->m_bExtended = 1;
  EXPECT_EQ(ReadAll(ZMV_MEDIA_VIDEO), (std::vector<ByteVector>{Payload(5, 1), Payload(5, 9), Payload(5, 2)}));
}

TEST_F(AviScan, OtherChunks_AreLookedInto) {
  // Junk, a stream that there is not, and a type that holds no frames: behind the header scanning goes on.
  for (const char* code : {"JUNK", "02dc", "99wb", "00tx", "01pc"}) {
    ScanBytes(Join({Text(code), Le32(15), Bytes({'.'}), Frame(7), Frame(8)}));
    EXPECT_EQ(ReadAll(ZMV_MEDIA_VIDEO), (std::vector<ByteVector>{Payload(5, 7), Payload(5, 8)})) << code;
  }
  // One byte is skipped behind the header of the last kind, none behind the others.
  ScanBytes(Join({Text("01pc"), Le32(0), Text("00dc"), Le32(2), Payload(2)}));
  EXPECT_TRUE(ReadAll(ZMV_MEDIA_VIDEO).empty());
  ScanBytes(Join({Text("02dc"), Le32(0), Text("00dc"), Le32(2), Payload(2)}));
  EXPECT_EQ(ReadAll(ZMV_MEDIA_VIDEO).size(), 1u);
}

TEST_F(AviScan, RecordLists_AreEntered) {
  ScanBytes(Join({List("rec ", Join({Frame(1), Chunk("01wb", Payload(3))})), List("rec ", Frame(2))}));
  EXPECT_EQ(ReadAll(ZMV_MEDIA_VIDEO), (std::vector<ByteVector>{Payload(5, 1), Payload(5, 2)}));
}

TEST_F(AviScan, FurtherRiffForms_AreEntered) {
  ScanBytes(Join({Frame(1), Riff("AVIX", List("movi", Join({Frame(2), Frame(3)})))}));
  EXPECT_EQ(ReadAll(ZMV_MEDIA_VIDEO), (std::vector<ByteVector>{Payload(5, 1), Payload(5, 2), Payload(5, 3)}));
}

TEST_F(AviScan, AllKindsOfFrames_AreTaken) {
  ScanBytes(Join({Chunk("00db", Payload(2, 1)), Chunk("00dc", Payload(2, 2)), Chunk("00wb", Payload(2, 3))}));
  EXPECT_EQ(ReadAll(ZMV_MEDIA_VIDEO).size(), 3u);
}

TEST_F(AviScan, StrayRunBetweenChunks_IsPassedOver) {
  for (const char* stray : {"x", "0", "00", "00d", "garbage 12 00d1 dc00 ", "LIS", "ix", "rec rec "}) {
    ScanBytes(Join({Frame(1), Text(stray), Bytes({0}), Frame(2)}));
    EXPECT_EQ(ReadAll(ZMV_MEDIA_VIDEO), (std::vector<ByteVector>{Payload(5, 1), Payload(5, 2)})) << stray;
  }
}

TEST_F(AviScan, EveryCut_LeavesTheCompleteFrames) {
  AviSpec file = Interleaved(10);
  file.has_index = false;
  Load(file);
  const std::vector<std::vector<AVIReaderIndexEntry>> index = index_;
  const uint32_t first = Reader()->m_dwDataPos;
  const ByteVector whole = BuildAvi(file);
  for (uint32_t size = first; size <= whole.size(); ++size) {
    ScanBytes(ByteVector(whole.begin(), whole.begin() + size));
    for (uint32_t number : {0u, 1u}) {
      StartAt(first);
      const uint32_t media = number == 0 ? ZMV_MEDIA_VIDEO : ZMV_MEDIA_AUDIO;
      std::vector<ByteVector> expected;
      for (const AVIReaderIndexEntry& entry : index[number]) {
        const uint32_t begin = entry.m_dwPos + 8;
        if (entry.m_dwSize == 0 || begin + entry.m_dwSize > size) continue;
        expected.emplace_back(whole.begin() + begin, whole.begin() + begin + entry.m_dwSize);
      }
      ASSERT_EQ(ReadAll(media), expected) << "cut at " << size;
    }
  }
}

TEST_F(AviScan, DataThatGrows_IsSearchedByteByByte) {
  // A chunk that is not complete yet, and one inside it that is.
  ScanBytes(Join({Text("00dc"), Le32(1000), Frame(1)}));
  Reader()->m_dwFileSize += 1000;
  EXPECT_EQ(Read(ZMV_MEDIA_VIDEO).data, Payload(5, 1));
  EXPECT_EQ(Read(ZMV_MEDIA_VIDEO).code, ZMV_E_END);
  ScanBytes(Join({Zeros(5000), Frame(1)}));
  Reader()->m_dwFileSize += 1000;
  EXPECT_EQ(Read(ZMV_MEDIA_VIDEO).data, Payload(5, 1));
}

TEST_F(AviScan, DataThatHasGrown_IsFound) {
  ScanBytes(Join({Frame(1), Frame(2), Frame(3)}));
  Present(16);
  EXPECT_EQ(Read(ZMV_MEDIA_VIDEO).data, Payload(5, 1));
  EXPECT_EQ(Read(ZMV_MEDIA_VIDEO).code, ZMV_E_END);
  EXPECT_EQ(PlaceOf(0).position, 14u) << "in front of what may become a code";
  Present(42);
  EXPECT_EQ(ReadAll(ZMV_MEDIA_VIDEO), (std::vector<ByteVector>{Payload(5, 2), Payload(5, 3)}));
}

// Every read of the host fails once: at most one frame is lost, and no wrong one comes.
TEST_F(AviScan, EveryFailedRead_LosesAtMostOneFrame) {
  const AviSpec file = Interleaved();
  const std::vector<ByteVector> whole = FramesOf(file, "00dc");
  for (uint32_t cache : {0u, 64u, 1024u}) {
    cache_size_ = cache;
    for (uint64_t nth = 1, reads = nth; reads >= nth; ++nth) {
      Load(file);
      Scan();
      const uint64_t before = host_.Count(HostCall::kRead);
      host_.Fail(HostCall::kRead, nth);
      uint32_t failures = 0;
      size_t expected = 0;
      for (ReadResult frame = Read(ZMV_MEDIA_VIDEO); frame.code != ZMV_E_END; frame = Read(ZMV_MEDIA_VIDEO)) {
        if (frame.code != 0) {
          EXPECT_EQ(frame.code, ZMV_E_READ);
          ++failures;
          continue;
        }
        if (expected < whole.size() && frame.data != whole[expected]) ++expected;
        ASSERT_LT(expected, whole.size());
        ASSERT_EQ(frame.data, whole[expected++]);
      }
      EXPECT_LE(failures, 1u);
      EXPECT_GE(expected + failures, whole.size());
      reads = host_.Count(HostCall::kRead) - before;
      host_.ClearFailures();
    }
  }
}

TEST_F(AviScan, FindStreamFrame_MakesTheChunkPending) {
  ScanBytes(Join({Frame(1), Frame(2)}));
  EXPECT_EQ(AVIReaderFindStreamFrame(Reader(), &Stream(0)), 0);
  EXPECT_EQ(PlaceOf(0),
            (ReadingPlace{.frame = 1, .bytes = 0, .pending = 5, .position = 13, .entry = 0, .cursor = 8, .pad = 1}));
  EXPECT_EQ(AVIReaderFindStreamFrame(Reader(), &Stream(0)), 0);
  EXPECT_EQ(Read(ZMV_MEDIA_VIDEO).data, Payload(5, 2));
  EXPECT_EQ(Code(AVIReaderFindStreamFrame(Reader(), &Stream(0))), ZMV_E_END);
  AVIReaderStream empty{};
  EXPECT_EQ(Code(AVIReaderFindStreamFrame(Reader(), &empty)), ZMV_E_FAIL);
  EXPECT_EQ(Code(AVIReaderFindStreamFrame(Reader(), nullptr)), ZMV_E_FAIL);
  EXPECT_EQ(Code(AVIReaderFindStreamFrame(nullptr, &Stream(0))), ZMV_E_FAIL);
}

// Files that look like frames all over and hold none, or very small ones.
TEST_F(AviScan, HostileFiles_AreReadOnce) {
  constexpr size_t kSize = 200000;
  const ByteVector patterns[] = {Join({Text("00dc"), Le32(0)}),
                                 Join({Text("z00tx"), Le32(0)}),
                                 Join({Text("05dc"), Le32(0)}),
                                 Join({Text("LIST"), Zeros(8)}),
                                 Text("0"),
                                 Text("00d"),
                                 Join({Zeros(2048), Bytes({1})}),
                                 Join({Text("ix00"), Le32(0)}),
                                 Join({Text("00dc"), Le32(1), Text("..")}),
                                 Join({Text(".JUNK"), Le32(7)}),
                                 Join({Text("01wb"), Le32(1)}),
                                 Zeros(1),
                                 Join({Text("00dc"), Le32(0x100000)}),
                                 Join({Bytes({0}), Text("00dc")})};
  for (const ByteVector& pattern : patterns) {
    ByteVector bytes;
    while (bytes.size() < kSize) bytes = bytes.empty() ? pattern : Join({bytes, bytes});
    ScanBytes(bytes);
    host_.trace_level = 0;
    host_.ClearRecords();
    uint32_t ends = 0;
    for (uint32_t calls = 0; ends < 3; ++calls) {
      ASSERT_LT(calls, bytes.size());
      if (Read(ZMV_MEDIA_VIDEO).code != 0) ++ends;
    }
    // What is read ahead is small, and is read again at most a few times.
    EXPECT_LT(BytesRead(), 8 * bytes.size() + 8192) << Difference(pattern, {});
    EXPECT_LT(host_.Count(HostCall::kRead), bytes.size());
  }
}

}  // namespace
}  // namespace zmv::test

// Damaged files and failing hosts: opening and describing end with a code, leak nothing and take no longer than the
// file is.
#include "tests/avi/avi_reader_test.h"

namespace zmv::test {
namespace {

class AviHostile : public AviReaderTest {
 protected:
  // A file with everything in it.
  static ByteVector FullFile(bool odml) {
    AviStream audio = AacStream();
    audio.format.push_back(0x77);  // odd
    AviStream overlay = VideoStream(25000, 1000, "DXSB");
    AviSpec file;
    file.streams = {VideoStream(), PcmStream(), audio, TextStream(), overlay};
    file.headers = Join({List("INFO", Chunk("ISFT", Text("V1"))), List("odml", Chunk("dmlh", ByteVector(4))),
                         Chunk("JUNK", ByteVector(3, 1), odml), Chunk("JUNK", Text("ADAS12345"))});
    const std::vector<AviChunk> chunks = {{"00dc", ByteVector(10)},   {"01wb", ByteVector(8)},
                                          {"02wb", ByteVector(3)},    {"03tx", ByteVector(4)},
                                          {"00dc", ByteVector(5), 0}, {"01wb", ByteVector(8)}};
    if (odml) {
      file.streams.resize(3);
      return BuildOpenDml(file, {{chunks[0], chunks[1], chunks[2]}, {chunks[4], chunks[5]}});
    }
    file.chunks = chunks;
    return BuildAvi(file);
  }
  // Opens and describes the file at hand.
  uint32_t Run() {
    uint8_t extra[6];
    info_->pExtraHeader = extra;
    info_->dwExtraHeaderSize = sizeof extra;
    if (ZMVStreamBuf_Open(&stream_, "a.avi", 0, ZMV_STREAM_READ) != 0) return ZMV_E_OPEN;
    uint32_t code = Code(AVIReaderOpen(&reader_, stream_));
    if (code == 0) AVIReaderIsValidInfo(reader_);
    if (code == 0) code = GetInfo();
    EXPECT_LE(info_->dwVideoCount, ZMV_MAX_VIDEO);
    info_->pExtraHeader = nullptr;
    return code;
  }
  // Runs on bent bytes; the walk passes every byte a few times at most.
  void RunBent(const ByteVector& bytes, size_t at) {
    host_.PutFile("a.avi", bytes);
    const uint64_t reads = host_.Count(HostCall::kRead);
    Run();
    Close();
    ASSERT_EQ(host_.LiveBlocks(), 0u) << at;
    ASSERT_LT(host_.Count(HostCall::kRead) - reads, 1500u) << at;
  }
  void Quiet() {
    host_.trace_level = 0;
    host_.record = false;
  }
};

TEST_F(AviHostile, FullFiles_AreDescribed) {
  host_.PutFile("a.avi", FullFile(false));
  EXPECT_EQ(Run(), 0u);
  EXPECT_EQ(reader_->m_dwStreamCount, 4u);
  EXPECT_EQ(Stream(0).m_dwIndexEntries, 2u);
  Close();
  host_.PutFile("a.avi", FullFile(true));
  EXPECT_EQ(Run(), 0u);
  EXPECT_EQ(reader_->m_dwStreamCount, 3u);
  EXPECT_EQ(Stream(1).m_dwIndexEntries, 2u);
}

TEST_F(AviHostile, EveryHostCallFailing_GivesACodeAndLeavesNothing) {
  for (const bool odml : {false, true}) {
    host_.PutFile("a.avi", FullFile(odml));
    for (HostCall call : {HostCall::kOpen, HostCall::kRead, HostCall::kSeek, HostCall::kMalloc, HostCall::kReAlloc}) {
      for (const auto duration : {ScriptedHost::kOnce, ScriptedHost::kForGood}) {
        bool untouched = false;
        for (uint64_t nth = 1; !untouched; ++nth) {
          ASSERT_LT(nth, 2000u);
          const uint64_t before = host_.Count(call);
          host_.Fail(call, nth, duration);
          const uint32_t code = Run();
          untouched = host_.Count(call) - before < nth;
          host_.ClearFailures();
          Close();
          ASSERT_EQ(host_.LiveBlocks(), 0u) << static_cast<int>(call) << " " << nth;
          if (untouched) {
            EXPECT_EQ(code, 0u);
          }
          // Formats say nothing of a read that fails, a count that cannot be had is 0, as a super index is none.
          if (!untouched && (call == HostCall::kOpen || call == HostCall::kReAlloc)) {
            EXPECT_NE(code, 0u) << static_cast<int>(call) << " " << nth;
          }
          host_.ClearRecords();
        }
      }
    }
  }
}

TEST_F(AviHostile, ReadsFailingOnce_FailTheCallUnlessTheyAreOfAFormat) {
  host_.PutFile("a.avi", FullFile(false));
  const ByteVector& file = host_.File("a.avi");
  for (uint64_t nth = 1;; ++nth) {
    ASSERT_LT(nth, 500u);
    Close();
    ASSERT_EQ(ZMVStreamBuf_Open(&stream_, "a.avi", 0, ZMV_STREAM_READ), 0);
    ASSERT_EQ(AVIReaderOpen(&reader_, stream_), 0);
    host_.ClearRecords();
    host_.Fail(HostCall::kRead, nth);
    const uint32_t code = GetInfo();
    const std::vector<CallRecord> reads = host_.Calls(HostCall::kRead);
    host_.ClearFailures();
    if (reads.size() < nth) break;
    if (code != 0) {
      EXPECT_EQ(code, ZMV_E_READ) << nth;
      continue;
    }
    // A read that did not matter was one of a format, of a count, or filled a cache ahead.
    const CallRecord& failed = reads[nth - 1];
    const bool in_headers = failed.position < file.size() && failed.size <= 40;
    EXPECT_TRUE(in_headers || failed.size == 4096) << nth << " at " << failed.position << " " << failed.size;
  }
}

TEST_F(AviHostile, EveryTruncation_NeitherCrashesNorLeaks) {
  Quiet();
  for (const bool odml : {false, true}) {
    const ByteVector whole = FullFile(odml);
    for (size_t size = 0; size <= whole.size(); ++size) RunBent(Front(whole, size), size);
  }
}

TEST_F(AviHostile, EveryByteBent_NeitherCrashesNorLeaks) {
  Quiet();
  for (const bool odml : {false, true}) {
    const ByteVector whole = FullFile(odml);
    for (size_t at = 0; at < whole.size(); ++at) {
      for (const int value : {0x00, 0x01, 0x7F, 0x80, 0xFF}) {
        ByteVector bent = whole;
        bent[at] = static_cast<uint8_t>(value);
        RunBent(bent, at);
      }
    }
  }
}

TEST_F(AviHostile, EveryWordBent_NeitherCrashesNorLeaks) {
  Quiet();
  for (const bool odml : {false, true}) {
    const ByteVector whole = FullFile(odml);
    for (size_t at = 0; at + 4 <= whole.size(); at += 2) {
      for (const uint32_t value : {0u, 1u, 7u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFF0u, 0xFFFFFFFFu}) {
        ByteVector bent = whole;
        const ByteVector word = Le32(value);
        std::copy(word.begin(), word.end(), bent.begin() + static_cast<ptrdiff_t>(at));
        RunBent(bent, at);
      }
    }
  }
}

TEST_F(AviHostile, ManyEmptyStreamLists_AreWalkedOnce) {
  Quiet();
  ByteVector lists;
  for (int i = 0; i < 20000; ++i) lists.insert(lists.end(), {'L', 'I', 'S', 'T', 4, 0, 0, 0, 's', 't', 'r', 'l'});
  Load(Riff("AVI ", lists));
  const uint64_t reads = host_.Count(HostCall::kRead);
  EXPECT_EQ(GetInfo(), 0u);
  EXPECT_LT(host_.Count(HostCall::kRead) - reads, 2u * 20000 + 10);
}

TEST_F(AviHostile, SmallAllocations_AreEnoughForAFileWithoutAnIndex) {
  AviSpec file = SmallFile();
  file.has_index = false;
  Load(BuildAvi(file));
  host_.max_block = 4096;
  EXPECT_EQ(GetInfo(), 0u);
}

}  // namespace
}  // namespace zmv::test

// Every host call and every allocation of a recording made to fail in turn, once and for good.
#include "tests/avi/writer_test.h"

namespace zmv::test {
namespace {

class AviFaults : public AviWriterTest {
 protected:
  struct Outcome {
    std::vector<int32_t> results;  // of SetInfo and of every frame
    bool opened = false;
  };

  void Describe() {
    info = {};
    AddVideo();
    AddAudio(ZMV_AUDIO_AAC);
    AddText();
    Software("camera");
    info.pStreamName = name_;
    info.pExtraHeader = extra_;
    info.dwExtraHeaderSize = sizeof extra_;
  }
  // A recording with frames of all kinds and sizes, odd ones too.
  Outcome Record() {
    Outcome outcome;
    Describe();
    if (stream == nullptr && ZMVStreamBuf_Open(&stream, kPath, 0, ZMV_STREAM_WRITE) != 0) return outcome;
    outcome.opened = Open() == 0;
    if (outcome.opened) {
      outcome.results.push_back(SetInfo());
      for (uint64_t i = 0; i < 4; ++i) {
        outcome.results.push_back(WriteVideo(1001 + 500 * i, i * 40, 1));
        outcome.results.push_back(WriteAudio(300 + i, i * 21));
        outcome.results.push_back(WriteText(33, i * 100));
      }
    }
    Close();
    return outcome;
  }
  static bool Known(int32_t result) {
    const uint32_t code = static_cast<uint32_t>(result);
    return code == 0 || code == 0xFFFFFFFF || code == ZMV_E_FAIL || code == ZMV_E_MEMORY || code == ZMV_E_WRITE ||
           code == ZMV_E_SEEK;
  }

 private:
  char name_[6] = "front";
  uint8_t extra_[5] = {'A', 'D', 'A', 'S', 1};
};

TEST_F(AviFaults, EveryHostCall_FailsOnce_AndForGood) {
  Record();
  const ByteVector untouched = File();
  for (const HostCall call :
       {HostCall::kWrite, HostCall::kSeek, HostCall::kSize, HostCall::kMalloc, HostCall::kReAlloc}) {
    for (const ScriptedHost::Duration duration : {ScriptedHost::kOnce, ScriptedHost::kForGood}) {
      uint64_t failed = 0;
      for (uint64_t nth = 1;; ++nth) {
        const uint64_t before = host.Count(call);
        host.ClearRecords();
        host.Fail(call, nth, duration);
        const Outcome outcome = Record();
        host.ClearFailures();
        ASSERT_THAT(host.LiveList(), ::testing::IsEmpty()) << nth;
        for (const int32_t result : outcome.results) ASSERT_TRUE(Known(result)) << result;
        if (host.Count(call) - before < nth) {
          EXPECT_EQ(Difference(File(), untouched), "");
          break;
        }
        ++failed;
      }
      EXPECT_GT(failed, 0u) << static_cast<int>(call);
    }
  }
}

// Whatever one write does, each frame that was accepted stands where the index says, and the list's size is right.
TEST_F(AviFaults, OneFailedWriteAmongTheFrames_LeavesTheOthersWhereTheIndexSays) {
  for (uint64_t nth = 1;; ++nth) {
    Describe();
    Start();
    const uint32_t movi = writer->m_dwMoviSizePos + 4;
    const uint64_t before = host.Count(HostCall::kWrite);
    host.Fail(HostCall::kWrite, nth);
    std::vector<uint32_t> sizes;
    for (uint64_t i = 0; i < 4; ++i) {
      const uint32_t size = static_cast<uint32_t>(1001 + 500 * i);
      if (WriteVideo(size, i * 40, 1) == 0) sizes.push_back(size);
      if (WriteAudio(300 + i, i * 21) == 0) sizes.push_back(static_cast<uint32_t>(300 + i));
    }
    const bool failed = host.Count(HostCall::kWrite) - before >= nth;
    host.ClearFailures();
    EXPECT_EQ(sizes.size(), failed ? 7u : 8u);
    Close();
    const size_t idx1 = Find(File(), "idx1");
    ASSERT_EQ(Le32At(File(), idx1 + 4), sizes.size() * 16);
    EXPECT_EQ(movi + Le32At(File(), movi - 4), idx1);
    size_t at = 4;
    for (size_t i = 0; i < sizes.size(); ++i) {
      const size_t entry = idx1 + 8 + i * 16;
      ASSERT_EQ(Le32At(File(), entry + 8), at);
      ASSERT_EQ(Le32At(File(), entry + 12), sizes[i]);
      ASSERT_EQ(Difference(Part(File(), movi + at, 4), Part(File(), entry, 4)), "");
      ASSERT_EQ(Le32At(File(), movi + at + 4), sizes[i]);
      at += 8 + sizes[i] + sizes[i] % 2;
    }
    EXPECT_EQ(movi + at, idx1);
    if (!failed) break;
  }
}

TEST_F(AviFaults, FailedSetInfo_ReturnsTheWritesCodeAtEveryWrite) {
  for (uint64_t nth = 1;; ++nth) {
    Describe();
    ASSERT_EQ(Open(), 0);
    host.ClearRecords();
    host.Fail(HostCall::kWrite, nth);
    const int32_t result = SetInfo();
    host.ClearFailures();
    if (result == 0) {
      EXPECT_EQ(host.Calls(HostCall::kWrite).size() + 1, nth);
      EXPECT_GT(nth, 15u);
      break;
    }
    EXPECT_EQ(static_cast<uint32_t>(result), ZMV_E_WRITE) << nth;
    EXPECT_EQ(host.Traces(1).back(), "err (0x80000013)\n");
    EXPECT_EQ(host.Calls(HostCall::kWrite).size(), nth);  // and nothing was written after it
    EXPECT_EQ(writer->m_dwMoviSize, 0u);
    Close();
  }
}

TEST_F(AviFaults, FailedSetInfo_WithoutMemory_GivesTheCodeForIt) {
  for (uint64_t nth = 1;; ++nth) {
    Describe();
    ASSERT_EQ(Open(), 0);
    host.Fail(HostCall::kMalloc, nth);
    const int32_t result = SetInfo();
    host.ClearFailures();
    Close();
    if (result == 0) {
      EXPECT_EQ(nth, 6u);  // three streams, a name, the index
      break;
    }
    EXPECT_EQ(static_cast<uint32_t>(result), ZMV_E_MEMORY) << nth;
  }
}

// Without memory for the index the list stands already, so the file can be closed.
TEST_F(AviFaults, SetInfo_WithoutMemoryForTheIndex_LeavesAFileThatCloses) {
  AddVideo();
  ASSERT_EQ(Open(60000), 0);
  host.Fail(HostCall::kMalloc, 2);
  EXPECT_EQ(static_cast<uint32_t>(SetInfo()), ZMV_E_MEMORY);
  EXPECT_EQ(WriteVideo(4), 0);
  CloseWriter();
  EXPECT_EQ(Le32At(File(), Find(File(), "idx1") + 4), 16u);
}

// The headers at the front are never written over by what follows a failed seek.
TEST_F(AviFaults, StreamThatCannotSeek_WritesOnlyAtTheEnd) {
  AddVideo();
  Start();
  EXPECT_EQ(WriteVideo(4, 10), 0);
  const ByteVector before = File();
  stream->Seek = [](void*, uint32_t, uint32_t) -> int64_t { return Result(ZMV_E_SEEK); };
  CloseWriter();
  EXPECT_EQ(Difference(Part(File(), 0, before.size()), before), "");
  EXPECT_EQ(File().size(), before.size() + 8 + 16 + 328);
}

// Without fill chunk the file ends behind the chunk with its name, but for what a chunk left there that failed.
TEST_F(AviFaults, PiecesOfAFailedChunk_AreCoveredWithoutFillChunkToo) {
  AddVideo();
  NoFill();
  Start();
  ASSERT_EQ(WriteVideo(10), 0);
  const size_t movi_end = MoviEnd();
  host.ClearRecords();
  host.Fail(HostCall::kWrite, 3);  // the pad, behind header and payload
  EXPECT_EQ(static_cast<uint32_t>(WriteVideo(5001, 40)), ZMV_E_FAIL);
  host.ClearFailures();
  CloseWriter();
  const ByteVector& file = File();
  const size_t cover = movi_end + 8 + 16 + 8 + 320;  // idx1 with one entry, the name chunk
  ASSERT_GT(file.size(), cover + 8);
  EXPECT_EQ(Part(file, cover, 4), Text("JUNK"));
  EXPECT_EQ(Le32At(file, cover + 4), file.size() - cover - 8);
  EXPECT_EQ(Le32At(file, 4), file.size() - 8);
}

// Entries without their header would be taken for chunks.
TEST_F(AviFaults, IndexHeaderThatFails_IsTriedOnceMore) {
  for (const ScriptedHost::Duration duration : {ScriptedHost::kOnce, ScriptedHost::kForGood}) {
    info = {};
    AddVideo();
    NoFill();
    Start();
    ASSERT_EQ(WriteVideo(10), 0);
    const size_t movi_end = MoviEnd();
    host.ClearRecords();
    host.Fail(HostCall::kWrite, 1, duration);
    CloseWriter();
    host.ClearFailures();
    if (duration == ScriptedHost::kOnce) {
      EXPECT_EQ(Part(File(), movi_end, 8), Join({Text("idx1"), Le32(16)}));
      EXPECT_EQ(Part(File(), movi_end + 8, 4), Text("00dc"));
    } else {
      EXPECT_EQ(File().size(), movi_end);
    }
    Close();
  }
}

}  // namespace
}  // namespace zmv::test

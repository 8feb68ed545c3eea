#include "recover/recover_replay_stream.h"

#include "recover/recover_tables.h"
#include "tests/recover/recovery_test.h"
#include "tests/recover/sparse_file.h"

namespace zmv::test {
namespace {

using recover::ReplayStream;

class ReplayStreamTest : public RecoveryTest {
 protected:
  ReplayStreamTest() {
    EXPECT_EQ(stream_.Prepare(), 0);
    EXPECT_EQ(ZMVStreamBuf_Index(stream_.Handle(), &writes_, 0), 0);
    EXPECT_EQ(ZMVStreamBuf_Index(stream_.Handle(), &reads_, 0), 0);
  }
  int64_t Write(const ByteVector& bytes) {
    return ZMVStreamBuf_WriteBuffer(stream_.Handle(), writes_, bytes.data(), static_cast<uint32_t>(bytes.size()));
  }
  void MoveTo(uint32_t position) { EXPECT_EQ(ZMVStreamBuf_Seek(stream_.Handle(), writes_, position), 0); }

  LogFile file_{ByteVector(1000, 0x11)};
  ReplayStream stream_{file_};
  uint32_t writes_ = 9;
  uint32_t reads_ = 9;
};

TEST_F(ReplayStreamTest, Swallowed_MovesTheCursorAlone) {
  EXPECT_EQ(Write(ByteVector(300, 1)), 300);
  EXPECT_EQ(ZMVStreamBuf_Pos(stream_.Handle(), writes_), 300u);
  EXPECT_EQ(stream_.Settle(false), 0);
  EXPECT_EQ(Difference(file_.bytes(), ByteVector(1000, 0x11)), "");
}

TEST_F(ReplayStreamTest, Appended_FirstSectorIsOnTheMediumBeforeTheRest) {
  stream_.WriteFrom(1000);
  EXPECT_EQ(Write(ByteVector(2000, 2)), 2000);
  EXPECT_EQ(ZMVStreamBuf_GetFileSize(stream_.Handle()), 3000);
  EXPECT_EQ(stream_.Settle(false), 0);
  ASSERT_EQ(file_.log().size(), 4u);
  EXPECT_EQ(file_.log()[0].bytes.size(), 24u);  // to the end of its sector
  EXPECT_EQ(file_.log()[1].kind, LogFile::Kind::kSync);
  EXPECT_EQ(file_.log()[2].bytes.size(), 1976u);
  EXPECT_EQ(file_.log()[3].kind, LogFile::Kind::kSync);
}

TEST_F(ReplayStreamTest, Patches_ComeLastFromTheEndToTheBeginning) {
  stream_.WriteFrom(1000);
  Write(ByteVector(100, 2));
  for (const uint32_t position : {500u, 1040u, 0u}) {
    MoveTo(position);
    EXPECT_EQ(Write({1, 2, 3, 4}), 4);
  }
  EXPECT_EQ(stream_.Settle(false), 0);
  const size_t settled = file_.log().size();
  EXPECT_EQ(file_.bytes()[500], 0x11);
  EXPECT_EQ(stream_.Commit(), 0);
  ASSERT_EQ(file_.log().size(), settled + 6);
  for (size_t i = 0; i < 3; ++i) {
    EXPECT_EQ(file_.log()[settled + 2 * i].position, (std::vector<uint64_t>{1040, 500, 0})[i]);
    EXPECT_EQ(file_.log()[settled + 2 * i + 1].kind, LogFile::Kind::kSync);
  }
}

TEST_F(ReplayStreamTest, PatchThatChangesNothing_IsLeftOut) {
  stream_.WriteFrom(1000);
  MoveTo(0);
  Write(ByteVector(4, 0x11));
  EXPECT_TRUE(stream_.Holds());
  EXPECT_EQ(stream_.Commit(), 0);
  EXPECT_TRUE(file_.log().empty());
}

TEST_F(ReplayStreamTest, Cut_DropsWhatLiesBehind) {
  stream_.WriteFrom(100);
  Write(ByteVector(10, 2));
  EXPECT_EQ(stream_.Settle(true), 0);
  EXPECT_EQ(file_.bytes().size(), 110u);
}

// A free box at the end of a file needs a header, and its end a position.
TEST_F(ReplayStreamTest, SizeThatABoxCanCover_IsWhatTheWriterIsTold) {
  struct Case {
    uint64_t size;
    uint32_t end;
    uint64_t told;
  };
  constexpr uint64_t kLargest = 0xFFFFFFFF;
  const Case cases[] = {
      {1000, 1000, 1000},
      {1000, 1004, 1004},
      {100000, 1000, 100000},
      {kLargest, 1000, kLargest},
      {kLargest + 1, 1000, kLargest},
      {uint64_t{1} << 40, 1000, kLargest},
      {kLargest + 1, 0xFFFFFFF7, kLargest},
      {kLargest + 1, 0xFFFFFFF8, 0xFFFFFFF8},
      {kLargest, 0xFFFFFFFE, 0xFFFFFFFE},
  };
  for (const Case& with : cases) {
    SparseFile file(ByteVector(1000, 1), with.size);
    ReplayStream stream(file);
    ASSERT_EQ(stream.Prepare(), 0);
    stream.WriteFrom(with.end);
    EXPECT_EQ(ZMVStreamBuf_GetFileSize(stream.Handle()), static_cast<int64_t>(with.told))
        << with.size << " " << with.end;
  }
}

// The box that the writer writes when it knows the file's size tells, whatever the size was.
TEST_F(ReplayStreamTest, WhatTheLastBoxDoesNotCover_Goes) {
  struct Case {
    uint64_t size;
    ByteVector box;
    uint64_t expected;
  };
  const Case cases[] = {
      {5000, Join({Be32(4000), Text("free")}), 5000},  // all is covered
      {5000, Join({Be32(3000), Text("free")}), 4000},
      {5000, Join({Be32(8), Text("free")}), 1008},
      {5000, {}, 1000},
      {1002, Join({Be32(8), Text("free")}), 1008},
      {uint64_t{1} << 33, Join({Be32(0xFFFFFFFF - 1000), Text("free")}), 0xFFFFFFFF},
  };
  for (const Case& with : cases) {
    SparseFile file(ByteVector(900, 1), with.size);
    ReplayStream stream(file);
    ASSERT_EQ(stream.Prepare(), 0);
    stream.WriteFrom(900);
    EXPECT_EQ(stream.Append(ByteVector(100, 2).data(), 100), 0);
    ZMVStreamBuf_GetFileSize(stream.Handle());
    EXPECT_EQ(stream.Append(with.box.data(), static_cast<uint32_t>(with.box.size())), 0);
    EXPECT_EQ(stream.Settle(false), 0);
    EXPECT_EQ(file.Size(), with.expected);
    EXPECT_EQ(file.log().back().kind, SparseFile::Kind::kSync);
  }
}

TEST_F(ReplayStreamTest, ReadsWhatWasAppended) {
  stream_.WriteFrom(1000);
  Write(Text("tables"));
  char back[7] = {};
  ASSERT_EQ(ZMVStreamBuf_Seek(stream_.Handle(), reads_, 998), 0);
  EXPECT_EQ(ZMVStreamBuf_ReadBuffer(stream_.Handle(), reads_, back, 6), 6);
  EXPECT_EQ(std::string(back + 2), "tabl");
  EXPECT_EQ(static_cast<uint32_t>(ZMVStreamBuf_ReadBuffer(stream_.Handle(), reads_, back, 6)), ZMV_E_READ);
}

TEST_F(ReplayStreamTest, Failure_Stays) {
  file_.fail_at = 1;
  stream_.WriteFrom(1000);
  EXPECT_EQ(Write(ByteVector(100000, 1)), int64_t{Result(ZMV_E_WRITE)});
  file_.fail_at = 0;
  EXPECT_EQ(static_cast<uint32_t>(Write({1})), ZMV_E_WRITE);
  EXPECT_EQ(static_cast<uint32_t>(stream_.Settle(false)), ZMV_E_WRITE);
  EXPECT_EQ(static_cast<uint32_t>(stream_.Commit()), ZMV_E_WRITE);
  EXPECT_TRUE(file_.log().empty());
}

TEST_F(ReplayStreamTest, Beyond4GiB_IsRefused) {
  stream_.WriteFrom(0xFFFFFFF0);
  EXPECT_EQ(Write(ByteVector(15, 1)), 15);
  EXPECT_EQ(static_cast<uint32_t>(Write({1})), ZMV_E_WRITE);
}

TEST_F(ReplayStreamTest, OtherUses_AreRefused) {
  uint32_t third = 0;
  EXPECT_EQ(static_cast<uint32_t>(ZMVStreamBuf_Index(stream_.Handle(), &third, 0)), ZMV_E_MEMORY);
  EXPECT_EQ(static_cast<uint32_t>(ZMVStreamBuf_WriteBuffer(stream_.Handle(), reads_, "x", 1)), ZMV_E_NOT_SUPPORTED);
  EXPECT_EQ(static_cast<uint32_t>(ZMVStreamBuf_Seek(stream_.Handle(), 5, 1)), ZMV_E_SEEK);
  stream_.WriteFrom(1000);
  MoveTo(10);
  EXPECT_EQ(static_cast<uint32_t>(Write(ByteVector(5, 1))), ZMV_E_NOT_SUPPORTED);
}

// A source that hands out what its name says.
class Letters final : public recover::NamedBytes::Source {
 public:
  int32_t Generate(const void* name, recover::Output& output) override {
    const std::string text(count, *static_cast<const char*>(name));
    return output.Append(text.data(), static_cast<uint32_t>(text.size()));
  }
  size_t count = 5;
};

TEST_F(ReplayStreamTest, Named_IsGenerated) {
  Letters letters;
  const char a = 'a', b = 'b';
  stream_.Named().Set(&letters, &a, &b);
  stream_.WriteFrom(1000);
  Write(Text("<"));
  EXPECT_EQ(ZMVStreamBuf_WriteBuffer(stream_.Handle(), writes_, &b, 5), 5);
  EXPECT_EQ(ZMVStreamBuf_WriteBuffer(stream_.Handle(), writes_, &a, 5), 5);
  EXPECT_EQ(stream_.Settle(false), 0);
  EXPECT_EQ(ByteVector(file_.bytes().begin() + 1000, file_.bytes().end()), Text("<bbbbbaaaaa"));
  letters.count = 4;
  EXPECT_EQ(static_cast<uint32_t>(ZMVStreamBuf_WriteBuffer(stream_.Handle(), writes_, &a, 5)), ZMV_E_READ);
}

TEST_F(ReplayStreamTest, ResizedTables_HoldWholeEntries) {
  ZMVStreamBuf* out = nullptr;
  MP4WriterHandle* writer = nullptr;
  const ZMVFileInfo info = SmallInfo(FourCC("H264"));
  ASSERT_EQ(ZMVStreamBuf_Open(&out, "tables.mp4", 0, ZMV_STREAM_WRITE), 0);
  ASSERT_EQ(MP4WriterOpen(&writer, out, 1, 1), 0);
  ASSERT_EQ(MP4WriterSetInfo(writer, &info, 0), 0);
  ASSERT_EQ(recover::ResizeTables(*writer, recover::kTableBytes), 0);
  for (uint32_t i = 0; i < writer->m_dwTrackNum; ++i) {
    const MP4WriterTrack& track = *writer->m_pTrack[i];
    for (const MP4WriterTable* table : {&track.m_Stts, &track.m_Stsz, &track.m_Stco}) {
      EXPECT_EQ(table->m_dwBufSize, recover::kTableBytes);
      EXPECT_EQ(table->m_pPos, table->m_pBuf);
    }
    EXPECT_EQ(track.m_Stss.m_pBuf != nullptr, track.dwMediaType == ZMV_MEDIA_VIDEO);
  }
  static_assert(recover::kTableBytes % recover::kSmallestTableBytes == 0);
  host_.Fail(HostCall::kMalloc, 3);
  EXPECT_EQ(static_cast<uint32_t>(recover::ResizeTables(*writer, 48)), ZMV_E_MEMORY);
  MP4WriterClose(writer);
  ZMVStreamBuf_Close(out);
  host_.ClearFailures();
}

}  // namespace
}  // namespace zmv::test

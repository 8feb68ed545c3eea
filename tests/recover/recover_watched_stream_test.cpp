#include "recover/recover_watched_stream.h"

#include "tests/recover/recovery_test.h"

namespace zmv::test {
namespace {

class WatchedStreamTest : public RecoveryTest {
 protected:
  WatchedStreamTest() {
    EXPECT_EQ(ZMVStreamBuf_Open(&stream_, "watched.mp4", 0, ZMV_STREAM_WRITE), 0);
    watched_.Attach(*stream_);
    EXPECT_EQ(ZMVStreamBuf_Index(stream_, &writes_, 0), 0);
    EXPECT_EQ(ZMVStreamBuf_Index(stream_, &reads_, 0), 0);
  }
  ~WatchedStreamTest() override {
    watched_.Detach();
    ZMVStreamBuf_Close(stream_);
    EXPECT_THAT(host_.LiveList(), testing::IsEmpty());
  }
  int64_t Write(const ByteVector& bytes) {
    return ZMVStreamBuf_WriteBuffer(stream_, writes_, bytes.data(), static_cast<uint32_t>(bytes.size()));
  }
  uint32_t Code() const { return static_cast<uint32_t>(watched_.Result()); }
  const ByteVector& File() { return host_.File("watched.mp4"); }

  ZMVStreamBuf* stream_ = nullptr;
  recover::WatchedStream watched_;
  uint32_t writes_ = 9;
  uint32_t reads_ = 9;
};

TEST_F(WatchedStreamTest, EverythingReachesTheProvider) {
  EXPECT_EQ(Write(Text("0123456789")), 10);
  EXPECT_EQ(ZMVStreamBuf_Seek(stream_, writes_, 2), 0);
  EXPECT_EQ(ZMVStreamBuf_Skip(stream_, writes_, 3), 0);
  EXPECT_EQ(ZMVStreamBuf_Pos(stream_, writes_), 5u);
  EXPECT_EQ(Write(Text("x")), 1);
  EXPECT_EQ(ZMVStreamBuf_SeekEnd(stream_, writes_, -1), 0);
  EXPECT_EQ(Write(Text("yz")), 2);
  EXPECT_EQ(File(), Text("01234x678yz"));
  EXPECT_EQ(ZMVStreamBuf_Size(stream_), 11);
  EXPECT_EQ(ZMVStreamBuf_CurSize(stream_), 11);
  EXPECT_EQ(ZMVStreamBuf_GetFileSize(stream_), 11);
  EXPECT_STREQ(ZMVStreamBuf_GetName(stream_), "watched.mp4");
  EXPECT_EQ(ZMVStreamBuf_Release(stream_, reads_), 0);
  EXPECT_EQ(ZMVStreamBuf_SetSync(stream_, 1), 0);
  watched_.Detach();
  ZMVStreamBuf_Close(stream_);
  stream_ = nullptr;
  EXPECT_EQ(host_.Count(HostCall::kSync), 1u);
  EXPECT_EQ(watched_.Result(), 0);
}

TEST_F(WatchedStreamTest, FailedWrite_StaysAndNothingIsWrittenBehindIt) {
  EXPECT_EQ(Write(Text("head")), 4);
  host_.Fail(HostCall::kWrite, 1);
  EXPECT_EQ(Write(Text("lost")), int64_t{Result(ZMV_E_WRITE)});
  EXPECT_EQ(Write(Text("more")), int64_t{Result(ZMV_E_WRITE)});
  EXPECT_EQ(File(), Text("head"));
  EXPECT_EQ(Code(), ZMV_E_WRITE);
}

TEST_F(WatchedStreamTest, WriteInPart_HasFailed) {
  host_.file_capacity = 6;
  EXPECT_EQ(Write(Text("head")), 4);
  EXPECT_EQ(Write(Text("tail")), int64_t{Result(ZMV_E_WRITE)});
  EXPECT_EQ(Code(), ZMV_E_WRITE);
}

TEST_F(WatchedStreamTest, WriteOfNothing_HasFailed) {
  host_.write_result = 0;
  EXPECT_EQ(Write(Text("head")), int64_t{Result(ZMV_E_WRITE)});
  EXPECT_EQ(Code(), ZMV_E_WRITE);
}

TEST_F(WatchedStreamTest, ReadInPart_IsCarriedThrough) {
  Write(Text("0123456789"));
  host_.max_transfer = 3;
  char back[9] = {};
  ASSERT_EQ(ZMVStreamBuf_Seek(stream_, reads_, 1), 0);
  EXPECT_EQ(ZMVStreamBuf_ReadBuffer(stream_, reads_, back, 8), 8);
  EXPECT_STREQ(back, "12345678");
  EXPECT_EQ(watched_.Result(), 0);
}

TEST_F(WatchedStreamTest, ReadBeyondTheEnd_Fails) {
  Write(Text("0123456789"));
  char back[9] = {};
  ASSERT_EQ(ZMVStreamBuf_Seek(stream_, reads_, 5), 0);
  EXPECT_EQ(ZMVStreamBuf_ReadBuffer(stream_, reads_, back, 8), int64_t{Result(ZMV_E_READ)});
  EXPECT_EQ(Code(), ZMV_E_READ);
}

TEST_F(WatchedStreamTest, MoveThatFails_Stays) {
  EXPECT_LT(ZMVStreamBuf_Seek(stream_, writes_, 1), 0);
  EXPECT_EQ(Code(), ZMV_E_SEEK);
  EXPECT_EQ(Write(Text("head")), int64_t{Result(ZMV_E_SEEK)});
}

TEST_F(WatchedStreamTest, Detached_TheProviderIsBack) {
  host_.Fail(HostCall::kWrite, 1);
  Write(Text("lost"));
  watched_.Detach();
  EXPECT_EQ(Write(Text("kept")), 4);
  EXPECT_EQ(File(), Text("kept"));
  EXPECT_EQ(Code(), ZMV_E_WRITE);
}

// ---- Names

// Repeats what stands at the beginning of the file.
class Repeat final : public recover::NamedBytes::Source {
 public:
  int32_t Generate(const void*, recover::Output& output) override {
    for (uint32_t done = 0; done < count; done += 7) {
      char piece[7];
      if (const int32_t result = output.Read(position, piece, sizeof piece); result < 0) return result;
      if (const int32_t result = output.Append(piece, std::min<uint32_t>(7, count - done)); result < 0) return result;
    }
    return output.Result();
  }
  uint32_t count = 0;
  uint64_t position = 1;
};

class NamedBytesTest : public WatchedStreamTest {
 protected:
  NamedBytesTest() { watched_.Named().Set(&repeat_, &names_[0], &names_[1]); }
  int64_t WriteName(int which, uint32_t count) {
    return ZMVStreamBuf_WriteBuffer(stream_, writes_, &names_[which], count);
  }

  Repeat repeat_;
  const char names_[3] = {'a', 'b', 'c'};
};

TEST_F(NamedBytesTest, AreGeneratedWhereTheyAreWritten) {
  Write(Text("<1234567"));
  // More than is gathered at once.
  for (const uint32_t count : {0u, 10u, 4096u, 4097u, 20000u}) {
    repeat_.count = count;
    ASSERT_EQ(WriteName(0, count), count);
  }
  repeat_.count = 3;
  EXPECT_EQ(WriteName(1, 3), 3);
  EXPECT_EQ(WriteName(2, 1), 1);
  std::string expected = "<1234567";
  for (const uint32_t count : {10u, 4096u, 4097u, 20000u, 3u}) {
    for (uint32_t i = 0; i < count; ++i) expected += static_cast<char>('1' + i % 7);
  }
  EXPECT_EQ(Difference(File(), Text(expected + "c")), "");
  EXPECT_EQ(watched_.Result(), 0);
}

TEST_F(NamedBytesTest, OfAnotherCount_Fail) {
  Write(Text("<1234567"));
  repeat_.count = 9;
  EXPECT_EQ(WriteName(0, 10), int64_t{Result(ZMV_E_READ)});
  EXPECT_EQ(Code(), ZMV_E_READ);
  EXPECT_EQ(Write(Text("x")), int64_t{Result(ZMV_E_READ)});
}

TEST_F(NamedBytesTest, ThatCannotBeRead_Fail) {
  Write(Text("<1234567"));
  repeat_.count = 10;
  watched_.Detach();
  for (const uint64_t position : {uint64_t{2}, uint64_t{9}, uint64_t{0xFFFFFFFF}, uint64_t{1} << 40}) {
    repeat_.position = position;
    recover::WatchedStream watched;
    watched.Attach(*stream_);
    watched.Named().Set(&repeat_, &names_[0], &names_[1]);
    EXPECT_LT(WriteName(0, 10), 0) << position;
    EXPECT_LT(watched.Result(), 0) << position;
  }
  EXPECT_EQ(File(), Text("<1234567"));
}

TEST_F(NamedBytesTest, WriteThatFails_Fails) {
  Write(Text("<1234567"));
  repeat_.count = 10000;
  host_.Fail(HostCall::kWrite, 2);
  EXPECT_EQ(WriteName(0, 10000), int64_t{Result(ZMV_E_WRITE)});
  EXPECT_EQ(Code(), ZMV_E_WRITE);
  EXPECT_EQ(File().size(), 8u + 4096u);
}

}  // namespace
}  // namespace zmv::test

#include <fcntl.h>
#include <gmock/gmock.h>
#include <stdio.h>

#include "tests/platform/posix_file_test.h"

namespace zmv::test {
namespace {

TEST_F(PosixFile, Open_MissingFileForReading_Fails) { EXPECT_EQ(ZMV_FileOpen(Path("no").c_str(), 2), nullptr); }

TEST_F(PosixFile, Open_MissingDirectoryForWriting_Fails) {
  EXPECT_EQ(ZMV_FileOpen(Path("no/file").c_str(), 9), nullptr);
  EXPECT_EQ(ZMV_FileOpen(Path("no/file").c_str(), 27), nullptr);
}

TEST_F(PosixFile, Open_Directory_Fails) {
  EXPECT_EQ(ZMV_FileOpen(directory_.c_str(), 2), nullptr);
  EXPECT_EQ(ZMV_FileOpen(directory_.c_str(), 27), nullptr);
}

TEST_F(PosixFile, Open_NullPathOrOtherFlags_Fails) {
  Put("a", "text");
  EXPECT_EQ(ZMV_FileOpen(nullptr, 2), nullptr);
  for (uint32_t flags : {0u, 1u, 3u, 8u, 25u, 0xFFFFFFFFu}) EXPECT_EQ(ZMV_FileOpen(Path("a").c_str(), flags), nullptr);
  EXPECT_EQ(Content(Path("a")), "text");
}

TEST_F(PosixFile, Open_ForWriting_TruncatesAndReadsBack) {
  for (uint32_t flags : {9u, 27u}) {
    Put("a", "old content");
    void* file = ZMV_FileOpen(Path("a").c_str(), flags);
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(ZMV_FileSize(file), 0);
    EXPECT_EQ(Write(file, "new"), 3);
    EXPECT_EQ(ZMV_FileSeek(file, 0, 0), 0);
    EXPECT_EQ(Read(file, 10), "new");
    EXPECT_EQ(ZMV_FileClose(file), 0);
    EXPECT_EQ(Content(Path("a")), "new");
  }
}

TEST_F(PosixFile, Open_Descriptors_AreNotInheritedByPrograms) {
  Put("a", "x");
  for (uint32_t flags : {2u, 27u}) {
    void* file = ZMV_FileOpen(Path("a").c_str(), flags);
    ASSERT_NE(file, nullptr);
    EXPECT_NE(fcntl(fileno(static_cast<FILE*>(file)), F_GETFD) & FD_CLOEXEC, 0);
    ZMV_FileClose(file);
  }
}

TEST_F(PosixFile, Open_AndClose_LeavesNoDescriptor) {
  Put("a", "x");
  const auto count = [] {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), std::filesystem::directory_iterator());
  };
  const auto before = count();
  for (int i = 0; i < 5; ++i) {
    ZMV_FileClose(ZMV_FileOpen(Path("a").c_str(), 2));
    ZMV_FileClose(ZMV_FileOpen(Path("b").c_str(), 27));
    EXPECT_EQ(ZMV_FileOpen(directory_.c_str(), 2), nullptr);
  }
  EXPECT_EQ(count(), before);
}

TEST_F(PosixFile, Read_AtTheEnd_GivesZeroAgainAndAgain) {
  Put("a", "abc");
  void* file = ZMV_FileOpen(Path("a").c_str(), 2);
  EXPECT_EQ(Read(file, 2), "ab");
  EXPECT_EQ(Read(file, 2), "c");
  char byte;
  EXPECT_EQ(ZMV_FileRead(file, &byte, 1), 0);
  EXPECT_EQ(ZMV_FileRead(file, &byte, 1), 0);
  EXPECT_EQ(ZMV_FileSeek(file, 1, 0), 0);
  EXPECT_EQ(Read(file, 9), "bc");
  ZMV_FileClose(file);
}

TEST_F(PosixFile, Read_OfAFileThatGrows_FindsWhatWasAdded) {
  void* writer = ZMV_FileOpen(Path("a").c_str(), 27);
  Write(writer, "first");
  ZMV_FileSync(writer);
  void* reader = ZMV_FileOpen(Path("a").c_str(), 2);
  EXPECT_EQ(Read(reader, 100), "first");
  EXPECT_EQ(Read(reader, 100), "");
  Write(writer, "second");
  ZMV_FileSync(writer);
  EXPECT_EQ(Read(reader, 100), "second");
  EXPECT_EQ(ZMV_FileSize(reader), 11);
  ZMV_FileClose(reader);
  ZMV_FileClose(writer);
}

TEST_F(PosixFile, Write_OnAFileOpenForReading_Fails) {
  Put("a", "abc");
  void* file = ZMV_FileOpen(Path("a").c_str(), 2);
  EXPECT_LT(Write(file, "x"), 1);
  ZMV_FileClose(file);
  EXPECT_EQ(Content(Path("a")), "abc");
}

TEST_F(PosixFile, Direction_ChangesAtAnUnchangedPosition_BothWays) {
  void* file = ZMV_FileOpen(Path("a").c_str(), 27);
  Write(file, "0123456789");
  ZMV_FileSeek(file, 2, 0);
  EXPECT_EQ(Read(file, 3), "234");  // at 5
  EXPECT_EQ(Write(file, "XY"), 2);  // at 7, straight after a read
  EXPECT_EQ(Read(file, 2), "78");   // at 9, straight after a write
  EXPECT_EQ(Write(file, "Z!"), 2);
  EXPECT_EQ(Read(file, 1), "");    // at the end
  EXPECT_EQ(Write(file, "?"), 1);  // and on after a read that failed
  ZMV_FileClose(file);
  EXPECT_EQ(Content(Path("a")), "01234XY78Z!?");
}

TEST_F(PosixFile, Direction_ReadAcrossBytesOnDiskAndBufferedOnes_GivesBoth) {
  void* file = ZMV_FileOpen(Path("a").c_str(), 27);
  const std::string text = Pattern(300000);
  Write(file, text.substr(0, 100000));
  ZMV_FileSync(file);
  Write(file, text.substr(100000));
  ZMV_FileSeek(file, 90000, 0);
  EXPECT_TRUE(Read(file, 210000) == text.substr(90000));
  ZMV_FileClose(file);
}

TEST_F(PosixFile, Direction_ReadInAGapBeforeBufferedBytes_GivesZeros) {
  void* file = ZMV_FileOpen(Path("a").c_str(), 27);
  Write(file, "head");
  ZMV_FileSync(file);
  ZMV_FileSeek(file, 100, 0);
  Write(file, "tail");
  ZMV_FileSeek(file, 2, 0);
  EXPECT_EQ(Read(file, 10), "ad" + std::string(8, '\0'));
  EXPECT_EQ(Read(file, 10), std::string(10, '\0'));
  ZMV_FileSeek(file, 104, 0);
  EXPECT_EQ(Read(file, 10), "");
  ZMV_FileClose(file);
}

TEST_F(PosixFile, Seek_FromTheStartAndFromThePosition) {
  Put("a", "0123456789");
  void* file = ZMV_FileOpen(Path("a").c_str(), 2);
  EXPECT_EQ(ZMV_FileSeek(file, 4, 0), 0);
  EXPECT_EQ(Read(file, 1), "4");
  EXPECT_EQ(ZMV_FileSeek(file, 2, 1), 0);
  EXPECT_EQ(Read(file, 1), "7");
  EXPECT_EQ(ZMV_FileSeek(file, -5, 1), 0);
  EXPECT_EQ(Read(file, 1), "3");
  ZMV_FileClose(file);
}

TEST_F(PosixFile, Seek_BeforeTheStartOrFromAnotherOrigin_FailsAndStays) {
  Put("a", "0123456789");
  void* file = ZMV_FileOpen(Path("a").c_str(), 2);
  ZMV_FileSeek(file, 3, 0);
  EXPECT_LT(ZMV_FileSeek(file, -1, 0), 0);
  EXPECT_LT(ZMV_FileSeek(file, -4, 1), 0);
  EXPECT_LT(ZMV_FileSeek(file, INT64_MAX, 0), 0);
  EXPECT_LT(ZMV_FileSeek(file, INT64_MAX, 1), 0);
  EXPECT_LT(ZMV_FileSeek(file, 0, 2), 0);
  EXPECT_EQ(Read(file, 1), "3");
  ZMV_FileClose(file);
}

TEST_F(PosixFile, Seek_BeyondTwoGiB_WritesAndReadsThere) {
  constexpr int64_t kFar = 3LL << 30;
  void* file = ZMV_FileOpen(Path("a").c_str(), 27);
  Write(file, "near");
  EXPECT_EQ(ZMV_FileSeek(file, kFar, 0), 0);
  EXPECT_EQ(Write(file, "far"), 3);
  EXPECT_EQ(ZMV_FileSize(file), kFar + 3);
  EXPECT_EQ(ZMV_FileSeek(file, -3, 1), 0);
  EXPECT_EQ(Read(file, 3), "far");
  EXPECT_EQ(ZMV_FileClose(file), 0);

  file = ZMV_FileOpen(Path("a").c_str(), 2);
  EXPECT_EQ(ZMV_FileSize(file), kFar + 3);
  EXPECT_EQ(ZMV_FileSeek(file, kFar - 1, 0), 0);
  EXPECT_EQ(Read(file, 9), std::string("\0far", 4));
  EXPECT_EQ(ZMV_FileSeek(file, 0, 0), 0);
  EXPECT_EQ(Read(file, 5), std::string("near\0", 5));
  ZMV_FileClose(file);
}

TEST_F(PosixFile, Seek_BackAndPatch_ChangesOnlyThosePlaces) {
  void* file = ZMV_FileOpen(Path("a").c_str(), 27);
  std::string expected = Pattern(1000000);
  Write(file, expected);
  for (size_t at : {0u, 7u, 262140u, 262144u, 999998u, 500000u}) {
    ZMV_FileSeek(file, static_cast<int64_t>(at), 0);
    Write(file, "##");
    expected.replace(at, 2, "##");
  }
  ZMV_FileSeek(file, 1000000, 0);
  Write(file, "end");
  ZMV_FileClose(file);
  EXPECT_TRUE(Content(Path("a")) == expected + "end");
}

TEST_F(PosixFile, Size_CountsBufferedBytesAndDoesNotMoveThePosition) {
  void* file = ZMV_FileOpen(Path("a").c_str(), 27);
  Write(file, "0123456789");
  EXPECT_EQ(ZMV_FileSize(file), 10);
  Write(file, "ab");
  EXPECT_EQ(ZMV_FileSize(file), 12);
  ZMV_FileSeek(file, 3, 0);
  EXPECT_EQ(ZMV_FileSize(file), 12);
  Write(file, "X");
  EXPECT_EQ(ZMV_FileSize(file), 12);
  EXPECT_EQ(Read(file, 2), "45");
  ZMV_FileClose(file);
  EXPECT_EQ(Content(Path("a")), "012X456789ab");
}

TEST_F(PosixFile, Sync_PutsBufferedBytesIntoTheFile) {
  void* file = ZMV_FileOpen(Path("a").c_str(), 27);
  Write(file, "kept");
  EXPECT_EQ(Content(Path("a")), "");
  EXPECT_EQ(ZMV_FileSync(file), 0);
  EXPECT_EQ(Content(Path("a")), "kept");
  Write(file, ", more");
  ZMV_FileClose(file);
  EXPECT_EQ(Content(Path("a")), "kept, more");
}

TEST_F(PosixFile, Sync_OnAFileOpenForReading_Succeeds) {
  Put("a", "abc");
  void* file = ZMV_FileOpen(Path("a").c_str(), 2);
  EXPECT_EQ(ZMV_FileSync(file), 0);
  ZMV_FileClose(file);
}

TEST_F(PosixFile, NullHandleOrBuffer_Fails) {
  char byte = 0;
  EXPECT_LT(ZMV_FileRead(nullptr, &byte, 1), 0);
  EXPECT_LT(ZMV_FileWrite(nullptr, &byte, 1), 0);
  EXPECT_LT(ZMV_FileSeek(nullptr, 0, 0), 0);
  EXPECT_LT(ZMV_FileSize(nullptr), 0);
  EXPECT_LT(ZMV_FileSync(nullptr), 0);
  EXPECT_LT(ZMV_FileClose(nullptr), 0);
  void* file = ZMV_FileOpen(Path("a").c_str(), 27);
  EXPECT_LT(ZMV_FileRead(file, nullptr, 1), 0);
  EXPECT_LT(ZMV_FileWrite(file, nullptr, 1), 0);
  ZMV_FileClose(file);
}

}  // namespace
}  // namespace zmv::test

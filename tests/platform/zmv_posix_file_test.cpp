#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <stdio.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "platform/zmv_platform.h"

namespace {

using ::testing::StartsWith;

class PosixFile : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string pattern = (std::filesystem::temp_directory_path() / "zmv_file_XXXXXX").string();
    ASSERT_NE(mkdtemp(pattern.data()), nullptr);
    directory_ = pattern;
  }
  void TearDown() override { std::filesystem::remove_all(directory_); }

  std::string Path(const std::string& name) const { return (directory_ / name).string(); }
  static std::string Content(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
  }
  void Put(const std::string& name, const std::string& content) const {
    std::ofstream(Path(name), std::ios::binary) << content;
  }
  // A text in which every position can be told from its neighbours.
  static std::string Pattern(size_t size) {
    std::string text(size, '\0');
    for (size_t i = 0; i < size; ++i) text[i] = static_cast<char>((i * 131 + i / 251) & 0xFF);
    return text;
  }
  static int64_t Write(void* file, const std::string& text) {
    return ZMV_FileWrite(file, text.data(), static_cast<uint32_t>(text.size()));
  }
  static std::string Read(void* file, uint32_t length) {
    std::string text(length, '\0');
    const int64_t count = ZMV_FileRead(file, text.data(), length);
    text.resize(count > 0 ? static_cast<size_t>(count) : 0);
    return text;
  }

  std::filesystem::path directory_;
};

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

TEST_F(PosixFile, Handle_IsAStream_WithDescriptorAndErrorFlag) {
  void* file = ZMV_FileOpen("/dev/full", 27);
  ASSERT_NE(file, nullptr);
  auto* stream = static_cast<FILE*>(file);
  EXPECT_GE(fileno(stream), 0);
  EXPECT_EQ(ferror(stream), 0);
  const std::string block = Pattern(1 << 20);  // more than any buffer takes
  EXPECT_EQ(Write(file, block), 0);
  EXPECT_NE(ferror(stream), 0);
  EXPECT_EQ(Write(file, block), 0);
  EXPECT_LT(ZMV_FileSync(file), 0);
  EXPECT_LT(ZMV_FileClose(file), 0);
}

TEST_F(PosixFile, Close_WithBufferedBytesThatDoNotFit_Fails) {
  void* file = ZMV_FileOpen("/dev/full", 27);
  ASSERT_NE(file, nullptr);
  EXPECT_EQ(Write(file, "few"), 3);
  EXPECT_LT(ZMV_FileClose(file), 0);
}

TEST_F(PosixFile, Size_WithBufferedBytesThatDoNotFit_Fails) {
  void* file = ZMV_FileOpen("/dev/full", 27);
  ASSERT_NE(file, nullptr);
  EXPECT_EQ(Write(file, "few"), 3);
  EXPECT_LT(ZMV_FileSize(file), 0);
  ZMV_FileClose(file);
}

// A disk that is full for a while, played by the limit on file sizes.
TEST_F(PosixFile, Write_AfterAFailure_LandsAtThePositionBeforeIt) {
  struct rlimit limit;
  ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &limit), 0);
  const auto signal_before = signal(SIGXFSZ, SIG_IGN);
  const struct rlimit small = {1 << 20, limit.rlim_max};
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
  void* file = ZMV_FileOpen(Path("a").c_str(), 27);
  const std::string piece = Pattern(100000);
  int64_t accepted = 0;
  int64_t count = 0;
  for (int i = 0; i < 30 && (count = Write(file, piece)) > 0; ++i) accepted += count;
  const bool flagged = ferror(static_cast<FILE*>(file)) != 0;
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
  signal(SIGXFSZ, signal_before);

  EXPECT_EQ(count, 0);
  EXPECT_TRUE(flagged);
  EXPECT_GE(accepted, 1 << 20);
  EXPECT_EQ(Write(file, "after"), 5);
  EXPECT_EQ(ZMV_FileSize(file), accepted + 5);
  EXPECT_LT(ZMV_FileClose(file), 0);
  const std::string content = Content(Path("a"));
  EXPECT_EQ(content.substr(static_cast<size_t>(accepted)), "after");
  EXPECT_EQ(content.substr(700000, 1000), piece.substr(0, 1000));
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

TEST_F(PosixFile, Write_ManySmallPieces_AreFewSystemCalls) {
  // The kernel counts this process's write calls.
  const auto calls = [] {
    std::ifstream io("/proc/self/io");
    std::string key;
    int64_t value = -1;
    while (io >> key >> value) {
      if (key == "syscw:") return value;
    }
    return int64_t{-1};
  };
  void* file = ZMV_FileOpen(Path("a").c_str(), 27);
  const std::string piece = Pattern(100);
  const int64_t before = calls();
  if (before < 0) FAIL() << "no /proc/self/io";
  constexpr int64_t kPieces = 40000;
  for (int64_t i = 0; i < kPieces; ++i) Write(file, piece);
  // Copies from far behind to the end, as tables are at the end of a recording, stay buffered too.
  for (int64_t i = 0; i < 1000; ++i) {
    ZMV_FileSeek(file, i * 100, 0);
    const std::string copy = Read(file, 100);
    ZMV_FileSeek(file, (kPieces + i) * 100, 0);
    Write(file, copy);
  }
  EXPECT_LE(calls() - before, (kPieces + 1000) * 100 / 65536 + 2);
  ZMV_FileClose(file);
  EXPECT_EQ(Content(Path("a")).size(), 4100000u);
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

// What happens to every file under a close callback: synced, its descriptor closed, the stream left behind.
TEST_F(PosixFile, Descriptor_ClosedByTheApplication_IsSafelyUsedAgain) {
  for (int round = 0; round < 20; ++round) {
    const std::string name = "f" + std::to_string(round);
    void* file = ZMV_FileOpen(Path(name).c_str(), round % 3 == 0 ? 9 : 27);
    ASSERT_NE(file, nullptr);
    Write(file, "round " + std::to_string(round));
    ZMV_FileSync(file);
    close(fileno(static_cast<FILE*>(file)));
    void* reader = ZMV_FileOpen(Path(name).c_str(), 2);
    ASSERT_NE(reader, nullptr);
    EXPECT_THAT(Read(reader, 100), StartsWith("round " + std::to_string(round)));
    if (round % 2 == 0) {
      ZMV_FileClose(reader);
    } else {
      close(fileno(static_cast<FILE*>(reader)));
    }
  }
  for (int round = 0; round < 20; ++round) {
    EXPECT_EQ(Content(Path("f" + std::to_string(round))), "round " + std::to_string(round));
  }
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

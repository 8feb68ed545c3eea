// What is written, between the buffer and the file: full disks, few system calls, streams that are left behind.
#include <gmock/gmock.h>
#include <signal.h>
#include <stdio.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <random>

#include "tests/platform/posix_file_test.h"

namespace zmv::test {
namespace {

using ::testing::StartsWith;

// A disk that is full for a while, played by the limit on file sizes.
class FullDisk {
 public:
  explicit FullDisk(rlim_t size) : signal_(signal(SIGXFSZ, SIG_IGN)) {
    EXPECT_EQ(getrlimit(RLIMIT_FSIZE, &before_), 0);
    const struct rlimit small = {size, before_.rlim_max};
    EXPECT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
  }
  ~FullDisk() {
    EXPECT_EQ(setrlimit(RLIMIT_FSIZE, &before_), 0);
    signal(SIGXFSZ, signal_);
  }

 private:
  struct rlimit before_;
  sighandler_t signal_;
};

// This process's write calls, as the kernel counts them.
int64_t WriteCalls() {
  std::ifstream io("/proc/self/io");
  std::string key;
  int64_t value = 0;
  while (io >> key >> value) {
    if (key == "syscw:") return value;
  }
  ADD_FAILURE() << "no /proc/self/io";
  return 0;
}

TEST_F(PosixFile, Handle_IsAStream_WithDescriptorAndErrorFlag) {
  void* file = ZMV_FileOpen("/dev/full", 27);
  ASSERT_NE(file, nullptr);
  auto* stream = static_cast<FILE*>(file);
  EXPECT_GE(fileno(stream), 0);
  EXPECT_EQ(ferror(stream), 0);
  const std::string block = Pattern(1 << 20);  // more than any buffer takes
  EXPECT_LT(Write(file, block), 0);
  EXPECT_NE(ferror(stream), 0);
  EXPECT_LT(Write(file, block), 0);
  EXPECT_LT(ZMV_FileSync(file), 0);
  EXPECT_LT(ZMV_FileClose(file), 0);
}

TEST_F(PosixFile, Write_ThatFlushesOntoAFullDisk_Fails) {
  void* file = ZMV_FileOpen("/dev/full", 27);
  ASSERT_NE(file, nullptr);
  const std::string piece = Pattern(1000);
  int accepted = 0;
  while (accepted < 2000 && Write(file, piece) == 1000) ++accepted;
  EXPECT_GT(accepted, 0);
  EXPECT_LT(accepted, 2000);
  EXPECT_NE(ferror(static_cast<FILE*>(file)), 0);
  EXPECT_LT(Write(file, piece), 0);  // what was accepted is still in the way
  EXPECT_LT(ZMV_FileSync(file), 0);
  EXPECT_LT(ZMV_FileClose(file), 0);
}

TEST_F(PosixFile, SyncSizeAndClose_WithBufferedBytesThatDoNotFit_Fail) {
  int32_t (*const calls[])(void*) = {
      &ZMV_FileSync,
      [](void* file) { return ZMV_FileSize(file) < 0 ? -1 : 0; },
      &ZMV_FileClose,
  };
  for (auto* call : calls) {
    void* file = ZMV_FileOpen("/dev/full", 27);
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(Write(file, "few"), 3);
    EXPECT_EQ(ferror(static_cast<FILE*>(file)), 0);
    EXPECT_LT(call(file), 0);
    if (call == &ZMV_FileClose) continue;
    EXPECT_NE(ferror(static_cast<FILE*>(file)), 0);
    EXPECT_LT(ZMV_FileClose(file), 0);
  }
}

TEST_F(PosixFile, Write_AfterAFailure_LandsAtThePositionBeforeItAndNothingIsLost) {
  void* file = ZMV_FileOpen(Path("a").c_str(), 27);
  const std::string piece = Pattern(100000);
  std::string accepted;
  {
    const FullDisk full(1 << 20);
    int64_t count = 1;
    for (int i = 0; i < 30 && count > 0; ++i) {
      count = Write(file, piece);
      if (count > 0) accepted += piece;
    }
    EXPECT_LT(count, 0);
    EXPECT_NE(ferror(static_cast<FILE*>(file)), 0);
    EXPECT_LT(Write(file, piece), 0);
    EXPECT_LT(ZMV_FileSync(file), 0);
  }
  EXPECT_GE(accepted.size(), size_t{1} << 20);
  EXPECT_EQ(Write(file, "after"), 5);
  EXPECT_EQ(ZMV_FileSize(file), static_cast<int64_t>(accepted.size()) + 5);
  EXPECT_LT(ZMV_FileClose(file), 0);  // the failure counts even when nothing is missing
  EXPECT_TRUE(Content(Path("a")) == accepted + "after");
}

TEST_F(PosixFile, Write_OfMoreThanTheBufferFails_KeepsThePositionAndWhatWasBefore) {
  void* file = ZMV_FileOpen(Path("a").c_str(), 27);
  const std::string before = Pattern(1000);
  {
    const FullDisk full(1 << 20);
    EXPECT_EQ(Write(file, before), 1000);
    EXPECT_LT(Write(file, Pattern(2 << 20)), 0);
    EXPECT_NE(ferror(static_cast<FILE*>(file)), 0);
  }
  const std::string after(2 << 20, 'a');
  EXPECT_EQ(Write(file, after), 2 << 20);
  EXPECT_LT(ZMV_FileClose(file), 0);
  EXPECT_TRUE(Content(Path("a")) == before + after);
}

TEST_F(PosixFile, Write_ManySmallPieces_AreFewSystemCalls) {
  void* file = ZMV_FileOpen(Path("a").c_str(), 27);
  const std::string piece = Pattern(100);
  const int64_t before = WriteCalls();
  constexpr int64_t kPieces = 40000;
  for (int64_t i = 0; i < kPieces; ++i) Write(file, piece);
  // Copies from far behind to the end, as tables are at the end of a recording, stay buffered too.
  for (int64_t i = 0; i < 1000; ++i) {
    ZMV_FileSeek(file, i * 100, 0);
    const std::string copy = Read(file, 100);
    ZMV_FileSeek(file, (kPieces + i) * 100, 0);
    Write(file, copy);
  }
  EXPECT_LE(WriteCalls() - before, (kPieces + 1000) * 100 / 65536 + 2);
  ZMV_FileClose(file);
  EXPECT_EQ(Content(Path("a")).size(), 4100000u);
}

TEST_F(PosixFile, Write_OfMoreThanTheBuffer_IsOneSystemCall) {
  void* file = ZMV_FileOpen(Path("a").c_str(), 27);
  const std::string block = Pattern(3 << 20);
  Write(file, "head");
  const int64_t before = WriteCalls();
  EXPECT_EQ(Write(file, block), 3 << 20);
  EXPECT_LE(WriteCalls() - before, 2);  // what was buffered, and the block
  Write(file, "tail");
  EXPECT_EQ(ZMV_FileClose(file), 0);
  EXPECT_TRUE(Content(Path("a")) == "head" + block + "tail");
}

// Every mixture of the calls, beside a text that does the same.
TEST_F(PosixFile, Calls_InRandomOrder_DoAsOnOneText) {
  void* file = ZMV_FileOpen(Path("a").c_str(), 27);
  std::mt19937 random(3);
  const std::string source = Pattern(1 << 20);
  const size_t lengths[] = {1, 4, 28, 200, 5000, 65536, 262143, 262144, 262145, 600000};
  std::string text;
  size_t position = 0;
  for (int i = 0; i < 3000; ++i) {
    const size_t length = lengths[random() % (random() % 16 == 0 ? 10 : 5)];
    switch (random() % 8) {
      case 0:
        position = random() % (text.size() + (random() % 8 == 0 ? 400000 : 1));
        ASSERT_EQ(ZMV_FileSeek(file, static_cast<int64_t>(position), 0), 0);
        break;
      case 1:
        position = text.size();
        ASSERT_EQ(ZMV_FileSeek(file, static_cast<int64_t>(position), 0), 0);
        break;
      case 2: {
        const std::string expected = position < text.size() ? text.substr(position, length) : "";
        ASSERT_TRUE(Read(file, static_cast<uint32_t>(length)) == expected) << "call " << i;
        position += expected.size();
        break;
      }
      case 3:
        if (random() % 8 == 0) {
          ASSERT_EQ(ZMV_FileSize(file), static_cast<int64_t>(text.size()));
        }
        break;
      default: {
        const std::string piece = source.substr(random() % 400000, length);
        if (text.size() < position + length) text.resize(position + length);
        text.replace(position, length, piece);
        ASSERT_EQ(Write(file, piece), static_cast<int64_t>(length));
        position += length;
      }
    }
  }
  EXPECT_EQ(ZMV_FileClose(file), 0);
  EXPECT_TRUE(Content(Path("a")) == text);
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

TEST_F(PosixFile, Descriptor_ClosedWithBytesStillBuffered_DoesNotPutThemIntoTheNextFile) {
  void* left = ZMV_FileOpen(Path("left").c_str(), 27);
  Write(left, "never synced");
  const int descriptor = fileno(static_cast<FILE*>(left));
  close(descriptor);
  void* file = ZMV_FileOpen(Path("a").c_str(), 27);
  ASSERT_EQ(fileno(static_cast<FILE*>(file)), descriptor);
  EXPECT_LT(Write(left, "late"), 0);
  Write(file, "mine");
  fflush(nullptr);
  EXPECT_EQ(ZMV_FileClose(file), 0);
  EXPECT_EQ(Content(Path("a")), "mine");
}

TEST_F(PosixFile, EndOfAForkedChild_DoesNotWriteWhatItsParentHasBuffered) {
  void* file = ZMV_FileOpen(Path("a").c_str(), 27);
  Write(file, "once");
  const pid_t child = fork();
  if (child == 0) {
    fflush(nullptr);  // as exit() does
    _exit(0);
  }
  int status = -1;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
  EXPECT_EQ(Content(Path("a")), "");
  EXPECT_EQ(ZMV_FileClose(file), 0);
  EXPECT_EQ(Content(Path("a")), "once");
}

}  // namespace
}  // namespace zmv::test

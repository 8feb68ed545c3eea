// The file stream on the default host: what only real files and descriptors can show.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "stream/zmvstream_file.h"

namespace zmv::test {
namespace {

struct Handed {
  int descriptor = -1;
  std::string path;
  std::string contents;
};

Handed* handed = nullptr;

void TakeDescriptor(int fd, const char* path) {
  char bytes[64];
  const ssize_t size = pread(fd, bytes, sizeof bytes, 0);
  *handed = {fd, path, std::string(bytes, size < 0 ? 0 : static_cast<size_t>(size))};
}

class PosixFileTest : public ::testing::Test {
 protected:
  PosixFileTest() : path_(::testing::TempDir() + "zmvstream_file_" + std::to_string(getpid())) { handed = &handed_; }
  ~PosixFileTest() override {
    ZMVStreamFile_SetOption(0, nullptr);
    unlink(path_.c_str());
  }

  ZMVStreamFile* Opened(uint32_t mode, uint32_t cache_size) {
    ZMVStreamFile* file = nullptr;
    EXPECT_EQ(ZMVStreamFile_Open(&file, path_.c_str(), mode, 1), 0);
    uint32_t idx = 99;
    EXPECT_EQ(ZMVStreamFile_Index(file, &idx, cache_size), 0);
    EXPECT_EQ(idx, 0u);
    return file;
  }

  std::string path_;
  Handed handed_;
};

TEST_F(PosixFileTest, Close_WithACallback_HandsOverTheWrittenFileAndClosesTheDescriptor) {
  for (const uint32_t cache_size : {0u, 16u}) {
    ZMVStreamFile* const file = Opened(ZMV_STREAM_WRITE, cache_size);
    ASSERT_EQ(ZMVStreamFile_WriteBuffer(file, 0, "ABCDEFGHIJKLMNOPQRST", 20), 20);
    ZMVStreamFile_SetOption(1, &TakeDescriptor);
    ZMVStreamFile_Close(file);
    EXPECT_EQ(handed_.contents, "ABCDEFGHIJKLMNOPQRST");
    EXPECT_EQ(handed_.path, path_);
    EXPECT_GE(handed_.descriptor, 0);
    EXPECT_EQ(fcntl(handed_.descriptor, F_GETFD), -1);
    ZMVStreamFile_SetOption(0, nullptr);
  }
}

TEST_F(PosixFileTest, WriteReadBackAndPatch_ThroughOneHandle) {
  ZMVStreamFile* const file = Opened(ZMV_STREAM_WRITE, 0);
  uint32_t reader = 0;
  ASSERT_EQ(ZMVStreamFile_Index(file, &reader, 0), 0);
  ASSERT_EQ(ZMVStreamFile_WriteBuffer(file, 0, "size....data", 12), 12);
  char bytes[4] = {};
  ASSERT_EQ(ZMVStreamFile_Seek(file, reader, 8), 0);
  ASSERT_EQ(ZMVStreamFile_ReadBuffer(file, reader, bytes, 4), 4);
  EXPECT_EQ(std::string(bytes, 4), "data");
  ASSERT_EQ(ZMVStreamFile_WriteBuffer(file, 0, "+end", 4), 4);
  ASSERT_EQ(ZMVStreamFile_Seek(file, 0, 4), 0);
  ASSERT_EQ(ZMVStreamFile_WriteBuffer(file, 0, "0016", 4), 4);
  EXPECT_EQ(ZMVStreamFile_GetFilesize(file), 16);
  ZMVStreamFile_Close(file);
  ZMVStreamFile* const again = Opened(ZMV_STREAM_READ, 1024);
  char all[16] = {};
  EXPECT_EQ(ZMVStreamFile_ReadBuffer(again, 0, all, 16), 16);
  EXPECT_EQ(std::string(all, 16), "size0016data+end");
  ZMVStreamFile_Close(again);
}

TEST_F(PosixFileTest, PositionsBeyond2GiB_AreReachedAndRead) {
  const int fd = open(path_.c_str(), O_CREAT | O_WRONLY, 0600);
  ASSERT_GE(fd, 0);
  constexpr off_t kPosition = 0xC0000000;  // 3 GiB, all of it a hole
  ASSERT_EQ(pwrite(fd, "far away", 8, kPosition), 8);
  close(fd);
  ZMVStreamFile* const file = Opened(ZMV_STREAM_READ, 1024);
  EXPECT_EQ(ZMVStreamFile_Size(file), kPosition + 8);
  char bytes[4] = {};
  ASSERT_EQ(ZMVStreamFile_SeekEnd(file, 0, -8), 0);
  EXPECT_EQ(ZMVStreamFile_ReadBuffer(file, 0, bytes, 4), 4);
  EXPECT_EQ(std::string(bytes, 4), "far ");
  EXPECT_EQ(ZMVStreamFile_ReadBuffer(file, 0, bytes, 4), 4);
  EXPECT_EQ(std::string(bytes, 4), "away");
  EXPECT_EQ(ZMVStreamFile_Pos(file, 0), 0xC0000008u);
  ZMVStreamFile_Close(file);
}

}  // namespace
}  // namespace zmv::test

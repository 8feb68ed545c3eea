#include "recover/recover_file.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>

#include "tests/recover/recover_test.h"

namespace zmv::test {
namespace {

class DiskFileTest : public RecoverTest {
 protected:
  DiskFileTest() {
    char name[] = "/tmp/recover_file_XXXXXX";
    folder = mkdtemp(name);
    path = folder + "/a.mp4";
    FILE* file = fopen(path.c_str(), "wb");
    fputs("0123456789", file);
    fclose(file);
  }
  ~DiskFileTest() override {
    unlink(path.c_str());
    rmdir(folder.c_str());
  }
  std::string folder;
  std::string path;
};

TEST_F(DiskFileTest, Reading_GivesWhatIsThere) {
  recover::DiskFile file;
  ASSERT_EQ(file.Open(path.c_str(), false), 0);
  EXPECT_EQ(file.Size(), 10u);
  char bytes[8] = {};
  EXPECT_EQ(file.ReadAt(3, bytes, 4), 4);
  EXPECT_STREQ(bytes, "3456");
  EXPECT_EQ(file.ReadAt(8, bytes, 4), 2);
  EXPECT_EQ(file.ReadAt(10, bytes, 4), 0);
  EXPECT_EQ(file.ReadAt(UINT64_MAX - 2, bytes, 4), Result(ZMV_E_READ));
  EXPECT_EQ(file.WriteAt(0, bytes, 1), Result(ZMV_E_WRITE)) << "it is open for reading";
}

TEST_F(DiskFileTest, Writing_GrowsAndTruncates) {
  recover::DiskFile file;
  ASSERT_EQ(file.Open(path.c_str(), true), 0);
  EXPECT_EQ(file.WriteAt(8, "abcd", 4), 0);
  EXPECT_EQ(file.Size(), 12u);
  EXPECT_EQ(file.WriteAt(0, "x", 1), 0);
  EXPECT_EQ(file.Size(), 12u);
  EXPECT_EQ(file.Truncate(11), 0);
  EXPECT_EQ(file.Size(), 11u);
  EXPECT_EQ(file.Sync(), 0);
  char bytes[16] = {};
  EXPECT_EQ(file.ReadAt(0, bytes, 16), 11);
  EXPECT_STREQ(bytes, "x1234567abc");
}

TEST_F(DiskFileTest, SpaceThatWasNeverWritten_IsKnownToBeZeros) {
  constexpr uint64_t kSize = uint64_t{6} << 30;
  recover::DiskFile file;
  ASSERT_EQ(file.Open(path.c_str(), true), 0);
  EXPECT_EQ(file.DataEnd(), 10u);
  ASSERT_EQ(file.Truncate(kSize), 0);
  ASSERT_EQ(file.WriteAt(3 << 20, "x", 1), 0);
  const uint64_t end = file.DataEnd();
  EXPECT_GT(end, uint64_t{3} << 20);
  // A file system without holes has nothing to tell.
  EXPECT_TRUE(end == kSize || end <= uint64_t{4} << 20) << end;
}

TEST_F(DiskFileTest, FolderOfAFile_IsSynced) {
  EXPECT_EQ(recover::SyncFolderOf(path.c_str()), 0);
  EXPECT_EQ(recover::SyncFolderOf("name"), 0) << "in the current folder";
  EXPECT_EQ(recover::SyncFolderOf("/name"), 0);
  EXPECT_EQ(recover::SyncFolderOf((folder + "/none/a.mp4").c_str()), Result(ZMV_E_WRITE));
  std::string endless(5000, 'a');
  endless.back() = '/';
  EXPECT_EQ(recover::SyncFolderOf(endless.c_str()), Result(ZMV_E_WRITE));
}

TEST_F(DiskFileTest, WhatIsNoFile_IsRefused) {
  const std::string pipe = folder + "/pipe";
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  for (const std::string& name : {folder, folder + "/none", pipe, std::string("/dev/null")}) {
    recover::DiskFile file;
    EXPECT_EQ(file.Open(name.c_str(), false), Result(ZMV_E_OPEN)) << name;
  }
  unlink(pipe.c_str());
  recover::DiskFile file;
  EXPECT_EQ(file.Open(nullptr, false), Result(ZMV_E_OPEN));
}

}  // namespace
}  // namespace zmv::test

#include <gtest/gtest.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "base/zmv_fourcc.h"
#include "platform/zmv_platform.h"

namespace {

TEST(PosixSystem, Tick_CountsMillisecondsForward) {
  const uint64_t start = ZMV_GetSystemTick();
  const auto clock = std::chrono::steady_clock::now();
  std::this_thread::sleep_for(std::chrono::milliseconds(60));
  const uint64_t passed = ZMV_GetSystemTick() - start;
  const auto real = std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - clock);
  EXPECT_GE(passed, 59u);
  EXPECT_LE(passed, static_cast<uint64_t>(real.count()) + 1);
}

class FreeDiskSpace : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string pattern = (std::filesystem::temp_directory_path() / "zmv_disk_XXXXXX").string();
    ASSERT_NE(mkdtemp(pattern.data()), nullptr);
    directory_ = pattern;
  }
  void TearDown() override { std::filesystem::remove_all(directory_); }
  // Others write to the same disk meanwhile.
  static void ExpectAbout(int64_t bytes, const std::string& path) {
    struct statvfs status;
    ASSERT_EQ(statvfs(path.c_str(), &status), 0);
    const auto expected = static_cast<int64_t>(status.f_bavail * status.f_frsize);
    EXPECT_NEAR(static_cast<double>(bytes), static_cast<double>(expected), 2e9);
    EXPECT_GE(bytes, 0);
  }
  std::filesystem::path directory_;
};

TEST_F(FreeDiskSpace, OfADirectoryAndOfAFileInIt) {
  ExpectAbout(ZMV_GetFreeDiskSpace(directory_.c_str()), directory_);
  const std::string file = directory_ / "a";
  std::ofstream(file) << "x";
  ExpectAbout(ZMV_GetFreeDiskSpace(file.c_str()), directory_);
}

TEST_F(FreeDiskSpace, OfAFileThatDoesNotExist_IsItsDirectorys) {
  ExpectAbout(ZMV_GetFreeDiskSpace((directory_ / "none.mp4").c_str()), directory_);
  ExpectAbout(ZMV_GetFreeDiskSpace("none_of_this_name.mp4"), ".");
  ExpectAbout(ZMV_GetFreeDiskSpace("/none_of_this_name.mp4"), "/");
}

TEST_F(FreeDiskSpace, Unknown_IsNegative) {
  EXPECT_LT(ZMV_GetFreeDiskSpace(nullptr), 0);
  EXPECT_LT(ZMV_GetFreeDiskSpace(""), 0);
  EXPECT_LT(ZMV_GetFreeDiskSpace((directory_ / "no" / "a.mp4").c_str()), 0);
  const std::string file = directory_ / "a";
  std::ofstream(file) << "x";
  EXPECT_LT(ZMV_GetFreeDiskSpace((file + "/b.mp4").c_str()), 0);
  EXPECT_LT(ZMV_GetFreeDiskSpace((directory_ / std::string(5000, 'x') / "b").c_str()), 0);
}

TEST(PosixSystem, Snprintf_FormatsAndCutsAsTheStandardOne) {
  char text[8];
  EXPECT_EQ(ZMV_snprintf(text, sizeof text, "%d-%s", 12, "ab"), 5);
  EXPECT_STREQ(text, "12-ab");
  EXPECT_EQ(ZMV_snprintf(text, sizeof text, "%s", "0123456789"), 10);
  EXPECT_STREQ(text, "0123456");
  EXPECT_EQ(ZMV_snprintf(nullptr, 0, "%05d", 7), 5);
}

TEST(FourCCString, Printable_StandsInReadingOrder) {
  EXPECT_STREQ(ZMV_FourCC_String(ZMV_FOURCC('m', 'o', 'o', 'v'), 0), "moov");
  EXPECT_STREQ(ZMV_FourCC_String(ZMV_FOURCC('0', '1', ' ', '~'), 0), "01 ~");
}

TEST(FourCCString, NotPrintable_StandsInHexadecimal) {
  EXPECT_STREQ(ZMV_FourCC_String(0, 0), "0x00000000");
  EXPECT_STREQ(ZMV_FourCC_String(ZMV_FOURCC('a', 'b', 'c', 0x7F), 0), "0x7F636261");
  EXPECT_STREQ(ZMV_FourCC_String(ZMV_FOURCC(0xA9, 'n', 'a', 'm'), 0), "0x6D616EA9");
  EXPECT_STREQ(ZMV_FourCC_String(0xFFFFFFFF, 0), "0xFFFFFFFF");
}

TEST(FourCCString, EightInOneLine_AreAllThere) {
  std::vector<const char*> texts;
  for (uint32_t i = 0; i < 8; ++i) texts.push_back(ZMV_FourCC_String(ZMV_FOURCC('t', 'r', 'k', '0' + i), 0));
  for (uint32_t i = 0; i < 8; ++i) EXPECT_EQ(texts[i], "trk" + std::to_string(i));
}

TEST(FourCCString, SeveralThreads_DoNotMix) {
  std::vector<std::thread> threads;
  for (char letter : {'a', 'b', 'c', 'd'}) {
    threads.emplace_back([letter] {
      for (uint32_t i = 0; i < 5000; ++i) {
        const char* text = ZMV_FourCC_String(ZMV_FOURCC(letter, letter, letter, '0' + i % 10), 0);
        ASSERT_EQ(std::string(text), std::string(3, letter) + std::to_string(i % 10));
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
}

}  // namespace

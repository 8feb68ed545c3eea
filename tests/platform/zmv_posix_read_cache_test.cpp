#include "platform/posix/zmv_posix_read_cache.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace zmv::posix {
namespace {

constexpr uint32_t kFileSize = 1 << 20;

class ReadCacheTest : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string pattern = (std::filesystem::temp_directory_path() / "zmv_cache_XXXXXX").string();
    descriptor_ = mkstemp(pattern.data());
    ASSERT_GE(descriptor_, 0);
    unlink(pattern.c_str());
    content_.resize(kFileSize);
    std::minstd_rand random(7);
    for (char& byte : content_) byte = static_cast<char>(random() >> 8);
    ASSERT_EQ(write(descriptor_, content_.data(), content_.size()), kFileSize);
  }
  void TearDown() override { close(descriptor_); }

  std::string Read(int64_t position, uint32_t length) {
    std::string text(length, '\0');
    last_ = cache_->Read(descriptor_, text.data(), length, position);
    text.resize(last_ > 0 ? static_cast<size_t>(last_) : 0);
    return text;
  }
  std::string Expected(int64_t position, uint32_t length) const {
    return position < kFileSize ? content_.substr(static_cast<size_t>(position), length) : "";
  }
  // System calls of this process that read, as the kernel counts them; reading the count adds its own.
  static int64_t ReadCalls() {
    std::ifstream io("/proc/self/io");
    std::string key;
    int64_t value = 0;
    while (io >> key >> value) {
      if (key == "syscr:") return value;
    }
    ADD_FAILURE() << "no /proc/self/io";
    return 0;
  }

  int descriptor_ = -1;
  int64_t last_ = 0;
  std::string content_;
  std::unique_ptr<ReadCache> cache_ = std::make_unique<ReadCache>();
};

TEST_F(ReadCacheTest, Read_RandomPlacesAndLengths_AlwaysGivesTheFile) {
  std::mt19937 random(11);
  const uint32_t lengths[] = {1, 4, 1024, 4096, 8191, 8192, 40000, 200000};
  int64_t places[6] = {0, 1000, 300000, 600000, 900000, kFileSize - 100};
  for (int i = 0; i < 20000; ++i) {
    int64_t& place = places[random() % 6];
    if (random() % 50 == 0) place = random() % (kFileSize + 5000);
    const auto length = static_cast<uint32_t>(random() % 4 == 0 ? lengths[random() % 8] : 1 + random() % 300);
    ASSERT_TRUE(Read(place, length) == Expected(place, length)) << "position " << place << " length " << length;
    ASSERT_GE(last_, 0);
    place += length + random() % 40;
    if (place > kFileSize) place = random() % 1000;
  }
}

TEST_F(ReadCacheTest, Read_AcrossTheEnd_IsShortThenZero) {
  EXPECT_EQ(Read(kFileSize - 10, 100).size(), 10u);
  EXPECT_EQ(Read(kFileSize, 100), "");
  EXPECT_EQ(last_, 0);
  EXPECT_EQ(Read(kFileSize - 10, 100000).size(), 10u);
  EXPECT_EQ(Read(kFileSize + 5000000, 100000), "");
  EXPECT_EQ(last_, 0);
}

TEST_F(ReadCacheTest, Read_LengthZero_GivesZero) {
  EXPECT_EQ(Read(10, 0), "");
  EXPECT_EQ(last_, 0);
}

TEST_F(ReadCacheTest, Read_BadDescriptor_IsNegative) {
  char byte;
  EXPECT_LT(cache_->Read(-1, &byte, 1, 0), 0);
  char block[10000];
  EXPECT_LT(cache_->Read(-1, block, sizeof block, 0), 0);
}

TEST_F(ReadCacheTest, Read_FivePlacesInTurn_KeepsAWindowForEach) {
  const int64_t before = ReadCalls();
  // 5 places, 128 KiB each in steps of 128 bytes, one after the other.
  for (int64_t step = 0; step < 1024; ++step) {
    for (int64_t place = 0; place < 5; ++place) {
      const int64_t position = place * 200000 + step * 128;
      ASSERT_TRUE(Read(position, 128) == Expected(position, 128));
    }
  }
  // 4 + 8 + 16 + 32 + 32 ... KiB: 7 fills for each place, and what reading the count itself takes.
  EXPECT_LE(ReadCalls() - before, 5 * 8 + 10);
}

// The more often reading jumps, as it does in a longer file, the more windows would be touched if each jump took one
// that never served.
TEST_F(ReadCacheTest, Read_JumpsNowAndThen_KeepToTheWindowsLeftBehind) {
  const auto page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
  const size_t pages = (sizeof(ReadCache) + page - 1) / page;
  void* memory = mmap(nullptr, pages * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  ASSERT_NE(memory, MAP_FAILED);
  auto* cache = static_cast<ReadCache*>(memory);
  const auto touched = [&] {
    std::vector<unsigned char> present(pages);
    EXPECT_EQ(mincore(memory, pages * page, present.data()), 0);
    return std::count_if(present.begin(), present.end(), [](unsigned char byte) { return (byte & 1) != 0; });
  };
  char bytes[100];
  const auto read_on = [&](int64_t position) {
    for (int i = 0; i < 200; ++i, position += 100) {
      ASSERT_EQ(cache->Read(descriptor_, bytes, sizeof bytes, position), 100);
      ASSERT_EQ(std::memcmp(bytes, &content_[static_cast<size_t>(position)], sizeof bytes), 0);
    }
  };
  for (int64_t place : {900000, 100000, 500000}) read_on(place);
  const auto before = touched();
  for (int64_t place : {700000, 50000, 300000, 800000, 200000, 600000, 0, 400000}) read_on(place);
  // Two windows: the one that serves, and the one left behind that is next.
  EXPECT_LE(touched() - before, 4);
  munmap(memory, pages * page);
}

TEST_F(ReadCacheTest, Read_AfterBytesWereAppended_FindsThem) {
  EXPECT_EQ(Read(kFileSize - 4, 10).size(), 4u);
  ASSERT_EQ(pwrite(descriptor_, "more", 4, kFileSize), 4);
  EXPECT_EQ(Read(kFileSize, 10), "more");
}

}  // namespace
}  // namespace zmv::posix

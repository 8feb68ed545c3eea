#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <thread>
#include <vector>

#include "platform/zmv_host.h"
#include "platform/zmv_platform.h"

namespace {

void* Allocate(uint32_t size, int32_t fill) { return ZMV_Malloc(size, 0, fill, "file.cpp", 7, "Allocate"); }
void* Resize(void* memory, uint32_t size) { return ZMV_ReAlloc(memory, size, 0, "file.cpp", 8, "Resize"); }

TEST(PosixMemory, Malloc_FillZero_IsZeroAlsoInUsedMemory) {
  for (int round = 0; round < 10; ++round) {
    auto* block = static_cast<uint8_t*>(Allocate(3000, ZMV_FILL_ZERO));
    ASSERT_NE(block, nullptr);
    EXPECT_TRUE(std::all_of(block, block + 3000, [](uint8_t byte) { return byte == 0; }));
    std::memset(block, 0xEE, 3000);
    ZMV_Free(block, 0);
  }
}

TEST(PosixMemory, Malloc_FillNone_IsWritable) {
  auto* block = static_cast<uint8_t*>(Allocate(100000, ZMV_FILL_NONE));
  ASSERT_NE(block, nullptr);
  std::memset(block, 0x5A, 100000);
  EXPECT_EQ(block[99999], 0x5A);
  ZMV_Free(block, 0);
}

TEST(PosixMemory, Malloc_SizeZero_GivesDistinctBlocks) {
  void* a = Allocate(0, ZMV_FILL_ZERO);
  void* b = Allocate(0, ZMV_FILL_NONE);
  EXPECT_NE(a, nullptr);
  EXPECT_NE(b, nullptr);
  EXPECT_NE(a, b);
  ZMV_Free(a, 0);
  ZMV_Free(b, 0);
}

TEST(PosixMemory, ReAlloc_Null_Allocates) {
  void* block = Resize(nullptr, 16);
  ASSERT_NE(block, nullptr);
  std::memset(block, 1, 16);
  ZMV_Free(block, 0);
}

TEST(PosixMemory, ReAlloc_GrowAndShrink_KeepsTheContent) {
  for (int account : {0, 1}) {
    ZMVHost_MemoryAccount(account);
    auto* block = static_cast<uint8_t*>(Allocate(4, ZMV_FILL_NONE));
    std::memcpy(block, "\1\2\3\4", 4);
    block = static_cast<uint8_t*>(Resize(block, 1000000));
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(std::memcmp(block, "\1\2\3\4", 4), 0);
    block = static_cast<uint8_t*>(Resize(block, 2));
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(std::memcmp(block, "\1\2", 2), 0);
    ZMV_Free(block, 0);
    ZMVHost_MemoryAccount(0);
  }
}

TEST(PosixMemory, ReAlloc_SizeZero_GivesABlockAndNotNull) {
  for (int account : {0, 1}) {
    ZMVHost_MemoryAccount(account);
    void* block = Resize(Allocate(10, ZMV_FILL_ZERO), 0);
    EXPECT_NE(block, nullptr);
    ZMV_Free(block, 0);
    ZMVHost_MemoryAccount(0);
  }
}

TEST(PosixMemory, Free_Null_IsAccepted) {
  ZMV_Free(nullptr, 0);
  ZMVHost_MemoryAccount(1);
  ZMV_Free(nullptr, 0);
  ZMVHostMemoryUse use;
  ZMVHost_MemoryUse(&use);
  EXPECT_EQ(use.blocks, 0u);
  ZMVHost_MemoryAccount(0);
}

TEST(PosixMemory, FromSeveralThreads_WithTheAccountStartedAndStopped_NoBlockIsShared) {
  std::vector<std::thread> threads;
  for (uint8_t mark = 1; mark <= 4; ++mark) {
    threads.emplace_back([mark] {
      for (uint32_t i = 0; i < 2000; ++i) {
        const uint32_t size = 1 + i % 200;
        auto* block = static_cast<uint8_t*>(Allocate(size, ZMV_FILL_ZERO));
        std::memset(block, mark, size);
        block = static_cast<uint8_t*>(Resize(block, size * 3));
        EXPECT_TRUE(std::all_of(block, block + size, [mark](uint8_t byte) { return byte == mark; }));
        ZMV_Free(block, 0);
      }
    });
  }
  for (int i = 0; i < 200; ++i) {
    ZMVHost_MemoryAccount(i % 2);
    std::this_thread::yield();
  }
  for (std::thread& thread : threads) thread.join();
  ZMVHostMemoryUse use;
  ZMVHost_MemoryAccount(1);
  ZMVHost_MemoryUse(&use);
  EXPECT_EQ(use.blocks, 0u);
  ZMVHost_MemoryAccount(0);
}

TEST(PosixMemory, FromSeveralThreads_TheAccountIsExact) {
  ZMVHost_MemoryAccount(1);
  constexpr uint32_t kBlocks = 1000;
  std::vector<std::vector<void*>> kept(4);
  std::vector<std::thread> threads;
  for (auto& blocks : kept) {
    threads.emplace_back([&blocks] {
      for (uint32_t i = 0; i < kBlocks; ++i) {
        ZMV_Free(Allocate(50, ZMV_FILL_NONE), 0);
        blocks.push_back(Resize(Allocate(10, ZMV_FILL_NONE), 20));
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  ZMVHostMemoryUse use;
  ZMVHost_MemoryUse(&use);
  EXPECT_EQ(use.blocks, 4 * kBlocks);
  EXPECT_EQ(use.bytes, 4 * kBlocks * 20);
  EXPECT_EQ(use.allocations, 4 * kBlocks * 3);
  for (auto& blocks : kept) {
    for (void* block : blocks) ZMV_Free(block, 0);
  }
  ZMVHost_MemoryUse(&use);
  EXPECT_EQ(use.blocks, 0u);
  EXPECT_EQ(use.bytes, 0u);
  ZMVHost_MemoryAccount(0);
}

}  // namespace

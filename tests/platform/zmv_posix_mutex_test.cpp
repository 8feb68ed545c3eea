#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include "platform/zmv_host.h"
#include "platform/zmv_platform.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

TEST(PosixMutex, LockAndUnLock_Succeed) {
  void* mutex = ZMV_MutexCreate();
  ASSERT_NE(mutex, nullptr);
  EXPECT_EQ(ZMV_MutexLock(mutex, ZMV_WAIT_FOREVER), 0);
  EXPECT_EQ(ZMV_MutexUnLock(mutex), 0);
  EXPECT_EQ(ZMV_MutexDestroy(mutex), 0);
}

TEST(PosixMutex, Lock_HeldByAnother_TimesOutNotTooEarly) {
  void* mutex = ZMV_MutexCreate();
  ZMV_MutexLock(mutex, ZMV_WAIT_FOREVER);
  std::thread([mutex] {
    EXPECT_LT(ZMV_MutexLock(mutex, 0), 0);
    for (uint32_t timeout : {1u, 30u, 1005u}) {
      const auto start = steady_clock::now();
      EXPECT_LT(ZMV_MutexLock(mutex, timeout), 0);
      EXPECT_GE(steady_clock::now() - start, milliseconds(timeout));
    }
  }).join();
  ZMV_MutexUnLock(mutex);
  std::thread([mutex] {
    EXPECT_EQ(ZMV_MutexLock(mutex, 0), 0);
    ZMV_MutexUnLock(mutex);
    EXPECT_EQ(ZMV_MutexLock(mutex, 1000), 0);
    ZMV_MutexUnLock(mutex);
  }).join();
  ZMV_MutexDestroy(mutex);
}

TEST(PosixMutex, Lock_FreedWhileWaiting_IsTaken) {
  for (uint32_t timeout : {60000u, ZMV_WAIT_FOREVER}) {
    void* mutex = ZMV_MutexCreate();
    ZMV_MutexLock(mutex, ZMV_WAIT_FOREVER);
    std::atomic<bool> taken{false};
    std::thread waiter([&] {
      EXPECT_EQ(ZMV_MutexLock(mutex, timeout), 0);
      taken = true;
      ZMV_MutexUnLock(mutex);
    });
    std::this_thread::sleep_for(milliseconds(20));
    EXPECT_FALSE(taken);
    ZMV_MutexUnLock(mutex);
    waiter.join();
    EXPECT_TRUE(taken);
    ZMV_MutexDestroy(mutex);
  }
}

TEST(PosixMutex, SeveralThreads_ExcludeEachOther) {
  void* mutex = ZMV_MutexCreate();
  int counter = 0;
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] {
      for (int n = 0; n < 5000; ++n) {
        ZMV_MutexLock(mutex, ZMV_WAIT_FOREVER);
        ++counter;
        ZMV_MutexUnLock(mutex);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(counter, 20000);
  ZMV_MutexDestroy(mutex);
}

TEST(PosixMutex, Destroy_GivesTheMemoryBack) {
  ZMVHost_MemoryAccount(1);
  ZMVHostMemoryUse use;
  void* mutex = ZMV_MutexCreate();
  ZMVHost_MemoryUse(&use);
  EXPECT_EQ(use.blocks, 1u);
  ZMV_MutexDestroy(mutex);
  ZMVHost_MemoryUse(&use);
  EXPECT_EQ(use.blocks, 0u);
  ZMVHost_MemoryAccount(0);
}

TEST(PosixMutex, NullHandle_Fails) {
  EXPECT_LT(ZMV_MutexLock(nullptr, 0), 0);
  EXPECT_LT(ZMV_MutexUnLock(nullptr), 0);
  EXPECT_LT(ZMV_MutexDestroy(nullptr), 0);
}

}  // namespace

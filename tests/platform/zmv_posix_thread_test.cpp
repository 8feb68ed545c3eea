#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <chrono>
#include <string>
#include <thread>

#include "platform/zmv_host.h"
#include "platform/zmv_platform.h"

namespace {

constexpr uint32_t kIndexStack = 0x20000;

TEST(PosixThread, Entry_RunsInAnotherThreadWithItsArgument) {
  struct Seen {
    std::thread::id id;
    int value = 5;
  } seen;
  void* thread = ZMV_ThreadCreate(
      "t", 0, kIndexStack,
      [](void* argument) {
        auto* own = static_cast<Seen*>(argument);
        own->id = std::this_thread::get_id();
        own->value *= 2;
      },
      &seen);
  ASSERT_NE(thread, nullptr);
  uint32_t exit_value = 99;
  EXPECT_EQ(ZMV_ThreadDelete(thread, &exit_value), 0);
  EXPECT_EQ(exit_value, 0u);
  EXPECT_EQ(seen.value, 10);
  EXPECT_NE(seen.id, std::this_thread::get_id());
}

// `left` is counted down on the way in, and up again only if the calls return.
void LeaveFromDeep(std::atomic<int>& left) {
  if (--left > 0) {
    LeaveFromDeep(left);
  } else {
    ZMV_ThreadExit(0xFEEDBEEF);
  }
  left += 100;
}

TEST(PosixThread, ThreadExit_FromADeepCall_EndsTheThreadWithTheValue) {
  std::atomic<int> left{50};
  void* thread = ZMV_ThreadCreate(
      "deep", 0, kIndexStack, [](void* argument) { LeaveFromDeep(*static_cast<std::atomic<int>*>(argument)); }, &left);
  uint32_t exit_value = 0;
  EXPECT_EQ(ZMV_ThreadDelete(thread, &exit_value), 0);
  EXPECT_EQ(exit_value, 0xFEEDBEEFu);
  EXPECT_EQ(left, 0);
}

TEST(PosixThread, ThreadExit_OfSeveralThreads_EachHasItsOwnValue) {
  void* threads[8];
  for (uintptr_t i = 0; i < 8; ++i) {
    threads[i] = ZMV_ThreadCreate(
        "many", 0, kIndexStack,
        [](void* argument) { ZMV_ThreadExit(static_cast<uint32_t>(reinterpret_cast<uintptr_t>(argument))); },
        reinterpret_cast<void*>(i * 1000));
    ASSERT_NE(threads[i], nullptr);
  }
  for (uint32_t i = 0; i < 8; ++i) {
    uint32_t exit_value = 1;
    EXPECT_EQ(ZMV_ThreadDelete(threads[i], &exit_value), 0);
    EXPECT_EQ(exit_value, i * 1000);
  }
}

TEST(PosixThread, ThreadExit_OfAForeignThread_TracesAndReturns) {
  std::string text;
  ZMVHost_SetTraceSink(
      ZMV_TRACE_ERROR, [](void* user, const ZMVHostTraceLine* line) { *static_cast<std::string*>(user) += line->text; },
      &text);
  ZMV_ThreadExit(1);
  ZMVHost_SetTraceSink(ZMV_HOST_TRACE_DEFAULT, nullptr, nullptr);
  EXPECT_EQ(text, "not a thread of ZMV_ThreadCreate\n");
}

TEST(PosixThread, ThreadDelete_WaitsForTheEnd) {
  std::atomic<bool> done{false};
  void* thread = ZMV_ThreadCreate(
      "slow", 0, kIndexStack,
      [](void* argument) {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        *static_cast<std::atomic<bool>*>(argument) = true;
      },
      &done);
  EXPECT_EQ(ZMV_ThreadDelete(thread, nullptr), 0);
  EXPECT_TRUE(done);
}

struct Description {
  char name[32] = {};
  size_t stack = 0;
};

void Describe(void* argument) {
  auto* description = static_cast<Description*>(argument);
  pthread_getname_np(pthread_self(), description->name, sizeof description->name);
  pthread_attr_t attributes;
  pthread_getattr_np(pthread_self(), &attributes);
  pthread_attr_getstacksize(&attributes, &description->stack);
  pthread_attr_destroy(&attributes);
}

TEST(PosixThread, Name_IsSetAndCutToWhatTheKernelKeeps) {
  for (const auto& [name, kept] :
       {std::pair{"ReaderMakeIndex", "ReaderMakeIndex"}, std::pair{"A name that is far too long", "A name that is "}}) {
    Description seen;
    ZMV_ThreadDelete(ZMV_ThreadCreate(name, 0, kIndexStack, &Describe, &seen), nullptr);
    EXPECT_STREQ(seen.name, kept);
  }
}

TEST(PosixThread, NullName_IsAccepted) {
  Description seen;
  void* thread = ZMV_ThreadCreate(nullptr, 0, kIndexStack, &Describe, &seen);
  ASSERT_NE(thread, nullptr);
  EXPECT_EQ(ZMV_ThreadDelete(thread, nullptr), 0);
}

TEST(PosixThread, StackSize_IsAtLeastWhatWasAskedFor) {
  for (uint32_t size : {1u, 0x20000u, 0x300000u}) {
    Description seen;
    void* thread = ZMV_ThreadCreate("stack", 0, size, &Describe, &seen);
    ASSERT_NE(thread, nullptr) << size;
    EXPECT_EQ(ZMV_ThreadDelete(thread, nullptr), 0);
    EXPECT_GE(seen.stack, size);
  }
  Description seen;
  ZMV_ThreadDelete(ZMV_ThreadCreate("stack", 0, 0, &Describe, &seen), nullptr);
  EXPECT_GT(seen.stack, 0x20000u);
}

TEST(PosixThread, CreateAndDelete_GivesTheMemoryBack) {
  ZMVHost_MemoryAccount(1);
  ZMV_ThreadDelete(ZMV_ThreadCreate(
                       "t", 0, kIndexStack, [](void*) { ZMV_ThreadExit(0); }, nullptr),
                   nullptr);
  ZMVHostMemoryUse use;
  ZMVHost_MemoryUse(&use);
  EXPECT_EQ(use.allocations, 1u);
  EXPECT_EQ(use.blocks, 0u);
  ZMVHost_MemoryAccount(0);
}

TEST(PosixThread, NullEntryOrHandle_Fails) {
  EXPECT_EQ(ZMV_ThreadCreate("t", 0, kIndexStack, nullptr, nullptr), nullptr);
  EXPECT_LT(ZMV_ThreadDelete(nullptr, nullptr), 0);
}

}  // namespace

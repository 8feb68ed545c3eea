#include "platform/posix/zmv_posix_account.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#include "platform/zmv_host.h"
#include "platform/zmv_platform.h"

namespace zmv::posix {
namespace {

using ::testing::ElementsAre;

class Account : public ::testing::Test {
 protected:
  void SetUp() override { ZMVHost_MemoryAccount(1); }
  void TearDown() override { ZMVHost_MemoryAccount(0); }

  static void* Allocate(uint32_t size, const char* function, const char* file = "a.cpp", uint32_t line = 1) {
    return ZMV_Malloc(size, 0, ZMV_FILL_NONE, file, line, function);
  }
  static ZMVHostMemoryUse Use() {
    ZMVHostMemoryUse use;
    ZMVHost_MemoryUse(&use);
    return use;
  }
  using Row = std::tuple<std::string, std::string, uint32_t, uint64_t, uint64_t>;
  static std::vector<Row> Rows() {
    std::vector<Row> rows;
    const int32_t count = ZMVHost_MemoryByFunction(
        [](void* user, const ZMVHostMemoryEntry* entry) {
          static_cast<std::vector<Row>*>(user)->emplace_back(entry->function, entry->file, entry->line, entry->bytes,
                                                             entry->blocks);
        },
        &rows);
    EXPECT_EQ(count, static_cast<int32_t>(rows.size()));
    return rows;
  }
};

TEST_F(Account, BytesBlocksAndPeaks_FollowEveryCall) {
  void* a = Allocate(100, "A");
  void* b = Allocate(50, "B");
  EXPECT_EQ(Use().bytes, 150u);
  EXPECT_EQ(Use().blocks, 2u);
  ZMV_Free(a, 0);
  EXPECT_EQ(Use().bytes, 50u);
  b = ZMV_ReAlloc(b, 70, 0, "a.cpp", 2, "C");
  EXPECT_EQ(Use().bytes, 70u);
  EXPECT_EQ(Use().blocks, 1u);
  ZMV_Free(b, 0);
  const ZMVHostMemoryUse use = Use();
  EXPECT_EQ(use.bytes, 0u);
  EXPECT_EQ(use.blocks, 0u);
  EXPECT_EQ(use.peakBytes, 150u);
  EXPECT_EQ(use.peakBlocks, 2u);
  EXPECT_EQ(use.allocations, 3u);
  EXPECT_EQ(use.unrecorded, 0u);
}

TEST_F(Account, ByFunction_SumsAndSortsByBytes) {
  std::vector<void*> blocks = {Allocate(10, "Small", "a.cpp", 5), Allocate(100, "Large", "a.cpp", 9),
                               Allocate(20, "Small", "a.cpp", 3), Allocate(5, "Small", "b.cpp", 1),
                               ZMV_ReAlloc(nullptr, 40, 0, "a.cpp", 8, "Middle")};
  EXPECT_THAT(Rows(), ElementsAre(Row{"Large", "a.cpp", 9, 100, 1}, Row{"Middle", "a.cpp", 8, 40, 1},
                                  Row{"Small", "a.cpp", 3, 30, 2}, Row{"Small", "b.cpp", 1, 5, 1}));
  EXPECT_EQ(ZMVHost_MemoryByFunction(nullptr, nullptr), 4);
  for (void* block : blocks) ZMV_Free(block, 0);
  EXPECT_THAT(Rows(), ElementsAre());
}

TEST_F(Account, ByFunction_ResizedBlock_BelongsToTheFunctionThatResized) {
  void* block = ZMV_ReAlloc(Allocate(10, "First"), 500, 0, "a.cpp", 2, "Second");
  EXPECT_THAT(Rows(), ElementsAre(Row{"Second", "a.cpp", 2, 500, 1}));
  ZMV_Free(block, 0);
}

TEST_F(Account, ByFunction_NullTexts_AreEmpty) {
  void* block = ZMV_Malloc(4, 0, 0, nullptr, 0, nullptr);
  EXPECT_THAT(Rows(), ElementsAre(Row{"", "", 0, 4, 1}));
  ZMV_Free(block, 0);
}

TEST_F(Account, ByFunction_VisitorMayAllocate) {
  void* block = Allocate(4, "A");
  ZMVHost_MemoryByFunction([](void*, const ZMVHostMemoryEntry*) { ZMV_Free(Allocate(1, "Visitor"), 0); }, nullptr);
  EXPECT_EQ(Use().blocks, 1u);
  ZMV_Free(block, 0);
}

TEST_F(Account, BlocksFromBeforeTheStart_AreNeitherCountedNorMissed) {
  ZMVHost_MemoryAccount(0);
  void* freed = Allocate(10, "Before");
  void* resized = Allocate(10, "Before");
  ZMVHost_MemoryAccount(1);
  void* block = Allocate(3, "After");
  ZMV_Free(freed, 0);
  EXPECT_EQ(Use().blocks, 1u);
  EXPECT_EQ(Use().bytes, 3u);
  resized = ZMV_ReAlloc(resized, 30, 0, "a.cpp", 1, "After");
  EXPECT_EQ(Use().blocks, 2u);
  EXPECT_EQ(Use().bytes, 33u);
  ZMV_Free(resized, 0);
  ZMV_Free(block, 0);
  EXPECT_EQ(Use().blocks, 0u);
}

TEST_F(Account, Stopped_ForgetsEverythingAndStartsAtZero) {
  void* block = Allocate(10, "A");
  ZMVHost_MemoryAccount(0);
  EXPECT_EQ(Use().bytes, 0u);
  EXPECT_EQ(Use().allocations, 0u);
  EXPECT_EQ(ZMVHost_MemoryByFunction(nullptr, nullptr), 0);
  void* uncounted = Allocate(10, "B");
  EXPECT_EQ(Use().blocks, 0u);
  ZMVHost_MemoryAccount(1);
  ZMV_Free(block, 0);
  ZMV_Free(uncounted, 0);
  EXPECT_EQ(Use().blocks, 0u);
  EXPECT_EQ(Use().bytes, 0u);
}

TEST_F(Account, StartedTwice_GoesOnCounting) {
  void* block = Allocate(10, "A");
  ZMVHost_MemoryAccount(1);
  EXPECT_EQ(Use().blocks, 1u);
  ZMV_Free(block, 0);
}

TEST_F(Account, NullRecord_IsIgnored) {
  ZMVHost_MemoryUse(nullptr);
  EXPECT_EQ(Use().blocks, 0u);
}

// Addresses are only keys here, so they can be chosen to collide and to come in any order.
TEST_F(Account, ManyAddresses_RecordedAndForgotten_MatchAModel) {
  std::mt19937 random(3);
  std::map<uintptr_t, uint32_t> model;
  uint64_t bytes = 0;
  for (int i = 0; i < 50000; ++i) {
    const uintptr_t address = (1 + random() % 3000) * 16;
    const auto found = model.find(address);
    if (found != model.end()) {
      ForgetBlock(reinterpret_cast<void*>(address));
      bytes -= found->second;
      model.erase(found);
    } else {
      const auto size = static_cast<uint32_t>(random() % 1000);
      RecordBlock(reinterpret_cast<void*>(address), size, {"a.cpp", 1, "A"});
      bytes += size;
      model[address] = size;
    }
    ASSERT_EQ(Use().blocks, model.size());
    ASSERT_EQ(Use().bytes, bytes);
  }
  for (const auto& [address, size] : model) ForgetBlock(reinterpret_cast<void*>(address));
  EXPECT_EQ(Use().blocks, 0u);
  EXPECT_EQ(Use().bytes, 0u);
}

}  // namespace
}  // namespace zmv::posix

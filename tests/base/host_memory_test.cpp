#include "base/host_memory.h"

#include <gmock/gmock.h>

#include <utility>

#include "platform/zmv_platform.h"
#include "tests/support/scripted_host.h"

namespace zmv {
namespace {

using test::HostCall;
using test::ScriptedHost;
using ::testing::Each;
using ::testing::ElementsAre;

constexpr TraceModule kModule{"tag", "source"};

struct Record {
  uint32_t numbers[16];
};

TEST(HostMemoryTest, Record_IsZeroFilledAndFreedAtTheEndOfItsScope) {
  ScriptedHost host;
  {
    HostMemory<Record> record = AllocateRecord<Record>(kModule, "Maker");
    ASSERT_TRUE(record);
    EXPECT_THAT(record->numbers, Each(0u));
    EXPECT_EQ((*record).numbers[3], record.Get()->numbers[3]);
    EXPECT_THAT(host.LiveList(), ElementsAre("Maker 64"));
  }
  EXPECT_EQ(host.LiveBlocks(), 0u);
}

TEST(HostMemoryTest, Bytes_AreAskedForWithoutClearing) {
  ScriptedHost host;
  HostMemory<uint8_t> bytes = AllocateBytes(kModule, 10, "Maker");
  ASSERT_TRUE(bytes);
  EXPECT_EQ(bytes.Get()[0], 0xCD);  // the scripted host's pattern
  EXPECT_THAT(host.LiveList(), ElementsAre("Maker 10"));
}

TEST(HostMemoryTest, FailedAllocation_IsEmptyAndFreesNothing) {
  ScriptedHost host;
  host.Fail(HostCall::kMalloc, 1);
  {
    HostMemory<Record> record = AllocateRecord<Record>(kModule, "Maker");
    EXPECT_FALSE(record);
    EXPECT_EQ(record.Get(), nullptr);
  }
  EXPECT_EQ(host.Count(HostCall::kFree), 0u);
}

TEST(HostMemoryTest, Release_HandsTheMemoryOver) {
  ScriptedHost host;
  Record* record = nullptr;
  {
    HostMemory<Record> owner = AllocateRecord<Record>(kModule, "Maker");
    record = owner.Release();
    EXPECT_FALSE(owner);
  }
  EXPECT_EQ(host.LiveBlocks(), 1u);
  FreeHost(record);
  EXPECT_EQ(host.LiveBlocks(), 0u);
}

TEST(HostMemoryTest, Move_LeavesOneOwner) {
  ScriptedHost host;
  {
    HostMemory<Record> first = AllocateRecord<Record>(kModule, "First");
    HostMemory<Record> second(std::move(first));
    EXPECT_FALSE(first);
    HostMemory<Record> third = AllocateRecord<Record>(kModule, "Third");
    third = std::move(second);
    EXPECT_THAT(host.LiveList(), ElementsAre("First 64"));
  }
  EXPECT_EQ(host.LiveBlocks(), 0u);
}

}  // namespace
}  // namespace zmv

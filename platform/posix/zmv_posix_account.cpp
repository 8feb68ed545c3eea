#include "platform/posix/zmv_posix_account.h"

#include <pthread.h>
#include <stdlib.h>

#include <algorithm>
#include <cstring>

#include "platform/zmv_host.h"

namespace zmv::posix {
namespace {

struct Block {
  const void* address;  // null: a free place
  uint32_t size;
  MemoryPlace place;
};

pthread_mutex_t g_lock = PTHREAD_MUTEX_INITIALIZER;

class Lock {
 public:
  Lock() { pthread_mutex_lock(&g_lock); }
  ~Lock() { pthread_mutex_unlock(&g_lock); }
  Lock(const Lock&) = delete;
  Lock& operator=(const Lock&) = delete;
};

// Open addressing with linear probing; removal closes the gap, so there are no tombstones. Everything here is under the
// lock.
struct Table {
  Block* blocks;
  size_t capacity;  // 0, or a power of two
  ZMVHostMemoryUse use;
};
Table g_table;

constexpr size_t kFirstCapacity = 256;

size_t Home(const void* address, size_t capacity) {
  uint64_t hash = reinterpret_cast<uintptr_t>(address) >> 4;
  hash *= 0x9E3779B97F4A7C15u;  // 2^64 over the golden ratio
  return static_cast<size_t>(hash >> 32) & (capacity - 1);
}

// The place of `address`, or the free place where it belongs.
size_t PlaceOf(const Block* blocks, size_t capacity, const void* address) {
  size_t at = Home(address, capacity);
  while (blocks[at].address != nullptr && blocks[at].address != address) at = (at + 1) & (capacity - 1);
  return at;
}

// Room for one more block with at least a quarter of the places left free.
bool MakeRoom() {
  if (g_table.capacity != 0 && (g_table.use.blocks + 1) * 4 <= g_table.capacity * 3) return true;
  const size_t capacity = g_table.capacity == 0 ? kFirstCapacity : g_table.capacity * 2;
  auto* blocks = static_cast<Block*>(calloc(capacity, sizeof(Block)));
  if (blocks == nullptr) return false;
  for (size_t i = 0; i < g_table.capacity; ++i) {
    const Block& block = g_table.blocks[i];
    if (block.address != nullptr) blocks[PlaceOf(blocks, capacity, block.address)] = block;
  }
  free(g_table.blocks);
  g_table.blocks = blocks;
  g_table.capacity = capacity;
  return true;
}

void Insert(const Block& block) {
  if (!MakeRoom()) {
    ++g_table.use.unrecorded;
    return;
  }
  g_table.blocks[PlaceOf(g_table.blocks, g_table.capacity, block.address)] = block;
  ZMVHostMemoryUse& use = g_table.use;
  use.bytes += block.size;
  use.blocks += 1;
  use.peakBytes = std::max(use.peakBytes, use.bytes);
  use.peakBlocks = std::max(use.peakBlocks, use.blocks);
}

// Blocks behind the gap whose home lies at or before it move up.
void CloseGap(size_t gap) {
  const size_t mask = g_table.capacity - 1;
  for (size_t at = (gap + 1) & mask; g_table.blocks[at].address != nullptr; at = (at + 1) & mask) {
    const size_t home = Home(g_table.blocks[at].address, g_table.capacity);
    if (((at - home) & mask) < ((at - gap) & mask)) continue;
    g_table.blocks[gap] = g_table.blocks[at];
    gap = at;
  }
  g_table.blocks[gap] = Block{};
}

// Takes the block out of the table; an unknown one gives a free place.
Block Remove(const void* address) {
  if (address == nullptr || g_table.capacity == 0) return Block{};
  const size_t at = PlaceOf(g_table.blocks, g_table.capacity, address);
  const Block block = g_table.blocks[at];
  if (block.address == nullptr) return block;
  g_table.use.bytes -= block.size;
  g_table.use.blocks -= 1;
  CloseGap(at);
  return block;
}

int Compare(const MemoryPlace& a, const MemoryPlace& b) {
  const int order = std::strcmp(a.function, b.function);
  return order != 0 ? order : std::strcmp(a.file, b.file);
}

// The live blocks as a list of `*count` entries that the caller frees; null without blocks or without memory.
Block* CopyBlocks(size_t* count) {
  Lock lock;
  *count = static_cast<size_t>(g_table.use.blocks);
  auto* list = *count == 0 ? nullptr : static_cast<Block*>(malloc(*count * sizeof(Block)));
  if (list == nullptr) return nullptr;
  std::copy_if(g_table.blocks, g_table.blocks + g_table.capacity, list,
               [](const Block& block) { return block.address != nullptr; });
  return list;
}

// Sums the blocks of each function into `entries`, which has room for one entry per block. The number of functions.
size_t SumByFunction(Block* list, size_t count, ZMVHostMemoryEntry* entries) {
  std::sort(list, list + count, [](const Block& a, const Block& b) {
    const int order = Compare(a.place, b.place);
    return order != 0 ? order < 0 : a.place.line < b.place.line;
  });
  size_t functions = 0;
  for (size_t i = 0; i < count; ++i) {
    const MemoryPlace& place = list[i].place;
    if (i == 0 || Compare(list[i - 1].place, place) != 0) {
      entries[functions++] = {place.function, place.file, place.line, 0, 0};
    }
    entries[functions - 1].bytes += list[i].size;
    entries[functions - 1].blocks += 1;
  }
  std::sort(entries, entries + functions, [](const ZMVHostMemoryEntry& a, const ZMVHostMemoryEntry& b) {
    return a.bytes != b.bytes ? a.bytes > b.bytes : std::strcmp(a.function, b.function) < 0;
  });
  return functions;
}

Block MakeBlock(const void* address, uint32_t size, const MemoryPlace& place) {
  const char* file = place.file != nullptr ? place.file : "";
  const char* function = place.function != nullptr ? place.function : "";
  return {address, size, {file, place.line, function}};
}

}  // namespace

void RecordBlock(const void* block, uint32_t size, const MemoryPlace& place) {
  Lock lock;
  if (!AccountRuns()) return;
  g_table.use.allocations += 1;
  Insert(MakeBlock(block, size, place));
}

void ForgetBlock(const void* block) {
  Lock lock;
  Remove(block);
}

void* ResizeBlock(void* block, uint32_t size, const MemoryPlace& place) {
  Lock lock;
  const Block before = Remove(block);
  void* resized = realloc(block, size == 0 ? 1 : size);
  if (resized == nullptr) {
    if (before.address != nullptr) Insert(before);
    return nullptr;
  }
  if (AccountRuns()) {
    g_table.use.allocations += 1;
    Insert(MakeBlock(resized, size, place));
  }
  return resized;
}

}  // namespace zmv::posix

void ZMVHost_MemoryAccount(int on) {
  using namespace zmv::posix;
  Lock lock;
  const bool runs = on != 0;
  if (runs == AccountRuns()) return;
  free(g_table.blocks);
  g_table = Table{};
  g_account_runs.store(runs, std::memory_order_relaxed);
}

void ZMVHost_MemoryUse(ZMVHostMemoryUse* use) {
  if (use == nullptr) return;
  zmv::posix::Lock lock;
  *use = zmv::posix::g_table.use;
}

int32_t ZMVHost_MemoryByFunction(ZMVHostMemoryVisitor visit, void* user) {
  size_t count = 0;
  zmv::posix::Block* list = zmv::posix::CopyBlocks(&count);
  if (count == 0) return 0;
  auto* entries = static_cast<ZMVHostMemoryEntry*>(malloc(count * sizeof(ZMVHostMemoryEntry)));
  int32_t result = -1;
  if (list != nullptr && entries != nullptr) {
    const size_t functions = zmv::posix::SumByFunction(list, count, entries);
    for (size_t i = 0; visit != nullptr && i < functions; ++i) visit(user, &entries[i]);
    result = static_cast<int32_t>(functions);
  }
  free(entries);
  free(list);
  return result;
}

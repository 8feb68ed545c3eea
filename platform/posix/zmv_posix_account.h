// The account of live memory blocks: a table beside the blocks, so that they carry no header and the account can start
// at any time.
#ifndef ZMV_PLATFORM_POSIX_ACCOUNT_H
#define ZMV_PLATFORM_POSIX_ACCOUNT_H

#include <atomic>
#include <cstdint>

namespace zmv::posix {

// Where a block was asked for.
struct MemoryPlace {
  const char* file;
  uint32_t line;
  const char* function;
};

inline std::atomic<bool> g_account_runs{false};

// True while the account runs; a plain load, which is all that allocation pays when it does not.
inline bool AccountRuns() { return g_account_runs.load(std::memory_order_relaxed); }

// A new block. Nothing happens when the account has been stopped meanwhile.
void RecordBlock(const void* block, uint32_t size, const MemoryPlace& place);

// The block is about to be given back; an unknown one is ignored.
void ForgetBlock(const void* block);

// realloc(), a size of 0 served as 1 byte, with the block's record. One step under the account's lock: otherwise
// another thread could be given the old address, and record it, before this record is gone.
void* ResizeBlock(void* block, uint32_t size, const MemoryPlace& place);

}  // namespace zmv::posix

#endif

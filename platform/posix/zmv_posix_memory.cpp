// The memory calls of zmv_platform.h over the C library's heap.
#include <stdlib.h>

#include "platform/posix/zmv_posix_account.h"
#include "platform/zmv_platform.h"

void* ZMV_Malloc(uint32_t size, uint32_t /*reserved*/, int32_t fill, const char* file, uint32_t line,
                 const char* function) {
  const uint32_t bytes = size == 0 ? 1 : size;
  void* block = fill == ZMV_FILL_NONE ? malloc(bytes) : calloc(1, bytes);
  if (zmv::posix::AccountRuns() && block != nullptr) zmv::posix::RecordBlock(block, size, {file, line, function});
  return block;
}

void* ZMV_ReAlloc(void* memory, uint32_t size, uint32_t /*reserved*/, const char* file, uint32_t line,
                  const char* function) {
  if (zmv::posix::AccountRuns()) return zmv::posix::ResizeBlock(memory, size, {file, line, function});
  return realloc(memory, size == 0 ? 1 : size);
}

void ZMV_Free(void* memory, uint32_t /*reserved*/) {
  if (memory == nullptr) return;
  if (zmv::posix::AccountRuns()) zmv::posix::ForgetBlock(memory);
  free(memory);
}

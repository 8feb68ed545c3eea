// Memory taken from the host, with an owner.
//
//     HostMemory<uint8_t> cache(kModule, size, HostFill::kNone, __func__);   // or AllocateRecord / AllocateBytes
//     if (!cache) return Result(ZMV_E_MEMORY);
//     handle->m_pCache = cache.Release();
#ifndef ZMV_BASE_HOST_MEMORY_H
#define ZMV_BASE_HOST_MEMORY_H

#include <type_traits>

#include "base/trace.h"

namespace zmv {

// What the host does with the bytes it hands out.
enum class HostFill : int32_t { kZero = 0, kNone = -1 };

inline void FreeHost(void* memory) { ::ZMV_Free(memory, 0); }

template <typename T>
class HostMemory {
  static_assert(std::is_trivially_destructible_v<T>);

 public:
  HostMemory() = default;
  // `bytes` is the size of the allocation, not a count of T.
  HostMemory(const TraceModule& module, uint32_t bytes, HostFill fill, const char* function,
             uint32_t line = __builtin_LINE())
      : memory_(static_cast<T*>(::ZMV_Malloc(bytes, 0, static_cast<int32_t>(fill), module.source, line, function))) {}
  ~HostMemory() {
    if (memory_ != nullptr) FreeHost(memory_);
  }
  HostMemory(HostMemory&& other) noexcept : memory_(other.Release()) {}
  HostMemory& operator=(HostMemory&& other) noexcept {
    if (this != &other) {
      if (memory_ != nullptr) FreeHost(memory_);
      memory_ = other.Release();
    }
    return *this;
  }
  HostMemory(const HostMemory&) = delete;
  HostMemory& operator=(const HostMemory&) = delete;

  explicit operator bool() const { return memory_ != nullptr; }
  T* Get() const { return memory_; }
  T* operator->() const { return memory_; }
  T& operator*() const { return *memory_; }
  T* Release() {
    T* memory = memory_;
    memory_ = nullptr;
    return memory;
  }

 private:
  T* memory_ = nullptr;
};

// One zero-filled record.
template <typename T>
HostMemory<T> AllocateRecord(const TraceModule& module, const char* function, uint32_t line = __builtin_LINE()) {
  return HostMemory<T>(module, static_cast<uint32_t>(sizeof(T)), HostFill::kZero, function, line);
}

// `size` bytes that are written before they are read.
inline HostMemory<uint8_t> AllocateBytes(const TraceModule& module, uint32_t size, const char* function,
                                         uint32_t line = __builtin_LINE()) {
  return HostMemory<uint8_t>(module, size, HostFill::kNone, function, line);
}

}  // namespace zmv

#endif

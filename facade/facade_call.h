// What a façade puts around an operation of its container: the lock and the result.
#ifndef ZMV_FACADE_CALL_H
#define ZMV_FACADE_CALL_H

#include "base/zmv_result.h"
#include "platform/zmv_platform.h"

namespace zmv::facade {

// Holds a handle's mutex for the rest of a block.
class HandleLock {
 public:
  explicit HandleLock(void* mutex) : mutex_(mutex) { ZMV_MutexLock(mutex_, ZMV_WAIT_FOREVER); }
  ~HandleLock() { ZMV_MutexUnLock(mutex_); }
  HandleLock(const HandleLock&) = delete;
  HandleLock& operator=(const HandleLock&) = delete;

 private:
  void* mutex_;
};

// An application sees success as exactly 0 and a failure whole.
constexpr int32_t FacadeResult(int32_t result) { return Failed(result) ? result : 0; }

}  // namespace zmv::facade

#endif

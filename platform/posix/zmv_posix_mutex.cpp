// The mutexes of zmv_platform.h over POSIX threads.
#ifndef _GNU_SOURCE
#define _GNU_SOURCE
#endif
#include <pthread.h>
#include <time.h>

#include "platform/zmv_platform.h"

namespace zmv::posix {
namespace {

constexpr char kSource[] = "zmv_posix_mutex";
constexpr uint32_t kMillisecondsPerSecond = 1000;
constexpr long kNanosecondsPerMillisecond = 1000000;
constexpr long kNanosecondsPerSecond = 1000000000;

// A recorder's wall clock is set while it runs, so waiting goes by the monotonic clock where the C library can. (The
// thread sanitizer of gcc 12 does not know that call.)
#if defined(__GLIBC__) && __GLIBC_PREREQ(2, 30) && !defined(__SANITIZE_THREAD__)
constexpr clockid_t kWaitClock = CLOCK_MONOTONIC;
int LockUntil(pthread_mutex_t* mutex, const timespec* end) { return pthread_mutex_clocklock(mutex, kWaitClock, end); }
#else
constexpr clockid_t kWaitClock = CLOCK_REALTIME;
int LockUntil(pthread_mutex_t* mutex, const timespec* end) { return pthread_mutex_timedlock(mutex, end); }
#endif

timespec After(uint32_t milliseconds) {
  timespec time;
  clock_gettime(kWaitClock, &time);
  time.tv_sec += static_cast<time_t>(milliseconds / kMillisecondsPerSecond);
  time.tv_nsec += static_cast<long>(milliseconds % kMillisecondsPerSecond) * kNanosecondsPerMillisecond;
  if (time.tv_nsec >= kNanosecondsPerSecond) {
    time.tv_nsec -= kNanosecondsPerSecond;
    time.tv_sec += 1;
  }
  return time;
}

int LockWithin(pthread_mutex_t* mutex, uint32_t timeout) {
  if (timeout >= ZMV_WAIT_FOREVER) return pthread_mutex_lock(mutex);
  if (timeout == 0) return pthread_mutex_trylock(mutex);
  const timespec end = After(timeout);
  return LockUntil(mutex, &end);
}

}  // namespace
}  // namespace zmv::posix

void* ZMV_MutexCreate(void) {
  void* memory = ZMV_Malloc(sizeof(pthread_mutex_t), 0, ZMV_FILL_NONE, zmv::posix::kSource, __LINE__, __func__);
  if (memory == nullptr) return nullptr;
  if (pthread_mutex_init(static_cast<pthread_mutex_t*>(memory), nullptr) == 0) return memory;
  ZMV_Free(memory, 0);
  return nullptr;
}

int32_t ZMV_MutexLock(void* mutex, uint32_t timeout) {
  if (mutex == nullptr) return -1;
  return zmv::posix::LockWithin(static_cast<pthread_mutex_t*>(mutex), timeout) == 0 ? 0 : -1;
}

int32_t ZMV_MutexUnLock(void* mutex) {
  return mutex != nullptr && pthread_mutex_unlock(static_cast<pthread_mutex_t*>(mutex)) == 0 ? 0 : -1;
}

int32_t ZMV_MutexDestroy(void* mutex) {
  if (mutex == nullptr || pthread_mutex_destroy(static_cast<pthread_mutex_t*>(mutex)) != 0) return -1;
  ZMV_Free(mutex, 0);
  return 0;
}

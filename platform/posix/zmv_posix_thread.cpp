// The threads of zmv_platform.h over POSIX threads.
#ifndef _GNU_SOURCE
#define _GNU_SOURCE
#endif
#include <pthread.h>
#include <setjmp.h>
#include <unistd.h>

#include <cstring>

#include "platform/zmv_platform.h"

namespace zmv::posix {
namespace {

constexpr char kSource[] = "zmv_posix_thread";
constexpr size_t kNameSize = 16;  // the kernel's limit, terminator included

struct Thread {
  pthread_t id;
  ZMVThreadEntry entry;
  void* argument;
  uint32_t exit_value;
  char name[kNameSize];
  jmp_buf end;
};

// The record of the running thread; null in threads that were not started here.
thread_local Thread* t_thread = nullptr;

// ZMV_ThreadExit comes back here instead of calling pthread_exit(), which loads the compiler's unwinder at run time: a
// device need not have it, and the stack of a small thread need not have room for it.
void* Run(void* record) {
  auto* thread = static_cast<Thread*>(record);
  t_thread = thread;
  pthread_setname_np(pthread_self(), thread->name);
  if (_setjmp(thread->end) == 0) thread->entry(thread->argument);
  return nullptr;
}

size_t StackSize(uint32_t wanted) {
  const long least = sysconf(_SC_THREAD_STACK_MIN);
  const size_t size = wanted;
  return least > 0 && size < static_cast<size_t>(least) ? static_cast<size_t>(least) : size;
}

// A stack size of 0 means the system's default. The number of the error, 0 = started.
int Start(Thread* thread, uint32_t stack_size) {
  pthread_attr_t attributes;
  int error = pthread_attr_init(&attributes);
  if (error != 0) return error;
  if (stack_size != 0) error = pthread_attr_setstacksize(&attributes, StackSize(stack_size));
  if (error == 0) error = pthread_create(&thread->id, &attributes, &Run, thread);
  pthread_attr_destroy(&attributes);
  return error;
}

}  // namespace
}  // namespace zmv::posix

using zmv::posix::Thread;

void* ZMV_ThreadCreate(const char* name, int32_t /*priority*/, uint32_t stackSize, ZMVThreadEntry entry,
                       void* argument) {
  if (entry == nullptr) return nullptr;
  auto* thread =
      static_cast<Thread*>(ZMV_Malloc(sizeof(Thread), 0, ZMV_FILL_ZERO, zmv::posix::kSource, __LINE__, __func__));
  if (thread == nullptr) return nullptr;
  thread->entry = entry;
  thread->argument = argument;
  if (name != nullptr) strncpy(thread->name, name, zmv::posix::kNameSize - 1);
  if (zmv::posix::Start(thread, stackSize) == 0) return thread;
  ZMV_Free(thread, 0);
  return nullptr;
}

int32_t ZMV_ThreadDelete(void* handle, uint32_t* exitValue) {
  if (handle == nullptr) return -1;
  auto* thread = static_cast<Thread*>(handle);
  if (pthread_join(thread->id, nullptr) != 0) return -1;
  if (exitValue != nullptr) *exitValue = thread->exit_value;
  ZMV_Free(thread, 0);
  return 0;
}

void ZMV_ThreadExit(uint32_t exitValue) {
  Thread* thread = zmv::posix::t_thread;
  if (thread == nullptr) {
    ZMV_Trace("zmvplatform", ZMV_TRACE_ERROR, zmv::posix::kSource, __LINE__, __func__,
              "not a thread of ZMV_ThreadCreate\n");
    return;
  }
  thread->exit_value = exitValue;
  _longjmp(thread->end, 1);
}

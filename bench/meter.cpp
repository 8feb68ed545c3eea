#include "bench/meter.h"

#include <time.h>

#include <cstdio>
#include <cstring>

#if __has_include(<valgrind/callgrind.h>)
#include <valgrind/callgrind.h>
#else
#define CALLGRIND_TOGGLE_COLLECT
#endif

namespace zmv::bench {
namespace {

double CpuTime() {
  timespec now{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) * 1e9 + static_cast<double>(now.tv_nsec);
}

// The number behind `label` in a file of lines "label: number"; -1 when it is not there.
int64_t NumberOf(const char* path, const char* label) {
  std::FILE* file = std::fopen(path, "re");
  if (file == nullptr) return -1;
  // No buffer from the heap: it would be part of what is measured.
  char buffer[4096];
  std::setvbuf(file, buffer, _IOFBF, sizeof buffer);
  char line[256];
  long long number = -1;
  const size_t length = std::strlen(label);
  while (std::fgets(line, sizeof line, file) != nullptr) {
    if (std::strncmp(line, label, length) == 0 && std::sscanf(line + length, ": %lld", &number) == 1) break;
  }
  std::fclose(file);
  return number;
}

}  // namespace

void CpuMeter::Start() {
  started_ = CpuTime();
  CALLGRIND_TOGGLE_COLLECT;
}

void CpuMeter::Stop() {
  CALLGRIND_TOGGLE_COLLECT;
  sum_ += CpuTime() - started_;
}

int64_t AnonymousBytes() {
  const int64_t kib = NumberOf("/proc/self/smaps_rollup", "Anonymous");
  return kib < 0 ? -1 : kib * 1024;
}

int64_t WriteCalls() { return NumberOf("/proc/self/io", "syscw"); }

}  // namespace zmv::bench

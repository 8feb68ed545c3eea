// The remaining services of zmv_platform.h: clock, disk space, text.
#include <errno.h>
#include <limits.h>
#include <stdarg.h>
#include <stdint.h>
#include <stdio.h>
#include <sys/statvfs.h>
#include <time.h>

#include <cstring>

#include "platform/zmv_platform.h"

namespace zmv::posix {
namespace {

constexpr uint64_t kMillisecondsPerSecond = 1000;
constexpr uint64_t kNanosecondsPerMillisecond = 1000000;

int64_t FreeBytes(const struct statvfs& status) {
  uint64_t bytes;
  const uint64_t unit = status.f_frsize != 0 ? status.f_frsize : status.f_bsize;
  if (__builtin_mul_overflow(static_cast<uint64_t>(status.f_bavail), unit, &bytes) || bytes > INT64_MAX) {
    return INT64_MAX;
  }
  return static_cast<int64_t>(bytes);
}

// The directory of `path` in `directory`, PATH_MAX bytes; false when it does not fit.
bool DirectoryOf(const char* path, char* directory) {
  const char* slash = std::strrchr(path, '/');
  if (slash == nullptr) {
    std::strcpy(directory, ".");
    return true;
  }
  const size_t length = slash == path ? 1 : static_cast<size_t>(slash - path);
  if (length >= PATH_MAX) return false;
  std::memcpy(directory, path, length);
  directory[length] = '\0';
  return true;
}

// A trace line names a few codes at once; each thread has so many texts before the first is used again.
constexpr uint32_t kCodeTexts = 8;
constexpr size_t kCodeTextSize = sizeof "0x00000000";

char* NextCodeText() {
  thread_local char texts[kCodeTexts][kCodeTextSize];
  thread_local uint32_t next = 0;
  return texts[next++ % kCodeTexts];
}

bool IsPrintable(const char* text, size_t length) {
  for (size_t i = 0; i < length; ++i) {
    if (text[i] < ' ' || text[i] > '~') return false;
  }
  return true;
}

}  // namespace
}  // namespace zmv::posix

uint64_t ZMV_GetSystemTick(void) {
  timespec time;
  clock_gettime(CLOCK_MONOTONIC, &time);
  return static_cast<uint64_t>(time.tv_sec) * zmv::posix::kMillisecondsPerSecond +
         static_cast<uint64_t>(time.tv_nsec) / zmv::posix::kNanosecondsPerMillisecond;
}

int64_t ZMV_GetFreeDiskSpace(const char* path) {
  if (path == nullptr || path[0] == '\0') return -1;
  struct statvfs status;
  if (statvfs(path, &status) == 0) return zmv::posix::FreeBytes(status);
  char directory[PATH_MAX];
  if (errno != ENOENT || !zmv::posix::DirectoryOf(path, directory)) return -1;
  return statvfs(directory, &status) == 0 ? zmv::posix::FreeBytes(status) : -1;
}

int ZMV_snprintf(char* buffer, size_t size, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const int length = vsnprintf(buffer, size, format, arguments);
  va_end(arguments);
  return length;
}

const char* ZMV_FourCC_String(uint32_t code, uint32_t /*reserved*/) {
  char* text = zmv::posix::NextCodeText();
  std::memcpy(text, &code, sizeof code);
  text[sizeof code] = '\0';
  if (!zmv::posix::IsPrintable(text, sizeof code)) {
    snprintf(text, zmv::posix::kCodeTextSize, "0x%08X", static_cast<unsigned>(code));
  }
  return text;
}

// ZMV_Trace: to the standard error stream, or to the application's sink.
#include <errno.h>
#include <limits.h>
#include <pthread.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>

#include <atomic>
#include <cstring>

#include "platform/zmv_host.h"
#include "platform/zmv_platform.h"

namespace zmv::posix {
namespace {

constexpr size_t kTextSize = 1024;   // a line with a path of 255 bytes and its numbers fits several times
constexpr size_t kPrefixSize = 256;  // level, module, place
constexpr char kCut[] = "...\n";     // ends a line that does not fit
constexpr char kLevelLetters[] = "?EWID";

// Every level passes this one, so that the first line finds out what is shown.
constexpr int32_t kLevelUnknown = INT_MAX;
std::atomic<int32_t> g_level{kLevelUnknown};

// Guards the sink, which is called under it: lines arrive one at a time.
pthread_mutex_t g_sink_lock = PTHREAD_MUTEX_INITIALIZER;
ZMVHostTraceSink g_sink = nullptr;
void* g_sink_user = nullptr;

// True while this thread is inside the sink, and so holds the lock.
thread_local bool t_in_sink = false;

int32_t LevelOfEnvironment() {
  const char* text = getenv("ZMV_TRACE");
  if (text == nullptr || text[0] < '0' || text[0] > '4' || text[1] != '\0') return ZMV_TRACE_ERROR;
  return text[0] - '0';
}

int32_t ShownLevel() {
  int32_t level = g_level.load(std::memory_order_relaxed);
  if (level != kLevelUnknown) return level;
  const int32_t found = LevelOfEnvironment();
  return g_level.compare_exchange_strong(level, found, std::memory_order_relaxed) ? found : level;
}

void Format(char* text, size_t size, const char* format, va_list arguments) {
  const int length = vsnprintf(text, size, format, arguments);
  if (length < 0) text[0] = '\0';
  if (length >= static_cast<int>(size)) std::memcpy(text + size - sizeof kCut, kCut, sizeof kCut);
}

// Prefix and text in one call, so that lines of several threads do not mix.
void PutToStandardError(const ZMVHostTraceLine& line) {
  char out[kPrefixSize + kTextSize];
  const char letter = line.level >= 0 && line.level <= ZMV_TRACE_DEBUG ? kLevelLetters[line.level] : '?';
  const int length =
      snprintf(out, kPrefixSize, "%c %s %s:%u %s: ", letter, line.module, line.file, line.line, line.function);
  if (length < 0) return;
  const size_t prefix = static_cast<size_t>(length) < kPrefixSize ? static_cast<size_t>(length) : kPrefixSize - 1;
  std::memcpy(out + prefix, line.text, std::strlen(line.text) + 1);
  fputs(out, stderr);
}

void Deliver(const ZMVHostTraceLine& line) {
  if (t_in_sink) return;
  pthread_mutex_lock(&g_sink_lock);
  const ZMVHostTraceSink sink = g_sink;
  if (sink != nullptr) {
    // The level may have changed together with the sink since the line was let through.
    t_in_sink = true;
    if (line.level <= ShownLevel()) sink(g_sink_user, &line);
    t_in_sink = false;
  }
  pthread_mutex_unlock(&g_sink_lock);
  if (sink == nullptr) PutToStandardError(line);
}

const char* OrEmpty(const char* text) { return text != nullptr ? text : ""; }

// Kept out of line: a line that is not shown sets up nothing of this.
[[gnu::noinline]] void Show(ZMVHostTraceLine line, const char* format, va_list arguments) {
  if (line.level > ShownLevel() || format == nullptr) return;
  const int error = errno;
  char text[kTextSize];
  Format(text, sizeof text, format, arguments);
  line.text = text;
  Deliver(line);
  errno = error;
}

}  // namespace
}  // namespace zmv::posix

void ZMV_Trace(const char* module, int32_t level, const char* file, uint32_t line, const char* function,
               const char* format, ...) {
  using namespace zmv::posix;
  if (level > g_level.load(std::memory_order_relaxed)) [[likely]]
    return;
  va_list arguments;
  va_start(arguments, format);
  Show({OrEmpty(module), OrEmpty(file), OrEmpty(function), nullptr, line, level}, format, arguments);
  va_end(arguments);
}

void ZMVHost_SetTraceSink(int32_t level, ZMVHostTraceSink sink, void* user) {
  using namespace zmv::posix;
  const bool locked = t_in_sink;
  if (!locked) pthread_mutex_lock(&g_sink_lock);
  g_sink = sink;
  g_sink_user = user;
  g_level.store(level < 0 ? LevelOfEnvironment() : level, std::memory_order_relaxed);
  if (!locked) pthread_mutex_unlock(&g_sink_lock);
}

int32_t ZMVHost_TraceLevel(void) { return zmv::posix::ShownLevel(); }

#include "platform/posix/zmv_posix_read_cache.h"

#include <errno.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

namespace zmv::posix {

int64_t ReadAt(int descriptor, void* to, uint32_t length, int64_t position) {
  for (;;) {
    const ssize_t count = pread(descriptor, to, length, position);
    if (count >= 0 || errno != EINTR) return count;
  }
}

bool ReadCache::Continues(const Window& window, int64_t position) {
  const int64_t gap = position - window.start - window.size;
  return window.fill != 0 && gap >= 0 && gap <= kForwardGap;
}

// A window that was left behind is used again before one that never was, so that memory is touched only for places that
// are read in turn; one that still serves comes last.
int ReadCache::Rank(const Window& window) const {
  if (window.last_use == 0) return 1;
  return clock_ - window.last_use > kLeftBehind ? 0 : 2;
}

bool ReadCache::GoesBefore(const Window& window, const Window& other) const {
  const int difference = Rank(window) - Rank(other);
  return difference != 0 ? difference < 0 : window.last_use < other.last_use;
}

// The window that holds `position`, else the one that ends shortly before it, else the one that can best be spared,
// emptied.
ReadCache::Window& ReadCache::Choose(int64_t position) {
  uint32_t chosen = 0;
  bool continued = false;
  for (uint32_t i = 0; i < kWindows; ++i) {
    if (Holds(windows_[i], position)) {
      chosen = i;
      continued = true;
      break;
    }
    if (!continued && Continues(windows_[i], position)) {
      chosen = i;
      continued = true;
    } else if (!continued && GoesBefore(windows_[i], windows_[chosen])) {
      chosen = i;
    }
  }
  Window& window = windows_[chosen];
  if (!continued) {
    window.size = 0;
    window.fill = 0;
  }
  current_ = chosen;
  return window;
}

int64_t ReadCache::Fill(Window& window, int descriptor, int64_t position) {
  window.fill = window.fill == 0 ? kFirstFill : std::min(window.fill * 2, kWindowSize);
  window.start = position;
  window.size = 0;
  const int64_t count = ReadAt(descriptor, window.bytes, window.fill, position);
  if (count > 0) window.size = static_cast<uint32_t>(count);
  return count;
}

int64_t ReadCache::Read(int descriptor, void* to, uint32_t length, int64_t position) {
  uint8_t* next = static_cast<uint8_t*>(to);
  uint32_t left = length;
  int64_t count = 1;
  while (left != 0) {
    Window& window = Holds(windows_[current_], position) ? windows_[current_] : Choose(position);
    window.last_use = ++clock_;
    if (Holds(window, position)) {
      const auto offset = static_cast<uint32_t>(position - window.start);
      count = std::min(left, window.size - offset);
      std::memcpy(next, window.bytes + offset, static_cast<size_t>(count));
    } else if (left >= kDirectRead) {
      count = ReadAt(descriptor, next, left, position);
      if (count <= 0) break;
      // Empty, but still the place where reading goes on.
      window.start = position + count;
      window.size = 0;
      window.fill = kWindowSize;
    } else {
      count = Fill(window, descriptor, position);
      if (count <= 0) break;
      continue;
    }
    next += count;
    left -= static_cast<uint32_t>(count);
    position += count;
  }
  // What was read before an end or an error is delivered; the next read meets it again.
  return left < length ? static_cast<int64_t>(length - left) : std::min<int64_t>(count, 0);
}

}  // namespace zmv::posix

// Buffered reading of one descriptor at positions that jump.
//
// A recording is read at several places in turn: payloads, and every sample table, each forward in small steps. One
// buffer, as standard I/O has, is thrown away at every jump, and a jump costs a system call even inside the buffer.
// Here each place that is read forward keeps a window of its own, so a jump costs neither.
#ifndef ZMV_PLATFORM_POSIX_READ_CACHE_H
#define ZMV_PLATFORM_POSIX_READ_CACHE_H

#include <cstdint>

namespace zmv::posix {

// pread() that is repeated when a signal interrupts it.
int64_t ReadAt(int descriptor, void* to, uint32_t length, int64_t position);

// Zero-filled memory is an empty cache.
class ReadCache {
 public:
  // Up to `length` bytes from `position`; fewer only at the end of the file. 0 at the end, negative on an error.
  int64_t Read(int descriptor, void* to, uint32_t length, int64_t position);

 private:
  // As many places are read in turn as two tracks have tables, and their payloads.
  static constexpr uint32_t kWindows = 8;
  // Measured with camera frames and with tiny ones: 8 KiB costs up to a third more processor time than 32 KiB, which is
  // within a tenth of 64 KiB at half the memory.
  static constexpr uint32_t kWindowSize = 32 * 1024;
  // A window's first fill: a header, or a table of which little is wanted. A seek makes some six of them, and each
  // would cost a third more with 4 KiB.
  static constexpr uint32_t kFirstFill = 2 * 1024;
  // Larger reads that miss go straight to their destination: copying them once more costs more than a system call.
  static constexpr uint32_t kDirectRead = 8 * 1024;
  // A read that starts this close behind a window continues it: recovery records and chunk headers are stepped over.
  static constexpr int64_t kForwardGap = 4 * 1024;
  // A window that none of so many reads wanted was left behind: frames that are read in turn come back to each of their
  // places within a few reads.
  static constexpr uint64_t kLeftBehind = 64;

  struct Window {
    int64_t start;      // file position of the first byte
    uint32_t size;      // bytes held
    uint32_t fill;      // bytes that the last fill asked for; doubles while the window moves forward
    uint64_t last_use;  // value of `clock_` when it last served; 0 when it never did
    uint8_t bytes[kWindowSize];
  };

  static bool Holds(const Window& window, int64_t position) {
    return static_cast<uint64_t>(position - window.start) < window.size;
  }
  static bool Continues(const Window& window, int64_t position);
  int Rank(const Window& window) const;
  bool GoesBefore(const Window& window, const Window& other) const;
  Window& Choose(int64_t position);
  static int64_t Fill(Window& window, int descriptor, int64_t position);

  uint64_t clock_;    // reads so far, and the windows that they went through
  uint32_t current_;  // the window that served last
  Window windows_[kWindows];
};

}  // namespace zmv::posix

#endif

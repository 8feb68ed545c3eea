// Plays a recording back through the reader facade and compares it with its source.
#ifndef ZMV_DEMO_VERIFY_H
#define ZMV_DEMO_VERIFY_H

#include <cstdint>
#include <string>
#include <vector>

#include "demo/demo_stream.h"

namespace zmv::demo {

struct Verified {
  std::string stream;
  std::string codec;
  uint64_t frames = 0;
  uint64_t bytes = 0;
  uint64_t key_frames = 0;
  int64_t duration_us = 0;
  int64_t worst_time_ms = 0;  // largest distance of a time stamp from the source
};

// Every payload bit for bit, every key flag, every time stamp within kTimeToleranceMs of the source time in whole
// milliseconds, the configurations, and the end. Throws std::runtime_error at the first difference.
std::vector<Verified> Verify(const std::string& path, const std::vector<DemoStream>& streams);

// The file counts time in ticks and the reader cuts to whole milliseconds, so a stamp may be one below the source's.
constexpr int64_t kTimeToleranceMs = 1;

}  // namespace zmv::demo

#endif

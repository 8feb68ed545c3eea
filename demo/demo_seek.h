// Seeks in a recording through the reader facade.
#ifndef ZMV_DEMO_SEEK_H
#define ZMV_DEMO_SEEK_H

#include <cstdint>
#include <string>
#include <vector>

#include "demo/demo_stream.h"

namespace zmv::demo {

struct Sought {
  std::string how;
  uint32_t asked_ms = 0;
  uint32_t reached_ms = 0;  // what the seek says
  uint64_t frame_ms = 0;    // time of the picture read next
  bool key = false;
};

// By time and by key frame in both directions. A seek that would have to go on to a later key frame lands on the first
// picture at or after the time asked for; one that goes back lands on a key frame.
//
// Throws std::runtime_error when a seek is refused, says another time than that of the picture read next (but for
// kTimeToleranceMs), does not lead to a picture of `video`, or goes back to one that is no key frame.
std::vector<Sought> Seek(const std::string& path, const DemoStream& video);

}  // namespace zmv::demo

#endif

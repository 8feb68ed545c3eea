// Durations that do not drift.
//
// The MP4 writer stores no time stamps, only each frame's duration, given with the next frame and rounded to ticks of
// the track. The clock follows the sum of the rounded ticks and corrects every duration by what the earlier ones lost,
// so the stored time of a frame is never off by more than half a unit and half a tick, however long the recording.
#ifndef ZMV_TOOLS_DURATION_CLOCK_H
#define ZMV_TOOLS_DURATION_CLOCK_H

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>

namespace zmv::tool {

constexpr uint32_t kMicroseconds = 1000000;  // the unit of video durations
constexpr uint32_t kMilliseconds = 1000;     // the unit of audio and text durations

class DurationClock {
 public:
  // A track of `scale` ticks a second whose durations are handed over in `units` a second. `nominal_us`: the usual
  // distance of its frames, given with the first one.
  DurationClock(uint32_t scale, uint32_t units, int64_t nominal_us)
      : scale_(scale), units_(units), nominal_us_(nominal_us) {}

  // The duration to hand over with the frame at `us` microseconds after the track's first frame; at least one tick.
  uint32_t Next(int64_t us) {
    if (!started_) {
      started_ = true;
      return Bounded(static_cast<double>(nominal_us_) * units_ / kMicroseconds);
    }
    const double ticks = static_cast<double>(us) * scale_ / kMicroseconds;
    const uint32_t duration = Bounded((ticks - written_ticks_) * units_ / scale_);
    written_ticks_ += std::round(static_cast<double>(scale_) * duration / units_);
    return duration;
  }

 private:
  uint32_t Bounded(double duration) const {
    const double least = std::ceil(static_cast<double>(units_) / scale_);
    const double most = static_cast<double>(std::numeric_limits<uint32_t>::max());
    return static_cast<uint32_t>(std::clamp(std::round(duration), least, most));
  }

  uint32_t scale_;
  uint32_t units_;
  int64_t nominal_us_;
  bool started_ = false;
  double written_ticks_ = 0;  // where the writer's tables stand
};

}  // namespace zmv::tool

#endif

// The drive in a recording: its sound positions with their times, cut into segments where the positions pause.
#ifndef ZMV_TOOLS_TELEMETRY_TRACK_H
#define ZMV_TOOLS_TELEMETRY_TRACK_H

#include <cstdint>
#include <optional>

#include "tools/zmv/telemetry_source.h"

namespace zmv::tool {

struct DrivePoint {
  GpsPoint point;                   // with time and position; the time may be reckoned from the recording's
  std::optional<uint64_t> time_ms;  // from the start of the recording
  uint32_t segment = 0;             // counted from 1
};

struct DriveOptions {
  TelemetryPlace place;
  int64_t gap_us = 0;                // 0: three times the usual interval, at least kLeastGapUs
  std::optional<int64_t> start_utc;  // of the recording, for samples that have no time of their own
};

constexpr int64_t kLeastGapUs = 1000000;

// A sample is left out when it is in another layout, has no fix, a position off the globe, or no time. A time that is
// missing is reckoned from the last one before it, or the first one after it, by the times of the text frames.
class TelemetryTrack {
 public:
  explicit TelemetryTrack(const DriveOptions& options);

  bool Next(DrivePoint& point);

  const TelemetrySource& source() const { return source_; }
  uint64_t invalid() const { return invalid_; }  // left out for want of a sound fix
  uint64_t untimed() const { return untimed_; }  // left out for want of a time
  uint64_t foreign() const { return foreign_; }  // left out because they are in another layout
  uint32_t segments() const { return segment_; }

 private:
  void LookAhead(const TelemetryPlace& place);
  void Reckon(const std::optional<uint64_t>& time_ms, std::optional<int64_t>& utc_us);

  TelemetrySource source_;
  int64_t gap_us_;
  std::optional<int64_t> start_utc_;  // of the recording, as the last sample with both times has it
  std::optional<int64_t> last_utc_;
  uint32_t segment_ = 0;
  uint64_t invalid_ = 0;
  uint64_t untimed_ = 0;
  uint64_t foreign_ = 0;
};

}  // namespace zmv::tool

#endif

#include "tools/zmv/telemetry_track.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "tools/zmv/gps_file.h"

namespace zmv::tool {
namespace {

constexpr int64_t kMillisecondUs = 1000;
constexpr int64_t kLastUtc = 253402300799999999;  // the end of the year 9999
constexpr int64_t kGapIntervals = 3;
constexpr size_t kUsualIntervals = 64;  // whose median is the usual interval
constexpr double kMostValue = 1e9;      // of any number; what passes it is no measurement

template <typename T>
void DropUnsound(std::optional<T>& value) {
  if (value && !(std::fabs(static_cast<double>(*value)) <= kMostValue)) value = std::nullopt;
}

void DropUnsound(GpsPoint& point) {
  if (point.utc_us && (*point.utc_us < 0 || *point.utc_us > kLastUtc)) point.utc_us = std::nullopt;
  DropUnsound(point.altitude);
  DropUnsound(point.speed);
  DropUnsound(point.course);
  DropUnsound(point.hdop);
}

}  // namespace

TelemetryTrack::TelemetryTrack(const DriveOptions& options)
    : source_(options.place), gap_us_(options.gap_us), start_utc_(options.start_utc) {
  LookAhead(options.place);
}

// The first sample with a time tells when the recording began, the first intervals tell what is usual.
void TelemetryTrack::LookAhead(const TelemetryPlace& place) {
  TelemetrySource ahead(place);
  TelemetrySample sample;
  std::optional<int64_t> last;
  std::vector<int64_t> intervals;
  while (intervals.size() < kUsualIntervals && ahead.Next(sample)) {
    if (!sample.point) continue;
    DropUnsound(*sample.point);
    if (!start_utc_) Reckon(sample.time_ms, sample.point->utc_us);
    if (!HasSoundPosition(*sample.point)) continue;
    std::optional<int64_t> time = sample.point->utc_us;
    if (!time && sample.time_ms) time = static_cast<int64_t>(*sample.time_ms) * kMillisecondUs;
    if (time && last && *time > *last) intervals.push_back(*time - *last);
    last = time;
  }
  if (gap_us_ > 0) return;
  gap_us_ = kLeastGapUs;
  if (intervals.empty()) return;
  const auto middle = intervals.begin() + static_cast<std::ptrdiff_t>(intervals.size() / 2);
  std::nth_element(intervals.begin(), middle, intervals.end());
  if (*middle < kLastUtc / kGapIntervals) gap_us_ = std::max(kLeastGapUs, kGapIntervals * *middle);
}

void TelemetryTrack::Reckon(const std::optional<uint64_t>& time_ms, std::optional<int64_t>& utc_us) {
  if (!time_ms) return;
  const int64_t time_us = static_cast<int64_t>(*time_ms) * kMillisecondUs;
  if (utc_us) {
    start_utc_ = *utc_us - time_us;
  } else if (start_utc_) {
    utc_us = *start_utc_ + time_us;
    if (*utc_us < 0 || *utc_us > kLastUtc) utc_us = std::nullopt;
  }
}

bool TelemetryTrack::Next(DrivePoint& point) {
  TelemetrySample sample;
  while (source_.Next(sample)) {
    if (!sample.point) {
      ++foreign_;
      continue;
    }
    GpsPoint& found = *sample.point;
    DropUnsound(found);
    Reckon(sample.time_ms, found.utc_us);
    if (found.fix == GpsFix::kNone || !HasSoundPosition(found)) {
      ++invalid_;
      continue;
    }
    if (!found.utc_us) {
      ++untimed_;
      continue;
    }
    if (!last_utc_ || *found.utc_us < *last_utc_ || *found.utc_us - *last_utc_ > gap_us_) ++segment_;
    last_utc_ = found.utc_us;
    point = {found, sample.time_ms, segment_};
    return true;
  }
  return false;
}

}  // namespace zmv::tool

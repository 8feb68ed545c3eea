// A drive as GPX, CSV, GeoJSON or KML, written as its points come.
#ifndef ZMV_TOOLS_TELEMETRY_WRITER_H
#define ZMV_TOOLS_TELEMETRY_WRITER_H

#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "tools/zmv/telemetry_track.h"

namespace zmv::tool {

using TextSink = std::function<void(std::string_view)>;

class TelemetryWriter {
 public:
  virtual ~TelemetryWriter() = default;
  virtual void Begin() = 0;
  // Points of one segment follow one another.
  virtual void Point(const DrivePoint& point) = 0;
  virtual void End() = 0;
};

// `format`: "gpx", "csv", "geojson" or "kml".
std::unique_ptr<TelemetryWriter> MakeTelemetryWriter(const std::string& format, TextSink sink);

struct TelemetryReport {
  bool from_boxes = false;
  uint64_t points = 0;
  uint32_t segments = 0;
  uint64_t invalid = 0;
  uint64_t untimed = 0;
  uint64_t foreign = 0;
  uint64_t missing = 0;
  Health health = Health::kComplete;
  std::string sentence;  // the health in plain words
};

// The whole drive of a recording into `sink`.
TelemetryReport WriteTelemetry(const DriveOptions& options, const std::string& format, const TextSink& sink);

// A number without exponent, with at most `decimals` digits behind the point and none that say nothing.
std::string DecimalText(double number, int decimals);

}  // namespace zmv::tool

#endif

// A position with what a receiver and a motion sensor say beside it, and its form in a recording: the 92-byte payload
// of a text frame that docs/format.md describes.
#ifndef ZMV_TOOLS_GPS_POINT_H
#define ZMV_TOOLS_GPS_POINT_H

#include <array>
#include <cstdint>
#include <optional>

#include "tools/zmv/annexb.h"

namespace zmv::tool {

enum class GpsFix : uint8_t { kNone = 0, k2d = 2, k3d = 3 };

constexpr size_t kSensorAxes = 6;

struct GpsPoint {
  std::optional<int64_t> utc_us;    // microseconds since 1970-01-01T00:00:00Z
  std::optional<double> latitude;   // degrees, north positive; present together with the longitude
  std::optional<double> longitude;  // degrees, east positive
  std::optional<double> altitude;   // metres
  std::optional<double> speed;      // metres a second
  std::optional<double> course;     // degrees clockwise from north
  std::optional<float> hdop;
  std::optional<uint8_t> satellites;
  GpsFix fix = GpsFix::kNone;
  // Acceleration x, y, z in units of 0.001 g; rotation x, y, z in 0.1 degrees a second.
  std::array<std::optional<int16_t>, kSensorAxes> sensors;
};

constexpr size_t kTelemetrySize = 92;
constexpr size_t kTelemetryGpsOffset = 8;
constexpr size_t kTelemetryGpsSize = 72;
constexpr size_t kTelemetrySensorOffset = 80;
constexpr size_t kTelemetrySensorSize = 12;

using TelemetryPayload = std::array<uint8_t, kTelemetrySize>;

TelemetryPayload PackTelemetry(const GpsPoint& point);

// The inverse; nothing when `payload` is not in this layout.
std::optional<GpsPoint> UnpackTelemetry(ByteView payload);
// The two blocks by themselves, as the boxes GPSR and SENS hold them: 72 and 12 bytes.
void UnpackGpsBlock(ByteView block, GpsPoint& point);
void UnpackSensorBlock(ByteView block, GpsPoint& point);

}  // namespace zmv::tool

#endif

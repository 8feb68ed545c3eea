#include "tools/zmv/gps_point.h"

#include <algorithm>
#include <bit>
#include <type_traits>

namespace zmv::tool {
namespace {

constexpr uint8_t kTag[] = {'Z', 'G', 'P', 'S'};
constexpr uint16_t kVersion = 1;
constexpr size_t kVersionOffset = 4;
constexpr size_t kContentsOffset = 6;
constexpr uint16_t kHasGps = 1;  // bits of the contents word
constexpr uint16_t kHasSensors = 2;

// Offsets inside the GPS block.
constexpr size_t kUtc = 0;
constexpr size_t kLatitude = 8;
constexpr size_t kLongitude = 16;
constexpr size_t kAltitude = 24;
constexpr size_t kSpeed = 32;
constexpr size_t kCourse = 40;
constexpr size_t kHdop = 48;
constexpr size_t kFix = 52;
constexpr size_t kSatellites = 53;
constexpr size_t kValid = 54;

// Bits of its word of valid fields.
constexpr uint16_t kValidUtc = 1;
constexpr uint16_t kValidPosition = 2;
constexpr uint16_t kValidAltitude = 4;
constexpr uint16_t kValidSpeed = 8;
constexpr uint16_t kValidCourse = 16;
constexpr uint16_t kValidHdop = 32;
constexpr uint16_t kValidSatellites = 64;

constexpr uint16_t kNoSensor = 0x8000;

template <size_t kSize>
using UintOf = std::conditional_t<kSize == 8, uint64_t, std::conditional_t<kSize == 4, uint32_t, uint16_t>>;

template <typename T>
void Put(uint8_t* at, T value) {
  const auto bits = std::bit_cast<UintOf<sizeof(T)>>(value);
  for (size_t i = 0; i < sizeof(T); ++i) at[i] = static_cast<uint8_t>(bits >> (8 * i));
}

template <typename T>
T Get(ByteView from, size_t at) {
  UintOf<sizeof(T)> bits = 0;
  for (size_t i = sizeof(T); i-- > 0;) bits = static_cast<UintOf<sizeof(T)>>(bits << 8 | from[at + i]);
  return std::bit_cast<T>(bits);
}

// Writes a field that is known and marks it valid.
template <typename T>
void PutField(uint8_t* block, size_t at, const std::optional<T>& value, uint16_t bit, uint16_t& valid) {
  if (!value) return;
  Put(block + at, *value);
  valid |= bit;
}

uint16_t PackGpsBlock(const GpsPoint& point, uint8_t* block) {
  uint16_t valid = 0;
  PutField(block, kUtc, point.utc_us, kValidUtc, valid);
  if (point.latitude && point.longitude) {
    PutField(block, kLatitude, point.latitude, kValidPosition, valid);
    PutField(block, kLongitude, point.longitude, kValidPosition, valid);
  }
  PutField(block, kAltitude, point.altitude, kValidAltitude, valid);
  PutField(block, kSpeed, point.speed, kValidSpeed, valid);
  PutField(block, kCourse, point.course, kValidCourse, valid);
  PutField(block, kHdop, point.hdop, kValidHdop, valid);
  block[kFix] = static_cast<uint8_t>(point.fix);
  if (point.satellites) {
    block[kSatellites] = *point.satellites;
    valid |= kValidSatellites;
  }
  Put(block + kValid, valid);
  return valid;
}

template <typename T>
void GetField(ByteView block, size_t at, uint16_t bit, uint16_t valid, std::optional<T>& value) {
  value = (valid & bit) != 0 ? std::optional<T>(Get<T>(block, at)) : std::nullopt;
}

}  // namespace

TelemetryPayload PackTelemetry(const GpsPoint& point) {
  TelemetryPayload payload{};
  uint16_t contents = 0;
  if (PackGpsBlock(point, payload.data() + kTelemetryGpsOffset) != 0) contents |= kHasGps;
  for (size_t i = 0; i < kSensorAxes; ++i) {
    const auto& sensor = point.sensors[i];
    if (sensor) contents |= kHasSensors;
    Put(payload.data() + kTelemetrySensorOffset + 2 * i, sensor ? static_cast<uint16_t>(*sensor) : kNoSensor);
  }
  std::copy(std::begin(kTag), std::end(kTag), payload.begin());
  Put(payload.data() + kVersionOffset, kVersion);
  Put(payload.data() + kContentsOffset, contents);
  return payload;
}

void UnpackGpsBlock(ByteView block, GpsPoint& point) {
  if (block.size() < kTelemetryGpsSize) return;
  const uint16_t valid = Get<uint16_t>(block, kValid);
  GetField(block, kUtc, kValidUtc, valid, point.utc_us);
  GetField(block, kLatitude, kValidPosition, valid, point.latitude);
  GetField(block, kLongitude, kValidPosition, valid, point.longitude);
  GetField(block, kAltitude, kValidAltitude, valid, point.altitude);
  GetField(block, kSpeed, kValidSpeed, valid, point.speed);
  GetField(block, kCourse, kValidCourse, valid, point.course);
  GetField(block, kHdop, kValidHdop, valid, point.hdop);
  point.satellites = (valid & kValidSatellites) != 0 ? std::optional(block[kSatellites]) : std::nullopt;
  const uint8_t fix = block[kFix];
  point.fix = fix == static_cast<uint8_t>(GpsFix::k2d) || fix == static_cast<uint8_t>(GpsFix::k3d) ? GpsFix{fix}
                                                                                                   : GpsFix::kNone;
}

void UnpackSensorBlock(ByteView block, GpsPoint& point) {
  if (block.size() < kTelemetrySensorSize) return;
  for (size_t i = 0; i < kSensorAxes; ++i) {
    const uint16_t value = Get<uint16_t>(block, 2 * i);
    point.sensors[i] = value == kNoSensor ? std::nullopt : std::optional(static_cast<int16_t>(value));
  }
}

std::optional<GpsPoint> UnpackTelemetry(ByteView payload) {
  if (payload.size() < kTelemetrySize || !std::equal(std::begin(kTag), std::end(kTag), payload.begin()) ||
      Get<uint16_t>(payload, kVersionOffset) != kVersion) {
    return std::nullopt;
  }
  GpsPoint point;
  UnpackGpsBlock(payload.subspan(kTelemetryGpsOffset, kTelemetryGpsSize), point);
  UnpackSensorBlock(payload.subspan(kTelemetrySensorOffset, kTelemetrySensorSize), point);
  return point;
}

}  // namespace zmv::tool

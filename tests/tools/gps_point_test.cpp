#include "tools/zmv/gps_point.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace zmv::tool {
namespace {

using testing::ElementsAreArray;

GpsPoint FullPoint() {
  GpsPoint point;
  point.utc_us = 0x0102030405060708;
  point.latitude = -0.5;
  point.longitude = 2.0;
  point.altitude = 1.0;
  point.speed = 0.25;
  point.course = 8.0;
  point.hdop = 1.0f;
  point.satellites = 9;
  point.fix = GpsFix::k3d;
  point.sensors = {static_cast<int16_t>(1),      static_cast<int16_t>(-1), static_cast<int16_t>(1000), std::nullopt,
                   static_cast<int16_t>(-32767), static_cast<int16_t>(0)};
  return point;
}

TEST(Telemetry, FullPoint_HasEveryByteWhereTheFormatSays) {
  const uint8_t expected[kTelemetrySize] = {
      'Z',  'G',  'P',  'S',                                                   // 0: tag
      1,    0,                                                                 // 4: version
      3,    0,                                                                 // 6: GPS and sensor block have content
      0x08, 0x07, 0x06, 0x05, 0x04, 0x03, 0x02, 0x01,                          // 8: UTC
      0,    0,    0,    0,    0,    0,    0xE0, 0xBF,                          // 16: latitude -0.5
      0,    0,    0,    0,    0,    0,    0x00, 0x40,                          // 24: longitude 2.0
      0,    0,    0,    0,    0,    0,    0xF0, 0x3F,                          // 32: altitude 1.0
      0,    0,    0,    0,    0,    0,    0xD0, 0x3F,                          // 40: speed 0.25
      0,    0,    0,    0,    0,    0,    0x20, 0x40,                          // 48: course 8.0
      0,    0,    0x80, 0x3F,                                                  // 56: HDOP 1.0
      3,                                                                       // 60: fix
      9,                                                                       // 61: satellites
      0x7F, 0,                                                                 // 62: valid fields
      0,    0,    0,    0,    0,    0,    0,    0,    0, 0, 0, 0, 0, 0, 0, 0,  // 64: reserved
      1,    0,    0xFF, 0xFF, 0xE8, 0x03,                                      // 80: acceleration 1, -1, 1000
      0x00, 0x80, 0x01, 0x80, 0,    0,                                         // 86: rotation absent, -32767, 0
  };
  EXPECT_THAT(PackTelemetry(FullPoint()), ElementsAreArray(expected));
}

TEST(Telemetry, FullPoint_ReadsBack) {
  const GpsPoint point = FullPoint();
  const auto read = UnpackTelemetry(PackTelemetry(point));
  ASSERT_TRUE(read);
  EXPECT_EQ(read->utc_us, point.utc_us);
  EXPECT_EQ(read->latitude, point.latitude);
  EXPECT_EQ(read->longitude, point.longitude);
  EXPECT_EQ(read->altitude, point.altitude);
  EXPECT_EQ(read->speed, point.speed);
  EXPECT_EQ(read->course, point.course);
  EXPECT_EQ(read->hdop, point.hdop);
  EXPECT_EQ(read->satellites, point.satellites);
  EXPECT_EQ(read->fix, point.fix);
  EXPECT_EQ(read->sensors, point.sensors);
}

TEST(Telemetry, EmptyPoint_HasNothingValid) {
  const TelemetryPayload payload = PackTelemetry(GpsPoint());
  EXPECT_EQ(payload[6], 0);
  const auto read = UnpackTelemetry(payload);
  ASSERT_TRUE(read);
  EXPECT_FALSE(read->utc_us);
  EXPECT_FALSE(read->latitude);
  EXPECT_FALSE(read->satellites);
  EXPECT_EQ(read->fix, GpsFix::kNone);
  for (const auto& sensor : read->sensors) EXPECT_FALSE(sensor);
}

TEST(Telemetry, LatitudeWithoutLongitude_IsNoPosition) {
  GpsPoint point;
  point.latitude = 1;
  const auto read = UnpackTelemetry(PackTelemetry(point));
  ASSERT_TRUE(read);
  EXPECT_FALSE(read->latitude);
}

TEST(Telemetry, ForeignPayloads_AreRefused) {
  TelemetryPayload payload = PackTelemetry(FullPoint());
  EXPECT_FALSE(UnpackTelemetry(ByteView(payload).first(kTelemetrySize - 1)));
  payload[4] = 2;
  EXPECT_FALSE(UnpackTelemetry(payload));
  payload[4] = 1;
  payload[0] = 'z';
  EXPECT_FALSE(UnpackTelemetry(payload));
}

TEST(Telemetry, UnknownFix_IsNoFix) {
  TelemetryPayload payload = PackTelemetry(FullPoint());
  payload[60] = 7;
  EXPECT_EQ(UnpackTelemetry(payload)->fix, GpsFix::kNone);
}

}  // namespace
}  // namespace zmv::tool

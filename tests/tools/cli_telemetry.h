// Recordings with positions a test knows, and `zmv telemetry` run on them.
#ifndef ZMV_TESTS_TOOLS_CLI_TELEMETRY_H
#define ZMV_TESTS_TOOLS_CLI_TELEMETRY_H

#include <gtest/gtest.h>

#include "tests/tools/cli.h"
#include "tests/tools/small_recording.h"

namespace zmv::tool {

using nlohmann::json;

constexpr int64_t kSecond = 1000000;
constexpr int64_t kStart = 1717230600 * kSecond;  // 2024-06-01T08:30:00Z

inline GpsPoint At(int64_t second) {
  GpsPoint point;
  point.utc_us = kStart + second * kSecond;
  point.latitude = 48.2 + static_cast<double>(second) * 1.23456789e-4;
  point.longitude = -16.3 - static_cast<double>(second) * 1.1e-4;
  point.altitude = 170.5;
  point.speed = 12.25;
  point.course = 90.5;
  point.hdop = 0.5f;
  point.satellites = 9;
  point.fix = GpsFix::k3d;
  const int16_t sensors[] = {1, -2, 1000, 4, 5, -6};
  std::copy(std::begin(sensors), std::end(sensors), point.sensors.begin());
  return point;
}

inline std::vector<Bytes> Payloads(const std::vector<GpsPoint>& points) {
  std::vector<Bytes> payloads;
  for (const GpsPoint& point : points) payloads.push_back(PayloadOf(point));
  return payloads;
}

class CliTelemetry : public testing::Test {
 protected:
  void Record(const std::vector<int64_t>& seconds, const std::string& software = "F test") {
    std::vector<GpsPoint> points;
    for (const int64_t second : seconds) points.push_back(At(second));
    WriteSmallRecording(path_, Payloads(points), software);
  }

  CliResult Run(const std::string& format, std::vector<std::string> more = {}) const {
    std::vector<std::string> arguments = {"telemetry", path_, "--format", format};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return Zmv(folder_, arguments);
  }

  std::string Out(const std::string& format, std::vector<std::string> more = {}) const {
    const CliResult result = Run(format, std::move(more));
    EXPECT_EQ(result.code, 0) << result.err;
    return result.out;
  }

  json Report(std::vector<std::string> more = {}) const {
    more.insert(more.end(), {"-o", folder_ / "out", "--json", "--force"});
    return json::parse(Out("csv", std::move(more)));
  }

  // Of a recording that is not whole.
  json ReportOf(int code) const {
    const CliResult result = Run("csv", {"-o", folder_ / "out", "--json", "--force"});
    EXPECT_EQ(result.code, code) << result.err;
    return json::parse(result.out);
  }

  const TempFolder folder_;
  const std::string path_ = folder_ / "drive.mp4";
};

}  // namespace zmv::tool

#endif

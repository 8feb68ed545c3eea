// `zmv telemetry`: the four formats read back by parsers of their own, segments, what is left out, foreign layouts.
#include "tests/tools/cli_telemetry.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <pugixml.hpp>
#include <regex>
#include <sstream>

#include "tools/zmv/gps_file.h"

namespace zmv::tool {
namespace {

using testing::HasSubstr;

TEST_F(CliTelemetry, Gpx_HasATimeOnEveryPointAndASegmentAfterAGap) {
  Record({0, 1, 2, 3, 10, 11, 12});
  pugi::xml_document document;
  ASSERT_TRUE(document.load_string(Out("gpx").c_str()));
  const pugi::xml_node gpx = document.child("gpx");
  EXPECT_STREQ(gpx.attribute("version").value(), "1.1");
  std::vector<size_t> sizes;
  std::vector<int64_t> times;
  for (const pugi::xml_node& segment : gpx.child("trk").children("trkseg")) {
    sizes.push_back(0);
    for (const pugi::xml_node& node : segment.children("trkpt")) {
      ++sizes.back();
      const auto time = ParseUtc(node.child("time").child_value());
      ASSERT_TRUE(time);
      times.push_back((*time - kStart) / kSecond);
      const GpsPoint expected = At(times.back());
      EXPECT_NEAR(node.attribute("lat").as_double(), *expected.latitude, 1e-9);
      EXPECT_NEAR(node.attribute("lon").as_double(), *expected.longitude, 1e-9);
      EXPECT_EQ(node.child("ele").text().as_double(), 170.5);
      EXPECT_STREQ(node.child("fix").child_value(), "3d");
      EXPECT_EQ(node.child("sat").text().as_int(), 9);
      const pugi::xml_node extension = node.child("extensions").child("gpxtpx:TrackPointExtension");
      EXPECT_EQ(extension.child("gpxtpx:speed").text().as_double(), 12.25);
      EXPECT_EQ(extension.child("gpxtpx:course").text().as_double(), 90.5);
    }
  }
  EXPECT_EQ(sizes, (std::vector<size_t>{4, 3}));
  EXPECT_EQ(times, (std::vector<int64_t>{0, 1, 2, 3, 10, 11, 12}));
}

TEST_F(CliTelemetry, GeoJson_PutsLongitudeFirstWithSevenDecimalsAtMost) {
  Record({0, 1, 2, 30, 60, 61});
  const std::string text = Out("geojson");
  const json document = json::parse(text);
  ASSERT_EQ(document["features"].size(), 3u);
  const json& line = document["features"][0];
  EXPECT_EQ(line["geometry"]["type"], "LineString");
  ASSERT_EQ(line["geometry"]["coordinates"].size(), 3u);
  ASSERT_EQ(line["properties"]["coordTimes"].size(), 3u);
  for (size_t i = 0; i < 3; ++i) {
    const GpsPoint expected = At(static_cast<int64_t>(i));
    const json& position = line["geometry"]["coordinates"][i];
    EXPECT_NEAR(position[0].get<double>(), *expected.longitude, 1e-7);
    EXPECT_NEAR(position[1].get<double>(), *expected.latitude, 1e-7);
    EXPECT_EQ(position[2], 170.5);
    EXPECT_EQ(ParseUtc(line["properties"]["coordTimes"][i].get<std::string>()), expected.utc_us);
  }
  const json& alone = document["features"][1];
  EXPECT_EQ(alone["geometry"]["type"], "Point");
  EXPECT_EQ(alone["geometry"]["coordinates"].size(), 3u);
  EXPECT_EQ(alone["properties"]["coordTimes"].size(), 1u);
  EXPECT_EQ(document["features"][2]["geometry"]["coordinates"].size(), 2u);
  EXPECT_FALSE(std::regex_search(text, std::regex("\\.[0-9]{8}[0-9]*[,\\]]")));
  EXPECT_TRUE(std::regex_search(text, std::regex("\\.[0-9]{7}[,\\]]")));
}

TEST_F(CliTelemetry, Csv_NamesItsUnitsAndReadsBackAsItWas) {
  Record({0, 1, 2, 9});
  const std::string text = Out("csv");
  const std::string header = text.substr(0, text.find('\n'));
  for (const char* name : {"time (UTC)", "lat (deg)", "ele (m)", "speed (m/s)", "ax (0.001 g)", "gx (0.1 deg/s)"}) {
    EXPECT_THAT(header, HasSubstr(name));
  }
  std::istringstream in(text);
  const GpsTrack track = ParseGpsCsv(in, "csv");
  ASSERT_EQ(track.points.size(), 4u);
  for (const GpsPoint& point : track.points) {
    const GpsPoint expected = At((*point.utc_us - kStart) / kSecond);
    EXPECT_NEAR(*point.latitude, *expected.latitude, 1e-9);
    EXPECT_NEAR(*point.longitude, *expected.longitude, 1e-9);
    EXPECT_EQ(point.altitude, expected.altitude);
    EXPECT_EQ(point.speed, expected.speed);
    EXPECT_EQ(point.course, expected.course);
    EXPECT_EQ(point.hdop, expected.hdop);
    EXPECT_EQ(point.satellites, expected.satellites);
    EXPECT_EQ(point.sensors, expected.sensors);
  }
  EXPECT_THAT(text, HasSubstr(",3d,1,2000\n"));  // third point: segment 1, two seconds into the recording
  EXPECT_THAT(text, HasSubstr(",3d,2,3000\n"));  // the fourth comes after a gap
}

TEST_F(CliTelemetry, Kml_PairsTimesAndPositionsInEverySegment) {
  Record({0, 1, 2, 9, 10});
  pugi::xml_document document;
  ASSERT_TRUE(document.load_string(Out("kml").c_str()));
  std::vector<size_t> sizes;
  const pugi::xml_node tracks = document.child("kml").child("Document").child("Placemark").child("gx:MultiTrack");
  for (const pugi::xml_node& track : tracks.children("gx:Track")) {
    const auto count = [&](const char* name) {
      const auto nodes = track.children(name);
      return static_cast<size_t>(std::distance(nodes.begin(), nodes.end()));
    };
    sizes.push_back(count("when"));
    EXPECT_EQ(count("gx:coord"), sizes.back());
  }
  EXPECT_EQ(sizes, (std::vector<size_t>{3, 2}));
  EXPECT_TRUE(std::string(tracks.first_child().child("gx:coord").child_value()).starts_with("-16.3 48.2 170.5"));
}

TEST_F(CliTelemetry, GapOption_ReplacesTheUsualRule) {
  Record({0, 2, 4, 6, 12, 20});
  EXPECT_EQ(Report()["segments"], 2);  // the usual interval is 2 s: 6 s are no gap yet, 8 s are
  EXPECT_EQ(Report({"--gap", "3"})["segments"], 3);
  EXPECT_EQ(Report({"--gap", "100"})["segments"], 1);
  for (const char* gap : {"nan", "inf", "0", "-1", "soon"}) EXPECT_EQ(Run("csv", {"--gap", gap}).code, 2) << gap;
}

TEST_F(CliTelemetry, TimeThatGoesBack_BeginsASegment) {
  Record({10, 11, 12, 5, 6, 7});
  EXPECT_EQ(Report()["segments"], 2);
}

TEST_F(CliTelemetry, InvalidFixes_AreLeftOutAndCounted) {
  std::vector<GpsPoint> points = {At(0), At(1), At(2), At(3), At(4), GpsPoint(), At(6)};
  points[1].fix = GpsFix::kNone;
  points[2].latitude = 90.5;
  points[3].longitude = std::nan("");
  points[4].altitude = std::numeric_limits<double>::infinity();  // spoils the altitude only
  WriteSmallRecording(path_, Payloads(points));
  const CliResult result = Run("csv");
  EXPECT_EQ(result.code, 0);
  EXPECT_THAT(result.err, HasSubstr("4 samples without a sound fix"));
  std::istringstream in(result.out);
  const GpsTrack track = ParseGpsCsv(in, "csv");
  ASSERT_EQ(track.points.size(), 3u);
  EXPECT_EQ(track.points[1].utc_us, At(4).utc_us);
  EXPECT_FALSE(track.points[1].altitude);
}

TEST_F(CliTelemetry, MissingTimes_AreReckonedFromTheRecording) {
  std::vector<GpsPoint> points = {At(0), At(1), At(2), At(3)};
  points[0].utc_us = points[2].utc_us = std::nullopt;
  WriteSmallRecording(path_, Payloads(points));
  std::istringstream in(Out("csv"));
  const GpsTrack track = ParseGpsCsv(in, "csv");
  ASSERT_EQ(track.points.size(), 4u);
  for (int64_t i = 0; i < 4; ++i) EXPECT_EQ(track.points[static_cast<size_t>(i)].utc_us, At(i).utc_us);
}

TEST_F(CliTelemetry, WithoutAnyTime_StartIsNeeded) {
  std::vector<GpsPoint> points = {At(0), At(1)};
  for (GpsPoint& point : points) point.utc_us = std::nullopt;
  WriteSmallRecording(path_, Payloads(points));
  EXPECT_EQ(Report()["left_out_no_time"], 2);
  EXPECT_THAT(Out("csv", {"--start", "2024-06-01T08:30:00Z"}), HasSubstr("\n2024-06-01T08:30:01.000Z,"));
  EXPECT_EQ(Run("csv", {"--start", "noon"}).code, 2);
}

TEST_F(CliTelemetry, TextFrames_SayTheSameAsBoxes) {
  Record({0, 1, 2, 9});
  EXPECT_EQ(Report()["source"], "boxes");
  const std::string boxes = Out("gpx");
  Record({0, 1, 2, 9}, "test");
  EXPECT_EQ(Report()["source"], "text frames");
  EXPECT_EQ(Out("gpx"), boxes);
}

// Another producer: big-endian, calendar date, degrees in 1e-7, knots, a letter for a valid fix.
constexpr const char* kForeignLayout = R"({
  "gps": {
    "valid": {"offset": 0, "type": "u8", "equals": 65},
    "year": {"offset": 1, "type": "u8", "add": 2000},
    "month": {"offset": 2, "type": "u8"},
    "day": {"offset": 3, "type": "u8"},
    "hour": {"offset": 4, "type": "u8"},
    "minute": {"offset": 5, "type": "u8"},
    "second": {"offset": 6, "type": "u16be", "scale": 0.001},
    "latitude": {"offset": 8, "type": "i32be", "scale": 1e-7},
    "longitude": {"offset": 12, "type": "i32be", "scale": 1e-7},
    "speed": {"offset": 16, "type": "f32be", "scale": 0.5},
    "altitude": {"offset": 20, "type": "i16le", "absent": -1}
  },
  "sensors": {"ax": {"offset": 10, "type": "i16be", "scale": 0.5}}
})";

Bytes ForeignPayload(uint8_t second, uint8_t valid, uint8_t altitude) {
  Bytes payload(92, 0);
  const uint8_t gps[] = {
      valid,  // valid
      24,
      6,
      1,
      8,
      30,  // date, hour, minute
      static_cast<uint8_t>(second * 1000 >> 8),
      static_cast<uint8_t>(second * 1000),  // milliseconds
      0x1C,
      0xBE,
      0x99,
      0x80,  // latitude 48.227800 degrees
      0xF6,
      0x45,
      0xB5,
      0x00,  // longitude -16.325 degrees or so
      0x41,
      0xC8,
      0,
      0,  // 25.0
      altitude,
      static_cast<uint8_t>(altitude == 0xFF ? 0xFF : 0),
  };
  std::copy(std::begin(gps), std::end(gps), payload.begin() + 8);
  payload[90] = 0xFF;  // sensor: -200
  payload[91] = 0x38;
  return payload;
}

TEST_F(CliTelemetry, Layout_DescribesAnotherProducersBlocks) {
  WriteSmallRecording(path_, {ForeignPayload(1, 'A', 100), ForeignPayload(2, 'V', 100), ForeignPayload(3, 'A', 0xFF)});
  WriteText(folder_ / "layout.json", kForeignLayout);
  EXPECT_EQ(Report()["left_out_layout"], 3);
  const CliResult result = Run("csv", {"--layout", folder_ / "layout.json"});
  EXPECT_EQ(result.code, 0);
  EXPECT_THAT(result.err, HasSubstr("1 samples without a sound fix"));
  std::istringstream in(result.out);
  const GpsTrack track = ParseGpsCsv(in, "csv");
  ASSERT_EQ(track.points.size(), 2u);
  EXPECT_EQ(track.points[0].utc_us, kStart + kSecond);
  EXPECT_EQ(track.points[1].utc_us, kStart + 3 * kSecond);
  EXPECT_NEAR(*track.points[0].latitude, 0x1CBE9980 * 1e-7, 1e-9);
  EXPECT_NEAR(*track.points[0].longitude, (0xF645B500 - 4294967296.0) * 1e-7, 1e-9);
  EXPECT_EQ(track.points[0].speed, 12.5);
  EXPECT_EQ(track.points[0].altitude, 100);
  EXPECT_FALSE(track.points[1].altitude);
  EXPECT_EQ(track.points[0].sensors[0], -100);
  EXPECT_FALSE(track.points[0].sensors[1]);
}

TEST_F(CliTelemetry, OwnLayoutDescribed_GivesTheSame) {
  WriteText(folder_ / "layout.json", R"({"gps": {
    "utc": {"offset": 0, "type": "i64le", "scale": 1e-6}, "latitude": {"offset": 8, "type": "f64le"},
    "longitude": {"offset": 16, "type": "f64le"}, "altitude": {"offset": 24, "type": "f64le"},
    "speed": {"offset": 32, "type": "f64le"}, "course": {"offset": 40, "type": "f64le"},
    "hdop": {"offset": 48, "type": "f32le"}, "fix": {"offset": 52, "type": "u8"},
    "satellites": {"offset": 53, "type": "u8"}, "valid": {"offset": 54, "type": "u16le", "mask": 2}},
    "sensors": {"ax": {"offset": 0, "type": "i16le", "absent": -32768}, "ay": {"offset": 2, "type": "i16le"},
    "az": {"offset": 4, "type": "i16le"}, "gx": {"offset": 6, "type": "i16le"}, "gy": {"offset": 8, "type": "i16le"},
    "gz": {"offset": 10, "type": "i16le"}}})");
  Record({0, 1, 2, 9});
  EXPECT_EQ(Out("csv", {"--layout", folder_ / "layout.json"}), Out("csv"));
}

TEST_F(CliTelemetry, LayoutsThatCannotBe_AreRefusedWithTheirReason) {
  Record({0});
  const std::string latitude = R"("latitude": {"offset": 0, "type": "f64le"}, )";
  const std::pair<std::string, const char*> cases[] = {
      {"nonsense", "no JSON object"},
      {"[]", "no JSON object"},
      {R"({"gps": {}})", "needs \"latitude\""},
      {R"({"gps": {)" + latitude + R"("longitude": {"offset": 65, "type": "f64le"}}})", "does not lie in its block"},
      {R"({"gps": {)" + latitude + R"("longitude": {"offset": -8, "type": "f64le"}}})", "of another kind"},
      {R"({"gps": {)" + latitude + R"("longitude": {"offset": 8, "type": "f16"}}})", "is no type"},
      {R"({"gps": {)" + latitude + R"("longitude": {"offset": 8}}})", "needs \"offset\" and \"type\""},
      {R"({"gps": {)" + latitude + R"("smell": {"offset": 8, "type": "u8"}}})", "no field \"smell\""},
      {R"({"sensors": {"ax": {"offset": 11, "type": "i16le"}}})", "does not lie in its block"},
      {R"({"extra": 1})", "not known there"},
  };
  for (const auto& [text, reason] : cases) {
    WriteText(folder_ / "layout.json", text);
    const CliResult result = Run("csv", {"--layout", folder_ / "layout.json"});
    EXPECT_EQ(result.code, 1) << text;
    EXPECT_THAT(result.err, HasSubstr(reason)) << text;
  }
  const std::pair<const char*, const char*> files[] = {
      {".", "is a folder"}, {"none.json", "cannot be opened"}, {"zero", "too long"}};
  for (const auto& [name, reason] : files) {
    const std::string path = std::string(name) == "zero" ? "/dev/zero" : folder_ / name;
    const CliResult result = Run("csv", {"--layout", path});
    EXPECT_EQ(result.code, 1) << path;
    EXPECT_THAT(result.err, HasSubstr(reason)) << path;
  }
}

TEST_F(CliTelemetry, AnglesAtTheEndOfTheirRange_AreTheBeginningInGpx) {
  std::vector<GpsPoint> points = {At(0), At(1), At(2), At(3)};
  points[0].longitude = 180.0;
  points[0].course = 360.0;
  points[1].longitude = 179.99999999999;
  points[1].course = -90.0;
  points[2].longitude = -180.0;
  points[2].course = 359.99999;
  points[3].longitude = 179.5;
  points[3].course = 725.5;
  WriteSmallRecording(path_, Payloads(points));
  pugi::xml_document document;
  ASSERT_TRUE(document.load_string(Out("gpx").c_str()));
  std::vector<double> longitudes;
  std::vector<double> courses;
  for (const pugi::xml_node& node : document.child("gpx").child("trk").child("trkseg").children("trkpt")) {
    longitudes.push_back(node.attribute("lon").as_double());
    const pugi::xml_node extension = node.child("extensions").child("gpxtpx:TrackPointExtension");
    courses.push_back(extension.child("gpxtpx:course").text().as_double());
  }
  EXPECT_EQ(longitudes, (std::vector<double>{-180, -180, -180, 179.5}));
  EXPECT_EQ(courses, (std::vector<double>{0, 270, 0, 5.5}));
}

TEST_F(CliTelemetry, Output_IsOverwrittenOnlyWhenForced) {
  Record({0, 1});
  WriteText(folder_ / "out.gpx", "precious");
  EXPECT_EQ(Run("gpx", {"-o", folder_ / "out.gpx"}).code, 1);
  EXPECT_EQ(TextOf(folder_ / "out.gpx"), "precious");
  EXPECT_EQ(Run("gpx", {"-o", folder_ / "out.gpx", "--force"}).code, 0);
  EXPECT_EQ(TextOf(folder_ / "out.gpx"), Out("gpx"));
  EXPECT_EQ(Run("gpx", {"-o", path_, "--force"}).code, 1);
  EXPECT_EQ(Run("gpx", {"--json"}).code, 2);
  EXPECT_EQ(Run("shp").code, 2);
}

long PeakKilobytes() {
  rusage usage{};
  getrusage(RUSAGE_CHILDREN, &usage);
  return usage.ru_maxrss;
}

TEST_F(CliTelemetry, LongDrives_TakeNoMoreMemoryThanShortOnes) {
  Record({0, 1, 2});
  for (const char* format : {"gpx", "csv", "geojson", "kml"}) Out(format);
  const long before = PeakKilobytes();
  std::vector<int64_t> seconds(100000);
  for (size_t i = 0; i < seconds.size(); ++i) seconds[i] = static_cast<int64_t>(i);
  Record(seconds, "test");
  EXPECT_EQ(Report()["points"], seconds.size());
  for (const char* format : {"gpx", "csv", "geojson", "kml"}) {
    EXPECT_EQ(Run(format, {"-o", folder_ / "out", "--force"}).code, 0);
  }
  EXPECT_GT(std::filesystem::file_size(folder_ / "out"), 5000000u);
  constexpr long kMostKilobytes = 3000;
  EXPECT_LT(PeakKilobytes() - before, kMostKilobytes);
}

}  // namespace
}  // namespace zmv::tool

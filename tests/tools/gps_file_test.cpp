#include "tools/zmv/gps_file.h"

#include <gtest/gtest.h>

#include <sstream>

#include "tests/tools/temp_folder.h"
#include "tools/zmv/tool_error.h"

namespace zmv::tool {
namespace {

constexpr int64_t kSecond = 1000000;
constexpr int64_t kStart = 1717230600 * kSecond;  // 2024-06-01T08:30:00Z

GpsTrack Csv(const std::string& text) {
  std::istringstream in(text);
  return ParseGpsCsv(in, "test.csv");
}

TEST(ParseUtc, FormsOfOneMoment_AreEqual) {
  EXPECT_EQ(ParseUtc("2024-06-01T08:30:00Z"), kStart);
  EXPECT_EQ(ParseUtc(" 2024-06-01 08:30:00.000 "), kStart);
  EXPECT_EQ(ParseUtc("2024-06-01T10:30:00+02:00"), kStart);
  EXPECT_EQ(ParseUtc("2024-06-01T03:00:00-0530"), kStart);
  EXPECT_EQ(ParseUtc("1717230600"), kStart);
  EXPECT_EQ(ParseUtc("2024-06-01T08:30:00.25Z"), kStart + kSecond / 4);
  EXPECT_EQ(ParseUtc("2024-06-01T08:30:00.1234567Z"), kStart + 123456);
  EXPECT_EQ(ParseUtc("1970-01-01T00:00:00Z"), 0);
}

TEST(ParseUtc, NoTimes_AreRefused) {
  for (const char* text :
       {"", "now", "2024-06-01", "2024-02-30T00:00:00Z", "2024-06-01T24:00:00Z", "2024-06-01T08:60:00Z",
        "2024-06-01T08:30:00.Z", "2024-06-01T08:30:00Zx", "2024-06-01T08:30:00+1", "-5", "1e300", "nan"}) {
    EXPECT_FALSE(ParseUtc(text)) << text;
  }
}

TEST(UtcText, Moment_IsWrittenWithMilliseconds) {
  EXPECT_EQ(UtcText(kStart + 1234), "2024-06-01T08:30:00.001Z");
  EXPECT_EQ(ParseUtc(UtcText(kStart)), kStart);
}

TEST(ParseNumber, WholeText_HasToBeANumber) {
  EXPECT_EQ(ParseNumber(" +1.5 "), 1.5);
  EXPECT_EQ(ParseNumber("-0.25"), -0.25);
  for (const char* text : {"", " ", "1,5", "1.5m", "inf", "nan", "--1"}) EXPECT_FALSE(ParseNumber(text)) << text;
}

TEST(GpsCsv, AllColumnsInAnyOrder_AreRead) {
  const GpsTrack track =
      Csv("\xEF\xBB\xBFLon, Lat,time,gz,gy,gx,az,ay,ax,sats,hdop,course,speed,ele,comment\r\n"
          "16.5,48.25,2024-06-01T08:30:00Z,6,5,4,3,2,-1,11,0.5,90,12.5,170,\"a, \"\"b\"\"\"\r\n");
  ASSERT_EQ(track.points.size(), 1u);
  const GpsPoint& point = track.points[0];
  EXPECT_EQ(point.utc_us, kStart);
  EXPECT_EQ(point.latitude, 48.25);
  EXPECT_EQ(point.longitude, 16.5);
  EXPECT_EQ(point.altitude, 170);
  EXPECT_EQ(point.speed, 12.5);
  EXPECT_EQ(point.course, 90);
  EXPECT_EQ(point.hdop, 0.5f);
  EXPECT_EQ(point.satellites, 11);
  EXPECT_EQ(point.fix, GpsFix::k3d);
  const int16_t expected[] = {-1, 2, 3, 4, 5, 6};
  for (size_t i = 0; i < kSensorAxes; ++i) EXPECT_EQ(point.sensors[i], expected[i]) << i;
}

TEST(GpsCsv, EmptyCells_AreAbsentValues) {
  const GpsTrack track = Csv("time,lat,lon,ele,speed,ax\n1717230600,1,2,,,\n\n1717230601,1,2\n");
  ASSERT_EQ(track.points.size(), 2u);
  EXPECT_EQ(track.malformed, 0u);
  for (const GpsPoint& point : track.points) {
    EXPECT_FALSE(point.altitude);
    EXPECT_FALSE(point.speed);
    EXPECT_FALSE(point.sensors[0]);
    EXPECT_EQ(point.fix, GpsFix::k2d);
  }
}

TEST(GpsCsv, MalformedRows_AreCountedAndLeftOut) {
  const GpsTrack track =
      Csv("time,lat,lon,ele,speed,hdop,sats,ax\n"
          "1717230600,1,2,3,4,1,5,6\n"
          "yesterday,1,2,3,4,1,5,6\n"       // time
          "1717230601,,2,3,4,1,5,6\n"       // latitude missing
          "1717230601,91,2,3,4,1,5,6\n"     // latitude out of range
          "1717230601,1,181,3,4,1,5,6\n"    // longitude out of range
          "1717230601,1,2,high,4,1,5,6\n"   // no number
          "1717230601,1,2,3,-4,1,5,6\n"     // negative speed
          "1717230601,1,2,3,4,1,256,6\n"    // too many satellites
          "1717230601,1,2,3,4,1,5,32768\n"  // beyond the sensor's range
          "1717230601\n"                    // cut off
          "1717230602,1,2,3,4,1,5,6\n");
  EXPECT_EQ(track.points.size(), 2u);
  EXPECT_EQ(track.malformed, 9u);
  EXPECT_EQ(track.out_of_order, 0u);
}

TEST(GpsCsv, TimesThatDoNotIncrease_AreCountedAndLeftOut) {
  const GpsTrack track = Csv("time,lat,lon\n10,1,2\n10,1,2\n9,1,2\n11,1,2\n");
  EXPECT_EQ(track.points.size(), 2u);
  EXPECT_EQ(track.out_of_order, 2u);
}

TEST(GpsCsv, HeaderWithoutPosition_IsRefused) {
  EXPECT_THROW(Csv("time,lat\n1,2\n"), ToolError);
  EXPECT_THROW(Csv(""), ToolError);
}

constexpr const char* kGpxHead =
    "<?xml version=\"1.0\"?><gpx version=\"1.1\" xmlns=\"http://www.topografix.com/GPX/1/1\"><trk>";

TEST(Gpx, PointsOfAllSegments_AreReadWithTheirExtensions) {
  const GpsTrack track =
      ParseGpx(std::string(kGpxHead) +
                   "<trkseg><trkpt lat=\"48.25\" lon=\"16.5\"><ele>170</ele><time>2024-06-01T08:30:00Z</time>"
                   "<fix>2d</fix><sat>7</sat><hdop>1.5</hdop><extensions><x:TrackPointExtension xmlns:x=\"e\">"
                   "<x:speed>12.5</x:speed><x:course>90</x:course></x:TrackPointExtension></extensions></trkpt>"
                   "</trkseg><trkseg><trkpt lat=\"-48\" lon=\"-16\"><time>2024-06-01T08:30:01Z</time></trkpt>"
                   "</trkseg></trk></gpx>",
               "test.gpx");
  ASSERT_EQ(track.points.size(), 2u);
  const GpsPoint& point = track.points[0];
  EXPECT_EQ(point.utc_us, kStart);
  EXPECT_EQ(point.latitude, 48.25);
  EXPECT_EQ(point.longitude, 16.5);
  EXPECT_EQ(point.altitude, 170);
  EXPECT_EQ(point.speed, 12.5);
  EXPECT_EQ(point.course, 90);
  EXPECT_EQ(point.hdop, 1.5f);
  EXPECT_EQ(point.satellites, 7);
  EXPECT_EQ(point.fix, GpsFix::k2d);
  EXPECT_EQ(track.points[1].fix, GpsFix::k2d);
  EXPECT_FALSE(track.points[1].altitude);
}

TEST(Gpx, PrefixedElementsAndGpx10Fields_AreKnown) {
  const GpsTrack track = ParseGpx(
      "<g:gpx xmlns:g=\"http://www.topografix.com/GPX/1/0\"><g:trk><g:trkseg><g:trkpt lat=\"1\" lon=\"2\">"
      "<g:time>2024-06-01T08:30:00Z</g:time><g:course>5</g:course><g:speed>3</g:speed></g:trkpt></g:trkseg></g:trk></"
      "g:gpx>",
      "test.gpx");
  ASSERT_EQ(track.points.size(), 1u);
  EXPECT_EQ(track.points[0].speed, 3);
  EXPECT_EQ(track.points[0].course, 5);
}

TEST(Gpx, MalformedPoints_AreCountedAndLeftOut) {
  std::string text = kGpxHead;
  text +=
      "<trkseg><trkpt lat=\"1\" lon=\"2\"/>"                                  // no time
      "<trkpt lat=\"x\" lon=\"2\"><time>2024-06-01T08:30:00Z</time></trkpt>"  // no number
      "<trkpt lon=\"2\"><time>2024-06-01T08:30:00Z</time></trkpt>"            // no latitude
      "<trkpt lat=\"1\" lon=\"2\"><time>2024-06-01T08:30:00Z</time><ele>?</ele></trkpt>"
      "<trkpt lat=\"1\" lon=\"2\"><time>2024-06-01T08:30:00Z</time></trkpt>"
      "</trkseg></trk></gpx>";
  const GpsTrack track = ParseGpx(text, "test.gpx");
  EXPECT_EQ(track.points.size(), 1u);
  EXPECT_EQ(track.malformed, 4u);
}

TEST(Gpx, BrokenXmlOrAnotherDocument_IsRefused) {
  EXPECT_THROW(ParseGpx("<gpx><trk>", "test.gpx"), ToolError);
  EXPECT_THROW(ParseGpx("<kml/>", "test.gpx"), ToolError);
  EXPECT_THROW(ParseGpx("", "test.gpx"), ToolError);
}

TEST(LoadGpsFile, SampleDriveInBothForms_IsTheSame) {
  const GpsTrack gpx = LoadGpsFile(Sample("drive_gps.gpx"));
  const GpsTrack csv = LoadGpsFile(Sample("drive_gps.csv"));
  ASSERT_EQ(gpx.points.size(), 13u);
  ASSERT_EQ(csv.points.size(), 13u);
  for (size_t i = 0; i < gpx.points.size(); ++i) {
    EXPECT_EQ(PackTelemetry(gpx.points[i]), PackTelemetry(csv.points[i])) << i;
    EXPECT_EQ(gpx.points[i].utc_us, kStart + static_cast<int64_t>(i) * kSecond / 2);
  }
}

TEST(LoadGpsFile, MissingUnknownOrPointlessFiles_AreRefused) {
  const TempFolder folder;
  EXPECT_THROW(LoadGpsFile(folder / "none.gpx"), ToolError);
  EXPECT_THROW(LoadGpsFile(Sample("README.md")), ToolError);
  WriteText(folder / "empty.csv", "time,lat,lon\n");
  EXPECT_THROW(LoadGpsFile(folder / "empty.csv"), ToolError);
}

}  // namespace
}  // namespace zmv::tool

// Reads a drive's positions from a GPX or CSV file.
#ifndef ZMV_TOOLS_GPS_FILE_H
#define ZMV_TOOLS_GPS_FILE_H

#include <cstdint>
#include <istream>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/zmv/gps_point.h"

namespace zmv::tool {

struct GpsTrack {
  std::vector<GpsPoint> points;  // each with time and position, times increasing
  unsigned malformed = 0;        // entries left out: a field missing, not a number or out of range
  unsigned out_of_order = 0;     // entries left out: not later than the one before
};

// By its name's end, .gpx or .csv; ToolError when it cannot be read or holds no point at all.
GpsTrack LoadGpsFile(const std::string& path);

// The two formats. `name` is for messages.
GpsTrack ParseGpx(const std::string& text, const std::string& name);
GpsTrack ParseGpsCsv(std::istream& in, const std::string& name);

// "2024-06-01T08:30:00.5Z" (also with a blank for T, with +hh:mm for Z) or seconds since 1970, as microseconds since
// 1970.
std::optional<int64_t> ParseUtc(std::string_view text);
// Microseconds since 1970 as "2024-06-01T08:30:00.500Z".
std::string UtcText(int64_t utc_us);

// A finite decimal number that fills the text, blanks around it apart.
std::optional<double> ParseNumber(std::string_view text);

// A position is there and lies on the globe.
bool HasSoundPosition(const GpsPoint& point);

// The checks that both formats share: appends `point` when it is sound, else counts it.
void AddPoint(const GpsPoint& point, GpsTrack& track);

}  // namespace zmv::tool

#endif

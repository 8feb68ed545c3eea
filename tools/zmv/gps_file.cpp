#include "tools/zmv/gps_file.h"

#include <fmt/core.h>

#include <cmath>
#include <fstream>
#include <sstream>

#include "tools/zmv/tool_error.h"

namespace zmv::tool {
namespace {

constexpr double kMaxLatitude = 90;
constexpr double kMaxLongitude = 180;

bool EndsWith(const std::string& path, const std::string& end) {
  if (path.size() < end.size()) return false;
  for (size_t i = 0; i < end.size(); ++i) {
    if (std::tolower(static_cast<unsigned char>(path[path.size() - end.size() + i])) != end[i]) return false;
  }
  return true;
}

}  // namespace

bool HasSoundPosition(const GpsPoint& point) {
  return point.latitude && point.longitude && std::fabs(*point.latitude) <= kMaxLatitude &&
         std::fabs(*point.longitude) <= kMaxLongitude;
}

void AddPoint(const GpsPoint& point, GpsTrack& track) {
  if (!point.utc_us || !HasSoundPosition(point)) {
    ++track.malformed;
  } else if (!track.points.empty() && *point.utc_us <= *track.points.back().utc_us) {
    ++track.out_of_order;
  } else {
    track.points.push_back(point);
  }
}

GpsTrack LoadGpsFile(const std::string& path) {
  const bool gpx = EndsWith(path, ".gpx");
  if (!gpx && !EndsWith(path, ".csv")) throw ToolError(path + ": positions are read from .gpx and .csv files");
  std::ifstream in(path, std::ios::binary);
  if (!in) throw ToolError(path + ": cannot be opened");
  GpsTrack track;
  if (gpx) {
    std::ostringstream text;
    text << in.rdbuf();
    track = ParseGpx(text.str(), path);
  } else {
    track = ParseGpsCsv(in, path);
  }
  if (track.points.empty()) {
    throw ToolError(fmt::format("{}: holds no point with time and position ({} are unusable)", path,
                                track.malformed + track.out_of_order));
  }
  return track;
}

}  // namespace zmv::tool

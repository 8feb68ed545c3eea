// GPX 1.0 and 1.1: the track points of all tracks and segments. Elements are known by their names without prefix, since
// writers choose their own prefixes; speed and course stand in the point itself or anywhere in its extensions.
#include <fmt/core.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <pugixml.hpp>

#include "tools/zmv/gps_file.h"
#include "tools/zmv/tool_error.h"

namespace zmv::tool {
namespace {

bool Named(const pugi::xml_node& node, const char* name) {
  const char* colon = std::strrchr(node.name(), ':');
  return std::strcmp(colon != nullptr ? colon + 1 : node.name(), name) == 0;
}

pugi::xml_node Find(const pugi::xml_node& point, const char* name) {
  return point.find_node([name](const pugi::xml_node& node) { return Named(node, name); });
}

// Reads the numbers of a point; one that is there but makes no sense spoils the point.
class NumberReader {
 public:
  explicit NumberReader(const pugi::xml_node& point) : point_(point) {}

  std::optional<double> Read(const char* name, double least) {
    const pugi::xml_node node = Find(point_, name);
    if (!node) return std::nullopt;
    const std::optional<double> number = ParseNumber(node.child_value());
    if (number && *number >= least) return number;
    sound_ = false;
    return std::nullopt;
  }

  bool sound() const { return sound_; }

 private:
  pugi::xml_node point_;
  bool sound_ = true;
};

GpsFix FixOf(const pugi::xml_node& point, bool has_altitude) {
  const std::string fix = Find(point, "fix").child_value();
  if (fix == "none") return GpsFix::kNone;
  if (fix == "2d") return GpsFix::k2d;
  return fix.empty() && !has_altitude ? GpsFix::k2d : GpsFix::k3d;
}

std::optional<GpsPoint> ParsePoint(const pugi::xml_node& node) {
  constexpr double kAny = -std::numeric_limits<double>::max();
  NumberReader numbers(node);
  GpsPoint point;
  point.utc_us = ParseUtc(Find(node, "time").child_value());
  point.latitude = ParseNumber(node.attribute("lat").value());
  point.longitude = ParseNumber(node.attribute("lon").value());
  point.altitude = numbers.Read("ele", kAny);
  point.speed = numbers.Read("speed", 0);
  point.course = numbers.Read("course", kAny);
  if (const auto hdop = numbers.Read("hdop", 0)) point.hdop = static_cast<float>(std::fmin(*hdop, 1e6));
  if (const auto satellites = numbers.Read("sat", 0))
    point.satellites = static_cast<uint8_t>(std::fmin(*satellites, 255));
  point.fix = FixOf(node, point.altitude.has_value());
  return numbers.sound() ? std::optional(point) : std::nullopt;
}

class PointWalker : public pugi::xml_tree_walker {
 public:
  explicit PointWalker(GpsTrack& track) : track_(track) {}

  bool for_each(pugi::xml_node& node) override {
    if (!Named(node, "trkpt")) return true;
    if (const auto point = ParsePoint(node)) {
      AddPoint(*point, track_);
    } else {
      ++track_.malformed;
    }
    return true;
  }

 private:
  GpsTrack& track_;
};

}  // namespace

GpsTrack ParseGpx(const std::string& text, const std::string& name) {
  pugi::xml_document document;
  const pugi::xml_parse_result parsed = document.load_buffer(text.data(), text.size());
  if (!parsed)
    throw ToolError(fmt::format("{}: is no sound XML: {} at byte {}", name, parsed.description(), parsed.offset));
  if (!Named(document.document_element(), "gpx")) throw ToolError(name + ": is no GPX file");
  GpsTrack track;
  PointWalker walker(track);
  document.traverse(walker);
  return track;
}

}  // namespace zmv::tool

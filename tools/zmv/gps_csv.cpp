// CSV: one header line that names the columns, one line for each point.
#include <fmt/core.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cmath>
#include <limits>

#include "tools/zmv/gps_file.h"
#include "tools/zmv/tool_error.h"

namespace zmv::tool {
namespace {

enum Column : size_t { kTime, kLat, kLon, kEle, kSpeed, kCourse, kHdop, kSats, kFirstSensor };
constexpr size_t kColumns = kFirstSensor + kSensorAxes;
constexpr std::array<const char*, kColumns> kNames = {"time", "lat", "lon", "ele", "speed", "course", "hdop",
                                                      "sats", "ax",  "ay",  "az",  "gx",    "gy",     "gz"};
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

// The cells of a line; a cell may stand in double quotes, a doubled quote inside is one quote.
std::vector<std::string> Cells(std::string_view line) {
  std::vector<std::string> cells(1);
  bool quoted = false;
  for (size_t i = 0; i < line.size(); ++i) {
    const char c = line[i];
    if (c == '"' && quoted && i + 1 < line.size() && line[i + 1] == '"') {
      cells.back() += c;
      ++i;
    } else if (c == '"') {
      quoted = !quoted;
    } else if (c == ',' && !quoted) {
      cells.emplace_back();
    } else if (c != '\r') {
      cells.back() += c;
    }
  }
  return cells;
}

// The name of a column without blanks and without the unit in brackets behind it.
std::string Folded(const std::string& cell) {
  std::string folded;
  for (const char c : cell) {
    if (c == '(') break;
    if (c != ' ') folded += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  }
  return folded;
}

// Where each known column stands in the file; kColumns entries, npos when absent.
std::array<size_t, kColumns> ReadHeader(const std::vector<std::string>& cells, const std::string& name) {
  std::array<size_t, kColumns> places;
  places.fill(std::string::npos);
  for (size_t cell = 0; cell < cells.size(); ++cell) {
    const auto known = std::find(kNames.begin(), kNames.end(), Folded(cells[cell]));
    if (known != kNames.end()) places[static_cast<size_t>(known - kNames.begin())] = cell;
  }
  for (const size_t needed : {kTime, kLat, kLon}) {
    if (places[needed] == std::string::npos) {
      throw ToolError(fmt::format("{}: the first line must name the columns, and has no \"{}\"", name, kNames[needed]));
    }
  }
  return places;
}

class Row {
 public:
  Row(const std::vector<std::string>& cells, const std::array<size_t, kColumns>& places)
      : cells_(cells), places_(places) {}

  std::string_view Text(size_t column) const {
    const size_t place = places_[column];
    return place < cells_.size() ? std::string_view(cells_[place]) : std::string_view();
  }

  // An empty cell is an absent value; anything else has to be a number from `least` to `most`.
  std::optional<double> Number(size_t column, double least, double most) {
    const std::string_view text = Text(column);
    if (text.find_first_not_of(" \t") == std::string_view::npos) return std::nullopt;
    const std::optional<double> number = ParseNumber(text);
    if (number && *number >= least && *number <= most) return number;
    sound_ = false;
    return std::nullopt;
  }

  bool sound() const { return sound_; }

 private:
  const std::vector<std::string>& cells_;
  const std::array<size_t, kColumns>& places_;
  bool sound_ = true;
};

constexpr double kAny = std::numeric_limits<double>::max();

std::optional<GpsPoint> ParseRow(Row row) {
  GpsPoint point;
  point.utc_us = ParseUtc(row.Text(kTime));
  point.latitude = row.Number(kLat, -kAny, kAny);
  point.longitude = row.Number(kLon, -kAny, kAny);
  point.altitude = row.Number(kEle, -kAny, kAny);
  point.speed = row.Number(kSpeed, 0, kAny);
  point.course = row.Number(kCourse, -kAny, kAny);
  if (const auto hdop = row.Number(kHdop, 0, std::numeric_limits<float>::max())) point.hdop = static_cast<float>(*hdop);
  if (const auto sats = row.Number(kSats, 0, std::numeric_limits<uint8_t>::max())) {
    point.satellites = static_cast<uint8_t>(*sats);
  }
  for (size_t i = 0; i < kSensorAxes; ++i) {
    // The lowest value of the type means "absent".
    constexpr double kMost = std::numeric_limits<int16_t>::max();
    const auto value = row.Number(kFirstSensor + i, -kMost, kMost);
    if (value) point.sensors[i] = static_cast<int16_t>(std::lround(*value));
  }
  point.fix = point.altitude ? GpsFix::k3d : GpsFix::k2d;
  return row.sound() ? std::optional(point) : std::nullopt;
}

}  // namespace

GpsTrack ParseGpsCsv(std::istream& in, const std::string& name) {
  GpsTrack track;
  std::string line;
  if (!std::getline(in, line)) throw ToolError(name + ": is empty");
  if (line.starts_with(kByteOrderMark)) line.erase(0, kByteOrderMark.size());
  const std::array<size_t, kColumns> places = ReadHeader(Cells(line), name);
  while (std::getline(in, line)) {
    if (line.find_first_not_of(" \t\r") == std::string::npos) continue;
    const std::vector<std::string> cells = Cells(line);
    if (const auto point = ParseRow(Row(cells, places))) {
      AddPoint(*point, track);
    } else {
      ++track.malformed;
    }
  }
  return track;
}

}  // namespace zmv::tool

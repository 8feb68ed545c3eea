#include "tools/zmv/telemetry_layout.h"

#include <fmt/core.h>

#include <algorithm>
#include <array>
#include <bit>
#include <chrono>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <limits>
#include <nlohmann/json.hpp>
#include <string_view>

#include "tools/zmv/gps_file.h"
#include "tools/zmv/tool_error.h"

namespace zmv::tool {
namespace {

using nlohmann::json;

constexpr double kMicroseconds = 1e6;
constexpr size_t kByteBits = 8;
constexpr std::array<const char*, 16> kGpsNames = {"utc",    "year",       "month",     "day",   "hour",   "minute",
                                                   "second", "latitude",   "longitude", "speed", "course", "altitude",
                                                   "hdop",   "satellites", "fix",       "valid"};
constexpr std::array<const char*, kSensorAxes> kSensorNames = {"ax", "ay", "az", "gx", "gy", "gz"};
constexpr std::array<const char*, 3> kCalendarNames = {"year", "month", "day"};

template <typename T>
std::optional<T> Rounded(const std::optional<double>& value, double least, double most) {
  if (!value || !(*value >= least && *value <= most)) return std::nullopt;
  return static_cast<T>(std::lround(*value));
}

}  // namespace

class TelemetryLayout::Parser {
 public:
  explicit Parser(const std::string& name) : name_(name) {}

  template <size_t kCount>
  Fields Block(const json& root, const char* block, size_t size, const std::array<const char*, kCount>& known) const {
    Fields fields;
    if (!root.contains(block)) return fields;
    if (!root[block].is_object()) Fail(fmt::format("\"{}\" is no object", block));
    for (const auto& [key, value] : root[block].items()) {
      if (std::find(known.begin(), known.end(), key) == known.end()) {
        Fail(fmt::format("\"{}\" has no field \"{}\"", block, key));
      }
      fields[key] = One(value, key, size);
    }
    return fields;
  }

  [[noreturn]] void Fail(const std::string& what) const { throw ToolError(name_ + ": " + what); }

 private:
  Field One(const json& value, const std::string& key, size_t block_size) const {
    if (!value.is_object()) Fail(fmt::format("\"{}\" is no object", key));
    Field field;
    bool has_offset = false;
    bool has_type = false;
    for (const auto& [part, number] : value.items()) {
      if (part == "type" && number.is_string()) {
        field.type = TypeOf(number.get<std::string>(), key);
        has_type = true;
      } else if (part == "offset" && number.is_number_unsigned()) {
        field.offset = number.get<size_t>();
        has_offset = true;
      } else if (part == "mask" && key == "valid" && number.is_number_unsigned()) {
        field.mask = number.get<uint64_t>();
      } else if (part == "equals" && key == "valid" && number.is_number()) {
        field.equals = number.get<double>();
      } else if (part == "scale" && number.is_number()) {
        field.scale = number.get<double>();
      } else if (part == "add" && number.is_number()) {
        field.add = number.get<double>();
      } else if (part == "absent" && number.is_number()) {
        field.absent = number.get<double>();
      } else {
        Fail(fmt::format("\"{}\": \"{}\" is not known there, or its value is of another kind", key, part));
      }
    }
    if (!has_offset || !has_type) Fail(fmt::format("\"{}\" needs \"offset\" and \"type\"", key));
    if (field.offset > block_size || field.type.size > block_size - field.offset) {
      Fail(fmt::format("\"{}\" does not lie in its block of {} bytes", key, block_size));
    }
    return field;
  }

  Type TypeOf(const std::string& text, const std::string& key) const {
    static const std::map<std::string_view, Type> kTypes = {
        {"i8", {Kind::kInteger, 1, false}},     {"u8", {Kind::kUnsigned, 1, false}},
        {"i16le", {Kind::kInteger, 2, false}},  {"i16be", {Kind::kInteger, 2, true}},
        {"u16le", {Kind::kUnsigned, 2, false}}, {"u16be", {Kind::kUnsigned, 2, true}},
        {"i32le", {Kind::kInteger, 4, false}},  {"i32be", {Kind::kInteger, 4, true}},
        {"u32le", {Kind::kUnsigned, 4, false}}, {"u32be", {Kind::kUnsigned, 4, true}},
        {"i64le", {Kind::kInteger, 8, false}},  {"i64be", {Kind::kInteger, 8, true}},
        {"u64le", {Kind::kUnsigned, 8, false}}, {"u64be", {Kind::kUnsigned, 8, true}},
        {"f32le", {Kind::kFloat, 4, false}},    {"f32be", {Kind::kFloat, 4, true}},
        {"f64le", {Kind::kFloat, 8, false}},    {"f64be", {Kind::kFloat, 8, true}}};
    const auto found = kTypes.find(text);
    if (found == kTypes.end()) {
      Fail(fmt::format("\"{}\": \"{}\" is no type; i8, u8, and i16le to i64be, u16le to u64be, f32le to f64be are", key,
                       text));
    }
    return found->second;
  }

  const std::string& name_;
};

TelemetryLayout TelemetryLayout::Load(const std::string& path) {
  constexpr std::streamsize kMostBytes = 1 << 20;
  std::error_code ignored;
  if (std::filesystem::is_directory(path, ignored)) throw ToolError(path + ": is a folder");
  std::ifstream in(path, std::ios::binary);
  if (!in) throw ToolError(path + ": cannot be opened");
  std::string text(kMostBytes, '\0');
  in.read(text.data(), kMostBytes);
  if (in) throw ToolError(path + ": is too long for the description of a layout");
  text.resize(static_cast<size_t>(in.gcount()));
  return Parse(text, path);
}

TelemetryLayout TelemetryLayout::Parse(const std::string& text, const std::string& name) {
  const Parser parser(name);
  const json root = json::parse(text, nullptr, false);
  if (!root.is_object()) parser.Fail("is no JSON object");
  for (const auto& [key, value] : root.items()) {
    if (key != "gps" && key != "sensors") parser.Fail(fmt::format("\"{}\" is not known there", key));
  }
  TelemetryLayout layout;
  layout.gps_ = parser.Block(root, "gps", kTelemetryGpsSize, kGpsNames);
  layout.sensors_ = parser.Block(root, "sensors", kTelemetrySensorSize, kSensorNames);
  if (!layout.gps_.contains("latitude") || !layout.gps_.contains("longitude")) {
    parser.Fail("\"gps\" needs \"latitude\" and \"longitude\"");
  }
  const auto given = [&](const char* part) { return layout.gps_.contains(part); };
  if (std::any_of(kCalendarNames.begin(), kCalendarNames.end(), given) &&
      !std::all_of(kCalendarNames.begin(), kCalendarNames.end(), given)) {
    parser.Fail("a date needs \"year\", \"month\" and \"day\"");
  }
  return layout;
}

uint64_t TelemetryLayout::Bits(const Field& field, ByteView block) {
  uint64_t bits = 0;
  for (size_t i = 0; i < field.type.size; ++i) {
    bits = bits << kByteBits | block[field.offset + (field.type.big_endian ? i : field.type.size - 1 - i)];
  }
  return bits;
}

double TelemetryLayout::Stored(const Field& field, ByteView block) {
  const uint64_t bits = Bits(field, block);
  switch (field.type.kind) {
    case Kind::kFloat:
      return field.type.size == sizeof(float) ? static_cast<double>(std::bit_cast<float>(static_cast<uint32_t>(bits)))
                                              : std::bit_cast<double>(bits);
    case Kind::kInteger: {
      const size_t unused = kByteBits * (sizeof(bits) - field.type.size);
      return static_cast<double>(static_cast<int64_t>(bits << unused) >> unused);
    }
    case Kind::kUnsigned:
      break;
  }
  return static_cast<double>(bits);
}

std::optional<double> TelemetryLayout::Value(const Fields& fields, const char* name, ByteView block) {
  const auto found = fields.find(name);
  if (found == fields.end()) return std::nullopt;
  const Field& field = found->second;
  const double stored = Stored(field, block);
  if (field.absent && stored == *field.absent) return std::nullopt;
  const double value = stored * field.scale + field.add;
  return std::isfinite(value) ? std::optional(value) : std::nullopt;
}

bool TelemetryLayout::PositionIsValid(const GpsPoint& point, ByteView gps) const {
  const auto found = gps_.find("valid");
  if (found == gps_.end()) return point.latitude != 0.0 || point.longitude != 0.0;
  const Field& field = found->second;
  if (field.equals) return Stored(field, gps) == *field.equals;
  return (Bits(field, gps) & field.mask.value_or(std::numeric_limits<uint64_t>::max())) != 0;
}

std::optional<int64_t> TelemetryLayout::Time(ByteView gps) const {
  constexpr double kMostSeconds = 1e12;  // fits in 64 bits of microseconds; the years are judged elsewhere
  if (const auto utc = Value(gps_, "utc", gps)) {
    return std::fabs(*utc) < kMostSeconds ? std::optional<int64_t>(std::llround(*utc * kMicroseconds)) : std::nullopt;
  }
  const auto whole = [&](const char* name, int most) { return Rounded<int>(Value(gps_, name, gps), 0, most); };
  const auto year = whole("year", 9999);
  const auto month = whole("month", 12);
  const auto day = whole("day", 31);
  if (!year || !month || !day) return std::nullopt;
  const std::chrono::year_month_day date{std::chrono::year(*year), std::chrono::month(static_cast<unsigned>(*month)),
                                         std::chrono::day(static_cast<unsigned>(*day))};
  const auto part = [&](const char* name) { return gps_.contains(name) ? whole(name, 59) : std::optional(0); };
  const auto hour = part("hour");
  const auto minute = part("minute");
  const auto second = gps_.contains("second") ? Value(gps_, "second", gps) : std::optional(0.0);
  if (!date.ok() || !hour || *hour > 23 || !minute || !second || !(*second >= 0 && *second < 61)) return std::nullopt;
  const int64_t days = std::chrono::sys_days(date).time_since_epoch().count();
  const int64_t minutes = (days * 24 + *hour) * 60 + *minute;
  return minutes * 60 * static_cast<int64_t>(kMicroseconds) + std::llround(*second * kMicroseconds);
}

GpsFix TelemetryLayout::Fix(const GpsPoint& point, ByteView gps) const {
  if (!point.latitude || !PositionIsValid(point, gps)) return GpsFix::kNone;
  if (!gps_.contains("fix")) return point.altitude ? GpsFix::k3d : GpsFix::k2d;
  const auto fix = Value(gps_, "fix", gps);
  if (fix == static_cast<double>(GpsFix::k2d)) return GpsFix::k2d;
  return fix == static_cast<double>(GpsFix::k3d) ? GpsFix::k3d : GpsFix::kNone;
}

GpsPoint TelemetryLayout::Unpack(ByteView gps, ByteView sensors) const {
  GpsPoint point;
  if (gps.size() >= kTelemetryGpsSize) {
    point.utc_us = Time(gps);
    point.latitude = Value(gps_, "latitude", gps);
    point.longitude = Value(gps_, "longitude", gps);
    if (!point.latitude || !point.longitude) point.latitude = point.longitude = std::nullopt;
    point.altitude = Value(gps_, "altitude", gps);
    point.speed = Value(gps_, "speed", gps);
    point.course = Value(gps_, "course", gps);
    if (const auto hdop = Value(gps_, "hdop", gps)) point.hdop = static_cast<float>(std::fmin(*hdop, 1e6));
    point.satellites = Rounded<uint8_t>(Value(gps_, "satellites", gps), 0, std::numeric_limits<uint8_t>::max());
    point.fix = Fix(point, gps);
  }
  if (sensors.size() >= kTelemetrySensorSize) {
    constexpr double kMost = std::numeric_limits<int16_t>::max();
    for (size_t i = 0; i < kSensorAxes; ++i) {
      point.sensors[i] = Rounded<int16_t>(Value(sensors_, kSensorNames[i], sensors), -kMost, kMost);
    }
  }
  return point;
}

}  // namespace zmv::tool

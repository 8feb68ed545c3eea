// Where the values of a position stand in the 72-byte GPS block and the 12-byte sensor block of a recording whose
// producer has a layout of its own. A JSON file describes it; docs/format.md says how.
#ifndef ZMV_TOOLS_TELEMETRY_LAYOUT_H
#define ZMV_TOOLS_TELEMETRY_LAYOUT_H

#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include "tools/zmv/gps_point.h"

namespace zmv::tool {

class TelemetryLayout {
 public:
  // ToolError when the file cannot be read, is no JSON, or describes something that cannot be.
  static TelemetryLayout Load(const std::string& path);
  // `name` is for messages.
  static TelemetryLayout Parse(const std::string& text, const std::string& name);

  // The fix is none where the layout's own mark says so, or without such a mark at a position of 0, 0.
  GpsPoint Unpack(ByteView gps, ByteView sensors) const;

 private:
  enum class Kind { kInteger, kUnsigned, kFloat };
  struct Type {
    Kind kind = Kind::kUnsigned;
    size_t size = 1;
    bool big_endian = false;
  };
  struct Field {
    size_t offset = 0;
    Type type;
    double scale = 1;
    double add = 0;
    std::optional<double> absent;  // the stored number that means "no value"
    std::optional<double> equals;  // of the mark of valid positions: the stored number that says so
    std::optional<uint64_t> mask;  // ... or its bits, one of which has to be set
  };
  using Fields = std::map<std::string, Field>;
  class Parser;

  static uint64_t Bits(const Field& field, ByteView block);
  static double Stored(const Field& field, ByteView block);
  static std::optional<double> Value(const Fields& fields, const char* name, ByteView block);
  bool PositionIsValid(const GpsPoint& point, ByteView gps) const;
  std::optional<int64_t> Time(ByteView gps) const;
  GpsFix Fix(const GpsPoint& point, ByteView gps) const;

  Fields gps_;
  Fields sensors_;
};

}  // namespace zmv::tool

#endif

// The readable form of a recording's description.
#include <fmt/core.h>

#include "tools/zmv/console.h"
#include "tools/zmv/recording_info.h"

namespace zmv::tool {
namespace {

constexpr uint64_t kKilobit = 1000;

std::string Text(const Json& value) { return value.is_string() ? value.get<std::string>() : std::string(); }

std::string Clock(const Json& milliseconds) {
  return milliseconds.is_number() ? ClockText(milliseconds.get<uint64_t>()) : std::string("-");
}

std::string StreamLine(const Json& stream) {
  const std::string media = Text(stream["media"]);
  std::string codec = Text(stream["codec"]);
  if (stream.contains("profile") && stream["profile"].is_string()) codec += " " + Text(stream["profile"]);
  if (stream.contains("level") && stream["level"].is_string()) codec += " " + Text(stream["level"]);
  std::string shape;
  if (media == "video") {
    const double rate = stream["frame_rate"].is_number() ? stream["frame_rate"].get<double>() : 0;
    shape = fmt::format("{}x{} {:.3f} fps", stream["width"].get<uint32_t>(), stream["height"].get<uint32_t>(), rate);
  } else if (media == "audio") {
    shape = fmt::format("{} Hz {} ch", stream["sample_rate"].get<uint32_t>(), stream["channels"].get<uint32_t>());
  }
  const std::string bits =
      stream["bit_rate"].is_number() ? Grouped(stream["bit_rate"].get<uint64_t>() / kKilobit) + " kbit/s" : "-";
  return fmt::format("  {:<5} {}  {:<26} {:<22} {:>8} frames  {}  {:>14}  buffer {}\n", media,
                     stream["track"].get<uint32_t>(), codec, shape, Grouped(stream["frames"].get<uint64_t>()),
                     Clock(stream["duration_ms"]), bits, Grouped(stream["buffer_size"].get<uint64_t>()));
}

std::string SphericalLine(const Json& spherical) {
  const auto mode = spherical["projection_mode"].get<uint32_t>();
  const Json& bounds = spherical["bounds"];
  return fmt::format("           spherical, projection mode {}{}, bounds {} {} {}\n", mode, mode == 1 ? " (circ)" : "",
                     bounds[0].get<uint32_t>(), bounds[1].get<uint32_t>(), bounds[2].get<uint32_t>());
}

std::string FormText(const Json& info) {
  if (!info.contains("index")) return Text(info["brand"]);
  return info["index"].is_string() ? "index " + Text(info["index"]) : std::string("no index");
}

void AppendRecovery(const Json& info, std::string& out) {
  if (!info.contains("recovery")) return;
  out += "\nRecovery\n";
  for (const Json& message : info["recovery"]["messages"]) out += fmt::format("  {}\n", Text(message));
}

void AppendStreams(const Json& info, std::string& out) {
  if (info["streams"].empty()) return;
  out += "\nStreams\n";
  for (const Json& stream : info["streams"]) {
    out += StreamLine(stream);
    if (stream.contains("spherical")) out += SphericalLine(stream["spherical"]);
    if (!stream.contains("config")) continue;
    for (const Json& set : stream["config"])
      out += fmt::format("           {:<6} {}\n", Text(set["name"]), Text(set["hex"]));
  }
}

void AppendUser(const Json& info, std::string& out) {
  const Json& user = info["user"];
  if (user["gps_entries"].is_null() && user["sensor_entries"].is_null() && user["aidd"].is_null()) return;
  const bool avi = info.contains("index");
  out += avi ? "\nUser value\n" : "\nUser boxes\n";
  if (user["gps_entries"].is_number())
    out += fmt::format("  GPSR  {} positions\n", user["gps_entries"].get<uint32_t>());
  if (user["sensor_entries"].is_number())
    out += fmt::format("  SENS  {} sensor samples\n", user["sensor_entries"].get<uint32_t>());
  if (user["aidd"].is_object()) {
    const auto value = user["aidd"]["value"].get<uint32_t>();
    out += fmt::format("  AIDD  {} at byte {}\n", avi ? fmt::format("0x{:04X}", value) : fmt::format("0x{:08X}", value),
                       Grouped(user["aidd"]["position"].get<uint64_t>()));
  }
}

void AppendFront(const Json& info, std::string& out) {
  if (info["recovery_boxes"].empty()) return;
  out += "\nRecovery boxes\n";
  for (const Json& entry : info["recovery_boxes"]) {
    out += fmt::format("  {:<5} {:<8}", Text(entry["media"]), Text(entry["code"]));
    if (entry.contains("width")) {
      out += fmt::format("{}x{} {:g} fps, ", entry["width"].get<uint32_t>(), entry["height"].get<uint32_t>(),
                         entry["frame_rate"].get<double>());
    } else if (entry.contains("sample_rate")) {
      out += fmt::format("{} Hz {} ch, ", entry["sample_rate"].get<uint32_t>(), entry["channels"].get<uint32_t>());
    }
    out += fmt::format("time scale {}, {} bytes of configuration\n", entry["time_scale"].get<uint32_t>(),
                       entry["config_size"].get<uint32_t>());
  }
}

void AppendBoxes(const Json& info, std::string& out) {
  out +=
      fmt::format("\nStructure\n  {:<10}{:>15}{:>15}\n", info.contains("index") ? "chunk" : "box", "position", "size");
  for (const Json& box : info["boxes"]) {
    out += fmt::format("  {:<10}{:>15}{:>15}\n", Text(box["type"]), Grouped(box["position"].get<uint64_t>()),
                       Grouped(box["size"].get<uint64_t>()));
  }
  const uint64_t more = info["box_count"].get<uint64_t>() - info["boxes"].size();
  if (more > 0) out += fmt::format("  ... and {} more\n", Grouped(more));
}

}  // namespace

std::string RecordingText(const Json& info) {
  std::string out = Text(info["file"]) + "\n";
  out += fmt::format("  {} ({}), {} bytes, {}\n", Text(info["container"]), FormText(info),
                     Grouped(info["size"].get<uint64_t>()), Clock(info["duration_ms"]));
  out += fmt::format("  {}\n", Text(info["health"]["message"]));
  if (info["fragmented"].get<bool>()) out += "  frames in fragments; counts and rates cover those of the index only\n";
  if (info["rebuilt"].get<bool>()) out += "  rebuilt from a cut recording\n";
  if (info.contains("software") && info["software"].is_string()) {
    out += fmt::format("  written by {}\n", Text(info["software"]));
  }
  if (info["build"].is_string()) out += fmt::format("  written by a library of {}\n", Text(info["build"]));
  AppendRecovery(info, out);
  AppendStreams(info, out);
  AppendUser(info, out);
  AppendFront(info, out);
  AppendBoxes(info, out);
  return out;
}

}  // namespace zmv::tool

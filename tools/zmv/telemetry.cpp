// zmv telemetry: the drive in a recording for maps and tables.
#include <fmt/core.h>

#include <cstdio>
#include <filesystem>
#include <memory>
#include <optional>

#include "tools/zmv/commands.h"
#include "tools/zmv/gps_file.h"
#include "tools/zmv/output_file.h"
#include "tools/zmv/recording_info.h"
#include "tools/zmv/telemetry_writer.h"

namespace zmv::tool {
namespace {

constexpr double kSecondUs = 1e6;

struct TelemetryArguments {
  std::string file;
  std::string format;
  std::string output;
  std::string layout;
  std::string start;
  double gap = 0;
  uint32_t track = 0;
  bool force = false;
};

void ToStandardOutput(std::string_view text) {
  // A failure shows at the end, when standard output is flushed.
  std::fwrite(text.data(), 1, text.size(), stdout);
}

class Telemetry {
 public:
  Telemetry(const TelemetryArguments& arguments, Session& session) : arguments_(arguments), session_(session) {}

  void Run() {
    if (session_.json && arguments_.output.empty()) {
      throw ToolError("--json reports on standard output, so the positions need a file: -o FILE", kExitUsage);
    }
    DriveOptions options;
    options.place.path = arguments_.file;
    options.place.track = arguments_.track;
    options.gap_us = static_cast<int64_t>(arguments_.gap * kSecondUs);
    if (!arguments_.start.empty()) {
      options.start_utc = ParseUtc(arguments_.start);
      if (!options.start_utc) throw ToolError(arguments_.start + ": is no time (2024-06-01T08:30:00Z)", kExitUsage);
    }
    if (!arguments_.layout.empty()) {
      layout_ = TelemetryLayout::Load(arguments_.layout);
      options.place.layout = &*layout_;
    }
    Report(arguments_.output.empty() ? WriteTelemetry(options, arguments_.format, ToStandardOutput) : ToFile(options));
  }

 private:
  TelemetryReport ToFile(const DriveOptions& options) const {
    std::error_code ignored;
    if (std::filesystem::equivalent(arguments_.output, arguments_.file, ignored)) {
      throw ToolError(arguments_.output + ": is input and output at once");
    }
    RequireWritable(arguments_.output, arguments_.force);
    // What has no positions leaves no file behind.
    const TelemetrySource probe(options.place);
    OutputFile out(arguments_.output, arguments_.force);
    const TelemetryReport report = WriteTelemetry(options, arguments_.format, [&out](std::string_view text) {
      out.Write(ByteView(reinterpret_cast<const uint8_t*>(text.data()), text.size()));
    });
    out.Close();
    return report;
  }

  void Report(const TelemetryReport& report) {
    const char* source = report.from_boxes ? "boxes" : "text frames";
    session_.console.Note(fmt::format("{}: {} positions in {} segments, from its {}", arguments_.file,
                                      Grouped(report.points), report.segments, source));
    WarnOf(report.invalid, "samples without a sound fix are left out");
    WarnOf(report.untimed, "positions without a time are left out; --start gives the time of the recording's start");
    WarnOf(report.foreign, "samples are in another layout and left out; --layout describes it");
    WarnOf(report.missing, report.from_boxes ? "entries of its boxes are missing" : "text frames are missing");
    session_.exit_code = report.missing > 0 ? kExitDamaged : ExitCodeOf(report.health);
    if (report.health != Health::kComplete) {
      session_.console.Warning(arguments_.file + ": " + report.sentence);
    }
    if (!session_.json) return;
    const Json json = {{"file", arguments_.output},
                       {"format", arguments_.format},
                       {"source", source},
                       {"points", report.points},
                       {"segments", report.segments},
                       {"left_out_no_fix", report.invalid},
                       {"left_out_no_time", report.untimed},
                       {"left_out_layout", report.foreign},
                       {"missing_frames", report.missing},
                       {"state", HealthName(report.health)}};
    fmt::print("{}\n", JsonText(json));
  }

  void WarnOf(uint64_t count, const char* what) {
    if (count > 0) session_.console.Warning(fmt::format("{}: {} {}", arguments_.file, count, what));
  }

  const TelemetryArguments& arguments_;
  Session& session_;
  std::optional<TelemetryLayout> layout_;
};

}  // namespace

void AddTelemetry(CLI::App& app, Session& session) {
  auto arguments = std::make_shared<TelemetryArguments>();
  CLI::App* command =
      AddCommand(app, session, "telemetry",
                 "Writes the positions of a recording for maps and tables.\n\n"
                 "A new segment begins where positions pause for more than three times their usual interval and more "
                 "than a second, and where time goes back. Samples without a sound fix are left out and counted. Exit "
                 "code 4: the recording is cut, its whole text frames are written; 5: samples are missing.",
                 "  zmv telemetry drive.mp4 --format gpx -o drive.gpx\n  zmv telemetry drive.mp4 --format csv");
  command->add_option("FILE", arguments->file, "The recording")->required();
  command->add_option("--format", arguments->format, "gpx, csv, geojson or kml")
      ->required()
      ->check(CLI::IsMember({"gpx", "csv", "geojson", "kml"}));
  command->add_option("-o,--output", arguments->output, "Where to write; without it standard output");
  command->add_option("--layout", arguments->layout, "A JSON file that describes another producer's blocks");
  command->add_option("--start", arguments->start, "UTC of the recording's start, for positions without a time");
  command->add_option("--gap", arguments->gap, "A new segment after so many SECONDS instead")
      ->check(NumberFrom(0.001, 1e6));
  command->add_option("--track", arguments->track, "Which text track, counted from 0")->check(CLI::Range(0, 1));
  command->add_flag("-f,--force", arguments->force, "Overwrite an existing file");
  command->callback([arguments, &session] { Telemetry(*arguments, session).Run(); });
}

}  // namespace zmv::tool

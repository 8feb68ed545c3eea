// zmv import: records encoded streams into an MP4 or an AVI.
#include <fmt/core.h>

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <memory>

#include "tools/zmv/commands.h"
#include "tools/zmv/config_text.h"
#include "tools/zmv/gps_file.h"
#include "tools/zmv/import_plan.h"
#include "tools/zmv/media_source.h"
#include "tools/zmv/output_file.h"
#include "tools/zmv/playback.h"
#include "tools/zmv/recorder.h"
#include "tools/zmv/recording_report.h"

namespace zmv::tool {
namespace {

constexpr double kSecondUs = 1e6;
constexpr uint64_t kSecondMs = 1000;
constexpr uint32_t kCircular = 1;  // the projections of dwProjectionMode
constexpr uint32_t kEquirectangular = 7;
constexpr uint64_t kSplitMarginMs = 10 * kSecondMs;  // until the next key frame

struct ImportArguments {
  std::vector<std::string> inputs;
  std::string output;
  std::string gps;
  double gps_offset = 0;
  std::string software;
  std::string projection;
  std::string max_size;
  double split = 0;
  double frame_rate = 0;
  bool allow_slices = false;
  bool no_video = false;
  bool no_audio = false;
  bool force = false;
};

uint32_t ParseSize(const std::string& text) {
  if (text.empty()) return 0;
  uint64_t unit = 1;
  std::string digits = text;
  switch (digits.back()) {
    case 'k':
    case 'K':
      unit = uint64_t{1} << 10;
      break;
    case 'm':
    case 'M':
      unit = uint64_t{1} << 20;
      break;
    case 'g':
    case 'G':
      unit = uint64_t{1} << 30;
      break;
    default:
      break;
  }
  if (unit > 1) digits.pop_back();
  const bool number = !digits.empty() && digits.find_first_not_of("0123456789") == std::string::npos;
  constexpr size_t kMaxDigits = 10;
  const uint64_t bytes = number && digits.size() <= kMaxDigits ? std::stoull(digits) * unit : 0;
  if (bytes == 0 || bytes > UINT32_MAX) {
    throw ToolError(fmt::format("--max-size {}: is not a size from 1 byte to below 4G (1500000, 800k, 100M, 2G)", text),
                    kExitUsage);
  }
  return static_cast<uint32_t>(bytes);
}

// The value of the description's dwProjectionMode; 0 is an ordinary picture.
uint32_t ParseProjection(const std::string& text) {
  if (text.empty() || text == "none") return 0;
  if (text == "circ") return kCircular;
  if (text == "equi") return kEquirectangular;
  uint32_t mode = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), mode);
  if (error != std::errc() || end != text.data() + text.size()) {
    throw ToolError(fmt::format("--projection {}: is none of none, circ, equi and a number", text), kExitUsage);
  }
  return mode;
}

void PlanProjection(uint32_t mode, ImportPlan& plan, Console& console) {
  if (mode == 0) return;
  if (plan.container == Container::kAvi) {
    throw ToolError("--projection: an AVI has no place for it; record an MP4", kExitUsage);
  }
  if (plan.info.dwVideoCount == 0) throw ToolError("--projection: there is no video", kExitUsage);
  ZMVVideoInfo& video = plan.info.m_Video[0];
  video.dwSpherical = 1;
  video.dwProjectionMode = mode;
  if (CodecOf(video.dwFourCC) != VideoCodec::kH264) {
    console.Warning("--projection: only H.264 video is marked with its projection, this one will not be");
  } else if (mode != kCircular) {
    console.Warning("--projection: other players show this one, but this library cannot open the file; circ it can");
  }
}

void CheckArguments(const ImportArguments& arguments) {
  const std::filesystem::path output(arguments.output);
  for (const std::string& input : arguments.inputs) {
    std::error_code ignored;
    if (!std::filesystem::exists(input, ignored)) throw ToolError(input + ": there is no such file");
    if (std::filesystem::equivalent(input, output, ignored)) throw ToolError(input + ": is input and output at once");
  }
  RequireWritable(arguments.output, arguments.force);
}

uint64_t ExpectedMs(const ImportPlan& plan, int64_t split_us) {
  const uint64_t whole = std::min(static_cast<uint64_t>(plan.duration_us) / 1000, kMaxExpectedMs);
  if (split_us == 0) return whole;
  const uint64_t part = static_cast<uint64_t>(split_us) / 1000 + kSplitMarginMs;
  return whole == 0 ? part : std::min(whole, part);
}

// Positions are recorded up to the end of the media.
class Import {
 public:
  Import(const ImportArguments& arguments, Session& session) : arguments_(arguments), session_(session) {}

  void Run() {
    CheckArguments(arguments_);
    RecorderOptions options;
    options.path = arguments_.output;
    options.container = ContainerOfName(arguments_.output);
    options.force = arguments_.force;
    options.max_size = ParseSize(arguments_.max_size);
    options.split_us = static_cast<int64_t>(arguments_.split * kSecondUs);
    const uint32_t projection = ParseProjection(arguments_.projection);
    OpenInputs(options.container);
    const bool boxes = !arguments_.gps.empty() && options.container == Container::kMp4;
    ImportPlan plan = PlanImport(sources_, SoftwareText(arguments_.software, boxes, session_.console), session_.console,
                                 options.container);
    PlanProjection(projection, plan, session_.console);
    if (!arguments_.gps.empty()) {
      gps_ = LoadGpsFile(arguments_.gps);
      ReportSkipped();
      PlanGps(gps_, plan);
      if (plan.container == Container::kAvi) NoteTimes();
    }
    options.expected_ms = ExpectedMs(plan, options.split_us);
    Recorder recorder(options, plan.info, plan.nominal_us, session_.console);
    const bool whole = Record(plan, recorder);
    recorder.Finish();
    Report(plan, recorder);
    if (!whole) {
      throw ToolError(
          fmt::format("{}: the size limit ended the recording, the rest of the input is not in it; the file "
                      "is complete. --split SECONDS goes on in further files",
                      recorder.files().back().path));
    }
  }

 private:
  void NoteTimes() {
    session_.console.Note(arguments_.output +
                          ": an AVI stores no times: in the recording the positions are evenly spaced from its start; "
                          "each keeps its own UTC");
  }

  void OpenInputs(Container container) {
    SourceOptions options;
    options.container = container;
    options.frame_rate = arguments_.frame_rate;
    options.allow_slices = arguments_.allow_slices;
    options.want_video = !arguments_.no_video;
    options.want_audio = !arguments_.no_audio;
    for (const std::string& input : arguments_.inputs) {
      sources_.push_back(OpenMediaSource(input, options, session_.console));
    }
  }

  bool Record(const ImportPlan& plan, Recorder& recorder) {
    FrameMerger merger(plan.tracks);
    GpsFrames positions(gps_, static_cast<int64_t>(arguments_.gps_offset * kSecondUs));
    MediaFrame frame;
    MediaFrame position;
    int64_t end_us = 0;
    while (merger.Next(frame)) {
      // A position at the time of a frame follows it: video comes first.
      while (positions.Next(frame.time_us - 1, position)) {
        if (!recorder.Write(position)) return false;
      }
      if (!recorder.Write(frame)) return false;
      end_us = std::max(end_us, frame.time_us + Nominal(plan, frame));
      session_.console.Progress("recording", Progress());
    }
    while (positions.Next(end_us, position)) {
      if (!recorder.Write(position)) return false;
    }
    session_.console.EndProgress();
    if (positions.before_start() + positions.left() > 0) {
      session_.console.Note(
          fmt::format("{}: {} positions before the start and {} after the end of the media are left out",
                      arguments_.gps, positions.before_start(), positions.left()));
    }
    return true;
  }

  static int64_t Nominal(const ImportPlan& plan, const MediaFrame& frame) {
    const size_t at = frame.media == ZMV_MEDIA_VIDEO ? frame.stream : plan.info.dwVideoCount;
    return plan.nominal_us[at];
  }

  double Progress() const {
    double sum = 0;
    for (const auto& source : sources_) sum += source->progress();
    return sum / static_cast<double>(sources_.size());
  }

  void ReportSkipped() {
    if (gps_.malformed > 0) {
      session_.console.Warning(fmt::format("{}: {} points without sound time, position and numbers are left out",
                                           arguments_.gps, gps_.malformed));
    }
    if (gps_.out_of_order > 0) {
      session_.console.Warning(fmt::format("{}: {} points that are not later than the one before are left out",
                                           arguments_.gps, gps_.out_of_order));
    }
  }

  void Report(const ImportPlan& plan, const Recorder& recorder) {
    const Json list = ReportFiles(recorder, session_.console);
    if (recorder.left_out() > 0) {
      session_.console.Warning(
          fmt::format("{} frames between a full file and the next key frame are not recorded", recorder.left_out()));
    }
    if (session_.json) {
      const Json report = {{"files", list},
                           {"frames_left_out", recorder.left_out()},
                           {"positions_unusable", gps_.malformed + gps_.out_of_order},
                           {"software", plan.info.szSoftware}};
      fmt::print("{}\n", JsonText(report));
    }
  }

  const ImportArguments& arguments_;
  Session& session_;
  std::vector<std::unique_ptr<MediaSource>> sources_;
  GpsTrack gps_;
};

constexpr const char* kExample =
    "  zmv import front.h264 mic.aac --gps drive.gpx -o drive.mp4\n"
    "  zmv import camera.mkv -o drive.mp4 --split 180";
constexpr const char* kSummary =
    "Records encoded streams into an MP4 or an AVI; nothing is encoded anew.\n\n"
    "OUT is an AVI when its name ends in .avi, else an MP4. INPUT is anything that FFmpeg's libraries read: elementary "
    "streams and containers with H.264 or HEVC video, AAC, MPEG layer 3 or 16-bit PCM audio (mono in an MP4). All "
    "streams "
    "begin together, each with its first frame.";

void AddTrackOptions(CLI::App& command, ImportArguments& arguments) {
  command.add_option("--fps", arguments.frame_rate, "Frames a second of video without time stamps")
      ->check(NumberFrom(0.01, 1000));
  command.add_flag("--allow-slices", arguments.allow_slices,
                   "Store pictures of several slices in an MP4, where players misread them");
  command.add_flag("--no-video", arguments.no_video, "Leave out video");
  command.add_flag("--no-audio", arguments.no_audio, "Leave out audio");
  command.add_option("--projection", arguments.projection,
                     "Mark the first video of an MP4 as spherical: none, circ, equi, or a number");
  command.add_option("--gps", arguments.gps,
                     "Positions for a text track: a .gpx or .csv file, whose first point is at the start");
  command
      .add_option("--gps-offset", arguments.gps_offset, "Seconds from the start to the first point (may be negative)")
      ->check(NumberFrom(-1e6, 1e6));
}

}  // namespace

void AddImport(CLI::App& app, Session& session) {
  auto arguments = std::make_shared<ImportArguments>();
  CLI::App* command = AddCommand(app, session, "import", kSummary, kExample);
  command->add_option("INPUT", arguments->inputs, "Files to record")->required();
  command->add_option("-o,--output", arguments->output, "The recording")->required();
  AddTrackOptions(*command, *arguments);
  command->add_option("--software", arguments->software, "Software text of the recording, at most 63 bytes");
  command->add_option("--max-size", arguments->max_size, "Largest size of a file: BYTES, or with k, M, G");
  command
      ->add_option("--split", arguments->split,
                   "Go on in OUT_0002.mp4, OUT_0003.mp4 ... at the first key frame after each SECONDS")
      ->check(NumberFrom(0.1, 1e6));
  command->add_flag("-f,--force", arguments->force, "Overwrite existing files");
  command->callback([arguments, &session] { Import(*arguments, session).Run(); });
}

}  // namespace zmv::tool

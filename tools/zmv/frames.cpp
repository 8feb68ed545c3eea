// zmv frames: one line for each frame, in the order of time.
#include <fmt/core.h>

#include <algorithm>
#include <memory>
#include <nlohmann/json.hpp>

#include "tools/zmv/commands.h"
#include "tools/zmv/file_map.h"
#include "tools/zmv/playback.h"
#include "tools/zmv/recording_report.h"
#include "tools/zmv/track_tables.h"

namespace zmv::tool {
namespace {

struct FramesArguments {
  std::string file;
  std::string media;
  int track = -1;
};

// One track and its next frame.
struct Lane {
  uint32_t media = 0;
  uint32_t track = 0;
  std::unique_ptr<FramePositions> positions;  // in an MP4
  std::unique_ptr<RiffPositions> chunks;      // in an AVI
  ZMVFrame frame{};
  std::optional<uint64_t> position;
  bool ended = false;
  uint64_t delivered = 0;
};

class FrameList {
 public:
  FrameList(const FramesArguments& arguments, Session& session)
      : arguments_(arguments), session_(session), map_(ScanReadable(arguments.file)), playback_(arguments.file) {
    StreamFile file(arguments.file);
    const std::vector<TrackTables> tables = FindTables(file);
    for (const uint32_t media : {ZMV_MEDIA_VIDEO, ZMV_MEDIA_AUDIO, ZMV_MEDIA_TEXT}) {
      for (uint32_t track = 0; track < playback_.TrackCount(media); ++track) {
        if (Wanted(media, track)) AddLane(media, track, TableOf(tables, media, track));
      }
    }
    if (lanes_.empty()) throw ToolError(arguments.file + ": has no such track");
  }

  void Run() {
    for (Lane& lane : lanes_) Advance(lane);
    Begin();
    while (Lane* lane = Earliest()) {
      session_.json ? PrintJson(*lane) : PrintLine(*lane);
      Advance(*lane);
    }
    if (session_.json) fmt::print("{}]\n", first_ ? "" : "\n");
    ReportMissing();
  }

 private:
  bool Wanted(uint32_t media, uint32_t track) const {
    return (arguments_.media.empty() || arguments_.media == MediaName(media)) &&
           (arguments_.track < 0 || static_cast<uint32_t>(arguments_.track) == track);
  }

  void AddLane(uint32_t media, uint32_t track, const TrackTables* tables) {
    Lane lane;
    lane.media = media;
    lane.track = track;
    if (tables != nullptr) lane.positions = std::make_unique<FramePositions>(arguments_.file, *tables);
    if (const RiffTrack* riff = playback_.Riff(media, track)) {
      lane.chunks = std::make_unique<RiffPositions>(arguments_.file, map_, riff->stream.number);
    }
    lanes_.push_back(std::move(lane));
  }

  void Advance(Lane& lane) {
    lane.ended = !playback_.Read(lane.media, lane.track, lane.frame);
    if (lane.ended) return;
    ++lane.delivered;
    lane.position = lane.positions ? lane.positions->Next(lane.frame.dwChunk, lane.frame.dwSize)
                    : lane.chunks  ? lane.chunks->Next(lane.frame.dwSize)
                                   : std::nullopt;
  }

  Lane* Earliest() {
    Lane* first = nullptr;
    for (Lane& lane : lanes_) {
      if (!lane.ended && (first == nullptr || lane.frame.llTimeStamp < first->frame.llTimeStamp)) first = &lane;
    }
    return first;
  }

  void Begin() {
    if (session_.json) {
      fmt::print("[");
    } else {
      fmt::print("{:<6}{:>6}{:>12}{:>10}{:>10}  {:<4}{:>12}\n", "media", "track", "time_ms", "dur_ms", "size", "key",
                 "position");
    }
  }

  void PrintLine(const Lane& lane) {
    const ZMVFrame& frame = lane.frame;
    fmt::print("{:<6}{:>6}{:>12}{:>10}{:>10}  {:<4}{:>12}\n", MediaName(lane.media), lane.track, frame.llTimeStamp,
               frame.dwDuration, frame.dwSize, frame.dwKeyFrame == ZMV_KEY_FRAME ? "key" : "-",
               lane.position ? std::to_string(*lane.position) : "-");
  }

  void PrintJson(const Lane& lane) {
    const ZMVFrame& frame = lane.frame;
    nlohmann::ordered_json entry = {{"media", MediaName(lane.media)},
                                    {"track", lane.track},
                                    {"time_ms", frame.llTimeStamp},
                                    {"duration_ms", frame.dwDuration},
                                    {"size", frame.dwSize},
                                    {"key", frame.dwKeyFrame == ZMV_KEY_FRAME},
                                    {"position", nullptr}};
    if (lane.position) entry["position"] = *lane.position;
    fmt::print("{}\n{}", first_ ? "" : ",", entry.dump());
    first_ = false;
  }

  void ReportMissing() {
    for (const Lane& lane : lanes_) {
      const uint32_t promised = playback_.FrameCount(lane.media, lane.track);
      if (lane.delivered >= promised) continue;
      session_.console.Warning(fmt::format("{}: {} {}: only {} of {} frames can be read", arguments_.file,
                                           MediaName(lane.media), lane.track, lane.delivered, promised));
      session_.exit_code = kExitDamaged;
    }
    ReportHealth(playback_, session_);
  }

  const FramesArguments& arguments_;
  Session& session_;
  FileMap map_;
  Playback playback_;
  std::vector<Lane> lanes_;
  bool first_ = true;
};

}  // namespace

void AddFrames(CLI::App& app, Session& session) {
  auto arguments = std::make_shared<FramesArguments>();
  CLI::App* command = AddCommand(app, session, "frames", "Lists the frames of a recording in the order of time.",
                                 "  zmv frames drive.mp4 --media video");
  command->add_option("FILE", arguments->file, "The recording")->required();
  command->add_option("--media", arguments->media, "Only this medium")
      ->check(CLI::IsMember({"video", "audio", "text"}));
  command->add_option("--track", arguments->track, "Only this track of its medium, counted from 0")
      ->check(CLI::Range(0, 8));
  command->callback([arguments, &session] { FrameList(*arguments, session).Run(); });
}

}  // namespace zmv::tool

#include "tools/zmv/recording_report.h"

#include <fmt/core.h>

namespace zmv::tool {

Json ReportFiles(const Recorder& recorder, Console& console) {
  Json list = Json::array();
  for (const RecordedFile& file : recorder.files()) {
    std::string line = fmt::format("{}: {}", file.path, ClockText(file.duration_ms));
    Json tracks = Json::array();
    for (const RecordedTrack& track : file.tracks) {
      line += fmt::format(", {} {}: {} frames", MediaName(track.media), track.track, Grouped(track.frames));
      tracks.push_back({{"media", MediaName(track.media)},
                        {"track", track.track},
                        {"frames", track.frames},
                        {"bytes", track.bytes},
                        {"key_frames", track.key_frames}});
    }
    console.Note(line);
    list.push_back({{"file", file.path}, {"duration_ms", file.duration_ms}, {"tracks", tracks}});
  }
  return list;
}

void ReportHealth(const Playback& playback, Session& session) {
  const FileMap& map = playback.map();
  for (uint32_t track = 0; track < playback.TrackCount(ZMV_MEDIA_TEXT); ++track) {
    const RiffTrack* riff = playback.Riff(ZMV_MEDIA_TEXT, track);
    if (riff == nullptr || riff->hidden == 0) continue;
    session.console.Warning(fmt::format("{}: text {}: its {} frames cannot be told without an index", playback.path(),
                                        track, riff->hidden));
  }
  if (map.health == Health::kComplete || session.exit_code != kExitDone) return;
  session.console.Warning(playback.path() + ": " + map.sentence);
  session.exit_code = ExitCodeOf(map.health);
}

}  // namespace zmv::tool

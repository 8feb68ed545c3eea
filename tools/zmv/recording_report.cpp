#include "tools/zmv/recording_report.h"

#include <fmt/core.h>

#include "tools/zmv/playback.h"

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

}  // namespace zmv::tool

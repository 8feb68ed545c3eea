// What `zmv import` records: which stream becomes which track, and the description of the recording.
#ifndef ZMV_TOOLS_IMPORT_PLAN_H
#define ZMV_TOOLS_IMPORT_PLAN_H

#include <memory>
#include <string>
#include <vector>

#include "facade/zmvstream_media.h"
#include "tools/zmv/console.h"
#include "tools/zmv/frame_merger.h"
#include "tools/zmv/gps_file.h"
#include "tools/zmv/media_source.h"

namespace zmv::tool {

struct ImportPlan {
  Container container = Container::kMp4;
  ZMVFileInfo info{};
  std::vector<FrameMerger::Track> tracks;
  std::vector<int64_t> nominal_us;  // of each track: videos, audio, text
  int64_t duration_us = 0;          // of the longest input; 0: not known
};

// Streams beyond the capacity of a recording are reported and left out.
ImportPlan PlanImport(const std::vector<std::unique_ptr<MediaSource>>& sources, const std::string& software,
                      Console& console, Container container = Container::kMp4);

// The software text of a recording, `given` or the tool's own. It begins with F when the writer is to collect positions
// in the boxes of an MP4; a `given` one that does not although there are such positions is reported.
std::string SoftwareText(const std::string& given, bool positions, Console& console);

// Text streams of an AVI are evenly spaced: `text` gets the rate of frames that are `nominal_us` apart.
void PlanAviText(int64_t nominal_us, ZMVTextInfo& text);

// Makes room in the writer's memory for `samples` text frames within `seconds`.
void PlanUserData(uint64_t samples, uint64_t seconds, ZMVFileInfo& info);

// Longer recordings are possible; the tables then spill into the file instead of taking more memory.
constexpr uint64_t kMaxExpectedMs = 4 * 3600 * 1000;

// Adds a text track for `track` to the plan.
void PlanGps(const GpsTrack& track, ImportPlan& plan);

// The points of a drive as text frames, the first at `offset_us`.
class GpsFrames {
 public:
  // `track` must outlive the frames.
  GpsFrames(const GpsTrack& track, int64_t offset_us);
  // Takes the next frame when its time is at most `until_us`.
  bool Next(int64_t until_us, MediaFrame& frame);
  size_t left() const { return track_.points.size() - at_; }
  size_t before_start() const { return before_start_; }

 private:
  int64_t TimeOf(size_t index) const;

  const GpsTrack& track_;
  int64_t offset_us_;
  size_t at_ = 0;
  size_t before_start_ = 0;
};

}  // namespace zmv::tool

#endif

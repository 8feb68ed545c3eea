// The position and sensor samples of a recording, one after another: from the boxes GPSR and SENS, or from the frames
// of a text track.
#ifndef ZMV_TOOLS_TELEMETRY_SOURCE_H
#define ZMV_TOOLS_TELEMETRY_SOURCE_H

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "tools/zmv/box_scan.h"
#include "tools/zmv/gps_point.h"
#include "tools/zmv/playback.h"
#include "tools/zmv/stream_file.h"
#include "tools/zmv/telemetry_layout.h"

namespace zmv::tool {

struct TelemetrySample {
  std::optional<uint64_t> time_ms;  // from the start of the recording; nothing without a text frame
  std::optional<GpsPoint> point;    // nothing when it is in another layout
};

struct TelemetryPlace {
  std::string path;
  uint32_t track = 0;                       // of the text tracks
  const TelemetryLayout* layout = nullptr;  // of another producer; must outlive the source
};

// The boxes are read when they have an entry for every text frame of the only text track, or when there is no index;
// else the text frames are. Box entry number n has the time of text frame number n.
class TelemetrySource {
 public:
  // ToolError when the recording has neither.
  explicit TelemetrySource(const TelemetryPlace& place);

  bool Next(TelemetrySample& sample);

  bool reads_boxes() const { return gps_position_ != 0; }
  // Text frames that the tables promise but the file no longer has; complete after the last sample.
  uint64_t missing() const { return promised_ - frames_; }

 private:
  void ChooseBoxes(const FileMap& map, uint64_t frames);
  bool NextFrame(TelemetrySample& sample);
  GpsPoint Unpack(ByteView gps, ByteView sensors) const;
  std::optional<GpsPoint> UnpackFrame(ByteView payload) const;
  bool NextEntry(std::optional<GpsPoint>& point);

  TelemetryPlace place_;
  std::unique_ptr<Playback> playback_;  // null without index
  std::unique_ptr<StreamFile> gps_file_;
  std::unique_ptr<StreamFile> sensor_file_;
  uint64_t gps_position_ = 0;
  uint64_t sensor_position_ = 0;
  uint64_t gps_entries_ = 0;
  uint64_t sensor_entries_ = 0;
  uint64_t entry_ = 0;
  uint64_t frames_ = 0;
  uint64_t promised_ = 0;
};

}  // namespace zmv::tool

#endif

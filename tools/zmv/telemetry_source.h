// The position and sensor samples of a recording, one after another: from the boxes GPSR and SENS, or from the frames
// of a text track, with or without an index.
#ifndef ZMV_TOOLS_TELEMETRY_SOURCE_H
#define ZMV_TOOLS_TELEMETRY_SOURCE_H

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "tools/zmv/file_map.h"
#include "tools/zmv/gps_point.h"
#include "tools/zmv/playback.h"
#include "tools/zmv/record_walk.h"
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

// The boxes are read when they have an entry for every text frame of the only text track; else the text frames are, and
// the whole ones of a cut recording when they are as many as the entries. Box entry number n has the time of text frame
// number n.
class TelemetrySource {
 public:
  // ToolError when the recording has neither.
  explicit TelemetrySource(const TelemetryPlace& place);

  bool Next(TelemetrySample& sample);

  bool reads_boxes() const { return gps_position_ != 0; }
  // Text frames or box entries that the file promises but no longer has; complete after the last sample.
  uint64_t missing() const { return reads_boxes() ? gps_entries_ - entry_ : promised_ - frames_; }
  Health health() const { return health_; }
  const std::string& sentence() const { return sentence_; }  // the health in plain words

 private:
  enum class Step { kFrame, kLost, kEnd };
  void OpenCut(const FileMap& map);
  void ChooseBoxes(const FileMap& map, uint64_t frames);
  Step NextFrame(TelemetrySample& sample);
  GpsPoint Unpack(ByteView gps, ByteView sensors) const;
  std::optional<GpsPoint> UnpackFrame(ByteView payload) const;
  bool NextEntry(std::optional<GpsPoint>& point);

  TelemetryPlace place_;
  std::unique_ptr<Playback> playback_;   // null without index
  std::unique_ptr<RecordWalk> records_;  // of a recording without index
  std::unique_ptr<StreamFile> gps_file_;
  std::unique_ptr<StreamFile> sensor_file_;
  uint64_t gps_position_ = 0;
  uint64_t sensor_position_ = 0;
  uint64_t gps_entries_ = 0;
  uint64_t sensor_entries_ = 0;
  uint64_t entry_ = 0;
  uint64_t tried_ = 0;
  uint64_t frames_ = 0;
  uint64_t promised_ = 0;
  Health health_ = Health::kComplete;
  std::string sentence_;
};

}  // namespace zmv::tool

#endif

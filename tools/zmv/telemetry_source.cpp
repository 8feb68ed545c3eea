#include "tools/zmv/telemetry_source.h"

#include <fmt/core.h>

#include <array>

#include "mp4/zmv_mp4_format.h"

namespace zmv::tool {
namespace {

constexpr size_t kEntryHeader = 8;  // number and length of a GPSR entry, both little-endian
constexpr size_t kEntryLength = 4;

uint64_t BodyOf(const FileMap& map, const char* type) {
  uint64_t position = 0;
  for (const BoxEntry& box : map.boxes) {
    if (box.type == type) position = box.position + kBoxHeader;
  }
  return position;
}

}  // namespace

TelemetrySource::TelemetrySource(const TelemetryPlace& place) : place_(place) {
  const FileMap map = ScanFile(place.path);
  if (map.health == Health::kNotRecording) throw ToolError(place.path + ": " + map.sentence, kExitNotRecording);
  health_ = map.health;
  sentence_ = map.sentence;
  if (map.readable) playback_ = std::make_unique<Playback>(place.path);
  const uint32_t tracks = playback_ ? playback_->TrackCount(ZMV_MEDIA_TEXT) : 0;
  promised_ = tracks > 0 ? playback_->FrameCount(ZMV_MEDIA_TEXT, place.track) : 0;
  // With a second text track the entries of both are mixed. A single entry without a text frame is left from an earlier
  // recording.
  const bool left_over = map.readable && promised_ == 0 && map.gps_entries == 1u;
  if (!map.readable && map.container == Container::kMp4) OpenCut(map);
  if (tracks <= 1 && place.track == 0 && !left_over) ChooseBoxes(map, promised_);
  if (promised_ == 0) playback_ = nullptr;
  if (reads_boxes() || promised_ > 0) return;
  const bool unindexed = map.container == Container::kAvi && map.index.empty();
  if (!map.readable || unindexed) throw ToolError(place.path + ": " + map.sentence, ExitCodeOf(map.health));
  throw ToolError(tracks > place.track || tracks == 0
                      ? place.path + ": holds no positions"
                      : fmt::format("{}: has no text track {}", place.path, place.track));
}

// The text frames of a cut recording are preferred to as many entries of its boxes: they have their times.
void TelemetrySource::OpenCut(const FileMap& map) {
  RecordWalk ahead(place_.path, map, place_.track);
  FoundText text;
  while (ahead.Next(text)) ++promised_;
  if (promised_ > 0) records_ = std::make_unique<RecordWalk>(place_.path, map, place_.track);
}

void TelemetrySource::ChooseBoxes(const FileMap& map, uint64_t frames) {
  const bool tie = map.gps_entries == frames && records_ != nullptr;
  if (tie || map.gps_entries.value_or(0) == 0 || *map.gps_entries < frames) return;
  gps_entries_ = playback_ != nullptr && frames > 0 ? frames : *map.gps_entries;
  gps_position_ = BodyOf(map, "GPSR");
  gps_file_ = std::make_unique<StreamFile>(place_.path);
  gps_file_->Seek(gps_position_);
  sensor_position_ = BodyOf(map, "SENS");
  if (sensor_position_ == 0) return;
  sensor_entries_ = map.sensor_entries.value_or(0);
  sensor_file_ = std::make_unique<StreamFile>(place_.path);
  sensor_file_->Seek(sensor_position_);
}

GpsPoint TelemetrySource::Unpack(ByteView gps, ByteView sensors) const {
  if (place_.layout != nullptr) return place_.layout->Unpack(gps, sensors);
  GpsPoint point;
  UnpackGpsBlock(gps, point);
  UnpackSensorBlock(sensors, point);
  return point;
}

std::optional<GpsPoint> TelemetrySource::UnpackFrame(ByteView payload) const {
  if (place_.layout == nullptr) return UnpackTelemetry(payload);
  if (payload.size() < kTelemetrySize) return std::nullopt;
  return place_.layout->Unpack(payload.subspan(kTelemetryGpsOffset, kTelemetryGpsSize),
                               payload.subspan(kTelemetrySensorOffset, kTelemetrySensorSize));
}

bool TelemetrySource::NextEntry(std::optional<GpsPoint>& point) {
  std::array<uint8_t, mp4::kGpsEntrySize> entry{};
  std::array<uint8_t, mp4::kSensorBlockSize> sensors{};
  // A damaged box may promise more than the file has.
  if (gps_file_->Read(entry.data(), entry.size()) != entry.size()) return false;
  const bool has_sensors =
      entry_ < sensor_entries_ && sensor_file_->Read(sensors.data(), sensors.size()) == sensors.size();
  ++entry_;
  const uint8_t* length = entry.data() + kEntryLength;
  const bool known = length[0] == kTelemetryGpsSize && length[1] == 0 && length[2] == 0 && length[3] == 0;
  point = std::nullopt;
  if (known) point = Unpack(ByteView(entry).subspan(kEntryHeader), has_sensors ? ByteView(sensors) : ByteView());
  return true;
}

TelemetrySource::Step TelemetrySource::NextFrame(TelemetrySample& sample) {
  if (tried_ >= promised_) return Step::kEnd;
  ++tried_;
  if (records_ != nullptr) {
    FoundText text;
    if (!records_->Next(text)) return Step::kEnd;
    sample.time_ms = text.time_ms;
    sample.point = UnpackFrame(text.payload);
  } else {
    ZMVFrame frame;
    const Playback::Found found = playback_->TryRead(ZMV_MEDIA_TEXT, place_.track, frame);
    if (found == Playback::Found::kEnd) return Step::kEnd;
    if (found == Playback::Found::kLost) return Step::kLost;
    sample.time_ms = frame.llTimeStamp;
    sample.point = UnpackFrame(Playback::Payload(frame));
  }
  ++frames_;
  return Step::kFrame;
}

bool TelemetrySource::Next(TelemetrySample& sample) {
  sample = TelemetrySample();
  if (!reads_boxes()) {
    Step step = NextFrame(sample);
    while (step == Step::kLost) step = NextFrame(sample);
    return step == Step::kFrame;
  }
  if (entry_ >= gps_entries_) return false;
  // An entry does not tell its layout, the frame it was copied from does; of a frame that is lost the entry is left.
  const Step step = playback_ == nullptr ? Step::kLost : NextFrame(sample);
  const bool known = step != Step::kFrame || sample.point.has_value();
  if (!NextEntry(sample.point)) return false;
  if (!known) sample.point = std::nullopt;
  return true;
}

}  // namespace zmv::tool

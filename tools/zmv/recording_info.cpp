#include "tools/zmv/recording_info.h"

#include "tools/zmv/config_text.h"
#include "tools/zmv/playback.h"
#include "tools/zmv/track_tables.h"

namespace zmv::tool {
namespace {

constexpr uint64_t kBitsPerByteAndSecond = 8 * 1000;  // of bytes in a number of milliseconds

Json HealthJson(const FileMap& map) { return {{"state", HealthName(map.health)}, {"message", map.sentence}}; }

Json FrontJson(const FileMap& map) {
  Json front = Json::array();
  for (const FrontStream& stream : map.front) {
    Json entry = {{"media", stream.media}, {"code", stream.code}};
    if (stream.media == "video") {
      entry["width"] = stream.width;
      entry["height"] = stream.height;
      entry["frame_rate"] = stream.rate / 1000.0;
    } else if (stream.media == "audio") {
      entry["sample_rate"] = stream.rate;
      entry["channels"] = stream.channels;
    }
    entry["time_scale"] = stream.time_scale;
    entry["config_size"] = stream.config_size;
    front.push_back(entry);
  }
  return front;
}

Json UserJson(const FileMap& map) {
  Json user = {{"gps_entries", nullptr}, {"sensor_entries", nullptr}, {"aidd", nullptr}};
  if (map.gps_entries) user["gps_entries"] = *map.gps_entries;
  if (map.sensor_entries) user["sensor_entries"] = *map.sensor_entries;
  if (map.aidd) user["aidd"] = {{"value", map.aidd->value}, {"position", map.aidd->position}};
  return user;
}

Json BoxesJson(const FileMap& map) {
  Json boxes = Json::array();
  for (const BoxEntry& box : map.boxes) {
    boxes.push_back({{"type", box.type}, {"position", box.position}, {"size", box.size}});
  }
  return boxes;
}

Json CodecJson(const CodecText& codec) {
  Json sets = Json::array();
  for (const ParameterSetText& set : codec.sets) sets.push_back({{"name", set.name}, {"hex", set.hex}});
  return {{"codec", codec.name},
          {"profile", codec.profile.empty() ? Json(nullptr) : Json(codec.profile)},
          {"level", codec.level.empty() ? Json(nullptr) : Json(codec.level)},
          {"config", sets}};
}

class Streams {
 public:
  explicit Streams(const std::string& path) : playback_(path), file_(path), tables_(FindTables(file_)) {}

  Json All() {
    const ZMVFileInfo& info = playback_.info();
    Json streams = Json::array();
    for (uint32_t i = 0; i < info.dwVideoCount; ++i) streams.push_back(Video(info.m_Video[i], i));
    if (info.dwAudioCount > 0) streams.push_back(Audio(info.m_Audio));
    for (uint32_t i = 0; i < info.dwTextCount; ++i) streams.push_back(Text(info.m_Text[i], i));
    return streams;
  }

  uint32_t duration() const { return playback_.info().dwDuration; }

 private:
  // Sizes come from the sample table, bit rates from sizes and durations: the description has neither for all codecs.
  void AddSizes(Json& stream, uint32_t media, uint32_t track, uint32_t duration) {
    const TrackTables* tables = TableOf(tables_, media, track);
    const RiffTrack* riff = playback_.Riff(media, track);
    const uint64_t bytes = tables != nullptr ? SampleBytes(file_, *tables) : riff != nullptr ? riff->bytes : 0;
    if (riff != nullptr && riff->hidden > 0) stream["frames_without_index"] = riff->hidden;
    stream["bytes"] = bytes;
    stream["bit_rate"] = duration > 0 ? Json(bytes * kBitsPerByteAndSecond / duration) : Json(nullptr);
  }

  // Frames of an AVI are evenly spaced by what its header says.
  Json FrameRate(const ZMVVideoInfo& video, uint32_t track) const {
    const RiffTrack* riff = playback_.Riff(ZMV_MEDIA_VIDEO, track);
    if (riff != nullptr && riff->stream.scale > 0) return static_cast<double>(riff->stream.rate) / riff->stream.scale;
    return video.dwDuration > 0 ? Json(1000.0 * video.dwFrames / video.dwDuration) : Json(nullptr);
  }

  Json Video(const ZMVVideoInfo& video, uint32_t track) {
    Json stream = {{"media", "video"}, {"track", track}};
    stream.update(CodecJson(DescribeVideo(video)));
    stream["width"] = video.dwWidth;
    stream["height"] = video.dwHeight;
    stream["frames"] = video.dwFrames;
    stream["duration_ms"] = video.dwDuration;
    stream["frame_rate"] = FrameRate(video, track);
    if (video.dwSpherical != 0) {
      stream["spherical"] = {{"projection_mode", video.dwProjectionMode},
                             {"type_zero", video.dwStereoTypeZero != 0},
                             {"bounds", {video.dwStereoBound, video.dwStereoParam[0], video.dwStereoParam[1]}}};
    }
    AddSizes(stream, ZMV_MEDIA_VIDEO, track, video.dwDuration);
    stream["buffer_size"] = video.dwBufferSize;
    return stream;
  }

  Json Audio(const ZMVAudioInfo& audio) {
    Json stream = {{"media", "audio"}, {"track", 0}};
    stream.update(CodecJson(DescribeAudio(audio)));
    stream["sample_rate"] = audio.dwSampleRate;
    stream["channels"] = audio.dwChannels;
    stream["frames"] = audio.dwFrames;
    stream["duration_ms"] = audio.dwDuration;
    AddSizes(stream, ZMV_MEDIA_AUDIO, 0, audio.dwDuration);
    stream["buffer_size"] = audio.dwBufferSize;
    return stream;
  }

  Json Text(const ZMVTextInfo& text, uint32_t track) {
    Json stream = {{"media", "text"}, {"track", track}, {"codec", CodeText(text.dwFourCC)}};
    stream["frames"] = text.dwFrames;
    stream["duration_ms"] = text.dwDuration;
    AddSizes(stream, ZMV_MEDIA_TEXT, track, text.dwDuration);
    stream["buffer_size"] = text.dwBufferSize;
    return stream;
  }

  Playback playback_;
  StreamFile file_;
  std::vector<TrackTables> tables_;
};

}  // namespace

Json DescribeRecording(const std::string& path, const FileMap& map) {
  Json info = {{"file", path}, {"container", ContainerName(map.container)}};
  const bool avi = map.container == Container::kAvi;
  info["brand"] = avi ? Json(nullptr) : Json(map.brand);
  if (avi) info["index"] = map.index.empty() ? Json(nullptr) : Json(map.index);
  info["size"] = map.size;
  info["duration_ms"] = nullptr;
  info["health"] = HealthJson(map);
  info["rebuilt"] = map.recovered;
  info["build"] = map.build.empty() ? Json(nullptr) : Json(map.build);
  if (avi) info["software"] = map.software.empty() ? Json(nullptr) : Json(map.software);
  info["fragmented"] = map.fragmented;
  info["streams"] = Json::array();
  if (map.readable) {
    Streams streams(path);
    info["duration_ms"] = streams.duration();
    info["streams"] = streams.All();
  }
  info["user"] = UserJson(map);
  info["recovery_boxes"] = FrontJson(map);
  info["box_count"] = map.box_count;
  info["boxes"] = BoxesJson(map);
  return info;
}

std::string JsonText(const Json& json) { return json.dump(2, ' ', false, Json::error_handler_t::replace); }

}  // namespace zmv::tool

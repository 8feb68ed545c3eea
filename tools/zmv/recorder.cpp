#include "tools/zmv/recorder.h"

#include <fmt/core.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>

#include "base/zmv_result.h"
#include "tools/zmv/config_text.h"
#include "tools/zmv/gps_point.h"
#include "tools/zmv/output_file.h"
#include "tools/zmv/tool_error.h"

namespace zmv::tool {
namespace {

constexpr int64_t kNoBase = -1;
constexpr int64_t kMillisecondUs = 1000;
constexpr size_t kMaxPath = 255;

}  // namespace

Recorder::Recorder(const RecorderOptions& options, const ZMVFileInfo& info, std::vector<int64_t> nominal_us,
                   Console& console)
    : options_(options), info_(info), nominal_us_(std::move(nominal_us)), console_(console) {
  OpenFile();
}

Recorder::~Recorder() { ZMVWriterClose(writer_); }

std::string Recorder::NumberedPath(const std::string& path, unsigned number) {
  if (number <= 1) return path;
  const std::filesystem::path whole(path);
  const std::string name = fmt::format("{}_{:04}{}", whole.stem().string(), number, whole.extension().string());
  return (whole.parent_path() / name).string();
}

void Recorder::ResetTracks() {
  tracks_.clear();
  size_t at = 0;
  const auto add = [&](uint32_t media, uint32_t count, uint32_t units, auto scale) {
    for (uint32_t i = 0; i < count; ++i, ++at) {
      const uint32_t ticks = avi() ? kMilliseconds : scale(i);
      tracks_.push_back({media, i, nominal_us_[at], DurationClock(ticks, units, nominal_us_[at]), kNoBase, 0, 0});
    }
  };
  add(ZMV_MEDIA_VIDEO, info_.dwVideoCount, avi() ? kMilliseconds : kMicroseconds,
      [](uint32_t) { return kVideoTimeScale; });
  add(ZMV_MEDIA_AUDIO, info_.dwAudioCount, kMilliseconds, [this](uint32_t) { return info_.m_Audio.dwSampleRate; });
  add(ZMV_MEDIA_TEXT, info_.dwTextCount, kMilliseconds, [](uint32_t) { return kTextTimeScale; });
}

void Recorder::OpenFile() {
  const std::string path = NumberedPath(options_.path, static_cast<unsigned>(files_.size()) + 1);
  if (path.size() > kMaxPath) throw ToolError(fmt::format("{}: a path has at most {} bytes", path, kMaxPath));
  RequireWritable(path, options_.force);
  std::error_code ignored;
  if (std::filesystem::exists(path, ignored) && !std::filesystem::is_regular_file(path, ignored)) {
    throw ToolError(path + ": is not a plain file, and a recording is not written in one go");
  }
  ZMVWriterParam param{};
  param.dwFormat = avi() ? ZMV_FORMAT_AVI : ZMV_FORMAT_MP4;
  param.pszPath = path.c_str();
  param.bInterleave = 1;
  param.llExpire = options_.expected_ms;
  param.dwMaxFileSize = options_.max_size;
  errno = 0;
  int32_t result = ZMVWriterOpen(&writer_, &param);
  if (result < 0 && errno != 0) throw ToolError(path + ": cannot be written: " + std::strerror(errno));
  if (result < 0) throw LibraryError(path, "cannot be written", result);
  result = ZMVWriterSetInfo(writer_, &info_, 0);
  if (result < 0) throw LibraryError(path, "its streams cannot be set up", result);
  ResetTracks();
  RecordedFile file;
  file.path = path;
  for (const Track& track : tracks_) file.tracks.push_back({track.media, track.track, 0, 0, 0});
  files_.push_back(file);
}

void Recorder::Finish() {
  if (writer_ == nullptr) return;
  console_.EndProgress();
  errno = 0;
  ZMVWriterClose(writer_);
  const int reason = errno;
  writer_ = nullptr;
  if (avi()) ReportUnevenness();
  // Closing does not tell whether the tables reached the file, the file does.
  const std::string& path = files_.back().path;
  const FileMap written = ScanFile(path);
  if (written.health == Health::kComplete) return;
  throw ToolError(fmt::format("{}: could not be finished{}{}; {}", path, reason != 0 ? ": " : "",
                              reason != 0 ? std::strerror(reason) : "", written.sentence));
}

// Files begin with a key frame of the first video, or anywhere without video.
bool Recorder::StartsFile(const MediaFrame& frame) const {
  return info_.dwVideoCount == 0 || (frame.media == ZMV_MEDIA_VIDEO && frame.stream == 0 && frame.key);
}

void Recorder::NextFile(const MediaFrame& frame) {
  Finish();
  waiting_ = false;
  file_start_us_ = frame.time_us;
  OpenFile();
}

void Recorder::ReportUnevenness() const {
  constexpr int64_t kNoticed = 2;  // usual distances
  for (const Track& track : tracks_) {
    if (track.media != ZMV_MEDIA_VIDEO || track.widest_us <= kNoticed * track.nominal_us) continue;
    console_.Warning(
        fmt::format("{}: video {}: some of its pictures are {} ms apart; an AVI stores no times, in it "
                    "they are evenly spaced",
                    files_.back().path, track.track, track.widest_us / kMillisecondUs));
  }
}

void Recorder::FillPayload(const Track& track, const MediaFrame& frame) {
  scratch_.clear();
  if (avi() && track.media == ZMV_MEDIA_VIDEO && frame.key) {
    const ZMVVideoInfo& video = info_.m_Video[track.track];
    const bool wanted =
        CodecOf(video.dwFourCC) == VideoCodec::kH264 && !HoldsParameterSets(VideoCodec::kH264, frame.data);
    if (wanted) scratch_.assign(video.abExtraData, video.abExtraData + video.dwExtraDataSize);
  }
  scratch_.insert(scratch_.end(), frame.data.begin(), frame.data.end());
}

int32_t Recorder::Hand(Track& track, size_t index, const MediaFrame& source, int64_t us) {
  FillPayload(track, source);
  ZMVFrame frame{};
  frame.pData = scratch_.data();
  frame.dwSize = static_cast<uint32_t>(scratch_.size());
  frame.llTimeStamp = static_cast<uint64_t>((us + kMillisecondUs / 2) / kMillisecondUs);
  frame.dwTrack = track.track;
  frame.dwMediaType = track.media;
  frame.dwKeyFrame = source.key ? ZMV_KEY_FRAME : ZMV_NOT_KEY_FRAME;
  // A refused frame must not move the clock: it is offered again to the next file, or never.
  DurationClock clock = track.clock;
  frame.dwDuration = clock.Next(us);
  errno = 0;
  const int32_t result = ZMVWriterWrite(writer_, &frame);
  write_errno_ = errno;
  if (result < 0) return result;
  track.clock = clock;
  RecordedFile& file = files_.back();
  RecordedTrack& recorded = file.tracks[index];
  ++recorded.frames;
  recorded.bytes += scratch_.size();
  if (source.key) ++recorded.key_frames;
  if (recorded.frames > 1) track.widest_us = std::max(track.widest_us, us - track.last_us);
  track.last_us = us;
  file.duration_ms = std::max<uint64_t>(
      file.duration_ms, static_cast<uint64_t>((us + track.nominal_us + kMillisecondUs / 2) / kMillisecondUs));
  return result;
}

// A track begins with the file, so a first position that is known only later has one without content before it.
int32_t Recorder::PutBlank(Track& track, size_t index) {
  const TelemetryPayload payload = PackTelemetry(GpsPoint());
  MediaFrame blank;
  blank.key = true;
  blank.data.assign(payload.begin(), payload.end());
  return Hand(track, index, blank, 0);
}

int32_t Recorder::Put(const MediaFrame& frame) {
  const auto at = std::find_if(tracks_.begin(), tracks_.end(), [&](const Track& track) {
    return track.media == frame.media && track.track == frame.stream;
  });
  if (at == tracks_.end()) return 0;
  const auto index = static_cast<size_t>(at - tracks_.begin());
  if (at->base_us == kNoBase) {
    at->base_us = frame.media == ZMV_MEDIA_TEXT ? file_start_us_ : frame.time_us;
    if (!avi() && frame.time_us - at->base_us >= kMillisecondUs) {
      const int32_t result = PutBlank(*at, index);
      if (result < 0) return result;
    }
  }
  return Hand(*at, index, frame, std::max<int64_t>(frame.time_us - at->base_us, 0));
}

bool Recorder::Write(const MediaFrame& frame) {
  if (waiting_ && !StartsFile(frame)) {
    ++left_out_;
    return true;
  }
  const bool due = options_.split_us > 0 && frame.time_us - file_start_us_ >= options_.split_us && StartsFile(frame);
  if (waiting_ || due) NextFile(frame);
  int32_t result = Put(frame);
  // A limit and a failed write have the same result; only the latter asked the system.
  const bool failed_write =
      static_cast<uint32_t>(result) == ZMV_E_WRITE || (avi() && static_cast<uint32_t>(result) == ZMV_E_FAIL);
  if (failed_write && write_errno_ != 0) {
    const std::string reason = std::strerror(write_errno_);
    Finish();
    throw ToolError(fmt::format("{}: recording ends early: {}", files_.back().path, reason));
  }
  if (static_cast<uint32_t>(result) == ZMV_E_WRITE) {
    const bool anything = std::any_of(files_.back().tracks.begin(), files_.back().tracks.end(),
                                      [](const RecordedTrack& track) { return track.frames > 0; });
    Finish();
    if (options_.split_us == 0 || !anything) return false;
    waiting_ = true;
    return Write(frame);
  }
  if (result < 0) {
    Finish();
    throw LibraryError(files_.back().path, "recording ends early, what was recorded is complete", result);
  }
  return true;
}

}  // namespace zmv::tool

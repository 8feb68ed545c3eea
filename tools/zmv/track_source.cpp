#include "tools/zmv/track_source.h"

#include <fmt/core.h>

#include <algorithm>
#include <cmath>

#include "tools/zmv/tool_error.h"

namespace zmv::tool {
namespace {

constexpr int64_t kMillisecondUs = 1000;
constexpr int64_t kStampTolerance = 1500;  // microseconds between the two forms of a time stamp

// Milliseconds are cut. Video also has microseconds, in single precision and up to 71 minutes, which are used to fill
// the rest of the millisecond.
int64_t TimeInMp4(const ZMVFrame& frame) {
  const int64_t whole = static_cast<int64_t>(frame.llTimeStamp) * kMillisecondUs;
  const auto fine = static_cast<int64_t>(frame.llTimeStampUs);
  if (frame.dwMediaType != ZMV_MEDIA_VIDEO || fine < whole - kStampTolerance ||
      fine > whole + kMillisecondUs + kStampTolerance) {
    return whole;
  }
  return std::clamp(fine, whole, whole + kMillisecondUs - 1);
}

// The stamp is a multiple of the frames' distance, cut to milliseconds.
int64_t TimeInAvi(const ZMVFrame& frame, const RiffTrack& riff, uint64_t bytes_before) {
  if (riff.stream.sample_size != 0) return riff.UnitsUs(bytes_before / riff.stream.sample_size);
  const double unit_us = 1e6 * riff.stream.scale / std::max<uint32_t>(riff.stream.rate, 1);
  const double stamp_us = static_cast<double>(frame.llTimeStamp) * kMillisecondUs;
  if (unit_us < kMillisecondUs) return static_cast<int64_t>(stamp_us);
  return riff.UnitsUs(static_cast<uint64_t>(std::llround((stamp_us + kMillisecondUs / 2) / unit_us)));
}

}  // namespace

TrackSource::TrackSource(Playback& playback, uint32_t media, uint32_t track) : playback_(playback), track_(track) {
  StreamDescription description;
  description.media = media;
  description.label = fmt::format("{} {}", MediaName(media), track);
  streams_.push_back(description);
}

void TrackSource::KeepPicturesOnly(VideoCodec codec, ByteView parameter_sets) {
  filter_.emplace(codec);
  filter_->Learn(parameter_sets);
}

int64_t TrackSource::duration_us() const { return int64_t{playback_.info().dwDuration} * kMillisecondUs; }

double TrackSource::progress() const {
  return promised() == 0 ? 1 : static_cast<double>(taken_) / static_cast<double>(promised());
}

bool TrackSource::Read(MediaFrame& frame) {
  if (!has_ahead_) return false;
  frame = std::move(ahead_);
  has_ahead_ = Take(ahead_);
  return true;
}

// Frames that cannot be read are passed over: those behind them keep their times.
bool TrackSource::Take(MediaFrame& out) {
  while (tried_ < promised()) {
    ZMVFrame frame;
    const Playback::Found found = playback_.TryRead(media(), track_, frame);
    if (found == Playback::Found::kEnd) return false;
    ++tried_;
    if (found == Playback::Found::kLost) continue;
    ++taken_;
    const int64_t time_us = TimeOf(frame);
    bytes_ += frame.dwSize;
    out = {media(), 0, time_us, frame.dwKeyFrame == ZMV_KEY_FRAME, PayloadOf(frame)};
    if (!out.data.empty() || !filter_) return true;
  }
  return false;
}

void TrackSource::Refuse(const char* what) const {
  throw ToolError(
      fmt::format("{}: {} {}: frame {} {}", playback_.path(), MediaName(media()), track_, tried_ - 1, what));
}

Bytes TrackSource::PayloadOf(const ZMVFrame& frame) {
  const ByteView stored = Playback::Payload(frame);
  Bytes payload(stored.begin(), stored.end());
  if (equal_size_ != 0) FillUp(payload);
  if (!filter_) return payload;
  PictureFilter::Picture picture = filter_->Take(stored);
  if (picture.slices > 1) Refuse("consists of several slices, which players would misread in an MP4");
  if (picture.new_parameters) Refuse("brings parameter sets of its own, which would be lost in an MP4");
  return std::move(picture.payload);
}

void TrackSource::FillUp(Bytes& payload) {
  if (filled_up_ || payload.size() > equal_size_) {
    Refuse("is not as long as those before, which an MP4 needs; `zmv import` records such files");
  }
  filled_up_ = payload.size() < equal_size_;
  payload.resize(equal_size_, 0);
}

int64_t TrackSource::TimeOf(const ZMVFrame& frame) const {
  const RiffTrack* riff = playback_.Riff(media(), track_);
  return riff != nullptr ? TimeInAvi(frame, *riff, bytes_) : TimeInMp4(frame);
}

}  // namespace zmv::tool

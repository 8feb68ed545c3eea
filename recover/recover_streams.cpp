#include "recover/recover_streams.h"

#include <algorithm>

#include "base/arith.h"

namespace zmv::recover {
namespace {

constexpr uint32_t kAudioNumber = ZMV_MAX_VIDEO;
constexpr uint32_t kTextNumber = kAudioNumber + ZMV_MAX_AUDIO;
static_assert(kTextNumber + ZMV_MAX_TEXT == ZMV_RECOVER_MAX_STREAMS);
constexpr int64_t kMicrosecondsPerMillisecond = 1000;

uint32_t StreamNumber(uint32_t media, uint32_t track) {
  return media == ZMV_MEDIA_VIDEO ? track : track + (media == ZMV_MEDIA_AUDIO ? kAudioNumber : kTextNumber);
}

ZMVRecoverStream& Insert(ZMVRecoverReport& report, uint32_t at, uint32_t media, uint32_t track) {
  std::move_backward(report.Stream + at, report.Stream + report.dwStreamCount,
                     report.Stream + report.dwStreamCount + 1);
  ++report.dwStreamCount;
  report.Stream[at] = {};
  report.Stream[at].dwMediaType = media;
  report.Stream[at].dwTrack = track;
  return report.Stream[at];
}

}  // namespace

uint32_t Streams::Number(const Record& record) const {
  return record.stray ? last_ : StreamNumber(record.media, record.track);
}

void Streams::Open(const Front& front, ZMVRecoverReport& report) {
  const auto add = [&](uint32_t media, uint32_t track, bool described) {
    Insert(report, report.dwStreamCount, media, track).bDescribed = described ? 1 : 0;
    last_ = StreamNumber(media, track);
  };
  for (uint32_t i = 0; i < front.info.dwVideoCount; ++i) add(ZMV_MEDIA_VIDEO, i, front.described_video[i]);
  if (front.info.dwAudioCount != 0) add(ZMV_MEDIA_AUDIO, 0, front.described_audio);
  for (uint32_t i = 0; i < front.info.dwTextCount; ++i) add(ZMV_MEDIA_TEXT, i, front.described_text[i]);
}

void Streams::Interrupt() {
  for (Stream& stream : streams_) stream.interrupted = true;
}

void Streams::Interrupt(const Record& record) { streams_[Number(record)].interrupted = true; }

// The 64-bit time next to the last one of the stream whose low half is the record's stamp. The first frame of a stream
// goes by the frame that was found before it.
uint64_t Streams::Time(const Record& record, const Stream& stream) const {
  if (!any_) return record.stamp;
  const uint64_t last = stream.frames != 0 ? stream.last_time : last_time_;
  const uint32_t forward = record.stamp - static_cast<uint32_t>(last);
  const auto step = static_cast<int32_t>(forward);
  if (step >= 0) return last + forward;
  const auto back = static_cast<uint64_t>(-int64_t{step});
  return back <= last ? last - back : record.stamp;
}

ZMVRecoverStream& Streams::Entry(const Record& record, ZMVRecoverReport& report) const {
  const uint32_t number = Number(record);
  uint32_t at = 0;
  while (at < report.dwStreamCount) {
    const uint32_t other = StreamNumber(report.Stream[at].dwMediaType, report.Stream[at].dwTrack);
    if (other == number) return report.Stream[at];
    if (other > number) break;
    ++at;
  }
  return Insert(report, at, record.media, record.track);
}

// The time since the last frame. Stamps are whole milliseconds: what they leave out is taken from the durations, so
// that it does not add up from hole to hole.
uint32_t Streams::Since(uint32_t media, const Stream& stream, uint64_t time) {
  const int64_t units = media == ZMV_MEDIA_VIDEO ? kMicrosecondsPerMillisecond : 1;
  const uint64_t stamped = (stream.last_time - stream.first_time) * static_cast<uint64_t>(units);
  const auto ahead = static_cast<int64_t>(stream.clock - stamped);
  const auto span = static_cast<int64_t>(std::min<uint64_t>(time - stream.last_time, UINT32_MAX)) * units;
  const int64_t exact = ahead > -units && ahead < units ? span - ahead : span;
  return SaturatingU32(static_cast<uint64_t>(std::max<int64_t>(exact, 0)));
}

void Streams::Accept(const Record& record, FoundFrame& frame, ZMVRecoverReport& report) {
  Stream& stream = streams_[Number(record)];
  frame.media = record.media;
  frame.track = record.track;
  frame.key = record.key;
  frame.size = record.size;
  frame.duration = frame.new_duration = record.duration;
  frame.time = Time(record, stream);
  frame.after_hole = stream.interrupted;
  if (!any_) first_time_ = frame.time;
  any_ = true;
  if (stream.frames == 0) stream.first_time = frame.time;
  // Durations are times since the frame before. A stream that begins late is shown early, but only its first frame.
  bool anew = stream.interrupted && stream.frames != 0;
  if (stream.frames == 1 && stream.late) {
    stream.first_time = stream.last_time = first_time_;
    anew = true;
  }
  if (anew && frame.time >= stream.last_time) frame.new_duration = Since(record.media, stream, frame.time);
  if (stream.frames != 0) stream.clock += frame.new_duration;
  if (stream.frames == 0) stream.late = stream.interrupted;
  ++stream.frames;
  stream.interrupted = false;
  stream.last_time = last_time_ = frame.time;

  ZMVRecoverStream& entry = Entry(record, report);
  if (entry.dwFrames == 0) entry.llFirstTime = frame.time;
  entry.llLastTime = frame.time;
  ++entry.dwFrames;
  entry.dwKeyFrames += frame.key ? 1 : 0;
  entry.llBytes += frame.size;
  ++report.dwFrames;
  report.llLastTime = std::max(report.llLastTime, frame.time);
}

}  // namespace zmv::recover

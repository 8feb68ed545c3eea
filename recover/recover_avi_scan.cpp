#include "recover/recover_avi_scan.h"

#include "base/arith.h"
#include "base/zmv_result.h"
#include "facade/zmvstream_writer.h"
#include "recover/recover_avi_key.h"

namespace zmv::recover {
namespace {

constexpr uint64_t kMilliseconds = 1000;
constexpr uint32_t kCodeSize = 4;

// The time of so many frames, or samples.
uint64_t TimeOf(const AviStream& stream, uint64_t units) {
  if (stream.rate == 0) return 0;
  const uint64_t seconds = units * stream.scale;
  return seconds / stream.rate * kMilliseconds + seconds % stream.rate * kMilliseconds / stream.rate;
}

// Which streams there are, by the chunks alone.
class AviSurvey final : public ChainScan {
 public:
  AviSurvey(File& file, const AviFront& avi) : ChainScan(file, nullptr), avi_(avi), chain_(window_) {}

  int32_t Run() {
    Begin(ZMV_FORMAT_AVI);
    if (const int32_t result = chain_.Open(avi_, true); Failed(result)) return result;
    StartAtFront(0);
    FoundFrame frame;
    while (Next(frame)) {
    }
    return Result();
  }
  const uint32_t (&media() const)[avi::kMaxStreams] { return media_; }

 private:
  const Front& front() const override { return avi_.front; }
  Chain& chain() override { return chain_; }
  void Accept(const Record& record, FoundFrame&) override {
    if (media_[record.stamp] == 0) media_[record.stamp] = record.media;
  }

  const AviFront& avi_;
  AviChain chain_;
  uint32_t media_[avi::kMaxStreams] = {};
};

}  // namespace

int32_t AviScan::Open(const ZMVFileInfo* given) {
  Begin(ZMV_FORMAT_AVI);
  report_.bUniformTimes = 1;
  if (!ReadAviFront(window_, avi_)) return Refuse();
  if (!avi_.front.sound && !avi_.front.cut) {
    AviSurvey survey(window_.file(), avi_);
    if (const int32_t result = survey.Run(); Failed(result)) {
      Fail(result);
      return result;
    }
    AddAviStreams(survey.media(), given, avi_);
  }
  if (const int32_t result = chain_.Open(avi_); Failed(result)) {
    Fail(result);
    return result;
  }
  StartAtFront(StatedEnd());
  return 0;
}

// The end of the movi list as a closed file states it, where the index or nothing follows; otherwise 0.
uint64_t AviScan::StatedEnd() {
  const Front& front = avi_.front;
  if (front.mdat_size < kCodeSize) return 0;
  const uint64_t end = front.mdat + avi::kChunkHeaderSize + front.mdat_size;
  const Item item = chain_.At(end).item;
  return item == Item::kBox || item == Item::kEnd ? end : 0;
}

uint32_t AviScan::NumberOf(uint32_t media, uint32_t track) const {
  uint32_t number = 0;
  while (avi_.streams[number].media != media || avi_.streams[number].track != track) ++number;
  return number;
}

void AviScan::Accept(const Record& record, FoundFrame& frame) {
  const uint32_t number = record.stamp;
  const AviStream& stream = avi_.streams[number];
  const uint64_t before = units_[number];
  units_[number] += stream.sample_size != 0 ? record.size / stream.sample_size : 1;
  const uint64_t time = TimeOf(stream, before);
  Record timed = record;
  timed.stamp = static_cast<uint32_t>(time);
  timed.duration = SaturatingU32(TimeOf(stream, units_[number]) - time);
  timed.key = record.media == ZMV_MEDIA_VIDEO && IsKeyPayload(stream.code, frame.bytes, record.size);
  streams_.Accept(timed, frame, report_);
  // Nothing tells what time a hole took.
  frame.new_duration = frame.duration;
}

}  // namespace zmv::recover

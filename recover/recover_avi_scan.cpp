#include "recover/recover_avi_scan.h"

#include <algorithm>

#include "base/arith.h"
#include "base/fourcc.h"
#include "base/zmv_result.h"
#include "facade/zmvstream_writer.h"
#include "recover/recover_avi_key.h"

namespace zmv::recover {
namespace {

constexpr uint64_t kMilliseconds = 1000;
constexpr uint32_t kCodeSize = 4;

// Times stay at this one, 24 days behind the first frame, where a header leads to later ones.
constexpr uint64_t kLatest = INT32_MAX;

// The time of so many frames, or samples.
uint64_t TimeOf(const AviStream& stream, uint64_t units) {
  if (stream.rate == 0) return 0;
  uint64_t parts = 0;  // `rate` are a second
  if (!MulFits(units, uint64_t{stream.scale}, &parts)) return kLatest;
  const uint64_t seconds = parts / stream.rate;
  if (seconds > kLatest / kMilliseconds) return kLatest;
  return std::min(seconds * kMilliseconds + parts % stream.rate * kMilliseconds / stream.rate, kLatest);
}

// Which streams there are, by the chunks alone: what most chunks of a number say.
class AviSurvey final : public ChainScan {
 public:
  AviSurvey(File& file, const AviFront& avi, Progress* progress)
      : ChainScan(file, progress), avi_(avi), chain_(window_) {}

  int32_t Run() {
    Begin(ZMV_FORMAT_AVI);
    chain_.TakeAnyStream();
    if (const int32_t result = chain_.Open(avi_, 0, progress_); Failed(result)) return result;
    StartAtFront(0);
    if (avi_.front.mdat == 0) SearchFirst();
    FoundFrame frame;
    while (Next(frame)) {
    }
    return Result();
  }
  uint64_t WrittenEnd() const { return chain_.written_end(); }
  // 0: there is no such stream.
  uint32_t MediaOf(uint32_t number) const {
    uint32_t media = 0;
    for (uint32_t type = 1; type < kTypes; ++type) {
      if (chunks_[number][type] > chunks_[number][media]) media = type;
    }
    return media;
  }

 private:
  const Front& front() const override { return avi_.front; }
  Chain& chain() override { return chain_; }
  void Accept(const Record& record, FoundFrame&) override { ++chunks_[NumberOf(record)][TypeOf(record)]; }

  const AviFront& avi_;
  AviChain chain_;
  static constexpr uint32_t kTypes = ZMV_MEDIA_TEXT + 1;
  uint32_t chunks_[avi::kMaxStreams][kTypes] = {};
};

}  // namespace

int32_t AviScan::Open(const ZMVFileInfo* given) {
  Begin(ZMV_FORMAT_AVI);
  report_.bUniformTimes = 1;
  if (!ReadAviFront(window_, avi_)) {
    if (!Failed(avi_.error)) return Refuse();
    Fail(avi_.error);
    return avi_.error;
  }
  if (!avi_.front.sound && !avi_.front.cut) {
    AviSurvey survey(window_.file(), avi_, progress_);
    if (const int32_t result = survey.Run(); Failed(result)) {
      Fail(result);
      return result;
    }
    uint32_t media[avi::kMaxStreams];
    for (uint32_t i = 0; i < avi::kMaxStreams; ++i) media[i] = survey.MediaOf(i);
    known_end_ = survey.WrittenEnd();
    if (progress_ != nullptr) progress_->StartPass(0);
    AddAviStreams(media, given, avi_);
  }
  if (const int32_t result = chain_.Open(avi_, known_end_, progress_); Failed(result)) {
    Fail(result);
    return result;
  }
  StartAtFront(StatedEnd());
  // Where the header of the movi list is lost, what is left of the front can look like what closing writes.
  if (avi_.front.mdat == 0) SearchFirst();
  return Result();
}

// The end of the movi list as a closed file states it, where the index or nothing follows; otherwise 0. Where the file
// itself ends before that, the list is as good as open.
uint64_t AviScan::StatedEnd() {
  const Front& front = avi_.front;
  if (front.mdat_size < kCodeSize) return 0;
  const uint64_t end = front.mdat + avi::kChunkHeaderSize + front.mdat_size;
  if (end > report_.llFileSize) return 0;
  const Item item = chain_.At(end).item;
  return item == Item::kBox || item == Item::kEnd ? end : 0;
}

uint32_t AviScan::NumberOf(const FoundFrame& frame) const {
  uint32_t number = 0;
  while (number + 1 < avi_.stream_count &&
         (avi_.streams[number].media != frame.media || avi_.streams[number].track != frame.track)) {
    ++number;
  }
  return number;
}

// The codec of a picture; of a track that no header describes, that of the last one.
uint32_t AviScan::CodeOf(const Record& record) const {
  const ZMVFileInfo& info = avi_.front.info;
  if (TypeOf(record) == record.media) return avi_.streams[recover::NumberOf(record)].code;
  return info.dwVideoCount != 0 ? info.m_Video[info.dwVideoCount - 1].dwFourCC : FourCC("H264");
}

void AviScan::Accept(const Record& record, FoundFrame& frame) {
  const uint32_t number = recover::NumberOf(record);
  const uint32_t type = TypeOf(record);
  const AviStream& stream = avi_.streams[number];
  const uint64_t before = units_[number];
  units_[number] += stream.sample_size != 0 ? record.size / stream.sample_size : 1;
  const uint64_t time = TimeOf(stream, before);
  Record timed = record;
  timed.stamp = static_cast<uint32_t>(time);
  timed.duration = SaturatingU32(TimeOf(stream, units_[number]) - time);
  timed.key = type == ZMV_MEDIA_VIDEO && IsKeyPayload(CodeOf(record), frame.bytes, record.size);
  streams_.Accept(timed, frame, report_);
  // Nothing tells what time a hole took.
  frame.new_duration = frame.duration;
  if (type == record.media) return;
  // It is recorded anew as it was: for a track that there is not.
  const ZMVFileInfo& info = avi_.front.info;
  frame.media = type;
  frame.track = type == ZMV_MEDIA_VIDEO   ? info.dwVideoCount
                : type == ZMV_MEDIA_AUDIO ? info.dwAudioCount
                                          : info.dwTextCount;
}

}  // namespace zmv::recover

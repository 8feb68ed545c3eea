// AVI recordings: what one is, and the two ways to recover it.
#include "base/host_memory.h"
#include "base/zmv_result.h"
#include "recover/recover_avi_in_place.h"
#include "recover/recover_avi_index.h"
#include "recover/recover_avi_scan.h"
#include "recover/recover_module.h"
#include "recover/recover_passes.h"
#include "recover/recover_probe.h"
#include "recover/recover_recording.h"
#include "recover/recover_to_file.h"

namespace zmv::recover {
namespace {

// Below one frame a second closing measures nothing and leaves the rate as it was declared.
constexpr uint32_t kKeepRate = 1;

// The frames of a scan, with a look at the index that the file has, which tells a whole recording from a cut one.
class IndexedScan final : public Scan {
 public:
  IndexedScan(File& file, Progress& progress) : scan_(file, &progress), index_(file) {}

  int32_t Open(const ZMVFileInfo* given) {
    result_ = scan_.Open(given);
    if (!Failed(result_)) result_ = index_.Open(scan_.avi());
    return result_;
  }
  bool Next(FoundFrame& frame) override {
    if (Failed(result_)) return false;
    if (scan_.Next(frame)) {
      result_ = index_.Check(frame, scan_.NumberOf(frame));
      if (frame.media == ZMV_MEDIA_VIDEO && index_.Agrees()) TakeKey(frame);
      return !Failed(result_);
    }
    result_ = scan_.Result();
    report_ = scan_.Report();
    const bool damaged = report_.dwState == ZMV_RECOVER_DAMAGED;
    if (!Failed(result_)) result_ = index_.Finish(scan_.ItemsEnd(), damaged);
    ended_ = true;
    if (report_.dwState == ZMV_RECOVER_WHOLE && !index_.Agrees()) report_.dwState = ZMV_RECOVER_CUT;
    for (uint32_t i = 0; i < report_.dwStreamCount; ++i) {
      ZMVRecoverStream& stream = report_.Stream[i];
      if (stream.dwMediaType == ZMV_MEDIA_VIDEO) stream.dwKeyFrames += more_keys_[stream.dwTrack];
    }
    return false;
  }
  int32_t Result() const override { return result_; }
  const ZMVRecoverReport& Report() const override { return ended_ ? report_ : scan_.Report(); }
  const AviFront& avi() const { return scan_.avi(); }
  uint64_t WrittenEnd() const { return scan_.WrittenEnd(); }
  bool Complete() const { return index_.Closed(); }

 private:
  // An entry tells better than the payload.
  void TakeKey(FoundFrame& frame) {
    const bool described = frame.track < scan_.avi().front.info.dwVideoCount;
    if (described) more_keys_[frame.track] += uint32_t{index_.IsKey()} - uint32_t{frame.key};
    frame.key = index_.IsKey();
  }

  AviScan scan_;
  AviIndexCheck index_;
  uint32_t more_keys_[ZMV_MAX_VIDEO] = {};  // than were told by the payloads; modulo 2^32
  ZMVRecoverReport report_ = {};
  bool ended_ = false;
  int32_t result_ = 0;
};

// What the writer is told of the streams: their rates stay, since nothing new is known of them.
ZMVFileInfo KeepRates(const ZMVFileInfo& described) {
  ZMVFileInfo info = described;
  for (uint32_t i = 0; i < info.dwVideoCount; ++i) info.m_Video[i].dwFixedRate = kKeepRate;
  for (uint32_t i = 0; i < info.dwTextCount; ++i) info.m_Text[i].dwFixedRate = kKeepRate;
  return info;
}

}  // namespace

int32_t ProbeAvi(File& file, const ZMVRecoverParam& param, Finding& finding) {
  Progress progress(param, file.Size());
  IndexedScan scan(file, progress);
  int32_t result = scan.Open(param.pDescription);
  finding.report = scan.Report();
  if (result == Result(ZMV_E_UNSUPPORTED_FORMAT)) return 0;
  FoundFrame frame;
  while (!Failed(result) && scan.Next(frame)) {
  }
  result = scan.Result();
  finding.report = scan.Report();
  if (Failed(result)) return result;
  finding.written_end = scan.WrittenEnd();
  finding.complete = scan.Complete();
  finding.info = scan.avi().front.info;
  // The scan's memory ends with it.
  finding.info.pStreamName = nullptr;
  finding.info.pExtraHeader = nullptr;
  finding.info.dwExtraHeaderSize = 0;
  return progress.Finished() ? 0 : Result(ZMV_E_CANCELLED);
}

int32_t RecoverAviToFile(File& source, const ZMVRecoverParam& param, ZMVRecoverReport& report) {
  Progress progress(param, source.Size());
  IndexedScan scan(source, progress);
  if (const int32_t result = scan.Open(param.pDescription); Failed(result)) {
    report = scan.Report();
    return result;
  }
  const ZMVFileInfo info = KeepRates(scan.avi().front.info);
  const int32_t result = WriteNewRecording({.frames = scan,
                                            .info = info,
                                            .format = ZMV_FORMAT_AVI,
                                            .target = param.pszTarget,
                                            .user_data = ZMV_RECOVER_USER_DATA_NEVER});
  report = scan.Report();
  if (Failed(result)) return result;
  progress.Finished();
  return CheckOwn(report);
}

int32_t RecoverAviInPlace(File& file, const ZMVRecoverParam& param, ZMVRecoverReport& report, uint32_t) {
  Passes passes = {param, file.Size(), 2};
  const ZMVRecoverParam pass = ParamOf(passes);
  Finding finding;
  const int32_t probed = ProbeAvi(file, pass, finding);
  report = finding.report;
  if (Failed(probed)) return probed;
  if (const int32_t result = CheckOwn(report); Failed(result)) return result;
  // Nothing is missing behind the frames, whatever may be missing between them.
  if (finding.complete) return 0;
  if (report.bCanInPlace == 0) return Result(ZMV_E_NOT_SUPPORTED);
  passes.done = 1;
  Progress progress(pass, file.Size());
  AviScan scan(file, &progress, finding.written_end);
  if (const int32_t result = scan.Open(param.pDescription); Failed(result)) return result;
  const int32_t result = CompleteAviInPlace(
      {.file = file, .frames = scan, .count = report.dwFrames, .data_end = report.llDataEnd, .path = param.pszPath});
  if (Failed(result)) return result;
  report.bChanged = 1;
  progress.Finished();
  return 0;
}

}  // namespace zmv::recover

#include "recover/recover_recording.h"

#include "base/zmv_result.h"
#include "recover/recover_in_place.h"
#include "recover/recover_mp4_scan.h"
#include "recover/recover_mp4_tables.h"
#include "recover/recover_passes.h"
#include "recover/recover_probe.h"
#include "recover/recover_record_walk.h"
#include "recover/recover_to_file.h"
#include "recover/recover_user_data.h"

namespace zmv::recover {
namespace {

// The frames of a scan, with a look at the tables that the file has, which tell a whole recording from a cut one.
class ComparedScan final : public Scan {
 public:
  ComparedScan(File& file, Progress& progress) : scan_(file, &progress), tables_(file) {}

  int32_t Open() {
    result_ = scan_.Open();
    if (!Failed(result_)) result_ = tables_.Open(scan_.front());
    return result_;
  }
  bool Next(FoundFrame& frame) override {
    if (Failed(result_)) return false;
    if (scan_.Next(frame)) {
      result_ = tables_.Check(frame);
      return !Failed(result_);
    }
    result_ = scan_.Result();
    if (!Failed(result_)) result_ = tables_.Finish(scan_.ItemsEnd());
    report_ = scan_.Report();
    ended_ = true;
    if (report_.dwState == ZMV_RECOVER_WHOLE && !tables_.Agree()) report_.dwState = ZMV_RECOVER_CUT;
    return false;
  }
  int32_t Result() const override { return result_; }
  const ZMVRecoverReport& Report() const override { return ended_ ? report_ : scan_.Report(); }

 private:
  Mp4Scan scan_;
  Mp4Tables tables_;
  ZMVRecoverReport report_ = {};
  bool ended_ = false;
  int32_t result_ = 0;
};

// The frames of a file without damage stand where their records say; otherwise it takes another scan to tell.
bool RecordsTell(const ZMVRecoverReport& report) { return report.dwHoles == 0 && report.dwDropped == 0; }

// Payloads and records: what of the media data is in use.
uint64_t LiveBytes(const ZMVRecoverReport& report) {
  uint64_t bytes = uint64_t{report.dwFrames} * kRecordSize;
  for (uint32_t i = 0; i < report.dwStreamCount; ++i) bytes += report.Stream[i].llBytes;
  return bytes;
}

int32_t Complete(File& file, const ZMVRecoverParam& param, const Finding& finding, uint32_t table_bytes) {
  Window window(file);
  Front front;
  if (!ReadFront(window, front)) return Failed(window.Error()) ? window.Error() : Result(ZMV_E_UNSUPPORTED_FORMAT);
  Mp4Chain chain(window);
  if (const int32_t result = chain.Open(front, finding.written_end); Failed(result)) return result;
  const ZMVRecoverReport& report = finding.report;
  Progress progress(param, file.Size());
  RecordWalk walk(file, chain, front, report);
  Mp4Scan scan(file, nullptr, finding.written_end);
  const bool records = RecordsTell(report);
  if (const int32_t result = records ? 0 : scan.Open(); Failed(result)) return result;
  const InPlaceJob job = {.file = file,
                          .info = finding.info,
                          .mdat = front.mdat,
                          .data_end = report.llDataEnd,
                          .live = LiveBytes(report),
                          .frames = records ? static_cast<Scan&>(walk) : scan,
                          .user_data = WantsUserData(param.dwUserData, report),
                          .progress = progress,
                          .table_bytes = table_bytes};
  if (const int32_t result = CompleteInPlace(job); Failed(result)) return result;
  progress.Finished();
  return 0;
}

// The streams, as far as the front tells them. False when only their frames can.
bool DescribeByFront(File& source, const ZMVRecoverParam& param, ZMVFileInfo& info) {
  Window window(source);
  Front front;
  if (!ReadFront(window, front) || !front.sound) return false;
  SettleDescriptions({}, param.pDescription, front);
  info = front.info;
  return true;
}

}  // namespace

int32_t RecoverMp4ToFile(File& source, const ZMVRecoverParam& param, ZMVRecoverReport& report) {
  Finding finding = {};
  const bool described = DescribeByFront(source, param, finding.info);
  Passes passes = {param, source.Size(), described ? 1u : 2u};
  const ZMVRecoverParam pass = ParamOf(passes);
  if (!described) {
    const int32_t result = ProbeMp4(source, pass, finding);
    report = finding.report;
    if (Failed(result)) return result;
    if (Failed(CheckOwn(report))) return CheckOwn(report);
    passes.done = 1;
  }
  Progress progress(pass, source.Size());
  ComparedScan scan(source, progress);
  if (const int32_t result = scan.Open(); Failed(result)) return result;
  const int32_t result = WriteNewRecording({.frames = scan,
                                            .info = finding.info,
                                            .format = ZMV_FORMAT_MP4,
                                            .target = param.pszTarget,
                                            .user_data = param.dwUserData,
                                            .source_size = source.Size()});
  report = scan.Report();
  if (Failed(result)) return result;
  progress.Finished();
  return CheckOwn(report);
}

int32_t RecoverMp4InPlace(File& file, const ZMVRecoverParam& param, ZMVRecoverReport& report, uint32_t table_bytes) {
  Passes passes = {param, file.Size(), 2};
  const ZMVRecoverParam pass = ParamOf(passes);
  Finding finding;
  const int32_t probed = ProbeMp4(file, pass, finding);
  report = finding.report;
  if (Failed(probed)) return probed;
  if (const int32_t result = CheckOwn(report); Failed(result)) return result;
  // Nothing is missing behind the frames, whatever may be missing between them. The index of a closed recording has
  // more than can be found behind damage, and damage may be what only looks so.
  const bool damaged = report.dwHoles != 0 || report.dwDropped != 0;
  if (finding.complete || (finding.closed && damaged && finding.named)) return 0;
  if (report.bCanInPlace == 0) return Result(ZMV_E_NOT_SUPPORTED);
  passes.done = 1;
  const int32_t completed = Complete(file, pass, finding, table_bytes);
  report.bChanged = Failed(completed) ? 0 : 1;
  return completed;
}

int32_t RecoverToFile(File& source, const ZMVRecoverParam& param, ZMVRecoverReport& report) {
  const Container* container = nullptr;
  if (const int32_t result = FindContainer(source, &container); Failed(result)) return result;
  return container->ToFile(source, param, report);
}

int32_t RecoverInPlace(File& file, const ZMVRecoverParam& param, ZMVRecoverReport& report, uint32_t table_bytes) {
  const Container* container = nullptr;
  if (const int32_t result = FindContainer(file, &container); Failed(result)) return result;
  return container->InPlace(file, param, report, table_bytes);
}

}  // namespace zmv::recover

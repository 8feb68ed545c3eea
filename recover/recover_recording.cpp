#include "recover/recover_recording.h"

#include "base/zmv_result.h"
#include "recover/recover_in_place.h"
#include "recover/recover_mp4_scan.h"
#include "recover/recover_record_walk.h"
#include "recover/recover_to_file.h"
#include "recover/recover_user_data.h"

namespace zmv::recover {
namespace {

// Goes through all frames for what the report says of them.
int32_t Count(Mp4Scan& scan) {
  if (const int32_t result = scan.Open(); Failed(result)) return result;
  FoundFrame frame;
  while (scan.Next(frame)) {
  }
  return scan.Result();
}

int32_t CheckOwn(const ZMVRecoverReport& report) {
  return report.dwState == ZMV_RECOVER_FOREIGN ? Result(ZMV_E_UNSUPPORTED_FORMAT) : 0;
}

// The frames of a file without damage stand where their records say; otherwise it takes another scan to tell.
bool RecordsTell(const ZMVRecoverReport& report) { return report.dwHoles == 0 && report.dwDropped == 0; }

// Payloads and records: what of the media data is in use.
uint64_t LiveBytes(const ZMVRecoverReport& report) {
  uint64_t bytes = uint64_t{report.dwFrames} * kRecordSize;
  for (uint32_t i = 0; i < report.dwStreamCount; ++i) bytes += report.Stream[i].llBytes;
  return bytes;
}

int32_t Complete(File& file, const Front& front, const ZMVRecoverParam& param, const ZMVRecoverReport& report,
                 uint32_t table_bytes, Progress& progress) {
  Window window(file);
  Chain chain(window);
  if (const int32_t result = chain.Open(front); Failed(result)) return result;
  RecordWalk walk(file, chain, front, report);
  Mp4Scan scan(file);
  const bool records = RecordsTell(report);
  if (const int32_t result = records ? 0 : scan.Open(); Failed(result)) return result;
  const InPlaceJob job = {.file = file,
                          .info = front.info,
                          .mdat = front.mdat,
                          .data_end = report.llDataEnd,
                          .live = LiveBytes(report),
                          .frames = records ? static_cast<Scan&>(walk) : scan,
                          .user_data = WantsUserData(param.dwUserData, report),
                          .progress = progress,
                          .table_bytes = table_bytes};
  return CompleteInPlace(job);
}

}  // namespace

int32_t RecoverToFile(File& source, const ZMVRecoverParam& param, ZMVRecoverReport& report) {
  Mp4Scan probe(source);
  if (const int32_t result = probe.Open(); Failed(result)) return result;
  Front front = probe.front();
  const bool streams_known = front.sound || front.cut;
  Progress progress(param, source.Size() * (streams_known ? 1 : 2));
  if (!streams_known) {
    // Which streams there are only their frames can tell.
    Mp4Scan count(source, &progress);
    const int32_t result = Count(count);
    report = count.Report();
    if (Failed(result)) return result;
    progress.StartPass(source.Size());
  }
  SettleDescriptions(report, param.pDescription, front);
  Mp4Scan scan(source, &progress);
  if (const int32_t result = scan.Open(); Failed(result)) return result;
  const int32_t result = WriteNewRecording({.frames = scan,
                                            .info = front.info,
                                            .format = ZMV_FORMAT_MP4,
                                            .target = param.pszTarget,
                                            .user_data = param.dwUserData});
  report = scan.Report();
  if (Failed(result)) return result;
  progress.Finished();
  return CheckOwn(report);
}

int32_t RecoverInPlace(File& file, const ZMVRecoverParam& param, ZMVRecoverReport& report, uint32_t table_bytes) {
  Progress progress(param, file.Size() * 2);
  Front front;
  {
    Mp4Scan scan(file, &progress);
    const int32_t result = Count(scan);
    report = scan.Report();
    if (Failed(result)) return result;
    front = scan.front();
  }
  if (const int32_t result = CheckOwn(report); Failed(result)) return result;
  if (report.dwState == ZMV_RECOVER_WHOLE) return 0;
  if (report.bCanInPlace == 0) return Result(ZMV_E_NOT_SUPPORTED);
  SettleDescriptions(report, param.pDescription, front);
  progress.StartPass(file.Size());
  if (const int32_t result = Complete(file, front, param, report, table_bytes, progress); Failed(result)) return result;
  progress.Finished();
  return 0;
}

}  // namespace zmv::recover

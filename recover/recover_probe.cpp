#include "recover/recover_probe.h"

#include "base/host_memory.h"
#include "recover/recover_avi_front.h"
#include "recover/recover_module.h"
#include "recover/recover_mp4_scan.h"
#include "recover/recover_mp4_tables.h"

namespace zmv::recover {
namespace {

int32_t RecogniseRest(File&, bool& recognised) {
  recognised = true;
  return 0;
}

// One row for each container. The last one takes what is left.
constexpr Container kContainers[] = {
    {.Recognise = &RecogniseAvi, .Probe = &ProbeAvi, .ToFile = &RecoverAviToFile, .InPlace = &RecoverAviInPlace},
    {.Recognise = &RecogniseRest, .Probe = &ProbeMp4, .ToFile = &RecoverMp4ToFile, .InPlace = &RecoverMp4InPlace},
};

bool WantsUserData(const ZMVRecoverParam& param, const ZMVRecoverReport& report) {
  if (param.dwUserData == ZMV_RECOVER_USER_DATA_NEVER) return false;
  if (param.dwUserData != ZMV_RECOVER_USER_DATA_ALWAYS) return report.bUserData != 0;
  for (uint32_t i = 0; i < report.dwStreamCount; ++i) {
    if (report.Stream[i].dwMediaType == ZMV_MEDIA_TEXT) return true;
  }
  return false;
}

// Numbers of descriptions are certain only once the streams are known.
void MarkDescribed(const Front& front, ZMVRecoverReport& report) {
  for (uint32_t i = 0; i < report.dwStreamCount; ++i) {
    ZMVRecoverStream& stream = report.Stream[i];
    const bool described = stream.dwMediaType == ZMV_MEDIA_VIDEO   ? front.described_video[stream.dwTrack]
                           : stream.dwMediaType == ZMV_MEDIA_AUDIO ? front.described_audio
                                                                   : front.described_text[stream.dwTrack];
    stream.bDescribed = described ? 1 : 0;
  }
}

bool IsDamaged(const ZMVRecoverReport& report) { return report.dwHoles != 0 || report.dwDropped != 0; }

int32_t ScanAndCompare(Mp4Scan& scan, Mp4Tables& tables) {
  FoundFrame frame;
  while (scan.Next(frame)) {
    if (const int32_t result = tables.Check(frame); Failed(result)) return result;
  }
  return Failed(scan.Result()) ? scan.Result() : tables.Finish(scan.ItemsEnd());
}

}  // namespace

int32_t FindContainer(File& file, const Container** container) {
  for (const Container& row : kContainers) {
    bool recognised = false;
    if (const int32_t result = row.Recognise(file, recognised); Failed(result)) return result;
    *container = &row;
    if (recognised) break;
  }
  return 0;
}

int32_t ProbeFile(File& file, const ZMVRecoverParam& param, Finding& finding) {
  finding = {};
  const Container* container = nullptr;
  if (const int32_t result = FindContainer(file, &container); Failed(result)) return result;
  return container->Probe(file, param, finding);
}

int32_t ProbeMp4(File& file, const ZMVRecoverParam& param, Finding& finding) {
  Progress progress(param, file.Size());
  Mp4Scan scan(file, &progress);
  Mp4Tables tables(file);
  int32_t result = scan.Open();
  finding.report = scan.Report();
  if (result == Result(ZMV_E_UNSUPPORTED_FORMAT)) return 0;
  if (!Failed(result)) result = tables.Open(scan.front());
  finding.closed = tables.Agree();
  if (!Failed(result)) result = ScanAndCompare(scan, tables);
  if (Failed(result)) return result;

  finding.report = scan.Report();
  finding.complete = tables.Agree();
  finding.named = tables.Name();
  // The index of a closed recording may have more than can be found behind damage, and less: nothing is left to append.
  if (finding.closed && IsDamaged(finding.report) && !finding.named) finding.report.bCanInPlace = 0;
  if (finding.report.dwState == ZMV_RECOVER_WHOLE && !finding.complete) finding.report.dwState = ZMV_RECOVER_CUT;
  Front front = scan.front();
  SettleDescriptions(finding.report, param.pDescription, front);
  MarkDescribed(front, finding.report);
  finding.info = front.info;
  finding.written_end = scan.WrittenEnd();
  finding.report.bUserData = WantsUserData(param, finding.report) ? 1 : 0;
  return progress.Finished() ? 0 : Result(ZMV_E_CANCELLED);
}

}  // namespace zmv::recover

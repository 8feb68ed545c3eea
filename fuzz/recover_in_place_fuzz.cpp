// Recovery in place of bytes of any kind: an AVI that was completed once is complete, holds the same frames, and stays
// as it is. Start it through scripts/fuzz.
#include <cstdlib>
#include <vector>

#include "base/zmv_result.h"
#include "recover/recover_avi_front.h"
#include "recover/recover_recording.h"
#include "tests/support/memory_file.h"

namespace {

using zmv::test::StoredFile;

void Check(const StoredFile& file, int32_t result, const ZMVRecoverReport& report) {
  if (zmv::Failed(result)) return;
  StoredFile again(file.bytes());
  ZMVRecoverReport second = {};
  if (zmv::recover::RecoverInPlace(again, ZMVRecoverParam{}, second) != 0) abort();
  if (second.dwFrames != report.dwFrames || again.Count(StoredFile::kWrite) != 0) abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  StoredFile file(std::vector<uint8_t>(data, data + size));
  bool avi = false;
  if (zmv::recover::RecogniseAvi(file, avi) != 0 || !avi) return 0;
  static ZMVRecoverReport report;
  report = {};
  const int32_t result = zmv::recover::RecoverInPlace(file, ZMVRecoverParam{}, report);
  Check(file, result, report);
  return 0;
}

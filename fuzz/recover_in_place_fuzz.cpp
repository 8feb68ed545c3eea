// Recovery in place of what can be an AVI: a file that was completed once is complete, and stays as it is. Start it
// through scripts/fuzz.
#include <cstdlib>
#include <vector>

#include "base/zmv_result.h"
#include "recover/recover_avi_front.h"
#include "recover/recover_recording.h"
#include "tests/support/memory_file.h"

namespace {

using zmv::test::StoredFile;

void Check(const StoredFile& file) {
  StoredFile again(file.bytes());
  static ZMVRecoverReport report;
  report = {};
  if (zmv::recover::RecoverInPlace(again, ZMVRecoverParam{}, report) != 0) abort();
  if (again.Count(StoredFile::kWrite) + again.Count(StoredFile::kTruncate) != 0) abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  StoredFile file(std::vector<uint8_t>(data, data + size));
  bool avi = false;
  if (zmv::recover::RecogniseAvi(file, avi) != 0 || !avi) return 0;
  static ZMVRecoverReport report;
  report = {};
  if (!zmv::Failed(zmv::recover::RecoverInPlace(file, ZMVRecoverParam{}, report))) Check(file);
  return 0;
}

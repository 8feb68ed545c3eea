// The recovery library's scanners on bytes of any kind: what zmv recover does first with a file that it knows nothing
// of. Start it through scripts/fuzz.
#include <cstdlib>
#include <vector>

#include "recover/recover_probe.h"
#include "tests/support/memory_file.h"

namespace {

// What a report says about a file must hold whatever the file is.
void Check(const ZMVRecoverReport& report) {
  uint64_t frames = 0;
  for (uint32_t i = 0; i < report.dwStreamCount; ++i) frames += report.Stream[i].dwFrames;
  const bool sums = report.dwStreamCount <= ZMV_RECOVER_MAX_STREAMS && frames == report.dwFrames;
  const bool inside = report.llDataEnd <= report.llFileSize && report.llHoleBytes <= report.llFileSize &&
                      report.llIncomplete <= report.llFileSize;
  if (!sums || !inside) abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  zmv::test::StoredFile file(std::vector<uint8_t>(data, data + size));
  static zmv::recover::Finding finding;
  if (zmv::recover::ProbeFile(file, ZMVRecoverParam{}, finding) == 0) Check(finding.report);
  return 0;
}

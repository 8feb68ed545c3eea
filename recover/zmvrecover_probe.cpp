#include "base/host_memory.h"
#include "recover/recover_module.h"
#include "recover/recover_probe.h"

using namespace zmv;
using namespace zmv::recover;

int32_t ZMVRecoverProbe(const ZMVRecoverParam* param, ZMVRecoverReport* report, ZMVFileInfo* info) {
  TraceScope scope(kModule, __func__);
  if (param == nullptr || param->pszPath == nullptr || report == nullptr) {
    return scope.Fail(Result(ZMV_E_FAIL), "no path or no report\n");
  }
  DiskFile file;
  if (const int32_t result = file.Open(param->pszPath, false); Failed(result)) return scope.Fail(result);
  HostMemory<Finding> finding = AllocateRecord<Finding>(kModule, __func__);
  if (!finding) return scope.Fail(Result(ZMV_E_MEMORY), "no memory for what is found\n");
  if (const int32_t result = ProbeFile(file, *param, *finding); Failed(result)) {
    return scope.Fail(result, "err (0x%x)\n", static_cast<uint32_t>(result));
  }
  *report = finding->report;
  if (info != nullptr) *info = finding->info;
  return 0;
}

// ZMVRecoverInPlace.
#include "base/zmv_result.h"
#include "recover/recover_module.h"
#include "recover/recover_recording.h"
#include "recover/zmvrecover.h"

using namespace zmv;
using namespace zmv::recover;

int32_t ZMVRecoverInPlace(const ZMVRecoverParam* param, ZMVRecoverReport* report) {
  TraceScope scope(kModule, __func__);
  if (param == nullptr || param->pszPath == nullptr) return scope.Fail(Result(ZMV_E_FAIL), "no path\n");
  ZMVRecoverReport own;
  ZMVRecoverReport& filled = report != nullptr ? *report : own;
  filled = {};
  DiskFile file;
  if (const int32_t result = file.Open(param->pszPath, true); Failed(result)) return scope.Fail(result);
  const int32_t result = RecoverInPlace(file, *param, filled);
  return Failed(result) ? scope.Fail(result) : 0;
}

// ZMVRecoverToFile.
#include <sys/stat.h>
#include <unistd.h>

#include "base/zmv_result.h"
#include "recover/recover_module.h"
#include "recover/recover_recording.h"
#include "recover/zmvrecover.h"

using namespace zmv;
using namespace zmv::recover;

int32_t ZMVRecoverToFile(const ZMVRecoverParam* param, ZMVRecoverReport* report) {
  TraceScope scope(kModule, __func__);
  if (param == nullptr || param->pszPath == nullptr || param->pszTarget == nullptr) {
    return scope.Fail(Result(ZMV_E_FAIL), "no path or no target\n");
  }
  ZMVRecoverReport own;
  ZMVRecoverReport& filled = report != nullptr ? *report : own;
  filled = {};
  DiskFile source;
  if (const int32_t result = source.Open(param->pszPath, false); Failed(result)) return scope.Fail(result);
  // Whatever bears the name stays: the damaged recording itself under another name, too.
  struct stat status;
  if (lstat(param->pszTarget, &status) == 0) {
    return scope.Fail(Result(ZMV_E_OPEN), "target exists (%s)\n", param->pszTarget);
  }
  const int32_t result = RecoverToFile(source, *param, filled);
  if (!Failed(result)) {
    // The recording itself is on the medium; whether its name is, not every file system can tell.
    SyncFolderOf(param->pszTarget);
    return 0;
  }
  unlink(param->pszTarget);
  return scope.Fail(result);
}

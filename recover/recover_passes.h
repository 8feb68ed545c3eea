// What the recoveries of all containers share: one progress over several passes, and the answer to foreign files.
#ifndef ZMV_RECOVER_PASSES_H
#define ZMV_RECOVER_PASSES_H

#include "base/zmv_result.h"
#include "recover/zmvrecover.h"

namespace zmv::recover {

// The caller's progress over several passes, each of which counts from nothing to `pass_bytes`.
struct Passes {
  const ZMVRecoverParam& param;
  uint64_t pass_bytes;
  uint32_t passes;
  uint32_t done = 0;
};

inline uint32_t TellPasses(void* context, uint64_t done, uint64_t) {
  const Passes& passes = *static_cast<Passes*>(context);
  const uint64_t before = passes.pass_bytes * passes.done;
  return passes.param.pfnProgress(passes.param.pContext, before + done, passes.pass_bytes * passes.passes);
}

inline ZMVRecoverParam ParamOf(Passes& passes) {
  ZMVRecoverParam param = passes.param;
  if (param.pfnProgress == nullptr) return param;
  param.pfnProgress = &TellPasses;
  param.pContext = &passes;
  return param;
}

inline int32_t CheckOwn(const ZMVRecoverReport& report) {
  return report.dwState == ZMV_RECOVER_FOREIGN ? Result(ZMV_E_UNSUPPORTED_FORMAT) : 0;
}

}  // namespace zmv::recover

#endif

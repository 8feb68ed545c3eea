// Recoveries of AVI files in memory, on the scripted host.
#ifndef ZMV_TESTS_AVI_RECOVERY_TEST_H
#define ZMV_TESTS_AVI_RECOVERY_TEST_H

#include <algorithm>
#include <vector>

#include "base/byte_order.h"
#include "tests/recover/recorded_avi.h"
#include "tests/recover/recovery_test.h"

namespace zmv::test {

class AviRecoveryTest : public RecoveryTest {
 protected:
  AviRecoveryTest() { param_.pszPath = kAviPath; }

  static std::vector<AviFrame> FirstFrames(const AviRecording& recording, size_t count) {
    return std::vector<AviFrame>(recording.frames.begin(), recording.frames.begin() + static_cast<ptrdiff_t>(count));
  }
};

}  // namespace zmv::test

#endif

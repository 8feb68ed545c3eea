// Recoveries of files in memory, on the scripted host.
#ifndef ZMV_TESTS_RECOVERY_TEST_H
#define ZMV_TESTS_RECOVERY_TEST_H

#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "base/fourcc.h"
#include "base/zmv_result.h"
#include "recover/recover_recording.h"
#include "tests/recover/log_file.h"
#include "tests/recover/recorded.h"

namespace zmv::test {

constexpr const char* kTarget = "new.mp4";

class RecoveryTest : public testing::Test {
 protected:
  RecoveryTest() {
    host_.trace_level = 0;
    host_.record = false;
  }

  // The new recording of a damaged one; empty after a failure, whose code is kept.
  ByteVector ToFile(const ByteVector& damaged) {
    LogFile source(damaged);
    param_.pszTarget = kTarget;
    result_ = recover::RecoverToFile(source, param_, report_);
    EXPECT_TRUE(source.log().empty()) << "the damaged recording was touched";
    return result_ < 0 ? ByteVector() : host_.File(kTarget);
  }
  // The recording completed in place, with tables that spill as often as the recorder's.
  ByteVector InPlace(const ByteVector& damaged) {
    LogFile file(damaged);
    result_ = recover::RecoverInPlace(file, param_, report_, table_bytes_);
    return file.bytes();
  }

  static ByteVector First(const ByteVector& bytes, uint64_t count) {
    return ByteVector(bytes.begin(), bytes.begin() + static_cast<ptrdiff_t>(count));
  }

  ScriptedHost host_;
  ZMVRecoverParam param_ = {};
  ZMVRecoverReport report_ = {};
  int32_t result_ = 0;
  uint32_t table_bytes_ = 48;
};

}  // namespace zmv::test

#endif

// The frames of a recording again, from their records alone, once a scan has found it free of damage up to its last
// frame: nothing of the payloads is read.
#ifndef ZMV_RECOVER_RECORD_WALK_H
#define ZMV_RECOVER_RECORD_WALK_H

#include "recover/recover_front.h"
#include "recover/recover_mp4_chain.h"
#include "recover/recover_scan.h"

namespace zmv::recover {

class RecordWalk final : public Scan {
 public:
  // `chain` is open on the file; `report` is what the scan found: no holes, no frame dropped.
  RecordWalk(File& file, Chain& chain, const Front& front, const ZMVRecoverReport& report)
      : file_(file), chain_(chain), report_(report), position_(front.end) {}

  // FoundFrame.bytes is null.
  bool Next(FoundFrame& frame) override;
  int32_t Result() const override { return result_; }
  const ZMVRecoverReport& Report() const override { return report_; }

 private:
  bool Stop(int32_t result);
  bool Take(const Record& record, uint64_t payload, FoundFrame& frame);

  File& file_;
  Chain& chain_;
  const ZMVRecoverReport& report_;
  uint64_t position_;
  uint64_t time_ = 0;
  bool started_ = false;
  int32_t result_ = 0;
};

}  // namespace zmv::recover

#endif

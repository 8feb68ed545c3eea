// The frames of an MP4 recording.
#ifndef ZMV_RECOVER_MP4_SCAN_H
#define ZMV_RECOVER_MP4_SCAN_H

#include "recover/recover_chain_scan.h"
#include "recover/recover_mp4_chain.h"

namespace zmv::recover {

class Mp4Scan final : public ChainScan {
 public:
  // `progress` may be null. `known_end`: WrittenEnd of another scan of the same bytes; 0 = not known.
  explicit Mp4Scan(File& file, Progress* progress = nullptr, uint64_t known_end = 0)
      : ChainScan(file, progress), chain_(window_), known_end_(known_end) {}

  // Reads the front. 0; ZMV_E_UNSUPPORTED_FORMAT for a file that cannot be a recording of this library; ZMV_E_READ,
  // ZMV_E_MEMORY.
  int32_t Open();

  // As it was read: not completed by what the scan finds.
  const Front& front() const override { return front_; }
  // Behind the last byte of the file that is not zero.
  uint64_t WrittenEnd() const { return chain_.written_end(); }

 private:
  Chain& chain() override { return chain_; }
  void Accept(const Record& record, FoundFrame& frame) override;

  Mp4Chain chain_;
  uint64_t known_end_;
  Front front_ = {};
  bool text_carries_ = true;  // every text frame so far looks as if it carried user data
};

}  // namespace zmv::recover

#endif

// The frames of an AVI recording. Their times are uniform: the rates are all that the file tells of them.
#ifndef ZMV_RECOVER_AVI_SCAN_H
#define ZMV_RECOVER_AVI_SCAN_H

#include "recover/recover_avi_chain.h"
#include "recover/recover_avi_front.h"
#include "recover/recover_chain_scan.h"

namespace zmv::recover {

class AviScan final : public ChainScan {
 public:
  // `progress` may be null. It begins anew when the streams have to be surveyed first. `known_end`: WrittenEnd of
  // another scan of the same bytes; 0 = not known.
  explicit AviScan(File& file, Progress* progress = nullptr, uint64_t known_end = 0)
      : ChainScan(file, progress), known_end_(known_end), chain_(window_) {}

  // Reads the front. `given` (may be null) describes streams whose headers are lost. 0; ZMV_E_UNSUPPORTED_FORMAT for a
  // file that cannot be a recording of this library; ZMV_E_READ, ZMV_E_MEMORY, ZMV_E_CANCELLED.
  int32_t Open(const ZMVFileInfo* given);

  const AviFront& avi() const { return avi_; }
  // Behind the last byte of the file that is not zero.
  uint64_t WrittenEnd() const { return chain_.written_end(); }
  // The number in the headers, and in the names of chunks, of the stream of a frame. A frame of a track that no header
  // describes is found with the number of that track, and belongs to the last stream.
  uint32_t NumberOf(const FoundFrame& frame) const;

 private:
  const Front& front() const override { return avi_.front; }
  Chain& chain() override { return chain_; }
  void Accept(const Record& record, FoundFrame& frame) override;
  uint32_t CodeOf(const Record& record) const;
  uint64_t StatedEnd();

  uint64_t known_end_;
  AviFront avi_;
  AviChain chain_;
  uint64_t units_[avi::kMaxStreams] = {};  // frames, or samples, so far
};

}  // namespace zmv::recover

#endif

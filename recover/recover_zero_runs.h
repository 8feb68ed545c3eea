// Zeros in compressed media: those of a sector that was lost, or those of the encoder.
//
// What a storage medium loses it loses by sectors, so the zeros of a loss begin or stop with one. An encoder's zeros
// (padding behind a picture or between its slices, silence at a constant bit rate) begin and stop anywhere. Streams
// that have shown such zeros are given the benefit of the doubt.
#ifndef ZMV_RECOVER_ZERO_RUNS_H
#define ZMV_RECOVER_ZERO_RUNS_H

#include <cstdint>

#include "recover/zmvrecover.h"

namespace zmv::recover {

// A payload in memory, with where it lies in the file, and with the rest of its first and of its last sector.
struct PayloadView {
  const uint8_t* bytes;  // those of [from, to)
  uint64_t from;
  uint64_t begin;
  uint64_t end;
  uint64_t to;
  bool last;  // nothing was written behind it
};

class ZeroRuns {
 public:
  // True when a sector of the payload, or the end of one, seems to be lost. `least`: zeros in a row that are more than
  // a sound payload of this kind has, as far as nothing else is known of the stream. `stream`: below
  // ZMV_RECOVER_MAX_STREAMS.
  bool ShowLoss(const PayloadView& payload, uint32_t least, uint32_t stream);
  // True when the stream pads its payloads and this one does not end with more zeros than that takes.
  bool EndsPadded(const PayloadView& payload, uint32_t stream) const;

 private:
  struct Run {
    uint64_t begin;
    uint64_t end;
    uint64_t Length() const { return end - begin; }
  };
  static Run Around(const PayloadView& payload, uint64_t end);
  bool IsLoss(const PayloadView& payload, const Run& run, uint32_t least, uint32_t stream);

  uint64_t longest_[ZMV_RECOVER_MAX_STREAMS] = {};  // run that is the encoder's without a doubt; 0 = none
};

}  // namespace zmv::recover

#endif

#include "recover/recover_zero_runs.h"

#include <algorithm>

#include "recover/recover_module.h"

namespace zmv::recover {
namespace {

// What stands beside a lost sector may be zero by itself: a start code begins so.
constexpr uint64_t kOwnZeros = 3;

// Encoders that pad do so up to a multiple of some bytes.
constexpr uint64_t kPadding = 63;

// Goes to the medium together with the record, ahead of the rest: the length that a picture may begin with.
constexpr uint64_t kLengthField = 4;

}  // namespace

// The zeros in front of `end`, and those behind it. What stands in front of the payload counts only when all of it is
// zero.
ZeroRuns::Run ZeroRuns::Around(const PayloadView& payload, uint64_t end) {
  Run run = {end, end};
  while (run.begin > payload.from && payload.bytes[run.begin - 1 - payload.from] == 0) --run.begin;
  if (run.begin != payload.from) run.begin = std::max(run.begin, payload.begin);
  while (run.end < payload.to && payload.bytes[run.end - payload.from] == 0) ++run.end;
  return run;
}

// Learns from runs that are the encoder's.
bool ZeroRuns::IsLoss(const PayloadView& payload, const Run& run, uint32_t least, uint32_t stream) {
  uint64_t& longest = longest_[stream];
  // Where the run, or the file, begins and stops in terms of sectors.
  const bool to_file_end = payload.last && run.end >= payload.end;
  const uint64_t first = SectorStart(run.begin + kSectorSize - 1);
  // However little there is of the file's last sector, all of it can be lost.
  const bool is_last_sector = to_file_end && first < run.end;
  if (run.Length() < least && !is_last_sector) return false;
  const uint64_t stop = to_file_end ? run.end : SectorStart(run.end);
  const bool from_first = first - run.begin <= kOwnZeros;
  const bool to_stop = run.end - stop <= kOwnZeros;
  if (first < stop && (from_first || to_stop)) return longest == 0 || run.Length() > std::max(longest, kPadding);
  // The length of a file can be put down ahead of its bytes.
  if (to_file_end) return run.begin <= payload.begin + kLengthField;
  if (to_stop) return longest == 0;
  longest = std::max(longest, run.Length());
  return false;
}

bool ZeroRuns::ShowLoss(const PayloadView& payload, uint32_t least, uint32_t stream) {
  if (payload.begin == payload.end) return false;
  const auto zero_before = [&](uint64_t position) { return payload.bytes[position - 1 - payload.from] == 0; };
  // What an encoder puts behind a payload tells most about it, so that is seen first.
  bool lost = zero_before(payload.end) && IsLoss(payload, Around(payload, payload.end), least, stream);
  for (uint64_t at = SectorEnd(payload.begin); at < payload.end && !lost; at += kSectorSize) {
    // Nearly every sector ends with something.
    if (!zero_before(at)) [[likely]]
      continue;
    const Run run = Around(payload, at);
    lost = IsLoss(payload, run, least, stream);
    at = std::max(at, SectorStart(run.end));
  }
  return lost;
}

bool ZeroRuns::EndsPadded(const PayloadView& payload, uint32_t stream) const {
  return longest_[stream] != 0 && payload.end - Around(payload, payload.end).begin <= kPadding;
}

}  // namespace zmv::recover

// Ticks of a track and the samples that reach them. Times are single-precision, and ticks pass 32 bits in tables that
// no recorder makes; both are answered by arithmetic, so that no table makes a search go sample by sample.
#ifndef ZMV_MP4_SEEK_TICKS_H
#define ZMV_MP4_SEEK_TICKS_H

#include <cstdint>

#include "base/arith.h"

namespace zmv::mp4::reader {

inline constexpr float kMilliseconds = 1000.0f;
inline constexpr uint64_t kTickModulus = uint64_t{1} << 32;
inline constexpr uint64_t kNever = ~uint64_t{0};

// The fewest ticks whose time in milliseconds reaches `time`; kTickModulus when none do. More ticks never make an
// earlier time, however it is rounded.
constexpr uint64_t TicksThatReach(uint32_t time, uint32_t scale) {
  uint64_t low = 0;
  uint64_t high = kTickModulus;
  const auto reaches = [time, scale](uint64_t ticks) {
    return TicksToUnits(static_cast<uint32_t>(ticks), kMilliseconds, scale) >= time;
  };
  // Rounding moves the answer by no more than some millionths and a millisecond, nearly always.
  const uint64_t guess = uint64_t{time} * scale / 1000;
  const uint64_t margin = (guess >> 20) + scale / 1000 + 2;
  if (guess > margin && guess - margin < high && !reaches(guess - margin)) low = guess - margin + 1;
  if (guess + margin < high && reaches(guess + margin)) high = guess + margin;
  while (low < high) {
    const uint64_t middle = low + (high - low) / 2;
    if (reaches(middle)) {
      high = middle;
    } else {
      low = middle + 1;
    }
  }
  return low;
}

// The smallest n with low <= n * step mod modulus <= high; kNever when there is none. All are below the modulus, which
// has 32 bits and a bit more at most. As in Euclid's algorithm, each round halves the modulus.
constexpr uint64_t FirstMultipleWithin(uint64_t step, uint64_t modulus, uint64_t low, uint64_t high) {
  if (low == 0) return 0;
  if (step == 0) return kNever;
  if (2 * step > modulus) return FirstMultipleWithin(modulus - step, modulus, modulus - high, modulus - low);
  const uint64_t direct = (low + step - 1) / step;
  if (direct * step <= high) return direct;
  // No multiple lies in between before it wraps. n * step = wraps * modulus + rest, which taken modulo the step is the
  // same question for the wraps.
  const uint64_t wraps = FirstMultipleWithin((step - modulus % step) % step, step, low % step, high % step);
  return wraps == kNever ? kNever : (wraps * modulus + low + step - 1) / step;
}

// How many of the next `span` samples, at least 1, of `delta` ticks each to step over to the first one that reaches
// `reach`; all when none does. `dts` does not reach it. Ticks have 32 bits and wrap.
constexpr uint32_t StepsToTicks(uint32_t dts, uint32_t delta, uint64_t reach, uint32_t span) {
  if (reach >= kTickModulus) return span;
  const uint64_t steps = FirstMultipleWithin(delta, kTickModulus, reach - dts, kTickModulus - 1 - dts);
  return steps < span ? static_cast<uint32_t>(steps) : span;
}

}  // namespace zmv::mp4::reader

#endif

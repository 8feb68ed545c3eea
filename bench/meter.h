// What a child process finds out about itself.
#ifndef ZMV_BENCH_METER_H
#define ZMV_BENCH_METER_H

#include <cstdint>

namespace zmv::bench {

// Processor time, user and system, of this process between Start and Stop; several stretches add up. Under callgrind
// the same stretches are the ones whose instructions are counted.
class CpuMeter {
 public:
  void Start();
  void Stop();
  double Nanoseconds() const { return sum_; }

 private:
  double started_ = 0;
  double sum_ = 0;
};

// Memory of this process that no file backs, counted exactly, in bytes; shared pages of a fork count.
int64_t AnonymousBytes();

// Write system calls of this process so far.
int64_t WriteCalls();

}  // namespace zmv::bench

#endif

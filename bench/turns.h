// Runs contenders in turn, each in a process of its own.
#ifndef ZMV_BENCH_TURNS_H
#define ZMV_BENCH_TURNS_H

#include <functional>
#include <string>
#include <vector>

#include "bench/contender.h"

namespace zmv::bench {

struct Contender {
  std::string name;
  Run run;
  Task task;
  bool writes = false;  // its file is removed after every run
};

// One run in a freshly forked child. Throws std::runtime_error when the run fails.
Sample RunInChild(const Contender& contender);

// A figure of a sample.
using Figure = std::function<double(const Sample&)>;

double CpuPerFrame(const Sample& sample);  // nanoseconds
double CpuOfAll(const Sample& sample);     // nanoseconds
double CpuOfClose(const Sample& sample);   // nanoseconds

// The samples of one comparison.
class Turns {
 public:
  // A B C, C B A, A B C ... Contenders that did not handle the same frames are an error.
  Turns(const std::vector<Contender>& contenders, uint32_t turns);

  double Median(size_t contender, const Figure& figure) const;
  // The median over the turns of the ratio within a turn, which neighbours on the machine disturb least.
  double MedianRatio(size_t contender, size_t to, const Figure& figure) const;

 private:
  std::vector<std::vector<Sample>> samples_;  // by contender, then turn
};

double MedianOf(std::vector<double> values);

// A scratch file that goes away with its owner.
class ScratchFile {
 public:
  explicit ScratchFile(std::string path) : path_(std::move(path)) {}
  ~ScratchFile();
  ScratchFile(const ScratchFile&) = delete;
  ScratchFile& operator=(const ScratchFile&) = delete;
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

}  // namespace zmv::bench

#endif

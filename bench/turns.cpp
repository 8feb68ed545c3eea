#include "bench/turns.h"

#include <fmt/core.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <stdexcept>

namespace zmv::bench {
namespace {

constexpr unsigned kTimeLimit = 600;  // seconds

[[noreturn]] void BeChild(const Contender& contender, int out) {
  alarm(kTimeLimit);
  Sample sample;
  const bool good = contender.run(contender.task, sample) && write(out, &sample, sizeof sample) == sizeof sample;
  _exit(good ? 0 : 1);
}

}  // namespace

Sample RunInChild(const Contender& contender) {
  if (contender.writes) unlink(contender.task.path.c_str());
  int ends[2];
  if (pipe(ends) != 0) throw std::runtime_error("no pipe");
  std::fflush(nullptr);
  const pid_t child = fork();
  if (child < 0) throw std::runtime_error("no process");
  if (child == 0) BeChild(contender, ends[1]);
  close(ends[1]);
  Sample sample;
  const ssize_t got = read(ends[0], &sample, sizeof sample);
  close(ends[0]);
  int status = 0;
  waitpid(child, &status, 0);
  if (contender.writes) unlink(contender.task.path.c_str());
  if (status != 0 || got != static_cast<ssize_t>(sizeof sample)) {
    throw std::runtime_error(fmt::format("{} failed on {}", contender.name, contender.task.path));
  }
  return sample;
}

double CpuPerFrame(const Sample& sample) { return sample.cpu_ns / static_cast<double>(sample.frames); }
double CpuOfAll(const Sample& sample) { return sample.cpu_ns; }
double CpuOfClose(const Sample& sample) { return sample.close_ns; }

Turns::Turns(const std::vector<Contender>& contenders, uint32_t turns) : samples_(contenders.size()) {
  for (uint32_t turn = 0; turn < turns; ++turn) {
    for (size_t i = 0; i < contenders.size(); ++i) {
      const size_t at = turn % 2 == 0 ? i : contenders.size() - 1 - i;
      samples_[at].push_back(RunInChild(contenders[at]));
    }
  }
  for (size_t i = 1; i < contenders.size(); ++i) {
    const Sample& first = samples_[0][0];
    const Sample& other = samples_[i][0];
    if (contenders[i].task.minutes == contenders[0].task.minutes &&
        (first.frames != other.frames || first.bytes != other.bytes)) {
      throw std::runtime_error(fmt::format("{} had {} frames of {} bytes, {} had {} of {}", contenders[0].name,
                                           first.frames, first.bytes, contenders[i].name, other.frames, other.bytes));
    }
  }
}

double Turns::Median(size_t contender, const Figure& figure) const {
  std::vector<double> values;
  for (const Sample& sample : samples_[contender]) values.push_back(figure(sample));
  return MedianOf(std::move(values));
}

double Turns::MedianRatio(size_t contender, size_t to, const Figure& figure) const {
  std::vector<double> values;
  for (size_t turn = 0; turn < samples_[contender].size(); ++turn) {
    values.push_back(figure(samples_[contender][turn]) / figure(samples_[to][turn]));
  }
  return MedianOf(std::move(values));
}

double MedianOf(std::vector<double> values) {
  if (values.empty()) return 0;
  const auto middle = values.begin() + static_cast<ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  if (values.size() % 2 == 1) return *middle;
  return (*middle + *std::max_element(values.begin(), middle)) / 2;
}

ScratchFile::~ScratchFile() { unlink(path_.c_str()); }

}  // namespace zmv::bench

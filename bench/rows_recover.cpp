// Recovering a cut recording: processor time against a plain copy, and memory.
#include <fmt/core.h>

#include <algorithm>
#include <stdexcept>

#include "bench/plan.h"
#include "bench/recover_contender.h"
#include "bench/turns.h"

namespace zmv::bench {
namespace {

constexpr double kKib = 1024;
constexpr const char* kGroup = "recover";

Task CutOne(const Container& container, const Profile& profile, uint32_t minutes, const ScratchFile& file) {
  Record(container, profile, minutes, file.path());
  if (!CutRecording(file.path())) throw std::runtime_error(file.path() + " cannot be cut");
  Task task;
  task.container = &container;
  task.profile = &profile;
  task.minutes = minutes;
  task.path = file.path();
  return task;
}

void TimeOf(const Plan& plan, const MeasuredContainer& measured, Report& report) {
  const Container& container = *measured.container;
  const ScratchFile cut(ScratchPath(plan, "cut", container));
  const Task task = CutOne(container, kCamera, plan.recover, cut);
  enum { kToFile, kInPlace, kCopy };
  const Turns turns(
      {{"to a file", &RecoverToFile, task}, {"in place", &RecoverInPlace, task}, {"plain copy", &CopyPlain, task}},
      plan.turns);
  const std::string scene = fmt::format("{} {} {}", container.name, kCamera.name, Span(plan.recover));
  report.Add({kGroup, scene + " to a file: against reading and writing it", turns.MedianRatio(kToFile, kCopy, CpuOfAll),
              "x", measured.marks.recover});
  report.Add({kGroup, scene + " in place: against reading and writing it", turns.MedianRatio(kInPlace, kCopy, CpuOfAll),
              "x", measured.marks.recover});
  const auto time = [&](size_t of, const char* name) {
    report.Add({kGroup, fmt::format("{}: {}", scene, name), turns.Median(of, CpuOfAll) / 1e6, "ms", std::nullopt});
  };
  time(kToFile, "to a file");
  time(kInPlace, "in place");
  time(kCopy, "plain copy");
}

void MemoryOf(const Plan& plan, const MeasuredContainer& measured, const char* name, Run run, Report& report) {
  const Container& container = *measured.container;
  Sample samples[2];
  const uint32_t minutes[] = {plan.brief, plan.hour};
  for (size_t i = 0; i < std::size(minutes); ++i) {
    const ScratchFile cut(ScratchPath(plan, "cut", container));
    Task task = CutOne(container, kTiny, minutes[i], cut);
    task.account = true;
    samples[i] = RunInChild({name, run, task});
  }
  const auto& [brief, hour] = samples;
  const int64_t growth = std::max(hour.memory - brief.memory, hour.peak_memory - brief.peak_memory);
  report.Add({kGroup,
              fmt::format("{} {}: memory, {} more than {}", container.name, name, Span(plan.hour), Span(plan.brief)),
              static_cast<double>(growth) / kKib, "KiB", measured.marks.recover_memory});
  report.Add({kGroup, fmt::format("{} {}: memory, {}", container.name, name, Span(plan.hour)),
              static_cast<double>(std::max(hour.memory, hour.peak_memory)) / kKib, "KiB", std::nullopt});
}

}  // namespace

void MeasureRecovering(const Plan& plan, Report& report) {
  for (const MeasuredContainer& measured : Containers(plan)) {
    if (!measured.marks.recover) continue;
    TimeOf(plan, measured, report);
    MemoryOf(plan, measured, "to a file", &RecoverToFile, report);
    MemoryOf(plan, measured, "in place", &RecoverInPlace, report);
  }
}

}  // namespace zmv::bench

// Processor time of going back to a key frame and reading it.
#include <fmt/core.h>

#include <iterator>

#include "bench/plan.h"
#include "bench/turns.h"

namespace zmv::bench {
namespace {

constexpr uint32_t kSeeks = 2000;

void SeekOne(const Plan& plan, const MeasuredContainer& measured, Report& report) {
  const Container& container = *measured.container;
  const ScratchFile hour(ScratchPath(plan, "hour", container));
  const ScratchFile longest(ScratchPath(plan, "longest", container));
  const struct {
    const ScratchFile& file;
    uint32_t minutes;
  } recordings[] = {{hour, plan.hour}, {longest, plan.longest}};
  std::vector<Contender> contenders;
  for (const auto& [file, minutes] : recordings) {
    Record(container, kTiny, minutes, file.path());
    Task task;
    task.container = &container;
    task.profile = &kTiny;
    task.minutes = minutes;
    task.path = file.path();
    task.repeats = kSeeks;
    contenders.push_back({"library", &SeekLibrary, task});
    contenders.push_back({"libavformat", &SeekLibav, task});
  }
  enum { kHour = 0, kHourPeer = 1, kLongest = 2 };
  const Turns turns(contenders, plan.turns);
  report.Add({"seek", fmt::format("{} {}: against libavformat, same file", container.name, Span(plan.hour)),
              turns.MedianRatio(kHour, kHourPeer, CpuPerFrame), "x", measured.marks.seek});
  report.Add({"seek", fmt::format("{} {} against {}", container.name, Span(plan.longest), Span(plan.hour)),
              turns.MedianRatio(kLongest, kHour, CpuPerFrame), "x", measured.marks.seek_growth});
  for (size_t i = 0; i < contenders.size(); ++i) {
    report.Add({"seek", fmt::format("{} {}: {}", container.name, Span(recordings[i / 2].minutes), contenders[i].name),
                turns.Median(i, CpuPerFrame) / 1000, "us", std::nullopt});
  }
}

}  // namespace

void MeasureSeeking(const Plan& plan, Report& report) {
  for (const MeasuredContainer& measured : Containers(plan)) SeekOne(plan, measured, report);
}

}  // namespace zmv::bench

// What is counted rather than timed: memory, allocations, system calls.
#include <fmt/core.h>

#include <algorithm>

#include "bench/plan.h"
#include "bench/turns.h"

namespace zmv::bench {
namespace {

constexpr double kKib = 1024;
constexpr double kBytesPerCall = 64 * kKib;
// Calls that a recording makes however short it is: its header, the boxes of its end, the sizes put in place.
constexpr double kCallsOfAnyRecording = 64;

// The more of what the process grew by and what the library's own account holds.
double Kib(const Sample& sample) { return static_cast<double>(std::max(sample.memory, sample.peak_memory)) / kKib; }

Task TaskFor(const Plan& plan, const Container& container, uint32_t minutes) {
  Task task;
  task.container = &container;
  task.profile = &kTiny;
  task.minutes = minutes;
  task.path = ScratchPath(plan, "memory", container);
  task.account = true;
  return task;
}

// Growth of the process and of the account, whichever is more, from the short recording to the long one.
double Growth(const Sample& brief, const Sample& longest) {
  return static_cast<double>(std::max(longest.memory - brief.memory, longest.peak_memory - brief.peak_memory)) / kKib;
}

void AddMemory(const char* what, const Container& container, const Plan& plan, const Sample& brief,
               const Sample& longest, std::optional<Mark> mark, Report& report) {
  const std::string name = fmt::format("{} {}", container.name, what);
  report.Add({"memory", fmt::format("{}: {} more than {}", name, Span(plan.longest), Span(plan.brief)),
              Growth(brief, longest), "KiB", mark});
  report.Add({"memory", fmt::format("{}: {}", name, Span(plan.longest)), Kib(longest), "KiB", std::nullopt});
}

void AddPerFrame(const char* what, const Container& container, const Sample& brief, const Sample& longest,
                 std::optional<Mark> mark, Report& report) {
  const double bytes = Growth(brief, longest) * kKib / static_cast<double>(longest.frames - brief.frames);
  report.Add({"memory", fmt::format("{} {}: for every further frame", container.name, what), bytes, "bytes", mark});
}

void AddAllocations(const char* what, const Container& container, const Sample& longest, Mark mark, Report& report) {
  report.Add({"memory", fmt::format("{} {}: allocations per frame", container.name, what),
              static_cast<double>(longest.allocations) / static_cast<double>(longest.frames), "", mark});
}

void MemoryOf(const Plan& plan, const MeasuredContainer& measured, Report& report) {
  const Container& container = *measured.container;
  const Task brief = TaskFor(plan, container, plan.brief);
  const Task longest = TaskFor(plan, container, plan.longest);
  const ScratchFile recording(brief.path);
  const Sample written = RunInChild({"library", &WriteLibrary, brief});
  const Sample read = RunInChild({"library", &ReadLibrary, brief});
  const Sample written_long = RunInChild({"library", &WriteLibrary, longest});
  const Sample read_long = RunInChild({"library", &ReadLibrary, longest});
  AddMemory("write", container, plan, written, written_long, measured.marks.write_memory, report);
  AddPerFrame("write", container, written, written_long, measured.marks.write_memory_per_frame, report);
  AddAllocations("write", container, written_long, measured.marks.write_allocations, report);
  AddMemory("read", container, plan, read, read_long, measured.marks.read_memory, report);
  AddPerFrame("read", container, read, read_long, measured.marks.read_memory_per_frame, report);
  AddAllocations("read", container, read_long, Mark{0, {}}, report);
  const Sample peer_read = RunInChild({"libavformat", &ReadLibav, longest});
  const Sample peer_written = RunInChild({"libavformat", &WriteLibav, longest});
  report.Add({"memory", fmt::format("{} write: {}, libavformat", container.name, Span(plan.longest)), Kib(peer_written),
              "KiB", std::nullopt});
  report.Add({"memory", fmt::format("{} read: {}, libavformat", container.name, Span(plan.longest)), Kib(peer_read),
              "KiB", std::nullopt});
}

void CallsOf(const Plan& plan, const MeasuredContainer& measured, Report& report) {
  for (const Profile* profile : {&kTiny, &kCamera}) {
    Task task = TaskFor(plan, *measured.container, profile == &kTiny ? plan.hour : plan.camera);
    task.profile = profile;
    const Sample ours = RunInChild({"library", &WriteLibrary, task, true});
    const Sample peer = RunInChild({"libavformat", &WriteLibav, task, true});
    const auto per_block = [](const Sample& sample) {
      const double blocks = static_cast<double>(sample.bytes) / kBytesPerCall;
      return std::max(0.0, static_cast<double>(sample.write_calls) - kCallsOfAnyRecording) / blocks;
    };
    const std::string scene = fmt::format("{} {} {}", measured.container->name, profile->name, Span(task.minutes));
    report.Add({"system calls", scene + ": writes per 64 KiB", per_block(ours), "", Mark{1, {}}});
    report.Add({"system calls", scene + ": writes", static_cast<double>(ours.write_calls), "", std::nullopt});
    report.Add(
        {"system calls", scene + ": writes, libavformat", static_cast<double>(peer.write_calls), "", std::nullopt});
  }
}

}  // namespace

void MeasureMemory(const Plan& plan, Report& report) {
  for (const MeasuredContainer& measured : Containers(plan)) MemoryOf(plan, measured, report);
}

void MeasureSystemCalls(const Plan& plan, Report& report) {
  for (const MeasuredContainer& measured : Containers(plan)) CallsOf(plan, measured, report);
}

}  // namespace zmv::bench

// What a run of the benchmark measures, and for how long.
#ifndef ZMV_BENCH_PLAN_H
#define ZMV_BENCH_PLAN_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "bench/contender.h"
#include "bench/report.h"

namespace zmv::bench {

// The marks that differ between containers; what a container has no mark for is shown for information.
struct ContainerMarks {
  std::optional<Mark> write_tiny = {};              // against libavformat, interleaved
  std::optional<Mark> write_camera = {};            // against plain writing
  std::optional<Mark> read_tiny = {};               // against libavformat without parsers
  std::optional<Mark> open_growth = {};             // the long recording against the short one
  std::optional<Mark> open = {};                    // one hour, against libavformat
  std::optional<Mark> open_memory = {};             // KiB, growth from the short recording to the long one
  std::optional<Mark> close = {};                   // of the long recording, against libavformat
  std::optional<Mark> seek = {};                    // one hour, against libavformat
  std::optional<Mark> seek_growth = {};             // the long recording against one hour
  std::optional<Mark> write_memory = {};            // KiB, growth from the short recording to the long one
  std::optional<Mark> read_memory = {};             // KiB, likewise
  std::optional<Mark> write_memory_per_frame = {};  // bytes, that growth by the frame
  std::optional<Mark> read_memory_per_frame = {};
  std::optional<Mark> recover = {};         // against a plain copy of the file; containers without one are left out
  std::optional<Mark> recover_memory = {};  // KiB, growth from the short recording to one hour
  Mark write_allocations = {0, {}};         // per frame
};

struct MeasuredContainer {
  const Container* container;
  ContainerMarks marks;
};

// Durations in minutes.
struct Plan {
  uint32_t turns = 7;
  uint32_t tiny = 60;     // writing and reading tiny frames
  uint32_t camera = 10;   // writing and reading camera frames
  uint32_t brief = 10;    // the short recording that a long one is compared with
  uint32_t hour = 60;     // opening and seeking, against libavformat
  uint32_t recover = 60;  // recovering camera frames
  uint32_t longest = 240;
  uint32_t few = 6;  // instructions: the difference of two runs
  uint32_t more = 12;
  std::string scratch = "/dev/shm";
  std::string container;  // the only one to measure; empty: all
};

// The containers that the plan asks for.
std::vector<MeasuredContainer> Containers(const Plan& plan);

Plan QuickPlan();
Plan SmokePlan();

std::string Span(uint32_t minutes);  // "10 min", "4 h"

// A path in the scratch directory that no other process uses.
std::string ScratchPath(const Plan& plan, const std::string& name, const Container& container);

// The groups of rows. Each adds its rows for every container.
void MeasureWriting(const Plan& plan, Report& report);
void MeasureReading(const Plan& plan, Report& report);
void MeasureOpening(const Plan& plan, Report& report);
void MeasureClosing(const Plan& plan, Report& report);
void MeasureSeeking(const Plan& plan, Report& report);
void MeasureRecovering(const Plan& plan, Report& report);
void MeasureMemory(const Plan& plan, Report& report);
void MeasureSystemCalls(const Plan& plan, Report& report);
void MeasureInstructions(const Plan& plan, Report& report);
void MeasureLibrary(const Plan& plan, Report& report);

// Writes a recording of the library to `path` and compares every frame that comes back. Throws when one differs.
void Record(const Container& container, const Profile& profile, uint32_t minutes, const std::string& path);

// One contender in this process, by name, for the first container of the plan: what runs under callgrind. Reading needs
// a recording, which is made first.
int RunSingle(const Plan& plan, const std::string& name, uint32_t minutes);

}  // namespace zmv::bench

#endif

#include "bench/plan.h"

#include <fmt/core.h>
#include <unistd.h>

#include <stdexcept>

#include "bench/turns.h"
#include "facade/zmvstream_writer.h"

namespace zmv::bench {

const Container kMp4 = {"MP4", ZMV_FORMAT_MP4, ".mp4", "mp4", kVideoScale};

const Container kAvi = {"AVI", ZMV_FORMAT_AVI, ".avi", "avi", kVideoRate};

namespace {

const std::vector<MeasuredContainer>& AllContainers() {
  static const std::vector<MeasuredContainer> kContainers = {
      {&kMp4,
       {.write_tiny = Mark{0.50, 0.30},
        .write_camera = Mark{1.20, 1.08},
        .read_tiny = Mark{0.50, 0.25},
        .open_growth = Mark{1.2, 1.0},
        .open = Mark{0.05, 0.01},
        .open_memory = Mark{64, 0},
        .close = Mark{1.0, 0.35},
        .seek = Mark{1.0, 0.35},
        .seek_growth = Mark{4.2, 1.5},
        .write_memory = Mark{64, 0},
        .read_memory = Mark{64, 0},
        .recover = Mark{1.5, {}},
        .recover_memory = Mark{64, 0}}},
      // Its index is kept in memory, 16 bytes a frame, while it is written and while it is read. While it is written it
      // grows by 1000 frames at a time.
      {&kAvi,
       {.write_tiny = Mark{0.50, 0.32},
        .read_tiny = Mark{0.50, 0.25},
        .open = Mark{0.40, 0.15},
        .close = Mark{1.0, 0.35},
        .write_memory_per_frame = Mark{17, 16},
        .read_memory_per_frame = Mark{26, 16},
        .write_allocations = Mark{0.00101, {}}}},
  };
  return kContainers;
}

}  // namespace

std::vector<MeasuredContainer> Containers(const Plan& plan) {
  std::vector<MeasuredContainer> wanted;
  for (const MeasuredContainer& measured : AllContainers()) {
    if (plan.container.empty() || plan.container == measured.container->name) wanted.push_back(measured);
  }
  if (wanted.empty()) throw std::runtime_error(fmt::format("no container {}", plan.container));
  return wanted;
}

Plan QuickPlan() {
  Plan plan;
  plan.turns = 5;
  plan.tiny = 10;
  plan.camera = 2;
  plan.recover = 10;
  return plan;
}

Plan SmokePlan() {
  Plan plan;
  plan.turns = 1;
  plan.tiny = plan.camera = plan.recover = plan.brief = plan.few = 1;
  plan.hour = plan.longest = plan.more = 2;
  return plan;
}

std::string Span(uint32_t minutes) {
  return minutes % 60 == 0 ? fmt::format("{} h", minutes / 60) : fmt::format("{} min", minutes);
}

std::string ScratchPath(const Plan& plan, const std::string& name, const Container& container) {
  return fmt::format("{}/zmv_bench_{}_{}{}", plan.scratch, getpid(), name, container.extension);
}

void Record(const Container& container, const Profile& profile, uint32_t minutes, const std::string& path) {
  Task task;
  task.container = &container;
  task.profile = &profile;
  task.minutes = minutes;
  task.path = path;
  RunInChild({"recording", &WriteLibrary, task});
  RunInChild({"playing back what was recorded", &CheckLibrary, task});
}

}  // namespace zmv::bench

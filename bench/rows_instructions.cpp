// Instructions per frame, counted by callgrind: the difference of two runs, so that what a run costs once drops out.
#include <fmt/core.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <stdexcept>

#include "bench/plan.h"
#include "bench/turns.h"

namespace zmv::bench {
namespace {

struct Single {
  const char* name;
  const char* what;
  Run run;
  bool reads;       // needs a recording
  bool one_by_one;  // libavformat's writer
  std::optional<Mark> mark;
};

const Single kSingles[] = {
    {"write", "write", &WriteLibrary, false, false, Mark{1500, 700}},
    {"read", "read", &ReadLibrary, true, false, Mark{1800, 800}},
    {"write-libav", "write, libavformat interleaved", &WriteLibav, false, false, {}},
    {"write-libav-one", "write, libavformat av_write_frame", &WriteLibav, false, true, {}},
    {"read-libav", "read, libavformat without parsers", &ReadLibav, true, false, {}},
    {"write-plain", "write, plain fwrite", &WritePlain, false, false, {}},
    {"make", "write: of which making the frames", &MakeFrames, false, false, {}},
};

std::string Self() {
  char path[4096];
  const ssize_t length = readlink("/proc/self/exe", path, sizeof path - 1);
  if (length <= 0) throw std::runtime_error("/proc/self/exe cannot be read");
  return std::string(path, static_cast<size_t>(length));
}

double TotalOf(const std::string& profile) {
  std::ifstream in(profile);
  for (std::string line; std::getline(in, line);) {
    if (line.rfind("totals: ", 0) == 0) return std::stod(line.substr(8));
  }
  throw std::runtime_error("callgrind left no total");
}

double InstructionsOf(const Plan& plan, const Single& single, const Container& container, uint32_t minutes) {
  const ScratchFile profile(ScratchPath(plan, "callgrind", container));
  const std::string command = fmt::format(
      "valgrind -q --tool=callgrind --collect-atstart=no --callgrind-out-file='{}' '{}' --single {} "
      "--container {} --minutes {} --scratch '{}'",
      profile.path(), Self(), single.name, container.name, minutes, plan.scratch);
  if (std::system(command.c_str()) != 0) throw std::runtime_error(fmt::format("failed: {}", command));
  return TotalOf(profile.path());
}

}  // namespace

void MeasureInstructions(const Plan& plan, Report& report) {
  const double frames = static_cast<double>(Count(kTiny, plan.more).frames - Count(kTiny, plan.few).frames);
  for (const MeasuredContainer& measured : Containers(plan)) {
    for (const Single& single : kSingles) {
      const double more = InstructionsOf(plan, single, *measured.container, plan.more);
      const double few = InstructionsOf(plan, single, *measured.container, plan.few);
      report.Add({"instructions", fmt::format("{} W1s {}", measured.container->name, single.what),
                  (more - few) / frames, "/frame", single.mark});
    }
  }
}

int RunSingle(const Plan& plan, const std::string& name, uint32_t minutes) {
  const Container& container = *Containers(plan).front().container;
  for (const Single& single : kSingles) {
    if (name != single.name) continue;
    Task task;
    task.container = &container;
    task.profile = &kTiny;
    task.minutes = minutes;
    task.path = ScratchPath(plan, "single", container);
    task.one_by_one = single.one_by_one;
    const ScratchFile file(task.path);
    if (single.reads) Record(container, kTiny, minutes, task.path);
    Sample sample;
    if (!single.run(task, sample)) throw std::runtime_error(fmt::format("{} failed", name));
    return 0;
  }
  throw std::runtime_error(fmt::format("no contender {}", name));
}

}  // namespace zmv::bench

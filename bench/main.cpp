// zmv_bench: what recording and playback cost, beside libavformat and plain file access.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <exception>
#include <string>
#include <vector>

#include "bench/plan.h"
#include "platform/zmv_host.h"

namespace {

struct Group {
  const char* name;
  void (*measure)(const zmv::bench::Plan& plan, zmv::bench::Report& report);
};

// In the order of the table. Instructions take minutes, so they are measured on request.
constexpr Group kGroups[] = {
    {"write", &zmv::bench::MeasureWriting},   {"read", &zmv::bench::MeasureReading},
    {"open", &zmv::bench::MeasureOpening},    {"close", &zmv::bench::MeasureClosing},
    {"seek", &zmv::bench::MeasureSeeking},    {"recover", &zmv::bench::MeasureRecovering},
    {"memory", &zmv::bench::MeasureMemory},   {"calls", &zmv::bench::MeasureSystemCalls},
    {"library", &zmv::bench::MeasureLibrary}, {"instructions", &zmv::bench::MeasureInstructions},
};
constexpr const char* kOnRequest = "instructions";

struct Options {
  bool quick = false;
  bool smoke = false;
  bool instructions = false;
  uint32_t turns = 0;
  uint32_t minutes = 0;
  std::vector<std::string> only;
  std::string scratch;
  std::string json;
  std::string single;
  std::string container;
};

zmv::bench::Plan MakePlan(const Options& options) {
  using namespace zmv::bench;
  Plan plan = options.smoke ? SmokePlan() : options.quick ? QuickPlan() : Plan();
  if (options.turns != 0) plan.turns = options.turns;
  plan.container = options.container;
  if (!options.scratch.empty()) plan.scratch = options.scratch;
  return plan;
}

bool Wanted(const Options& options, const std::string& name) {
  if (!options.only.empty()) return std::find(options.only.begin(), options.only.end(), name) != options.only.end();
  return name != kOnRequest || options.instructions;
}

int Measure(const Options& options) {
  const zmv::bench::Plan plan = MakePlan(options);
  zmv::bench::Report report;
  for (const Group& group : kGroups) {
    if (!Wanted(options, group.name)) continue;
    std::fprintf(stderr, "%s ...\n", group.name);
    group.measure(plan, report);
  }
  report.Print();
  if (!options.json.empty()) report.WriteJson(options.json);
  // The marks are meant for the full durations.
  return report.Missed() && !options.smoke ? 1 : 0;
}

}  // namespace

int main(int count, char** arguments) {
  Options options;
  CLI::App app("Measures recording and playback against libavformat and plain file access.");
  app.add_flag("--quick", options.quick, "Shorter recordings");
  app.add_flag("--smoke", options.smoke, "Runs everything once on very short recordings; figures mean nothing");
  app.add_flag("--instructions", options.instructions, "Counts instructions per frame, too (needs valgrind)");
  app.add_option("--only", options.only,
                 "Groups: write read open close seek recover memory calls library instructions");
  app.add_option("--turns", options.turns, "Runs of every contender");
  app.add_option("--scratch", options.scratch, "Directory for recordings (/dev/shm)");
  app.add_option("--json", options.json, "Writes the rows to this file, too");
  app.add_option("--single", options.single, "Runs one contender in this process, for a profiler");
  app.add_option("--container", options.container, "Only this container: MP4 or AVI");
  app.add_option("--minutes", options.minutes, "Duration of --single");
  CLI11_PARSE(app, count, arguments);
  ZMVHost_SetTraceSink(0, nullptr, nullptr);
  try {
    if (options.single.empty()) return Measure(options);
    return zmv::bench::RunSingle(MakePlan(options), options.single, std::max(options.minutes, 1u));
  } catch (const std::exception& error) {
    std::fprintf(stderr, "zmv_bench: %s\n", error.what());
    return 2;
  }
}

// Processor time: writing, reading, opening, closing.
#include <fmt/core.h>

#include "bench/plan.h"
#include "bench/turns.h"

namespace zmv::bench {
namespace {

constexpr uint32_t kLibraryOpenings = 50;
constexpr uint32_t kLibavOpenings = 5;

std::string Scene(const Container& container, const Profile& profile, uint32_t minutes) {
  return fmt::format("{} {} {}", container.name, profile.name, Span(minutes));
}

Contender Make(const char* name, Run run, const Task& task, bool writes = false) { return {name, run, task, writes}; }

void WriteOne(const Plan& plan, const MeasuredContainer& measured, const Profile& profile, uint32_t minutes,
              Report& report) {
  Task task;
  task.container = measured.container;
  task.profile = &profile;
  task.minutes = minutes;
  task.path = ScratchPath(plan, "write", *measured.container);
  Task one_by_one = task;
  one_by_one.one_by_one = true;
  enum { kOurs, kInterleaved, kOneByOne, kPlain };
  const Turns turns(
      {Make("library", &WriteLibrary, task, true), Make("libavformat interleaved", &WriteLibav, task, true),
       Make("libavformat", &WriteLibav, one_by_one, true), Make("fwrite", &WritePlain, task, true)},
      plan.turns);
  const bool tiny = &profile == &kTiny;
  const std::string scene = Scene(*measured.container, profile, minutes);
  const auto ratio = [&](size_t to, const char* name, std::optional<Mark> mark) {
    report.Add(
        {"write", fmt::format("{}: against {}", scene, name), turns.MedianRatio(kOurs, to, CpuPerFrame), "x", mark});
  };
  ratio(kInterleaved, "libavformat interleaved", tiny ? measured.marks.write_tiny : std::nullopt);
  ratio(kOneByOne, "libavformat av_write_frame", std::nullopt);
  ratio(kPlain, "plain fwrite", tiny ? std::nullopt : measured.marks.write_camera);
  const auto time = [&](size_t of, const char* name) {
    report.Add({"write", fmt::format("{}: {}", scene, name), turns.Median(of, CpuPerFrame), "ns/frame", std::nullopt});
  };
  time(kOurs, "library");
  time(kInterleaved, "libavformat interleaved");
  time(kOneByOne, "libavformat av_write_frame");
  time(kPlain, "plain fwrite");
}

void ReadOne(const Plan& plan, const MeasuredContainer& measured, const Profile& profile, uint32_t minutes,
             Report& report) {
  const ScratchFile recording(ScratchPath(plan, "read", *measured.container));
  const ScratchFile payload(ScratchPath(plan, "payload", *measured.container));
  Record(*measured.container, profile, minutes, recording.path());
  Task task;
  task.container = measured.container;
  task.profile = &profile;
  task.minutes = minutes;
  task.path = payload.path();
  const Task plain = task;
  RunInChild({"fwrite", &WritePlain, plain});
  task.path = recording.path();
  enum { kOurs, kLibav, kPlain };
  const Turns turns(
      {Make("library", &ReadLibrary, task), Make("libavformat", &ReadLibav, task), Make("fread", &ReadPlain, plain)},
      plan.turns);
  const bool tiny = &profile == &kTiny;
  const std::string scene = Scene(*measured.container, profile, minutes);
  report.Add({"read", scene + ": against libavformat without parsers", turns.MedianRatio(kOurs, kLibav, CpuPerFrame),
              "x", tiny ? measured.marks.read_tiny : std::nullopt});
  report.Add(
      {"read", scene + ": against plain fread", turns.MedianRatio(kOurs, kPlain, CpuPerFrame), "x", std::nullopt});
  const auto time = [&](size_t of, const char* name) {
    report.Add({"read", fmt::format("{}: {}", scene, name), turns.Median(of, CpuPerFrame), "ns/frame", std::nullopt});
  };
  time(kOurs, "library");
  time(kLibav, "libavformat without parsers");
  time(kPlain, "plain fread");
}

void OpenOne(const Plan& plan, const MeasuredContainer& measured, Report& report) {
  const Container& container = *measured.container;
  const ScratchFile brief(ScratchPath(plan, "brief", container));
  const ScratchFile hour(ScratchPath(plan, "hour", container));
  const ScratchFile longest(ScratchPath(plan, "longest", container));
  const struct {
    const ScratchFile& file;
    uint32_t minutes;
  } recordings[] = {{brief, plan.brief}, {hour, plan.hour}, {longest, plan.longest}};
  std::vector<Contender> contenders;
  for (const auto& [file, minutes] : recordings) {
    Record(container, kTiny, minutes, file.path());
    Task task;
    task.container = &container;
    task.profile = &kTiny;
    task.minutes = minutes;
    task.path = file.path();
    task.repeats = kLibraryOpenings;
    contenders.push_back(Make("library", &OpenLibrary, task));
    task.repeats = kLibavOpenings;
    contenders.push_back(Make("libavformat", &OpenLibav, task));
  }
  enum { kBrief = 0, kHour = 2, kLongest = 4, kPeer = 1 };
  const Turns turns(contenders, plan.turns);
  const auto ratio = [&](size_t of, size_t to) { return turns.MedianRatio(of, to, CpuOfAll); };
  report.Add({"open", fmt::format("{} {} against {}", container.name, Span(plan.longest), Span(plan.brief)),
              ratio(kLongest, kBrief), "x", measured.marks.open_growth});
  report.Add({"open", fmt::format("{} {}: against libavformat, same file", container.name, Span(plan.hour)),
              ratio(kHour, kHour + kPeer), "x", measured.marks.open});
  const auto memory = [](const Sample& sample) { return static_cast<double>(sample.memory) / 1024; };
  report.Add({"open", fmt::format("{}: {} more than {}, memory", container.name, Span(plan.longest), Span(plan.brief)),
              turns.Median(kLongest, memory) - turns.Median(kBrief, memory), "KiB", measured.marks.open_memory});
  for (size_t i = 0; i < std::size(recordings); ++i) {
    for (const size_t peer : {size_t{0}, size_t{kPeer}}) {
      const std::string who =
          fmt::format("{} {}: {}", container.name, Span(recordings[i].minutes), contenders[2 * i + peer].name);
      const double microseconds = turns.Median(2 * i + peer, CpuOfAll) / 1000;
      report.Add({"open", who, microseconds, "us", std::nullopt});
      report.Add({"open", who + ", memory", turns.Median(2 * i + peer, memory), "KiB", std::nullopt});
    }
  }
}

void CloseOne(const Plan& plan, const MeasuredContainer& measured, Report& report) {
  Task task;
  task.container = measured.container;
  task.profile = &kTiny;
  task.minutes = plan.longest;
  task.path = ScratchPath(plan, "close", *measured.container);
  const Turns turns({Make("library", &WriteLibrary, task, true), Make("libavformat", &WriteLibav, task, true)},
                    plan.turns);
  const std::string scene = Scene(*measured.container, kTiny, plan.longest);
  report.Add({"close", scene + ": against libavformat's trailer", turns.MedianRatio(0, 1, CpuOfClose), "x",
              measured.marks.close});
  report.Add({"close", scene + ": library", turns.Median(0, CpuOfClose) / 1e6, "ms", std::nullopt});
  report.Add({"close", scene + ": libavformat", turns.Median(1, CpuOfClose) / 1e6, "ms", std::nullopt});
}

}  // namespace

void MeasureWriting(const Plan& plan, Report& report) {
  for (const MeasuredContainer& measured : Containers(plan)) {
    WriteOne(plan, measured, kTiny, plan.tiny, report);
    WriteOne(plan, measured, kCamera, plan.camera, report);
  }
}

void MeasureReading(const Plan& plan, Report& report) {
  for (const MeasuredContainer& measured : Containers(plan)) {
    ReadOne(plan, measured, kTiny, plan.tiny, report);
    ReadOne(plan, measured, kCamera, plan.camera, report);
  }
}

void MeasureOpening(const Plan& plan, Report& report) {
  for (const MeasuredContainer& measured : Containers(plan)) OpenOne(plan, measured, report);
}

void MeasureClosing(const Plan& plan, Report& report) {
  for (const MeasuredContainer& measured : Containers(plan)) CloseOne(plan, measured, report);
}

}  // namespace zmv::bench

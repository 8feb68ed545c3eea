// The library as a file: its size and what a program pays for linking it.
#include <dlfcn.h>
#include <fmt/core.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <cstdlib>
#include <stdexcept>

#include "bench/plan.h"
#include "bench/turns.h"
#include "facade/zmvstream_writer.h"

extern "C" char** environ;

namespace zmv::bench {
namespace {

constexpr uint32_t kStartsPerTurn = 8;

// Where the library lies that this process runs.
std::string LibraryPath() {
  Dl_info info{};
  if (dladdr(reinterpret_cast<void*>(&ZMVWriterOpen), &info) == 0) throw std::runtime_error("dladdr failed");
  return info.dli_fname;
}

double StrippedKib(const Plan& plan) {
  const ScratchFile stripped(ScratchPath(plan, "stripped", kMp4));
  const std::string command = fmt::format("strip -o '{}' '{}'", stripped.path(), LibraryPath());
  struct stat status {};
  if (std::system(command.c_str()) != 0 || stat(stripped.path().c_str(), &status) != 0) {
    throw std::runtime_error(fmt::format("failed: {}", command));
  }
  return static_cast<double>(status.st_size) / 1024;
}

// Processor time in milliseconds from the fork to the end of a program that does nothing.
double StartOnce(const char* program) {
  char* arguments[] = {const_cast<char*>(program), nullptr};
  pid_t child = 0;
  if (posix_spawn(&child, program, nullptr, nullptr, arguments, environ) != 0) {
    throw std::runtime_error(fmt::format("{} does not start", program));
  }
  int status = 0;
  rusage usage{};
  if (wait4(child, &status, 0, &usage) != child || status != 0) {
    throw std::runtime_error(fmt::format("{} failed", program));
  }
  const auto milliseconds = [](const timeval& time) {
    return static_cast<double>(time.tv_sec) * 1000 + static_cast<double>(time.tv_usec) / 1000;
  };
  return milliseconds(usage.ru_utime) + milliseconds(usage.ru_stime);
}

}  // namespace

void MeasureLibrary(const Plan& plan, Report& report) {
  report.Add({"library", "shared library, stripped", StrippedKib(plan), "KiB", Mark{200, {}}});
  std::vector<double> with;
  std::vector<double> without;
  for (uint32_t i = 0; i < plan.turns * kStartsPerTurn; ++i) {
    with.push_back(StartOnce(ZMV_BENCH_START));
    without.push_back(StartOnce(ZMV_BENCH_START_PLAIN));
  }
  report.Add({"library", "start of a program that links it", MedianOf(with), "ms", Mark{2, {}}});
  report.Add({"library", "start of a program that does not", MedianOf(without), "ms", std::nullopt});
}

}  // namespace zmv::bench

#include <cstdio>
#include <memory>
#include <vector>

#include "bench/contender.h"
#include "bench/meter.h"

namespace zmv::bench {
namespace {

constexpr size_t kBufferSize = size_t{64} << 10;

struct CloseFile {
  void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, CloseFile>;

}  // namespace

bool WritePlain(const Task& task, Sample& sample) {
  Workload workload(*task.profile, task.minutes);
  std::vector<char> buffer(kBufferSize);
  CpuMeter cpu;
  cpu.Start();
  File file(std::fopen(task.path.c_str(), "wb"));
  if (!file) return false;
  std::setvbuf(file.get(), buffer.data(), _IOFBF, buffer.size());
  bool good = true;
  for (Frame frame; workload.Next(frame); ++sample.frames) {
    good = std::fwrite(frame.data, 1, frame.size, file.get()) == frame.size && good;
    sample.bytes += frame.size;
  }
  good = std::fclose(file.release()) == 0 && good;
  cpu.Stop();
  sample.cpu_ns = cpu.Nanoseconds();
  return good;
}

bool ReadPlain(const Task& task, Sample& sample) {
  std::vector<uint32_t> sizes;
  {
    Workload workload(*task.profile, task.minutes);
    for (Frame frame; workload.Next(frame);) sizes.push_back(frame.size);
  }
  std::vector<char> buffer(kBufferSize);
  std::vector<uint8_t> payload(kBufferSize);
  CpuMeter cpu;
  cpu.Start();
  File file(std::fopen(task.path.c_str(), "rb"));
  if (!file) return false;
  std::setvbuf(file.get(), buffer.data(), _IOFBF, buffer.size());
  for (const uint32_t size : sizes) {
    if (std::fread(payload.data(), 1, size, file.get()) != size) return false;
    sample.bytes += size;
    ++sample.frames;
  }
  file.reset();
  cpu.Stop();
  sample.cpu_ns = cpu.Nanoseconds();
  return true;
}

bool MakeFrames(const Task& task, Sample& sample) {
  Workload workload(*task.profile, task.minutes);
  CpuMeter cpu;
  cpu.Start();
  for (Frame frame; workload.Next(frame); ++sample.frames) sample.bytes += frame.size;
  cpu.Stop();
  sample.cpu_ns = cpu.Nanoseconds();
  return true;
}

}  // namespace zmv::bench

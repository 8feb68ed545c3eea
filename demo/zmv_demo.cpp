// zmv_demo SAMPLES OUT: records the sample streams into OUT through the writer facade, plays the recordings back
// through the reader facade, and compares every frame with its source.
#include <fmt/core.h>

#include <cstdlib>
#include <exception>
#include <filesystem>

#include "demo/demo_record.h"
#include "demo/demo_verify.h"
#include "platform/zmv_host.h"
#include "tools/zmv/console.h"

namespace zmv::demo {
namespace {

void PrintTable(const std::string& path, const std::vector<Verified>& results) {
  fmt::print("\n{}  ({} bytes)\n", path, tool::Grouped(std::filesystem::file_size(path)));
  fmt::print("  {:<8}{:<8}{:>8}{:>8}{:>12}{:>15}  {}\n", "stream", "codec", "frames", "keys", "bytes", "duration",
             "verified against the source");
  for (const Verified& row : results) {
    fmt::print("  {:<8}{:<8}{:>8}{:>8}{:>12}{:>15}  payloads, key flags; times within {} ms\n", row.stream, row.codec,
               tool::Grouped(row.frames), tool::Grouped(row.key_frames), tool::Grouped(row.bytes),
               tool::ClockText(static_cast<uint64_t>((row.duration_us + 500) / 1000)), row.worst_time_ms);
  }
}

void RecordAndVerify(const std::string& path, const std::vector<DemoStream>& streams) {
  Record(path, streams);
  PrintTable(path, Verify(path, streams));
}

int Run(const std::string& samples, const std::string& out) {
  std::filesystem::create_directories(out);
  const DemoStream sound = LoadAac(samples + "/drive_aac.aac");
  RecordAndVerify(out + "/drive_h264.mp4", {LoadVideo(samples + "/drive_h264.h264", VideoCodec::kH264), sound,
                                            LoadGps(samples + "/drive_gps.gpx")});
  RecordAndVerify(out + "/drive_hevc.mp4", {LoadVideo(samples + "/drive_hevc.hevc", VideoCodec::kHevc), sound});
  fmt::print(
      "\nEvery frame that was recorded came back as it was. (Times may differ by {} ms: the file counts in ticks, "
      "the reader in whole milliseconds.)\nThe recordings are in {}\n",
      kTimeToleranceMs, std::filesystem::absolute(out).lexically_normal().string());
  return 0;
}

}  // namespace
}  // namespace zmv::demo

int main(int argc, char** argv) {
  if (argc != 3) {
    fmt::print(stderr, "Example:\n  zmv_demo samples build/demo\n\nUsage: zmv_demo SAMPLES_DIR OUT_DIR\n");
    return 2;
  }
  if (std::getenv("ZMV_TRACE") == nullptr) ZMVHost_SetTraceSink(0, nullptr, nullptr);
  try {
    return zmv::demo::Run(argv[1], argv[2]);
  } catch (const std::exception& error) {
    fmt::print(stderr, "zmv_demo: {}\n", error.what());
    return 1;
  }
}

// zmv_demo SAMPLES OUT: records the sample streams into OUT through the writer facade, plays the recordings back
// through the reader facade, compares every frame with its source, seeks, and writes the drive to OUT/drive.gpx.
#include <fmt/core.h>

#include <cstdlib>
#include <exception>
#include <filesystem>
#include <stdexcept>

#include "demo/demo_record.h"
#include "demo/demo_seek.h"
#include "demo/demo_verify.h"
#include "platform/zmv_host.h"
#include "tools/zmv/console.h"
#include "tools/zmv/output_file.h"
#include "tools/zmv/telemetry_writer.h"

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

void SeekAndPrint(const std::string& path, const DemoStream& video) {
  fmt::print("\nSeeking in {}\n  {:<20}{:>10}{:>10}{:>14}  {}\n", path, "by", "asked", "reached", "next picture",
             "key frame");
  for (const Sought& row : Seek(path, video)) {
    fmt::print("  {:<20}{:>7} ms{:>7} ms{:>11} ms  {}\n", row.how, row.asked_ms, row.reached_ms, row.frame_ms,
               row.key ? "yes" : "no");
  }
}

void WriteDrive(const std::string& recording, const std::string& path, size_t positions) {
  tool::OutputFile out(path, true);
  tool::DriveOptions options;
  options.place.path = recording;
  const tool::TelemetryReport report = tool::WriteTelemetry(options, "gpx", [&out](std::string_view text) {
    out.Write(ByteView(reinterpret_cast<const uint8_t*>(text.data()), text.size()));
  });
  out.Close();
  if (report.points != positions) {
    throw std::runtime_error(fmt::format("{}: {} of {} positions came back", path, report.points, positions));
  }
  fmt::print("\n{}: the drive, {} positions in {} segment{}\n", path, report.points, report.segments,
             report.segments == 1 ? "" : "s");
}

int Run(const std::string& samples, const std::string& out) {
  std::filesystem::create_directories(out);
  const DemoStream sound = LoadAac(samples + "/drive_aac.aac");
  const DemoStream video = LoadVideo(samples + "/drive_h264.h264", VideoCodec::kH264);
  const DemoStream positions = LoadGps(samples + "/drive_gps.gpx");
  const std::string drive = out + "/drive_h264.mp4";
  RecordAndVerify(drive, {video, sound, positions});
  RecordAndVerify(out + "/drive_hevc.mp4", {LoadVideo(samples + "/drive_hevc.hevc", VideoCodec::kHevc), sound});
  SeekAndPrint(drive, video);
  WriteDrive(drive, out + "/drive.gpx", positions.frames.size());
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

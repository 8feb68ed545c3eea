// zmv_demo SAMPLES OUT: records the sample streams into MP4 and AVI files in OUT through the writer facade, plays the
// recordings back through the reader facade, compares every frame with its source, copies MP4 to AVI and back, seeks,
// and writes the drive to OUT/drive.gpx.
#include <fmt/core.h>

#include <cstdlib>
#include <exception>
#include <filesystem>
#include <stdexcept>

#include "demo/demo_record.h"
#include "demo/demo_seek.h"
#include "demo/demo_verify.h"
#include "platform/zmv_host.h"
#include "tools/zmv/command_line.h"
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

std::vector<DemoStream> FormOf(const std::string& path, const std::vector<DemoStream>& streams) {
  std::vector<DemoStream> stored;
  for (const DemoStream& stream : streams) stored.push_back(IsAvi(path) ? InAvi(stream) : stream);
  return stored;
}

void RecordAndVerify(const std::string& path, const std::vector<DemoStream>& streams) {
  const std::vector<DemoStream> stored = FormOf(path, streams);
  Record(path, stored);
  PrintTable(path, Verify(path, stored));
}

// Copies a recording with the tool; what the copy must hold is known from the source streams.
void RemuxAndVerify(std::string from, std::string to, const std::vector<DemoStream>& streams) {
  std::string words[] = {"zmv", "remux", from, "-o", to, "--force", "--quiet"};
  std::vector<char*> arguments;
  for (std::string& word : words) arguments.push_back(word.data());
  if (tool::RunCommandLine(static_cast<int>(arguments.size()), arguments.data()) != 0) {
    throw std::runtime_error(from + ": could not be copied to " + to);
  }
  fmt::print("\n{} -> {}", from, to);
  PrintTable(to, Verify(to, FormOf(to, streams)));
}

void RemuxThereAndBack(const std::string& out, const std::string& name, const std::vector<DemoStream>& streams) {
  const std::string avi = out + "/remuxed_" + name + ".avi";
  RemuxAndVerify(out + "/drive_" + name + ".mp4", avi, streams);
  RemuxAndVerify(avi, out + "/remuxed_" + name + ".mp4", streams);
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
  const std::vector<DemoStream> h264 = {video, sound, positions};
  const std::vector<DemoStream> hevc = {LoadVideo(samples + "/drive_hevc.hevc", VideoCodec::kHevc), sound};
  const std::string drive = out + "/drive_h264.mp4";
  RecordAndVerify(drive, h264);
  RecordAndVerify(out + "/drive_hevc.mp4", hevc);
  RecordAndVerify(out + "/drive_h264.avi", h264);
  RecordAndVerify(out + "/drive_hevc.avi", hevc);
  RemuxThereAndBack(out, "h264", h264);
  RemuxThereAndBack(out, "hevc", hevc);
  SeekAndPrint(drive, video);
  WriteDrive(drive, out + "/drive.gpx", positions.frames.size());
  fmt::print(
      "\nEvery frame that was recorded came back as it was. (Times may differ by {} ms: the file counts in ticks, "
      "the reader in whole milliseconds.) Copied to AVI and back, too.\nThe recordings are in {}\n",
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

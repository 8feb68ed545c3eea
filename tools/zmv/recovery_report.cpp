#include "tools/zmv/recovery_report.h"

#include <fmt/core.h>

#include <algorithm>
#include <limits>
#include <span>

#include "tools/zmv/interrupt.h"
#include "tools/zmv/playback.h"

namespace zmv::tool {
namespace {

constexpr size_t kMaxNamedHoles = 8;

std::span<const ZMVRecoverStream> StreamsOf(const ZMVRecoverReport& report) {
  return {report.Stream, std::min(report.dwStreamCount, ZMV_RECOVER_MAX_STREAMS)};
}

std::span<const ZMVRecoverHole> HolesOf(const ZMVRecoverReport& report) {
  return {report.Hole, std::min(report.dwHoles, ZMV_RECOVER_MAX_HOLES)};
}

// "1 hole", "2 holes".
std::string Count(uint64_t number, const char* what) {
  return fmt::format("{} {}{}", Grouped(number), what, number == 1 ? "" : "s");
}

// "3 KiB", "1.5 MiB"; whole bytes below 1 KiB.
std::string SizeText(uint64_t bytes) {
  constexpr uint64_t kStep = 1024;
  constexpr const char* kUnits[] = {"KiB", "MiB", "GiB"};
  if (bytes < kStep) return Count(bytes, "byte");
  double size = static_cast<double>(bytes) / kStep;
  size_t unit = 0;
  for (; size >= kStep && unit + 1 < std::size(kUnits); ++unit) size /= kStep;
  std::string number = fmt::format("{:.1f}", size);
  if (number.ends_with(".0")) number.resize(number.size() - 2);
  return number + " " + kUnits[unit];
}

std::string HolesText(const ZMVRecoverReport& report) {
  if (report.dwHoles == 1) {
    return fmt::format("1 hole of {} at byte {}", SizeText(report.Hole[0].llLength),
                       Grouped(report.Hole[0].llPosition));
  }
  std::string text = fmt::format("{}, {} in all: ", Count(report.dwHoles, "hole"), SizeText(report.llHoleBytes));
  const std::span<const ZMVRecoverHole> holes = HolesOf(report);
  const size_t named = std::min(holes.size(), kMaxNamedHoles);
  for (size_t i = 0; i < named; ++i) {
    text +=
        fmt::format("{}{} at byte {}", i == 0 ? "" : ", ", SizeText(holes[i].llLength), Grouped(holes[i].llPosition));
  }
  if (report.dwHoles > named) text += fmt::format(" and {} more", Grouped(report.dwHoles - named));
  return text;
}

std::string UndescribedText(const ZMVRecoverReport& report) {
  std::string names;
  for (const ZMVRecoverStream& stream : StreamsOf(report)) {
    if (stream.bDescribed != 0) continue;
    names += fmt::format("{}{} {}", names.empty() ? "" : ", ", MediaName(stream.dwMediaType), stream.dwTrack);
  }
  return names;
}

}  // namespace

uint32_t ShowProgress(void* console, uint64_t done, uint64_t total) {
  const double part = total == 0 ? 1 : static_cast<double>(done) / static_cast<double>(total);
  static_cast<Console*>(console)->Progress("recovering", part);
  return Interrupt::Requested() ? 1 : 0;
}

ZMVRecoverReport ProbeRecording(const std::string& path, Console& console, ZMVFileInfo* streams) {
  const Interrupt interrupt;
  ZMVRecoverParam param{};
  param.pszPath = path.c_str();
  param.pfnProgress = &ShowProgress;
  param.pContext = &console;
  ZMVRecoverReport report{};
  const int32_t result = ZMVRecoverProbe(&param, &report, streams);
  console.EndProgress();
  if (result < 0) throw LibraryError(path, "cannot be looked through", result);
  return report;
}

Container ContainerOf(const ZMVRecoverReport& report) {
  return report.dwFormat == ZMV_FORMAT_AVI ? Container::kAvi : Container::kMp4;
}

const char* StateName(uint32_t state) {
  switch (state) {
    case ZMV_RECOVER_WHOLE:
      return "whole";
    case ZMV_RECOVER_CUT:
      return "cut";
    case ZMV_RECOVER_DAMAGED:
      return "damaged";
    default:
      return "not a recording";
  }
}

uint64_t RecoveredMs(const ZMVRecoverReport& report) {
  uint64_t first = std::numeric_limits<uint64_t>::max();
  for (const ZMVRecoverStream& stream : StreamsOf(report)) {
    if (stream.dwFrames > 0) first = std::min(first, stream.llFirstTime);
  }
  return report.llLastTime > first ? report.llLastTime - first : 0;
}

std::string FramesText(const ZMVRecoverReport& report) {
  constexpr size_t kHundredths = 2;  // more than one decimal says no more
  std::string time = ClockText(RecoveredMs(report));
  time.resize(time.size() - kHundredths);
  return fmt::format("{} of {}, up to {}", Grouped(report.dwFrames),
                     Count(uint64_t{report.dwFrames} + report.dwDropped, "complete frame"), time);
}

std::vector<std::string> LossTexts(const ZMVRecoverReport& report) {
  std::vector<std::string> texts;
  if (report.dwHoles > 0) texts.push_back(HolesText(report));
  if (report.dwDropped > 0) {
    texts.push_back(Count(report.dwDropped, "frame") + " left out: damaged inside");
  }
  const std::string undescribed = UndescribedText(report);
  if (!undescribed.empty()) {
    texts.push_back("the file's description is lost of: " + undescribed +
                    "; --like takes it from another recording of the same camera");
  }
  return texts;
}

std::vector<std::string> RemarkTexts(const ZMVRecoverReport& report) {
  std::vector<std::string> texts;
  if (report.llIncomplete > 0) {
    texts.push_back(fmt::format("the last frame is not complete: {} of it left out", SizeText(report.llIncomplete)));
  }
  if (report.bUniformTimes != 0) {
    texts.push_back("times are uniform, computed from the rate: an AVI stores none");
  }
  return texts;
}

bool IsIncomplete(const ZMVRecoverReport& report) {
  return report.dwState == ZMV_RECOVER_DAMAGED || !LossTexts(report).empty();
}

Json RecoveryJson(const ZMVRecoverReport& report) {
  Json streams = Json::array();
  for (const ZMVRecoverStream& stream : StreamsOf(report)) {
    streams.push_back({{"media", MediaName(stream.dwMediaType)},
                       {"track", stream.dwTrack},
                       {"frames", stream.dwFrames},
                       {"key_frames", stream.dwKeyFrames},
                       {"first_time_ms", stream.llFirstTime},
                       {"last_time_ms", stream.llLastTime},
                       {"bytes", stream.llBytes},
                       {"described", stream.bDescribed != 0}});
  }
  Json holes = Json::array();
  for (const ZMVRecoverHole& hole : HolesOf(report)) {
    holes.push_back({{"position", hole.llPosition}, {"length", hole.llLength}});
  }
  Json messages = Json::array({FramesText(report)});
  for (const std::string& text : LossTexts(report)) messages.push_back(text);
  for (const std::string& text : RemarkTexts(report)) messages.push_back(text);
  return {{"container", ContainerName(ContainerOf(report))},
          {"state", StateName(report.dwState)},
          {"messages", messages},
          {"frames", report.dwFrames},
          {"dropped", report.dwDropped},
          {"up_to_ms", RecoveredMs(report)},
          {"last_time_ms", report.llLastTime},
          {"uniform_times", report.bUniformTimes != 0},
          {"data_end", report.llDataEnd},
          {"incomplete_bytes", report.llIncomplete},
          {"hole_count", report.dwHoles},
          {"hole_bytes", report.llHoleBytes},
          {"holes", holes},
          {"telemetry", report.bUserData != 0},
          {"can_in_place", report.bCanInPlace != 0},
          {"streams", streams}};
}

}  // namespace zmv::tool

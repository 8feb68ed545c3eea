#include "tools/zmv/import_plan.h"

#include <fmt/core.h>

#include <algorithm>
#include <cmath>
#include <cstring>

#include "tools/zmv/recorder.h"

namespace zmv::tool {
namespace {

constexpr int64_t kSecondUs = 1000000;
constexpr uint32_t kMp41FileType = 1;
constexpr uint32_t kNoFillChunk = 1;  // an AVI takes no space in advance
// With 20 cursors a file, the reader plays three videos beside one other track.
constexpr uint32_t kReadableVideos = 3;
// Up to this value the writer takes rates and durations as they are, above it as thousandths.
constexpr uint32_t kWholeUnits = 1000;

uint32_t WholeOrThousandths(uint64_t value) {
  constexpr uint64_t kMost = UINT32_MAX / kWholeUnits;
  const auto bounded = static_cast<uint32_t>(std::clamp<uint64_t>(value, 1, kMost));
  return bounded <= 1 ? bounded : bounded * kWholeUnits;
}

void AddTrack(MediaSource& source, uint32_t stream, ImportPlan& plan, Console& console) {
  const StreamDescription& description = source.streams()[stream];
  const bool video = description.media == ZMV_MEDIA_VIDEO;
  uint32_t& count = video ? plan.info.dwVideoCount : plan.info.dwAudioCount;
  if (count == (video ? ZMV_MAX_VIDEO : ZMV_MAX_AUDIO)) {
    console.Warning(fmt::format("{} is left out: a recording has room for {} of its kind", description.label, count));
    return;
  }
  if (video) {
    plan.info.m_Video[count] = description.video;
    plan.info.m_Video[count].dwTimeScale = kVideoTimeScale;
  } else {
    plan.info.m_Audio = description.audio;
  }
  plan.tracks.push_back({&source, stream, description.media, count});
  plan.nominal_us.push_back(description.nominal_us);
  ++count;
}

// Odd format chunks are written without a pad, which makes general players stumble. Configurations may end in zeros.
void PadConfiguration(ZMVAudioInfo& audio) {
  if (audio.dwExtraDataSize % 2 == 0 || audio.dwExtraDataSize >= sizeof(audio.abExtraData)) return;
  audio.abExtraData[audio.dwExtraDataSize++] = 0;
}

}  // namespace

ImportPlan PlanImport(const std::vector<std::unique_ptr<MediaSource>>& sources, const std::string& software,
                      Console& console, Container container) {
  ImportPlan plan;
  plan.container = container;
  plan.info.m_dwFileType = kMp41FileType;
  plan.info.dwTimeScale = kVideoTimeScale;
  if (container == Container::kAvi) plan.info.dwAiddValue = kNoFillChunk;
  software.copy(plan.info.szSoftware, sizeof(plan.info.szSoftware) - 1);
  for (const uint32_t media : {ZMV_MEDIA_VIDEO, ZMV_MEDIA_AUDIO}) {
    for (const auto& source : sources) {
      for (uint32_t stream = 0; stream < source->streams().size(); ++stream) {
        if (source->streams()[stream].media == media) AddTrack(*source, stream, plan, console);
      }
    }
  }
  for (const auto& source : sources) plan.duration_us = std::max(plan.duration_us, source->duration_us());
  if (container == Container::kAvi) PadConfiguration(plan.info.m_Audio);
  if (container == Container::kMp4 && plan.info.dwVideoCount > kReadableVideos) {
    console.Warning(fmt::format("{} videos are recorded; at most {} can be played back from one file",
                                plan.info.dwVideoCount, kReadableVideos));
  }
  return plan;
}

std::string SoftwareText(const std::string& given, bool positions, Console& console) {
  if (given.empty()) return positions ? "F zmv " ZMV_VERSION_TEXT : "zmv " ZMV_VERSION_TEXT;
  if (positions && given.front() != 'F') {
    console.Warning(
        "--software: a text that does not begin with F keeps the positions out of the boxes GPSR and SENS; "
        "they are in the text track only");
  }
  if (given.size() >= sizeof(ZMVFileInfo::szSoftware)) {
    console.Warning(fmt::format("--software: only the first {} bytes are used", sizeof(ZMVFileInfo::szSoftware) - 1));
  }
  return given;
}

// The writer keeps 2 x seconds x rate positions in memory. The rate is chosen so that all samples find room, whatever
// their spacing; blank positions at the start of each file included.
void PlanUserData(uint64_t samples, uint64_t seconds, ZMVFileInfo& info) {
  seconds = std::max<uint64_t>(seconds, 1);
  info.m_Text[0].dwRate = WholeOrThousandths(samples / seconds + 1);
  info.dwDuration = WholeOrThousandths(seconds);
}

// The rate that is measured at the end misses the last interval, so whole rates are laid down.
void PlanAviText(int64_t nominal_us, ZMVTextInfo& text) {
  constexpr double kNearlyWhole = 0.01;
  const double rate = static_cast<double>(kSecondUs) / static_cast<double>(std::max<int64_t>(nominal_us, 1));
  text.dwRate = static_cast<uint32_t>(std::clamp(std::round(rate * kWholeUnits), 1.0, 1e9));
  const double whole = std::round(rate);
  text.dwFixedRate =
      whole >= 1 && std::fabs(rate - whole) < kNearlyWhole * whole ? static_cast<uint32_t>(whole) * kWholeUnits : 0;
}

void PlanGps(const GpsTrack& track, ImportPlan& plan) {
  const int64_t span_us = *track.points.back().utc_us - *track.points.front().utc_us;
  plan.info.dwTextCount = 1;
  ZMVTextInfo& text = plan.info.m_Text[0];
  text.dwFourCC = ZMV_FOURCC('G', 'P', 'S', ' ');
  text.dwTimeScale = kTextTimeScale;
  text.dwBufferSize = kTelemetrySize;
  PlanUserData(track.points.size(), static_cast<uint64_t>(std::max(plan.duration_us, span_us) / kSecondUs), plan.info);
  const size_t steps = track.points.size() - 1;
  plan.nominal_us.push_back(steps == 0 ? kSecondUs : std::max<int64_t>(span_us / static_cast<int64_t>(steps), 1000));
  if (plan.container == Container::kAvi) PlanAviText(plan.nominal_us.back(), text);
}

GpsFrames::GpsFrames(const GpsTrack& track, int64_t offset_us) : track_(track), offset_us_(offset_us) {
  while (at_ < track_.points.size() && TimeOf(at_) < 0) ++at_;
  before_start_ = at_;
}

int64_t GpsFrames::TimeOf(size_t index) const {
  return *track_.points[index].utc_us - *track_.points.front().utc_us + offset_us_;
}

bool GpsFrames::Next(int64_t until_us, MediaFrame& frame) {
  if (left() == 0 || TimeOf(at_) > until_us) return false;
  const TelemetryPayload payload = PackTelemetry(track_.points[at_]);
  frame.media = ZMV_MEDIA_TEXT;
  frame.stream = 0;
  frame.time_us = TimeOf(at_);
  frame.key = true;
  frame.data.assign(payload.begin(), payload.end());
  ++at_;
  return true;
}

}  // namespace zmv::tool

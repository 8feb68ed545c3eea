#include "tools/zmv/frame_check.h"

#include "tools/zmv/recovery_report.h"

namespace zmv::tool {
namespace {

std::string DamageText(const ZMVRecoverReport& report) {
  std::string text = "the recording is damaged";
  const char* link = ": ";
  for (const std::string& loss : LossTexts(report)) {
    text += link + loss;
    link = "; ";
  }
  return text + "; its other frames can be recovered";
}

}  // namespace

std::optional<ZMVRecoverReport> CheckFrames(const std::string& path, FileMap& map, Console& console) {
  if (map.size == 0) return std::nullopt;
  const ZMVRecoverReport report = ProbeRecording(path, console);
  if (report.dwState == ZMV_RECOVER_FOREIGN) return std::nullopt;
  // Without its first bytes a file is known by its frames alone.
  if (map.health == Health::kNotRecording) map.container = ContainerOf(report);
  if (report.dwFrames == 0) return report;
  if (report.dwState == ZMV_RECOVER_DAMAGED) {
    map.health = Health::kDamaged;
    map.sentence = DamageText(report);
  } else if (report.dwState == ZMV_RECOVER_CUT && map.health != Health::kCut) {
    map.health = Health::kCut;
    map.sentence = "the recording's index does not agree with its frames, from which it can be rebuilt";
  }
  return report;
}

}  // namespace zmv::tool

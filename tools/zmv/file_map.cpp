#include "tools/zmv/file_map.h"

#include <algorithm>
#include <cctype>
#include <filesystem>

#include "tools/zmv/box_scan.h"
#include "tools/zmv/riff_scan.h"

namespace zmv::tool {

FileMap ScanFile(const std::string& path) { return IsRiff(path) ? ScanRiff(path) : ScanBoxes(path); }

ExitCode ExitCodeOf(Health health) {
  switch (health) {
    case Health::kComplete:
      return kExitDone;
    case Health::kCut:
      return kExitCut;
    case Health::kDamaged:
      return kExitDamaged;
    case Health::kNotRecording:
      break;
  }
  return kExitNotRecording;
}

const char* HealthName(Health health) {
  switch (health) {
    case Health::kComplete:
      return "complete";
    case Health::kCut:
      return "cut";
    case Health::kDamaged:
      return "damaged";
    case Health::kNotRecording:
      break;
  }
  return "not a recording";
}

FileMap ScanReadable(const std::string& path) {
  FileMap map = ScanFile(path);
  if (map.readable) return map;
  const char* const hint = map.health == Health::kCut ? " (zmv recover brings it back)" : "";
  throw ToolError(path + ": " + map.sentence + hint, ExitCodeOf(map.health));
}

const char* ContainerName(Container container) { return container == Container::kMp4 ? "MP4" : "AVI"; }

Container ContainerOfName(const std::string& path) {
  std::string extension = std::filesystem::path(path).extension().string();
  std::transform(extension.begin(), extension.end(), extension.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return extension == ".avi" ? Container::kAvi : Container::kMp4;
}

}  // namespace zmv::tool

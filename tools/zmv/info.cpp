// zmv info: what a recording holds and whether it is whole.
#include <fmt/core.h>

#include <memory>
#include <optional>

#include "tools/zmv/commands.h"
#include "tools/zmv/file_map.h"
#include "tools/zmv/frame_check.h"
#include "tools/zmv/recording_info.h"
#include "tools/zmv/recovery_report.h"

namespace zmv::tool {
namespace {

struct InfoArguments {
  std::string path;
  bool check = false;
};

// What the index tells; nothing when it cannot be read.
std::optional<Json> DescribeByIndex(const std::string& path, const FileMap& map, std::string& trouble) {
  try {
    return DescribeRecording(path, map);
  } catch (const ToolError& error) {
    if (error.code() != kExitDamaged) throw;
    trouble = error.what();
    return std::nullopt;
  }
}

// A whole recording is known by its structure, which is fast. Its frames are looked at when that is not sound, or when
// the index has fewer streams than the recording was begun with.
void RunInfo(const InfoArguments& arguments, Session& session) {
  const std::string& path = arguments.path;
  FileMap map = ScanFile(path);
  std::optional<ZMVRecoverReport> found;
  const bool sound = map.health == Health::kComplete && !arguments.check;
  if (!sound) found = CheckFrames(path, map, session.console);
  if (map.health == Health::kNotRecording) throw ToolError(path + ": " + map.sentence, kExitNotRecording);
  std::string trouble;
  std::optional<Json> described = DescribeByIndex(path, map, trouble);
  if (sound && (!described || (*described)["streams"].size() < map.front.size())) {
    found = CheckFrames(path, map, session.console);
  }
  if (!described && map.health == Health::kComplete) throw ToolError(trouble, kExitDamaged);
  if (!described) map.readable = false;
  if (!described || map.health != Health::kComplete) described = DescribeRecording(path, map);
  Json& info = *described;
  if (found) info["recovery"] = RecoveryJson(*found);
  fmt::print("{}", session.json ? JsonText(info) + "\n" : RecordingText(info));
  session.exit_code = ExitCodeOf(map.health);
  if (map.health != Health::kComplete) session.console.Warning(path + ": " + map.sentence);
}

}  // namespace

void AddInfo(CLI::App& app, Session& session) {
  auto arguments = std::make_shared<InfoArguments>();
  CLI::App* command = AddCommand(
      app, session, "info",
      "Shows what a recording holds and whether it is whole.\n\n"
      "Streams with their configuration, user boxes, recovery boxes, structure; of a cut or damaged recording "
      "what `zmv recover` brings back. Exit code 4: cut, but recoverable; 5: damaged.",
      "  zmv info drive.mp4");
  command->add_option("FILE", arguments->path, "The recording")->required();
  command->add_flag("--check", arguments->check, "Look at every frame, not only at the structure");
  command->callback([arguments, &session] { RunInfo(*arguments, session); });
}

}  // namespace zmv::tool

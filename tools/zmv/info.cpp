// zmv info: what a recording holds and whether it is whole.
#include <fmt/core.h>

#include <memory>
#include <optional>

#include "tools/zmv/box_scan.h"
#include "tools/zmv/commands.h"
#include "tools/zmv/frame_check.h"
#include "tools/zmv/recording_info.h"
#include "tools/zmv/recovery_report.h"

namespace zmv::tool {
namespace {

struct InfoArguments {
  std::string path;
  bool check = false;
};

// A whole recording is known by its structure, which is fast. Any other one is known by its frames.
void RunInfo(const InfoArguments& arguments, Session& session) {
  const std::string& path = arguments.path;
  FileMap map = ScanFile(path);
  std::optional<ZMVRecoverReport> found;
  if (arguments.check || map.health != Health::kComplete) found = CheckFrames(path, map, session.console);
  if (map.health == Health::kNotRecording) throw ToolError(path + ": " + map.sentence, kExitNotRecording);
  Json info;
  try {
    info = DescribeRecording(path, map);
  } catch (const ToolError& error) {
    // An index that cannot be read is of no use, and the frames may still be there.
    if (!found && error.code() == kExitDamaged) found = CheckFrames(path, map, session.console);
    if (!found || map.health == Health::kComplete) throw;
    map.indexed = false;
    info = DescribeRecording(path, map);
  }
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

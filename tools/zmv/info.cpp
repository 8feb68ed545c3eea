// zmv info: what a recording holds and whether it is whole.
#include <fmt/core.h>

#include <memory>

#include "tools/zmv/commands.h"
#include "tools/zmv/file_map.h"
#include "tools/zmv/recording_info.h"

namespace zmv::tool {
namespace {

void RunInfo(const std::string& path, Session& session) {
  const FileMap map = ScanFile(path);
  if (map.health == Health::kNotRecording) throw ToolError(path + ": " + map.sentence, kExitNotRecording);
  const Json info = DescribeRecording(path, map);
  fmt::print("{}", session.json ? JsonText(info) + "\n" : RecordingText(info));
  session.exit_code = ExitCodeOf(map.health);
  if (map.health != Health::kComplete) session.console.Warning(path + ": " + map.sentence);
}

}  // namespace

void AddInfo(CLI::App& app, Session& session) {
  auto path = std::make_shared<std::string>();
  CLI::App* command =
      AddCommand(app, session, "info",
                 "Shows what a recording holds and whether it is whole.\n\n"
                 "Streams with their configuration, user boxes, recovery boxes, structure. Exit code 4: cut, "
                 "but recoverable; 5: damaged.",
                 "  zmv info drive.mp4");
  command->add_option("FILE", *path, "The recording")->required();
  command->callback([path, &session] { RunInfo(*path, session); });
}

}  // namespace zmv::tool

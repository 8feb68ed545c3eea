#include "tools/zmv/command_line.h"

#include <fmt/core.h>

#include <cstdlib>
#include <exception>
#include <memory>

#include "platform/zmv_host.h"
#include "tools/zmv/commands.h"
#include "tools/zmv/interrupt.h"

namespace zmv::tool {
namespace {

constexpr size_t kHelpColumn = 34;

// The name of a sub-command with its summary, for the list in the tool's own help.
class Formatter : public CLI::Formatter {
 public:
  std::string make_subcommand(const CLI::App* command) const override {
    const std::string description = command->get_description();
    const std::string marker = "\n\n";
    const size_t at = description.find(marker);
    const std::string summary = at == std::string::npos ? description : description.substr(at + marker.size());
    return fmt::format("  {:<10} {}\n", command->get_name(), summary.substr(0, summary.find('\n')));
  }
};

}  // namespace

CLI::App* AddCommand(CLI::App& app, Session& session, const std::string& name, const std::string& summary,
                     const std::string& example) {
  CLI::App* command = app.add_subcommand(name, "Example:\n" + example + "\n\n" + summary);
  command->add_flag("--json", session.json, "Write data as JSON");
  command->add_flag("-q,--quiet", session.quiet, "Only errors and warnings on standard error");
  command->parse_complete_callback([&session] { session.console.set_quiet(session.quiet); });
  return command;
}

CLI::Validator NumberFrom(double least, double most) {
  const auto check = [least, most](const std::string& text) {
    double number = 0;
    const bool within = CLI::detail::lexical_cast(text, number) && number >= least && number <= most;
    return within ? std::string() : fmt::format("{} is no number from {} to {}", text, least, most);
  };
  return CLI::Validator(check, fmt::format("{} to {}", least, most));
}

int RunCommandLine(int argc, char** argv) {
  // Sub-commands put trouble into words themselves; ZMV_TRACE shows the library's own account of it.
  if (std::getenv("ZMV_TRACE") == nullptr) ZMVHost_SetTraceSink(0, nullptr, nullptr);
  LetLargeWritesFail();
  Session session;
  CLI::App app(
      "Example:\n  zmv import front.h264 mic.aac --gps drive.gpx -o drive.mp4\n\n"
      "Makes recordings, looks into them and takes them apart.\n\n"
      "Exit codes: 0 done, 1 failed, 2 usage, 3 not a recording, 4 cut but recoverable, 5 damaged.",
      "zmv");
  auto formatter = std::make_shared<Formatter>();
  formatter->column_width(kHelpColumn);
  app.formatter(formatter);
  app.set_version_flag("--version", "zmv " ZMV_VERSION_TEXT);
  app.require_subcommand(1);
  AddImport(app, session);
  AddInfo(app, session);
  AddFrames(app, session);
  AddExport(app, session);
  AddRemux(app, session);
  AddRecover(app, session);
  AddTelemetry(app, session);
  AddAidd(app, session);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? kExitDone : kExitUsage;
  } catch (const ToolError& error) {
    session.console.Error(error.what());
    return error.code();
  } catch (const std::exception& error) {
    session.console.Error(error.what());
    return kExitFailed;
  }
  if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
    session.console.Error("standard output: cannot be written");
    return kExitFailed;
  }
  return session.exit_code;
}

}  // namespace zmv::tool

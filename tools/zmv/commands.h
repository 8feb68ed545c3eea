// The sub-commands. Each adds itself to the command line; running it throws ToolError or sets the exit code.
#ifndef ZMV_TOOLS_COMMANDS_H
#define ZMV_TOOLS_COMMANDS_H

#include <CLI/CLI.hpp>
#include <string>

#include "tools/zmv/console.h"
#include "tools/zmv/tool_error.h"

namespace zmv::tool {

// What all sub-commands share.
struct Session {
  Console console;
  bool json = false;
  bool quiet = false;
  ExitCode exit_code = kExitDone;
};

// A sub-command whose help begins with `example`, with the common options.
CLI::App* AddCommand(CLI::App& app, Session& session, const std::string& name, const std::string& summary,
                     const std::string& example);

// Accepts numbers from `least` to `most`, and what is no number at all ("nan") no more than text.
CLI::Validator NumberFrom(double least, double most);

void AddImport(CLI::App& app, Session& session);
void AddInfo(CLI::App& app, Session& session);
void AddFrames(CLI::App& app, Session& session);
void AddExport(CLI::App& app, Session& session);
void AddRemux(CLI::App& app, Session& session);
void AddTelemetry(CLI::App& app, Session& session);
void AddRecover(CLI::App& app, Session& session);
void AddAidd(CLI::App& app, Session& session);

}  // namespace zmv::tool

#endif

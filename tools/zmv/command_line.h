// The whole command line: parses the arguments, runs the sub-command, returns the exit code.
#ifndef ZMV_TOOLS_COMMAND_LINE_H
#define ZMV_TOOLS_COMMAND_LINE_H

namespace zmv::tool {

int RunCommandLine(int argc, char** argv);

}  // namespace zmv::tool

#endif

// How the tool fails: exit codes, the one exception type, and result codes in plain words.
#ifndef ZMV_TOOLS_TOOL_ERROR_H
#define ZMV_TOOLS_TOOL_ERROR_H

#include <cstdint>
#include <stdexcept>
#include <string>

namespace zmv::tool {

enum ExitCode : int {
  kExitDone = 0,          // done and intact
  kExitFailed = 1,        // could not be done
  kExitUsage = 2,         // the command line makes no sense
  kExitNotRecording = 3,  // not a recording this tool reads
  kExitCut = 4,           // cut, but recoverable
  kExitDamaged = 5,       // damaged: the result is incomplete
};

// Ends the sub-command with a message for people and an exit code.
class ToolError : public std::runtime_error {
 public:
  explicit ToolError(const std::string& message, ExitCode code = kExitFailed)
      : std::runtime_error(message), code_(code) {}
  ExitCode code() const { return code_; }

 private:
  ExitCode code_;
};

// A ZMV_E_* code in plain words, as the end of a sentence; an unknown code as its number.
std::string ResultText(int32_t result);

// "FILE: what: reason".
ToolError LibraryError(const std::string& file, const std::string& what, int32_t result, ExitCode code = kExitFailed);

}  // namespace zmv::tool

#endif

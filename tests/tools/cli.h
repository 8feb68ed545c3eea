// Runs the tool as a person does.
#ifndef ZMV_TESTS_TOOLS_CLI_H
#define ZMV_TESTS_TOOLS_CLI_H

#include <sys/wait.h>

#include <cstdlib>
#include <initializer_list>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/tools/temp_folder.h"

namespace zmv::tool {

struct CliResult {
  int code = -1;  // exit code; -1 when a signal ended it
  std::string out;
  std::string err;
};

inline std::string Quoted(const std::string& text) {
  std::string quoted = "'";
  for (const char c : text) quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return quoted + "'";
}

inline std::string TextOf(const std::string& path) {
  const Bytes bytes = ReadBytes(path);
  return std::string(bytes.begin(), bytes.end());
}

// `zmv ARGUMENTS...`, its output through files in `folder`.
inline CliResult Zmv(const TempFolder& folder, const std::vector<std::string>& arguments) {
  std::string command = Quoted(ZMV_TOOL_PATH);
  for (const std::string& argument : arguments) command += " " + Quoted(argument);
  command += " >" + Quoted(folder / "stdout") + " 2>" + Quoted(folder / "stderr");
  const int status = std::system(command.c_str());
  CliResult result;
  result.code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  result.out = TextOf(folder / "stdout");
  result.err = TextOf(folder / "stderr");
  return result;
}

// A program of the system; its exit code, what it says in `said`.
inline int Program(const TempFolder& folder, const std::string& command, std::string& said) {
  const int status = std::system((command + " >" + Quoted(folder / "said") + " 2>&1").c_str());
  said = TextOf(folder / "said");
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace zmv::tool

#endif

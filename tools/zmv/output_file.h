// Files that the tool writes.
#ifndef ZMV_TOOLS_OUTPUT_FILE_H
#define ZMV_TOOLS_OUTPUT_FILE_H

#include <cstdio>
#include <memory>
#include <string>

#include "tools/zmv/annexb.h"

namespace zmv::tool {

// ToolError when `path` exists and `force` is not given, or is a folder.
void RequireWritable(const std::string& path, bool force);

// ToolError when `path` exists and is a device, a pipe or the like: a new file would take its place.
void RequirePlainOrNew(const std::string& path);

// ToolError when no new file can be made beside `path`.
void RequireFolderOf(const std::string& path);

class OutputFile {
 public:
  OutputFile(const std::string& path, bool force);

  void Write(ByteView bytes);
  // Writes at the file's start, for a header whose sizes are known last.
  void Rewrite(ByteView bytes);
  // Reports what buffered writes hide until now; without it the file may be incomplete.
  void Close();

  const std::string& path() const { return path_; }

 private:
  [[noreturn]] void Fail() const;

  struct CloseFile {
    void operator()(std::FILE* file) const { std::fclose(file); }
  };
  std::string path_;
  std::unique_ptr<std::FILE, CloseFile> file_;
};

}  // namespace zmv::tool

#endif

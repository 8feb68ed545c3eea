#include "tools/zmv/output_file.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

#include "tools/zmv/tool_error.h"

namespace zmv::tool {

void RequireWritable(const std::string& path, bool force) {
  std::error_code ignored;
  if (std::filesystem::is_directory(path, ignored)) throw ToolError(path + ": is a folder");
  if (!force && std::filesystem::exists(path, ignored)) {
    throw ToolError(path + ": exists already; --force overwrites it");
  }
}

void RequirePlainOrNew(const std::string& path) {
  std::error_code ignored;
  const std::filesystem::file_status status = std::filesystem::status(path, ignored);
  if (std::filesystem::exists(status) && !std::filesystem::is_regular_file(status) &&
      !std::filesystem::is_directory(status)) {
    throw ToolError(path + ": is not a plain file, and is not replaced by one");
  }
}

void RequireFolderOf(const std::string& path) {
  const std::filesystem::path folder = std::filesystem::path(path).parent_path();
  if (access(folder.empty() ? "." : folder.c_str(), W_OK | X_OK) != 0) {
    throw ToolError(path + ": cannot be written: " + std::strerror(errno));
  }
}

OutputFile::OutputFile(const std::string& path, bool force) : path_(path) {
  RequireWritable(path, force);
  file_.reset(std::fopen(path.c_str(), "wb"));
  if (file_ == nullptr) Fail();
}

void OutputFile::Fail() const { throw ToolError(path_ + ": cannot be written: " + std::strerror(errno)); }

void OutputFile::Write(ByteView bytes) {
  if (std::fwrite(bytes.data(), 1, bytes.size(), file_.get()) != bytes.size()) Fail();
}

void OutputFile::Rewrite(ByteView bytes) {
  if (std::fseek(file_.get(), 0, SEEK_SET) != 0) Fail();
  Write(bytes);
}

void OutputFile::Close() {
  if (std::fclose(file_.release()) != 0) Fail();
}

}  // namespace zmv::tool

// A folder of the test's own, removed at its end, and whole files as bytes.
#ifndef ZMV_TESTS_TOOLS_TEMP_FOLDER_H
#define ZMV_TESTS_TOOLS_TEMP_FOLDER_H

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>

#include "tools/zmv/annexb.h"

namespace zmv::tool {

class TempFolder {
 public:
  TempFolder() {
    std::string name = (std::filesystem::temp_directory_path() / "zmv_tools_XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("no folder for the test");
    path_ = name;
  }
  ~TempFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  TempFolder(const TempFolder&) = delete;
  TempFolder& operator=(const TempFolder&) = delete;

  std::string operator/(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

inline Bytes ReadBytes(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) throw std::runtime_error(path + " cannot be opened");
  return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

inline void WriteBytes(const std::string& path, ByteView bytes) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  if (!out) throw std::runtime_error(path + " cannot be written");
}

inline void WriteText(const std::string& path, const std::string& text) {
  WriteBytes(path, ByteView(reinterpret_cast<const uint8_t*>(text.data()), text.size()));
}

inline std::string Sample(const std::string& name) {
  const char* folder = std::getenv("ZMV_SAMPLES");
  if (folder == nullptr) throw std::runtime_error("ZMV_SAMPLES is not set");
  return std::string(folder) + "/" + name;
}

}  // namespace zmv::tool

#endif

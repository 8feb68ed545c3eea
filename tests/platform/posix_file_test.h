// Files of the default host in a directory of their own.
#ifndef ZMV_TESTS_PLATFORM_POSIX_FILE_TEST_H
#define ZMV_TESTS_PLATFORM_POSIX_FILE_TEST_H

#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "platform/zmv_platform.h"

namespace zmv::test {

class PosixFile : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string pattern = (std::filesystem::temp_directory_path() / "zmv_file_XXXXXX").string();
    ASSERT_NE(mkdtemp(pattern.data()), nullptr);
    directory_ = pattern;
  }
  void TearDown() override { std::filesystem::remove_all(directory_); }

  std::string Path(const std::string& name) const { return (directory_ / name).string(); }
  static std::string Content(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
  }
  void Put(const std::string& name, const std::string& content) const {
    std::ofstream(Path(name), std::ios::binary) << content;
  }
  // A text in which every position can be told from its neighbours.
  static std::string Pattern(size_t size) {
    std::string text(size, '\0');
    for (size_t i = 0; i < size; ++i) text[i] = static_cast<char>((i * 131 + i / 251) & 0xFF);
    return text;
  }
  static int64_t Write(void* file, const std::string& text) {
    return ZMV_FileWrite(file, text.data(), static_cast<uint32_t>(text.size()));
  }
  static std::string Read(void* file, uint32_t length) {
    std::string text(length, '\0');
    const int64_t count = ZMV_FileRead(file, text.data(), length);
    text.resize(count > 0 ? static_cast<size_t>(count) : 0);
    return text;
  }

  std::filesystem::path directory_;
};

}  // namespace zmv::test

#endif

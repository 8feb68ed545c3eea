#include "tools/zmv/stream_file.h"

#include <filesystem>

#include "base/zmv_result.h"
#include "tools/zmv/tool_error.h"

namespace zmv::tool {
namespace {

constexpr uint32_t kCacheSize = 4096;
constexpr uint32_t kLargeSize = 1;  // the size follows the type as a 64-bit number
constexpr uint32_t kToTheEnd = 0;

std::string Printable(const uint8_t (&bytes)[4]) {
  std::string text;
  for (const uint8_t byte : bytes) text += byte >= ' ' && byte <= '~' ? static_cast<char>(byte) : '?';
  return text;
}

void RequirePlainFile(const std::string& path, uint64_t& size) {
  std::error_code error;
  if (!std::filesystem::exists(path, error)) throw ToolError(path + ": there is no such file");
  if (!std::filesystem::is_regular_file(path, error)) throw ToolError(path + ": is not a plain file");
  size = std::filesystem::file_size(path, error);
  if (error) throw ToolError(path + ": " + error.message());
  if (size > UINT32_MAX) throw ToolError(path + ": is larger than 4 GiB, recordings are not", kExitNotRecording);
}

}  // namespace

std::string CodeText(uint32_t code) {
  const uint8_t bytes[4] = {static_cast<uint8_t>(code), static_cast<uint8_t>(code >> 8),
                            static_cast<uint8_t>(code >> 16), static_cast<uint8_t>(code >> 24)};
  return Printable(bytes);
}

StreamFile::StreamFile(const std::string& path) {
  RequirePlainFile(path, size_);
  int64_t result = ZMVStreamBuf_Open(&stream_, path.c_str(), 0, ZMV_STREAM_READ);
  if (Failed(result)) throw LibraryError(path, "cannot be read", static_cast<int32_t>(result));
  result = ZMVStreamBuf_Index(stream_, &cursor_, kCacheSize);
  if (Failed(result)) {
    ZMVStreamBuf_Close(stream_);
    throw LibraryError(path, "cannot be read", static_cast<int32_t>(result));
  }
}

StreamFile::~StreamFile() { ZMVStreamBuf_Close(stream_); }

uint64_t StreamFile::position() const { return ZMVStreamBuf_Pos(stream_, cursor_); }

void StreamFile::Seek(uint64_t position) {
  const uint64_t bounded = position < size_ ? position : size_;
  ZMVStreamBuf_Seek(stream_, cursor_, static_cast<uint32_t>(bounded));
}

uint32_t StreamFile::Read(void* to, uint32_t count) {
  const int64_t read = ZMVStreamBuf_ReadBuffer(stream_, cursor_, to, count);
  return read > 0 ? static_cast<uint32_t>(read) : 0;
}

uint32_t StreamFile::U32() {
  int64_t error = 0;
  return static_cast<uint32_t>(ZMVStreamBuf_ReadDWordBE(stream_, cursor_, &error));
}

uint32_t StreamFile::LittleU32() {
  int64_t error = 0;
  return static_cast<uint32_t>(ZMVStreamBuf_ReadDWordLE(stream_, cursor_, &error));
}

uint16_t StreamFile::LittleU16() {
  int64_t error = 0;
  return static_cast<uint16_t>(ZMVStreamBuf_ReadWordLE(stream_, cursor_, &error));
}

std::string StreamFile::Code() {
  uint8_t bytes[4] = {};
  Read(bytes, sizeof(bytes));
  return Printable(bytes);
}

bool StreamFile::ReadHeader(uint64_t position, uint64_t end, BoxHeader& box) {
  if (position >= end || end - position < kBoxHeader) return false;
  Seek(position);
  box.position = position;
  box.header = kBoxHeader;
  box.size = U32();
  box.type = Code();
  if (box.size == kLargeSize) {
    const uint64_t high = U32();
    box.size = high << 32 | U32();
    box.header += sizeof(uint64_t);
  } else if (box.size == kToTheEnd) {
    box.size = end - position;
  }
  return true;
}

}  // namespace zmv::tool

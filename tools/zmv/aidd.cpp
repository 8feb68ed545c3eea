// zmv aidd: shows or rewrites the value that an application may change in a finished recording.
#include "tools/zmv/aidd.h"

#include <fcntl.h>
#include <fmt/core.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstring>
#include <memory>
#include <optional>
#include <string_view>

#include "tools/zmv/annexb.h"
#include "tools/zmv/commands.h"
#include "tools/zmv/recording_info.h"

namespace zmv::tool {
namespace {

// A number of an MP4 begins with its highest byte, one of an AVI with its lowest.
Bytes BytesOf(Container container, uint32_t value) {
  constexpr int kByte = 8;
  if (container == Container::kAvi) return {static_cast<uint8_t>(value), static_cast<uint8_t>(value >> kByte)};
  Bytes bytes;
  for (int shift = 3 * kByte; shift >= 0; shift -= kByte) bytes.push_back(static_cast<uint8_t>(value >> shift));
  return bytes;
}

uint32_t ParseValue(const std::string& text) {
  const bool hex = text.starts_with("0x") || text.starts_with("0X");
  const std::string_view digits = std::string_view(text).substr(hex ? 2 : 0);
  uint32_t value = 0;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value, hex ? 16 : 10);
  if (error != std::errc() || end != digits.data() + digits.size()) {
    throw ToolError(fmt::format("\"{}\" is not a value from 0 to 4294967295 (0xFFFFFFFF)", text), kExitUsage);
  }
  return value;
}

[[noreturn]] void FailWriting(const std::string& path) {
  throw ToolError(path + ": cannot be written: " + std::strerror(errno));
}

class Descriptor {
 public:
  explicit Descriptor(const std::string& path) : fd_(open(path.c_str(), O_WRONLY | O_CLOEXEC)) {
    if (fd_ < 0) FailWriting(path);
  }
  ~Descriptor() { close(fd_); }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;

  int get() const { return fd_; }

 private:
  int fd_;
};

}  // namespace

void RewriteAidd(const std::string& path, const UserValue& found, uint32_t value) {
  if (value > found.largest()) {
    throw ToolError(fmt::format("{}: the value of an AVI goes up to {}, not to {}", path, found.largest(), value),
                    kExitUsage);
  }
  const Bytes bytes = BytesOf(found.container, value);
  const Descriptor file(path);
  errno = ENOSPC;  // a short write leaves it alone
  if (pwrite(file.get(), bytes.data(), bytes.size(), static_cast<off_t>(found.position)) !=
      static_cast<ssize_t>(bytes.size())) {
    FailWriting(path);
  }
  if (fsync(file.get()) != 0) FailWriting(path);
}

namespace {

std::string ValueText(const UserValue& place, uint32_t value) {
  return place.container == Container::kAvi ? fmt::format("{} (0x{:04X})", value, value)
                                            : fmt::format("{} (0x{:08X})", value, value);
}

void RunAidd(const std::string& path, const std::optional<std::string>& text, Session& session) {
  const bool rewrite = text.has_value();
  const uint32_t value = rewrite ? ParseValue(*text) : 0;
  const FileMap map = ScanFile(path);
  if (map.health == Health::kNotRecording) throw ToolError(path + ": " + map.sentence, kExitNotRecording);
  if (!map.aidd && map.container == Container::kAvi) {
    throw ToolError(fmt::format("{}: has no video stream whose header could hold the value; {}", path, map.sentence),
                    map.health == Health::kComplete ? kExitFailed : ExitCodeOf(map.health));
  }
  if (!map.aidd && map.health != Health::kComplete) {
    throw ToolError(fmt::format("{}: has no AIDD box; {}", path, map.sentence), ExitCodeOf(map.health));
  }
  if (!map.aidd) {
    throw ToolError(path +
                    ": has no AIDD box; recordings have one when their software text begins with F and they "
                    "have a text track");
  }
  const UserValue found = *map.aidd;
  if (rewrite) RewriteAidd(path, found, value);
  const uint32_t now = rewrite ? value : found.value;
  if (session.json) {
    Json report = {{"file", path}, {"value", now}, {"position", found.position}};
    if (rewrite) report["previous"] = found.value;
    fmt::print("{}\n", JsonText(report));
  } else {
    fmt::print("{}\n", ValueText(found, now));
  }
  if (rewrite) session.console.Note(fmt::format("{}: was {}", path, ValueText(found, found.value)));
}

}  // namespace

void AddAidd(CLI::App& app, Session& session) {
  auto path = std::make_shared<std::string>();
  auto value = std::make_shared<std::optional<std::string>>();
  CLI::App* command =
      AddCommand(app, session, "aidd",
                 "Shows or rewrites a recording's AIDD value.\n\n"
                 "The value belongs to the application. It is rewritten in place: 4 bytes change, nothing else; in "
                 "an AVI 2 bytes, where values go up to 65535.",
                 "  zmv aidd drive.mp4\n  zmv aidd drive.mp4 0x10");
  command->add_option("FILE", *path, "The recording")->required();
  command->add_option("VALUE", *value, "The new value: 0 to 4294967295, or hexadecimal with 0x");
  command->callback([path, value, &session] { RunAidd(*path, *value, session); });
}

}  // namespace zmv::tool

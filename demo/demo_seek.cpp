#include "demo/demo_seek.h"

#include <fmt/core.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <stdexcept>

#include "demo/demo_verify.h"
#include "facade/zmvstream_reader.h"

namespace zmv::demo {
namespace {

constexpr uint8_t kVideoLeads = 0;
constexpr uint8_t kBackward = 0;
constexpr uint8_t kForward = 1;

struct CloseReader {
  void operator()(ZMVReader* reader) const { ZMVReaderClose(reader); }
};

struct Request {
  const char* how;
  uint8_t (*seek)(ZMVReader*, uint32_t*, uint8_t);
  uint8_t flag;
  uint32_t time_ms;
};

constexpr Request kRequests[] = {
    {"time", &ZMVReaderSeekByTime, kVideoLeads, 4400},
    {"time", &ZMVReaderSeekByTime, kVideoLeads, 1600},
    {"time", &ZMVReaderSeekByTime, kVideoLeads, 0},
    {"key frame, forward", &ZMVReaderSeekByKeyFrame, kForward, 1400},
    {"key frame, forward", &ZMVReaderSeekByKeyFrame, kForward, 3100},
    {"key frame, backward", &ZMVReaderSeekByKeyFrame, kBackward, 4700},
    {"key frame, backward", &ZMVReaderSeekByKeyFrame, kBackward, 2500},
};

// The picture of `video` that was read: its payload, its key flag and its time say so.
bool IsPictureOf(const DemoStream& video, const ZMVFrame& frame) {
  return std::any_of(video.frames.begin(), video.frames.end(), [&frame](const DemoFrame& source) {
    const int64_t distance = std::llabs(source.time_us / 1000 - static_cast<int64_t>(frame.llTimeStamp));
    return distance <= kTimeToleranceMs && source.key == (frame.dwKeyFrame == ZMV_KEY_FRAME) &&
           std::ranges::equal(ByteView(frame.pData, frame.dwSize), source.payload);
  });
}

}  // namespace

std::vector<Sought> Seek(const std::string& path, const DemoStream& video) {
  ZMVReaderParam param{};
  param.pszPath = path.c_str();
  ZMVReader* opened = nullptr;
  if (ZMVReaderOpen(&opened, &param) < 0) throw std::runtime_error(path + ": cannot be opened");
  const std::unique_ptr<ZMVReader, CloseReader> reader(opened);
  const auto info = std::make_unique<ZMVFileInfo>();
  if (ZMVReaderGetInfo(opened, info.get()) < 0) throw std::runtime_error(path + ": cannot be described");
  size_t largest = 0;
  for (const DemoFrame& frame : video.frames) largest = std::max(largest, frame.payload.size());
  Bytes buffer(largest);
  std::vector<Sought> results;
  for (const Request& request : kRequests) {
    Sought result{request.how, request.time_ms, request.time_ms, 0, false};
    const bool done = request.seek(opened, &result.reached_ms, request.flag) == 1;
    ZMVFrame frame{};
    frame.dwMediaType = ZMV_MEDIA_VIDEO;
    frame.pData = buffer.data();
    frame.dwBufSize = static_cast<uint32_t>(buffer.size());
    if (!done || ZMVReaderReadFrame(opened, &frame) < 0) {
      throw std::runtime_error(fmt::format("{}: {}: {} ms cannot be reached", path, request.how, request.time_ms));
    }
    result.frame_ms = frame.llTimeStamp;
    result.key = frame.dwKeyFrame == ZMV_KEY_FRAME;
    const int64_t distance = std::llabs(static_cast<int64_t>(result.frame_ms) - result.reached_ms);
    const bool backward = request.seek == &ZMVReaderSeekByKeyFrame && request.flag == kBackward;
    if (distance > kTimeToleranceMs || !IsPictureOf(video, frame) || (backward && !result.key)) {
      throw std::runtime_error(fmt::format("{}: {}: {} ms led to {} ms, and to a picture at {} ms", path, request.how,
                                           request.time_ms, result.reached_ms, result.frame_ms));
    }
    results.push_back(result);
  }
  return results;
}

}  // namespace zmv::demo

#include "demo/demo_verify.h"

#include <fmt/core.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <stdexcept>

#include "facade/zmvstream_reader.h"
#include "tools/zmv/playback.h"
#include "tools/zmv/tool_error.h"

namespace zmv::demo {
namespace {

struct CloseReader {
  void operator()(ZMVReader* reader) const { ZMVReaderClose(reader); }
};

class Verifier {
 public:
  explicit Verifier(const std::string& path) : path_(path), info_(std::make_unique<ZMVFileInfo>()) {
    ZMVReaderParam param{};
    param.pszPath = path_.c_str();
    ZMVReader* opened = nullptr;
    Check(ZMVReaderOpen(&opened, &param), "cannot be opened");
    reader_.reset(opened);
    Check(ZMVReaderGetInfo(opened, info_.get()), "its description cannot be read");
  }

  Verified Stream(const DemoStream& source) {
    Verified result;
    result.stream = tool::MediaName(source.media);
    result.codec = source.codec;
    Configuration(source);
    for (size_t i = 0; i < source.frames.size(); ++i) Frame(source, i, result);
    Bytes buffer(1);
    ZMVFrame frame = Request(source.media, buffer);
    if (static_cast<uint32_t>(ZMVReaderReadFrame(reader_.get(), &frame)) != ZMV_E_END) {
      Differ(source, source.frames.size(), "there are more frames than in the source");
    }
    result.duration_us = source.frames.back().time_us + source.nominal_us;
    return result;
  }

 private:
  void Check(int32_t result, const char* what) const {
    if (result < 0) throw std::runtime_error(path_ + ": " + what + ": " + tool::ResultText(result));
  }

  [[noreturn]] void Differ(const DemoStream& source, size_t frame, const std::string& what) const {
    throw std::runtime_error(fmt::format("{}: {} frame {}: {}", path_, tool::MediaName(source.media), frame, what));
  }

  static ZMVFrame Request(uint32_t media, Bytes& buffer) {
    ZMVFrame frame{};
    frame.dwMediaType = media;
    frame.pData = buffer.data();
    frame.dwBufSize = static_cast<uint32_t>(buffer.size());
    return frame;
  }

  void Configuration(const DemoStream& source) const {
    if (source.media == ZMV_MEDIA_TEXT) return;
    const bool video = source.media == ZMV_MEDIA_VIDEO;
    const uint8_t* data = video ? info_->m_Video[0].abExtraData : info_->m_Audio.abExtraData;
    const uint32_t size = video ? info_->m_Video[0].dwExtraDataSize : info_->m_Audio.dwExtraDataSize;
    ByteView stored(data, size);
    // Format chunks of an AVI are filled up with zeros.
    while (IsAvi(path_) && stored.size() > source.configuration.size() && stored.back() == 0) {
      stored = stored.first(stored.size() - 1);
    }
    if (!std::ranges::equal(stored, source.configuration)) Differ(source, 0, "the configuration differs");
  }

  void Frame(const DemoStream& source, size_t index, Verified& result) {
    const DemoFrame& expected = source.frames[index];
    Bytes buffer(expected.payload.size());
    ZMVFrame frame = Request(source.media, buffer);
    const int32_t read = ZMVReaderReadFrame(reader_.get(), &frame);
    if (read < 0) Differ(source, index, "cannot be read: " + tool::ResultText(read));
    if (frame.dwSize != expected.payload.size() || buffer != expected.payload)
      Differ(source, index, "the payload differs");
    if ((frame.dwKeyFrame == ZMV_KEY_FRAME) != expected.key) Differ(source, index, "the key flag differs");
    const int64_t expected_ms = (expected.time_us + 500) / 1000;
    const int64_t distance = std::llabs(static_cast<int64_t>(frame.llTimeStamp) - expected_ms);
    if (distance > kTimeToleranceMs) {
      Differ(source, index, fmt::format("its time is {} ms, {} ms in the source", frame.llTimeStamp, expected_ms));
    }
    ++result.frames;
    result.bytes += frame.dwSize;
    result.key_frames += expected.key ? 1 : 0;
    result.worst_time_ms = std::max(result.worst_time_ms, distance);
  }

  std::string path_;
  std::unique_ptr<ZMVFileInfo> info_;
  std::unique_ptr<ZMVReader, CloseReader> reader_;
};

}  // namespace

std::vector<Verified> Verify(const std::string& path, const std::vector<DemoStream>& streams) {
  Verifier verifier(path);
  std::vector<Verified> results;
  for (const DemoStream& stream : streams) results.push_back(verifier.Stream(stream));
  return results;
}

}  // namespace zmv::demo

// A writer on a file of the scripted host, and a look into the boxes of what it wrote.
#ifndef ZMV_TESTS_MP4_WRITER_TEST_H
#define ZMV_TESTS_MP4_WRITER_TEST_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "base/byte_order.h"
#include "base/host_memory.h"
#include "mp4/mp4_writer.h"
#include "mp4/zmvstream_mp4_writer.h"
#include "tests/support/scripted_host.h"

namespace zmv::test {

inline constexpr uint32_t kH264 = FourCC("H264");

struct FoundBox {
  std::string type;
  uint32_t position = 0;
  uint32_t size = 0;
};

// The boxes of bytes[begin, end); ends at the first size that does not fit.
inline std::vector<FoundBox> BoxesIn(const ByteVector& bytes, size_t begin, size_t end) {
  std::vector<FoundBox> boxes;
  while (begin + 8 <= end) {
    const uint32_t size = LoadBE32(&bytes[begin]);
    if (size < 8 || begin + size > end) break;
    boxes.push_back({std::string(&bytes[begin + 4], &bytes[begin + 8]), static_cast<uint32_t>(begin), size});
    begin += size;
  }
  return boxes;
}

inline std::vector<std::string> Types(const std::vector<FoundBox>& boxes) {
  std::vector<std::string> types;
  for (const FoundBox& box : boxes) types.push_back(box.type);
  return types;
}

inline ByteVector BytesOf(const ByteVector& bytes, const FoundBox& box) {
  return ByteVector(bytes.begin() + box.position, bytes.begin() + box.position + box.size);
}

// The box at a path such as {"moov", "trak", "mdia"}; `ordinal` chooses among the trak boxes. Empty when there is none.
inline ByteVector BoxAt(const ByteVector& bytes, const std::vector<std::string>& path, uint32_t ordinal = 0) {
  size_t begin = 0;
  size_t end = bytes.size();
  ByteVector found;
  for (const std::string& type : path) {
    uint32_t skip = type == "trak" ? ordinal : 0;
    found.clear();
    for (const FoundBox& box : BoxesIn(bytes, begin, end)) {
      if (box.type != type || skip-- != 0) continue;
      found = BytesOf(bytes, box);
      begin = box.position + 8;
      end = box.position + box.size;
      break;
    }
    if (found.empty()) return found;
  }
  return found;
}

inline ByteVector SampleTableBox(const ByteVector& bytes, const std::string& type, uint32_t ordinal = 0) {
  return BoxAt(bytes, {"moov", "trak", "mdia", "minf", "stbl", type}, ordinal);
}

inline uint32_t Be32At(const ByteVector& bytes, size_t position) { return LoadBE32(&bytes.at(position)); }

class WriterTest : public ::testing::Test {
 protected:
  static constexpr const char* kPath = "a.mp4";

  WriterTest() : info(*new ZMVFileInfo()) { std::srand(1); }
  ~WriterTest() override {
    Close();
    FreeHost(mp4::pExtUserLast);
    mp4::pExtUserLast = nullptr;
    EXPECT_THAT(host.LiveList(), ::testing::IsEmpty());
    delete &info;
  }

  // A description of each kind.
  ZMVVideoInfo& AddVideo(uint32_t code = kH264, uint32_t rate = 30000) {
    ZMVVideoInfo& video = info.m_Video[info.dwVideoCount++];
    video.dwFourCC = code;
    video.dwWidth = 640;
    video.dwHeight = 360;
    video.dwFrameRate = rate;
    return video;
  }
  ZMVAudioInfo& AddAudio(uint32_t format = ZMV_AUDIO_AAC) {
    info.dwAudioCount = 1;
    info.m_Audio.dwFormat = format;
    info.m_Audio.dwSampleRate = 48000;
    info.m_Audio.dwChannels = 2;
    info.m_Audio.dwBitsPerSample = 16;
    info.m_Audio.dwBlockAlign = 2048;
    return info.m_Audio;
  }
  ZMVTextInfo& AddText(uint32_t rate = 1000) {
    ZMVTextInfo& text = info.m_Text[info.dwTextCount++];
    text.dwFourCC = FourCC("abcd");
    text.dwRate = rate;
    return text;
  }
  void Brand(const char* text) { std::string_view(text).copy(info.szSoftware, sizeof info.szSoftware); }

  void OpenStream() {
    struct {
      ZMVStreamBuf* stream = nullptr;
    } owner;
    ASSERT_EQ(ZMVStreamBuf_Open(&owner, kPath, 0, ZMV_STREAM_WRITE), 0);
    stream = owner.stream;
  }
  // `expire` 1 makes the shortest horizon: 10 seconds.
  int32_t Open(uint8_t interleave = 1, int64_t expire = 0) {
    if (stream == nullptr) OpenStream();
    return MP4WriterOpen(&writer, stream, interleave, expire);
  }
  int32_t SetInfo() { return MP4WriterSetInfo(writer, &info, 0); }
  void Start(uint8_t interleave = 1, int64_t expire = 0) {
    ASSERT_EQ(Open(interleave, expire), 0);
    ASSERT_EQ(SetInfo(), 0);
  }
  void CloseWriter() {
    if (writer != nullptr) MP4WriterClose(writer);
    writer = nullptr;
  }
  void Close() {
    CloseWriter();
    if (stream != nullptr) ZMVStreamBuf_Close(stream);
    stream = nullptr;
  }

  // A frame of `payload`; `time` and `duration` as the writer takes them.
  int32_t Write(uint32_t media, const ByteVector& payload, uint64_t time, uint32_t duration, uint32_t number = 0,
                uint32_t key = ZMV_NOT_KEY_FRAME) {
    ByteVector copy = payload;
    ZMVFrame frame = {};
    frame.pData = copy.data();
    frame.dwSize = static_cast<uint32_t>(copy.size());
    frame.llTimeStamp = time;
    frame.dwDuration = duration;
    frame.dwMediaType = media;
    frame.dwTrack = number;
    frame.dwKeyFrame = key;
    return MP4WriterWriteFrame(writer, &frame);
  }
  int32_t WriteVideo(size_t size, uint64_t time = 0, uint32_t key = ZMV_NOT_KEY_FRAME, uint32_t duration = 33333) {
    ByteVector payload(size, 0x55);
    if (size >= 4) std::memcpy(payload.data(), "\0\0\0\1", 4);
    return Write(ZMV_MEDIA_VIDEO, payload, time, duration, 0, key);
  }
  int32_t WriteAudio(size_t size, uint64_t time = 0, uint32_t duration = 20) {
    return Write(ZMV_MEDIA_AUDIO, ByteVector(size, 0xAA), time, duration);
  }
  int32_t WriteText(size_t size, uint64_t time = 0, uint32_t duration = 1000) {
    return Write(ZMV_MEDIA_TEXT, ByteVector(size, 0x77), time, duration);
  }

  // Video, audio, text and user data, each with room for ten entries in every table.
  void StartAll(uint8_t interleave) {
    info = {};
    Brand("F");
    AddVideo(FourCC("H264"), 1000);
    AddAudio().dwBlockAlign = 96000;  // one packet per second
    AddText(1000);
    info.dwDuration = 1;
    Start(interleave, 1);
  }
  void WriteAll(uint32_t frames) {
    for (uint32_t i = 0; i < frames; ++i) {
      WriteVideo(10 + i, i, ZMV_KEY_FRAME, 30000 + 1000 * i);
      WriteAudio(10 + i, i, 20 + i);
      WriteText(92 + i, i, 1000 + i);
    }
  }

  MP4WriterTrack& Track(uint32_t number = 0) { return *writer->m_pTrack[number]; }
  ByteVector& File() { return host.File(kPath); }
  ByteVector FileFrom(size_t position) {
    return ByteVector(File().begin() + static_cast<long>(position), File().end());
  }
  uint32_t MdatEnd() const { return mp4::MdatEnd(*writer); }

  ScriptedHost host;
  ZMVFileInfo& info;
  ZMVStreamBuf* stream = nullptr;
  MP4WriterHandle* writer = nullptr;
};

// A stream that counts what it is given and keeps nothing. Its size may pass what a position can express.
struct CountingStream {
  ZMVStreamBuf handle = {};
  uint32_t cursors = 0;
  uint64_t position = 0;
  uint64_t end = 0;
  uint64_t written = 0;
  uint64_t writes = 0;

  static CountingStream& Of(void* context) { return *static_cast<CountingStream*>(context); }
  CountingStream() {
    handle.hInOut = this;
    handle.Index = [](void* context, uint32_t* idx, uint32_t) -> int64_t {
      *idx = Of(context).cursors++;
      return 0;
    };
    handle.WriteBuffer = [](void* context, uint32_t, const void*, uint32_t len) -> int64_t {
      Of(context).position += len;
      Of(context).end = std::max(Of(context).end, Of(context).position);
      Of(context).written += len;
      ++Of(context).writes;
      return len;
    };
    handle.ReadBuffer = [](void*, uint32_t, void* dst, uint32_t len) -> int64_t {
      std::memset(dst, 0, len);
      return len;
    };
    handle.Seek = [](void* context, uint32_t idx, uint32_t pos) -> int64_t {
      if (idx == 0) Of(context).position = pos;
      return 0;
    };
    handle.Pos = [](void* context, uint32_t) { return static_cast<uint32_t>(Of(context).position); };
    handle.GetFilesize = [](void* context) { return static_cast<int64_t>(Of(context).position); };
  }
};

}  // namespace zmv::test

#endif

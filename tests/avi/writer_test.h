// An AVI writer on a file of the scripted host.
#ifndef ZMV_TESTS_AVI_WRITER_TEST_H
#define ZMV_TESTS_AVI_WRITER_TEST_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "avi/avi_writer.h"
#include "avi/zmvstream_avi_writer.h"
#include "base/byte_order.h"
#include "base/host_memory.h"
#include "tests/support/scripted_host.h"

namespace zmv::test {

inline constexpr uint32_t kH264 = FourCC("H264");
inline constexpr unsigned kSeed = 7;

// The data of the random chunk that SetInfo writes after srand(seed).
inline uint32_t RandomJunkSize(unsigned seed = kSeed) {
  std::srand(seed);
  const uint32_t drawn = static_cast<uint32_t>(std::rand()) % 224;
  return 32 + (drawn % 2 == 0 ? drawn : drawn + 1);
}

inline uint32_t Le32At(const ByteVector& bytes, size_t position) {
  EXPECT_LE(position + 4, bytes.size());
  return position + 4 > bytes.size() ? 0 : LoadLE32(&bytes[position]);
}

inline ByteVector Part(const ByteVector& bytes, size_t position, size_t count = SIZE_MAX) {
  position = std::min(position, bytes.size());
  count = std::min(count, bytes.size() - position);
  const auto begin = bytes.begin() + static_cast<long>(position);
  return ByteVector(begin, begin + static_cast<long>(count));
}

// The position of the nth occurrence of a code; the file's end when there is none.
inline size_t Find(const ByteVector& bytes, std::string_view code, uint32_t ordinal = 0) {
  for (auto at = bytes.begin();; ++at) {
    at = std::search(at, bytes.end(), code.begin(), code.end());
    if (at == bytes.end() || ordinal-- == 0) return static_cast<size_t>(at - bytes.begin());
  }
}

class AviWriterTest : public ::testing::Test {
 protected:
  static constexpr const char* kPath = "a.avi";

  AviWriterTest() : info(*new ZMVFileInfo()) {}
  ~AviWriterTest() override {
    Close();
    EXPECT_THAT(host.LiveList(), ::testing::IsEmpty());
    delete &info;
  }

  // ---- Descriptions
  ZMVVideoInfo& AddVideo(uint32_t code = kH264, uint32_t rate = 25000) {
    ZMVVideoInfo& video = info.m_Video[info.dwVideoCount++];
    video.dwFourCC = code;
    video.dwWidth = 640;
    video.dwHeight = 360;
    video.dwFrameRate = rate;
    return video;
  }
  ZMVAudioInfo& AddAudio(uint32_t format = ZMV_AUDIO_PCM) {
    info.dwAudioCount = 1;
    info.m_Audio.dwFormat = format;
    info.m_Audio.dwSampleRate = 48000;
    info.m_Audio.dwChannels = 2;
    info.m_Audio.dwBitsPerSample = 16;
    info.m_Audio.dwSamplesPerFrame = 1024;
    info.m_Audio.dwBitRate = format == ZMV_AUDIO_PCM ? 1536000 : 128000;
    return info.m_Audio;
  }
  ZMVTextInfo& AddText(uint32_t rate = 10000) {
    ZMVTextInfo& text = info.m_Text[info.dwTextCount++];
    text.dwFourCC = FourCC("gps ");
    text.dwRate = rate;
    return text;
  }
  void Software(const char* text) { std::string_view(text).copy(info.szSoftware, sizeof info.szSoftware); }
  void NoFill() { info.dwAiddValue = 1; }

  // ---- Recording
  int32_t Open(uint64_t limit = 0) {
    if (stream == nullptr) {
      EXPECT_EQ(ZMVStreamBuf_Open(&stream, kPath, 0, ZMV_STREAM_WRITE), 0);
    }
    return AVIWriterOpen(&writer, stream, 1, limit, 0.0);
  }
  int32_t SetInfo() {
    std::srand(kSeed);
    return AVIWriterSetInfo(writer, &info, 0.0);
  }
  void Start(uint64_t limit = 0) {
    ASSERT_EQ(Open(limit), 0);
    ASSERT_EQ(SetInfo(), 0);
  }
  int32_t Write(uint32_t media, ByteVector payload, uint64_t time, uint32_t duration = 40, uint32_t number = 0,
                uint32_t key = ZMV_NOT_KEY_FRAME) {
    ZMVFrame frame = {};
    frame.pData = payload.data();
    frame.dwSize = static_cast<uint32_t>(payload.size());
    frame.llTimeStamp = time;
    frame.dwDuration = duration;
    frame.dwMediaType = media;
    frame.dwTrack = number;
    frame.dwKeyFrame = key;
    return AVIWriterWriteFrame(writer, &frame);
  }
  int32_t WriteVideo(size_t size, uint64_t time = 0, uint32_t key = ZMV_NOT_KEY_FRAME, uint32_t duration = 40) {
    return Write(ZMV_MEDIA_VIDEO, ByteVector(size, 0x55), time, duration, 0, key);
  }
  int32_t WriteAudio(size_t size, uint64_t time = 0) {
    return Write(ZMV_MEDIA_AUDIO, ByteVector(size, 0xAA), time, 20);
  }
  int32_t WriteText(size_t size, uint64_t time = 0) { return Write(ZMV_MEDIA_TEXT, ByteVector(size, 0x77), time, 100); }
  void CloseWriter() {
    if (writer != nullptr) AVIWriterClose(writer);
    writer = nullptr;
  }
  void Close() {
    CloseWriter();
    if (stream != nullptr) ZMVStreamBuf_Close(stream);
    stream = nullptr;
  }

  // ---- What stands in the file
  ByteVector& File() { return host.File(kPath); }
  AVIWriterStream& Stream(uint32_t number = 0) { return *writer->m_pStream[number]; }
  size_t MoviEnd() const { return static_cast<size_t>(avi::MoviEnd(*writer)); }
  // The entries of the index in memory.
  ByteVector Index() const { return ByteVector(writer->m_pIndex, writer->m_pIndex + writer->m_dwIndexBytes); }
  // The last entry of it.
  ByteVector Entry() const { return Part(Index(), writer->m_dwIndexBytes - 16); }
  // A number at `offset` in the nth stream header.
  uint32_t StreamHeader(uint32_t number, size_t offset) {
    return Le32At(File(), Find(File(), "strh", number) + 8 + offset);
  }
  uint32_t MainHeader(size_t offset) { return Le32At(File(), 32 + offset); }

  ScriptedHost host;
  ZMVFileInfo& info;
  ZMVStreamBuf* stream = nullptr;
  AVIWriterHandle* writer = nullptr;
};

// Offsets in a stream header.
inline constexpr size_t kRate = 24;
inline constexpr size_t kLength = 32;
inline constexpr size_t kSuggestedSize = 36;

inline ByteVector IndexEntryOf(const char* code, uint32_t flags, uint32_t offset, uint32_t size) {
  return Join({Text(code), Le32(flags), Le32(offset), Le32(size)});
}

}  // namespace zmv::test

#endif

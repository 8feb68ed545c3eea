// What the tests of the MP4 reader share: a reader on a file in memory, and frames read from it.
#ifndef ZMV_TESTS_READER_TEST_H
#define ZMV_TESTS_READER_TEST_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>

#include "base/fourcc.h"
#include "mp4/zmvstream_mp4_reader.h"
#include "mp4/zmvstream_mp4_reader_records.h"
#include "tests/support/mp4_builder.h"
#include "tests/support/scripted_host.h"

namespace zmv::test {

constexpr uint32_t Code(int64_t result) { return static_cast<uint32_t>(result); }

struct ReadResult {
  uint32_t code;
  ZMVFrame frame;
  ByteVector data;
};

class ReaderTest : public ::testing::Test {
 protected:
  ~ReaderTest() override {
    Close();
    EXPECT_EQ(host_.LiveBlocks(), 0u) << ::testing::PrintToString(host_.LiveList());
  }

  // Puts a file there and opens a reader on it, in place of an earlier one.
  void Load(const ByteVector& bytes) {
    Close();
    host_.PutFile("a.mp4", bytes);
    ASSERT_EQ(ZMVStreamBuf_Open(&stream_, "a.mp4", 0, ZMV_STREAM_READ), 0);
    ASSERT_EQ(MP4FReaderOpen(&reader_, stream_), 0);
  }
  uint32_t GetInfo() { return Code(MP4FReaderGetInfo(reader_, info_.get())); }
  // Opens and describes a file.
  uint32_t Describe(const ByteVector& bytes) {
    Load(bytes);
    return GetInfo();
  }
  void Close() {
    MP4FReaderClose(reader_);
    reader_ = nullptr;
    ZMVStreamBuf_Close(stream_);
    stream_ = nullptr;
  }

  ReadResult Read(uint32_t media, uint32_t capacity = 4096, uint32_t track = 0) {
    return ReadWith(&MP4FReaderReadFrame, media, capacity, track);
  }
  ReadResult ReadInfo(uint32_t media, uint32_t capacity = 4096, uint32_t track = 0) {
    return ReadWith(&MP4FReaderReadFrameInfo, media, capacity, track);
  }
  MP4ReaderTrack& Track(uint32_t slot) { return *reader_->m_pTrack[slot]; }
  uint32_t CursorsInUse() const { return static_cast<const uint32_t*>(stream_->hInOut)[432 / 4]; }

  // Calls a parser on the bytes of a payload.
  template <typename Parser>
  uint32_t Parse(Parser parser, const ByteVector& payload) {
    return ParseAs(parser, payload, static_cast<uint32_t>(payload.size()));
  }
  template <typename Parser>
  uint32_t ParseAs(Parser parser, const ByteVector& payload, uint32_t size) {
    Load(payload);
    track_ = MP4ReaderFindTrak(reader_, 1);
    return Code(parser(reader_, track_, size));
  }

  static ByteVector Config(const MP4ReaderTrack& track) {
    return track.m_pConfig == nullptr ? ByteVector{}
                                      : ByteVector(track.m_pConfig, track.m_pConfig + track.m_dwConfigSize);
  }

  ScriptedHost host_;
  ZMVStreamBuf* stream_ = nullptr;
  MP4FReaderHandle* reader_ = nullptr;
  MP4ReaderTrack* track_ = nullptr;
  std::unique_ptr<ZMVFileInfo> info_ = std::make_unique<ZMVFileInfo>();

 private:
  template <typename Call>
  ReadResult ReadWith(Call call, uint32_t media, uint32_t capacity, uint32_t track) {
    constexpr uint8_t kGuard = 0xA5;
    ByteVector buffer(capacity + 8, kGuard);
    ReadResult result{};
    result.frame.pData = buffer.data();
    result.frame.dwBufSize = capacity;
    result.frame.dwMediaType = media;
    result.frame.dwTrack = track;
    result.code = Code(call(reader_, &result.frame));
    EXPECT_EQ(ByteVector(buffer.end() - 8, buffer.end()), ByteVector(8, kGuard)) << "written past the buffer";
    if (result.code == 0) {
      result.data.assign(buffer.begin(),
                         buffer.begin() + static_cast<ptrdiff_t>(std::min(result.frame.dwSize, capacity)));
    }
    return result;
  }
};

}  // namespace zmv::test

#endif

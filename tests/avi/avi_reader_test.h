// What the tests of the AVI reader's headers and indexes share: a reader on a file in memory.
//
// Where things lie in a file of the builder: the "hdrl" list begins at 12, the data of "avih" at 32, the first "strl"
// list at 88, the data of its "strh" at 108 and of its "strf" at 172. A stream takes 84 bytes and its format.
#ifndef ZMV_TESTS_AVI_READER_TEST_H
#define ZMV_TESTS_AVI_READER_TEST_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "avi/zmvstream_avi_reader.h"
#include "avi/zmvstream_avi_reader_records.h"
#include "base/fourcc.h"
#include "tests/support/avi_builder.h"
#include "tests/support/scripted_host.h"

namespace zmv::test {

constexpr uint32_t Code(int64_t result) { return static_cast<uint32_t>(result); }

inline ByteVector Front(const ByteVector& bytes, size_t size) {
  return ByteVector(bytes.begin(), bytes.begin() + static_cast<ptrdiff_t>(size));
}

// An index entry as it is kept: flags, position, size.
using Entry = std::vector<uint32_t>;

class AviReaderTest : public ::testing::Test {
 protected:
  ~AviReaderTest() override {
    Close();
    EXPECT_EQ(host_.LiveBlocks(), 0u) << ::testing::PrintToString(host_.LiveList());
  }

  // Puts a file there and opens a reader on it, in place of an earlier one.
  uint32_t TryOpen(const ByteVector& bytes) {
    Close();
    host_.PutFile("a.avi", bytes);
    if (ZMVStreamBuf_Open(&stream_, "a.avi", 0, ZMV_STREAM_READ) != 0) return ZMV_E_OPEN;
    return Code(AVIReaderOpen(&reader_, stream_));
  }
  void Load(const ByteVector& bytes) { ASSERT_EQ(TryOpen(bytes), 0u); }
  uint32_t GetInfo() { return Code(AVIReaderGetInfo(reader_, info_.get(), 1)); }
  // Opens and describes a file.
  uint32_t Describe(const ByteVector& bytes) {
    Load(bytes);
    return GetInfo();
  }
  uint32_t Describe(const AviSpec& file) { return Describe(BuildAvi(file)); }
  void Close() {
    AVIReaderClose(reader_);
    reader_ = nullptr;
    ZMVStreamBuf_Close(stream_);
    stream_ = nullptr;
  }

  AVIReaderStream& Stream(uint32_t number) { return *reader_->m_pStream[number]; }
  std::vector<Entry> Entries(uint32_t number) { return EntriesOf(Stream(number)); }
  static std::vector<Entry> EntriesOf(const AVIReaderStream& stream) {
    std::vector<Entry> entries;
    for (uint32_t i = 0; i < stream.m_dwIndexEntries; ++i) {
      const AVIReaderIndexEntry& entry = stream.m_pIndex[i];
      entries.push_back({entry.m_dwFlags, entry.m_dwPos, entry.m_dwSize});
    }
    return entries;
  }
  uint32_t CursorsInUse() const { return static_cast<const uint32_t*>(stream_->hInOut)[432 / 4]; }
  // The types of the streams, in order.
  std::vector<uint32_t> Media() const {
    std::vector<uint32_t> media;
    for (uint32_t i = 0; i < reader_->m_dwStreamCount; ++i) media.push_back(reader_->m_pStream[i]->m_dwMediaType);
    return media;
  }

  ScriptedHost host_;
  ZMVStreamBuf* stream_ = nullptr;
  AVIReaderHandle* reader_ = nullptr;
  std::unique_ptr<ZMVFileInfo> info_ = std::make_unique<ZMVFileInfo>();
};

// One video and one PCM stream; two pictures, between them a block of sound.
inline AviSpec SmallFile() {
  AviSpec file;
  file.streams = {VideoStream(), PcmStream()};
  file.streams[0].length = 2;
  file.streams[1].length = 8;
  file.chunks = {{"00dc", ByteVector(10, 1)}, {"01wb", ByteVector(8, 2), 0x10}, {"00dc", ByteVector(5, 3), 0}};
  return file;
}

}  // namespace zmv::test

#endif

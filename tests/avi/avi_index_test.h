// What the tests of the AVI reader's indexes share: a reader on bytes of the test's own, with streams made beforehand.
#ifndef ZMV_TESTS_AVI_INDEX_TEST_H
#define ZMV_TESTS_AVI_INDEX_TEST_H

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "tests/avi/avi_reader_test.h"

namespace zmv::test {

class AviIndexTest : public AviReaderTest {
 protected:
  // A reader on a file of `size` bytes that knows `streams` video streams and a "movi" list at 20; `index` lies at
  // 0x40.
  void LoadIndex(const ByteVector& index, uint32_t streams = 2, size_t size = 0x10000) {
    ByteVector file = Riff("AVI ", List("hdrl", ByteVector(0x40 - 24)));
    ASSERT_EQ(file.size(), 0x40u);
    file = Join({file, index});
    if (file.size() < size) file.resize(size);
    AviSpec headers;
    headers.streams.assign(streams, VideoStream());
    headers.has_index = false;
    Load(BuildAvi(headers));
    // The streams are those of a described file; the bytes are replaced under it.
    ASSERT_EQ(GetInfo(), 0u);
    host_.PutFile("b.avi", file);
    AVIReaderHandle* described = reader_;
    ZMVStreamBuf* first = stream_;
    ASSERT_EQ(ZMVStreamBuf_Open(&stream_, "b.avi", 0, ZMV_STREAM_READ), 0);
    ASSERT_EQ(AVIReaderOpen(&reader_, stream_), 0);
    for (uint32_t i = 0; i < streams; ++i) reader_->m_pStream[i] = std::exchange(described->m_pStream[i], nullptr);
    reader_->m_dwStreamCount = std::exchange(described->m_dwStreamCount, 0);
    AVIReaderClose(described);
    ZMVStreamBuf_Close(first);
    reader_->m_dwMoviPos = 20;
    host_.ClearRecords();
  }
  uint32_t ReadIndex(const ByteVector& index, uint32_t streams = 2) {
    LoadIndex(index, streams);
    return Code(AVIReaderReadIndex(reader_, 0x40, static_cast<uint32_t>(index.size())));
  }
  // Puts the cursor at the data of an "indx" chunk at 0x40 and reads it into stream 0.
  uint32_t ReadSuper(const ByteVector& data, uint32_t size) {
    LoadIndex(data);
    EXPECT_EQ(ZMVStreamBuf_Seek(stream_, reader_->m_dwIndex, 0x40), 0);
    return Code(AVIReaderReadStreamIndex(reader_, reader_->m_pStream[0], size));
  }
  uint32_t ReadSuper(const ByteVector& data) { return ReadSuper(data, static_cast<uint32_t>(data.size())); }
  uint32_t Position() const { return ZMVStreamBuf_Pos(stream_, reader_->m_dwIndex); }

  static ByteVector StdChunk(const StdIndexSpec& index) { return Chunk("ix00", StdIndexData(index)); }
  // Standard index chunks at 0x40 and on, named by stream 0's super index in their order.
  uint32_t ReadStd(const std::vector<StdIndexSpec>& indexes) {
    ByteVector chunks;
    std::vector<uint64_t> offsets;
    for (const StdIndexSpec& index : indexes) {
      offsets.push_back(0x40 + chunks.size());
      chunks = Join({chunks, StdChunk(index)});
    }
    LoadIndex(chunks);
    GiveSuper(0, offsets);
    return Code(AVIReaderReadStdIndex(reader_));
  }
  // The super index of a stream, as AVIReaderReadStreamIndex leaves it.
  void GiveSuper(uint32_t number, const std::vector<uint64_t>& offsets) {
    ByteVector data = SuperIndexHeader(0, 0, static_cast<uint32_t>(offsets.size()));
    for (uint64_t offset : offsets) data = Join({data, SuperIndexEntry(offset)});
    ByteVector& file = host_.File("b.avi");
    const size_t at = 0x8000 + 0x1000 * number;
    std::copy(data.begin(), data.end(), file.begin() + static_cast<ptrdiff_t>(at));
    ASSERT_EQ(ZMVStreamBuf_Seek(stream_, reader_->m_dwIndex, static_cast<uint32_t>(at)), 0);
    ASSERT_EQ(AVIReaderReadStreamIndex(reader_, reader_->m_pStream[number], static_cast<uint32_t>(data.size())), 0);
  }
};

}  // namespace zmv::test

#endif

// A reader put together by hand over a file in memory: its streams and indexes say what the test says, whatever the
// headers and the index of the file hold.
//
//     AviSpec file;
//     file.streams = {VideoStream(), PcmStream()};
//     file.chunks = {{"00dc", Bytes({1, 2, 3})}, {"01wb", sound}};
//     Load(file);                                   // with an index; Scan() takes it away
//     EXPECT_EQ(Read(ZMV_MEDIA_VIDEO).data, Bytes({1, 2, 3}));
#ifndef ZMV_TESTS_READER_RECORDS_TEST_H
#define ZMV_TESTS_READER_RECORDS_TEST_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <random>

#include "avi/zmvstream_avi_reader.h"
#include "avi/zmvstream_avi_reader_records.h"
#include "tests/support/avi_builder.h"
#include "tests/support/scripted_host.h"

namespace zmv::test {

constexpr uint32_t Code(int64_t result) { return static_cast<uint32_t>(result); }

struct ReadResult {
  uint32_t code;
  ZMVFrame frame;
  ByteVector data;
};

// What a stream reads next, to see that nothing has changed.
struct ReadingPlace {
  uint32_t frame, bytes, pending, position, entry, cursor;
  uint8_t pad;
  bool operator==(const ReadingPlace&) const = default;
};
inline void PrintTo(const ReadingPlace& place, std::ostream* out) {
  *out << "frame " << place.frame << " bytes " << place.bytes << " pending " << place.pending << " position "
       << place.position << " entry " << place.entry << " cursor " << place.cursor << " pad " << int{place.pad};
}

class ReaderRecords : public ::testing::Test {
 protected:
  ~ReaderRecords() override {
    Close();
    EXPECT_EQ(host_.LiveBlocks(), 0u) << ::testing::PrintToString(host_.LiveList());
  }

  // A file as the builder makes it, with `prefix` in front of its RIFF data.
  void Load(const AviSpec& file, const ByteVector& prefix = {}) {
    const ByteVector riff = BuildAvi(file);
    Open(Join({prefix, riff}), file.streams);
    const ByteVector movi = Text("movi");
    const auto found = std::search(riff.begin(), riff.end(), movi.begin(), movi.end());
    ASSERT_NE(found, riff.end());
    handle_->m_dwBase = static_cast<uint32_t>(prefix.size());
    handle_->m_dwMoviPos = static_cast<uint32_t>(found - riff.begin());
    handle_->m_dwDataPos = handle_->m_dwMoviPos + 4;
    StartAt(handle_->m_dwBase + handle_->m_dwDataPos);
    uint32_t position = handle_->m_dwDataPos;
    for (const AviChunk& chunk : file.chunks) {
      const uint32_t size = static_cast<uint32_t>(chunk.data.size());
      const size_t number = static_cast<size_t>(chunk.code[0] - '0') * 10 + static_cast<size_t>(chunk.code[1] - '0');
      if (number < file.streams.size()) index_[number].push_back({chunk.flags, position, size});
      position += 8 + size + size % 2;
    }
    handle_->m_bHasIndex = 1;
    UseIndex();
  }
  // Bytes that are looked through from the first one on, by streams as given.
  void LoadBytes(const ByteVector& bytes, const std::vector<AviStream>& streams) { Open(bytes, streams); }

  // Finds frames by scanning from now on.
  void Scan() {
    handle_->m_bHasIndex = 0;
    index_.assign(index_.size(), {});
    UseIndex();
  }
  // Hands the index entries over, after they were changed.
  void UseIndex() {
    for (uint32_t number = 0; number < handle_->m_dwStreamCount; ++number) {
      AVIReaderStream& stream = *handle_->m_pStream[number];
      stream.m_pIndex = index_[number].empty() ? nullptr : index_[number].data();
      stream.m_dwIndexEntries = static_cast<uint32_t>(index_[number].size());
    }
  }
  void StartAt(uint32_t position) {
    for (uint32_t number = 0; number < handle_->m_dwStreamCount; ++number) {
      AVIReaderStream& stream = Stream(number);
      stream.m_dwPos = position;
      EXPECT_EQ(ZMVStreamBuf_Seek(stream.m_hStream, stream.m_dwIndex, position), 0);
    }
  }

  // Only so many bytes of the file are there from now on.
  void Present(uint32_t size) {
    static uint32_t present;
    present = size;
    for (auto& record : records_) record->m_hStream->CurSize = [](void*) { return int64_t{present}; };
  }

  AVIReaderHandle* Reader() { return handle_.get(); }
  AVIReaderStream& Stream(uint32_t number) { return *handle_->m_pStream[number]; }
  ReadingPlace PlaceOf(uint32_t number) {
    const AVIReaderStream& s = Stream(number);
    return {s.m_dwFrameNo,  s.m_dwBytesRead, s.m_dwPendingSize,
            s.m_dwPos,      s.m_dwIndexCur,  ZMVStreamBuf_Pos(s.m_hStream, s.m_dwIndex),
            s.m_bPadPending};
  }

  ReadResult Read(uint32_t media, uint32_t capacity = 4096, uint32_t track = 0) {
    constexpr uint8_t kGuard = 0xA5;
    constexpr uint32_t kUntouched = 77;
    ByteVector buffer(capacity + 8, kGuard);
    ReadResult result{};
    result.frame.pData = buffer.data();
    result.frame.dwBufSize = capacity;
    result.frame.dwMediaType = media;
    result.frame.dwTrack = track;
    result.frame.dwKeyFrame = result.frame.dwSize = kUntouched;
    result.code = Code(AVIReaderReadFrame(Reader(), &result.frame));
    EXPECT_EQ(ByteVector(buffer.end() - 8, buffer.end()), ByteVector(8, kGuard)) << "written past the buffer";
    if (result.code == 0) {
      EXPECT_LE(result.frame.dwSize, capacity);
      result.data.assign(buffer.begin(), buffer.begin() + static_cast<ptrdiff_t>(result.frame.dwSize));
    }
    return result;
  }
  // Every frame of a stream up to `end`, which is the end of the stream unless the test knows better.
  std::vector<ByteVector> ReadAll(uint32_t media, uint32_t track = 0, uint32_t end = ZMV_E_END) {
    std::vector<ByteVector> frames;
    for (;;) {
      const ReadResult result = Read(media, 1 << 16, track);
      if (result.code != 0) {
        EXPECT_EQ(result.code, end);
        return frames;
      }
      frames.push_back(result.data);
    }
  }

  ScriptedHost host_;
  uint32_t cache_size_ = 1024;
  std::vector<std::vector<AVIReaderIndexEntry>> index_;

 private:
  void Open(const ByteVector& bytes, const std::vector<AviStream>& streams) {
    Close();
    host_.PutFile("a.avi", bytes);
    ASSERT_EQ(ZMVStreamBuf_Open(&stream_, "a.avi", 0, ZMV_STREAM_READ), 0);
    handle_ = std::make_unique<AVIReaderHandle>();
    handle_->m_hStream = stream_;
    handle_->m_dwFileSize = static_cast<uint32_t>(bytes.size());
    index_.assign(streams.size(), {});
    for (const AviStream& stream : streams) AddStream(stream);
  }
  void AddStream(const AviStream& plan) {
    records_.push_back(std::make_unique<AVIReaderStream>());
    AVIReaderStream& stream = *records_.back();
    const uint32_t number = handle_->m_dwStreamCount++;
    handle_->m_pStream[number] = &stream;
    ASSERT_EQ(ZMVStreamBuf_Dup(stream_, &stream.m_hStream), 0);
    ASSERT_EQ(ZMVStreamBuf_Index(stream.m_hStream, &stream.m_dwIndex, cache_size_), 0);
    stream.m_dwStreamNo = number;
    stream.m_dwScale = plan.scale;
    stream.m_dwRate = plan.rate;
    stream.m_dwSampleSize = plan.sample_size;
    if (plan.type == "vids") stream.m_dwMediaType = ZMV_MEDIA_VIDEO;
    if (plan.type == "auds") stream.m_dwMediaType = ZMV_MEDIA_AUDIO;
    if (plan.type == "txts") stream.m_dwMediaType = ZMV_MEDIA_TEXT;
    MakeCurrent(stream, ZMV_MEDIA_VIDEO, &handle_->m_bHasVideo, &handle_->m_dwFirstVideo);
    MakeCurrent(stream, ZMV_MEDIA_AUDIO, &handle_->m_bHasAudio, &handle_->m_dwFirstAudio);
  }
  static void MakeCurrent(const AVIReaderStream& stream, uint32_t media, uint8_t* present, uint32_t* current) {
    if (stream.m_dwMediaType != media || *present != 0) return;
    *present = 1;
    *current = stream.m_dwStreamNo;
  }
  void Close() {
    for (auto& record : records_) ZMVStreamBuf_Close(record->m_hStream);
    records_.clear();
    handle_.reset();
    ZMVStreamBuf_Close(stream_);
    stream_ = nullptr;
  }

  ZMVStreamBuf* stream_ = nullptr;
  std::unique_ptr<AVIReaderHandle> handle_;
  std::vector<std::unique_ptr<AVIReaderStream>> records_;
};

// Bytes that no scanner takes for a code: none is a digit or a letter.
inline ByteVector Payload(uint32_t size, uint8_t seed = 1) {
  ByteVector bytes(size);
  for (uint32_t i = 0; i < size; ++i) bytes[i] = static_cast<uint8_t>(0x80 + (seed * 37 + i * 11) % 0x7F);
  return bytes;
}

// Two streams in turn with payloads of odd and even sizes, some of them empty.
inline AviSpec Interleaved(uint32_t count = 24) {
  AviSpec file;
  file.streams = {VideoStream(), PcmStream()};
  for (uint32_t i = 0; i < count; ++i) {
    const uint8_t seed = static_cast<uint8_t>(i);
    file.chunks.push_back({"00dc", Payload(i % 7 == 6 ? 0 : 30 + i * 13 % 400, seed), i % 12 == 0 ? 0x10u : 0u});
    file.chunks.push_back({"01wb", Payload(21 + i * 7 % 90, static_cast<uint8_t>(seed + 100))});
  }
  return file;
}

}  // namespace zmv::test

#endif

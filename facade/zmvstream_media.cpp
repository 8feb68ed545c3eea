// The format structures of AVI "strf" chunks (OpenDML): wave format and bitmap info, read into and written from stream
// descriptions. Sizes come from files: a chunk shorter than its structure gives the fields that lie within it, and no
// more extra bytes are taken than a description holds.
#include "facade/zmvstream_media.h"

#include <cstring>

#include "base/byte_order.h"
#include "facade/media_layout.h"
#include "stream/format_forms.h"
#include "stream/zmvstream_buf.h"

namespace zmv::facade {
namespace {

using stream::ExtraSize;
using stream::kAudioExtraFormSize;
using stream::kAudioFormSize;
using stream::kVideoFormSize;

constexpr uint32_t kBitsPerByte = 8;

// Where the fields of the video form that a description takes stand.
constexpr uint32_t kVideoWidth = 4;
constexpr uint32_t kVideoBitCount = 14;

// The fields of a chunk at a cursor, one after the other. A field that is not wholly within the chunk ends the reading:
// it and all that follow stay as they are. A field within the chunk that the file does not hold is 0.
class ChunkFields {
 public:
  ChunkFields(ZMVStreamBuf* stream, uint32_t cursor, uint32_t size)
      : stream_(stream), cursor_(cursor), start_(ZMVStreamBuf_Pos(stream, cursor)), size_(size) {}

  ChunkFields& U16(uint32_t& field) {
    if (Take(2)) field = beyond_file_ ? 0 : static_cast<uint32_t>(ZMVStreamBuf_ReadWordLE(stream_, cursor_, nullptr));
    return *this;
  }
  ChunkFields& U32(uint32_t& field) {
    if (Take(4)) field = beyond_file_ ? 0 : static_cast<uint32_t>(ZMVStreamBuf_ReadDWordLE(stream_, cursor_, nullptr));
    return *this;
  }
  // `count` bytes, zeros where they cannot be read.
  ChunkFields& Bytes(uint8_t* to, uint32_t count) {
    if (!Take(count)) return *this;
    std::memset(to, 0, count);
    if (!beyond_file_) ZMVStreamBuf_ReadBuffer(stream_, cursor_, to, count);
    return *this;
  }
  // Goes on at `offset` of the chunk.
  ChunkFields& At(uint32_t offset) {
    if (ended_ || offset > size_) {
      ended_ = true;
      return *this;
    }
    beyond_file_ = !MoveTo(offset);
    taken_ = offset;
    return *this;
  }
  // Leaves the cursor at the chunk's end.
  void Finish() {
    if (taken_ != size_) MoveTo(size_);  // stays where the file ends before that
  }
  bool Ended() const { return ended_; }

 private:
  bool Take(uint32_t count) {
    if (ended_ || size_ - taken_ < count) ended_ = true;
    if (!ended_) taken_ += count;
    return !ended_;
  }
  bool MoveTo(uint32_t offset) {
    const uint64_t target = uint64_t{start_} + offset;
    if (target > UINT32_MAX) return false;
    return !Failed(ZMVStreamBuf_Seek(stream_, cursor_, static_cast<uint32_t>(target)));
  }

  ZMVStreamBuf* stream_;
  uint32_t cursor_;
  uint32_t start_;
  uint32_t size_;
  uint32_t taken_ = 0;
  bool ended_ = false;
  bool beyond_file_ = false;
};

// Whether the extra bytes that a wave format announces are there, and fit.
bool TakesAudioExtra(uint32_t count, uint32_t size) {
  return count != 0 && count <= size - kAudioExtraFormSize && count <= ZMV_MAX_EXTRA_DATA;
}

void ReadAudioFormat(ChunkFields& chunk, uint32_t size, ZMVAudioInfo& audio) {
  uint32_t bytes_per_second = 0;
  chunk.U16(audio.dwFormat).U16(audio.dwChannels).U32(audio.dwSampleRate).U32(bytes_per_second);
  if (!chunk.Ended()) audio.dwBitRate = bytes_per_second * kBitsPerByte;
  chunk.U16(audio.dwBlockAlign).U16(audio.dwBitsPerSample);
  if (size < kAudioExtraFormSize) return;
  uint32_t count = 0;
  chunk.U16(count);
  if (!TakesAudioExtra(count, size)) return;
  chunk.Bytes(audio.abExtraData, count);
  audio.dwExtraDataSize = count;
}

void ReadVideoFormat(ChunkFields& chunk, uint32_t size, ZMVVideoInfo& video) {
  chunk.At(kVideoWidth).U32(video.dwWidth).U32(video.dwHeight);
  chunk.At(kVideoBitCount).U16(video.dwBitCount).U32(video.dwFourCC);
  if (size <= kVideoFormSize || chunk.At(kVideoFormSize).Ended()) return;
  const uint32_t count = ExtraSize(size - kVideoFormSize);
  chunk.Bytes(video.abExtraData, count);
  video.dwExtraDataSize = count;
}

}  // namespace
}  // namespace zmv::facade

using namespace zmv;
using namespace zmv::facade;

void StreamGetAudioFormat(ZMVStreamBuf* hStream, uint32_t dwIndex, uint32_t size, ZMVAudioInfo* pAudio) {
  ChunkFields chunk(hStream, dwIndex, size);
  ReadAudioFormat(chunk, size, *pAudio);
  chunk.Finish();
}

void StreamGetVideoFormat(ZMVStreamBuf* hStream, uint32_t dwIndex, uint32_t size, ZMVVideoInfo* pVideo) {
  ChunkFields chunk(hStream, dwIndex, size);
  ReadVideoFormat(chunk, size, *pVideo);
  chunk.Finish();
}

uint32_t StreamPutAudioFormat(ZMVStreamBuf* hStream, uint32_t dwIndex, const ZMVAudioInfo* pAudio) {
  uint8_t form[stream::kMaxAudioFormSize];
  const uint32_t size = stream::MakeAudioForm(*pAudio, form);
  ZMVStreamBuf_WriteBuffer(hStream, dwIndex, form, size);
  return size;
}

uint32_t StreamPutVideoFormat(ZMVStreamBuf* hStream, uint32_t dwIndex, const ZMVVideoInfo* pVideo) {
  uint8_t form[kVideoFormSize + ZMV_MAX_EXTRA_DATA] = {};
  StoreLE32(form + 0, kVideoFormSize);
  StoreLE32(form + 4, pVideo->dwWidth);
  StoreLE32(form + 8, pVideo->dwHeight);
  StoreLE16(form + 14, static_cast<uint16_t>(pVideo->dwBitCount));
  StoreLE32(form + 16, pVideo->dwFourCC);
  // An odd count takes the next byte of the record along, so that the chunk stays even.
  const uint32_t extra_size = (ExtraSize(pVideo->dwExtraDataSize) + 1) & ~1u;
  std::memcpy(form + kVideoFormSize, pVideo->abExtraData, extra_size);
  ZMVStreamBuf_WriteBuffer(hStream, dwIndex, form, kVideoFormSize + extra_size);
  return kVideoFormSize + extra_size;
}

void GetAudioFormatMem(const uint8_t* pForm, uint32_t size, ZMVAudioInfo* pAudio) {
  if (size < kAudioFormSize) return;
  pAudio->dwFormat = LoadLE16(pForm + 0);
  pAudio->dwChannels = LoadLE16(pForm + 2);
  pAudio->dwSampleRate = LoadLE32(pForm + 4);
  pAudio->dwBitRate = LoadLE32(pForm + 8) * kBitsPerByte;
  pAudio->dwBlockAlign = LoadLE16(pForm + 12);
  pAudio->dwBitsPerSample = LoadLE16(pForm + 14);
  if (size < kAudioExtraFormSize) return;
  const uint32_t count = LoadLE16(pForm + kAudioFormSize);
  if (!TakesAudioExtra(count, size)) return;
  std::memcpy(pAudio->abExtraData, pForm + kAudioExtraFormSize, count);
  pAudio->dwExtraDataSize = count;
}

void GetVideoFormatMem(const uint8_t* pForm, uint32_t size, ZMVVideoInfo* pVideo) {
  if (size < kVideoFormSize) return;
  pVideo->dwFourCC = LoadLE32(pForm + 16);
  pVideo->dwWidth = LoadLE32(pForm + 4);
  pVideo->dwHeight = LoadLE32(pForm + 8);
  pVideo->dwBitCount = LoadLE16(pForm + 14);
  if (size == kVideoFormSize) return;
  const uint32_t count = ExtraSize(size - kVideoFormSize);
  std::memcpy(pVideo->abExtraData, pForm + kVideoFormSize, count);
  pVideo->dwExtraDataSize = count;
}

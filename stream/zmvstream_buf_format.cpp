// The format structures of AVI streams: wave format and bitmap info.
#include <cstring>

#include "base/byte_order.h"
#include "base/fourcc.h"
#include "base/host_memory.h"
#include "base/zmv_result.h"
#include "stream/buf_stream.h"
#include "stream/format_forms.h"
#include "stream/zmvstream_buf.h"

namespace zmv::stream {

uint32_t MakeAudioForm(const ZMVAudioInfo& audio, uint8_t (&form)[kMaxAudioFormSize]) {
  StoreLE16(form + 0, static_cast<uint16_t>(audio.dwFormat));
  StoreLE16(form + 2, static_cast<uint16_t>(audio.dwChannels));
  StoreLE32(form + 4, audio.dwSampleRate);
  StoreLE32(form + 8, audio.dwBitRate / 8);
  StoreLE16(form + 12, static_cast<uint16_t>(audio.dwBlockAlign));
  StoreLE16(form + 14, static_cast<uint16_t>(audio.dwBitsPerSample));
  const uint32_t extra_size = ExtraSize(audio.dwExtraDataSize);
  if (extra_size == 0) return kAudioFormSize;
  StoreLE16(form + kAudioFormSize, static_cast<uint16_t>(extra_size));
  std::memcpy(form + kAudioExtraFormSize, audio.abExtraData, extra_size);
  return kAudioExtraFormSize + extra_size;
}

namespace {

constexpr uint8_t kStartCode[4] = {0, 0, 0, 1};
constexpr uint32_t kBytesPerPixelMask = 0x1FFF;  // what a 16-bit bit count leaves when it is divided by 8
constexpr uint32_t kDefaultBitCount = 24;

constexpr uint32_t RoundUpToEven(uint32_t size) { return (size + 1) & ~1u; }

bool IsHevc(uint32_t fourcc) {
  constexpr uint32_t kCodes[] = {FourCC("hvc1"), FourCC("HEV1"), FourCC("hev1"), FourCC("H265"), FourCC("HEVC")};
  for (const uint32_t code : kCodes) {
    if (fourcc == code) return true;
  }
  return false;
}

// The extra bytes that follow the header: where they stand and how many the record holds. `converted` owns them when
// they are not the record's own.
struct VideoExtra {
  const uint8_t* data = nullptr;
  uint32_t size = 0;
  HostMemory<uint8_t> converted;
};

// Takes the codec configuration of HEVC in start-code form; anything else has no extra bytes. ZMV_E_MEMORY on failure.
int32_t TakeVideoExtra(const ZMVVideoInfo& video, VideoExtra* extra) {
  const uint32_t size = ExtraSize(video.dwExtraDataSize);
  if (size < sizeof kStartCode || !IsHevc(video.dwFourCC)) return 0;
  const uint8_t* const data = video.abExtraData;
  if (std::memcmp(data, kStartCode, sizeof kStartCode) == 0) {
    extra->data = data;
  } else if (data[0] == 0 && data[2] == 1) {
    // A three-byte start code grows to four bytes. The size stays as announced, so the last byte of the configuration
    // gives way.
    extra->converted = AllocateBytes(kBufModule, RoundUpToEven(size), __func__);
    if (!extra->converted) {
      ZMV_TRACE(kBufModule, kTraceError, "extra data alloc failed. size(%d)\n", static_cast<int>(RoundUpToEven(size)));
      return Result(ZMV_E_MEMORY);
    }
    std::memcpy(extra->converted.Get(), kStartCode, sizeof kStartCode);
    std::memcpy(extra->converted.Get() + sizeof kStartCode, data + 3, size - sizeof kStartCode);
    extra->data = extra->converted.Get();
  } else {
    return 0;
  }
  extra->size = size;
  return 0;
}

void MakeVideoHeader(const ZMVVideoInfo& video, uint32_t header_size, uint8_t (&header)[kVideoFormSize]) {
  const uint32_t bit_count = video.dwBitCount == 0 ? kDefaultBitCount : video.dwBitCount;
  const uint32_t bytes_per_pixel = (bit_count / 8) & kBytesPerPixelMask;
  std::memset(header, 0, sizeof header);
  StoreLE32(header + 0, header_size);
  StoreLE32(header + 4, video.dwWidth);
  StoreLE32(header + 8, video.dwHeight);
  StoreLE16(header + 12, 1);  // planes
  StoreLE16(header + 14, static_cast<uint16_t>(bit_count));
  StoreLE32(header + 16, video.dwFourCC);
  StoreLE32(header + 20, video.dwWidth * video.dwHeight * bytes_per_pixel);
}

// Writes the extra bytes, padded to even length; a last byte that is not zero is followed by a zero word. The bytes of
// both beyond the header, or a negative code.
int64_t WriteVideoExtra(ZMVStreamBuf* handle, uint32_t idx, const VideoExtra& extra) {
  constexpr uint8_t kZeros[2] = {};
  int64_t result = ZMVStreamBuf_WriteBuffer(handle, idx, extra.data, extra.size);
  if (result < 0) return result;
  const uint32_t padded_size = RoundUpToEven(extra.size);
  const bool needs_word = padded_size == extra.size && extra.data[extra.size - 1] != 0;
  const uint32_t zeros = needs_word ? 2 : padded_size - extra.size;
  if (zeros == 0) return padded_size;
  result = ZMVStreamBuf_WriteBuffer(handle, idx, kZeros, zeros);
  return result < 0 ? result : int64_t{extra.size} + zeros;
}

int64_t PutVideoFormat(ZMVStreamBuf* handle, uint32_t idx, const ZMVVideoInfo& video) {
  VideoExtra extra;
  const int32_t taken = TakeVideoExtra(video, &extra);
  if (Failed(taken)) return taken;
  uint8_t header[kVideoFormSize];
  MakeVideoHeader(video, kVideoFormSize + RoundUpToEven(extra.size), header);
  const int64_t result = ZMVStreamBuf_WriteBuffer(handle, idx, header, kVideoFormSize);
  if (result < 0) return result;
  if (extra.size == 0) return kVideoFormSize;
  const int64_t extra_written = WriteVideoExtra(handle, idx, extra);
  return extra_written < 0 ? extra_written : kVideoFormSize + extra_written;
}

}  // namespace
}  // namespace zmv::stream

using namespace zmv;
using namespace zmv::stream;

int64_t ZMVStreamBuf_PutAudioFormat(ZMVStreamBuf* handle, uint32_t idx, const ZMVAudioInfo* audio) {
  TraceScope scope(kBufModule, __func__);
  uint8_t form[kMaxAudioFormSize];
  const uint32_t size = MakeAudioForm(*audio, form);
  const int64_t result = ZMVStreamBuf_WriteBuffer(handle, idx, form, size);
  return result < 0 ? scope.Fail(result) : int64_t{size};
}

int64_t ZMVStreamBuf_PutVideoFormat(ZMVStreamBuf* handle, uint32_t idx, const ZMVVideoInfo* video) {
  TraceScope scope(kBufModule, __func__);
  const int64_t result = PutVideoFormat(handle, idx, *video);
  return result < 0 ? scope.Fail(result) : result;
}

// The elementary stream descriptor of a sample entry (ISO/IEC 14496-1 7.2.6, 14496-14 5.6).
#include "base/host_memory.h"
#include "mp4/mp4_reader.h"
#include "platform/zmv_byte.h"

namespace zmv::mp4::reader {
namespace {

constexpr const char* kFunction = "MP4ReaderParseESDS";

constexpr uint32_t kEsDescriptorTag = 3;
constexpr uint32_t kDecoderSpecificTag = 5;

// A descriptor length: up to four bytes of seven bits each, while the top bit is set.
template <typename NextByte>
uint32_t DecodeLength(NextByte next) {
  uint32_t length = 0;
  for (int byte = 0; byte < 4; ++byte) {
    const uint32_t bits = next();
    length = (length << 7) | (bits & 0x7Fu);
    if ((bits & 0x80u) == 0) break;
  }
  return length;
}

// A byte reader that knows how much is left.
class DescriptorReader {
 public:
  DescriptorReader(const uint8_t* bytes, uint32_t size) : reader_(ZMVByte_Open(bytes, size)), left_(size) {}
  ~DescriptorReader() {
    if (reader_ != nullptr) ZMVByte_Close(reader_);
  }
  DescriptorReader(const DescriptorReader&) = delete;
  DescriptorReader& operator=(const DescriptorReader&) = delete;

  bool Opened() const { return reader_ != nullptr; }
  bool RanOut() const { return error_ != 0; }
  uint32_t Left() const { return left_; }
  void Skip(uint32_t bytes) { ZMVByte_Skip(reader_, Take(bytes), &error_); }
  uint32_t U8() { return ZMVByte_Get_char(reader_, Counted(1)); }
  uint32_t U24() { return ZMVByte_Get_3char_be_uint32(reader_, Counted(3)); }
  uint32_t U32() { return ZMVByte_Get_be_uint32(reader_, Counted(4)); }
  uint32_t Length() {
    return DecodeLength([this] { return U8(); });
  }
  void Bytes(uint8_t* to, uint32_t size) { ZMVByte_Get_string(reader_, to, size, Counted(size)); }

 private:
  uint32_t Take(uint32_t bytes) {
    left_ -= bytes < left_ ? bytes : left_;
    return bytes;
  }
  int64_t* Counted(uint32_t bytes) {
    Take(bytes);
    return &error_;
  }

  void* reader_;
  uint32_t left_;
  int64_t error_ = 0;
};

struct ObjectType {
  uint32_t type;
  uint32_t code;
};
constexpr ObjectType kObjectTypes[] = {
    {0x40, ZMV_AUDIO_AAC},  {0x69, ZMV_AUDIO_MPEG}, {0x6B, ZMV_AUDIO_MPEG},
    {0xF0, FourCC("YV12")}, {0xF1, FourCC("AVC1")}, {0xE2, FourCC("ec-3")},
};

// Everything up to the length of the decoder configuration descriptor.
void SkipToDecoderConfig(DescriptorReader& bytes) {
  bytes.Skip(4);  // version and flags
  if (bytes.U8() != kEsDescriptorTag) {
    bytes.Skip(2);
  } else {
    bytes.Length();
    bytes.Skip(2);  // ES ID
    const uint32_t flags = bytes.U8();
    if ((flags & 0x80u) != 0) bytes.Skip(2);           // the stream it depends on
    if ((flags & 0x40u) != 0) bytes.Skip(bytes.U8());  // URL
    if ((flags & 0x20u) != 0) bytes.Skip(2);           // clock reference stream
  }
  bytes.U8();  // tag
  bytes.Length();
}

void ReadDecoderConfig(DescriptorReader& bytes, MP4ReaderTrack& track) {
  const uint32_t object_type = bytes.U8();
  bytes.Skip(1);  // stream type
  if (bytes.RanOut()) return;
  for (const ObjectType& known : kObjectTypes) {
    if (known.type == object_type) track.m_dwFourCC = known.code;
  }
  const uint32_t buffer_size = bytes.U24();
  bytes.Skip(4);  // maximum bit rate
  const uint32_t bit_rate = bytes.U32();
  if (bytes.RanOut()) return;
  track.m_dwMaxSampleSize = buffer_size;
  track.m_dwBitRate = bit_rate;
}

// The configuration of `size` bytes. A size that is not there fails before anything is allocated.
int32_t ReadDecoderSpecific(DescriptorReader& bytes, uint32_t size, MP4ReaderTrack& track) {
  if (size > bytes.Left()) return Result(ZMV_E_FAIL);
  FreeConfig(track);
  if (size == 0) return 0;
  HostMemory<uint8_t> config = AllocateBytes(kModule, size, kFunction);
  if (!config) return Result(ZMV_E_FAIL);
  bytes.Bytes(config.Get(), size);
  if (bytes.RanOut()) return Result(ZMV_E_FAIL);
  track.m_pConfig = config.Release();
  track.m_dwConfigSize = size;
  return 0;
}

int32_t ReadDescriptors(DescriptorReader& bytes, MP4ReaderTrack& track) {
  SkipToDecoderConfig(bytes);
  ReadDecoderConfig(bytes, track);
  while (!bytes.RanOut()) {
    const uint32_t tag = bytes.U8();
    const uint32_t length = bytes.Length();
    if (bytes.RanOut()) break;
    if (tag != kDecoderSpecificTag) {
      bytes.Skip(length);
      continue;
    }
    const int32_t result = ReadDecoderSpecific(bytes, length, track);
    if (Failed(result)) return Report(result, kFunction);
  }
  return 0;
}

}  // namespace

int32_t ParseEsds(BoxWalk& walk, uint32_t payload) {
  BoxReader box = ReadBox(walk, payload, kFunction);
  if (box.Position() + uint64_t{payload} > DataEnd(walk.handle)) return Report(Result(ZMV_E_READ), kFunction);
  HostMemory<uint8_t> buffer = AllocateBytes(kModule, payload, kFunction);
  if (!buffer) return Report(Result(ZMV_E_FAIL), kFunction);
  box.Bytes(buffer.Get(), payload);
  if (box.Failed()) return box.Error();
  DescriptorReader bytes(buffer.Get(), payload);
  if (!bytes.Opened()) return Report(Result(ZMV_E_FAIL), kFunction);
  return ReadDescriptors(bytes, *walk.track);
}

}  // namespace zmv::mp4::reader

using namespace zmv;
using namespace zmv::mp4::reader;

int32_t MP4ReaderParseESDS(MP4FReaderHandle* handle, MP4ReaderTrack* track, uint32_t size) {
  return ParseWith(&ParseEsds, handle, track, size, __func__);
}

int32_t MP4ReaderGetDescLength(ZMVStreamBuf* stream, uint32_t dwIndex) {
  TraceScope scope(kModule, __func__);
  if (stream == nullptr) return scope.Fail(Result(ZMV_E_FAIL));
  int64_t error = 0;
  const uint32_t length = DecodeLength(
      [&] { return error == 0 ? static_cast<uint32_t>(ZMVStreamBuf_ReadByte(stream, dwIndex, &error)) : 0u; });
  if (error != 0) return scope.Fail(Report(StreamError(error), __func__));
  return static_cast<int32_t>(length);
}

uint32_t MP4ReaderGetDescLength2(void* byteReader, int64_t* err) {
  TraceScope scope(kModule, __func__);
  int64_t error = 0;
  const uint32_t length = DecodeLength([&] { return uint32_t{ZMVByte_Get_char(byteReader, &error)}; });
  if (error == 0) return length;
  if (err != nullptr) *err = error;
  return 0;
}

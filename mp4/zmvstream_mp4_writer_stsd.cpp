// Sample descriptions: one sample entry per track with its decoder configuration (ISO/IEC 14496-12 8.5.2, 14496-14 5.6,
// 14496-15 5.3 and 8.3).
#include <algorithm>
#include <cstring>

#include "base/host_memory.h"
#include "facade/zmvstream_media.h"
#include "mp4/box_builder.h"
#include "mp4/mp4_writer.h"
#include "mp4/mp4_writer_boxes.h"
#include "platform/zmv_codec.h"

namespace zmv::mp4 {
namespace {

constexpr uint32_t kStsdHeaderSize = 16;
constexpr uint32_t kSampleEntrySize = 16;
constexpr uint32_t kAudioEntrySize = 36;
constexpr uint32_t kVideoEntrySize = 86;
constexpr uint32_t kBtrtSize = 20;
constexpr uint32_t kResolution72Dpi = 0x00480000;
constexpr uint32_t kDepth24 = 0x0018;
constexpr uint32_t kBtrtBufferSize = 0x00005601;

constexpr uint32_t kEsdsArea = 92;
constexpr uint32_t kAvccArea = 20;
constexpr uint8_t kEsDescriptor = 3;
constexpr uint8_t kDecoderConfigDescriptor = 4;
constexpr uint8_t kDecoderSpecificDescriptor = 5;
constexpr uint8_t kSlConfigDescriptor = 6;

constexpr uint32_t kHighProfile = 100;
constexpr uint32_t kMainProfile = 77;
constexpr uint32_t kLevel50 = 0x32;
constexpr uint32_t kNalLengthSize = 4;

// What a configuration is taken to need beside itself when it is compared with the box buffer.
constexpr uint32_t kConfigurationMargin = 117;
constexpr uint64_t kMaxConfiguration = kBoxBufferSize - kConfigurationMargin;
// What stands beside a configuration box in the box buffer: the track's headers up to stbl, stsd, the entry, btrt, and
// the longest stereo and spherical boxes.
constexpr uint32_t kTrackHeaders = 249;
constexpr uint32_t kConfigurationRoom =
    kBoxBufferAllocation - kTrackHeaders - kStsdHeaderSize - kVideoEntrySize - kBtrtSize - kMaxSphericalBoxes;

enum class Configuration : uint8_t { kEsds, kAvcc, kHvcc };

struct EntryRow {
  uint32_t media;
  uint32_t code;
  uint32_t type;
  Configuration configuration;
  uint8_t object_type = 0;  // esds only
  uint8_t stream_type = 0;
};

constexpr EntryRow kEntryRows[] = {
    {ZMV_MEDIA_AUDIO, 0xFF, FourCC("mp4a"), Configuration::kEsds, 0x40, 0x15},
    {ZMV_MEDIA_AUDIO, 0xFE, FourCC("mp4a"), Configuration::kEsds, 0x40, 0x15},
    {ZMV_MEDIA_AUDIO, 0xFD, FourCC("mp4a"), Configuration::kEsds, 0x40, 0x15},
    {ZMV_MEDIA_AUDIO, ZMV_AUDIO_MPEG, FourCC("mp4a"), Configuration::kEsds, 0x6B, 0x15},
    {ZMV_MEDIA_AUDIO, ZMV_AUDIO_PCM, FourCC("lpcm"), Configuration::kEsds},
    {ZMV_MEDIA_AUDIO, ZMV_AUDIO_ALAW, FourCC("alaw"), Configuration::kEsds},
    {ZMV_MEDIA_AUDIO, ZMV_AUDIO_MULAW, FourCC("ulaw"), Configuration::kEsds},
    {ZMV_MEDIA_AUDIO, ZMV_AUDIO_PCM_LE, FourCC("sowt"), Configuration::kEsds},
    {ZMV_MEDIA_VIDEO, FourCC("AVC1"), FourCC("avc1"), Configuration::kAvcc},
    {ZMV_MEDIA_VIDEO, FourCC("avc1"), FourCC("avc1"), Configuration::kAvcc},
    {ZMV_MEDIA_VIDEO, FourCC("H264"), FourCC("avc1"), Configuration::kAvcc},
    {ZMV_MEDIA_VIDEO, FourCC("HEV1"), FourCC("hvc1"), Configuration::kHvcc},
    {ZMV_MEDIA_VIDEO, FourCC("hev1"), FourCC("hvc1"), Configuration::kHvcc},
    {ZMV_MEDIA_VIDEO, FourCC("hvc1"), FourCC("hvc1"), Configuration::kHvcc},
    {ZMV_MEDIA_VIDEO, FourCC("H265"), FourCC("hvc1"), Configuration::kHvcc},
    {ZMV_MEDIA_VIDEO, FourCC("HEVC"), FourCC("hvc1"), Configuration::kHvcc},
    {ZMV_MEDIA_VIDEO, FourCC("MP4V"), FourCC("mp4v"), Configuration::kEsds, 0x20, 0x11},
    {ZMV_MEDIA_TEXT, FourCC("MP4S"), FourCC("mp4s"), Configuration::kEsds, 0xD3, 0x81},
};
constexpr EntryRow kOtherText = {ZMV_MEDIA_TEXT, 0, FourCC("mp4s"), Configuration::kEsds};

// Null for a track that gets no sample entry.
const EntryRow* FindEntryRow(const MP4WriterTrack& track) {
  for (const EntryRow& row : kEntryRows) {
    if (row.media == track.dwMediaType && row.code == track.dwFourCC) return &row;
  }
  return track.dwMediaType == ZMV_MEDIA_TEXT ? &kOtherText : nullptr;
}

uint32_t ConfigurationSize(const MP4WriterTrack& track) {
  return track.m_pConfig != nullptr ? track.m_dwConfigSize : 0;
}

bool ConfigurationFits(const EntryRow& row, const MP4WriterTrack& track) {
  const bool fits = uint64_t{track.m_dwConfigSize} <= kMaxConfiguration;
  if (row.configuration != Configuration::kAvcc) return fits;
  const auto chunk = static_cast<int>(kStsdHeaderSize);
  const auto config = static_cast<int>(track.m_dwConfigSize);
  const auto max_box = static_cast<int>(kBoxBufferSize);
  ZMV_TRACE(kWriterModule, kTraceInfo, "chunk(%d) config(%d) max_box(%d)\n", chunk, config, max_box);
  if (!fits) {
    ZMV_TRACE(kWriterModule, kTraceError, "is too big config. chunk(%d) config(%d) max_box(%d)\n", chunk, config,
              max_box);
  }
  return fits;
}

uint32_t SetDescLength(uint8_t** cursor, uint32_t value, uint8_t minimal) {
  uint32_t bytes = 4;
  if (minimal != 0) bytes = value < 0x80 ? 1 : value < 0x4000 ? 2 : value < 0x200000 ? 3 : 4;
  for (uint32_t left = bytes; left-- > 0;) {
    const uint32_t group = value >> (7 * left) & 0x7F;
    *(*cursor)++ = static_cast<uint8_t>(left != 0 ? group | 0x80 : group);
  }
  return bytes;
}

void WriteDescriptor(BoxBuilder& out, uint8_t tag, uint32_t length) {
  out.U8(tag);
  uint8_t* cursor = out.At();
  out.Counted(SetDescLength(&cursor, length, 1));
}

uint32_t MakeEsds(const MP4WriterTrack& track, uint8_t* dst, uint8_t object_type, uint8_t stream_type) {
  const uint32_t config = ConfigurationSize(track);
  if (config > kMaxConfiguration) return kNoSampleDescription;
  BoxBuilder out(dst);
  {
    FullBox esds(out, FourCC("esds"));
    // Both lengths count one-byte length fields and a decoder-specific descriptor, whether or not that is so. Readers
    // go by the tags.
    WriteDescriptor(out, kEsDescriptor, config + 23);
    out.U16(0).U8(0);  // ES ID, flags
    WriteDescriptor(out, kDecoderConfigDescriptor, config != 0 ? config + 15 : 10);
    out.U8(object_type).U8(stream_type).U24(track.m_dwMaxSize);
    out.U32(track.dwVidExtra).U32(track.dwVidExtra);  // maximum and average bit rate
    if (config != 0) {
      WriteDescriptor(out, kDecoderSpecificDescriptor, config);
      out.Bytes(track.m_pConfig, config);
    }
    WriteDescriptor(out, kSlConfigDescriptor, 1);
    out.U8(2);
  }
  const uint32_t size = out.Size();
  if (size < kEsdsArea) std::memset(dst + size, 0, kEsdsArea - size);
  return size;
}

// Room in which escaped parameter sets are put together. Escaping adds a byte to every two at most; the rest is the
// record around them.
HostMemory<uint8_t> AllocateScratch(const MP4WriterTrack& track, const char* function, uint32_t* size) {
  const uint64_t config = ConfigurationSize(track);
  const uint64_t wanted = config + config / 2 + 64;
  if (wanted > UINT32_MAX) return {};
  *size = static_cast<uint32_t>(wanted);
  return AllocateBytes(kWriterModule, *size, function);
}

uint32_t MakeAvcc(const MP4WriterTrack& track, uint8_t* dst, uint32_t capacity) {
  std::memset(dst, 0, std::min(capacity, kAvccArea));
  uint32_t record_size = 0;
  HostMemory<uint8_t> record = AllocateScratch(track, __func__, &record_size);
  if (!record) return kNoSampleDescription;
  const bool high =
      track.dwFourCC == FourCC("AVC1") || track.dwFourCC == FourCC("avc1") || track.dwFourCC == FourCC("H264");
  const UtilAvcParam param = {high ? kHighProfile : kMainProfile, 0, kLevel50, kNalLengthSize};
  if (Failed(UtilConvH264InfoFromStartCode(track.m_pConfig, ConfigurationSize(track), record.Get(), &record_size,
                                           &param))) {
    return kNoSampleDescription;
  }
  if (uint64_t{record_size} + kBoxHeaderSize > capacity) return kNoSampleDescription;
  BoxBuilder out(dst);
  {
    Box avcc(out, FourCC("avcC"));
    out.Bytes(record.Get(), record_size);
  }
  return out.Size();
}

struct HevcArray {
  uint32_t nal_type;
  const UtilNalUnit* unit;
};

constexpr uint32_t kHevcRecordHeader = 23;
constexpr uint32_t kHevcArrayHeader = 5;
// array_completeness: an "hvc1" entry has all its parameter sets in the record.
constexpr uint32_t kArrayComplete = 0x80;

// The 23 bytes before the arrays; reserved bits are ones.
void WriteHevcHeader(BoxBuilder& out, const UtilHevcInfo& info, uint32_t arrays) {
  out.U8(1);  // configuration version
  out.U8(uint32_t{info.bProfileSpace} << 6 | uint32_t{info.bTier} << 5 | (info.bProfile & 0x1Fu));
  out.U32(info.dwCompatibility);
  out.U16(static_cast<uint32_t>(info.llConstraint >> 32) & 0xFFFF).U32(static_cast<uint32_t>(info.llConstraint));
  out.U8(info.bLevel);
  out.U16(0xF000u | (info.wMinSpatialSegmentation & 0x0FFFu));
  out.U8(0xFCu | (info.bParallelism & 3u));
  out.U8(0xFCu | (info.bChromaFormat & 3u));
  out.U8(0xF8u | ((info.bBitDepthLuma - 8u) & 7u));
  out.U8(0xF8u | ((info.bBitDepthChroma - 8u) & 7u));
  out.U16(0);  // average frame rate: not stated
  // Constant frame rate: not stated; temporal layers; nesting; length size minus one.
  out.U8((info.bTemporalLayers & 7u) << 3 | (info.bTemporalIdNested & 1u) << 2 | (kNalLengthSize - 1));
  out.U8(arrays);
}

uint32_t MakeHvcc(const MP4WriterTrack& track, uint8_t* dst, uint32_t capacity) {
  UtilHevcInfo info = {};
  HostMemory<uint8_t> units = AllocateScratch(track, __func__, &info.dwBufferSize);
  if (!units) return kNoSampleDescription;
  info.pBuffer = units.Get();
  if (Failed(UtilConvH265InfoFromStartCode(track.m_pConfig, ConfigurationSize(track), &info))) {
    return kNoSampleDescription;
  }
  const HevcArray arrays[] = {{32, &info.vps}, {33, &info.sps}, {34, &info.pps}};
  uint64_t size = kBoxHeaderSize + kHevcRecordHeader;
  uint32_t present = 0;
  for (const HevcArray& array : arrays) {
    if (array.unit->dwSize == 0) continue;
    size += uint64_t{kHevcArrayHeader} + array.unit->dwSize;
    ++present;
  }
  if (size > capacity) return kNoSampleDescription;
  BoxBuilder out(dst);
  {
    Box hvcc(out, FourCC("hvcC"));
    WriteHevcHeader(out, info, present);
    for (const HevcArray& array : arrays) {
      if (array.unit->dwSize == 0) continue;
      out.U8(kArrayComplete | array.nal_type).U16(1).U16(array.unit->dwSize);
      out.Bytes(array.unit->pData, array.unit->dwSize);
    }
  }
  return out.Size();
}

uint32_t MakeBtrt(const MP4WriterTrack& track, uint8_t* dst) {
  BoxBuilder out(dst);
  {
    Box btrt(out, FourCC("btrt"));
    // The buffer size is the same for every stream.
    out.U32(kBtrtBufferSize).U32(track.dwVidExtra).U32(track.dwVidExtra);
  }
  return out.Size();
}

bool AddBox(BoxBuilder& out, uint32_t size) {
  if (size == kNoSampleDescription) return false;
  out.Counted(size);
  return true;
}

// The boxes behind the fields of an entry; false when they cannot be put down.
bool WriteConfiguration(BoxBuilder& out, MP4WriterTrack& track, const EntryRow& row) {
  switch (row.configuration) {
    case Configuration::kAvcc:
      if (!AddBox(out, MakeAvcc(track, out.At(), kConfigurationRoom))) return false;
      if (!AddBox(out, MakeBtrt(track, out.At()))) return false;
      return AddBox(out, MakeSphericalBoxes(track, out.At()));
    case Configuration::kHvcc:
      return AddBox(out, MakeHvcc(track, out.At(), kConfigurationRoom));
    case Configuration::kEsds:
      break;
  }
  return AddBox(out, MakeEsds(track, out.At(), row.object_type, row.stream_type));
}

uint32_t MakeSampleEntry(uint8_t* dst, uint32_t type, uint32_t size) {
  BoxBuilder out(dst);
  out.U32(size).Code(type).Zeros(6).U16(1);  // data reference index
  return out.Size();
}

uint32_t MakeAudioSampleEntry(const MP4WriterTrack& track, uint8_t* dst, uint32_t type, uint32_t size) {
  BoxBuilder out(dst);
  out.Counted(MakeSampleEntry(dst, type, size)).Zeros(8);
  out.U16(track.dwChannels).U16(track.dwBitsPerSample).Zeros(2);
  // The 16.16 rate starts two bytes further on, so its integer half holds the low 16 bits of the number written here.
  out.U32(track.dwSampleRate).Zeros(2);
  return out.Size();
}

uint32_t MakeVideoSampleEntry(const MP4WriterTrack& track, uint8_t* dst, uint32_t type, uint32_t size) {
  const bool described = type == FourCC("avc1") || type == FourCC("hev1") || type == FourCC("hvc1");
  const uint32_t resolution = described ? kResolution72Dpi : 0;
  BoxBuilder out(dst);
  out.Counted(MakeSampleEntry(dst, type, size)).Zeros(16);
  out.U16(track.dwWidth).U16(track.dwHeight);
  out.U32(resolution).U32(resolution).Zeros(4);
  out.U16(described ? 1 : 0).Zeros(32);  // frame count, compressor name
  out.U16(described ? kDepth24 : 0).U16(0xFFFF);
  return out.Size();
}

// An entry states its whole size, so its fields are filled in after the boxes behind them.
bool WriteEntry(BoxBuilder& out, MP4WriterTrack& track, const EntryRow& row) {
  uint8_t* entry = out.At();
  const bool video = row.media == ZMV_MEDIA_VIDEO;
  const bool audio = row.media == ZMV_MEDIA_AUDIO;
  out.Counted(video ? kVideoEntrySize : audio ? kAudioEntrySize : kSampleEntrySize);
  if (!WriteConfiguration(out, track, row)) return false;
  const auto size = static_cast<uint32_t>(out.At() - entry);
  if (video) {
    MakeVideoSampleEntry(track, entry, row.type, size);
  } else if (audio) {
    MakeAudioSampleEntry(track, entry, row.type, size);
  } else {
    MakeSampleEntry(entry, row.type, size);
  }
  return true;
}

}  // namespace

uint32_t MakeStsd(MP4WriterTrack& track, uint8_t* dst) {
  const EntryRow* row = FindEntryRow(track);
  if (row != nullptr && !ConfigurationFits(*row, track)) return kNoSampleDescription;
  BoxBuilder out(dst);
  bool built = true;
  {
    FullBox stsd(out, FourCC("stsd"));
    // One entry is stated even when the code is unknown and none follows.
    out.U32(1);
    if (row != nullptr) built = WriteEntry(out, track, *row);
  }
  return built ? out.Size() : kNoSampleDescription;
}

}  // namespace zmv::mp4

using namespace zmv;
using namespace zmv::mp4;

namespace {

constexpr const char* kNoArgument = "no track or no place for the box\n";

}  // namespace

uint32_t MP4WriterMakeStsd(MP4WriterTrack* track, uint8_t* dst) {
  TraceScope scope(kWriterModule, __func__);
  if (track == nullptr || dst == nullptr) return scope.Fail(kNoSampleDescription, kNoArgument);
  return MakeStsd(*track, dst);
}

uint32_t MP4WriterMakeSampleEntry(uint8_t* dst, uint32_t dwType, uint32_t size) {
  TraceScope scope(kWriterModule, __func__);
  if (dst == nullptr) return scope.Fail(0u, kNoArgument);
  return MakeSampleEntry(dst, dwType, size);
}

uint32_t MP4WriterMakeAudioSampleEntry(MP4WriterTrack* track, uint8_t* dst, uint32_t dwType, uint32_t size) {
  TraceScope scope(kWriterModule, __func__);
  if (track == nullptr || dst == nullptr) return scope.Fail(0u, kNoArgument);
  return MakeAudioSampleEntry(*track, dst, dwType, size);
}

uint32_t MP4WriterMakeVideoSampleEntry(MP4WriterTrack* track, uint8_t* dst, uint32_t dwType, uint32_t size) {
  TraceScope scope(kWriterModule, __func__);
  if (track == nullptr || dst == nullptr) return scope.Fail(0u, kNoArgument);
  return MakeVideoSampleEntry(*track, dst, dwType, size);
}

uint32_t MP4WriterMakeEsds(MP4WriterTrack* track, uint8_t* dst, uint8_t objectType, uint8_t streamType) {
  TraceScope scope(kWriterModule, __func__);
  if (track == nullptr || dst == nullptr) return scope.Fail(kNoSampleDescription, kNoArgument);
  return MakeEsds(*track, dst, objectType, streamType);
}

uint32_t MP4WriterMakeBtrt(MP4WriterTrack* track, uint8_t* dst) {
  TraceScope scope(kWriterModule, __func__);
  if (track == nullptr || dst == nullptr) return scope.Fail(0u, kNoArgument);
  return MakeBtrt(*track, dst);
}

uint32_t MP4WriterMakeAvcc(MP4WriterTrack* track, uint8_t* dst, uint32_t capacity) {
  TraceScope scope(kWriterModule, __func__);
  if (track == nullptr || dst == nullptr) return scope.Fail(kNoSampleDescription, kNoArgument);
  return MakeAvcc(*track, dst, capacity);
}

uint32_t MP4WriterMakeHvcc(MP4WriterTrack* track, uint8_t* dst, uint32_t capacity) {
  TraceScope scope(kWriterModule, __func__);
  if (track == nullptr || dst == nullptr) return scope.Fail(kNoSampleDescription, kNoArgument);
  return MakeHvcc(*track, dst, capacity);
}

uint32_t MP4WriterSetDescLength(uint8_t** cursor, uint32_t value, uint8_t minimal) {
  TraceScope scope(kWriterModule, __func__);
  if (cursor == nullptr || *cursor == nullptr) return scope.Fail(0u, kNoArgument);
  return SetDescLength(cursor, value, minimal);
}

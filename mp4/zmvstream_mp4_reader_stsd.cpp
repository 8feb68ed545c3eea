// Sample descriptions: the sample entries of stsd and the boxes inside them.
#include "base/host_memory.h"
#include "mp4/mp4_reader.h"

namespace zmv::mp4::reader {
namespace {

// ---- Configurations

// Takes the `size` bytes at the next field of `box` as the track's configuration. Nothing is allocated for data that is
// not there.
int32_t KeepConfig(BoxWalk& walk, BoxReader& box, uint32_t size, const char* function) {
  if (box.Position() + uint64_t{size} > DataEnd(walk.handle)) return Report(Result(ZMV_E_READ), function);
  FreeConfig(*walk.track);
  if (size == 0) return 0;
  HostMemory<uint8_t> config = AllocateBytes(kModule, size, function);
  if (!config) return Result(ZMV_E_MEMORY);
  box.Bytes(config.Get(), size);
  if (box.Failed()) return box.Error();
  walk.track->m_pConfig = config.Release();
  walk.track->m_dwConfigSize = size;
  return 0;
}

// A byte of the configuration; what is missing counts as 0.
uint8_t ConfigByte(const MP4ReaderTrack& track, uint32_t at) {
  return at < track.m_dwConfigSize ? track.m_pConfig[at] : uint8_t{0};
}

int32_t ParseAvcc(BoxWalk& walk, uint32_t payload) {
  constexpr const char* kFunction = "MP4ReaderParseAVCC";
  constexpr uint8_t kMainProfile = 77;
  BoxReader box = ReadBox(walk, payload, kFunction);
  const int32_t result = KeepConfig(walk, box, payload, kFunction);
  if (Failed(result)) return result;
  MP4ReaderTrack& track = *walk.track;
  track.m_dwNalLengthSize = (ConfigByte(track, 4) & 3u) + 1;
  // Applications expect the code of Main profile recordings to differ from that of the other profiles.
  if (ConfigByte(track, 1) == kMainProfile) track.m_dwFourCC = FourCC("H264");
  return 0;
}

int32_t ParseHvcc(BoxWalk& walk, uint32_t payload) {
  constexpr const char* kFunction = "MP4ReaderParseHVCC";
  BoxReader box = ReadBox(walk, payload, kFunction);
  const int32_t result = KeepConfig(walk, box, payload, kFunction);
  if (Failed(result)) return result;
  walk.track->m_dwFourCC = FourCC("H265");
  walk.track->m_dwNalLengthSize = 4;
  return 0;
}

int32_t ParseBtrt(BoxWalk& walk, uint32_t payload) {
  constexpr uint32_t kBtrtSize = 12;
  if (payload < kBtrtSize) {
    ::ZMV_Trace(kModule.tag, kTraceWarning, kModule.source, __LINE__, "MP4ReaderParseBTRT",
                "btrt box size is too small (%d)\n", static_cast<int>(payload));
    return 0;
  }
  BoxReader box = ReadBox(walk, payload, "MP4ReaderParseBTRT");
  uint32_t buffer_size = 0;
  uint32_t maximum = 0;
  uint32_t average = 0;
  box.U32(&buffer_size).U32(&maximum).U32(&average);
  if (box.Failed()) return box.Error();
  walk.track->m_dwMaxSampleSize = buffer_size;
  walk.track->m_dwBitRate = maximum > average ? maximum : average;
  return 0;
}

// ---- Sample entries

int32_t ParseNt3dBox(BoxWalk& walk, uint32_t payload) {
  walk.track->m_bSpherical = 1;
  return ParseSt3d(walk, payload);
}

int32_t ParseNv3dBox(BoxWalk& walk, uint32_t payload) {
  walk.track->m_bSpherical = 1;
  return ParseSv3d(walk, payload);
}

constexpr BoxRow kAudioEntryRows[] = {
    {FourCC("esds"), &ParseEsds},
    {FourCC("wave"), nullptr},
};
static_assert(EveryTypeOnce(kAudioEntryRows));

constexpr BoxRow kVideoEntryRows[] = {
    {FourCC("esds"), &ParseEsds},    {FourCC("avcC"), &ParseAvcc},    {FourCC("hvcC"), &ParseHvcc},
    {FourCC("st3d"), &ParseSt3d},    {FourCC("sv3d"), &ParseSv3d},    {FourCC("btrt"), &ParseBtrt},
    {FourCC("nt3d"), &ParseNt3dBox}, {FourCC("nv3d"), &ParseNv3dBox},
};
static_assert(EveryTypeOnce(kVideoEntryRows));

int32_t ParseAudio(BoxWalk& walk, uint32_t payload) {
  constexpr const char* kFunction = "MP4ReaderParseAudio";
  MP4ReaderTrack& track = *walk.track;
  BoxReader box = ReadBox(walk, payload, kFunction);
  uint32_t version = 0;
  box.U16(&version).Skip(6).U16(&track.m_dwChannels).U16(&track.m_dwBitsPerSample);
  box.Skip(4).U16(&track.m_dwSampleRate).Skip(2);  // the integer part of a 16.16 number
  if (version == 1) box.Skip(16);
  if (version == 2) box.Skip(36);
  const int32_t result = box.Settle();
  if (Failed(result)) return result;
  BoxWalk entry{walk.handle, walk.track};
  return WalkBoxes(entry, static_cast<uint32_t>(box.Left()), kAudioEntryRows, kFunction);
}

int32_t ParseVideo(BoxWalk& walk, uint32_t payload) {
  constexpr const char* kFunction = "MP4ReaderParseVideo";
  BoxReader box = ReadBox(walk, payload, kFunction);
  box.Skip(16).U16(&walk.track->m_dwWidth).U16(&walk.track->m_dwHeight).Skip(50);
  const int32_t result = box.Settle();
  if (Failed(result)) return result;
  BoxWalk entry{walk.handle, walk.track};
  return WalkBoxes(entry, static_cast<uint32_t>(box.Left()), kVideoEntryRows, kFunction);
}

// ---- stsd

constexpr uint32_t kKeepCode = 0;

template <uint32_t kCode, bool kPcm = false>
int32_t ParseAudioEntry(BoxWalk& walk, uint32_t payload) {
  if (kCode != kKeepCode) walk.track->m_dwFourCC = kCode;
  walk.track->m_bPcmFraming = kPcm ? 1 : 0;
  const int32_t result = ReadBox(walk, payload, "MP4ReaderParseStsd").Skip(8).Settle();
  if (Failed(result)) return result;
  return ParseAudio(walk, payload < 8 ? 0 : payload - 8);
}

template <uint32_t kCode>
int32_t ParseVideoEntry(BoxWalk& walk, uint32_t payload) {
  walk.track->m_dwFourCC = kCode;
  const int32_t result = ReadBox(walk, payload, "MP4ReaderParseStsd").Skip(8).Settle();
  if (Failed(result)) return result;
  return ParseVideo(walk, payload < 8 ? 0 : payload - 8);
}

// Of several entries the last one that is known wins.
constexpr BoxRow kSampleEntryRows[] = {
    {FourCC("samr"), &ParseAudioEntry<kKeepCode>},           {FourCC("sevc"), &ParseAudioEntry<kKeepCode>},
    {FourCC("sqcp"), &ParseAudioEntry<kKeepCode>},           {FourCC("sawb"), &ParseAudioEntry<kKeepCode>},
    {FourCC("mp4a"), &ParseAudioEntry<ZMV_AUDIO_AAC>},       {FourCC(".mp3"), &ParseAudioEntry<ZMV_AUDIO_MPEG>},
    {FourCC("sowt"), &ParseAudioEntry<ZMV_AUDIO_PCM, true>}, {FourCC("ipcm"), &ParseAudioEntry<ZMV_AUDIO_PCM, true>},
    {FourCC("lpcm"), &ParseAudioEntry<ZMV_AUDIO_PCM, true>}, {FourCC("avc1"), &ParseVideoEntry<FourCC("AVC1")>},
    {FourCC("hev1"), &ParseVideoEntry<FourCC("HEV1")>},      {FourCC("hvc1"), &ParseVideoEntry<FourCC("hvc1")>},
    {FourCC("mp4v"), &ParseVideoEntry<FourCC("MP4V")>},      {FourCC("s263"), &ParseVideoEntry<FourCC("H263")>},
};
static_assert(EveryTypeOnce(kSampleEntryRows));

}  // namespace

int32_t ParseWith(BoxParser parse, MP4FReaderHandle* handle, MP4ReaderTrack* track, uint32_t size,
                  const char* function) {
  TraceScope scope(kModule, function);
  if (handle == nullptr || track == nullptr) return scope.Fail(Result(ZMV_E_FAIL));
  BoxWalk walk{*handle, track};
  const int32_t result = parse(walk, size);
  return Failed(result) ? scope.Fail(result) : result;
}

int32_t ParseStsd(BoxWalk& walk, uint32_t payload) {
  constexpr const char* kFunction = "MP4ReaderParseStsd";
  constexpr uint32_t kEntryCountSize = 4;
  BoxReader box = ReadBox(walk, payload, kFunction);
  const int32_t result = box.Skip(kEntryCountSize).Settle();
  if (Failed(result)) return result;
  BoxWalk stsd{walk.handle, walk.track};
  return WalkBoxes(stsd, static_cast<uint32_t>(box.Left()), kSampleEntryRows, kFunction);
}

}  // namespace zmv::mp4::reader

using namespace zmv::mp4::reader;

int32_t MP4ReaderParseStsd(MP4FReaderHandle* handle, MP4ReaderTrack* track, uint32_t size) {
  return ParseWith(&ParseStsd, handle, track, size, __func__);
}

int32_t MP4ReaderParseAudio(MP4FReaderHandle* handle, MP4ReaderTrack* track, uint32_t size) {
  return ParseWith(&ParseAudio, handle, track, size, __func__);
}

int32_t MP4ReaderParseVideo(MP4FReaderHandle* handle, MP4ReaderTrack* track, uint32_t size) {
  return ParseWith(&ParseVideo, handle, track, size, __func__);
}

int32_t MP4ReaderParseAVCC(MP4FReaderHandle* handle, MP4ReaderTrack* track, uint32_t size) {
  return ParseWith(&ParseAvcc, handle, track, size, __func__);
}

int32_t MP4ReaderParseHVCC(MP4FReaderHandle* handle, MP4ReaderTrack* track, uint32_t size) {
  return ParseWith(&ParseHvcc, handle, track, size, __func__);
}

int32_t MP4ReaderParseBTRT(MP4FReaderHandle* handle, MP4ReaderTrack* track, uint32_t size) {
  return ParseWith(&ParseBtrt, handle, track, size, __func__);
}

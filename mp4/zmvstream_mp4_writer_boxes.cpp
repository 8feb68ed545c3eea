// The boxes of moov whose layout is fixed (ISO/IEC 14496-12, clause 8). Creation and modification times are 0
// throughout.
#include <initializer_list>

#include "facade/zmvstream_media.h"
#include "mp4/box_builder.h"
#include "mp4/mp4_writer_boxes.h"

namespace zmv::mp4 {
namespace {

constexpr uint32_t kUnityRate = 0x00010000;
constexpr uint32_t kFullVolume = 0x0100;
constexpr uint32_t kTrackEnabled = 1;
constexpr uint32_t kMediaInSameFile = 1;
constexpr uint32_t kStszHeaderSize = 20;
// Raw audio keeps the low three bytes of its duration.
constexpr uint32_t kRawDurationMask = 0x00FFFFFF;

// The unity matrix: 16.16 numbers, in the last column 2.30.
void WriteMatrix(BoxBuilder& out) {
  constexpr uint32_t kOne = 0x00010000;
  out.U32(kOne).Zeros(12).U32(kOne).Zeros(12).U32(0x40000000);
}

void WriteTrackHeader(BoxBuilder& out, const MP4WriterTrack& track) {
  const bool video = track.dwMediaType == ZMV_MEDIA_VIDEO;
  FullBox tkhd(out, FourCC("tkhd"), kTrackEnabled);
  out.Zeros(8).U32(track.dwTrackID).Zeros(4);
  out.U32(video ? track.m_dwMediaDur : track.m_dwMovieDur);
  out.Zeros(8).U16(0).U16(0);  // reserved, layer, alternate group
  out.U16(track.dwMediaType == ZMV_MEDIA_AUDIO ? kFullVolume : 0).U16(0);
  WriteMatrix(out);
  // 16.16 numbers.
  out.U32(video ? track.dwWidth << 16 : 0).U32(video ? track.dwHeight << 16 : 0);
}

// Raw audio is counted in samples from here on: its table entries last one sample each, so the duration is carried over
// from milliseconds. This happens once per track.
void WriteMediaHeader(BoxBuilder& out, MP4WriterTrack& track) {
  uint32_t scale = track.m_dwTimeScale;
  uint32_t duration = track.m_dwMediaDur;
  if (track.m_bRawAudio != 0) {
    scale = track.dwSampleRate;
    track.m_dwMediaDur = track.dwSampleRate * track.m_dwMediaDur / 1000;
    duration = track.m_dwMediaDur & kRawDurationMask;
  }
  FullBox mdhd(out, FourCC("mdhd"));
  out.Zeros(8).U32(scale).U32(duration);
  out.U16(0).U16(0);  // language, pre-defined
}

void WriteHandler(BoxBuilder& out, const MP4WriterTrack& track) {
  FullBox hdlr(out, FourCC("hdlr"));
  out.U32(0);
  switch (track.dwMediaType) {
    case ZMV_MEDIA_VIDEO:
      out.Code(FourCC("vide")).Zeros(12).Code(FourCC("vide"));
      break;
    case ZMV_MEDIA_AUDIO:
      out.Code(FourCC("soun")).Zeros(12).Code(FourCC("soun"));
      break;
    case ZMV_MEDIA_TEXT:
      // The name is the code as a number, so its characters stand in reverse order; readers take the code from here.
      out.Code(FourCC("tvxt")).Zeros(12).U32(track.dwFourCC);
      break;
    default:
      out.Zeros(20);
      break;
  }
  out.U8(0);
}

void WriteMediaTypeHeader(BoxBuilder& out, const MP4WriterTrack& track) {
  switch (track.dwMediaType) {
    case ZMV_MEDIA_VIDEO: {
      FullBox vmhd(out, FourCC("vmhd"));
      out.Zeros(8);  // graphics mode, colour
      break;
    }
    case ZMV_MEDIA_AUDIO: {
      FullBox smhd(out, FourCC("smhd"));
      out.Zeros(4);  // balance, reserved
      break;
    }
    case ZMV_MEDIA_TEXT: {
      FullBox nmhd(out, FourCC("nmhd"));
      break;
    }
    default:
      break;
  }
}

void WriteDataInformation(BoxBuilder& out) {
  Box dinf(out, FourCC("dinf"));
  FullBox dref(out, FourCC("dref"));
  out.U32(1);
  FullBox url(out, FourCC("url "), kMediaInSameFile);
}

// Raw audio states one sample's bytes, compressed media the size that all samples have in common.
bool SampleSizeIsStated(const MP4WriterTrack& track) {
  return (track.m_bRawAudio != 0 ? track.dwBitsPerSample / 8 : track.m_dwConstSize) != 0;
}

// Gives every table box its final size, 0 for one that is not written, and returns their sum.
uint32_t SettleTableSizes(MP4WriterTrack& track) {
  if (SampleSizeIsStated(track)) track.m_Stsz.m_dwBoxSize = kStszHeaderSize;
  uint32_t sum = 0;
  for (MP4WriterTable* table : {&track.m_Stts, &track.m_Stsz, &track.m_Stco, &track.m_Stsc, &track.m_Stss}) {
    if (table->m_dwEntryNum == 0) table->m_dwBoxSize = 0;
    sum += table->m_dwBoxSize;
  }
  return sum;
}

void WriteSampleTable(BoxBuilder& out, MP4WriterTrack& track) {
  Box stbl(out, FourCC("stbl"));
  const uint32_t stsd = MakeStsd(track, out.At());
  // One that could not be built counts as -1 byte, and what it left behind is not part of the box.
  if (stsd == kNoSampleDescription) {
    out.Elsewhere(kNoSampleDescription);
  } else {
    out.Counted(stsd);
  }
  out.Elsewhere(SettleTableSizes(track));
}

void WriteMedia(BoxBuilder& out, MP4WriterTrack& track) {
  Box mdia(out, FourCC("mdia"));
  WriteMediaHeader(out, track);
  WriteHandler(out, track);
  Box minf(out, FourCC("minf"));
  WriteMediaTypeHeader(out, track);
  WriteDataInformation(out);
  WriteSampleTable(out, track);
}

// The track with the most media ticks, the first of equals; null without tracks.
const MP4WriterTrack* ReferenceTrack(const MP4WriterHandle& writer) {
  const MP4WriterTrack* reference = nullptr;
  for (uint32_t i = 0; i < writer.m_dwTrackNum; ++i) {
    const MP4WriterTrack* track = writer.m_pTrack[i];
    if (reference == nullptr || track->m_dwMediaDur > reference->m_dwMediaDur) reference = track;
  }
  return reference;
}

}  // namespace

uint32_t MakeMovieHeader(const MP4WriterHandle& writer, uint8_t* dst) {
  const MP4WriterTrack* reference = ReferenceTrack(writer);
  BoxBuilder out(dst);
  {
    FullBox mvhd(out, FourCC("mvhd"));
    out.Zeros(8);
    out.U32(reference != nullptr ? reference->m_dwTimeScale : 0);
    out.U32(reference != nullptr ? reference->m_dwMediaDur : 0);
    out.U32(kUnityRate).U16(kFullVolume).Zeros(10);
    WriteMatrix(out);
    out.Zeros(24);
    // The next track ID is the number of tracks. Players that need one more are not known.
    out.U32(writer.m_dwTrackNum);
  }
  return out.Size();
}

uint32_t MakeTrackHeader(MP4WriterTrack& track, uint8_t* dst) {
  BoxBuilder out(dst);
  {
    Box trak(out, FourCC("trak"));
    WriteTrackHeader(out, track);
    WriteMedia(out, track);
  }
  return out.Size();
}

}  // namespace zmv::mp4

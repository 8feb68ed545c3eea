// One frame: its recovery record and payload in mdat, its entries in the sample tables.
#include <algorithm>

#include "base/arith.h"
#include "base/byte_order.h"
#include "mp4/mp4_writer.h"
#include "mp4/mp4_writer_boxes.h"
#include "mp4/mp4_writer_tables.h"
#include "mp4/zmvstream_mp4_writer.h"

namespace zmv::mp4 {
namespace {

constexpr uint64_t kMaxFileSize = 0xFFFFFFFF;
constexpr uint32_t kStartCodeSize = 4;

// The most that one frame adds to the tables.
constexpr uint32_t kEntriesPerFrame =
    kSttsEntrySize + kStszEntrySize + kStcoEntrySize + kStssEntrySize + kStscEntrySize;

// Below this projection a file has room for whatever closing adds: the user boxes, the stsc entries of raw audio and
// the last spills, the only parts that grow with the frames, take less than what their frames have taken already.
constexpr uint64_t kClosingMatters = 0x80000000;
// Two stts entries, one of stsc, and what a sample description takes beyond the estimate for a track.
constexpr uint32_t kClosingSttsEntries = 2;
constexpr uint32_t kClosingPerTrack = kClosingSttsEntries * kSttsEntrySize + kStscEntrySize + 64;

// The track of a frame. A stream number that no track has goes to the last track.
MP4WriterTrack* FindTrack(const MP4WriterHandle& writer, const ZMVFrame& frame) {
  if (writer.m_dwTrackNum == 0) return nullptr;
  const uint32_t last = writer.m_dwTrackNum - 1;
  uint32_t ordinal = 0;
  for (uint32_t i = 0; i < last; ++i) {
    MP4WriterTrack* const track = writer.m_pTrack[i];
    if (track->dwMediaType == frame.dwMediaType && ordinal++ == frame.dwTrack) return track;
  }
  return writer.m_pTrack[last];
}

bool IsKey(const MP4WriterTrack& track, const ZMVFrame& frame) {
  return frame.dwMediaType == ZMV_MEDIA_VIDEO && frame.dwKeyFrame == ZMV_KEY_FRAME && track.m_Stss.m_pBuf != nullptr;
}

// Adds the block that the next entry of a table would spill. False when that would be one spill too many.
bool CountSpill(const MP4WriterTable& table, uint32_t entry_size, uint64_t& bytes) {
  if (HasRoom(table, entry_size)) [[likely]]
    return true;
  bytes += kSpillHeaderSize + table.m_dwUsed;
  return table.m_dwSpillNum < kMp4TableMaxSpills;
}

// What a table may spill at close, where `entries` are added to it behind one of this frame.
uint64_t ClosingSpills(const MP4WriterTable& table, uint32_t entry_size, uint32_t entries) {
  if (table.m_pBuf == nullptr || HasRoom(table, (entries + 1) * entry_size)) return 0;
  const uint64_t spills = table.m_dwBufSize < entries * entry_size ? entries : 1;
  return spills * (uint64_t{kSpillHeaderSize} + table.m_dwBufSize);
}

// What Close may write beyond the projected size.
uint64_t ClosingBytes(const MP4WriterHandle& writer) {
  uint64_t bytes = kBoxHeaderSize + UserBoxBytes(writer);
  for (uint32_t i = 0; i < writer.m_dwTrackNum; ++i) {
    const MP4WriterTrack& track = *writer.m_pTrack[i];
    bytes += kClosingPerTrack + uint64_t{track.m_dwConfigSize} * 3 / 2;
    bytes += ClosingSpills(track.m_Stts, kSttsEntrySize, kClosingSttsEntries);
    bytes += ClosingSpills(track.m_Stsc, kStscEntrySize, 1);
    if (track.m_bSpherical != 0) bytes += kMaxSphericalBoxes;
    if (track.m_bRawAudio != 0) bytes += (uint64_t{track.m_Stsz.m_dwEntryNum} + 1) * kStscEntrySize;
  }
  return bytes;
}

// True when the frame leaves the file below 4 GiB and no table spills more often than it can. Nothing has been touched
// by then, so the tables never disagree.
bool HasRoomFor(const MP4WriterHandle& writer, const MP4WriterTrack& track, const ZMVFrame& frame) {
  uint64_t size = std::max(uint64_t{writer.m_dwCurSize}, uint64_t{writer.m_dwMdatPos} + writer.m_dwMdatSize);
  size += uint64_t{kRecoveryRecordSize} + frame.dwSize + kEntriesPerFrame;
  bool fits = CountSpill(track.m_Stts, kSttsEntrySize, size);
  fits &= CountSpill(track.m_Stsz, kStszEntrySize, size);
  fits &= CountSpill(track.m_Stco, kStcoEntrySize, size);
  if (IsKey(track, frame)) fits &= CountSpill(track.m_Stss, kStssEntrySize, size);
  if (writer.m_bNoInterleave != 0) {
    fits &= CountSpill(track.m_Stsc, kStscEntrySize, size);
    // A frame that opens a chunk ends the one of the frame before it.
    const MP4WriterTrack* const last = writer.m_pLastTrack;
    if (last != nullptr && last != &track) fits &= CountSpill(last->m_Stsc, kStscEntrySize, size);
  }
  if (size >= kClosingMatters) [[unlikely]]
    size += ClosingBytes(writer);
  return fits && size <= kMaxFileSize;
}

// Ticks of a duration in units of 1 / `units` seconds; halves go away from zero. As std::round(), for durations, and
// without a call: the fraction is exact, while adding a half would round for itself.
uint32_t Ticks(double scaled, double units) {
  const double value = scaled / units;
  const uint32_t whole = SaturatingU32(value);
  return SaturatingU32(uint64_t{whole} + (value - whole >= 0.5 ? 1 : 0));
}

// Counts the frame in its track and adds its duration and size. A frame's stts entry is the duration that the next
// frame brings; the last one is added at close.
void CountFrame(MP4WriterHandle& writer, MP4WriterTrack& track, const ZMVFrame& frame) {
  ++track.dwTotalFrames;
  if (track.m_llFirstCTS == 0) track.m_llFirstCTS = frame.llTimeStamp;
  const bool video = frame.dwMediaType == ZMV_MEDIA_VIDEO;
  const double scaled = static_cast<double>(track.m_dwTimeScale) * frame.dwDuration;
  const uint32_t ticks = Ticks(scaled, video ? 1000000.0 : 1000.0);
  if (track.dwTotalFrames > 1) {
    Insist(AppendTimeToSample, writer, track, ticks);
    track.m_llLastCTS = frame.llTimeStamp;
  }
  track.m_dwMediaDur += ticks;
  track.m_dwLastDur = ticks;
  if (video) {
    track.m_dwMovieDur = track.m_dwMediaDur;
  } else {
    track.m_dwMovieDur += Ticks(static_cast<double>(frame.dwDuration) * 1000.0 * track.m_dwMovieScale, 1000000.0);
  }
  Insist(AppendSampleSize, writer, track, frame.dwSize);
  if (IsKey(track, frame)) Insist(AppendSyncSample, writer, track);
}

// Without interleaving a run of frames of one track is a chunk, unless a spilled table lies between them.
void ContinueOrOpenChunk(MP4WriterHandle& writer, MP4WriterTrack& track) {
  if (&track == writer.m_pLastTrack && writer.m_bNewChunk == 0) {
    ++track.m_dwChunkSamples;
    return;
  }
  if (writer.m_pLastTrack != nullptr) Insist(AppendSampleToChunk, writer, *writer.m_pLastTrack);
  Insist(AppendChunkOffset, writer, track);
  track.m_dwCurChunk = ++track.m_dwChunkNum;
  track.m_dwChunkSamples = 1;
  writer.m_bNewChunk = 0;
  writer.m_pLastTrack = &track;
}

int32_t PlaceInChunk(MP4WriterHandle& writer, MP4WriterTrack& track) {
  if (writer.m_bNoInterleave != 0) {
    ContinueOrOpenChunk(writer, track);
    return 0;
  }
  const int32_t result = Insist(AppendChunkOffset, writer, track);
  if (Failed(result)) ZMV_TRACE(kWriterModule, kTraceError, "stco entry write error (%d)\n", result);
  return result;
}

// The bytes written, or the first code when a write fails: a sum of codes could be positive.
int64_t WritePayload(MP4WriterHandle& writer, const MP4WriterTrack& track, const ZMVFrame& frame) {
  if (frame.dwSize < kStartCodeSize || !BeginsWithStartCode(track.dwFourCC)) {
    return WriteMedia(writer, frame.pData, frame.dwSize);
  }
  const uint32_t rest = frame.dwSize - kStartCodeSize;
  uint8_t length[kStartCodeSize];
  StoreBE32(length, rest);
  const int64_t first = WriteMedia(writer, length, sizeof length);
  const int64_t second = ContinueMedia(writer, frame.pData + kStartCodeSize, rest);
  if (first < 0) return first;
  return second < 0 ? second : first + second;
}

void ReportBackwardTime(const MP4WriterTrack& track, const ZMVFrame& frame) {
  ZMV_TRACE(kWriterModule, kTraceError, "CTS went backwards.!!! (prev %llu > curr %llu) media(%d) index(%d) dur(%d)\n",
            static_cast<unsigned long long>(track.m_llLastCTS), static_cast<unsigned long long>(frame.llTimeStamp),
            static_cast<int>(frame.dwMediaType), static_cast<int>(frame.dwTrack), static_cast<int>(frame.dwDuration));
}

int32_t WriteFrame(MP4WriterHandle& writer, MP4WriterTrack& track, const ZMVFrame& frame) {
  // Stamps that go back are only reported: tables hold durations.
  if (frame.llTimeStamp < track.m_llLastCTS) ReportBackwardTime(track, frame);
  CountFrame(writer, track, frame);
  WriteRecoveryRecord(writer, frame);
  if (const int32_t result = PlaceInChunk(writer, track); Failed(result)) return result;

  const int64_t written = WritePayload(writer, track, frame);
  if (written < 0) {
    const int32_t result = static_cast<int32_t>(written);
    ZMV_TRACE(kWriterModule, kTraceError, "write error (%d)\n", result);
    return result;
  }
  GrowMdat(writer, static_cast<uint32_t>(written));
  track.m_dwMaxSize = std::max(track.m_dwMaxSize, frame.dwSize);
  if (track.m_bRawAudio != 0 && track.m_dwSampPerFrame == 0) {
    track.m_dwSampPerFrame = DivideOrZero(frame.dwSize, track.dwBitsPerSample / 8);
  }
  if (writer.m_bExtUserData != 0 && frame.dwMediaType == ZMV_MEDIA_TEXT) CollectUserData(writer, frame);
  return 0;
}

}  // namespace
}  // namespace zmv::mp4

using namespace zmv;
using namespace zmv::mp4;

int32_t MP4WriterWriteFrame(MP4WriterHandle* handle, ZMVFrame* frame) {
  TraceScope scope(kWriterModule, __func__);
  if (handle == nullptr || frame == nullptr || (frame->pData == nullptr && frame->dwSize != 0)) {
    return scope.Fail(Result(ZMV_E_FAIL), "no handle or no frame\n");
  }
  MP4WriterTrack* const track = FindTrack(*handle, *frame);
  if (track == nullptr) {
    return scope.Fail(-1, "can not find matched stream media(%d) index(%d)\n", static_cast<int>(frame->dwMediaType),
                      static_cast<int>(frame->dwTrack));
  }
  if (!HasRoomFor(*handle, *track, *frame)) {
    return scope.Fail(Result(ZMV_E_WRITE), "no room for frame media(%d) index(%d) size(%u)\n",
                      static_cast<int>(frame->dwMediaType), static_cast<int>(frame->dwTrack), frame->dwSize);
  }
  const int32_t result = WriteFrame(*handle, *track, *frame);
  return Failed(result) ? scope.Fail(result) : 0;
}

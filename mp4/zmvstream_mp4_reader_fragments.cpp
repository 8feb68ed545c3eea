// Fragments (ISO/IEC 14496-12 8.8): samples that follow those of moov, described by a moof in front of their data. When
// a file is described its truns are only counted; what they say is read when their samples are.
#include "base/arith.h"
#include "mp4/mp4_fragments.h"
#include "mp4/mp4_table_cursor.h"

namespace zmv::mp4::reader {
namespace {

constexpr const char* kFunction = "MP4ReaderParseTraf";
constexpr float kMilliseconds = 1000.0f;
constexpr float kMicroseconds = 1000000.0f;
constexpr int32_t kEnd = Result(ZMV_E_END);

// ---- mvex

int32_t ParseMehd(BoxWalk& walk, uint32_t payload) {
  BoxReader box = ReadBox(walk, payload, "MP4ReaderParseMvex");
  uint32_t version = 0;
  uint32_t duration = 0;
  box.U8(&version).Skip(3);
  if (version != 0) box.Skip(4);
  box.U32(&duration);
  if (box.Failed()) return box.Error();
  walk.handle.m_dwFragDuration = duration;
  return 0;
}

int32_t ParseTrex(BoxWalk& walk, uint32_t payload) {
  BoxReader box = ReadBox(walk, payload, "MP4ReaderParseMvex");
  uint32_t id = 0;
  uint32_t duration = 0;
  uint32_t size = 0;
  box.Skip(4).U32(&id).Skip(4).U32(&duration).U32(&size);
  if (box.Failed()) return box.Error();
  MP4ReaderTrack* track = FindTrack(walk.handle, id);
  if (track == nullptr) return 0;
  track->m_dwTrexDuration = duration;
  track->m_dwTrexSize = size;
  return 0;
}

constexpr BoxRow kMovieExtendsRows[] = {
    {FourCC("mehd"), &ParseMehd},
    {FourCC("trex"), &ParseTrex},
};
static_assert(EveryTypeOnce(kMovieExtendsRows));

// ---- Forms that are read wrongly: each is said once per track, while the file is being described

void NoteBase(MP4ReaderTrack& track, const Tfhd& tfhd) {
  track.m_dwFragNotes &= ~uint32_t{kFragTrunInTraf};
  if (!tfhd.has_base) {
    return NoteOnce(track, kFragNoBase, kFunction,
                    "TrackID(%d) fragments without base offset are read at wrong places\n");
  }
  if ((track.m_dwFragNotes & kFragBaseKnown) && track.m_dwFragLastBase != tfhd.defaults.base_offset) {
    NoteSeekLimit(track, kFunction);
  }
  track.m_dwFragNotes |= kFragBaseKnown;
  track.m_dwFragLastBase = tfhd.defaults.base_offset;
}

void NoteTrun(MP4ReaderTrack& track, uint32_t flags) {
  if ((track.m_dwFragNotes & kFragTrunInTraf) && !(flags & kTrunDataOffset)) {
    NoteOnce(track, kFragNoDataOffset, kFunction,
             "TrackID(%d) trun without data offset behind another is read at a wrong place\n");
  }
  track.m_dwFragNotes |= kFragTrunInTraf;
}

// ---- traf, while the file is being described

int32_t OpenFragments(MP4FReaderHandle& handle, MP4ReaderTrack& track, uint32_t start) {
  TableCursor cursor = Fragments(handle, track);
  if (cursor.Present()) return 0;
  const int32_t result = cursor.Open(start);
  if (Failed(result)) {
    ::ZMV_Trace(kModule.tag, kTraceError, kModule.source, __LINE__, kFunction,
                "[Reader]\t\tMP4ReaderParseTraf - ZMVStreamBuf_Index error!!!\n");
  }
  return result;
}

int32_t ParseTfhd(BoxWalk& walk, uint32_t payload) {
  BoxReader box = ReadBox(walk, payload, kFunction);
  const uint32_t start = box.Position() - kBoxHeaderSize;
  Tfhd tfhd;
  int32_t result = ReadTfhd(box, &tfhd);
  if (Failed(result)) return result;

  const uint32_t known = walk.handle.m_dwTrackCount;
  walk.track = FindTrack(walk.handle, tfhd.track_id);
  if (walk.track == nullptr) {
    if (known < kMp4ReaderMaxTracks) return Result(ZMV_E_MEMORY);
    walk.stop = true;  // one track too many: passed over
    return 0;
  }
  result = OpenFragments(walk.handle, *walk.track, start);
  if (!Failed(result)) NoteBase(*walk.track, tfhd);
  return result;
}

int32_t CountTrun(BoxWalk& walk, uint32_t payload) {
  if (walk.track == nullptr) return 0;
  BoxReader box = ReadBox(walk, payload, kFunction);
  uint32_t flags = 0;
  box.U32(&flags);
  if (box.Failed()) return box.Error();
  ++walk.track->m_dwTrunCount;
  NoteTrun(*walk.track, flags);
  return 0;
}

constexpr BoxRow kTrackFragmentRows[] = {
    {FourCC("tfhd"), &ParseTfhd},
    {FourCC("trun"), &CountTrun},
};
static_assert(EveryTypeOnce(kTrackFragmentRows));

constexpr BoxRow kMovieFragmentRows[] = {
    {FourCC("traf"), &ParseTraf},
};

// ---- Frames

FragmentDefaults LiveDefaults(const MP4ReaderTrack& track) {
  return {track.m_dwBaseOffset, track.m_dwTfhdDuration, track.m_dwTfhdSize};
}

void SetLiveDefaults(MP4ReaderTrack& track, const FragmentDefaults& defaults) {
  track.m_dwBaseOffset = track.m_dwSearchBase = defaults.base_offset;
  track.m_dwTfhdDuration = defaults.duration;
  track.m_dwTfhdSize = defaults.size;
}

// Reads the trun that the fragment cursor stands on, and puts the payload cursor at its data.
int32_t BeginTrun(const MP4FReaderHandle& handle, MP4ReaderTrack& track, const FragmentDefaults& defaults,
                  uint32_t payload, const char* function) {
  Trun trun;
  int32_t result = ReadTrunHeader(handle, track, payload, &trun, function);
  if (Failed(result)) return result;
  const int64_t data = int64_t{defaults.base_offset} + trun.data_offset;
  const int64_t moved = data < 0 || data > 0xFFFFFFFF
                            ? int64_t{Result(ZMV_E_SEEK)}
                            : ZMVStreamBuf_Seek(track.m_hStream, track.m_dwIndex, static_cast<uint32_t>(data));
  if (Failed(moved)) return Report(StreamError(moved), function);
  if (trun.samples == 0) {
    result = LeaveTrun(handle, track, trun.end, function);
    if (Failed(result)) return result;
  }
  SetLiveDefaults(track, defaults);
  track.m_dwTrunFlags = trun.flags;
  track.m_dwTrunLeft = trun.samples;
  track.m_dwTrunEnd = trun.end;
  ++track.m_dwTrunIndex;
  track.m_dwTrunEntered = track.m_dwTrunIndex;
  track.m_dwTrunSamples = trun.samples;
  return 0;
}

// Goes to the next trun that has samples once those of the current one are used up.
int32_t EnterTrun(const MP4FReaderHandle& handle, MP4ReaderTrack& track, const char* function) {
  TableCursor cursor = Fragments(handle, track);
  while (track.m_dwTrunLeft == 0) {
    if (!cursor.Present() || track.m_dwTrunIndex >= track.m_dwTrunCount) return kEnd;
    const uint32_t before = cursor.Position();
    FragmentDefaults defaults = LiveDefaults(track);
    uint32_t payload = 0;
    int32_t result = FindTrun(handle, track, &defaults, &payload, function);
    if (Failed(result)) return result;
    if (result == kNoTrun) return kEnd;
    result = BeginTrun(handle, track, defaults, payload, function);
    if (Failed(result)) {
      cursor.Move(before);
      return result;
    }
  }
  return 0;
}

int32_t ReadPayload(const MP4ReaderTrack& track, uint8_t* to, uint32_t size, const char* function) {
  if (size == 0) return 0;
  const uint32_t before = ZMVStreamBuf_Pos(track.m_hStream, track.m_dwIndex);
  const int64_t result = ZMVStreamBuf_ReadBuffer(track.m_hStream, track.m_dwIndex, to, size);
  if (result == size) return 0;
  ZMVStreamBuf_Seek(track.m_hStream, track.m_dwIndex, before);
  return result < 0 ? Report(StreamError(result), function) : kEnd;
}

// Stamps go on behind the samples of moov. The duration is that of the last sample of moov.
void Stamp(const MP4ReaderTrack& track, ZMVFrame& frame) {
  uint32_t time = 0;
  if (track.m_dwMediaType == ZMV_MEDIA_VIDEO) {
    frame.llTimeStampUs = TicksToUnits(track.m_dwFragDts, kMicroseconds, track.m_dwTimeScale);
    time = static_cast<uint32_t>(frame.llTimeStampUs / 1000);
  } else {
    time = TicksToUnits(track.m_dwFragDts, kMilliseconds, track.m_dwTimeScale);
  }
  frame.llTimeStamp = uint64_t{track.m_dwDuration} + time;
  frame.dwDuration = TicksToUnits(track.m_dwSttsDelta, kMilliseconds, track.m_dwTimeScale);
}

}  // namespace

int32_t ReadFragment(const MP4FReaderHandle& handle, MP4ReaderTrack& track, ZMVFrame& frame, const char* function) {
  int32_t result = EnterTrun(handle, track, function);
  if (Failed(result)) return result;
  TableCursor cursor = Fragments(handle, track);
  const uint32_t before = cursor.Position();
  FragmentSample sample;
  result = ReadTrunEntry(handle, track, track.m_dwTrunFlags, LiveDefaults(track), &sample, function);
  if (!Failed(result) && track.m_dwTrunLeft == 1) result = LeaveTrun(handle, track, track.m_dwTrunEnd, function);
  if (!Failed(result)) {
    frame.dwSize = sample.size;
    const uint32_t capacity = frame.pData != nullptr ? frame.dwBufSize : 0;
    if (sample.size > capacity) {
      frame.dwBufSize = sample.size;
      result = Result(ZMV_E_MP4_BUFFER);
    } else {
      result = ReadPayload(track, frame.pData, sample.size, function);
    }
  }
  if (Failed(result)) {
    cursor.Move(before);
    return result;
  }
  Stamp(track, frame);
  // A seek leaves these two as they are, and never in front of the first sample of a trun.
  const bool first = track.m_dwTrunEntered == track.m_dwTrunIndex && track.m_dwTrunSamples == track.m_dwTrunLeft;
  frame.dwKeyFrame = first ? ZMV_KEY_FRAME : ZMV_NOT_KEY_FRAME;
  track.m_dwFragDts += sample.duration;
  --track.m_dwTrunLeft;
  return 0;
}

// ---- The parsers of the walk

int32_t ParseMvex(BoxWalk& walk, uint32_t payload) {
  return WalkBoxes(walk, payload, kMovieExtendsRows, "MP4ReaderParseMvex");
}

int32_t ParseMoof(BoxWalk& walk, uint32_t payload) {
  return WalkBoxes(walk, payload, kMovieFragmentRows, "MP4ReaderParseMoof");
}

int32_t ParseTraf(BoxWalk& walk, uint32_t payload) {
  BoxWalk traf{walk.handle, nullptr};
  return WalkBoxes(traf, payload, kTrackFragmentRows, kFunction);
}

}  // namespace zmv::mp4::reader

using namespace zmv;
using namespace zmv::mp4::reader;

namespace {

int32_t ParseForHandle(BoxParser parse, MP4FReaderHandle* handle, uint32_t size, const char* function) {
  TraceScope scope(kModule, function);
  if (handle == nullptr) return scope.Fail(Result(ZMV_E_FAIL));
  BoxWalk walk{*handle, nullptr};
  const int32_t result = parse(walk, size);
  return Failed(result) ? scope.Fail(result) : result;
}

}  // namespace

int32_t MP4ReaderParseMvex(MP4FReaderHandle* handle, uint32_t size) {
  return ParseForHandle(&ParseMvex, handle, size, __func__);
}

int32_t MP4ReaderParseMoof(MP4FReaderHandle* handle, uint32_t size) {
  return ParseForHandle(&ParseMoof, handle, size, __func__);
}

int32_t MP4ReaderParseTraf(MP4FReaderHandle* handle, uint32_t size) {
  return ParseForHandle(&ParseTraf, handle, size, __func__);
}

uint8_t MP4ReaderReadTrun(MP4FReaderHandle* handle, MP4ReaderTrack* track) {
  TraceScope scope(kModule, __func__);
  if (handle == nullptr || track == nullptr || track->m_Frag.m_dwCursor == 0) return 0;
  FragmentDefaults defaults = LiveDefaults(*track);
  uint32_t payload = 0;
  const int32_t result = FindTrun(*handle, *track, &defaults, &payload, __func__);
  if (result == kTrunFound) SetLiveDefaults(*track, defaults);
  return static_cast<uint8_t>(result);
}

int32_t MP4ReaderReadFrameFrag(MP4FReaderHandle* handle, MP4ReaderTrack* track, ZMVFrame* frame) {
  TraceScope scope(kModule, __func__);
  if (handle == nullptr || track == nullptr || frame == nullptr) return scope.Fail(Result(ZMV_E_FAIL));
  return track->m_hStream != nullptr ? ReadFragment(*handle, *track, *frame, __func__) : Result(ZMV_E_END);
}

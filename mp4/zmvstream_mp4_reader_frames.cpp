// Reading the frames of a track one after another: size, chunk, times and key flag from the tables, then the payload.
#include "base/arith.h"
#include "mp4/mp4_fragments.h"
#include "mp4/mp4_frame_step.h"
#include "mp4/mp4_reader.h"
#include "mp4/mp4_table_cursor.h"

namespace zmv::mp4::reader {
namespace {

constexpr float kMilliseconds = 1000.0f;
constexpr float kMicroseconds = 1000000.0f;
constexpr uint32_t kNoChunk = 0xFFFFFFFFu;
constexpr uint32_t kStartCodeSize = 4;
constexpr uint8_t kStartCode[kStartCodeSize] = {0, 0, 0, 1};
// A frame that lasts longer than the average by more than this is reported with the average.
constexpr uint32_t kDurationTolerance = 5;

constexpr int32_t kEnd = Result(ZMV_E_END);

// The track that the frame names by its rank among those of its medium; the last slot when there are not that many.
MP4ReaderTrack* ChooseTrack(const MP4FReaderHandle& handle, const ZMVFrame& frame) {
  if (handle.m_dwTrackCount == 0) return nullptr;
  const uint32_t last = handle.m_dwTrackCount - 1;
  uint32_t rank = 0;
  for (uint32_t slot = 0; slot < last; ++slot) {
    MP4ReaderTrack* track = handle.m_pTrack[slot];
    if (track == nullptr || track->m_dwMediaType != frame.dwMediaType) continue;
    if (rank++ == frame.dwTrack) return track;
  }
  return handle.m_pTrack[last];
}

// The end of a table, or the failure that stopped its reading.
int32_t TableEnd(const Step& step, const TableCursor& table) {
  return table.Failed() ? Report(table.Error(), step.function) : kEnd;
}

// The size of the next sample, which has to fit `capacity`.
int32_t ReadSize(Step& step, uint32_t capacity, ZMVFrame& frame) {
  TableCursor sizes = SampleSizes(step.handle, step.track);
  uint32_t size = step.track.m_dwSampleSize;
  if (size == 0 && !step.Next(sizes, kSizes, &size)) return TableEnd(step, sizes);
  frame.dwSize = size;
  if (size <= capacity) return 0;
  sizes.StepBack();
  frame.dwBufSize = size;
  return Result(ZMV_E_MP4_BUFFER);
}

// Takes the next entry of stsc where it begins with the chunk to be entered.
int32_t ReadSamplesPerChunk(Step& step) {
  MP4ReaderTrack& track = step.track;
  if (track.m_dwNextFirstChunk != track.m_dwChunkIndex || track.m_dwStscEntry >= track.m_dwStscCount) return 0;
  TableCursor chunks = SampleChunks(step.handle, track);
  uint32_t description = 0;
  uint32_t first_chunk = 0;
  if (step.Next(chunks, kChunks, &track.m_dwSamplesPerChunk)) step.Next(chunks, kChunks, &description);
  ++track.m_dwStscEntry;
  track.m_dwNextFirstChunk = step.Next(chunks, kChunks, &first_chunk) ? first_chunk - 1 : kNoChunk;
  return chunks.Failed() ? Report(chunks.Error(), step.function) : 0;
}

int32_t EnterChunk(Step& step) {
  MP4ReaderTrack& track = step.track;
  uint32_t samples = 1;
  if (track.m_dwMediaType != ZMV_MEDIA_AUDIO && track.m_bPcmFraming == 0) {
    const int32_t result = ReadSamplesPerChunk(step);
    if (Failed(result)) return result;
    samples = track.m_dwSamplesPerChunk;
  }
  TableCursor offsets = ChunkOffsets(step.handle, track);
  if (!step.Next(offsets, kOffsets, &step.payload)) return TableEnd(step, offsets);
  ++track.m_dwChunkIndex;
  track.m_dwSamplesLeft = samples;
  const int64_t result = ZMVStreamBuf_Seek(track.m_hStream, track.m_dwIndex, step.payload);
  if (Failed(result)) [[unlikely]] {
    // The samples of this chunk count, but no bytes elsewhere may be taken for theirs: none are left at the end.
    step.lost = Report(StreamError(result), step.function);
    ZMVStreamBuf_SeekEnd(track.m_hStream, track.m_dwIndex, 0);
  }
  return 0;
}

// Places the payload cursor at the next sample. Behind the last chunk reading goes on where the last sample ended.
int32_t StepChunk(Step& step) {
  MP4ReaderTrack& track = step.track;
  if (track.m_dwSamplesLeft == 0 && track.m_dwChunkIndex < track.m_dwChunkCount) {
    const int32_t result = EnterChunk(step);
    if (Failed(result)) return result;
  } else {
    step.payload = ZMVStreamBuf_Pos(track.m_hStream, track.m_dwIndex);
  }
  step.placed = true;
  if (track.m_dwSamplesLeft != 0) --track.m_dwSamplesLeft;
  return 0;
}

// Brings m_dwSttsDelta up to date. Empty entries are passed over; behind the last one its delta stays in force.
int32_t ReadDelta(Step& step) {
  MP4ReaderTrack& track = step.track;
  if (track.m_dwSttsLeft != 0) return 0;
  TableCursor times = SampleTimes(step.handle, track);
  uint32_t count = 0;
  uint32_t delta = 0;
  while (count == 0 && step.Next(times, kTimes, &count) && step.Next(times, kTimes, &delta)) {
    if (count == 0) continue;
    track.m_dwSttsLeft = count;
    track.m_dwSttsDelta = delta;
  }
  return times.Failed() ? Report(times.Error(), step.function) : 0;
}

void AdvanceTime(MP4ReaderTrack& track) {
  if (track.m_dwSttsLeft != 0) --track.m_dwSttsLeft;
  track.m_dwDts += track.m_dwSttsDelta;
}

void StampVideo(const MP4ReaderTrack& track, ZMVFrame& frame) {
  frame.llTimeStampUs = TicksToUnits(track.m_dwDts, kMicroseconds, track.m_dwTimeScale);
  frame.llTimeStamp = frame.llTimeStampUs / 1000;
}

int32_t ReadTimes(Step& step, ZMVFrame& frame) {
  MP4ReaderTrack& track = step.track;
  if (track.m_bPcmFraming != 0 && track.m_dwSttsDelta != 0) {
    if (track.m_dwSttsLeft == 0) track.m_dwSttsLeft = track.m_dwSampleCount;
  } else {
    const int32_t result = ReadDelta(step);
    if (Failed(result)) return result;
  }
  frame.dwDuration = TicksToUnits(track.m_dwSttsDelta, kMilliseconds, track.m_dwTimeScale);
  if (track.m_dwMediaType == ZMV_MEDIA_VIDEO) {
    StampVideo(track, frame);
    const uint64_t average = DivideOrZero(track.m_dwDuration, track.m_dwSampleCount);
    if (track.m_dwSampleCount != 0 && average + kDurationTolerance < frame.dwDuration) {
      frame.dwDuration = static_cast<uint32_t>(average);
    }
  } else if (track.m_dwTimeScale != 0) {
    const float ticks = static_cast<float>(track.m_dwDts);
    frame.llTimeStamp = SaturatingCast<uint64_t>(ticks * kMilliseconds / static_cast<float>(track.m_dwTimeScale));
  } else {
    frame.llTimeStamp = 0;
  }
  AdvanceTime(track);
  return 0;
}

int32_t ReadTimesOfInfo(Step& step, ZMVFrame& frame) {
  MP4ReaderTrack& track = step.track;
  const int32_t result = ReadDelta(step);
  if (Failed(result)) return result;
  if (track.m_dwMediaType == ZMV_MEDIA_VIDEO) {
    StampVideo(track, frame);
  } else {
    frame.llTimeStamp = TicksToUnits(track.m_dwDts, kMilliseconds, track.m_dwTimeScale);
  }
  frame.dwDuration = TicksToUnits(track.m_dwSttsDelta, kMilliseconds, track.m_dwTimeScale);
  AdvanceTime(track);
  return 0;
}

int32_t ReadKeyFlag(Step& step, ZMVFrame& frame) {
  MP4ReaderTrack& track = step.track;
  frame.dwKeyFrame = ZMV_KEY_FRAME;
  if (track.m_dwStssCursor == 0) return 0;
  if (track.m_dwSampleIndex != track.m_dwNextSync - 1 || track.m_dwSyncEntry >= track.m_dwStssCount) {
    frame.dwKeyFrame = ZMV_NOT_KEY_FRAME;
    return 0;
  }
  TableCursor syncs = SyncSamples(step.handle, track);
  track.m_dwNextSync = 0;
  step.Next(syncs, kSyncs, &track.m_dwNextSync);
  ++track.m_dwSyncEntry;
  return syncs.Failed() ? Report(syncs.Error(), step.function) : 0;
}

// ---- Payload

// Reads exactly `size` bytes; anything less is the end of the recording.
int32_t ReadPayload(const MP4ReaderTrack& track, uint8_t* to, uint32_t size) {
  if (size == 0) return 0;
  return ZMVStreamBuf_ReadBuffer(track.m_hStream, track.m_dwIndex, to, size) == size ? 0 : kEnd;
}

// A NAL length field of 1 to 4 bytes at the payload cursor.
int32_t ReadNalLength(const MP4ReaderTrack& track, uint32_t* length) {
  int64_t error = 0;
  uint64_t value = 0;
  switch (track.m_dwNalLengthSize) {
    case 1:
      value = ZMVStreamBuf_ReadByte(track.m_hStream, track.m_dwIndex, &error);
      break;
    case 2:
      value = ZMVStreamBuf_ReadWordBE(track.m_hStream, track.m_dwIndex, &error);
      break;
    case 3:
      value = ZMVStreamBuf_Read3ByteBE(track.m_hStream, track.m_dwIndex, &error);
      break;
    default:
      value = ZMVStreamBuf_ReadDWordBE(track.m_hStream, track.m_dwIndex, &error);
      break;
  }
  *length = static_cast<uint32_t>(value);
  return error != 0 ? kEnd : 0;
}

// The length of the next unit of a sample of which `left` bytes are left, its length field taken off.
int32_t ReadUnitLength(const MP4ReaderTrack& track, uint32_t* left, uint32_t* length) {
  if (*left < track.m_dwNalLengthSize || Failed(ReadNalLength(track, length))) return kEnd;
  *left -= track.m_dwNalLengthSize;
  return *length <= *left ? 0 : kEnd;
}

// What the units from `length` on take behind start codes, in addition to `size`. Steps over the payload.
int32_t MeasureUnits(const MP4ReaderTrack& track, uint32_t left, uint32_t length, uint64_t* size) {
  for (;;) {
    *size += kStartCodeSize + uint64_t{length};
    left -= length;
    if (left == 0) return 0;
    const uint64_t next = ZMVStreamBuf_Pos(track.m_hStream, track.m_dwIndex) + uint64_t{length};
    if (next > 0xFFFFFFFFu) return kEnd;
    if (Failed(ZMVStreamBuf_Seek(track.m_hStream, track.m_dwIndex, static_cast<uint32_t>(next)))) return kEnd;
    const int32_t result = ReadUnitLength(track, &left, &length);
    if (Failed(result)) return result;
  }
}

// Puts the units of a sample behind start codes. ZMV_E_MP4_BUFFER with the size needed in dwBufSize when `capacity`
// is too small for them; start codes may be longer than the length fields.
int32_t ReadUnits(const MP4ReaderTrack& track, uint32_t capacity, ZMVFrame& frame) {
  uint32_t left = frame.dwSize;
  frame.dwSize = 0;
  while (left != 0) {
    uint32_t length = 0;
    int32_t result = ReadUnitLength(track, &left, &length);
    if (Failed(result)) return result;
    if (frame.dwSize + uint64_t{kStartCodeSize} + length > capacity) {
      uint64_t needed = frame.dwSize;
      result = MeasureUnits(track, left, length, &needed);
      if (Failed(result)) return result;
      frame.dwSize = frame.dwBufSize = SaturatingU32(needed);
      return Result(ZMV_E_MP4_BUFFER);
    }
    uint8_t* to = frame.pData + frame.dwSize;
    for (uint8_t byte : kStartCode) *to++ = byte;
    result = ReadPayload(track, to, length);
    if (Failed(result)) return result;
    frame.dwSize += kStartCodeSize + length;
    left -= length;
  }
  return 0;
}

// The size that ReadUnits would deliver, from length fields read one after another: exact when the sample is one unit.
int32_t EstimateUnits(const MP4ReaderTrack& track, ZMVFrame& frame) {
  int64_t left = frame.dwSize;
  uint64_t size = 0;
  while (left != 0) {
    uint32_t length = 0;
    const int32_t result = ReadNalLength(track, &length);
    if (Failed(result)) return result;
    size += kStartCodeSize;
    left -= track.m_dwNalLengthSize;
    if (left < int64_t{length}) break;
    size += length;
    left -= length;
  }
  frame.dwSize = SaturatingU32(size);
  return 0;
}

// ---- Frames

// A track from which a sample can be had: it has a payload stream, samples and chunks.
bool HasSample(const MP4ReaderTrack* track) {
  return track != nullptr && track->m_hStream != nullptr && track->m_dwSampleIndex < track->m_dwSampleCount &&
         track->m_dwChunkCount != 0;
}

// Goes on in the fragments once the samples of moov are used up.
int32_t ReadBehindTables(MP4FReaderHandle& handle, MP4ReaderTrack* track, ZMVFrame& frame, const char* function) {
  if (track == nullptr || track->m_hStream == nullptr || track->m_dwSampleIndex < track->m_dwSampleCount) return kEnd;
  return ReadFragment(handle, *track, frame, function);
}

// What the tables say about the next sample.
int32_t ReadTables(Step& step, uint32_t capacity, ZMVFrame& frame) {
  const MP4ReaderTrack& track = step.track;
  int32_t result = ReadSize(step, capacity, frame);
  if (Failed(result)) return result;
  // An audio frame is a chunk. A seek has entered the chunk of the next frame already.
  const bool audio = track.m_dwMediaType == ZMV_MEDIA_AUDIO;
  if (audio && track.m_dwSamplesLeft == 0 && track.m_dwChunkIndex >= track.m_dwChunkCount) return kEnd;
  result = StepChunk(step);
  if (!Failed(result)) result = ReadTimes(step, frame);
  if (!Failed(result)) result = ReadKeyFlag(step, frame);
  frame.dwChunk = track.m_dwChunkIndex;
  return result;
}

int32_t ReadTablesOfInfo(Step& step, ZMVFrame& frame) {
  int32_t result = ReadSize(step, frame.dwBufSize, frame);
  if (!Failed(result)) result = StepChunk(step);
  if (!Failed(result)) result = ReadTimesOfInfo(step, frame);
  if (!Failed(result)) result = ReadKeyFlag(step, frame);
  return result;
}

// Takes the step back that ended with `result`, which stays the result unless that fails.
int32_t GoBack(const Step& step, int32_t result) {
  const int32_t undone = step.Undo();
  return Failed(undone) ? undone : result;
}

// The end of a track and a buffer that is too small are ordinary answers.
constexpr bool IsFault(int32_t result) {
  return Failed(result) && result != kEnd && result != Result(ZMV_E_MP4_BUFFER);
}

}  // namespace

int32_t ReadFrame(MP4FReaderHandle& handle, ZMVFrame& frame) {
  constexpr const char* kFunction = "MP4FReaderReadFrame";
  MP4ReaderTrack* track = ChooseTrack(handle, frame);
  if (!HasSample(track)) return ReadBehindTables(handle, track, frame, kFunction);
  Step step(handle, *track, kFunction);
  const uint32_t capacity = frame.pData != nullptr ? frame.dwBufSize : 0;
  // Start codes that are longer than the length fields: the units tell what is needed.
  const bool grows = track->m_dwNalLengthSize != 0 && track->m_dwNalLengthSize < kStartCodeSize;
  int32_t result = ReadTables(step, grows ? 0xFFFFFFFFu : capacity, frame);
  if (result == Result(ZMV_E_MP4_BUFFER)) return result;
  if (Failed(result)) return GoBack(step, result);
  const uint32_t size = frame.dwSize;
  result = step.lost;
  if (!Failed(result)) {
    result =
        track->m_dwNalLengthSize == 0 ? ReadPayload(*track, frame.pData, size) : ReadUnits(*track, capacity, frame);
  }
  if (result == Result(ZMV_E_MP4_BUFFER)) return GoBack(step, result);
  ++track->m_dwSampleIndex;
  if (Failed(result) && !Failed(step.lost)) step.PassOver(size);
  return result;
}

int32_t ReadFrameInfo(MP4FReaderHandle& handle, ZMVFrame& frame) {
  constexpr const char* kFunction = "MP4FReaderReadFrameInfo";
  MP4ReaderTrack* track = ChooseTrack(handle, frame);
  if (!HasSample(track)) return kEnd;
  Step step(handle, *track, kFunction);
  const int32_t result = ReadTablesOfInfo(step, frame);
  if (result == Result(ZMV_E_MP4_BUFFER)) return result;
  if (Failed(result)) return GoBack(step, result);
  ++track->m_dwSampleIndex;
  if (Failed(step.lost)) return step.lost;
  return track->m_dwNalLengthSize != 0 ? EstimateUnits(*track, frame) : 0;
}

}  // namespace zmv::mp4::reader

using namespace zmv;
using namespace zmv::mp4::reader;

int32_t MP4FReaderReadFrame(MP4FReaderHandle* handle, ZMVFrame* frame) {
  TraceScope scope(kModule, __func__);
  if (handle == nullptr || frame == nullptr) return scope.Fail(Result(ZMV_E_FAIL));
  const int32_t result = ReadFrame(*handle, *frame);
  return IsFault(result) ? scope.Fail(result) : result;
}

int32_t MP4FReaderReadFrameInfo(MP4FReaderHandle* handle, ZMVFrame* frame) {
  TraceScope scope(kModule, __func__);
  if (handle == nullptr || frame == nullptr) return scope.Fail(Result(ZMV_E_FAIL));
  const int32_t result = ReadFrameInfo(*handle, *frame);
  return IsFault(result) ? scope.Fail(result) : result;
}

// What the source files of the MP4 writer share.
#ifndef ZMV_MP4_WRITER_H
#define ZMV_MP4_WRITER_H

#include "base/fourcc.h"
#include "base/trace.h"
#include "base/zmv_result.h"
#include "mp4/zmv_mp4_format.h"
#include "mp4/zmvstream_mp4_writer_records.h"

namespace zmv::mp4 {

inline constexpr TraceModule kWriterModule{"ZMVMP4W", "zmvstream_mp4_writer"};

// The boxes in front of the recovery boxes and of mdat whose sizes never change.
inline constexpr uint32_t kFtypSize = 28;
inline constexpr uint32_t kBuildInfoTextSize = sizeof(__DATE__) - 1 + sizeof(" KPZ") - 1;
inline constexpr uint32_t kFrontBoxesSize = kFtypSize + kBoxHeaderSize + kBuildInfoTextSize;
static_assert(sizeof(__DATE__) == 12, "the build date takes part in the size of the front boxes");
static_assert(kFrontBoxesSize == 51);

// Writes at the write cursor. The count, or the stream's negative code.
inline int64_t WriteBytes(MP4WriterHandle& writer, const void* bytes, uint32_t count) {
  return ZMVStreamBuf_WriteBuffer(writer.m_hInOut, writer.m_dwWidx, bytes, count);
}

// A write's count as a result: 0, or a code, which has then been traced. Less than all is ZMV_E_WRITE.
int32_t CheckWritten(int64_t written, uint32_t count);

inline int32_t WriteOrTrace(MP4WriterHandle& writer, const void* bytes, uint32_t count) {
  return CheckWritten(WriteBytes(writer, bytes, count), count);
}

// Where the next byte of mdat goes.
inline uint32_t MdatEnd(const MP4WriterHandle& writer) { return writer.m_dwMdatPos + writer.m_dwMdatSize; }

// Counts bytes just written to mdat.
inline void GrowMdat(MP4WriterHandle& writer, uint32_t bytes) {
  writer.m_dwCurSize += bytes;
  writer.m_dwMdatSize += bytes;
}

// Takes the write cursor to `position` after writes that were incomplete: back over what they left behind, or forth
// over zeros in place of what they left out. 0, or the stream's code.
int32_t AlignCursor(MP4WriterHandle& writer, uint32_t position);

// Writes more of mdat where the cursor stands.
inline int64_t ContinueMedia(MP4WriterHandle& writer, const void* bytes, uint32_t count) {
  const int64_t written = WriteBytes(writer, bytes, count);
  if (written != count) [[unlikely]]
    writer.m_bMisplaced = 1;
  return written;
}

// Writes at the end of mdat, which is where the tables will look for it, whatever became of the writes before.
inline int64_t WriteMedia(MP4WriterHandle& writer, const void* bytes, uint32_t count) {
  if (writer.m_bMisplaced != 0) [[unlikely]] {
    if (const int32_t result = AlignCursor(writer, MdatEnd(writer)); Failed(result)) return result;
    writer.m_bMisplaced = 0;
  }
  return ContinueMedia(writer, bytes, count);
}

// ---- What a file description means to the writer

// True when the stream counts fit their arrays and the tracks of a file, and every configuration its array.
bool WithinCapacity(const ZMVFileInfo& info);

inline uint32_t SampleEntryType(uint32_t code) {
  if (code == FourCC("H264")) return FourCC("avc1");
  if (code == FourCC("H265")) return FourCC("hvc1");
  return code;
}

// A file whose times are milliseconds would cut the 33333 microseconds of a video frame to 33 ms: such a scale is not
// taken.
inline uint32_t EffectiveTimeScale(const ZMVFileInfo& info, const ZMVVideoInfo& video) {
  if (video.dwTimeScale != 0) return video.dwTimeScale;
  return info.dwTimeScale > 1000 ? info.dwTimeScale : 90000;
}

inline uint32_t EffectiveTimeScale(const ZMVFileInfo& info, const ZMVTextInfo& text) {
  if (text.dwTimeScale != 0) return text.dwTimeScale;
  return info.dwTimeScale != 0 ? info.dwTimeScale : 1000;
}

// ---- Recovery data and user data

// Each writes its boxes and counts them. 0, or the stream's code.
int32_t WriteRecoveryBoxes(MP4WriterHandle& writer, const ZMVFileInfo& info);
int32_t WriteBuildInformation(MP4WriterHandle& writer);

// The record in front of a payload. Counted whether or not the write succeeds; the result is the stream's.
int64_t WriteRecoveryRecord(MP4WriterHandle& writer, const ZMVFrame& frame);

// The last GPS entry and sensor entry that any writer of the process has taken, kUserSampleSize bytes; null until a
// writer collects user data. It outlives the writers, so that a recording without a sample of its own repeats the last
// one.
extern uint8_t* pExtUserLast;
constexpr uint32_t kUserSampleSize = kGpsEntrySize + kSensorBlockSize;

// Takes the memory for the user data of a file that asks for it. Without the memory the feature stays off.
void PrepareUserData(MP4WriterHandle& writer, const ZMVFileInfo& info);
// Keeps the GPS block and the sensor block of a text frame.
void CollectUserData(MP4WriterHandle& writer, const ZMVFrame& frame);
// Bytes that the user boxes will take if one more sample is collected.
uint64_t UserBoxBytes(const MP4WriterHandle& writer);
// GPSR, SENS and AIDD at the write cursor; returns their bytes.
uint32_t WriteUserBoxes(MP4WriterHandle& writer);

}  // namespace zmv::mp4

#endif

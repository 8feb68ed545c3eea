// What finding, reading and seeking frames share.
#ifndef ZMV_AVI_FRAMES_H
#define ZMV_AVI_FRAMES_H

#include "avi/avi_reader.h"
#include "base/arith.h"

namespace zmv::avi::reader {

// The data present.
inline uint32_t DataEnd(ZMVStreamBuf& stream) {
  const int64_t size = ZMVStreamBuf_CurSize(&stream);
  return size < 0 ? 0 : SaturatingU32(static_cast<uint64_t>(size));
}

// True when the data is present up to `position`. Data never goes away, so a stream has to be asked only about
// positions beyond those that it was known to reach.
inline bool Reaches(AVIReaderStream& stream, uint64_t position) {
  if (position <= stream.m_dwDataEnd) [[likely]]
    return true;
  stream.m_dwDataEnd = DataEnd(*stream.m_hStream);
  return position <= stream.m_dwDataEnd;
}

// Moves a cursor to `position`. Where the distance fits a Skip that is used, because it keeps what the cursor has
// cached when the target lies inside; the distance is taken from where the cursor stands, so earlier short reads do not
// matter.
inline int64_t MoveTo(ZMVStreamBuf& stream, uint32_t cursor, uint32_t position) {
  const int64_t distance = int64_t{position} - ZMVStreamBuf_Pos(&stream, cursor);
  if (distance == 0) return 0;
  const int32_t delta = static_cast<int32_t>(distance);
  return delta == distance ? ZMVStreamBuf_Skip(&stream, cursor, delta) : ZMVStreamBuf_Seek(&stream, cursor, position);
}
inline int64_t MoveTo(const AVIReaderStream& stream, uint32_t position) {
  return MoveTo(*stream.m_hStream, stream.m_dwIndex, position);
}

// The milliseconds that `count` frames, or samples, take: in this order and in single precision.
inline uint32_t Milliseconds(const AVIReaderStream& stream, uint32_t count) {
  if (stream.m_dwRate == 0) return 0;
  return SaturatingU32(static_cast<float>(count) * (static_cast<float>(stream.m_dwScale) * 1000.0f) /
                       static_cast<float>(stream.m_dwRate));
}

// A stream in the handle's list that can be read, or null.
inline AVIReaderStream* StreamAt(const AVIReaderHandle& handle, uint32_t number) {
  AVIReaderStream* stream =
      number < handle.m_dwStreamCount && number < kMaxStreams ? handle.m_pStream[number] : nullptr;
  return stream != nullptr && stream->m_hStream != nullptr ? stream : nullptr;
}

// The stream with this rank among those of its medium, or null.
inline AVIReaderStream* StreamOfRank(const AVIReaderHandle& handle, uint32_t media, uint32_t rank) {
  for (uint32_t number = 0; number < handle.m_dwStreamCount && number < kMaxStreams; ++number) {
    AVIReaderStream* stream = StreamAt(handle, number);
    if (stream == nullptr || stream->m_dwMediaType != media) continue;
    if (rank-- == 0) return stream;
  }
  return nullptr;
}

// ---- The next chunk of a stream becomes its pending one: m_dwPos is then the end of its data.

int32_t FindByIndex(const AVIReaderHandle& handle, AVIReaderStream& stream, const char* function);
int32_t FindByScan(const AVIReaderHandle& handle, AVIReaderStream& stream, const char* function);

}  // namespace zmv::avi::reader

#endif

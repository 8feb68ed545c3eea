// What the source files of the file stream share.
#ifndef ZMV_STREAM_FILE_STREAM_H
#define ZMV_STREAM_FILE_STREAM_H

#include "base/trace.h"
#include "stream/zmvstream_file.h"

namespace zmv::stream {

inline constexpr TraceModule kFileModule{"zmvstreamfile", "zmvstream_file"};

// Positions and sizes are u32; a file ends here at the latest.
inline constexpr uint32_t kMaxPosition = 0xFFFFFFFFu;

// The process-wide options. Any thread may open or close a file meanwhile, so they are read and set atomically.
extern uint32_t zmvStreamFileOptW;
extern ZMVStreamCloseCB zmvStreamFileOptCB;

inline uint32_t WriteOption() { return __atomic_load_n(&zmvStreamFileOptW, __ATOMIC_RELAXED); }
inline ZMVStreamCloseCB CloseCallback() { return __atomic_load_n(&zmvStreamFileOptCB, __ATOMIC_RELAXED); }

inline ZMVStreamFile& FileOf(void* context) { return *static_cast<ZMVStreamFile*>(context); }

// The cursor `idx`, or null when the number is out of range or free.
inline ZMVFileIndex* FindCursor(const ZMVStreamFile& file, uint32_t idx) {
  return idx < ZMV_STREAM_MAX_CURSORS ? file.m_pIndex[idx] : nullptr;
}

// What "%x" shows of a pointer.
inline uint32_t LowWord(const void* pointer) { return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(pointer)); }

// Says that no cursor has this number and gives the code for it.
int64_t NoSuchCursor(uint32_t idx, const char* function);

// Drops the cached bytes; the cursor then stands at m_dwPos.
inline void DropCache(ZMVFileIndex& cursor) {
  cursor.m_pCachePos = cursor.m_pCache;
  cursor.m_dwCacheRemain = 0;
}

// Raises the size of a file that is being written to `position`.
inline void RaiseFileSize(ZMVStreamFile& file, uint32_t position) {
  if (position > file.m_dwFileSize) file.m_dwFileSize = position;
}

// Moves the file handle to `position` unless it stands there. Negative when the platform refused.
int32_t MoveHandle(ZMVStreamFile& file, uint32_t position);

// Gives back the cache and the record of a cursor and empties its slot.
void FreeCursor(ZMVStreamFile& file, uint32_t idx);

// Builds the ring of two write-cache nodes. 0, or ZMV_E_MEMORY, which leaves nothing behind.
int32_t BuildWriteCache(ZMVStreamFile& file, uint32_t nodeSize);
// Gives the ring back; a file without one is left alone.
void FreeWriteCache(ZMVStreamFile& file);

}  // namespace zmv::stream

#endif

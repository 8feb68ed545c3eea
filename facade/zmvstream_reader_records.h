// The reader handle and the operations a container reader fills it with.
#ifndef ZMVSTREAM_READER_RECORDS_H
#define ZMVSTREAM_READER_RECORDS_H

#include <cstddef>

#include "facade/zmvstream_reader.h"
#include "stream/zmvstream_buf.h"

// Empty slots are null. `reader` is the container's handle.
struct ZMVReaderOperations {
  int32_t (*Open)(void** reader, ZMVStreamBuf* stream);
  int32_t (*OpenParam)(void** reader, ZMVReaderParam* param);  // used only when Open is empty
  void (*Close)(void* reader);                                 // accepts null
  void (*Reserved)();
  int32_t (*GetInfo)(void* reader, ZMVFileInfo* info, uint32_t buildIndex);
  int32_t (*Start)(void* reader, uint32_t* time);
  int32_t (*MakeIndex)(void* reader, uint32_t reserved);  // repeated until negative
  int32_t (*ReadThumb)(void* reader, ZMVFrame* frame);
  int32_t (*ReadFrame)(void* reader, ZMVFrame* frame);
  int32_t (*ReadFrameInfo)(void* reader, ZMVFrame* frame);
  uint8_t (*SeekByTime)(void* reader, uint32_t* time, uint8_t flag);
  uint8_t (*SeekByKeyFrame)(void* reader, uint32_t* time, uint8_t flag);
  uint8_t (*SeekBySubtitle)(void* reader, uint32_t* time, uint8_t flag);
  uint8_t (*SeekByMedia)(void* reader, uint32_t* time, uint32_t media);
  int32_t (*ChangeTrack)(void* reader, uint32_t track, uint32_t time, uint32_t media, ZMVReader* facade);
  void (*GetStatus)(void* reader, ZMVReaderStatus* status);
  int32_t (*SetStatus)(void* reader, uint32_t value);
};

// Order of the per-media arrays.
enum ZMVReaderMediaSlot : uint32_t { kReaderAudio = 0, kReaderVideo = 1, kReaderText = 2, kReaderMediaCount = 3 };

struct ZMVReader {
  ZMVStreamBuf* m_hInOut;
  void* hReader;
  void* m_hSubtitle;     // external subtitle source; stays null
  uint32_t dwSkipStart;  // playback window in milliseconds; 0 = none
  uint32_t dwSkipEnd;
  uint8_t m_bStop;       // tells the index thread to stop
  uint8_t m_bIndexDone;  // set by the index thread when it ends
  void* m_hThread;
  void* m_hMutex;
  uint8_t m_bHasAudio;
  uint8_t m_bHasVideo;
  uint8_t m_bHasText;
  uint32_t m_dwLastTS[kReaderMediaCount];     // last time delivered, before the delta, or the last seek target
  uint32_t m_dwTimeDelta[kReaderMediaCount];  // added to every time delivered
  ZMVReaderOperations operations;
};

static_assert(sizeof(ZMVReaderOperations) == 17 * 8);
static_assert(sizeof(ZMVReader) == 224 && offsetof(ZMVReader, operations) == 88);
static_assert(offsetof(ZMVReader, dwSkipStart) == 24 && offsetof(ZMVReader, m_hThread) == 40);
static_assert(offsetof(ZMVReader, m_bHasAudio) == 56 && offsetof(ZMVReader, m_dwLastTS) == 60);
static_assert(offsetof(ZMVReader, m_dwTimeDelta) == 72);
static_assert(sizeof(ZMVReaderParam) == 24 && offsetof(ZMVReaderParam, dwSize) == 16);
static_assert(sizeof(ZMVReaderStatus) == 20);

#endif

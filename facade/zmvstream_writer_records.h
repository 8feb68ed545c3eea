// The writer handle and the operations a container writer fills it with.
#ifndef ZMVSTREAM_WRITER_RECORDS_H
#define ZMVSTREAM_WRITER_RECORDS_H

#include <cstddef>

#include "facade/zmvstream_writer.h"
#include "stream/zmvstream_buf.h"

// Empty slots are null. `writer` is the container's handle.
struct ZMVWriterOperations {
  int32_t (*Open)(void** writer, ZMVStreamBuf* stream, uint8_t interleave, uint64_t expire);
  void (*Reserved)();
  void (*Close)(void* writer);  // accepts null
  int32_t (*SetInfo)(void* writer, ZMVFileInfo* info, uint64_t startTime);
  uint64_t (*GetCurSize)(void* writer);  // projected file size in bytes
  int32_t (*WriteFrame)(void* writer, ZMVFrame* frame);
  int32_t (*SetSync)(void* writer, uint8_t flag);
};

struct ZMVWriter {
  ZMVStreamBuf* m_hInOut;
  void* hWriter;
  void* m_pReserved;
  void* m_hMutex;
  int64_t m_llFreeSpace;  // bytes the file may grow to: free space less the reserve, or 0
  int64_t m_llMaxFileSize;
  uint32_t m_dwMaxDuration;
  uint32_t m_dwMaxFrames;
  uint32_t m_dwVideoFrames;  // written so far
  const char* m_pszTarget;
  char m_szPath[256];  // empty when opened by target
  ZMVWriterOperations operations;
};

static_assert(sizeof(ZMVWriterOperations) == 7 * 8);
static_assert(sizeof(ZMVWriter) == 384 && offsetof(ZMVWriter, operations) == 328);
static_assert(offsetof(ZMVWriter, m_llFreeSpace) == 32 && offsetof(ZMVWriter, m_dwMaxDuration) == 48);
static_assert(offsetof(ZMVWriter, m_dwVideoFrames) == 56 && offsetof(ZMVWriter, m_pszTarget) == 64);
static_assert(offsetof(ZMVWriter, m_szPath) == 72);
static_assert(sizeof(ZMVWriterParam) == 72 && offsetof(ZMVWriterParam, bInterleave) == 28);
static_assert(offsetof(ZMVWriterParam, llExpire) == 32 && offsetof(ZMVWriterParam, dwOptW) == 56);
static_assert(offsetof(ZMVWriterParam, pfnCloseCB) == 64);

#endif

/*
 * The file stream: the provider behind every stream handle, with up to 20 cursors on one open file, a read cache per
 * cursor, a peek position, and a two-node write cache for files open for writing.
 *
 * Applications use the stream handle (stream/zmvstream_buf.h), whose calls have the same meaning as these; `context` is
 * a ZMVStreamFile. No locks: calls on one context come from one thread at a time.
 */
#ifndef ZMVSTREAM_FILE_H
#define ZMVSTREAM_FILE_H

#include <stdint.h>

#include "base/zmv_export.h"
#include "stream/zmvstream_buf.h"

#ifdef __cplusplus
extern "C" {
#endif

/* A cursor. Its logical position is m_dwPos - m_dwCacheRemain. */
typedef struct ZMVFileIndex {
  uint32_t m_dwPos;         /* file position of the next fetch */
  uint8_t* m_pCache;        /* read cache, or null */
  uint8_t* m_pCachePos;     /* next unread byte in it */
  uint32_t m_dwCacheSize;   /* its capacity in bytes */
  uint32_t m_dwCacheRemain; /* unread bytes in it */
} ZMVFileIndex;

/* A node of the write cache: empty -> filling -> ready -> flushed, which is empty again. */
typedef struct ZMVWCacheNode {
  uint8_t* m_pBuffer;
  uint32_t m_dwUsed;    /* bytes held: the highest offset written + 1 */
  uint32_t m_dwFilePos; /* file position of the first byte */
  uint8_t m_bReady;     /* full or closed, waits to be flushed */
  struct ZMVWCacheNode* m_pNext;
} ZMVWCacheNode;

/* One open file. */
typedef struct ZMVStreamFile {
  void* m_hFile; /* from ZMV_FileOpen */
  char m_szPath[256];
  uint8_t m_bWrite;                               /* 1 when open for writing */
  uint32_t m_dwFileSize;                          /* reading: at open; writing: highest position written */
  ZMVFileIndex* m_pIndex[ZMV_STREAM_MAX_CURSORS]; /* null = a free cursor number */
  uint32_t m_dwIndexCount;                        /* cursors in use */
  uint32_t m_dwFilePos;                           /* where m_hFile stands */
  uint32_t m_dwShowPos;                           /* the peek position */
  ZMVWCacheNode* m_pFillNode;                     /* node being filled; null without write cache */
  ZMVWCacheNode* m_pFlushNode;                    /* oldest node waiting for the file */
  int64_t m_llFlushError;                         /* result of the last flush; once negative, permanent */
  uint32_t m_dwNodeSize;                          /* bytes */
  uint32_t m_dwNodeCount;
  void* m_hFlushThread; /* stays null: flushing is synchronous */
  uint8_t m_bFlushStop;
  uint8_t m_bSync; /* close with a sync */
} ZMVStreamFile;

/*
 * Opens `path` (below 256 bytes, else ZMV_E_OPEN) for reading (`write` 0) or writing, and stores the context in the
 * first field of `*owner`. `flag` 0 chooses the plain writing mode. 0, ZMV_E_MEMORY or ZMV_E_OPEN (also for a file to
 * be read whose size cannot be had).
 */
ZMV_API int64_t ZMVStreamFile_Open(void* owner, const char* path, uint32_t write, uint32_t flag);
/* A second context on the same file, without cursors, stored in `newHandle`. Not for files open for writing. */
ZMV_API int64_t ZMVStreamFile_Dup(void* context, ZMVStreamBuf* newHandle);
/* Flushes, closes the file (or hands it to the close callback) and frees the context; null is ignored. */
ZMV_API void ZMVStreamFile_Close(void* context);

/* A new cursor; ZMV_E_MEMORY, when memory or the 20 numbers are used up, leaves no trace of it. */
ZMV_API int64_t ZMVStreamFile_Index(void* context, uint32_t* idx, uint32_t cacheSize);
/* Returns the number of cursors that are left. */
ZMV_API int64_t ZMVStreamFile_Release(void* context, uint32_t idx);

ZMV_API int64_t ZMVStreamFile_Size(void* context);
ZMV_API int64_t ZMVStreamFile_GetFilesize(void* context);
ZMV_API const char* ZMVStreamFile_GetName(void* context);

ZMV_API int64_t ZMVStreamFile_ReadBuffer(void* context, uint32_t idx, void* dst, uint32_t len);
ZMV_API int64_t ZMVStreamFile_WriteBuffer(void* context, uint32_t idx, const void* src, uint32_t len);
/* Flushes the flush node, when it is ready. 0, ZMV_E_WRITE or ZMV_E_SEEK. */
ZMV_API int64_t ZMVStreamFile_WriteCache(void* context);

ZMV_API int64_t ZMVStreamFile_Skip(void* context, uint32_t idx, int32_t delta);
ZMV_API int64_t ZMVStreamFile_Seek(void* context, uint32_t idx, uint32_t pos);
ZMV_API int64_t ZMVStreamFile_SeekEnd(void* context, uint32_t idx, int32_t dist);
ZMV_API uint32_t ZMVStreamFile_Pos(void* context, uint32_t idx);

ZMV_API int64_t ZMVStreamFile_ShowBuffer(void* context, void* dst, uint32_t len);
ZMV_API int64_t ZMVStreamFile_ShowSkip(void* context, int32_t delta);
ZMV_API uint32_t ZMVStreamFile_ShowPos(void* context);
ZMV_API int64_t ZMVStreamFile_ShowReset(void* context);

ZMV_API int64_t ZMVStreamFile_SetSync(void* context, uint8_t flag);
ZMV_API uint32_t ZMVStreamFile_GetOption(void);
ZMV_API void ZMVStreamFile_SetOption(uint32_t optW, ZMVStreamCloseCB callback);

/*
 * Write performance of the whole process, updated by every flush of a write cache with relaxed atomic stores; an
 * application may read them at any time. Times are ticks in milliseconds.
 */
ZMV_API extern uint64_t g_dwStartTime;  /* first flush of the measuring period; 0 = not started */
ZMV_API extern uint64_t g_dwEndTime;    /* end of the last flush */
ZMV_API extern uint64_t g_dwTotalTime;  /* accumulator that triggers the report */
ZMV_API extern uint64_t g_dwWSTime;     /* start of the last platform write */
ZMV_API extern uint64_t g_dwWETime;     /* end of the last platform write */
ZMV_API extern uint64_t g_dwWTotalTime; /* milliseconds inside platform writes in this period */
ZMV_API extern uint32_t g_dwWriteBPS;   /* last computed write rate, bits per second */
ZMV_API extern uint32_t g_dwWriteBytes; /* bytes flushed in this period */

#ifdef __cplusplus
}
#endif

#endif

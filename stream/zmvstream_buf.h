/*
 * The stream handle: bytes of a file through numbered cursors.
 *
 * A handle forwards every call to the operations of its provider; the library's provider is the file stream
 * (stream/zmvstream_file.h). A cursor is an independent position on the same open file, named by a number from 0 to 19
 * that ZMVStreamBuf_Index hands out, the lowest free one first. Only cursor 0 of a file open for writing writes.
 *
 * Positions and sizes are 32-bit: files stay below 4 GiB. Stream results are int64_t values that hold a sign-extended
 * 32-bit result code, or a count; test them with (int32_t)result < 0, but byte counts with result < 0. A handle has no
 * lock: calls on one handle come from one thread at a time. A handle made by ZMVStreamBuf_Dup may be used by another
 * thread.
 */
#ifndef ZMVSTREAM_BUF_H
#define ZMVSTREAM_BUF_H

#include <stdint.h>

#include "base/zmv_export.h"
#include "base/zmv_result.h"
#include "facade/zmvstream_media.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct ZMVStreamBuf ZMVStreamBuf;

/*
 * Called when a file is closed, with its synced descriptor and its path (borrowed), before the library closes the
 * descriptor. The callback must neither close the descriptor nor keep it: dup() it to work on the file any longer.
 */
typedef void (*ZMVStreamCloseCB)(int fd, const char* path);

#define ZMV_STREAM_READ 0u
#define ZMV_STREAM_WRITE 1u
#define ZMV_STREAM_MAX_CURSORS 20u

/* The operations of a provider; each receives the provider's context first. An empty slot is null. */
struct ZMVStreamBuf {
  void* hInOut; /* the provider's context */
  void* m_pReserved;
  int64_t m_dwError; /* returned by ZMVStreamBuf_GetError; never set by the library */
  int64_t (*Open)(void* owner, const char* path, uint32_t mode, uint32_t flag); /* stores the context in owner */
  int64_t (*Dup)(void* context, ZMVStreamBuf* newHandle);
  void (*Close)(void* context);
  int64_t (*Index)(void* context, uint32_t* idx, uint32_t cacheSize);
  int64_t (*Release)(void* context, uint32_t idx);
  int64_t (*Size)(void* context);
  int64_t (*CurSize)(void* context);
  const char* (*GetName)(void* context);
  int64_t (*ReadBuffer)(void* context, uint32_t idx, void* dst, uint32_t len);
  int64_t (*WriteBuffer)(void* context, uint32_t idx, const void* src, uint32_t len);
  int64_t (*Skip)(void* context, uint32_t idx, int32_t delta);
  int64_t (*Seek)(void* context, uint32_t idx, uint32_t pos);
  int64_t (*SeekEnd)(void* context, uint32_t idx, int32_t dist);
  uint32_t (*Pos)(void* context, uint32_t idx);
  int64_t (*ShowBuffer)(void* context, void* dst, uint32_t len);
  int64_t (*ShowSkip)(void* context, int32_t delta);
  uint32_t (*ShowPos)(void* context);
  int64_t (*ShowReset)(void* context);
  int64_t (*GetFilesize)(void* context);
  int64_t (*SetSync)(void* context, uint8_t flag);
};

/*
 * Opens the file `path` (borrowed, below 256 bytes) for reading (ZMV_STREAM_READ) or creates it for writing
 * (ZMV_STREAM_WRITE), and stores the new handle in the first field of the record `owner` points to. `size` is not used.
 * 0, ZMV_E_MEMORY, or the provider's code (ZMV_E_OPEN). Close with ZMVStreamBuf_Close.
 */
ZMV_API int64_t ZMVStreamBuf_Open(void* owner, const char* path, uint32_t size, uint32_t mode);
/* A second, independent handle on the same file, opened for reading, stored in the first field of `*owner`. */
ZMV_API int64_t ZMVStreamBuf_Dup(ZMVStreamBuf* handle, void* owner);
/* Closes the file, after flushing a file open for writing, and frees the handle; null is ignored. */
ZMV_API void ZMVStreamBuf_Close(ZMVStreamBuf* handle);

/*
 * A new cursor at position 0, its number in `*idx`. `cacheSize` bytes of read cache of its own (0 or 1: none); for
 * cursor 0 of a file open for writing it sizes the write cache, two nodes of half of it. 0, or ZMV_E_MEMORY.
 */
ZMV_API int64_t ZMVStreamBuf_Index(ZMVStreamBuf* handle, uint32_t* idx, uint32_t cacheSize);
/* Gives a cursor back; a number that is not in use is ignored. 0, or ZMV_E_NOT_SUPPORTED. */
ZMV_API int64_t ZMVStreamBuf_Release(ZMVStreamBuf* handle, uint32_t idx);

/* File size in bytes: reading, as opened; writing, the highest position written, cached bytes included. */
ZMV_API int64_t ZMVStreamBuf_Size(ZMVStreamBuf* handle);
/* The data available so far; for files the same as ZMVStreamBuf_Size. */
ZMV_API int64_t ZMVStreamBuf_CurSize(ZMVStreamBuf* handle);
/* The size of the file on disk, which lags behind while data sits in the write cache. */
ZMV_API int64_t ZMVStreamBuf_GetFileSize(ZMVStreamBuf* handle);
/* The path, owned by the handle; null when the provider has none. */
ZMV_API const char* ZMVStreamBuf_GetName(ZMVStreamBuf* handle);
/* The handle's error field. */
ZMV_API int64_t ZMVStreamBuf_GetError(ZMVStreamBuf* handle);

/*
 * Reads up to `n` bytes into `dst`, the caller's. The count, or a negative code: ZMV_E_READ at the end of the file or
 * when the platform fails, ZMV_E_SEEK, ZMV_E_FAIL for a number that is not in use, ZMV_E_NOT_SUPPORTED. The count is
 * short where the file ends and whenever the platform delivers less than it was asked for. Bytes that came from the
 * cache before a failure are consumed.
 *
 * A file open for writing gives back what has reached the file and what stands in the write-cache node being filled. A
 * node that is full and waits to be written is not seen: its bytes are missing, and the count is short before them, or
 * the bytes that the file held there before are read. A read that reaches past the node being filled leaves the cursor
 * undefined, so Seek before the next access.
 */
ZMV_API int64_t ZMVStreamBuf_ReadBuffer(ZMVStreamBuf* handle, uint32_t idx, void* dst, uint32_t n);
/*
 * Writes `n` bytes from `src` at cursor 0 of a file open for writing. The count, or a negative code:
 * ZMV_E_NOT_SUPPORTED for another cursor and for a provider that cannot write, ZMV_E_FAIL when cursor 0 is not in use,
 * ZMV_E_WRITE when the platform fails or the file would pass 4 GiB, ZMV_E_SEEK. Without a write cache the count is what
 * the platform wrote: it may be short, and 0 when nothing was written and the file handle has no error. With one it is
 * `n`. When a flush of the write cache fails (ZMV_E_WRITE or ZMV_E_SEEK), that write and every later one returns its
 * code.
 */
ZMV_API int64_t ZMVStreamBuf_WriteBuffer(ZMVStreamBuf* handle, uint32_t idx, const void* src, uint32_t n);

/*
 * Moves a cursor by `n` bytes (never 2 GiB or more); 0, or ZMV_E_SEEK when the target lies outside the file. A Skip
 * that fails may have moved a cached cursor to the end of its cache.
 */
ZMV_API int64_t ZMVStreamBuf_Skip(ZMVStreamBuf* handle, uint32_t idx, int32_t n);
/* Moves a cursor to `pos`; 0, or ZMV_E_SEEK, which changes nothing. */
ZMV_API int64_t ZMVStreamBuf_Seek(ZMVStreamBuf* handle, uint32_t idx, uint32_t pos);
/* Moves a cursor to the end of the file plus `dist`, which is 0 or negative. */
ZMV_API int64_t ZMVStreamBuf_SeekEnd(ZMVStreamBuf* handle, uint32_t idx, int32_t dist);
/* The cursor's position. */
ZMV_API uint32_t ZMVStreamBuf_Pos(ZMVStreamBuf* handle, uint32_t idx);

/*
 * Peeking: a position of its own, apart from every cursor, on a file open for reading (otherwise ZMV_E_NOT_SUPPORTED).
 * ShowBuffer copies up to `n` bytes and returns the count; ShowSkip moves the position; ShowReset sets it to 0.
 */
ZMV_API int64_t ZMVStreamBuf_ShowBuffer(ZMVStreamBuf* handle, void* dst, uint32_t n);
ZMV_API int64_t ZMVStreamBuf_ShowSkip(ZMVStreamBuf* handle, int32_t n);
ZMV_API uint32_t ZMVStreamBuf_ShowPos(ZMVStreamBuf* handle);
ZMV_API int64_t ZMVStreamBuf_ShowReset(ZMVStreamBuf* handle);

/* 1: close with a sync to the storage medium. A null handle is ignored. */
ZMV_API int64_t ZMVStreamBuf_SetSync(ZMVStreamBuf* handle, uint8_t flag);

/*
 * Process-wide options of the file provider: a non-zero `option` opens files for writing with ZMV_OPEN_WRITE instead of
 * ZMV_OPEN_WRITE_DEFAULT and, with a callback, hands the descriptor of every closed file, read or written, to it. They
 * stay until they are set again. Any thread may set them; a file that is being opened or closed meanwhile sees either
 * value.
 */
ZMV_API uint32_t ZMVStreamBuf_GetOption(void);
ZMV_API void ZMVStreamBuf_SetOption(uint32_t option, ZMVStreamCloseCB callback);

/*
 * Byte-order readers: a number of fixed width at the cursor, zero-extended. When the bytes cannot be had in full the
 * result is 0 and `*err` (may be null) receives the negative code or the short count. `*err` is never cleared: clear it
 * once and test it for non-zero after a run of reads.
 */
ZMV_API uint64_t ZMVStreamBuf_ReadByte(ZMVStreamBuf* handle, uint32_t idx, int64_t* err);
ZMV_API uint64_t ZMVStreamBuf_ReadWordBE(ZMVStreamBuf* handle, uint32_t idx, int64_t* err);
ZMV_API uint64_t ZMVStreamBuf_ReadWordLE(ZMVStreamBuf* handle, uint32_t idx, int64_t* err);
ZMV_API uint64_t ZMVStreamBuf_Read3ByteBE(ZMVStreamBuf* handle, uint32_t idx, int64_t* err);
ZMV_API uint64_t ZMVStreamBuf_Read3ByteLE(ZMVStreamBuf* handle, uint32_t idx, int64_t* err);
ZMV_API uint64_t ZMVStreamBuf_ReadDWordBE(ZMVStreamBuf* handle, uint32_t idx, int64_t* err);
ZMV_API uint64_t ZMVStreamBuf_ReadDWordLE(ZMVStreamBuf* handle, uint32_t idx, int64_t* err);
ZMV_API uint64_t ZMVStreamBuf_ReadQWordBE(ZMVStreamBuf* handle, uint32_t idx, int64_t* err);
ZMV_API uint64_t ZMVStreamBuf_ReadQWordLE(ZMVStreamBuf* handle, uint32_t idx, int64_t* err);

/*
 * Byte-order writers: the low bytes of `value` in the given order. The count written; on failure 0, and `*err` (may be
 * null) receives the code. A provider without WriteBuffer gives ZMV_E_NOT_SUPPORTED as the result.
 */
ZMV_API int64_t ZMVStreamBuf_WriteByte(ZMVStreamBuf* handle, uint32_t idx, uint32_t value, int64_t* err);
ZMV_API int64_t ZMVStreamBuf_WriteWordBE(ZMVStreamBuf* handle, uint32_t idx, uint32_t value, int64_t* err);
ZMV_API int64_t ZMVStreamBuf_WriteWordLE(ZMVStreamBuf* handle, uint32_t idx, uint32_t value, int64_t* err);
ZMV_API int64_t ZMVStreamBuf_WriteDWordBE(ZMVStreamBuf* handle, uint32_t idx, uint32_t value, int64_t* err);
ZMV_API int64_t ZMVStreamBuf_WriteDWordLE(ZMVStreamBuf* handle, uint32_t idx, uint32_t value, int64_t* err);

/*
 * Format writers of AVI "strf" chunks (OpenDML); the bytes written, or a negative code when memory or a write fails.
 * The audio form is that of StreamPutAudioFormat. The video form is a 40-byte header, followed for HEVC only by the
 * codec configuration in start-code form, padded to even length.
 */
ZMV_API int64_t ZMVStreamBuf_PutAudioFormat(ZMVStreamBuf* handle, uint32_t idx, const ZMVAudioInfo* audio);
ZMV_API int64_t ZMVStreamBuf_PutVideoFormat(ZMVStreamBuf* handle, uint32_t idx, const ZMVVideoInfo* video);

#ifdef __cplusplus
}
#endif

#endif

/*
 * The reader facade: playback of a recording, whatever its container.
 *
 *     ZMVReaderParam param = {"drive.mp4", NULL, 0};
 *     ZMVReader *reader;
 *     if (ZMVReaderOpen(&reader, &param) < 0) ...
 *     ZMVReaderGetInfo(reader, &info);                  // once, before the first read
 *     frame.dwMediaType = ZMV_MEDIA_VIDEO; frame.dwTrack = 0; frame.pData = buffer; frame.dwBufSize = sizeof buffer;
 *     while (ZMVReaderReadFrame(reader, &frame) >= 0) ...   // tracks that the description counts
 *     ZMVReaderClose(reader);
 *
 * Results are 0 or a negative ZMV_E_* code. Times are milliseconds. The handle's mutex serialises GetInfo, the reads,
 * the seeks and SetStatus, which may come from several threads; every other call must not run beside another call on
 * the same handle.
 */
#ifndef ZMVSTREAM_READER_H
#define ZMVSTREAM_READER_H

#include <stdint.h>

#include "base/zmv_export.h"
#include "base/zmv_result.h"
#include "facade/zmvstream_media.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct ZMVReader ZMVReader;

typedef struct ZMVReaderParam {
  const char* pszPath;   /* the file to open, below 256 bytes */
  const char* pszSource; /* opened instead of pszPath when not null */
  uint32_t dwSize;       /* goes with pszSource; opened by pszPath, receives the file's size in bytes */
} ZMVReaderParam;

typedef struct ZMVReaderStatus {
  uint32_t dwBufferPercent;
  uint32_t dwLoadPercent;
  uint32_t adwReserved[3];
} ZMVReaderStatus;

/*
 * Opens a file and recognises its container from the first 4096 bytes: "ftyp", "mdat" or "moov" at offset 4 is MP4
 * (ISO/IEC 14496-12), "RIFF" at offset 0 is AVI. `*handle` is stored on success only; the texts in `param` are borrowed
 * for the call. 0, ZMV_E_OPEN, ZMV_E_MEMORY, ZMV_E_READ (empty file), ZMV_E_UNSUPPORTED_FORMAT, or the container's code
 * (ZMV_E_FAIL for a RIFF file that is no AVI).
 */
ZMV_API int32_t ZMVReaderOpen(ZMVReader** handle, ZMVReaderParam* param);

/*
 * Describes the file into `info`, the caller's record (pExtraHeader and dwExtraHeaderSize are inputs), and fills
 * defaults: time scale 1000, buffer sizes and durations where the container gives none. 0, ZMV_E_FAIL (malformed
 * header), ZMV_E_MEMORY, or the container's or stream's code; a failure fills no defaults. May be repeated.
 */
ZMV_API int32_t ZMVReaderGetInfo(ZMVReader* handle, ZMVFileInfo* info);

/*
 * The same for a file that need not stay open; no defaults are filled. Results as of ZMVReaderOpen and
 * ZMVReaderGetInfo. Needs no handle, so it may run anywhere.
 */
ZMV_API int32_t ZMVReaderGetInfoFile(ZMVReaderParam* param, ZMVFileInfo* info);

/*
 * The next frame of frame->dwMediaType and frame->dwTrack into frame->pData (capacity frame->dwBufSize). 0; ZMV_E_FAIL
 * when the file has no such medium or GetInfo was not called; ZMV_E_MP4_BUFFER or ZMV_E_AVI_BUFFER with the size needed
 * in dwBufSize, and the same frame on the next call; ZMV_E_END after the last frame or past the playback window, whose
 * first frame beyond the end is still delivered. 0 and nothing read for an unknown medium, and in an AVI, with dwSize
 * 0, for a track that the medium does not have.
 */
ZMV_API int32_t ZMVReaderReadFrame(ZMVReader* handle, ZMVFrame* frame);
/* The same without the payload: pData is not used. 0 and nothing read for containers without this operation. */
ZMV_API int32_t ZMVReaderReadFrameInfo(ZMVReader* handle, ZMVFrame* frame);
/* A thumbnail frame; ZMV_E_FAIL for video with containers that keep none, 0 and nothing read for other media. */
ZMV_API int32_t ReaderReadThumb(ZMVReader* handle, ZMVFrame* frame);

/*
 * Seeks: non-zero when done, with `*time` the time reached; 0 when not possible. A time before the playback window is
 * raised to the window's start, one behind its end gives 0; BySubtitle does not look at the window.
 * ByTime: flag 0 video leads (nearest key frame), else audio. ByKeyFrame and BySubtitle: flag 0 backward, else forward.
 * ByMedia moves one medium only (ZMV_MEDIA_*). `*time` is milliseconds in and out, the caller's, and not null.
 * Containers without the operation give 0; ByKeyFrame then seeks by time.
 */
ZMV_API uint8_t ZMVReaderSeekByTime(ZMVReader* handle, uint32_t* time, uint8_t flag);
ZMV_API uint8_t ZMVReaderSeekByKeyFrame(ZMVReader* handle, uint32_t* time, uint8_t flag);
ZMV_API uint8_t ZMVReaderSeekBySubtitle(ZMVReader* handle, uint32_t* time, uint8_t flag);
ZMV_API uint8_t ZMVReaderSeekByMedia(ZMVReader* handle, uint32_t* time, uint32_t media);

/* Starts playback at `*time` (null or 0: where it stands), window or not. 0, or ZMV_E_FAIL when that time cannot be
 * had. */
ZMV_API int32_t ZMVReaderStart(ZMVReader* handle, uint32_t* time);

/*
 * Makes track `track` (0 = first) of a medium its current one, at the medium's last time. 1 when done, and for an
 * unknown medium; 0 when there is no such track, when it is current already, or when nothing is found at that time.
 */
ZMV_API int32_t ZMVReaderChangeTrack(ZMVReader* handle, uint32_t track, uint32_t media);

/* Loading state in percent; plain files are 100 and 100. Returns 1. */
ZMV_API int32_t ZMVReaderGetStatus(ZMVReader* handle, ZMVReaderStatus* status);
ZMV_API int32_t ZMVReaderSetStatus(ZMVReader* handle, uint32_t value);

/*
 * The playback window in milliseconds: reads past `end` give ZMV_E_END, seeks stay inside. `enable` 0 removes it. Seeks
 * to `start` when it lies ahead of what was read, or always with `force`. Returns 1.
 */
ZMV_API int32_t ZMVReaderSetSkip(ZMVReader* handle, uint32_t start, uint32_t end, uint8_t enable, uint8_t force);

/* Adds `delta` milliseconds (modulo 2^32) to every later time stamp of a medium; deltas add up, 0 resets. Returns 1. */
ZMV_API int32_t ZMVReaderSetTimeDelta(ZMVReader* handle, uint32_t delta, uint32_t media);

/* External subtitles are not part of this library; returns 0. */
ZMV_API int32_t ZMVReaderOpenSubtitle(void);

/* Closes everything; null is ignored. */
ZMV_API void ZMVReaderClose(ZMVReader* handle);

/*
 * For the facade itself and its tests: chooses the container reader for the open stream of `handle` (0,
 * ZMV_E_UNSUPPORTED_FORMAT, or the code of the failed peek), and the entry of the index thread, whose argument is a
 * ZMVReader.
 */
ZMV_API int32_t SelectReader(ZMVReader* handle);
ZMV_API void TaskReaderMakeIndex(void* handle);

#ifdef __cplusplus
}
#endif

#endif

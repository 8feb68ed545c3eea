/*
 * The writer facade: a recording, whatever its container.
 *
 *     ZMVWriterParam param = {0};
 *     param.dwFormat = ZMV_FORMAT_MP4; param.pszPath = "drive.mp4"; param.bInterleave = 1;
 *     if (ZMVWriterOpen(&writer, &param) < 0) ...
 *     ZMVWriterSetInfo(writer, &info, 0);               // once, before the first frame
 *     while (recording) { frame.pData = ...; frame.dwSize = ...; ZMVWriterWrite(writer, &frame); }
 *     ZMVWriterClose(writer);                           // finalises the file
 *
 * Results are 0 or a negative ZMV_E_* code. The handle's mutex serialises ZMVWriterWrite, which may come from several
 * threads; SetInfo, GetSize and Close must not run beside a Write.
 */
#ifndef ZMVSTREAM_WRITER_H
#define ZMVSTREAM_WRITER_H

#include <stdint.h>

#include "base/zmv_export.h"
#include "base/zmv_result.h"
#include "facade/zmvstream_media.h"
#include "stream/zmvstream_buf.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct ZMVWriter ZMVWriter;

/* ZMVWriterParam.dwFormat */
#define ZMV_FORMAT_AVI 0u
#define ZMV_FORMAT_MP4 1u

typedef struct ZMVWriterParam {
  uint32_t dwFormat;     /* ZMV_FORMAT_* */
  const char* pszPath;   /* destination, below 256 bytes; its file system is asked for free space */
  const char* pszTarget; /* written to instead of pszPath when not null; must live as long as the writer */
  uint32_t dwTargetSize; /* goes with pszTarget */
  uint8_t bInterleave;   /* MP4: 1, every frame its own chunk (what players expect); 0, runs of frames */
  uint64_t llExpire; /* expected length in milliseconds; sizes the MP4 tables (0 = 120 s) and the AVI index. Longer is
                        possible. */
  uint32_t dwMaxFileSize;  /* bytes; 0 = no limit */
  uint32_t dwMaxDuration;  /* milliseconds (100 more are tolerated); 0 = no limit */
  uint32_t dwMaxFrames;    /* video frames (one more is tolerated); 0 = no limit */
  uint32_t dwReqFreeSpace; /* bytes that the caller expects to need; only reported in the trace */
  uint32_t dwOptW;         /* non-zero: set as process-wide stream option before opening, with pfnCloseCB */
  ZMVStreamCloseCB pfnCloseCB;
} ZMVWriterParam;

/*
 * Creates the file and its container writer. `*handle` is stored on success only; `param` is borrowed for the call. 0,
 * ZMV_E_MEMORY, ZMV_E_OPEN, ZMV_E_UNSUPPORTED_FORMAT for a number that is no ZMV_FORMAT_*. A disk that is nearly full
 * does not stop it.
 */
ZMV_API int32_t ZMVWriterOpen(ZMVWriter** handle, const ZMVWriterParam* param);

/*
 * Hands the streams to the container, which writes its header. `info` is borrowed; AVI sets the block align of its
 * audio description, nothing else is changed. `value` is the start time in milliseconds, which is only kept. 0;
 * ZMV_E_FAIL when a count exceeds its capacity; ZMV_E_MEMORY; a stream code.
 */
ZMV_API int32_t ZMVWriterSetInfo(ZMVWriter* handle, ZMVFileInfo* info, uint64_t value);

/*
 * Writes one frame, when the disk has room for it and no limit of ZMVWriterParam is reached; both are judged under the
 * handle's mutex. The payload is borrowed for the call, and frame->dwSize is 0 afterwards in every case. 0;
 * ZMV_E_DISK_FULL, or ZMV_E_WRITE for a limit that is reached: the frame was not written and the file is consistent,
 * close it. ZMV_E_WRITE is also what a failed write of the platform gives, and any other negative code is the
 * container's or the stream's: the frame may then be missing or incomplete in the file.
 */
ZMV_API int32_t ZMVWriterWrite(ZMVWriter* handle, ZMVFrame* frame);

/* Projected size of the finished file in bytes. */
ZMV_API uint64_t ZMVWriterGetSize(ZMVWriter* handle);
/* The path, owned by the handle; empty when the file was opened by pszTarget. */
ZMV_API const char* ZMVWriterGetFilePath(ZMVWriter* handle);
/* 1: close with a sync to the storage medium. 0, or the stream's code. */
ZMV_API int32_t ZMVWriterSetSync(ZMVWriter* handle, uint8_t flag);
/* Finalises and closes the file and frees the handle; null is ignored. */
ZMV_API void ZMVWriterClose(ZMVWriter* handle);

/* For the facade itself and its tests: fills the operations of `handle` for a format; 0 or ZMV_E_UNSUPPORTED_FORMAT. */
ZMV_API int32_t SelectWriter(ZMVWriter* handle, uint32_t format);

#ifdef __cplusplus
}
#endif

#endif

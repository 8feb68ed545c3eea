/*
 * The AVI writer: a RIFF AVI file with an "idx1" index, written front to back.
 *
 * Applications record through the writer facade (facade/zmvstream_writer.h); these are the container's own entry
 * points. Order: Open, SetInfo once, any number of WriteFrame, Close. Calls on one handle come from one thread at a
 * time. Results are 0 or a count, or a negative ZMV_E_* code. All times are milliseconds.
 *
 * The index is kept in memory until Close, 16 bytes a frame. Its first size comes from the stream descriptions and the
 * expected length; beyond that it grows by a thousand entries at a time, and nothing else is allocated for a frame.
 */
#ifndef ZMVSTREAM_AVI_WRITER_H
#define ZMVSTREAM_AVI_WRITER_H

#include <stdint.h>

#include "base/zmv_export.h"
#include "base/zmv_result.h"
#include "facade/zmvstream_media.h"
#include "stream/zmvstream_buf.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct AVIWriterHandle AVIWriterHandle;
typedef struct AVIWriterStream AVIWriterStream;

/* ---- Recording
 * ------------------------------------------------------------------------------------------------------*/

/*
 * A writer on the stream `hInOut`, which is open for writing, stays the caller's and must have no cursor yet. Writes
 * the RIFF header. `limit`: expected length in milliseconds, whole seconds of which size the index; 0 is allowed.
 * `option` and `value` are not used. 0; ZMV_E_FAIL for null arguments; ZMV_E_MEMORY; ZMV_E_WRITE for a write that was
 * cut short; the stream's code. `*handle` is stored on success only.
 */
ZMV_API int32_t AVIWriterOpen(AVIWriterHandle** handle, ZMVStreamBuf* hInOut, uint8_t option, uint64_t limit,
                              double value);
/*
 * Writes everything that precedes the frames: the "hdrl" list (all video streams, then audio, then text), the "INFO"
 * list when `szSoftware` is not empty, a "JUNK" chunk of random size, one with the extra header bytes, and the head of
 * the "movi" list. `info` is borrowed; the block alignment of its audio description is set: bytes per sample of all
 * channels for PCM, the samples per frame for everything else. Bit 0 of `dwAiddValue` leaves out the fill chunk at the
 * end. `value` is kept.
 * 0; ZMV_E_FAIL, before anything is written, for null arguments, for stream counts beyond their capacity and for a
 * second call; ZMV_E_MEMORY, also for an expected length whose index would not fit into memory: the file then has its
 * headers and takes frames all the same; ZMV_E_WRITE for a write that was cut short; the stream's code. After any other
 * failure only Close is of use.
 */
ZMV_API int32_t AVIWriterSetInfo(AVIWriterHandle* handle, ZMVFileInfo* info, double value);
/*
 * Appends one frame (payload borrowed, written as it is) as a chunk of the "movi" list and an entry of the index. A
 * track number that no stream of the medium has goes to the last stream. A frame of an unknown medium is stored and
 * indexed, but no stream counts it.
 * 0; -1 with no streams; ZMV_E_FAIL for a null handle, frame, or payload of a size other than 0, before the "movi" list
 * stands, for a time stamp below that of the stream's frame before it (nothing is written), and for a chunk that could
 * not be written (the next one takes its place); ZMV_E_WRITE, before anything is touched, when the closed file would
 * pass 4 GiB; ZMV_E_MEMORY when the index cannot grow: the frame is stored but not indexed, those behind it are.
 */
ZMV_API int32_t AVIWriterWriteFrame(AVIWriterHandle* handle, ZMVFrame* frame);
/* Estimated size of the finished file in bytes; 0 for null. */
ZMV_API uint64_t AVIWriterGetCurSize(AVIWriterHandle* handle);
/*
 * Finishes the file and frees the handle; null is accepted, and so is a handle whose SetInfo was not called or failed
 * before the frames could begin (then nothing is written). Appends the index and a chunk with the file's name, sets the
 * sizes, covers space that the file was given in advance with a "JUNK" chunk, and writes the final main header and
 * stream headers: the rate of video and text is measured over the frames, or fixed by the description, or, when that is
 * far below it, the declared one. The stream stays open and the caller's. Failed writes are traced only.
 */
ZMV_API void AVIWriterClose(AVIWriterHandle* handle);

/* ---- Parts of a recording
 * -------------------------------------------------------------------------------------------*/

/*
 * Writes `value` as a little-endian number at file position `position` and takes the cursor to the end of the data. 0;
 * ZMV_E_FAIL for null; ZMV_E_WRITE for a write that was cut short; the stream's code, the cursor staying where it is.
 */
ZMV_API int32_t AVIWriterWriteTagSize(AVIWriterHandle* handle, uint32_t position, uint32_t value);
/*
 * Writes one chunk at the cursor `cursor` of `hInOut`: code, size, the stream's prefix, `size` bytes of `payload`, and
 * a zero byte when that is odd; counts it in the stream. `mediaType` ZMV_MEDIA_* chooses the code. The bytes of the
 * chunk, or 0 when a write failed, the chunk would pass 4 GiB, or an argument is null.
 */
ZMV_API uint32_t AVIWriterWriteChunk(ZMVStreamBuf* hInOut, uint32_t cursor, AVIWriterStream* stream, uint32_t mediaType,
                                     const uint8_t* payload, uint32_t size);
/*
 * Adds an index entry for a chunk of `size` bytes at the writer's chunk offset; a video frame is a key frame when
 * `keyFrame` is 1, everything else always is. 0; ZMV_E_FAIL for null; ZMV_E_MEMORY, the entries so far staying.
 */
ZMV_API int32_t AVIWriterWriteIndex(AVIWriterHandle* handle, uint32_t streamNo, uint32_t mediaType, uint32_t keyFrame,
                                    uint32_t size);

#ifdef __cplusplus
}
#endif

#endif

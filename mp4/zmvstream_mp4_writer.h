/*
 * The MP4 writer: a progressive MP4 file (ISO/IEC 14496-12, -14, -15) written front to back.
 *
 * Applications record through the writer facade (facade/zmvstream_writer.h); these are the container's own entry
 * points. Order: Open, SetInfo once, any number of WriteFrame, Close. Calls on one handle come from one thread at a
 * time. Results are 0 or a count, or a negative ZMV_E_* code.
 */
#ifndef ZMVSTREAM_MP4_WRITER_H
#define ZMVSTREAM_MP4_WRITER_H

#include <stdint.h>

#include "base/zmv_export.h"
#include "base/zmv_result.h"
#include "facade/zmvstream_media.h"
#include "stream/zmvstream_buf.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct MP4WriterHandle MP4WriterHandle;
typedef struct MP4WriterTrack MP4WriterTrack;
typedef struct MP4WriterTable MP4WriterTable;

/* ---- Recording
 * ------------------------------------------------------------------------------------------------------*/

/*
 * A writer on the stream `hInOut`, which is open for writing, stays the caller's and must have no cursor yet.
 * `interleave` 1: every frame is a chunk. `Exp`: expected length in milliseconds that sizes the sample tables, 0 = 120
 * seconds; a longer recording spills tables into the media data. 0, ZMV_E_MEMORY or the stream's code; `*handle` is
 * stored on success only.
 */
ZMV_API int32_t MP4WriterOpen(MP4WriterHandle** handle, ZMVStreamBuf* hInOut, uint8_t interleave, int64_t Exp);
/*
 * Writes everything that precedes the frames and prepares one track per stream of `info` (borrowed). `dwStartCTS` is
 * kept. 0; ZMV_E_FAIL, before anything is written, for counts or configurations beyond their capacity and for a second
 * call; ZMV_E_MEMORY; the stream's code. After a failure only Close is of use.
 */
ZMV_API int32_t MP4WriterSetInfo(MP4WriterHandle* handle, const ZMVFileInfo* info, uint64_t dwStartCTS);
/*
 * Appends one frame (payload borrowed). Durations are microseconds for video, milliseconds for audio and text. A stream
 * number that no track has goes to the last track.
 * 0; ZMV_E_FAIL for a null handle, frame, or payload of a size other than 0; -1 with no tracks; ZMV_E_WRITE, before
 * anything is touched, when the closed file could pass 4 GiB or a table its last spill.
 * The stream's code when the payload could not be written, the first of two; when interleaving, also that of a chunk
 * offset for which the full table could not be spilled (ZMV_E_WRITE for a write that was cut short), and then the
 * payload is not tried. The frame's table entries stay, and later frames are found where they are. A payload that the
 * stream took only in part counts as written.
 */
ZMV_API int32_t MP4WriterWriteFrame(MP4WriterHandle* handle, ZMVFrame* frame);
/* Projected size of the finished file in bytes. */
ZMV_API uint32_t MP4WriterGetCurSize(MP4WriterHandle* handle);
/*
 * Finishes the file and frees the handle, which may come from an Open without SetInfo or from a SetInfo that failed
 * before the frames could begin (then nothing is written); null is accepted. The stream stays open and the caller's,
 * with the two cursors that Open took. Failed writes are traced only; without memory for the box buffer nothing is
 * written behind the frames but the user boxes.
 */
ZMV_API void MP4WriterClose(MP4WriterHandle* handle);

/* ---- Front boxes, recovery records and user boxes
 * -------------------------------------------------------------------*/

/* The "free" boxes that describe the streams, and the one of random size. 0, or the stream's code. */
ZMV_API int32_t MP4WriterSetRecoverInfo(MP4WriterHandle* handle, const ZMVFileInfo* info);
/* The "free" box with the build date. 0, or the stream's code. */
ZMV_API int32_t MP4WriterSetBuildInfo(MP4WriterHandle* handle);
/*
 * The 28-byte "RECO" record in front of every payload. 0, or the stream's code; counted whatever the result: the next
 * write to the media data puts zeros in place of what is missing.
 */
ZMV_API int32_t MP4WriterWriteRecoverData(MP4WriterHandle* handle, MP4WriterTrack* track, const ZMVFrame* frame);
/* The user boxes at the write cursor: their bytes, 0 when there is nothing to write. */
ZMV_API int32_t MP4WriterWriteGPSR(MP4WriterHandle* handle);
ZMV_API int32_t MP4WriterWriteSENS(MP4WriterHandle* handle);
ZMV_API int32_t MP4WriterWriteAIDD(MP4WriterHandle* handle);

/* ---- Sample tables
 * --------------------------------------------------------------------------------------------------*/

/*
 * Makes room for one entry of `entrySize` bytes, spilling a full buffer into the media data as a "tabl" block. 0;
 * ZMV_E_FAIL for null arguments (`track` is not used); ZMV_E_MEMORY for a table without buffer; ZMV_E_WRITE after 1440
 * spills or for a write that was cut short; the stream's code. After a failed spill the buffer keeps its bytes, and the
 * next one overwrites what it left in the file.
 */
ZMV_API int32_t MP4WriterWriteBuf(MP4WriterHandle* handle, MP4WriterTrack* track, MP4WriterTable* table,
                                  uint32_t entrySize);
/* Each adds one entry, or none when there is no room: the results are those of MP4WriterWriteBuf. */
ZMV_API int32_t MP4WriterWriteSttsEntry(MP4WriterHandle* handle, MP4WriterTrack* track, uint32_t delta);
ZMV_API int32_t MP4WriterWriteStszEntry(MP4WriterHandle* handle, MP4WriterTrack* track, uint32_t size);
ZMV_API int32_t MP4WriterWriteStscEntry(MP4WriterHandle* handle, MP4WriterTrack* track);
ZMV_API int32_t MP4WriterWriteStcoEntry(MP4WriterHandle* handle, MP4WriterTrack* track);
ZMV_API int32_t MP4WriterWriteStssEntry(MP4WriterHandle* handle, MP4WriterTrack* track);
/*
 * Copies a table's spilled blocks and its buffer to the write cursor through `scratch` (the caller's, `scratchSize`
 * bytes; used only when there are blocks). 0; ZMV_E_FAIL for null arguments (`track` is not used) or blocks without
 * scratch; otherwise the code with which the copy ended: the stream's, ZMV_E_READ for a block that ends early, or
 * ZMV_E_WRITE for a write that was cut short.
 */
ZMV_API int32_t MP4WriterWriteTable(MP4WriterHandle* handle, MP4WriterTrack* track, MP4WriterTable* table,
                                    uint8_t* scratch, uint32_t scratchSize);
/*
 * Each writes one table box (ISO/IEC 14496-12, 8.6 and 8.7), or nothing for a table without entries. The results are
 * those of MP4WriterWriteTable; the stsc of interleaved raw audio needs 12 bytes of scratch, else ZMV_E_FAIL.
 */
ZMV_API int32_t MP4WriterWriteStts(MP4WriterHandle* handle, MP4WriterTrack* track, uint8_t* scratch,
                                   uint32_t scratchSize);
ZMV_API int32_t MP4WriterWriteStsz(MP4WriterHandle* handle, MP4WriterTrack* track, uint8_t* scratch,
                                   uint32_t scratchSize);
ZMV_API int32_t MP4WriterWriteStsc(MP4WriterHandle* handle, MP4WriterTrack* track, uint8_t* scratch,
                                   uint32_t scratchSize);
ZMV_API int32_t MP4WriterWriteStco(MP4WriterHandle* handle, MP4WriterTrack* track, uint8_t* scratch,
                                   uint32_t scratchSize);
ZMV_API int32_t MP4WriterWriteStss(MP4WriterHandle* handle, MP4WriterTrack* track, uint8_t* scratch,
                                   uint32_t scratchSize);

/* ---- Sample descriptions (ISO/IEC 14496-12 8.5.2, 14496-14 5.6, 14496-15): bytes written to `dst`
 * -------------------*/

/*
 * The whole stsd box of a track; `dst` has room for 17408 bytes. 0xFFFFFFFF, with part of a box in `dst`, for null
 * arguments, a configuration above 16267 bytes, one that cannot be converted or outgrows the room when emulation
 * prevention is put back, and without memory for the conversion. A code that no sample entry stands for gives a box of
 * 16 bytes without an entry.
 * A projection type above 2 gives 0xFFFFFFFF too. H.264 entries end with the stereo mode and spherical video boxes of
 * their track.
 */
ZMV_API uint32_t MP4WriterMakeStsd(MP4WriterTrack* track, uint8_t* dst);
/* The 16-byte head of a sample entry of `size` bytes in all; 0 for a null `dst`. */
ZMV_API uint32_t MP4WriterMakeSampleEntry(uint8_t* dst, uint32_t dwType, uint32_t size);
/* The 36 (86) bytes of an audio (video) sample entry of `size` bytes in all, head included; 0 for null arguments. */
ZMV_API uint32_t MP4WriterMakeAudioSampleEntry(MP4WriterTrack* track, uint8_t* dst, uint32_t dwType, uint32_t size);
ZMV_API uint32_t MP4WriterMakeVideoSampleEntry(MP4WriterTrack* track, uint8_t* dst, uint32_t dwType, uint32_t size);
/*
 * The esds box: 35 bytes without a configuration, up to 40 more than a configuration. At least 92 bytes of `dst` are
 * written: what a shorter box leaves of them is cleared. 0xFFFFFFFF for null arguments and for a configuration above
 * 16267 bytes.
 */
ZMV_API uint32_t MP4WriterMakeEsds(MP4WriterTrack* track, uint8_t* dst, uint8_t objectType, uint8_t streamType);
/* The 20 bytes of the btrt box: a fixed buffer size, and the track's bit rate as maximum and average; 0 for null. */
ZMV_API uint32_t MP4WriterMakeBtrt(MP4WriterTrack* track, uint8_t* dst);
/*
 * `capacity` bounds the box in bytes. 0xFFFFFFFF for null arguments, a configuration that cannot be converted, a box
 * that does not fit, or when memory is short. The avcC box clears up to 20 bytes first.
 */
ZMV_API uint32_t MP4WriterMakeAvcc(MP4WriterTrack* track, uint8_t* dst, uint32_t capacity);
ZMV_API uint32_t MP4WriterMakeHvcc(MP4WriterTrack* track, uint8_t* dst, uint32_t capacity);
/*
 * An MPEG-4 descriptor length below 2^28 at `*cursor`, which moves; `minimal` 0: always four bytes. Returns the bytes;
 * 0 for null.
 */
ZMV_API uint32_t MP4WriterSetDescLength(uint8_t** cursor, uint32_t value, uint8_t minimal);

/* ---- Spherical video boxes on their own
 * --------------------------------------------------------------------------------*/

/*
 * Each writes one box at the write cursor, and nothing else: the writer's counters do not move, and a recording made by
 * the calls above never contains these boxes (its sample entries hold their own). For programs that lay out a file
 * themselves, between Open and Close. The bytes of the box; ZMV_E_FAIL without a handle; the stream's code. Called from
 * the thread that uses the handle.
 */
/* A "svhd" box of 140 bytes, zero behind its header: room for a metadata source. */
ZMV_API int32_t MP4WriterWriteSphericalVhdr(MP4WriterHandle* handle);
/* An empty "proj" box, 8 bytes. */
ZMV_API int32_t MP4WriterWriteProjectionHdlr(MP4WriterHandle* handle);
/* The projection as far as it is written on its own, which is MP4WriterWriteProjectionHdlr. */
ZMV_API int32_t MP4WriterWriteProjection(MP4WriterHandle* handle);

#ifdef __cplusplus
}
#endif

#endif

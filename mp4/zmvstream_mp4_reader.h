/*
 * The MP4 reader: describes an MP4 file (ISO/IEC 14496-12, -14, -15) and hands its frames back one at a time.
 *
 * Applications play back through the reader facade (facade/zmvstream_reader.h); these are the container's own entry
 * points. Order: Open, IsValidInfo while a file is still growing, GetInfo, any number of reads, Close. Calls on one
 * handle come from one thread at a time. Results are 0 or a count, or a negative ZMV_E_* code; a null argument gives
 * ZMV_E_FAIL where a code is returned and nothing else is said. Times are milliseconds.
 *
 * Sample tables are never loaded: each is read in place through a cursor on the file's stream, so neither opening nor
 * reading takes memory that grows with the length of a recording. A track takes four or five of the stream's 20
 * cursors, and one more when it has fragments. Box sizes and chunk offsets are 32-bit.
 */
#ifndef ZMVSTREAM_MP4_READER_H
#define ZMVSTREAM_MP4_READER_H

#include <stdint.h>

#include "base/zmv_export.h"
#include "base/zmv_result.h"
#include "facade/zmvstream_media.h"
#include "stream/zmvstream_buf.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct MP4FReaderHandle MP4FReaderHandle;
typedef struct MP4ReaderTrack MP4ReaderTrack;

/* ---- Playback
 * -------------------------------------------------------------------------------------------------------*/

/*
 * A reader on `stream`, which is open for reading, stays the caller's, must have no cursor yet and must outlive the
 * reader. Nothing is read. 0, ZMV_E_MEMORY or the stream's code; `*out` is stored on success only.
 */
ZMV_API int32_t MP4FReaderOpen(MP4FReaderHandle** out, ZMVStreamBuf* stream);
/* Frees the tracks, gives the cursors back and frees the handle; null is accepted. */
ZMV_API void MP4FReaderClose(MP4FReaderHandle* handle);
/*
 * 1 when a complete moov box lies in the data written so far, 0 when not; any other value is the low byte of the code
 * of a failed read.
 */
ZMV_API uint8_t MP4FReaderIsValidInfo(MP4FReaderHandle* handle);
/*
 * Walks the file and describes it in `info`, the caller's record (pExtraHeader and dwExtraHeaderSize are inputs).
 * Tracks beyond 12 are ignored; tracks beyond the capacity of `info` are readable but not described. May be called
 * again: the record is the same and reading starts over. 0; ZMV_E_MEMORY, also when the tracks need more than 20
 * cursors; ZMV_E_NO_TRACK_HEADER; ZMV_E_FAIL for an unusable sample description; ZMV_E_OPEN when the file cannot be
 * opened once more for a track's payload; ZMV_E_NOT_SUPPORTED when the stream's provider lacks an operation; ZMV_E_READ
 * or ZMV_E_SEEK.
 */
ZMV_API int32_t MP4FReaderGetInfo(MP4FReaderHandle* handle, ZMVFileInfo* info);
/*
 * The next frame of track frame->dwTrack (0 = first) of frame->dwMediaType into frame->pData (capacity frame->dwBufSize
 * bytes). Length-prefixed NAL units come out behind 4-byte start codes. Fills dwSize, llTimeStamp, llTimeStampUs
 * (video), dwDuration, dwKeyFrame and dwChunk. 0; ZMV_E_MP4_BUFFER with exactly the size needed in dwBufSize, start
 * codes included, and the same frame on the next call; ZMV_E_END after the last frame, for a payload that is cut short,
 * or without tracks; ZMV_E_READ when a table cannot be read, and the same frame on the next call; ZMV_E_SEEK when the
 * frame's chunk lies outside the file. The next call goes on behind a payload that could not be had. Behind the last
 * sample of moov it goes on as MP4ReaderReadFrameFrag does.
 */
ZMV_API int32_t MP4FReaderReadFrame(MP4FReaderHandle* handle, ZMVFrame* frame);
/*
 * The same without the payload, without dwChunk and without the samples of fragments. dwBufSize is tested against the
 * sample as it is stored, which is what ZMV_E_MP4_BUFFER puts there. For NAL units dwSize is exact when the sample
 * holds one unit. Both reads move the same track position, but this one moves the payload cursor by no more than the
 * NAL lengths it reads: a frame read afterwards is right from the next chunk on.
 */
ZMV_API int32_t MP4FReaderReadFrameInfo(MP4FReaderHandle* handle, ZMVFrame* frame);

/* ---- Seeking
 *
 * Times are milliseconds. `*time` is the target and receives the time of the sample that was found. The seeks return 1
 * when done and 0 when not; every track then reads on where it read. A read that fails inside a seek leaves its track
 * where it read and counts as done, except that one whose code has the low byte 0 (ZMV_E_FAIL) counts as not found.
 *
 * - Backward goes to the last key frame before the first sample that reaches the target.
 * - Nearest goes to that key frame, or to the sample itself when the next key frame is nearer to it.
 * - Forward goes to the first sample behind the target, or at it; nothing is found when no key frame follows.
 *
 * A target behind the end of a track is moved to its end. In a track with fragments it is looked for among their
 * samples, whatever the mode, as MP4ReaderGetSeekPosFrag does, and nothing is found behind them. Nothing is found
 * behind the end of the movie and where data is not written yet. The first medium named leads and the others go where
 * it went; when it is missing, the first there is of video, audio and text leads.
 */

/* Video and audio to the nearest, text backward. `audioLed` != 0: audio leads, and all go backward. */
ZMV_API uint8_t MP4FReaderSeekByTime(MP4FReaderHandle* handle, uint32_t* time, uint8_t audioLed);
/* Video leads; all go backward, or forward with `forward` != 0. */
ZMV_API uint8_t MP4FReaderSeekByKeyFrame(MP4FReaderHandle* handle, uint32_t* time, uint8_t forward);
/* Text leads, backward or forward; audio goes to the nearest, video backward. 0 without a text track. */
ZMV_API uint8_t MP4FReaderSeekBySubtitle(MP4FReaderHandle* handle, uint32_t* time, uint8_t forward);
/* The current track of one medium (ZMV_MEDIA_*) alone, forward. 0 for any other value. */
ZMV_API uint8_t MP4FReaderSeekByMedia(MP4FReaderHandle* handle, uint32_t* time, uint32_t media);
/*
 * Makes track `rank` (0 = first) of a medium its current track and moves it backward from `time`. 0 when there is no
 * such track, when it is current already, or when nothing is found.
 */
ZMV_API int32_t MP4FReaderChangeTrack(MP4FReaderHandle* handle, uint32_t rank, uint32_t time, uint32_t media);
/*
 * Searches one track that GetInfo has described. `mode`: 1 forward, 2 backward, 3 nearest. 1 when found: the place is
 * pending in the track and its table cursors stand there, so StreamSeek or MP4ReaderLoadStblPos has to follow. 0 when
 * not; any other value is the low byte of the code of a failed read.
 */
ZMV_API uint8_t MP4FReaderGetSeekPos(MP4FReaderHandle* handle, MP4ReaderTrack* track, uint32_t* time, uint32_t mode);
/* Makes the pending place of a track the one at which it is read. Returns 1. */
ZMV_API uint8_t MP4FReaderStreamSeek(MP4ReaderTrack* track);

/* ---- Table cursors of a track: 0 or the stream's code
 * ---------------------------------------------------------------*/

/* Notes the positions of the track's table cursors. */
ZMV_API int32_t MP4ReaderSaveStblPos(MP4FReaderHandle* handle, MP4ReaderTrack* track);
/* Moves them back to the noted positions; counters stay. */
ZMV_API int32_t MP4ReaderLoadStblPos(MP4FReaderHandle* handle, MP4ReaderTrack* track);
/* Moves them to the starts of their tables; counters stay. */
ZMV_API int32_t MP4ReaderSetStblPos(MP4FReaderHandle* handle, MP4ReaderTrack* track);

/* ---- Fragments of a track (ISO/IEC 14496-12 8.8) --------------------------------------------------------------------
 *
 * The samples behind those of moov. Their boxes are read through a cursor on the file's stream, one of the 20, which
 * MP4ReaderParseTraf opens. MP4FReaderReadFrame goes on here by itself.
 */

/*
 * Moves the track's fragment cursor to the version and flags of the track's next trun and takes over what the tfhd
 * boxes on the way say. 1; 0 when there is none, or the low byte of the code of a failed read: the cursor stays.
 */
ZMV_API uint8_t MP4ReaderReadTrun(MP4FReaderHandle* handle, MP4ReaderTrack* track);
/*
 * The next sample of the fragments, as MP4FReaderReadFrame, with these differences: the payload comes as it is stored,
 * NAL units behind their length fields; dwChunk is left alone; dwKeyFrame marks the first sample of each trun;
 * llTimeStamp begins at the duration of the samples of moov, llTimeStampUs at 0, and dwDuration is that of the last
 * sample of moov. ZMV_E_READ when the payload cannot be read. After a failure the next call returns the same sample.
 */
ZMV_API int32_t MP4ReaderReadFrameFrag(MP4FReaderHandle* handle, MP4ReaderTrack* track, ZMVFrame* frame);
/*
 * Searches the fragments for the first sample, the very first one excepted, whose time reaches `*time` (milliseconds,
 * replaced by that of the sample). `mode` has no influence. The positions of the track's cursors have been saved and
 * set to their starts. 1 with the place in the track's seek fields; 0 when there is no such sample, or the low byte of
 * the code of a failed read: the cursors are then back at the saved positions.
 */
ZMV_API uint8_t MP4ReaderGetSeekPosFrag(MP4FReaderHandle* handle, MP4ReaderTrack* track, uint32_t* time, uint32_t mode);

/* ---- Parsers --------------------------------------------------------------------------------------------------------
 *
 * Each reads a box at the handle's own cursor, which stands behind the box header; `size` is the payload in bytes. 0 or
 * a negative code. Fields beyond the payload count as 0.
 */

/* The track with this ID, made when it is new; null when memory or all 12 slots are used up. The handle owns it. */
ZMV_API MP4ReaderTrack* MP4ReaderFindTrak(MP4FReaderHandle* handle, uint32_t trackID);
ZMV_API int32_t MP4ReaderParseMoov(MP4FReaderHandle* handle, uint32_t size);
ZMV_API int32_t MP4ReaderParseTrak(MP4FReaderHandle* handle, uint32_t size);
/* Duration with fragments and the defaults of their samples (ISO/IEC 14496-12 8.8.1). */
ZMV_API int32_t MP4ReaderParseMvex(MP4FReaderHandle* handle, uint32_t size);
/* A fragment (8.8.4) and its part of one track (8.8.6): counts the truns, whose samples are read later. */
ZMV_API int32_t MP4ReaderParseMoof(MP4FReaderHandle* handle, uint32_t size);
ZMV_API int32_t MP4ReaderParseTraf(MP4FReaderHandle* handle, uint32_t size);
/* A null track gives ZMV_E_NO_TRACK_HEADER. */
ZMV_API int32_t MP4ReaderParseMdia(MP4FReaderHandle* handle, MP4ReaderTrack* track, uint32_t size);
ZMV_API int32_t MP4ReaderParseMinf(MP4FReaderHandle* handle, MP4ReaderTrack* track, uint32_t size);
ZMV_API int32_t MP4ReaderParseStbl(MP4FReaderHandle* handle, MP4ReaderTrack* track, uint32_t size);
/* `size` without version and flags, which the cursor has passed. */
ZMV_API int32_t MP4ReaderParseStsd(MP4FReaderHandle* handle, MP4ReaderTrack* track, uint32_t size);
/* Audio and video sample entries behind their 16 common bytes (ISO/IEC 14496-12 8.5.2, 12.1.3, 12.2.3). */
ZMV_API int32_t MP4ReaderParseAudio(MP4FReaderHandle* handle, MP4ReaderTrack* track, uint32_t size);
ZMV_API int32_t MP4ReaderParseVideo(MP4FReaderHandle* handle, MP4ReaderTrack* track, uint32_t size);
/*
 * Elementary stream descriptor (ISO/IEC 14496-14 5.6). ZMV_E_FAIL when it cannot be used, ZMV_E_READ when it is not
 * there in full.
 */
ZMV_API int32_t MP4ReaderParseESDS(MP4FReaderHandle* handle, MP4ReaderTrack* track, uint32_t size);
/* Decoder configuration records (ISO/IEC 14496-15 5.3.3, 8.3.3). */
ZMV_API int32_t MP4ReaderParseAVCC(MP4FReaderHandle* handle, MP4ReaderTrack* track, uint32_t size);
ZMV_API int32_t MP4ReaderParseHVCC(MP4FReaderHandle* handle, MP4ReaderTrack* track, uint32_t size);
/* Bit rates (ISO/IEC 14496-12 8.5.2). */
ZMV_API int32_t MP4ReaderParseBTRT(MP4FReaderHandle* handle, MP4ReaderTrack* track, uint32_t size);
/* Stereo mode, and the "circ" projection. ZMV_E_FAIL for any other projection. */
ZMV_API int32_t MP4ReaderParseST3D(MP4FReaderHandle* handle, MP4ReaderTrack* track, uint32_t size);
ZMV_API int32_t MP4ReaderParseSV3D(MP4FReaderHandle* handle, MP4ReaderTrack* track, uint32_t size);
/* A descriptor length (ISO/IEC 14496-1 8.3.3) at a stream's cursor: the length, or a negative code. */
ZMV_API int32_t MP4ReaderGetDescLength(ZMVStreamBuf* stream, uint32_t dwIndex);
/* The same on a byte reader (platform/zmv_byte.h): 0, with the reader's error in `*err`, when the data runs out. */
ZMV_API uint32_t MP4ReaderGetDescLength2(void* byteReader, int64_t* err);

#ifdef __cplusplus
}
#endif

#endif

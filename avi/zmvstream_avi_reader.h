/*
 * The AVI reader: describes a RIFF AVI file, also one with OpenDML extensions, and hands its frames back one at a time.
 *
 * Applications play back through the reader facade (facade/zmvstream_reader.h); these are the container's own entry
 * points. Order: Open, IsValidInfo while a file is still growing, GetInfo, any number of reads and seeks, Close. Calls
 * on one handle come from one thread at a time. Results are 0 or a count, or a negative ZMV_E_* code; a null argument
 * gives ZMV_E_FAIL where a code is returned and nothing else is said. Times are milliseconds.
 *
 * The index of a file is kept in memory, 12 bytes an entry and at most a quarter more; a file without one is read by
 * scanning. Every stream reads through a handle of its own on the file. AVI stores no times: they are uniform.
 */
#ifndef ZMVSTREAM_AVI_READER_H
#define ZMVSTREAM_AVI_READER_H

#include <stdint.h>

#include "base/zmv_export.h"
#include "base/zmv_result.h"
#include "facade/zmvstream_media.h"
#include "stream/zmvstream_buf.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct AVIReaderHandle AVIReaderHandle;
typedef struct AVIReaderStream AVIReaderStream;

/* ---- Playback
 * -------------------------------------------------------------------------------------------------------*/

/*
 * A reader on `stream`, which is open for reading, stays the caller's and must outlive the
 * reader. Reads the front of the file: a RIFF form "AVI ", "AVIX" or "MENU", or a block in front of one whose 32-bit
 * word at offset 92 says where the RIFF data begins. 0; ZMV_E_FAIL for another form, ZMV_E_MEMORY or the stream's code;
 * `*out` is stored on success only.
 */
ZMV_API int32_t AVIReaderOpen(AVIReaderHandle** out, ZMVStreamBuf* stream);
/* Closes the streams' own handles, gives the cursors back and frees the handle; null is accepted. */
ZMV_API void AVIReaderClose(AVIReaderHandle* handle);
/*
 * 1 when the data written so far reaches the frames (the "movi" list), 0 when not; any other value is the low byte of
 * the code of a failed read. May be called again while a file grows: it goes on where it stopped.
 */
ZMV_API uint8_t AVIReaderIsValidInfo(AVIReaderHandle* handle);
/*
 * Walks the headers, reads the index unless `readIndex` is 0, and describes the file in `info`, the caller's record
 * (pExtraHeader and dwExtraHeaderSize are inputs: that many bytes of the application's own header chunk are copied
 * there). Streams beyond 12 are ignored; streams beyond the capacity of `info` are readable but not described. May be
 * called again: the record is the same and reading starts over.
 * 0; ZMV_E_FAIL for a form that is not AVI, a stream format without its header or a standard index that is not valid;
 * ZMV_E_MEMORY; ZMV_E_OPEN when the file cannot be opened once more for a stream; ZMV_E_READ or ZMV_E_SEEK.
 */
ZMV_API int32_t AVIReaderGetInfo(AVIReaderHandle* handle, ZMVFileInfo* info, uint32_t readIndex);
/* AVIReaderGetInfo without the index: frames are found by scanning. */
ZMV_API int32_t AVIReaderGetInfo2(AVIReaderHandle* handle, ZMVFileInfo* info);
/*
 * Chunks (video, text) or bytes (audio) of stream `number`, counted over the first "movi" list of the file; 0 when the
 * file cannot be counted.
 */
ZMV_API uint32_t AVIReaderGetStreamSize(AVIReaderHandle* handle, uint32_t number);
/* Does nothing: AVIReaderGetInfo makes the index. 0. */
ZMV_API int32_t AVIReaderMakeIndex(AVIReaderHandle* handle);
/*
 * The next frame of track frame->dwTrack (0 = first) of frame->dwMediaType into frame->pData (capacity frame->dwBufSize
 * bytes). Fills dwSize, llTimeStamp, dwDuration and, with an index, dwKeyFrame (1 or 2). 0, also with dwSize 0 when
 * there is no such track; ZMV_E_AVI_BUFFER with the size needed in dwBufSize, and the same frame on the next call;
 * ZMV_E_END after the last frame; ZMV_E_FAIL when the frame is not complete in the file; ZMV_E_READ or ZMV_E_SEEK.
 */
ZMV_API int32_t AVIReaderReadFrame(AVIReaderHandle* handle, ZMVFrame* frame);

/* ---- Seeking
 *
 * `*time` is the target and receives the time of the entry that was found. The seeks need an index. They return 1 when
 * done and 0 when not; every stream then reads on where it read, though `*time` may hold what a first stream found.
 * Nothing is found at or behind the end of a stream.
 */

/*
 * `previousKey` 0: video and audio to the nearest key frame, audio gives the time; otherwise to the previous one, audio
 * first, video gives the time.
 */
ZMV_API uint8_t AVIReaderSeekByTime(AVIReaderHandle* handle, uint32_t* time, uint8_t previousKey);
/* Every video stream, then the first audio stream, to the previous key frame or, with `forward` != 0, the next one. */
ZMV_API uint8_t AVIReaderSeekByKeyFrame(AVIReaderHandle* handle, uint32_t* time, uint8_t forward);
/* The current audio or video stream alone, forward. 0 for any other medium. */
ZMV_API uint8_t AVIReaderSeekByMedia(AVIReaderHandle* handle, uint32_t* time, uint32_t media);
/*
 * Makes track `rank` (0 = first) of a medium its current one and moves it to the key frame before `time`. 0 when there
 * is no such track, when it is current already, or when nothing is found.
 */
ZMV_API int32_t AVIReaderChangeTrack(AVIReaderHandle* handle, uint32_t rank, uint32_t time, uint32_t media);
/*
 * Searches one stream. `mode`: 1 next, 2 previous, 3 nearest key frame; a non-zero `seekOption` finds the first entry.
 * 1 when found: the place is pending until AVIReaderSeekStream; 0 when not.
 */
ZMV_API uint8_t AVIReaderGetSeekPos(AVIReaderHandle* handle, uint32_t seekOption, AVIReaderStream* stream,
                                    uint32_t* time, uint32_t mode);
/* Makes the pending place the one at which the stream is read. 0 or the stream's code. */
ZMV_API int32_t AVIReaderSeekStream(uint32_t baseOffset, AVIReaderStream* stream);

/* ---- Finding frames
 *
 * The next chunk of a stream becomes its pending one, which AVIReaderReadFrame delivers. 0, or the codes of
 * AVIReaderReadFrame.
 */

/* By scanning the data from where the stream stands, also over damaged places. */
ZMV_API int32_t AVIReaderFindStreamFrame(AVIReaderHandle* handle, AVIReaderStream* stream);
/* By the stream's index. */
ZMV_API int32_t AVIReaderFindStreamFrame2(AVIReaderHandle* handle, AVIReaderStream* stream);
/*
 * The next chunk header at a cursor: its code and the size of its data. ZMV_E_END at the end of the data; ZMV_E_FAIL
 * when the chunk is not complete or, with both outputs 0, after more than 2048 zero bytes; ZMV_E_READ or ZMV_E_SEEK.
 */
ZMV_API int32_t AVIReaderGetTag(ZMVStreamBuf* stream, uint32_t cursor, uint32_t* code, uint32_t* size);

/* ---- Indexes: 0 or a negative code
 * -----------------------------------------------------------------------------------*/

/*
 * Appends an entry to a stream's index: flags (0x10 = key frame), position of the chunk header counted from the start
 * of the RIFF data, size of its data. An entry that does not lie behind the last one is dropped. 0 or ZMV_E_MEMORY.
 */
ZMV_API int32_t AVIReaderAddStreamIndex(AVIReaderStream* stream, uint32_t flags, uint32_t position, uint32_t size);
/* Reads the data of an "idx1" chunk: `size` bytes at `position`. */
ZMV_API int32_t AVIReaderReadIndex(AVIReaderHandle* handle, uint32_t position, uint32_t size);
/* Reads an "indx" chunk (OpenDML super index) of `size` bytes at the reader's cursor into a stream. */
ZMV_API int32_t AVIReaderReadStreamIndex(AVIReaderHandle* handle, AVIReaderStream* stream, uint32_t size);
/* Reads the standard indexes that the super indexes name; frees the super indexes. ZMV_E_FAIL for one not valid. */
ZMV_API int32_t AVIReaderReadStdIndex(AVIReaderHandle* handle);
/* With an "idx1" in a file without extensions: video streams lose their sample size, so that a chunk is a frame. */
ZMV_API void AVIReaderCheckSampleSize(AVIReaderHandle* handle);

#ifdef __cplusplus
}
#endif

#endif

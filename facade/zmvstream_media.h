/*
 * Media records: everything that passes between an application, the facades and the containers, and the helpers that
 * turn stream descriptions into and out of the little-endian format structures of AVI "strf" chunks.
 *
 * The records are plain, have fixed capacities, and hold no pointer to memory of the library. The library keeps no
 * pointer into them past a call. Times are milliseconds unless a field says otherwise. Clear a record before filling
 * it: reserved words are to be 0.
 */
#ifndef ZMVSTREAM_MEDIA_H
#define ZMVSTREAM_MEDIA_H

#include <stdint.h>

#include "base/zmv_export.h"
#include "base/zmv_fourcc.h"
#include "base/zmv_result.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ZMVFrame.dwMediaType, and the `media` argument of the reader facade */
#define ZMV_MEDIA_VIDEO 1u
#define ZMV_MEDIA_AUDIO 2u
#define ZMV_MEDIA_TEXT 3u

/* ZMVFrame.dwKeyFrame */
#define ZMV_KEY_FRAME 1u
#define ZMV_NOT_KEY_FRAME 2u

/* Capacities of ZMVFileInfo and its descriptions. */
#define ZMV_MAX_AUDIO 1u
#define ZMV_MAX_VIDEO 9u
#define ZMV_MAX_TEXT 2u
#define ZMV_MAX_EXTRA_DATA 512u

/* Audio formats (ZMVAudioInfo.dwFormat): WAVE format tags as the library uses them. */
#define ZMV_AUDIO_PCM 1u
#define ZMV_AUDIO_ALAW 6u
#define ZMV_AUDIO_MULAW 7u
#define ZMV_AUDIO_MPEG 0x55u
#define ZMV_AUDIO_AAC 0xFFu
#define ZMV_AUDIO_PCM_LE 0xF7774u /* little-endian PCM in MP4 ("sowt") */

/* An audio stream. */
typedef struct ZMVAudioInfo {
  uint32_t dwFormat;     /* WAVE format tag or codec FourCC */
  uint32_t dwSampleRate; /* samples per second */
  uint32_t dwChannels;
  uint32_t dwBitsPerSample;
  uint32_t dwSamplesPerFrame;
  uint32_t dwBlockAlign;                   /* bytes */
  uint32_t dwBitRate;                      /* bits per second */
  uint8_t abExtraData[ZMV_MAX_EXTRA_DATA]; /* codec configuration: WAVE extra bytes, MP4 decoder-specific information */
  uint32_t dwExtraDataSize;                /* bytes used in abExtraData */
  uint32_t dwBufferSize;                   /* largest frame in bytes, a hint for the caller's read buffer */
  uint32_t dwSampleBlock; /* AVI reader: bytes of a block of samples (dwSampleSize of "strh"); 0 for packets */
  uint32_t dwDuration;    /* of the stream */
  uint8_t bValid;         /* 1 for a stream that a reader described */
  uint32_t dwFrames;      /* number of frames */
  uint32_t adwReserved1[6];
} ZMVAudioInfo;

/* A video stream. */
typedef struct ZMVVideoInfo {
  uint32_t dwFourCC; /* ZMV_FOURCC('H','2','6','4') ... */
  uint32_t dwReserved0;
  uint32_t dwWidth;     /* pixels */
  uint32_t dwHeight;    /* pixels */
  uint32_t dwFrameRate; /* frames per second x 1000 */
  uint32_t dwFixedRate; /* AVI writer: fixed frame rate x 1000; 0 = measured at close */
  uint32_t dwReserved1;
  uint32_t dwBitCount;                     /* bits per pixel */
  uint32_t dwBitRate;                      /* bits per second */
  uint8_t abExtraData[ZMV_MAX_EXTRA_DATA]; /* parameter sets, behind 4-byte start codes */
  uint32_t dwExtraDataSize;                /* bytes used in abExtraData */
  uint32_t dwBufferSize;                   /* largest frame in bytes, a hint */
  uint32_t dwDuration;                     /* of the stream */
  uint32_t dwFrames;                       /* number of frames */
  uint32_t dwTimeScale; /* MP4 writer: ticks per second; 0 = the file's when above 1000, else 90000 */
  uint32_t adwReserved2[5];
  uint32_t dwPriority; /* AVI: stream priority, low 16 bits */
  uint32_t adwReserved3[2];
  uint32_t dwSpherical;      /* spherical metadata is present */
  uint32_t dwProjectionMode; /* 0 none; 1 stereo with a "circ" projection; any other value an "equi" projection */
  uint32_t dwStereoBound;    /* first projection bound */
  uint32_t dwStereoTypeZero; /* 1 when the projection type is 0 */
  uint32_t dwStereoParam[2]; /* second and third projection bound */
  uint32_t adwReserved4[8];
} ZMVVideoInfo;

/* A text (metadata or subtitle) stream. */
typedef struct ZMVTextInfo {
  uint32_t dwFourCC;
  uint32_t dwRate;       /* frames per second x 1000 */
  uint32_t dwFixedRate;  /* AVI writer: fixed frame rate x 1000; 0 = measured at close */
  uint32_t dwBitRate;    /* bits per second */
  uint32_t dwBufferSize; /* largest frame in bytes, a hint */
  uint32_t dwDuration;   /* of the stream */
  uint32_t dwReserved0;
  uint32_t dwFrames;    /* number of frames */
  uint32_t dwTimeScale; /* MP4 writer: ticks per second; 0 = the file's when non-zero, else 1000 */
  uint32_t dwReserved1;
} ZMVTextInfo;

/* A file: what a reader found, or what a writer is to prepare. */
typedef struct ZMVFileInfo {
  uint32_t m_dwFileType; /* MP4 writer: 1 selects the "mp41" major brand; the AVI reader clears it */
  uint32_t dwDuration;   /* of the whole file; MP4 writer: seconds or milliseconds that size the user data */
  uint32_t dwTimeScale;  /* units per second of all times; MP4 writer: the movie time scale */
  uint32_t dwAudioCount; /* 0 or 1 */
  uint32_t dwVideoCount; /* 0 to 9 */
  uint32_t dwTextCount;  /* 0 to 2 */
  ZMVAudioInfo m_Audio;
  ZMVVideoInfo m_Video[ZMV_MAX_VIDEO]; /* in file order */
  ZMVTextInfo m_Text[ZMV_MAX_TEXT];
  char* pStreamName;          /* AVI "strn": name of the first video stream, the caller's; null when absent */
  uint32_t dwAiddValue;       /* a value that the application can rewrite in place; AVI writer: bit 0 = no fill chunk */
  uint32_t dwAiddPos;         /* file position of that value, set by the readers */
  uint8_t* pExtraHeader;      /* AVI "ADAS" block: the caller's buffer; null when unused */
  uint32_t dwExtraHeaderSize; /* bytes of that buffer and of the block */
  uint32_t adwReserved[18];
  char szSoftware[64]; /* zero-terminated; AVI "ISFT"; MP4 writer: brand text, 'F' first = user data */
} ZMVFileInfo;

/* One frame. */
typedef struct ZMVFrame {
  uint8_t* pData;       /* payload; for reading, the caller's buffer */
  uint32_t dwSize;      /* payload bytes; the writer facade sets it to 0 after every write attempt */
  uint32_t dwBufSize;   /* reading: capacity of pData; on ZMV_E_MP4_BUFFER / ZMV_E_AVI_BUFFER the size needed */
  uint64_t llTimeStamp; /* presentation time in milliseconds */
  uint64_t llReserved;
  uint32_t dwDuration;    /* milliseconds; MP4 writer: microseconds for video */
  uint32_t dwTrack;       /* stream number within its media type, 0 = first */
  uint32_t dwMediaType;   /* ZMV_MEDIA_* */
  uint32_t dwKeyFrame;    /* ZMV_KEY_FRAME or ZMV_NOT_KEY_FRAME; a writer takes exactly 1 as key */
  uint32_t dwChunk;       /* MP4 reader: 1-based chunk number */
  uint64_t llTimeStampUs; /* MP4 reader, video: time in microseconds, carried in 32 bits */
} ZMVFrame;

struct ZMVStreamBuf;

/*
 * Format helpers for AVI "strf" chunks (OpenDML: the wave format and bitmap info structures, little-endian). The audio
 * form is 16 bytes, or 18 and the extra bytes; the video form is 40 bytes and the extra bytes. `size` is the chunk's
 * size in bytes; at most 512 extra bytes are taken or written. Descriptions and forms are the caller's and borrowed for
 * the call.
 *
 * The stream helpers report no errors: what cannot be read is 0, a failed write returns the count it would have had.
 * They move the cursor `dwIndex` of `hStream` and must not run beside another call on that stream. The memory helpers
 * may run anywhere.
 */

/*
 * Reads an audio form of `size` bytes at the cursor, which ends at the chunk's end. Fields beyond a short chunk stay as
 * they are; extra bytes are taken when their announced count lies within the chunk and fits the record.
 */
ZMV_API void StreamGetAudioFormat(struct ZMVStreamBuf* hStream, uint32_t dwIndex, uint32_t size, ZMVAudioInfo* pAudio);
/* Reads a video form of `size` bytes likewise; everything behind the 40 bytes is extra. */
ZMV_API void StreamGetVideoFormat(struct ZMVStreamBuf* hStream, uint32_t dwIndex, uint32_t size, ZMVVideoInfo* pVideo);
/* Writes the audio form; returns its bytes: 16, or 18 and the extra bytes. */
ZMV_API uint32_t StreamPutAudioFormat(struct ZMVStreamBuf* hStream, uint32_t dwIndex, const ZMVAudioInfo* pAudio);
/*
 * Writes the plain video form: header size always 40, planes 0, extra bytes rounded up to even (the pad is the next
 * byte of the record). Returns 40 and the rounded extra size. ZMVStreamBuf_PutVideoFormat writes the fuller form.
 */
ZMV_API uint32_t StreamPutVideoFormat(struct ZMVStreamBuf* hStream, uint32_t dwIndex, const ZMVVideoInfo* pVideo);
/* Decodes an audio form of `size` bytes in memory; below 16 nothing is done. */
ZMV_API void GetAudioFormatMem(const uint8_t* pForm, uint32_t size, ZMVAudioInfo* pAudio);
/* Decodes a video form of `size` bytes in memory; below 40 nothing is done. */
ZMV_API void GetVideoFormatMem(const uint8_t* pForm, uint32_t size, ZMVVideoInfo* pVideo);

#ifdef __cplusplus
}
#endif

#endif

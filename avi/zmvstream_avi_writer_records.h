// The AVI writer's records: one handle per open writer and one record per stream. Both are zero-filled when they are
// made. The two headers are images of what stands in the file.
#ifndef ZMVSTREAM_AVI_WRITER_RECORDS_H
#define ZMVSTREAM_AVI_WRITER_RECORDS_H

#include "avi/zmv_avi_format.h"
#include "avi/zmvstream_avi_writer.h"

// Data of "avih".
struct AVIWriterMainHeader {
  uint32_t dwMicroSecPerFrame;
  uint32_t dwMaxBytesPerSec;
  uint32_t dwPaddingGranularity;
  uint32_t dwFlags;
  uint32_t dwTotalFrames;  // of all video streams
  uint32_t dwInitialFrames;
  uint32_t dwStreams;
  uint32_t dwSuggestedBufferSize;  // largest payload
  uint32_t dwWidth;
  uint32_t dwHeight;
  uint32_t dwReserved[4];
};

// Data of "strh".
struct AVIWriterStreamHeader {
  uint32_t fccType;
  uint32_t fccHandler;
  uint32_t dwFlags;
  uint16_t wPriority;
  uint16_t wLanguage;
  uint32_t dwInitialFrames;
  uint32_t dwScale;
  uint32_t dwRate;
  uint32_t dwStart;
  uint32_t dwLength;
  uint32_t dwSuggestedBufferSize;  // largest payload
  uint32_t dwQuality;
  uint32_t dwSampleSize;
  int16_t rcFrame[4];  // left, top, right, bottom
};

static_assert(sizeof(AVIWriterMainHeader) == zmv::avi::kMainHeaderSize);
static_assert(sizeof(AVIWriterStreamHeader) == zmv::avi::kStreamHeaderSize);

struct AVIWriterStream {
  uint32_t m_dwMediaType;  // ZMV_MEDIA_*
  uint32_t m_dwStreamNo;
  uint32_t m_dwScaleHint;
  uint32_t m_dwInitRate;    // as described; the rate at close when none better was measured
  uint32_t m_dwChunks;      // chunks written
  uint32_t m_dwBlockAlign;  // audio: bytes of a PCM sample in all channels, 0 for compressed audio
  uint8_t* m_pPrefix;       // put in front of the next payload; owned
  uint32_t m_dwPrefixSize;
  AVIWriterStreamHeader m_StreamInfo;
  uint32_t m_dwHeaderPos;  // file position of m_StreamInfo
  uint32_t m_dwVidDur;     // video: milliseconds of all frames
  uint32_t m_dwTxtDur;     // text: milliseconds of all frames
  uint32_t m_dwAudioTag;   // audio: format tag
  uint32_t dwTotalFrames;  // video and text
  uint64_t m_ullPrevTS;    // time stamp of the frame before
  uint32_t m_dwFixedRate;  // video and text: rate x 1000, 0 = measured at close
};

struct AVIWriterHandle {
  ZMVStreamBuf* m_hInOut;  // not owned
  uint32_t m_dwCursor;
  uint8_t* m_pIndex;  // data of "idx1", owned
  uint32_t m_dwIndexCapacity;
  uint32_t m_dwIndexEntries;
  uint32_t m_dwIndexBytes;
  AVIWriterStream* m_pStream[zmv::avi::kMaxStreams];  // owned, in the order of their headers
  uint32_t m_dwStreamCount;
  double m_dValue;  // kept for the caller
  AVIWriterMainHeader m_MainHeader;
  uint32_t m_dwMainHeaderPos;  // file position of m_MainHeader
  uint32_t m_dwMoviSize;       // bytes in the "movi" list, its type included; 0 until the list stands
  uint32_t m_dwMoviSizePos;    // file position of its size
  uint32_t m_dwChunkOffset;    // of the next chunk, for the index: from the list's type
  uint32_t m_dwLimitSeconds;
  uint8_t m_bNoJunkFill;
  uint8_t m_bInfoSet;
  uint8_t m_bMisplaced;  // the cursor may not stand at the end of the "movi" list
};

#endif

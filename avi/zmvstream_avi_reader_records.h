// The AVI reader's records: one handle per open reader and one record per stream. Both are zero-filled when they are
// made.
#ifndef ZMVSTREAM_AVI_READER_RECORDS_H
#define ZMVSTREAM_AVI_READER_RECORDS_H

#include "avi/zmv_avi_format.h"
#include "avi/zmvstream_avi_reader.h"

// An entry of a stream's index.
struct AVIReaderIndexEntry {
  uint32_t m_dwFlags;  // 0x10 = key frame
  uint32_t m_dwPos;    // of the chunk's header, from the start of the RIFF data
  uint32_t m_dwSize;   // of the chunk's data
};

// An entry of an OpenDML super index.
struct AVIReaderSuperEntry {
  uint64_t m_llOffset;  // of a standard index chunk, from the start of the RIFF data
  uint32_t m_dwSize;
  uint32_t m_dwDuration;
};

struct AVIReaderStream {
  ZMVStreamBuf* m_hStream;  // a duplicate of the file's stream, owned
  uint32_t m_dwIndex;       // cursor on it
  uint32_t m_dwMediaType;   // ZMV_MEDIA_*; 0 = any other stream
  uint32_t m_dwStreamNo;
  uint32_t m_dwStartTime;   // milliseconds
  uint32_t m_dwIndexBytes;  // sum of the sizes of all index entries
  uint32_t m_dwFourCC;      // of the video codec
  uint32_t m_dwScale;
  uint32_t m_dwRate;
  uint32_t m_dwLength;
  uint32_t m_dwSampleSize;
  uint32_t m_dwDuration;  // milliseconds

  // Where the stream is read.
  uint32_t m_dwFrameNo;      // frames found so far
  uint32_t m_dwBytesRead;    // payload bytes handed out so far
  uint32_t m_dwPendingSize;  // of the chunk that was found and not yet read; 0 = none
  uint8_t m_bPadPending;     // scanning: a pad byte follows that chunk
  uint32_t m_dwPos;          // file position at which reading goes on
  uint32_t m_dwDataEnd;      // as far as data is known to be present; asked again for what lies beyond

  // The index, in the order of the file.
  AVIReaderIndexEntry* m_pIndex;  // owned
  uint32_t m_dwIndexEntries;
  uint32_t m_dwIndexCapacity;  // in entries
  uint32_t m_dwIndexCur;       // entry that is read next

  AVIReaderSuperEntry* m_pSuper;  // OpenDML super index, owned; freed once the standard indexes are read
  uint32_t m_dwSuperEntries;

  // What a search found, until AVIReaderSeekStream.
  uint32_t m_dwSeekEntry;  // index entry to go on from
  uint32_t m_dwSeekFrame;
  uint32_t m_dwSeekUnits;  // samples in front of it, with a sample size
  uint32_t m_dwSeekPos;
};

struct AVIReaderHandle {
  ZMVStreamBuf* m_hStream;                            // not owned
  uint32_t m_dwIndex;                                 // the cursor of the header walk
  uint32_t m_dwFileSize;                              // at Open
  AVIReaderStream* m_pStream[zmv::avi::kMaxStreams];  // owned, in the order of their headers
  uint32_t m_dwStreamCount;
  uint32_t m_dwFirstAudio;  // numbers of the current streams
  uint32_t m_dwFirstVideo;
  uint8_t m_bHasAudio;
  uint8_t m_bHasVideo;
  uint32_t m_dwBase;      // start of the RIFF data
  uint32_t m_dwMoviPos;   // "movi" code of the first such list, from the base offset
  uint32_t m_dwDataPos;   // its first chunk, from the base offset
  uint32_t m_dwDataPos2;  // that of the next such list
  uint32_t m_dwIdx1Pos;   // file position of the data of "idx1"
  uint32_t m_dwCheckPos;  // progress of AVIReaderIsValidInfo, from the base offset
  uint8_t m_bHasIndex;    // a complete "idx1" or the standard indexes were read
  uint8_t m_bExtended;    // a RIFF form "AVIX" was seen
  uint8_t m_bSuperIndex;
  uint8_t m_bOdml;
  uint8_t m_bMenu;
  uint8_t m_bSeekOption;     // 0
  uint32_t m_dwIndexCursor;  // reads the index
};

#endif

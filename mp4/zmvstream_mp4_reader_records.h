// The MP4 reader's records: one handle per open reader and one record per track. Both are zero-filled when they are
// made.
#ifndef ZMVSTREAM_MP4_READER_RECORDS_H
#define ZMVSTREAM_MP4_READER_RECORDS_H

#include "mp4/zmvstream_mp4_reader.h"

constexpr uint32_t kMp4ReaderMaxTracks = 12;

// A sample table in the file: the cursor that reads it (0 = the file has no such table), where its first entry lies,
// and a position noted for later. The reader's own cursor is taken first, so no table's cursor is ever number 0.
struct MP4ReaderTable {
  uint32_t m_dwCursor;
  uint32_t m_dwStart;
  uint32_t m_dwSaved;
};

// What searches of a track have come by in a table of it: places evenly spread over the table, from its start up to the
// farthest that was reached, so that the next search starts near its target. Their number does not grow with the table.
constexpr uint32_t kMp4TimeMarks = 512;
constexpr uint32_t kMp4SyncMarks = 256;

struct MP4ReaderTimeMark {
  uint32_t m_dwSample;  // counted from the sample at which searches start
  uint32_t m_dwDts;     // ticks
};

struct MP4ReaderTimeMarks {
  uint32_t m_dwTable;  // start and entries of the stts that they stand in
  uint32_t m_dwEntries;
  uint32_t m_dwCount;
  MP4ReaderTimeMark m_Mark[kMp4TimeMarks];
};

struct MP4ReaderSyncMarks {
  uint32_t m_dwTable;  // start and entries of the stss that they stand in
  uint32_t m_dwEntries;
  uint32_t m_dwCount;
  uint32_t m_dwNumber[kMp4SyncMarks];  // sync samples, from 1
};

struct MP4ReaderTrack {
  ZMVStreamBuf* m_hStream;  // a duplicate of the file's stream for payloads, owned; null until GetInfo is through
  uint32_t m_dwIndex;       // cursor on it
  uint32_t m_dwMediaType;   // ZMV_MEDIA_*; 0 = none
  uint32_t m_dwTrackID;
  uint32_t m_dwFourCC;
  uint32_t m_dwTimeScale;  // ticks per second
  uint32_t m_dwDuration;   // ticks; milliseconds after GetInfo
  uint32_t m_dwChannels;
  uint32_t m_dwSampleRate;
  uint32_t m_dwBitsPerSample;
  uint32_t m_dwWidth;
  uint32_t m_dwHeight;
  uint32_t m_dwBitRate;
  uint32_t m_dwMaxSampleSize;
  uint8_t* m_pConfig;  // codec configuration, owned; null once GetInfo has copied it
  uint32_t m_dwConfigSize;
  uint32_t m_dwNalLengthSize;  // bytes of the length in front of each NAL unit; 0 = samples are plain payload
  uint8_t m_bTextHandler;      // the handler type allows a text track

  // Sample tables and the place in them of the next sample.
  MP4ReaderTable m_Stsz;
  uint32_t m_dwSampleSize;  // size of every sample; 0 = sizes are in the table
  uint32_t m_dwSampleCount;
  uint32_t m_dwSampleIndex;  // next sample, from 0
  MP4ReaderTable m_Stts;
  uint32_t m_dwSttsCount;
  uint32_t m_dwSttsLeft;   // samples left in the current entry
  uint32_t m_dwSttsDelta;  // ticks
  uint32_t m_dwDts;        // decoding time of the next sample in ticks
  MP4ReaderTable m_Stsc;
  uint32_t m_dwStscCount;
  uint32_t m_dwStscEntry;       // entries consumed
  uint32_t m_dwNextFirstChunk;  // first chunk of the next entry, from 0
  uint32_t m_dwSamplesPerChunk;
  uint32_t m_dwSamplesLeft;  // in the current chunk
  MP4ReaderTable m_Stco;
  uint32_t m_dwChunkCount;
  uint32_t m_dwChunkIndex;  // chunks entered, which is the number of the current chunk from 1
  uint32_t m_dwStssCursor;  // 0 = every sample is a key frame
  uint32_t m_dwStssStart;
  uint32_t m_dwStssCount;
  uint32_t m_dwSyncEntry;  // entries consumed
  uint32_t m_dwStssSaved;
  uint32_t m_dwNextSync;  // next sync sample, from 1; 0 = none is left

  // What a search found, until it is made the reading position.
  uint32_t m_dwSeekPos;
  uint32_t m_dwSeekSample;
  uint32_t m_dwSeekSttsLeft;
  uint32_t m_dwSeekSttsDelta;
  uint32_t m_dwSeekDts;
  uint32_t m_dwSeekStscEntry;
  uint32_t m_dwSeekNextFirstChunk;
  uint32_t m_dwSeekSamplesPerChunk;
  uint32_t m_dwSeekSamplesLeft;
  uint32_t m_dwSeekChunk;
  uint32_t m_dwSeekFragDts;
  uint32_t m_dwSeekTrunIndex;
  uint32_t m_dwSeekTrunLeft;
  uint32_t m_dwSeekSyncEntry;
  uint32_t m_dwSeekNextSync;

  MP4ReaderTimeMarks m_TimeMarks;
  MP4ReaderSyncMarks m_SyncMarks;

  // Fragments.
  MP4ReaderTable m_Frag;
  uint32_t m_dwTrexDuration;
  uint32_t m_dwTrexSize;
  uint32_t m_dwBaseOffset;
  uint32_t m_dwTfhdDuration;
  uint32_t m_dwFragDts;
  uint32_t m_dwTfhdSize;
  uint32_t m_dwTrunCount;
  uint32_t m_dwTrunIndex;
  uint32_t m_dwTrunFlags;
  uint32_t m_dwTrunLeft;
  uint32_t m_dwTrunEnd;  // position behind the current trun
  uint32_t m_dwSeekBaseOffset;
  uint32_t m_dwSeekTfhdDuration;
  uint32_t m_dwSeekTfhdSize;
  uint32_t m_dwSeekTrunFlags;
  uint32_t m_dwSeekTrunEnd;
  uint32_t m_dwSearchBase;   // the base offset that reading had last, which searches count from
  uint32_t m_dwTrunEntered;  // m_dwTrunIndex when reading last entered a trun, and the samples it had
  uint32_t m_dwTrunSamples;
  uint32_t m_dwFragLastBase;  // base offset of the last tfhd met while the file was described
  uint32_t m_dwFragNotes;     // what has been remarked on, and where that walk stands

  // Spherical video.
  uint8_t m_bSpherical;
  uint32_t m_dwStereoMode;
  uint32_t m_dwProj0;
  uint32_t m_dwProj1;
  uint32_t m_dwProj2;
  uint32_t m_dwProj3;

  uint8_t m_bPcmFraming;           // constant-size audio, one chunk per frame
  uint32_t m_dwTextCode;           // from the handler's name, for a text track whose sample entry is not known
  uint32_t m_dwAudioChunkSamples;  // samples in the first chunk of an audio track
};

struct MP4FReaderHandle {
  ZMVStreamBuf* m_hStream;                        // not owned
  uint32_t m_dwIndex;                             // the cursor of the box walk
  uint32_t m_dwFileSize;                          // at Open
  uint32_t m_dwWalkPos;                           // next top-level box
  MP4ReaderTrack* m_pTrack[kMp4ReaderMaxTracks];  // owned, in the order in which they were first named; null = dropped
  uint32_t m_dwTrackCount;                        // slots in use, dropped ones included
  uint32_t m_dwCurAudio;                          // slots of the current tracks
  uint32_t m_dwCurVideo;
  uint32_t m_dwCurText;
  uint8_t m_bHasAudio;
  uint8_t m_bHasVideo;
  uint8_t m_bHasText;
  uint32_t m_dwMajorBrand;
  uint32_t m_dwTimeScale;
  uint32_t m_dwMdatPos;       // header of the last mdat box that is not empty
  uint32_t m_dwDuration;      // milliseconds
  uint32_t m_dwFragDuration;  // milliseconds after GetInfo
  uint8_t m_bWalked;          // the walk cursor no longer stands at the start
};

#endif

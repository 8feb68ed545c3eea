// The MP4 writer's records. Their sizes are part of the design: what a recording costs in memory is known at set-up.
#ifndef ZMVSTREAM_MP4_WRITER_RECORDS_H
#define ZMVSTREAM_MP4_WRITER_RECORDS_H

#include <cstddef>

#include "mp4/zmvstream_mp4_writer.h"

constexpr uint32_t kMp4WriterMaxTracks = 10;
constexpr uint32_t kMp4TableMaxSpills = 1440;

// One sample table of a track while it is being collected.
struct MP4WriterTable {
  uint32_t m_dwSpillPos[kMp4TableMaxSpills];  // file positions of spilled blocks, in spill order
  uint32_t m_dwSpillNum;
  uint8_t* m_pBuf;  // buffer, owned
  uint8_t* m_pPos;  // next free byte in it
  uint32_t m_dwBufSize;
  uint32_t m_dwUsed;
  char m_szName[4];  // not terminated
  uint32_t m_dwBoxSize;
  uint32_t m_dwEntryNum;
};

struct MP4WriterTrack {
  uint32_t dwMediaType;
  uint32_t dwTrackID;
  uint32_t dwFourCC;
  uint32_t dwChannels;
  uint32_t dwSampleRate;
  uint32_t dwBitsPerSample;
  uint32_t dwDataRefIndex;
  uint32_t dwWidth;
  uint32_t dwHeight;
  uint32_t dwVidExtra;  // bits per second, for the sample description
  uint8_t* m_pConfig;   // decoder configuration, owned; parameter sets without emulation prevention
  uint32_t m_dwConfigSize;
  uint32_t m_dwMaxSize;     // largest payload
  uint32_t m_dwMediaDur;    // in media ticks
  uint32_t m_dwMovieDur;    // in movie ticks
  uint32_t m_dwTimeScale;   // media ticks per second
  uint32_t m_dwMovieScale;  // movie ticks per second
  uint64_t m_llVidParam;
  uint32_t m_dwFps;  // frames or packets per second, only to size tables
  uint32_t dwTotalFrames;
  uint32_t m_dwChunkNum;
  uint64_t m_llLastCTS;
  uint32_t m_dwLastDur;
  uint64_t m_llFirstCTS;
  MP4WriterTable m_Stts;
  MP4WriterTable m_Stsz;
  MP4WriterTable m_Stco;
  MP4WriterTable m_Stsc;
  MP4WriterTable m_Stss;
  uint8_t m_bSpherical;
  uint8_t m_bStereo;
  uint32_t m_dwStereoMode;
  uint32_t m_dwProjType;
  uint32_t m_dwProjYaw;
  uint32_t m_dwProjPitch;
  uint32_t m_dwProjRoll;
  const char* m_pszMetaSource;
  uint32_t m_dwProjBound[4];
  uint8_t m_bRawAudio;
  uint32_t m_dwSampPerFrame;  // raw audio: samples in one written frame
  uint32_t m_dwRunCount;      // stts: the open run
  uint32_t m_dwRunDelta;
  uint32_t m_dwConstSize;     // stsz: common size of all samples, 0 once two differ
  uint32_t m_dwCurChunk;      // stsc: 1-based number of the open chunk
  uint32_t m_dwChunkSamples;  // samples in it
  uint32_t m_dwLastSpc;       // samples per chunk of the last entry written
  uint32_t m_adwReserved[8];
};

struct MP4WriterHandle {
  ZMVStreamBuf* m_hInOut;  // not owned
  uint32_t m_dwRidx;
  uint32_t m_dwWidx;
  uint32_t m_dwFileType;
  uint32_t m_dwCurSize;  // written so far plus the estimate of what is still to come
  MP4WriterTrack* m_pTrack[kMp4WriterMaxTracks];
  uint32_t m_dwTrackNum;
  MP4WriterTrack* m_pLastTrack;
  uint64_t m_llStartCTS;
  uint64_t m_llExpire;  // seconds
  uint32_t m_dwMdatPos;
  uint32_t m_dwMdatSize;  // header included
  uint8_t m_bNewChunk;
  uint8_t m_bNoInterleave;
  uint8_t m_bMisplaced;  // a write to mdat was incomplete: the write cursor may not stand at its end
  uint32_t m_dwRecoverSize;
  uint8_t m_bExtUserData;
  uint32_t m_dwAidd;
  uint8_t* m_pGpsr;
  uint32_t m_dwGpsrMax;
  uint32_t m_dwGpsrNum;
  uint8_t* m_pSens;
  uint32_t m_dwSensMax;
  uint32_t m_dwSensNum;
};

static_assert(sizeof(MP4WriterTable) == 5808 && offsetof(MP4WriterTable, m_dwSpillNum) == 5760);
static_assert(offsetof(MP4WriterTable, m_pBuf) == 5768 && offsetof(MP4WriterTable, m_pPos) == 5776);
static_assert(offsetof(MP4WriterTable, m_dwBufSize) == 5784 && offsetof(MP4WriterTable, m_dwUsed) == 5788);
static_assert(offsetof(MP4WriterTable, m_szName) == 5792 && offsetof(MP4WriterTable, m_dwEntryNum) == 5800);

static_assert(sizeof(MP4WriterTrack) == 29272 && offsetof(MP4WriterTrack, dwVidExtra) == 36);
static_assert(offsetof(MP4WriterTrack, m_pConfig) == 40 && offsetof(MP4WriterTrack, m_dwMaxSize) == 52);
static_assert(offsetof(MP4WriterTrack, m_dwMovieScale) == 68 && offsetof(MP4WriterTrack, m_llVidParam) == 72);
static_assert(offsetof(MP4WriterTrack, m_llLastCTS) == 96 && offsetof(MP4WriterTrack, m_llFirstCTS) == 112);
static_assert(offsetof(MP4WriterTrack, m_Stts) == 120 && offsetof(MP4WriterTrack, m_Stsz) == 5928);
static_assert(offsetof(MP4WriterTrack, m_Stco) == 11736 && offsetof(MP4WriterTrack, m_Stsc) == 17544);
static_assert(offsetof(MP4WriterTrack, m_Stss) == 23352 && offsetof(MP4WriterTrack, m_bSpherical) == 29160);
static_assert(offsetof(MP4WriterTrack, m_dwStereoMode) == 29164 && offsetof(MP4WriterTrack, m_dwProjRoll) == 29180);
static_assert(offsetof(MP4WriterTrack, m_pszMetaSource) == 29184 && offsetof(MP4WriterTrack, m_dwProjBound) == 29192);
static_assert(offsetof(MP4WriterTrack, m_bRawAudio) == 29208 && offsetof(MP4WriterTrack, m_dwSampPerFrame) == 29212);
static_assert(offsetof(MP4WriterTrack, m_dwLastSpc) == 29236 && offsetof(MP4WriterTrack, m_adwReserved) == 29240);

static_assert(sizeof(MP4WriterHandle) == 192 && offsetof(MP4WriterHandle, m_pTrack) == 24);
static_assert(offsetof(MP4WriterHandle, m_dwTrackNum) == 104 && offsetof(MP4WriterHandle, m_pLastTrack) == 112);
static_assert(offsetof(MP4WriterHandle, m_dwMdatPos) == 136 && offsetof(MP4WriterHandle, m_bNewChunk) == 144);
static_assert(offsetof(MP4WriterHandle, m_bNoInterleave) == 145 && offsetof(MP4WriterHandle, m_bMisplaced) == 146);
static_assert(offsetof(MP4WriterHandle, m_dwRecoverSize) == 148 && offsetof(MP4WriterHandle, m_bExtUserData) == 152);
static_assert(offsetof(MP4WriterHandle, m_dwAidd) == 156 && offsetof(MP4WriterHandle, m_pGpsr) == 160);
static_assert(offsetof(MP4WriterHandle, m_pSens) == 176 && offsetof(MP4WriterHandle, m_dwSensNum) == 188);

#endif

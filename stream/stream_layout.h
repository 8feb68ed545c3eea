// The layout of the stream records, which other programs rely on, frozen in one place.
#ifndef ZMV_STREAM_LAYOUT_H
#define ZMV_STREAM_LAYOUT_H

#include <cstddef>

#include "stream/zmvstream_buf.h"
#include "stream/zmvstream_file.h"

static_assert(sizeof(ZMVStreamBuf) == 184);
static_assert(offsetof(ZMVStreamBuf, hInOut) == 0 && offsetof(ZMVStreamBuf, m_pReserved) == 8);
static_assert(offsetof(ZMVStreamBuf, m_dwError) == 16 && sizeof(ZMVStreamBuf::m_dwError) == 8);
static_assert(offsetof(ZMVStreamBuf, Open) == 24 && offsetof(ZMVStreamBuf, Dup) == 32);
static_assert(offsetof(ZMVStreamBuf, Close) == 40 && offsetof(ZMVStreamBuf, Index) == 48);
static_assert(offsetof(ZMVStreamBuf, Release) == 56 && offsetof(ZMVStreamBuf, Size) == 64);
static_assert(offsetof(ZMVStreamBuf, CurSize) == 72 && offsetof(ZMVStreamBuf, GetName) == 80);
static_assert(offsetof(ZMVStreamBuf, ReadBuffer) == 88 && offsetof(ZMVStreamBuf, WriteBuffer) == 96);
static_assert(offsetof(ZMVStreamBuf, Skip) == 104 && offsetof(ZMVStreamBuf, Seek) == 112);
static_assert(offsetof(ZMVStreamBuf, SeekEnd) == 120 && offsetof(ZMVStreamBuf, Pos) == 128);
static_assert(offsetof(ZMVStreamBuf, ShowBuffer) == 136 && offsetof(ZMVStreamBuf, ShowSkip) == 144);
static_assert(offsetof(ZMVStreamBuf, ShowPos) == 152 && offsetof(ZMVStreamBuf, ShowReset) == 160);
static_assert(offsetof(ZMVStreamBuf, GetFilesize) == 168 && offsetof(ZMVStreamBuf, SetSync) == 176);

static_assert(sizeof(ZMVStreamFile) == 496);
static_assert(offsetof(ZMVStreamFile, m_hFile) == 0 && offsetof(ZMVStreamFile, m_szPath) == 8);
static_assert(offsetof(ZMVStreamFile, m_bWrite) == 264 && offsetof(ZMVStreamFile, m_dwFileSize) == 268);
static_assert(offsetof(ZMVStreamFile, m_pIndex) == 272 && offsetof(ZMVStreamFile, m_dwIndexCount) == 432);
static_assert(offsetof(ZMVStreamFile, m_dwFilePos) == 436 && offsetof(ZMVStreamFile, m_dwShowPos) == 440);
static_assert(offsetof(ZMVStreamFile, m_pFillNode) == 448 && offsetof(ZMVStreamFile, m_pFlushNode) == 456);
static_assert(offsetof(ZMVStreamFile, m_llFlushError) == 464 && offsetof(ZMVStreamFile, m_dwNodeSize) == 472);
static_assert(offsetof(ZMVStreamFile, m_dwNodeCount) == 476 && offsetof(ZMVStreamFile, m_hFlushThread) == 480);
static_assert(offsetof(ZMVStreamFile, m_bFlushStop) == 488 && offsetof(ZMVStreamFile, m_bSync) == 489);

static_assert(sizeof(ZMVFileIndex) == 32);
static_assert(offsetof(ZMVFileIndex, m_dwPos) == 0 && offsetof(ZMVFileIndex, m_pCache) == 8);
static_assert(offsetof(ZMVFileIndex, m_pCachePos) == 16 && offsetof(ZMVFileIndex, m_dwCacheSize) == 24);
static_assert(offsetof(ZMVFileIndex, m_dwCacheRemain) == 28);

static_assert(sizeof(ZMVWCacheNode) == 32);
static_assert(offsetof(ZMVWCacheNode, m_pBuffer) == 0 && offsetof(ZMVWCacheNode, m_dwUsed) == 8);
static_assert(offsetof(ZMVWCacheNode, m_dwFilePos) == 12 && offsetof(ZMVWCacheNode, m_bReady) == 16);
static_assert(offsetof(ZMVWCacheNode, m_pNext) == 24);

#endif

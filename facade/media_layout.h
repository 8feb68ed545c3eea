// The layout of the media records, which applications and other programs rely on, frozen in one place.
#ifndef ZMV_FACADE_MEDIA_LAYOUT_H
#define ZMV_FACADE_MEDIA_LAYOUT_H

#include <cstddef>

#include "facade/zmvstream_media.h"

static_assert(sizeof(ZMVAudioInfo) == 588);
static_assert(offsetof(ZMVAudioInfo, dwBitRate) == 24 && offsetof(ZMVAudioInfo, abExtraData) == 28);
static_assert(offsetof(ZMVAudioInfo, dwExtraDataSize) == 540 && offsetof(ZMVAudioInfo, dwBufferSize) == 544);
static_assert(offsetof(ZMVAudioInfo, dwDuration) == 552 && offsetof(ZMVAudioInfo, bValid) == 556);
static_assert(offsetof(ZMVAudioInfo, dwFrames) == 560);

static_assert(sizeof(ZMVVideoInfo) == 656);
static_assert(offsetof(ZMVVideoInfo, dwWidth) == 8 && offsetof(ZMVVideoInfo, dwFrameRate) == 16);
static_assert(offsetof(ZMVVideoInfo, dwFixedRate) == 20 && offsetof(ZMVVideoInfo, dwBitCount) == 28);
static_assert(offsetof(ZMVVideoInfo, dwBitRate) == 32 && offsetof(ZMVVideoInfo, abExtraData) == 36);
static_assert(offsetof(ZMVVideoInfo, dwExtraDataSize) == 548 && offsetof(ZMVVideoInfo, dwFrames) == 560);
static_assert(offsetof(ZMVVideoInfo, dwTimeScale) == 564 && offsetof(ZMVVideoInfo, dwPriority) == 588);
static_assert(offsetof(ZMVVideoInfo, dwSpherical) == 600 && offsetof(ZMVVideoInfo, dwProjectionMode) == 604);
static_assert(offsetof(ZMVVideoInfo, dwStereoBound) == 608 && offsetof(ZMVVideoInfo, dwStereoTypeZero) == 612);
static_assert(offsetof(ZMVVideoInfo, dwStereoParam) == 616);

static_assert(sizeof(ZMVTextInfo) == 40);
static_assert(offsetof(ZMVTextInfo, dwBitRate) == 12 && offsetof(ZMVTextInfo, dwFrames) == 28);
static_assert(offsetof(ZMVTextInfo, dwTimeScale) == 32);

static_assert(sizeof(ZMVFileInfo) == 6768);
static_assert(offsetof(ZMVFileInfo, m_Audio) == 24 && offsetof(ZMVFileInfo, m_Video) == 612);
static_assert(offsetof(ZMVFileInfo, m_Text) == 6516 && offsetof(ZMVFileInfo, pStreamName) == 6600);
static_assert(offsetof(ZMVFileInfo, dwAiddValue) == 6608 && offsetof(ZMVFileInfo, dwAiddPos) == 6612);
static_assert(offsetof(ZMVFileInfo, pExtraHeader) == 6616 && offsetof(ZMVFileInfo, dwExtraHeaderSize) == 6624);
static_assert(offsetof(ZMVFileInfo, szSoftware) == 6700);

static_assert(sizeof(ZMVFrame) == 64);
static_assert(offsetof(ZMVFrame, dwSize) == 8 && offsetof(ZMVFrame, llTimeStamp) == 16);
static_assert(offsetof(ZMVFrame, dwDuration) == 32 && offsetof(ZMVFrame, dwChunk) == 48);
static_assert(offsetof(ZMVFrame, llTimeStampUs) == 56);

#endif

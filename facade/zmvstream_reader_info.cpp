// Describing the open file: the defaults that make every container's description usable, and the index thread.
#include "base/zmv_result.h"
#include "facade/facade_call.h"
#include "facade/reader_facade.h"
#include "platform/zmv_platform.h"

namespace zmv::facade {
namespace {

constexpr uint32_t kDefaultTimeScale = 1000;

// Read buffers, in bytes.
constexpr uint32_t kCodedAudioBuffer = 512000;
constexpr uint32_t kAudioBuffer = 8192;
constexpr uint32_t kLowSampleRate = 32771;  // up to here a quarter of a second's samples is the smaller buffer
constexpr uint32_t kVideoBuffer = 0x100000;
constexpr uint32_t kSmallPicture = 0x200001;  // pixels up to which half a byte for each is enough
constexpr uint32_t kTextBuffer = 1024;
constexpr uint32_t kTextRateToBytes = 125;  // bits per second over frames per second x 1000, in bytes per frame

constexpr uint32_t kIndexThreadStack = 0x20000;

uint32_t AudioBufferSize(const ZMVAudioInfo& audio) {
  if (audio.dwBitRate != 0) return kCodedAudioBuffer;
  return audio.dwSampleRate <= kLowSampleRate ? audio.dwSampleRate / 4 : kAudioBuffer;
}

uint32_t VideoBufferSize(const ZMVVideoInfo& video) {
  const uint32_t pixels = video.dwWidth * video.dwHeight;
  return pixels <= kSmallPicture ? pixels / 2 : kVideoBuffer;
}

uint32_t TextBufferSize(const ZMVTextInfo& text) {
  return text.dwRate != 0 ? text.dwBitRate * kTextRateToBytes / text.dwRate : kTextBuffer;
}

uint32_t Bounded(uint32_t count, uint32_t capacity) { return count < capacity ? count : capacity; }

bool Stopped(const ZMVReader& reader) { return __atomic_load_n(&reader.m_bStop, __ATOMIC_RELAXED) != 0; }

void BuildIndex(ZMVReader& reader) {
  TraceScope scope(kReaderModule, "TaskReaderMakeIndex");
  const auto make_index = reader.operations.MakeIndex;
  while (make_index != nullptr && !Stopped(reader)) {
    if (Failed(make_index(reader.hReader, 0))) break;
  }
  __atomic_store_n(&reader.m_bIndexDone, uint8_t{1}, __ATOMIC_RELEASE);
}

}  // namespace

void ApplyDefaults(ZMVFileInfo& info) {
  if (info.dwTimeScale == 0) info.dwTimeScale = kDefaultTimeScale;
  if (info.dwAudioCount != 0) {
    ZMVAudioInfo& audio = info.m_Audio;
    if (audio.dwBufferSize == 0) audio.dwBufferSize = AudioBufferSize(audio);
    if (audio.dwDuration == 0) audio.dwDuration = info.dwDuration;
  }
  for (uint32_t i = 0; i < Bounded(info.dwVideoCount, ZMV_MAX_VIDEO); ++i) {
    ZMVVideoInfo& video = info.m_Video[i];
    if (video.dwBufferSize == 0) video.dwBufferSize = VideoBufferSize(video);
    if (video.dwDuration == 0) video.dwDuration = info.dwDuration;
  }
  for (uint32_t i = 0; i < Bounded(info.dwTextCount, ZMV_MAX_TEXT); ++i) {
    ZMVTextInfo& text = info.m_Text[i];
    if (text.dwBufferSize == 0) text.dwBufferSize = TextBufferSize(text);
    if (text.dwDuration == 0) text.dwDuration = info.dwDuration;
  }
}

void StartIndexThread(ZMVReader& reader) {
  if (reader.operations.MakeIndex == nullptr || reader.m_hThread != nullptr) return;
  reader.m_hThread = ZMV_ThreadCreate("ReaderMakeIndex", 0, kIndexThreadStack, &TaskReaderMakeIndex, &reader);
  // The file plays without an index that could be had, only slower.
  if (reader.m_hThread == nullptr) ZMV_TRACE(kReaderModule, kTraceError, "ZMV_ThreadCreate failed\n");
}

void StopIndexThread(ZMVReader& reader) {
  if (reader.m_hThread == nullptr) return;
  __atomic_store_n(&reader.m_bStop, uint8_t{1}, __ATOMIC_RELAXED);
  uint32_t exit_value = 0;
  ZMV_ThreadDelete(reader.m_hThread, &exit_value);
  reader.m_hThread = nullptr;
}

}  // namespace zmv::facade

using namespace zmv;
using namespace zmv::facade;

int32_t ZMVReaderGetInfo(ZMVReader* handle, ZMVFileInfo* info) {
  TraceScope scope(kReaderModule, __func__);
  if (handle->operations.GetInfo == nullptr) return scope.Fail(Result(ZMV_E_FAIL));
  HandleLock lock(handle->m_hMutex);
  const int32_t result = handle->operations.GetInfo(handle->hReader, info, 1);
  if (Failed(result)) return scope.Fail(result);
  ApplyDefaults(*info);
  handle->m_bHasAudio = info->dwAudioCount != 0;
  handle->m_bHasVideo = info->dwVideoCount != 0;
  handle->m_bHasText = info->dwTextCount != 0;
  StartIndexThread(*handle);
  return 0;
}

// Ending the thread does not return, so the trace is complete before it.
void TaskReaderMakeIndex(void* handle) {
  BuildIndex(*static_cast<ZMVReader*>(handle));
  ZMV_ThreadExit(0);
}

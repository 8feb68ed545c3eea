// The sample streams in AVI recordings.
#ifndef ZMV_TESTS_INTEROP_AVI_SAMPLES_H
#define ZMV_TESTS_INTEROP_AVI_SAMPLES_H

#include <memory>
#include <string>
#include <vector>

#include "tests/support/sample_recording.h"

namespace zmv::test {

// An AVI stores no configuration of H.264: its parameter sets go in front of every key frame.
inline void PutSetsInBand(SampleStream& video) {
  for (SampleFrame& frame : video.frames) {
    if (frame.key) frame.payload.insert(frame.payload.begin(), video.parameters.begin(), video.parameters.end());
  }
}

// Records the set into an AVI at `path`; the first negative code, or 0. Durations are milliseconds.
inline int32_t RecordAvi(const std::string& path, const SampleSet& set) {
  constexpr uint32_t kSamples = 1024;
  constexpr uint32_t kBits = 16;
  ZMVWriterParam param{};
  param.dwFormat = ZMV_FORMAT_AVI;
  param.pszPath = path.c_str();
  param.llExpire = set.expire_ms;
  ZMVWriter* writer = nullptr;
  int32_t result = ZMVWriterOpen(&writer, &param);
  if (result < 0) return result;
  const auto info = std::make_unique<ZMVFileInfo>(DescribeSamples(set));
  info->m_Audio.dwSamplesPerFrame = kSamples;
  info->m_Audio.dwBitsPerSample = kBits;
  info->m_Video[0].dwFixedRate = info->m_Video[0].dwFrameRate;
  if (set.text != nullptr) {
    info->m_Text[0].dwFixedRate = 1000000 / set.text->frames[0].duration;
    info->m_Text[0].dwRate = info->m_Text[0].dwFixedRate;
  }
  result = ZMVWriterSetInfo(writer, info.get(), 0);
  for (const SampleFrame* source : MergeSamples(set)) {
    if (result < 0) break;
    std::vector<uint8_t> payload = source->payload;
    ZMVFrame frame{};
    frame.pData = payload.data();
    frame.dwSize = static_cast<uint32_t>(payload.size());
    frame.llTimeStamp = source->time_ms;
    frame.dwDuration = source->media == ZMV_MEDIA_VIDEO ? source->duration / 1000 : source->duration;
    frame.dwMediaType = source->media;
    frame.dwKeyFrame = source->key ? ZMV_KEY_FRAME : ZMV_NOT_KEY_FRAME;
    result = ZMVWriterWrite(writer, &frame);
  }
  ZMVWriterClose(writer);
  return result;
}

}  // namespace zmv::test

#endif

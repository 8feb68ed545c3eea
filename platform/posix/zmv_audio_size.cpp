#include "base/fourcc.h"
#include "platform/zmv_codec.h"

namespace zmv::codec {
namespace {

struct AudioFrameRow {
  uint32_t tag;
  uint32_t samples;
};

// Samples per channel in one frame, as the standard of each format fixes them. Formats without frames of a fixed length
// (PCM, G.711, ADPCM with its free block size) are not here.
constexpr AudioFrameRow kAudioFrames[] = {
    {0x00FF, 1024},                                  // AAC
    {0x00FE, 1024},                                  // AAC with ADTS headers
    {0x00FD, 1024},                                  // AAC with LATM framing
    {0x1600, 1024},                                  // MPEG ADTS AAC
    {0x1601, 1024},                                  // raw AAC
    {0x1602, 1024},                                  // MPEG LOAS
    {0x1610, 1024},                                  // HE-AAC; the core frame
    {0x706D, 1024},                                  // AAC under its second private tag
    {FourCC("mp4a"), 1024}, {0x0050, 1152},          // MPEG-1 layers 1 and 2, of which layer 2 is in use
    {0x0055, 1152},                                  // MPEG-1 layer 3
    {FourCC(".mp3"), 1152}, {0x2000, 1536},          // AC-3
    {FourCC("ac-3"), 1536}, {FourCC("ec-3"), 1536},  // E-AC-3
    {0x0057, 160},                                   // AMR narrow-band
    {FourCC("samr"), 160},  {0x0058, 320},           // AMR wide-band
    {FourCC("sawb"), 320},  {FourCC("sqcp"), 160},   // QCELP
    {FourCC("sevc"), 160},                           // EVRC
    {0x0031, 320},                                   // GSM 6.10, two frames to a block
    {0x0042, 240},                                   // G.723.1
    {0x704F, 960},                                   // Opus, frames of 20 ms
};

}  // namespace
}  // namespace zmv::codec

extern "C" uint32_t ZMVUtil_GetAudioSampleSize(uint32_t tag) {
  for (const zmv::codec::AudioFrameRow& row : zmv::codec::kAudioFrames) {
    if (row.tag == tag) return row.samples;
  }
  return 0;
}

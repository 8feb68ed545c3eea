// Facts of the MP4 files of this library that its writer and its reader share (ISO/IEC 14496-12, -14, -15).
#ifndef ZMV_MP4_FORMAT_H
#define ZMV_MP4_FORMAT_H

#include <cstdint>

#include "base/fourcc.h"

namespace zmv::mp4 {

constexpr uint32_t kBoxHeaderSize = 8;
constexpr uint32_t kFullBoxHeaderSize = 12;

// The record in front of every payload: "RECO", media type, key flag, low 32 bits of the time stamp in milliseconds,
// duration, stream number, payload size; all but the tag big-endian numbers.
constexpr uint32_t kRecoveryRecordSize = 28;

// A spilled piece of a sample table inside mdat: "tabl", payload length (big-endian), payload.
constexpr uint32_t kSpillHeaderSize = 8;

// User data in the payload of a text frame.
constexpr uint32_t kGpsBlockOffset = 8;
constexpr uint32_t kGpsBlockSize = 72;
constexpr uint32_t kSensorBlockOffset = 80;
constexpr uint32_t kSensorBlockSize = 12;
constexpr uint32_t kUserDataPayloadSize = kSensorBlockOffset + kSensorBlockSize;
// An entry of the GPSR box: number and block length, little-endian, then the block.
constexpr uint32_t kGpsEntrySize = 8 + kGpsBlockSize;

// Bytes of one entry of the sample tables.
constexpr uint32_t kSttsEntrySize = 8;
constexpr uint32_t kStszEntrySize = 4;
constexpr uint32_t kStcoEntrySize = 4;
constexpr uint32_t kStscEntrySize = 12;
constexpr uint32_t kStssEntrySize = 4;

// Codecs whose frames begin with a 4-byte start code, which the file holds as the length of what follows.
constexpr bool BeginsWithStartCode(uint32_t code) {
  switch (code) {
    case FourCC("H264"):
    case FourCC("X264"):
    case FourCC("avc1"):
    case FourCC("AVC1"):
    case FourCC("hvc1"):
    case FourCC("hev1"):
    case FourCC("HEV1"):
    case FourCC("HEVC"):
    case FourCC("H265"):
      return true;
    default:
      return false;
  }
}

}  // namespace zmv::mp4

#endif

// Facts of AVI files that the writer and the reader share (RIFF AVI and its OpenDML extensions). All numbers in a file
// are little-endian, codes stand in reading order.
#ifndef ZMV_AVI_FORMAT_H
#define ZMV_AVI_FORMAT_H

#include <cstdint>

namespace zmv::avi {

// A chunk is a code, the size of its data, the data, and a zero byte when the size is odd.
constexpr uint32_t kChunkHeaderSize = 8;
// "RIFF" and "LIST" chunks begin with the code of their form or type.
constexpr uint32_t kListHeaderSize = 12;

// Data of "avih" and of "strh".
constexpr uint32_t kMainHeaderSize = 56;
constexpr uint32_t kStreamHeaderSize = 56;

// One entry of "idx1": chunk code, flags, offset of the chunk's header, size of its data.
constexpr uint32_t kIdx1EntrySize = 16;
// The flag of a key frame in it (AVIIF_KEYFRAME).
constexpr uint32_t kKeyFrameFlag = 0x10;

// OpenDML: the headers of "indx" and "ix.." chunks, and their entries.
constexpr uint32_t kOdmlIndexHeaderSize = 24;
constexpr uint32_t kSuperIndexEntrySize = 16;
constexpr uint32_t kStdIndexEntrySize = 8;
// Set in the size of a standard index entry whose chunk is not a key frame.
constexpr uint32_t kStdIndexDeltaFrame = 0x80000000;

// Streams that a file can have here.
constexpr uint32_t kMaxStreams = 12;

// The format tag of integer PCM.
constexpr uint32_t kPcmTag = 1;

}  // namespace zmv::avi

#endif

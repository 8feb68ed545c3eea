// What the source files of the MP4 reader share.
#ifndef ZMV_MP4_READER_H
#define ZMV_MP4_READER_H

#include <cstddef>

#include "base/fourcc.h"
#include "mp4/mp4_box_reader.h"
#include "mp4/zmv_mp4_format.h"
#include "mp4/zmvstream_mp4_reader_records.h"

namespace zmv::mp4::reader {

// ---- The box walk

// One pass over the children of a box.
struct BoxWalk {
  MP4FReaderHandle& handle;
  MP4ReaderTrack* track;  // null until a track header has named one
  bool stop = false;      // set by a parser: the rest of the parent is of no interest
};

// A child box that is read. `parse` finds the cursor behind the header; null means that the children of the box are
// walked as if they stood in its place.
struct BoxRow {
  uint32_t type;
  int32_t (*parse)(BoxWalk& walk, uint32_t payload);
};

template <size_t kRows>
consteval bool EveryTypeOnce(const BoxRow (&rows)[kRows]) {
  for (size_t i = 0; i < kRows; ++i) {
    for (size_t j = 0; j < i; ++j) {
      if (rows[i].type == rows[j].type) return false;
    }
  }
  return true;
}

// Walks the boxes in the `size` bytes at the cursor. A child that does not fit ends the walk without error.
int32_t WalkBoxes(BoxWalk& walk, uint32_t size, const BoxRow* rows, size_t row_count, const char* function);
template <size_t kRows>
int32_t WalkBoxes(BoxWalk& walk, uint32_t size, const BoxRow (&rows)[kRows], const char* function) {
  return WalkBoxes(walk, size, rows, kRows, function);
}

inline BoxReader ReadBox(const BoxWalk& walk, uint32_t payload, const char* function) {
  return BoxReader(*walk.handle.m_hStream, walk.handle.m_dwIndex, payload, function);
}

// Moves the walk cursor; reports a failure.
int32_t SeekWalk(MP4FReaderHandle& handle, uint64_t position, const char* function);
// The data written so far.
uint64_t DataEnd(const MP4FReaderHandle& handle);

// Walks the file from m_dwWalkPos on.
int32_t WalkFile(MP4FReaderHandle& handle, ZMVFileInfo& info);
int32_t ParseMoov(BoxWalk& walk, uint32_t payload);
int32_t ParseTrak(BoxWalk& walk, uint32_t payload);
int32_t ParseMdia(BoxWalk& walk, uint32_t payload);
int32_t ParseMinf(BoxWalk& walk, uint32_t payload);
int32_t ParseStbl(BoxWalk& walk, uint32_t payload);
int32_t ParseStsd(BoxWalk& walk, uint32_t payload);
int32_t ParseEsds(BoxWalk& walk, uint32_t payload);
int32_t ParseSt3d(BoxWalk& walk, uint32_t payload);
int32_t ParseSv3d(BoxWalk& walk, uint32_t payload);
int32_t ParseMvex(BoxWalk& walk, uint32_t payload);
int32_t ParseMoof(BoxWalk& walk, uint32_t payload);
int32_t ParseTraf(BoxWalk& walk, uint32_t payload);

// The body of an exported parser: traces, checks the arguments and hands over.
using BoxParser = int32_t (*)(BoxWalk& walk, uint32_t payload);
int32_t ParseWith(BoxParser parse, MP4FReaderHandle* handle, MP4ReaderTrack* track, uint32_t size,
                  const char* function);

// ---- Information and frames

int32_t GetInfo(MP4FReaderHandle& handle, ZMVFileInfo& info);

// Codes whose configuration record is described in start-code form. The first byte of "H264" is compared without bit 4,
// which lets "X264" pass.
constexpr bool IsH264(uint32_t code) {
  return code == FourCC("AVC1") || code == FourCC("avc1") || (code | 0x10u) == FourCC("X264");
}
constexpr bool IsHevc(uint32_t code) {
  return code == FourCC("hvc1") || code == FourCC("H265") || code == FourCC("HEVC") || code == FourCC("HEV1") ||
         code == FourCC("hev1");
}

int32_t ReadFrame(MP4FReaderHandle& handle, ZMVFrame& frame);
int32_t ReadFrameInfo(MP4FReaderHandle& handle, ZMVFrame& frame);

// ---- Tracks

// The track with this ID, made when it is new; null when there is no memory for it or no slot.
MP4ReaderTrack* FindTrack(MP4FReaderHandle& handle, uint32_t id);
// Forgets what a track header's boxes said, for one that names the track again.
void ClearTrack(MP4FReaderHandle& handle, MP4ReaderTrack& track);
// Frees a track and empties its slot.
void DropTrack(MP4FReaderHandle& handle, const MP4ReaderTrack* track);
// Frees every track.
void DropTracks(MP4FReaderHandle& handle);
void FreeConfig(MP4ReaderTrack& track);

// Gives the table cursors of a track back.
void ReleaseTables(MP4FReaderHandle& handle, MP4ReaderTrack& track);

}  // namespace zmv::mp4::reader

#endif

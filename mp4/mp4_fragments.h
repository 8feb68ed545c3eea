// What reading and seeking in fragments share: the walk from one trun of a track to the next, and the fields of the
// boxes on the way (ISO/IEC 14496-12 8.8). The walk goes through the boxes behind moov with the track's own cursor and
// enters moof and traf as if their children stood in their place.
#ifndef ZMV_MP4_FRAGMENTS_H
#define ZMV_MP4_FRAGMENTS_H

#include "mp4/mp4_reader.h"

namespace zmv::mp4::reader {

// What the tfhd of a fragment says about the samples of its truns.
struct FragmentDefaults {
  uint32_t base_offset = 0;  // stays as it was when a tfhd does not give one
  uint32_t duration = 0;     // ticks; 0 = the trex has it
  uint32_t size = 0;         // bytes; 0 = the trex has it
};

struct Tfhd {
  uint32_t track_id = 0;
  bool has_base = false;
  FragmentDefaults defaults;
};

// Samples with the trun's own data offset; without it they lie where the base offset says.
constexpr uint32_t kTrunDataOffset = 0x1;

struct Trun {
  uint32_t flags = 0;
  uint32_t samples = 0;  // no more than the box has room for
  bool has_offset = false;
  int32_t data_offset = 0;
  uint32_t end = 0;  // position behind the box
};

struct FragmentSample {
  uint32_t duration = 0;  // ticks
  uint32_t size = 0;      // bytes
};

// ---- Forms that are read wrongly. Each is remarked on once per track, as early as it shows.

// The bits of m_dwFragNotes.
enum FragmentNote : uint32_t {
  kFragNoBase = 0x1,
  kFragBaseChange = 0x2,
  kFragNoDataOffset = 0x4,
  // What the walk that describes the file has met: m_dwFragLastBase is set; the present traf has had a trun.
  kFragBaseKnown = 0x100,
  kFragTrunInTraf = 0x200,
};

// `format` takes the track's ID as "%d".
void NoteOnce(MP4ReaderTrack& track, FragmentNote note, const char* function, const char* format);
// The base offset is not the same in all fragments.
void NoteSeekLimit(MP4ReaderTrack& track, const char* function);

// ---- Boxes

constexpr int32_t kTrunFound = 1;
constexpr int32_t kNoTrun = 0;

int32_t ReadTfhd(BoxReader& box, Tfhd* tfhd);
// Moves the fragment cursor to the first field of the track's next trun. kTrunFound with the payload of the box and the
// defaults brought up to date; kNoTrun when the boxes or the data end first, or a negative code: the cursor then stands
// where it stood.
int32_t FindTrun(const MP4FReaderHandle& handle, MP4ReaderTrack& track, FragmentDefaults* defaults, uint32_t* payload,
                 const char* function);
// Reads the fields in front of the samples.
int32_t ReadTrunHeader(const MP4FReaderHandle& handle, MP4ReaderTrack& track, uint32_t payload, Trun* trun,
                       const char* function);
// Moves the fragment cursor from behind the last sample of a trun to `end`: the box may have room for more.
int32_t LeaveTrun(const MP4FReaderHandle& handle, MP4ReaderTrack& track, uint32_t end, const char* function);
// Bytes that a trun with these flags spends on each sample.
uint32_t TrunEntrySize(uint32_t flags);
// Reads what the trun says about its next sample; what it does not say comes from the defaults.
int32_t ReadTrunEntry(const MP4FReaderHandle& handle, MP4ReaderTrack& track, uint32_t flags,
                      const FragmentDefaults& defaults, FragmentSample* sample, const char* function);

// ---- Samples

// The next sample of the fragments. As ReadFrame.
int32_t ReadFragment(const MP4FReaderHandle& handle, MP4ReaderTrack& track, ZMVFrame& frame, const char* function);

// Searches the fragments, from their start, for the first sample behind the very first one whose time reaches `*time`.
// Expects the fragment cursor at its start. 1 with the place in the m_dwSeek* fields and the time of the sample; 0 when
// there is none, or a negative code of a failed read: the m_dwSeek* fields then are as they were.
int32_t SearchFragments(const MP4FReaderHandle& handle, MP4ReaderTrack& track, uint32_t* time, const char* function);

}  // namespace zmv::mp4::reader

#endif

// The walk through the boxes of the fragments.
#include "mp4/mp4_fragments.h"

#include "mp4/mp4_table_cursor.h"

namespace zmv::mp4::reader {
namespace {

constexpr uint32_t kMoof = FourCC("moof");
constexpr uint32_t kTraf = FourCC("traf");
constexpr uint32_t kTfhd = FourCC("tfhd");
constexpr uint32_t kTrun = FourCC("trun");

// tfhd: which fields follow
constexpr uint32_t kTfhdBaseOffset = 0x1;
constexpr uint32_t kTfhdDescription = 0x2;
constexpr uint32_t kTfhdDuration = 0x8;
constexpr uint32_t kTfhdSize = 0x10;
// trun: which fields follow, in the box and for each sample
constexpr uint32_t kTrunFirstFlags = 0x4;
constexpr uint32_t kTrunDuration = 0x100;
constexpr uint32_t kTrunSize = 0x200;
constexpr uint32_t kTrunSampleFlags = 0x400;
constexpr uint32_t kTrunComposition = 0x800;

BoxReader ReadAt(const MP4FReaderHandle& handle, const MP4ReaderTrack& track, uint32_t payload, const char* function) {
  return BoxReader(*handle.m_hStream, track.m_Frag.m_dwCursor, payload, function);
}

int32_t WalkToTrun(const MP4FReaderHandle& handle, MP4ReaderTrack& track, FragmentDefaults* defaults, uint32_t* payload,
                   const char* function) {
  TableCursor cursor = Fragments(handle, track);
  const uint64_t end = DataEnd(handle);
  uint64_t position = cursor.Position();
  uint64_t traf_end = 0;
  bool matched = true;
  while (position + kBoxHeaderSize <= end) {
    uint32_t size = 0;
    uint32_t type = 0;
    BoxReader header = ReadAt(handle, track, kBoxHeaderSize, function);
    header.U32(&size).Code(&type);
    if (header.Failed()) return header.Error();
    uint64_t next = position + size;
    if (size < kBoxHeaderSize || next > end) return kNoTrun;
    if (type == kTrun && matched) {
      *payload = size - kBoxHeaderSize;
      return kTrunFound;
    }
    if (type == kTraf) traf_end = next;
    if (type == kTfhd) {
      Tfhd tfhd;
      BoxReader box = ReadAt(handle, track, size - kBoxHeaderSize, function);
      if (Failed(ReadTfhd(box, &tfhd))) return box.Error();
      matched = tfhd.track_id == track.m_dwTrackID;
      if (matched) {
        if (!tfhd.has_base) tfhd.defaults.base_offset = defaults->base_offset;
        *defaults = tfhd.defaults;
      } else if (traf_end > next) {
        next = traf_end;
      }
    }
    position = type == kMoof || type == kTraf ? position + kBoxHeaderSize : next;
    const int32_t result = cursor.Position() == position ? 0 : cursor.Move(position);
    if (Failed(result)) return Report(result, function);
  }
  return kNoTrun;
}

}  // namespace

// ---- Remarks

void NoteOnce(MP4ReaderTrack& track, FragmentNote note, const char* function, const char* format) {
  if (track.m_dwFragNotes & note) return;
  track.m_dwFragNotes |= note;
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
  ::ZMV_Trace(kModule.tag, kTraceWarning, kModule.source, __LINE__, function, format,
              static_cast<int>(track.m_dwTrackID));
#pragma GCC diagnostic pop
}

void NoteSeekLimit(MP4ReaderTrack& track, const char* function) {
  NoteOnce(track, kFragBaseChange, function,
           "TrackID(%d) base offset changes, seeks into fragments go to wrong places\n");
}

// ---- Boxes

int32_t ReadTfhd(BoxReader& box, Tfhd* tfhd) {
  uint32_t flags = 0;
  box.U32(&flags).U32(&tfhd->track_id);
  // Positions are 32-bit, so the upper half of the base offset is of no use.
  tfhd->has_base = (flags & kTfhdBaseOffset) != 0;
  if (tfhd->has_base) box.Skip(4).U32(&tfhd->defaults.base_offset);
  if (flags & kTfhdDescription) box.Skip(4);
  if (flags & kTfhdDuration) box.U32(&tfhd->defaults.duration);
  if (flags & kTfhdSize) box.U32(&tfhd->defaults.size);
  return box.Error();
}

int32_t FindTrun(const MP4FReaderHandle& handle, MP4ReaderTrack& track, FragmentDefaults* defaults, uint32_t* payload,
                 const char* function) {
  TableCursor cursor = Fragments(handle, track);
  const uint32_t before = cursor.Position();
  const int32_t result = WalkToTrun(handle, track, defaults, payload, function);
  // Half a walk would lose which track the boxes belong to.
  if (result != kTrunFound) cursor.Move(before);
  return result;
}

int32_t ReadTrunHeader(const MP4FReaderHandle& handle, MP4ReaderTrack& track, uint32_t payload, Trun* trun,
                       const char* function) {
  BoxReader box = ReadAt(handle, track, payload, function);
  uint32_t count = 0;
  uint32_t offset = 0;
  trun->end = box.Position() + payload;
  box.U32(&trun->flags).U32(&count);
  trun->has_offset = (trun->flags & kTrunDataOffset) != 0;
  if (trun->has_offset) box.U32(&offset);
  if (trun->flags & kTrunFirstFlags) box.Skip(4);
  if (Failed(box.Settle())) return box.Error();
  trun->data_offset = static_cast<int32_t>(offset);
  // Samples without fields of their own are bounded by the file, as those of constant size in moov are.
  const uint32_t entry_size = TrunEntrySize(trun->flags);
  const uint64_t room = entry_size != 0 ? box.Left() / entry_size : handle.m_dwFileSize;
  trun->samples = count < room ? count : static_cast<uint32_t>(room);
  return 0;
}

int32_t LeaveTrun(const MP4FReaderHandle& handle, MP4ReaderTrack& track, uint32_t end, const char* function) {
  TableCursor cursor = Fragments(handle, track);
  // A move empties the cursor's cache.
  const int32_t result = cursor.Position() == end ? 0 : cursor.Move(end);
  return Failed(result) ? Report(result, function) : 0;
}

uint32_t TrunEntrySize(uint32_t flags) {
  constexpr uint32_t kFields[] = {kTrunDuration, kTrunSize, kTrunSampleFlags, kTrunComposition};
  uint32_t size = 0;
  for (uint32_t field : kFields) size += flags & field ? 4 : 0;
  return size;
}

int32_t ReadTrunEntry(const MP4FReaderHandle& handle, MP4ReaderTrack& track, uint32_t flags,
                      const FragmentDefaults& defaults, FragmentSample* sample, const char* function) {
  sample->duration = defaults.duration != 0 ? defaults.duration : track.m_dwTrexDuration;
  sample->size = defaults.size != 0 ? defaults.size : track.m_dwTrexSize;
  const uint32_t entry_size = TrunEntrySize(flags);
  if (entry_size == 0) return 0;
  BoxReader entry = ReadAt(handle, track, entry_size, function);
  uint32_t unused = 0;
  if (flags & kTrunDuration) entry.U32(&sample->duration);
  if (flags & kTrunSize) entry.U32(&sample->size);
  // Read and not skipped, which would empty the cursor's cache.
  if (flags & kTrunSampleFlags) entry.U32(&unused);
  if (flags & kTrunComposition) entry.U32(&unused);
  return entry.Error();
}

}  // namespace zmv::mp4::reader

// A sample table read in place, entry by entry, through a cursor of its own. It never reads past its last entry.
#ifndef ZMV_MP4_TABLE_CURSOR_H
#define ZMV_MP4_TABLE_CURSOR_H

#include "mp4/mp4_box_reader.h"
#include "mp4/zmv_mp4_format.h"
#include "mp4/zmvstream_mp4_reader_records.h"

namespace zmv::mp4::reader {

// Read-ahead of a table's cursor in bytes.
constexpr uint32_t kTableCacheSize = 1024;

class TableCursor {
 public:
  TableCursor(ZMVStreamBuf& stream, uint32_t& cursor, uint32_t& start, uint32_t& saved, uint32_t entry_size,
              uint32_t entry_count)
      : stream_(stream),
        cursor_(cursor),
        start_(start),
        saved_(saved),
        entry_size_(entry_size),
        entry_count_(entry_count) {}
  TableCursor(ZMVStreamBuf& stream, MP4ReaderTable& table, uint32_t entry_size, uint32_t entry_count)
      : TableCursor(stream, table.m_dwCursor, table.m_dwStart, table.m_dwSaved, entry_size, entry_count) {}

  bool Present() const { return cursor_ != 0; }

  // Takes a cursor, in place of an earlier one, and puts it at the first entry.
  int32_t Open(uint32_t start) {
    Release();
    uint32_t cursor = 0;
    const int64_t result = ZMVStreamBuf_Index(&stream_, &cursor, kTableCacheSize);
    if (zmv::Failed(result)) return static_cast<int32_t>(result);
    cursor_ = cursor;
    start_ = start;
    return Move(start);
  }
  void Release() {
    if (Present()) ZMVStreamBuf_Release(&stream_, cursor_);
    cursor_ = start_ = saved_ = 0;
  }

  // The next word of the table. False at the table's end, and on a failed read, which Error() then names and which
  // leaves the cursor where it was.
  bool Next(uint32_t* value) {
    if (error_ != 0 || !Present()) return false;
    const uint32_t position = ZMVStreamBuf_Pos(&stream_, cursor_);
    if (position + uint64_t{4} > End()) return false;
    int64_t error = 0;
    const uint64_t word = ZMVStreamBuf_ReadDWordBE(&stream_, cursor_, &error);
    if (error != 0) [[unlikely]] {
      error_ = StreamError(error);
      Move(position);
      return false;
    }
    *value = static_cast<uint32_t>(word);
    return true;
  }
  TableCursor& Skip(int32_t bytes) {
    if (error_ != 0) return *this;
    const int64_t result = ZMVStreamBuf_Skip(&stream_, cursor_, bytes);
    if (zmv::Failed(result)) error_ = static_cast<int32_t>(result);
    return *this;
  }
  // Goes back by one word and cares for nothing: a table that is not read may stand where there is nothing before it.
  void StepBack() const { ZMVStreamBuf_Skip(&stream_, cursor_, -4); }

  int32_t SeekTo(uint32_t entry) {
    const uint64_t position = start_ + uint64_t{entry} * entry_size_;
    return Move(position < End() ? position : End());
  }
  void Save() { saved_ = Position(); }
  int32_t Restore() { return Move(saved_); }

  uint32_t Position() const { return ZMVStreamBuf_Pos(&stream_, cursor_); }
  int32_t Move(uint64_t position) {
    const int64_t result = position > 0xFFFFFFFFu
                               ? int64_t{Result(ZMV_E_SEEK)}
                               : ZMVStreamBuf_Seek(&stream_, cursor_, static_cast<uint32_t>(position));
    return zmv::Failed(result) ? static_cast<int32_t>(result) : 0;
  }

  bool Failed() const { return error_ != 0; }
  int32_t Error() const { return error_; }

 private:
  uint64_t End() const { return start_ + uint64_t{entry_count_} * entry_size_; }

  ZMVStreamBuf& stream_;
  uint32_t& cursor_;
  uint32_t& start_;
  uint32_t& saved_;
  uint32_t entry_size_;
  uint32_t entry_count_;
  int32_t error_ = 0;
};

inline TableCursor SampleSizes(const MP4FReaderHandle& handle, MP4ReaderTrack& track) {
  return TableCursor(*handle.m_hStream, track.m_Stsz, kStszEntrySize, track.m_dwSampleCount);
}
inline TableCursor SampleTimes(const MP4FReaderHandle& handle, MP4ReaderTrack& track) {
  return TableCursor(*handle.m_hStream, track.m_Stts, kSttsEntrySize, track.m_dwSttsCount);
}
inline TableCursor SampleChunks(const MP4FReaderHandle& handle, MP4ReaderTrack& track) {
  return TableCursor(*handle.m_hStream, track.m_Stsc, kStscEntrySize, track.m_dwStscCount);
}
inline TableCursor ChunkOffsets(const MP4FReaderHandle& handle, MP4ReaderTrack& track) {
  return TableCursor(*handle.m_hStream, track.m_Stco, kStcoEntrySize, track.m_dwChunkCount);
}
inline TableCursor SyncSamples(const MP4FReaderHandle& handle, MP4ReaderTrack& track) {
  return TableCursor(*handle.m_hStream, track.m_dwStssCursor, track.m_dwStssStart, track.m_dwStssSaved, kStssEntrySize,
                     track.m_dwStssCount);
}
// The walk through the fragments, which is bounded by its boxes and not by a count.
inline TableCursor Fragments(const MP4FReaderHandle& handle, MP4ReaderTrack& track) {
  return TableCursor(*handle.m_hStream, track.m_Frag, 1, 0);
}

}  // namespace zmv::mp4::reader

#endif

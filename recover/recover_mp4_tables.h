// Does the moov box of a recording agree with the frames that stand in its media data (ISO/IEC 14496-12, clause 8)?
// Memory does not grow with the recording: the tables are read beside the frames.
//
//     tables.Open(front, media_end);
//     for every frame: tables.Check(frame);
//     if (tables.Agree()) ...
#ifndef ZMV_RECOVER_MP4_TABLES_H
#define ZMV_RECOVER_MP4_TABLES_H

#include "base/host_memory.h"
#include "mp4/zmvstream_mp4_writer_records.h"
#include "recover/recover_front.h"
#include "recover/recover_scan.h"
#include "recover/recover_table_cursor.h"

namespace zmv::recover {

class Mp4Tables {
 public:
  explicit Mp4Tables(File& file) : file_(file) {}

  // Walks the boxes of a closed recording from the end of its media data to the end of the file. What is not closed,
  // or not as the writer makes it, does not agree. 0; ZMV_E_READ, ZMV_E_MEMORY.
  int32_t Open(const Front& front);
  // Compares the next frame that was found. 0, or ZMV_E_READ.
  int32_t Check(const FoundFrame& frame);
  // After the last frame, with the end of the media data as the frames show it. 0, or ZMV_E_READ.
  int32_t Finish(uint64_t items_end);
  bool Agree() const { return agree_; }
  // Every frame that was found has its entry, as far as chunks of one frame tell, whatever else the tables name.
  bool Name() const { return named_; }

 private:
  struct Box {
    uint32_t type;
    uint64_t body;  // position behind the header
    uint64_t end;
  };
  struct Table {
    TableCursor cursor;
    uint32_t count = 0;  // entries
    bool present = false;
  };
  struct Track {
    uint32_t id;
    uint32_t time_scale;
    uint32_t duration;
    Table stts;
    Table stsc;
    Table stsz;
    Table stco;
    Table stss;
    uint32_t sample_size;  // common to all samples, or 0
    uint32_t samples;      // as stsz states them
    uint32_t frames;       // compared so far
    uint64_t ticks;        // of their durations
    uint32_t last_ticks;   // of the last one
    uint32_t run_left;     // of the current stts entry
    uint32_t run_delta;
    uint32_t chunk;          // number of the current one, from 1
    uint32_t chunk_left;     // frames of it still to come
    uint32_t chunk_samples;  // of the current stsc entry
    uint32_t next_chunk;     // where the next stsc entry begins; 0 = there is none
    uint32_t next_samples;
    TableCursor names;  // the chunk offsets once more, for the frames that are found among others
    uint64_t name;
    uint32_t chunk_frames;  // frames of each chunk, when that is the same for all
    bool frame_per_chunk;   // raw audio whose chunks are one frame of many samples
  };

  // Calls `visit` for the boxes that fill [begin, end); false when they do not fill it, or a visit failed.
  template <typename Visit>
  bool Walk(uint64_t begin, uint64_t end, Visit visit);
  bool ReadBox(uint64_t position, uint64_t end, Box& box);
  bool Number(uint64_t position, uint32_t& number);
  bool TakeMovie(const Box& moov);
  bool TakeTrack(const Box& trak);
  bool TakeMedia(const Box& mdia, Track& track);
  bool TakeSampleTables(const Box& stbl, Track& track);
  bool TakeTable(const Box& box, uint32_t numbers, Table& table);
  bool TakeSizes(const Box& box, Track& track);

  Track* Find(const FoundFrame& frame);
  bool Raw(const Track& track) const;
  void StartChunks(Track& track, const FoundFrame& frame);
  void CheckName(const FoundFrame& frame);
  void CheckSize(Track& track, const FoundFrame& frame);
  void CheckChunk(Track& track, const FoundFrame& frame);
  void CheckDuration(Track& track, uint32_t ticks);
  void FinishTrack(Track& track);
  uint32_t Next(Table& table) { return table.cursor.Next(file_, error_); }
  void Expect(bool holds) { agree_ = agree_ && holds; }

  File& file_;
  HostMemory<Track> tracks_;
  uint32_t track_count_ = 0;
  uint64_t media_end_ = 0;
  uint32_t video_count_ = 0;
  uint32_t audio_count_ = 0;
  uint32_t text_count_ = 0;
  uint32_t raw_sample_size_ = 0;  // bytes; 0 = audio is not raw
  int32_t error_ = 0;
  bool agree_ = false;
  bool named_ = false;
};

}  // namespace zmv::recover

#endif

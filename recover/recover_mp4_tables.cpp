#include "recover/recover_mp4_tables.h"

#include <algorithm>
#include <cmath>

#include "base/arith.h"
#include "base/byte_order.h"
#include "base/fourcc.h"
#include "mp4/zmv_mp4_format.h"
#include "recover/recover_module.h"

namespace zmv::recover {
namespace {

constexpr uint32_t kMovieHeaderSize = 108;
constexpr uint32_t kTrackHeaderSize = 92;
constexpr uint32_t kMediaHeaderSize = 32;
constexpr uint32_t kNumber = 4;

// Where fields stand behind the header of their box.
constexpr uint32_t kTrackId = 12;
constexpr uint32_t kTimeScale = 12;
constexpr uint32_t kDuration = 16;
constexpr uint32_t kEntryCount = 4;
constexpr uint32_t kEntries = 8;
constexpr uint32_t kSampleSize = 4;
constexpr uint32_t kSampleCount = 8;
constexpr uint32_t kSampleSizes = 12;

constexpr double kMicroseconds = 1000000.0;
constexpr double kMilliseconds = 1000.0;

bool IsRaw(uint32_t format) {
  return format == ZMV_AUDIO_PCM || format == ZMV_AUDIO_ALAW || format == ZMV_AUDIO_MULAW || format == ZMV_AUDIO_PCM_LE;
}

// Halves go away from zero, as the writer rounds.
uint32_t Ticks(uint32_t time_scale, const FoundFrame& frame) {
  const double units = frame.media == ZMV_MEDIA_VIDEO ? kMicroseconds : kMilliseconds;
  return SaturatingU32(std::round(static_cast<double>(time_scale) * frame.new_duration / units));
}

}  // namespace

// ---- The boxes

bool Mp4Tables::Number(uint64_t position, uint32_t& number) {
  uint8_t bytes[kNumber];
  const int64_t got = file_.ReadAt(position, bytes, sizeof bytes);
  if (got < 0) error_ = static_cast<int32_t>(got);
  if (got != sizeof bytes) return false;
  number = LoadBE32(bytes);
  return true;
}

bool Mp4Tables::ReadBox(uint64_t position, uint64_t end, Box& box) {
  uint32_t size = 0;
  uint32_t type = 0;
  if (end - position < mp4::kBoxHeaderSize || !Number(position, size) || !Number(position + kNumber, type)) {
    return false;
  }
  if (size < mp4::kBoxHeaderSize || size > end - position) return false;
  box = {__builtin_bswap32(type), position + mp4::kBoxHeaderSize, position + size};
  return true;
}

template <typename Visit>
bool Mp4Tables::Walk(uint64_t begin, uint64_t end, Visit visit) {
  while (begin < end) {
    Box box;
    if (!ReadBox(begin, end, box) || !visit(box)) return false;
    begin = box.end;
  }
  return true;
}

int32_t Mp4Tables::Open(const Front& front) {
  media_end_ = front.mdat + front.mdat_size;
  if (!front.sound || front.mdat_size < mp4::kBoxHeaderSize || media_end_ >= file_.Size()) return 0;
  video_count_ = front.info.dwVideoCount;
  audio_count_ = front.info.dwAudioCount;
  text_count_ = front.info.dwTextCount;
  const ZMVAudioInfo& audio = front.info.m_Audio;
  if (audio_count_ != 0 && IsRaw(audio.dwFormat)) raw_sample_size_ = audio.dwBitsPerSample / 8;
  bool movie = false;
  const bool sound = Walk(media_end_, file_.Size(), [&](const Box& box) {
    if (box.type != FourCC("moov")) return true;
    if (movie) return false;
    movie = true;
    return TakeMovie(box);
  });
  agree_ = named_ = sound && movie;
  return error_;
}

bool Mp4Tables::TakeMovie(const Box& moov) {
  constexpr uint32_t kBytes = kMp4WriterMaxTracks * static_cast<uint32_t>(sizeof(Track));
  tracks_ = HostMemory<Track>(kModule, kBytes, HostFill::kZero, __func__);
  if (!tracks_) {
    error_ = Result(ZMV_E_MEMORY);
    return false;
  }
  bool header = false;
  return Walk(moov.body, moov.end,
              [&](const Box& box) {
                if (box.type == FourCC("trak")) return TakeTrack(box);
                header = box.type == FourCC("mvhd") && box.end - box.body == kMovieHeaderSize - mp4::kBoxHeaderSize;
                return header;
              }) &&
         header;
}

bool Mp4Tables::TakeTrack(const Box& trak) {
  if (track_count_ == kMp4WriterMaxTracks) return false;
  Track& track = tracks_.Get()[track_count_++];
  bool media = false;
  const bool filled = Walk(trak.body, trak.end, [&](const Box& box) {
    if (box.type == FourCC("tkhd")) {
      return box.end - box.body == kTrackHeaderSize - mp4::kBoxHeaderSize && Number(box.body + kTrackId, track.id);
    }
    media = box.type == FourCC("mdia") && TakeMedia(box, track);
    return media;
  });
  return filled && media && track.id != 0;
}

bool Mp4Tables::TakeMedia(const Box& mdia, Track& track) {
  bool tables = false;
  const bool filled = Walk(mdia.body, mdia.end, [&](const Box& box) {
    if (box.type == FourCC("mdhd")) {
      return box.end - box.body == kMediaHeaderSize - mp4::kBoxHeaderSize &&
             Number(box.body + kTimeScale, track.time_scale) && Number(box.body + kDuration, track.duration);
    }
    if (box.type != FourCC("minf")) return true;
    return Walk(box.body, box.end, [&](const Box& inner) {
      if (inner.type != FourCC("stbl")) return true;
      tables = TakeSampleTables(inner, track);
      return tables;
    });
  });
  return filled && tables;
}

bool Mp4Tables::TakeSampleTables(const Box& stbl, Track& track) {
  const bool filled = Walk(stbl.body, stbl.end, [&](const Box& box) {
    switch (box.type) {
      case FourCC("stts"):
        return TakeTable(box, mp4::kSttsEntrySize / kNumber, track.stts);
      case FourCC("stsc"):
        return TakeTable(box, mp4::kStscEntrySize / kNumber, track.stsc) &&
               (track.stsc.count != 1 || Number(box.body + kEntries + kNumber, track.chunk_frames));
      case FourCC("stco"):
        if (!TakeTable(box, mp4::kStcoEntrySize / kNumber, track.stco)) return false;
        track.names.Open(box.body + kEntries, track.stco.count);
        return true;
      case FourCC("stss"):
        return TakeTable(box, mp4::kStssEntrySize / kNumber, track.stss);
      case FourCC("stsz"):
        return TakeSizes(box, track);
      default:
        return true;
    }
  });
  return filled && track.stts.present && track.stsc.present && track.stco.present && track.stsz.present;
}

bool Mp4Tables::TakeTable(const Box& box, uint32_t numbers, Table& table) {
  const uint64_t body = box.end - box.body;
  if (table.present || body < kEntries || !Number(box.body + kEntryCount, table.count)) return false;
  if (body - kEntries != uint64_t{table.count} * numbers * kNumber) return false;
  table.present = true;
  table.cursor.Open(box.body + kEntries, uint64_t{table.count} * numbers);
  return true;
}

bool Mp4Tables::TakeSizes(const Box& box, Track& track) {
  const uint64_t body = box.end - box.body;
  if (track.stsz.present || body < kSampleSizes) return false;
  if (!Number(box.body + kSampleSize, track.sample_size) || !Number(box.body + kSampleCount, track.samples)) {
    return false;
  }
  track.stsz.count = track.sample_size == 0 ? track.samples : 0;
  if (body - kSampleSizes != uint64_t{track.stsz.count} * kNumber) return false;
  track.stsz.present = true;
  track.stsz.cursor.Open(box.body + kSampleSizes, track.stsz.count);
  return true;
}

// ---- The frames

// Tracks are numbered in the order of the descriptions, those without samples included. Frames of a stream that is not
// described are in the last one.
Mp4Tables::Track* Mp4Tables::Find(const FoundFrame& frame) {
  const uint32_t counts[] = {video_count_, audio_count_, text_count_};
  uint32_t id = 1;
  for (uint32_t media = ZMV_MEDIA_VIDEO; media < frame.media; ++media) id += counts[media - ZMV_MEDIA_VIDEO];
  const bool described = frame.track < counts[frame.media - ZMV_MEDIA_VIDEO];
  id = described ? id + frame.track : video_count_ + audio_count_ + text_count_;
  Track* const end = tracks_.Get() + track_count_;
  Track* const track = std::find_if(tracks_.Get(), end, [id](const Track& one) { return one.id == id; });
  return track != end ? track : nullptr;
}

bool Mp4Tables::Raw(const Track& track) const {
  return raw_sample_size_ != 0 && audio_count_ != 0 && track.id == video_count_ + 1;
}

// The frames that were not found have entries, too: they are stepped over.
void Mp4Tables::CheckName(const FoundFrame& frame) {
  Track* const track = Find(frame);
  if (track != nullptr && track->chunk_frames != 1) return;
  if (track == nullptr) {
    named_ = false;
    return;
  }
  while (track->name < frame.payload && !track->names.AtEnd()) track->name = track->names.Next(file_, error_);
  named_ = track->name == frame.payload;
}

int32_t Mp4Tables::Check(const FoundFrame& frame) {
  if (named_) CheckName(frame);
  if (!agree_) return error_;
  Track* const track = Find(frame);
  if (track == nullptr) {
    agree_ = false;
    return 0;
  }
  if (track->frames == 0) StartChunks(*track, frame);
  CheckSize(*track, frame);
  CheckChunk(*track, frame);
  const uint32_t ticks = Ticks(track->time_scale, frame);
  // Each sample lasts until the next one, whose frame brings that time.
  if (track->frames != 0 && !Raw(*track)) CheckDuration(*track, ticks);
  track->ticks += ticks;
  track->last_ticks = ticks;
  ++track->frames;
  const bool syncs = track->stss.present || track->id <= video_count_;
  if (frame.key && syncs) Expect(track->stss.present && Next(track->stss) == track->frames);
  return error_;
}

void Mp4Tables::StartChunks(Track& track, const FoundFrame& frame) {
  track.next_chunk = Next(track.stsc);
  track.next_samples = Next(track.stsc);
  Next(track.stsc);  // the sample description
  Expect(track.next_chunk == 1);
  track.frame_per_chunk =
      Raw(track) && track.stsc.count == track.stco.count && track.next_samples == frame.size / raw_sample_size_;
}

void Mp4Tables::CheckSize(Track& track, const FoundFrame& frame) {
  if (Raw(track)) return Expect(track.sample_size == raw_sample_size_);
  Expect((track.sample_size != 0 ? track.sample_size : Next(track.stsz)) == frame.size);
}

void Mp4Tables::CheckChunk(Track& track, const FoundFrame& frame) {
  if (track.chunk_left == 0) {
    ++track.chunk;
    if (track.chunk == track.next_chunk) {
      track.chunk_samples = track.next_samples;
      track.next_chunk = Next(track.stsc);
      track.next_samples = Next(track.stsc);
      Next(track.stsc);
    }
    // Of a frame without a payload its record does not tell on which side of a spilled table that stands.
    Expect((Next(track.stco) == frame.payload || frame.size == 0) && track.chunk_samples != 0);
    track.chunk_left = track.frame_per_chunk ? 1 : track.chunk_samples;
  }
  if (track.chunk_left != 0) --track.chunk_left;
}

void Mp4Tables::CheckDuration(Track& track, uint32_t ticks) {
  if (track.run_left == 0) {
    track.run_left = Next(track.stts);
    track.run_delta = Next(track.stts);
  }
  Expect(track.run_left != 0 && track.run_delta == ticks);
  if (track.run_left != 0) --track.run_left;
}

void Mp4Tables::FinishTrack(Track& track) {
  if (Raw(track)) {
    uint64_t sum = 0;
    while (!track.stts.cursor.AtEnd()) {
      sum += Next(track.stts);
      Expect(Next(track.stts) == 1);
    }
    return Expect(track.frames != 0 && sum == track.samples && track.samples % track.frames == 0 &&
                  track.stco.cursor.AtEnd() && track.chunk_left == 0);
  }
  CheckDuration(track, track.last_ticks);
  Expect(track.frames != 0 && track.frames == track.samples && track.run_left == 0 && track.chunk_left == 0);
  Expect(track.stts.cursor.AtEnd() && track.stsz.cursor.AtEnd() && track.stco.cursor.AtEnd());
  Expect(track.stss.cursor.AtEnd() && track.duration == static_cast<uint32_t>(track.ticks));
}

int32_t Mp4Tables::Finish(uint64_t items_end) {
  Expect(items_end == media_end_);
  for (uint32_t i = 0; agree_ && i < track_count_; ++i) FinishTrack(tracks_.Get()[i]);
  return error_;
}

}  // namespace zmv::recover

// Recording an MP4 file on the scripted host and checking its structure by the tables alone.
//
//     Mp4Recording recording(info);                      // opens, sets up
//     recording.Video(payload, 33333, true);
//     ByteVector file = recording.Finish();              // closes; the build date is made the same for every build
//     EXPECT_EQ(Difference(file, Join({...})), "");
//     EXPECT_EQ(StructureFaults(file, recording), "");
#ifndef ZMV_TESTS_MP4_RECORDING_H
#define ZMV_TESTS_MP4_RECORDING_H

#include <gtest/gtest.h>

#include <cstdlib>
#include <map>
#include <string>
#include <vector>

#include "base/fourcc.h"
#include "facade/zmvstream_media.h"
#include "mp4/zmvstream_mp4_writer.h"
#include "stream/zmvstream_buf.h"
#include "tests/support/scripted_host.h"

namespace zmv::test {

constexpr uint32_t kRandomSeed = 7;
constexpr const char* kFixedDate = "Mmm dd yyyy";

// The size of the random box that SetInfo writes after srand(kRandomSeed).
inline uint32_t RandomBoxSize() {
  srand(kRandomSeed);
  return ((static_cast<uint32_t>(rand()) % 1024) + 31) / 32 * 32;
}

inline uint32_t NumberAt(const ByteVector& bytes, size_t at) {
  return uint32_t{bytes.at(at)} << 24 | uint32_t{bytes.at(at + 1)} << 16 | uint32_t{bytes.at(at + 2)} << 8 |
         bytes.at(at + 3);
}

// A box: its size, type and body.
inline ByteVector BoxOf(std::string_view type, std::initializer_list<ByteVector> parts) {
  const ByteVector body = Join(parts);
  return Join({Be32(static_cast<uint32_t>(body.size()) + 8), Text(type), body});
}

class Mp4Recording {
 public:
  // `expire` as for MP4WriterOpen; 1 gives room for 10 entries at up to one frame a second.
  explicit Mp4Recording(const ZMVFileInfo& info, uint8_t interleave = 1, int64_t expire = 0)
      : info_(info), interleave_(interleave) {
    EXPECT_EQ(ZMVStreamBuf_Open(&stream_, "a.mp4", 0, ZMV_STREAM_WRITE), 0);
    EXPECT_EQ(MP4WriterOpen(&writer_, stream_, interleave, expire), 0);
    srand(kRandomSeed);
    EXPECT_EQ(MP4WriterSetInfo(writer_, &info, 0), 0);
  }
  Mp4Recording(const Mp4Recording&) = delete;
  Mp4Recording& operator=(const Mp4Recording&) = delete;

  int32_t Write(uint32_t media, ByteVector payload, uint32_t duration, uint32_t key, uint64_t time, uint32_t track) {
    ZMVFrame frame = {};
    frame.pData = payload.data();
    frame.dwSize = static_cast<uint32_t>(payload.size());
    frame.llTimeStamp = time;
    frame.dwDuration = duration;
    frame.dwTrack = track;
    frame.dwMediaType = media;
    frame.dwKeyFrame = key;
    const int32_t result = MP4WriterWriteFrame(writer_, &frame);
    if (result >= 0) Keep(TrackOrdinal(media, track), media, std::move(payload));
    return result;
  }
  void Video(ByteVector payload, uint32_t duration, bool key, uint64_t time = 0, uint32_t track = 0) {
    EXPECT_EQ(Write(ZMV_MEDIA_VIDEO, std::move(payload), duration, key ? 1 : 2, time, track), 0);
  }
  void Audio(ByteVector payload, uint32_t duration, uint64_t time = 0) {
    EXPECT_EQ(Write(ZMV_MEDIA_AUDIO, std::move(payload), duration, 1, time, 0), 0);
  }
  void Text(ByteVector payload, uint32_t duration, uint64_t time = 0) {
    EXPECT_EQ(Write(ZMV_MEDIA_TEXT, std::move(payload), duration, 1, time, 0), 0);
  }

  // The closed file, its build date replaced by kFixedDate.
  ByteVector Finish() {
    projected_size_ = MP4WriterGetCurSize(writer_);
    MP4WriterClose(writer_);
    ZMVStreamBuf_Close(stream_);
    ByteVector file = ScriptedHost::Current()->File("a.mp4");
    FixBuildDate(&file);
    return file;
  }

  // What each track's payloads are in the file, one behind the other, by track ordinal.
  const std::map<uint32_t, ByteVector>& stored() const { return stored_; }
  bool interleaved() const { return interleave_ != 0; }
  uint32_t projected_size() const { return projected_size_; }

 private:
  uint32_t TrackOrdinal(uint32_t media, uint32_t track) const {
    if (media == ZMV_MEDIA_VIDEO) return track;
    if (media == ZMV_MEDIA_AUDIO) return info_.dwVideoCount;
    return info_.dwVideoCount + info_.dwAudioCount + track;
  }
  void Keep(uint32_t ordinal, uint32_t media, ByteVector payload) {
    const uint32_t code = media == ZMV_MEDIA_VIDEO ? info_.m_Video[ordinal].dwFourCC : 0;
    const bool start_code = code == FourCC("H264") || code == FourCC("X264") || code == FourCC("avc1") ||
                            code == FourCC("H265") || code == FourCC("hvc1");
    if (start_code && payload.size() >= 4) {
      const ByteVector length = Be32(static_cast<uint32_t>(payload.size()) - 4);
      std::copy(length.begin(), length.end(), payload.begin());
    }
    ByteVector& all = stored_[ordinal];
    all.insert(all.end(), payload.begin(), payload.end());
  }
  // The build-information box is 23 bytes: header, the date's eleven characters, " KPZ".
  static void FixBuildDate(ByteVector* file) {
    const ByteVector tail = zmv::test::Text(" KPZ");
    for (size_t at = 0; at + 23 <= file->size();) {
      const uint32_t size = NumberAt(*file, at);
      if (size == 23 && std::equal(tail.begin(), tail.end(), file->begin() + static_cast<ptrdiff_t>(at) + 19)) {
        std::copy(kFixedDate, kFixedDate + 11, file->begin() + static_cast<ptrdiff_t>(at) + 8);
        return;
      }
      if (size < 8) break;
      at += size;
    }
    ADD_FAILURE() << "no build information";
  }

  ZMVFileInfo info_;
  uint8_t interleave_;
  ZMVStreamBuf* stream_ = nullptr;
  MP4WriterHandle* writer_ = nullptr;
  std::map<uint32_t, ByteVector> stored_;
  uint32_t projected_size_ = 0;
};

// A finished file read by its boxes and tables, without anything of the writer's.
class Mp4Structure {
 public:
  explicit Mp4Structure(const ByteVector& file) : file_(file) { Walk(0, file.size(), nullptr); }

  // A fault in words, or nothing.
  std::string Compare(const Mp4Recording& recording) {
    if (!faults_.empty()) return faults_;
    std::vector<ByteVector> written;
    for (const auto& [ordinal, payload] : recording.stored()) written.push_back(payload);
    if (written.size() != tracks_.size()) {
      return "tracks " + std::to_string(tracks_.size()) + " of " + std::to_string(written.size());
    }
    for (size_t i = 0; i < tracks_.size(); ++i) {
      const ByteVector media = ReadMedia(tracks_[i], recording.interleaved() ? 0 : 28);
      const std::string difference = Difference(media, written[i]);
      if (!difference.empty()) faults_ += "track " + std::to_string(i) + ": " + difference + "\n";
    }
    return faults_;
  }

 private:
  struct Track {
    std::map<std::string, size_t> tables;  // position of the box
  };

  uint32_t Number(size_t at) const { return NumberAt(file_, at); }
  void Fault(const std::string& text) { faults_ += text + "\n"; }

  // The boxes of [at, end) must fill it exactly.
  void Walk(size_t at, size_t end, Track* track) {
    while (at < end) {
      if (end - at < 8) return Fault("rest of " + std::to_string(end - at) + " bytes at " + std::to_string(at));
      const uint32_t size = Number(at);
      const std::string type(file_.begin() + static_cast<ptrdiff_t>(at) + 4,
                             file_.begin() + static_cast<ptrdiff_t>(at) + 8);
      // The last box of a pre-sized file reaches to the end of the space, of which only its header is written.
      const bool covers_rest = type == "free" && at + 8 == file_.size();
      if (size < 8 || (size > end - at && !covers_rest))
        return Fault(type + " at " + std::to_string(at) + " too large");
      Enter(type, at, size, track);
      at += covers_rest ? 8 : size;
    }
  }

  void Enter(const std::string& type, size_t at, uint32_t size, Track* track) {
    if (type == "trak") {
      tracks_.emplace_back();
      Walk(at + 8, at + size, &tracks_.back());
    } else if (type == "moov" || type == "mdia" || type == "minf" || type == "dinf" || type == "stbl") {
      Walk(at + 8, at + size, track);
    } else if (type == "dref" || type == "stsd") {
      if (size > 16) Walk(at + 16, at + size, track);
    } else if (type == "avc1" || type == "hvc1" || type == "mp4v") {
      Walk(at + 86, at + size, track);
    } else if (type == "mp4a" || type == "sowt" || type == "lpcm") {
      Walk(at + 36, at + size, track);
    } else if (type == "mp4s") {
      Walk(at + 16, at + size, track);
    } else if (track != nullptr) {
      track->tables[type] = at;
      CheckTable(type, at, size);
    }
  }

  void CheckTable(const std::string& type, size_t at, uint32_t size) {
    static const std::map<std::string, uint32_t> kEntrySizes = {{"stts", 8}, {"stsc", 12}, {"stco", 4}, {"stss", 4}};
    auto entry = kEntrySizes.find(type);
    if (entry != kEntrySizes.end() && size != 16 + uint64_t{entry->second} * Number(at + 12)) {
      Fault(type + " size " + std::to_string(size) + " with " + std::to_string(Number(at + 12)) + " entries");
    }
    if (type == "stsz" && size != (Number(at + 12) != 0 ? 20 : 20 + 4 * uint64_t{Number(at + 16)})) {
      Fault("stsz size " + std::to_string(size));
    }
  }

  uint32_t SampleSize(const Track& track, uint32_t sample) const {
    const size_t stsz = track.tables.at("stsz");
    return Number(stsz + 12) != 0 ? Number(stsz + 12) : Number(stsz + 20 + 4 * size_t{sample});
  }

  uint32_t SamplesInChunk(const Track& track, uint32_t chunk) const {
    const size_t stsc = track.tables.at("stsc");
    uint32_t samples = 0;
    for (uint32_t i = 0; i < Number(stsc + 12); ++i) {
      if (Number(stsc + 16 + 12 * size_t{i}) <= chunk) samples = Number(stsc + 20 + 12 * size_t{i});
    }
    return samples;
  }

  // The track's media as its tables find it; `gap` bytes stand between the samples of a chunk.
  ByteVector ReadMedia(const Track& track, uint32_t gap) {
    ByteVector media;
    for (const char* table : {"stts", "stsc", "stsz", "stco"}) {
      if (track.tables.count(table) == 0) {
        Fault(std::string("no ") + table);
        return media;
      }
    }
    const size_t stco = track.tables.at("stco");
    uint32_t sample = 0;
    for (uint32_t chunk = 1; chunk <= Number(stco + 12); ++chunk) {
      size_t at = Number(stco + 12 + 4 * size_t{chunk});
      for (uint32_t i = SamplesInChunk(track, chunk); i > 0; --i) {
        const uint32_t size = SampleSize(track, sample++);
        if (at + size > file_.size()) {
          Fault("sample beyond the file");
          return media;
        }
        media.insert(media.end(), file_.begin() + static_cast<ptrdiff_t>(at),
                     file_.begin() + static_cast<ptrdiff_t>(at + size));
        at += size + gap;
      }
    }
    const size_t stts = track.tables.at("stts");
    uint32_t timed = 0;
    for (uint32_t i = 0; i < Number(stts + 12); ++i) timed += Number(stts + 16 + 8 * size_t{i});
    const uint32_t count = Number(track.tables.at("stsz") + 16);
    if (sample != count || timed != count) {
      Fault("samples: stsz " + std::to_string(count) + ", in chunks " + std::to_string(sample) + ", timed " +
            std::to_string(timed));
    }
    return media;
  }

  const ByteVector& file_;
  std::vector<Track> tracks_;
  std::string faults_;
};

inline std::string StructureFaults(const ByteVector& file, const Mp4Recording& recording) {
  return Mp4Structure(file).Compare(recording);
}

}  // namespace zmv::test

#endif

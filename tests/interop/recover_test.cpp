// Recordings of the sample streams that were cut, cut while they were closed, or lost a sector, and then recovered to a
// new file and in place: FFmpeg's libraries read and decode what came back without a complaint, every packet is what
// was recorded, and our reader finds the frames by time.
#include <gmock/gmock.h>

#include <algorithm>
#include <cstdarg>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <mutex>

#include "facade/zmvstream_reader.h"
#include "platform/zmv_host.h"
#include "recover/zmvrecover.h"
#include "tests/interop/libav.h"
#include "tests/support/sample_recording.h"

namespace zmv::test {
namespace {

namespace fs = std::filesystem;
using Bytes = std::vector<uint8_t>;

constexpr uint32_t kRecord = 28;
constexpr uint64_t kSector = 512;

// What FFmpeg's libraries remark while it lives, warnings included.
class Complaints {
 public:
  Complaints() {
    Lines().clear();
    av_log_set_callback(&Take);
  }
  ~Complaints() { av_log_set_callback(&av_log_default_callback); }
  static std::vector<std::string>& Lines() {
    static std::vector<std::string> lines;
    return lines;
  }

 private:
  static void Take(void*, int level, const char* format, va_list arguments) {
    if (level > AV_LOG_WARNING) return;
    char line[512];
    std::vsnprintf(line, sizeof line, format, arguments);
    static std::mutex mutex;
    std::lock_guard lock(mutex);
    Lines().push_back(line);
  }
};

struct Case {
  const char* name;
  SampleStream (*load)(const std::string&);
  const char* stream;
};

void PrintTo(const Case& value, std::ostream* out) { *out << value.name; }

constexpr Case kCases[] = {
    {"H264", LoadH264, "drive_h264.h264"},
    {"Hevc", LoadHevc, "drive_hevc.hevc"},
};

// A frame of the recording, and where it stands.
struct Placed {
  const SampleFrame* frame;
  uint64_t position;  // of its record
  uint64_t end;
};

class Recovered : public testing::TestWithParam<Case> {
 protected:
  void SetUp() override {
    ZMVHost_SetTraceSink(0, nullptr, nullptr);
    std::string name = (fs::temp_directory_path() / "zmvrecover.XXXXXX").string();
    folder_ = mkdtemp(name.data());
    video_ = GetParam().load(GetParam().stream);
    audio_ = LoadAac("drive_aac.aac");
    text_ = MakeGpsText(6, 5);
    const SampleSet set = {.video = &video_, .audio = &audio_, .text = &text_};
    ASSERT_EQ(RecordSamples(Path("whole.mp4"), set), 0);
    closed_ = ReadWholeFile(Path("whole.mp4"));
    whole_ = ReadWithLibav(Path("whole.mp4"));
    Place(MergeSamples(set));
  }
  void TearDown() override { fs::remove_all(folder_); }

  std::string Path(const std::string& name) const { return (folder_ / name).string(); }
  static uint32_t Number(const Bytes& bytes, uint64_t at) {
    return uint32_t{bytes.at(at)} << 24 | uint32_t{bytes.at(at + 1)} << 16 | uint32_t{bytes.at(at + 2)} << 8 |
           bytes.at(at + 3);
  }
  static bool Tagged(const Bytes& bytes, uint64_t at, const std::string& tag) {
    return bytes.size() >= at + 4 && std::equal(tag.begin(), tag.end(), bytes.begin() + static_cast<ptrdiff_t>(at));
  }

  // Finds the frames in the media data, one record behind the other.
  void Place(const std::vector<const SampleFrame*>& frames) {
    for (mdat_ = 0; !Tagged(closed_, mdat_ + 4, "mdat");) mdat_ += Number(closed_, mdat_);
    mdat_end_ = mdat_ + Number(closed_, mdat_);
    uint64_t at = mdat_ + 8;
    for (const SampleFrame* frame : frames) {
      ASSERT_TRUE(Tagged(closed_, at, "RECO"));
      const uint64_t end = at + kRecord + Number(closed_, at + 24);
      ASSERT_EQ(end - at - kRecord, frame->payload.size());
      frames_.push_back({frame, at, end});
      at = end;
    }
    ASSERT_EQ(at, mdat_end_);
  }

  // The first `length` bytes of the recording before its sizes are patched.
  Bytes Cut(uint64_t length) const {
    Bytes bytes(closed_.begin(), closed_.begin() + static_cast<ptrdiff_t>(length));
    SetSize(bytes, mdat_);
    for (uint64_t at = mdat_end_; at + 8 <= length; at += Number(closed_, at)) {
      if (Tagged(closed_, at + 4, "moov")) SetSize(bytes, at);
    }
    return bytes;
  }
  static void SetSize(Bytes& bytes, uint64_t box) {
    bytes[box] = bytes[box + 1] = bytes[box + 2] = 0;
    bytes[box + 3] = 8;
  }
  std::vector<Placed> Within(uint64_t length) const {
    std::vector<Placed> frames;
    for (const Placed& frame : frames_) {
      if (frame.end <= length) frames.push_back(frame);
    }
    return frames;
  }

  // Both ways. The damaged file stays as it is for the first one.
  void Recover(const Bytes& damaged) {
    fs::remove(Path("new.mp4"));
    Store("cut.mp4", damaged);
    const std::string cut = Path("cut.mp4"), made = Path("new.mp4");
    ZMVRecoverParam param = {};
    param.pszPath = cut.c_str();
    param.pszTarget = made.c_str();
    ASSERT_EQ(ZMVRecoverToFile(&param, nullptr), 0);
    ASSERT_EQ(ReadWholeFile(cut), damaged);
    ASSERT_EQ(ZMVRecoverInPlace(&param, nullptr), 0);
  }
  void Store(const std::string& name, const Bytes& bytes) {
    std::ofstream(Path(name), std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  }
  void RecoverAndCheck(const Bytes& damaged, const std::vector<Placed>& expected, bool decodes) {
    ASSERT_NO_FATAL_FAILURE(Recover(damaged));
    for (const char* name : {"new.mp4", "cut.mp4"}) {
      SCOPED_TRACE(name);
      ASSERT_NO_FATAL_FAILURE(CheckPackets(Path(name), expected));
      if (decodes) {
        ASSERT_NO_FATAL_FAILURE(CheckDecoded(Path(name), expected));
      }
      ASSERT_NO_FATAL_FAILURE(CheckSeeks(Path(name), expected));
    }
  }

  // As libavformat sees them, whose times are kept.
  void CheckPackets(const std::string& path, const std::vector<Placed>& expected) {
    Complaints complaints;
    const LibavFile file = ReadWithLibav(path);
    for (auto& times : times_) times.clear();
    EXPECT_THAT(Complaints::Lines(), testing::IsEmpty());
    ASSERT_TRUE(file.opened);
    ASSERT_EQ(file.streams.size(), 3u);
    for (size_t i = 0; i < 3; ++i) {
      const LibavStream& stream = file.streams[i];
      const LibavStream& recorded = whole_.streams.at(i);
      EXPECT_EQ(stream.codec, recorded.codec);
      EXPECT_EQ(stream.width, recorded.width);
      EXPECT_EQ(stream.height, recorded.height);
      EXPECT_EQ(stream.time_base.den, recorded.time_base.den);
      EXPECT_EQ(stream.sample_rate, recorded.sample_rate);
      EXPECT_EQ(stream.channels, recorded.channels);
      EXPECT_EQ(stream.extradata, recorded.extradata);
    }
    ASSERT_EQ(file.packets.size(), expected.size());
    for (size_t i = 0; i < expected.size(); ++i) {
      SCOPED_TRACE("packet " + std::to_string(i));
      const LibavPacket& packet = file.packets[i];
      const SampleFrame& frame = *expected[i].frame;
      ASSERT_EQ(packet.stream, static_cast<int>(frame.media - ZMV_MEDIA_VIDEO));
      ASSERT_EQ(packet.data.size(), frame.payload.size());
      Bytes payload = frame.payload;
      if (frame.media == ZMV_MEDIA_VIDEO) {  // the start code became the length of the unit behind it
        const auto size = static_cast<uint32_t>(payload.size() - 4);
        for (size_t k = 0; k < 4; ++k) payload[k] = static_cast<uint8_t>(size >> (24 - 8 * k));
        ASSERT_EQ(packet.key, frame.key);
      }
      ASSERT_TRUE(packet.data == payload);
      const AVRational unit = file.streams[static_cast<size_t>(packet.stream)].time_base;
      ASSERT_EQ(unit.num, 1);
      ASSERT_NEAR(static_cast<double>(packet.dts) * 1000 / unit.den, static_cast<double>(frame.time_ms), 1.0);
      // Whole milliseconds in single precision are what our reader goes by.
      times_[frame.media].push_back(
          static_cast<uint32_t>(static_cast<float>(packet.dts) * 1000.0f / static_cast<float>(unit.den)));
    }
  }

  // Everything that is decoded is what the source is decoded to.
  void CheckDecoded(const std::string& path, const std::vector<Placed>& expected) {
    for (const uint32_t media : {ZMV_MEDIA_VIDEO, ZMV_MEDIA_AUDIO}) {
      const AVMediaType type = media == ZMV_MEDIA_VIDEO ? AVMEDIA_TYPE_VIDEO : AVMEDIA_TYPE_AUDIO;
      auto& source = source_[media];
      bool error = false;
      if (source.empty()) {
        const char* stream = media == ZMV_MEDIA_VIDEO ? GetParam().stream : "drive_aac.aac";
        source = DecodeWithLibav(SamplesFolder() + "/" + stream, type, &error);
        ASSERT_FALSE(error);
      }
      Complaints complaints;
      const auto decoded = DecodeWithLibav(path, type, &error);
      EXPECT_FALSE(error);
      EXPECT_THAT(Complaints::Lines(), testing::IsEmpty());
      const auto frames = static_cast<size_t>(std::count_if(
          expected.begin(), expected.end(), [&](const Placed& frame) { return frame.frame->media == media; }));
      ASSERT_LE(decoded.size(), frames);
      ASSERT_GE(decoded.size() + (media == ZMV_MEDIA_AUDIO ? 1 : 0), frames);
      for (size_t i = 0; i < decoded.size(); ++i) ASSERT_TRUE(decoded[i] == source[i]) << media << " frame " << i;
    }
  }

  // ---- Our reader

  class Reader {
   public:
    explicit Reader(const std::string& path) : buffer_(1 << 17) {
      ZMVReaderParam param{path.c_str(), nullptr, 0};
      ZMVFileInfo info{};
      EXPECT_EQ(ZMVReaderOpen(&handle_, &param), 0);
      EXPECT_EQ(ZMVReaderGetInfo(handle_, &info), 0);
    }
    ~Reader() { ZMVReaderClose(handle_); }
    ZMVReader* handle() const { return handle_; }
    // The next frame; false at the end.
    bool Next(uint32_t media, ZMVFrame& frame) {
      frame = {};
      frame.dwMediaType = media;
      frame.pData = buffer_.data();
      frame.dwBufSize = static_cast<uint32_t>(buffer_.size());
      const int32_t result = ZMVReaderReadFrame(handle_, &frame);
      EXPECT_TRUE(result == 0 || static_cast<uint32_t>(result) == ZMV_E_END) << std::hex << result;
      return result == 0;
    }
    bool Holds(const ZMVFrame& frame, const SampleFrame& expected) const {
      return frame.dwSize == expected.payload.size() &&
             std::equal(expected.payload.begin(), expected.payload.end(), buffer_.begin());
    }

   private:
    ZMVReader* handle_ = nullptr;
    Bytes buffer_;
  };

  // Reads all frames, then seeks to times all over the recording: the next frame of every medium is the right one.
  void CheckSeeks(const std::string& path, const std::vector<Placed>& expected) {
    Reader reader(path);
    std::vector<const SampleFrame*> frames[4];
    for (const Placed& placed : expected) frames[placed.frame->media].push_back(placed.frame);
    ZMVFrame frame;
    for (uint32_t media = ZMV_MEDIA_VIDEO; media <= ZMV_MEDIA_TEXT; ++media) {
      for (size_t i = 0; i < frames[media].size(); ++i) {
        ASSERT_TRUE(reader.Next(media, frame)) << media << " " << i;
        ASSERT_TRUE(reader.Holds(frame, *frames[media][i])) << media << " " << i;
        ASSERT_NEAR(static_cast<double>(frame.llTimeStamp), times_[media][i], 1.0);
      }
      ASSERT_FALSE(reader.Next(media, frame)) << media;
    }
    const auto reaching = [&](uint32_t media, uint32_t time) {
      return static_cast<size_t>(std::lower_bound(times_[media].begin(), times_[media].end(), time) -
                                 times_[media].begin());
    };
    const auto& pictures = frames[ZMV_MEDIA_VIDEO];
    for (size_t i = 0; i < pictures.size(); i += 1 + pictures.size() / 40) {
      for (const uint32_t target : {times_[ZMV_MEDIA_VIDEO][i], times_[ZMV_MEDIA_VIDEO][i] + 1}) {
        // Backward to the key frame before the first picture that reaches the target; or, where that is nearer than the
        // next key frame, the same by time.
        const size_t first = reaching(ZMV_MEDIA_VIDEO, target);
        size_t key = first == 0 ? 0 : first - 1;
        while (!pictures[key]->key) --key;
        size_t next = std::max(first, key + 1);
        while (next < pictures.size() && !pictures[next]->key) ++next;
        const bool nearer = next == pictures.size() || first - key <= next - first;
        for (const bool by_time : {false, true}) {
          SCOPED_TRACE((by_time ? "by time to " : "by key frame to ") + std::to_string(target));
          uint32_t time = target;
          ASSERT_NE(by_time ? ZMVReaderSeekByTime(reader.handle(), &time, 0)
                            : ZMVReaderSeekByKeyFrame(reader.handle(), &time, 0),
                    0);
          const size_t picture = by_time && !nearer ? first : key;
          ASSERT_EQ(time, times_[ZMV_MEDIA_VIDEO][picture]);
          for (uint32_t media = ZMV_MEDIA_VIDEO; media <= ZMV_MEDIA_TEXT; ++media) {
            const size_t sample = media == ZMV_MEDIA_VIDEO ? picture : reaching(media, time);
            ASSERT_EQ(reader.Next(media, frame), sample < frames[media].size()) << media;
            if (sample == frames[media].size()) continue;
            ASSERT_TRUE(reader.Holds(frame, *frames[media][sample])) << media << " " << sample;
            ASSERT_NEAR(static_cast<double>(frame.llTimeStamp), times_[media][sample], 1.0) << media;
          }
        }
      }
    }
  }

  fs::path folder_;
  SampleStream video_, audio_, text_;
  Bytes closed_;
  LibavFile whole_;
  uint64_t mdat_ = 0;
  uint64_t mdat_end_ = 0;
  std::vector<Placed> frames_;
  std::map<uint32_t, std::vector<Bytes>> source_;
  std::vector<uint32_t> times_[4];  // by medium, milliseconds
};

TEST_P(Recovered, Whole_IsWhatTheChecksTakeForGood) {
  Complaints complaints;
  ASSERT_NO_FATAL_FAILURE(CheckPackets(Path("whole.mp4"), frames_));
  ASSERT_NO_FATAL_FAILURE(CheckDecoded(Path("whole.mp4"), frames_));
  ASSERT_NO_FATAL_FAILURE(CheckSeeks(Path("whole.mp4"), frames_));
}

TEST_P(Recovered, Cut_EveryCompleteFrameIsReadDecodedAndFound) {
  const size_t count = frames_.size();
  ASSERT_GT(count, 450u);
  const uint64_t lengths[] = {
      frames_[5].end,                       // behind a frame
      frames_[count / 5].position + 13,     // in a record
      frames_[count / 4].position + 28,     // behind one
      frames_[count / 3].end - 1,           // all but a byte
      frames_[count / 2].end + 4,           // behind a tag
      frames_[count * 3 / 4].end - 20,      //
      mdat_ + (mdat_end_ - mdat_) / 7 * 6,  // anywhere
      mdat_end_,                            // behind the last frame
  };
  for (const uint64_t length : lengths) {
    SCOPED_TRACE("cut to " + std::to_string(length));
    ASSERT_NO_FATAL_FAILURE(RecoverAndCheck(Cut(length), Within(length), true));
  }
}

TEST_P(Recovered, CutWhileItWasClosed_EveryFrameIsReadDecodedAndFound) {
  const uint64_t size = closed_.size();
  for (const uint64_t length : {mdat_end_ + 3, mdat_end_ + 90, (mdat_end_ + size) / 2, size - 1, size}) {
    SCOPED_TRACE("cut to " + std::to_string(length));
    ASSERT_NO_FATAL_FAILURE(RecoverAndCheck(Cut(length), frames_, true));
  }
}

// Decoders miss the frames that the sector touches, and get no other frame in part.
TEST_P(Recovered, LostSector_EveryFrameOutsideIsReadAndFound) {
  constexpr int kSectors = 9;
  for (int i = 1; i <= kSectors; ++i) {
    const uint64_t from = (mdat_ + (mdat_end_ - mdat_) / (kSectors + 1) * static_cast<uint64_t>(i)) / kSector * kSector;
    SCOPED_TRACE("zeros from " + std::to_string(from));
    Bytes damaged = Cut(mdat_end_);
    std::fill_n(damaged.begin() + static_cast<ptrdiff_t>(from), kSector, uint8_t{0});
    std::vector<Placed> outside;
    for (const Placed& frame : frames_) {
      if (frame.end <= from || frame.position >= from + kSector) outside.push_back(frame);
    }
    ASSERT_LT(outside.size(), frames_.size());
    ASSERT_NO_FATAL_FAILURE(RecoverAndCheck(damaged, outside, false));
  }
}

INSTANTIATE_TEST_SUITE_P(Samples, Recovered, testing::ValuesIn(kCases),
                         [](const auto& parameter) { return std::string(parameter.param.name); });

}  // namespace
}  // namespace zmv::test

// A recorder on a host whose storage medium keeps what is synced and nothing else for certain: at a power cut behind
// any write, of the later ones any sectors are there and any are not. Every frame in front of the last sync comes back.
#include <cstdlib>
#include <memory>
#include <random>

#include "facade/zmvstream_writer.h"
#include "recover/recover_mp4_scan.h"
#include "tests/recover/recovery_test.h"

namespace zmv::test {
namespace {

struct Host {
  uint8_t interleave;
  uint64_t presized;       // bytes of zeros that the file is made of in advance
  uint32_t writes_a_sync;  // the host syncs behind every so many writes; 0 = only when the file is closed
  uint32_t writes_a_cut;   // while it is recorded the power fails behind one in so many writes
};

class LostWrites : public RecoveryTest, public testing::WithParamInterface<Host> {
 protected:
  // Which sectors of the later writes are there.
  enum Loss {
    kNone,
    kAll,
    kAllButLastWrite,
    kLastOnes,
    kFirstOnes,
    kHalf,
    kSevenOfEight,
    kOneOfEight,
    kAnyAge,
    kLosses
  };

  static constexpr uint32_t kRecord = 28;
  static constexpr uint32_t kSeed = 7;

  // Through the writer facade; every write and sync of it goes to the medium.
  void RecordOnMedium() {
    const Host& host = GetParam();
    medium_ = std::make_unique<LogFile>(ByteVector(host.presized));
    uint32_t writes = 0;
    host_.presized = host.presized;
    host_.watch = [&](HostCall call, uint64_t position, const void* bytes, uint32_t count) {
      if (call == HostCall::kSync) {
        medium_->Sync();
        return;
      }
      medium_->WriteAt(position, bytes, count);
      if (host.writes_a_sync != 0 && ++writes % host.writes_a_sync == 0) medium_->Sync();
    };
    ZMVWriterParam param = {};
    param.dwFormat = ZMV_FORMAT_MP4;
    param.pszPath = "lost.mp4";
    param.bInterleave = host.interleave;
    param.llExpire = 1;  // tables of ten entries: all of them spill
    ZMVWriter* writer = nullptr;
    ASSERT_EQ(ZMVWriterOpen(&writer, &param), 0);
    srand(kSeed);
    ASSERT_EQ(ZMVWriterSetInfo(writer, &info_, 0), 0);
    ASSERT_EQ(ZMVWriterSetSync(writer, 1), 0);
    for (TestFrame& frame : frames_) {
      ZMVFrame written = {};
      written.pData = frame.payload.data();
      written.dwSize = static_cast<uint32_t>(frame.payload.size());
      written.llTimeStamp = frame.time;
      written.dwDuration = frame.duration;
      written.dwMediaType = frame.media;
      written.dwKeyFrame = frame.key ? ZMV_KEY_FRAME : ZMV_NOT_KEY_FRAME;
      ASSERT_EQ(ZMVWriterWrite(writer, &written), 0);
    }
    before_close_ = medium_->log().size();
    ZMVWriterClose(writer);
    host_.watch = {};
    host_.presized = 0;
    ASSERT_EQ(medium_->log().back().kind, LogFile::Kind::kSync);
    FindFrames();
  }

  // Where each frame lies in the file, by its record, from front to end. Spilled tables may lie within it.
  void FindFrames() {
    const ByteVector& file = medium_->bytes();
    auto at = file.begin();
    for (TestFrame& frame : frames_) {
      if (frame.media == ZMV_MEDIA_VIDEO) {
        const ByteVector length = Be32(static_cast<uint32_t>(frame.payload.size()) - 4);
        std::copy(length.begin(), length.end(), frame.payload.begin());
      }
      const uint32_t key = frame.media == ZMV_MEDIA_VIDEO && frame.key ? 1 : 0;
      const ByteVector record =
          Join({Text("RECO"), Be32(frame.media), Be32(key), Be32(static_cast<uint32_t>(frame.time)),
                Be32(frame.duration), Be32(frame.track), Be32(static_cast<uint32_t>(frame.payload.size()))});
      at = std::search(at, file.end(), record.begin(), record.end());
      ASSERT_NE(at, file.end());
      frame.position = static_cast<uint64_t>(at - file.begin());
      at = std::search(at + kRecord, file.end(), frame.payload.begin(), frame.payload.end());
      ASSERT_NE(at, file.end());
      at += static_cast<ptrdiff_t>(frame.payload.size());
      frame.end = static_cast<uint64_t>(at - file.begin());
    }
  }

  // What is on the medium behind the first `count` actions. A sector is there as it was at some moment, with all that
  // had been written to it by then.
  ByteVector Medium(size_t count, Loss loss, uint32_t salt) const {
    const auto draw = [&](uint64_t sector) { return std::mt19937(static_cast<uint32_t>(sector * 7919) ^ salt)() >> 8; };
    const uint64_t middle = draw(0) % (medium_->bytes().size() / 512 + 1);
    return medium_->After(count, [&](uint64_t sector, size_t action) {
      switch (loss) {
        case kNone:
          return false;
        case kAll:
          return true;
        case kAllButLastWrite:
          return action + 1 < count;
        case kLastOnes:
          return sector >= middle;
        case kFirstOnes:
          return sector < middle;
        case kHalf:
          return draw(sector) % 2 == 0;
        case kSevenOfEight:
          return draw(sector) % 8 != 0;
        case kOneOfEight:
          return draw(sector) % 8 == 0;
        default:
          return action + draw(sector) % 12 < count;
      }
    });
  }
  // All that was written before the last sync in front of action `count`.
  size_t SyncedFrames(size_t count) const {
    uint64_t written = 0, synced = 0;
    for (size_t i = 0; i < count; ++i) {
      const LogFile::Action& action = medium_->log()[i];
      if (action.kind == LogFile::Kind::kSync) synced = written;
      written = std::max<uint64_t>(written, action.position + action.bytes.size());
    }
    return static_cast<size_t>(
        std::count_if(frames_.begin(), frames_.end(), [&](const TestFrame& frame) { return frame.end <= synced; }));
  }

  // Without the first frames nothing tells that the 32 bits of the time stamps have wrapped: `wrapped`.
  static bool IsFrame(const recover::FoundFrame& found, const TestFrame& frame, bool wrapped) {
    const bool in_time = wrapped ? found.time == frame.time : static_cast<uint32_t>(found.time - frame.time) == 0;
    return in_time && found.position == frame.position && found.payload + found.size == frame.end &&
           found.media == frame.media && found.track == frame.track && found.size == frame.payload.size() &&
           found.duration == frame.duration && found.key == (frame.media == ZMV_MEDIA_VIDEO && frame.key);
  }
  // The payload as it was recorded, or with so few zeros in place of its bytes that they can be its own. Without the
  // description of its stream, sound can be PCM, which may hold any zeros.
  static bool MayPass(const recover::FoundFrame& found, const TestFrame& frame, bool described) {
    uint32_t zeros = 0;
    for (uint32_t i = 0; i < found.size; ++i) {
      if (found.bytes[i] == frame.payload[i]) continue;
      if (found.bytes[i] != 0) return false;
      ++zeros;
    }
    if (frame.media == ZMV_MEDIA_VIDEO) return zeros <= 3;
    return frame.media == ZMV_MEDIA_TEXT || !described || zeros <= 63;
  }
  // True when everything in front of the first frame is there; the size of the media data may be the old one.
  bool FrontIsThere(const ByteVector& medium) const {
    const uint64_t size = frames_[0].position;
    return medium.size() >= size &&
           std::equal(medium.begin(), medium.begin() + static_cast<ptrdiff_t>(size) - 8, medium_->bytes().begin());
  }

  // Words on what a scan of `medium` gives that it must not, or does not give of the first `must` frames.
  std::string Faults(const ByteVector& medium, size_t must) {
    LogFile file(medium);
    recover::Mp4Scan scan(file);
    const int32_t opened = scan.Open();
    if (opened != 0) return must == 0 ? "" : "cannot be opened";
    const bool described = FrontIsThere(medium);
    size_t next = 0;
    recover::FoundFrame found = {};
    while (scan.Next(found)) {
      const std::string place = "frame at " + std::to_string(found.position);
      while (next < frames_.size() && frames_[next].position < found.position) {
        if (next < must) return "frame " + std::to_string(next) + " was synced and is missing";
        ++next;
      }
      if (next == frames_.size() || !IsFrame(found, frames_[next], must != 0)) return place + " was not recorded";
      const TestFrame& frame = frames_[next];
      if (next < must && !std::equal(frame.payload.begin(), frame.payload.end(), found.bytes)) {
        return "frame " + std::to_string(next) + " was synced and has changed";
      }
      if (!MayPass(found, frame, described)) return place + " is not complete";
      ++next;
      delivered_ += next > must ? 1 : 0;
    }
    if (scan.Result() != 0) return "result " + std::to_string(scan.Result());
    return next < must ? "frame " + std::to_string(next) + " was synced and is missing" : "";
  }

  ZMVFileInfo info_ = SmallInfo(FourCC("H264"));
  std::vector<TestFrame> frames_ = SmallFrames();
  std::unique_ptr<LogFile> medium_;
  size_t before_close_ = 0;  // actions
  uint64_t delivered_ = 0;   // frames that were not synced and came back
};

TEST_P(LostWrites, EveryFrameBeforeTheLastSyncComesBack) {
  ASSERT_NO_FATAL_FAILURE(RecordOnMedium());
  const size_t actions = medium_->log().size();
  ASSERT_GT(actions, before_close_ + 20);
  ASSERT_EQ(SyncedFrames(actions), frames_.size());
  uint32_t salt = 0;
  for (size_t count = 0; count <= actions; count += count < before_close_ ? GetParam().writes_a_cut : 1) {
    const size_t must = SyncedFrames(count);
    uint64_t written = GetParam().presized;
    for (size_t i = 0; i < count; ++i) {
      written = std::max<uint64_t>(written, medium_->log()[i].position + medium_->log()[i].bytes.size());
    }
    for (int loss = kNone; loss < kLosses; ++loss) {
      ByteVector medium = Medium(count, static_cast<Loss>(loss), ++salt * 2654435761u);
      const std::string where = "behind action " + std::to_string(count) + " of " + std::to_string(actions) +
                                ", close from " + std::to_string(before_close_) + ", loss " + std::to_string(loss);
      ASSERT_EQ(Faults(medium, must), "") << where;
      // The length of the file is put down ahead of its bytes.
      if (medium.size() == written) continue;
      medium.resize(written);
      ASSERT_EQ(Faults(medium, must), "") << where << ", length put down";
    }
  }
  // Frames behind the sync that got there are not thrown away.
  EXPECT_GT(delivered_, actions);
}

// The whole way into a new file, for a few of the cuts.
TEST_P(LostWrites, ANewFileHoldsEveryFrameBeforeTheLastSync) {
  ASSERT_NO_FATAL_FAILURE(RecordOnMedium());
  const std::vector<TestFrame> given = SmallFrames();
  const size_t actions = medium_->log().size();
  for (size_t count = actions; count > 0; count -= std::min<size_t>(count, 17)) {
    const size_t must = SyncedFrames(count);
    if (must == 0) continue;
    for (const Loss loss : {kNone, kHalf}) {
      const ByteVector made = ToFile(Medium(count, loss, static_cast<uint32_t>(count)));
      ASSERT_EQ(result_, 0) << count;
      ASSERT_GE(report_.dwFrames, must) << count;
      if (report_.dwFrames != must) continue;
      ASSERT_EQ(CompareFrames(made, info_, given, must), "") << count << " loss " << loss;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Hosts, LostWrites,
                         testing::Values(Host{1, 0, 7, 1}, Host{0, 0, 7, 3}, Host{1, 0, 41, 3}, Host{0, 0, 41, 3},
                                         Host{1, 0, 0, 7}, Host{1, 60000, 7, 3}, Host{0, 60000, 7, 3},
                                         Host{1, 60000, 41, 3}, Host{0, 60000, 41, 1}, Host{1, 60000, 0, 7}));

}  // namespace
}  // namespace zmv::test

// Damaged AVI recordings: a lost sector loses the frames it touches, and nothing wrong is delivered.
#include <random>

#include "recover/recover_avi_scan.h"
#include "recover/recover_probe.h"
#include "tests/recover/avi_recovery_test.h"
#include "tests/recover/avi_shapes.h"
#include "tests/support/memory_file.h"

namespace zmv::test {
namespace {

constexpr uint64_t kSector = 512;

enum class Allow { kNothing, kUncompressed, kAnyMedium };

struct AviFound {
  uint64_t position;
  uint32_t media;
  uint32_t track;
  bool key;
  ByteVector bytes;
};

class AviDamage : public AviRecoveryTest {
 protected:
  std::vector<AviFound> Scan(ByteVector bytes) {
    StoredFile file(std::move(bytes));
    std::vector<AviFound> found;
    recover::AviScan scan(file);
    result_ = scan.Open(param_.pDescription);
    recover::FoundFrame frame;
    while (result_ == 0 && scan.Next(frame)) {
      found.push_back(
          {frame.position, frame.media, frame.track, frame.key, ByteVector(frame.bytes, frame.bytes + frame.size)});
    }
    if (result_ == 0) result_ = scan.Result();
    report_ = scan.Report();
    return found;
  }

  // Every untouched frame in order, and of the touched ones only those that cannot be told from sound ones: with their
  // own place and size.
  std::string OnlyTouchedAreLost(const std::vector<AviFound>& found, const std::vector<AviFrame>& frames, uint64_t from,
                                 uint64_t to, Allow allow) {
    if (result_ != 0) return "result " + std::to_string(result_);
    size_t next = 0;
    for (size_t i = 0; i < frames.size(); ++i) {
      const AviFrame& frame = frames[i];
      const std::string name = "frame " + std::to_string(i) + " at " + std::to_string(frame.position);
      const bool here = next < found.size() && found[next].position == frame.position;
      if (here) {
        const AviFound& one = found[next];
        if (one.media != frame.media || one.track != frame.track || one.bytes.size() != frame.payload.size()) {
          return name + " is another";
        }
      }
      if (frame.position >= to || frame.end <= from) {
        if (!here) return name + " is lost";
        if (found[next].bytes != frame.payload) return name + " is changed";
        if (frame.media == ZMV_MEDIA_VIDEO && found[next].key != frame.key) return name + " has another key flag";
      } else if (here) {
        const bool text = frame.media == ZMV_MEDIA_TEXT;
        const bool told = allow == Allow::kAnyMedium || (allow == Allow::kUncompressed && text);
        if (!told && found[next].bytes != frame.payload) return name + " is delivered";
      }
      if (here) ++next;
    }
    return next == found.size() ? ReportFaults(found, frames) : "invented at " + std::to_string(found[next].position);
  }

  // What is missing is reported, and no hole covers a frame that was found.
  std::string ReportFaults(const std::vector<AviFound>& found, const std::vector<AviFrame>& frames) const {
    const bool told = report_.dwHoles + report_.dwDropped != 0;
    if (found.size() < frames.size() && !told && report_.dwState != ZMV_RECOVER_CUT) return "nothing said of a loss";
    if (told && report_.dwState != ZMV_RECOVER_DAMAGED) return "state " + std::to_string(report_.dwState);
    uint64_t behind = 0;
    for (uint32_t i = 0; i < std::min(report_.dwHoles, ZMV_RECOVER_MAX_HOLES); ++i) {
      const ZMVRecoverHole& hole = report_.Hole[i];
      if (hole.llPosition < behind) return "holes overlap";
      behind = hole.llPosition + hole.llLength;
      if (behind > report_.llFileSize) return "a hole beyond the file";
      for (const AviFound& one : found) {
        if (one.position < behind && one.position + 8 + one.bytes.size() > hole.llPosition) return "a frame in a hole";
      }
    }
    return "";
  }

  // What is said to be described is described rightly. Without any help.
  std::string DescriptionFaults(const ByteVector& bytes, const ZMVFileInfo& info) {
    StoredFile file(bytes);
    recover::Finding finding = {};
    if (recover::ProbeFile(file, {}, finding) != 0) return "no report";
    const ZMVFileInfo& known = finding.info;
    for (uint32_t i = 0; i < finding.report.dwStreamCount; ++i) {
      const ZMVRecoverStream& stream = finding.report.Stream[i];
      if (stream.bDescribed == 0) continue;
      const bool right = stream.dwMediaType == ZMV_MEDIA_VIDEO
                             ? IsSame(known.m_Video[stream.dwTrack], info.m_Video[stream.dwTrack])
                         : stream.dwMediaType == ZMV_MEDIA_AUDIO ? IsSame(known.m_Audio, info.m_Audio)
                                                                 : IsSame(known.m_Text[stream.dwTrack], info.m_Text[0]);
      if (!right) return "stream " + std::to_string(i) + " is described wrongly";
    }
    return "";
  }
  // H.264 has no configuration in these files.
  static bool IsSame(const ZMVVideoInfo& a, const ZMVVideoInfo& b) {
    const uint32_t extra = b.dwFourCC == FourCC("H265") ? b.dwExtraDataSize : 0;
    return a.dwFourCC == b.dwFourCC && a.dwWidth == b.dwWidth && a.dwHeight == b.dwHeight &&
           a.dwFrameRate == b.dwFrameRate && a.dwPriority == b.dwPriority &&
           std::equal(b.abExtraData, b.abExtraData + extra, a.abExtraData);
  }
  static bool IsSame(const ZMVAudioInfo& a, const ZMVAudioInfo& b) {
    return a.dwFormat == b.dwFormat && a.dwSampleRate == b.dwSampleRate && a.dwChannels == b.dwChannels &&
           a.dwBitRate == b.dwBitRate && std::equal(b.abExtraData, b.abExtraData + b.dwExtraDataSize, a.abExtraData);
  }
  static bool IsSame(const ZMVTextInfo& a, const ZMVTextInfo& b) {
    return a.dwFourCC == b.dwFourCC && a.dwRate == b.dwRate;
  }

  const ZMVFileInfo given_ = AviInfo();

  AviRecording Mixed(uint32_t seed, uint32_t rounds = 24) {
    std::mt19937 random(seed);
    std::vector<AviFrame> frames;
    for (uint32_t i = 0; i < rounds; ++i) {
      const bool key = i % 4 == 0;
      frames.push_back({ZMV_MEDIA_VIDEO, 0, 40 * i, 40, key,
                        Picture(FourCC("H264"), key, seed * 1000 + i, 25 + random() % (key ? 4000 : 300))});
      frames.push_back({ZMV_MEDIA_AUDIO, 0, 40 * i, 40, true, AviNoise(seed * 1000 + 300 + i, 1 + random() % 300)});
      ByteVector text = AviNoise(seed * 1000 + 600 + i, 90 + random() % 20);
      for (size_t k = 0; k < text.size(); k += 2) text[k] = 0;
      frames.push_back({ZMV_MEDIA_TEXT, 0, 40 * i, 40, true, text});
    }
    return RecordAvi(AviInfo(), frames);
  }

  static void Fill(ByteVector& bytes, uint64_t from, uint64_t to, std::mt19937* noise) {
    for (uint64_t i = from; i < to; ++i) bytes[i] = noise != nullptr ? static_cast<uint8_t>((*noise)()) : uint8_t{0};
  }
};

TEST_F(AviDamage, AnySectorBehindTheFront_LosesOnlyTheFramesItTouches) {
  for (uint32_t seed = 1; seed <= 60; ++seed) {
    const AviRecording recording = Mixed(seed);
    std::mt19937 noise(seed);
    for (const bool zeros : {true, false}) {
      for (const ByteVector* whole : {&recording.open, &recording.closed}) {
        for (uint64_t from = recording.FirstChunk() / kSector * kSector + kSector; from < whole->size();
             from += kSector) {
          const uint64_t to = std::min<uint64_t>(from + kSector, whole->size());
          ByteVector bytes = *whole;
          Fill(bytes, from, to, zeros ? nullptr : &noise);
          ASSERT_EQ(OnlyTouchedAreLost(Scan(bytes), recording.frames, from, to,
                                       zeros ? Allow::kUncompressed : Allow::kAnyMedium),
                    "")
              << "seed " << seed << " sector at " << from << (zeros ? " of zeros" : " of noise")
              << (whole == &recording.open ? ", open" : ", closed");
        }
      }
    }
  }
}

// Behind headers of an odd size a payload ends with a sector and its pad byte begins the next one.
TEST_F(AviDamage, SectorThatBeginsWithAPadByte_LosesNoFrameInFrontOfIt) {
  const auto record = [](size_t first, size_t second) {
    return RecordAvi(AviInfo(), {{ZMV_MEDIA_VIDEO, 0, 0, 40, true, Picture(FourCC("H264"), true, 1, first)},
                                 {ZMV_MEDIA_VIDEO, 0, 40, 40, false, Picture(FourCC("H264"), false, 2, second)},
                                 {ZMV_MEDIA_VIDEO, 0, 80, 40, false, Picture(FourCC("H264"), false, 3, 900)},
                                 {ZMV_MEDIA_VIDEO, 0, 120, 40, false, Picture(FourCC("H264"), false, 4, 90)}});
  };
  constexpr size_t kFirst = 600;
  const uint64_t begin = record(kFirst, 9).FirstChunk();
  ASSERT_EQ(begin % 2, 1u) << "the headers have an even size";
  // The second header lies in two sectors.
  const size_t first = kFirst + static_cast<size_t>((kSector + 507 - (begin + 8 + kFirst) % kSector) % kSector);
  const AviRecording recording = record(first, 2 * kSector - 3);
  const uint64_t from = recording.frames[1].end;
  ASSERT_EQ(recording.frames[1].position % kSector, 507u);
  ASSERT_EQ(from % kSector, 0u);
  for (const uint8_t byte : {uint8_t{0}, uint8_t{0xEE}}) {
    ByteVector bytes = recording.closed;
    std::fill_n(bytes.begin() + static_cast<ptrdiff_t>(from), kSector, byte);
    EXPECT_EQ(OnlyTouchedAreLost(Scan(bytes), recording.frames, from, from + kSector, Allow::kNothing), "");
  }
}

TEST_F(AviDamage, EveryShape_AnySectorLosesOnlyTheFramesItTouches) {
  for (const AviShape& shape : RegularAviShapes()) {
    for (uint32_t seed = 1; seed <= 4; ++seed) {
      std::mt19937 noise(seed);
      std::vector<AviFrame> frames = shape.frames;
      // Every seed puts other bytes into a sector.
      frames.front().payload = Picture(FourCC("H264"), false, seed, 40 + noise() % 500);
      frames.front().key = frames.front().media != ZMV_MEDIA_VIDEO || shape.info.m_Video[0].dwFourCC == FourCC("MJPG");
      const AviRecording recording = RecordAvi(shape.info, frames);
      for (const bool zeros : {true, false}) {
        for (const ByteVector* whole : {&recording.open, &recording.closed}) {
          for (uint64_t from = recording.FirstChunk() / kSector * kSector + kSector; from < whole->size();
               from += kSector) {
            const uint64_t to = std::min<uint64_t>(from + kSector, whole->size());
            ByteVector bytes = *whole;
            Fill(bytes, from, to, zeros ? nullptr : &noise);
            ASSERT_EQ(OnlyTouchedAreLost(Scan(bytes), recording.frames, from, to, Allow::kAnyMedium), "")
                << shape.name << " seed " << seed << " sector at " << from << (zeros ? " of zeros" : " of noise")
                << (whole == &recording.open ? ", open" : ", closed");
          }
        }
      }
    }
  }
}

TEST_F(AviDamage, EveryShape_AnySectorOfTheFrontIsSurvivedAndKnown) {
  for (const AviShape& shape : RegularAviShapes()) {
    param_.pDescription = &shape.info;
    for (uint32_t seed = 1; seed <= 8; ++seed) {
      std::mt19937 noise(seed);
      ZMVFileInfo info = shape.info;
      // Every seed puts other bytes into a sector.
      std::string name(noise() % 500, 'n');
      info.pStreamName = name.data();
      const AviRecording recording = RecordAvi(info, shape.frames);
      for (const bool zeros : {true, false}) {
        for (const ByteVector* whole : {&recording.open, &recording.closed}) {
          for (uint64_t from = 0; from <= recording.FirstChunk(); from += kSector) {
            ByteVector bytes = *whole;
            Fill(bytes, from, from + kSector, zeros ? nullptr : &noise);
            const std::string where = shape.name + " seed " + std::to_string(seed) + " sector at " +
                                      std::to_string(from) + (zeros ? " of zeros" : " of noise");
            ASSERT_EQ(OnlyTouchedAreLost(Scan(bytes), recording.frames, from, from + kSector, Allow::kAnyMedium), "")
                << where;
            ASSERT_EQ(DescriptionFaults(bytes, info), "") << where;
          }
        }
      }
    }
  }
}

// With the streams given, what stands behind lost headers comes back as if they were there.
TEST_F(AviDamage, AnySectorOfTheFront_LosesNoFrameBehindIt) {
  param_.pDescription = &given_;
  for (uint32_t seed = 1; seed <= 30; ++seed) {
    const AviRecording recording = Mixed(seed, 8);
    std::mt19937 noise(seed);
    for (const bool zeros : {true, false}) {
      for (uint64_t from = 0; from <= recording.FirstChunk(); from += kSector) {
        ByteVector bytes = recording.open;
        Fill(bytes, from, from + kSector, zeros ? nullptr : &noise);
        ASSERT_EQ(OnlyTouchedAreLost(Scan(bytes), recording.frames, from, from + kSector,
                                     zeros ? Allow::kUncompressed : Allow::kAnyMedium),
                  "")
            << "seed " << seed << " sector at " << from << (zeros ? " of zeros" : " of noise");
        const ByteVector before = bytes;
        InPlace(bytes);
        if (report_.dwState == ZMV_RECOVER_DAMAGED) {
          EXPECT_EQ(ToFile(bytes).empty(), false) << from;
        }
      }
    }
  }
}

TEST_F(AviDamage, LostFront_IsDescribedPlainlyOrByTheCaller) {
  const AviRecording recording = RecordAvi(AviInfo(), AviFrames());
  ByteVector bytes = recording.open;
  Fill(bytes, 0, kSector, nullptr);
  const ByteVector plain = ToFile(bytes);
  ASSERT_EQ(result_, 0);
  EXPECT_EQ(CompareAvi(plain, AviInfo(), recording.frames), "");
  EXPECT_EQ(report_.dwState, ZMV_RECOVER_DAMAGED);
  EXPECT_EQ(report_.bCanInPlace, 0);
  for (uint32_t i = 0; i < report_.dwStreamCount; ++i) EXPECT_EQ(report_.Stream[i].bDescribed, 0);
  LogFile file(bytes);
  EXPECT_EQ(recover::RecoverInPlace(file, param_, report_), Result(ZMV_E_NOT_SUPPORTED));
  EXPECT_TRUE(file.log().empty());

  param_.pDescription = &given_;
  const ByteVector described = ToFile(bytes);
  EXPECT_EQ(CompareAvi(described, AviInfo(), recording.frames), "");
  const auto video = FindCode(described, "vids");
  EXPECT_EQ(LoadLE32(&video[24]), 25000u);
}

// In place the damaged stretch stays where it is; the index leads past it.
TEST_F(AviDamage, InPlaceAndToFile_HoldTheSameFrames) {
  const AviRecording recording = RecordAvi(AviInfo(), AviFrames());
  std::mt19937 noise(3);
  for (uint64_t from = recording.FirstChunk() / kSector * kSector + kSector; from + 1500 < recording.open.size();
       from += kSector) {
    ByteVector bytes = recording.open;
    Fill(bytes, from, from + kSector, nullptr);
    std::vector<AviFrame> frames;
    for (const AviFound& found : Scan(bytes)) {
      const auto frame = std::find_if(recording.frames.begin(), recording.frames.end(),
                                      [&](const AviFrame& one) { return one.position == found.position; });
      ASSERT_NE(frame, recording.frames.end());
      frames.push_back(*frame);
      frames.back().payload = found.bytes;
    }
    ASSERT_LT(frames.size(), recording.frames.size());
    EXPECT_EQ(CompareAvi(InPlace(bytes), AviInfo(), frames, false), "") << from;
    EXPECT_EQ(report_.dwState, ZMV_RECOVER_DAMAGED);
    EXPECT_EQ(CompareAvi(ToFile(bytes), AviInfo(), frames), "") << from;
  }
}

TEST_F(AviDamage, LostRun_IsAHoleWithItsPlaceAndLength) {
  const AviRecording recording = Mixed(2);
  const uint64_t from = (recording.frames[15].position / kSector + 1) * kSector;
  const uint64_t to = from + 4 * kSector;
  ByteVector bytes = recording.open;
  std::fill(bytes.begin() + static_cast<ptrdiff_t>(from), bytes.begin() + static_cast<ptrdiff_t>(to), uint8_t{0xEE});
  Scan(bytes);
  ASSERT_EQ(report_.dwHoles, 1u);
  EXPECT_GE(report_.Hole[0].llPosition + kSector, from);
  EXPECT_LE(report_.Hole[0].llPosition, to);
  EXPECT_GE(report_.Hole[0].llPosition + report_.Hole[0].llLength, to);
  EXPECT_EQ(report_.llHoleBytes, report_.Hole[0].llLength);
}

// A closed recording that is damaged is not closed once more.
TEST_F(AviDamage, ClosedAndDamaged_IsLeftAloneInPlace) {
  const AviRecording recording = RecordAvi(AviInfo(), AviFrames());
  ByteVector bytes = recording.closed;
  const uint64_t from = (recording.FirstChunk() / kSector + 2) * kSector;
  Fill(bytes, from, from + kSector, nullptr);
  LogFile file(bytes);
  EXPECT_EQ(recover::RecoverInPlace(file, param_, report_), 0);
  EXPECT_EQ(report_.dwState, ZMV_RECOVER_DAMAGED);
  EXPECT_TRUE(file.log().empty());
}

TEST_F(AviDamage, RandomFiles_EndWithoutAFault) {
  const AviRecording recording = Mixed(9, 6);
  std::mt19937 random(11);
  for (int i = 0; i < 3000; ++i) {
    ByteVector bytes = recording.closed;
    for (uint32_t k = 0; k < 1 + random() % 12; ++k) bytes[random() % bytes.size()] = static_cast<uint8_t>(random());
    if (random() % 3 == 0) bytes.resize(random() % bytes.size());
    ToFile(bytes);
    const ByteVector completed = InPlace(bytes);
    if (result_ == 0 && report_.dwState != ZMV_RECOVER_FOREIGN) {
      const uint32_t frames = report_.dwFrames;
      InPlace(completed);
      ASSERT_EQ(report_.dwFrames, frames) << i;
    }
  }
}

}  // namespace
}  // namespace zmv::test

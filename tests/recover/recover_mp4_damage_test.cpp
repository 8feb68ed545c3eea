// Damaged recordings: a lost sector loses the frames it touches, and nothing wrong is delivered.
#include "tests/recover/mp4_damage.h"
#include "tests/recover/recover_test.h"

namespace zmv::test {
namespace {

using ::testing::Contains;

class Mp4Damage : public RecoverTest {};

// Frames of up to a few sectors, many of them small.
struct Mixed {
  ByteVector file;
  std::vector<StoredFrame> frames;

  explicit Mixed(uint32_t seed, uint32_t rounds = 30, const ZMVFileInfo& info = SmallInfo()) {
    FrameLog log(info, 1);
    Noise noise(seed);
    for (uint32_t i = 0; i < rounds; ++i) {
      const uint64_t time = 1000 * i;
      log.Write(ZMV_MEDIA_VIDEO, noise.Video(4 + noise.Number(i % 4 == 0 ? 4000 : 300)), time, 1000000, i % 4 == 0);
      log.Write(ZMV_MEDIA_AUDIO, noise.Compressed(1 + noise.Number(300)), time, 1000);
      log.Write(ZMV_MEDIA_TEXT, noise.Text(92 + noise.Number(20)), time, 1000);
    }
    file = log.Finish();
    frames = log.frames();
  }
  size_t DataStart() const { return frames.front().position; }
};

TEST_F(Mp4Damage, AnySectorOfZeros_LosesOnlyTheFramesItTouches) {
  for (uint32_t seed = 1; seed <= 30; ++seed) {
    const Mixed mixed(seed);
    for (size_t from = mixed.DataStart() / kSector * kSector; from < mixed.file.size(); from += kSector) {
      const size_t to = std::min(from + kSector, mixed.file.size());
      ByteVector bytes = mixed.file;
      std::fill(bytes.begin() + static_cast<ptrdiff_t>(from), bytes.begin() + static_cast<ptrdiff_t>(to), 0);
      ExpectLosesOnlyTouched(ScanBytes(std::move(bytes)), mixed.frames, from, to, Allow::kUncompressed);
      if (HasFatalFailure()) return;
    }
  }
}

// The front ends anywhere, so that its last box can begin in one sector and end in the one with the media header.
TEST_F(Mp4Damage, SectorWithTheMediaHeader_LosesOnlyTheFramesItTouches) {
  uint32_t straddling = 0;
  for (uint32_t more = 0; more < 450; ++more) {
    ZMVFileInfo info = SmallInfo();
    std::fill_n(info.m_Video[0].abExtraData + info.m_Video[0].dwExtraDataSize, more, uint8_t{0xAA});
    info.m_Video[0].dwExtraDataSize += more;
    const Mixed mixed(1, 6, info);
    const size_t media = mixed.DataStart() - 8;
    const size_t from = media / kSector * kSector;
    if (from == 0) continue;  // the descriptions would be lost as well
    if (media - from < 23) ++straddling;
    const size_t to = std::min(from + kSector, mixed.file.size());
    ByteVector bytes = mixed.file;
    std::fill(bytes.begin() + static_cast<ptrdiff_t>(from), bytes.begin() + static_cast<ptrdiff_t>(to), 0);
    ExpectLosesOnlyTouched(ScanBytes(std::move(bytes)), mixed.frames, from, to, Allow::kUncompressed);
    if (HasFatalFailure()) return;
  }
  EXPECT_GT(straddling, 5u);
}

TEST_F(Mp4Damage, AnySectorOfNoise_LosesOnlyTheFramesItTouches) {
  for (uint32_t seed = 1; seed <= 100; ++seed) {
    const Mixed mixed(seed % 100 + 1);
    Noise noise(1000 + seed);
    for (size_t from = mixed.DataStart() / kSector * kSector; from < mixed.file.size(); from += kSector) {
      const size_t to = std::min(from + kSector, mixed.file.size());
      ByteVector bytes = mixed.file;
      for (size_t i = from; i < to; ++i) bytes[i] = noise.Byte();
      ExpectLosesOnlyTouched(ScanBytes(std::move(bytes)), mixed.frames, from, to, Allow::kAnyMedium);
      if (HasFatalFailure()) return;
    }
  }
}

TEST_F(Mp4Damage, AnySectorOfACutRecording_LosesOnlyTheFramesItTouches) {
  const SmallRecording recording(4, 12);
  const ByteVector whole = recording.Unclosed();
  Noise noise(5);
  for (bool zeros : {true, false}) {
    for (size_t cut = whole.size() - 700; cut <= whole.size(); cut += 37) {
      std::vector<StoredFrame> frames = recording.frames;
      std::erase_if(frames, [cut](const StoredFrame& frame) { return frame.End() > cut; });
      for (size_t from = recording.frames.front().position / kSector * kSector; from < cut; from += kSector) {
        const size_t to = std::min(from + kSector, cut);
        ByteVector bytes(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(cut));
        for (size_t i = from; i < to; ++i) bytes[i] = zeros ? 0 : noise.Byte();
        ExpectLosesOnlyTouched(ScanBytes(std::move(bytes)), frames, from, to,
                               zeros ? Allow::kUncompressed : Allow::kAnyMedium);
        if (HasFatalFailure()) return;
      }
    }
  }
}

// Space was taken in advance: a wrong size leads into it, over the last frames.
TEST_F(Mp4Damage, SectorWithAWrongSizeInFrontOfUnwrittenSpace_LosesOnlyTheFramesItTouches) {
  uint32_t sizes = 0;
  for (uint32_t first = 100; first < 100 + kSector; ++first) {
    FrameLog log(SmallInfo());
    Noise noise(first);
    for (uint32_t i = 0; i < 12; ++i) log.Write(ZMV_MEDIA_AUDIO, noise.Compressed(i == 0 ? first : 300), 21 * i, 21);
    ByteVector whole = log.Finish();
    const StoredFrame& frame = log.frames()[3];
    const size_t from = frame.payload / kSector * kSector;
    if (frame.payload - from == 0 || frame.payload - from > 4) continue;  // its size lies in one sector
    ++sizes;
    whole.resize(log.frames().back().End());
    StoreBE32(&whole[log.frames().front().position - 8], 8);
    ByteVector bytes = Join({WithSector(whole, from, [] { return uint8_t{0xEE}; }), Zeros(100000)});
    ExpectLosesOnlyTouched(ScanBytes(std::move(bytes)), log.frames(), from, from + kSector, Allow::kAnyMedium);
    if (HasFatalFailure()) return;
  }
  EXPECT_EQ(sizes, 4u);
}

// The rest of a sector never reached the medium, later ones did: what was put down ends within a record. The frame in
// front of it, whose own record lies in two sectors, is complete.
TEST_F(Mp4Damage, RestOfASectorThatWasNotWritten_LosesNoFrameInFrontOfIt) {
  uint32_t tried = 0;
  for (uint32_t first = 100; first < 100 + kSector; ++first) {
    FrameLog log(SmallInfo());
    Noise noise(first);
    for (uint32_t i = 0; i < 8; ++i) log.Write(ZMV_MEDIA_AUDIO, noise.Compressed(i == 0 ? first : 300), 21 * i, 21);
    const ByteVector file = log.Finish();
    const StoredFrame& frame = log.frames()[3];
    if (frame.payload / kSector == frame.position / kSector || frame.payload % kSector == 0) continue;
    const size_t next = frame.End();
    const size_t to = next / kSector * kSector + kSector;
    for (size_t from = next + 1; from < next + 28; ++from, ++tried) {
      ByteVector bytes = file;
      std::fill(bytes.begin() + static_cast<ptrdiff_t>(from), bytes.begin() + static_cast<ptrdiff_t>(to), 0);
      ExpectLosesOnlyTouched(ScanBytes(std::move(bytes)), log.frames(), from, to, Allow::kNothing);
      if (HasFatalFailure()) return;
    }
  }
  EXPECT_EQ(tried, 27u * 27u);
}

// The header of the box behind the last frame lies in two sectors, as that frame's record does: where the media data
// ends bears the record out.
TEST_F(Mp4Damage, SectorBehindTheMediaData_LosesNoFrame) {
  constexpr uint32_t kFirst = 600;
  const auto record = [](uint32_t first, uint32_t last, std::vector<StoredFrame>& frames) {
    FrameLog log(SmallInfo());
    Noise noise(22);
    log.Write(ZMV_MEDIA_AUDIO, noise.Compressed(first), 0, 21);
    log.Write(ZMV_MEDIA_AUDIO, noise.Compressed(last), 21, 21);
    ByteVector file = log.Finish();
    frames = log.frames();
    return file;
  };
  std::vector<StoredFrame> frames;
  record(kFirst, 1, frames);
  const size_t other = frames[1].position % kSector;
  for (uint32_t left = 1; left < 8; ++left) {
    const uint32_t first = kFirst + static_cast<uint32_t>((kSector + 500 - other) % kSector);
    const ByteVector file = record(first, 2 * kSector - (500 + 28) + kSector - left, frames);
    const size_t end = frames[1].End();
    ASSERT_EQ(frames[1].position % kSector, 500u);
    ASSERT_EQ(end % kSector, kSector - left);
    for (const uint8_t byte : {uint8_t{0}, uint8_t{0xEE}}) {
      ByteVector bytes = WithSector(file, end + left, [byte] { return byte; });
      ExpectLosesOnlyTouched(ScanBytes(std::move(bytes)), frames, end + left, end + left + kSector, Allow::kNothing);
      if (HasFatalFailure()) return;
    }
  }
}

// The frames between two lost sectors are borne out by nothing but themselves.
TEST_F(Mp4Damage, TwoSectors_LoseOnlyTheFramesTheyTouch) {
  for (uint32_t seed = 1; seed <= 40; ++seed) {
    const Mixed mixed(seed);
    const size_t start = mixed.DataStart() / kSector * kSector + kSector;
    for (size_t from = start; from + 4 * kSector < mixed.frames.back().position; from += kSector) {
      const size_t second = from + (2 + seed % 2) * kSector;
      Noise noise(seed);
      const auto byte = [&]() { return seed % 3 == 0 ? uint8_t{0} : noise.Byte(); };
      const Found found = ScanBytes(WithSector(WithSector(mixed.file, from, byte), second, byte));
      for (const StoredFrame& frame : mixed.frames) {
        if (Touches(frame, from, from + kSector) || Touches(frame, second, second + kSector)) continue;
        ASSERT_THAT(found.frames, Contains(frame)) << "sectors at " << from << " and " << second;
      }
    }
  }
}

// Of a size only the last byte lies in a sector that reads as ones, which leads to the end of that sector.
TEST_F(Mp4Damage, ErasedSectorBehindARecord_MakesNoSize) {
  uint32_t straddling = 0;
  for (uint32_t first = 1; first <= kSector; ++first) {
    FrameLog log(SmallInfo());
    Noise noise(first);
    for (uint32_t i = 0; i < 4; ++i) {
      log.Write(ZMV_MEDIA_AUDIO, noise.Compressed(i == 0 ? first : 300 + i), 20 * i, 20);
    }
    const ByteVector file = log.Finish();
    const size_t sector = log.frames()[1].position + 27;
    if (sector % kSector != 0) continue;
    ++straddling;
    ExpectLosesOnlyTouched(ScanBytes(WithSector(file, sector, []() { return uint8_t{0xFF}; })), log.frames(), sector,
                           sector + kSector, Allow::kAnyMedium);
  }
  EXPECT_EQ(straddling, 1u);
}

// Behind the last frame as well as behind a table that closing has spilled.
TEST_F(Mp4Damage, LostIndexOfAClosedRecording_IsNoHoleInItsMedia) {
  uint32_t spilled = 0;
  for (uint32_t rounds = 5; rounds < 30; ++rounds) {
    const SmallRecording recording(1, rounds);
    if (recording.frames.back().End() < recording.MdatEnd()) ++spilled;
    ByteVector bytes = recording.file;
    std::fill(bytes.begin() + static_cast<ptrdiff_t>(recording.MdatEnd()), bytes.end(), 0xEE);
    const Found found = ScanBytes(std::move(bytes));
    ASSERT_EQ(found.report.dwHoles, 0u) << rounds;
    // Of the last frame the end may lie in the lost sector.
    ASSERT_GE(found.frames.size() + 1, recording.frames.size()) << rounds;
  }
  EXPECT_GT(spilled, 0u);
}

// The header of the media data begins in the lost sector and ends in the next one.
TEST_F(Mp4Damage, LostSizeOfTheMediaData_LosesNoFrames) {
  uint32_t straddling = 0;
  for (uint32_t more = 0; more < kSector; ++more) {
    ZMVFileInfo info = SmallInfo();
    info.m_Video[0].dwExtraDataSize = more;
    const Mixed mixed(1, 6, info);
    const size_t media = mixed.DataStart() - 8;
    if (media % kSector != kSector - 4) continue;
    ++straddling;
    const size_t from = media / kSector * kSector;
    ByteVector bytes = WithSector(mixed.file, from, []() { return uint8_t{0xEE}; });
    StoreBE32(&bytes[media], 600);
    const size_t lost = (mixed.frames[9].position / kSector + 1) * kSector;
    bytes = WithSector(bytes, lost, []() { return uint8_t{0xEE}; });
    ExpectLosesOnlyTouched(ScanBytes(std::move(bytes)), mixed.frames, lost, lost + kSector, Allow::kAnyMedium);
  }
  EXPECT_GT(straddling, 0u);
}

// The power fails while the size is set that lies in two sectors: one of them is written.
TEST_F(Mp4Damage, HalfSetSizeOfTheMediaData_LosesNoFrames) {
  uint32_t halves = 0;
  for (uint32_t more = 0; more < kSector; ++more) {
    ZMVFileInfo info = SmallInfo();
    info.m_Video[0].dwExtraDataSize = more;
    const Mixed mixed(1, 6, info);
    const size_t media = mixed.DataStart() - 8;
    if (media % kSector <= kSector - 4) continue;
    const uint32_t set = NumberAt(mixed.file, media);
    const uint32_t second = (1u << 8 * (media % kSector - (kSector - 4))) - 1;
    const size_t lost = (mixed.frames[9].position / kSector + 1) * kSector;
    for (uint32_t size : {set & second, (set & ~second) | 8}) {
      if (size <= 8) continue;
      ++halves;
      ByteVector bytes = WithSector(mixed.file, lost, []() { return uint8_t{0xEE}; });
      StoreBE32(&bytes[media], size);
      ExpectLosesOnlyTouched(ScanBytes(std::move(bytes)), mixed.frames, lost, lost + kSector, Allow::kAnyMedium);
    }
  }
  EXPECT_GT(halves, 2u);
}

TEST_F(Mp4Damage, LostRun_IsAHoleWithItsPlaceAndLength) {
  const Mixed mixed(2);
  const size_t from = (mixed.frames[30].position + kSector) / kSector * kSector;
  const size_t to = from + 4 * kSector;
  ByteVector bytes = mixed.file;
  std::fill(bytes.begin() + static_cast<ptrdiff_t>(from), bytes.begin() + static_cast<ptrdiff_t>(to), 0xEE);
  const Found found = ScanBytes(std::move(bytes));
  // The last frame in front of the damage, and the first one behind it.
  uint64_t hole = 0;
  uint64_t end = 0;
  for (const StoredFrame& frame : mixed.frames) {
    if (frame.End() <= from) hole = frame.End();
    if (frame.position >= to && end == 0) end = frame.position;
  }
  ASSERT_EQ(found.report.dwHoles, 1u);
  EXPECT_EQ(found.report.dwState, ZMV_RECOVER_DAMAGED);
  EXPECT_GE(found.report.Hole[0].llPosition, hole);
  EXPECT_LE(found.report.Hole[0].llPosition, to);
  EXPECT_EQ(found.report.Hole[0].llPosition + found.report.Hole[0].llLength, end);
  EXPECT_EQ(found.report.llHoleBytes, found.report.Hole[0].llLength);
}

TEST_F(Mp4Damage, MoreHolesThanAreListed_AreCounted) {
  FrameLog log(SmallInfo(), 1);
  Noise noise(9);
  for (uint32_t i = 0; i < 300; ++i) log.Write(ZMV_MEDIA_VIDEO, noise.Video(484), 33 * i, 33333, i == 0);
  ByteVector bytes = log.Finish();
  // Every third record loses its tag and, with what stands in front of it, its neighbour's end.
  uint32_t damaged = 0;
  for (size_t i = 2; i + 1 < log.frames().size(); i += 3, ++damaged) bytes[log.frames()[i].position] = 'X';
  const Found found = ScanBytes(std::move(bytes));
  EXPECT_EQ(found.report.dwHoles, damaged);
  EXPECT_GT(damaged, ZMV_RECOVER_MAX_HOLES);
  uint64_t listed = 0;
  for (const ZMVRecoverHole& hole : found.report.Hole) listed += hole.llLength;
  EXPECT_GT(found.report.llHoleBytes, listed);
}

TEST_F(Mp4Damage, WrongSize_IsNotFollowedBeyondTheNextFrame) {
  const Mixed mixed(3);
  for (size_t i : {10u, 11u, 12u}) {
    ByteVector bytes = mixed.file;
    const StoredFrame& frame = mixed.frames[i];
    const auto size = static_cast<uint32_t>(frame.bytes.size());
    StoreBE32(&bytes[frame.position + 24], size + 2000);
    ExpectLosesOnlyTouched(ScanBytes(std::move(bytes)), mixed.frames, frame.position, frame.End(), Allow::kNothing);
    if (HasFatalFailure()) return;
  }
}

TEST_F(Mp4Damage, LostTail_GivesTheFramesInFrontOfIt) {
  const Mixed mixed(4);
  const size_t from = (mixed.frames[40].position + kSector) / kSector * kSector;
  const size_t end = mixed.frames.back().End();
  ByteVector bytes = mixed.file;
  for (size_t i = from; i < end; ++i) bytes[i] = static_cast<uint8_t>(i * 7);
  const Found found = ScanBytes(std::move(bytes));
  ExpectLosesOnlyTouched(found, mixed.frames, from, end, Allow::kNothing);
  // The recording was closed, so it is known that frames are missing.
  EXPECT_EQ(found.report.dwState, ZMV_RECOVER_DAMAGED);
  EXPECT_EQ(found.report.dwHoles, 1u);
}

}  // namespace
}  // namespace zmv::test

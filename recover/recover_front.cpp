#include "recover/recover_front.h"

#include <algorithm>
#include <cstring>

#include "base/byte_order.h"
#include "base/fourcc.h"
#include "mp4/zmv_mp4_format.h"
#include "platform/zmv_codec.h"
#include "recover/recover_module.h"
#include "recover/recover_records.h"

namespace zmv::recover {
namespace {

// No front is longer: ten descriptions with full configurations, the random box, and the small ones.
constexpr uint64_t kFrontLimit = 8192;

constexpr uint32_t kFileTypeSize = 28;
constexpr uint32_t kTextBoxSize = 32;
constexpr uint32_t kStreamBoxSize = 44;  // video and audio, without the configuration
constexpr uint32_t kRandomStep = 32;
constexpr uint32_t kMaxRandomSize = 1024 + kRandomStep;
constexpr uint32_t kMaxBuildText = 19;
// The software for which the random box says "rcvf".
constexpr char kRecoveryBrand[] = "Recovery";
// The writer makes tables for the rates that a description states: one that no camera has says nothing.
constexpr uint32_t kMaxFrameRate = 10'000'000;  // thousandths
constexpr uint32_t kMaxSampleRate = 10'000'000;
constexpr uint32_t kMaxSampleBits = 64;
constexpr char kBuildMark[] = {' ', 'K', 'P', 'Z'};

// Where the fields of a description stand.
constexpr uint32_t kTag = 8;
constexpr uint32_t kReserved = 12;
constexpr uint32_t kCode = 16;
constexpr uint32_t kFirst = 20;  // width; channels; rate of text
constexpr uint32_t kSecond = 24;
constexpr uint32_t kThird = 28;
constexpr uint32_t kBitRate = 32;
constexpr uint32_t kScale = 36;
constexpr uint32_t kConfigSize = 40;

enum class Kind : uint8_t { kNone, kCut, kFileType, kVideo, kAudio, kText, kRandom, kBuild, kMedia };

struct FrontBox {
  Kind kind;
  uint32_t size;
};

uint32_t FrameRate(uint32_t stated) { return stated <= kMaxFrameRate ? stated : 0; }

bool IsVideoCode(uint32_t code) { return BeginsWithLength(code) || code == FourCC("MP4V") || code == FourCC("mp4v"); }

Kind DescriptionKind(const uint8_t* box, uint32_t size) {
  if (LoadBE32(box + kReserved) != 0) return Kind::kNone;
  if (size == kTextBoxSize) return Kind::kText;
  if (size < kStreamBoxSize) return Kind::kNone;
  const uint32_t config = LoadBE32(box + kConfigSize);
  if (config > ZMV_MAX_EXTRA_DATA || config != size - kStreamBoxSize) return Kind::kNone;
  // Audio states its rate twice.
  const bool audio = LoadBE32(box + kSecond) == LoadBE32(box + kScale) && !IsVideoCode(LoadLE32(box + kCode));
  return audio ? Kind::kAudio : Kind::kVideo;
}

Kind FreeBoxKind(const uint8_t* box, uint32_t size) {
  if (size >= kTextBoxSize && LoadLE32(box + kTag) == FourCC("RECO")) return DescriptionKind(box, size);
  const uint32_t body = size - mp4::kBoxHeaderSize;
  if (body >= sizeof kBuildMark && body <= kMaxBuildText &&
      std::memcmp(box + size - sizeof kBuildMark, kBuildMark, sizeof kBuildMark) == 0) {
    return Kind::kBuild;
  }
  if (size % kRandomStep != 0 || size == 0) return Kind::kNone;
  const uint32_t brand = LoadLE32(box + kTag);
  return brand == 0 || brand == FourCC("rcvf") ? Kind::kRandom : Kind::kNone;
}

bool IsFileType(const uint8_t* box) {
  const uint32_t brand = LoadLE32(box + 8);
  const uint32_t version = LoadBE32(box + 12);
  const bool major = (brand == FourCC("mp41") && version == 1) || (brand == 0 && version == 0);
  return major && LoadLE32(box + 16) == FourCC("isom") && LoadLE32(box + 20) == FourCC("avc1") &&
         LoadLE32(box + 24) == FourCC("mp41");
}

class FrontReader {
 public:
  FrontReader(Window& window, Front& front)
      : window_(window), front_(front), limit_(std::min(window.file().Size(), kFrontLimit)) {}

  // False when the file could not be read.
  bool Read() {
    bytes_ = window_.At(0, static_cast<uint32_t>(limit_));
    if (bytes_ == nullptr) return false;
    uint32_t at = 0;
    while (at < limit_) {
      const FrontBox box = BoxAt(at);
      if (box.kind == Kind::kNone) {
        EnterGap(at++);
        continue;
      }
      if (box.kind == Kind::kCut) break;
      last_ = at;
      Take(box, at);
      at += box.size;
      front_.end = at;
      if (box.kind == Kind::kMedia) break;
    }
    front_.sound = !gap_ && front_.mdat != 0;
    front_.cut = !gap_ && front_.mdat == 0;
    if (front_.cut && file_type_) front_.own = true;
    SetTimeScale();
    if (front_.recovery_brand) std::memcpy(front_.info.szSoftware, kRecoveryBrand, sizeof kRecoveryBrand);
    return true;
  }

 private:
  uint32_t Left(uint32_t at) const { return static_cast<uint32_t>(limit_) - at; }

  FrontBox BoxAt(uint32_t at) const {
    const FrontBox none = {Kind::kNone, 0};
    // Behind damage nothing that is incomplete is believed.
    const FrontBox cut = gap_ || limit_ == kFrontLimit ? none : FrontBox{Kind::kCut, 0};
    if (Left(at) < mp4::kBoxHeaderSize) return cut;
    const uint8_t* box = bytes_ + at;
    const uint32_t size = LoadBE32(box);
    const uint32_t type = LoadLE32(box + 4);
    if (type == FourCC("mdat") && size >= mp4::kBoxHeaderSize && MediaBegins(at)) {
      return {Kind::kMedia, mp4::kBoxHeaderSize};
    }
    if (at == 0 ? type != FourCC("ftyp") || size != kFileTypeSize : type != FourCC("free")) return none;
    if (size < mp4::kBoxHeaderSize + sizeof kBuildMark || size > kMaxRandomSize) return none;
    if (size > Left(at)) return cut;
    if (at == 0) return {IsFileType(box) ? Kind::kFileType : Kind::kNone, size};
    return {FreeBoxKind(box, size), size};
  }

  // Behind damage only a header is taken that what follows agrees with.
  bool MediaBegins(uint32_t at) const {
    if (!gap_) return true;
    const uint32_t left = Left(at) - mp4::kBoxHeaderSize;
    const uint8_t* data = bytes_ + at + mp4::kBoxHeaderSize;
    return left == 0 || BeginsRecord(data, left, StreamLimits()) || BeginsTable(data, left);
  }

  void Take(const FrontBox& box, uint32_t at) {
    const uint8_t* bytes = bytes_ + at;
    if (box.kind == Kind::kFileType) {
      file_type_ = true;
      front_.info.m_dwFileType = LoadLE32(bytes + 8) == FourCC("mp41") ? 1 : 0;
    } else if (box.kind == Kind::kRandom) {
      front_.recovery_brand = LoadLE32(bytes + kTag) == FourCC("rcvf");
    } else if (box.kind == Kind::kMedia) {
      front_.mdat = at;
      front_.mdat_size = LoadBE32(bytes);
    } else {
      front_.own = true;
      if (box.kind == Kind::kVideo) TakeVideo(bytes);
      if (box.kind == Kind::kAudio) TakeAudio(bytes);
      if (box.kind == Kind::kText) TakeText(bytes);
    }
    last_kind_ = box.kind;
  }

  void TakeVideo(const uint8_t* box) {
    ZMVFileInfo& info = front_.info;
    if (info.dwVideoCount == ZMV_MAX_VIDEO) return;
    front_.described_video[info.dwVideoCount] = true;
    front_.late_video += gap_ ? 1 : 0;
    ZMVVideoInfo& video = info.m_Video[info.dwVideoCount++];
    video.dwFourCC = LoadLE32(box + kCode);
    if (video.dwFourCC == FourCC("avc1")) video.dwFourCC = FourCC("H264");
    if (video.dwFourCC == FourCC("hvc1")) video.dwFourCC = FourCC("H265");
    video.dwWidth = LoadBE32(box + kFirst);
    video.dwHeight = LoadBE32(box + kSecond);
    video.dwFrameRate = FrameRate(LoadBE32(box + kThird));
    video.dwBitRate = LoadBE32(box + kBitRate);
    video.dwTimeScale = LoadBE32(box + kScale);
    video.dwExtraDataSize = LoadBE32(box + kConfigSize);
    std::memcpy(video.abExtraData, box + kStreamBoxSize, video.dwExtraDataSize);
  }

  void TakeAudio(const uint8_t* box) {
    front_.described_audio = true;
    front_.info.dwAudioCount = 1;
    ZMVAudioInfo& audio = front_.info.m_Audio;
    audio.dwFormat = LoadBE32(box + kCode);
    audio.dwChannels = LoadBE32(box + kFirst);
    audio.dwSampleRate = LoadBE32(box + kSecond);
    audio.dwBitsPerSample = LoadBE32(box + kThird);
    audio.dwBitRate = LoadBE32(box + kBitRate);
    audio.dwExtraDataSize = LoadBE32(box + kConfigSize);
    std::memcpy(audio.abExtraData, box + kStreamBoxSize, audio.dwExtraDataSize);
    // Not stored; it tells the writer how many packets a second to expect.
    const bool sound_rate = audio.dwSampleRate <= kMaxSampleRate && audio.dwBitsPerSample <= kMaxSampleBits;
    audio.dwSamplesPerFrame = sound_rate ? ZMVUtil_GetAudioSampleSize(audio.dwFormat) : 0;
  }

  void TakeText(const uint8_t* box) {
    ZMVFileInfo& info = front_.info;
    if (info.dwTextCount == ZMV_MAX_TEXT) return;
    front_.described_text[info.dwTextCount] = true;
    front_.late_text += gap_ ? 1 : 0;
    ZMVTextInfo& text = info.m_Text[info.dwTextCount++];
    text.dwFourCC = LoadLE32(box + kCode);
    text.dwRate = FrameRate(LoadBE32(box + kFirst));
    text.dwBitRate = LoadBE32(box + kSecond);
    text.dwTimeScale = LoadBE32(box + kThird);
  }

  // The boxes break off at `at`. The sector that is damaged may hold the end of the box before, too.
  void EnterGap(uint32_t at) {
    if (gap_) return;
    gap_ = true;
    if (at == 0 || at % kSectorSize == 0 || HeaderBegins(at)) return;
    const uint64_t damage = SectorStart(at);
    const uint32_t fields = last_kind_ == Kind::kText ? kTextBoxSize : kStreamBoxSize;
    const bool fields_damaged = last_ + fields > damage;
    ZMVFileInfo& info = front_.info;
    if (last_kind_ == Kind::kVideo) {
      front_.described_video[info.dwVideoCount - 1] = false;
      info.m_Video[info.dwVideoCount - 1].dwExtraDataSize = 0;
      if (fields_damaged) info.m_Video[info.dwVideoCount - 1] = {};
    } else if (last_kind_ == Kind::kAudio) {
      front_.described_audio = false;
      info.m_Audio.dwExtraDataSize = 0;
      if (fields_damaged) info.m_Audio = {};
    } else if (last_kind_ == Kind::kText) {
      front_.described_text[info.dwTextCount - 1] = false;
      if (fields_damaged) info.m_Text[info.dwTextCount - 1] = {};
    }
  }

  // True when the rest of the sector can be the start of a box header: then the sector behind it is the damaged one.
  bool HeaderBegins(uint32_t at) const {
    const uint32_t rest = std::min(static_cast<uint32_t>(SectorEnd(at)) - at, Left(at));
    uint8_t header[mp4::kBoxHeaderSize];
    for (uint32_t type : {FourCC("free"), FourCC("mdat")}) {
      StoreBE32(header, kTextBoxSize);
      StoreLE32(header + 4, type);
      std::memcpy(header, bytes_ + at, std::min<uint32_t>(rest, sizeof header));
      if (LoadBE32(header) <= kMaxRandomSize && LoadLE32(header + 4) == type) return true;
    }
    return false;
  }

  // Times of the whole file go by the first video stream.
  void SetTimeScale() {
    if (front_.info.dwVideoCount != 0) front_.info.dwTimeScale = front_.info.m_Video[0].dwTimeScale;
  }

  Window& window_;
  Front& front_;
  uint64_t limit_;
  const uint8_t* bytes_ = nullptr;
  bool gap_ = false;
  bool file_type_ = false;
  Kind last_kind_ = Kind::kNone;
  uint32_t last_ = 0;
};

// True for a file that begins as the files of other makers do.
bool BeginsLikeOthers(Window& window) {
  const uint8_t* head = window.At(0, mp4::kBoxHeaderSize);
  if (head == nullptr) return true;
  const uint32_t type = LoadLE32(head + 4);
  return type == FourCC("ftyp") || type == FourCC("moov") || LoadLE32(head) == FourCC("RIFF");
}

}  // namespace

bool ReadFront(Window& window, Front& front) {
  front = {};
  if (!FrontReader(window, front).Read()) return false;
  return front.own || !BeginsLikeOthers(window);
}

bool BeginsWithLength(uint32_t code) { return mp4::BeginsWithStartCode(code); }

bool IsCompressedAudio(uint32_t format) {
  constexpr uint32_t kOldestAac = 0xFD;
  return (format >= kOldestAac && format <= ZMV_AUDIO_AAC) || format == ZMV_AUDIO_MPEG;
}

}  // namespace zmv::recover

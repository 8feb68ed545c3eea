#include "recover/recover_avi_front.h"

#include <algorithm>
#include <cstring>
#include <initializer_list>

#include "base/arith.h"
#include "base/byte_order.h"
#include "base/fourcc.h"
#include "recover/recover_avi_search.h"
#include "recover/recover_module.h"

namespace zmv::recover {
namespace {

using namespace zmv::avi;

constexpr uint32_t kCodeSize = 4;
// Where the words of the headers stand.
constexpr uint32_t kMainFlags = 12;
constexpr uint32_t kMainInitialFrames = 20;
constexpr uint32_t kMainStreams = 24;
constexpr uint32_t kMainReserved = 40;
constexpr uint32_t kStreamHandler = 4;
constexpr uint32_t kStreamFlags = 8;
constexpr uint32_t kStreamPriority = 12;
constexpr uint32_t kStreamInitialFrames = 16;
constexpr uint32_t kStreamScale = 20;
constexpr uint32_t kStreamRate = 24;
constexpr uint32_t kStreamStart = 28;
constexpr uint32_t kStreamQuality = 40;
constexpr uint32_t kStreamSampleSize = 44;
constexpr uint32_t kStreamWidth = 52;
constexpr uint32_t kStreamHeight = 54;
constexpr uint32_t kVideoFormSize = 40;
constexpr uint32_t kAudioFormSize = 16;

constexpr uint32_t kThousandths = 1000;
// Forms and names beyond this are damage, and so are bytes of the application that no memory is to be taken for.
constexpr uint32_t kMaxHeaderChunk = 1u << 20;
constexpr uint32_t kMaxJunk = 64u << 20;

// The flags that this library gives a file: without video, with it, and with sound too.
bool AreOwnFlags(uint32_t flags) { return flags == 0 || flags == 0x810 || flags == 0x910; }

bool IsOwnMainHeader(const uint8_t* bytes) {
  if (std::any_of(bytes, bytes + kMainFlags, [](uint8_t byte) { return byte != 0; })) return false;
  if (std::any_of(bytes + kMainReserved, bytes + kMainHeaderSize, [](uint8_t byte) { return byte != 0; })) return false;
  const uint32_t streams = LoadLE32(bytes + kMainStreams);
  return AreOwnFlags(LoadLE32(bytes + kMainFlags)) && LoadLE32(bytes + kMainInitialFrames) == 0 &&
         streams <= kMaxStreams;
}

// These words are always 0.
bool IsOwnStreamHeader(const uint8_t* bytes) {
  for (const uint32_t word : {kStreamFlags, kStreamInitialFrames, kStreamStart, kStreamQuality}) {
    if (LoadLE32(bytes + word) != 0) return false;
  }
  return true;
}

enum class Step : uint8_t { kOn, kMovi, kCut, kBroken, kForeign };

class FrontReader {
 public:
  FrontReader(Window& window, AviFront& out) : window_(window), out_(out), front_(out.front) {}

  bool Read();

 private:
  Step ReadChunk();
  Step ReadList();
  Step ReadMainHeader();
  Step ReadStreamHeader();
  Step ReadFormat();
  Step ReadName();
  Step ReadSoftware();
  Step ReadJunk();
  void DescribeVideo(const uint8_t* form, AviStream& stream);
  void DescribeAudio(const uint8_t* form, AviStream& stream);
  void DescribeText(AviStream& stream);
  const uint8_t* Data() { return window_.At(position_ + kChunkHeaderSize, size_); }
  bool Keep(HostMemory<uint8_t>& memory, uint32_t room);
  void StepOver(bool may_lack_pad);
  bool HeaderBegins();
  void DoubtForm();
  bool Search();

  Window& window_;
  AviFront& out_;
  Front& front_;
  uint64_t position_ = 0;
  uint32_t code_ = 0;
  uint32_t size_ = 0;
  uint32_t stated_streams_ = 0;
  uint32_t junk_chunks_ = 0;
  bool has_stream_header_ = false;
  uint8_t stream_header_[kStreamHeaderSize] = {};
  uint32_t form_size_ = 0;  // of the last "strf"
  uint64_t form_end_ = 0;
};

// Behind a form or the caller's own bytes this library writes no pad byte; no code begins with a zero.
void FrontReader::StepOver(bool may_lack_pad) {
  position_ += kChunkHeaderSize + uint64_t{size_};
  if (size_ % 2 == 0) return;
  const uint8_t* pad = window_.At(position_, 1);
  if (!may_lack_pad || (pad != nullptr && *pad == 0)) ++position_;
}

Step FrontReader::ReadList() {
  const uint8_t* bytes = window_.At(position_ + kChunkHeaderSize, kCodeSize);
  if (bytes == nullptr) return Step::kCut;
  const uint32_t type = LoadLE32(bytes);
  if (type == FourCC("movi")) {
    front_.mdat = position_;
    front_.mdat_size = size_;
    front_.end = position_ + kListHeaderSize;
    return Step::kMovi;
  }
  if (type != FourCC("hdrl") && type != FourCC("strl") && type != FourCC("INFO")) return Step::kBroken;
  position_ += kListHeaderSize;
  return Step::kOn;
}

Step FrontReader::ReadMainHeader() {
  const uint8_t* bytes = Data();
  if (size_ != kMainHeaderSize || !IsOwnMainHeader(bytes)) return Step::kForeign;
  out_.main_header = position_ + kChunkHeaderSize;
  stated_streams_ = LoadLE32(bytes + kMainStreams);
  front_.own = true;
  StepOver(false);
  return Step::kOn;
}

Step FrontReader::ReadStreamHeader() {
  if (size_ != kStreamHeaderSize) return Step::kBroken;
  std::memcpy(stream_header_, Data(), kStreamHeaderSize);
  has_stream_header_ = out_.stream_count < kMaxStreams && IsOwnStreamHeader(stream_header_);
  if (!has_stream_header_) return Step::kBroken;
  AviStream& stream = out_.streams[out_.stream_count];
  stream = {};
  stream.header = position_ + kChunkHeaderSize;
  stream.scale = LoadLE32(stream_header_ + kStreamScale);
  stream.rate = LoadLE32(stream_header_ + kStreamRate);
  stream.sample_size = LoadLE32(stream_header_ + kStreamSampleSize);
  stream.code = LoadLE32(stream_header_ + kStreamHandler);
  StepOver(false);
  return Step::kOn;
}

// The form says how many of its bytes belong to the codec; behind them there can be padding.
void FrontReader::DescribeVideo(const uint8_t* form, AviStream& stream) {
  ZMVVideoInfo& video = front_.info.m_Video[front_.info.dwVideoCount];
  const uint32_t stated = LoadLE32(form);
  GetVideoFormatMem(form, std::clamp(stated, kVideoFormSize, size_), &video);
  video.dwFrameRate = stream.rate;
  video.dwPriority = LoadLE16(stream_header_ + kStreamPriority);
  stream.media = ZMV_MEDIA_VIDEO;
  stream.code = video.dwFourCC;
  stream.track = front_.info.dwVideoCount++;
  front_.described_video[stream.track] = true;
}

void FrontReader::DescribeAudio(const uint8_t* form, AviStream& stream) {
  constexpr uint32_t kTagMask = 0xFFFF;
  ZMVAudioInfo& audio = front_.info.m_Audio;
  GetAudioFormatMem(form, size_, &audio);
  // The form has room for half of it.
  if ((stream.code & kTagMask) == audio.dwFormat) audio.dwFormat = stream.code;
  if (audio.dwFormat != kPcmTag) audio.dwSamplesPerFrame = stream.scale;
  stream.media = ZMV_MEDIA_AUDIO;
  stream.code = audio.dwFormat;
  front_.info.dwAudioCount = 1;
  front_.described_audio = true;
}

void FrontReader::DescribeText(AviStream& stream) {
  ZMVTextInfo& text = front_.info.m_Text[front_.info.dwTextCount];
  text.dwFourCC = stream.code;
  text.dwRate = stream.rate;
  stream.media = ZMV_MEDIA_TEXT;
  stream.track = front_.info.dwTextCount++;
  front_.described_text[stream.track] = true;
}

Step FrontReader::ReadFormat() {
  if (!has_stream_header_) return Step::kBroken;
  has_stream_header_ = false;
  const uint8_t* form = Data();
  AviStream& stream = out_.streams[out_.stream_count];
  const ZMVFileInfo& info = front_.info;
  const uint32_t type = LoadLE32(stream_header_);
  if (type == FourCC("vids") && size_ >= kVideoFormSize && info.dwVideoCount < ZMV_MAX_VIDEO) {
    DescribeVideo(form, stream);
  } else if (type == FourCC("auds") && size_ >= kAudioFormSize && info.dwAudioCount < ZMV_MAX_AUDIO) {
    DescribeAudio(form, stream);
  } else if (type == FourCC("txts") && info.dwTextCount < ZMV_MAX_TEXT) {
    DescribeText(stream);
  } else {
    return Step::kBroken;
  }
  // Video and text count in thousandths, here.
  if (stream.media != ZMV_MEDIA_AUDIO && stream.scale != kThousandths) return Step::kBroken;
  ++out_.stream_count;
  form_size_ = size_;
  form_end_ = position_ + kChunkHeaderSize + size_;
  StepOver(true);
  return Step::kOn;
}

// The data of the chunk, and `room` more zero bytes.
bool FrontReader::Keep(HostMemory<uint8_t>& memory, uint32_t room) {
  memory = AllocateBytes(kModule, size_ + room, __func__);
  if (!memory) {
    out_.error = Result(ZMV_E_MEMORY);
    return false;
  }
  std::memcpy(memory.Get(), Data(), size_);
  std::memset(memory.Get() + size_, 0, room);
  return true;
}

Step FrontReader::ReadName() {
  if (!out_.name) {
    if (!Keep(out_.name, 1)) return Step::kBroken;
    front_.info.pStreamName = reinterpret_cast<char*>(out_.name.Get());
  }
  StepOver(false);
  return Step::kOn;
}

Step FrontReader::ReadSoftware() {
  char* const software = front_.info.szSoftware;
  const uint32_t count = std::min<uint32_t>(size_, sizeof front_.info.szSoftware);
  std::memset(software, 0, sizeof front_.info.szSoftware);
  std::memcpy(software, Data(), count);
  StepOver(false);
  return Step::kOn;
}

// The first one is nothing, of a size that differs from file to file; the second one holds the application's bytes.
Step FrontReader::ReadJunk() {
  if (++junk_chunks_ == 2 && size_ != 0 && !out_.extra) {
    if (!Keep(out_.extra, 0)) return Step::kBroken;
    front_.info.pExtraHeader = out_.extra.Get();
    front_.info.dwExtraHeaderSize = size_;
  }
  StepOver(true);
  return Step::kOn;
}

Step FrontReader::ReadChunk() {
  const uint8_t* head = window_.At(position_, kChunkHeaderSize);
  if (head == nullptr) return Step::kCut;
  code_ = LoadLE32(head);
  size_ = LoadLE32(head + kCodeSize);
  if (code_ == FourCC("LIST")) return ReadList();
  struct Row {
    uint32_t code;
    Step (FrontReader::*read)();
  };
  static constexpr Row kRows[] = {
      {FourCC("avih"), &FrontReader::ReadMainHeader}, {FourCC("strh"), &FrontReader::ReadStreamHeader},
      {FourCC("strf"), &FrontReader::ReadFormat},     {FourCC("strn"), &FrontReader::ReadName},
      {FourCC("ISFT"), &FrontReader::ReadSoftware},   {FourCC("JUNK"), &FrontReader::ReadJunk},
  };
  for (const Row& row : kRows) {
    if (row.code != code_) continue;
    if (size_ > (code_ == FourCC("JUNK") ? kMaxJunk : kMaxHeaderChunk)) return Step::kBroken;
    // Data that is not all there is read by nobody.
    return Data() == nullptr ? Step::kCut : (this->*row.read)();
  }
  return Step::kBroken;
}

// True when the rest of the sector can be the code of a chunk: then the sector behind it is the damaged one.
bool FrontReader::HeaderBegins() {
  constexpr uint32_t kLeast = 2;  // one letter is found in noise, too
  const auto count = static_cast<uint32_t>(std::min<uint64_t>(kCodeSize, SectorEnd(position_) - position_));
  const uint8_t* bytes = window_.At(position_, count);
  if (count < kLeast || bytes == nullptr) return false;
  for (const char* code : {"LIST", "JUNK", "strh", "strf", "strn", "ISFT"}) {
    if (std::memcmp(bytes, code, count) == 0) return true;
  }
  return false;
}

// The sector in which the headers break off may hold the end of the form in front of it, too. Then the header of that
// stream tells what it can.
void FrontReader::DoubtForm() {
  if (out_.stream_count == 0 || form_end_ <= SectorStart(position_) || HeaderBegins()) return;
  const AviStream& stream = out_.streams[out_.stream_count - 1];
  const uint32_t handler = LoadLE32(stream_header_ + kStreamHandler);
  if (stream.media == ZMV_MEDIA_VIDEO) {
    ZMVVideoInfo video = {};
    video.dwFourCC = handler;
    video.dwWidth = LoadLE16(stream_header_ + kStreamWidth);
    video.dwHeight = LoadLE16(stream_header_ + kStreamHeight);
    video.dwFrameRate = stream.rate;
    video.dwPriority = LoadLE16(stream_header_ + kStreamPriority);
    front_.info.m_Video[stream.track] = video;
    front_.described_video[stream.track] = form_size_ == kVideoFormSize;
    out_.streams[out_.stream_count - 1].code = handler;
  } else if (stream.media == ZMV_MEDIA_AUDIO) {
    const bool pcm = handler == kPcmTag;
    ZMVAudioInfo audio = {};
    audio.dwFormat = handler;
    audio.dwSampleRate = pcm ? DivideOrZero(stream.rate, stream.scale) : stream.rate;
    audio.dwSamplesPerFrame = pcm ? 0 : stream.scale;
    front_.info.m_Audio = audio;
    front_.described_audio = false;
    out_.streams[out_.stream_count - 1].code = handler;
  }
}

bool FrontReader::Read() {
  const uint8_t* form = window_.At(0, kListHeaderSize);
  const bool begins =
      form != nullptr && LoadLE32(form) == FourCC("RIFF") && LoadLE32(form + kChunkHeaderSize) == FourCC("AVI ");
  Step step = begins ? Step::kOn : Step::kBroken;
  position_ = kListHeaderSize;
  while (step == Step::kOn) step = ReadChunk();
  if (out_.error != 0 || window_.Error() != 0 || step == Step::kForeign) return false;
  if (step == Step::kMovi && front_.own && out_.stream_count == stated_streams_) {
    front_.sound = true;
    return true;
  }
  // A damaged size can seem to lead beyond the end of the file.
  uint64_t list = 0;
  if (step == Step::kCut && !FindMovi(window_, list) && window_.Error() == 0) {
    front_.cut = true;
    front_.end = window_.file().Size();
    return front_.own;
  }
  if (step == Step::kMovi) return true;
  DoubtForm();
  return Search();
}

// The headers are damaged: the movi list, else the place from where on chunks are to be looked for, if there are any.
bool FrontReader::Search() {
  if (FindMovi(window_, front_.mdat)) {
    const uint8_t* list = window_.At(front_.mdat, kListHeaderSize);
    if (list == nullptr) return false;
    front_.mdat_size = LoadLE32(list + kCodeSize);
    front_.end = front_.mdat + kListHeaderSize;
    return true;
  }
  front_.end = position_;
  uint64_t first = 0;
  return window_.Error() == 0 && (front_.own || FindChunks(window_, first));
}

}  // namespace

bool ReadAviFront(Window& window, AviFront& front) {
  front = {};
  return FrontReader(window, front).Read();
}

}  // namespace zmv::recover

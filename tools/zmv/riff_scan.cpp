#include "tools/zmv/riff_scan.h"

#include <fmt/core.h>

#include <algorithm>

#include "avi/zmv_avi_format.h"
#include "facade/zmvstream_media.h"

namespace zmv::tool {
namespace {

constexpr uint32_t kTypeSize = 4;  // of a list or form
constexpr uint32_t kMainFlags = 12;
constexpr uint32_t kHasIndex = 0x10;
constexpr uint32_t kMostText = 256;

// Where the fields of a stream header stand.
constexpr uint32_t kHandler = 4;
constexpr uint32_t kLanguage = 14;
constexpr uint32_t kScale = 20;
constexpr uint32_t kSampleSize = 44;

uint32_t MediaOf(const std::string& type) {
  if (type == "vids") return ZMV_MEDIA_VIDEO;
  if (type == "auds") return ZMV_MEDIA_AUDIO;
  return type == "txts" ? ZMV_MEDIA_TEXT : 0;
}

class Scan {
 public:
  explicit Scan(const std::string& path) : file_(path) {
    map_.container = Container::kAvi;
    map_.size = file_.size();
  }

  FileMap Run() {
    RiffChunk chunk;
    uint64_t position = 0;
    while (!open_data_ && ReadRiffChunk(file_, position, map_.size, chunk)) {
      List(chunk);
      const bool form = chunk.code == "RIFF";
      if (form && position == 0 && chunk.type != "AVI ") return Foreign();
      if (form) TakeForm(chunk);
      // A recording that was never closed has no size; its chunks reach to the end of the file.
      if (form && chunk.size < kTypeSize) break;
      position = chunk.next;
    }
    return Judged();
  }

 private:
  FileMap Foreign() {
    Judge(Health::kNotRecording, "it is a RIFF file, but no AVI");
    return map_;
  }

  void List(const RiffChunk& chunk) {
    if (++map_.box_count <= kMaxListedBoxes) {
      map_.boxes.push_back({chunk.name(), chunk.position, chunk.end - chunk.position});
    }
  }

  void TakeForm(const RiffChunk& form) {
    const bool open = form.size < kTypeSize;
    open_form_ = open_form_ || open;
    cut_form_ = cut_form_ || form.cut;
    const uint64_t end = open ? map_.size : form.end;
    RiffChunk chunk;
    for (uint64_t at = form.data; !open_data_ && ReadRiffChunk(file_, at, end, chunk); at = chunk.next) {
      if (chunk.type == "movi") {
        TakeMedia(chunk, end);
      } else {
        List(chunk);
        Take(chunk);
      }
    }
  }

  // Media data that was never closed reaches to the end.
  void TakeMedia(RiffChunk& movi, uint64_t end) {
    has_data_ = true;
    open_data_ = movi.size < kTypeSize;
    if (open_data_) movi.end = end;
    cut_data_ = cut_data_ || movi.cut;
    data_bytes_ += movi.end > movi.data ? movi.end - movi.data : 0;
    List(movi);
  }

  void Take(const RiffChunk& chunk) {
    if (chunk.type == "hdrl") {
      has_headers_ = !chunk.cut;
      ForEach(chunk, [this](const RiffChunk& header) { TakeHeader(header); });
    } else if (chunk.type == "INFO") {
      ForEach(chunk, [this](const RiffChunk& text) {
        if (text.code == "ISFT") map_.software = TextOf(text);
      });
    } else if (chunk.code == "idx1") {
      cut_index_ = chunk.cut;
      if (!chunk.cut && map_.index.empty()) map_.index = "idx1";
    }
  }

  template <typename Visit>
  void ForEach(const RiffChunk& parent, Visit visit) {
    RiffChunk chunk;
    for (uint64_t at = parent.data; ReadRiffChunk(file_, at, parent.end, chunk); at = chunk.next) visit(chunk);
  }

  void TakeHeader(const RiffChunk& header) {
    if (header.code == "avih" && header.end - header.data >= kMainFlags + sizeof(uint32_t)) {
      file_.Seek(header.data + kMainFlags);
      promises_index_ = (file_.LittleU32() & kHasIndex) != 0;
    }
    if (header.type != "strl") return;
    List(header);
    ForEach(header, [this](const RiffChunk& chunk) {
      if (chunk.code == "strh") TakeStream(chunk);
      if (chunk.code == "indx") map_.index = "OpenDML";
    });
  }

  void TakeStream(const RiffChunk& chunk) {
    if (chunk.end - chunk.data < avi::kStreamHeaderSize) return;
    RiffStream stream;
    file_.Seek(chunk.data);
    stream.media = MediaOf(file_.Code());
    stream.number = static_cast<uint32_t>(map_.streams.size());
    file_.Seek(chunk.data + kHandler);
    stream.handler = file_.LittleU32();
    file_.Seek(chunk.data + kLanguage);
    const uint32_t language = file_.LittleU16();
    file_.Seek(chunk.data + kScale);
    stream.scale = file_.LittleU32();
    stream.rate = file_.LittleU32();
    file_.Seek(chunk.data + kSampleSize);
    stream.sample_size = file_.LittleU32();
    if (stream.media == ZMV_MEDIA_VIDEO && !map_.aidd) {
      map_.aidd = UserValue{language, chunk.data + kLanguage, Container::kAvi};
    }
    if (map_.streams.size() < avi::kMaxStreams) map_.streams.push_back(stream);
  }

  std::string TextOf(const RiffChunk& chunk) {
    std::string text(std::min<uint64_t>(chunk.end - chunk.data, kMostText), '\0');
    file_.Seek(chunk.data);
    text.resize(file_.Read(text.data(), static_cast<uint32_t>(text.size())));
    return text.substr(0, text.find('\0'));
  }

  FileMap Judged() {
    if (!has_headers_ || map_.streams.empty()) {
      Judge(Health::kDamaged, "the recording was cut within its headers: there is nothing in it to recover");
    } else if (!has_data_ || data_bytes_ < avi::kChunkHeaderSize) {
      JudgeEmpty();
    } else {
      map_.readable = true;
      JudgeReadable();
    }
    return map_;
  }

  // A finished recording may have no frames.
  void JudgeEmpty() {
    map_.readable = has_data_ && !open_data_ && !cut_data_ && !map_.index.empty();
    if (map_.readable) {
      Judge(Health::kComplete, "complete, without frames");
    } else {
      Judge(Health::kDamaged, "the recording was cut before its first frame: there is nothing in it to recover");
    }
  }

  void JudgeReadable() {
    if (open_data_ || cut_data_) map_.index.clear();
    const std::string scanning = HasText() ? "whose frames are found by scanning, those of text streams are not"
                                           : "whose frames are found by scanning";
    if (open_data_) {
      Judge(Health::kCut, fmt::format("the recording was cut before it was finished: it has no index, but {} bytes of "
                                      "media, {}",
                                      data_bytes_, scanning));
    } else if (cut_data_) {
      Judge(Health::kCut,
            fmt::format("the end of the file is missing and with it the index; what is left is media, {}", scanning));
    } else if (map_.index.empty() && (cut_index_ || cut_form_ || promises_index_)) {
      Judge(Health::kCut, "its index is incomplete or missing; it has all its media, " + scanning);
    } else if (open_form_ || cut_form_) {
      Judge(Health::kCut,
            "the recording was cut while it was being finished, but all its frames and its index are there");
    } else {
      Judge(Health::kComplete,
            map_.index.empty() ? "complete, without an index; it has media, " + scanning : "complete");
    }
  }

  bool HasText() const {
    return std::any_of(map_.streams.begin(), map_.streams.end(),
                       [](const RiffStream& stream) { return stream.media == ZMV_MEDIA_TEXT; });
  }

  void Judge(Health health, const std::string& sentence) {
    map_.health = health;
    map_.sentence = sentence;
  }

  StreamFile file_;
  FileMap map_;
  uint64_t data_bytes_ = 0;
  bool has_headers_ = false;
  bool promises_index_ = false;
  bool has_data_ = false;
  bool open_data_ = false;
  bool cut_data_ = false;
  bool cut_index_ = false;
  bool open_form_ = false;  // a form without a size
  bool cut_form_ = false;
};

}  // namespace

bool ReadRiffChunk(StreamFile& file, uint64_t position, uint64_t end, RiffChunk& chunk) {
  if (position >= end || end - position < avi::kChunkHeaderSize) return false;
  file.Seek(position);
  chunk.position = position;
  chunk.code = file.Code();
  chunk.size = file.LittleU32();
  chunk.type.clear();
  chunk.data = position + avi::kChunkHeaderSize;
  const uint64_t stated_end = chunk.data + chunk.size;
  chunk.cut = stated_end > end;
  chunk.end = std::min(stated_end, end);
  if ((chunk.code == "LIST" || chunk.code == "RIFF") && end - chunk.data >= kTypeSize) {
    chunk.type = file.Code();
    chunk.data += kTypeSize;
    chunk.end = std::max(chunk.end, chunk.data);
  }
  chunk.next = stated_end;
  if (chunk.size % 2 != 0 && stated_end < end) {
    file.Seek(stated_end);
    uint8_t pad = 0;
    if (file.Read(&pad, 1) == 1 && pad == 0) ++chunk.next;
  }
  return true;
}

bool IsRiff(const std::string& path) {
  StreamFile file(path);
  return file.size() >= kTypeSize && file.Code() == "RIFF";
}

FileMap ScanRiff(const std::string& path) { return Scan(path).Run(); }

}  // namespace zmv::tool

#include "tools/zmv/box_scan.h"

#include <fmt/core.h>

#include <algorithm>

#include "mp4/zmv_mp4_format.h"
#include "tools/zmv/stream_file.h"

namespace zmv::tool {
namespace {

constexpr uint32_t kTextFrontSize = 32;  // a recovery box of a text stream; others are 44 and longer
constexpr uint32_t kMediaFrontSize = 44;
constexpr uint32_t kMaxBuildText = 64;
constexpr const char* kBuildEnd = " KPZ";

class Scan {
 public:
  explicit Scan(const std::string& path) : file_(path) { map_.size = file_.size(); }

  FileMap Run() {
    BoxHeader box;
    while (file_.ReadHeader(position_, map_.size, box)) {
      if (box.size < box.header) {
        broken_ = true;
        break;
      }
      if (position_ == 0 && !StartsRecording(box)) return Judged();
      const bool open_data = box.type == "mdat" && box.size == kBoxHeader && HoldsRecords(position_ + kBoxHeader);
      const bool overrun = box.size > map_.size - position_;
      const uint64_t there = open_data || overrun ? map_.size - position_ : box.size;
      if (++map_.box_count <= kMaxListedBoxes) map_.boxes.push_back({box.type, position_, there});
      Take(box, open_data, overrun);
      if (open_data || overrun) break;
      position_ += box.size;
    }
    return Judged();
  }

 private:
  static bool StartsRecording(const BoxHeader& box) {
    return box.type == "ftyp" || box.type == "mdat" || box.type == "moov";
  }

  // Media data that was never closed: a frame's record or a piece of a table behind the header, or nothing at all yet.
  bool HoldsRecords(uint64_t position) {
    if (map_.size - position < sizeof(uint32_t)) return true;
    file_.Seek(position);
    const std::string tag = file_.Code();
    return tag == "RECO" || tag == "tabl";
  }

  void Take(const BoxHeader& box, bool open_data, bool overrun) {
    started_ = true;
    file_.Seek(box.position + box.header);
    const uint64_t body = box.size - box.header;
    if (box.type == "ftyp") {
      map_.brand = file_.Code();
    } else if (box.type == "free") {
      TakeFree(body);
    } else if (box.type == "mdat") {
      has_data_ = true;
      open_data_ = open_data;
      records_ = records_ || (body > 0 && HoldsRecords(box.position + box.header));
      data_bytes_ += (open_data || overrun ? map_.size - box.position : box.size) - box.header;
      cut_data_ = cut_data_ || overrun;
    } else if (box.type == "moov") {
      has_index_ = !overrun && body > 0;
      cut_index_ = !has_index_;
    } else if (box.type == "moof") {
      map_.fragmented = true;
      lost_ = lost_ || overrun;
    } else {
      TakeUserBox(box);
      lost_ = lost_ || overrun;
    }
  }

  // As far as the file has them: a value beyond its end would grow the file when it is rewritten.
  void TakeUserBox(const BoxHeader& box) {
    const uint64_t start = box.position + box.header;
    const uint64_t end = std::min(box.size, map_.size - box.position) + box.position;
    const uint64_t body = end > start ? end - start : 0;
    if (box.type == "GPSR") map_.gps_entries = static_cast<uint32_t>(body / mp4::kGpsEntrySize);
    if (box.type == "SENS") map_.sensor_entries = static_cast<uint32_t>(body / mp4::kSensorBlockSize);
    if (box.type == "AIDD" && body >= sizeof(uint32_t))
      map_.aidd = UserValue{file_.U32(), box.position + box.header, Container::kMp4};
  }

  void TakeFree(uint64_t body) {
    if (has_data_ || body < sizeof(uint32_t)) return;
    const std::string tag = file_.Code();
    if (tag == "RECO") {
      TakeFront(body + kBoxHeader);
    } else if (tag == "rcvf") {
      map_.recovered = true;
    } else if (body <= kMaxBuildText) {
      std::string text(body, '\0');
      file_.Seek(file_.position() - tag.size());
      text.resize(file_.Read(text.data(), static_cast<uint32_t>(body)));
      if (text.ends_with(kBuildEnd)) map_.build = text.substr(0, text.size() - std::string(kBuildEnd).size());
    }
  }

  void TakeFront(uint64_t size) {
    file_.U32();
    const std::string code = file_.Code();
    FrontStream stream;
    stream.code = code;
    if (size == kTextFrontSize) {
      stream.media = "text";
      stream.rate = file_.U32();
      file_.U32();
      stream.time_scale = file_.U32();
    } else if (size >= kMediaFrontSize && code.find('?') == std::string::npos) {
      stream.media = "video";
      stream.width = file_.U32();
      stream.height = file_.U32();
      stream.rate = file_.U32();
      file_.U32();
      stream.time_scale = file_.U32();
      stream.config_size = file_.U32();
    } else if (size >= kMediaFrontSize) {
      file_.Seek(file_.position() - sizeof(uint32_t));
      stream.media = "audio";
      stream.code = fmt::format("0x{:X}", file_.U32());
      stream.channels = file_.U32();
      stream.rate = file_.U32();
      file_.Seek(file_.position() + 2 * sizeof(uint32_t));
      stream.time_scale = file_.U32();
      stream.config_size = file_.U32();
    } else {
      return;
    }
    map_.front.push_back(stream);
  }

  FileMap Judged() {
    map_.readable = has_index_;
    const bool ours = records_ || !map_.front.empty();
    if (!started_) {
      Judge(Health::kNotRecording, map_.size == 0 ? "the file is empty" : "it does not begin like a recording");
    } else if (has_index_ && !cut_data_ && !lost_) {
      Judge(Health::kComplete, broken_ ? "complete, with something else behind it" : "complete");
    } else if (has_index_) {
      Judge(Health::kDamaged,
            "the index is there, but the file is shorter than its boxes say: the last frames are missing");
    } else if (!ours) {
      Judge(Health::kDamaged, "it has neither an index nor recovery records: its frames cannot be told apart");
    } else if (!has_data_ || data_bytes_ <= mp4::kRecoveryRecordSize) {
      Judge(Health::kDamaged, "the recording was cut before its first frame: there is nothing in it to recover");
    } else if (open_data_) {
      Judge(Health::kCut, fmt::format("the recording was cut before it was finished: it has no index, but {} bytes of "
                                      "media with recovery records, from which it can be rebuilt",
                                      data_bytes_));
    } else {
      Judge(Health::kCut, cut_index_
                              ? "the recording was cut while it was being finished: its index is incomplete, but "
                                "its frames carry recovery records, from which it can be rebuilt"
                              : "the end of the file is missing and with it the index; its frames carry recovery "
                                "records, from which it can be rebuilt");
    }
    return map_;
  }

  void Judge(Health health, const std::string& sentence) {
    map_.health = health;
    map_.sentence = sentence;
  }

  StreamFile file_;
  FileMap map_;
  uint64_t position_ = 0;
  uint64_t data_bytes_ = 0;
  bool started_ = false;
  bool broken_ = false;  // something that is no box
  bool has_data_ = false;
  bool records_ = false;  // media data with recovery records
  bool open_data_ = false;
  bool cut_data_ = false;
  bool has_index_ = false;
  bool cut_index_ = false;
  bool lost_ = false;  // another box than free space is cut
};

}  // namespace

FileMap ScanBoxes(const std::string& path) { return Scan(path).Run(); }

}  // namespace zmv::tool

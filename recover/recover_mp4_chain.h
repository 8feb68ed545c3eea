// The items of the media data of an MP4 recording: records with their payloads, spilled tables, and the boxes behind
// them.
#ifndef ZMV_RECOVER_MP4_CHAIN_H
#define ZMV_RECOVER_MP4_CHAIN_H

#include <cstdint>

#include "recover/recover_chain.h"
#include "recover/recover_front.h"

namespace zmv::recover {

class Mp4Chain final : public Chain {
 public:
  explicit Mp4Chain(Window& window) : Chain(window) {}

  // Finds the ends of the file and takes what is known of the streams. `known_end`: written_end() as another chain over
  // the same bytes has found it; 0 = not known. `progress` may be null. 0, or a negative code.
  int32_t Open(const Front& front, uint64_t known_end = 0, Progress* progress = nullptr);

  // Where the media data ends as the header of a closed file states it; 0 = it is not closed.
  uint64_t closed_end() const { return closed_end_; }

  Place At(uint64_t position) override;
  // Its payload lies behind it, or behind tables that were spilled between the two.
  Reading Read(const Record& record, uint64_t position) override;
  bool BeginsItem(uint64_t position) override;
  bool BeginsTag(uint64_t position) override;
  bool BeginsTableAt(uint64_t position) override;
  bool Compressed(const Record& record) const override;
  bool BoxesHoldNoTags() const override { return true; }
  uint32_t HeaderSize() const override { return kRecordSize; }
  const uint8_t* FindTag(const uint8_t* bytes, uint32_t count) const override { return FindRecordTag(bytes, count); }

 private:
  bool Parse(const uint8_t* bytes, Record& record) const;
  bool BeginsRecord(const uint8_t* bytes, uint32_t count) const;
  template <typename Begins>
  bool RestOfSector(uint64_t position, Begins begins);
  Prefix CheckPrefix(const Record& record, uint64_t payload);
  Reading At(const Record& record, uint64_t payload);
  bool MayBeTable(uint64_t position);
  bool IsPayload(const Reading& reading);
  bool IsClosing(const View& view, uint64_t position);

  StreamLimits limits_;
  uint64_t closed_end_ = 0;
  bool strays_ = false;                    // which streams there are is certain, so frames of others can be told
  bool length_known_[ZMV_MAX_VIDEO] = {};  // whether payloads begin with their length is known
  bool length_[ZMV_MAX_VIDEO] = {};        // they do
  bool compressed_audio_ = false;
};

}  // namespace zmv::recover

#endif

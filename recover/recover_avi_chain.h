// The items of the movi list of an AVI recording: chunks with one frame each, and what closing writes behind them.
#ifndef ZMV_RECOVER_AVI_CHAIN_H
#define ZMV_RECOVER_AVI_CHAIN_H

#include "recover/recover_avi_front.h"
#include "recover/recover_chain.h"

namespace zmv::recover {

// The records of this chain name the stream that a chunk is numbered for. A frame of a track that no header describes
// was put into the last stream, and its medium shows in the type of the chunk only: both stand in the record's stamp.
constexpr uint32_t kTypeShift = 8;
constexpr uint32_t NumberOf(const Record& record) { return record.stamp & ((1u << kTypeShift) - 1); }
constexpr uint32_t TypeOf(const Record& record) { return record.stamp >> kTypeShift; }  // ZMV_MEDIA_*

class AviChain final : public Chain {
 public:
  explicit AviChain(Window& window) : Chain(window) {}

  // Finds the ends of the file and takes what is known of the streams. `known_end`: written_end() as another chain over
  // the same bytes has found it, 0 = not known; `progress` may be null. 0, or a negative code.
  int32_t Open(const AviFront& front, uint64_t known_end = 0, Progress* progress = nullptr);
  // Also chunks of streams that no header describes are taken.
  void TakeAnyStream() { any_stream_ = true; }

  Place At(uint64_t position) override;
  Reading Read(const Record& record, uint64_t position) override;
  bool BeginsItem(uint64_t position) override;
  bool BeginsTag(uint64_t position) override { return BeginsItem(position); }
  bool BeginsTableAt(uint64_t) override { return false; }
  bool Compressed(const Record& record) const override;
  // The index names the codes of the chunks.
  bool BoxesHoldNoTags() const override { return false; }
  uint32_t HeaderSize() const override { return avi::kChunkHeaderSize; }
  const uint8_t* FindTag(const uint8_t* bytes, uint32_t count) const override;

 private:
  // A chunk's header, or zeros in its place, and an index entry behind it.
  static constexpr uint32_t kSeen = avi::kChunkHeaderSize + avi::kIdx1EntrySize;

  bool Parse(const uint8_t* bytes, Record& record) const;
  bool BeginsItem(const uint8_t* bytes, uint32_t count, uint64_t position) const;
  bool IsIndex(const uint8_t (&bytes)[kSeen], uint32_t count, uint64_t position);
  bool IsClosing(const uint8_t (&bytes)[kSeen], uint32_t count, uint64_t position);
  bool MayLackSize(uint64_t position) const;
  bool IsEntry(const uint8_t* bytes, uint64_t position);
  uint32_t VideoTrackOf(const Record& record) const;
  Prefix CheckPayload(const Record& record, const Reading& reading);

  AviStream streams_[avi::kMaxStreams] = {};
  uint32_t stream_count_ = 0;
  uint32_t video_count_ = 0;
  bool start_codes_[ZMV_MAX_VIDEO] = {};       // payloads begin with start codes
  bool compressed_video_[ZMV_MAX_VIDEO] = {};  // no picture is zeros
  bool compressed_audio_ = false;
  bool any_stream_ = false;
  bool placed_ = false;  // where the movi list begins is known
  uint64_t begin_ = 0;
  uint64_t stated_end_ = 0;  // of the movi list; its beginning until the file was closed
};

}  // namespace zmv::recover

#endif

// The items of the movi list of an AVI recording: chunks with one frame each, and what closing writes behind them.
#ifndef ZMV_RECOVER_AVI_CHAIN_H
#define ZMV_RECOVER_AVI_CHAIN_H

#include "recover/recover_avi_front.h"
#include "recover/recover_chain.h"

namespace zmv::recover {

class AviChain final : public Chain {
 public:
  explicit AviChain(Window& window) : Chain(window) {}

  // Finds the ends of the file and takes what is known of the streams; with `any_stream` also chunks of others are
  // taken. 0, or a negative code.
  int32_t Open(const AviFront& front, bool any_stream = false);

  // The stamp of a record is the number of its stream.
  Place At(uint64_t position) override;
  Reading Read(const Record& record, uint64_t position) override;
  bool BeginsItem(uint64_t position) override;
  bool BeginsTag(uint64_t position) override;
  bool BeginsTableAt(uint64_t) override { return false; }
  bool Compressed(const Record& record) const override;
  // The index names the codes of the chunks.
  bool BoxesHoldNoTags() const override { return false; }
  uint32_t HeaderSize() const override { return avi::kChunkHeaderSize; }
  const uint8_t* FindTag(const uint8_t* bytes, uint32_t count) const override;

 private:
  bool Parse(const uint8_t* bytes, Record& record) const;
  bool BeginsItem(const uint8_t* bytes, uint32_t count, uint64_t position) const;
  bool IsFirstEntry(const uint8_t* bytes) const;
  Prefix CheckPayload(const Record& record, const Reading& reading);

  AviStream streams_[avi::kMaxStreams] = {};
  bool start_codes_[ZMV_MAX_VIDEO] = {};       // payloads begin with start codes
  bool compressed_video_[ZMV_MAX_VIDEO] = {};  // no picture is zeros
  bool compressed_audio_ = false;
  bool any_stream_ = false;
  bool placed_ = false;  // where the movi list begins is known
  uint64_t begin_ = 0;
  uint8_t first_[avi::kChunkHeaderSize] = {};  // header of the first chunk
};

}  // namespace zmv::recover

#endif

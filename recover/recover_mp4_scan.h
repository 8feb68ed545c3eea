// Finds the frames of an MP4 recording by the records in front of their payloads.
//
// The file is read once, from front to end. What the records say is taken at their word where they follow each other
// without a gap. Where they do not, the search goes on for the next record that something sound follows, and the
// sectors that the damage may have touched decide which frames are still delivered:
//
//   - the last one before the gap only when the damage does not reach back into it;
//   - compressed media not with a sector of zeros in it, which no encoder makes;
//   - a record that reaches into a damaged sector not at all.
#ifndef ZMV_RECOVER_MP4_SCAN_H
#define ZMV_RECOVER_MP4_SCAN_H

#include "recover/recover_front.h"
#include "recover/recover_mp4_chain.h"
#include "recover/recover_progress.h"
#include "recover/recover_scan.h"
#include "recover/recover_streams.h"
#include "recover/recover_window.h"

namespace zmv::recover {

class Mp4Scan final : public Scan {
 public:
  // `progress` may be null.
  explicit Mp4Scan(File& file, Progress* progress = nullptr) : window_(file), chain_(window_), progress_(progress) {}
  Mp4Scan(const Mp4Scan&) = delete;
  Mp4Scan& operator=(const Mp4Scan&) = delete;

  // Reads the front. 0; ZMV_E_UNSUPPORTED_FORMAT for a file that cannot be a recording of this library; ZMV_E_READ,
  // ZMV_E_MEMORY.
  int32_t Open();

  bool Next(FoundFrame& frame) override;
  int32_t Result() const override { return result_; }
  // dwState is ZMV_RECOVER_WHOLE when nothing but a look at the tables of moov can tell otherwise: the caller takes
  // that look.
  const ZMVRecoverReport& Report() const override { return report_; }

  // As it was read: not completed by what the scan finds.
  const Front& front() const { return front_; }
  // Behind the last frame or spilled table: where a closed file has the end of its media data.
  uint64_t ItemsEnd() const { return items_end_; }

 private:
  bool TakeRecord(const Record& record, FoundFrame& frame);
  bool TakeUnchained(const Record& record, const Reading& reading, FoundFrame& frame);
  bool SizeInDoubt(const Reading& reading) const;
  bool Deliver(const Record& record, const Reading& reading, FoundFrame& frame);
  void TakeTable(uint32_t length);
  bool DamageReachesBack(const Record& record, const Reading& reading);
  bool EndsUnwritten(const Record& record, const Reading& reading);
  bool LostSector(const Reading& reading, const uint8_t* bytes, uint64_t from) const;
  bool LostTail(const Record& record, const Reading& reading, const uint8_t* bytes, uint64_t from) const;
  const uint8_t* Payload(const Reading& reading, uint64_t& from);
  void Drop(const Record& record);
  bool Bring(uint64_t position, uint32_t count);
  void Skip(uint64_t hole, uint64_t found);
  void Lose(uint64_t hole, uint64_t search);
  bool Search(uint64_t from, uint64_t to, uint64_t& found);
  bool IsFrame(uint64_t position);
  void AddHole(uint64_t from, uint64_t to);
  void EndAt(uint64_t incomplete_from);
  void Conclude(bool box_follows);
  bool Fail(int32_t result);

  Window window_;
  Chain chain_;
  Progress* progress_;
  Front front_ = {};
  Streams streams_;
  ZMVRecoverReport report_ = {};
  int32_t result_ = 0;
  bool done_ = false;
  uint64_t position_ = 0;
  uint64_t media_end_ = 0;  // as the header of a closed file states it; 0 = not known
  uint64_t items_end_ = 0;
  bool text_carries_ = true;  // every text frame so far looks as if it carried user data
  bool any_text_ = false;
};

}  // namespace zmv::recover

#endif

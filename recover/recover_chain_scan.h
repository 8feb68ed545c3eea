// Finds the frames of a recording by the headers in front of their payloads.
//
// The file is read once, from front to end. What the headers say is taken at their word where they follow each other
// without a gap. Where they do not, the search goes on for the next one that something sound follows, and the sectors
// that the damage may have touched decide which frames are still delivered:
//
//   - the last one before the gap only when the damage does not reach back into it;
//   - compressed media not with the zeros of a lost sector in it;
//   - a frame whose header reaches into a damaged sector not at all.
//
// A payload may itself be a piece of a recording: items within it count only when they carry on beyond it.
#ifndef ZMV_RECOVER_CHAIN_SCAN_H
#define ZMV_RECOVER_CHAIN_SCAN_H

#include "recover/recover_chain.h"
#include "recover/recover_front.h"
#include "recover/recover_progress.h"
#include "recover/recover_scan.h"
#include "recover/recover_streams.h"
#include "recover/recover_window.h"
#include "recover/recover_zero_runs.h"

namespace zmv::recover {

class ChainScan : public Scan {
 public:
  ChainScan(const ChainScan&) = delete;
  ChainScan& operator=(const ChainScan&) = delete;

  bool Next(FoundFrame& frame) override;
  int32_t Result() const override { return result_; }
  // dwState is ZMV_RECOVER_WHOLE when nothing but a look at the tables that closing writes can tell otherwise: the
  // caller takes that look.
  const ZMVRecoverReport& Report() const override { return report_; }
  // Behind the last frame or spilled table: where a closed file has the end of its media data.
  uint64_t ItemsEnd() const { return items_end_; }

 protected:
  // `progress` may be null.
  ChainScan(File& file, Progress* progress) : window_(file), progress_(progress) {}
  ~ChainScan() = default;

  virtual const Front& front() const = 0;
  virtual Chain& chain() = 0;
  // Fills in what the streams know of a frame (all but its place and its bytes) and counts it.
  virtual void Accept(const Record& record, FoundFrame& frame) = 0;

  void Begin(uint32_t format);
  // The file is not this container's, or its front cannot be read. The code.
  int32_t Refuse();
  bool Fail(int32_t result);
  // Lists the streams and goes to the first item. `media_end`: as the header of a closed file states it; 0 = not known.
  void StartAtFront(uint64_t media_end);
  // Goes on to the first frame: what stands in front of it is no part of the chain, whatever it looks like.
  void SearchFirst();

  Window window_;
  Streams streams_;
  ZeroRuns zeros_;
  ZMVRecoverReport report_ = {};
  Progress* const progress_;

 private:
  bool TakeRecord(const Record& record, FoundFrame& frame);
  bool TakeUnchained(const Record& record, const Reading& reading, FoundFrame& frame);
  bool SizeInDoubt(const Reading& reading);
  bool LeadsToLoss(const Reading& reading);
  bool MayBeginBox(const Reading& reading);
  bool LeadsOverOthers(const Reading& reading);
  bool CarriesOn(uint64_t from, uint64_t end, bool in_doubt);
  bool Deliver(const Record& record, const Reading& reading, FoundFrame& frame);
  void TakeTable(uint32_t length);
  void TakeBox();
  bool DamageReachesBack(const Record& record, const Reading& reading);
  bool EndsUnwritten(const Record& record, const Reading& reading);
  bool LostSector(const Record& record, const Reading& reading, const uint8_t* bytes);
  bool LostTail(const Record& record, const Reading& reading, const uint8_t* bytes);
  PayloadView View(const Reading& reading, const uint8_t* bytes);
  uint64_t SectorEndOf(const Reading& reading);
  const uint8_t* Payload(const Reading& reading);
  void Drop(const Record& record);
  bool Bring(uint64_t position, uint32_t count);
  void Skip(uint64_t hole, uint64_t found);
  void Lose(uint64_t hole, uint64_t search);
  void LoseBeyond(const Place& place);
  bool Search(uint64_t from, uint64_t to, uint64_t& found);
  bool IsFrame(uint64_t position);
  void AddHole(uint64_t from, uint64_t to);
  void EndAt(uint64_t incomplete_from);
  void Conclude(bool box_follows);

  int32_t result_ = 0;
  bool done_ = false;
  uint64_t position_ = 0;
  uint64_t media_end_ = 0;  // as the header of a closed file states it; 0 = not known
  uint64_t items_end_ = 0;
};

}  // namespace zmv::recover

#endif

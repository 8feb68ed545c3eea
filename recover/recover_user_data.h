// The boxes behind the media data that repeat the GPS and sensor blocks of the text frames.
#ifndef ZMV_RECOVER_USER_DATA_H
#define ZMV_RECOVER_USER_DATA_H

#include "mp4/zmvstream_mp4_writer_records.h"
#include "recover/recover_named_bytes.h"
#include "recover/recover_scan.h"
#include "recover/zmvrecover.h"

namespace zmv::recover {

// Whether the boxes are wanted: ZMV_RECOVER_USER_DATA_*, and what the text frames that were found look like.
bool WantsUserData(uint32_t policy, const ZMVRecoverReport& report);

// How many samples the text tracks hold: text frames that are long enough for the blocks.
class SampleCount {
 public:
  explicit SampleCount(const ZMVFileInfo& info) : info_(info) {}
  void Add(const FoundFrame& frame);
  // 0 also when frames of other media are among those of the text: the tables do not tell them apart.
  uint32_t Samples() const { return mixed_ ? 0 : samples_; }

 private:
  const ZMVFileInfo& info_;
  uint32_t samples_ = 0;
  bool mixed_ = false;
};

// The bodies of the boxes GPSR and SENS, generated where the writer writes them. Which text frames there are, and
// where, the writer's own tables say: no list of them is kept, however long the recording.
class UserDataSource final : public NamedBytes::Source {
 public:
  explicit UserDataSource(const MP4WriterHandle& writer) : writer_(writer) {}
  // Gives the writer names for the two bodies, which are then generated when it is closed. `samples`: text frames that
  // are long enough for the blocks. 0, or ZMV_E_MEMORY. The memory then belongs to the writer's handle, which frees it.
  int32_t GiveTo(MP4WriterHandle& writer, NamedBytes& names, uint32_t samples);

  int32_t Generate(const void* name, Output& output) override;

 private:
  const MP4WriterHandle& writer_;
};

}  // namespace zmv::recover

#endif

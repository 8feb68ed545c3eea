// The boxes behind the media data that repeat the GPS and sensor blocks of the text frames.
#ifndef ZMV_RECOVER_USER_DATA_H
#define ZMV_RECOVER_USER_DATA_H

#include "mp4/zmvstream_mp4_writer_records.h"
#include "recover/recover_named_bytes.h"
#include "recover/zmvrecover.h"

namespace zmv::recover {

// Whether the boxes are wanted: ZMV_RECOVER_USER_DATA_*, and what the text frames that were found look like.
bool WantsUserData(uint32_t policy, const ZMVRecoverReport& report);

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

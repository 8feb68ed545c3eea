// Whether an AVI recording was closed: its index, against the frames that are found.
//
//     AviIndexCheck index(file);
//     if (Failed(index.Open(front))) ...
//     ... index.Check(frame, number) for every frame, in order ...
//     if (Failed(index.Finish(end of the last chunk, whether anything is missing))) ...
//     if (index.Agrees()) ...
#ifndef ZMV_RECOVER_AVI_INDEX_H
#define ZMV_RECOVER_AVI_INDEX_H

#include <cstdint>

#include "recover/recover_avi_front.h"
#include "recover/recover_scan.h"
#include "recover/recover_window.h"

namespace zmv::recover {

class AviIndexCheck {
 public:
  explicit AviIndexCheck(File& file) : file_(file), window_(file) {}

  // All three: 0, or a negative code.
  int32_t Open(const AviFront& front);
  // `number`: of the frame's stream.
  int32_t Check(const FoundFrame& frame, uint32_t number);
  int32_t Finish(uint64_t items_end, bool damaged);

  // Every frame has its entry, and the sizes and counts in the headers are those of a closed file.
  bool Agrees() const { return agrees_; }
  // So do they, or every entry names a chunk of a damaged file: what is found there besides comes from the damage.
  bool Closed() const { return closed_; }
  // What the entry of the last frame says, as long as they agree.
  bool IsKey() const { return key_; }

 private:
  using Counts = uint32_t[avi::kMaxStreams];

  const uint8_t* Read(uint64_t position, uint32_t count);
  bool FormAgrees();
  bool CountsAgree(const Counts& counts);
  bool NamesChunks(Counts& counts);
  bool IsChunk(uint64_t offset, uint32_t code, uint32_t size);

  File& file_;
  Window window_;
  const AviFront* front_ = nullptr;
  uint64_t movi_ = 0;   // position of the code of the movi list
  uint64_t begin_ = 0;  // of the entries; 0 = there is no index
  uint64_t next_ = 0;   // position of the next one
  uint64_t end_ = 0;
  Counts frames_ = {};
  bool agrees_ = false;
  bool closed_ = false;
  bool key_ = false;
};

}  // namespace zmv::recover

#endif

// The table buffers of a writer that is not recording for a given time but for as long as there are frames.
#ifndef ZMV_RECOVER_TABLES_H
#define ZMV_RECOVER_TABLES_H

#include "mp4/zmvstream_mp4_writer_records.h"

namespace zmv::recover {

// A whole number of entries of every table. As often as a table can be spilled, this is more than 23 million frames of
// one stream and half as many changes of duration, whatever rates the front of the file states, or fails to state.
constexpr uint32_t kTableBytes = 65520;
// The smallest buffer that does the same: an entry of each table fits a whole number of times.
constexpr uint32_t kSmallestTableBytes = 24;

// What is spilled takes room in the file, which one near 4 GiB may not have beside its index: the recorder's own
// buffers may have been larger. From this size on they are so large here that nothing is spilled but for millions of
// frames.
constexpr uint64_t kNearlyFull = 0xE0000000;
constexpr uint32_t kLargeTableBytes = 4194288;

// Gives every table of every track a buffer of `bytes` bytes, a multiple of kSmallestTableBytes, in place of the one
// that its set-up chose from rates. Before the first frame. 0, or ZMV_E_MEMORY.
int32_t ResizeTables(MP4WriterHandle& writer, uint32_t bytes);
// The same for a recording out of a file of `file_size` bytes: large buffers for one that is nearly full, as long as
// there is the memory.
int32_t ResizeTables(MP4WriterHandle& writer, uint32_t bytes, uint64_t file_size);

}  // namespace zmv::recover

#endif

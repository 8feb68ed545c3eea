// What opening, the header walk and the indexes of the AVI reader share.
#ifndef ZMV_AVI_READER_H
#define ZMV_AVI_READER_H

#include "avi/zmvstream_avi_reader_records.h"
#include "base/trace.h"
#include "base/zmv_result.h"

namespace zmv::avi::reader {

inline constexpr TraceModule kModule{"ZMVAVIR", "zmvstream_avi_reader"};

// The code of a stream result: a failure as it is, a count that fell short as a failed read.
constexpr int32_t StreamError(int64_t result) {
  return zmv::Failed(result) ? static_cast<int32_t>(result) : Result(ZMV_E_READ);
}

// Says under an exported function's name that `error` ended it, and hands the code back.
inline int32_t Report(int32_t error, const char* function, uint32_t line = __builtin_LINE()) {
  ::ZMV_Trace(kModule.tag, kTraceError, kModule.source, line, function, "err (0x%x)\n", static_cast<unsigned>(error));
  return error;
}

// ---- Chunks at the reader's cursor

// Positions in a file are 64-bit while they are computed: a size may lead past 4 GiB.
struct ChunkHeader {
  uint32_t code = 0;
  uint32_t size = 0;  // of the data
  uint64_t data = 0;  // where the data begins
  uint64_t End() const { return data + size; }
};

// The data written so far.
uint64_t DataEnd(const AVIReaderHandle& handle);

// These report a failure under `function` and return its code.
int32_t SeekTo(AVIReaderHandle& handle, uint64_t position, const char* function);
// Exactly `size` bytes at `position`.
int32_t ReadAt(AVIReaderHandle& handle, uint64_t position, void* to, uint32_t size, const char* function);
int32_t ReadCodeAt(AVIReaderHandle& handle, uint64_t position, uint32_t* code, const char* function);
int32_t ReadChunkHeader(AVIReaderHandle& handle, uint64_t position, ChunkHeader* chunk, const char* function);
// Where the chunk behind `chunk` begins.
int32_t FindNextChunk(AVIReaderHandle& handle, const ChunkHeader& chunk, uint64_t* next, const char* function);

// ---- Streams and indexes

// The read cache of a stream's own cursor: small frames and the scan for the next frame are served from it, while a
// large payload passes through it for no more than that.
constexpr uint32_t kStreamCacheSize = 4096;

// Frees every stream.
void DropStreams(AVIReaderHandle& handle);

uint32_t GetStreamSize(AVIReaderHandle& handle, uint32_t number);

int32_t ReadIndex(AVIReaderHandle& handle, uint32_t position, uint32_t size);
int32_t ReadStreamIndex(AVIReaderHandle& handle, AVIReaderStream& stream, uint32_t size);
int32_t ReadStdIndex(AVIReaderHandle& handle);

// ---- The header walk

// The fields of a "strh" chunk that are used.
struct StreamHeader {
  uint32_t type;
  uint32_t scale;
  uint32_t rate;
  uint32_t start;
  uint32_t length;
  uint32_t suggested_size;
  uint32_t sample_size;
};

struct HeaderWalk {
  AVIReaderHandle& handle;
  ZMVFileInfo& info;
  bool read_index;

  ChunkHeader chunk = {};  // the one being read
  uint64_t next = 0;       // where the walk goes on; 0 = behind the chunk
  bool stop = false;
  uint32_t junk_chunks = 0;
  uint32_t frame_time = 0;  // "avih": microseconds
  bool has_video_header = false;
  bool has_header = false;  // `header` waits for its "strf"
  StreamHeader header = {};
  AVIReaderStream* stream = nullptr;  // made by the last "strf"; null when that one was passed over
  uint32_t audio_count = 0;           // streams that have a description
  uint32_t video_count = 0;
};

// Makes the stream that `walk.header` and the "strf" chunk at hand describe.
int32_t CreateStream(HeaderWalk& walk);
// Puts every stream in front of its first frame and completes the descriptions.
int32_t FinishStreams(AVIReaderHandle& handle, ZMVFileInfo& info);

}  // namespace zmv::avi::reader

#endif

// AVI recordings to cut and to damage, and what a recovered file holds by its index and by its chunks.
#ifndef ZMV_TESTS_RECORDED_AVI_H
#define ZMV_TESTS_RECORDED_AVI_H

#include <algorithm>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "facade/zmvstream_media.h"
#include "tests/support/scripted_host.h"

namespace zmv::test {

// Where a code stands first in a file; its end when it does not.
inline auto FindCode(const ByteVector& bytes, std::string_view code) {
  return std::search(bytes.begin(), bytes.end(), code.begin(), code.end());
}

inline constexpr const char* kAviPath = "recorded.avi";

struct AviFrame {
  uint32_t media = ZMV_MEDIA_VIDEO;
  uint32_t track = 0;
  uint64_t time = 0;
  uint32_t duration = 0;
  bool key = false;
  ByteVector payload;
  uint64_t position = 0;  // of the chunk in the file
  uint64_t end = 0;       // behind the payload
};

// ---- What to record

// H.264, AAC and text.
ZMVFileInfo AviInfo();
std::vector<AviFrame> AviFrames();
// HEVC and PCM, some of it silence.
ZMVFileInfo HevcPcmInfo();
std::vector<AviFrame> HevcPcmFrames();
// Bytes that are never zero, no two seeds alike.
ByteVector AviNoise(uint32_t seed, size_t size);
// A picture behind a start code, for H.264 or HEVC.
ByteVector Picture(uint32_t code, bool key, uint32_t seed, size_t size);

struct AviRecording {
  ByteVector open;    // as it is before it is closed
  ByteVector closed;  // and after
  uint64_t movi = 0;  // position of the code of the movi list
  std::vector<AviFrame> frames;

  uint64_t FirstChunk() const { return movi + 4; }
  size_t CompleteIn(uint64_t length) const;
};
// Records on the scripted host. The same front whenever it is called. `before_close` may script failures of the host.
AviRecording RecordAvi(ZMVFileInfo info, std::vector<AviFrame> frames, const std::function<void()>& before_close = {});

// What the writer makes of the first frames: the recording that was closed behind each of them.
class AviReferences {
 public:
  AviReferences(const ZMVFileInfo& info, const std::vector<AviFrame>& frames) : info_(info), frames_(frames) {}
  const ByteVector& ClosedBehind(size_t count);

 private:
  ZMVFileInfo info_;
  std::vector<AviFrame> frames_;
  std::map<size_t, ByteVector> closed_;
};

// ---- What came back

// Compares a closed file with frames: by the index entry for entry, and by the chunks one after the other when
// `gapless`. Empty: no difference.
std::string CompareAviFrames(const ByteVector& file, const ZMVFileInfo& info, const std::vector<AviFrame>& frames,
                             bool gapless = true);
// And by what stands behind the index.
std::string CompareAvi(const ByteVector& file, const ZMVFileInfo& info, const std::vector<AviFrame>& frames,
                       bool gapless = true);

}  // namespace zmv::test

#endif

// H.264 and HEVC byte streams with start codes (Annex B of ISO/IEC 14496-10 and 23008-2): NAL units, and pictures the
// way a recording stores them: one NAL unit behind a 4-byte start code, parameter sets apart.
#ifndef ZMV_TOOLS_ANNEXB_H
#define ZMV_TOOLS_ANNEXB_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace zmv::tool {

using Bytes = std::vector<uint8_t>;
using ByteView = std::span<const uint8_t>;

enum class VideoCodec { kH264, kHevc };

enum class NalKind { kPicture, kParameterSet, kOther };

constexpr uint8_t kStartCode[] = {0, 0, 0, 1};

// The NAL units of a byte stream, without start codes and trailing zeros. The views point into `stream`.
std::vector<ByteView> SplitNals(ByteView stream);

uint8_t NalType(VideoCodec codec, ByteView nal);
// HEVC units of other layers than the base layer are kOther.
NalKind ClassifyNal(VideoCodec codec, ByteView nal);
// An IDR picture, or any HEVC random access picture.
bool IsRandomAccess(VideoCodec codec, ByteView nal);

// Whether a parameter set stands in `access_unit`, in front of its picture.
bool HoldsParameterSets(VideoCodec codec, ByteView access_unit);

// Appends `nal` behind a 4-byte start code.
void AppendNal(ByteView nal, Bytes& out);

// What a stream's access units become in a recording.
class PictureFilter {
 public:
  explicit PictureFilter(VideoCodec codec) : codec_(codec) {}

  struct Picture {
    Bytes payload;        // empty: the access unit holds no picture
    unsigned slices = 0;  // picture NAL units in the payload
    bool random_access = false;
    bool new_parameters = false;  // it brought a parameter set that was not known
  };

  // Learns the parameter sets of a byte stream, usually the configuration that a container carries.
  bool Learn(ByteView stream);
  // Takes an access unit apart. Delimiters, comments, fillers and parameter sets do not reach the payload.
  Picture Take(ByteView access_unit);

  // Every parameter set once, each behind a 4-byte start code, HEVC in the order video, sequence, picture.
  Bytes ParameterSets() const;
  // The kinds of parameter sets that are still missing, for a message; empty when a decoder can start.
  const char* Missing() const;
  // More sets of one kind than an HEVC recording keeps (one of each).
  bool HasSurplus() const;

 private:
  bool LearnNal(ByteView nal);
  unsigned CountOf(uint8_t type) const;

  VideoCodec codec_;
  std::vector<Bytes> parameter_sets_;
};

}  // namespace zmv::tool

#endif

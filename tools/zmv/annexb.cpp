#include "tools/zmv/annexb.h"

#include <algorithm>
#include <iterator>

namespace zmv::tool {
namespace {

constexpr uint8_t kAvcIdr = 5;
constexpr uint8_t kAvcSps = 7;
constexpr uint8_t kAvcPps = 8;
constexpr uint8_t kAvcSpsExtension = 13;
constexpr uint8_t kAvcSubsetSps = 15;
constexpr uint8_t kHevcFirstRandomAccess = 16;
constexpr uint8_t kHevcLastRandomAccess = 23;
constexpr uint8_t kHevcFirstNonPicture = 32;
constexpr uint8_t kHevcVps = 32;
constexpr uint8_t kHevcSps = 33;
constexpr uint8_t kHevcPps = 34;
constexpr size_t kHevcHeaderSize = 2;
constexpr size_t kShortStartCode = 3;

// The position of the next 00 00 01 at or after `from`, or the end.
size_t FindStartCode(ByteView stream, size_t from) {
  for (size_t at = from; at + 3 <= stream.size(); ++at) {
    if (stream[at] == 0 && stream[at + 1] == 0 && stream[at + 2] == 1) return at;
  }
  return stream.size();
}

}  // namespace

std::vector<ByteView> SplitNals(ByteView stream) {
  std::vector<ByteView> nals;
  size_t start = FindStartCode(stream, 0);
  while (start < stream.size()) {
    const size_t begin = start + 3;
    start = FindStartCode(stream, begin);
    size_t end = start;
    while (end > begin && stream[end - 1] == 0) --end;  // a unit never ends in zero; these belong to the next code
    if (end > begin) nals.push_back(stream.subspan(begin, end - begin));
  }
  return nals;
}

uint8_t NalType(VideoCodec codec, ByteView nal) {
  const uint8_t first = nal.empty() ? uint8_t{0} : nal[0];
  return codec == VideoCodec::kH264 ? first & 0x1F : (first >> 1) & 0x3F;
}

NalKind ClassifyNal(VideoCodec codec, ByteView nal) {
  const uint8_t type = NalType(codec, nal);
  if (codec == VideoCodec::kH264) {
    if (type >= 1 && type <= kAvcIdr) return NalKind::kPicture;
    const bool set = type == kAvcSps || type == kAvcPps || type == kAvcSpsExtension || type == kAvcSubsetSps;
    return set ? NalKind::kParameterSet : NalKind::kOther;
  }
  if (nal.size() < kHevcHeaderSize) return NalKind::kOther;
  const unsigned layer = (nal[0] & 1u) << 5 | nal[1] >> 3;
  if (layer != 0) return NalKind::kOther;
  if (type < kHevcFirstNonPicture) return NalKind::kPicture;
  return type <= kHevcPps ? NalKind::kParameterSet : NalKind::kOther;
}

bool IsRandomAccess(VideoCodec codec, ByteView nal) {
  const uint8_t type = NalType(codec, nal);
  if (codec == VideoCodec::kH264) return type == kAvcIdr;
  return type >= kHevcFirstRandomAccess && type <= kHevcLastRandomAccess;
}

bool HoldsParameterSets(VideoCodec codec, ByteView access_unit) {
  size_t start = FindStartCode(access_unit, 0);
  while (start < access_unit.size()) {
    const NalKind kind = ClassifyNal(codec, access_unit.subspan(start + kShortStartCode));
    if (kind != NalKind::kOther) return kind == NalKind::kParameterSet;
    start = FindStartCode(access_unit, start + kShortStartCode);
  }
  return false;
}

void AppendNal(ByteView nal, Bytes& out) {
  out.insert(out.end(), std::begin(kStartCode), std::end(kStartCode));
  out.insert(out.end(), nal.begin(), nal.end());
}

bool PictureFilter::LearnNal(ByteView nal) {
  const bool known = std::any_of(parameter_sets_.begin(), parameter_sets_.end(),
                                 [nal](const Bytes& set) { return std::ranges::equal(set, nal); });
  if (!known) parameter_sets_.emplace_back(nal.begin(), nal.end());
  return !known;
}

bool PictureFilter::Learn(ByteView stream) {
  bool learnt = false;
  for (const ByteView nal : SplitNals(stream)) {
    if (ClassifyNal(codec_, nal) == NalKind::kParameterSet) learnt |= LearnNal(nal);
  }
  return learnt;
}

PictureFilter::Picture PictureFilter::Take(ByteView access_unit) {
  Picture picture;
  for (const ByteView nal : SplitNals(access_unit)) {
    switch (ClassifyNal(codec_, nal)) {
      case NalKind::kPicture:
        AppendNal(nal, picture.payload);
        ++picture.slices;
        picture.random_access |= IsRandomAccess(codec_, nal);
        break;
      case NalKind::kParameterSet:
        picture.new_parameters |= LearnNal(nal);
        break;
      case NalKind::kOther:
        break;
    }
  }
  return picture;
}

Bytes PictureFilter::ParameterSets() const {
  std::vector<const Bytes*> ordered;
  for (const Bytes& set : parameter_sets_) ordered.push_back(&set);
  std::stable_sort(ordered.begin(), ordered.end(),
                   [this](const Bytes* a, const Bytes* b) { return NalType(codec_, *a) < NalType(codec_, *b); });
  Bytes out;
  for (const Bytes* set : ordered) AppendNal(*set, out);
  return out;
}

unsigned PictureFilter::CountOf(uint8_t type) const {
  const auto of_type = [&](const Bytes& set) { return NalType(codec_, set) == type; };
  return static_cast<unsigned>(std::count_if(parameter_sets_.begin(), parameter_sets_.end(), of_type));
}

const char* PictureFilter::Missing() const {
  if (codec_ == VideoCodec::kH264) {
    return CountOf(kAvcSps) == 0 || CountOf(kAvcPps) == 0 ? "a sequence and a picture parameter set" : "";
  }
  const bool complete = CountOf(kHevcVps) != 0 && CountOf(kHevcSps) != 0 && CountOf(kHevcPps) != 0;
  return complete ? "" : "a video, a sequence and a picture parameter set";
}

bool PictureFilter::HasSurplus() const {
  return codec_ == VideoCodec::kHevc && parameter_sets_.size() > kHevcPps - kHevcVps + 1;
}

}  // namespace zmv::tool

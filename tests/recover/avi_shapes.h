// AVI recordings of every shape that the writer can give one.
#ifndef ZMV_TESTS_AVI_SHAPES_H
#define ZMV_TESTS_AVI_SHAPES_H

#include <string>
#include <vector>

#include "tests/recover/recorded_avi.h"

namespace zmv::test {

struct AviShape {
  std::string name;
  ZMVFileInfo info = {};
  std::vector<AviFrame> frames;
};

// H.264 alone, with odd and even pictures.
AviShape VideoOnly();
// AAC alone, packets of one byte among them.
AviShape SoundOnly();
// Front and rear camera (H.264, HEVC), AAC and two texts, of which one has no frame for long.
AviShape TwoCameras();
// All streams that a file has room for: their codes go on behind "09".
AviShape EveryStream();
// Motion JPEG with PCM, half of it silence.
AviShape JpegAndPcm();
// Frames without a byte, at the beginning, in a row and at the end.
AviShape EmptyFrames();
// Payloads that look like what stands around them: chunks, an index, a whole recording.
AviShape Lookalikes();
// Texts, and pictures of a second camera, which no header describes: the writer puts them into the last stream.
AviShape Undescribed();

std::vector<AviShape> AllAviShapes();
// All but the lookalikes.
std::vector<AviShape> RegularAviShapes();

}  // namespace zmv::test

#endif

#include "tests/recover/avi_shapes.h"

#include <algorithm>

#include "base/fourcc.h"

namespace zmv::test {
namespace {

constexpr uint32_t kAvc = FourCC("H264");
constexpr uint32_t kHevc = FourCC("H265");

void Sort(std::vector<AviFrame>& frames) {
  std::stable_sort(frames.begin(), frames.end(), [](const AviFrame& a, const AviFrame& b) { return a.time < b.time; });
}

AviFrame Video(uint32_t track, uint32_t code, uint32_t index, size_t size, bool key) {
  return {ZMV_MEDIA_VIDEO, track, 40 * index, 40, key, Picture(code, key, 7000 + 100 * track + index, size)};
}

AviFrame Sound(uint32_t index, size_t size) {
  return {ZMV_MEDIA_AUDIO, 0, index * 64 / 3, 21, true, AviNoise(8000 + index, size)};
}

AviFrame TextFrame(uint32_t track, uint32_t index, ByteVector payload) {
  return {ZMV_MEDIA_TEXT, track, index * 100, 100, true, std::move(payload)};
}

// With zeros in it, as positions have them.
ByteVector Position(uint32_t seed, size_t size) {
  ByteVector payload = AviNoise(seed, size);
  for (size_t i = 3; i < payload.size(); i += 2) payload[i] = 0;
  return payload;
}

ZMVFileInfo Streams(uint32_t video, uint32_t audio, uint32_t text) {
  ZMVFileInfo info = AviInfo();
  info.dwVideoCount = video;
  info.dwAudioCount = audio;
  info.dwTextCount = text;
  for (uint32_t i = 1; i < video; ++i) info.m_Video[i] = info.m_Video[0];
  for (uint32_t i = 1; i < text; ++i) info.m_Text[i] = info.m_Text[0];
  return info;
}

}  // namespace

AviShape VideoOnly() {
  AviShape shape = {"video only", Streams(1, 0, 0), {}};
  for (uint32_t i = 0; i < 26; ++i) {
    shape.frames.push_back(Video(0, kAvc, i, i % 8 == 0 ? 900 + 13 * i : 20 + 11 * i, i % 8 == 0));
  }
  return shape;
}

AviShape SoundOnly() {
  AviShape shape = {"sound only", Streams(0, 1, 0), {}};
  for (uint32_t i = 0; i < 60; ++i) shape.frames.push_back(Sound(i, i % 9 == 4 ? 1 : i % 20 == 7 ? 700 + i : 15 + i));
  return shape;
}

AviShape TwoCameras() {
  AviShape shape = {"two cameras", Streams(2, 1, 2), {}};
  shape.info.m_Video[1] = HevcPcmInfo().m_Video[0];
  for (uint32_t i = 0; i < 14; ++i) {
    shape.frames.push_back(Video(0, kAvc, i, i % 5 == 0 ? 800 : 61 + 7 * i, i % 5 == 0));
    shape.frames.push_back(Video(1, kHevc, i, i % 7 == 0 ? 600 : 50 + 6 * i, i % 7 == 0));
  }
  for (uint32_t i = 0; i < 25; ++i) shape.frames.push_back(Sound(i, 30 + i % 5));
  for (uint32_t i = 0; i < 5; ++i) shape.frames.push_back(TextFrame(0, i, Position(60 + i, 92 + i)));
  shape.frames.push_back(TextFrame(1, 3, Position(70, 33)));
  Sort(shape.frames);
  return shape;
}

AviShape EveryStream() {
  AviShape shape = {"every stream", Streams(ZMV_MAX_VIDEO, ZMV_MAX_AUDIO, ZMV_MAX_TEXT), {}};
  for (uint32_t i = 0; i < 5; ++i) {
    for (uint32_t track = 0; track < ZMV_MAX_VIDEO; ++track) {
      shape.frames.push_back(Video(track, kAvc, i, i == 0 ? 150 + track : 40 + 3 * track + i, i == 0));
    }
    shape.frames.push_back(Sound(2 * i, 30 + i));
    for (uint32_t track = 0; track < ZMV_MAX_TEXT; ++track) {
      shape.frames.push_back({ZMV_MEDIA_TEXT, track, 40 * i, 40, true, Position(90 + 2 * i + track, 40 + i)});
    }
  }
  Sort(shape.frames);
  return shape;
}

AviShape JpegAndPcm() {
  AviShape shape = {"JPEG and PCM", HevcPcmInfo(), {}};
  shape.info.m_Video[0] = Streams(1, 0, 0).m_Video[0];
  shape.info.m_Video[0].dwFourCC = FourCC("MJPG");
  for (uint32_t i = 0; i < 12; ++i) {
    ByteVector picture = AviNoise(500 + i, 300 + 97 * (i % 5));
    picture[0] = 0xFF;
    picture[1] = 0xD8;
    shape.frames.push_back({ZMV_MEDIA_VIDEO, 0, 40 * i, 40, true, picture});
  }
  for (uint32_t i = 0; i < 24; ++i) {
    ByteVector payload = i % 2 == 0 ? ByteVector(160) : AviNoise(600 + i, 160);
    shape.frames.push_back({ZMV_MEDIA_AUDIO, 0, 20 * i, 20, true, payload});
  }
  Sort(shape.frames);
  return shape;
}

AviShape EmptyFrames() {
  AviShape shape = {"empty frames", Streams(1, 1, 1), {}};
  for (uint32_t i = 0; i < 16; ++i) {
    AviFrame video = Video(0, kAvc, i, 90 + 31 * i, i % 6 == 1);
    if (i == 0 || (i > 3 && i < 6) || i == 15) video.payload.clear(), video.key = false;
    shape.frames.push_back(video);
  }
  for (uint32_t i = 0; i < 29; ++i) shape.frames.push_back(Sound(i, i == 0 || i % 5 == 0 ? 0 : 20 + 3 * i));
  for (uint32_t i = 0; i < 7; ++i)
    shape.frames.push_back(TextFrame(0, i, i == 6 || i == 0 ? ByteVector() : Position(i, 92)));
  Sort(shape.frames);
  return shape;
}

AviShape Lookalikes() {
  AviShape shape = {"lookalikes", Streams(1, 1, 1), {}};
  const ByteVector whole =
      RecordAvi(Streams(1, 1, 1), {Video(0, kAvc, 0, 60, true), Sound(0, 31), Sound(1, 20)}).closed;
  const ByteVector chunks = Join({Text("00dc"), Le32(6), Hex("00000001 65 88"), Text("01wb"), Le32(2), Hex("2110"),
                                  Text("02tx"), Le32(3), Hex("31323300")});
  for (uint32_t i = 0; i < 14; ++i) {
    AviFrame video = Video(0, kAvc, i, 120 + 31 * i, i % 6 == 0);
    const ByteVector inside = i % 3 == 0 ? chunks : Join({Text("00dc"), Le32(i * 1000)});
    if (i % 2 == 1) video.payload.insert(video.payload.end(), inside.begin(), inside.end());
    shape.frames.push_back(video);
  }
  for (uint32_t i = 0; i < 25; ++i) {
    AviFrame sound = Sound(i, 33 + i);
    const ByteVector inside = i % 2 == 0 ? Join({Text("idx1"), Le32(32), Text("00dc")}) : Join({Text("JUNK"), Le32(9)});
    sound.payload.insert(sound.payload.begin() + 10, inside.begin(), inside.end());
    shape.frames.push_back(sound);
  }
  for (uint32_t i = 0; i < 7; ++i) {
    ByteVector payload = i % 3 == 0 ? whole : i % 3 == 1 ? chunks : Join({Text("02tx"), Le32(5), Text("hello")});
    payload.resize(payload.size() + i % 2, 'x');
    shape.frames.push_back(TextFrame(0, i, payload));
  }
  Sort(shape.frames);
  return shape;
}

AviShape Undescribed() {
  AviShape shape = {"undescribed", Streams(1, 1, 0), {}};
  for (uint32_t i = 0; i < 14; ++i) {
    shape.frames.push_back(Video(0, kAvc, i, 120 + 31 * i, i % 6 == 0));
    if (i % 5 == 2) shape.frames.push_back(Video(1, kAvc, i, 77 + i, i % 2 == 0));
  }
  for (uint32_t i = 0; i < 25; ++i) shape.frames.push_back(Sound(i, 40 + i));
  for (uint32_t i = 0; i < 7; ++i) shape.frames.push_back(TextFrame(0, i, Position(40 + i, 92 + i)));
  Sort(shape.frames);
  return shape;
}

std::vector<AviShape> AllAviShapes() {
  std::vector<AviShape> shapes = RegularAviShapes();
  shapes.push_back(Lookalikes());
  return shapes;
}

std::vector<AviShape> RegularAviShapes() {
  return {VideoOnly(), SoundOnly(), TwoCameras(), EveryStream(), JpegAndPcm(), EmptyFrames(), Undescribed()};
}

}  // namespace zmv::test

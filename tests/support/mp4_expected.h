// The boxes of a finished MP4 file as they are expected, one literal per field, for files compared byte by byte.
#ifndef ZMV_TESTS_MP4_EXPECTED_H
#define ZMV_TESTS_MP4_EXPECTED_H

#include "tests/support/mp4_recording.h"

namespace zmv::test::expected {

// ---- In front

inline ByteVector Ftyp41() {
  return Join({
      Be32(28), Text("ftyp"),                    // box
      Text("mp41"), Be32(1),                     // major brand, minor version
      Text("isom"), Text("avc1"), Text("mp41"),  // compatible brands
  });
}

inline ByteVector FtypWithoutBrand() {
  return Join({
      Be32(28), Text("ftyp"),                    // box
      Be32(0), Be32(0),                          // empty major brand
      Text("isom"), Text("avc1"), Text("mp41"),  // compatible brands
  });
}

// `mark` is "rcvf" or four zeros.
inline ByteVector RandomBox(const ByteVector& mark = Zeros(4)) {
  const uint32_t size = RandomBoxSize();
  return Join({Be32(size), Text("free"), mark, Zeros(size - 12)});
}

inline ByteVector BuildInformation() { return Join({Be32(23), Text("free"), Text("Mmm dd yyyy KPZ")}); }

// The record in front of a payload.
inline ByteVector Reco(uint32_t media, uint32_t key, uint32_t time, uint32_t duration, uint32_t track, uint32_t size) {
  return Join({Text("RECO"), Be32(media), Be32(key), Be32(time), Be32(duration), Be32(track), Be32(size)});
}

// ---- moov

inline ByteVector Matrix() {
  return Join({
      Be32(0x00010000), Be32(0), Be32(0),  // a, b, u
      Be32(0), Be32(0x00010000), Be32(0),  // c, d, v
      Be32(0), Be32(0), Be32(0x40000000),  // x, y, w
  });
}

inline ByteVector Mvhd(uint32_t scale, uint32_t duration, uint32_t tracks) {
  return Join({
      Be32(108), Text("mvhd"), Be32(0),           // box, version and flags
      Be32(0), Be32(0),                           // creation, modification
      Be32(scale), Be32(duration),                // time scale, duration
      Be32(0x00010000), Be16(0x0100), Zeros(10),  // rate, volume, reserved
      Matrix(), Zeros(24),                        // matrix, pre-defined
      Be32(tracks),                               // "next" track ID
  });
}

inline ByteVector Tkhd(uint32_t id, uint32_t duration, uint32_t volume, uint32_t width, uint32_t height) {
  return Join({
      Be32(92), Text("tkhd"), Be32(1),              // box, enabled
      Be32(0), Be32(0),                             // creation, modification
      Be32(id), Be32(0),                            // track ID, reserved
      Be32(duration), Zeros(8),                     // duration, reserved
      Be16(0), Be16(0),                             // layer, alternate group
      Be16(volume), Be16(0),                        // volume, reserved
      Matrix(),                                     // matrix
      Be16(width), Be16(0), Be16(height), Be16(0),  // 16.16
  });
}

inline ByteVector Mdhd(uint32_t scale, uint32_t duration) {
  return Join({
      Be32(32), Text("mdhd"), Be32(0),  // box, version and flags
      Be32(0), Be32(0),                 // creation, modification
      Be32(scale), Be32(duration),      // time scale, duration
      Be16(0), Be16(0),                 // language, pre-defined
  });
}

inline ByteVector Hdlr(std::string_view type, std::string_view name) {
  return Join({
      Be32(37), Text("hdlr"), Be32(0),  // box, version and flags
      Be32(0), Text(type), Zeros(12),   // pre-defined, handler type, reserved
      Text(name), Bytes({0}),           // name
  });
}

inline ByteVector Vmhd() { return Join({Be32(20), Text("vmhd"), Be32(0), Be16(0), Zeros(6)}); }
inline ByteVector Smhd() { return Join({Be32(16), Text("smhd"), Be32(0), Be16(0), Be16(0)}); }
inline ByteVector Nmhd() { return Join({Be32(12), Text("nmhd"), Be32(0)}); }

inline ByteVector Dinf() {
  return Join({
      Be32(36), Text("dinf"),                    // box
      Be32(28), Text("dref"), Be32(0), Be32(1),  // version and flags, one entry
      Be32(12), Text("url "), Be32(1),           // media in the same file
  });
}

// ---- Sample descriptions

inline ByteVector StsdOf(std::initializer_list<ByteVector> entry) {
  const ByteVector body = Join(entry);
  return BoxOf("stsd", {Be32(0), Be32(1), body});  // version and flags, one entry
}

inline ByteVector EmptyStsd() { return Join({Be32(16), Text("stsd"), Be32(0), Be32(1)}); }

// The 86 bytes of an "avc1" or "hvc1" entry of `size` bytes in all.
inline ByteVector VideoEntry(uint32_t size, std::string_view type, uint32_t width, uint32_t height) {
  return Join({
      Be32(size), Text(type), Zeros(6), Be16(1),     // head, data reference index
      Zeros(16), Be16(width), Be16(height),          // reserved, picture size
      Be32(0x00480000), Be32(0x00480000), Be32(0),   // 72 dpi, reserved
      Be16(1), Zeros(32), Be16(0x18), Be16(0xFFFF),  // frame count, compressor, depth, pre-defined
  });
}

// The 36 bytes of an audio entry of `size` bytes in all.
inline ByteVector AudioEntry(uint32_t size, std::string_view type, uint32_t channels, uint32_t bits, uint32_t rate) {
  return Join({
      Be32(size), Text(type), Zeros(6), Be16(1),  // head, data reference index
      Zeros(8), Be16(channels), Be16(bits),       // reserved, channels, bits
      Zeros(2), Be32(rate), Zeros(2),             // the rate is 16.16 two bytes further on
  });
}

// esds without decoder-specific information.
inline ByteVector PlainEsds(int object_type, int stream_type, uint32_t largest, uint32_t bit_rate) {
  return Join({
      Be32(35), Text("esds"), Be32(0),              // box, version and flags
      Bytes({3, 23, 0, 0, 0}),                      // ES descriptor, ES ID, flags
      Bytes({4, 10, object_type, stream_type, 0}),  // decoder configuration
      Be16(largest),                                // the low half of the buffer size
      Be32(bit_rate), Be32(bit_rate),               // maximum and average bit rate
      Bytes({6, 1, 2}),                             // SL configuration
  });
}

// esds of AAC with a 2-byte AudioSpecificConfig.
inline ByteVector AacEsds(const ByteVector& config, uint32_t largest, uint32_t bit_rate) {
  return Join({
      Be32(39), Text("esds"), Be32(0),  // box, version and flags
      Bytes({3, 25, 0, 0, 0}),          // ES descriptor, ES ID, flags
      Bytes({4, 17, 0x40, 0x15, 0}),    // decoder configuration: AAC, audio
      Be16(largest),                    // the low half of the buffer size
      Be32(bit_rate), Be32(bit_rate),   // maximum and average bit rate
      Bytes({5, 2}), config,            // decoder-specific information
      Bytes({6, 1, 2}),                 // SL configuration
  });
}

inline ByteVector Btrt(uint32_t bit_rate) {
  return Join({Be32(20), Text("btrt"), Be32(0x5601), Be32(bit_rate), Be32(bit_rate)});
}

// Constrained Baseline sets without emulation prevention, as configuration and as the record behind "avcC".
inline ByteVector AvcSps() { return Hex("67 42 C0 0A DA 08 18"); }
inline ByteVector AvcPps() { return Hex("68 CE 06 E2"); }
inline ByteVector AvcConfig() { return Join({Be32(1), AvcSps(), Be32(1), AvcPps()}); }
inline ByteVector AvccBox() {
  return Join({
      Be32(30), Text("avcC"), Bytes({1}),      // box, version
      Bytes({0x42, 0xC0, 0x0A}),               // profile, compatibility, level
      Bytes({0xFF, 0xE1}), Be16(7), AvcSps(),  // length size 4, one SPS
      Bytes({1}), Be16(4), AvcPps(),           // one PPS
  });
}
// The whole description of such a track: 16 + 86 + 30 + 20 bytes.
inline ByteVector AvcStsd(uint32_t width, uint32_t height, uint32_t bit_rate) {
  return StsdOf({VideoEntry(136, "avc1", width, height), AvccBox(), Btrt(bit_rate)});
}
// 16 + 36 + 39 bytes.
inline ByteVector AacStsd(const ByteVector& config, uint32_t rate, uint32_t largest, uint32_t bit_rate) {
  return StsdOf({AudioEntry(75, "mp4a", 2, 16, rate), AacEsds(config, largest, bit_rate)});
}

// ---- Sample tables: `entries` follow the header

inline ByteVector TableOf(std::string_view type, uint32_t count, std::initializer_list<ByteVector> entries) {
  const ByteVector all = Join(entries);
  return BoxOf(type, {Be32(0), Be32(count), all});  // version and flags, entry count
}
// Sizes listed.
inline ByteVector StszOf(std::initializer_list<uint32_t> sizes) {
  ByteVector all;
  for (uint32_t size : sizes) all = Join({all, Be32(size)});
  return BoxOf("stsz", {Be32(0), Be32(0), Be32(static_cast<uint32_t>(sizes.size())), all});
}
// One size for all.
inline ByteVector StszConstant(uint32_t size, uint32_t count) {
  return BoxOf("stsz", {Be32(0), Be32(size), Be32(count)});
}
inline ByteVector StcoOf(std::initializer_list<uint32_t> offsets) {
  ByteVector all;
  for (uint32_t offset : offsets) all = Join({all, Be32(offset)});
  return BoxOf("stco", {Be32(0), Be32(static_cast<uint32_t>(offsets.size())), all});
}
inline ByteVector SttsEntry(uint32_t count, uint32_t delta) { return Join({Be32(count), Be32(delta)}); }
inline ByteVector StscEntry(uint32_t first, uint32_t samples) { return Join({Be32(first), Be32(samples), Be32(1)}); }
// Every sample a chunk.
inline ByteVector StscInterleaved() { return TableOf("stsc", 1, {StscEntry(1, 1)}); }

// ---- trak

struct TrackParts {
  ByteVector tkhd, mdhd, hdlr, media_header, stsd;
  std::initializer_list<ByteVector> tables;  // in file order
};

inline ByteVector TrakOf(const TrackParts& parts) {
  const ByteVector tables = Join(parts.tables);
  const ByteVector stbl = BoxOf("stbl", {parts.stsd, tables});
  const ByteVector minf = BoxOf("minf", {parts.media_header, Dinf(), stbl});
  return BoxOf("trak", {parts.tkhd, BoxOf("mdia", {parts.mdhd, parts.hdlr, minf})});
}

// ---- Descriptions to record with

inline ZMVFileInfo FileInfo(uint32_t file_type = 1) {
  ZMVFileInfo info = {};
  info.m_dwFileType = file_type;
  return info;
}

inline void SetConfig(uint8_t* to, uint32_t* size, const ByteVector& config) {
  std::copy(config.begin(), config.end(), to);
  *size = static_cast<uint32_t>(config.size());
}

inline ZMVVideoInfo& AddVideo(ZMVFileInfo& info, uint32_t code, uint32_t width, uint32_t height, uint32_t bit_rate,
                              const ByteVector& config) {
  ZMVVideoInfo& video = info.m_Video[info.dwVideoCount++];
  video.dwFourCC = code;
  video.dwWidth = width;
  video.dwHeight = height;
  video.dwFrameRate = 30000;
  video.dwBitRate = bit_rate;
  SetConfig(video.abExtraData, &video.dwExtraDataSize, config);
  return video;
}

inline ZMVAudioInfo& AddAudio(ZMVFileInfo& info, uint32_t format, uint32_t channels, uint32_t rate, uint32_t bit_rate,
                              const ByteVector& config) {
  info.dwAudioCount = 1;
  ZMVAudioInfo& audio = info.m_Audio;
  audio.dwFormat = format;
  audio.dwChannels = channels;
  audio.dwSampleRate = rate;
  audio.dwBitsPerSample = 16;
  audio.dwBlockAlign = 2048;
  audio.dwBitRate = bit_rate;
  SetConfig(audio.abExtraData, &audio.dwExtraDataSize, config);
  return audio;
}

inline ZMVTextInfo& AddText(ZMVFileInfo& info, uint32_t code, uint32_t rate) {
  ZMVTextInfo& text = info.m_Text[info.dwTextCount++];
  text.dwFourCC = code;
  text.dwRate = rate;
  return text;
}

}  // namespace zmv::test::expected

#endif

/* A C program that records three frames and plays them back: what an application does, with nothing but the public
 * headers. */
#include <stdio.h>
#include <string.h>

#include "zmvstream.h"

#define FRAMES 3u
#define FRAME_MS 40u

static const uint8_t kParameterSets[] = {
    0, 0, 0, 1, 0x67, 0x42, 0xC0, 0x0A, 0xDA, 0x10, 0x8D, 0x80, 0x6D, 0x0A, 0x13, 0x50, /* sequence */
    0, 0, 0, 1, 0x68, 0xCE, 0x3C, 0x80                                                  /* picture */
};

static int check(int good, const char* what) {
  if (!good) fprintf(stderr, "record_play: %s\n", what);
  return good;
}

/* An access unit of one slice whose bytes tell its number. Returns its size. */
static uint32_t make_payload(uint32_t number, uint8_t* payload) {
  static const uint8_t kSlice[] = {0, 0, 0, 1, 0x65};
  memcpy(payload, kSlice, sizeof kSlice);
  memset(payload + sizeof kSlice, (int)(0xA0u + number), 20u + number);
  return (uint32_t)sizeof kSlice + 20u + number;
}

static int write_frames(ZMVWriter* writer) {
  uint8_t payload[64];
  uint32_t i;
  for (i = 0; i < FRAMES; ++i) {
    ZMVFrame frame;
    memset(&frame, 0, sizeof frame);
    frame.pData = payload;
    frame.dwSize = make_payload(i, payload);
    frame.llTimeStamp = i * FRAME_MS;
    frame.dwDuration = FRAME_MS * 1000u;
    frame.dwMediaType = ZMV_MEDIA_VIDEO;
    frame.dwKeyFrame = i == 0 ? ZMV_KEY_FRAME : ZMV_NOT_KEY_FRAME;
    if (!check(ZMVWriterWrite(writer, &frame) == 0, "a frame was not written")) return 0;
    if (!check(frame.dwSize == 0, "the size of a written frame is not 0")) return 0;
  }
  return 1;
}

static int record(const char* path) {
  static ZMVFileInfo info;
  ZMVWriterParam param;
  ZMVWriter* writer = NULL;
  int good;
  memset(&param, 0, sizeof param);
  param.dwFormat = ZMV_FORMAT_MP4;
  param.pszPath = path;
  param.bInterleave = 1;
  if (!check(ZMVWriterOpen(&writer, &param) == 0, "the file was not created")) return 0;
  info.m_dwFileType = 1;
  info.dwTimeScale = 90000;
  info.dwVideoCount = 1;
  info.m_Video[0].dwFourCC = ZMV_FOURCC('H', '2', '6', '4');
  info.m_Video[0].dwWidth = 64;
  info.m_Video[0].dwHeight = 48;
  memcpy(info.m_Video[0].abExtraData, kParameterSets, sizeof kParameterSets);
  info.m_Video[0].dwExtraDataSize = (uint32_t)sizeof kParameterSets;
  good = check(ZMVWriterSetInfo(writer, &info, 0) == 0, "the streams were refused") && write_frames(writer) &&
         check(strcmp(ZMVWriterGetFilePath(writer), path) == 0, "another path");
  ZMVWriterClose(writer);
  return good;
}

static int read_frames(ZMVReader* reader) {
  uint8_t expected[64];
  uint8_t buffer[64];
  ZMVFrame frame;
  uint32_t i;
  memset(&frame, 0, sizeof frame);
  frame.dwMediaType = ZMV_MEDIA_VIDEO;
  frame.pData = buffer;
  for (i = 0; i < FRAMES; ++i) {
    const uint32_t size = make_payload(i, expected);
    frame.dwBufSize = (uint32_t)sizeof buffer;
    if (!check(ZMVReaderReadFrame(reader, &frame) == 0, "a frame was not read")) return 0;
    if (!check(frame.dwSize == size && memcmp(buffer, expected, size) == 0, "another payload")) return 0;
    if (!check(frame.llTimeStamp == i * FRAME_MS, "another time stamp")) return 0;
    if (!check(frame.dwKeyFrame == (i == 0 ? ZMV_KEY_FRAME : ZMV_NOT_KEY_FRAME), "another key flag")) return 0;
  }
  return check((uint32_t)ZMVReaderReadFrame(reader, &frame) == ZMV_E_END, "no end behind the last frame");
}

static int play(const char* path) {
  static ZMVFileInfo info;
  ZMVReaderParam param;
  ZMVReader* reader = NULL;
  int good;
  memset(&param, 0, sizeof param);
  param.pszPath = path;
  if (!check(ZMVReaderOpen(&reader, &param) == 0, "the file was not opened")) return 0;
  good = check(param.dwSize != 0, "a size of 0") && check(ZMVReaderGetInfo(reader, &info) == 0, "no description") &&
         check(info.dwVideoCount == 1 && info.m_Video[0].dwFrames == FRAMES, "another number of frames") &&
         check(info.m_Video[0].dwWidth == 64 && info.m_Video[0].dwHeight == 48, "another picture size") &&
         read_frames(reader);
  ZMVReaderClose(reader);
  return good;
}

int main(int argc, char** argv) {
  int good;
  if (argc != 2) {
    fprintf(stderr, "usage: record_play FILE.mp4\n");
    return 2;
  }
  good = record(argv[1]) && play(argv[1]);
  remove(argv[1]);
  return good ? 0 : 1;
}

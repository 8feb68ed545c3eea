/* A C program that cuts recordings and brings them back, through the example of docs/recovery.md and the other calls of
 * the recovery library. */
#include <recovery_example.h>
#include <stdlib.h>

#include "zmvstream.h"

#define FRAMES 30u
#define FRAME_MS 40u
#define FRAME_BYTES 700u
#define PATH_BYTES 4096u

static uint8_t g_file[256u * 1024u];
static size_t g_size;

static int check(int good, const char* what) {
  if (!good) fprintf(stderr, "recover_at_boot: %s\n", what);
  return good;
}

static int record(const char* path) {
  static ZMVFileInfo info;
  uint8_t payload[FRAME_BYTES];
  ZMVWriterParam param;
  ZMVWriter* writer = NULL;
  uint32_t i;
  int good;
  memset(&param, 0, sizeof param);
  param.dwFormat = ZMV_FORMAT_MP4;
  param.pszPath = path;
  param.bInterleave = 1;
  if (!check(ZMVWriterOpen(&writer, &param) == 0, "the file was not created")) return 0;
  memset(&info, 0, sizeof info);
  info.m_dwFileType = 1;
  info.dwTimeScale = 90000;
  info.dwVideoCount = 1;
  info.m_Video[0].dwFourCC = ZMV_FOURCC('H', '2', '6', '4');
  info.m_Video[0].dwWidth = 64;
  info.m_Video[0].dwHeight = 48;
  info.m_Video[0].dwTimeScale = 90000;
  good = check(ZMVWriterSetInfo(writer, &info, 0) == 0, "the streams were refused");
  for (i = 0; good && i < FRAMES; ++i) {
    static const uint8_t kSlice[] = {0, 0, 0, 1, 0x65};
    ZMVFrame frame;
    memset(payload, (int)(1u + i), sizeof payload);
    memcpy(payload, kSlice, sizeof kSlice);
    memset(&frame, 0, sizeof frame);
    frame.pData = payload;
    frame.dwSize = (uint32_t)sizeof payload;
    frame.llTimeStamp = i * FRAME_MS;
    frame.dwDuration = FRAME_MS * 1000u;
    frame.dwMediaType = ZMV_MEDIA_VIDEO;
    frame.dwKeyFrame = ZMV_KEY_FRAME;
    good = check(ZMVWriterWrite(writer, &frame) == 0, "a frame was not written");
  }
  ZMVWriterClose(writer);
  return good;
}

static int load(const char* path) {
  FILE* file = fopen(path, "rb");
  if (!check(file != NULL, "a file is missing")) return 0;
  g_size = fread(g_file, 1, sizeof g_file, file);
  return check(fclose(file) == 0 && g_size != 0 && g_size < sizeof g_file, "a file was not read");
}

static int store(const char* path, size_t size) {
  FILE* file = fopen(path, "wb");
  size_t written;
  if (!check(file != NULL, "a file was not created")) return 0;
  written = fwrite(g_file, 1, size, file);
  return check(fclose(file) == 0 && written == size, "a file was not written");
}

static size_t find(const char* tag) {
  size_t at = 0;
  while (at + 4 < g_size && memcmp(g_file + at, tag, 4) != 0) ++at;
  return at;
}

/* The recording as it is when the power goes in the middle of it. */
static int cut(const char* path, size_t* complete) {
  static const uint8_t kOpen[] = {0, 0, 0, 8};
  const size_t data = find("mdat");
  const size_t kept = data + (g_size - data) / 2u;
  size_t at;
  memcpy(g_file + data - 4, kOpen, sizeof kOpen);
  *complete = 0;
  for (at = data + 4; at + 28u + FRAME_BYTES <= kept; at += 28u + FRAME_BYTES) ++*complete;
  return store(path, kept);
}

static int probe(const char* path, uint32_t state, uint32_t frames) {
  static ZMVRecoverReport report;
  static ZMVFileInfo info;
  ZMVRecoverParam param;
  memset(&param, 0, sizeof param);
  param.pszPath = path;
  if (!check(ZMVRecoverProbe(&param, &report, &info) == 0, "a file was not probed")) return 0;
  return check(report.dwState == state, "another state") && check(report.dwFrames == frames, "other frames") &&
         check(frames == 0 || (info.dwVideoCount == 1 && info.m_Video[0].dwWidth == 64), "another description");
}

static int run(const char* path, const char* spare) {
  size_t complete = 0;
  if (!record(path) || !probe(path, ZMV_RECOVER_WHOLE, FRAMES)) return 0;
  if (!load(path) || !cut(path, &complete)) return 0;
  if (!check(complete > 5 && complete < FRAMES, "no cut in the middle")) return 0;
  if (!probe(path, ZMV_RECOVER_CUT, (uint32_t)complete)) return 0;
  if (!check(recover_at_boot(path, spare) == 0, "not recovered") || !probe(path, ZMV_RECOVER_WHOLE, (uint32_t)complete))
    return 0;

  /* Once more, without its first boxes. */
  if (!load(path)) return 0;
  memset(g_file, 0, 16);
  if (!store(path, g_size) || !check(recover_at_boot(path, spare) == 0, "not recovered to a new file")) return 0;
  if (!probe(spare, ZMV_RECOVER_WHOLE, (uint32_t)complete)) return 0;

  memset(g_file, 'x', g_size);
  return store(path, g_size) && probe(path, ZMV_RECOVER_FOREIGN, 0) &&
         check((uint32_t)recover_at_boot(path, spare) == ZMV_E_UNSUPPORTED_FORMAT, "a foreign file was taken");
}

int main(int argc, char** argv) {
  static char path[PATH_BYTES], spare[PATH_BYTES];
  int good;
  if (argc != 2 || strlen(argv[1]) > PATH_BYTES - 16) {
    fprintf(stderr, "usage: recover_at_boot NAME\n");
    return 2;
  }
  snprintf(path, sizeof path, "%s.mp4", argv[1]);
  snprintf(spare, sizeof spare, "%s.new.mp4", argv[1]);
  remove(spare);
  good = run(path, spare);
  remove(path);
  remove(spare);
  return good ? EXIT_SUCCESS : EXIT_FAILURE;
}

// Where a recording ends: at 4 GiB.
#include "tests/avi/writer_test.h"

namespace zmv::test {
namespace {

using ::testing::HasSubstr;

class AviLimits : public AviWriterTest {
 protected:
  // Everything that a refused frame must leave as it was.
  ByteVector State() const {
    ByteVector state(reinterpret_cast<const uint8_t*>(writer), reinterpret_cast<const uint8_t*>(writer + 1));
    for (uint32_t i = 0; i < writer->m_dwStreamCount; ++i) {
      const auto* record = reinterpret_cast<const uint8_t*>(writer->m_pStream[i]);
      state.insert(state.end(), record, record + sizeof(AVIWriterStream));
    }
    return state;
  }
  // As if the frames so far had taken the movi list to `distance` bytes before 4 GiB.
  void MoveTo(uint32_t distance) { writer->m_dwMoviSize = 0xFFFFFFFF - distance - (writer->m_dwMoviSizePos + 4); }
};

// Behind the last chunk: idx1 with one entry more, the name, and the header of the fill chunk.
TEST_F(AviLimits, At4GiB_TheLastByteIsTaken) {
  for (const bool fill : {true, false}) {
    for (const uint32_t size : {0u, 1u, 10u, 11u}) {
      info = {};
      if (!fill) NoFill();
      AddVideo();
      Start();
      EXPECT_EQ(WriteVideo(4, 10), 0);
      const uint32_t before = writer->m_dwMoviSize;
      const uint32_t trailer = 8 + 16 + 16 + 8 + 320 + (fill ? 8 : 0);
      const uint32_t chunk = 8 + size + size % 2;
      MoveTo(trailer + chunk - 1);
      const ByteVector state = State();
      const ByteVector file = File();
      EXPECT_EQ(static_cast<uint32_t>(WriteVideo(size, 50)), ZMV_E_WRITE);
      EXPECT_THAT(host.Traces(1).back(), HasSubstr("no room for frame media(1) index(0) size(" + std::to_string(size)));
      EXPECT_EQ(Difference(State(), state), "");
      EXPECT_EQ(Difference(File(), file), "");
      MoveTo(trailer + chunk);
      EXPECT_EQ(WriteVideo(size, 50), 0);
      writer->m_dwMoviSize = before + chunk;
      Close();
    }
  }
}

TEST_F(AviLimits, FrameOf4GiB_IsRefused) {
  AddVideo();
  Start();
  uint8_t byte = 0;
  ZMVFrame frame = {};
  frame.pData = &byte;
  frame.dwMediaType = ZMV_MEDIA_VIDEO;
  for (const uint32_t size : {0xFFFFFFFFu, 0xFFFFFFF7u, 0xFFFFFE00u}) {
    frame.dwSize = size;
    EXPECT_EQ(static_cast<uint32_t>(AVIWriterWriteFrame(writer, &frame)), ZMV_E_WRITE);
  }
  // The sum with a prefix does not wrap.
  Stream().m_dwPrefixSize = 0xFFFFFFFF;
  EXPECT_EQ(static_cast<uint32_t>(WriteVideo(5)), ZMV_E_WRITE);
  Stream().m_dwPrefixSize = 0;
  EXPECT_EQ(WriteVideo(5), 0);
  EXPECT_EQ(Difference(Entry(), IndexEntryOf("00dc", 0, 4, 5)), "");
}

TEST_F(AviLimits, TheIndexCounts) {
  AddVideo();
  Start();
  EXPECT_EQ(WriteVideo(4), 0);
  const uint32_t before = writer->m_dwMoviSize;
  MoveTo(10000);
  for (int i = 0; i < 20; ++i) EXPECT_EQ(WriteVideo(4), 0);
  MoveTo(1000);  // 21 entries take 336
  EXPECT_EQ(WriteVideo(4), 0);
  MoveTo(700);
  EXPECT_EQ(static_cast<uint32_t>(WriteVideo(4)), ZMV_E_WRITE);
  writer->m_dwMoviSize = before + 21 * 12;
}

// A stream that keeps nothing and says where the file ends.
struct EndlessStream {
  ZMVStreamBuf handle = {};
  uint64_t position = 0;
  uint64_t end = 0;

  static EndlessStream& Of(void* context) { return *static_cast<EndlessStream*>(context); }
  EndlessStream() {
    handle.hInOut = this;
    handle.Index = [](void*, uint32_t* idx, uint32_t) -> int64_t {
      *idx = 0;
      return 0;
    };
    handle.WriteBuffer = [](void* context, uint32_t, const void*, uint32_t len) -> int64_t {
      Of(context).position += len;
      Of(context).end = std::max(Of(context).end, Of(context).position);
      return len;
    };
    handle.Seek = [](void* context, uint32_t, uint32_t pos) -> int64_t {
      Of(context).position = pos;
      return 0;
    };
    handle.SeekEnd = [](void* context, uint32_t, int32_t) -> int64_t {
      Of(context).position = Of(context).end;
      return 0;
    };
    handle.Pos = [](void* context, uint32_t) { return static_cast<uint32_t>(Of(context).position); };
    handle.Size = [](void* context) { return static_cast<int64_t>(Of(context).end); };
    handle.GetFilesize = handle.Size;
  }
};

// Frames of 1 MiB until one is refused, then small ones: the closed file ends right before 4 GiB.
TEST_F(AviLimits, ClosedFile_StaysBelow4GiB) {
  host.record = false;
  host.trace_level = 0;
  for (const bool fill : {false, true}) {
    EndlessStream endless;
    info = {};
    if (!fill) NoFill();
    AddVideo();
    AddAudio();
    ASSERT_EQ(AVIWriterOpen(&writer, &endless.handle, 1, 60000, 0.0), 0);
    ASSERT_EQ(SetInfo(), 0);
    ByteVector payload(1 << 20);
    ZMVFrame frame = {};
    frame.pData = payload.data();
    frame.dwMediaType = ZMV_MEDIA_VIDEO;
    for (uint32_t size = 1 << 20; size != 0; size /= 2) {
      frame.dwSize = size;
      int32_t result = 0;
      while ((result = AVIWriterWriteFrame(writer, &frame)) == 0) {
      }
      ASSERT_EQ(static_cast<uint32_t>(result), ZMV_E_WRITE);
    }
    CloseWriter();
    EXPECT_LE(endless.end, 0xFFFFFFFFu);
    EXPECT_GT(endless.end, 0xFFFFFFFFu - 32);
  }
}

}  // namespace
}  // namespace zmv::test

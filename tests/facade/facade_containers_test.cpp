// Opening and closing with containers of the test's own: the slots that may be empty, and the order in which everything
// is taken down.
#include <gmock/gmock.h>

#include "facade/facade_formats.h"
#include "tests/facade/test_stream.h"

namespace zmv::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr char kPath[] = "any.bin";

// What the containers saw, the latest last.
struct Seen {
  std::vector<std::string> events;
  ZMVReaderParam* param = nullptr;
  int32_t open_result = 0;
};

Seen seen;
int container;  // its address is the handle

// How much of the handle stands when its container is closed.
void Note(const char* event) {
  const ScriptedHost& host = *ScriptedHost::Current();
  seen.events.push_back(std::string(event) + ", mutexes gone " + std::to_string(host.Count(HostCall::kMutexDestroy)) +
                        ", files closed " + std::to_string(host.Count(HostCall::kClose)));
}

int32_t Opened(void** handle) {
  if (!Failed(seen.open_result)) *handle = &container;
  return seen.open_result;
}

ZMVReaderOperations reader_operations;

ZMVReaderOperations ReaderOperations() {
  ZMVReaderOperations operations{};
  operations.Open = [](void** reader, ZMVStreamBuf*) {
    seen.events.push_back("Open");
    return Opened(reader);
  };
  operations.OpenParam = [](void** reader, ZMVReaderParam* param) {
    seen.events.push_back("OpenParam");
    seen.param = param;
    return Opened(reader);
  };
  operations.Close = [](void* reader) { Note(reader == &container ? "Close" : "Close of nothing"); };
  operations.GetInfo = [](void* reader, ZMVFileInfo*, uint32_t) { return reader == &container ? 0 : -1; };
  return operations;
}

ZMVWriterOperations WriterOperations() {
  ZMVWriterOperations operations{};
  operations.Open = [](void** writer, ZMVStreamBuf*, uint8_t, uint64_t) { return Opened(writer); };
  operations.Close = [](void* writer) { Note(writer == &container ? "Close" : "Close of nothing"); };
  return operations;
}

}  // namespace
}  // namespace zmv::test

namespace zmv::facade {

const ZMVReaderOperations* FindReader(const uint8_t*) { return &test::reader_operations; }

const WriterFormat* FindWriter(uint32_t) {
  static const ZMVWriterOperations operations = test::WriterOperations();
  static const WriterFormat format{ZMV_FORMAT_MP4, "own", &operations};
  return &format;
}

}  // namespace zmv::facade

namespace zmv::test {
namespace {

class Containers : public ::testing::Test {
 protected:
  Containers() {
    seen = {};
    reader_operations = ReaderOperations();
    host_.PutFile(kPath, Zeros(100));
  }
  ~Containers() override { EXPECT_THAT(host_.LiveList(), IsEmpty()); }

  uint32_t OpenReader() { return Code(ZMVReaderOpen(&reader_, &param_)); }
  uint32_t OpenWriter() {
    ZMVWriterParam param{};
    param.dwFormat = ZMV_FORMAT_MP4;
    param.pszPath = kPath;
    return Code(ZMVWriterOpen(&writer_, &param));
  }
  // The host calls that take a handle down, in order.
  std::vector<std::string> TakenDown() {
    std::vector<std::string> names;
    for (const CallRecord& call : host_.calls()) {
      if (call.call == HostCall::kMutexDestroy) names.push_back("mutex");
      if (call.call == HostCall::kClose) names.push_back("stream");
    }
    return names;
  }

  ScriptedHost host_;
  ZMVReaderParam param_{kPath, nullptr, 0};
  ZMVReader* reader_ = nullptr;
  ZMVWriter* writer_ = nullptr;
};

TEST_F(Containers, Reader_WithBothSlots_IsOpenedByTheStream) {
  ASSERT_EQ(OpenReader(), 0u);
  EXPECT_THAT(seen.events, ElementsAre("Open"));
  ZMVReaderClose(reader_);
}

TEST_F(Containers, Reader_WithoutOpen_IsOpenedByTheParameters) {
  reader_operations.Open = nullptr;
  ASSERT_EQ(OpenReader(), 0u);
  EXPECT_THAT(seen.events, ElementsAre("OpenParam"));
  EXPECT_EQ(seen.param, &param_);
  EXPECT_EQ(reader_->hReader, &container);
  EXPECT_EQ(param_.dwSize, 100u);
  ZMVReaderClose(reader_);
  seen.events.clear();
  ZMVFileInfo info{};
  EXPECT_EQ(ZMVReaderGetInfoFile(&param_, &info), 0);
  EXPECT_EQ(seen.events.at(0), "OpenParam");
}

TEST_F(Containers, Reader_WhoseOpenParamFails_GivesItsCodeAndReleasesEverything) {
  reader_operations.Open = nullptr;
  seen.open_result = Result(ZMV_E_NO_TRACK_HEADER);
  EXPECT_EQ(OpenReader(), ZMV_E_NO_TRACK_HEADER);
  EXPECT_EQ(reader_, nullptr);
  EXPECT_THAT(seen.events, ElementsAre("OpenParam", "Close of nothing, mutexes gone 0, files closed 0"));
  EXPECT_THAT(TakenDown(), ElementsAre("stream"));
}

TEST_F(Containers, Reader_WithNeitherSlot_CannotBeOpened) {
  reader_operations.Open = nullptr;
  reader_operations.OpenParam = nullptr;
  EXPECT_EQ(OpenReader(), ZMV_E_FAIL);
  EXPECT_EQ(reader_, nullptr);
  EXPECT_THAT(TakenDown(), ElementsAre("stream"));
}

TEST_F(Containers, ReaderClose_TakesContainerMutexAndStreamDownInThisOrder) {
  ASSERT_EQ(OpenReader(), 0u);
  seen.events.clear();
  ZMVReaderClose(reader_);
  EXPECT_THAT(seen.events, ElementsAre("Close, mutexes gone 0, files closed 0"));
  EXPECT_THAT(TakenDown(), ElementsAre("mutex", "stream"));
}

TEST_F(Containers, ReaderOpen_WithoutAMutex_ClosesTheContainerBeforeTheStream) {
  host_.Fail(HostCall::kMutexCreate, 1);
  EXPECT_EQ(OpenReader(), ZMV_E_MEMORY);
  EXPECT_THAT(seen.events, ElementsAre("Open", "Close, mutexes gone 0, files closed 0"));
  EXPECT_THAT(TakenDown(), ElementsAre("stream"));
}

TEST_F(Containers, WriterClose_TakesContainerMutexAndStreamDownInThisOrder) {
  ASSERT_EQ(OpenWriter(), 0u);
  ZMVWriterClose(writer_);
  EXPECT_THAT(seen.events, ElementsAre("Close, mutexes gone 0, files closed 0"));
  EXPECT_THAT(TakenDown(), ElementsAre("mutex", "stream"));
}

TEST_F(Containers, WriterOpen_WithoutAMutex_ClosesTheContainerBeforeTheStream) {
  host_.Fail(HostCall::kMutexCreate, 1);
  EXPECT_EQ(OpenWriter(), ZMV_E_MEMORY);
  EXPECT_EQ(writer_, nullptr);
  EXPECT_THAT(seen.events, ElementsAre("Close, mutexes gone 0, files closed 0"));
  EXPECT_THAT(TakenDown(), ElementsAre("stream"));
}

TEST_F(Containers, WriterOpen_WhoseContainerFails_IsClosedWithNothing) {
  seen.open_result = Result(ZMV_E_WRITE);
  EXPECT_EQ(OpenWriter(), ZMV_E_WRITE);
  EXPECT_THAT(seen.events, ElementsAre("Close of nothing, mutexes gone 0, files closed 0"));
  EXPECT_THAT(TakenDown(), ElementsAre("stream"));
}

}  // namespace
}  // namespace zmv::test

#include "tests/facade/fake_container.h"

namespace zmv::test {
namespace {

FakeReader& Of(void* reader) { return *static_cast<FakeReader*>(reader); }
FakeWriter& Written(void* writer) { return *static_cast<FakeWriter*>(writer); }

std::string Marked(std::string call) {
  const ScriptedHost& host = *ScriptedHost::Current();
  const bool locked = host.Count(HostCall::kMutexLock) != host.Count(HostCall::kMutexUnLock);
  return (locked ? "+" : "") + call;
}

std::string Call(const char* name, std::initializer_list<uint64_t> arguments) {
  std::string text = std::string(name) + "(";
  for (uint64_t argument : arguments) text += (text.back() == '(' ? "" : ", ") + std::to_string(argument);
  return text + ")";
}

uint8_t Answer(FakeReader& fake, uint32_t* time) {
  if (fake.seeks.empty()) return 1;
  const FakeReader::Seek seek = fake.seeks.front();
  fake.seeks.pop_front();
  *time = seek.reached;
  return seek.done;
}

int32_t Deliver(FakeReader& fake, ZMVFrame* frame, const char* name) {
  fake.Note(Call(name, {frame->dwMediaType}));
  if (fake.frames.empty()) return Result(ZMV_E_END);
  frame->llTimeStamp = fake.frames.front().time;
  const int32_t result = fake.frames.front().result;
  fake.frames.pop_front();
  return result;
}

int32_t GetInfo(void* reader, ZMVFileInfo* info, uint32_t build_index) {
  Of(reader).Note(Call("GetInfo", {build_index}));
  *info = Of(reader).info;
  return Of(reader).info_result;
}
int32_t Start(void* reader, uint32_t* time) {
  Of(reader).Note(time == nullptr ? "Start(null)" : Call("Start", {*time}));
  return Of(reader).result;
}
int32_t MakeIndex(void* reader, uint32_t reserved) {
  FakeReader& fake = Of(reader);
  const int step = ++fake.index_steps;
  if (reserved != 0) return Result(ZMV_E_FAIL);
  return fake.index_limit != 0 && step >= fake.index_limit ? Result(ZMV_E_END) : 1;
}
int32_t ReadThumb(void* reader, ZMVFrame* frame) { return Deliver(Of(reader), frame, "ReadThumb"); }
int32_t ReadFrame(void* reader, ZMVFrame* frame) { return Deliver(Of(reader), frame, "ReadFrame"); }
int32_t ReadFrameInfo(void* reader, ZMVFrame* frame) { return Deliver(Of(reader), frame, "ReadFrameInfo"); }
uint8_t SeekByTime(void* reader, uint32_t* time, uint8_t flag) {
  Of(reader).Note(Call("SeekByTime", {*time, flag}));
  return Answer(Of(reader), time);
}
uint8_t SeekByKeyFrame(void* reader, uint32_t* time, uint8_t flag) {
  Of(reader).Note(Call("SeekByKeyFrame", {*time, flag}));
  return Answer(Of(reader), time);
}
uint8_t SeekBySubtitle(void* reader, uint32_t* time, uint8_t flag) {
  Of(reader).Note(Call("SeekBySubtitle", {*time, flag}));
  return Answer(Of(reader), time);
}
uint8_t SeekByMedia(void* reader, uint32_t* time, uint32_t media) {
  Of(reader).Note(Call("SeekByMedia", {*time, media}));
  return Answer(Of(reader), time);
}
int32_t ChangeTrack(void* reader, uint32_t track, uint32_t time, uint32_t media, ZMVReader* facade) {
  Of(reader).Note(Call("ChangeTrack", {track, time, media}));
  return facade->hReader == reader ? Of(reader).result : -1;
}
void GetStatus(void* reader, ZMVReaderStatus* status) {
  Of(reader).Note(Call("GetStatus", {status->dwBufferPercent, status->adwReserved[2]}));
  *status = Of(reader).status;
}
int32_t SetStatus(void* reader, uint32_t value) {
  Of(reader).Note(Call("SetStatus", {value}));
  return Of(reader).result;
}

int32_t SetInfo(void* writer, ZMVFileInfo* info, uint64_t start) {
  Written(writer).Note(Call("SetInfo", {info->dwVideoCount, start}));
  return Written(writer).result;
}
uint64_t GetCurSize(void* writer) { return Written(writer).size; }
int32_t WriteFrame(void* writer, ZMVFrame* frame) {
  Written(writer).Note(Call("WriteFrame", {frame->dwMediaType, frame->dwSize}));
  return Written(writer).result;
}
int32_t SetSync(void* writer, uint8_t flag) {
  Written(writer).Note(Call("SetSync", {flag}));
  return Written(writer).result;
}

}  // namespace

void FakeReader::Note(std::string call) { calls.push_back(Marked(std::move(call))); }

ZMVReaderOperations FakeReader::Operations() {
  ZMVReaderOperations operations{};
  operations.GetInfo = &zmv::test::GetInfo;
  operations.Start = &zmv::test::Start;
  operations.MakeIndex = &zmv::test::MakeIndex;
  operations.ReadThumb = &zmv::test::ReadThumb;
  operations.ReadFrame = &zmv::test::ReadFrame;
  operations.ReadFrameInfo = &zmv::test::ReadFrameInfo;
  operations.SeekByTime = &zmv::test::SeekByTime;
  operations.SeekByKeyFrame = &zmv::test::SeekByKeyFrame;
  operations.SeekBySubtitle = &zmv::test::SeekBySubtitle;
  operations.SeekByMedia = &zmv::test::SeekByMedia;
  operations.ChangeTrack = &zmv::test::ChangeTrack;
  operations.GetStatus = &zmv::test::GetStatus;
  operations.SetStatus = &zmv::test::SetStatus;
  return operations;
}

FakePlayback::FakePlayback() {
  reader_.hReader = &fake_;
  reader_.m_hMutex = ZMV_MutexCreate();
  reader_.operations = FakeReader::Operations();
  reader_.operations.MakeIndex = nullptr;
}

FakePlayback::~FakePlayback() {
  // Whatever was called, the mutex is free again.
  EXPECT_EQ(host_.Count(HostCall::kMutexLock), host_.Count(HostCall::kMutexUnLock));
  ZMV_MutexDestroy(reader_.m_hMutex);
}

std::vector<std::string> FakePlayback::Calls() {
  std::vector<std::string> calls;
  calls.swap(fake_.calls);
  return calls;
}

void FakeWriter::Note(std::string call) { calls.push_back(Marked(std::move(call))); }

ZMVWriterOperations FakeWriter::Operations() {
  ZMVWriterOperations operations{};
  operations.SetInfo = &zmv::test::SetInfo;
  operations.GetCurSize = &zmv::test::GetCurSize;
  operations.WriteFrame = &zmv::test::WriteFrame;
  operations.SetSync = &zmv::test::SetSync;
  return operations;
}

}  // namespace zmv::test

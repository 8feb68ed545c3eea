// Containers of the tests' own, which answer the façades' operations as they are told and note what they were asked.
#ifndef ZMV_TESTS_FACADE_FAKE_CONTAINER_H
#define ZMV_TESTS_FACADE_FAKE_CONTAINER_H

#include <gtest/gtest.h>

#include <atomic>
#include <deque>
#include <string>
#include <vector>

#include "facade/zmvstream_reader_records.h"
#include "facade/zmvstream_writer_records.h"
#include "platform/zmv_platform.h"
#include "tests/facade/test_stream.h"

namespace zmv::test {

// A container reader. Each call is noted as "Name(argument, ...)", with "+" in front while the façade's mutex is held.
struct FakeReader {
  struct Seek {
    uint8_t done;
    uint32_t reached;
  };
  struct Frame {
    int32_t result;
    uint64_t time;
  };

  std::vector<std::string> calls;
  ZMVFileInfo info{};  // what GetInfo hands out
  int32_t info_result = 0;
  std::deque<Frame> frames;  // what the reads hand out; afterwards the end
  std::deque<Seek> seeks;    // what the seeks answer; afterwards done, at the time asked for
  int32_t result = 0;        // of everything else
  ZMVReaderStatus status{};
  std::atomic<int> index_steps{0};
  int index_limit = 0;  // MakeIndex fails at this step; 0 = never

  // Every slot filled.
  static ZMVReaderOperations Operations();

  void Note(std::string call);
};

// A reader handle on a fake container, with a mutex of the host and no stream.
class FakePlayback : public ::testing::Test {
 protected:
  FakePlayback();
  ~FakePlayback() override;

  // The calls since the last question.
  std::vector<std::string> Calls();
  void HasEverything() { reader_.m_bHasAudio = reader_.m_bHasVideo = reader_.m_bHasText = 1; }

  ScriptedHost host_;
  FakeReader fake_;
  ZMVReader reader_{};
};

// A container writer.
struct FakeWriter {
  uint64_t size = 0;   // what GetCurSize answers
  int32_t result = 0;  // of SetInfo, WriteFrame and SetSync
  std::vector<std::string> calls;

  static ZMVWriterOperations Operations();

  void Note(std::string call);
};

}  // namespace zmv::test

#endif

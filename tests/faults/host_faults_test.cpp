// Every host call of a recording and of its playback made to fail, once and for good: a result code, no crash, no leak.
#include <gmock/gmock.h>

#include "facade/zmvstream_reader.h"
#include "tests/support/sample_recording.h"
#include "tests/support/scripted_host.h"

namespace zmv::test {
namespace {

constexpr char kPath[] = "fault.mp4";

struct Fault {
  HostCall call;
  const char* name;
};

void PrintTo(const Fault& fault, std::ostream* out) { *out << fault.name; }

class FailingHost : public testing::TestWithParam<std::tuple<Fault, ScriptedHost::Duration>> {
 protected:
  FailingHost() : video_(LoadH264("epb_h264.h264")), audio_(LoadAac("drive_aac.aac")), text_(MakeGpsText(1, 5)) {
    host_.trace_level = 0;
    host_.record = false;
    video_.frames.resize(12);
    audio_.frames.resize(20);
    set_ = {.video = &video_, .audio = &audio_, .text = &text_, .width = 176, .height = 144, .interleave = 1};
    buffer_.resize(1 << 16);
    // The last user-data sample of the process outlives its recording; take it out of the accounts.
    RecordSamples(kPath, set_);
    kept_ = host_.LiveBlocks();
  }

  int32_t PlayBack() {
    ZMVReaderParam param{kPath, nullptr, 0};
    ZMVReader* reader = nullptr;
    int32_t result = ZMVReaderOpen(&reader, &param);
    if (result < 0) return result;
    ZMVFileInfo info{};
    result = ZMVReaderGetInfo(reader, &info);
    for (uint32_t media = ZMV_MEDIA_VIDEO; media <= ZMV_MEDIA_TEXT && result >= 0; ++media) {
      for (int i = 0; i < 30; ++i) {
        ZMVFrame frame{};
        frame.dwMediaType = media;
        frame.pData = buffer_.data();
        frame.dwBufSize = static_cast<uint32_t>(buffer_.size());
        int32_t read = ZMVReaderReadFrame(reader, &frame);
        if (read < 0 && static_cast<uint32_t>(read) != ZMV_E_END) result = read;
        if (read < 0) break;
      }
    }
    ZMVReaderClose(reader);
    return result;
  }

  // Runs `action` with call number 1, 2, 3 ... failing until a run is untouched; the number of runs that were touched.
  template <typename Action>
  int Sweep(Action action) {
    auto [fault, duration] = GetParam();
    for (uint64_t n = 1;; ++n) {
      host_.ClearFailures();
      uint64_t before = host_.Count(fault.call);
      host_.Fail(fault.call, n, duration);
      action();
      host_.ClearFailures();
      EXPECT_EQ(host_.LiveBlocks(), kept_) << fault.name << " " << n;
      if (host_.Count(fault.call) - before < n) return static_cast<int>(n - 1);
      if (testing::Test::HasFailure()) return static_cast<int>(n);
    }
  }

  ScriptedHost host_;
  SampleStream video_, audio_, text_;
  SampleSet set_;
  ByteVector buffer_;
  uint64_t kept_ = 0;
};

TEST_P(FailingHost, Recording_ReportsAndReleases) {
  int touched = Sweep([&] { RecordSamples("other.mp4", set_); });
  auto [fault, duration] = GetParam();
  if (fault.call == HostCall::kWrite || fault.call == HostCall::kMalloc) {
    EXPECT_GT(touched, 5);
  }
}

TEST_P(FailingHost, Playback_ReportsAndReleases) {
  auto [fault, duration] = GetParam();
  int touched = Sweep([&] { PlayBack(); });
  if (fault.call == HostCall::kRead || fault.call == HostCall::kMalloc) {
    EXPECT_GT(touched, 5);
  }
  EXPECT_EQ(PlayBack(), 0) << "the file is as it was";
}

INSTANTIATE_TEST_SUITE_P(
    Calls, FailingHost,
    testing::Combine(testing::Values(Fault{HostCall::kOpen, "Open"}, Fault{HostCall::kRead, "Read"},
                                     Fault{HostCall::kWrite, "Write"}, Fault{HostCall::kSeek, "Seek"},
                                     Fault{HostCall::kSize, "Size"}, Fault{HostCall::kMalloc, "Malloc"},
                                     Fault{HostCall::kMutexCreate, "MutexCreate"},
                                     Fault{HostCall::kDiskSpace, "DiskSpace"}),
                     testing::Values(ScriptedHost::kOnce, ScriptedHost::kForGood)),
    [](const auto& parameter) {
      return std::string(std::get<0>(parameter.param).name) +
             (std::get<1>(parameter.param) == ScriptedHost::kOnce ? "Once" : "ForGood");
    });

}  // namespace
}  // namespace zmv::test

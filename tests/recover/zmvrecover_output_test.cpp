// The calls as an application makes them: the shared libraries, the default host, files on a disk.
#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>

#include "facade/zmvstream_reader.h"
#include "platform/zmv_host.h"
#include "recover/zmvrecover.h"
#include "stream/zmvstream_buf.h"
#include "tests/support/sample_recording.h"

namespace zmv::test {
namespace {

namespace fs = std::filesystem;
using Bytes = std::vector<uint8_t>;

Bytes Load(const fs::path& path) { return ReadWholeFile(path.string()); }
void Store(const fs::path& path, const Bytes& bytes) {
  std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char*>(bytes.data()), ssize_t(bytes.size()));
}

// While it lives, permissions count also where the test runs as root.
class Unprivileged {
 public:
  Unprivileged() {
    constexpr uid_t kNobody = 65534;
    if (before_ == 0) {
      EXPECT_EQ(seteuid(kNobody), 0);
    }
  }
  ~Unprivileged() { EXPECT_EQ(seteuid(before_), 0); }
  Unprivileged(const Unprivileged&) = delete;
  Unprivileged& operator=(const Unprivileged&) = delete;

 private:
  const uid_t before_ = geteuid();
};

class RecoverCalls : public testing::Test {
 protected:
  RecoverCalls() {
    std::string name = (fs::temp_directory_path() / "zmvrecover.XXXXXX").string();
    folder_ = mkdtemp(name.data());
    ZMVHost_SetTraceSink(0, nullptr, nullptr);
    const SampleStream video = LoadH264("drive_h264.h264");
    const SampleStream audio = LoadAac("drive_aac.aac");
    const SampleStream text = MakeGpsText(4, 5);
    const SampleSet set = {&video, &audio, &text};
    EXPECT_EQ(RecordSamples(Path("whole.mp4"), set), 0);
    frames_ = MergeSamples(set).size();
    whole_ = Load(Path("whole.mp4"));
    cut_ = Bytes(whole_.begin(), whole_.begin() + ssize_t(whole_.size() / 2));
    for (size_t at = 0;; at += Number(cut_, at)) {
      if (std::equal(cut_.begin() + ssize_t(at) + 4, cut_.begin() + ssize_t(at) + 8, "mdat")) {
        cut_[at] = cut_[at + 1] = cut_[at + 2] = 0;
        cut_[at + 3] = 8;
        break;
      }
    }
    Store(Path("cut.mp4"), cut_);
  }
  ~RecoverCalls() override {
    fs::permissions(folder_, fs::perms::owner_all);
    fs::remove_all(folder_);
  }

  static uint32_t Number(const Bytes& bytes, size_t at) {
    return uint32_t{bytes.at(at)} << 24 | uint32_t{bytes.at(at + 1)} << 16 | uint32_t{bytes.at(at + 2)} << 8 |
           bytes.at(at + 3);
  }
  std::string Path(const std::string& name) const { return (folder_ / name).string(); }

  int32_t ToFile(const std::string& from, const std::string& to) {
    ZMVRecoverParam param = {};
    param.pszPath = from.c_str();
    param.pszTarget = to.c_str();
    srand(7);  // the front holds a box of random size
    return ZMVRecoverToFile(&param, &report_);
  }
  int32_t Probe(const std::string& path) {
    ZMVRecoverParam param = {};
    param.pszPath = path.c_str();
    return ZMVRecoverProbe(&param, &report_, nullptr);
  }
  std::set<std::string> Listing() const {
    std::set<std::string> names;
    for (const auto& entry : fs::directory_iterator(folder_)) names.insert(entry.path().filename().string());
    return names;
  }
  int32_t InPlace(const std::string& path) {
    ZMVRecoverParam param = {};
    param.pszPath = path.c_str();
    return ZMVRecoverInPlace(&param, &report_);
  }
  // Frames that the library's reader delivers.
  static size_t Readable(const std::string& path) {
    ZMVReaderParam param{path.c_str(), nullptr, 0};
    ZMVReader* reader = nullptr;
    ZMVFileInfo info{};
    if (ZMVReaderOpen(&reader, &param) < 0) return 0;
    size_t frames = 0;
    Bytes buffer(1 << 17);
    if (ZMVReaderGetInfo(reader, &info) >= 0) {
      for (uint32_t media = ZMV_MEDIA_VIDEO; media <= ZMV_MEDIA_TEXT; ++media) {
        ZMVFrame frame{};
        frame.dwMediaType = media;
        frame.pData = buffer.data();
        frame.dwBufSize = static_cast<uint32_t>(buffer.size());
        for (; ZMVReaderReadFrame(reader, &frame) >= 0 && frames < 100000; ++frames) {
        }
      }
    }
    ZMVReaderClose(reader);
    return frames;
  }

  fs::path folder_;
  Bytes whole_, cut_;
  size_t frames_ = 0;
  ZMVRecoverReport report_ = {};
};

TEST_F(RecoverCalls, CutFile_ComesBackBothWays) {
  ASSERT_EQ(ToFile(Path("cut.mp4"), Path("new.mp4")), 0);
  EXPECT_EQ(report_.dwState, ZMV_RECOVER_CUT);
  EXPECT_GT(report_.dwFrames, frames_ / 3);
  EXPECT_EQ(Readable(Path("new.mp4")), report_.dwFrames);
  EXPECT_EQ(Load(Path("cut.mp4")), cut_) << "the damaged file was touched";
  const uint32_t frames = report_.dwFrames;
  ASSERT_EQ(InPlace(Path("cut.mp4")), 0);
  EXPECT_EQ(report_.dwFrames, frames);
  EXPECT_EQ(Readable(Path("cut.mp4")), frames);
  const Bytes completed = Load(Path("cut.mp4"));
  ASSERT_EQ(InPlace(Path("cut.mp4")), 0);
  EXPECT_EQ(report_.dwState, ZMV_RECOVER_WHOLE);
  EXPECT_EQ(Load(Path("cut.mp4")), completed);
}

TEST_F(RecoverCalls, WholeFile_IsLeftAloneInPlaceAndCopied) {
  ASSERT_EQ(InPlace(Path("whole.mp4")), 0);
  EXPECT_EQ(report_.dwState, ZMV_RECOVER_WHOLE);
  EXPECT_EQ(Load(Path("whole.mp4")), whole_);
  ASSERT_EQ(ToFile(Path("whole.mp4"), Path("new.mp4")), 0);
  EXPECT_EQ(report_.dwState, ZMV_RECOVER_WHOLE);
  EXPECT_EQ(Readable(Path("new.mp4")), frames_);
}

TEST_F(RecoverCalls, TargetThatExists_IsRefusedAndStays) {
  Store(Path("other.mp4"), {1, 2, 3});
  EXPECT_EQ(static_cast<uint32_t>(ToFile(Path("cut.mp4"), Path("other.mp4"))), ZMV_E_OPEN);
  EXPECT_EQ(Load(Path("other.mp4")), (Bytes{1, 2, 3}));
  // The damaged file by its own name, by another one, and through a link that leads nowhere yet.
  ASSERT_EQ(link(Path("cut.mp4").c_str(), Path("same.mp4").c_str()), 0);
  ASSERT_EQ(symlink("cut.mp4", Path("link.mp4").c_str()), 0);
  ASSERT_EQ(symlink("nowhere.mp4", Path("loose.mp4").c_str()), 0);
  for (const char* name : {"cut.mp4", "same.mp4", "link.mp4", "loose.mp4"}) {
    EXPECT_EQ(static_cast<uint32_t>(ToFile(Path("cut.mp4"), Path(name))), ZMV_E_OPEN) << name;
    EXPECT_TRUE(fs::is_symlink(Path(name)) || fs::exists(Path(name))) << name;
  }
  EXPECT_EQ(Load(Path("cut.mp4")), cut_);
}

TEST_F(RecoverCalls, TargetThatIsNoFile_IsRefusedAndStays) {
  fs::create_directory(Path("folder"));
  ASSERT_EQ(mkfifo(Path("pipe").c_str(), 0600), 0);
  ASSERT_EQ(symlink("folder", Path("link").c_str()), 0);
  const auto names = Listing();
  // The last three are the damaged file under other names, and no name at all.
  for (const char* name : {"folder", "folder/", "link", "link/", "pipe", "folder/../cut.mp4", "link/../cut.mp4", ""}) {
    EXPECT_EQ(static_cast<uint32_t>(ToFile(Path("cut.mp4"), *name == 0 ? "" : Path(name))), ZMV_E_OPEN) << name;
    EXPECT_EQ(Listing(), names) << name;
  }
  EXPECT_TRUE(fs::is_empty(Path("folder")));
  EXPECT_EQ(Load(Path("cut.mp4")), cut_);
}

TEST_F(RecoverCalls, ReadOnlyFile_IsReadAndStays) {
  fs::create_directory(Path("out"));
  fs::permissions(Path("out"), fs::perms::all);
  fs::permissions(folder_, fs::perms(0555));
  fs::permissions(Path("cut.mp4"), fs::perms(0444));
  const auto written = fs::last_write_time(Path("cut.mp4"));
  {
    const Unprivileged user;
    EXPECT_EQ(Probe(Path("cut.mp4")), 0);
    EXPECT_EQ(report_.dwState, ZMV_RECOVER_CUT);
    EXPECT_EQ(static_cast<uint32_t>(InPlace(Path("cut.mp4"))), ZMV_E_OPEN);
    EXPECT_EQ(ToFile(Path("cut.mp4"), Path("out/new.mp4")), 0);
    EXPECT_EQ(Readable(Path("out/new.mp4")), report_.dwFrames);
  }
  EXPECT_EQ(Load(Path("cut.mp4")), cut_);
  EXPECT_EQ(fs::last_write_time(Path("cut.mp4")), written);
}

TEST_F(RecoverCalls, ReadOnlyDirectory_TakesNoNewFileAndLetsInPlaceWork) {
  fs::permissions(Path("cut.mp4"), fs::perms(0666));
  fs::permissions(folder_, fs::perms(0555));
  const auto names = Listing();
  {
    const Unprivileged user;
    EXPECT_EQ(Probe(Path("cut.mp4")), 0);
    EXPECT_EQ(static_cast<uint32_t>(ToFile(Path("cut.mp4"), Path("new.mp4"))), ZMV_E_OPEN);
    EXPECT_EQ(Load(Path("cut.mp4")), cut_);
    EXPECT_EQ(InPlace(Path("cut.mp4")), 0);
    EXPECT_EQ(Readable(Path("cut.mp4")), report_.dwFrames);
  }
  EXPECT_EQ(Listing(), names);
}

TEST_F(RecoverCalls, FileThatMayNotBeRead_IsRefused) {
  fs::permissions(folder_, fs::perms::all);
  fs::permissions(Path("cut.mp4"), fs::perms::none);
  {
    const Unprivileged user;
    EXPECT_EQ(static_cast<uint32_t>(Probe(Path("cut.mp4"))), ZMV_E_OPEN);
    EXPECT_EQ(static_cast<uint32_t>(ToFile(Path("cut.mp4"), Path("new.mp4"))), ZMV_E_OPEN);
    EXPECT_EQ(static_cast<uint32_t>(InPlace(Path("cut.mp4"))), ZMV_E_OPEN);
    EXPECT_FALSE(fs::exists(Path("new.mp4")));
  }
  fs::permissions(Path("cut.mp4"), fs::perms::owner_all);
  EXPECT_EQ(Load(Path("cut.mp4")), cut_);
}

TEST_F(RecoverCalls, WhatCannotBeOpened_IsRefused) {
  const std::string long_name(250, 'x');
  EXPECT_EQ(static_cast<uint32_t>(ToFile(Path("absent.mp4"), Path("new.mp4"))), ZMV_E_OPEN);
  EXPECT_EQ(static_cast<uint32_t>(ToFile(folder_.string(), Path("new.mp4"))), ZMV_E_OPEN);
  EXPECT_EQ(static_cast<uint32_t>(ToFile(Path("cut.mp4"), Path("absent/new.mp4"))), ZMV_E_OPEN);
  EXPECT_EQ(static_cast<uint32_t>(ToFile(Path("cut.mp4"), Path(long_name))), ZMV_E_OPEN);
  EXPECT_EQ(static_cast<uint32_t>(InPlace(Path("absent.mp4"))), ZMV_E_OPEN);
  EXPECT_FALSE(fs::exists(Path("new.mp4")));
  ZMVRecoverParam param = {};
  EXPECT_EQ(static_cast<uint32_t>(ZMVRecoverToFile(&param, nullptr)), ZMV_E_FAIL);
  EXPECT_EQ(static_cast<uint32_t>(ZMVRecoverToFile(nullptr, nullptr)), ZMV_E_FAIL);
  EXPECT_EQ(static_cast<uint32_t>(ZMVRecoverInPlace(&param, nullptr)), ZMV_E_FAIL);
  EXPECT_EQ(static_cast<uint32_t>(ZMVRecoverInPlace(nullptr, nullptr)), ZMV_E_FAIL);
}

TEST_F(RecoverCalls, ForeignFile_LeavesNoTarget) {
  Store(Path("text.mp4"), Bytes(5000, 'x'));
  EXPECT_EQ(static_cast<uint32_t>(ToFile(Path("text.mp4"), Path("new.mp4"))), ZMV_E_UNSUPPORTED_FORMAT);
  EXPECT_FALSE(fs::exists(Path("new.mp4")));
  EXPECT_EQ(static_cast<uint32_t>(InPlace(Path("text.mp4"))), ZMV_E_UNSUPPORTED_FORMAT);
}

TEST_F(RecoverCalls, StoppedCall_RemovesTheTarget) {
  ZMVRecoverParam param = {};
  const std::string from = Path("cut.mp4"), to = Path("new.mp4");
  param.pszPath = from.c_str();
  param.pszTarget = to.c_str();
  param.pfnProgress = [](void*, uint64_t, uint64_t) { return uint32_t{1}; };
  EXPECT_EQ(static_cast<uint32_t>(ZMVRecoverToFile(&param, nullptr)), ZMV_E_CANCELLED);
  EXPECT_FALSE(fs::exists(to));
  EXPECT_EQ(static_cast<uint32_t>(ZMVRecoverInPlace(&param, nullptr)), ZMV_E_CANCELLED);
  EXPECT_EQ(Load(from), cut_);
}

// An application that takes over every file that is closed gets the new recording too, complete, and once; of a call
// that is stopped, the file is removed when it has been handed over.
TEST_F(RecoverCalls, CloseCallbackOfTheApplication_GetsTheNewFileAlone) {
  struct Closed {
    std::string path;
    uint64_t size;
  };
  static std::vector<Closed> closed;
  closed.clear();
  ZMVStreamBuf_SetOption(1, [](int32_t descriptor, const char* path) {
    struct stat status = {};
    EXPECT_EQ(fstat(descriptor, &status), 0);
    closed.push_back({path, static_cast<uint64_t>(status.st_size)});
  });
  EXPECT_EQ(ToFile(Path("cut.mp4"), Path("new.mp4")), 0);
  ASSERT_EQ(closed.size(), 1u) << "the damaged file is not the library's to close";
  EXPECT_EQ(closed[0].path, Path("new.mp4"));
  EXPECT_EQ(closed[0].size, fs::file_size(Path("new.mp4")));
  EXPECT_EQ(Load(Path("cut.mp4")), cut_);
  EXPECT_EQ(Probe(Path("new.mp4")), 0);
  EXPECT_EQ(report_.dwState, ZMV_RECOVER_WHOLE);

  ZMVRecoverParam param = {};
  const std::string from = Path("cut.mp4"), to = Path("other.mp4");
  param.pszPath = from.c_str();
  param.pszTarget = to.c_str();
  param.pfnProgress = [](void*, uint64_t done, uint64_t) { return uint32_t{done != 0}; };
  EXPECT_EQ(static_cast<uint32_t>(ZMVRecoverToFile(&param, nullptr)), ZMV_E_CANCELLED);
  EXPECT_FALSE(fs::exists(to));
  EXPECT_EQ(closed.back().path, to);

  const size_t files = closed.size();
  EXPECT_EQ(InPlace(Path("cut.mp4")), 0);
  EXPECT_EQ(closed.size(), files);
  ZMVStreamBuf_SetOption(0, nullptr);
  EXPECT_EQ(Probe(Path("cut.mp4")), 0);
  EXPECT_EQ(report_.dwState, ZMV_RECOVER_WHOLE);
  EXPECT_EQ(Readable(Path("cut.mp4")), report_.dwFrames);
}

// The file system refuses to let a file grow, wherever that may be.
TEST_F(RecoverCalls, FullFileSystem_RemovesTheTarget) {
  ASSERT_EQ(ToFile(Path("cut.mp4"), Path("new.mp4")), 0);
  const uint64_t size = fs::file_size(Path("new.mp4"));
  rlimit before;
  ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
  const auto handler = std::signal(SIGXFSZ, SIG_IGN);
  for (uint64_t limit = 0; limit < size; limit += size / 61) {
    fs::remove(Path("new.mp4"));
    rlimit now = before;
    now.rlim_cur = limit;
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &now), 0);
    const int32_t result = ToFile(Path("cut.mp4"), Path("new.mp4"));
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &before), 0);
    ASSERT_EQ(static_cast<uint32_t>(result), ZMV_E_WRITE) << limit << " of " << size;
    ASSERT_FALSE(fs::exists(Path("new.mp4"))) << limit;
  }
  std::signal(SIGXFSZ, handler);
  EXPECT_EQ(Load(Path("cut.mp4")), cut_);
}

}  // namespace
}  // namespace zmv::test

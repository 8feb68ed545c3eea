// zmv recover: brings back a recording whose power was cut.
#include <fmt/core.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <memory>

#include "recover/zmvrecover.h"
#include "tools/zmv/commands.h"
#include "tools/zmv/interrupt.h"
#include "tools/zmv/output_file.h"
#include "tools/zmv/recovery_report.h"

namespace zmv::tool {
namespace {

namespace fs = std::filesystem;

struct RecoverArguments {
  std::string input;
  std::string output;
  std::string like;
  std::string user_boxes = "auto";
  bool in_place = false;
  bool force = false;
};

uint32_t UserData(const std::string& word) {
  if (word == "never") return ZMV_RECOVER_USER_DATA_NEVER;
  return word == "always" ? ZMV_RECOVER_USER_DATA_ALWAYS : ZMV_RECOVER_USER_DATA_AUTO;
}

class Recover {
 public:
  Recover(const RecoverArguments& arguments, Session& session) : arguments_(arguments), session_(session) {}

  void Run() {
    if (arguments_.in_place && arguments_.force) throw ToolError("--force goes with -o", kExitUsage);
    RequireInput();
    if (!arguments_.in_place) RequireOutput();
    if (!arguments_.like.empty()) TakeDescription();
    Restore();
    Report();
  }

 private:
  void RequireInput() const {
    std::error_code ignored;
    if (fs::is_directory(arguments_.input, ignored)) throw ToolError(arguments_.input + ": is a folder");
    if (access(arguments_.input.c_str(), arguments_.in_place ? R_OK | W_OK : R_OK) != 0) {
      throw ToolError(fmt::format("{}: cannot be {}: {}", arguments_.input, arguments_.in_place ? "changed" : "read",
                                  std::strerror(errno)));
    }
  }

  // An existing file is replaced only by a whole new one: until then that one has a name of its own beside it.
  void RequireOutput() {
    std::error_code ignored;
    if (fs::equivalent(arguments_.input, arguments_.output, ignored)) {
      throw ToolError(arguments_.output +
                      ": is input and output at once; --in-place completes a recording where it is");
    }
    RequirePlainOrNew(arguments_.output);
    RequireWritable(arguments_.output, arguments_.force);
    RequireFolderOf(arguments_.output);
    target_ = arguments_.output;
    if (!fs::exists(fs::symlink_status(target_, ignored))) return;
    target_ = arguments_.output + ".recovering";
    if (fs::exists(fs::symlink_status(target_, ignored))) {
      throw ToolError(target_ + ": is in the way, perhaps of an earlier recovery that was ended");
    }
  }

  void TakeDescription() {
    description_ = std::make_unique<ZMVFileInfo>();
    const ZMVRecoverReport like = ProbeRecording(arguments_.like, session_.console, description_.get());
    if (like.dwState == ZMV_RECOVER_FOREIGN) {
      throw ToolError(arguments_.like + ": is not a recording of this library", kExitNotRecording);
    }
  }

  void Restore() {
    ZMVRecoverParam param{};
    param.pszPath = arguments_.input.c_str();
    param.pszTarget = target_.c_str();
    param.pDescription = description_.get();
    param.dwUserData = UserData(arguments_.user_boxes);
    param.pfnProgress = &ShowProgress;
    param.pContext = &session_.console;
    int32_t result = 0;
    {
      const Interrupt interrupt;
      result = arguments_.in_place ? ZMVRecoverInPlace(&param, &report_) : ZMVRecoverToFile(&param, &report_);
    }
    session_.console.EndProgress();
    if (result < 0) Fail(result);
    if (report_.dwFrames == 0 && report_.dwState != ZMV_RECOVER_WHOLE) FailWithoutFrames();
    if (!arguments_.in_place && target_ != arguments_.output) Replace();
  }

  [[noreturn]] void Fail(int32_t result) const {
    const std::string& input = arguments_.input;
    switch (static_cast<uint32_t>(result)) {
      case ZMV_E_UNSUPPORTED_FORMAT:
        throw ToolError(input + ": is not a recording of this library", kExitNotRecording);
      case ZMV_E_CANCELLED:
        throw ToolError(input + (arguments_.in_place ? ": stopped; the same frames can still be recovered"
                                                     : ": stopped; no new recording was made"));
      case ZMV_E_NOT_SUPPORTED:
        throw ToolError(input + ": cannot be completed in place; -o makes a new recording of it");
      default:
        if (IsOfOutput(static_cast<uint32_t>(result))) {
          throw LibraryError(arguments_.output, "cannot be written", result);
        }
        throw LibraryError(input, "cannot be recovered", result);
    }
  }

  // A damaged recording that is copied is not written to, and its size is known once it is open.
  bool IsOfOutput(uint32_t code) const {
    if (arguments_.in_place) return false;
    return code == ZMV_E_WRITE || code == ZMV_E_DISK_FULL || (code == ZMV_E_OPEN && report_.llFileSize > 0);
  }

  [[noreturn]] void FailWithoutFrames() const {
    std::error_code ignored;
    if (!arguments_.in_place) fs::remove(target_, ignored);
    if (arguments_.in_place && report_.dwState == ZMV_RECOVER_CUT) {
      throw ToolError(arguments_.input + ": holds no complete frame: it was completed as a recording without frames",
                      kExitDamaged);
    }
    throw ToolError(arguments_.input + ": holds no complete frame: there is nothing to recover", kExitDamaged);
  }

  void Replace() const {
    std::error_code error;
    fs::rename(target_, arguments_.output, error);
    if (!error) return;
    const std::string why = error.message();
    fs::remove(target_, error);
    throw ToolError(arguments_.output + ": cannot be replaced: " + why);
  }

  bool DescribedByOther(const ZMVRecoverStream& stream) const {
    if (description_ == nullptr) return false;
    if (stream.dwMediaType == ZMV_MEDIA_VIDEO) return stream.dwTrack < description_->dwVideoCount;
    return stream.dwTrack <
           (stream.dwMediaType == ZMV_MEDIA_AUDIO ? description_->dwAudioCount : description_->dwTextCount);
  }

  // A recording comes back in the container that it had.
  void RemarkOnName() const {
    const std::string extension = fs::path(arguments_.output).extension().string();
    const Container container = ContainerOf(report_);
    const bool named = ContainerOfName(arguments_.output) == Container::kAvi || extension == ".mp4";
    if (arguments_.in_place || !named || ContainerOfName(arguments_.output) == container) return;
    session_.console.Warning(
        fmt::format("{}: is an {}, as the damaged recording is", arguments_.output, ContainerName(container)));
  }

  void Report() {
    Console& console = session_.console;
    const std::string& result = arguments_.in_place ? arguments_.input : arguments_.output;
    const bool whole = report_.dwState == ZMV_RECOVER_WHOLE;
    if (whole) {
      console.Note(arguments_.input +
                   (arguments_.in_place ? ": is whole, nothing was changed" : ": is whole, and was copied"));
    }
    const bool left = arguments_.in_place && report_.bChanged == 0;
    if (left && !whole) {
      console.Note(arguments_.input +
                   ": was closed and is damaged; its index is kept, nothing was changed (-o makes a new recording)");
    }
    console.Note(fmt::format("{}: {} {}", result, left ? "holds" : "recovered", FramesText(report_)));
    for (uint32_t i = 0; i < report_.dwStreamCount; ++i) {
      if (DescribedByOther(report_.Stream[i])) report_.Stream[i].bDescribed = 1;
    }
    RemarkOnName();
    for (const std::string& text : LossTexts(report_)) console.Warning(text);
    for (const std::string& text : RemarkTexts(report_)) console.Note(text);
    if (IsIncomplete(report_)) session_.exit_code = kExitDamaged;
    if (!session_.json) return;
    Json json = {{"file", arguments_.input}, {"output", result}, {"in_place", arguments_.in_place}};
    if (arguments_.in_place) json["changed"] = report_.bChanged != 0;
    json.update(RecoveryJson(report_));
    fmt::print("{}\n", JsonText(json));
  }

  const RecoverArguments& arguments_;
  Session& session_;
  std::string target_;
  ZMVRecoverReport report_{};
  std::unique_ptr<ZMVFileInfo> description_;  // of the other recording
};

}  // namespace

void AddRecover(CLI::App& app, Session& session) {
  auto arguments = std::make_shared<RecoverArguments>();
  CLI::App* command = AddCommand(
      app, session, "recover",
      "Brings back a recording whose power was cut.\n\n"
      "Every complete frame comes back as it was recorded. With -o the damaged file is only read; --in-place "
      "needs no room for a second copy, and may itself be cut. Exit code 5: something is missing between the frames.",
      "  zmv recover cut.mp4 -o drive.mp4\n  zmv recover cut.mp4 --in-place");
  command->add_option("FILE", arguments->input, "The cut or damaged recording")->required();
  CLI::Option_group* where = command->add_option_group("Result");
  where->add_option("-o,--output", arguments->output, "The new recording");
  where->add_flag("--in-place", arguments->in_place, "Complete FILE where it is");
  where->require_option(1);
  command->add_option("--like", arguments->like,
                      "Another recording of the same camera, for streams whose description is lost");
  command->add_option("--user-boxes", arguments->user_boxes, "Boxes GPSR, SENS, AIDD: auto, never or always")
      ->check(CLI::IsMember({"auto", "never", "always"}));
  command->add_flag("-f,--force", arguments->force, "Overwrite an existing file");
  command->callback([arguments, &session] { Recover(*arguments, session).Run(); });
}

}  // namespace zmv::tool

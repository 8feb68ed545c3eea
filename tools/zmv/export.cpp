// zmv export: elementary streams back out of a recording.
#include <fmt/core.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <optional>

#include "tools/zmv/aac.h"
#include "tools/zmv/commands.h"
#include "tools/zmv/config_text.h"
#include "tools/zmv/file_map.h"
#include "tools/zmv/output_file.h"
#include "tools/zmv/playback.h"
#include "tools/zmv/recording_report.h"
#include "tools/zmv/wav.h"

namespace zmv::tool {
namespace {

struct ExportArguments {
  std::string file;
  std::string video;
  std::string audio;
  std::string text;
  uint32_t track = 0;
  bool repeat_parameters = false;
  bool force = false;
};

// Turns the frames of one stream into bytes of a file.
class StreamWriter {
 public:
  explicit StreamWriter(OutputFile& out) : out_(out) {}
  virtual ~StreamWriter() = default;
  virtual void Write(const ZMVFrame& frame) { out_.Write(Playback::Payload(frame)); }
  virtual void Finish() {}

 protected:
  OutputFile& out_;
};

// Parameter sets go before the first key frame, or before each.
class VideoWriter : public StreamWriter {
 public:
  VideoWriter(OutputFile& out, const ZMVVideoInfo& video, bool repeat)
      : StreamWriter(out), video_(video), codec_(CodecOf(video.dwFourCC)), repeat_(repeat) {}

  void Write(const ZMVFrame& frame) override {
    if (codec_ && frame.dwKeyFrame == ZMV_KEY_FRAME && (repeat_ || !written_) && !CarriesSets(frame)) {
      const uint32_t extra = std::min<uint32_t>(video_.dwExtraDataSize, sizeof(video_.abExtraData));
      out_.Write(ByteView(video_.abExtraData, extra));
      written_ = true;
    }
    StreamWriter::Write(frame);
  }

 private:
  // In an AVI the key frames have their own.
  bool CarriesSets(const ZMVFrame& frame) const { return HoldsParameterSets(*codec_, Playback::Payload(frame)); }

  const ZMVVideoInfo& video_;
  std::optional<VideoCodec> codec_;
  bool repeat_;
  bool written_ = false;
};

class AdtsWriter : public StreamWriter {
 public:
  AdtsWriter(OutputFile& out, const AacConfig& config) : StreamWriter(out), config_(config) {}

  void Write(const ZMVFrame& frame) override {
    const auto header = MakeAdtsHeader(config_, frame.dwSize);
    if (!header) throw ToolError(out_.path() + ": a frame is too long for its ADTS header", kExitDamaged);
    out_.Write(*header);
    StreamWriter::Write(frame);
  }

 private:
  AacConfig config_;
};

class WavWriter : public StreamWriter {
 public:
  WavWriter(OutputFile& out, const ZMVAudioInfo& audio) : StreamWriter(out), audio_(audio) {
    out_.Write(MakeWavHeader(Format(), 0));
  }
  void Write(const ZMVFrame& frame) override {
    bytes_ += frame.dwSize;
    StreamWriter::Write(frame);
  }
  void Finish() override { out_.Rewrite(MakeWavHeader(Format(), static_cast<uint32_t>(bytes_))); }

 private:
  WavFormat Format() const { return {audio_.dwSampleRate, audio_.dwChannels, audio_.dwBitsPerSample}; }

  const ZMVAudioInfo& audio_;
  uint64_t bytes_ = 0;
};

bool IsWav(const std::string& path) {
  const std::string extension = std::filesystem::path(path).extension().string();
  return extension == ".wav" || extension == ".WAV";
}

const std::string& Readable(const std::string& path) {
  ScanReadable(path);
  return path;
}

class Export {
 public:
  Export(const ExportArguments& arguments, Session& session)
      : arguments_(arguments), session_(session), playback_(Readable(arguments.file)) {}

  void Run() {
    const std::pair<uint32_t, const std::string*> wanted[] = {
        {ZMV_MEDIA_VIDEO, &arguments_.video}, {ZMV_MEDIA_AUDIO, &arguments_.audio}, {ZMV_MEDIA_TEXT, &arguments_.text}};
    for (const auto& [media, path] : wanted) {
      if (path->empty()) continue;
      Require(media);
      RequireWritable(*path, arguments_.force);
    }
    for (const auto& [media, path] : wanted) {
      if (!path->empty()) One(media, *path);
    }
    if (session_.json) fmt::print("{}\n", JsonText(report_));
    ReportHealth(playback_, session_);
  }

 private:
  // With several media asked for, the number is that of the video; a recording has one audio.
  uint32_t TrackOf(uint32_t media) const { return media == ZMV_MEDIA_VIDEO || Alone() ? arguments_.track : 0; }

  bool Alone() const {
    return (arguments_.video.empty() ? 0 : 1) + (arguments_.audio.empty() ? 0 : 1) +
               (arguments_.text.empty() ? 0 : 1) ==
           1;
  }

  void Require(uint32_t media) const {
    if (TrackOf(media) >= playback_.TrackCount(media)) {
      throw ToolError(fmt::format("{}: has no {} track {}", arguments_.file, MediaName(media), TrackOf(media)));
    }
  }

  std::unique_ptr<StreamWriter> MakeWriter(uint32_t media, OutputFile& out) {
    const ZMVFileInfo& info = playback_.info();
    if (media == ZMV_MEDIA_VIDEO) {
      return std::make_unique<VideoWriter>(out, info.m_Video[TrackOf(media)], arguments_.repeat_parameters);
    }
    const ZMVAudioInfo& audio = info.m_Audio;
    if (media == ZMV_MEDIA_AUDIO && audio.dwFormat == ZMV_AUDIO_AAC) {
      const uint32_t extra = std::min<uint32_t>(audio.dwExtraDataSize, sizeof(audio.abExtraData));
      if (const auto config = ParseAudioSpecificConfig(ByteView(audio.abExtraData, extra))) {
        return std::make_unique<AdtsWriter>(out, *config);
      }
      session_.console.Warning(arguments_.file + ": its AAC configuration has no ADTS form; frames are written bare");
    }
    const bool pcm = audio.dwFormat == ZMV_AUDIO_PCM || audio.dwFormat == ZMV_AUDIO_PCM_LE;
    if (media == ZMV_MEDIA_AUDIO && pcm && IsWav(out.path())) return std::make_unique<WavWriter>(out, audio);
    return std::make_unique<StreamWriter>(out);
  }

  void One(uint32_t media, const std::string& path) {
    std::error_code ignored;
    if (std::filesystem::equivalent(path, arguments_.file, ignored))
      throw ToolError(path + ": is input and output at once");
    OutputFile out(path, arguments_.force);
    const std::unique_ptr<StreamWriter> writer = MakeWriter(media, out);
    const uint32_t track = TrackOf(media);
    const uint32_t promised = playback_.FrameCount(media, track);
    ZMVFrame frame;
    uint64_t frames = 0;
    while (playback_.Read(media, track, frame)) {
      writer->Write(frame);
      ++frames;
      if (promised > 0) session_.console.Progress(path, static_cast<double>(frames) / promised);
    }
    writer->Finish();
    out.Close();
    session_.console.EndProgress();
    report_.push_back({{"file", path}, {"media", MediaName(media)}, {"track", track}, {"frames", frames}});
    session_.console.Note(fmt::format("{}: {} frames of {} {}", path, Grouped(frames), MediaName(media), track));
    if (frames < promised) {
      session_.console.Warning(fmt::format("{}: only {} of {} frames can be read", arguments_.file, frames, promised));
      session_.exit_code = kExitDamaged;
    }
  }

  const ExportArguments& arguments_;
  Session& session_;
  Playback playback_;
  Json report_ = Json::array();
};

}  // namespace

void AddExport(CLI::App& app, Session& session) {
  auto arguments = std::make_shared<ExportArguments>();
  CLI::App* command =
      AddCommand(app, session, "export",
                 "Writes elementary streams of a recording.\n\n"
                 "H.264 and HEVC with start codes, AAC with ADTS headers, PCM as .wav when the name ends "
                 "so, anything else as it is stored.",
                 "  zmv export drive.mp4 --video drive.h264 --audio drive.aac");
  command->add_option("FILE", arguments->file, "The recording")->required();
  command->add_option("--video", arguments->video, "Where to write a video");
  command->add_option("--audio", arguments->audio, "Where to write the audio");
  command->add_option("--text", arguments->text, "Where to write the payloads of a text track");
  command->add_option("--track", arguments->track, "Which video (or text, asked for alone), counted from 0")
      ->check(CLI::Range(0, 8));
  command->add_flag("--repeat-parameters", arguments->repeat_parameters, "Parameter sets before every key frame");
  command->add_flag("-f,--force", arguments->force, "Overwrite existing files");
  command->callback([arguments, &session] {
    if (arguments->video.empty() && arguments->audio.empty() && arguments->text.empty()) {
      throw ToolError("nothing to export: give --video, --audio or --text", kExitUsage);
    }
    Export(*arguments, session).Run();
  });
}

}  // namespace zmv::tool

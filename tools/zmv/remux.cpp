// zmv remux: plays a recording back and records its frames anew.
#include <fmt/core.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <optional>

#include "tools/zmv/aidd.h"
#include "tools/zmv/box_scan.h"
#include "tools/zmv/commands.h"
#include "tools/zmv/config_text.h"
#include "tools/zmv/import_plan.h"
#include "tools/zmv/output_file.h"
#include "tools/zmv/playback.h"
#include "tools/zmv/recorder.h"
#include "tools/zmv/recording_report.h"
#include "tools/zmv/stream_file.h"
#include "tools/zmv/track_tables.h"

namespace zmv::tool {
namespace {

constexpr int64_t kMillisecondUs = 1000;
constexpr int64_t kStampTolerance = 1500;  // microseconds between the two forms of a time stamp
constexpr uint64_t kSecondMs = 1000;
constexpr uint64_t kThousandthsPerMs = 1000000;  // frames a millisecond as thousandths a second
constexpr uint32_t kPcmBits = 16;

struct RemuxArguments {
  std::string input;
  std::string output;
  std::string software;
  bool force = false;
};

double Part(uint64_t done, uint64_t all) { return all == 0 ? 1 : static_cast<double>(done) / static_cast<double>(all); }

// One track of a recording.
class TrackSource : public MediaSource {
 public:
  TrackSource(Playback& playback, uint32_t media, uint32_t track) : playback_(playback), track_(track) {
    StreamDescription description;
    description.media = media;
    description.label = fmt::format("{} {}", MediaName(media), track);
    streams_.push_back(description);
  }

  // Other programs put comments and delimiters into their samples beside the picture, and pictures of several units.
  void KeepPicturesOnly(VideoCodec codec, ByteView parameter_sets) {
    filter_.emplace(codec);
    filter_->Learn(parameter_sets);
  }
  void Start() { has_ahead_ = Take(ahead_); }

  const std::vector<StreamDescription>& streams() const override { return streams_; }
  int64_t duration_us() const override { return int64_t{playback_.info().dwDuration} * kMillisecondUs; }
  double progress() const override { return Part(taken_, promised()); }

  bool Read(MediaFrame& frame) override {
    if (!has_ahead_) return false;
    frame = std::move(ahead_);
    has_ahead_ = Take(ahead_);
    return true;
  }

  StreamDescription& description() { return streams_[0]; }
  uint32_t media() const { return streams_[0].media; }
  uint32_t track() const { return track_; }
  uint32_t promised() const { return playback_.FrameCount(media(), track_); }
  uint64_t taken() const { return taken_; }
  size_t first_size() const { return has_ahead_ ? ahead_.data.size() : 0; }

 private:
  // Frames that cannot be read are passed over: those behind them keep their times.
  bool Take(MediaFrame& out) {
    while (tried_ < promised()) {
      ZMVFrame frame;
      const Playback::Found found = playback_.TryRead(media(), track_, frame);
      if (found == Playback::Found::kEnd) return false;
      ++tried_;
      if (found == Playback::Found::kLost) continue;
      ++taken_;
      out = {media(), 0, TimeOf(frame), frame.dwKeyFrame == ZMV_KEY_FRAME, PayloadOf(frame)};
      if (!out.data.empty() || !filter_) return true;
    }
    return false;
  }

  Bytes PayloadOf(const ZMVFrame& frame) {
    const ByteView payload = Playback::Payload(frame);
    if (!filter_) return Bytes(payload.begin(), payload.end());
    PictureFilter::Picture picture = filter_->Take(payload);
    if (picture.slices > 1 || picture.new_parameters) {
      throw ToolError(fmt::format("{}: {} {}: picture {} {}", playback_.path(), MediaName(media()), track_, tried_ - 1,
                                  picture.slices > 1 ? "consists of several slices, which players would misread"
                                                     : "brings parameter sets of its own, which would be lost"));
    }
    return std::move(picture.payload);
  }

  // Milliseconds are cut. Video also has microseconds, in single precision and up to 71 minutes, which are used to fill
  // the rest of the millisecond.
  static int64_t TimeOf(const ZMVFrame& frame) {
    const int64_t whole = static_cast<int64_t>(frame.llTimeStamp) * kMillisecondUs;
    const auto fine = static_cast<int64_t>(frame.llTimeStampUs);
    if (frame.dwMediaType != ZMV_MEDIA_VIDEO || fine < whole - kStampTolerance ||
        fine > whole + kMillisecondUs + kStampTolerance) {
      return whole;
    }
    return std::clamp(fine, whole, whole + kMillisecondUs - 1);
  }

  Playback& playback_;
  uint32_t track_;
  std::vector<StreamDescription> streams_;
  MediaFrame ahead_;
  std::optional<PictureFilter> filter_;
  bool has_ahead_ = false;
  uint64_t tried_ = 0;
  uint64_t taken_ = 0;
};

class Remux {
 public:
  Remux(const RemuxArguments& arguments, Session& session) : arguments_(arguments), session_(session) {}

  void Run() {
    std::error_code ignored;
    if (std::filesystem::equivalent(arguments_.input, arguments_.output, ignored)) {
      throw ToolError(arguments_.output + ": is input and output at once");
    }
    RequireWritable(arguments_.output, arguments_.force);
    map_ = ScanReadable(arguments_.input);
    playback_ = std::make_unique<Playback>(arguments_.input);
    RequireCopyable();
    OpenTracks();
    const ImportPlan plan = Plan();
    RecorderOptions options;
    options.path = arguments_.output;
    options.force = arguments_.force;
    options.expected_ms = std::min<uint64_t>(playback_->info().dwDuration, kMaxExpectedMs);
    Recorder recorder(options, plan.info, plan.nominal_us, session_.console);
    Copy(plan, recorder);
    recorder.Finish();
    KeepAidd();
    Report(plan, recorder);
  }

 private:
  // What the reader delivers of these forms would make a recording that looks sound and is not.
  void RequireCopyable() const {
    constexpr const char* kAdvice = "`zmv import` records such files";
    if (map_.fragmented) {
      throw ToolError(fmt::format("{}: its frames stand in fragments; {}", arguments_.input, kAdvice));
    }
    StreamFile file(arguments_.input);
    const std::vector<TrackTables> tables = FindTables(file);
    for (uint32_t track = 0; track < playback_->TrackCount(ZMV_MEDIA_VIDEO); ++track) {
      const TrackTables* video = TableOf(tables, ZMV_MEDIA_VIDEO, track);
      if (video == nullptr || !video->reordered) continue;
      throw ToolError(
          fmt::format("{}: video {}: its pictures are not shown in the order in which they are stored (B "
                      "frames), and recordings keep no display order",
                      arguments_.input, track));
    }
    const uint32_t format = playback_->info().m_Audio.dwFormat;
    const TrackTables* audio = TableOf(tables, ZMV_MEDIA_AUDIO, 0);
    if (audio != nullptr && audio->samples > audio->chunks && (format == ZMV_AUDIO_AAC || format == ZMV_AUDIO_MPEG)) {
      throw ToolError(
          fmt::format("{}: audio 0: its frames stand together in chunks, from which they cannot be told "
                      "apart; {}",
                      arguments_.input, kAdvice));
    }
  }

  void OpenTracks() {
    for (const uint32_t media : {ZMV_MEDIA_VIDEO, ZMV_MEDIA_AUDIO, ZMV_MEDIA_TEXT}) {
      for (uint32_t track = 0; track < playback_->TrackCount(media); ++track) {
        auto source = std::make_unique<TrackSource>(*playback_, media, track);
        if (media == ZMV_MEDIA_VIDEO) DescribeVideo(*source);
        source->Start();
        if (media == ZMV_MEDIA_AUDIO) DescribeAudio(*source);
        sources_.push_back(std::move(source));
      }
    }
    if (sources_.empty()) throw ToolError(arguments_.input + ": holds no track");
  }

  [[noreturn]] void Refuse(const TrackSource& source, const std::string& what) const {
    throw ToolError(fmt::format("{}: {} {}: {}", arguments_.input, MediaName(source.media()), source.track(), what));
  }

  static int64_t NominalUs(uint64_t duration_ms, uint64_t frames, int64_t otherwise) {
    const auto nominal = static_cast<int64_t>(frames == 0 ? 0 : duration_ms * kMillisecondUs / frames);
    return nominal > 0 ? nominal : otherwise;
  }

  void DescribeVideo(TrackSource& source) const {
    constexpr int64_t kUsual = 33333;
    StreamDescription& description = source.description();
    description.video = playback_->info().m_Video[source.track()];
    ZMVVideoInfo& video = description.video;
    const std::optional<VideoCodec> codec = CodecOf(video.dwFourCC);
    if (!codec) Refuse(source, fmt::format("codec {} cannot be recorded", tool::DescribeVideo(video).name));
    video.dwFourCC = *codec == VideoCodec::kH264 ? ZMV_FOURCC('H', '2', '6', '4') : ZMV_FOURCC('H', '2', '6', '5');
    // A recording of this library has its frames' records, and its payloads are copied byte for byte.
    if (map_.front.empty()) {
      source.KeepPicturesOnly(
          *codec, ByteView(video.abExtraData, std::min<size_t>(video.dwExtraDataSize, sizeof(video.abExtraData))));
    }
    description.nominal_us = NominalUs(video.dwDuration, video.dwFrames, kUsual);
    // The reader's rate comes from whole milliseconds a frame.
    if (video.dwDuration > 0) {
      video.dwFrameRate =
          static_cast<uint32_t>(std::min<uint64_t>(video.dwFrames * kThousandthsPerMs / video.dwDuration, UINT32_MAX));
    }
  }

  void DescribeAudio(TrackSource& source) const {
    constexpr int64_t kUsual = 21333;
    StreamDescription& description = source.description();
    description.audio = playback_->info().m_Audio;
    ZMVAudioInfo& audio = description.audio;
    description.nominal_us = NominalUs(audio.dwDuration, audio.dwFrames, kUsual);
    if (audio.dwFormat == ZMV_AUDIO_PCM || audio.dwFormat == ZMV_AUDIO_PCM_LE) {
      DescribePcm(source, audio);
    } else if (audio.dwFormat != ZMV_AUDIO_AAC && audio.dwFormat != ZMV_AUDIO_MPEG) {
      Refuse(source, fmt::format("codec {} cannot be recorded", tool::DescribeAudio(audio).name));
    }
  }

  // The reader calls every byte order by one name; what the recording was begun with stands in its recovery box.
  void DescribePcm(const TrackSource& source, ZMVAudioInfo& audio) const {
    if (audio.dwChannels != 1 || audio.dwBitsPerSample != kPcmBits) {
      Refuse(source, "PCM other than mono of 16 bits would play at the wrong speed");
    }
    const auto front = std::find_if(map_.front.begin(), map_.front.end(),
                                    [](const FrontStream& stream) { return stream.media == "audio"; });
    const bool stated = front != map_.front.end() && front->code == fmt::format("0x{:X}", ZMV_AUDIO_PCM);
    audio.dwFormat = stated ? ZMV_AUDIO_PCM : ZMV_AUDIO_PCM_LE;
    audio.dwSamplesPerFrame = static_cast<uint32_t>(source.first_size() / (kPcmBits / 8));
    audio.dwBlockAlign = static_cast<uint32_t>(source.first_size());
  }

  ImportPlan Plan() {
    const uint32_t texts = playback_->TrackCount(ZMV_MEDIA_TEXT);
    const bool boxes = map_.gps_entries || map_.sensor_entries || map_.aidd;
    if (boxes && texts == 0) {
      session_.console.Warning(arguments_.input + ": its user boxes have no text track and are left out");
    }
    ImportPlan plan =
        PlanImport(sources_, SoftwareText(arguments_.software, boxes && texts > 0, session_.console), session_.console);
    uint64_t samples = 0;
    for (const auto& source : sources_) {
      const auto& track = static_cast<const TrackSource&>(*source);
      if (track.media() != ZMV_MEDIA_TEXT) continue;
      ZMVTextInfo& text = plan.info.m_Text[plan.info.dwTextCount];
      text = playback_->info().m_Text[track.track()];
      text.dwTimeScale = kTextTimeScale;
      plan.tracks.push_back({source.get(), 0, ZMV_MEDIA_TEXT, plan.info.dwTextCount++});
      plan.nominal_us.push_back(NominalUs(text.dwDuration, text.dwFrames, int64_t{kSecondMs} * kMillisecondUs));
      samples += track.promised();
    }
    if (texts > 0) PlanUserData(samples, playback_->info().dwDuration / kSecondMs, plan.info);
    return plan;
  }

  void Copy(const ImportPlan& plan, Recorder& recorder) {
    FrameMerger merger(plan.tracks);
    MediaFrame frame;
    uint64_t written = 0;
    uint64_t promised = 0;
    for (const auto& source : sources_) promised += static_cast<const TrackSource&>(*source).promised();
    while (merger.Next(frame)) {
      if (!recorder.Write(frame)) {
        throw ToolError(arguments_.output + ": the size limit of the format ended the recording");
      }
      ++written;
      session_.console.Progress("recording", Part(written, promised));
    }
    session_.console.EndProgress();
  }

  // The writer begins with 0; the value is the application's and moves along.
  void KeepAidd() const {
    if (!map_.aidd || map_.aidd->value == 0) return;
    const FileMap written = ScanFile(arguments_.output);
    if (written.aidd) RewriteAidd(arguments_.output, written.aidd->position, map_.aidd->value);
  }

  void Report(const ImportPlan& plan, const Recorder& recorder) {
    const Json files = ReportFiles(recorder, session_.console);
    for (const auto& source : sources_) {
      const auto& track = static_cast<const TrackSource&>(*source);
      if (track.taken() >= track.promised()) continue;
      session_.console.Warning(fmt::format("{}: {}: only {} of {} frames can be read", arguments_.input,
                                           track.streams()[0].label, track.taken(), track.promised()));
      session_.exit_code = kExitDamaged;
    }
    if (map_.health == Health::kDamaged) session_.exit_code = kExitDamaged;
    if (!session_.json) return;
    const Json report = {{"files", files}, {"software", plan.info.szSoftware}};
    fmt::print("{}\n", JsonText(report));
  }

  const RemuxArguments& arguments_;
  Session& session_;
  FileMap map_;
  std::unique_ptr<Playback> playback_;
  std::vector<std::unique_ptr<MediaSource>> sources_;
};

}  // namespace

void AddRemux(CLI::App& app, Session& session) {
  auto arguments = std::make_shared<RemuxArguments>();
  CLI::App* command = AddCommand(
      app, session, "remux",
      "Records a recording's frames anew.\n\n"
      "Payloads and key frames stay as they are, times to the millisecond. User boxes are made anew from the "
      "text track.",
      "  zmv remux drive.mp4 -o copy.mp4");
  command->add_option("IN", arguments->input, "The recording")->required();
  command->add_option("-o,--output", arguments->output, "The new recording")->required();
  command->add_option("--software", arguments->software, "Software text of the recording, at most 63 bytes");
  command->add_flag("-f,--force", arguments->force, "Overwrite an existing file");
  command->callback([arguments, &session] { Remux(*arguments, session).Run(); });
}

}  // namespace zmv::tool

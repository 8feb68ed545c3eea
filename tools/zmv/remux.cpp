// zmv remux: plays a recording back and records its frames anew.
#include <fmt/core.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <optional>

#include "tools/zmv/aac.h"
#include "tools/zmv/aidd.h"
#include "tools/zmv/commands.h"
#include "tools/zmv/config_text.h"
#include "tools/zmv/file_map.h"
#include "tools/zmv/import_plan.h"
#include "tools/zmv/output_file.h"
#include "tools/zmv/playback.h"
#include "tools/zmv/recorder.h"
#include "tools/zmv/recording_report.h"
#include "tools/zmv/stream_file.h"
#include "tools/zmv/track_source.h"
#include "tools/zmv/track_tables.h"

namespace zmv::tool {
namespace {

constexpr int64_t kMillisecondUs = 1000;
constexpr uint64_t kSecondMs = 1000;
constexpr uint64_t kThousandthsPerMs = 1000000;  // frames a millisecond as thousandths a second
constexpr uint32_t kPcmBits = 16;
constexpr uint64_t kMostSamplesPerFrame = 8192;
constexpr const char* kAdvice = "`zmv import` records such files";

struct RemuxArguments {
  std::string input;
  std::string output;
  std::string software;
  bool force = false;
};

double Part(uint64_t done, uint64_t all) { return all == 0 ? 1 : static_cast<double>(done) / static_cast<double>(all); }

bool IsPcm(const ZMVAudioInfo& audio) { return audio.dwFormat == ZMV_AUDIO_PCM || audio.dwFormat == ZMV_AUDIO_PCM_LE; }

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
    to_avi_ = ContainerOfName(arguments_.output) == Container::kAvi;
    if (!from_avi()) RequireCopyable();
    OpenTracks();
    const ImportPlan plan = Plan();
    RecorderOptions options;
    options.path = arguments_.output;
    options.container = plan.container;
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
        const RiffTrack* riff = playback_->Riff(media, track);
        if (riff != nullptr && riff->hidden > 0) continue;
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
    if (codec) {
      video.dwFourCC = *codec == VideoCodec::kH264 ? ZMV_FOURCC('H', '2', '6', '4') : ZMV_FOURCC('H', '2', '6', '5');
      PrepareParameterSets(source, *codec, video);
    } else if (!to_avi_) {
      Refuse(source, fmt::format("codec {} cannot be recorded in an MP4", tool::DescribeVideo(video).name));
    }
    description.nominal_us = NominalUs(video.dwDuration, video.dwFrames, kUsual);
    PlanRate(source, video);
  }

  void PrepareParameterSets(TrackSource& source, VideoCodec codec, const ZMVVideoInfo& video) const {
    const ByteView stored(video.abExtraData, std::min<size_t>(video.dwExtraDataSize, sizeof(video.abExtraData)));
    PictureFilter filter(codec);
    filter.Learn(stored);
    if (from_avi() && !to_avi_ && *filter.Missing() != '\0')
      Refuse(source, fmt::format("it lacks {}", filter.Missing()));
    // A recording of this library has its frames' records, and its payloads are copied byte for byte; so are those that
    // go to an AVI, which keeps access units as they are.
    if (!to_avi_ && (from_avi() || map_.front.empty())) source.KeepPicturesOnly(codec, stored);
  }

  // The reader's rate of an MP4 comes from whole milliseconds a frame.
  void PlanRate(const TrackSource& source, ZMVVideoInfo& video) const {
    const RiffTrack* riff = playback_->Riff(ZMV_MEDIA_VIDEO, source.track());
    if (riff != nullptr && riff->stream.scale > 0) {
      const uint64_t rate = uint64_t{riff->stream.rate} * kSecondMs / riff->stream.scale;
      video.dwFrameRate = static_cast<uint32_t>(std::min<uint64_t>(rate, UINT32_MAX));
      const bool whole = riff->stream.rate % riff->stream.scale == 0;
      video.dwFixedRate = whole ? video.dwFrameRate : 0;
    } else if (video.dwDuration > 0) {
      const uint64_t rate = std::min<uint64_t>(video.dwFrames * kThousandthsPerMs / video.dwDuration, UINT32_MAX);
      video.dwFrameRate = static_cast<uint32_t>(rate);
      // As exact as a duration in whole milliseconds.
      const uint64_t whole = (rate + kSecondMs / 2) / kSecondMs * kSecondMs;
      const uint64_t off = whole > rate ? whole - rate : rate - whole;
      video.dwFixedRate = off <= rate / video.dwDuration + 1 ? static_cast<uint32_t>(whole) : 0;
    }
  }

  void DescribeAudio(TrackSource& source) const {
    constexpr int64_t kUsual = 21333;
    StreamDescription& description = source.description();
    description.audio = playback_->info().m_Audio;
    ZMVAudioInfo& audio = description.audio;
    description.nominal_us = NominalUs(audio.dwDuration, audio.dwFrames, kUsual);
    if (IsPcm(audio)) {
      DescribePcm(source, audio);
      return;
    }
    if (!to_avi_ && audio.dwFormat != ZMV_AUDIO_AAC && audio.dwFormat != ZMV_AUDIO_MPEG) {
      Refuse(source, fmt::format("codec {} cannot be recorded in an MP4", tool::DescribeAudio(audio).name));
    }
    audio.dwBlockAlign = 0;
    audio.dwSamplesPerFrame = SamplesPerFrame(source, audio);
  }

  // The spacing of compressed audio in an AVI. Every chunk is to hold one frame.
  uint32_t SamplesPerFrame(const TrackSource& source, const ZMVAudioInfo& audio) const {
    const RiffTrack* riff = playback_->Riff(ZMV_MEDIA_AUDIO, source.track());
    if (riff != nullptr) {
      const RiffStream& stream = riff->stream;
      const uint64_t samples = stream.rate == 0 ? 0 : uint64_t{stream.scale} * audio.dwSampleRate / stream.rate;
      if (stream.sample_size != 0 || samples == 0 || samples > kMostSamplesPerFrame) {
        Refuse(source,
               fmt::format("its frames stand together in chunks, from which they cannot be told apart; {}", kAdvice));
      }
      return static_cast<uint32_t>(samples);
    }
    if (audio.dwFormat == ZMV_AUDIO_MPEG) {
      constexpr uint32_t kLowRates = 32000;  // below, a frame of layer 3 has half as many samples
      constexpr uint32_t kLayer3Samples = 1152;
      return audio.dwSampleRate < kLowRates ? kLayer3Samples / 2 : kLayer3Samples;
    }
    const uint64_t measured =
        audio.dwFrames == 0 ? 0 : uint64_t{audio.dwDuration} * audio.dwSampleRate / (kSecondMs * audio.dwFrames);
    return measured > 3 * kAacSamplesPerFrame / 2 ? 2 * kAacSamplesPerFrame : kAacSamplesPerFrame;
  }

  // The reader calls every byte order by one name; what the recording was begun with stands in its recovery box.
  void DescribePcm(TrackSource& source, ZMVAudioInfo& audio) const {
    if (!to_avi_ && (audio.dwChannels != 1 || audio.dwBitsPerSample != kPcmBits)) {
      Refuse(source, "PCM other than mono of 16 bits would play at the wrong speed in an MP4");
    }
    if (to_avi_) {
      audio.dwFormat = ZMV_AUDIO_PCM;
      return;
    }
    source.KeepFramesEqual();
    const auto front = std::find_if(map_.front.begin(), map_.front.end(),
                                    [](const FrontStream& stream) { return stream.media == "audio"; });
    const bool stated = front != map_.front.end() && front->code == fmt::format("0x{:X}", ZMV_AUDIO_PCM);
    audio.dwFormat = stated && !from_avi() ? ZMV_AUDIO_PCM : ZMV_AUDIO_PCM_LE;
    audio.dwSamplesPerFrame = static_cast<uint32_t>(source.first_size() / (kPcmBits / 8));
    audio.dwBlockAlign = static_cast<uint32_t>(source.first_size());
  }

  ImportPlan Plan() {
    const uint32_t texts = playback_->TrackCount(ZMV_MEDIA_TEXT);
    const bool from_boxes = !from_avi() && (map_.gps_entries || map_.sensor_entries || map_.aidd);
    const bool boxes = !to_avi_ && (from_boxes || (from_avi() && HoldsPositions()));
    if (from_boxes && texts == 0) {
      session_.console.Warning(arguments_.input + ": its user boxes have no text track and are left out");
    }
    ImportPlan plan = PlanImport(sources_, SoftwareText(arguments_.software, boxes && texts > 0, session_.console),
                                 session_.console, to_avi_ ? Container::kAvi : Container::kMp4);
    uint64_t samples = 0;
    for (const auto& source : sources_) {
      const auto& track = static_cast<const TrackSource&>(*source);
      if (track.media() != ZMV_MEDIA_TEXT) continue;
      ZMVTextInfo& text = plan.info.m_Text[plan.info.dwTextCount];
      text = playback_->info().m_Text[track.track()];
      text.dwTimeScale = kTextTimeScale;
      plan.tracks.push_back({source.get(), 0, ZMV_MEDIA_TEXT, plan.info.dwTextCount++});
      plan.nominal_us.push_back(NominalUs(text.dwDuration, text.dwFrames, int64_t{kSecondMs} * kMillisecondUs));
      if (to_avi_) PlanAviText(plan.nominal_us.back(), text);
      samples += track.promised();
    }
    if (to_avi_ && plan.info.dwTextCount > 0) {
      session_.console.Note(arguments_.output + ": an AVI stores no times: in it text frames are evenly spaced");
    }
    if (!to_avi_ && texts > 0) PlanUserData(samples, playback_->info().dwDuration / kSecondMs, plan.info);
    return plan;
  }

  bool from_avi() const { return map_.container == Container::kAvi; }

  bool HoldsPositions() const {
    const ZMVFileInfo& info = playback_->info();
    return std::any_of(info.m_Text, info.m_Text + info.dwTextCount,
                       [](const ZMVTextInfo& text) { return text.dwFourCC == ZMV_FOURCC('G', 'P', 'S', ' '); });
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
    if (!written.aidd || map_.aidd->value > written.aidd->largest()) {
      session_.console.Warning(
          fmt::format("{}: its AIDD value {} has no place in the new recording", arguments_.input, map_.aidd->value));
      return;
    }
    RewriteAidd(arguments_.output, *written.aidd, map_.aidd->value);
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
    ReportHealth(*playback_, session_);
    if (!session_.json) return;
    const Json report = {{"files", files}, {"software", plan.info.szSoftware}};
    fmt::print("{}\n", JsonText(report));
  }

  const RemuxArguments& arguments_;
  Session& session_;
  bool to_avi_ = false;
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
      "text track. OUT is an AVI when its name ends in .avi, else an MP4. An AVI stores no times, its frames are "
      "evenly "
      "spaced; H.264 parameter sets stand in its key frames, in an MP4 in front of them all.",
      "  zmv remux drive.mp4 -o copy.mp4\n  zmv remux drive.mp4 -o drive.avi");
  command->add_option("IN", arguments->input, "The recording")->required();
  command->add_option("-o,--output", arguments->output, "The new recording")->required();
  command->add_option("--software", arguments->software, "Software text of the recording, at most 63 bytes");
  command->add_flag("-f,--force", arguments->force, "Overwrite an existing file");
  command->callback([arguments, &session] { Remux(*arguments, session).Run(); });
}

}  // namespace zmv::tool

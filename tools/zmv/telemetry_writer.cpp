#include "tools/zmv/telemetry_writer.h"

#include <fmt/core.h>

#include <array>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>

#include "tools/zmv/gps_file.h"
#include "tools/zmv/tool_error.h"

namespace zmv::tool {
namespace {

constexpr int kDegreeDecimals = 9;
constexpr int kGeoJsonDecimals = 7;  // a centimetre
constexpr int kMetreDecimals = 3;
constexpr int kRateDecimals = 4;

// GPX has its degrees from -180 to below 180 and its courses from 0 to below 360.
std::string GpxDegrees(double degrees) {
  const std::string text = DecimalText(degrees, kDegreeDecimals);
  return text == "180" ? "-180" : text;
}

std::string GpxCourse(double course) {
  constexpr double kTurn = 360;
  const double turned = std::fmod(course, kTurn);
  const std::string text = DecimalText(turned < 0 ? turned + kTurn : turned, kRateDecimals);
  return text == "360" ? "0" : text;
}

std::string Degrees(const std::optional<double>& degrees) { return DecimalText(*degrees, kDegreeDecimals); }

// What has to stand behind all points of a segment, kept in a temporary file: a segment may be of any length.
class Spool {
 public:
  Spool() : file_(std::tmpfile()) {
    if (file_ == nullptr) Fail();
  }

  void Write(std::string_view text) {
    if (std::fwrite(text.data(), 1, text.size(), file_.get()) != text.size()) Fail();
    size_ += text.size();
  }

  // Moves everything to `sink`.
  void Drain(const TextSink& sink) {
    std::array<char, 16384> piece;
    if (std::fseek(file_.get(), 0, SEEK_SET) != 0) Fail();
    while (size_ > 0) {
      const size_t count = std::fread(piece.data(), 1, std::min(size_, piece.size()), file_.get());
      if (count == 0) Fail();
      sink(std::string_view(piece.data(), count));
      size_ -= count;
    }
    if (std::fseek(file_.get(), 0, SEEK_SET) != 0) Fail();
  }

 private:
  [[noreturn]] static void Fail() { throw ToolError(std::string("a temporary file: ") + std::strerror(errno)); }

  struct CloseFile {
    void operator()(std::FILE* file) const { std::fclose(file); }
  };
  std::unique_ptr<std::FILE, CloseFile> file_;
  size_t size_ = 0;
};

// Begins and ends segments around the points.
class SegmentWriter : public TelemetryWriter {
 public:
  explicit SegmentWriter(TextSink sink) : sink_(std::move(sink)) {}

  void Point(const DrivePoint& point) override {
    if (point.segment != segment_) {
      if (segment_ != 0) EndSegment();
      segment_ = point.segment;
      BeginSegment();
    }
    One(point);
  }
  void End() override {
    if (segment_ != 0) EndSegment();
    Foot();
  }

 protected:
  virtual void BeginSegment() = 0;
  virtual void One(const DrivePoint& point) = 0;
  virtual void EndSegment() = 0;
  virtual void Foot() = 0;

  TextSink sink_;
  uint32_t segment_ = 0;
};

// GPX 1.1; its point has no room for speed and course, which go where other programs look for them.
class GpxWriter : public SegmentWriter {
 public:
  using SegmentWriter::SegmentWriter;

  void Begin() override {
    sink_(
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
        "<gpx version=\"1.1\" creator=\"zmv " ZMV_VERSION_TEXT
        "\" xmlns=\"http://www.topografix.com/GPX/1/1\" "
        "xmlns:gpxtpx=\"http://www.garmin.com/xmlschemas/TrackPointExtension/v2\">\n<trk>\n");
  }

 protected:
  void BeginSegment() override { sink_("<trkseg>\n"); }
  void EndSegment() override { sink_("</trkseg>\n"); }
  void Foot() override { sink_("</trk>\n</gpx>\n"); }

  void One(const DrivePoint& drive) override {
    const GpsPoint& point = drive.point;
    std::string text =
        fmt::format("<trkpt lat=\"{}\" lon=\"{}\">", Degrees(point.latitude), GpxDegrees(*point.longitude));
    if (point.altitude) text += fmt::format("<ele>{}</ele>", DecimalText(*point.altitude, kMetreDecimals));
    text += fmt::format("<time>{}</time>", UtcText(*point.utc_us));
    text += fmt::format("<fix>{}</fix>", point.fix == GpsFix::k2d ? "2d" : "3d");
    if (point.satellites) text += fmt::format("<sat>{}</sat>", *point.satellites);
    if (point.hdop)
      text += fmt::format("<hdop>{}</hdop>", DecimalText(static_cast<double>(*point.hdop), kRateDecimals));
    if (point.speed || point.course) {
      text += "<extensions><gpxtpx:TrackPointExtension>";
      if (point.speed) text += fmt::format("<gpxtpx:speed>{}</gpxtpx:speed>", DecimalText(*point.speed, kRateDecimals));
      if (point.course) {
        text += fmt::format("<gpxtpx:course>{}</gpxtpx:course>", GpxCourse(*point.course));
      }
      text += "</gpxtpx:TrackPointExtension></extensions>";
    }
    sink_(text + "</trkpt>\n");
  }
};

// The columns that `zmv import --gps` reads, and three more.
class CsvWriter : public TelemetryWriter {
 public:
  explicit CsvWriter(TextSink sink) : sink_(std::move(sink)) {}

  void Begin() override {
    sink_(
        "time (UTC),lat (deg),lon (deg),ele (m),speed (m/s),course (deg),hdop,sats,ax (0.001 g),ay (0.001 g),"
        "az (0.001 g),gx (0.1 deg/s),gy (0.1 deg/s),gz (0.1 deg/s),fix,segment,recording (ms)\n");
  }

  void Point(const DrivePoint& drive) override {
    const GpsPoint& point = drive.point;
    const auto cell = [](const auto& value, int decimals) {
      return value ? DecimalText(static_cast<double>(*value), decimals) : std::string();
    };
    std::string line =
        fmt::format("{},{},{},{},{},{},{},{}", UtcText(*point.utc_us), Degrees(point.latitude),
                    Degrees(point.longitude), cell(point.altitude, kMetreDecimals), cell(point.speed, kRateDecimals),
                    cell(point.course, kRateDecimals), cell(point.hdop, kRateDecimals), cell(point.satellites, 0));
    for (const auto& sensor : point.sensors) line += "," + cell(sensor, 0);
    line += fmt::format(",{},{},{}\n", point.fix == GpsFix::k2d ? "2d" : "3d", drive.segment, cell(drive.time_ms, 0));
    sink_(line);
  }

  void End() override {}

 private:
  TextSink sink_;
};

// GeoJSON (RFC 7946): a line for each segment, its times in "coordTimes"; a segment of one position is a point.
class GeoJsonWriter : public SegmentWriter {
 public:
  using SegmentWriter::SegmentWriter;

  void Begin() override { sink_("{\"type\":\"FeatureCollection\",\"features\":["); }

 protected:
  void BeginSegment() override {
    sink_(segment_ == 1 ? "\n" : ",\n");
    sink_("{\"type\":\"Feature\",\"geometry\":{\"type\":");
    count_ = 0;
  }

  void One(const DrivePoint& drive) override {
    const GpsPoint& point = drive.point;
    std::string position = fmt::format("[{},{}", DecimalText(*point.longitude, kGeoJsonDecimals),
                                       DecimalText(*point.latitude, kGeoJsonDecimals));
    if (point.altitude) position += "," + DecimalText(*point.altitude, kMetreDecimals);
    position += "]";
    // The first position waits: whether it is a line shows with the second.
    if (count_ == 0) {
      first_ = position;
    } else {
      if (count_ == 1) sink_("\"LineString\",\"coordinates\":[" + first_);
      sink_(",\n" + position);
    }
    times_.Write(fmt::format("{}\"{}\"", count_ == 0 ? "" : ",\n", UtcText(*point.utc_us)));
    ++count_;
  }

  void EndSegment() override {
    sink_(count_ == 1 ? "\"Point\",\"coordinates\":" + first_ : std::string("]"));
    sink_(fmt::format("}},\"properties\":{{\"segment\":{},\"coordTimes\":[", segment_));
    times_.Drain(sink_);
    sink_("]}}");
  }

  void Foot() override { sink_("\n]}\n"); }

 private:
  Spool times_;
  std::string first_;
  uint64_t count_ = 0;
};

// KML 2.2 with the extension for tracks in time; a track has its times first, then its positions.
class KmlWriter : public SegmentWriter {
 public:
  using SegmentWriter::SegmentWriter;

  void Begin() override {
    sink_(
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
        "<kml xmlns=\"http://www.opengis.net/kml/2.2\" xmlns:gx=\"http://www.google.com/kml/ext/2.2\">\n"
        "<Document>\n<Placemark>\n<gx:MultiTrack>\n");
  }

 protected:
  void BeginSegment() override { sink_("<gx:Track>\n"); }

  void One(const DrivePoint& drive) override {
    const GpsPoint& point = drive.point;
    sink_(fmt::format("<when>{}</when>\n", UtcText(*point.utc_us)));
    positions_.Write(fmt::format("<gx:coord>{} {} {}</gx:coord>\n", Degrees(point.longitude), Degrees(point.latitude),
                                 DecimalText(point.altitude.value_or(0), kMetreDecimals)));
  }

  void EndSegment() override {
    positions_.Drain(sink_);
    sink_("</gx:Track>\n");
  }

  void Foot() override { sink_("</gx:MultiTrack>\n</Placemark>\n</Document>\n</kml>\n"); }

 private:
  Spool positions_;
};

}  // namespace

std::string DecimalText(double number, int decimals) {
  std::string text = fmt::format("{:.{}f}", number, decimals);
  if (text.find('.') != std::string::npos) {
    text.erase(text.find_last_not_of('0') + 1);
    if (text.back() == '.') text.pop_back();
  }
  return text == "-0" ? "0" : text;
}

std::unique_ptr<TelemetryWriter> MakeTelemetryWriter(const std::string& format, TextSink sink) {
  if (format == "gpx") return std::make_unique<GpxWriter>(std::move(sink));
  if (format == "csv") return std::make_unique<CsvWriter>(std::move(sink));
  if (format == "geojson") return std::make_unique<GeoJsonWriter>(std::move(sink));
  if (format == "kml") return std::make_unique<KmlWriter>(std::move(sink));
  throw ToolError(format + ": is no format for positions; gpx, csv, geojson and kml are", kExitUsage);
}

TelemetryReport WriteTelemetry(const DriveOptions& options, const std::string& format, const TextSink& sink) {
  TelemetryTrack track(options);
  const std::unique_ptr<TelemetryWriter> writer = MakeTelemetryWriter(format, sink);
  TelemetryReport report;
  report.from_boxes = track.source().reads_boxes();
  writer->Begin();
  DrivePoint point;
  while (track.Next(point)) {
    writer->Point(point);
    ++report.points;
  }
  writer->End();
  report.segments = track.segments();
  report.invalid = track.invalid();
  report.untimed = track.untimed();
  report.foreign = track.foreign();
  report.missing = track.source().missing();
  report.health = track.source().health();
  report.sentence = track.source().sentence();
  return report;
}

}  // namespace zmv::tool

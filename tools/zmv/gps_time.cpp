#include <fmt/core.h>

#include <charconv>
#include <chrono>
#include <cmath>

#include "tools/zmv/gps_file.h"

namespace zmv::tool {
namespace {

constexpr int64_t kMicro = 1000000;
constexpr int64_t kMaxUnixSeconds = 253402300799;  // the last second of the year 9999

std::string_view Trim(std::string_view text) {
  const auto blank = [](char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; };
  while (!text.empty() && blank(text.front())) text.remove_prefix(1);
  while (!text.empty() && blank(text.back())) text.remove_suffix(1);
  return text;
}

// Takes parts off the front of a text; once something does not fit, nothing fits any more.
class Scanner {
 public:
  explicit Scanner(std::string_view text) : text_(text) {}

  int Digits(size_t count) {
    int value = 0;
    if (text_.size() < count) return Fail();
    for (size_t i = 0; i < count; ++i) {
      if (text_[i] < '0' || text_[i] > '9') return Fail();
      value = value * 10 + (text_[i] - '0');
    }
    text_.remove_prefix(count);
    return value;
  }

  // One of the characters; 0 when none of them is next.
  char Optional(std::string_view characters) {
    if (text_.empty() || characters.find(text_.front()) == std::string_view::npos) return 0;
    const char taken = text_.front();
    text_.remove_prefix(1);
    return taken;
  }

  void Expect(std::string_view characters) {
    if (Optional(characters) == 0) Fail();
  }

  // A fraction of a second in microseconds; further digits are dropped.
  int64_t Fraction() {
    if (Optional(".,") == 0) return 0;
    int64_t value = 0;
    int64_t weight = kMicro / 10;
    const size_t before = text_.size();
    while (!text_.empty() && text_.front() >= '0' && text_.front() <= '9') {
      value += (text_.front() - '0') * weight;
      weight /= 10;
      text_.remove_prefix(1);
    }
    if (text_.size() == before) Fail();
    return value;
  }

  bool Done() const { return sound_ && text_.empty(); }

 private:
  int Fail() {
    sound_ = false;
    return 0;
  }

  std::string_view text_;
  bool sound_ = true;
};

// Minutes east of Greenwich; a time without zone is taken as UTC, which is what receivers write.
int Zone(Scanner& scanner) {
  if (scanner.Optional("Zz") != 0) return 0;
  const char sign = scanner.Optional("+-");
  if (sign == 0) return 0;
  const int hours = scanner.Digits(2);
  scanner.Optional(":");
  const int minutes = scanner.Digits(2);
  return (sign == '-' ? -1 : 1) * (hours * 60 + minutes);
}

}  // namespace

std::optional<double> ParseNumber(std::string_view text) {
  text = Trim(text);
  if (!text.empty() && text.front() == '+') text.remove_prefix(1);
  double value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size() || !std::isfinite(value)) return std::nullopt;
  return value;
}

std::optional<int64_t> ParseUtc(std::string_view text) {
  text = Trim(text);
  if (const auto seconds = ParseNumber(text)) {
    if (*seconds < 0 || *seconds > static_cast<double>(kMaxUnixSeconds)) return std::nullopt;
    return std::llround(*seconds * static_cast<double>(kMicro));
  }
  Scanner scanner(text);
  const int year = scanner.Digits(4);
  scanner.Expect("-");
  const unsigned month = static_cast<unsigned>(scanner.Digits(2));
  scanner.Expect("-");
  const unsigned day = static_cast<unsigned>(scanner.Digits(2));
  scanner.Expect("Tt ");
  const int hour = scanner.Digits(2);
  scanner.Expect(":");
  const int minute = scanner.Digits(2);
  const int second = scanner.Optional(":") != 0 ? scanner.Digits(2) : 0;
  const int64_t fraction = scanner.Fraction();
  const int zone = Zone(scanner);
  const std::chrono::year_month_day date{std::chrono::year(year), std::chrono::month(month), std::chrono::day(day)};
  if (!scanner.Done() || !date.ok() || hour > 23 || minute > 59 || second > 60) return std::nullopt;
  const int64_t days = std::chrono::sys_days(date).time_since_epoch().count();
  const int64_t seconds = ((days * 24 + hour) * 60 + minute - zone) * 60 + second;
  return seconds * kMicro + fraction;
}

std::string UtcText(int64_t utc_us) {
  using std::chrono::microseconds;
  const std::chrono::sys_time<microseconds> time{microseconds(utc_us)};
  const auto day = std::chrono::floor<std::chrono::days>(time);
  const std::chrono::year_month_day date(day);
  const int64_t in_day = (time - day).count();
  const int64_t seconds = in_day / kMicro;
  return fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}.{:03}Z", static_cast<int>(date.year()),
                     static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()), seconds / 3600,
                     seconds / 60 % 60, seconds % 60, in_day % kMicro / 1000);
}

}  // namespace zmv::tool

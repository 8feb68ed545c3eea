#include "bench/report.h"

#include <fmt/core.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <nlohmann/json.hpp>
#include <stdexcept>

namespace zmv::bench {
namespace {

std::string Number(double value) {
  const double size = std::fabs(value);
  if (size >= 100 || value == std::floor(value)) return fmt::format("{:.0f}", value);
  return size >= 10 ? fmt::format("{:.1f}", value) : fmt::format("{:.3g}", value);
}

const char* Name(Verdict verdict) {
  switch (verdict) {
    case Verdict::kAim:
      return "aim";
    case Verdict::kMust:
      return "pass";
    case Verdict::kMissed:
      return "MISSED";
    default:
      return "";
  }
}

}  // namespace

Verdict Judge(const Row& row) {
  if (!row.mark) return Verdict::kNone;
  if (!(row.value <= row.mark->must)) return Verdict::kMissed;
  return row.mark->aim && row.value > *row.mark->aim ? Verdict::kMust : Verdict::kAim;
}

void Report::Add(Row row) { rows_.push_back(std::move(row)); }

bool Report::Missed() const {
  return std::any_of(rows_.begin(), rows_.end(), [](const Row& row) { return Judge(row) == Verdict::kMissed; });
}

void Report::Print() const {
  size_t width = 0;
  for (const Row& row : rows_) width = std::max(width, row.what.size());
  fmt::print("{:<13} {:<{}} {:>10} {:<12} {:>8} {:>7}  {}\n", "", "", width, "measured", "", "must", "aim", "verdict");
  std::string group;
  for (const Row& row : rows_) {
    const std::string must = row.mark ? Number(row.mark->must) : "";
    const std::string aim = row.mark && row.mark->aim ? Number(*row.mark->aim) : "";
    fmt::print("{:<13} {:<{}} {:>10} {:<12} {:>8} {:>7}  {}\n", row.group == group ? "" : row.group, row.what, width,
               Number(row.value), row.unit, must, aim, Name(Judge(row)));
    group = row.group;
  }
}

void Report::WriteJson(const std::string& path) const {
  nlohmann::json all = nlohmann::json::array();
  for (const Row& row : rows_) {
    nlohmann::json one = {{"group", row.group}, {"what", row.what}, {"value", row.value}, {"unit", row.unit}};
    if (row.mark) {
      one["must"] = row.mark->must;
      if (row.mark->aim) one["aim"] = *row.mark->aim;
      one["verdict"] = Name(Judge(row));
    }
    all.push_back(one);
  }
  std::ofstream out(path);
  out << nlohmann::json{{"rows", all}, {"missed", Missed()}}.dump(2) << '\n';
  if (!out.flush()) throw std::runtime_error(fmt::format("{}: cannot be written", path));
}

}  // namespace zmv::bench

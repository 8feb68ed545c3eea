// The table of figures, the marks they are to reach, and the verdicts.
#ifndef ZMV_BENCH_REPORT_H
#define ZMV_BENCH_REPORT_H

#include <optional>
#include <string>
#include <vector>

namespace zmv::bench {

// The most a figure may be, and the most it should be.
struct Mark {
  double must;
  std::optional<double> aim;
};

struct Row {
  std::string group;  // "write", "read" ...
  std::string what;
  double value;
  std::string unit;          // "x" for a ratio
  std::optional<Mark> mark;  // none: for information
};

enum class Verdict { kNone, kAim, kMust, kMissed };
Verdict Judge(const Row& row);

class Report {
 public:
  void Add(Row row);
  bool Missed() const;  // a mark that must be reached is not
  void Print() const;
  void WriteJson(const std::string& path) const;

 private:
  std::vector<Row> rows_;
};

}  // namespace zmv::bench

#endif

// The figures of a run of end_to_end: collected round by round, shown as tables, written as JSON.
#pragma once

#include <iosfwd>
#include <string>
#include <vector>

namespace BrimletBench {

using Series = std::vector<double>;

// The value below which `percent` of a hundred lie. The series must not be empty.
double Percentile(Series series, double percent);

// Stands for "no bound".
constexpr double kNoBound = 0;

class Report {
 public:
  // Adds one round's ratio of the helper to `against`: "floor", or the name of a peer.
  void AddRatio(const std::string& line, const std::string& against, double bound, double ratio);
  // Adds what was measured of somebody, for the second table.
  void AddValues(const std::string& line, const std::string& unit, const std::string& who,
                 const Series& values);
  void AddFigure(const std::string& line, double value, double bound, const std::string& unit);
  void AddNote(const std::string& note) { mNotes.push_back(note); }

  void Print(std::ostream& out) const;
  // [{"line": ..., "floor": [...], "bound_floor": ...}, {"line": ..., "peer": [...],
  //   "peer_name": ..., "bound_peer": ...}, {"line": ..., "value": ..., "bound": ..., "unit": ...},
  //   {"note": ...}]
  // A bound that there is not is left out.
  void WriteJson(std::ostream& out) const;

 private:
  struct Ratio {
    std::string line, against;
    double bound;
    Series rounds;
  };
  struct Values {
    std::string line, unit, who;
    Series values;
  };
  struct Figure {
    std::string line;
    double value, bound;
    std::string unit;
  };

  std::vector<Ratio> mRatios;
  std::vector<Values> mValues;
  std::vector<Figure> mFigures;
  std::vector<std::string> mNotes;
};

}  // namespace BrimletBench

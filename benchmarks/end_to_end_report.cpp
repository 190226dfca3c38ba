#include "benchmarks/end_to_end_report.h"

#include <algorithm>
#include <cmath>
#include <iomanip>
#include <ostream>

namespace BrimletBench {
namespace {

// As wide as the longest line.
constexpr int kLineWidth = 42;
constexpr int kNameWidth = 14;
constexpr int kNumberWidth = 10;

// Three digits where that says enough, and no less than the whole number.
std::string Text(double value) {
  const int digits = value == 0 ? 0 : static_cast<int>(std::floor(std::log10(std::abs(value)))) + 1;
  const int decimals = std::clamp(3 - digits, 0, 3);
  std::string text = std::to_string(value + std::copysign(0.5 * std::pow(10, -decimals), value));
  text.resize(text.find('.') + (decimals == 0 ? 0 : 1 + static_cast<std::size_t>(decimals)));
  return text;
}

std::string BoundText(double bound) { return bound == kNoBound ? "" : "<= " + Text(bound); }

std::string Verdict(double value, double bound) {
  if (bound == kNoBound) {
    return "";
  }
  return value <= bound ? "within" : "OVER";
}

// `text` as a JSON string, its line feeds kept and other control bytes made blanks.
std::string Quoted(const std::string& text) {
  std::string quoted = "\"";
  for (const char c : text) {
    if (c == '\n') {
      quoted += "\\n";
      continue;
    }
    if (c == '"' || c == '\\') {
      quoted += '\\';
    }
    quoted += static_cast<unsigned char>(c) < ' ' ? ' ' : c;
  }
  return quoted + "\"";
}

void WriteSeries(std::ostream& out, const Series& series) {
  const char* separator = "[";
  for (const double value : series) {
    out << separator << value;
    separator = ", ";
  }
  out << "]";
}

std::ostream& Row(std::ostream& out, const std::string& line, const std::string& name) {
  return out << std::left << std::setw(kLineWidth) << line << std::setw(kNameWidth) << name
             << std::right;
}

}  // namespace

double Percentile(Series series, double percent) {
  std::sort(series.begin(), series.end());
  const auto last = static_cast<double>(series.size() - 1);
  return series[static_cast<std::size_t>(std::lround(last * percent / 100))];
}

void Report::AddRatio(const std::string& line, const std::string& against, double bound,
                      double ratio) {
  const auto found = std::find_if(mRatios.begin(), mRatios.end(), [&](const Ratio& known) {
    return known.line == line && known.against == against;
  });
  Ratio& row =
      found != mRatios.end() ? *found : mRatios.emplace_back(Ratio{line, against, bound, {}});
  row.rounds.push_back(ratio);
}

void Report::AddValues(const std::string& line, const std::string& unit, const std::string& who,
                       const Series& values) {
  const auto found = std::find_if(mValues.begin(), mValues.end(), [&](const Values& known) {
    return known.line == line && known.who == who;
  });
  Values& row = found != mValues.end() ? *found : mValues.emplace_back(Values{line, unit, who, {}});
  row.values.insert(row.values.end(), values.begin(), values.end());
}

void Report::AddFigure(const std::string& line, double value, double bound,
                       const std::string& unit) {
  mFigures.push_back({line, value, bound, unit});
}

void Report::Print(std::ostream& out) const {
  const auto number = [&](const std::string& text) { out << std::setw(kNumberWidth) << text; };
  Row(out, "times that of", "") << "    median     bound       least .. most of the rounds\n";
  for (const Ratio& row : mRatios) {
    const double median = Percentile(row.rounds, 50);
    Row(out, row.line, row.against);
    number(Text(median));
    number(BoundText(row.bound));
    number(Text(Percentile(row.rounds, 0)));
    out << " .. " << std::left << std::setw(kNumberWidth) << Text(Percentile(row.rounds, 100))
        << std::right << Verdict(median, row.bound) << '\n';
  }
  out << '\n';
  Row(out, "measured", "") << "       p10       p50       p99\n";
  for (const Values& row : mValues) {
    Row(out, row.line, row.who);
    for (const double percent : {10.0, 50.0, 99.0}) {
      number(Text(Percentile(row.values, percent)));
    }
    out << "  " << row.unit << '\n';
  }
  out << '\n';
  for (const Figure& row : mFigures) {
    Row(out, row.line, "");
    number(Text(row.value));
    out << ' ' << std::left << std::setw(kNameWidth) << row.unit << std::right;
    number(BoundText(row.bound));
    out << "  " << Verdict(row.value, row.bound) << '\n';
  }
  for (const std::string& note : mNotes) {
    out << "\n" << note;
  }
  out << std::endl;
}

void Report::WriteJson(std::ostream& out) const {
  const char* separator = "[\n";
  const auto begin = [&](const std::string& text, const char* name = "line") {
    out << separator << "{\"" << name << "\": " << Quoted(text);
    separator = ",\n";
  };
  const auto end = [&](const char* boundName, double bound) {
    if (bound != kNoBound) {
      out << ", \"" << boundName << "\": " << bound;
    }
    out << "}";
  };
  for (const Ratio& row : mRatios) {
    const bool isFloor = row.against == "floor";
    begin(row.line);
    out << (isFloor ? R"(, "floor": )" : R"(, "peer": )");
    WriteSeries(out, row.rounds);
    if (!isFloor) {
      out << R"(, "peer_name": )" << Quoted(row.against);
    }
    end(isFloor ? "bound_floor" : "bound_peer", row.bound);
  }
  for (const Figure& row : mFigures) {
    begin(row.line);
    out << R"(, "value": )" << row.value << R"(, "unit": )" << Quoted(row.unit);
    end("bound", row.bound);
  }
  for (const std::string& note : mNotes) {
    begin(note, "note");
    end("", kNoBound);
  }
  out << "\n]\n";
}

}  // namespace BrimletBench

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <iomanip>
#include <sstream>

#include "Bench.h"

namespace bench {
namespace {

using Cells = std::vector<std::string>;

/// Three significant digits.
std::string Number(double value) {
  const double size = std::fabs(value);
  const int digits = size >= 100 ? 0 : size >= 10 ? 1 : 2;
  std::ostringstream text;
  text << std::fixed << std::setprecision(digits) << value;
  return text.str();
}

std::string Bound(double bound) {
  std::ostringstream text;
  text << bound;
  return text.str();
}

bool Met(const Figure& figure, const Value& value) {
  switch (figure.target.kind) {
    case Target::Kind::kAtMost:
      return value.median <= figure.target.bound;
    case Target::Kind::kAtLeast:
      return value.median >= figure.target.bound;
    default:
      return true;
  }
}

/// "1.03 (<= 1.15)", with a word when the target is missed.
std::string Cell(const Figure& figure, const Value& value) {
  if (!figure.value) return "";
  std::string text = Number(value.median);
  if (figure.target.kind == Target::Kind::kNone) return text;
  text += figure.target.kind == Target::Kind::kAtMost ? " (<= " : " (>= ";
  text += Bound(figure.target.bound) + (Met(figure, value) ? ")" : ") MISSED");
  return text;
}

/// The heading, then the lines.
std::vector<Cells> TableOf(const MeasuredGroup& group) {
  std::vector<Cells> table;
  Cells heading{"job", "by"};
  heading.insert(heading.end(), group.columns.begin(), group.columns.end());
  table.push_back(heading);
  for (const MeasuredLine& line : group.lines) {
    Cells cells{line.job, line.who};
    for (size_t i = 0; i < line.figures.size(); ++i) cells.push_back(Cell(line.figures[i], line.values[i]));
    cells.resize(heading.size());
    table.push_back(cells);
  }
  return table;
}

std::string Quoted(const std::string& text) {
  std::string quoted = "\"";
  for (const char c : text) {
    if (c == '"' || c == '\\') quoted += '\\';
    quoted += static_cast<unsigned char>(c) < ' ' ? ' ' : c;
  }
  return quoted + '"';
}

void WriteFigure(std::ostream& out, const std::string& column, const Figure& figure, const Value& value) {
  out << "{\"column\": " << Quoted(column) << ", \"median\": " << value.median << ", \"lowerQuartile\": " << value.low
      << ", \"upperQuartile\": " << value.high;
  if (figure.target.kind != Target::Kind::kNone) {
    out << ", \"" << (figure.target.kind == Target::Kind::kAtMost ? "atMost" : "atLeast")
        << "\": " << figure.target.bound << ", \"met\": " << (Met(figure, value) ? "true" : "false");
  }
  out << "}";
}

void WriteGroup(std::ostream& out, const MeasuredGroup& group) {
  out << "    {\"key\": " << Quoted(group.key) << ", \"title\": " << Quoted(group.title) << ", \"lines\": [";
  const char* lineComma = "\n";
  for (const MeasuredLine& line : group.lines) {
    out << lineComma << "      {\"job\": " << Quoted(line.job) << ", \"by\": " << Quoted(line.who)
        << ", \"figures\": [";
    lineComma = ",\n";
    const char* comma = "";
    for (size_t i = 0; i < line.figures.size(); ++i) {
      if (!line.figures[i].value) continue;
      out << comma;
      WriteFigure(out, group.columns[i], line.figures[i], line.values[i]);
      comma = ", ";
    }
    out << "]}";
  }
  out << "\n    ]}";
}

}  // namespace

int Print(const MeasuredGroup& group) {
  const std::vector<Cells> table = TableOf(group);
  std::vector<size_t> widths(table[0].size());
  for (const Cells& cells : table) {
    for (size_t i = 0; i < cells.size(); ++i) widths[i] = std::max(widths[i], cells[i].size());
  }
  std::printf("\n%s\n", group.title.c_str());
  for (const Cells& cells : table) {
    std::string text;
    for (size_t i = 0; i < cells.size(); ++i) text += "  " + cells[i] + std::string(widths[i] - cells[i].size(), ' ');
    text.erase(text.find_last_not_of(' ') + 1);
    std::printf("%s\n", text.c_str());
  }
  std::fflush(stdout);
  int missed = 0;
  for (const MeasuredLine& line : group.lines) {
    for (size_t i = 0; i < line.figures.size(); ++i) missed += !Met(line.figures[i], line.values[i]);
  }
  return missed;
}

void WriteMarkdown(const std::string& path, const Machine& machine, int rounds,
                   const std::vector<MeasuredGroup>& groups) {
  std::ofstream out(path);
  out << "# Benchmark figures\n\n";
  for (const auto& [name, value] : machine.facts) out << "- " << name << ": " << value << "\n";
  out << "- method: one thread, processor time, medians of " << rounds << " interleaved rounds\n";
  for (const MeasuredGroup& group : groups) {
    out << "\n## " << group.title << "\n\n";
    bool heading = true;
    for (const Cells& cells : TableOf(group)) {
      for (const std::string& cell : cells) out << "| " << cell << " ";
      out << "|\n";
      if (heading) {
        for (size_t i = 0; i < cells.size(); ++i) out << "|---";
        out << "|\n";
      }
      heading = false;
    }
  }
  out.close();
  Require(!out.fail(), path.c_str());
}

void WriteJson(const std::string& path, const Machine& machine, int rounds, const std::vector<MeasuredGroup>& groups) {
  std::ofstream out(path);
  out << "{\n  \"machine\": {";
  const char* comma = "\n";
  for (const auto& [name, value] : machine.facts) {
    out << comma << "    " << Quoted(name) << ": " << Quoted(value);
    comma = ",\n";
  }
  out << "\n  },\n  \"rounds\": " << rounds << ",\n  \"groups\": [";
  comma = "\n";
  for (const MeasuredGroup& group : groups) {
    out << comma;
    WriteGroup(out, group);
    comma = ",\n";
  }
  out << "\n  ]\n}\n";
  out.close();
  Require(!out.fail(), path.c_str());
}

}  // namespace bench

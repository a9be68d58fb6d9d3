#include "kit/convert/trace_csv.h"

#include <algorithm>
#include <vector>

#include "kit/common/printable.h"

namespace vorn::kit {
namespace {

// As RFC 4180 has it. A damaged trace has names of any bytes: what would steer a terminal is
// spelled out, and what a table would take for a formula has an apostrophe in front.
std::string Cell(std::string_view raw) {
  constexpr std::string_view kBeginsFormula = "=+-@";
  std::string text = Printable(raw);
  if (!text.empty() && kBeginsFormula.find(text[0]) != std::string_view::npos) text.insert(0, "'");
  if (text.find_first_of(",\"\r\n") == std::string::npos) return text;
  std::string cell = "\"";
  for (const char c : text) cell += c == '"' ? "\"\"" : std::string(1, c);
  return cell + "\"";
}

std::string Numbers(std::span<const uint64_t> values) {
  std::string text;
  for (const uint64_t value : values) {
    if (!text.empty()) text += ' ';
    text += std::to_string(value);
  }
  return text;
}

struct Row {
  uint64_t startNs;
  std::string text;
};

std::string CallCells(const TracedCall& call) {
  std::string cells = ",";
  if (call.endedNs) cells += std::to_string(*call.endedNs - call.beganNs);
  cells += ',';
  std::span<const uint64_t> results = call.results;
  if (!results.empty()) {
    cells += std::to_string(results[0]);
    results = results.subspan(1);
  }
  return cells + ',' + Numbers(call.arguments) + ',' + Numbers(results);
}

void AddRows(const PlacedTrace& placed, std::vector<Row>& rows) {
  const TraceFile& file = placed.trace.file;
  const std::string front =
      Cell(placed.trace.name) + "," + Cell(file.host) + "," + std::to_string(file.pid) + ",";
  for (const TracedCall& call : file.calls) {
    const uint64_t start = placed.At(call.beganNs);
    rows.push_back({start, front + std::to_string(call.thread) + "," + std::to_string(call.number) +
                               "," + Cell(file.operations[call.operation]) + "," +
                               std::to_string(start) + CallCells(call) + "\n"});
  }
  if (file.dropped != 0) {
    const uint64_t end = placed.At(placed.EndNs());
    rows.push_back({end, front + "," + std::to_string(file.dropped) + ",dropped," +
                             std::to_string(end) + ",,,,\n"});
  }
}

}  // namespace

std::string ToCsv(std::span<const PlacedTrace> traces) {
  std::vector<Row> rows;
  for (const PlacedTrace& placed : traces) AddRows(placed, rows);
  std::stable_sort(rows.begin(), rows.end(),
                   [](const Row& one, const Row& two) { return one.startNs < two.startNs; });
  std::string text =
      "trace,host,process,thread,call,operation,startNs,durationNs,answer,arguments,results\n";
  for (const Row& row : rows) text += row.text;
  return text;
}

}  // namespace vorn::kit

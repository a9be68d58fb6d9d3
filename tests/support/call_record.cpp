#include "support/call_record.h"

#include <algorithm>
#include <iterator>
#include <stdexcept>

#include "support/files.h"

namespace support {
namespace {

constexpr const char* kQueries[] = {
    "vorn_ext_get_mdl_net_type",
    "vorn_mdl_get_num_inputs",
    "vorn_mdl_get_num_outputs",
    "vorn_mdl_get_input_dims",
    "vorn_mdl_get_output_dims",
    "vorn_mdl_get_output_name_by_index",
    "vorn_mdl_get_input_data_type",
    "vorn_mdl_get_output_data_type",
    "vorn_mdl_get_input_size_by_index",
    "vorn_mdl_get_output_size_by_index",
    "vorn_mdl_get_input_default_stride",
    "vorn_mdl_get_output_default_stride",
    "vorn_mdl_get_input_format",
    "vorn_mdl_get_output_format",
    "vorn_data_type_size",
    "vorn_get_data_buffer_addr",
    "vorn_get_data_buffer_size",
    "vorn_mdl_get_dataset_num_buffers",
    "vorn_mdl_get_dataset_buffer",
};

bool StartsWith(const std::string& text, const std::string& start) {
  return text.compare(0, start.size(), start) == 0;
}

std::vector<std::string> Starting(const std::vector<std::string>& lines, const std::string& start) {
  std::vector<std::string> found;
  std::copy_if(lines.begin(), lines.end(), std::back_inserter(found),
               [&](const std::string& line) { return StartsWith(line, start); });
  return found;
}

/// The text behind `key=` up to the next blank.
std::string ValueOf(const std::string& line, const std::string& key) {
  const size_t at = line.find(" " + key + "=");
  if (at == std::string::npos) return "";
  const size_t start = at + key.size() + 2;
  return line.substr(start, line.find(' ', start) - start);
}

/// Reads `saw input 0: buffer=16 block=32 hex=...`.
Sight ParseSight(const std::string& line, uint64_t execution) {
  Sight sight;
  sight.execution = execution;
  sight.isInput = StartsWith(line, "saw input ");
  sight.index = std::stoull(line.substr(line.find_first_of("0123456789")));
  sight.bufferSize = std::stoull(ValueOf(line, "buffer"));
  sight.bytes = Unhex(ValueOf(line, "hex"));
  sight.hash = ValueOf(line, "hash");
  return sight;
}

/// The first place of `wanted` outside quotes, from `at` on.
size_t FindUnquoted(const std::string& line, char wanted, size_t at) {
  bool inQuotes = false;
  for (; at < line.size(); ++at) {
    if (inQuotes && line[at] == '\\') {
      ++at;
    } else if (line[at] == '"') {
      inQuotes = !inQuotes;
    } else if (!inQuotes && line[at] == wanted) {
      return at;
    }
  }
  return std::string::npos;
}

/// The end of the argument list, past arguments such as `block#1 (released)`.
size_t FindListEnd(const std::string& line, size_t at) {
  for (;;) {
    const size_t close = FindUnquoted(line, ')', at);
    if (close == std::string::npos || line.compare(close, 4, ") = ") == 0) return close;
    at = close + 1;
  }
}

}  // namespace

CallRecord::CallRecord(std::vector<std::string> lines) : lines_(std::move(lines)) {}

std::vector<std::string> CallRecord::Calls() const {
  std::vector<std::string> calls;
  std::copy_if(lines_.begin(), lines_.end(), std::back_inserter(calls), IsCall);
  return calls;
}

std::vector<std::string> CallRecord::CallsWithoutQueries() const {
  std::vector<std::string> calls = Calls();
  calls.erase(std::remove_if(
                  calls.begin(), calls.end(),
                  [](const std::string& line) { return IsQuery(line.substr(0, line.find('('))); }),
              calls.end());
  return calls;
}

std::vector<std::string> CallRecord::CallsOf(const std::string& operation) const {
  return Starting(lines_, operation + "(");
}

std::vector<std::string> CallRecord::Violations() const { return Starting(lines_, "violation: "); }

std::vector<std::string> CallRecord::Notes() const { return Starting(lines_, "note: "); }

std::vector<Sight> CallRecord::Sights() const {
  std::vector<Sight> sights;
  uint64_t execution = 0;
  for (const std::string& line : lines_) {
    if (StartsWith(line, "vorn_mdl_execute(")) ++execution;
    if (StartsWith(line, "saw ")) sights.push_back(ParseSight(line, execution));
  }
  return sights;
}

std::string CallRecord::Live() const {
  const std::vector<std::string> lines = Starting(lines_, "live: ");
  if (lines.empty()) return "";
  const std::string& last = lines.back();
  return last.substr(6, last.rfind(" at=") - 6);
}

bool CallRecord::HasScripted() const {
  return std::any_of(lines_.begin(), lines_.end(), [](const std::string& line) {
    return IsCall(line) && ParseCall(line).scripted;
  });
}

bool IsCall(const std::string& line) { return StartsWith(line, "vorn_"); }

bool IsQuery(const std::string& operation) {
  return std::find(std::begin(kQueries), std::end(kQueries), operation) != std::end(kQueries);
}

RecordedCall ParseCall(const std::string& line) {
  RecordedCall call;
  const size_t open = line.find('(');
  const size_t end = FindListEnd(line, open + 1);
  if (open == std::string::npos || end == std::string::npos) {
    throw std::runtime_error("no call: " + line);
  }
  call.operation = line.substr(0, open);
  for (size_t at = open + 1; at < end;) {
    const size_t comma = std::min(FindUnquoted(line, ',', at), end);
    call.arguments.push_back(line.substr(at, comma - at));
    at = comma + 2;
  }
  std::string rest = line.substr(end + 4);
  const std::string scripted = " [scripted]";
  if (rest.size() >= scripted.size() &&
      rest.compare(rest.size() - scripted.size(), scripted.size(), scripted) == 0) {
    call.scripted = true;
    rest.resize(rest.size() - scripted.size());
  }
  const size_t blank = FindUnquoted(rest, ' ', 0);
  call.answer = rest.substr(0, blank);
  if (blank != std::string::npos) call.shown = rest.substr(blank + 1);
  return call;
}

}  // namespace support

#include "scripted/execution.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>

namespace scripted {
namespace {

std::string Hex(const Area& area) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  for (uint64_t at = 0; at < area.size; ++at) {
    text += kDigits[area.bytes[at] >> 4];
    text += kDigits[area.bytes[at] & 15];
  }
  return text;
}

std::string Hash(const Area& area) {
  char text[20];
  std::snprintf(text, sizeof text, "%016llx",
                static_cast<unsigned long long>(Fnv1a(area.bytes, area.size)));
  return text;
}

void Look(const char* whose, Sight sight, const std::vector<Area>& areas,
          std::vector<std::string>* lines) {
  if (sight == Sight::kNothing) return;
  for (size_t i = 0; i < areas.size(); ++i) {
    lines->push_back(std::string("saw ") + whose + " " + std::to_string(i) +
                     ": buffer=" + std::to_string(areas[i].bufferSize) +
                     " block=" + std::to_string(areas[i].size) +
                     (sight == Sight::kHex ? " hex=" + Hex(areas[i]) : " hash=" + Hash(areas[i])));
  }
}

void DumpInputs(const std::string& directory, uint64_t execution, const std::vector<Area>& inputs) {
  if (directory.empty()) return;
  for (size_t i = 0; i < inputs.size(); ++i) {
    std::ofstream file(
        directory + "/execute" + std::to_string(execution) + ".input" + std::to_string(i) + ".bin",
        std::ios::binary);
    file.write(reinterpret_cast<const char*>(inputs[i].bytes),
               static_cast<std::streamsize>(inputs[i].size));
  }
}

std::string ReadFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

/// The bytes that a rule writes, in one piece.
std::string Compose(const WriteRule& rule, uint64_t room, const std::vector<Area>& inputs) {
  switch (rule.source) {
    case WriteSource::kBytes:
      return rule.bytes;
    case WriteSource::kFill:
      return std::string(room, static_cast<char>(rule.number));
    case WriteSource::kCounter: {
      std::string bytes(room, '\0');
      for (uint64_t at = 0; at < room; ++at) bytes[at] = static_cast<char>(rule.number + at);
      return bytes;
    }
    case WriteSource::kFile:
      return ReadFile(rule.bytes);
    case WriteSource::kCopy: {
      if (rule.number >= inputs.size()) return "";
      const Area& input = inputs[rule.number];
      return {reinterpret_cast<const char*>(input.bytes), std::min(input.size, room)};
    }
  }
  return "";
}

/// Writes one row as far as it fits; false if some of it did not.
bool WriteRow(const Area& area, uint64_t offset, const std::string& bytes, uint64_t from,
              uint64_t count) {
  if (offset > area.size) return count == 0;
  const uint64_t fits = std::min(count, area.size - offset);
  std::memcpy(area.bytes + offset, bytes.data() + from, fits);
  return fits == count;
}

bool Apply(const WriteRule& rule, const std::vector<Area>& inputs, const Area& area) {
  const uint64_t room = area.size > rule.offset ? area.size - rule.offset : 0;
  const std::string bytes = Compose(rule, room, inputs);
  const uint64_t row = rule.rowBytes == 0 ? bytes.size() : rule.rowBytes;
  bool fits = true;
  uint64_t offset = rule.offset;
  for (uint64_t from = 0; from < bytes.size(); from += row, offset += rule.strideBytes) {
    fits &= WriteRow(area, offset, bytes, from, std::min(row, bytes.size() - from));
  }
  return fits;
}

}  // namespace

void DumpImage(const Script& script, const void* image, uint64_t size) {
  if (script.imageFile.empty()) return;
  std::ofstream file(script.imageFile, std::ios::binary);
  file.write(static_cast<const char*>(image), static_cast<std::streamsize>(size));
}

uint64_t Fnv1a(const unsigned char* bytes, uint64_t size) {
  uint64_t hash = 0xcbf29ce484222325;
  for (uint64_t at = 0; at < size; ++at) hash = (hash ^ bytes[at]) * 0x100000001b3;
  return hash;
}

std::vector<std::string> Observe(const Script& script, uint64_t execution,
                                 const std::vector<Area>& inputs,
                                 const std::vector<Area>& outputs) {
  std::vector<std::string> lines;
  Look("input", script.inputSight, inputs, &lines);
  Look("output", script.outputSight, outputs, &lines);
  DumpInputs(script.dumpDirectory, execution, inputs);
  return lines;
}

std::vector<std::string> WriteOutputs(const Script& script, uint64_t execution,
                                      const std::vector<Area>& inputs,
                                      const std::vector<Area>& outputs) {
  std::vector<std::string> complaints;
  for (const WriteRule& rule : script.writes) {
    if (!rule.executions.Has(execution)) continue;
    const std::string name = "the script's bytes for output " + std::to_string(rule.output);
    if (rule.output >= outputs.size()) {
      complaints.push_back(name + " have no block");
    } else if (!Apply(rule, inputs, outputs[rule.output])) {
      complaints.push_back(name + " did not fit");
    }
  }
  return complaints;
}

}  // namespace scripted

// Splits lines and pieces; nothing is trimmed.
#include "sample/input_list.h"

#include <libgen.h>

#include <fstream>
#include <sstream>

#include "common/input_entry.h"
#include "common/log.h"

namespace vorn::run {
namespace {

std::string FolderOf(std::string path) { return dirname(path.data()); }

}  // namespace

std::string MakeInputEntry(std::string_view line, std::string_view folder) {
  const size_t pathStart = HasInputNamePrefix(line) ? line.find(':') + 1 : 0;
  std::string entry(line.substr(0, pathStart));
  entry.append(folder).append("/").append(line.substr(pathStart));
  return entry;
}

std::vector<std::string> ReadInputEntries(std::istream& lines, std::string_view folder) {
  std::vector<std::string> entries;
  std::string line;
  while (std::getline(lines, line)) {
    if (!line.empty()) entries.push_back(MakeInputEntry(line, folder));
  }
  return entries;
}

std::vector<std::string> ReadInputListFile(const std::string& listFile) {
  std::ifstream lines(listFile);
  if (!lines.is_open()) {
    PrintLine("[ERROR] open file %s failed\n", listFile.c_str());
    return {};
  }
  return ReadInputEntries(lines, FolderOf(listFile));
}

std::vector<std::string> SplitString(const std::string& text, char delimiter) {
  std::vector<std::string> pieces;
  std::istringstream stream(text);
  std::string piece;
  while (std::getline(stream, piece, delimiter)) pieces.push_back(piece);
  return pieces;
}

}  // namespace vorn::run

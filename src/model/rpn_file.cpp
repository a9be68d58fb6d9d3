// Formatted extraction, with what it does at the end of a text.
#include "model/rpn_file.h"

#include <fstream>

#include "common/log.h"
#include "common/path.h"

namespace vorn::run {

int ExtractRpnValues(std::istream& text, std::vector<float>& detPara) {
  float value = 0.0F;
  while (!text.eof()) {
    if (text.fail()) return 1;
    text >> value;
    detPara.push_back(value);
  }
  return 0;
}

int ReadRpnPara(const std::string& path, std::vector<float>& detPara) {
  if (CheckPathIsFile(path) != 0) return 1;
  std::ifstream text(path);
  if (!text.is_open()) {
    PrintLine("[ERROR] open file %s failed\n", path.c_str());
    return 1;
  }
  return ExtractRpnValues(text, detPara);
}

}  // namespace vorn::run

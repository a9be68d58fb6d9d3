// The command line by getopt, its values by position.
#include "app/parse_args.h"

#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <limits>
#include <stdexcept>

#include "common/log.h"

namespace vorn::run {
namespace {

void PrintUsage() {
  PrintLine(
      "[ERROR] example: -m modelPath -i imagePath -j vornJsonPath [-t nlpTotalT] [-b batchSize] "
      "[-r rpnData] [-p profile] [-o outputPath]\n");
}

// The uncaught exception's text is what a script finds on standard error, so it does not follow the
// standard library at hand.
std::string WordAt(int position, int argc, char** argv) {
  if (position >= argc) throw std::logic_error("basic_string::_M_construct null not valid");
  return argv[position];
}

void StoreOption(int option, const std::string& value, SampleOptions& options) {
  switch (option) {
    case 'm':
      options.modelPath = value;
      break;
    case 'i':
      options.imagePath = value;
      break;
    case 'j':
      options.vornJsonPath = value;
      break;
    case 'r':
      options.rpnData = value;
      break;
    case 'o':
      options.outputPath = value;
      break;
    case 'b':
      options.batchSize = StringToInt(value);
      PrintLine("[INFO]  batchSize: %d\n", options.batchSize);
      break;
    case 't':
      options.nlpTotalT = StringToInt(value);
      PrintLine("[INFO]  nlpTotalT: %d\n", options.nlpTotalT);
      break;
    case 'p':
      options.profile = StringToInt(value);
      break;
    default:  // `getopt` returns no other letter
      break;
  }
}

}  // namespace

void ParseArgs(SampleOptions& options, int argc, char** argv) {
  int position = 0;
  int option = 0;
  while ((option = getopt(argc, argv, "m:i:j:t:b:r:p:o:")) != -1) {
    position += 2;
    if (option == '?') {
      PrintUsage();
      continue;
    }
    StoreOption(option, WordAt(position, argc, argv), options);
  }
}

int32_t StringToInt(const std::string& text) {
  char* end = nullptr;
  errno = 0;
  const long number = std::strtol(text.c_str(), &end, 10);
  if (end == text.c_str()) throw std::invalid_argument("stoi");
  if (errno == ERANGE || number < std::numeric_limits<int32_t>::min() ||
      number > std::numeric_limits<int32_t>::max()) {
    throw std::out_of_range("stoi");
  }
  return static_cast<int32_t>(number);
}

}  // namespace vorn::run

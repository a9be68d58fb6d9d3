// Measures what the edits of a model cost (docs/host-runtime.md, "Inside a model"): loading it and
// executing it with an edit against without, in one process, by turns.
//
//     edits-bench OUT.json ROUNDS CASE=MODEL.onnx...
//
// In each round either side brings the runtime up, loads the model, and executes it for a while;
// every other round the other side begins. A round gives one ratio of each, of the thread's own
// time, and their medians are what is printed. For each case a comparison without an edit on either
// side tells how far the figures can be trusted.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

#include "execute/vorn_session.h"

namespace {

constexpr double kTurnSeconds = 0.2;
constexpr int kLeastExecutions = 3;

struct Edit {
  const char* name;
  const char* config;  // null where the model's tensors make it
};

constexpr Edit kPlain = {"nothing", "{}"};
constexpr Edit kExposed = {"expose all", R"({"model": {"expose": "all"}})"};
constexpr Edit kEdits[] = {
    kPlain,
    kExposed,
    {"round to float16", R"({"model": {"round": "float16"}})"},
    {"round to bfloat16", R"({"model": {"round": "bfloat16"}})"},
    {"round to int8", nullptr},
};

struct Times {
  double load = 0;  // seconds
  double execute = 0;
};

double ThreadSeconds() {
  timespec now = {};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

double Median(std::vector<double> values) {
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

std::vector<char> ReadFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) throw std::runtime_error("cannot read " + path);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

Times Measure(const std::vector<char>& image, const std::string& configPath) {
  const VornRuntime runtime(configPath);
  Times times;
  const double start = ThreadSeconds();
  VornSession session(std::as_bytes(std::span(image)));
  times.load = ThreadSeconds() - start;
  session.Run();
  const double begin = ThreadSeconds();
  int count = 0;
  while (count < kLeastExecutions || ThreadSeconds() - begin < kTurnSeconds) {
    session.Run();
    ++count;
  }
  times.execute = (ThreadSeconds() - begin) / count;
  return times;
}

struct Row {
  std::string name;
  std::string unit;
  std::vector<double> floors, ours, ratios;

  void Add(double floor, double mine) {
    floors.push_back(floor);
    ours.push_back(mine);
    ratios.push_back(mine / floor);
  }
};

std::string ConfigFile(const std::filesystem::path& folder, const std::string& name,
                       const std::string& config) {
  const std::filesystem::path path = folder / (name + ".json");
  std::ofstream(path) << config;
  return path;
}

/// One range for all tensors: to which values they are rounded does not matter for how long it
/// takes.
std::string ConfigOfInt8(const std::vector<char>& image, const std::filesystem::path& folder) {
  const VornRuntime runtime(ConfigFile(folder, kExposed.name, kExposed.config));
  const VornSession session(std::as_bytes(std::span(image)));
  std::string ranges;
  for (const std::string& name : session.TensorNames()) {
    ranges += (ranges.empty() ? "\"" : ", \"") + name + R"(": {"min": -8, "max": 8})";
  }
  return R"({"model": {"round": {"int8": {)" + ranges + "}}}}";
}

void MeasureCase(const std::string& name, const std::string& model, int rounds,
                 const std::filesystem::path& folder, std::string& json) {
  const std::vector<char> image = ReadFile(model);
  const std::string plain = ConfigFile(folder, kPlain.name, kPlain.config);
  for (const Edit& edit : kEdits) {
    const std::string edited =
        ConfigFile(folder, edit.name,
                   edit.config != nullptr ? std::string(edit.config) : ConfigOfInt8(image, folder));
    Row rows[] = {{"edit-load", "ms", {}, {}, {}}, {"edit-execute", "ms", {}, {}, {}}};
    for (int round = 0; round < rounds; ++round) {
      const bool isPlainFirst = round % 2 == 0;
      const Times first = Measure(image, isPlainFirst ? plain : edited);
      const Times second = Measure(image, isPlainFirst ? edited : plain);
      const Times& without = isPlainFirst ? first : second;
      const Times& with = isPlainFirst ? second : first;
      rows[0].Add(without.load * 1e3, with.load * 1e3);
      rows[1].Add(without.execute * 1e3, with.execute * 1e3);
    }
    for (const Row& row : rows) {
      std::printf("%-12s %-10s %-18s %9.3f ms without, %9.3f ms with: %.2f\n", row.name.c_str(),
                  name.c_str(), edit.name, Median(row.floors), Median(row.ours),
                  Median(row.ratios));
      std::fflush(stdout);
      if (edit.name == kPlain.name) continue;
      char text[400];
      std::snprintf(text, sizeof(text),
                    "%s{\"row\": \"%s\", \"case\": \"%s, %s\", \"ratio\": %.6g, \"floor\": %.6g, "
                    "\"ours\": %.6g, \"unit\": \"%s\", \"runs\": %d}",
                    json.empty() ? "" : ",\n ", row.name.c_str(), name.c_str(), edit.name,
                    Median(row.ratios), Median(row.floors), Median(row.ours), row.unit.c_str(),
                    rounds);
      json += text;
    }
  }
}

int Run(int argc, char** argv) {
  if (argc < 4) {
    std::fprintf(stderr, "edits-bench OUT.json ROUNDS CASE=MODEL.onnx...\n");
    return 2;
  }
  const int rounds = std::max(1, std::atoi(argv[2]));
  const std::filesystem::path folder = std::string(argv[1]) + ".configs";
  std::filesystem::create_directories(folder);
  std::string json;
  for (int i = 3; i < argc; ++i) {
    const std::string word = argv[i];
    const size_t at = word.find('=');
    if (at == std::string::npos) throw std::runtime_error("give CASE=MODEL instead of " + word);
    MeasureCase(word.substr(0, at), word.substr(at + 1), rounds, folder, json);
  }
  std::filesystem::remove_all(folder);
  std::ofstream(argv[1]) << '[' << json << "]\n";
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return Run(argc, argv);
  } catch (const std::exception& e) {
    std::fprintf(stderr, "edits-bench: %s\n", e.what());
    return 1;
  }
}

// cause_bench ROUNDS SEED ARRAYS...: plants faults into arrays of real outputs, and prints which
// causes were named for them. A SEED of 0 is drawn anew. See bench/README.md.
#include <cstdio>
#include <cstdlib>

#include "judge/faults.h"

int main(int argc, char** argv) {
  if (argc < 4) {
    std::fputs("cause_bench ROUNDS SEED ARRAYS...\n", stderr);
    return 2;
  }
  uint64_t seed = std::strtoull(argv[2], nullptr, 10);
  if (seed == 0) seed = std::random_device()();
  std::vector<vorn::bench::RealOutput> outputs;
  for (int i = 3; i < argc; ++i) {
    for (auto& output : vorn::bench::ReadOutputs(argv[i])) outputs.push_back(std::move(output));
  }
  const auto rounds = static_cast<size_t>(std::strtoul(argv[1], nullptr, 10));
  const vorn::bench::Confusion confusion = vorn::bench::Confuse(outputs, rounds, seed);
  std::printf(
      "seed %llu\n\n%s\n%.2f %% of the faults named right, %.2f %% of the honest differences "
      "named\n",
      static_cast<unsigned long long>(seed), confusion.Table().c_str(), 100 * confusion.Right(),
      100 * confusion.HonestNamed());
  return 0;
}

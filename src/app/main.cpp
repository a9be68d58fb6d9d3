// vorn-run: runs a compiled network over a list of raw input tensors and writes every output as
// text and as binary. The exit status is 0, or 1 after a failure that has been printed.
#include "app/parse_args.h"
#include "app/standard_streams.h"
#include "sample/prepare_paths.h"
#include "sample/run_sample.h"

namespace run = vorn::run;

// No exception is caught: a malformed number on the command line is to end the process abnormally.
int main(int argc, char** argv) {
  run::HoldStandardStreams();
  run::SampleOptions options;
  run::ResolvedPaths paths;
  run::ParseArgs(options, argc, argv);
  if (run::PreparePaths(options, paths) != 0) return 1;
  return run::RunSample(options, paths);
}

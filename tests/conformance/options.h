// What the suite is told on its command line, beside what GoogleTest takes for itself.
#ifndef VORN_TESTS_CONFORMANCE_OPTIONS_H_
#define VORN_TESTS_CONFORMANCE_OPTIONS_H_

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace conformance {

struct Options {
  std::string runtime = "libvorn.so";  ///< as dlopen takes it
  std::string config;
  std::string model;           ///< feed-forward; an image that the runtime executes
  std::string detectionModel;  ///< empty leaves the group out, likewise below
  std::string recurrentModel;
  std::string answers;  ///< a folder of tensors that `model` is known to give
  int32_t device = 0;
  uint64_t batch = 3;               ///< that the models take; 1 where they take none
  uint64_t rpnInputs = 1;           ///< of `detectionModel`
  double tolerance = 1e-3;          ///< of floats that were computed in another way
  std::optional<uint32_t> seconds;  ///< that a test may take; see kUsage
  bool trusting = false;            ///< the runtime does not check handles that are no longer alive
  bool namedStatuses = false;
  bool noSkips = false;    ///< what cannot be tested counts as a failure
  bool inProcess = false;  ///< no child processes
};

inline constexpr const char* kUsage =
    "usage: vorn-conformance --config FILE --model FILE [option...] [--gtest_...]\n"
    "  --runtime LIBRARY        the runtime; libvorn.so, wherever the loader finds it\n"
    "  --config FILE            the configuration for vorn_init\n"
    "  --model FILE             a feed-forward model whose outputs depend on its inputs\n"
    "  --detection-model FILE   adds the group Detection\n"
    "  --recurrent-model FILE   adds the group Recurrent\n"
    "  --answers FOLDER         adds the group Answers: input<i>.bin and output<i>.bin of --model\n"
    "  --device N               0\n"
    "  --batch N                a batch that the models take; 3, and 1 where they take none\n"
    "  --rpn-inputs N           of the detection model; 1\n"
    "  --tolerance X            of floats of items executed alone and in a batch; 0.001\n"
    "  --seconds N              that a test may take; 300, or no limit with --in-process\n"
    "  --trusting               leaves out the groups Handles and HandlesInUse\n"
    "  --named-statuses         adds the groups Statuses and StatusesDown\n"
    "  --no-skips               what cannot be tested counts as a failure\n"
    "  --in-process             no child processes, for debuggers; a crash ends the run\n";

/// The options of this run; set once, by `main`.
Options& Given();

/// Reads the words behind the program's name. Returns an empty text, or what is wrong.
std::string ReadOptions(const std::vector<std::string>& words, Options& options);

}  // namespace conformance

#endif  // VORN_TESTS_CONFORMANCE_OPTIONS_H_

// The division fault of src/model/division.h as an exception. A model can be described such that
// `vorn-run` has to end by SIGFPE; a fuzzer wants to see that and to go on.
#ifndef VORN_TESTS_FUZZ_DIVISION_FAULT_H_
#define VORN_TESTS_FUZZ_DIVISION_FAULT_H_

namespace fuzz {

struct DivisionFault {};

}  // namespace fuzz

#endif  // VORN_TESTS_FUZZ_DIVISION_FAULT_H_

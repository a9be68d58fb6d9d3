// What a person is told of a fault of ONNX Runtime's.
//
// Its texts begin where in its own source the fault was seen, with the whole signature of the
// function, which may take a page:
//
//     Exception during initialization: /src/a/b.cc:413 ns::Status ns::F(const ns::T&) x was false.
#ifndef VORN_RUNTIME_HOST_ENGINE_ENGINE_CAUSE_H_
#define VORN_RUNTIME_HOST_ENGINE_ENGINE_CAUSE_H_

#include <exception>
#include <string>
#include <string_view>

namespace vorn::host {

/// The text without places in source files and signatures, on one line, cut where it gets long.
std::string ShortCause(std::string_view text);

/// That of a fault. Its whole text goes to the log, at the level of information.
std::string CauseOf(const std::exception& e);

}  // namespace vorn::host

#endif  // VORN_RUNTIME_HOST_ENGINE_ENGINE_CAUSE_H_

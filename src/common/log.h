// The one way to say something: whole lines on standard output.
#ifndef VORN_SRC_COMMON_LOG_H_
#define VORN_SRC_COMMON_LOG_H_

namespace vorn::run {

/// Formats one line as `printf` does and puts it on standard output with a single write,
/// unbuffered: whatever ends the process afterwards, the line has left it. The format carries tag
/// and line feed. What standard output does not take (a full disk) is silently lost; a pipe that
/// nobody reads any more ends the process by SIGPIPE, as it does any program.
[[gnu::format(printf, 1, 2)]] void PrintLine(const char* format, ...);

}  // namespace vorn::run

#endif  // VORN_SRC_COMMON_LOG_H_

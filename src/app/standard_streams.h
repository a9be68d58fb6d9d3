// Making sure that standard input, output and error exist.
#ifndef VORN_SRC_APP_STANDARD_STREAMS_H_
#define VORN_SRC_APP_STANDARD_STREAMS_H_

namespace vorn::run {

/// Puts /dev/null where one of the three is closed. Otherwise the next file to be opened would take
/// its number, and the lines of the run would end up in a dump file.
void HoldStandardStreams();

}  // namespace vorn::run

#endif  // VORN_SRC_APP_STANDARD_STREAMS_H_

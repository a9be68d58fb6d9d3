// Keeps the first three descriptors taken.
#include "app/standard_streams.h"

#include <fcntl.h>
#include <unistd.h>

namespace vorn::run {

void HoldStandardStreams() {
  for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
    // The lowest free number is `fd`, since those below it are held by now.
    if (fcntl(fd, F_GETFD) == -1 && open("/dev/null", O_RDWR) == -1) return;
  }
}

}  // namespace vorn::run

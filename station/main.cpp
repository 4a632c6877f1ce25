#include <fcntl.h>
#include <unistd.h>

#include "CommandLine.h"

namespace {

/// Where a standard stream is missing, a file that is opened later would take its place, and get
/// what is meant for the stream.
void fillStandardStreams() {
  int descriptor = 0;
  while (descriptor >= 0 && descriptor <= 2) descriptor = open("/dev/null", O_RDWR | O_NOCTTY);
  if (descriptor > 2) close(descriptor);
}

}  // namespace

int main(int argc, char** argv) {
  fillStandardStreams();
  return station::runCommandLine(argc, argv);
}

#include <csignal>
#include <string>
#include <vector>

#include "convert/cli/convert_main.h"
#include "process/startup.h"

int main(int argc, char** argv) {
  // Otherwise an output could get the number of a closed standard error, and receive the messages.
  keldo::process::EnsureStandardDescriptors();
  // Unfinished outputs must be removed even where nobody reads our messages any more.
  static_cast<void>(std::signal(SIGPIPE, SIG_IGN));
  return keldo::convert::ConvertMain(
      std::vector<std::string>(argv + (argc > 0 ? 1 : 0), argv + argc));
}

#include <csignal>
#include <string>
#include <vector>

#include "convert/cli/convert_main.h"
#include "process/startup.h"

int main(int argc, char** argv) {
  // An output that took the place of a closed standard error would receive the messages.
  keldo::process::EnsureStandardDescriptors();
  // A reader of our messages who has gone away must not keep us from removing unfinished outputs.
  static_cast<void>(std::signal(SIGPIPE, SIG_IGN));
  return keldo::convert::ConvertMain(
      std::vector<std::string>(argv + (argc > 0 ? 1 : 0), argv + argc));
}

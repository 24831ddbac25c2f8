// Calls KLIBCKill for the tests, in a process table of their own:
//
//   kill_test_helper NAME SIGNAL                     prints the number of processes
//   kill_test_helper NAME SIGNAL PROGRAM SCRIPT      starts PROGRAM -c SCRIPT first, which prints
//                                                    the id of a process that it started, and
//                                                    prints whether that one is gone as well
#include <cstdlib>
#include <iostream>
#include <optional>
#include <string>

#include "platform/process.h"
#include "process/output.h"
#include "process/process_test_support.h"

int main(int argc, char** argv) {
  if (argc < 3) return 2;
  pid_t started = 0;
  if (argc > 4) {
    FILE* stream = KLIBCPopen(argv[3], "r", "-c", argv[4], nullptr);
    if (stream == nullptr) return 2;
    const std::optional<std::string> line = keldo::process::StreamReader(stream).ReadLine(31);
    started = static_cast<pid_t>(std::strtol(line.value_or("").c_str(), nullptr, 10));
    if (started == 0) return 2;
  }
  std::cout << KLIBCKill(argv[1], static_cast<int>(std::strtol(argv[2], nullptr, 10))) << '\n';
  if (started != 0) {
    const bool gone = keldo::testing::Eventually([&] { return keldo::testing::IsGone(started); });
    std::cout << (gone ? "gone" : "still there") << '\n';
  }
}

#include <iostream>
#include <string>
#include <vector>

#include "ctl/commands/command.h"

int main(int argc, char** argv) {
  const std::vector<std::string> arguments(argv + 1, argv + argc);
  return keldo::ctl::RunCommandLine(arguments, keldo::ctl::EnvironmentOfProcess(), std::cout,
                                    std::cerr);
}

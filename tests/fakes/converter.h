// A converter for unit tests: it writes every output that the command line names.
#pragma once

#include <algorithm>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace keldo::testing {

/// A command as the fake platform records it: the program, then its argument vector.
using Command = std::vector<std::string>;

/// The argument that follows `option`; empty when the option is not there.
[[nodiscard]] inline std::string ArgumentOf(const Command& command, const std::string& option) {
  const auto found = std::find(command.begin(), command.end(), option);
  return found == command.end() || found + 1 == command.end() ? std::string() : *(found + 1);
}

/// The files that a converter command writes, in its order: the largest thumbnail first.
[[nodiscard]] inline std::vector<std::string> OutputsOf(const Command& command) {
  std::vector<std::string> outputs;
  for (std::size_t i = 0; i + 1 < command.size(); ++i) {
    if (command[i] == "-write") outputs.push_back(command[i + 1]);
  }
  outputs.push_back(command.back());
  return outputs;
}

/// Writes `bytes` to every output of a converter command and succeeds: an answer for on_run.
inline int WriteOutputs(const Command& command, const std::string& bytes = "thumbnail") {
  for (const std::string& path : OutputsOf(command)) {
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file << bytes;
    if (!file.flush()) throw std::runtime_error("cannot write " + path);
  }
  return 0;
}

}  // namespace keldo::testing

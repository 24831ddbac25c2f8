// The record that a stand-in leaves of how it was started.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace keldo::testing {

/// One start of a stand-in program.
struct Invocation {
  std::string program;                       ///< Base name of the program: "convert-thumb".
  std::string directory;                     ///< Its working directory.
  std::optional<std::string> codec_package;  ///< The variable KELDO_CODEC_PKG_NAME, if it is set.
  std::vector<std::string> arguments;        ///< The whole argument vector, argv[0] first.
};

/// Appends to the record with a single write, so that concurrent programs do not mix their entries.
/// Throws std::runtime_error if that fails.
void AppendInvocation(const std::string& record_path, const Invocation& invocation);

/// All entries, in the order of the starts; empty if there is no record.
[[nodiscard]] std::vector<Invocation> ReadInvocations(const std::string& record_path);

}  // namespace keldo::testing

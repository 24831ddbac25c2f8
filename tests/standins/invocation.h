// What a stand-in tells the test about each time it was started.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace keldo::testing {

/// One start of a stand-in program.
struct Invocation {
  std::string program;                       ///< Base name of what was executed: "convert-thumb".
  std::string directory;                     ///< Its working directory.
  std::optional<std::string> codec_package;  ///< The variable KELDO_CODEC_PKG_NAME, when it is set.
  std::vector<std::string> arguments;        ///< The whole argument vector, argv[0] first.
};

/// Appends to the record with one write, so that programs running at once do not mix theirs. Throws
/// std::runtime_error when that fails.
void AppendInvocation(const std::string& record_path, const Invocation& invocation);

/// All that was recorded, in the order of the starts; empty when there is no record.
[[nodiscard]] std::vector<Invocation> ReadInvocations(const std::string& record_path);

}  // namespace keldo::testing

// A filter for system calls, put together call by call.
#pragma once

#include <linux/filter.h>

#include <cstdint>
#include <span>
#include <vector>

namespace keldo::convert {

/// A program for the kernel. What is not mentioned kills the process, as does a call in another
/// architecture's numbers.
class SyscallFilter {
 public:
  void Allow(std::uint32_t call);
  /// The call fails with an errno value.
  void Refuse(std::uint32_t call, std::uint32_t error);

  /// A condition on the lower half of an argument: masked, it has the value.
  struct Argument {
    std::uint32_t index;
    std::uint32_t mask;
    std::uint32_t value;
  };
  /// The call is let through when the condition holds, fails with `error` otherwise; 0 kills.
  void AllowIf(std::uint32_t call, const Argument& argument, std::uint32_t error);

  /// Puts the filter into force for good. False when the kernel has no such filters.
  [[nodiscard]] bool Install();

 private:
  // What happens to a call, and to those after it up to the next case: instructions that end in a
  // return.
  struct Case {
    std::uint32_t call;
    std::vector<sock_filter> verdict;
  };

  [[nodiscard]] std::vector<Case> CoverAllCalls();
  [[nodiscard]] static std::vector<sock_filter> Search(std::span<const Case> cases);

  std::vector<Case> cases_;
};

}  // namespace keldo::convert

// Running a piece of this program where it can do no harm.
#pragma once

#include <functional>
#include <string>

namespace keldo::process {

/// What became of a piece of work that ran in a process of its own.
struct IsolatedResult {
  bool finished = false;  ///< It returned, rather than crashed, ran out of memory or overran.
  int status = -1;        ///< What it returned (0 to 255) when it finished.
  std::string output;     ///< What it wrote to its argument, at most 64 KiB.
};

/// Runs `work` in a forked copy of this process and waits for it, with termination requests let in.
///
/// For libraries that parse what a stranger wrote: whatever they do to memory, by exception, signal
/// or allocation, ends with the copy. The copy cannot take more memory than a fixed limit, dies
/// with this process and is killed at the deadline of children. Silent. `work` may write files and
/// the log; other changes to memory are lost but for `output`, which it may fill through its
/// argument.
[[nodiscard]] IsolatedResult RunIsolated(const std::function<int(std::string& output)>& work);

}  // namespace keldo::process

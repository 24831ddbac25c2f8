// Passing file names to programs that would read more into them.
//
// ImageMagick gives names a meaning: it takes a photo called "a*.jpg" for a list of arguments, cuts
// "[1]" off as a frame number, expands "%d" in what it writes, and reads "png:", "-" and "@" at the
// beginning of a relative path. Such a name is passed as "/proc/<pid>/fd/N", a path of ours that
// leads to the same file or directory without spelling it.
#pragma once

#include <string>
#include <vector>

#include "util/handles.h"

namespace keldo::media {

/// True when `program` is ImageMagick, told by what its path leads to.
[[nodiscard]] bool IsImageMagick(const std::string& program);

/// An argument vector in which every file name means just that file to the program. For programs
/// that take names literally it is the given one, except that a relative path which begins with '-'
/// or '@' gets "./" in front. To be kept until the program has ended.
class LiteralNames {
 public:
  LiteralNames(const std::string& program, std::vector<std::string> arguments);

  [[nodiscard]] const std::vector<std::string>& arguments() const { return arguments_; }
  /// 0, or why a name could not be made safe (an errno value). The program must not run then.
  [[nodiscard]] int error() const { return error_; }

 private:
  [[nodiscard]] std::string ThroughDescriptor(const std::string& argument);
  [[nodiscard]] std::string Hold(const std::string& path);

  std::vector<std::string> arguments_;
  std::vector<UniqueFd> held_;
  int error_ = 0;
};

}  // namespace keldo::media

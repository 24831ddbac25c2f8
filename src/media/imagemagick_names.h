// File names that ImageMagick would interpret.
//
// To ImageMagick "a*.jpg" is a pattern, "[1]" at the end of a name is a frame number, "%d" in the
// name of an output is a counter, and "png:", "-" and "@" at the start of a relative path have
// meanings of their own. Such a name is passed as "/proc/<pid>/fd/N", a path of our own process
// that leads to the same file or directory without spelling its name.
#pragma once

#include <string>
#include <vector>

#include "util/handles.h"

namespace keldo::media {

/// True when the file that the path `program` leads to has one of ImageMagick's names.
[[nodiscard]] bool IsImageMagick(const std::string& program);

/// An argument vector in which every file name means exactly that file to the program. Programs
/// that read names literally get the arguments unchanged, except that "./" is put before a relative
/// path that starts with '-' or '@'. Must outlive the program's run.
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

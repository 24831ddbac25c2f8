// The files that the thumbnails are written to.
#pragma once

#include <span>
#include <string>
#include <vector>

#include "convert/cli/input_file.h"
#include "convert/pixels/plan.h"
#include "util/handles.h"

namespace keldo::convert {

/// The outputs of one run, opened before it is known whether it succeeds. Unless it is told so,
/// those that were created are removed at the end; files that were there before stay.
class OutputFiles {
 public:
  OutputFiles() = default;
  OutputFiles(const OutputFiles&) = delete;
  OutputFiles& operator=(const OutputFiles&) = delete;
  ~OutputFiles();

  /// Opens the output of every step, and creates those that do not exist; the content of the others
  /// is not touched. False when something is odd enough for this to be another converter's
  /// business: two outputs are one file, or one is no regular file. All outputs exist then all the
  /// same. Throws ImageError (kOutput) when one cannot be opened, or is the input by whatever name.
  /// To be called once.
  [[nodiscard]] bool Open(const std::vector<Step>& steps, const FileIdentity& input);

  /// The descriptors, in the order of the steps.
  [[nodiscard]] std::span<const int> descriptors() const { return descriptors_; }

  /// Closes the files and keeps them. Throws ImageError (kOutput) when what was written did not
  /// reach its place, which some network volumes tell only here; nothing is kept then.
  void Close();

  /// Leaves the files to whoever wrote to them.
  void Keep() { keep_ = true; }

 private:
  struct File {
    std::string path;
    UniqueFd fd;
    FileIdentity identity;
    bool created;
  };

  std::vector<File> files_;
  std::vector<int> descriptors_;
  bool keep_ = false;
};

}  // namespace keldo::convert

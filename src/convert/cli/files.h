// The photo that is read and the thumbnails that are written.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "convert/pixels/image.h"
#include "convert/pixels/plan.h"
#include "util/handles.h"

namespace keldo::convert {

/// Identifies a file under whatever name.
struct FileIdentity {
  dev_t device = 0;
  ino_t inode = 0;
  friend bool operator==(const FileIdentity&, const FileIdentity&) = default;
};

/// A file that is mapped into memory for as long as this lives.
class InputFile {
 public:
  /// Opens the file that `operand` names; "[0]" at its end is not part of the name where the name
  /// without it exists. Throws ImageError (kCorrupt) when it cannot be opened.
  explicit InputFile(const std::string& operand);
  InputFile(const InputFile&) = delete;
  InputFile& operator=(const InputFile&) = delete;
  ~InputFile();

  [[nodiscard]] const FileIdentity& identity() const { return identity_; }

  /// Maps the content and closes the file. Throws ImageError: kUnsupported for anything but a
  /// regular file, such as a pipe, kCorrupt for an empty file. To be called once.
  void Map();

  /// The whole content. Where the file has become shorter, reading what is gone raises SIGBUS.
  [[nodiscard]] Bytes bytes() const { return {data_, size_}; }

 private:
  UniqueFd fd_;
  FileIdentity identity_;
  bool regular_ = false;
  const std::uint8_t* data_ = nullptr;
  std::size_t size_ = 0;
};

/// The outputs of one run, opened before it is known whether the run succeeds. Those that it
/// created are removed at the end unless they are to be kept; files that were there before stay.
class OutputFiles {
 public:
  OutputFiles() = default;
  OutputFiles(const OutputFiles&) = delete;
  OutputFiles& operator=(const OutputFiles&) = delete;
  ~OutputFiles();

  /// Opens the output of every step, and creates those that do not exist; the content of the others
  /// is not touched. False when ImageMagick has to do this: two outputs are the same file, or one
  /// is not a regular file. All outputs exist even then. Throws ImageError (kOutput) when one
  /// cannot be opened, or is the input under whatever name. To be called once.
  [[nodiscard]] bool Open(const std::vector<Step>& steps, const FileIdentity& input);

  /// The descriptors, in the order of the steps.
  [[nodiscard]] std::span<const int> descriptors() const { return descriptors_; }

  /// Closes the files and keeps them. Throws ImageError (kOutput) when what was written did not
  /// reach its place, which some network volumes report only here; nothing is kept then.
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
